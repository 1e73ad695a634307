// The text forms of values in XML property lists (see XmlPListValues.h).

#include "XmlPListValues.h"

#include <locale.h>

#include <algorithm>
#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string_view>

namespace mvcs {

namespace {

// Whether `c` is white space to Python's int() and float(): Unicode's
// white space characters (those XML can carry).
bool IsSpace(char32_t c) {
  return (c >= 0x09 && c <= 0x0D) || (c >= 0x1C && c <= 0x20) || c == 0x85 || c == 0xA0 ||
         c == 0x1680 || (c >= 0x2000 && c <= 0x200A) || c == 0x2028 || c == 0x2029 || c == 0x202F ||
         c == 0x205F || c == 0x3000;
}

// The code point of the well-formed UTF-8 character of `length` bytes at `p`.
char32_t Decode(const unsigned char* p, std::size_t length) {
  if (length == 1) return p[0];
  char32_t c = p[0] & (0x7F >> length);
  for (std::size_t i = 1; i < length; ++i) c = c << 6 | (p[i] & 0x3F);
  return c;
}

// The length of the UTF-8 character whose first byte is `lead`.
std::size_t LengthOf(unsigned char lead) {
  return lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
}

// `text` without the white space at its start (when `front`) and its end.
// The text comes from the XML parser: well-formed UTF-8.
std::string_view Trim(std::string_view text, bool front) {
  auto bytes = [&] { return reinterpret_cast<const unsigned char*>(text.data()); };
  while (front && !text.empty()) {
    const std::size_t length = std::min(LengthOf(bytes()[0]), text.size());
    if (!IsSpace(Decode(bytes(), length))) break;
    text.remove_prefix(length);
  }
  while (!text.empty()) {
    std::size_t start = text.size() - 1;
    while (start > 0 && (bytes()[start] & 0xC0) == 0x80) --start;
    if (!IsSpace(Decode(bytes() + start, text.size() - start))) break;
    text.remove_suffix(text.size() - start);
  }
  return text;
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Whether `text` is `word`, ignoring ASCII case.
bool IsWord(std::string_view text, const char* word) {
  if (text.size() != std::strlen(word)) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i] >= 'A' && text[i] <= 'Z' ? static_cast<char>(text[i] + 32) : text[i];
    if (c != word[i]) return false;
  }
  return true;
}

// Reads all of `digits` (at least one) in `base` as an unsigned 64-bit
// number; false on any other character or overflow.
bool ReadUnsigned(std::string_view digits, int base, std::uint64_t& value) {
  if (digits.empty()) return false;
  const char* end = digits.data() + digits.size();
  const std::from_chars_result result = std::from_chars(digits.data(), end, value, base);
  return result.ec == std::errc() && result.ptr == end;
}

// Reads the two ASCII digits at `p`.
bool TwoDigits(const char* p, unsigned& value) {
  if (!IsDigit(p[0]) || !IsDigit(p[1])) return false;
  value = static_cast<unsigned>((p[0] - '0') * 10 + (p[1] - '0'));
  return true;
}

bool IsLeapYear(std::int64_t year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

unsigned DaysInMonth(std::int64_t year, unsigned month) {
  static const unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

}  // namespace

bool ParseXmlInteger(const std::string& text, PListInteger& integer) {
  std::uint64_t magnitude = 0;
  bool negative = false;
  if (text.size() >= 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
    if (!ReadUnsigned(Trim(std::string_view(text).substr(2), false), 16, magnitude)) return false;
  } else {
    std::string_view number = Trim(text, true);
    if (!number.empty() && (number[0] == '+' || number[0] == '-')) {
      negative = number[0] == '-';
      number.remove_prefix(1);
    }
    if (!ReadUnsigned(number, 10, magnitude)) return false;
    if (negative && magnitude > std::uint64_t{1} << 63) return false;
  }
  const bool wide = !negative && magnitude > std::uint64_t{std::numeric_limits<long long>::max()};
  integer = PListInteger{static_cast<long long>(negative ? 0 - magnitude : magnitude), wide};
  return true;
}

bool ParseXmlReal(const std::string& text, PListReal& real) {
  std::string_view number = Trim(text, true);
  std::string_view unsigned_part = number;
  bool negative = false;
  if (!number.empty() && (number[0] == '+' || number[0] == '-')) {
    negative = number[0] == '-';
    unsigned_part.remove_prefix(1);
  }
  if (IsWord(unsigned_part, "inf") || IsWord(unsigned_part, "infinity")) {
    real.value = negative ? -HUGE_VAL : HUGE_VAL;
    return true;
  }
  if (IsWord(unsigned_part, "nan")) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    real.value = negative ? -nan : nan;
    return true;
  }
  // digits [. digits] [e [sign] digits], with a digit before or after the point
  std::size_t i = 0, mantissaDigits = 0;
  const std::string_view s = unsigned_part;
  while (i < s.size() && IsDigit(s[i])) ++i, ++mantissaDigits;
  if (i < s.size() && s[i] == '.') {
    ++i;
    while (i < s.size() && IsDigit(s[i])) ++i, ++mantissaDigits;
  }
  if (mantissaDigits == 0) return false;
  if (i < s.size() && (s[i] == 'e' || s[i] == 'E')) {
    ++i;
    if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
    const std::size_t exponentStart = i;
    while (i < s.size() && IsDigit(s[i])) ++i;
    if (i == exponentStart) return false;
  }
  if (i != s.size()) return false;
  // The grammar is checked: from_chars rounds it; beyond the range of a
  // double it reports an error, and strtod in the C locale gives the
  // infinity or zero that Python's float() gives.
  double value = 0;
  const std::from_chars_result result = std::from_chars(s.data(), s.data() + s.size(), value);
  if (result.ec != std::errc() || result.ptr != s.data() + s.size()) {
    static const locale_t c = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
    const std::string copy(s);
    value = strtod_l(copy.c_str(), nullptr, c);
  }
  real.value = negative ? -value : value;
  return true;
}

bool ParseXmlDate(const std::string& text, PListDate& date) {
  // YYYY-MM-DD[THH[:MM[:SS]]]Z: each part present only if the one before is.
  const char* p = text.c_str();  // NUL-terminated: a short text stops every test
  unsigned century = 0, year = 0;
  if (!TwoDigits(p, century) || !TwoDigits(p + 2, year)) return false;
  p += 4;
  unsigned fields[5] = {1, 1, 0, 0, 0};  // month, day, hour, minute, second
  std::size_t count = 0;                 // of them present
  static const char kSeparators[] = {'-', '-', 'T', ':', ':'};
  while (count < 5 && p[0] == kSeparators[count] && TwoDigits(p + 1, fields[count])) {
    ++count;
    p += 3;
  }
  if (*p != 'Z' || count < 2) return false;  // plistlib needs the day
  const std::int64_t fullYear = century * 100 + year;
  const unsigned month = fields[0], day = fields[1], hour = fields[2], minute = fields[3],
                 second = fields[4];
  if (fullYear < 1 || month < 1 || month > 12 || day < 1 || day > DaysInMonth(fullYear, month) ||
      hour > 23 || minute > 59 || second > 59) {
    return false;
  }
  const std::int64_t seconds = DaysFromCivil(fullYear, month, day) * 86400 + hour * 3600 +
                               minute * 60 + second - kReferenceDateUnixSeconds;
  date.seconds = static_cast<double>(seconds);
  return true;
}

bool DecodeBase64(const std::string& text, PListData& data) {
  // The value of each character of the alphabet; 64 for every other byte.
  struct Table {
    unsigned char value[256];
    Table() {
      static const char kAlphabet[] =
          "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
      std::memset(value, 64, sizeof(value));
      for (unsigned i = 0; i < 64; ++i) value[static_cast<unsigned char>(kAlphabet[i])] = i;
    }
  };
  static const Table table;
  data.clear();
  data.reserve(text.size() / 4 * 3 + 3);
  unsigned position = 0;  // characters of the current group of four seen
  unsigned pads = 0;      // '=' seen since the last character of the alphabet
  unsigned bits = 0;
  for (const char c : text) {
    if (c == '=') {
      // Padding ends the data once it completes a group of two or three.
      if (position >= 2 && position + ++pads >= 4) return true;
      continue;
    }
    const unsigned value = table.value[static_cast<unsigned char>(c)];
    if (value == 64) continue;
    pads = 0;
    bits = bits << 6 | value;
    if (position == 0) {
      position = 1;
    } else {
      const unsigned shift = 2 * (3 - position);  // 4, 2, 0
      data.push_back(static_cast<unsigned char>(bits >> shift));
      bits &= (1u << shift) - 1;
      position = (position + 1) % 4;
    }
  }
  return position == 0;
}

std::int64_t DaysFromCivil(std::int64_t year, unsigned month, unsigned day) {
  // Counted in eras of 400 years (146097 days) from 0000-03-01, so that the
  // leap day ends each year.
  year -= month <= 2;
  const std::int64_t era = (year >= 0 ? year : year - 399) / 400;
  const std::int64_t yearOfEra = year - era * 400;
  const std::int64_t dayOfYear = (153 * (month > 2 ? month - 3 : month + 9) + 2) / 5 + day - 1;
  const std::int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

void CivilFromDays(std::int64_t days, std::int64_t& year, unsigned& month, unsigned& day) {
  days += 719468;
  const std::int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  const std::int64_t dayOfEra = days - era * 146097;
  const std::int64_t yearOfEra =
      (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  const std::int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t shiftedMonth = (5 * dayOfYear + 2) / 153;  // 0 is March
  day = static_cast<unsigned>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
  month = static_cast<unsigned>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
  year = yearOfEra + era * 400 + (month <= 2);
}

}  // namespace mvcs
