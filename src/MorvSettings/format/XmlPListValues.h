// The text forms of values in XML property lists, as read: integers, reals,
// dates and base64 data. The rules are Python's plistlib's (the reference
// reader of XML property lists), except that a 64-bit tree cannot hold
// every integer and that spellings no other reader takes (digit separators
// such as "1_000", digits of other scripts) are refused.

#ifndef MORVSETTINGS_FORMAT_XMLPLISTVALUES_H
#define MORVSETTINGS_FORMAT_XMLPLISTVALUES_H

#include <cstdint>
#include <string>

#include "PListTree.h"

namespace mvcs {

// An <integer>: "0x" or "0X" and hexadecimal digits, or a decimal number
// with an optional sign; white space (Unicode's, as Python's int() skips it)
// may surround the decimal form and follow the hexadecimal one. Leading
// zeros are decimal ("010" is 10). Values from -2^63 to 2^64 - 1; those of
// 2^63 and more are `wide`. False for anything else.
bool ParseXmlInteger(const std::string& text, PListInteger& integer);

// A <real>: a C-locale decimal number (digits with an optional point and
// exponent, an optional sign), or "inf", "infinity" or "nan" in any case
// with an optional sign, surrounded by optional white space. Rounded to
// the nearest double (beyond the range: infinity or zero). False for
// anything else.
bool ParseXmlReal(const std::string& text, PListReal& real);

// A <date>: "YYYY-MM-DD", optionally followed by "THH", ":MM" and ":SS",
// then "Z" (anything after the "Z" is ignored, as plistlib ignores it), a
// valid day of years 1 to 9999 in the proleptic Gregorian calendar, UTC.
// False for anything else.
bool ParseXmlDate(const std::string& text, PListDate& date);

// <data>: base64 as Python's binascii reads it: characters outside the
// base64 alphabet are skipped, padding ("=") after at least two characters
// of a group ends the data, and a last group cut short without padding is
// refused (false).
bool DecodeBase64(const std::string& text, PListData& data);

// Days from 1970-01-01 to the given day of the proleptic Gregorian
// calendar (negative before), and back: the calendar of XML dates, read
// and written. `month` is 1 to 12, `day` 1 to 31.
std::int64_t DaysFromCivil(std::int64_t year, unsigned month, unsigned day);
void CivilFromDays(std::int64_t days, std::int64_t& year, unsigned& month, unsigned& day);

// Seconds from 1970-01-01 to the property lists' reference date,
// 2001-01-01T00:00:00Z.
constexpr std::int64_t kReferenceDateUnixSeconds = 978307200;

}  // namespace mvcs

#endif  // MORVSETTINGS_FORMAT_XMLPLISTVALUES_H
