// Conversions between named code pages and Unicode through ICU's converter
// library, loaded at run time (see UCNVLibrary.h).
//
// Every conversion opens its own converter and closes it before returning.
// Output arrays are allocated with new[] and belong to the caller, who frees
// them with delete[]. The composite conversions go through UTF-16 with two
// converters, except that UTF-8 that is well-formed (in either direction)
// is converted to or from UTF-16 by UnicodePivot.h, which gives exactly the
// units or bytes ICU's "utf8" converter would.

#include <cstring>
#include <limits>
#include <memory>

#include "MorvString/MorvString.h"
#include "UCNVLibrary.h"
#include "UnicodePivot.h"

namespace mvcs {

namespace {

// Wide strings as ICU sees them: UTF-32 in the platform's byte order.
const char kWideConverter[] = "UTF32_PlatformEndian";
const char kUTF8Converter[] = "utf8";

// Whether 4 * count + 1 output units can be counted without wrapping.
bool FitsOutputSize(unsigned long count) {
  return count <= (std::numeric_limits<unsigned long>::max() - 1) / 4;
}

// A new converter `name` of the library, or null when none opens without
// an error (ICU's warnings count as success).
UConverter* OpenConverter(UCNVLibrary* library, const char* name) {
  UErrorCode error = U_ZERO_ERROR;
  UConverter* converter = library->UCNV_open(name, &error);
  if (converter != nullptr && error > U_ZERO_ERROR) {
    library->UCNV_close(converter);
    return nullptr;
  }
  return converter;
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
  UCNVLibrary* library = UCNVLibrary::instance();
  UConverter* converter = OpenConverter(library, name);
  if (converter == nullptr) {
    *out = nullptr;
    *outLength = 0;
    return false;
  }
  *outLength = 4 * count + 1;
  *out = new Target[*outLength];
  Target* target = *out;
  const Source* cursor = source;
  UErrorCode error = U_ZERO_ERROR;
  convert(library, converter, &target, *out + *outLength - 1, &cursor, source + count, &error);
  *target = 0;
  *outLength = static_cast<unsigned long>(target - *out);
  library->UCNV_close(converter);
  return true;
}

// UTF-16 units in an array sized by what the conversion wrote.
struct UnitArray {
  std::unique_ptr<unsigned short[]> data;
  unsigned long count = 0;
};

// Converts `count` bytes of code page `name` to UTF-16 as CodePageToUnicode
// does, into an array that starts at one unit a byte plus one and grows
// (doubling, up to CodePageToUnicode's 4 units a byte) only when ICU
// reports that the room ran out; ICU then keeps what did not fit and writes
// it first when called again, so the units are those of the one call into
// the full room, cut where that room ends. Fails (false) when no converter
// opens.
bool ReadCodePage(const char* name, const char* source, unsigned long count, UnitArray* units) {
  if (!FitsOutputSize(count)) return false;
  UCNVLibrary* library = UCNVLibrary::instance();
  UConverter* converter = OpenConverter(library, name);
  if (converter == nullptr) return false;
  UErrorCode error = U_ZERO_ERROR;
  const unsigned long limit = 4 * count;
  unsigned long room = count + 1;
  units->data.reset(new unsigned short[room]);
  const char* cursor = source;
  for (;;) {
    unsigned short* target = units->data.get() + units->count;
    library->UCNV_toUnicode(converter, &target, units->data.get() + room, &cursor, source + count,
                            nullptr, 1, &error);
    units->count = static_cast<unsigned long>(target - units->data.get());
    if (error != U_BUFFER_OVERFLOW_ERROR || room == limit) break;
    error = U_ZERO_ERROR;
    room = room <= limit / 2 ? 2 * room : limit;
    std::unique_ptr<unsigned short[]> larger(new unsigned short[room]);
    std::memcpy(larger.get(), units->data.get(), units->count * sizeof(unsigned short));
    units->data = std::move(larger);
  }
  library->UCNV_close(converter);
  return true;
}

// UnicodeToCodePage of `units` to code page `name`, whose bytes (if it
// succeeds) go to `finish`; the array is freed.
template <class Finish>
void WriteCodePage(const char* name, const UnitArray& units, Finish finish) {
  char* bytes = nullptr;
  unsigned long byteCount = 0;
  if (UnicodeToCodePage(name, units.data.get(), units.count, &bytes, &byteCount)) {
    finish(bytes, byteCount);
    delete[] bytes;
  }
}

// Whether ICU's "utf8" converter, the one the composite conversions would
// open, can be stood in for by the exact pivot of UnicodePivot.h: it opens
// (as it does in every ICU), so the conversion through it would run.
bool UTF8ConverterOpens() { return UCNVLibrary::instance()->OpensUTF8(); }

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

// UnicodeToCodePage of the UTF-16 form of `n` bytes of well-formed UTF-8
// holding `unitCount` units, decoded a slice at a time into a small buffer
// that stays in the cache instead of into one array of the whole text.
// Slices end on character boundaries, and ICU's converters give the same
// bytes for input given in pieces (without flush until the last) as for
// the whole at once: that is how ucnv_convert itself works. The output
// array and its room (4 * unitCount + 1, where a conversion that needs
// more stops) are UnicodeToCodePage's.
void WellFormedUTF8ToCodePage(const char* name, const unsigned char* bytes, std::size_t n,
                              std::size_t unitCount, char** out, unsigned long* outLength) {
  UCNVLibrary* library = UCNVLibrary::instance();
  UConverter* converter = OpenConverter(library, name);
  if (converter == nullptr) {
    *outLength = 0;
    return;
  }
  const unsigned long room = 4 * static_cast<unsigned long>(unitCount) + 1;
  char* const result = new char[room];
  char* target = result;
  const char* const targetLimit = result + room - 1;
  constexpr std::size_t kSliceBytes = 8192;
  unsigned short slice[kSliceBytes + pivot::kDecodeSlack];
  UErrorCode error = U_ZERO_ERROR;
  for (std::size_t begin = 0; begin < n && error != U_BUFFER_OVERFLOW_ERROR;) {
    std::size_t end = n - begin <= kSliceBytes ? n : begin + kSliceBytes;
    while (end < n && (bytes[end] & 0xC0) == 0x80) --end;  // a character's start
    const unsigned short* units = slice;
    const unsigned short* unitsEnd = pivot::DecodeWellFormedUTF8(bytes + begin, end - begin, slice);
    library->UCNV_fromUnicode(converter, &target, targetLimit, &units, unitsEnd, nullptr,
                              end == n ? 1 : 0, &error);
    begin = end;
  }
  *target = 0;
  *out = result;
  *outLength = static_cast<unsigned long>(target - result);
  library->UCNV_close(converter);
}

}  // namespace

bool IsCodePageAvailable(const char* name) {
  // A null name only asks whether the library object exists: it always does.
  if (name == nullptr) return UCNVLibrary::instance() != nullptr;
  UCNVLibrary* library = UCNVLibrary::instance();
  UConverter* converter = OpenConverter(library, name);
  if (converter == nullptr) return false;
  library->UCNV_close(converter);
  return true;
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
  // Well-formed UTF-8 becomes UTF-16 here, with exactly the units ICU's
  // "utf8" converter would give; any other text goes through ICU, whose
  // substitutions decide what it becomes.
  const unsigned char* bytes = reinterpret_cast<const unsigned char*>(text.data());
  std::size_t unitCount = 0;
  if (name != nullptr && !text.empty() && out != nullptr && *out == nullptr &&
      outLength != nullptr && FitsOutputSize(text.size()) && UTF8ConverterOpens() &&
      pivot::MeasureWellFormedUTF8(bytes, text.size(), &unitCount)) {
    WellFormedUTF8ToCodePage(name, bytes, text.size(), unitCount, out, outLength);
    return;
  }
  TextToCodePage(name, kUTF8Converter, text.data(), text.size(), out, outLength);
}

std::wstring CodePageToWide(const char* name, const char* source, unsigned long count) {
  std::wstring result;
  if (name == nullptr || source == nullptr || count == 0) return result;
  UnitArray units;
  if (!ReadCodePage(name, source, count, &units) || units.count == 0) return result;
  WriteCodePage(kWideConverter, units, [&result](const char* bytes, unsigned long byteCount) {
    // Counted, so that U+0000 inside the text is kept.
    result.resize(byteCount / sizeof(wchar_t));
    std::memcpy(&result[0], bytes, result.size() * sizeof(wchar_t));
  });
  return result;
}

std::string CodePageToUTF8(const char* name, const char* source, unsigned long count) {
  std::string result;
  if (name == nullptr || source == nullptr || count == 0) return result;
  UnitArray units;
  if (!ReadCodePage(name, source, count, &units) || units.count == 0) return result;
  // Well-formed UTF-16 is encoded here, as ICU's "utf8" converter would;
  // unpaired surrogates are left to ICU's substitution.
  std::size_t byteCount = 0;
  if (FitsOutputSize(units.count) && UTF8ConverterOpens() &&
      pivot::MeasureWellFormedUTF16(units.data.get(), units.count, &byteCount)) {
    result.resize(byteCount + pivot::kEncodeSlack);
    pivot::EncodeWellFormedUTF16(units.data.get(), units.count, &result[0]);
    result.resize(byteCount);
    return result;
  }
  WriteCodePage(kUTF8Converter, units, [&result](const char* bytes, unsigned long byteCount) {
    result.assign(bytes, byteCount);
  });
  return result;
}

}  // namespace mvcs
