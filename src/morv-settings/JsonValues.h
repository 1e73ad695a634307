// Settings values as JSON, both ways, for --json and import --json: every
// kind stays distinguishable and every value exact.
//
//   dictionary  an object ({"$dictionary": {...}} when its only key starts
//               with "$", so that it is not taken for one of the markers)
//   array       an array;  set: {"$set": [...]}
//   integer     a number without fraction or exponent (all 64 bits exact,
//               values from 2^63 to 2^64 - 1 too)
//   real        a number with a fraction or an exponent ("5.0"); NaN and the
//               infinities as {"$real": "nan" | "inf" | "-inf"}
//   boolean     true, false
//   string      a string (U+0000 as \u0000, like every control character)
//   data        {"$data": "<base64>"}
//   date        {"$date": "2026-11-21T12:34:56Z"} (UTC, ISO 8601, with the
//               fraction of a second when there is one); a date beyond the
//               years 0001-9999 or so as {"$date": <seconds after 2001>}
//   uid         {"$uid": <number>}

#ifndef MORV_SETTINGS_TOOL_JSONVALUES_H
#define MORV_SETTINGS_TOOL_JSONVALUES_H

#include <nlohmann/json.hpp>
#include <string>

#include "MorvSettings/MorvSettingsValue.h"
#include "ValueTypes.h"

namespace morv_tool {

// The JSON form of a value (a NONE value is null).
nlohmann::json ToJson(const mvcs::SettingsValue& value);

// The JSON form of a value read through a type (read --json --type).
nlohmann::json ToJson(const Value& value);

// The value a JSON form stands for. False, with `error` saying why and
// where ("at /a/b: ..."), for JSON that is not one (null, a marker with a
// bad value, a date that is not ISO 8601, text that is not valid UTF-8...).
bool FromJson(const nlohmann::json& json, mvcs::SettingsValue& value, std::string& error);

// A date as ISO 8601 in UTC, from seconds after 2001-01-01T00:00:00Z ("" for
// one too far out, or not finite), and back (false for text that is not
// such a date).
std::string FormatDate(double seconds);
bool ParseDate(const std::string& text, double& seconds);

}  // namespace morv_tool

#endif  // MORV_SETTINGS_TOOL_JSONVALUES_H
