// The commands of morv-settings. Each works on one product's settings (or
// the installer's record of it), writes its results to `out`, and fails by
// throwing ToolError (see ToolError.h) with the exit status and a message
// that names the product, the key and the file. A command that fails has
// changed nothing on disk.

#ifndef MORV_SETTINGS_TOOL_COMMANDS_H
#define MORV_SETTINGS_TOOL_COMMANDS_H

#include <ostream>
#include <string>

#include "SettingsTarget.h"

namespace morv_tool {

// Prints the value at `key` ("a/b/name"), or the node at `key` (or the
// whole product's node for an empty key) as an indented tree of entries
// with their kinds. With `type`, reads the value through that type's fetch.
// With `json`, prints the JSON of the value or node (see JsonValues.h).
void ReadCommand(const SettingsTarget& target, const std::string& key, const std::string& type,
                 bool json, std::ostream& out);

// Stores a value of `type` at `key`, parsed from `value` (when `hasValue`)
// or taken from the bytes of `file` (string and data), creating the file
// and keys as needed, and writes the file.
void WriteCommand(const SettingsTarget& target, const std::string& key, const std::string& type,
                  bool hasValue, const std::string& value, const std::string& file);

// Deletes the value or key at `key`, or, for an empty key, the product's
// whole node, and writes the file.
void DeleteCommand(const SettingsTarget& target, const std::string& key);

// Prints the child keys (with a trailing "/") and the value names of the
// node at `keyPath` (the product's node for an empty path).
// With `json`: {"keys": [names], "values": {name: kind}}.
void ListCommand(const SettingsTarget& target, const std::string& keyPath, bool json,
                 std::ostream& out);

// Writes the product's own entries as a property list ("xml" or "binary")
// to `file` ("-" for standard output).
void ExportCommand(const SettingsTarget& target, const std::string& format,
                   const std::string& file);

// Merges the property list in `file` ("-" for standard input) into the
// product's node and writes the file.
// With `json`, the file holds what read --json printed for a node.
void ImportCommand(const SettingsTarget& target, const std::string& file, bool json);

// How apply works and reports (see ApplyCommand).
struct ApplyOptions {
  bool prune = false;  // also remove the entries that the file does not name
  bool check = false;  // change nothing; report what would change
  bool diff = false;   // show old and new values in the lines of text
  bool json = false;   // report as one JSON object
};

// Makes the product's entries in the file that changes go to (its node in
// the per-user file, or the installer record in the shared file) equal,
// in kind and value, to every entry that `file` ("-" for standard input)
// names; `file` holds JSON as read --json prints a node. Keys merge: an
// entry of a key that `file` does not name is kept, unless `prune`. A
// value replaces a key of its name and a key a value. Entries that are
// already equal are not stored again; all changes go to the file in one
// save, under its lock, merged with what other programs saved meanwhile;
// when nothing differs, nothing is written. The whole of `file` is checked
// before anything is stored: JSON that is not a node's, a name that no key
// path reaches ("", or holding / or \), or what a settings file cannot
// hold fail with nothing changed, as do a removal of an entry whose name
// holds U+0000 (which the node's operations cannot name) and a save that
// fails (another program holding the lock for too long, say).
// Reports each changed entry (PrintChangeLines of ChangeReport.h: with
// values when `diff`), nothing when none; with `json`, one object:
// {"changed": BOOL, "changes": [ChangeJson + "oldKind", "newKind"]}, the
// kinds named as KindName names them. With `check`, reports the same and
// changes nothing.
void ApplyCommand(const SettingsTarget& target, const std::string& file,
                  const ApplyOptions& options, std::ostream& out);

// Prints the files that the product's settings use and its key path.
// With `json`: {"key": ..., "perUserFile": {"path", "exists", "readable",
// "problem"}, "sharedFile": {...}}.
void WhereCommand(const SettingsTarget& target, bool json, std::ostream& out);

// Prints one line per changed entry of the node at `key` (the product's
// node for an empty key) as changes happen, until SIGINT or SIGTERM; with
// `json`, one JSON object per line.
void WatchCommand(const SettingsTarget& target, const std::string& key, bool json,
                  std::ostream& out);

// Prints the product ids that have settings: per-user files, and the
// products the shared file holds (with `installer`, the installer records
// there).
void ProductsCommand(bool installer, bool json, std::ostream& out);

}  // namespace morv_tool

#endif  // MORV_SETTINGS_TOOL_COMMANDS_H
