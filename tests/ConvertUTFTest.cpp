// The UTF converters: results, pointer positions, strict and lenient rules,
// target sizing, and the legality test.

#include "MorvString/ConvertUTF.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <vector>

namespace {

template <class S, class T>
using Converter = ConversionResult (*)(const S**, const S*, T**, T*, ConversionFlags);

// What one call did: the result, how far each pointer moved, what it wrote.
template <class T>
struct Outcome {
  ConversionResult result;
  std::ptrdiff_t consumed;
  std::vector<T> written;
};

// Runs `convert` over `source` into a target of `room` units.
template <class S, class T>
Outcome<T> Apply(Converter<S, T> convert, const std::vector<S>& source, std::size_t room,
                 ConversionFlags flags) {
  std::vector<T> target(room + 1);  // never empty, so data() is usable
  const S* sourceStart = source.data();
  T* targetStart = target.data();
  const ConversionResult result = convert(&sourceStart, source.data() + source.size(), &targetStart,
                                          target.data() + room, flags);
  Outcome<T> outcome;
  outcome.result = result;
  outcome.consumed = sourceStart - source.data();
  outcome.written.assign(target.data(), targetStart);
  return outcome;
}

template <class S, class T>
Outcome<T> RunWithRoom(Converter<S, T> convert, const std::vector<S>& source,
                       ConversionFlags flags) {
  return Apply(convert, source, source.size() * 4 + 4, flags);
}

// Checks all three parts of an outcome.
template <class T>
void ExpectOutcome(const Outcome<T>& outcome, ConversionResult result, std::ptrdiff_t consumed,
                   const std::vector<T>& written) {
  EXPECT_EQ(outcome.result, result);
  EXPECT_EQ(outcome.consumed, consumed);
  EXPECT_EQ(outcome.written, written);
}

// The text "A", U+00E9, U+20AC, U+1F600 in each form, with the offsets at
// which each character starts.
const std::vector<UTF32> kText32 = {0x41, 0xE9, 0x20AC, 0x1F600};
const std::vector<std::size_t> kStarts32 = {0, 1, 2, 3, 4};
const std::vector<UTF16> kText16 = {0x41, 0xE9, 0x20AC, 0xD83D, 0xDE00};
const std::vector<std::size_t> kStarts16 = {0, 1, 2, 3, 5};
const std::vector<UTF8> kText8 = {0x41, 0xC3, 0xA9, 0xE2, 0x82, 0xAC, 0xF0, 0x9F, 0x98, 0x80};
const std::vector<std::size_t> kStarts8 = {0, 1, 3, 6, 10};

// For every target size from 0 to the exact size: the characters that fit
// are converted whole, the first that does not fit leaves the source at its
// start and the target after the last whole character.
template <class S, class T>
void CheckEveryTargetSize(Converter<S, T> convert, const std::vector<S>& source,
                          const std::vector<std::size_t>& sourceStarts,
                          const std::vector<T>& expected,
                          const std::vector<std::size_t>& targetStarts) {
  for (ConversionFlags flags : {strictConversion, lenientConversion}) {
    for (std::size_t room = 0; room <= expected.size(); ++room) {
      std::size_t fits = 0;
      while (fits + 1 < targetStarts.size() && targetStarts[fits + 1] <= room) ++fits;
      const Outcome<T> outcome = Apply(convert, source, room, flags);
      const bool all = fits + 1 == targetStarts.size();
      SCOPED_TRACE(testing::Message() << "room " << room << " flags " << flags);
      EXPECT_EQ(outcome.result, all ? conversionOK : targetExhausted);
      EXPECT_EQ(outcome.consumed, (std::ptrdiff_t)sourceStarts[fits]);
      EXPECT_EQ(outcome.written,
                std::vector<T>(expected.begin(), expected.begin() + targetStarts[fits]));
    }
  }
}

TEST(ConvertUTF, EveryTargetSizeUTF32toUTF16) {
  CheckEveryTargetSize<UTF32, UTF16>(ConvertUTF32toUTF16, kText32, kStarts32, kText16, kStarts16);
}
TEST(ConvertUTF, EveryTargetSizeUTF16toUTF32) {
  CheckEveryTargetSize<UTF16, UTF32>(ConvertUTF16toUTF32, kText16, kStarts16, kText32, kStarts32);
}
TEST(ConvertUTF, EveryTargetSizeUTF16toUTF8) {
  CheckEveryTargetSize<UTF16, UTF8>(ConvertUTF16toUTF8, kText16, kStarts16, kText8, kStarts8);
}
TEST(ConvertUTF, EveryTargetSizeUTF32toUTF8) {
  CheckEveryTargetSize<UTF32, UTF8>(ConvertUTF32toUTF8, kText32, kStarts32, kText8, kStarts8);
}
TEST(ConvertUTF, EveryTargetSizeUTF8toUTF32) {
  CheckEveryTargetSize<UTF8, UTF32>(ConvertUTF8toUTF32, kText8, kStarts8, kText32, kStarts32);
}
TEST(ConvertUTF, EveryTargetSizeUTF8toUTF16) {
  CheckEveryTargetSize<UTF8, UTF16>(ConvertUTF8toUTF16, kText8, kStarts8, kText16, kStarts16);
}

// An empty source: conversionOK, and neither pointer moves.
template <class S, class T>
void CheckEmptySource(Converter<S, T> convert) {
  S source[1] = {0x41};
  T target[4] = {};
  for (ConversionFlags flags : {strictConversion, lenientConversion}) {
    const S* sourceStart = source;
    T* targetStart = target;
    EXPECT_EQ(convert(&sourceStart, source, &targetStart, target + 4, flags), conversionOK);
    EXPECT_EQ(sourceStart, source);
    EXPECT_EQ(targetStart, target);
    EXPECT_EQ(target[0], 0);
  }
}

TEST(ConvertUTF, EmptySourceConvertsNothing) {
  CheckEmptySource<UTF32, UTF16>(ConvertUTF32toUTF16);
  CheckEmptySource<UTF16, UTF32>(ConvertUTF16toUTF32);
  CheckEmptySource<UTF16, UTF8>(ConvertUTF16toUTF8);
  CheckEmptySource<UTF32, UTF8>(ConvertUTF32toUTF8);
  CheckEmptySource<UTF8, UTF32>(ConvertUTF8toUTF32);
  CheckEmptySource<UTF8, UTF16>(ConvertUTF8toUTF16);
}

TEST(ConvertUTF, LoneHighSurrogateAtEndIsSourceExhausted) {
  const std::vector<UTF16> source = {0x41, 0xD800};
  for (ConversionFlags flags : {strictConversion, lenientConversion}) {
    const Outcome<UTF32> to32 = RunWithRoom(ConvertUTF16toUTF32, source, flags);
    ExpectOutcome(to32, sourceExhausted, 1, std::vector<UTF32>({0x41}));
    const Outcome<UTF8> to8 = RunWithRoom(ConvertUTF16toUTF8, source, flags);
    ExpectOutcome(to8, sourceExhausted, 1, std::vector<UTF8>({0x41}));
  }
}

TEST(ConvertUTF, UnpairedHighSurrogatePassesThroughWhenLenient) {
  const std::vector<UTF16> source = {0xD800, 0x0041};
  const Outcome<UTF32> to32 = RunWithRoom(ConvertUTF16toUTF32, source, lenientConversion);
  EXPECT_EQ(to32.result, conversionOK);
  EXPECT_EQ(to32.written, std::vector<UTF32>({0xD800, 0x0041}));
  const Outcome<UTF8> to8 = RunWithRoom(ConvertUTF16toUTF8, source, lenientConversion);
  EXPECT_EQ(to8.result, conversionOK);
  EXPECT_EQ(to8.written, std::vector<UTF8>({0xED, 0xA0, 0x80, 0x41}));
}

TEST(ConvertUTF, UnpairedHighSurrogateStopsWhenStrict) {
  const std::vector<UTF16> source = {0x42, 0xD800, 0x0041};
  const Outcome<UTF32> to32 = RunWithRoom(ConvertUTF16toUTF32, source, strictConversion);
  ExpectOutcome(to32, sourceIllegal, 1, std::vector<UTF32>({0x42}));
  const Outcome<UTF8> to8 = RunWithRoom(ConvertUTF16toUTF8, source, strictConversion);
  ExpectOutcome(to8, sourceIllegal, 1, std::vector<UTF8>({0x42}));
}

TEST(ConvertUTF, UnpairedLowSurrogateFollowsTheSameRules) {
  const std::vector<UTF16> source = {0xDC00, 0x41};
  EXPECT_EQ(RunWithRoom(ConvertUTF16toUTF32, source, lenientConversion).written,
            std::vector<UTF32>({0xDC00, 0x41}));
  const Outcome<UTF32> strict = RunWithRoom(ConvertUTF16toUTF32, source, strictConversion);
  EXPECT_EQ(strict.result, sourceIllegal);
  EXPECT_EQ(strict.consumed, 0);
}

TEST(ConvertUTF, AnyNonZeroFlagIsLenient) {
  const std::vector<UTF16> source = {0xD800, 0x0041};
  const Outcome<UTF32> outcome =
      RunWithRoom(ConvertUTF16toUTF32, source, static_cast<ConversionFlags>(7));
  EXPECT_EQ(outcome.result, conversionOK);
  EXPECT_EQ(outcome.written, std::vector<UTF32>({0xD800, 0x0041}));
}

TEST(ConvertUTF, AboveMaximumToUTF16StrictSkipsAndGoesOn) {
  const std::vector<UTF32> source = {0x41, 0x110000, 0x42};
  const Outcome<UTF16> outcome = RunWithRoom(ConvertUTF32toUTF16, source, strictConversion);
  ExpectOutcome(outcome, sourceIllegal, 3, std::vector<UTF16>({0x41, 0x42}));
}

TEST(ConvertUTF, AboveMaximumToUTF16LenientIsReplaced) {
  const std::vector<UTF32> source = {0x41, 0x110000, 0x42};
  const Outcome<UTF16> outcome = RunWithRoom(ConvertUTF32toUTF16, source, lenientConversion);
  EXPECT_EQ(outcome.result, conversionOK);
  EXPECT_EQ(outcome.written, std::vector<UTF16>({0x41, 0xFFFD, 0x42}));
}

TEST(ConvertUTF, SurrogateToUTF16StopsWhenStrictAndIsReplacedWhenLenient) {
  const std::vector<UTF32> source = {0x41, 0xDC00, 0x42};
  const Outcome<UTF16> strict = RunWithRoom(ConvertUTF32toUTF16, source, strictConversion);
  EXPECT_EQ(strict.result, sourceIllegal);
  EXPECT_EQ(strict.consumed, 1);
  EXPECT_EQ(RunWithRoom(ConvertUTF32toUTF16, source, lenientConversion).written,
            std::vector<UTF16>({0x41, 0xFFFD, 0x42}));
}

TEST(ConvertUTF, AboveMaximumToUTF8IsReplacedAndIllegalInBothModes) {
  const std::vector<UTF32> source = {0x110000, 0x41};
  for (ConversionFlags flags : {strictConversion, lenientConversion}) {
    const Outcome<UTF8> outcome = RunWithRoom(ConvertUTF32toUTF8, source, flags);
    ExpectOutcome(outcome, sourceIllegal, 2, std::vector<UTF8>({0xEF, 0xBF, 0xBD, 0x41}));
  }
}

TEST(ConvertUTF, LaterTargetExhaustedReplacesRememberedIllegal) {
  const std::vector<UTF32> source = {0x110000, 0x41};
  const Outcome<UTF8> outcome = Apply(ConvertUTF32toUTF8, source, 3, lenientConversion);
  ExpectOutcome(outcome, targetExhausted, 1, std::vector<UTF8>({0xEF, 0xBF, 0xBD}));
}

TEST(ConvertUTF, SurrogateToUTF8EncodedWhenLenientStopsWhenStrict) {
  const std::vector<UTF32> source = {0xD800};
  EXPECT_EQ(RunWithRoom(ConvertUTF32toUTF8, source, lenientConversion).written,
            std::vector<UTF8>({0xED, 0xA0, 0x80}));
  const Outcome<UTF8> strict = RunWithRoom(ConvertUTF32toUTF8, source, strictConversion);
  EXPECT_EQ(strict.result, sourceIllegal);
  EXPECT_EQ(strict.consumed, 0);
  EXPECT_TRUE(strict.written.empty());
}

// Ill-formed UTF-8 stops both decoders in both modes at the offending
// sequence, with what came before converted.
void CheckIllegalUTF8(const std::vector<UTF8>& sequence) {
  std::vector<UTF8> source = {0x41};
  source.insert(source.end(), sequence.begin(), sequence.end());
  for (ConversionFlags flags : {strictConversion, lenientConversion}) {
    const Outcome<UTF32> to32 = RunWithRoom(ConvertUTF8toUTF32, source, flags);
    ExpectOutcome(to32, sourceIllegal, 1, std::vector<UTF32>({0x41}));
    const Outcome<UTF16> to16 = RunWithRoom(ConvertUTF8toUTF16, source, flags);
    ExpectOutcome(to16, sourceIllegal, 1, std::vector<UTF16>({0x41}));
  }
}

TEST(ConvertUTF, OverlongTwoByteIsIllegal) { CheckIllegalUTF8({0xC0, 0x80}); }
TEST(ConvertUTF, LeadAboveF4IsIllegal) { CheckIllegalUTF8({0xF5, 0x80, 0x80, 0x80}); }
TEST(ConvertUTF, FiveByteFormIsIllegal) { CheckIllegalUTF8({0xF8, 0x88, 0x80, 0x80, 0x80}); }
TEST(ConvertUTF, LoneTrailByteIsIllegal) { CheckIllegalUTF8({0x80}); }
TEST(ConvertUTF, OverlongThreeByteIsIllegal) { CheckIllegalUTF8({0xE0, 0x80, 0x80}); }
TEST(ConvertUTF, EncodedSurrogateIsIllegal) { CheckIllegalUTF8({0xED, 0xA0, 0x80}); }
TEST(ConvertUTF, AboveMaximumFourByteIsIllegal) { CheckIllegalUTF8({0xF4, 0x90, 0x80, 0x80}); }
TEST(ConvertUTF, SixByteFormIsIllegal) { CheckIllegalUTF8({0xFC, 0x84, 0x80, 0x80, 0x80, 0x80}); }

TEST(ConvertUTF, TruncatedSequenceAtEndIsSourceExhausted) {
  const std::vector<UTF8> source = {0x41, 0xE2, 0x82};
  for (ConversionFlags flags : {strictConversion, lenientConversion}) {
    const Outcome<UTF32> to32 = RunWithRoom(ConvertUTF8toUTF32, source, flags);
    ExpectOutcome(to32, sourceExhausted, 1, std::vector<UTF32>({0x41}));
    const Outcome<UTF16> to16 = RunWithRoom(ConvertUTF8toUTF16, source, flags);
    EXPECT_EQ(to16.result, sourceExhausted);
    EXPECT_EQ(to16.consumed, 1);
  }
}

TEST(ConvertUTF, SecondByteAfterEDAndF4HasOnlyAnUpperBound) {
  const UTF8 ed[] = {0xED, 0x41, 0x80};
  const UTF8 f4[] = {0xF4, 0x00, 0x80, 0x80};
  EXPECT_EQ(isLegalUTF8Sequence(ed, ed + 3), 1);
  EXPECT_EQ(isLegalUTF8Sequence(f4, f4 + 4), 1);
  // The summed bytes minus the three-byte offset: U+C040.
  EXPECT_EQ(
      RunWithRoom(ConvertUTF8toUTF32, std::vector<UTF8>(ed, ed + 3), strictConversion).written,
      std::vector<UTF32>({0xC040}));
  EXPECT_EQ(
      RunWithRoom(ConvertUTF8toUTF32, std::vector<UTF8>(f4, f4 + 4), strictConversion).written,
      std::vector<UTF32>({0x80000}));
}

TEST(ConvertUTF, LegalityNeedsTheWholeSequence) {
  const UTF8 euro[] = {0xE2, 0x82, 0xAC};
  EXPECT_EQ(isLegalUTF8Sequence(euro, euro + 3), 1);
  EXPECT_EQ(isLegalUTF8Sequence(euro, euro + 2), 0);
  EXPECT_EQ(isLegalUTF8Sequence(euro, euro), 0);
  EXPECT_EQ(isLegalUTF8Sequence(nullptr, nullptr), 0);
}

TEST(ConvertUTF, TrailingByteCountsByLeadByte) {
  for (int byte = 0; byte < 256; ++byte) {
    int expected = 0;
    if (byte >= 0xC0) expected = 1;
    if (byte >= 0xE0) expected = 2;
    if (byte >= 0xF0) expected = 3;
    if (byte >= 0xF8) expected = 4;
    if (byte >= 0xFC) expected = 5;
    EXPECT_EQ(getTrailingBytesForUTF8(static_cast<UTF8>(byte)), expected) << byte;
  }
}

TEST(ConvertUTF, UTF8toUTF16WritesSurrogatePairs) {
  const std::vector<UTF8> source = {0xF4, 0x8F, 0xBF, 0xBF};
  EXPECT_EQ(RunWithRoom(ConvertUTF8toUTF16, source, strictConversion).written,
            std::vector<UTF16>({0xDBFF, 0xDFFF}));
}

}  // namespace
