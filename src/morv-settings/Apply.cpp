// morv-settings apply (see Commands.h): makes a product's entries equal to
// those of a JSON file, storing only what differs, in one save.

#include <iterator>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "ChangeReport.h"
#include "CommandSupport.h"
#include "Commands.h"
#include "ToolFiles.h"
#include "ValueTypes.h"

namespace morv_tool {

namespace {

typedef std::vector<std::string> KeyPath;

// What apply has to do: the changes it reports, the entries it merges in
// (a dictionary, as WriteSettingsTree takes it: only what differs), and the
// entries it removes first (those that --prune drops, and keys that values
// replace).
struct Plan {
  std::vector<mvcs::SettingsChange> changes;
  mvcs::SettingsValue merge;
  std::vector<KeyPath> removals;
};

mvcs::SettingsValue EmptyKey() {
  mvcs::SettingsValue key;
  key.kind = mvcs::MORVVALUEKIND_DICTIONARY;
  return key;
}

// The entries of the dictionary `node` by name.
typedef std::map<std::string, const mvcs::SettingsValue*> Entries;
Entries EntriesOf(const mvcs::SettingsValue& node) {
  Entries entries;
  for (const mvcs::SettingsEntry& entry : node.entries) entries[entry.name] = &entry.value;
  return entries;
}

// The entry `name` of `entries`, or null.
const mvcs::SettingsValue* Find(const Entries& entries, const std::string& name) {
  const auto found = entries.find(name);
  return found == entries.end() ? nullptr : found->second;
}

KeyPath Below(const KeyPath& path, const std::string& name) {
  KeyPath below = path;
  below.push_back(name);
  return below;
}

void Report(Plan& plan, mvcs::SettingsChange::Type type, const KeyPath& path,
            const mvcs::SettingsValue* before, const mvcs::SettingsValue* after) {
  mvcs::SettingsChange change;
  change.type = type;
  change.path = JoinKeyPath(path);
  if (before != nullptr) change.oldValue = *before;
  if (after != nullptr) change.newValue = *after;
  plan.changes.push_back(change);
}

// Whether a name is one that FILE may use: not empty, and without "/" or
// "\" (which key paths, and so the report, take as separators).
bool Nameable(const std::string& name) {
  return !name.empty() && name.find_first_of("/\\") == std::string::npos;
}

// Removes the entry at `path` with the rest of the plan: throws, before
// anything changes, when a node's operations cannot name it (a name that
// holds U+0000 ends there for them; another program may have written one).
void Remove(const SettingsTarget& target, const KeyPath& path, Plan& plan) {
  for (const std::string& name : path) {
    if (!Nameable(name) || name.find('\0') != std::string::npos) {
      // The path as values are shown: a message ends at its first U+0000.
      throw Failure("cannot remove " + FormatQuoted(Value(JoinKeyPath(path))) + " from " +
                    target.Describe() +
                    ": the settings interface cannot name it (an empty name, or one holding /, "
                    "\\ or U+0000); nothing was changed");
    }
  }
  plan.removals.push_back(path);
}

// Compares the key at `path` as it is (`now`, a dictionary) with what it is
// to be (`wanted`): adds what differs to the plan, and the entries to store
// to `merge` (the dictionary that goes in at `path`).
void Compare(const SettingsTarget& target, const KeyPath& path, const mvcs::SettingsValue& now,
             const mvcs::SettingsValue& wanted, bool prune, mvcs::SettingsValue& merge,
             Plan& plan) {
  const Entries nowEntries = EntriesOf(now);
  const Entries wantedEntries = EntriesOf(wanted);
  std::set<std::string> names;
  for (const auto& entry : nowEntries) names.insert(entry.first);
  for (const auto& entry : wantedEntries) names.insert(entry.first);
  for (const std::string& name : names) {
    const mvcs::SettingsValue* before = Find(nowEntries, name);
    const mvcs::SettingsValue* after = Find(wantedEntries, name);
    const KeyPath at = Below(path, name);
    if (after == nullptr) {
      if (prune) {
        Report(plan, mvcs::SettingsChange::REMOVED, at, before, nullptr);
        Remove(target, at, plan);
      }
      continue;
    }
    const bool keyWanted = after->kind == mvcs::MORVVALUEKIND_DICTIONARY;
    const bool keyThere = before != nullptr && before->kind == mvcs::MORVVALUEKIND_DICTIONARY;
    if (keyWanted && (keyThere || before == nullptr) && (keyThere || !after->entries.empty())) {
      // A key into a key (or a missing one): entry by entry.
      mvcs::SettingsEntry below = {name, EmptyKey()};
      Compare(target, at, keyThere ? *before : EmptyKey(), *after, prune, below.value, plan);
      if (!below.value.entries.empty()) merge.entries.push_back(below);
      continue;
    }
    if (before == nullptr) {
      Report(plan, mvcs::SettingsChange::ADDED, at, nullptr, after);
    } else if (!mvcs::SameSettingsValue(*before, *after)) {
      Report(plan, mvcs::SettingsChange::CHANGED, at, before, after);
      if (keyThere) Remove(target, at, plan);  // a value replaces the key
    } else {
      continue;
    }
    merge.entries.push_back({name, *after});
  }
}

// Throws unless every name in `node` (a dictionary) and in the keys in it
// is one that FILE may use (see Nameable).
void CheckNames(const mvcs::SettingsValue& node, const KeyPath& path, const std::string& source) {
  for (const mvcs::SettingsEntry& entry : node.entries) {
    const KeyPath at = Below(path, entry.name);
    if (!Nameable(entry.name)) {
      throw Failure(source + " names an entry " + Quoted(entry.name) + " (below " +
                    Quoted(JoinKeyPath(path)) +
                    "), which no key path reaches: a name may not be empty nor hold / or \\; "
                    "nothing was changed");
    }
    if (entry.value.kind == mvcs::MORVVALUEKIND_DICTIONARY) CheckNames(entry.value, at, source);
  }
}

// What the file that changes go to holds for the target now (an empty key
// when it holds nothing).
mvcs::SettingsValue Current(const SettingsTarget& target) {
  mvcs::SettingsValue tree = EmptyKey();
  Node node = target.Open({}, Access::kOwn);
  if (node && !mvcs::ReadSettingsTree(node.Get(), false, tree)) {
    throw Failure("cannot read " + target.Describe() + " " + target.DescribeFiles());
  }
  return tree;
}

// Carries out the plan in memory, then saves it (or, for a check, drops
// it: the store's checks of what goes in are made all the same). Any
// failure drops every change.
void Carry(const SettingsTarget& target, const Plan& plan, const std::string& source, bool check) {
  Node node = target.Open({}, Access::kWrite);
  if (!node) throw NotFound(target, "");
  // The nodes that remove entries stay open until the save (or the drop):
  // the release of a node with changes would write them on its own.
  std::vector<Node> holders;
  for (const KeyPath& path : plan.removals) {
    holders.push_back(target.Open(KeyPath(path.begin(), std::prev(path.end())), Access::kOwn));
    const Node& holder = holders.back();
    if (!holder || !holder->Delete(path.back())) {
      mvcs::DiscardSettingsChanges(node.Get());
      // The path as values are shown: a message ends at its first U+0000.
      throw Failure("cannot remove " + FormatQuoted(Value(JoinKeyPath(path))) + " from " +
                    target.Describe() + " " + target.DescribeFiles() + "; nothing was changed");
    }
  }
  if (!plan.merge.entries.empty()) {
    const mvcs::MORVIMPORTRESULT result = mvcs::WriteSettingsTree(node.Get(), plan.merge);
    if (result != mvcs::MORVIMPORT_OK) {
      mvcs::DiscardSettingsChanges(node.Get());
      throw MergeFailure(target, result, source, true);
    }
  }
  if (check) {
    mvcs::DiscardSettingsChanges(node.Get());
  } else {
    Save(target, node);
  }
}

void Print(const Plan& plan, const ApplyOptions& options, std::ostream& out) {
  if (!options.json) {
    for (const mvcs::SettingsChange& change : plan.changes) {
      PrintChangeLines(change, options.diff, out);
    }
    return;
  }
  nlohmann::json report = {{"changed", !plan.changes.empty()},
                           {"changes", nlohmann::json::array()}};
  for (const mvcs::SettingsChange& change : plan.changes) {
    nlohmann::json item = ChangeJson(change);
    if (change.type != mvcs::SettingsChange::ADDED) {
      item["oldKind"] = KindName(change.oldValue.kind);
    }
    if (change.type != mvcs::SettingsChange::REMOVED) {
      item["newKind"] = KindName(change.newValue.kind);
    }
    report["changes"].push_back(item);
  }
  out << report.dump() << "\n";
}

}  // namespace

void ApplyCommand(const SettingsTarget& target, const std::string& file,
                  const ApplyOptions& options, std::ostream& out) {
  const std::string source = SourceName(file);
  const mvcs::SettingsValue wanted = ReadJsonNode(ReadInput(file), source);
  CheckNames(wanted, {}, source);
  CheckWritable(target);
  Plan plan;
  plan.merge = EmptyKey();
  Compare(target, {}, Current(target), wanted, options.prune, plan.merge, plan);
  if (!plan.changes.empty()) Carry(target, plan, source, options.check);
  Print(plan, options, out);
}

}  // namespace morv_tool
