// Every conversion kernel this processor can run against the straightforward
// reference routines, at the places where vector code goes wrong: sequences
// cut by the 16-, 32- and 64-byte block boundaries, a bad byte at every
// position of a block, every input length from 0 to 200, pairs and lone
// surrogates at every position, and the hand-over to the exact rules and
// back. Also: which kernel is chosen, and that a forced one is used.

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "ReferenceStringConversions.h"
#include "TextCorpus.h"
#include "UTFKernels.h"

namespace {

using mvcs::fast_utf::Kernel;

std::string Hex(const std::string& bytes) {
  std::string out;
  char digits[4];
  for (unsigned char c : bytes) {
    std::snprintf(digits, sizeof digits, "%02X ", c);
    out += digits;
  }
  return out;
}

// Checks UTF8ToWide and IsUTF8 of every kernel on `input`; false (after one
// failure report) if one differs.
bool SameUTF8Results(const std::string& input) {
  const std::wstring expected = reference::UTF8ToWide(input);
  const bool legal = reference::IsUTF8(input);
  for (const Kernel* kernel : mvcs::fast_utf::SupportedKernels()) {
    const bool sameWide = mvcs::fast_utf::UTF8ToWideWith(*kernel, input) == expected;
    const bool sameLegal = mvcs::fast_utf::IsUTF8With(*kernel, input) == legal;
    if (!sameWide || !sameLegal) {
      ADD_FAILURE() << kernel->name << (sameWide ? " IsUTF8" : " UTF8ToWide")
                    << " differs on: " << Hex(input);
      return false;
    }
  }
  return true;
}

bool SameWideResults(const std::wstring& input) {
  const std::string expected = reference::WideToUTF8(input);
  for (const Kernel* kernel : mvcs::fast_utf::SupportedKernels()) {
    if (mvcs::fast_utf::WideToUTF8With(*kernel, input) != expected) {
      std::string units;
      for (wchar_t c : input) units += std::to_string(static_cast<unsigned>(c)) + " ";
      ADD_FAILURE() << kernel->name << " WideToUTF8 differs on: " << units;
      return false;
    }
  }
  return true;
}

bool SameUTF16Results(const std::u16string& input) {
  const unsigned short* units = reinterpret_cast<const unsigned short*>(input.data());
  const std::string expected = reference::UnicodeToUTF8(units, input.size());
  for (const Kernel* kernel : mvcs::fast_utf::SupportedKernels()) {
    if (mvcs::fast_utf::UnicodeToUTF8With(*kernel, units, input.size()) != expected) {
      std::string text;
      for (char16_t c : input) text += std::to_string(static_cast<unsigned>(c)) + " ";
      ADD_FAILURE() << kernel->name << " UnicodeToUTF8 differs on: " << text;
      return false;
    }
  }
  return true;
}

// Characters of each UTF-8 length and script, to fill around what is tested.
const std::vector<std::string> kFillers = {"x", "\xC3\xA9", "\xE2\x82\xAC", "\xF0\x9F\x98\x80"};

// Sequences to place at every offset: well formed, legal only under the
// lenient rules, ill formed, and cut off.
const std::vector<std::string> kSequences = {"\xC3\xA9",
                                             "\xDF\xBF",
                                             "\xE0\xA0\x80",
                                             "\xE2\x82\xAC",
                                             "\xED\x9F\xBF",
                                             "\xEF\xBF\xBF",
                                             "\xF0\x90\x80\x80",
                                             "\xF4\x8F\xBF\xBF",
                                             "\xED\x41\x80",
                                             "\xED\x7F\xBF",
                                             std::string("\xF4\x00\x80\x80", 4),
                                             "\xF4\x41\x80\x80",
                                             std::string("\0", 1),
                                             "\xC0\x80",
                                             "\xE0\x80\x80",
                                             "\xED\xA0\x80",
                                             "\xF0\x80\x80\x80",
                                             "\xF4\x90\x80\x80",
                                             "\xF5\x80\x80\x80",
                                             "\x80",
                                             "\xFF",
                                             "\xC3",
                                             "\xE2\x82",
                                             "\xF0\x9F\x98"};

std::string Repeat(const std::string& piece, std::size_t times) {
  std::string text;
  for (std::size_t i = 0; i < times; ++i) text += piece;
  return text;
}

TEST(UTFKernels, TheBaselineIsAlwaysThereAndTheBestIsChosen) {
  const std::vector<const Kernel*> kernels = mvcs::fast_utf::SupportedKernels();
  ASSERT_FALSE(kernels.empty());
  EXPECT_EQ(kernels.front(), mvcs::fast_utf::BaselineKernel());
  EXPECT_EQ(mvcs::fast_utf::FindKernel("no such kernel"), nullptr);
  for (const Kernel* kernel : kernels) EXPECT_EQ(mvcs::fast_utf::FindKernel(kernel->name), kernel);
  const char* forced = std::getenv("MORV_UTF_KERNEL");
  if (forced != nullptr && mvcs::fast_utf::FindKernel(forced) != nullptr) {
    EXPECT_STREQ(mvcs::fast_utf::ActiveKernel().name, forced);
  } else {
    EXPECT_EQ(&mvcs::fast_utf::ActiveKernel(), kernels.back());
  }
}

// The vector kernels exist on x86-64 only: elsewhere the portable kernel,
// "scalar", is the only one and the one the conversions use (a forced name
// cannot choose another).
TEST(UTFKernels, TheBaselineAndTheChoiceFollowTheArchitecture) {
  const std::vector<const Kernel*> kernels = mvcs::fast_utf::SupportedKernels();
#if defined(__x86_64__)
  EXPECT_STREQ(mvcs::fast_utf::BaselineKernel()->name, "sse2");
  EXPECT_EQ(mvcs::fast_utf::FindKernel("scalar"), nullptr);
  for (const Kernel* kernel : kernels) {
    const std::string name = kernel->name;
    EXPECT_TRUE(name == "sse2" || name == "avx2" || name == "avx512") << name;
  }
#else
  EXPECT_STREQ(mvcs::fast_utf::BaselineKernel()->name, "scalar");
  ASSERT_EQ(kernels.size(), 1u);
  EXPECT_STREQ(mvcs::fast_utf::ActiveKernel().name, "scalar");
  EXPECT_EQ(mvcs::fast_utf::FindKernel("sse2"), nullptr);
  EXPECT_EQ(mvcs::fast_utf::FindKernel("avx2"), nullptr);
  EXPECT_EQ(mvcs::fast_utf::FindKernel("avx512"), nullptr);
#endif
}

// A sequence placed so that it starts at every offset from 0 to 140 (which
// cuts it by the 16-, 32- and 64-byte boundaries in every way), in text of
// each script, with that text going on after it for more than a block.
TEST(UTFKernels, SequencesAtEveryOffsetAroundTheBlockBoundaries) {
  for (const std::string& filler : kFillers) {
    for (const std::string& sequence : kSequences) {
      for (std::size_t offset = 0; offset <= 140; ++offset) {
        // ASCII up to the offset, then the script's characters.
        std::string text(offset, 'a');
        text += sequence;
        text += Repeat(filler, 90 / filler.size());
        ASSERT_TRUE(SameUTF8Results(text));
        // The script's characters up to the offset (cut short by ASCII).
        std::string mixed = Repeat(filler, offset / filler.size());
        mixed += std::string(offset % filler.size(), 'b') + sequence + Repeat(filler, 20);
        ASSERT_TRUE(SameUTF8Results(mixed));
      }
    }
  }
}

// Inputs that end inside a character (or with a byte that can only start
// one) exactly at the end of a block or a group of blocks, in text of each
// script: nothing follows to show the error, so only the end can.
TEST(UTFKernels, InputsThatEndInsideACharacterAtABlockEnd) {
  const std::vector<std::string> endings = {"\xFF",         "\xF8", "\xC3", "\xE2\x82",
                                            "\xF0\x9F\x98", "\xF4", "\xED"};
  for (const std::string& filler : kFillers) {
    for (std::size_t length : {16, 32, 48, 64, 96, 128, 192, 256, 320, 512, 768, 1024}) {
      for (const std::string& ending : endings) {
        std::string text = Repeat(filler, (length - ending.size()) / filler.size());
        text += std::string(length - ending.size() - text.size(), 'a') + ending;
        ASSERT_EQ(text.size(), length);
        ASSERT_TRUE(SameUTF8Results(text));
      }
    }
  }
}

// Each of the bytes that change the meaning of what follows, replacing the
// byte at every position of 200 bytes of each script.
TEST(UTFKernels, ABadByteAtEveryPositionOfABlock) {
  const unsigned char bad[] = {0x00, 0x41, 0x80, 0xBF, 0xC0, 0xC2,
                               0xE0, 0xED, 0xF0, 0xF4, 0xF8, 0xFF};
  for (const std::string& filler : kFillers) {
    const std::string text = Repeat(filler, 200 / filler.size() + 1).substr(0, 200);
    for (std::size_t position = 0; position < text.size(); ++position) {
      for (unsigned char b : bad) {
        std::string changed = text;
        changed[position] = static_cast<char>(b);
        ASSERT_TRUE(SameUTF8Results(changed));
      }
    }
  }
}

TEST(UTFKernels, EveryLengthFrom0To200) {
  for (const std::string& text :
       {corpus::Ascii(400), corpus::Accented(400), corpus::Cjk(400), corpus::Emoji(400)}) {
    const std::wstring wide = reference::UTF8ToWide(text);
    ASSERT_FALSE(wide.empty());
    std::u16string utf16;
    for (wchar_t c : wide) {
      const unsigned u = static_cast<unsigned>(c);
      if (u < 0x10000) {
        utf16 += static_cast<char16_t>(u);
      } else {
        utf16 += static_cast<char16_t>(0xD800 + ((u - 0x10000) >> 10));
        utf16 += static_cast<char16_t>(0xDC00 + ((u - 0x10000) & 0x3FF));
      }
    }
    for (std::size_t length = 0; length <= 200; ++length) {
      // Byte lengths that cut characters make ill-formed inputs too.
      ASSERT_TRUE(SameUTF8Results(text.substr(0, length)));
      ASSERT_TRUE(SameWideResults(wide.substr(0, length)));
      // Unit lengths that cut pairs leave a high surrogate last.
      ASSERT_TRUE(SameUTF16Results(utf16.substr(0, length)));
    }
  }
}

// Random mixes of every sequence and filler, up to 600 bytes: many blocks,
// with the vector path leaving and resuming several times.
TEST(UTFKernels, RandomMixesOfEverySequence) {
  unsigned seed = 12345;
  auto next = [&seed] { return seed = seed * 1103515245u + 12345u, (seed >> 8); };
  for (int round = 0; round < 20000; ++round) {
    std::string text;
    const std::size_t length = next() % 600;
    const bool mostlyGood = next() % 2 == 0;
    while (text.size() < length) {
      if (next() % (mostlyGood ? 60 : 6) == 0) {
        text += kSequences[next() % kSequences.size()];
      } else {
        text += Repeat(kFillers[next() % kFillers.size()], 1 + next() % 12);
      }
    }
    ASSERT_TRUE(SameUTF8Results(text));
  }
}

// Every kind of unit at every position from 0 to 140 of text of each width,
// short and long.
TEST(UTFKernels, EveryKindOfWideUnitAtEveryPosition) {
  const std::vector<unsigned> units = {
      0x0,    0x7F,    0x80,    0x7FF,    0x800,    0xD800,     0xDBFF,      0xDC00,     0xDFFF,
      0xFFFF, 0x10000, 0x1F600, 0x10FFFF, 0x110000, 0x7FFFFFFF, 0x80000000u, 0xFFFFFFFFu};
  for (wchar_t filler : {L'x', L'\u00E9', L'\u07FF', L'\u4E2D', static_cast<wchar_t>(0x1F600)}) {
    for (unsigned unit : units) {
      for (std::size_t position = 0; position <= 140; ++position) {
        std::wstring text(position + 40, filler);
        text[position] = static_cast<wchar_t>(unit);
        ASSERT_TRUE(SameWideResults(text));
        // Long enough for the 64-unit steps of the vector encoders.
        text.append(200, filler);
        ASSERT_TRUE(SameWideResults(text));
      }
    }
  }
}

// Pairs, lone surrogates and reversed pairs at every position from 0 to
// 140, in text of each kind, short and long; and a pair cut by the end.
TEST(UTFKernels, SurrogatesAtEveryPositionOfUTF16) {
  const std::vector<std::u16string> pieces = {
      u"\xD83D\xDE00", std::u16string(1, 0xD800), std::u16string(1, 0xDC00),
      u"\xDE00\xD83D", u"\xD800\xD800\xDC00",     std::u16string(1, 0),
      u"\u00E9",       u"\u07FF\u0800",           u"\uFFFF"};
  for (char16_t filler : {u'x', u'\u00E9', u'\u07FF', u'\u4E2D', char16_t(0xDC00)}) {
    for (const std::u16string& piece : pieces) {
      for (std::size_t position = 0; position <= 140; ++position) {
        std::u16string text(position, filler);
        text += piece;
        ASSERT_TRUE(SameUTF16Results(text));
        ASSERT_TRUE(SameUTF16Results(text + std::u16string(40, filler)));
        ASSERT_TRUE(SameUTF16Results(text + std::u16string(200, filler)));
        ASSERT_TRUE(SameUTF16Results(text + u"\xD83D\xDE00" + std::u16string(30, u'y')));
      }
    }
  }
}

TEST(UTFKernels, LargeTextsOfEveryScript) {
  for (const std::string& text : {corpus::Ascii(1 << 18), corpus::Accented(1 << 18),
                                  corpus::Cjk(1 << 18), corpus::Emoji(1 << 18)}) {
    ASSERT_TRUE(SameUTF8Results(text));
    std::string lenient = text;
    lenient.replace(lenient.size() / 3, 3, "\xED\x41\x80");  // may cut a character
    ASSERT_TRUE(SameUTF8Results(lenient));
    ASSERT_TRUE(SameWideResults(reference::UTF8ToWide(text)));
  }
}

}  // namespace
