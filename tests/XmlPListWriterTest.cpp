// The XML property-list writer: its exact layout, every kind of value as
// plistlib reads it back, plistlib writing the very same bytes again for
// random trees, dates over the whole calendar, the refusals (each naming
// its entry's key path), and nesting as deep as a settings file may go.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "Plistlib.h"
#include "RandomPListTrees.h"
#include "SettingsSandbox.h"
#include "format/PListLimits.h"
#include "format/XmlPListWriter.h"

namespace {

using mvcs::PListArray;
using mvcs::PListArrayRef;
using mvcs::PListDictionary;
using mvcs::PListDictionaryRef;
using mvcs::PListValue;
typedef mvcs::Status::Code Code;
typedef mvtl::RefCountedPtr<PListDictionary> Tree;
typedef std::vector<std::string> Lines;

const double kInf = std::numeric_limits<double>::infinity();
const double kNaN = std::numeric_limits<double>::quiet_NaN();
const long long kInt64Min = std::numeric_limits<long long>::min();

const char kHead[] =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n";

Tree NewTree() { return Tree(new PListDictionary); }

PListDictionaryRef NewDictionary() {
  PListDictionaryRef dictionary;
  dictionary.Assign(new PListDictionary);
  return dictionary;
}

PListArrayRef Array(std::vector<PListValue> items, bool isSet = false) {
  auto array = std::make_shared<PListArray>();
  array->items = std::move(items);
  array->isSet = isSet;
  return array;
}

mvcs::PListInteger Integer(long long value, bool wide = false) { return {value, wide}; }

std::string Xml(const PListDictionary& root) {
  std::string text;
  const mvcs::Status status = mvcs::WriteXmlPList(root, text);
  EXPECT_TRUE(status.ok()) << status.ToString();
  return text;
}

// The refusal of `root`, checking that the text was left as it was.
mvcs::Status Refusal(const PListDictionary& root) {
  std::string text = "untouched";
  const mvcs::Status status = mvcs::WriteXmlPList(root, text);
  EXPECT_FALSE(status.ok());
  EXPECT_EQ(status.operation(), mvcs::Status::Operation::kSerialise);
  EXPECT_EQ(text, "untouched");
  return status;
}

// The texts of the elements <tag> in `xml`, in order.
Lines ElementTexts(const std::string& xml, const std::string& tag) {
  const std::string open = "<" + tag + ">", close = "</" + tag + ">";
  Lines texts;
  for (std::size_t at = xml.find(open); at != std::string::npos; at = xml.find(open, at)) {
    at += open.size();
    const std::size_t end = xml.find(close, at);
    texts.push_back(xml.substr(at, end - at));
  }
  return texts;
}

// The first line where two texts differ, shown from both; empty when they
// are the same.
std::string FirstDifferentLine(const std::string& a, const std::string& b) {
  if (a == b) return std::string();
  std::size_t start = 0, line = 1;
  for (std::size_t i = 0; i < a.size() && i < b.size() && a[i] == b[i]; ++i) {
    if (a[i] == '\n') start = i + 1, ++line;
  }
  auto lineAt = [start](const std::string& text) {
    return text.substr(start, text.find('\n', start) - start);
  };
  return "line " + std::to_string(line) + ": \"" + lineAt(a) + "\" / \"" + lineAt(b) + "\"";
}

// --- Layout -------------------------------------------------------------------

TEST(XmlPListWriter, WritesTheLayoutOfPlistlibAndApplesTools) {
  Tree tree = NewTree();
  tree->Set("Name", std::string("Caf\xC3\xA9 & <Bar>"));
  PListDictionaryRef network = NewDictionary();
  network->Set("Enabled", true);
  network->Set("Off", false);
  network->Set("Port", Integer(8080));
  network->Set("Ratio", mvcs::PListReal{0.25});
  tree->Set("Network", network);
  tree->Set("Empty", NewDictionary());
  PListDictionaryRef holder = NewDictionary();
  holder->Set("k", mvcs::PListData{1, 2, 3});
  tree->Set("List", Array({Integer(1), Array({}), std::string("x"), holder}));
  tree->Set("Blob", mvcs::PListData{'h', 'e', 'l', 'l', 'o'});
  tree->Set("When", mvcs::PListDate{2147483648.0});
  tree->Set("Ref", mvcs::PListUid{std::uint64_t{1} << 63});
  tree->Set("Set", Array({true}, true));
  EXPECT_EQ(Xml(*tree), std::string(kHead) +
                            "<dict>\n"
                            "\t<key>Blob</key>\n"
                            "\t<data>\n"
                            "\taGVsbG8=\n"
                            "\t</data>\n"
                            "\t<key>Empty</key>\n"
                            "\t<dict/>\n"
                            "\t<key>List</key>\n"
                            "\t<array>\n"
                            "\t\t<integer>1</integer>\n"
                            "\t\t<array/>\n"
                            "\t\t<string>x</string>\n"
                            "\t\t<dict>\n"
                            "\t\t\t<key>k</key>\n"
                            "\t\t\t<data>\n"
                            "\t\t\tAQID\n"
                            "\t\t\t</data>\n"
                            "\t\t</dict>\n"
                            "\t</array>\n"
                            "\t<key>Name</key>\n"
                            "\t<string>Caf\xC3\xA9 &amp; &lt;Bar&gt;</string>\n"
                            "\t<key>Network</key>\n"
                            "\t<dict>\n"
                            "\t\t<key>Enabled</key>\n"
                            "\t\t<true/>\n"
                            "\t\t<key>Off</key>\n"
                            "\t\t<false/>\n"
                            "\t\t<key>Port</key>\n"
                            "\t\t<integer>8080</integer>\n"
                            "\t\t<key>Ratio</key>\n"
                            "\t\t<real>0.25</real>\n"
                            "\t</dict>\n"
                            "\t<key>Ref</key>\n"
                            "\t<dict>\n"
                            "\t\t<key>CF$UID</key>\n"
                            "\t\t<integer>9223372036854775808</integer>\n"
                            "\t</dict>\n"
                            "\t<key>Set</key>\n"
                            "\t<array>\n"
                            "\t\t<true/>\n"
                            "\t</array>\n"
                            "\t<key>When</key>\n"
                            "\t<date>2069-01-19T03:14:08Z</date>\n"
                            "</dict>\n"
                            "</plist>\n");
}

TEST(XmlPListWriter, AnEmptyRootIsAnEmptyDictElement) {
  EXPECT_EQ(Xml(*NewTree()), std::string(kHead) + "<dict/>\n</plist>\n");
}

// Each ASCII character, and a two-byte one, at each place of a string long
// enough to be scanned in words as well as bytes: escaped as it should be,
// or refused.
TEST(XmlPListWriter, EscapesEveryCharacterAtEveryPlace) {
  std::vector<PListValue> items;
  Lines expected;
  for (int code = 1; code <= 0x80; ++code) {
    const std::string character =
        code < 0x80 ? std::string(1, static_cast<char>(code)) : "\xC3\xA9";
    std::string written = character;
    if (code == '&') written = "&amp;";
    if (code == '<') written = "&lt;";
    if (code == '>') written = "&gt;";
    if (code == '\r') written = "&#13;";
    const bool refused = code < 0x20 && code != '\t' && code != '\n' && code != '\r';
    for (std::size_t at = 0; at < 20; ++at) {
      std::string text(20, 'x');
      text.replace(at, 1, character);
      if (refused) {
        Tree tree = NewTree();
        tree->Set("s", text);
        EXPECT_EQ(Refusal(*tree).code(), Code::kBadText) << code << " at " << at;
        continue;
      }
      items.push_back(text);
      expected.push_back(std::string(at, 'x') + written + std::string(19 - at, 'x'));
    }
  }
  Tree tree = NewTree();
  tree->Set("a", Array(items));
  EXPECT_EQ(ElementTexts(Xml(*tree), "string"), expected);
}

TEST(XmlPListWriter, RealsAreTheShortestTextInTheFormOfPythonsRepr) {
  const struct {
    double value;
    const char* text;
  } kReals[] = {{0.1, "0.1"},
                {1.0 / 3, "0.3333333333333333"},
                {3.0, "3.0"},
                {123.0, "123.0"},
                {-2.5, "-2.5"},
                {0.0, "0.0"},
                {-0.0, "-0.0"},
                {1e15, "1000000000000000.0"},
                {9999999999999998.0, "9999999999999998.0"},
                {1e16, "1e+16"},
                {1.5e16, "1.5e+16"},
                {0.0001, "0.0001"},
                {0.00012, "0.00012"},
                {1e-5, "1e-05"},
                {-1.25e-7, "-1.25e-07"},
                {1e300, "1e+300"},
                {5e-324, "5e-324"},
                {std::numeric_limits<double>::max(), "1.7976931348623157e+308"},
                {std::numeric_limits<double>::min(), "2.2250738585072014e-308"},
                {kInf, "inf"},
                {-kInf, "-inf"},
                {kNaN, "nan"},
                {-kNaN, "-nan"}};
  std::vector<PListValue> items;
  for (const auto& real : kReals) items.push_back(mvcs::PListReal{real.value});
  Tree tree = NewTree();
  tree->Set("r", Array(items));
  const Lines texts = ElementTexts(Xml(*tree), "real");
  ASSERT_EQ(texts.size(), items.size());
  for (std::size_t i = 0; i < texts.size(); ++i) EXPECT_EQ(texts[i], kReals[i].text) << i;
}

TEST(XmlPListWriter, RealsReadBackToTheSameBits) {
  std::mt19937_64 random(20261124);
  std::vector<PListValue> items;
  std::vector<double> values;
  for (int i = 0; i < 100000; ++i) {
    std::uint64_t bits = random();
    if (i % 2 == 0) bits = (bits & 0x800FFFFFFFFFFFFFull) | (random() % 200 + 923) << 52;
    double value;
    std::memcpy(&value, &bits, sizeof(value));
    if (std::isnan(value)) continue;
    values.push_back(value);
    items.push_back(mvcs::PListReal{value});
  }
  Tree tree = NewTree();
  tree->Set("r", Array(items));
  const Lines texts = ElementTexts(Xml(*tree), "real");
  ASSERT_EQ(texts.size(), values.size());
  for (std::size_t i = 0; i < texts.size(); ++i) {
    const double back = std::strtod(texts[i].c_str(), nullptr);
    ASSERT_TRUE(mvcs::SameBits(back, values[i])) << texts[i];
  }
}

// --- Dates over the calendar -----------------------------------------------------

bool IsLeap(long long year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

// Seconds since 2001-01-01T00:00:00Z of a date and time, by counting the
// days of the years and months before it (the other way round from the
// writer, which takes dates apart in 400-year cycles).
double SecondsOf(long long year, int month, int day, int hour, int minute, int second) {
  static const int kBefore[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};
  const long long y = year - 1;
  long long days = 365 * y + y / 4 - y / 100 + y / 400;  // 0001-01-01 to January 1
  days += kBefore[month - 1] + (month > 2 && IsLeap(year) ? 1 : 0) + day - 1;
  days -= 730485;  // 0001-01-01 to 2001-01-01
  return static_cast<double>(days * 86400 + hour * 3600 + minute * 60 + second);
}

std::string DateText(long long year, int month, int day, int hour, int minute, int second) {
  char text[32];
  std::snprintf(text, sizeof(text), "%04lld-%02d-%02dT%02d:%02d:%02dZ", year, month, day, hour,
                minute, second);
  return text;
}

TEST(XmlPListWriter, DatesOfEveryYearAreTheirCalendarDates) {
  static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (long long year = 1; year <= 9999; ++year) {
    std::vector<PListValue> items;
    Lines expected;
    for (int month = 1; month <= 12; ++month) {
      const int last = kDays[month - 1] + (month == 2 && IsLeap(year) ? 1 : 0);
      for (int day : {1, 28, last}) {
        const int hour = static_cast<int>((year + day) % 24), minute = (month * 7) % 60,
                  second = static_cast<int>(year % 60);
        // A fraction below the second too, which is dropped.
        const double fraction = (year + month) % 3 == 0 ? 0.999 : 0.0;
        items.push_back(
            mvcs::PListDate{SecondsOf(year, month, day, hour, minute, second) + fraction});
        expected.push_back(DateText(year, month, day, hour, minute, second));
      }
    }
    Tree tree = NewTree();
    tree->Set("d", Array(items));
    ASSERT_EQ(ElementTexts(Xml(*tree), "date"), expected) << year;
  }
}

// --- What plistlib reads -------------------------------------------------------------

class XmlPListWriterInterop : public sandbox::SettingsSandbox {
 protected:
  std::string WriteFile(const PListDictionary& root) {
    const std::string path = m_root + "/written.plist";
    sandbox::WriteFile(path, Xml(root));
    return path;
  }
  // plistlib's exact listing of what it reads from the XML of `root`.
  Lines ReadBack(const PListDictionary& root) { return plistlib::Dump(WriteFile(root), true); }
};

TEST_F(XmlPListWriterInterop, IntegersReadBackExactly) {
  Tree tree = NewTree();
  tree->Set("a_zero", Integer(0));
  tree->Set("b_minus_one", Integer(-1));
  tree->Set("c_int64_min", Integer(kInt64Min));
  tree->Set("d_int64_max", Integer(std::numeric_limits<long long>::max()));
  tree->Set("e_two_to_63", Integer(kInt64Min, true));
  tree->Set("f_uint64_max", Integer(-1, true));
  tree->Set("g_wide_small", Integer(42, true));
  EXPECT_EQ(
      ReadBack(*tree),
      Lines({"\tdict\t7", "/a_zero\tint\t0", "/b_minus_one\tint\t-1",
             "/c_int64_min\tint\t-9223372036854775808", "/d_int64_max\tint\t9223372036854775807",
             "/e_two_to_63\tint\t9223372036854775808", "/f_uint64_max\tint\t18446744073709551615",
             "/g_wide_small\tint\t42"}));
}

TEST_F(XmlPListWriterInterop, RealsReadBackExactly) {
  Tree tree = NewTree();
  tree->Set("a", mvcs::PListReal{0.1});
  tree->Set("b", mvcs::PListReal{-0.0});
  tree->Set("c", mvcs::PListReal{kInf});
  tree->Set("d", mvcs::PListReal{-kInf});
  tree->Set("e", mvcs::PListReal{kNaN});
  tree->Set("f", mvcs::PListReal{-kNaN});
  tree->Set("g", mvcs::PListReal{5e-324});
  tree->Set("h", mvcs::PListReal{1e16});
  EXPECT_EQ(ReadBack(*tree), Lines({"\tdict\t8", "/a\treal\t0.1", "/b\treal\t-0.0", "/c\treal\tinf",
                                    "/d\treal\t-inf", "/e\treal\tnan", "/f\treal\t-nan",
                                    "/g\treal\t5e-324", "/h\treal\t1e+16"}));
}

TEST_F(XmlPListWriterInterop, BooleansDataAndUidsReadBackExactly) {
  Tree tree = NewTree();
  tree->Set("a", true);
  tree->Set("b", false);
  tree->Set("c", mvcs::PListData{});
  tree->Set("d", mvcs::PListData{0, 0xFF, 0x10, 'x'});
  tree->Set("e", mvcs::PListUid{0});
  tree->Set("f", mvcs::PListUid{std::uint64_t{1} << 63});
  tree->Set("g", mvcs::PListUid{~std::uint64_t{0}});
  tree->Set("h", Array({std::string("in a set")}, true));
  EXPECT_EQ(ReadBack(*tree), Lines({"\tdict\t8", "/a\tbool\tTrue", "/b\tbool\tFalse", "/c\tbytes\t",
                                    "/d\tbytes\t00ff1078", "/e\tdict\t1", "/e/CF$UID\tint\t0",
                                    "/f\tdict\t1", "/f/CF$UID\tint\t9223372036854775808",
                                    "/g\tdict\t1", "/g/CF$UID\tint\t18446744073709551615",
                                    "/h\tarray\t1", "/h[0]\tstr\tin a set"}));
}

TEST_F(XmlPListWriterInterop, StringsAndKeysReadBackExactly) {
  std::string c1;  // U+007F to U+009F
  for (unsigned code = 0x7F; code <= 0x9F; ++code) {
    if (code < 0x80) {
      c1 += static_cast<char>(code);
    } else {
      c1 += static_cast<char>(0xC0 | code >> 6);
      c1 += static_cast<char>(0x80 | (code & 0x3F));
    }
  }
  Tree tree = NewTree();
  tree->Set("cr\r", std::string("a\rb"));
  tree->Set("crlf\r\n", std::string("a\r\nb\r"));
  tree->Set("lf\n", std::string("line\nbreak\n"));
  tree->Set("tab\t", std::string("\tx\t"));
  tree->Set("markup &<>]]>", std::string("]]> & <a> &amp; '\""));
  tree->Set("astral \xF0\x9F\x8C\x8D", std::string("\xF0\x90\x80\x80\xF4\x8F\xBF\xBF"));
  tree->Set("c1 " + c1, c1);
  tree->Set("bmp", std::string("\xEF\xBF\xBD\xEE\x80\x80\xEF\xB7\x90\xEF\xBF\xBD"));
  tree->Set("", std::string());
  tree->Set("in array", Array({std::string("\r"), std::string("<&>")}));
  std::string c1Shown;
  for (unsigned code = 0x7F; code <= 0x9F; ++code) {
    char hex[16];
    std::snprintf(hex, sizeof(hex), "\\x{%X}", code);
    c1Shown += hex;
  }
  const std::string xml = Xml(*tree);
  EXPECT_NE(xml.find("<string>a&#13;b</string>"), std::string::npos);
  EXPECT_NE(xml.find("<key>markup &amp;&lt;&gt;]]&gt;</key>"), std::string::npos);
  EXPECT_EQ(ReadBack(*tree),
            Lines({"\tdict\t10", "/\tstr\t", "/astral \\x{1F30D}\tstr\t\\x{10000}\\x{10FFFF}",
                   "/bmp\tstr\t\\x{FFFD}\\x{E000}\\x{FDD0}\\x{FFFD}",
                   "/c1 " + c1Shown + "\tstr\t" + c1Shown, "/cr\\x{D}\tstr\ta\\x{D}b",
                   "/crlf\\x{D}\\x{A}\tstr\ta\\x{D}\\x{A}b\\x{D}", "/in array\tarray\t2",
                   "/in array[0]\tstr\t\\x{D}", "/in array[1]\tstr\t<&>",
                   "/lf\\x{A}\tstr\tline\\x{A}break\\x{A}",
                   "/markup &<>]]>\tstr\t]]> & <a> &amp; '\"", "/tab\\x{9}\tstr\t\\x{9}x\\x{9}"}));
}

TEST_F(XmlPListWriterInterop, DatesReadBackAsTheWholeSecondAtOrBefore) {
  const struct {
    double seconds;
    const char* text;
  } kDates[] = {
      {-63113904000.0, "0001-01-01T00:00:00"}, {-63113904000.0 + 0.25, "0001-01-01T00:00:00"},
      {-4160376000.0, "1869-03-01T12:00:00"},  {-26501384.25, "2000-02-29T06:30:15"},
      {-0.5, "2000-12-31T23:59:59"},           {-1e-300, "2000-12-31T23:59:59"},
      {-0.0, "2001-01-01T00:00:00"},           {0.999999, "2001-01-01T00:00:00"},
      {2147483648.0, "2069-01-19T03:14:08"},   {6279811199.0, "2199-12-31T23:59:59"},
      {252423993599.0, "9999-12-31T23:59:59"}, {252423993599.999, "9999-12-31T23:59:59"}};
  std::vector<PListValue> items;
  Lines expected = {"\tdict\t1", "/d\tarray\t12"};
  for (const auto& date : kDates) {
    items.push_back(mvcs::PListDate{date.seconds});
    expected.push_back("/d[" + std::to_string(items.size() - 1) + "]\tdate\t" + date.text);
  }
  Tree tree = NewTree();
  tree->Set("d", Array(items));
  EXPECT_EQ(ReadBack(*tree), expected);
}

TEST_F(XmlPListWriterInterop, NestingOf128LevelsIsWritten) {
  // The root, then dictionaries and arrays by turns: 128 containers deep.
  Tree tree = NewTree();
  PListValue inner = std::string("bottom");
  for (int depth = 128; depth >= 2; --depth) {
    if (depth % 2 == 0) {
      PListDictionaryRef dictionary = NewDictionary();
      dictionary->Set("k", std::move(inner));
      inner = dictionary;
    } else {
      inner = Array({std::move(inner)});
    }
  }
  tree->Set("k", inner);
  const Lines lines = ReadBack(*tree);
  ASSERT_EQ(lines.size(), 129u);
  std::string path = "/k";  // the root's entry, then each container's
  for (int depth = 2; depth <= 128; ++depth) path += depth % 2 == 0 ? "/k" : "[0]";
  EXPECT_EQ(lines.back(), path + "\tstr\tbottom");
  EXPECT_NE(Xml(*tree).find(std::string(128, '\t') + "<string>bottom</string>\n"),
            std::string::npos);
}

// plistlib, reading what the writer writes and writing it again, writes the
// very same bytes: the layout, the keys' order, the numbers' text and the
// wrapping of data are plistlib's own. (Trees without carriage returns,
// which plistlib writes as line feeds, and NaNs with the sign bit set.)
TEST_F(XmlPListWriterInterop, PlistlibWritesTheSameBytesAgain) {
  randomtrees::RandomTrees trees(20261124);
  Tree tree = NewTree();
  for (int i = 0; i < 300; ++i) {
    PListDictionaryRef child;
    child.Assign(trees.Make().Get());
    tree->Set("t" + std::to_string(1000 + i), child);
  }
  // Reals of every magnitude, and data at every indentation.
  std::mt19937_64 random(7);
  std::vector<PListValue> reals;
  for (int i = 0; i < 3000; ++i) {
    std::uint64_t bits = random();
    double value;
    std::memcpy(&value, &bits, sizeof(value));
    if (!std::isnan(value)) reals.push_back(mvcs::PListReal{value});
  }
  tree->Set("reals", Array(reals));
  PListValue nested = mvcs::PListData(200, 0xA5);
  for (int level = 12; level >= 1; --level) {
    std::vector<PListValue> items;
    for (std::size_t size : {0, 1, 2, 3, 11, 12, 13, 50, 51, 52, 57}) {
      mvcs::PListData data(size);
      for (std::size_t i = 0; i < size; ++i) data[i] = static_cast<unsigned char>(i * 37 + level);
      items.push_back(data);
    }
    items.push_back(std::move(nested));
    nested = Array(items);
  }
  tree->Set("data", nested);
  const std::string path = WriteFile(*tree);
  EXPECT_EQ(FirstDifferentLine(plistlib::XmlAgain(path), sandbox::ReadFile(path)), "");
}

// --- Refusals ------------------------------------------------------------------------

// A UTF-8 character.
std::string Character(std::uint32_t code) {
  if (code < 0x80) return std::string(1, static_cast<char>(code));
  if (code < 0x800) {
    return {static_cast<char>(0xC0 | code >> 6), static_cast<char>(0x80 | (code & 0x3F))};
  }
  return {static_cast<char>(0xE0 | code >> 12), static_cast<char>(0x80 | (code >> 6 & 0x3F)),
          static_cast<char>(0x80 | (code & 0x3F))};
}

TEST(XmlPListWriter, RefusesCharactersThatXmlCannotCarryNamingTheEntry) {
  for (std::uint32_t code : {0x0u, 0x1u, 0x8u, 0xBu, 0xCu, 0xEu, 0x1Fu, 0xFFFEu, 0xFFFFu}) {
    char name[16];
    std::snprintf(name, sizeof(name), "U+%04X", code);
    char escape[16];
    std::snprintf(escape, sizeof(escape), "\\u%04X", code);
    const std::string bad = "a" + Character(code) + "b";
    const std::string carry = std::string(" holds ") + name + ", which XML cannot carry";
    SCOPED_TRACE(name);

    Tree tree = NewTree();
    PListDictionaryRef server = NewDictionary();
    server->Set("Name", bad);
    server->Set("Other", std::string("fine"));
    tree->Set("Server", server);
    mvcs::Status status = Refusal(*tree);
    EXPECT_EQ(status.code(), Code::kBadText);
    EXPECT_EQ(status.message(), "the string at \"Server/Name\"" + carry);

    tree = NewTree();
    PListDictionaryRef item = NewDictionary();
    item->Set("Name", bad);
    tree->Set("Items", Array({Integer(1), Array({std::string("x"), item})}));
    status = Refusal(*tree);
    EXPECT_EQ(status.code(), Code::kBadText);
    EXPECT_EQ(status.message(), "the string at \"Items/[1]/[1]/Name\"" + carry);

    tree = NewTree();
    tree->Set("List", Array({std::string("x"), std::string("y"), bad}));
    EXPECT_EQ(Refusal(*tree).message(), "the string at \"List/[2]\"" + carry);

    tree = NewTree();
    server = NewDictionary();
    server->Set("Na" + Character(code) + "me", true);
    tree->Set("Server", server);
    status = Refusal(*tree);
    EXPECT_EQ(status.code(), Code::kBadText);
    EXPECT_EQ(status.message(), "the key at \"Server/Na" + std::string(escape) + "me\"" + carry);
  }
}

TEST(XmlPListWriter, RefusesTextThatIsNotUtf8) {
  Tree tree = NewTree();
  tree->Set("s", std::string("caf\xC3"));
  mvcs::Status status = Refusal(*tree);
  EXPECT_EQ(status.code(), Code::kBadText);
  EXPECT_EQ(status.message(), "the string at \"s\" is not well-formed UTF-8");
  for (const char* bad : {"\xFF", "\xED\xA0\x80", "\xC0\xAF", "\xF4\x90\x80\x80"}) {
    tree = NewTree();
    tree->Set(std::string("k") + bad, true);
    status = Refusal(*tree);
    EXPECT_EQ(status.code(), Code::kBadText);
    EXPECT_EQ(status.message().rfind("the key at \"k\\x", 0), 0u) << status.message();
  }
}

TEST(XmlPListWriter, RefusesDatesOutsideTheYearsOneTo9999) {
  const std::string outside = " lies outside the years 1 to 9999 that XML dates can carry";
  for (double seconds : {252423993600.0, -63113904001.0, -63113904000.5, kInf, -kInf, 1e300}) {
    Tree tree = NewTree();
    PListDictionaryRef backup = NewDictionary();
    backup->Set("When", mvcs::PListDate{seconds});
    tree->Set("Backup", backup);
    const mvcs::Status status = Refusal(*tree);
    EXPECT_EQ(status.code(), Code::kNotAPropertyList) << seconds;
    EXPECT_EQ(status.message(), "the date at \"Backup/When\"" + outside) << seconds;
  }
  Tree tree = NewTree();
  tree->Set("Dates", Array({mvcs::PListDate{0}, mvcs::PListDate{kNaN}}));
  const mvcs::Status status = Refusal(*tree);
  EXPECT_EQ(status.code(), Code::kNotAPropertyList);
  EXPECT_EQ(status.message(), "the date at \"Dates/[1]\" is not a number");
}

// A chain of dictionaries under "k" from the root, `levels` deep in all,
// the deepest holding `leaf` under "leaf".
Tree Chain(std::size_t levels, PListValue leaf) {
  Tree tree = NewTree();
  PListDictionary* current = tree.Get();
  for (std::size_t depth = 2; depth <= levels; ++depth) {
    PListDictionaryRef child = NewDictionary();
    current->Set("k", child);
    current = child.Get();
  }
  current->Set("leaf", std::move(leaf));
  return tree;
}

std::string ChainPath(std::size_t levels) {
  std::string path;
  for (std::size_t depth = 2; depth <= levels; ++depth) path += "k/";
  return path;
}

TEST(XmlPListWriter, RefusesNestingDeeperThanASettingsFileMayHold) {
  Xml(*Chain(mvcs::kMaxNesting, true));
  mvcs::Status status = Refusal(*Chain(mvcs::kMaxNesting, NewDictionary()));
  EXPECT_EQ(status.code(), Code::kTooDeep);
  EXPECT_EQ(status.message(), "the value at \"" + ChainPath(mvcs::kMaxNesting) +
                                  "leaf\" nests containers deeper " + "than 128 levels");
  // A UID is written as a dictionary: one level more.
  Xml(*Chain(mvcs::kMaxNesting - 1, mvcs::PListUid{1}));
  status = Refusal(*Chain(mvcs::kMaxNesting, mvcs::PListUid{1}));
  EXPECT_EQ(status.code(), Code::kTooDeep);
}

TEST(XmlPListWriter, RefusesTextLargerThanTheReaderReads) {
  Tree tree = NewTree();
  tree->Set("blob", mvcs::PListData(mvcs::kMaxSettingsFileSize / 4 * 3, 0));
  EXPECT_EQ(Refusal(*tree).code(), Code::kTooLarge);
}

}  // namespace
