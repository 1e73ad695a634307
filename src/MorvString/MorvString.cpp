// Whole-string conversions between UTF-8, wide (UTF-32) and UTF-16 strings.
//
// The results are exactly those of the straightforward routine: a
// worst-case scratch buffer, one lenient reference conversion over the whole
// input, the result kept only on conversionOK and cut at the first U+0000.
// These versions get there faster: they check and measure the input in one
// pass, then convert straight into a result string of the exact size (see
// FastUTF.h for the building blocks and why they agree with the reference,
// and UTFKernels.h for the choice of their implementation).

#include "MorvString/MorvString.h"

#include <cstring>
#include <cwchar>
#include <new>

#include "UTFKernels.h"

namespace mvcs {

namespace fast_utf {

namespace {

// Inputs up to this many units are converted without measuring them first.
const unsigned long kShortInput = 256;

}  // namespace

std::wstring UTF8ToWideWith(const Kernel& kernel, const std::string& utf8) {
  const std::size_t n = utf8.size();
  if (n == 0) return std::wstring();
  const unsigned char* p = reinterpret_cast<const unsigned char*>(utf8.data());
  std::size_t characters = 0;
  if (!kernel.validateUTF8(p, n, &characters)) return std::wstring();
  try {
    std::wstring result(characters, L'\0');
    kernel.decodeValidUTF8(p, n, &result[0]);
    // A zero byte is U+0000 or (rarely) the second byte after ED or F4.
    if (std::memchr(p, 0, n) != nullptr) {
      result.resize(std::wcslen(result.c_str()));
    }
    return result;
  } catch (const std::bad_alloc&) {
    return std::wstring();
  }
}

std::string WideToUTF8With(const Kernel& kernel, const std::wstring& wide) {
  std::size_t units = wide.size();
  if (units == 0) return std::string();
  std::size_t bytes = 0;
  bool hasZero = false;
  if (!kernel.scanWide(wide.data(), units, &bytes, &hasZero)) return std::string();
  if (hasZero) {
    units = std::wcslen(wide.c_str());
    kernel.scanWide(wide.data(), units, &bytes, &hasZero);
  }
  try {
    std::string result(bytes, '\0');
    kernel.encodeWide(wide.data(), units, &result[0]);
    return result;
  } catch (const std::bad_alloc&) {
    return std::string();
  }
}

std::string UnicodeToUTF8With(const Kernel& kernel, const unsigned short* units,
                              unsigned long count) {
  if (units == nullptr || count == 0) return std::string();
  // A high surrogate as the last unit ends the conversion sourceExhausted.
  const unsigned short last = units[count - 1];
  if (last >= 0xD800 && last <= 0xDBFF) return std::string();
  try {
    if (count <= kShortInput) {
      // Short input: encode into room for the worst case (3 bytes a unit),
      // which costs less than measuring first. A zero byte in the output
      // can only be U+0000, where the result ends.
      std::string result(3 * count + kSlack, '\0');
      result.resize(kernel.encodeUTF16(units, count, &result[0]) - result.data());
      const std::size_t nul = result.find('\0');
      if (nul != std::string::npos) result.resize(nul);
      return result;
    }
    bool hasZero = false;
    std::size_t bytes = kernel.scanUTF16(units, count, &hasZero);
    if (hasZero) {
      count = 0;
      while (units[count] != 0) ++count;
      bytes = kernel.scanUTF16(units, count, &hasZero);
    }
    std::string result(bytes + kSlack, '\0');
    kernel.encodeUTF16(units, count, &result[0]);
    result.resize(bytes);
    return result;
  } catch (const std::bad_alloc&) {
    return std::string();
  }
}

bool IsUTF8With(const Kernel& kernel, const std::string& text) {
  return kernel.validateUTF8(reinterpret_cast<const unsigned char*>(text.data()), text.size(),
                             nullptr);
}

}  // namespace fast_utf

std::wstring UTF8ToWide(const std::string& utf8) {
  return fast_utf::UTF8ToWideWith(fast_utf::ActiveKernel(), utf8);
}

std::string WideToUTF8(const std::wstring& wide) {
  return fast_utf::WideToUTF8With(fast_utf::ActiveKernel(), wide);
}

std::string UnicodeToUTF8(unsigned short* units, unsigned long count) {
  return fast_utf::UnicodeToUTF8With(fast_utf::ActiveKernel(), units, count);
}

bool IsUTF8(const std::string& text) {
  return fast_utf::IsUTF8With(fast_utf::ActiveKernel(), text);
}

std::string UTF8ToNative(const std::string& utf8) { return utf8; }

std::string WideToNative(const std::wstring& wide) { return WideToUTF8(wide); }

}  // namespace mvcs
