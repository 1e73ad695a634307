// The commands of morv-settings (see Commands.h), on the settings store's
// public interface: nodes, their typed operations, and the inspection
// functions of MorvSettingsUtility.h.

#include "Commands.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <set>
#include <vector>

#include "CommandSupport.h"
#include "JsonValues.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvSettings/MorvSettingsValue.h"
#include "ToolError.h"
#include "ToolFiles.h"
#include "ValueTypes.h"

namespace morv_tool {

namespace {

// `"a/b" in the settings of product "P"`.
std::string Where(const SettingsTarget& target, const std::string& key) {
  return Quoted(key) + " in " + target.Describe();
}

// A delete of a whole node that did not happen: nothing on disk changed.
// The node's delete tells only errno, so the file is the one that changes
// go to (saves through SaveSettings name the file that failed themselves).
ToolError NotWritten(const SettingsTarget& target, int reason) {
  std::string message = "cannot write " + target.OwnFile();
  if (reason == EWOULDBLOCK) {
    message +=
        ": another program held its lock (" + target.OwnFile() + ".lock) for too long; try again";
  } else if (reason != 0) {
    message += std::string(": ") + std::strerror(reason);
  }
  return Failure(message + "; nothing was changed");
}

const ValueType& RequireType(const std::string& name) {
  const ValueType* type = FindValueType(name);
  if (type == nullptr) {
    std::string names;
    for (const ValueType& known : ValueTypes()) {
      names += std::string(names.empty() ? "" : ", ") + known.name;
    }
    throw UsageError("unknown type " + Quoted(name) + " (the types are " + names + ")");
  }
  return *type;
}

// "a string", "an integer": the kind's name with its article.
std::string WithArticle(mvcs::MORVVALUEKIND kind) {
  const std::string name = KindName(kind);
  return (std::string("aeiou").find(name[0]) != std::string::npos ? "an " : "a ") + name;
}

// Splits a key path into the node's path and the entry's name.
struct Entry {
  std::vector<std::string> parent;
  std::string name;
};
Entry SplitEntry(const std::string& key) {
  Entry entry;
  entry.parent = SettingsTarget::SplitKeyPath(key, false);
  entry.name = entry.parent.back();
  entry.parent.pop_back();
  return entry;
}

// The kind of the entry, as the access opens its parent (none when the
// parent does not open); `parent` receives the parent node.
mvcs::MORVVALUEKIND KindAt(const SettingsTarget& target, const Entry& entry, Access access,
                           Node& parent) {
  parent = target.Open(entry.parent, access);
  return parent ? mvcs::GetValueKind(parent.Get(), entry.name) : mvcs::MORVVALUEKIND_NONE;
}

void PrintTree(mvcs::IMorvSettings& node, const std::string& indent, std::ostream& out) {
  std::set<std::string> values;
  std::set<std::string> children;
  node.GetValueNames(values);
  node.GetChildNames(children);
  for (const std::string& name : values) {
    const mvcs::MORVVALUEKIND kind = mvcs::GetValueKind(&node, name);
    out << indent << name << " (" << KindName(kind) << ")";
    const ValueType* type = TypeForKind(kind);
    Value value;
    if (type != nullptr && type->fetch(node, name, value)) out << " = " << FormatQuoted(value);
    out << "\n";
  }
  for (const std::string& name : children) {
    out << indent << name << "/\n";
    Node child;
    if (node.GetChild(name, &child)) PrintTree(*child, indent + "  ", out);
  }
}

// The files a command on `target` reads: the one changes go to and, for a
// product's own settings, the shared file with its defaults.
std::vector<std::string> FilesRead(const SettingsTarget& target) {
  if (target.IsInstaller()) return {target.SharedFile()};
  return {target.OwnFile(), target.SharedFile()};
}

// Throws when a file the command reads exists but cannot be read.
void CheckReadable(const SettingsTarget& target, const std::vector<std::string>& files,
                   const char* outcome = "") {
  for (const std::string& file : files) {
    const FileCheck check = CheckFile(target, file);
    if (!check.problem.empty()) throw Failure(check.problem + outcome);
  }
}

// For an entry that the per-user file lacks but the product reads from the
// machine-wide defaults: says so; otherwise not-found.
ToolError NotInOwnFile(const SettingsTarget& target, const std::string& key, bool found) {
  if (!target.IsInstaller() && found) {
    const std::string what =
        key.empty() ? std::string("the settings come") : Quoted(key) + " comes";
    return Failure("not in the per-user file of product " + Quoted(target.GetProduct()) + " (" +
                   target.OwnFile() + "): " + what + " from the machine-wide defaults in " +
                   target.SharedFile() + ", which this command does not change");
  }
  return NotFound(target, key);
}

// Opens the product's node as `access` would, or throws not-found.
Node RequireNode(const SettingsTarget& target, Access access) {
  Node node = target.Open({}, access);
  if (!node) throw NotFound(target, "");
  return node;
}

// Opens the product's node in the file that changes go to, or throws
// (saying so when the product has only machine-wide defaults).
Node RequireOwnNode(const SettingsTarget& target) {
  Node node = target.Open({}, Access::kOwn);
  if (!node) throw NotInOwnFile(target, "", static_cast<bool>(target.Open({}, Access::kRead)));
  return node;
}

// The tree of a node of `target`, as a read shows it (with the shared
// file's defaults for a product's own settings).
mvcs::SettingsValue TreeOf(const SettingsTarget& target, const Node& node) {
  mvcs::SettingsValue tree;
  if (!mvcs::ReadSettingsTree(node.Get(), !target.IsInstaller(), tree)) {
    throw Failure("cannot read " + target.Describe() + " " + target.DescribeFiles());
  }
  return tree;
}

}  // namespace

void ReadCommand(const SettingsTarget& target, const std::string& key, const std::string& typeName,
                 bool json, std::ostream& out) {
  const ValueType* type = typeName.empty() ? nullptr : &RequireType(typeName);
  CheckReadable(target, FilesRead(target));
  if (key.empty()) {
    if (type != nullptr) throw UsageError("--type needs a KEY: a node holds many values");
    Node node = RequireNode(target, Access::kRead);
    if (json) {
      out << ToJson(TreeOf(target, node)).dump() << "\n";
    } else {
      PrintTree(*node, "", out);
    }
    return;
  }
  const Entry entry = SplitEntry(key);
  Node parent;
  const mvcs::MORVVALUEKIND kind = KindAt(target, entry, Access::kRead, parent);
  if (kind == mvcs::MORVVALUEKIND_NONE) throw NotFound(target, key);
  if (json && type == nullptr) {
    // Every kind, as its JSON: the entry out of the parent's tree.
    for (const mvcs::SettingsEntry& item : TreeOf(target, parent).entries) {
      if (item.name == entry.name) out << ToJson(item.value).dump() << "\n";
    }
    return;
  }
  if (kind == mvcs::MORVVALUEKIND_DICTIONARY && type == nullptr) {
    Node child;
    if (!parent->GetChild(entry.name, &child)) throw NotFound(target, key);
    PrintTree(*child, "", out);
    return;
  }
  if (type == nullptr) type = TypeForKind(kind);
  if (type == nullptr) {
    throw Failure(Where(target, key) + " is " + WithArticle(kind) +
                  ", which the settings interface cannot read (export shows it)");
  }
  Value value;
  if (!type->fetch(*parent, entry.name, value)) {
    throw Failure(Where(target, key) + " is " + WithArticle(kind) + ", which cannot be read as " +
                  type->name);
  }
  if (json) {
    out << ToJson(value).dump() << "\n";
  } else {
    out << FormatPlain(value) << "\n";
  }
}

void WriteCommand(const SettingsTarget& target, const std::string& key, const std::string& typeName,
                  bool hasValue, const std::string& text, const std::string& file) {
  const ValueType& type = RequireType(typeName);
  const Entry entry = SplitEntry(key);
  const bool bytesType =
      std::strcmp(type.name, "data") == 0 || std::strcmp(type.name, "string") == 0;
  if (hasValue == !file.empty()) {
    throw UsageError(hasValue ? "give the VALUE or --file, not both"
                              : "no VALUE (give it, or --file FILE for string and data)");
  }
  if (!file.empty() && !bytesType) throw UsageError("--file is for string and data values");

  Value value;
  std::string error;
  if (!file.empty()) {
    const std::string bytes = ReadInput(file);
    if (std::strcmp(type.name, "data") == 0) {
      value = Bytes(bytes.begin(), bytes.end());
    } else if (!type.parse(bytes, value, error)) {
      throw UsageError("cannot write " + Where(target, key) + ": the text in " + file + " " +
                       error + "; nothing was changed");
    }
  } else if (!type.parse(text, value, error)) {
    throw UsageError("cannot write " + Where(target, key) + ": " + Quoted(text) + " " + error +
                     " (type " + type.name + "); nothing was changed");
  }

  CheckWritable(target);
  Node parent;
  const mvcs::MORVVALUEKIND kind = KindAt(target, entry, Access::kWrite, parent);
  if (!parent) {
    throw Failure("cannot make the key " + Quoted(JoinKeyPath(entry.parent)) + " in " +
                  target.Describe() + " " + target.DescribeFiles() +
                  ": a value of that name is in the way");
  }
  if (kind == mvcs::MORVVALUEKIND_DICTIONARY) {
    throw Failure(Where(target, key) +
                  " is a key with settings below it; delete it first "
                  "to replace it with a value");
  }
  if (!type.store(*parent, entry.name, value)) {
    throw UsageError("the settings store refused " + Quoted(key) +
                     " (names must be well-formed UTF-8); nothing was changed");
  }
  Save(target, parent);
}

void DeleteCommand(const SettingsTarget& target, const std::string& key) {
  CheckReadable(target, {target.OwnFile()}, "; nothing was changed");
  if (key.empty()) {
    Node node = RequireOwnNode(target);
    errno = 0;
    node->Delete();  // removes the key and writes the file
    const int reason = errno;
    node = Node();
    // Read back from the disk: the delete happened only if the key is gone.
    if (target.Open({}, Access::kOwn)) throw NotWritten(target, reason);
    return;
  }
  const Entry entry = SplitEntry(key);
  Node parent;
  if (KindAt(target, entry, Access::kOwn, parent) == mvcs::MORVVALUEKIND_NONE) {
    Node reader;
    throw NotInOwnFile(target, key,
                       KindAt(target, entry, Access::kRead, reader) != mvcs::MORVVALUEKIND_NONE);
  }
  parent->Delete(entry.name);
  Save(target, parent);
}

void ListCommand(const SettingsTarget& target, const std::string& keyPath, bool json,
                 std::ostream& out) {
  const std::vector<std::string> path = SettingsTarget::SplitKeyPath(keyPath, true);
  CheckReadable(target, FilesRead(target));
  Node node = target.Open(path, Access::kRead);
  if (!node) {
    if (!path.empty()) {
      Node parent;
      const mvcs::MORVVALUEKIND kind = KindAt(target, SplitEntry(keyPath), Access::kRead, parent);
      if (kind != mvcs::MORVVALUEKIND_NONE) {
        throw Failure(Where(target, keyPath) + " is " + WithArticle(kind) +
                      ", not a key; read shows it");
      }
    }
    throw NotFound(target, keyPath);
  }
  std::set<std::string> children;
  std::set<std::string> values;
  node->GetChildNames(children);
  node->GetValueNames(values);
  if (json) {
    nlohmann::json listing = {{"keys", nlohmann::json::array()},
                              {"values", nlohmann::json::object()}};
    for (const std::string& name : children) listing["keys"].push_back(name);
    for (const std::string& name : values) {
      listing["values"][name] = KindName(mvcs::GetValueKind(node.Get(), name));
    }
    out << listing.dump() << "\n";
    return;
  }
  for (const std::string& name : children) out << name << "/\n";
  for (const std::string& name : values) out << name << "\n";
}

void ExportCommand(const SettingsTarget& target, const std::string& format,
                   const std::string& file) {
  CheckReadable(target, {target.OwnFile()});
  Node node = RequireOwnNode(target);
  std::string bytes;
  const mvcs::MORVPLISTFORMAT kind =
      format == "binary" ? mvcs::MORVPLISTFORMAT_BINARY : mvcs::MORVPLISTFORMAT_XML;
  std::string reason;
  if (!mvcs::ExportSettings(node.Get(), kind, bytes, reason)) {
    throw Failure("cannot export " + target.Describe() + " " + target.DescribeFiles() + ": " +
                  reason);
  }
  WriteOutput(file.empty() ? std::string("-") : file, bytes);
}

void ImportCommand(const SettingsTarget& target, const std::string& file, bool json) {
  const std::string bytes = ReadInput(file);
  const std::string source = SourceName(file);
  mvcs::SettingsValue tree;
  if (json) tree = ReadJsonNode(bytes, source);
  CheckWritable(target);
  Node node = target.Open({}, Access::kWrite);
  if (!node) throw NotFound(target, "");
  const mvcs::MORVIMPORTRESULT result =
      json ? mvcs::WriteSettingsTree(node.Get(), tree) : mvcs::ImportSettings(node.Get(), bytes);
  if (result != mvcs::MORVIMPORT_OK) throw MergeFailure(target, result, source, json);
  Save(target, node);
}

void WhereCommand(const SettingsTarget& target, bool json, std::ostream& out) {
  // Each file: where, whether it is there, and what is wrong with it.
  auto state = [](const std::string& path) {
    const mvcs::MORVFILESTATE state = mvcs::GetSettingsFileState(path);
    return state == mvcs::MORVFILE_MISSING    ? std::string("missing")
           : state == mvcs::MORVFILE_READABLE ? std::string("exists")
                                              : std::string("exists but cannot be read: ") +
                                                    mvcs::DescribeSettingsFileState(state);
  };
  const std::string own = target.IsInstaller() ? std::string() : target.OwnFile();
  if (json) {
    nlohmann::json where = {{"key", target.NodePath({})}};
    auto file = [&](const std::string& path) {
      const mvcs::MORVFILESTATE fileState = mvcs::GetSettingsFileState(path);
      nlohmann::json entry = {{"path", path},
                              {"exists", fileState != mvcs::MORVFILE_MISSING},
                              {"readable", fileState == mvcs::MORVFILE_MISSING ||
                                               fileState == mvcs::MORVFILE_READABLE}};
      if (!entry["readable"].get<bool>()) {
        entry["problem"] = mvcs::DescribeSettingsFileState(fileState);
      }
      return entry;
    };
    if (!target.IsInstaller()) where["perUserFile"] = own.empty() ? nlohmann::json() : file(own);
    where["sharedFile"] = file(target.SharedFile());
    out << where.dump() << "\n";
    return;
  }
  std::string notes;
  auto line = [&](const char* label, const std::string& path) {
    out << label << path << " (" << state(path) << ")\n";
    const FileCheck check = CheckFile(target, path);
    if (!check.problem.empty()) notes += "note: " + check.problem + "\n";
  };
  if (!target.IsInstaller()) {
    if (own.empty()) {
      out << "per-user file: none (neither XDG_CONFIG_HOME nor HOME is set)\n";
    } else {
      line("per-user file: ", own);
    }
  }
  line("shared file:   ", target.SharedFile());
  out << "key:           " << target.NodePath({}) << "\n" << notes;
}

}  // namespace morv_tool
