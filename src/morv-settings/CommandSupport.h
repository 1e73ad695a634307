// What the commands that change settings share (see Commands.h): the
// checks made before anything changes, reading a node's JSON, and the one
// save that writes a command's changes, each failing with the tool's
// messages as ToolError.

#ifndef MORV_SETTINGS_TOOL_COMMANDSUPPORT_H
#define MORV_SETTINGS_TOOL_COMMANDSUPPORT_H

#include <string>
#include <vector>

#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvSettings/MorvSettingsValue.h"
#include "SettingsTarget.h"
#include "ToolError.h"

namespace morv_tool {

// Nothing at `key` in the target ("" for the product's node).
ToolError NotFound(const SettingsTarget& target, const std::string& key);

// "the per-user file <path>" or "the shared file <path>".
std::string FileLabel(const SettingsTarget& target, const std::string& path);

// What stops a command from using a settings file: nothing, or a problem
// that a write keeps aside, or one that no write gets past.
struct FileCheck {
  std::string problem;  // "" when the file can be used (or is not there)
  bool blocksWrites = false;
};

// Why the settings file at `path` that is there cannot be used, and what
// becomes of it.
FileCheck CheckFile(const SettingsTarget& target, const std::string& path);

// Throws, before anything is changed, when the file that changes go to is
// there but cannot be read and a save could not keep it aside. One that
// can be kept aside is, by the save, which Save() then reports.
void CheckWritable(const SettingsTarget& target);

// Writes the node's changes (those of every node of its files) now, or
// drops them and throws (so that the release of the node writes nothing
// later); says on standard error which unreadable file the save kept
// aside, and where.
void Save(const SettingsTarget& target, const Node& node);

// The tree that `bytes` (from `source`, "standard input" or a file name)
// holds as the JSON of a node, as read --json prints one. Throws a failure
// ending in "nothing was changed" when it is not JSON, or not a node's.
mvcs::SettingsValue ReadJsonNode(const std::string& bytes, const std::string& source);

// The failure of a merge into `target` (WriteSettingsTree or
// ImportSettings) that returned `result` (not MORVIMPORT_OK) for the
// content of `source`; `json` when that content was JSON.
ToolError MergeFailure(const SettingsTarget& target, mvcs::MORVIMPORTRESULT result,
                       const std::string& source, bool json);

// `source` as messages name it: "standard input" for "-".
std::string SourceName(const std::string& file);

}  // namespace morv_tool

#endif  // MORV_SETTINGS_TOOL_COMMANDSUPPORT_H
