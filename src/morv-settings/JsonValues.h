// Settings values as JSON, both ways, for --json and import --json: every
// kind stays distinguishable and every value exact.
//
//   dictionary  an object ({"$dictionary": {...}} when its only key starts
//               with "$", so that it is not taken for one of the markers)
//   array       an array;  set: {"$set": [...]}
//   integer     a number without fraction or exponent (all 64 bits exact,
//               values from 2^63 to 2^64 - 1 too)
//   real        a number with a fraction or an exponent ("5.0"), read back
//               to the same bits; the infinities as {"$real": "inf" |
//               "-inf"}, NaN as {"$real": "nan"} (bits 7ff8000000000000)
//               or, for any other NaN, {"$real": "nan:fff8000000000000"}
//               with its 64 bits in hexadecimal (sign and payload kept)
//   boolean     true, false
//   string      a string (U+0000 as \u0000, like every control character)
//   data        {"$data": "<base64>"}
//   date        {"$date": "2026-11-21T12:34:56Z"}: UTC, ISO 8601, with as many
//               digits of the fraction of a second as reading it back to
//               the same bits takes ("2000-12-31T23:59:59.999999999Z" for
//               -1e-9 s); a date that this cannot carry -- before year 1
//               or from year 10000 on, -0.0, one that would need more than
//               20 fraction digits (less than a millisecond from 2001), NaN
//               and the infinities -- as {"$date": <seconds after
//               2001-01-01 as a real, in the real's form>}
//   uid         {"$uid": <number>}
//
// Every value the store's tree holds reads back to the same value, bit for
// bit.

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

// A date as ISO 8601 in UTC, from seconds after 2001-01-01T00:00:00Z, with
// the fewest fraction digits that ParseDate reads back to the same bits;
// "" for a date that has no such form (see the date above). ParseDate reads
// it back (false for text that is not such a date), the fraction exactly:
// the date's decimal value rounded once to a double.
std::string FormatDate(double seconds);
bool ParseDate(const std::string& text, double& seconds);

}  // namespace morv_tool

#endif  // MORV_SETTINGS_TOOL_JSONVALUES_H
