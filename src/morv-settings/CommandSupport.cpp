// What the commands that change settings share (see CommandSupport.h).

#include "CommandSupport.h"

#include <iostream>

#include "JsonValues.h"
#include "ToolFiles.h"

namespace morv_tool {

ToolError NotFound(const SettingsTarget& target, const std::string& key) {
  if (key.empty()) {
    return Failure("nothing is stored in " + target.Describe() + " " + target.DescribeFiles());
  }
  return Failure("there is no " + Quoted(key) + " in " + target.Describe() + " " +
                 target.DescribeFiles());
}

std::string FileLabel(const SettingsTarget& target, const std::string& path) {
  return (path == target.SharedFile() ? "the shared file " : "the per-user file ") + path;
}

FileCheck CheckFile(const SettingsTarget& target, const std::string& path) {
  FileCheck check;
  if (path.empty()) return check;
  const mvcs::MORVFILESTATE state = mvcs::GetSettingsFileState(path);
  if (state == mvcs::MORVFILE_MISSING || state == mvcs::MORVFILE_READABLE) return check;
  const bool seen = Exists(path);
  check.problem = FileLabel(target, path) +
                  (seen ? " exists but cannot be read (" : " cannot be read (") +
                  mvcs::DescribeSettingsFileState(state) + ")";
  if (state == mvcs::MORVFILE_NOT_A_FILE || state == mvcs::MORVFILE_UNREADABLE) {
    check.problem += "; no write can replace it";
    check.blocksWrites = true;
  } else if (!seen || !FolderIsWritable(path)) {
    check.problem += "; no write can keep it aside (its folder cannot be changed)";
    check.blocksWrites = true;
  } else {
    check.problem += "; the next write keeps it aside as " + path +
                     ".unreadable-XXXXXX and starts the file afresh";
  }
  return check;
}

void CheckWritable(const SettingsTarget& target) {
  const FileCheck check = CheckFile(target, target.OwnFile());
  if (check.blocksWrites) throw Failure(check.problem + "; nothing was changed");
}

void Save(const SettingsTarget& target, const Node& node) {
  const mvcs::SaveResult result = mvcs::SaveSettings(node.Get());
  for (const std::string& aside : result.GetMovedAside()) {
    const std::string original = aside.substr(0, aside.rfind(".unreadable-"));
    std::cerr << "morv-settings: " << FileLabel(target, original) << " could not be read ("
              << mvcs::DescribeSettingsFileState(mvcs::GetSettingsFileState(aside))
              << "); it was kept aside as " << aside << "\n";
  }
  if (!result) {
    mvcs::DiscardSettingsChanges(node.Get());
    throw Failure(result.GetMessage() + "; nothing was changed");
  }
}

mvcs::SettingsValue ReadJsonNode(const std::string& bytes, const std::string& source) {
  // What read --json prints: the product's node as one JSON object.
  const nlohmann::json parsed = nlohmann::json::parse(bytes, nullptr, false);
  if (parsed.is_discarded()) throw Failure(source + " is not JSON; nothing was changed");
  mvcs::SettingsValue tree;
  std::string error;
  if (!parsed.is_object() || !FromJson(parsed, tree, error) ||
      tree.kind != mvcs::MORVVALUEKIND_DICTIONARY) {
    throw Failure(source + " is not the JSON of a settings node (as read --json prints it)" +
                  (error.empty() ? std::string() : ": " + error) + "; nothing was changed");
  }
  return tree;
}

ToolError MergeFailure(const SettingsTarget& target, mvcs::MORVIMPORTRESULT result,
                       const std::string& source, bool json) {
  switch (result) {
    case mvcs::MORVIMPORT_NOT_A_SETTINGS_FILE:
      return Failure(source +
                     (json ? std::string(" holds what a settings file cannot (text that is "
                                         "not well-formed UTF-8)")
                           : std::string(" is not a property list with a dictionary at its root "
                                         "that the settings store can read")) +
                     "; nothing was changed");
    case mvcs::MORVIMPORT_TOO_DEEP:
      return Failure(source + " nests too deep to go into " + target.Describe() +
                     " (a settings file nests at most 128 levels); nothing was changed");
    default:
      return NotFound(target, "");
  }
}

std::string SourceName(const std::string& file) {
  return file == "-" ? std::string("standard input") : file;
}

}  // namespace morv_tool
