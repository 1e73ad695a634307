// The library's optimised string conversions against the straightforward
// routines: the same result on every 1- to 3-byte input, on random inputs
// built from every kind of sequence (well-formed, unusual, ill-formed,
// truncated, U+0000), at every alignment around the eight-byte ASCII steps,
// and on the large sample texts.
//
// ctest runs this suite once for each conversion kernel (KernelUnderTest.h).

#include <gtest/gtest.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "KernelUnderTest.h"
#include "MorvString/MorvString.h"
#include "ReferenceStringConversions.h"
#include "TextCorpus.h"

namespace {

// Pieces that random UTF-8 inputs are made of.
const std::vector<std::string> kUTF8Pieces = {"a",
                                              "Z",
                                              "0",
                                              " ",
                                              std::string(1, '\0'),
                                              "abcdefgh",
                                              "\x7F",
                                              "\xC3\xA9",
                                              "\xC2\x80",
                                              "\xDF\xBF",  // two bytes
                                              "\xE2\x82\xAC",
                                              "\xE0\xA0\x80",
                                              "\xED\x9F\xBF",
                                              "\xEF\xBF\xBF",  // three bytes
                                              "\xF0\x90\x80\x80",
                                              "\xF0\x9F\x98\x80",
                                              "\xF4\x8F\xBF\xBF",  // four bytes
                                              "\xED\x41\x80",
                                              std::string("\xF4\x00\x80\x80", 4),
                                              "\xED\x7F\xBF",  // unusual, legal
                                              "\xC0\x80",
                                              "\xC1\xBF",
                                              "\xE0\x80\x80",
                                              "\xED\xA0\x80",
                                              "\xF0\x80\x80\x80",
                                              "\xF4\x90\x80\x80",
                                              "\xF5\x80\x80\x80",
                                              "\xF8\x88\x80\x80\x80",
                                              "\x80",
                                              "\xBF",
                                              "\xFE",
                                              "\xFF",  // ill-formed
                                              "\xC3",
                                              "\xE2\x82",
                                              "\xF0\x9F\x98"};  // truncated

std::string RandomUTF8(std::mt19937& random, std::size_t pieces) {
  std::string text;
  for (std::size_t i = 0; i < pieces; ++i) {
    // Mostly well-formed pieces, so that many inputs convert at all.
    const std::size_t bound = random() % 4 == 0 ? kUTF8Pieces.size() : 20;
    text += kUTF8Pieces[random() % bound];
  }
  return text;
}

void ExpectSameUTF8Results(const std::string& input) {
  // Compared as booleans: a failure on a large text would otherwise make
  // GoogleTest compute a diff of megabytes.
  ASSERT_TRUE(mvcs::UTF8ToWide(input) == reference::UTF8ToWide(input))
      << "UTF8ToWide differs on an input of " << input.size() << " bytes";
  ASSERT_EQ(mvcs::IsUTF8(input), reference::IsUTF8(input))
      << "IsUTF8 differs on an input of " << input.size() << " bytes";
}

TEST(DifferentialUTF8, EveryInputOfOneToThreeBytes) {
  std::string input;
  int failures = 0;
  for (unsigned length = 1; length <= 3; ++length) {
    for (std::uint32_t v = 0; v < (1u << (8 * length)); ++v) {
      input.assign(length, '\0');
      for (unsigned i = 0; i < length; ++i) input[i] = static_cast<char>(v >> (8 * i));
      if ((mvcs::UTF8ToWide(input) != reference::UTF8ToWide(input) ||
           mvcs::IsUTF8(input) != reference::IsUTF8(input)) &&
          ++failures <= 10) {
        ADD_FAILURE() << "length " << length << " value " << std::hex << v;
      }
    }
  }
  EXPECT_EQ(failures, 0);
}

TEST(DifferentialUTF8, RandomInputs) {
  std::mt19937 random(1);
  for (int i = 0; i < 200000; ++i) ExpectSameUTF8Results(RandomUTF8(random, 1 + random() % 24));
}

// Every piece after every length of ASCII run from 0 to 40, and followed by
// ASCII again, so that each lands at every offset of the eight-byte steps.
TEST(DifferentialUTF8, EveryPieceAtEveryAlignment) {
  for (const std::string& piece : kUTF8Pieces) {
    for (std::size_t before = 0; before <= 40; ++before) {
      for (std::size_t after : {0, 1, 7, 8, 9, 17}) {
        ExpectSameUTF8Results(std::string(before, 'x') + piece + std::string(after, 'y'));
      }
    }
  }
}

// Every piece at every offset inside text of each script, so that it meets
// the sixteen-byte blocks of the validator and the decoder at every
// position and with every kind of neighbour.
TEST(DifferentialUTF8, EveryPieceAtEveryOffsetInEveryScript) {
  const std::vector<std::string> fillers = {"x", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"};
  for (const std::string& filler : fillers) {
    for (const std::string& piece : kUTF8Pieces) {
      for (std::size_t before = 0; before <= 20; ++before) {
        std::string text;
        for (std::size_t i = 0; i < before; ++i) text += filler;
        text += piece;
        for (std::size_t i = 0; i < 12; ++i) text += filler;
        ExpectSameUTF8Results(text);
      }
    }
  }
}

TEST(DifferentialUTF8, LongRandomInputs) {
  std::mt19937 random(4);
  for (int i = 0; i < 20000; ++i) ExpectSameUTF8Results(RandomUTF8(random, 1 + random() % 200));
}

TEST(DifferentialUTF8, SampleTexts) {
  for (const std::string& text : {corpus::Ascii(1 << 20), corpus::Accented(1 << 20),
                                  corpus::Cjk(1 << 20), corpus::Emoji(1 << 20)}) {
    ExpectSameUTF8Results(text);
    std::string broken = text;
    broken[broken.size() / 2] = '\xFF';
    ExpectSameUTF8Results(broken);
  }
  for (const std::string& name : corpus::SettingNames()) ExpectSameUTF8Results(name);
}

wchar_t RandomWide(std::mt19937& random) {
  switch (random() % 10) {
    case 0:
      return static_cast<wchar_t>(random() % 0x80);
    case 1:
      return static_cast<wchar_t>(0x80 + random() % 0x780);
    case 2:
      return static_cast<wchar_t>(0x800 + random() % 0xF800);  // surrogates included
    case 3:
      return static_cast<wchar_t>(0xD800 + random() % 0x800);
    case 4:
      return static_cast<wchar_t>(0x10000 + random() % 0x100000);
    case 5:
      return random() % 50 == 0 ? static_cast<wchar_t>(0x110000 + random() % 16) : L'q';
    case 6:
      return random() % 50 == 0 ? static_cast<wchar_t>(-static_cast<int>(1 + random() % 5)) : L'r';
    case 7:
      return random() % 20 == 0 ? L'\0' : L's';
    default:
      return static_cast<wchar_t>(0x20 + random() % 0x5F);
  }
}

TEST(DifferentialWide, RandomInputs) {
  std::mt19937 random(2);
  for (int i = 0; i < 200000; ++i) {
    std::wstring input(random() % 40, L'\0');
    for (wchar_t& c : input) c = RandomWide(random);
    ASSERT_EQ(mvcs::WideToUTF8(input), reference::WideToUTF8(input));
  }
}

TEST(DifferentialWide, LongRandomInputs) {
  std::mt19937 random(5);
  for (int i = 0; i < 20000; ++i) {
    std::wstring input(random() % 200, L'\0');
    for (wchar_t& c : input) c = RandomWide(random);
    ASSERT_EQ(mvcs::WideToUTF8(input), reference::WideToUTF8(input));
  }
}

TEST(DifferentialWide, SampleTexts) {
  for (const std::string& text : {corpus::Ascii(1 << 20), corpus::Accented(1 << 20),
                                  corpus::Cjk(1 << 20), corpus::Emoji(1 << 20)}) {
    const std::wstring wide = reference::UTF8ToWide(text);
    ASSERT_FALSE(wide.empty());
    EXPECT_TRUE(mvcs::WideToUTF8(wide) == reference::WideToUTF8(wide));
    EXPECT_TRUE(mvcs::WideToUTF8(wide) == text);
  }
}

unsigned short RandomUnit(std::mt19937& random) {
  switch (random() % 8) {
    case 0:
      return static_cast<unsigned short>(random() % 0x80);
    case 1:
      return static_cast<unsigned short>(0x80 + random() % 0x780);
    case 2:
      return static_cast<unsigned short>(0x800 + random() % 0xF800);
    case 3:
      return static_cast<unsigned short>(0xD800 + random() % 0x400);  // high
    case 4:
      return static_cast<unsigned short>(0xDC00 + random() % 0x400);  // low
    case 5:
      return random() % 20 == 0 ? 0 : 't';
    default:
      return static_cast<unsigned short>(0x20 + random() % 0x5F);
  }
}

TEST(DifferentialUTF16, EveryUnitAloneAndAfterEveryKindOfUnit) {
  const unsigned short kBefore[] = {0, 0x41, 0x7FF, 0xD800, 0xDBFF, 0xDC00, 0xFFFF};
  for (std::uint32_t u = 0; u <= 0xFFFF; ++u) {
    unsigned short one[1] = {static_cast<unsigned short>(u)};
    ASSERT_EQ(mvcs::UnicodeToUTF8(one, 1), reference::UnicodeToUTF8(one, 1)) << u;
    for (unsigned short before : kBefore) {
      unsigned short two[2] = {before, static_cast<unsigned short>(u)};
      ASSERT_EQ(mvcs::UnicodeToUTF8(two, 2), reference::UnicodeToUTF8(two, 2)) << u;
    }
  }
}

// Surrogates, paired and not, at every position of the sixteen-unit chunks
// (across the middle, at the last place, first in a chunk), in text of each
// length class.
TEST(DifferentialUTF16, SurrogatesAtEveryPositionOfAChunk) {
  const std::vector<std::vector<unsigned short>> pieces = {{0xD83D, 0xDE00},
                                                           {0xD800},
                                                           {0xDC00},
                                                           {0xDBFF, 0xDFFF},
                                                           {0xDC00, 0xD800},
                                                           {0xD800, 0xD800, 0xDC00},
                                                           {0xD83D, 0xDE00, 0xD83D, 0xDE00},
                                                           {0xD800, 0x41}};
  const std::vector<unsigned short> fillers = {0x61, 0xE9, 0x20AC, 0x7FF, 0x800, 0xFFFF};
  for (unsigned short filler : fillers) {
    for (const std::vector<unsigned short>& piece : pieces) {
      for (std::size_t before = 0; before <= 40; ++before) {
        for (std::size_t after : {0, 1, 15, 16, 17, 31}) {
          std::vector<unsigned short> input(before, filler);
          input.insert(input.end(), piece.begin(), piece.end());
          input.insert(input.end(), after, filler);
          ASSERT_EQ(mvcs::UnicodeToUTF8(input.data(), input.size()),
                    reference::UnicodeToUTF8(input.data(), input.size()))
              << "filler " << filler << " before " << before << " after " << after;
        }
      }
    }
  }
}

TEST(DifferentialUTF16, LongRandomInputs) {
  std::mt19937 random(6);
  for (int i = 0; i < 20000; ++i) {
    std::vector<unsigned short> input(1 + random() % 200);
    for (unsigned short& unit : input) unit = RandomUnit(random);
    ASSERT_EQ(mvcs::UnicodeToUTF8(input.data(), input.size()),
              reference::UnicodeToUTF8(input.data(), input.size()));
  }
}

TEST(DifferentialUTF16, SampleTexts) {
  for (const std::string& text : {corpus::Ascii(1 << 20), corpus::Accented(1 << 20),
                                  corpus::Cjk(1 << 20), corpus::Emoji(1 << 20)}) {
    const std::wstring wide = reference::UTF8ToWide(text);
    std::vector<unsigned short> utf16;
    for (wchar_t c : wide) {
      if (c >= 0x10000) {
        utf16.push_back(static_cast<unsigned short>(0xD800 + ((c - 0x10000) >> 10)));
        utf16.push_back(static_cast<unsigned short>(0xDC00 + ((c - 0x10000) & 0x3FF)));
      } else {
        utf16.push_back(static_cast<unsigned short>(c));
      }
    }
    EXPECT_TRUE(mvcs::UnicodeToUTF8(utf16.data(), utf16.size()) == text);
    EXPECT_TRUE(mvcs::UnicodeToUTF8(utf16.data(), utf16.size()) ==
                reference::UnicodeToUTF8(utf16.data(), utf16.size()));
  }
}

TEST(DifferentialUTF16, RandomInputs) {
  std::mt19937 random(3);
  for (int i = 0; i < 200000; ++i) {
    std::vector<unsigned short> input(1 + random() % 40);
    for (unsigned short& unit : input) unit = RandomUnit(random);
    ASSERT_EQ(mvcs::UnicodeToUTF8(input.data(), input.size()),
              reference::UnicodeToUTF8(input.data(), input.size()));
  }
}

}  // namespace
