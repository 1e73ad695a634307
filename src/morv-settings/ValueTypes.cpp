// The value types of morv-settings (see ValueTypes.h). Each type is one row
// of a table built from a few templates: a parser (integers, reals, or its
// own), and the node's Store and Fetch members for its C++ type.

#include "ValueTypes.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <type_traits>

#include "MorvString/MorvString.h"

namespace morv_tool {

namespace {

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The range of T, for messages: "(-2147483648 to 2147483647)".
template <class T>
std::string RangeOf() {
  return "(" + std::to_string(std::numeric_limits<T>::min()) + " to " +
         std::to_string(std::numeric_limits<T>::max()) + ")";
}

// A whole number in decimal: an optional sign ("-" only for signed types),
// then digits, and nothing else; within T's range.
template <class T>
bool ParseInteger(const std::string& text, Value& value, std::string& error) {
  typedef
      typename std::conditional<std::is_signed<T>::value, long long, unsigned long long>::type Wide;
  const char* begin = text.data();
  const char* end = begin + text.size();
  const bool plus = begin != end && *begin == '+';
  if (plus) ++begin;
  const bool negative = !plus && begin != end && *begin == '-';
  const char* digits = negative ? begin + 1 : begin;
  if (digits == end || !IsDigit(*digits)) {
    error = "is not a whole number";
    return false;
  }
  if (negative && !std::is_signed<T>::value) {
    error = "is out of range " + RangeOf<T>();
    return false;
  }
  Wide wide = 0;
  const std::from_chars_result result = std::from_chars(begin, end, wide);
  if (result.ec == std::errc::result_out_of_range ||
      (result.ec == std::errc() && result.ptr == end &&
       (wide < static_cast<Wide>(std::numeric_limits<T>::min()) ||
        wide > static_cast<Wide>(std::numeric_limits<T>::max())))) {
    error = "is out of range " + RangeOf<T>();
    return false;
  }
  if (result.ec != std::errc() || result.ptr != end) {
    error = "is not a whole number";
    return false;
  }
  value = static_cast<T>(wide);
  return true;
}

// A finite decimal number ("1.5", "-2e-3", "7"), and nothing else; within
// T's range. No hexadecimal, inf or nan.
template <class T>
bool ParseReal(const std::string& text, Value& value, std::string& error) {
  const char* begin = text.data();
  const char* end = begin + text.size();
  const bool plus = begin != end && *begin == '+';
  if (plus) ++begin;
  const char* first = !plus && begin != end && *begin == '-' ? begin + 1 : begin;
  if (first == end || !(IsDigit(*first) || *first == '.')) {
    error = "is not a decimal number";
    return false;
  }
  T real = 0;
  const std::from_chars_result result =
      std::from_chars(begin, end, real, std::chars_format::general);
  if (result.ec == std::errc::result_out_of_range) {
    error = "is out of range";
    return false;
  }
  if (result.ec != std::errc() || result.ptr != end || !std::isfinite(real)) {
    error = "is not a decimal number";
    return false;
  }
  value = real;
  return true;
}

bool ParseBoolean(const std::string& text, Value& value, std::string& error) {
  std::string lower;
  for (char c : text) lower += (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
  if (lower == "true" || lower == "yes" || lower == "1") {
    value = true;
  } else if (lower == "false" || lower == "no" || lower == "0") {
    value = false;
  } else {
    error = "is not a boolean (true, false, yes, no, 1 or 0)";
    return false;
  }
  return true;
}

bool ParseString(const std::string& text, Value& value, std::string& error) {
  if (!mvcs::IsUTF8(text)) {
    error = "is not valid UTF-8";
    return false;
  }
  if (text.find('\0') != std::string::npos) {
    error = "holds a zero character, which the settings interface cannot store in a string";
    return false;
  }
  value = text;
  return true;
}

int HexDigit(char c) {
  if (IsDigit(c)) return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool ParseHex(const std::string& text, Value& value, std::string& error) {
  Bytes bytes;
  bytes.reserve(text.size() / 2);
  for (std::size_t i = 0; i + 1 < text.size(); i += 2) {
    const int high = HexDigit(text[i]);
    const int low = HexDigit(text[i + 1]);
    if (high < 0 || low < 0) break;
    bytes.push_back(static_cast<unsigned char>(high * 16 + low));
  }
  if (bytes.size() * 2 != text.size()) {
    error = "is not hexadecimal data (pairs of the digits 0-9 and a-f, such as 00ff1a)";
    return false;
  }
  value = std::move(bytes);
  return true;
}

// Store and Fetch through the node's members for T (the narrow-name
// overloads). `Stored` is the member's value parameter (T or const T&).
template <class T, class Stored, bool (mvcs::IMorvSettings::*Store)(std::string const&, Stored),
          bool (mvcs::IMorvSettings::*Fetch)(std::string const&, T&)>
struct Member {
  static bool StoreValue(mvcs::IMorvSettings& node, const std::string& name, const Value& value) {
    return (node.*Store)(name, std::get<T>(value));
  }
  static bool FetchValue(mvcs::IMorvSettings& node, const std::string& name, Value& value) {
    T fetched{};
    if (!(node.*Fetch)(name, fetched)) return false;
    value = std::move(fetched);
    return true;
  }
};

bool StoreData(mvcs::IMorvSettings& node, const std::string& name, const Value& value) {
  const Bytes& bytes = std::get<Bytes>(value);
  return node.StoreBuffer(name, bytes.data(), bytes.size());
}

bool FetchData(mvcs::IMorvSettings& node, const std::string& name, Value& value) {
  mvtl::MemoryBuffer<unsigned char> buffer;
  if (!node.FetchBuffer(name, buffer)) return false;
  const unsigned char* data = buffer.GetData();
  value = data != nullptr ? Bytes(data, data + buffer.GetCount()) : Bytes();
  return true;
}

typedef mvcs::IMorvSettings Node;
typedef Member<long long, long long, &Node::StoreInteger, &Node::FetchInteger> IntegerMember;
typedef Member<long long, long long, &Node::StoreInt64, &Node::FetchInt64> Int64Member;
typedef Member<int, int, &Node::StoreInt32, &Node::FetchInt32> Int32Member;
typedef Member<unsigned int, unsigned int, &Node::StoreUint32, &Node::FetchUint32> Uint32Member;
typedef Member<unsigned long long, unsigned long long, &Node::StoreUint64, &Node::FetchUint64>
    Uint64Member;
typedef Member<float, float, &Node::StoreFloat, &Node::FetchFloat> FloatMember;
typedef Member<double, double, &Node::StoreDouble, &Node::FetchDouble> DoubleMember;
typedef Member<bool, bool, &Node::StoreBoolean, &Node::FetchBoolean> BooleanMember;
typedef Member<std::string, std::string const&, &Node::StoreUTF8String, &Node::FetchUTF8String>
    StringMember;

template <class M>
ValueType Row(const char* name, const char* description,
              bool (*parse)(const std::string&, Value&, std::string&)) {
  return ValueType{name, description, parse, M::StoreValue, M::FetchValue};
}

// Shortest decimal text that reads back as exactly `real`.
template <class T>
std::string FormatReal(T real) {
  char text[64];
  const std::to_chars_result result = std::to_chars(text, text + sizeof(text), real);
  return std::string(text, result.ptr);
}

std::string Hex(const Bytes& bytes) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(bytes.size() * 2);
  for (unsigned char byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

std::string Quote(const std::string& text) {
  std::string quoted = "\"";
  for (unsigned char c : text) {
    switch (c) {
      case '"':
        quoted += "\\\"";
        break;
      case '\\':
        quoted += "\\\\";
        break;
      case '\n':
        quoted += "\\n";
        break;
      case '\t':
        quoted += "\\t";
        break;
      case '\r':
        quoted += "\\r";
        break;
      default:
        if (c < 0x20 || c == 0x7F) {
          char escape[8];
          std::snprintf(escape, sizeof(escape), "\\x%02x", c);
          quoted += escape;
        } else {
          quoted += static_cast<char>(c);
        }
    }
  }
  return quoted + "\"";
}

struct Plain {
  std::string operator()(long long v) const { return std::to_string(v); }
  std::string operator()(unsigned long long v) const { return std::to_string(v); }
  std::string operator()(int v) const { return std::to_string(v); }
  std::string operator()(unsigned int v) const { return std::to_string(v); }
  std::string operator()(float v) const { return FormatReal(v); }
  std::string operator()(double v) const { return FormatReal(v); }
  std::string operator()(bool v) const { return v ? "true" : "false"; }
  std::string operator()(const std::string& v) const { return v; }
  std::string operator()(const Bytes& v) const { return Hex(v); }
};

}  // namespace

const std::vector<ValueType>& ValueTypes() {
  static const std::vector<ValueType> types = {
      Row<IntegerMember>("int", "signed 64-bit integer", ParseInteger<long long>),
      Row<Uint64Member>("uint", "unsigned 64-bit integer (as uint64)",
                        ParseInteger<unsigned long long>),
      Row<Int32Member>("int32", "signed 32-bit integer", ParseInteger<int>),
      Row<Uint32Member>("uint32", "unsigned 32-bit integer", ParseInteger<unsigned int>),
      Row<Int64Member>("int64", "signed 64-bit integer", ParseInteger<long long>),
      Row<Uint64Member>("uint64", "unsigned 64-bit integer", ParseInteger<unsigned long long>),
      Row<FloatMember>("float", "32-bit real", ParseReal<float>),
      Row<DoubleMember>("double", "64-bit real", ParseReal<double>),
      Row<BooleanMember>("bool", "true or false (also yes/no, 1/0)", ParseBoolean),
      Row<StringMember>("string", "UTF-8 text", ParseString),
      ValueType{"data", "bytes, as hexadecimal digits (or --file)", ParseHex, StoreData, FetchData},
  };
  return types;
}

const ValueType* FindValueType(const std::string& name) {
  for (const ValueType& type : ValueTypes()) {
    if (name == type.name) return &type;
  }
  return nullptr;
}

const ValueType* TypeForKind(mvcs::MORVVALUEKIND kind) {
  switch (kind) {
    case mvcs::MORVVALUEKIND_INTEGER:
      return FindValueType("int");
    case mvcs::MORVVALUEKIND_UNSIGNED_INTEGER:
      return FindValueType("uint64");
    case mvcs::MORVVALUEKIND_REAL:
      return FindValueType("double");
    case mvcs::MORVVALUEKIND_BOOLEAN:
      return FindValueType("bool");
    case mvcs::MORVVALUEKIND_STRING:
      return FindValueType("string");
    case mvcs::MORVVALUEKIND_DATA:
      return FindValueType("data");
    default:
      return nullptr;
  }
}

const char* KindName(mvcs::MORVVALUEKIND kind) {
  switch (kind) {
    case mvcs::MORVVALUEKIND_INTEGER:
    case mvcs::MORVVALUEKIND_UNSIGNED_INTEGER:
      return "integer";
    case mvcs::MORVVALUEKIND_REAL:
      return "real";
    case mvcs::MORVVALUEKIND_BOOLEAN:
      return "boolean";
    case mvcs::MORVVALUEKIND_STRING:
      return "string";
    case mvcs::MORVVALUEKIND_DATA:
      return "data";
    case mvcs::MORVVALUEKIND_DICTIONARY:
      return "key";
    case mvcs::MORVVALUEKIND_ARRAY:
      return "array";
    case mvcs::MORVVALUEKIND_DATE:
      return "date";
    case mvcs::MORVVALUEKIND_UID:
      return "uid";
    case mvcs::MORVVALUEKIND_SET:
      return "set";
    case mvcs::MORVVALUEKIND_OTHER:
      return "other";
    default:
      return "none";
  }
}

std::string FormatPlain(const Value& value) { return std::visit(Plain(), value); }

std::string FormatQuoted(const Value& value) {
  if (const std::string* text = std::get_if<std::string>(&value)) return Quote(*text);
  if (const Bytes* bytes = std::get_if<Bytes>(&value)) return "<" + Hex(*bytes) + ">";
  return FormatPlain(value);
}

}  // namespace morv_tool
