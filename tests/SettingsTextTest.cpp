// The store's text rules: which text is well-formed UTF-8, what a name or
// value is cut to, and Foundation's text-to-number conversions at their
// limits.

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

#include "SettingsText.h"

namespace {

std::string Bytes(std::initializer_list<unsigned char> bytes) {
  return std::string(bytes.begin(), bytes.end());
}

TEST(SettingsText, WellFormedUTF8AcceptsEveryLengthAtItsLimits) {
  for (const std::string& text :
       {std::string(), std::string("ascii"), Bytes({0xC2, 0x80}), Bytes({0xDF, 0xBF}),
        Bytes({0xE0, 0xA0, 0x80}), Bytes({0xED, 0x9F, 0xBF}), Bytes({0xEE, 0x80, 0x80}),
        Bytes({0xEF, 0xBF, 0xBF}), Bytes({0xF0, 0x90, 0x80, 0x80}), Bytes({0xF4, 0x8F, 0xBF, 0xBF}),
        std::string("a\0b", 3)}) {
    EXPECT_TRUE(mvcs::IsWellFormedUTF8(text));
  }
}

TEST(SettingsText, WellFormedUTF8RefusesWhatUnicodeRefuses) {
  for (const std::string& text :
       {Bytes({0x80}), Bytes({0xC0, 0x80}), Bytes({0xC1, 0xBF}), Bytes({0xC2}),
        Bytes({0xE0, 0x9F, 0xBF}), Bytes({0xED, 0xA0, 0x80}), Bytes({0xED, 0x41, 0x80}),
        Bytes({0xF0, 0x8F, 0xBF, 0xBF}), Bytes({0xF4, 0x90, 0x80, 0x80}),
        Bytes({0xF4, 0x00, 0x80, 0x80}), Bytes({0xF5, 0x80, 0x80, 0x80}), Bytes({0xFF}),
        Bytes({'a', 0xE2, 0x82})}) {
    EXPECT_FALSE(mvcs::IsWellFormedUTF8(text));
  }
}

TEST(SettingsText, StoredTextEndsAtTheFirstZeroAndMustBeUTF8) {
  std::string stored = "unchanged";
  EXPECT_TRUE(mvcs::StoredText(std::string("ab\0cd", 5), stored));
  EXPECT_EQ(stored, "ab");
  EXPECT_TRUE(mvcs::StoredText(std::string("ok\0\xFF", 4), stored));  // cut before the bad byte
  EXPECT_EQ(stored, "ok");
  stored = "unchanged";
  EXPECT_FALSE(mvcs::StoredText("\xFF", stored));
  EXPECT_EQ(stored, "unchanged");
}

// A file's tree may hold any well-formed text, U+0000 included; names given
// to the store are C strings, which cannot.
TEST(SettingsText, TreeTextHoldsZeroAndNamesDoNot) {
  EXPECT_TRUE(mvcs::IsTreeText(std::string("a\0b", 3)));
  EXPECT_TRUE(mvcs::IsTreeText(std::string(1, '\0')));
  EXPECT_FALSE(mvcs::IsTreeText(Bytes({0xC0, 0x80})));  // U+0000 in an overlong form
  EXPECT_FALSE(mvcs::IsCStringText(std::string("a\0b", 3)));
  EXPECT_FALSE(mvcs::IsCStringText("\xFF"));
  EXPECT_TRUE(mvcs::IsCStringText("\xC3\xA9"));
  EXPECT_EQ(mvcs::CStringPart(std::string("ab\0cd\0", 6)), "ab");
  EXPECT_EQ(mvcs::CStringPart("whole"), "whole");
}

// ASCII text is the bytes 0 to 0x7F, checked eight at a time and one by
// one: a byte above 0x7F is found at every position, and U+0000 is ASCII.
TEST(SettingsText, AsciiTextIsEveryByteBelow0x80) {
  for (std::size_t size = 0; size <= 20; ++size) {
    std::string text(size, '\0');
    EXPECT_TRUE(mvcs::IsAsciiText(text.data(), text.size())) << size;
    for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>(i * 7 % 0x80);
    EXPECT_TRUE(mvcs::IsAsciiText(text.data(), text.size())) << size;
    for (std::size_t at = 0; at < size; ++at) {
      std::string high = text;
      high[at] = '\x80';
      EXPECT_FALSE(mvcs::IsAsciiText(high.data(), high.size())) << size << " " << at;
    }
  }
}

TEST(SettingsText, IntegersSaturateAtTheSixtyFourBitLimits) {
  const long long max = std::numeric_limits<long long>::max();
  const long long min = std::numeric_limits<long long>::min();
  EXPECT_EQ(mvcs::TextToInteger("9223372036854775807"), max);
  EXPECT_EQ(mvcs::TextToInteger("9223372036854775808"), max);
  EXPECT_EQ(mvcs::TextToInteger("-9223372036854775808"), min);
  EXPECT_EQ(mvcs::TextToInteger("-9223372036854775809"), min);
  EXPECT_EQ(mvcs::TextToInteger("-9223372036854775807"), min + 1);
  EXPECT_EQ(mvcs::TextToInteger("  \n +00042 apples"), 42);
  EXPECT_EQ(mvcs::TextToInteger("- 5"), 0);
  EXPECT_EQ(mvcs::TextToInteger("--5"), 0);
}

TEST(SettingsText, RealsTakeTheLongestDecimalPrefix) {
  EXPECT_EQ(mvcs::TextToDouble("  +.5e1xyz"), 5.0);
  EXPECT_EQ(mvcs::TextToDouble("1.25E-2"), 0.0125);
  EXPECT_EQ(mvcs::TextToDouble("7e+"), 7.0);
  EXPECT_EQ(mvcs::TextToDouble("."), 0.0);
  EXPECT_EQ(mvcs::TextToDouble("0x10"), 0.0);
  EXPECT_EQ(mvcs::TextToDouble("infinity"), 0.0);
  EXPECT_TRUE(std::isinf(mvcs::TextToDouble("1e400")));
  EXPECT_GT(mvcs::TextToDouble("1e400"), 0);
  EXPECT_LT(mvcs::TextToDouble("-1e400"), 0);
  EXPECT_EQ(mvcs::TextToDouble("1e-400"), 0.0);
  EXPECT_EQ(mvcs::TextToFloat("0.1"), 0.1f);
  EXPECT_TRUE(std::isinf(mvcs::TextToFloat("1e39")));
}

TEST(SettingsText, BooleansLookPastSignAndZeros) {
  EXPECT_TRUE(mvcs::TextToBoolean("  -0009"));
  EXPECT_TRUE(mvcs::TextToBoolean("t"));
  EXPECT_TRUE(mvcs::TextToBoolean("Yup"));
  EXPECT_FALSE(mvcs::TextToBoolean("0"));
  EXPECT_FALSE(mvcs::TextToBoolean("  +00"));
  EXPECT_FALSE(mvcs::TextToBoolean("false"));
  EXPECT_FALSE(mvcs::TextToBoolean("N"));
  EXPECT_FALSE(mvcs::TextToBoolean(""));
}

TEST(SettingsText, RealToIntegerTruncatesAndSaturates) {
  EXPECT_EQ(mvcs::RealToInteger(-0.5), 0);
  EXPECT_EQ(mvcs::RealToInteger(9223372036854775807.0), std::numeric_limits<long long>::max());
  EXPECT_EQ(mvcs::RealToInteger(-9223372036854775808.0), std::numeric_limits<long long>::min());
  EXPECT_EQ(mvcs::RealToInteger(9007199254740993.0), 9007199254740992LL);
  EXPECT_EQ(mvcs::RealToInteger(std::numeric_limits<double>::infinity()),
            std::numeric_limits<long long>::max());
  EXPECT_EQ(mvcs::RealToInteger(std::nan("")), 0);
}

}  // namespace
