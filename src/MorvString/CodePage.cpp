// Conversions between named code pages and Unicode through ICU's converter
// library, loaded at run time (see UCNVLibrary.h).
//
// Every conversion opens its own converter and closes it before returning.
// Output arrays are allocated with new[] and belong to the caller, who frees
// them with delete[]. The composite conversions go through UTF-16 with two
// converters.

#include <cstring>
#include <limits>

#include "MorvString/MorvString.h"
#include "UCNVLibrary.h"

namespace mvcs {

namespace {

// Wide strings as ICU sees them: UTF-32 in the platform's byte order.
const char kWideConverter[] = "UTF32_PlatformEndian";
const char kUTF8Converter[] = "utf8";

// Whether 4 * count + 1 output units can be counted without wrapping.
bool FitsOutputSize(unsigned long count) {
  return count <= (std::numeric_limits<unsigned long>::max() - 1) / 4;
}

// Converts `count` units of `Source` (bytes or UTF-16 units) through the
// converter `name` into a new array of `Target` of 4 * count + 1 units, the
// last kept for a zero terminator. `convert` runs the library's conversion
// once, with flush. On success *out holds the array and *outLength the units
// written; the conversion's own error code is not examined (what it wrote
// stands, substitutions and all). Fails (false, *out null, *outLength 0)
// when no converter opens.
template <class Source, class Target, class Convert>
bool ConvertOnce(const char* name, const Source* source, unsigned long count, Target** out,
                 unsigned long* outLength, Convert convert) {
  if (source == nullptr || count == 0 || out == nullptr || outLength == nullptr ||
      !FitsOutputSize(count)) {
    return false;
  }
  *outLength = 4 * count + 1;
  *out = new Target[*outLength];
  Target* target = *out;
  const Source* cursor = source;
  UCNVLibrary* library = UCNVLibrary::instance();
  UErrorCode error = U_ZERO_ERROR;
  UConverter* converter = library->UCNV_open(name, &error);
  if (converter != nullptr && error <= U_ZERO_ERROR) {
    convert(library, converter, &target, *out + *outLength - 1, &cursor, source + count, &error);
    *target = 0;
    *outLength = static_cast<unsigned long>(target - *out);
    library->UCNV_close(converter);
    return true;
  }
  if (converter != nullptr) library->UCNV_close(converter);
  delete[] * out;
  *out = nullptr;
  *outLength = 0;
  return false;
}

// Converts `count` bytes of `name`, then the UTF-16 through `second`; the
// result of the second step (bytes) goes to `finish`. Intermediate arrays are
// freed. With `needUnits`, the second step runs only when the first gave
// units.
template <class Finish>
void ThroughUTF16(const char* name, const char* source, unsigned long count, const char* second,
                  bool needUnits, Finish finish) {
  unsigned short* units = nullptr;
  unsigned long unitCount = 0;
  if (!CodePageToUnicode(name, source, count, &units, &unitCount)) return;
  if (units != nullptr && (unitCount != 0 || !needUnits)) {
    char* bytes = nullptr;
    unsigned long byteCount = 0;
    if (UnicodeToCodePage(second, units, unitCount, &bytes, &byteCount)) {
      finish(bytes, byteCount);
      delete[] bytes;
    }
  }
  delete[] units;
}

// WideToCodePage and UTF8ToCodePage: `count` bytes of text in converter
// `from` to code page `name`, into the caller's *out, which must be null.
void TextToCodePage(const char* name, const char* from, const char* text, unsigned long count,
                    char** out, unsigned long* outLength) {
  if (name == nullptr || count == 0 || out == nullptr || *out != nullptr || outLength == nullptr)
    return;
  unsigned short* units = nullptr;
  unsigned long unitCount = 0;
  if (!CodePageToUnicode(from, text, count, &units, &unitCount)) return;
  // After a failed second step *out is null and the length 0.
  if (units != nullptr && unitCount != 0) UnicodeToCodePage(name, units, unitCount, out, outLength);
  delete[] units;
}

}  // namespace

bool IsCodePageAvailable(const char* name) {
  // A null name only asks whether the library object exists: it always does.
  if (name == nullptr) return UCNVLibrary::instance() != nullptr;
  UCNVLibrary* library = UCNVLibrary::instance();
  UErrorCode error = U_ZERO_ERROR;
  UConverter* converter = library->UCNV_open(name, &error);
  if (converter == nullptr) return false;
  const bool available = error <= U_ZERO_ERROR;  // warnings count as success
  library->UCNV_close(converter);
  return available;
}

bool UnicodeToCodePage(const char* name, const unsigned short* source, unsigned long count,
                       char** out, unsigned long* outLength) {
  return ConvertOnce(
      name, source, count, out, outLength,
      [](UCNVLibrary* library, UConverter* converter, char** target, const char* targetLimit,
         const unsigned short** cursor, const unsigned short* sourceLimit, UErrorCode* error) {
        library->UCNV_fromUnicode(converter, target, targetLimit, cursor, sourceLimit, nullptr, 1,
                                  error);
      });
}

bool CodePageToUnicode(const char* name, const char* source, unsigned long count,
                       unsigned short** out, unsigned long* outLength) {
  return ConvertOnce(name, source, count, out, outLength,
                     [](UCNVLibrary* library, UConverter* converter, unsigned short** target,
                        const unsigned short* targetLimit, const char** cursor,
                        const char* sourceLimit, UErrorCode* error) {
                       library->UCNV_toUnicode(converter, target, targetLimit, cursor, sourceLimit,
                                               nullptr, 1, error);
                     });
}

void WideToCodePage(const char* name, const std::wstring& text, char** out,
                    unsigned long* outLength) {
  TextToCodePage(name, kWideConverter, reinterpret_cast<const char*>(text.data()),
                 text.size() * sizeof(wchar_t), out, outLength);
}

void UTF8ToCodePage(const char* name, const std::string& text, char** out,
                    unsigned long* outLength) {
  TextToCodePage(name, kUTF8Converter, text.data(), text.size(), out, outLength);
}

std::wstring CodePageToWide(const char* name, const char* source, unsigned long count) {
  std::wstring result;
  if (name == nullptr || source == nullptr || count == 0) return result;
  ThroughUTF16(name, source, count, kWideConverter, true,
               [&result](const char* bytes, unsigned long byteCount) {
                 // Counted, so that U+0000 inside the text is kept.
                 result.resize(byteCount / sizeof(wchar_t));
                 std::memcpy(&result[0], bytes, result.size() * sizeof(wchar_t));
               });
  return result;
}

std::string CodePageToUTF8(const char* name, const char* source, unsigned long count) {
  std::string result;
  if (name == nullptr || source == nullptr || count == 0) return result;
  ThroughUTF16(
      name, source, count, kUTF8Converter, false,
      [&result](const char* bytes, unsigned long byteCount) { result.assign(bytes, byteCount); });
  return result;
}

}  // namespace mvcs
