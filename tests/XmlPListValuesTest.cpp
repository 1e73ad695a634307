// The text forms of XML property-list values: integers, reals, dates and
// base64 data read as Python's plistlib reads them, and refused where it
// refuses them or where the tree cannot hold them.

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "format/XmlPListValues.h"

namespace {

std::uint64_t Bits(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

struct Integer {
  const char* text;
  long long bits;
  bool wide;
};

TEST(XmlPListValues, IntegersAreDecimalOrHexOverBothSixtyFourBitRanges) {
  const Integer cases[] = {
      {"0", 0, false},
      {"010", 10, false},  // decimal, not octal
      {"-010", -10, false},
      {"+7", 7, false},
      {"-0", 0, false},
      {" \t\n42\r ", 42, false},
      {"\xC2\xA0"
       "5\xE2\x80\x83",
       5, false},  // U+00A0 and U+2003 are white space too
      {"0x1F", 31, false},
      {"0XfF \n", 255, false},
      {"9223372036854775807", std::numeric_limits<long long>::max(), false},
      {"-9223372036854775808", std::numeric_limits<long long>::min(), false},
      {"9223372036854775808", std::numeric_limits<long long>::min(), true},
      {"18446744073709551615", -1, true},
      {"0xFFFFFFFFFFFFFFFF", -1, true},
      {"0x8000000000000000", std::numeric_limits<long long>::min(), true},
  };
  for (const Integer& c : cases) {
    mvcs::PListInteger integer{99, false};
    ASSERT_TRUE(mvcs::ParseXmlInteger(c.text, integer)) << c.text;
    EXPECT_EQ(integer.bits, c.bits) << c.text;
    EXPECT_EQ(integer.wide, c.wide) << c.text;
  }
}

TEST(XmlPListValues, MalformedOrOutOfRangeIntegersAreRefused) {
  for (const char* text : {"",
                           " ",
                           "abc",
                           "5abc",
                           "1e3",
                           "1.0",
                           "18446744073709551616",
                           "-9223372036854775809",
                           "-18446744073709551615",
                           "0x10000000000000000",
                           "0x",
                           "0x-5",
                           "0x 5",
                           " 0x5",
                           "-0x5",
                           "1_000",
                           "0x_1F",
                           "+-5",
                           "- 5",
                           "\xD9\xA3" /* ARABIC-INDIC DIGIT THREE */,
                           "0b101",
                           "0o7",
                           "5 5"}) {
    mvcs::PListInteger integer{99, false};
    EXPECT_FALSE(mvcs::ParseXmlInteger(text, integer)) << text;
    EXPECT_EQ(integer.bits, 99) << text;
  }
}

TEST(XmlPListValues, RealsAreCLocaleDecimalsOrTheSpecialSpellings) {
  struct Real {
    const char* text;
    std::uint64_t bits;
  };
  const Real cases[] = {
      {"1.5", Bits(1.5)},
      {" -0.0 ", Bits(-0.0)},
      {".5", Bits(0.5)},
      {"5.", Bits(5.0)},
      {"1e3", Bits(1000.0)},
      {"+2.5E-1", Bits(0.25)},
      {"0.1", Bits(0.1)},
      {"4.9e-324", 1},
      {"1e400", Bits(HUGE_VAL)},
      {"-1e400", Bits(-HUGE_VAL)},
      {"1e-400", 0},
      {"-1e-400", Bits(-0.0)},
      {"inf", Bits(HUGE_VAL)},
      {"-Infinity", Bits(-HUGE_VAL)},
      {"nan", 0x7ff8000000000000u},
      {"-NaN", 0xfff8000000000000u},
      {"179769313486231570814527423731704356798070567525844996598917476803157260780028538760589"
       "558632766878171540458953514382464234321326889464182768467546703537516986049910576551282"
       "076245490090389328944075868508455133942304583236903222948165808559332123348274797826204"
       "144723168738177180919299881250404026184124858368",
       Bits(std::numeric_limits<double>::max())},
  };
  for (const Real& c : cases) {
    mvcs::PListReal real{42};
    ASSERT_TRUE(mvcs::ParseXmlReal(c.text, real)) << c.text;
    EXPECT_EQ(Bits(real.value), c.bits) << c.text;
  }
}

TEST(XmlPListValues, MalformedRealsAreRefused) {
  for (const char* text : {"", ".", "e5", ".e5", "1e", "1e+", "0x1p3", "1,5", "1.5abc", "infinit",
                           "nan(1)", "1_000.5", "--1", "\xD9\xA3.5", "1 .5"}) {
    mvcs::PListReal real{42};
    EXPECT_FALSE(mvcs::ParseXmlReal(text, real)) << text;
    EXPECT_EQ(real.value, 42) << text;
  }
}

TEST(XmlPListValues, DatesNeedADayAndAreSecondsSinceTwoThousandAndOne) {
  struct Date {
    const char* text;
    double seconds;
  };
  const Date cases[] = {
      {"2001-01-01T00:00:00Z", 0},
      {"2001-01-01Z", 0},
      {"2001-01-01T01Z", 3600},
      {"2001-01-01T01:02Z", 3720},
      {"2000-12-31T23:59:59Z", -1},
      {"2069-01-19T03:14:08Z", 2147483648.0},  // beyond 32-bit seconds
      {"1932-12-13T20:45:51Z", -2147483649.0},
      {"2024-02-29Z", 730857600},
      {"2000-02-29Z", -26524800},  // 2000 is a leap year
      {"0001-01-01T00:00:00Z", -63113904000.0},
      {"9999-12-31T23:59:59Z", 252423993599.0},
      {"2001-01-01T00:00:00Zanything after the Z", 0},
      {"2001-01-01ZT10:00:00", 0},
  };
  for (const Date& c : cases) {
    mvcs::PListDate date{7};
    ASSERT_TRUE(mvcs::ParseXmlDate(c.text, date)) << c.text;
    EXPECT_EQ(date.seconds, c.seconds) << c.text;
  }
}

TEST(XmlPListValues, MalformedDatesAreRefused) {
  for (const char* text : {"",
                           "2001Z",
                           "2001-01Z",
                           "0000-01-01Z",
                           "2001-13-01Z",
                           "2001-00-01Z",
                           "2001-01-00Z",
                           "2021-02-29Z",
                           "1900-02-29Z",
                           "2001-04-31Z",
                           "2001-01-01T24Z",
                           "2001-01-01T00:60Z",
                           "2001-01-01T00:00:60Z",
                           "2001-01-01T00:00:00",
                           " 2001-01-01Z",
                           "2001-01-01T1Z",
                           "2001-01-01T10:5Z",
                           "2001-1-01Z",
                           "20010101Z",
                           "2001-01-01 10:00:00Z",
                           "abcd-01-01Z",
                           "\xD9\xA3"
                           "001-01-01Z",
                           "12345-01-01Z"}) {
    mvcs::PListDate date{7};
    EXPECT_FALSE(mvcs::ParseXmlDate(text, date)) << text;
    EXPECT_EQ(date.seconds, 7) << text;
  }
}

mvcs::PListData Bytes(std::initializer_list<unsigned char> bytes) { return mvcs::PListData(bytes); }

TEST(XmlPListValues, Base64SkipsWhatIsNotInItsAlphabetAndStopsAtPadding) {
  struct Data {
    const char* text;
    mvcs::PListData bytes;
  };
  const Data cases[] = {
      {"", Bytes({})},
      {"AAECAw==", Bytes({0, 1, 2, 3})},
      {"\n\tAAEC\n\tAw==\n\t", Bytes({0, 1, 2, 3})},
      {"AAE=", Bytes({0, 1})},
      {"AA==", Bytes({0})},
      {"A!A*E=xyz", Bytes({0, 1})},  // '!' and '*' skipped, data ends at the padding
      {"=AAAA", Bytes({0, 0, 0})},   // padding before two characters is ignored
      {"AA=x=", Bytes({0, 0x0C})},   // a character between pads: the group goes on
      {"/+/+", Bytes({0xFF, 0xEF, 0xFE})},
      {"-_-_", Bytes({})},  // the URL-safe alphabet is not base64 here: all skipped
  };
  for (const Data& c : cases) {
    mvcs::PListData data{9};
    ASSERT_TRUE(mvcs::DecodeBase64(c.text, data)) << c.text;
    EXPECT_EQ(data, c.bytes) << c.text;
  }
  for (const char* text : {"AAE", "A", "AAAAA", "AB="}) {
    mvcs::PListData data;
    EXPECT_FALSE(mvcs::DecodeBase64(text, data)) << text;
  }
}

TEST(XmlPListValues, CivilDaysRoundTripOverYearsOneToTenThousand) {
  EXPECT_EQ(mvcs::DaysFromCivil(1970, 1, 1), 0);
  EXPECT_EQ(mvcs::DaysFromCivil(2001, 1, 1) * 86400, mvcs::kReferenceDateUnixSeconds);
  EXPECT_EQ(mvcs::DaysFromCivil(1, 1, 1), -719162);
  std::int64_t expected = mvcs::DaysFromCivil(1, 1, 1);
  for (std::int64_t year = 1; year <= 10000; ++year) {
    for (unsigned month = 1; month <= 12; ++month) {
      const unsigned length =
          month == 2 ? (year % 4 == 0 && (year % 100 != 0 || year % 400 == 0) ? 29 : 28)
          : (month == 4 || month == 6 || month == 9 || month == 11) ? 30
                                                                    : 31;
      for (unsigned day = 1; day <= length; ++day, ++expected) {
        ASSERT_EQ(mvcs::DaysFromCivil(year, month, day), expected);
        std::int64_t y;
        unsigned m, d;
        mvcs::CivilFromDays(expected, y, m, d);
        ASSERT_EQ(y, year);
        ASSERT_EQ(m, month);
        ASSERT_EQ(d, day);
      }
    }
  }
}

}  // namespace
