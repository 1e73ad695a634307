// Every conversion kernel this processor can run against the straightforward
// reference routines, at the places where vector code goes wrong: sequences
// cut by the 16-, 32- and 64-byte block boundaries, a bad byte at every
// position of a block, every input length from 0 to 200, pairs and lone
// surrogates at every position, and the hand-over to the exact rules and
// back; the ASCII prefixes that the conversions try first, at every length
// from 0 to 300 and every alignment, ended by every kind of unit, and long
// ones followed by other text. Also: which kernel is chosen, and that a
// forced one is used.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <string>
#include <type_traits>
#include <vector>

#include "OverwriteString.h"
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

// Well-formed wide text as UTF-16.
std::u16string ToUTF16(const std::wstring& wide) {
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
  return utf16;
}

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
    const std::u16string utf16 = ToUTF16(wide);
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

// ---------------------------------------------------------------------------
// ASCII prefixes.

// The units 01 to 7F over and over, from `first`.
template <typename Unit>
std::vector<Unit> AsciiUnits(std::size_t n, unsigned first = 1) {
  std::vector<Unit> units(n);
  for (std::size_t i = 0; i < n; ++i) units[i] = static_cast<Unit>(1 + (first + i - 1) % 0x7F);
  return units;
}

// Runs one kernel's ASCII prefix block on `in` (n units, copied to `offset`
// units into a buffer) into a buffer whose units from `outOffset` + n on are
// a canary; checks that it returns `expected`, that the units before it are
// the input's, and that nothing after the room was written.
template <typename In, typename Out>
void CheckPrefix(std::size_t (*prefix)(const In*, std::size_t, Out*), const char* kernel,
                 const std::vector<In>& in, std::size_t offset, std::size_t outOffset,
                 std::size_t expected) {
  const std::size_t n = in.size();
  std::vector<In> source(offset + n + 1);
  std::copy(in.begin(), in.end(), source.begin() + static_cast<std::ptrdiff_t>(offset));
  const Out canary = static_cast<Out>(0x5A);
  std::vector<Out> out(outOffset + n + 64, canary);
  const std::size_t got = prefix(source.data() + offset, n, out.data() + outOffset);
  ASSERT_EQ(got, expected) << kernel << ": length " << n << ", offset " << offset << "/"
                           << outOffset;
  for (std::size_t i = 0; i < got; ++i) {
    ASSERT_EQ(static_cast<unsigned>(out[outOffset + i]), static_cast<unsigned>(in[i]))
        << kernel << ": length " << n << ", unit " << i;
  }
  for (std::size_t i = 0; i < outOffset; ++i) ASSERT_EQ(out[i], canary) << kernel;
  for (std::size_t i = outOffset + n; i < out.size(); ++i) {
    ASSERT_EQ(out[i], canary) << kernel << ": written past the room, length " << n;
  }
}

// Every length from 0 to 300 at every alignment of input and output within
// 64 bytes: the whole input is the prefix.
TEST(UTFKernels, AsciiPrefixBlocksOfEveryLengthAtEveryAlignment) {
  for (const Kernel* kernel : mvcs::fast_utf::SupportedKernels()) {
    for (std::size_t n = 0; n <= 300; ++n) {
      const std::vector<unsigned char> bytes =
          AsciiUnits<unsigned char>(n, static_cast<unsigned>(n));
      const std::vector<wchar_t> wide = AsciiUnits<wchar_t>(n, static_cast<unsigned>(n));
      const std::vector<unsigned short> utf16 =
          AsciiUnits<unsigned short>(n, static_cast<unsigned>(n));
      for (std::size_t offset = 0; offset < 64; ++offset) {
        const std::size_t outOffset = (offset * 5) % 64;
        CheckPrefix(kernel->widenAscii, kernel->name, bytes, offset, outOffset / 4, n);
        CheckPrefix(kernel->narrowAsciiWide, kernel->name, wide, offset / 4, outOffset, n);
        CheckPrefix(kernel->narrowAsciiUTF16, kernel->name, utf16, offset / 2, outOffset, n);
        if (HasFailure()) return;
      }
    }
  }
}

// Each unit that ends a prefix, at every position of every length from 1
// to 300 (at alignments that vary with both): the prefix ends there. Up to
// 130 units (the two-block steps twice, and the last block) every such unit
// goes at every position; beyond, one of them in turn. The wide and UTF-16
// ones include the values that narrowing with saturation turns into 00, 7F,
// 80 or FF.
TEST(UTFKernels, AsciiPrefixBlocksStopAtEveryUnitThatIsNotAscii) {
  const std::vector<unsigned char> byteStops = {0x00, 0x80, 0xBF, 0xC3, 0xED, 0xF4, 0xFF};
  const std::vector<unsigned> wideStops = {
      0x0,      0x80,       0xFF,        0x100,       0x17F,       0x7FFF,
      0x8000,   0xFF7F,     0xFFFF,      0x10000,     0x1007F,     0x10FFFF,
      0x110000, 0x7FFFFFFF, 0x80000000u, 0x8000007Fu, 0xFFFF007Fu, 0xFFFFFFFFu};
  const std::vector<unsigned short> utf16Stops = {0x0,    0x80,   0xFF,   0x100,  0x17F,
                                                  0x7FFF, 0x8000, 0xD800, 0xDC00, 0xFFFF};
  // The stops to try at `at` in `n` units.
  auto some = [](const auto& stops, std::size_t n, std::size_t at) {
    using Stop = typename std::decay_t<decltype(stops)>::value_type;
    if (n <= 130) return stops;
    return std::vector<Stop>{stops[(n + at) % stops.size()]};
  };
  for (const Kernel* kernel : mvcs::fast_utf::SupportedKernels()) {
    for (std::size_t n = 1; n <= 300; ++n) {
      for (std::size_t at = 0; at < n; ++at) {
        const std::size_t offset = (n + 3 * at) % 64;
        std::vector<unsigned char> bytes = AsciiUnits<unsigned char>(n);
        for (unsigned char stop : some(byteStops, n, at)) {
          bytes[at] = stop;
          CheckPrefix(kernel->widenAscii, kernel->name, bytes, offset, offset % 16, at);
        }
        std::vector<wchar_t> wide = AsciiUnits<wchar_t>(n);
        for (unsigned stop : some(wideStops, n, at)) {
          wide[at] = static_cast<wchar_t>(stop);
          CheckPrefix(kernel->narrowAsciiWide, kernel->name, wide, offset % 16, offset, at);
        }
        std::vector<unsigned short> utf16 = AsciiUnits<unsigned short>(n);
        for (unsigned short stop : some(utf16Stops, n, at)) {
          utf16[at] = stop;
          CheckPrefix(kernel->narrowAsciiUTF16, kernel->name, utf16, offset % 32, offset, at);
        }
        if (HasFailure()) return;
      }
    }
  }
}

// UnicodeToUTF8 with its units at every alignment.
bool SameUTF16ResultsAt(const std::u16string& input, std::size_t offset) {
  std::vector<unsigned short> buffer(offset + input.size() + 1);
  std::memcpy(buffer.data() + offset, input.data(), input.size() * 2);
  const unsigned short* units = buffer.data() + offset;
  const std::string expected = reference::UnicodeToUTF8(units, input.size());
  for (const Kernel* kernel : mvcs::fast_utf::SupportedKernels()) {
    if (mvcs::fast_utf::UnicodeToUTF8With(*kernel, units, input.size()) != expected) {
      ADD_FAILURE() << kernel->name << " UnicodeToUTF8 differs at offset " << offset << " on "
                    << input.size() << " units";
      return false;
    }
  }
  return true;
}

// The whole-string conversions of all-ASCII text of every length from 0 to
// 300 (UnicodeToUTF8's units at every alignment).
TEST(UTFKernels, AsciiTextOfEveryLength) {
  for (std::size_t n = 0; n <= 300; ++n) {
    const std::vector<unsigned char> units = AsciiUnits<unsigned char>(n, static_cast<unsigned>(n));
    const std::string text(units.begin(), units.end());
    ASSERT_TRUE(SameUTF8Results(text));
    ASSERT_TRUE(SameWideResults(std::wstring(text.begin(), text.end())));
    for (std::size_t offset = 0; offset < 32; ++offset) {
      ASSERT_TRUE(SameUTF16ResultsAt(std::u16string(text.begin(), text.end()), offset));
    }
  }
}

// ASCII of every length from 0 to 300, then a character of every kind
// (well formed, legal only under the lenient rules, ill formed, cut off,
// U+0000), then nothing, a little ASCII, or text that needs the vector
// paths after the prefix.
TEST(UTFKernels, AnAsciiRunEndedByEveryKindOfCharacter) {
  const std::vector<std::string> tails = {"", "tail", Repeat("\xE4\xB8\xAD", 40),
                                          Repeat("ab\xC3\xA9", 30) + "\xC3"};
  const std::vector<unsigned> wideUnits = {0x0,        0x80,        0x7FF,      0x800,    0xD800,
                                           0xDFFF,     0xFFFF,      0x10000,    0x10FFFF, 0x110000,
                                           0x7FFFFFFF, 0x80000000u, 0xFFFFFFFFu};
  const std::vector<std::u16string> utf16Pieces = {
      std::u16string(1, 0),     u"\u0080",       u"\u07FF", u"\u0800",
      u"\xD83D\xDE00",          u"\xDE00\xD83D", u"\uFFFF", std::u16string(1, 0xDC00),
      std::u16string(1, 0xD800)};
  for (std::size_t n = 0; n <= 300; ++n) {
    const std::vector<unsigned char> units = AsciiUnits<unsigned char>(n);
    const std::string ascii(units.begin(), units.end());
    for (const std::string& sequence : kSequences) {
      for (const std::string& tail : tails) ASSERT_TRUE(SameUTF8Results(ascii + sequence + tail));
    }
    const std::wstring wideAscii(ascii.begin(), ascii.end());
    for (unsigned unit : wideUnits) {
      const std::wstring text = wideAscii + static_cast<wchar_t>(unit);
      ASSERT_TRUE(SameWideResults(text));
      ASSERT_TRUE(SameWideResults(text + L"tail"));
      ASSERT_TRUE(SameWideResults(text + std::wstring(100, L'\u4E2D')));
      ASSERT_TRUE(SameWideResults(text + std::wstring(50, L'x') + L'\x110000'));
    }
    const std::u16string utf16Ascii(ascii.begin(), ascii.end());
    for (const std::u16string& piece : utf16Pieces) {
      const std::u16string text = utf16Ascii + piece;
      ASSERT_TRUE(SameUTF16Results(text));
      ASSERT_TRUE(SameUTF16Results(text + u"tail"));
      ASSERT_TRUE(SameUTF16Results(text + std::u16string(100, u'\u4E2D')));
      ASSERT_TRUE(SameUTF16ResultsAt(text + std::u16string(50, u'x') + u"\xD800", n % 16));
    }
  }
}

// Long inputs, where the conversions decide from their start whether to try
// them as ASCII, and from what follows the ASCII whether to keep the room
// they took for it: ASCII prefixes of many sizes followed by a little or
// much other text, by U+0000 and then anything, or by an error; and inputs
// that start with other text and go on in ASCII.
TEST(UTFKernels, LongAsciiPrefixesFollowedByOtherText) {
  const std::vector<std::string> rests = {
      "\xC3\xA9",
      Repeat("\xC3\xA9", 3) + Repeat("x", 200),
      Repeat("\xE4\xB8\xAD", 2000),
      Repeat("\xF0\x9F\x98\x80", 1000) + "abc",
      Repeat("\xC3\xA9xyz", 500),
      std::string("\0\xE4\xB8\xAD", 4) + Repeat("\xF0\x9F\x98\x80", 200),
      std::string("\0\xC0\x80", 3),
      "\xED\x41\x80" + Repeat("\xE4\xB8\xAD", 300),
      Repeat("\xE4\xB8\xAD", 300) + "\xE4\xB8",
      Repeat("\xC3\xA9", 100) + std::string("\0", 1) + Repeat("\xC3\xA9", 100)};
  for (std::size_t prefix : {0, 1, 63, 64, 65, 200, 255, 256, 257, 1000, 4096, 50000}) {
    const std::vector<unsigned char> units = AsciiUnits<unsigned char>(prefix);
    const std::string ascii(units.begin(), units.end());
    for (const std::string& rest : rests) {
      const std::string text = ascii + rest;
      ASSERT_TRUE(SameUTF8Results(text)) << "prefix " << prefix;
      ASSERT_TRUE(SameUTF8Results(rest + ascii)) << "prefix " << prefix;
      const std::wstring wide = reference::UTF8ToWide(text);
      if (!wide.empty()) {
        ASSERT_TRUE(SameWideResults(wide));
        ASSERT_TRUE(SameUTF16Results(ToUTF16(wide)));
      }
    }
    // Wide and UTF-16 input that goes wrong only after U+0000, or at its end.
    const std::wstring wideAscii(ascii.begin(), ascii.end());
    ASSERT_TRUE(SameWideResults(wideAscii + L'\0' + std::wstring(300, L'x') + L'\x110000'));
    ASSERT_TRUE(SameWideResults(wideAscii + L'\0' + std::wstring(300, L'\u4E2D')));
    ASSERT_TRUE(SameWideResults(wideAscii + L'\xE9' + std::wstring(300, L'x')));
    const std::u16string utf16Ascii(ascii.begin(), ascii.end());
    ASSERT_TRUE(SameUTF16Results(utf16Ascii + u'\0' + std::u16string(300, u'x') + u"\xD800"));
    ASSERT_TRUE(SameUTF16Results(utf16Ascii + u"\xD800" + u'\0' + std::u16string(300, u'x')));
    ASSERT_TRUE(SameUTF16Results(utf16Ascii + u"\u00E9" + std::u16string(300, u'x')));
  }
}

// The string sizing behind every conversion keeps what the string held below
// the new size, and takes the size the writer returns. (The library is built
// with C++23's resize_and_overwrite where it can; this test, built as C++17,
// checks the other way.)
TEST(OverwriteString, KeepsThePrefixAndTakesTheWrittenSize) {
  std::string text = "abc";
  mvcs::OverwriteString(text, 100, [](char* data) {
    EXPECT_EQ(std::string(data, 3), "abc");
    std::memset(data + 3, 'x', 97);
    return std::size_t{60};
  });
  EXPECT_EQ(text, "abc" + std::string(57, 'x'));
  mvcs::OverwriteString(text, 2, [](char*) { return std::size_t{1}; });
  EXPECT_EQ(text, "a");
  std::wstring wide;
  mvcs::OverwriteString(wide, 5, [](wchar_t* data) {
    std::wmemcpy(data, L"hello", 5);
    return std::size_t{5};
  });
  EXPECT_EQ(wide, L"hello");
}

}  // namespace
