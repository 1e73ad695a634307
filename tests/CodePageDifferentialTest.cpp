// The composite code-page conversions against ICU alone: UTF8ToCodePage,
// CodePageToUTF8 and CodePageToWide must give, on every input, exactly what
// the route through ICU's converters alone gives (ICU's "utf8" converter to
// UTF-16 with a worst-case array, then the code page, and back). That route
// is rebuilt here from the loaded library's own entry points, so it does not
// depend on the code under test. Inputs: well-formed UTF-8 of every length
// class, every class of ill-formed UTF-8, code-page bytes valid and not,
// and seeded random mixtures of all of them.

#include <gtest/gtest.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "MorvString/MorvString.h"
#include "TextCorpus.h"
#include "UCNVLibrary.h"

namespace {

// One ICU conversion as the composite conversions have always run it: a new
// converter, room for 4 output units an input unit, one call with flush,
// whatever it wrote kept. False when no converter opens.
template <class Source, class Target>
bool IcuOnce(const char* name, const std::basic_string<Source>& source,
             std::basic_string<Target>* result) {
  mvcs::UCNVLibrary* library = mvcs::UCNVLibrary::instance();
  UErrorCode error = U_ZERO_ERROR;
  UConverter* converter = library->UCNV_open(name, &error);
  if (converter == nullptr || error > U_ZERO_ERROR) {
    if (converter != nullptr) library->UCNV_close(converter);
    return false;
  }
  std::vector<Target> room(4 * source.size() + 1);
  Target* target = room.data();
  const Source* cursor = source.data();
  if constexpr (sizeof(Source) == 1) {
    library->UCNV_toUnicode(converter, reinterpret_cast<unsigned short**>(&target),
                            reinterpret_cast<const unsigned short*>(room.data() + room.size() - 1),
                            &cursor, cursor + source.size(), nullptr, 1, &error);
  } else {
    library->UCNV_fromUnicode(
        converter, &target, room.data() + room.size() - 1,
        reinterpret_cast<const unsigned short**>(&cursor),
        reinterpret_cast<const unsigned short*>(source.data()) + source.size(), nullptr, 1, &error);
  }
  library->UCNV_close(converter);
  result->assign(room.data(), target);
  return true;
}

// What UTF8ToCodePage leaves in its two outputs, given a null *out and a
// length of kUntouched.
const unsigned long kUntouched = 0xC0FFEE;
struct Outcome {
  bool outSet = false;
  unsigned long length = kUntouched;
  std::string bytes;
  bool operator==(const Outcome& other) const {
    return outSet == other.outSet && length == other.length && bytes == other.bytes;
  }
};

std::ostream& operator<<(std::ostream& os, const Outcome& outcome) {
  os << (outcome.outSet ? "array of " : "no array, length ") << outcome.length << " [";
  for (unsigned char c : outcome.bytes) os << ' ' << std::hex << unsigned(c) << std::dec;
  return os << " ]";
}

// The route through ICU alone: "utf8" to UTF-16, then the code page.
Outcome IcuUTF8ToCodePage(const char* name, const std::string& text) {
  Outcome outcome;
  std::u16string units;
  if (text.empty() || !IcuOnce("utf8", text, &units) || units.empty()) return outcome;
  std::string bytes;
  if (!IcuOnce(name, units, &bytes)) {
    outcome.length = 0;
    return outcome;
  }
  outcome.outSet = true;
  outcome.length = bytes.size();
  outcome.bytes = bytes;
  return outcome;
}

Outcome LibraryUTF8ToCodePage(const char* name, const std::string& text) {
  Outcome outcome;
  char* out = nullptr;
  mvcs::UTF8ToCodePage(name, text, &out, &outcome.length);
  if (out != nullptr) {
    outcome.outSet = true;
    outcome.bytes.assign(out, outcome.length);
    EXPECT_EQ(out[outcome.length], '\0');
    delete[] out;
  }
  return outcome;
}

// The code page to UTF-16, then to `second` ("utf8" or the wide form).
std::string IcuFromCodePage(const char* name, const std::string& bytes, const char* second) {
  std::u16string units;
  std::string result;
  if (bytes.empty() || !IcuOnce(name, bytes, &units) || units.empty()) return std::string();
  if (!IcuOnce(second, units, &result)) return std::string();
  return result;
}

std::string IcuCodePageToUTF8(const char* name, const std::string& bytes) {
  return IcuFromCodePage(name, bytes, "utf8");
}

std::wstring IcuCodePageToWide(const char* name, const std::string& bytes) {
  const std::string wide = IcuFromCodePage(name, bytes, "UTF32_PlatformEndian");
  return std::wstring(reinterpret_cast<const wchar_t*>(wide.data()), wide.size() / sizeof(wchar_t));
}

const char* const kTargets[] = {"windows-1252", "Shift_JIS", "GB18030",      "ISO-8859-1",
                                "UTF-16",       "UTF-16LE",  "UTF-16BE",     "utf8",
                                "ISO-2022-JP",  "EUC-KR",    "no-such-cp-42"};

std::string Bytes(std::initializer_list<unsigned char> bytes) {
  return std::string(bytes.begin(), bytes.end());
}

// Every target, one text.
void ExpectSameToCodePage(const std::string& text) {
  for (const char* name : kTargets) {
    EXPECT_EQ(LibraryUTF8ToCodePage(name, text), IcuUTF8ToCodePage(name, text))
        << name << ", text of " << text.size() << " bytes";
  }
}

// Samples of well-formed UTF-8: every length of character, the edges of
// each range, U+0000, a byte order mark, noncharacters, characters no
// target holds, and the character mixes of the sample texts.
std::vector<std::string> WellFormedSamples() {
  return {
      "a",
      std::string("a\0b", 3),
      std::string(1, '\0'),
      "caf\xC3\xA9",
      "\xC2\x80\xDF\xBF",
      "\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBD",
      "\xEF\xBB\xBFwith a byte order mark",
      "\xEF\xBF\xBE\xEF\xBF\xBF\xEF\xB7\x90",  // U+FFFE U+FFFF U+FDD0
      "\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",      // U+10000 U+10FFFF
      "\xF0\x9F\x98\x80 emoji \xF0\x9F\x9A\x80",
      "\xE2\x82\xAC\xE2\x80\x9E\xE2\x80\xB0",  // windows-1252's 80-9F range
      "\xE6\x97\xA5\xE6\x9C\xAC\xE8\xAA\x9E",  // Japanese
      "\xE4\xB8\xAD\xE6\x96\x87\xF0\xA0\x80\x80",
      "\xED\x95\x9C\xEA\xB5\xAD\xEC\x96\xB4",  // Korean (ED leads)
      "\xF3\xA0\x80\x81\xF4\x80\x80\x80",
      corpus::Ascii(3000),
      corpus::Accented(3000),
      corpus::Cjk(3000),
      corpus::Emoji(3000),
  };
}

// One ill-formed sequence of every class, each alone and inside text.
std::vector<std::string> IllFormedSequences() {
  return {
      Bytes({0x80}),  // stray continuation bytes
      Bytes({0xBF, 0x80}),
      Bytes({0xC0, 0x80}),  // overlong forms
      Bytes({0xC1, 0xBF}),
      Bytes({0xE0, 0x80, 0x80}),
      Bytes({0xE0, 0x9F, 0xBF}),
      Bytes({0xF0, 0x80, 0x80, 0x80}),
      Bytes({0xF0, 0x8F, 0xBF, 0xBF}),
      Bytes({0xED, 0xA0, 0x80}),  // surrogates
      Bytes({0xED, 0xBF, 0xBF}),
      Bytes({0xED, 0xA0, 0xBD, 0xED, 0xB8, 0x80}),
      Bytes({0xF4, 0x90, 0x80, 0x80}),  // above U+10FFFF
      Bytes({0xF5, 0x80, 0x80, 0x80}),
      Bytes({0xF7, 0xBF, 0xBF, 0xBF}),
      Bytes({0xF8, 0x88, 0x80, 0x80, 0x80}),
      Bytes({0xFC, 0x84, 0x80, 0x80, 0x80, 0x80}),
      Bytes({0xFE}),
      Bytes({0xFF}),
      Bytes({0xED, 0x41, 0x80}),  // what the lenient rules accept
      Bytes({0xF4, 0x41, 0x80, 0x80}),
      Bytes({0xED, 0x00, 0x80}),
      Bytes({0xC3}),  // cut off
      Bytes({0xE6, 0x97}),
      Bytes({0xF0, 0x9F, 0x98}),
      Bytes({0xE6, 0x97, 0x41}),  // cut off by another character
      Bytes({0xF0, 0x9F, 0x41, 0x42}),
      Bytes({0xC3, 0xC3, 0xA9}),
  };
}

TEST(CodePageDifferential, WellFormedUTF8ToCodePageIsIcuAlone) {
  for (const std::string& text : WellFormedSamples()) ExpectSameToCodePage(text);
}

TEST(CodePageDifferential, IllFormedUTF8ToCodePageIsIcuAlone) {
  const std::string prose = corpus::Accented(200), cjk = corpus::Cjk(200);
  for (const std::string& bad : IllFormedSequences()) {
    ExpectSameToCodePage(bad);
    ExpectSameToCodePage("ab" + bad);
    ExpectSameToCodePage(bad + "cd");
    ExpectSameToCodePage(prose + bad + prose);
    ExpectSameToCodePage(cjk + bad + cjk);
    ExpectSameToCodePage(prose + bad);  // at the very end, after vector-sized text
  }
}

TEST(CodePageDifferential, LongTextsAreIcuAloneWhereverTheirCharactersFall) {
  // Long well-formed texts, whose characters of every length fall on every
  // byte offset around multiples of 8 KiB (the library converts long texts
  // a piece at a time); ISO-2022-JP switches script at every character, so
  // that its escapes make the result longer than 4 bytes a unit and the
  // conversion stops where the room ends; UTF-16 writes its byte order mark
  // once.
  const std::string characters[] = {"a", "\xC3\xA9", "\xE6\x97\xA5", "\xF0\x9F\x98\x80"};
  for (const std::string& character : characters) {
    for (std::size_t lead = 0; lead < 4; ++lead) {
      std::string text(8192 - lead, 'x');
      while (text.size() < 3 * 8192 + 7) text += character;
      ExpectSameToCodePage(text);
    }
  }
  std::string switching;
  while (switching.size() < 40000)
    switching +=
        "\xE6\x97\xA5"
        "a";
  ExpectSameToCodePage(switching);
  ExpectSameToCodePage(corpus::Cjk(30000) + corpus::Accented(30000) + corpus::Cjk(30000));
}

TEST(CodePageDifferential, MixedIllFormedClassesAreIcuAlone) {
  std::string mixed = "x";
  for (const std::string& bad : IllFormedSequences()) mixed += bad + "\xC3\xA9\xE6\x97\xA5";
  ExpectSameToCodePage(mixed);
}

TEST(CodePageDifferential, EveryLengthAndAlignmentIsIcuAlone) {
  // Cuts of a text with every character length, at every byte, so that
  // every character meets every position of a vector step and the end.
  const std::string text =
      "ab\xC3\xA9"
      "c\xE6\x97\xA5\xF0\x9F\x98\x80"
      "d\xED\x95\x9C\xC2\xA0"
      "efghijklmnop"
      "\xE2\x82\xAC\xE3\x80\x82"
      "qr\xF4\x8F\xBF\xBF"
      "s\xDF\xBF\xE0\xA0\x80"
      "tuvwxyz0123";
  for (std::size_t start = 0; start < 8; ++start) {
    for (std::size_t end = start + 1; end <= text.size(); ++end) {
      const std::string cut = text.substr(start, end - start);
      for (const char* name : {"windows-1252", "GB18030", "UTF-16LE"}) {
        EXPECT_EQ(LibraryUTF8ToCodePage(name, cut), IcuUTF8ToCodePage(name, cut))
            << name << " [" << start << ", " << end << ")";
      }
    }
  }
}

// A seeded random mixture of well-formed characters of every length, ASCII
// runs and (with `illFormed`) ill-formed sequences.
std::string RandomText(std::mt19937& random, bool illFormed) {
  static const std::vector<std::string> good = {"a",
                                                "Z",
                                                " ",
                                                "\n",
                                                "\xC3\xA9",
                                                "\xC2\x80",
                                                "\xDF\xBF",
                                                "\xE2\x82\xAC",
                                                "\xE6\x97\xA5",
                                                "\xED\x9F\xBF",
                                                "\xEF\xBF\xBD",
                                                "\xF0\x9F\x98\x80",
                                                "\xF4\x8F\xBF\xBF",
                                                "abcdefghijklmnopq",
                                                "\xE3\x83\x95\xE3\x82\xA1"};
  static const std::vector<std::string> bad = IllFormedSequences();
  std::string text;
  const std::size_t pieces = random() % 40;
  for (std::size_t i = 0; i < pieces; ++i) {
    if (illFormed && random() % 8 == 0) {
      text += bad[random() % bad.size()];
    } else {
      text += good[random() % good.size()];
    }
  }
  return text;
}

TEST(CodePageDifferential, RandomTextsAreIcuAlone) {
  std::mt19937 random(2024);
  for (int i = 0; i < 400; ++i) ExpectSameToCodePage(RandomText(random, i % 2 == 0));
}

TEST(CodePageDifferential, FailuresAreIcuAlone) {
  // The unknown code page: no array and a length of 0, well-formed or not;
  // an empty text: both outputs untouched.
  const Outcome unknown = LibraryUTF8ToCodePage("no-such-cp-42", "abc");
  EXPECT_FALSE(unknown.outSet);
  EXPECT_EQ(unknown.length, 0u);
  EXPECT_EQ(LibraryUTF8ToCodePage("no-such-cp-42", "a\xFF"), unknown);
  EXPECT_EQ(LibraryUTF8ToCodePage("windows-1252", ""), Outcome());
  EXPECT_EQ(IcuUTF8ToCodePage("windows-1252", ""), Outcome());
}

// --- Code page to UTF-8 and to wide -------------------------------------------

void ExpectSameFromCodePage(const char* name, const std::string& bytes) {
  EXPECT_EQ(mvcs::CodePageToUTF8(name, bytes.data(), bytes.size()), IcuCodePageToUTF8(name, bytes))
      << name << ", " << bytes.size() << " bytes";
  EXPECT_EQ(mvcs::CodePageToWide(name, bytes.data(), bytes.size()), IcuCodePageToWide(name, bytes))
      << name << ", " << bytes.size() << " bytes";
}

// Text in code page `name`, as ICU writes it.
std::string Encoded(const char* name, const std::string& utf8) {
  std::u16string units;
  std::string bytes;
  EXPECT_TRUE(IcuOnce("utf8", utf8, &units));
  EXPECT_TRUE(IcuOnce(name, units, &bytes));
  return bytes;
}

TEST(CodePageDifferential, CodePageTextToUTF8IsIcuAlone) {
  for (const char* name : {"windows-1252", "Shift_JIS", "GB18030", "ISO-8859-1", "UTF-16LE"}) {
    for (const std::string& text : {corpus::Accented(3000), corpus::Cjk(3000), corpus::Emoji(3000),
                                    std::string("a\0b\xC3\xA9", 5)}) {
      ExpectSameFromCodePage(name, Encoded(name, text));
    }
  }
}

TEST(CodePageDifferential, EveryByteOfASingleByteCodePageIsIcuAlone) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  for (const char* name : {"windows-1252", "ISO-8859-1", "ISO-8859-5", "Shift_JIS", "GB18030"}) {
    ExpectSameFromCodePage(name, all);
    for (int b = 0; b < 256; ++b) ExpectSameFromCodePage(name, std::string(1, char(b)));
  }
}

TEST(CodePageDifferential, IllFormedCodePageBytesAreIcuAlone) {
  ExpectSameFromCodePage("Shift_JIS", Bytes({'a', 0x93}));         // cut-off lead byte
  ExpectSameFromCodePage("Shift_JIS", Bytes({0x93, 0x20, 0x41}));  // lead without trail
  ExpectSameFromCodePage("Shift_JIS", Bytes({0xA0, 0xFD, 0xFF}));
  ExpectSameFromCodePage("GB18030", Bytes({0x81, 0x30, 0x81}));  // cut-off four bytes
  ExpectSameFromCodePage("GB18030", Bytes({0x81, 0x30, 0xFF, 0x30}));
  // Unpaired surrogates in UTF-16 input, alone, at the ends and inside.
  ExpectSameFromCodePage("UTF-16LE", Bytes({0x00, 0xD8}));
  ExpectSameFromCodePage("UTF-16LE", Bytes({0x41, 0x00, 0x00, 0xDC, 0x42, 0x00}));
  ExpectSameFromCodePage("UTF-16LE", Bytes({0x00, 0xD8, 0x41, 0x00}));
  ExpectSameFromCodePage("UTF-16BE", Bytes({0xDC, 0x00, 0xD8, 0x00}));
  ExpectSameFromCodePage("UTF-16BE", Bytes({0xD8, 0x3D, 0xDE, 0x00, 0x00}));  // odd byte
  ExpectSameFromCodePage("UTF-16", Bytes({0xFF, 0xFE}));  // a byte order mark alone
  // CESU-8, UTF-7 and SCSU hand unpaired surrogates on as they are: alone,
  // and inside and at the end of text long enough for the vector steps.
  const std::string padding(40, 'a');
  for (const std::string& lone : {Bytes({0xED, 0xA0, 0xBD}), Bytes({0xED, 0xB8, 0x80}),
                                  Bytes({0xED, 0xB8, 0x80, 0xED, 0xA0, 0xBD})}) {
    for (const std::string& text : {lone, padding + lone + padding, padding + lone}) {
      ExpectSameFromCodePage("CESU-8", text);
    }
  }
  ExpectSameFromCodePage("UTF-7", padding + "+2D0-" + padding);
  ExpectSameFromCodePage("UTF-7", padding + "+3gA-");
  ExpectSameFromCodePage("SCSU", padding + Bytes({0x0F, 0xD8, 0x3D, 0x00, 0x42}) + padding);
}

TEST(CodePageDifferential, MoreUnitsThanBytesAreIcuAlone) {
  // SCSU: SDX (0B) defines window 0 at U+10000, then every byte 80-FF is
  // one supplementary character, two UTF-16 units a byte: more than the
  // first guess of the array's size.
  std::string scsu = Bytes({0x0B, 0x00, 0x00});
  for (int i = 0; i < 300; ++i) scsu += static_cast<char>(0x80 + i % 128);
  ExpectSameFromCodePage("SCSU", scsu);
  EXPECT_EQ(mvcs::CodePageToWide("SCSU", scsu.data(), scsu.size()).size(), 300u);
}

TEST(CodePageDifferential, RandomCodePageBytesAreIcuAlone) {
  std::mt19937 random(77);
  for (int i = 0; i < 300; ++i) {
    std::string bytes(random() % 50 + 1, '\0');
    for (char& c : bytes) c = static_cast<char>(random());
    for (const char* name : {"windows-1252", "Shift_JIS", "GB18030", "UTF-16LE", "no-such-cp"}) {
      ExpectSameFromCodePage(name, bytes);
    }
  }
}

}  // namespace
