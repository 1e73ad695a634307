// Whole-string conversions: the expected code points and bytes, failure as
// an empty result, and truncation at U+0000.
//
// ctest runs this suite once for each conversion kernel (KernelUnderTest.h).

#include "KernelUnderTest.h"
#include "MorvString/MorvString.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Bytes(std::initializer_list<unsigned char> bytes) {
  return std::string(bytes.begin(), bytes.end());
}

TEST(UTF8ToWide, EmptyGivesEmpty) { EXPECT_EQ(mvcs::UTF8ToWide(""), L""); }

TEST(UTF8ToWide, AsciiGivesSameCharacters) {
  EXPECT_EQ(mvcs::UTF8ToWide("InstallPath"), L"InstallPath");
}

TEST(UTF8ToWide, TwoThreeAndFourByteSequences) {
  const std::wstring wide =
      mvcs::UTF8ToWide(Bytes({'a', 0xC3, 0xA9, 0xE2, 0x82, 0xAC, 0xF0, 0x9F, 0x98, 0x80, 'z'}));
  EXPECT_EQ(wide, std::wstring({L'a', static_cast<wchar_t>(0xE9), static_cast<wchar_t>(0x20AC),
                                static_cast<wchar_t>(0x1F600), L'z'}));
}

TEST(UTF8ToWide, LoneLeadByteAtEndGivesEmpty) {
  EXPECT_EQ(mvcs::UTF8ToWide(Bytes({'a', 'b', 0xC3})), L"");
}

TEST(UTF8ToWide, IllFormedAnywhereGivesEmpty) {
  EXPECT_EQ(mvcs::UTF8ToWide(Bytes({'a', 0xC0, 0x80, 'b'})), L"");
  EXPECT_EQ(mvcs::UTF8ToWide(Bytes({'a', 0xED, 0xA0, 0x80})), L"");
  EXPECT_EQ(mvcs::UTF8ToWide(Bytes({0xFF})), L"");
}

TEST(UTF8ToWide, UnusualSecondByteAfterEDIsAccepted) {
  EXPECT_EQ(mvcs::UTF8ToWide(Bytes({0xED, 0x41, 0x80})),
            std::wstring(1, static_cast<wchar_t>(0xC040)));
}

TEST(UTF8ToWide, StopsAtZeroCharacter) {
  EXPECT_EQ(mvcs::UTF8ToWide(std::string("A\0B", 3)), L"A");
}

TEST(UTF8ToWide, IllFormedAfterZeroCharacterStillGivesEmpty) {
  EXPECT_EQ(mvcs::UTF8ToWide(Bytes({'A', 0x00, 0xC3})), L"");
}

TEST(WideToUTF8, EmptyGivesEmpty) { EXPECT_EQ(mvcs::WideToUTF8(L""), ""); }

TEST(WideToUTF8, EncodesEveryLength) {
  const std::wstring wide({L'a', static_cast<wchar_t>(0xE9), static_cast<wchar_t>(0x20AC),
                           static_cast<wchar_t>(0x1F600)});
  EXPECT_EQ(mvcs::WideToUTF8(wide),
            Bytes({'a', 0xC3, 0xA9, 0xE2, 0x82, 0xAC, 0xF0, 0x9F, 0x98, 0x80}));
}

TEST(WideToUTF8, AboveMaximumGivesEmpty) {
  EXPECT_EQ(mvcs::WideToUTF8(std::wstring(1, static_cast<wchar_t>(0x110000))), "");
  EXPECT_EQ(mvcs::WideToUTF8(std::wstring({L'a', static_cast<wchar_t>(0x110000), L'b'})), "");
  EXPECT_EQ(mvcs::WideToUTF8(std::wstring(1, static_cast<wchar_t>(-1))), "");
}

TEST(WideToUTF8, SurrogateIsEncodedAsThreeBytes) {
  EXPECT_EQ(mvcs::WideToUTF8(std::wstring(1, static_cast<wchar_t>(0xD800))),
            Bytes({0xED, 0xA0, 0x80}));
}

TEST(WideToUTF8, ZeroCharacterTruncates) {
  EXPECT_EQ(mvcs::WideToUTF8(std::wstring({L'A', L'\0', L'B'})), "A");
}

TEST(WideToUTF8, AboveMaximumAfterZeroCharacterStillGivesEmpty) {
  EXPECT_EQ(mvcs::WideToUTF8(std::wstring({L'A', L'\0', static_cast<wchar_t>(0x110000)})), "");
}

TEST(UnicodeToUTF8, NullOrZeroCountGivesEmpty) {
  unsigned short units[] = {0x41};
  EXPECT_EQ(mvcs::UnicodeToUTF8(nullptr, 1), "");
  EXPECT_EQ(mvcs::UnicodeToUTF8(units, 0), "");
}

TEST(UnicodeToUTF8, LoneHighSurrogateGivesEmpty) {
  unsigned short units[] = {0xD83D};
  EXPECT_EQ(mvcs::UnicodeToUTF8(units, 1), "");
}

TEST(UnicodeToUTF8, SurrogatePairGivesFourBytes) {
  unsigned short units[] = {0xD83D, 0xDE00};
  EXPECT_EQ(mvcs::UnicodeToUTF8(units, 2), Bytes({0xF0, 0x9F, 0x98, 0x80}));
}

TEST(UnicodeToUTF8, UnpairedSurrogatesPassThrough) {
  unsigned short units[] = {0xDC00, 0xD800, 0x41};
  EXPECT_EQ(mvcs::UnicodeToUTF8(units, 3), Bytes({0xED, 0xB0, 0x80, 0xED, 0xA0, 0x80, 0x41}));
}

TEST(UnicodeToUTF8, ZeroUnitTruncates) {
  unsigned short units[] = {0x41, 0x00, 0x42};
  EXPECT_EQ(mvcs::UnicodeToUTF8(units, 3), "A");
}

TEST(IsUTF8, EmptyIsUTF8) { EXPECT_TRUE(mvcs::IsUTF8("")); }

TEST(IsUTF8, UnusualSecondByteAfterEDIsUTF8) {
  EXPECT_TRUE(mvcs::IsUTF8(Bytes({0xED, 0x41, 0x80})));
}

TEST(IsUTF8, OverlongIsNotUTF8) { EXPECT_FALSE(mvcs::IsUTF8(Bytes({0xC0, 0x80}))); }

TEST(IsUTF8, TruncatedAtEndIsNotUTF8) { EXPECT_FALSE(mvcs::IsUTF8(Bytes({'a', 0xE2, 0x82}))); }

TEST(IsUTF8, ZeroCharacterIsUTF8) { EXPECT_TRUE(mvcs::IsUTF8(std::string("a\0b", 3))); }

TEST(UTF8ToNative, ReturnsArgumentUnchangedEvenWhenNotUTF8) {
  const std::string notUTF8 = Bytes({'a', 0xFF, 0xC0, 0x00, 'b'});
  EXPECT_EQ(mvcs::UTF8ToNative(notUTF8), notUTF8);
}

TEST(WideToNative, IsWideToUTF8) {
  const std::wstring wide({L'x', static_cast<wchar_t>(0x20AC)});
  EXPECT_EQ(mvcs::WideToNative(wide), Bytes({'x', 0xE2, 0x82, 0xAC}));
  EXPECT_EQ(mvcs::WideToNative(std::wstring(1, static_cast<wchar_t>(0x110000))), "");
}

}  // namespace
