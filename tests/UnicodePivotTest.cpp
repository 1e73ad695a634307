// The UTF-16 pivot of the code-page conversions (UnicodePivot.h): its UTF-8
// check against RFC 3629's table of well-formed sequences, on every
// sequence of up to two bytes and on every lead with the telling second
// and later bytes; its vector decoder against its decoder one character at
// a time, and both against ICU's "utf8" converter; its UTF-16 check and
// encoder against the standard's rules.

#include <gtest/gtest.h>

#include <random>
#include <string>
#include <vector>

#include "TextCorpus.h"
#include "UCNVLibrary.h"
#include "UnicodePivot.h"

namespace {

const unsigned char* Data(const std::string& s) {
  return reinterpret_cast<const unsigned char*>(s.data());
}

// RFC 3629's table: the UTF-16 form of well-formed UTF-8, or false.
bool StrictDecode(const std::string& s, std::u16string* units) {
  units->clear();
  std::size_t i = 0;
  auto in = [&](std::size_t k, unsigned lo, unsigned hi) {
    return k < s.size() && static_cast<unsigned char>(s[k]) >= lo &&
           static_cast<unsigned char>(s[k]) <= hi;
  };
  while (i < s.size()) {
    const unsigned b = static_cast<unsigned char>(s[i]);
    unsigned length = 0, lo = 0x80, hi = 0xBF;
    if (b <= 0x7F) {
      length = 1;
    } else if (b >= 0xC2 && b <= 0xDF) {
      length = 2;
    } else if (b >= 0xE0 && b <= 0xEF) {
      length = 3;
      if (b == 0xE0) lo = 0xA0;
      if (b == 0xED) hi = 0x9F;
    } else if (b >= 0xF0 && b <= 0xF4) {
      length = 4;
      if (b == 0xF0) lo = 0x90;
      if (b == 0xF4) hi = 0x8F;
    } else {
      return false;
    }
    if (length > 1 && !in(i + 1, lo, hi)) return false;
    for (unsigned k = 2; k < length; ++k) {
      if (!in(i + k, 0x80, 0xBF)) return false;
    }
    char32_t c = length == 1 ? b : b & (0x7F >> length);
    for (unsigned k = 1; k < length; ++k) c = c << 6 | (s[i + k] & 0x3F);
    if (c >= 0x10000) {
      units->push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
      units->push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
    } else {
      units->push_back(static_cast<char16_t>(c));
    }
    i += length;
  }
  return true;
}

// Both decoders' units for text that MeasureWellFormedUTF8 accepted, which
// must agree with each other and with `expected`.
void ExpectDecodes(const std::string& text, const std::u16string& expected) {
  std::size_t units = 0;
  ASSERT_TRUE(mvcs::pivot::MeasureWellFormedUTF8(Data(text), text.size(), &units));
  ASSERT_EQ(units, expected.size());
  std::vector<unsigned short> vector(units + mvcs::pivot::kDecodeSlack);
  std::vector<unsigned short> scalar(units);
  EXPECT_EQ(mvcs::pivot::DecodeWellFormedUTF8(Data(text), text.size(), vector.data()),
            vector.data() + units);
  EXPECT_EQ(mvcs::pivot::DecodeWellFormedUTF8Scalar(Data(text), text.size(), scalar.data()),
            scalar.data() + units);
  EXPECT_EQ(std::u16string(vector.begin(), vector.begin() + units), expected);
  EXPECT_EQ(std::u16string(scalar.begin(), scalar.end()), expected);
}

// MeasureWellFormedUTF8 agrees with the table, and decodes what it accepts.
void ExpectAgreesWithTable(const std::string& text) {
  std::u16string expected;
  std::size_t units = 0;
  const bool wellFormed = StrictDecode(text, &expected);
  ASSERT_EQ(mvcs::pivot::MeasureWellFormedUTF8(Data(text), text.size(), &units), wellFormed)
      << ::testing::PrintToString(text);
  if (wellFormed) ExpectDecodes(text, expected);
}

TEST(CodePagePivot, EverySequenceOfUpToTwoBytes) {
  for (unsigned a = 0; a < 256; ++a) {
    ExpectAgreesWithTable(std::string(1, static_cast<char>(a)));
    for (unsigned b = 0; b < 256; ++b) {
      const char pair[] = {static_cast<char>(a), static_cast<char>(b)};
      ExpectAgreesWithTable(std::string(pair, 2));
    }
  }
}

TEST(CodePagePivot, EveryLeadWithTheTellingLaterBytes) {
  // Second bytes cover every value; later bytes the edges of each range.
  const unsigned later[] = {0x00, 0x41, 0x7F, 0x80, 0x8F, 0x90, 0x9F, 0xA0, 0xBF, 0xC0, 0xC2, 0xF4};
  for (unsigned lead = 0xC0; lead < 0x100; ++lead) {
    for (unsigned second = 0; second < 256; ++second) {
      for (unsigned third : later) {
        const char three[] = {static_cast<char>(lead), static_cast<char>(second),
                              static_cast<char>(third)};
        ExpectAgreesWithTable(std::string(three, 3));
        if (lead < 0xF0) continue;
        for (unsigned fourth : later) {
          const char four[] = {static_cast<char>(lead), static_cast<char>(second),
                               static_cast<char>(third), static_cast<char>(fourth)};
          ExpectAgreesWithTable(std::string(four, 4));
        }
      }
    }
  }
}

TEST(CodePagePivot, SequenceTheLenientRulesAcceptIsNotWellFormed) {
  std::size_t units = 0;
  for (const std::string& text : {std::string("\xED\x41\x80"), std::string("\xF4\x41\x80\x80"),
                                  corpus::Accented(500) + "\xED\x41\x80" + corpus::Ascii(500)}) {
    EXPECT_FALSE(mvcs::pivot::MeasureWellFormedUTF8(Data(text), text.size(), &units));
  }
}

TEST(CodePagePivot, SampleTextsAtEveryAlignmentDecodeAsTheTableSays) {
  for (const std::string& text :
       {corpus::Ascii(2000), corpus::Accented(2000), corpus::Cjk(2000), corpus::Emoji(2000)}) {
    for (std::size_t start = 0; start < 20; ++start) {
      // Start at the first character boundary at or after `start`.
      std::size_t from = start;
      while (from < text.size() && (text[from] & 0xC0) == 0x80) ++from;
      const std::string cut = text.substr(from);
      std::u16string expected;
      ASSERT_TRUE(StrictDecode(cut, &expected));
      ExpectDecodes(cut, expected);
    }
  }
}

TEST(CodePagePivot, RandomWellFormedTextDecodesAsTheTableSays) {
  std::mt19937 random(5);
  const std::vector<std::string> pieces = {"a",
                                           "abcdefghijklmnopqrstuvwxyz",
                                           "\xC3\xA9",
                                           "\xDF\xBF",
                                           "\xE6\x97\xA5",
                                           "\xED\x9F\xBF",
                                           "\xEF\xBF\xBF",
                                           "\xF0\x9F\x98\x80",
                                           "\xF4\x8F\xBF\xBF",
                                           std::string(1, '\0')};
  for (int i = 0; i < 2000; ++i) {
    std::string text;
    const unsigned count = random() % 60 + 1;
    for (unsigned k = 0; k < count; ++k) text += pieces[random() % pieces.size()];
    std::u16string expected;
    ASSERT_TRUE(StrictDecode(text, &expected));
    ExpectDecodes(text, expected);
  }
}

TEST(CodePagePivot, DecodingIsWhatICUsUTF8ConverterGives) {
  mvcs::UCNVLibrary* library = mvcs::UCNVLibrary::instance();
  ASSERT_TRUE(library->OpensUTF8());
  for (const std::string& text : {corpus::Accented(5000), corpus::Cjk(5000), corpus::Emoji(5000),
                                  std::string("\xEF\xBB\xBF\xEF\xBF\xBE\xF4\x8F\xBF\xBF\0z", 13)}) {
    UErrorCode error = U_ZERO_ERROR;
    UConverter* converter = library->UCNV_open("utf8", &error);
    ASSERT_NE(converter, nullptr);
    std::vector<unsigned short> icu(text.size() + 1);
    unsigned short* target = icu.data();
    const char* source = text.data();
    library->UCNV_toUnicode(converter, &target, icu.data() + icu.size(), &source,
                            text.data() + text.size(), nullptr, 1, &error);
    library->UCNV_close(converter);
    EXPECT_EQ(error, U_ZERO_ERROR);
    ExpectDecodes(text, std::u16string(icu.data(), target));
  }
}

// --- UTF-16 --------------------------------------------------------------------

// MeasureWellFormedUTF16's answer, and on true the encoded bytes.
bool Encode(const std::u16string& units, std::string* bytes) {
  const unsigned short* u = reinterpret_cast<const unsigned short*>(units.data());
  std::size_t size = 0;
  if (!mvcs::pivot::MeasureWellFormedUTF16(u, units.size(), &size)) return false;
  bytes->assign(size + mvcs::pivot::kEncodeSlack, '\0');
  EXPECT_EQ(mvcs::pivot::EncodeWellFormedUTF16(u, units.size(), &(*bytes)[0]),
            bytes->data() + size);
  std::string scalar(size, '\0');
  EXPECT_EQ(mvcs::pivot::EncodeWellFormedUTF16Scalar(u, units.size(), &scalar[0]),
            scalar.data() + size);
  bytes->resize(size);
  EXPECT_EQ(*bytes, scalar);
  return true;
}

TEST(CodePagePivot, WellFormedUTF16EncodesAsTheStandardSays) {
  std::string bytes;
  ASSERT_TRUE(Encode(u"a\u00E9\u65E5\U0001F600\U0010FFFF", &bytes));
  EXPECT_EQ(bytes, "a\xC3\xA9\xE6\x97\xA5\xF0\x9F\x98\x80\xF4\x8F\xBF\xBF");
  ASSERT_TRUE(Encode(std::u16string(u"x\0y", 3), &bytes));
  EXPECT_EQ(bytes, std::string("x\0y", 3));
  // Long enough for every vector path, pairs across their steps.
  std::u16string text;
  for (int i = 0; i < 100; ++i) text += u"ab\u00E9\U0001F600\u65E5cdefgh";
  ASSERT_TRUE(Encode(text, &bytes));
  std::string expected;
  for (int i = 0; i < 100; ++i)
    expected +=
        "ab\xC3\xA9\xF0\x9F\x98\x80\xE6\x97\xA5"
        "cdefgh";
  EXPECT_EQ(bytes, expected);
}

// The standard's UTF-16 and UTF-8 forms of a code point, appended.
void AppendForms(char32_t c, std::u16string* units, std::string* bytes) {
  if (c >= 0x10000) {
    units->push_back(static_cast<char16_t>(0xD800 + ((c - 0x10000) >> 10)));
    units->push_back(static_cast<char16_t>(0xDC00 + ((c - 0x10000) & 0x3FF)));
  } else {
    units->push_back(static_cast<char16_t>(c));
  }
  if (c < 0x80) {
    bytes->push_back(static_cast<char>(c));
  } else if (c < 0x800) {
    bytes->push_back(static_cast<char>(0xC0 | c >> 6));
    bytes->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else if (c < 0x10000) {
    bytes->push_back(static_cast<char>(0xE0 | c >> 12));
    bytes->push_back(static_cast<char>(0x80 | (c >> 6 & 0x3F)));
    bytes->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  } else {
    bytes->push_back(static_cast<char>(0xF0 | c >> 18));
    bytes->push_back(static_cast<char>(0x80 | (c >> 12 & 0x3F)));
    bytes->push_back(static_cast<char>(0x80 | (c >> 6 & 0x3F)));
    bytes->push_back(static_cast<char>(0x80 | (c & 0x3F)));
  }
}

TEST(CodePagePivot, RandomWellFormedUTF16EncodesAsTheStandardSays) {
  // Runs of one kind and mixtures, so that every vector step meets every
  // character length in every lane.
  const char32_t edges[] = {0x00,   0x41,   0x7F,   0x80,   0xE9,    0x7FF,   0x800,   0x65E5,
                            0xD7FF, 0xE000, 0xFFFD, 0xFFFF, 0x10000, 0x1F600, 0xFFFFF, 0x10FFFF};
  std::mt19937 random(11);
  for (int i = 0; i < 3000; ++i) {
    std::u16string units;
    std::string expected, bytes;
    const unsigned kinds = random() % 16 + 1;  // how many of the edges this text draws
    const unsigned count = random() % 70 + 1;
    for (unsigned k = 0; k < count; ++k) AppendForms(edges[random() % kinds], &units, &expected);
    ASSERT_TRUE(Encode(units, &bytes));
    EXPECT_EQ(bytes, expected);
  }
}

TEST(CodePagePivot, EncodingIsWhatICUsUTF8ConverterGives) {
  mvcs::UCNVLibrary* library = mvcs::UCNVLibrary::instance();
  for (const std::string& text : {corpus::Accented(5000), corpus::Cjk(5000), corpus::Emoji(5000)}) {
    std::u16string units;
    ASSERT_TRUE(StrictDecode(text, &units));
    UErrorCode error = U_ZERO_ERROR;
    UConverter* converter = library->UCNV_open("utf8", &error);
    ASSERT_NE(converter, nullptr);
    std::vector<char> icu(4 * units.size());
    char* target = icu.data();
    const unsigned short* source = reinterpret_cast<const unsigned short*>(units.data());
    library->UCNV_fromUnicode(converter, &target, icu.data() + icu.size(), &source,
                              source + units.size(), nullptr, 1, &error);
    library->UCNV_close(converter);
    EXPECT_EQ(error, U_ZERO_ERROR);
    std::string bytes;
    ASSERT_TRUE(Encode(units, &bytes));
    EXPECT_EQ(bytes, std::string(icu.data(), target));
    EXPECT_EQ(bytes, text);
  }
}

TEST(CodePagePivot, UnpairedSurrogatesAreNotWellFormed) {
  std::string bytes;
  const char16_t high = 0xD83D, low = 0xDE00;
  for (const std::u16string& units :
       {std::u16string(1, high), std::u16string(1, low), std::u16string({u'a', high}),
        std::u16string({low, high}), std::u16string({high, high, low}),
        std::u16string({high, u'a', low}),
        std::u16string(40, u'a') + low + std::u16string(40, u'b'),
        std::u16string(40, u'a') + high}) {
    EXPECT_FALSE(Encode(units, &bytes)) << units.size();
  }
  EXPECT_TRUE(Encode(std::u16string({high, low}), &bytes));
}

}  // namespace
