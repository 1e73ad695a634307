// morv-settings' JSON form of values: dates as ISO 8601 and back to the same
// bits, base64 against the RFC 4648 vectors, exact 64-bit integers, reals
// without a number's form, and JSON that is no settings value refused with
// where and why.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "JsonValues.h"

namespace {

using morv_tool::FormatDate;
using morv_tool::FromJson;
using morv_tool::ParseDate;
using morv_tool::ToJson;

std::uint64_t Bits(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

// `value` to JSON text and back.
mvcs::SettingsValue RoundTrip(const mvcs::SettingsValue& value) {
  const std::string text = ToJson(value).dump();
  mvcs::SettingsValue back;
  std::string error;
  EXPECT_TRUE(FromJson(nlohmann::json::parse(text), back, error)) << text << ": " << error;
  return back;
}

mvcs::SettingsValue Of(mvcs::MORVVALUEKIND kind) {
  mvcs::SettingsValue value;
  value.kind = kind;
  return value;
}

// The error FromJson gives for `text`; "" when it takes it.
std::string ErrorFor(const std::string& text) {
  mvcs::SettingsValue value;
  std::string error;
  return FromJson(nlohmann::json::parse(text), value, error) ? std::string() : error;
}

double FromBits(std::uint64_t bits) {
  double value;
  std::memcpy(&value, &bits, sizeof(value));
  return value;
}

// A date to JSON text and back: the same bits, and still a date.
void ExpectDateRoundTrip(double seconds) {
  mvcs::SettingsValue date = Of(mvcs::MORVVALUEKIND_DATE);
  date.real = seconds;
  const mvcs::SettingsValue back = RoundTrip(date);
  ASSERT_EQ(back.kind, mvcs::MORVVALUEKIND_DATE) << ToJson(date).dump();
  ASSERT_EQ(Bits(back.real), Bits(seconds)) << ToJson(date).dump();
}

TEST(ToolJsonDates, KnownDates) {
  EXPECT_EQ(FormatDate(0), "2001-01-01T00:00:00Z");
  EXPECT_EQ(FormatDate(-978307200), "1970-01-01T00:00:00Z");
  EXPECT_EQ(FormatDate(816957296), "2026-11-21T12:34:56Z");
  EXPECT_EQ(FormatDate(816957296.25), "2026-11-21T12:34:56.25Z");
  EXPECT_EQ(FormatDate(-0.5), "2000-12-31T23:59:59.5Z");
  EXPECT_EQ(FormatDate(-63113904000), "0001-01-01T00:00:00Z");
  EXPECT_EQ(FormatDate(252423993599.5), "9999-12-31T23:59:59.5Z");
  EXPECT_EQ(FormatDate(816957296.123), "2026-11-21T12:34:56.123Z");
  EXPECT_EQ(FormatDate(-978307199.999), "1970-01-01T00:00:00.001Z");
  double seconds = 1;
  ASSERT_TRUE(ParseDate("2026-11-21T12:34:56.25Z", seconds));
  EXPECT_EQ(seconds, 816957296.25);
  ASSERT_TRUE(ParseDate("1970-01-01T00:00:00Z", seconds));
  EXPECT_EQ(seconds, -978307200);
}

TEST(ToolJsonDates, EveryDateReadsBackToTheSameBits) {
  std::mt19937_64 random(14);
  std::uniform_real_distribution<double> range(-63113904000.0, 252423993599.0);
  for (int i = 0; i < 20000; ++i) {
    double seconds = range(random);
    if (i % 4 == 1) seconds = std::floor(seconds) + std::ldexp(1.0, -(i % 30));  // tiny fraction
    if (i % 4 == 2) seconds = std::floor(seconds);
    const std::string text = FormatDate(seconds);
    double back = 0;
    ASSERT_TRUE(ParseDate(text, back)) << text;
    ASSERT_EQ(Bits(back), Bits(seconds)) << text;
  }
}

// Dates around 2001-01-01, where a double has far more fraction digits
// than anywhere else: as many digits as the bits take.
TEST(ToolJsonDates, DatesWithinASecondOf2001KeepEveryBit) {
  EXPECT_EQ(FormatDate(-1e-9), "2000-12-31T23:59:59.999999999Z");
  EXPECT_EQ(FormatDate(1e-9), "2001-01-01T00:00:00.000000001Z");
  EXPECT_EQ(FormatDate(-0.25), "2000-12-31T23:59:59.75Z");
  EXPECT_EQ(FormatDate(0.9999999999999999), "2001-01-01T00:00:00.9999999999999999Z");
  EXPECT_EQ(FormatDate(-0.9999999999999999), "2000-12-31T23:59:59.0000000000000001Z");
  EXPECT_EQ(FormatDate(-1e-20), "2000-12-31T23:59:59.99999999999999999999Z");
  EXPECT_EQ(FormatDate(1.5e-20), "");  // 21 fraction digits: the seconds' form
  for (double seconds : {-1e-9, 1e-9, -0.25, 0.9999999999999999, -0.9999999999999999, -1e-20,
                         std::nextafter(-1.0, 0.0), std::nextafter(-1.0, -2.0),
                         std::nextafter(1.0, 0.0), std::nextafter(0.5, 0.0),
                         std::nextafter(-0.5, 0.0), 1e-16, -1e-16, 0.1, -0.1, 1.0 / 3, -1.0 / 3}) {
    const std::string text = FormatDate(seconds);
    ASSERT_NE(text, "") << seconds;
    double back = 0;
    ASSERT_TRUE(ParseDate(text, back)) << text;
    EXPECT_EQ(Bits(back), Bits(seconds)) << text;
  }
  // No fraction digit is written that reading back does not need.
  for (double seconds : {-0.5, 0.25, -1e-9, 816957296.123}) {
    const std::string text = FormatDate(seconds);
    EXPECT_NE(text[text.size() - 2], '0') << text;
  }
}

// What the calendar form cannot carry takes the seconds' form, and every
// value a date can hold reads back to the same bits.
TEST(ToolJsonDates, EveryValueOfADateReadsBackToTheSameBits) {
  struct Case {
    double seconds;
    const char* json;
  };
  for (const Case& date : std::vector<Case>{
           {-0.0, "{\"$date\":-0.0}"},
           {1e-300, "{\"$date\":1e-300}"},
           {-1e-300, "{\"$date\":-1e-300}"},
           {5e-324, "{\"$date\":5e-324}"},
           {-5e-324, "{\"$date\":-5e-324}"},
           {1e-21, "{\"$date\":1e-21}"},
           {1e300, "{\"$date\":1e+300}"},
           {-1e300, "{\"$date\":-1e+300}"},
           {1.7976931348623157e308, "{\"$date\":1.7976931348623157e+308}"},
           {std::numeric_limits<double>::infinity(), "{\"$date\":{\"$real\":\"inf\"}}"},
           {-std::numeric_limits<double>::infinity(), "{\"$date\":{\"$real\":\"-inf\"}}"},
           {std::numeric_limits<double>::quiet_NaN(), "{\"$date\":{\"$real\":\"nan\"}}"},
           {FromBits(0xFFF8000000000000ull), "{\"$date\":{\"$real\":\"nan:fff8000000000000\"}}"},
           {FromBits(0x7FF0000000000001ull), "{\"$date\":{\"$real\":\"nan:7ff0000000000001\"}}"},
           {-1e-9, "{\"$date\":\"2000-12-31T23:59:59.999999999Z\"}"},
           {-0.5, "{\"$date\":\"2000-12-31T23:59:59.5Z\"}"},
           {0.0, "{\"$date\":\"2001-01-01T00:00:00Z\"}"},
       }) {
    mvcs::SettingsValue value = Of(mvcs::MORVVALUEKIND_DATE);
    value.real = date.seconds;
    EXPECT_EQ(ToJson(value).dump(), date.json);
    ExpectDateRoundTrip(date.seconds);
  }
  // Every finite and non-finite value by its bits, and values near
  // 2001-01-01 of every size.
  std::mt19937_64 random(2001);
  for (int i = 0; i < 30000; ++i) ExpectDateRoundTrip(FromBits(random()));
  for (int exponent = -1074; exponent < 40; ++exponent) {
    const double magnitude =
        std::ldexp(1.0 + static_cast<double>(random() % 1000) / 1000, exponent);
    ExpectDateRoundTrip(magnitude);
    ExpectDateRoundTrip(-magnitude);
    ExpectDateRoundTrip(std::nextafter(-1.0, 0.0) + magnitude);
  }
}

TEST(ToolJsonDates, DatesBeyondIsoFormAreSecondsAsAReal) {
  for (double seconds :
       {1e300, -1e12, 252423993600.0, -63113904000.5, std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_EQ(FormatDate(seconds), "") << seconds;
    mvcs::SettingsValue date = Of(mvcs::MORVVALUEKIND_DATE);
    date.real = seconds;
    const mvcs::SettingsValue back = RoundTrip(date);
    EXPECT_EQ(back.kind, mvcs::MORVVALUEKIND_DATE);
    EXPECT_EQ(Bits(back.real), Bits(seconds)) << ToJson(date).dump();
  }
  mvcs::SettingsValue far = Of(mvcs::MORVVALUEKIND_DATE);
  far.real = 1e300;
  EXPECT_EQ(ToJson(far).dump(), "{\"$date\":1e+300}");
}

TEST(ToolJsonDates, TextThatIsNoDate) {
  double seconds = 0;
  for (const char* text : {"", "2026-11-21", "2026-11-21T12:34:56", "2026-11-21 12:34:56Z",
                           "2026-13-01T00:00:00Z", "2026-11-32T00:00:00Z", "2026-11-21T24:00:00Z",
                           "2026-11-21T12:60:00Z", "2026-11-21T12:34:56.Z",
                           "2026-11-21T12:34:56Zjunk", "2026-11-21T12:34:56+01:00", "yesterday"}) {
    EXPECT_FALSE(ParseDate(text, seconds)) << text;
  }
}

TEST(ToolJsonData, Rfc4648Vectors) {
  const char* vectors[][2] = {{"", ""},
                              {"f", "Zg=="},
                              {"fo", "Zm8="},
                              {"foo", "Zm9v"},
                              {"foob", "Zm9vYg=="},
                              {"fooba", "Zm9vYmE="},
                              {"foobar", "Zm9vYmFy"}};
  for (const auto& vector : vectors) {
    mvcs::SettingsValue data = Of(mvcs::MORVVALUEKIND_DATA);
    data.data.assign(vector[0], vector[0] + std::strlen(vector[0]));
    EXPECT_EQ(ToJson(data).dump(), std::string("{\"$data\":\"") + vector[1] + "\"}");
    EXPECT_EQ(RoundTrip(data).data, data.data);
  }
  std::mt19937 random(4648);
  for (std::size_t size = 0; size < 100; ++size) {
    mvcs::SettingsValue data = Of(mvcs::MORVVALUEKIND_DATA);
    for (std::size_t i = 0; i < size; ++i)
      data.data.push_back(static_cast<unsigned char>(random()));
    EXPECT_EQ(RoundTrip(data).data, data.data) << size;
  }
}

TEST(ToolJsonData, TextThatIsNoBase64) {
  for (const char* text : {"Zg=", "Z===", "Zg==Zg==", "Zm9v!", "Zm 9v", "=Zm9", "Zm9v\\u0000"}) {
    EXPECT_EQ(ErrorFor(std::string("{\"a\":{\"$data\":\"") + text + "\"}}"),
              "at /a: $data holds no base64 text")
        << text;
  }
}

TEST(ToolJsonNumbers, IntegersAreExactOverAll64Bits) {
  for (long long integer : {0LL, -1LL, std::numeric_limits<long long>::min(),
                            std::numeric_limits<long long>::max(), 9007199254740993LL}) {
    mvcs::SettingsValue value = Of(mvcs::MORVVALUEKIND_INTEGER);
    value.integer = integer;
    EXPECT_EQ(ToJson(value).dump(), std::to_string(integer));
    const mvcs::SettingsValue back = RoundTrip(value);
    EXPECT_EQ(back.kind, mvcs::MORVVALUEKIND_INTEGER);
    EXPECT_EQ(back.integer, integer);
  }
  mvcs::SettingsValue top = Of(mvcs::MORVVALUEKIND_UNSIGNED_INTEGER);
  top.integer = -1;  // the bits of 2^64 - 1
  EXPECT_EQ(ToJson(top).dump(), "18446744073709551615");
  EXPECT_EQ(RoundTrip(top).kind, mvcs::MORVVALUEKIND_UNSIGNED_INTEGER);
  EXPECT_EQ(RoundTrip(top).integer, -1);
}

TEST(ToolJsonNumbers, RealsKeepTheirKindAndBits) {
  for (double real :
       {0.0, -0.0, 5.0, 0.1, 1.0 / 3, 1e-320, 1.7976931348623157e308,
        std::numeric_limits<double>::infinity(), -std::numeric_limits<double>::infinity(),
        std::numeric_limits<double>::quiet_NaN(), FromBits(0xFFF8000000000000ull),
        FromBits(0x7FF8000000000001ull), FromBits(0x7FF0000000000001ull),
        FromBits(0xFFFFFFFFFFFFFFFFull)}) {
    mvcs::SettingsValue value = Of(mvcs::MORVVALUEKIND_REAL);
    value.real = real;
    const mvcs::SettingsValue back = RoundTrip(value);
    EXPECT_EQ(back.kind, mvcs::MORVVALUEKIND_REAL) << real;
    EXPECT_EQ(Bits(back.real), Bits(real)) << ToJson(value).dump();
  }
  // NaNs keep their sign and payload: the usual one is "nan", every other
  // one its bits.
  mvcs::SettingsValue nan = Of(mvcs::MORVVALUEKIND_REAL);
  nan.real = std::numeric_limits<double>::quiet_NaN();
  EXPECT_EQ(ToJson(nan).dump(), "{\"$real\":\"nan\"}");
  nan.real = FromBits(0xFFF8000000000000ull);
  EXPECT_EQ(ToJson(nan).dump(), "{\"$real\":\"nan:fff8000000000000\"}");
  nan.real = FromBits(0x7FF4000000000abcull);
  EXPECT_EQ(ToJson(nan).dump(), "{\"$real\":\"nan:7ff4000000000abc\"}");
  EXPECT_EQ(ToJson(morv_tool::Value(std::numeric_limits<float>::quiet_NaN())).dump(),
            "{\"$real\":\"nan\"}");
  for (const char* text :
       {"nan:", "nan:7ff000000000000", "nan:7ff0000000000000", "nan:3ff0000000000000",
        "nan:+7f8000000000000", "NaN", "nan:7ff8000000000000x"}) {
    EXPECT_EQ(ErrorFor(std::string("{\"a\":{\"$real\":\"") + text + "\"}}"),
              "at /a: $real holds none of nan, nan:<16 hex digits>, inf, -inf")
        << text;
  }
  mvcs::SettingsValue five = Of(mvcs::MORVVALUEKIND_REAL);
  five.real = 5;
  EXPECT_EQ(ToJson(five).dump(), "5.0");
  five.real = std::numeric_limits<double>::infinity();
  EXPECT_EQ(ToJson(five).dump(), "{\"$real\":\"inf\"}");
}

TEST(ToolJsonMarkers, ADictionaryWhoseOnlyKeyStartsWithADollarIsWrapped) {
  mvcs::SettingsValue dictionary = Of(mvcs::MORVVALUEKIND_DICTIONARY);
  mvcs::SettingsValue text = Of(mvcs::MORVVALUEKIND_STRING);
  text.text = "plain";
  dictionary.entries.push_back({"$data", text});
  EXPECT_EQ(ToJson(dictionary).dump(), "{\"$dictionary\":{\"$data\":\"plain\"}}");
  const mvcs::SettingsValue back = RoundTrip(dictionary);
  ASSERT_EQ(back.entries.size(), 1u);
  EXPECT_EQ(back.entries[0].name, "$data");
  EXPECT_EQ(back.entries[0].value.text, "plain");
  // With two keys, no wrapping is needed.
  dictionary.entries.push_back({"other", text});
  EXPECT_EQ(ToJson(dictionary).dump(), "{\"$data\":\"plain\",\"other\":\"plain\"}");
  EXPECT_TRUE(mvcs::SameSettingsValue(RoundTrip(dictionary), dictionary));
}

TEST(ToolJsonMarkers, SetsAndUids) {
  mvcs::SettingsValue set = Of(mvcs::MORVVALUEKIND_SET);
  set.items.push_back(Of(mvcs::MORVVALUEKIND_BOOLEAN));
  mvcs::SettingsValue uid = Of(mvcs::MORVVALUEKIND_UID);
  uid.uid = 18446744073709551615ULL;
  set.items.push_back(uid);
  EXPECT_EQ(ToJson(set).dump(), "{\"$set\":[false,{\"$uid\":18446744073709551615}]}");
  EXPECT_TRUE(mvcs::SameSettingsValue(RoundTrip(set), set));
}

TEST(ToolJsonErrors, SayWhereAndWhy) {
  EXPECT_EQ(ErrorFor("null"), "at /: null is no settings value");
  EXPECT_EQ(ErrorFor("{\"a\":[1,{\"b\":null}]}"), "at /a[1]/b: null is no settings value");
  EXPECT_EQ(ErrorFor("{\"a\":{\"$set\":{}}}"), "at /a: $set holds no array");
  EXPECT_EQ(ErrorFor("{\"a\":{\"$dictionary\":[]}}"), "at /a: $dictionary holds no object");
  EXPECT_EQ(ErrorFor("{\"a\":{\"$uid\":1.5}}"), "at /a: $uid holds no whole number");
  EXPECT_EQ(ErrorFor("{\"a\":{\"$date\":true}}"),
            "at /a: $date holds no date like 2026-11-21T12:34:56Z");
  EXPECT_EQ(ErrorFor("{\"a\":{\"$date\":{\"$data\":\"\"}}}"),
            "at /a: $date holds neither a date nor seconds as a real");
  EXPECT_EQ(ErrorFor("{\"a\":{\"$\":1}}"),
            "at /a: unknown marker $ (a dictionary whose only key starts with $ is written "
            "{\"$dictionary\": ...})");
  std::string deep = "1";
  for (int i = 0; i < 300; ++i) deep = "[" + deep + "]";
  EXPECT_EQ(ErrorFor(deep).substr(ErrorFor(deep).rfind(':')), ": nested too deep");
  EXPECT_EQ(ErrorFor("{\"a\":{\"b\":1},\"c\":\"\\u00e9\"}"), "");
}

}  // namespace
