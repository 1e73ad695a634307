// Exhaustive checks of the UTF routines:
//  - IsUTF8, isLegalUTF8Sequence and ConvertUTF8toUTF32 agree with an
//    independent statement of the rules on every 1-, 2- and 3-byte input and
//    on a large sample of 4-byte inputs;
//  - every scalar value round-trips UTF-32 -> UTF-8 -> UTF-32,
//    UTF-32 -> UTF-16 -> UTF-32 and UTF-16 -> UTF-8 -> UTF-16 in both modes,
//    and goes through the whole-string conversions.
//
// ctest runs this suite once for each conversion kernel (KernelUnderTest.h),
// but for the round trips of the reference converters alone.

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "KernelUnderTest.h"
#include "MorvString/ConvertUTF.h"
#include "MorvString/MorvString.h"

namespace {

// The rules written from Unicode's table of well-formed byte sequences,
// with the two documented exceptions: after ED and F4 the second byte has
// only an upper bound (9F, 8F). A sequence is decoded by taking the payload
// bits of each byte relative to its marker, so the exceptions decode as
// negative offsets (ED 41 80 gives U+C040).
struct Oracle {
  ConversionResult result = conversionOK;
  std::size_t consumed = 0;
  std::vector<UTF32> units;
};

// Bytes that follow a lead byte by its bit pattern (for the exhausted test).
int OracleTrailCount(UTF8 lead) {
  if (lead < 0xC0) return 0;
  if (lead < 0xE0) return 1;
  if (lead < 0xF0) return 2;
  if (lead < 0xF8) return 3;
  if (lead < 0xFC) return 4;
  return 5;
}

// Whether the `length` bytes at s form one legal sequence; its value if so.
bool OracleSequence(const UTF8* s, int length, UTF32* value) {
  const UTF8 b0 = s[0];
  auto trail = [](UTF8 b) { return b >= 0x80 && b <= 0xBF; };
  int lowest = 0x80, highest = 0xBF;  // bounds of the second byte
  if (length == 1) {
    if (b0 > 0x7F) return false;
    *value = b0;
    return true;
  }
  if (length == 2) {
    if (b0 < 0xC2 || b0 > 0xDF) return false;
  } else if (length == 3) {
    if (b0 == 0xE0) lowest = 0xA0;
    if (b0 == 0xED) lowest = 0x00, highest = 0x9F;
  } else if (length == 4) {
    if (b0 > 0xF4) return false;
    if (b0 == 0xF0) lowest = 0x90;
    if (b0 == 0xF4) lowest = 0x00, highest = 0x8F;
  } else {
    return false;
  }
  if (s[1] < lowest || s[1] > highest) return false;
  for (int i = 2; i < length; ++i) {
    if (!trail(s[i])) return false;
  }
  const int marker = length == 2 ? 0xC0 : length == 3 ? 0xE0 : 0xF0;
  std::int64_t v = b0 - marker;
  for (int i = 1; i < length; ++i) v = v * 64 + (s[i] - 0x80);
  *value = static_cast<UTF32>(v);
  return true;
}

Oracle OracleDecode(const UTF8* s, std::size_t n) {
  Oracle oracle;
  std::size_t i = 0;
  while (i < n) {
    const int trails = OracleTrailCount(s[i]);
    if (static_cast<std::size_t>(trails) >= n - i) {
      oracle.result = sourceExhausted;
      break;
    }
    UTF32 value;
    if (!OracleSequence(s + i, trails + 1, &value)) {
      oracle.result = sourceIllegal;
      break;
    }
    oracle.units.push_back(value);
    i += trails + 1;
  }
  oracle.consumed = i;
  return oracle;
}

// Compares the library with the oracle on one input; returns a description
// of the first disagreement, or an empty string.
std::string Disagreement(const UTF8* s, std::size_t n, std::string& scratch) {
  const Oracle oracle = OracleDecode(s, n);
  for (ConversionFlags flags : {strictConversion, lenientConversion}) {
    UTF32 target[8];
    const UTF8* source = s;
    UTF32* out = target;
    const ConversionResult result = ConvertUTF8toUTF32(&source, s + n, &out, target + 8, flags);
    if (result != oracle.result) return "ConvertUTF8toUTF32 result";
    if (static_cast<std::size_t>(source - s) != oracle.consumed)
      return "ConvertUTF8toUTF32 consumed";
    if (std::vector<UTF32>(target, out) != oracle.units) return "ConvertUTF8toUTF32 value";
  }
  scratch.assign(reinterpret_cast<const char*>(s), n);
  if (mvcs::IsUTF8(scratch) != (oracle.result == conversionOK)) return "IsUTF8";
  UTF32 value;
  const int trails = OracleTrailCount(s[0]);
  const bool firstLegal =
      static_cast<std::size_t>(trails) < n && OracleSequence(s, trails + 1, &value);
  if ((isLegalUTF8Sequence(s, s + n) != 0) != firstLegal) return "isLegalUTF8Sequence";
  return std::string();
}

std::string Hex(const UTF8* s, std::size_t n) {
  static const char digits[] = "0123456789ABCDEF";
  std::string text;
  for (std::size_t i = 0; i < n; ++i) {
    if (i) text += ' ';
    text += digits[s[i] >> 4];
    text += digits[s[i] & 15];
  }
  return text;
}

// Runs the comparison on inputs produced by `next` (which fills `bytes` and
// returns false when done); fails with the first few disagreements.
template <class Next>
void CheckAll(std::size_t length, Next next) {
  UTF8 bytes[4];
  std::string scratch;
  int failures = 0;
  std::size_t checked = 0;
  while (next(bytes)) {
    ++checked;
    const std::string what = Disagreement(bytes, length, scratch);
    if (!what.empty() && ++failures <= 10) {
      ADD_FAILURE() << what << " disagrees on " << Hex(bytes, length);
    }
  }
  EXPECT_EQ(failures, 0);
  EXPECT_GT(checked, 0u);
}

TEST(UTF8Agreement, EveryOneByteInput) {
  unsigned v = 0;
  CheckAll(1, [&](UTF8* b) {
    if (v >= 0x100) return false;
    b[0] = static_cast<UTF8>(v++);
    return true;
  });
}

TEST(UTF8Agreement, EveryTwoByteInput) {
  unsigned v = 0;
  CheckAll(2, [&](UTF8* b) {
    if (v >= 0x10000) return false;
    b[0] = static_cast<UTF8>(v >> 8);
    b[1] = static_cast<UTF8>(v++);
    return true;
  });
}

TEST(UTF8Agreement, EveryThreeByteInput) {
  unsigned v = 0;
  CheckAll(3, [&](UTF8* b) {
    if (v >= 0x1000000) return false;
    b[0] = static_cast<UTF8>(v >> 16);
    b[1] = static_cast<UTF8>(v >> 8);
    b[2] = static_cast<UTF8>(v++);
    return true;
  });
}

// Every lead byte with every combination of 24 boundary values in the other
// three positions (3.5 million inputs).
TEST(UTF8Agreement, FourByteInputsAtEveryBoundary) {
  static const UTF8 kBoundaries[] = {0x00, 0x01, 0x3F, 0x40, 0x41, 0x7F, 0x80, 0x81,
                                     0x8F, 0x90, 0x9F, 0xA0, 0xA1, 0xBF, 0xC0, 0xC1,
                                     0xC2, 0xDF, 0xE0, 0xEF, 0xF0, 0xF4, 0xF5, 0xFF};
  const unsigned n = sizeof(kBoundaries);
  unsigned v = 0;
  CheckAll(4, [&](UTF8* b) {
    if (v >= 256 * n * n * n) return false;
    b[0] = static_cast<UTF8>(v / (n * n * n));
    b[1] = kBoundaries[(v / (n * n)) % n];
    b[2] = kBoundaries[(v / n) % n];
    b[3] = kBoundaries[v % n];
    ++v;
    return true;
  });
}

// Four million random inputs, half of them led by F0-F4 with trail-like
// bytes after, so that the four-byte rules get most of the sample.
TEST(UTF8Agreement, FourByteRandomSample) {
  std::mt19937 random(20261121);
  unsigned left = 4000000;
  CheckAll(4, [&](UTF8* b) {
    if (left-- == 0) return false;
    const std::uint32_t r = random();
    if (r & 1) {
      b[0] = static_cast<UTF8>(0xF0 + (r >> 1) % 5);
      for (int i = 1; i < 4; ++i) b[i] = static_cast<UTF8>(0x70 + (random() % 0x60));
    } else {
      for (int i = 0; i < 4; ++i) b[i] = static_cast<UTF8>(r >> (8 * i));
    }
    return true;
  });
}

// Independent encoders for the round trips.
std::vector<UTF8> EncodeUTF8(UTF32 c) {
  if (c < 0x80) return {static_cast<UTF8>(c)};
  if (c < 0x800) return {static_cast<UTF8>(0xC0 | (c >> 6)), static_cast<UTF8>(0x80 | (c & 0x3F))};
  if (c < 0x10000) {
    return {static_cast<UTF8>(0xE0 | (c >> 12)), static_cast<UTF8>(0x80 | ((c >> 6) & 0x3F)),
            static_cast<UTF8>(0x80 | (c & 0x3F))};
  }
  return {static_cast<UTF8>(0xF0 | (c >> 18)), static_cast<UTF8>(0x80 | ((c >> 12) & 0x3F)),
          static_cast<UTF8>(0x80 | ((c >> 6) & 0x3F)), static_cast<UTF8>(0x80 | (c & 0x3F))};
}

std::vector<UTF16> EncodeUTF16(UTF32 c) {
  if (c < 0x10000) return {static_cast<UTF16>(c)};
  c -= 0x10000;
  return {static_cast<UTF16>(0xD800 + (c >> 10)), static_cast<UTF16>(0xDC00 + (c & 0x3FF))};
}

// Converts all of `in` with a target of exactly `expected.size()` units and
// reports whether that gave conversionOK, consumed everything, and `expected`.
template <class S, class T>
bool ConvertsTo(ConversionResult (*convert)(const S**, const S*, T**, T*, ConversionFlags),
                const std::vector<S>& in, const std::vector<T>& expected, ConversionFlags flags) {
  std::vector<T> out(expected.size() + 1);
  const S* source = in.data();
  T* target = out.data();
  const ConversionResult result =
      convert(&source, in.data() + in.size(), &target, out.data() + expected.size(), flags);
  return result == conversionOK && source == in.data() + in.size() &&
         std::vector<T>(out.data(), target) == expected;
}

TEST(UnicodeRoundTrip, EveryScalarValueInBothModes) {
  int failures = 0;
  for (ConversionFlags flags : {strictConversion, lenientConversion}) {
    for (UTF32 c = 0; c <= 0x10FFFF; ++c) {
      if (c >= 0xD800 && c <= 0xDFFF) continue;
      const std::vector<UTF32> utf32 = {c};
      const std::vector<UTF8> utf8 = EncodeUTF8(c);
      const std::vector<UTF16> utf16 = EncodeUTF16(c);
      const bool ok = ConvertsTo(ConvertUTF32toUTF8, utf32, utf8, flags) &&
                      ConvertsTo(ConvertUTF8toUTF32, utf8, utf32, flags) &&
                      ConvertsTo(ConvertUTF32toUTF16, utf32, utf16, flags) &&
                      ConvertsTo(ConvertUTF16toUTF32, utf16, utf32, flags) &&
                      ConvertsTo(ConvertUTF16toUTF8, utf16, utf8, flags) &&
                      ConvertsTo(ConvertUTF8toUTF16, utf8, utf16, flags);
      if (!ok && ++failures <= 10) ADD_FAILURE() << "U+" << std::hex << c << " flags " << flags;
    }
  }
  EXPECT_EQ(failures, 0);
}

// The same, with every scalar value in one buffer per call.
TEST(UnicodeRoundTrip, AllScalarValuesInOneCall) {
  std::vector<UTF32> utf32;
  std::vector<UTF8> utf8;
  std::vector<UTF16> utf16;
  for (UTF32 c = 0; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    utf32.push_back(c);
    for (UTF8 b : EncodeUTF8(c)) utf8.push_back(b);
    for (UTF16 u : EncodeUTF16(c)) utf16.push_back(u);
  }
  ASSERT_EQ(utf32.size(), 1112064u);
  for (ConversionFlags flags : {strictConversion, lenientConversion}) {
    EXPECT_TRUE(ConvertsTo(ConvertUTF32toUTF8, utf32, utf8, flags));
    EXPECT_TRUE(ConvertsTo(ConvertUTF8toUTF32, utf8, utf32, flags));
    EXPECT_TRUE(ConvertsTo(ConvertUTF32toUTF16, utf32, utf16, flags));
    EXPECT_TRUE(ConvertsTo(ConvertUTF16toUTF32, utf16, utf32, flags));
    EXPECT_TRUE(ConvertsTo(ConvertUTF16toUTF8, utf16, utf8, flags));
    EXPECT_TRUE(ConvertsTo(ConvertUTF8toUTF16, utf8, utf16, flags));
  }
}

// Every scalar value but U+0000 (where the results end) through the
// whole-string conversions, in one string each (compared as booleans: a
// failure would otherwise print megabytes).
TEST(UnicodeRoundTrip, AllScalarValuesThroughTheWholeStringConversions) {
  std::wstring wide;
  std::string utf8;
  std::vector<unsigned short> utf16;
  for (UTF32 c = 1; c <= 0x10FFFF; ++c) {
    if (c >= 0xD800 && c <= 0xDFFF) continue;
    wide += static_cast<wchar_t>(c);
    for (UTF8 b : EncodeUTF8(c)) utf8 += static_cast<char>(b);
    for (UTF16 u : EncodeUTF16(c)) utf16.push_back(u);
  }
  EXPECT_TRUE(mvcs::WideToUTF8(wide) == utf8);
  EXPECT_TRUE(mvcs::UTF8ToWide(utf8) == wide);
  EXPECT_TRUE(mvcs::UnicodeToUTF8(utf16.data(), utf16.size()) == utf8);
  EXPECT_TRUE(mvcs::IsUTF8(utf8));
}

}  // namespace
