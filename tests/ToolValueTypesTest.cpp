// morv-settings' value types: strict parsing of every type's text (never a
// silent 0), range limits at their exact edges, and how values are shown.

#include <gtest/gtest.h>

#include <string>

#include "ValueTypes.h"

namespace {

using morv_tool::Bytes;
using morv_tool::FindValueType;
using morv_tool::Value;

// Parses `text` as `type`; the value on success, with `error` cleared.
struct Parsed {
  bool ok = false;
  Value value;
  std::string error;
};
Parsed Parse(const char* type, const std::string& text) {
  Parsed parsed;
  const morv_tool::ValueType* found = FindValueType(type);
  EXPECT_NE(found, nullptr) << type;
  if (found != nullptr) parsed.ok = found->parse(text, parsed.value, parsed.error);
  return parsed;
}

template <class T>
void ExpectValue(const char* type, const std::string& text, T expected) {
  const Parsed parsed = Parse(type, text);
  ASSERT_TRUE(parsed.ok) << type << " " << text << ": " << parsed.error;
  ASSERT_TRUE(std::holds_alternative<T>(parsed.value)) << type;
  EXPECT_EQ(std::get<T>(parsed.value), expected) << type << " " << text;
}

void ExpectError(const char* type, const std::string& text, const std::string& error) {
  const Parsed parsed = Parse(type, text);
  EXPECT_FALSE(parsed.ok) << type << " " << text;
  EXPECT_EQ(parsed.error, error) << type << " " << text;
}

TEST(ToolValueTypes, EveryTypeIsNamedInOrder) {
  std::string names;
  for (const morv_tool::ValueType& type : morv_tool::ValueTypes())
    names += std::string(type.name) + " ";
  EXPECT_EQ(names, "int uint int32 uint32 int64 uint64 float double bool string data ");
  EXPECT_EQ(FindValueType("integer"), nullptr);
  EXPECT_EQ(FindValueType("INT"), nullptr);
}

TEST(ToolValueTypes, IntegersAtTheirLimits) {
  ExpectValue<long long>("int", "-9223372036854775808", (-9223372036854775807LL - 1));
  ExpectValue<long long>("int", "9223372036854775807", 9223372036854775807LL);
  ExpectValue<long long>("int64", "-1", -1LL);
  ExpectValue<int>("int32", "-2147483648", (-2147483647 - 1));
  ExpectValue<int>("int32", "2147483647", 2147483647);
  ExpectValue<unsigned int>("uint32", "4294967295", 4294967295u);
  ExpectValue<unsigned int>("uint32", "0", 0u);
  ExpectValue<unsigned long long>("uint64", "18446744073709551615", 18446744073709551615ull);
  ExpectValue<unsigned long long>("uint", "18446744073709551615", 18446744073709551615ull);
  ExpectValue<long long>("int", "+42", 42LL);
  ExpectValue<long long>("int", "007", 7LL);
}

TEST(ToolValueTypes, IntegersOneBeyondTheirLimitsAreOutOfRange) {
  ExpectError("int", "9223372036854775808",
              "is out of range (-9223372036854775808 to 9223372036854775807)");
  ExpectError("int", "-9223372036854775809",
              "is out of range (-9223372036854775808 to 9223372036854775807)");
  ExpectError("int32", "2147483648", "is out of range (-2147483648 to 2147483647)");
  ExpectError("int32", "-2147483649", "is out of range (-2147483648 to 2147483647)");
  ExpectError("uint32", "4294967296", "is out of range (0 to 4294967295)");
  ExpectError("uint32", "-1", "is out of range (0 to 4294967295)");
  ExpectError("uint64", "18446744073709551616", "is out of range (0 to 18446744073709551615)");
  ExpectError("uint", "-0", "is out of range (0 to 18446744073709551615)");
  ExpectError("int", "99999999999999999999999999",
              "is out of range (-9223372036854775808 to 9223372036854775807)");
}

TEST(ToolValueTypes, IntegersRefuseAnythingButDecimalDigits) {
  for (const char* text :
       {"", " 5", "5 ", "12abc", "0x10", "1.5", "1e3", "--5", "+-5", "-", "+", "five", "5\n"}) {
    ExpectError("int", text, "is not a whole number");
    ExpectError("uint32", text, "is not a whole number");
  }
}

TEST(ToolValueTypes, RealsParseExactly) {
  ExpectValue<double>("double", "0.1", 0.1);
  ExpectValue<double>("double", "-2.5e-3", -2.5e-3);
  ExpectValue<double>("double", "7", 7.0);
  ExpectValue<double>("double", "+.5", 0.5);
  ExpectValue<double>("double", "1.7976931348623157e308", 1.7976931348623157e308);
  ExpectValue<float>("float", "0.1", 0.1f);
  ExpectValue<float>("float", "3.4028235e38", 3.4028235e38f);
}

TEST(ToolValueTypes, RealsRefuseWhatIsNotAFiniteDecimalNumber) {
  for (const char* text : {"", "nan", "inf", "-inf", "infinity", "0x1p3", "1.5.2", " 1", "1 ",
                           "1,5", "e5", "abc", "+-1", "--1", ".", "-"}) {
    ExpectError("double", text, "is not a decimal number");
    ExpectError("float", text, "is not a decimal number");
  }
}

TEST(ToolValueTypes, RealsBeyondTheirRangeAreOutOfRange) {
  ExpectError("double", "1e309", "is out of range");
  ExpectError("double", "1e-400", "is out of range");
  ExpectError("float", "3.5e38", "is out of range");
  ExpectError("float", "1e-50", "is out of range");
}

TEST(ToolValueTypes, BooleansInTheirSixSpellings) {
  for (const char* text : {"true", "TRUE", "yes", "Yes", "1"})
    ExpectValue<bool>("bool", text, true);
  for (const char* text : {"false", "False", "no", "NO", "0"})
    ExpectValue<bool>("bool", text, false);
  for (const char* text : {"", "2", "y", "on", "truth", " true"}) {
    ExpectError("bool", text, "is not a boolean (true, false, yes, no, 1 or 0)");
  }
}

TEST(ToolValueTypes, StringsMustBeUTF8WithoutZeroCharacters) {
  ExpectValue<std::string>("string", "Caf\xC3\xA9", "Caf\xC3\xA9");
  ExpectValue<std::string>("string", "", "");
  ExpectError("string", "a\xFF", "is not valid UTF-8");
  ExpectError("string", "\xC0\x80", "is not valid UTF-8");
  ExpectError("string", std::string("a\0b", 3),
              "holds a zero character, which the settings interface cannot store in a string");
}

TEST(ToolValueTypes, DataIsPairsOfHexDigits) {
  ExpectValue<Bytes>("data", "00ff1A", Bytes({0x00, 0xFF, 0x1A}));
  ExpectValue<Bytes>("data", "", Bytes());
  for (const char* text : {"abc", "zz", "0x00", "00 ff", "g0"}) {
    ExpectError("data", text,
                "is not hexadecimal data (pairs of the digits 0-9 and a-f, such as 00ff1a)");
  }
}

TEST(ToolValueTypes, PlainFormatting) {
  EXPECT_EQ(morv_tool::FormatPlain(Value(-5LL)), "-5");
  EXPECT_EQ(morv_tool::FormatPlain(Value(18446744073709551615ull)), "18446744073709551615");
  EXPECT_EQ(morv_tool::FormatPlain(Value(4294967295u)), "4294967295");
  EXPECT_EQ(morv_tool::FormatPlain(Value(0.1)), "0.1");
  EXPECT_EQ(morv_tool::FormatPlain(Value(static_cast<double>(0.1f))), "0.10000000149011612");
  EXPECT_EQ(morv_tool::FormatPlain(Value(0.1f)), "0.1");
  EXPECT_EQ(morv_tool::FormatPlain(Value(3.0)), "3");
  EXPECT_EQ(morv_tool::FormatPlain(Value(1e-300)), "1e-300");
  EXPECT_EQ(morv_tool::FormatPlain(Value(true)), "true");
  EXPECT_EQ(morv_tool::FormatPlain(Value(std::string("a \"b\"\n"))), "a \"b\"\n");
  EXPECT_EQ(morv_tool::FormatPlain(Value(Bytes({0x00, 0xAB}))), "00ab");
}

TEST(ToolValueTypes, QuotedFormattingEscapesText) {
  EXPECT_EQ(morv_tool::FormatQuoted(Value(std::string("a \"b\"\\\n\t\x01\x7F\xC3\xA9"))),
            "\"a \\\"b\\\"\\\\\\n\\t\\x01\\x7f\xC3\xA9\"");
  EXPECT_EQ(morv_tool::FormatQuoted(Value(Bytes({0x0A, 0xFF}))), "<0aff>");
  EXPECT_EQ(morv_tool::FormatQuoted(Value(Bytes())), "<>");
  EXPECT_EQ(morv_tool::FormatQuoted(Value(42LL)), "42");
}

TEST(ToolValueTypes, KindsMapToTheirReadingType) {
  EXPECT_STREQ(morv_tool::TypeForKind(mvcs::MORVVALUEKIND_INTEGER)->name, "int");
  EXPECT_STREQ(morv_tool::TypeForKind(mvcs::MORVVALUEKIND_UNSIGNED_INTEGER)->name, "uint64");
  EXPECT_STREQ(morv_tool::TypeForKind(mvcs::MORVVALUEKIND_REAL)->name, "double");
  EXPECT_STREQ(morv_tool::TypeForKind(mvcs::MORVVALUEKIND_BOOLEAN)->name, "bool");
  EXPECT_STREQ(morv_tool::TypeForKind(mvcs::MORVVALUEKIND_STRING)->name, "string");
  EXPECT_STREQ(morv_tool::TypeForKind(mvcs::MORVVALUEKIND_DATA)->name, "data");
  EXPECT_EQ(morv_tool::TypeForKind(mvcs::MORVVALUEKIND_ARRAY), nullptr);
  EXPECT_EQ(morv_tool::TypeForKind(mvcs::MORVVALUEKIND_DICTIONARY), nullptr);
  EXPECT_EQ(morv_tool::TypeForKind(mvcs::MORVVALUEKIND_NONE), nullptr);
  EXPECT_STREQ(morv_tool::KindName(mvcs::MORVVALUEKIND_UNSIGNED_INTEGER), "integer");
  EXPECT_STREQ(morv_tool::KindName(mvcs::MORVVALUEKIND_DATE), "date");
  EXPECT_STREQ(morv_tool::KindName(mvcs::MORVVALUEKIND_DICTIONARY), "key");
}

}  // namespace
