// The store's rules for text (see SettingsText.h).

#include "SettingsText.h"

#include <locale.h>
#include <stdlib.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace mvcs {

namespace {

bool IsSpace(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The position after the leading white space.
std::size_t SkipSpace(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size() && IsSpace(text[i])) ++i;
  return i;
}

// The C locale, made once: the number rules never follow the user's locale.
locale_t CLocale() {
  static const locale_t locale = newlocale(LC_ALL_MASK, "C", static_cast<locale_t>(nullptr));
  return locale;
}

// The longest decimal floating-point prefix of `text` after white space:
// [sign] digits [. digits] [e|E [sign] digits], with at least one digit
// before the exponent. Empty when there is none.
std::string DecimalPrefix(const std::string& text) {
  std::size_t i = SkipSpace(text);
  const std::size_t start = i;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  std::size_t digits = 0;
  while (i < text.size() && IsDigit(text[i])) ++i, ++digits;
  if (i < text.size() && text[i] == '.') {
    ++i;
    while (i < text.size() && IsDigit(text[i])) ++i, ++digits;
  }
  if (digits == 0) return std::string();
  std::size_t end = i;
  if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
    std::size_t j = i + 1;
    if (j < text.size() && (text[j] == '+' || text[j] == '-')) ++j;
    if (j < text.size() && IsDigit(text[j])) {
      while (j < text.size() && IsDigit(text[j])) ++j;
      end = j;
    }
  }
  return text.substr(start, end - start);
}

}  // namespace

bool StoredText(const std::string& text, std::string& stored) {
  std::string part = CStringPart(text);
  if (!IsWellFormedUTF8(part)) return false;
  stored.swap(part);
  return true;
}

bool IsCStringText(const std::string& text) {
  return text.find('\0') == std::string::npos && IsWellFormedUTF8(text);
}

std::string CStringPart(const std::string& text) { return text.substr(0, text.find('\0')); }

long long TextToInteger(const std::string& text) {
  std::size_t i = SkipSpace(text);
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  // Accumulate the magnitude as unsigned, saturating at 2^63 (the largest
  // magnitude a result can take, for the negative limit).
  const std::uint64_t limit = static_cast<std::uint64_t>(std::numeric_limits<long long>::max()) + 1;
  std::uint64_t magnitude = 0;
  for (; i < text.size() && IsDigit(text[i]); ++i) {
    const unsigned digit = static_cast<unsigned>(text[i] - '0');
    magnitude = magnitude > (limit - digit) / 10 ? limit : magnitude * 10 + digit;
  }
  if (negative) {
    return magnitude >= limit ? std::numeric_limits<long long>::min()
                              : -static_cast<long long>(magnitude);
  }
  return magnitude >= limit ? std::numeric_limits<long long>::max()
                            : static_cast<long long>(magnitude);
}

double TextToDouble(const std::string& text) {
  const std::string prefix = DecimalPrefix(text);
  return prefix.empty() ? 0.0 : strtod_l(prefix.c_str(), nullptr, CLocale());
}

float TextToFloat(const std::string& text) {
  const std::string prefix = DecimalPrefix(text);
  return prefix.empty() ? 0.0f : strtof_l(prefix.c_str(), nullptr, CLocale());
}

bool TextToBoolean(const std::string& text) {
  std::size_t i = SkipSpace(text);
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  while (i < text.size() && text[i] == '0') ++i;
  if (i >= text.size()) return false;
  const char c = text[i];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

long long RealToInteger(double value) {
  if (std::isnan(value)) return 0;
  // 2^63 is exactly representable; anything at or beyond it saturates.
  const double limit = 9223372036854775808.0;
  if (value >= limit) return std::numeric_limits<long long>::max();
  if (value <= -limit) return std::numeric_limits<long long>::min();
  return static_cast<long long>(value);  // truncates toward zero
}

}  // namespace mvcs
