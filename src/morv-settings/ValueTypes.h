// The value types of morv-settings: their names on the command line, how
// their text is parsed (strictly: never a silent 0), how a node stores and
// fetches them, and how they are shown.

#ifndef MORV_SETTINGS_TOOL_VALUETYPES_H
#define MORV_SETTINGS_TOOL_VALUETYPES_H

#include <string>
#include <variant>
#include <vector>

#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsUtility.h"

namespace morv_tool {

typedef std::vector<unsigned char> Bytes;

// One value of any type: int32 is `int`, uint32 `unsigned int`, int and
// int64 `long long`, uint and uint64 `unsigned long long`.
typedef std::variant<long long, unsigned long long, int, unsigned int, float, double, bool,
                     std::string, Bytes>
    Value;

// A value type as the command line names it.
struct ValueType {
  const char* name;
  const char* description;  // one line, for --help
  // Parses `text`; on failure returns false with `error` saying why, as a
  // predicate of the text ("is not a whole number").
  bool (*parse)(const std::string& text, Value& value, std::string& error);
  // Stores `value` (of this type) under `name`; the node's result.
  bool (*store)(mvcs::IMorvSettings& node, const std::string& name, const Value& value);
  // Fetches `name` as this type; the node's result.
  bool (*fetch)(mvcs::IMorvSettings& node, const std::string& name, Value& value);
};

// Every type, in the order --help lists them.
const std::vector<ValueType>& ValueTypes();

// The type named `name`, or null.
const ValueType* FindValueType(const std::string& name);

// The type through which an entry of `kind` is read and shown, or null for
// kinds that no operation reads (arrays, dates, ...) and for none.
const ValueType* TypeForKind(mvcs::MORVVALUEKIND kind);

// The kind's name as listings show it ("integer", "real", "array", ...).
const char* KindName(mvcs::MORVVALUEKIND kind);

// A value as `read` prints it on its own: numbers in decimal (reals in the
// shortest form that reads back exactly), true or false, text as it is,
// data as lowercase hex digits.
std::string FormatPlain(const Value& value);

// A value as a tree listing shows it: as FormatPlain, but text in double
// quotes with \", \\ and control characters escaped, and data in <...>.
std::string FormatQuoted(const Value& value);

}  // namespace morv_tool

#endif  // MORV_SETTINGS_TOOL_VALUETYPES_H
