// Settings values as JSON (see JsonValues.h).

#include "JsonValues.h"

#include <time.h>

#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

#include "MorvString/MorvString.h"

namespace morv_tool {

namespace {

// Seconds from 1970-01-01 to 2001-01-01, the dates' reference.
constexpr long long kReferenceDate = 978307200;

// The dates of the calendar form: 0001-01-01T00:00:00Z up to (not
// including) 10000-01-01T00:00:00Z, in seconds after 2001-01-01.
constexpr double kFirstCalendarDate = -63113904000.0;
constexpr double kEndOfCalendarDates = 252423993600.0;

// The most fraction digits a calendar date is written with. A date a second
// or more from 2001-01-01 never needs more than 16; only dates less than a
// thousandth of a second from it may, and they take the seconds' form.
constexpr int kMaxDateFractionDigits = 20;

// The bits of a double's NaN that {"$real": "nan"} stands for.
constexpr std::uint64_t kDefaultNan = 0x7FF8000000000000ull;

std::uint64_t BitsOf(double value) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof(bits));
  return bits;
}

bool SameBits(double a, double b) { return BitsOf(a) == BitsOf(b); }

// 10^n - `digits` as n digits, for n digits that are not all 0: the
// fraction that, added to `digits`' own, makes one.
std::string TenComplement(std::string digits) {
  std::size_t last = digits.find_last_not_of('0');
  digits[last] = static_cast<char>('0' + 10 - (digits[last] - '0'));
  while (last-- > 0) digits[last] = static_cast<char>('0' + 9 - (digits[last] - '0'));
  return digits;
}

// The decimal text of `whole` seconds plus the fraction 0.`digits`, where
// `whole` may be negative: -1 and "25" make "-0.75".
std::string SecondsText(long long whole, const std::string& digits) {
  if (digits.find_first_not_of('0') == std::string::npos) return std::to_string(whole);
  if (whole >= 0) return std::to_string(whole) + "." + digits;
  return "-" + std::to_string(-(whole + 1)) + "." + TenComplement(digits);
}

// `seconds` rounded to `digits` decimals, as the calendar date
// "YYYY-MM-DDTHH:MM:SS[.fraction]Z"; "" when that falls outside the years
// 1 to 9999.
std::string CalendarForm(double seconds, int digits) {
  // printf rounds the exact value of the double correctly.
  char decimal[80];
  std::snprintf(decimal, sizeof(decimal), "%.*f", digits, seconds);
  const std::string text = decimal;
  const bool negative = text[0] == '-';
  const std::size_t point = text.find('.');
  long long whole = std::stoll(text.substr(negative ? 1 : 0, point));
  std::string fraction = point == std::string::npos ? std::string() : text.substr(point + 1);
  fraction.erase(fraction.find_last_not_of('0') + 1);
  if (negative) {
    // -12.25 is 13 whole seconds before 2001, plus 0.75.
    whole = fraction.empty() ? -whole : -(whole + 1);
    if (!fraction.empty()) fraction = TenComplement(fraction);
  }
  const time_t unix = static_cast<time_t>(whole + kReferenceDate);
  struct tm parts;
  if (gmtime_r(&unix, &parts) == nullptr || parts.tm_year + 1900 < 1 ||
      parts.tm_year + 1900 > 9999) {
    return std::string();
  }
  char date[40];
  std::snprintf(date, sizeof(date), "%04d-%02d-%02dT%02d:%02d:%02d", parts.tm_year + 1900,
                parts.tm_mon + 1, parts.tm_mday, parts.tm_hour, parts.tm_min, parts.tm_sec);
  return std::string(date) + (fraction.empty() ? "" : "." + fraction) + "Z";
}

// The text of a NaN in {"$real": ...}: "nan" for the usual one, otherwise
// "nan:" and the 16 hexadecimal digits of its bits (sign and payload kept).
std::string NanText(double nan) {
  const std::uint64_t bits = BitsOf(nan);
  if (bits == kDefaultNan) return "nan";
  char text[24];
  std::snprintf(text, sizeof(text), "nan:%016llx", static_cast<unsigned long long>(bits));
  return text;
}

// The NaN that `text` names ("nan", "nan:" and 16 hexadecimal digits of a
// NaN's bits); false for any other text.
bool ParseNan(const std::string& text, double& nan) {
  std::uint64_t bits = kDefaultNan;
  if (text != "nan") {
    if (text.size() != 20 || text.compare(0, 4, "nan:") != 0) return false;
    const char* end = text.data() + text.size();
    const std::from_chars_result result = std::from_chars(text.data() + 4, end, bits, 16);
    if (result.ptr != end) return false;
  }
  std::memcpy(&nan, &bits, sizeof(nan));
  return std::isnan(nan);
}

const char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string Base64(const std::vector<unsigned char>& bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    const unsigned long group = static_cast<unsigned long>(bytes[i]) << 16 |
                                (i + 1 < bytes.size() ? bytes[i + 1] << 8 : 0) |
                                (i + 2 < bytes.size() ? bytes[i + 2] : 0);
    text += kBase64[group >> 18 & 63];
    text += kBase64[group >> 12 & 63];
    text += i + 1 < bytes.size() ? kBase64[group >> 6 & 63] : '=';
    text += i + 2 < bytes.size() ? kBase64[group & 63] : '=';
  }
  return text;
}

bool FromBase64(const std::string& text, std::vector<unsigned char>& bytes) {
  if (text.size() % 4 != 0) return false;
  bytes.clear();
  for (std::size_t i = 0; i < text.size(); i += 4) {
    unsigned long group = 0;
    int padding = 0;
    for (std::size_t j = 0; j < 4; ++j) {
      const char c = text[i + j];
      const char* found = c != '\0' ? std::strchr(kBase64, c) : nullptr;
      if (c == '=' && i + 4 == text.size() && j >= 2) {
        ++padding;
        group <<= 6;
        continue;
      }
      if (found == nullptr || padding > 0) return false;
      group = group << 6 | static_cast<unsigned long>(found - kBase64);
    }
    bytes.push_back(static_cast<unsigned char>(group >> 16));
    if (padding < 2) bytes.push_back(static_cast<unsigned char>(group >> 8 & 0xFF));
    if (padding < 1) bytes.push_back(static_cast<unsigned char>(group & 0xFF));
  }
  return true;
}

// A marker object: {"$name": value}.
nlohmann::json Marker(const char* name, nlohmann::json value) {
  nlohmann::json marker = nlohmann::json::object();
  marker[name] = std::move(value);
  return marker;
}

std::string At(const std::string& where) { return where.empty() ? std::string("/") : where; }

bool Fail(std::string& error, const std::string& where, const std::string& why) {
  error = "at " + At(where) + ": " + why;
  return false;
}

bool Parse(const nlohmann::json& json, mvcs::SettingsValue& value, const std::string& where,
           std::size_t depth, std::string& error);

bool ParseMarker(const std::string& name, const nlohmann::json& inner, mvcs::SettingsValue& value,
                 const std::string& where, std::size_t depth, std::string& error) {
  if (name == "$dictionary") {
    if (!inner.is_object()) return Fail(error, where, "$dictionary holds no object");
    value.kind = mvcs::MORVVALUEKIND_DICTIONARY;
    for (auto item = inner.begin(); item != inner.end(); ++item) {
      mvcs::SettingsValue child;
      if (!Parse(item.value(), child, where + "/" + item.key(), depth + 1, error)) return false;
      value.entries.push_back({item.key(), std::move(child)});
    }
    return true;
  }
  if (name == "$set") {
    if (!inner.is_array()) return Fail(error, where, "$set holds no array");
    value.kind = mvcs::MORVVALUEKIND_SET;
    for (std::size_t i = 0; i < inner.size(); ++i) {
      mvcs::SettingsValue item;
      if (!Parse(inner[i], item, where + "[" + std::to_string(i) + "]", depth + 1, error)) {
        return false;
      }
      value.items.push_back(std::move(item));
    }
    return true;
  }
  if (name == "$data") {
    if (!inner.is_string() || !FromBase64(inner.get<std::string>(), value.data)) {
      return Fail(error, where, "$data holds no base64 text");
    }
    value.kind = mvcs::MORVVALUEKIND_DATA;
    return true;
  }
  if (name == "$date") {
    if (inner.is_number_float() || inner.is_object()) {
      // A date too far out for ISO 8601: seconds, as a real.
      if (!Parse(inner, value, where, depth + 1, error)) return false;
      if (value.kind != mvcs::MORVVALUEKIND_REAL) {
        return Fail(error, where, "$date holds neither a date nor seconds as a real");
      }
      value.kind = mvcs::MORVVALUEKIND_DATE;
      return true;
    }
    if (!inner.is_string() || !ParseDate(inner.get<std::string>(), value.real)) {
      return Fail(error, where, "$date holds no date like 2026-11-21T12:34:56Z");
    }
    value.kind = mvcs::MORVVALUEKIND_DATE;
    return true;
  }
  if (name == "$uid") {
    if (!inner.is_number_unsigned() &&
        !(inner.is_number_integer() && inner.get<long long>() >= 0)) {
      return Fail(error, where, "$uid holds no whole number");
    }
    value.kind = mvcs::MORVVALUEKIND_UID;
    value.uid = inner.get<unsigned long long>();
    return true;
  }
  if (name == "$real") {
    const std::string text = inner.is_string() ? inner.get<std::string>() : std::string();
    if (ParseNan(text, value.real)) {
      // A NaN, with its sign and payload.
    } else if (text == "inf") {
      value.real = std::numeric_limits<double>::infinity();
    } else if (text == "-inf") {
      value.real = -std::numeric_limits<double>::infinity();
    } else {
      return Fail(error, where, "$real holds none of nan, nan:<16 hex digits>, inf, -inf");
    }
    value.kind = mvcs::MORVVALUEKIND_REAL;
    return true;
  }
  return Fail(error, where,
              "unknown marker " + name +
                  " (a dictionary whose only key starts "
                  "with $ is written {\"$dictionary\": ...})");
}

bool Parse(const nlohmann::json& json, mvcs::SettingsValue& value, const std::string& where,
           std::size_t depth, std::string& error) {
  if (depth > 200) return Fail(error, where, "nested too deep");
  value = mvcs::SettingsValue();
  switch (json.type()) {
    case nlohmann::json::value_t::object: {
      if (json.size() == 1 && json.begin().key().compare(0, 1, "$") == 0) {
        return ParseMarker(json.begin().key(), json.begin().value(), value, where, depth, error);
      }
      value.kind = mvcs::MORVVALUEKIND_DICTIONARY;
      for (auto item = json.begin(); item != json.end(); ++item) {
        if (!mvcs::IsUTF8(item.key())) return Fail(error, where, "a key is not valid UTF-8");
        mvcs::SettingsValue child;
        if (!Parse(item.value(), child, where + "/" + item.key(), depth + 1, error)) return false;
        value.entries.push_back({item.key(), std::move(child)});
      }
      return true;
    }
    case nlohmann::json::value_t::array:
      value.kind = mvcs::MORVVALUEKIND_ARRAY;
      for (std::size_t i = 0; i < json.size(); ++i) {
        mvcs::SettingsValue item;
        if (!Parse(json[i], item, where + "[" + std::to_string(i) + "]", depth + 1, error)) {
          return false;
        }
        value.items.push_back(std::move(item));
      }
      return true;
    case nlohmann::json::value_t::number_integer:
      value.kind = mvcs::MORVVALUEKIND_INTEGER;
      value.integer = json.get<long long>();
      return true;
    case nlohmann::json::value_t::number_unsigned: {
      const unsigned long long bits = json.get<unsigned long long>();
      value.kind = bits > static_cast<unsigned long long>(std::numeric_limits<long long>::max())
                       ? mvcs::MORVVALUEKIND_UNSIGNED_INTEGER
                       : mvcs::MORVVALUEKIND_INTEGER;
      value.integer = static_cast<long long>(bits);
      return true;
    }
    case nlohmann::json::value_t::number_float:
      value.kind = mvcs::MORVVALUEKIND_REAL;
      value.real = json.get<double>();
      return true;
    case nlohmann::json::value_t::boolean:
      value.kind = mvcs::MORVVALUEKIND_BOOLEAN;
      value.boolean = json.get<bool>();
      return true;
    case nlohmann::json::value_t::string:
      value.kind = mvcs::MORVVALUEKIND_STRING;
      value.text = json.get<std::string>();
      if (!mvcs::IsUTF8(value.text)) return Fail(error, where, "text that is not valid UTF-8");
      return true;
    default:
      return Fail(error, where, "null is no settings value");
  }
}

// Builds the JSON of one value of a type (see Value).
struct TypedJson {
  nlohmann::json operator()(long long v) const { return v; }
  nlohmann::json operator()(unsigned long long v) const { return v; }
  nlohmann::json operator()(int v) const { return v; }
  nlohmann::json operator()(unsigned int v) const { return v; }
  nlohmann::json operator()(float v) const { return Real(v); }
  nlohmann::json operator()(double v) const { return Real(v); }
  nlohmann::json operator()(bool v) const { return v; }
  nlohmann::json operator()(const std::string& v) const { return v; }
  nlohmann::json operator()(const Bytes& v) const { return Marker("$data", Base64(v)); }
  static nlohmann::json Real(double v) {
    if (std::isnan(v)) return Marker("$real", NanText(v));
    if (std::isinf(v)) return Marker("$real", v > 0 ? "inf" : "-inf");
    return v;
  }
};

}  // namespace

std::string FormatDate(double seconds) {
  // Years 1 to 9999 only: beyond, ISO 8601 dates need extra digits. -0.0
  // has no calendar form of its own (it would read back as 0.0).
  if (!(seconds >= kFirstCalendarDate && seconds < kEndOfCalendarDates) ||
      (seconds == 0 && std::signbit(seconds))) {
    return std::string();
  }
  // The fewest fraction digits that read back to the same bits.
  for (int digits = 0; digits <= kMaxDateFractionDigits; ++digits) {
    const std::string text = CalendarForm(seconds, digits);
    double back = 0;
    if (!text.empty() && ParseDate(text, back) && SameBits(back, seconds)) return text;
  }
  return std::string();
}

bool ParseDate(const std::string& text, double& seconds) {
  // YYYY-MM-DDTHH:MM:SS[.fraction]Z, the year with an optional minus sign.
  int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, used = 0;
  if (std::sscanf(text.c_str(), "%d-%2d-%2dT%2d:%2d:%2d%n", &year, &month, &day, &hour, &minute,
                  &second, &used) != 6) {
    return false;
  }
  std::string rest = text.substr(static_cast<std::size_t>(used));
  std::string fraction;
  if (!rest.empty() && rest[0] == '.') {
    std::size_t end = 1;
    while (end < rest.size() && rest[end] >= '0' && rest[end] <= '9') ++end;
    if (end == 1) return false;
    fraction = rest.substr(1, end - 1);
    rest = rest.substr(end);
  }
  if (rest != "Z" || month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 ||
      second > 60) {
    return false;
  }
  struct tm parts = {};
  parts.tm_year = year - 1900;
  parts.tm_mon = month - 1;
  parts.tm_mday = day;
  parts.tm_hour = hour;
  parts.tm_min = minute;
  parts.tm_sec = second;
  const long long whole = static_cast<long long>(timegm(&parts)) - kReferenceDate;
  // The whole seconds plus the fraction, as one decimal number, rounded to
  // a double once: exact up to that rounding, before 2001 too.
  const std::string decimal = SecondsText(whole, fraction);
  const char* end = decimal.data() + decimal.size();
  return std::from_chars(decimal.data(), end, seconds).ptr == end;
}

nlohmann::json ToJson(const mvcs::SettingsValue& value) {
  switch (value.kind) {
    case mvcs::MORVVALUEKIND_DICTIONARY: {
      nlohmann::json object = nlohmann::json::object();
      for (const mvcs::SettingsEntry& entry : value.entries)
        object[entry.name] = ToJson(entry.value);
      if (value.entries.size() == 1 && value.entries[0].name.compare(0, 1, "$") == 0) {
        return Marker("$dictionary", std::move(object));
      }
      return object;
    }
    case mvcs::MORVVALUEKIND_ARRAY:
    case mvcs::MORVVALUEKIND_SET: {
      nlohmann::json array = nlohmann::json::array();
      for (const mvcs::SettingsValue& item : value.items) array.push_back(ToJson(item));
      return value.kind == mvcs::MORVVALUEKIND_SET ? Marker("$set", std::move(array)) : array;
    }
    case mvcs::MORVVALUEKIND_INTEGER:
      return value.integer;
    case mvcs::MORVVALUEKIND_UNSIGNED_INTEGER:
      return static_cast<unsigned long long>(value.integer);
    case mvcs::MORVVALUEKIND_REAL:
      return TypedJson::Real(value.real);
    case mvcs::MORVVALUEKIND_BOOLEAN:
      return value.boolean;
    case mvcs::MORVVALUEKIND_STRING:
      return value.text;
    case mvcs::MORVVALUEKIND_DATA:
      return Marker("$data", Base64(value.data));
    case mvcs::MORVVALUEKIND_DATE: {
      const std::string date = FormatDate(value.real);
      if (date.empty()) return Marker("$date", TypedJson::Real(value.real));
      return Marker("$date", date);
    }
    case mvcs::MORVVALUEKIND_UID:
      return Marker("$uid", value.uid);
    default:
      return nullptr;
  }
}

nlohmann::json ToJson(const Value& value) { return std::visit(TypedJson(), value); }

bool FromJson(const nlohmann::json& json, mvcs::SettingsValue& value, std::string& error) {
  return Parse(json, value, std::string(), 0, error);
}

}  // namespace morv_tool
