// The straightforward whole-string conversions, step by step as they are
// defined: a worst-case MemoryBuffer, one lenient reference conversion over
// the whole input, the result kept only on conversionOK and built as a
// zero-terminated string. The library's optimised versions must give the
// same result on every input; the differential test and the benchmarks
// compare against these.

#ifndef MORV_TESTS_REFERENCESTRINGCONVERSIONS_H
#define MORV_TESTS_REFERENCESTRINGCONVERSIONS_H

#include <string>

#include "MorvString/ConvertUTF.h"
#include "mvtl/MemoryBuffer.h"

namespace reference {

inline std::wstring UTF8ToWide(const std::string& utf8) {
  const unsigned long n = utf8.size();
  if (n == 0) return std::wstring();
  mvtl::MemoryBuffer<wchar_t> buffer;
  buffer.Reset(n + 1, false);
  if (buffer.GetCount() != n + 1) return std::wstring();
  const UTF8* source = reinterpret_cast<const UTF8*>(utf8.data());
  UTF32* targetStart = reinterpret_cast<UTF32*>(buffer.GetData());
  UTF32* target = targetStart;
  if (ConvertUTF8toUTF32(&source, source + n, &target, targetStart + n, lenientConversion) !=
      conversionOK) {
    return std::wstring();
  }
  *target = 0;
  return std::wstring(buffer.GetData());
}

// Shared by WideToUTF8 and UnicodeToUTF8: 4 bytes of room per source unit.
template <class Unit, class Convert>
std::string ToUTF8(const Unit* units, unsigned long count, Convert convert) {
  mvtl::MemoryBuffer<char> buffer;
  buffer.Reset(4 * count + 1, false);
  if (buffer.GetCount() != 4 * count + 1) return std::string();
  const Unit* source = units;
  UTF8* targetStart = reinterpret_cast<UTF8*>(buffer.GetData());
  UTF8* target = targetStart;
  if (convert(&source, units + count, &target, targetStart + 4 * count, lenientConversion) !=
      conversionOK) {
    return std::string();
  }
  *target = 0;
  return std::string(buffer.GetData());
}

inline std::string WideToUTF8(const std::wstring& wide) {
  if (wide.empty()) return std::string();
  return ToUTF8(reinterpret_cast<const UTF32*>(wide.data()), wide.size(), ConvertUTF32toUTF8);
}

inline std::string UnicodeToUTF8(const unsigned short* units, unsigned long count) {
  if (units == nullptr || count == 0) return std::string();
  return ToUTF8(reinterpret_cast<const UTF16*>(units), count, ConvertUTF16toUTF8);
}

inline bool IsUTF8(const std::string& text) {
  const UTF8* p = reinterpret_cast<const UTF8*>(text.data());
  const UTF8* end = p + text.size();
  while (p < end) {
    if (!isLegalUTF8Sequence(p, end)) return false;
    p += getTrailingBytesForUTF8(*p) + 1;
  }
  return true;
}

}  // namespace reference

#endif  // MORV_TESTS_REFERENCESTRINGCONVERSIONS_H
