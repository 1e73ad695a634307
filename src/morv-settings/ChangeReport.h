// How morv-settings reports a change to an entry (watch reports what other
// programs changed, apply what it changes): one line of text per value, or
// one JSON object.

#ifndef MORV_SETTINGS_TOOL_CHANGEREPORT_H
#define MORV_SETTINGS_TOOL_CHANGEREPORT_H

#include <nlohmann/json.hpp>
#include <ostream>

#include "MorvSettings/MorvSettingsWatch.h"

namespace morv_tool {

// Writes the lines of `change`:
//   added PATH (KIND) VALUE
//   removed PATH (KIND) VALUE
//   changed PATH: (KIND) OLD -> (KIND) NEW
// An added or removed key comes as one line per value below it (an empty
// key as "PATH/ (key)"). Without `values`, each line ends after its kinds.
void PrintChangeLines(const mvcs::SettingsChange& change, bool values, std::ostream& out);

// {"change": "added" | "removed" | "changed", "path": PATH, "old": JSON,
// "new": JSON}, without "old" for an added entry and "new" for a removed
// one (the values' JSON as JsonValues.h makes it).
nlohmann::json ChangeJson(const mvcs::SettingsChange& change);

}  // namespace morv_tool

#endif  // MORV_SETTINGS_TOOL_CHANGEREPORT_H
