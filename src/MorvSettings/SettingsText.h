// The store's rules for text: which names and string values it accepts, and
// how it reads numbers and booleans out of string entries (Foundation's
// rules for longLongValue, floatValue, doubleValue and boolValue, in the C
// locale whatever the process's locale).

#ifndef MORVSETTINGS_SETTINGSTEXT_H
#define MORVSETTINGS_SETTINGSTEXT_H

#include <cstddef>
#include <string>

#include "format/PListText.h"

namespace mvcs {

// The key or string that the store keeps for `text`: the text up to its
// first zero character (names and values are C strings to the store).
// False when that part is not well-formed UTF-8.
bool StoredText(const std::string& text, std::string& stored);

// Whether `text` is whole as a C string: well-formed UTF-8 without U+0000.
// Names that programs give the store are such text; a file's tree may hold
// any well-formed text (IsTreeText), U+0000 included.
bool IsCStringText(const std::string& text);

// The text of `text` up to its first U+0000: what a program that takes
// strings as C strings sees of it (all of it when it holds none).
std::string CStringPart(const std::string& text);

// White space, an optional sign, decimal digits; stops at the first other
// character. No digits gives 0; overflow saturates at the 64-bit limits.
long long TextToInteger(const std::string& text);

// White space, then the longest decimal floating-point prefix (sign,
// digits, point, exponent); none gives 0. No hexadecimal, no inf or nan.
double TextToDouble(const std::string& text);
float TextToFloat(const std::string& text);

// White space, an optional sign and leading zeros; then true when the next
// character is Y, y, T, t or a digit 1 to 9.
bool TextToBoolean(const std::string& text);

// A real read as an integer: truncated toward zero, saturated at the 64-bit
// limits; NaN gives 0.
long long RealToInteger(double value);

}  // namespace mvcs

#endif  // MORVSETTINGS_SETTINGSTEXT_H
