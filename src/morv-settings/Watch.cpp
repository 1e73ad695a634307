// morv-settings watch and products (see Commands.h): following a product's
// settings as they change, and finding the products that have settings.

#include <dirent.h>
#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <string>
#include <vector>

#include "Commands.h"
#include "JsonValues.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvSettings/MorvSettingsWatch.h"
#include "ToolError.h"
#include "ToolFiles.h"
#include "ValueTypes.h"
#include "common/FileDescriptor.h"

namespace morv_tool {

namespace {

// A value as the watch lines show it: "(integer) 8080", "(string) \"x\"".
std::string Shown(const mvcs::SettingsValue& value) {
  std::string text;
  switch (value.kind) {
    case mvcs::MORVVALUEKIND_INTEGER:
      text = std::to_string(value.integer);
      break;
    case mvcs::MORVVALUEKIND_UNSIGNED_INTEGER:
      text = std::to_string(static_cast<unsigned long long>(value.integer));
      break;
    case mvcs::MORVVALUEKIND_REAL:
      text = FormatQuoted(Value(value.real));
      break;
    case mvcs::MORVVALUEKIND_BOOLEAN:
      text = value.boolean ? "true" : "false";
      break;
    case mvcs::MORVVALUEKIND_STRING:
      text = FormatQuoted(Value(value.text));
      break;
    case mvcs::MORVVALUEKIND_DATA:
      text = FormatQuoted(Value(Bytes(value.data)));
      break;
    case mvcs::MORVVALUEKIND_DATE:
      // The calendar form, or the JSON of a date that has none.
      text = FormatDate(value.real);
      if (text.empty()) text = ToJson(value).dump();
      break;
    default:
      text = ToJson(value).dump();  // arrays, sets, UIDs
  }
  return "(" + std::string(KindName(value.kind)) + ") " + text;
}

// The lines of one change: an added or removed key comes as each value
// below it (an empty key as itself).
void PrintChange(const std::string& verb, const std::string& path, const mvcs::SettingsValue& value,
                 std::ostream& out) {
  if (value.kind == mvcs::MORVVALUEKIND_DICTIONARY) {
    if (value.entries.empty()) out << verb << " " << path << "/ (key)\n";
    for (const mvcs::SettingsEntry& entry : value.entries) {
      PrintChange(verb, path + "/" + entry.name, entry.value, out);
    }
    return;
  }
  out << verb << " " << path << " " << Shown(value) << "\n";
}

void Print(const mvcs::SettingsChange& change, bool json, std::ostream& out) {
  if (json) {
    nlohmann::json line = {{"path", change.path}};
    switch (change.type) {
      case mvcs::SettingsChange::ADDED:
        line["change"] = "added";
        line["new"] = ToJson(change.newValue);
        break;
      case mvcs::SettingsChange::REMOVED:
        line["change"] = "removed";
        line["old"] = ToJson(change.oldValue);
        break;
      default:
        line["change"] = "changed";
        line["old"] = ToJson(change.oldValue);
        line["new"] = ToJson(change.newValue);
    }
    out << line.dump() << "\n";
  } else if (change.type == mvcs::SettingsChange::ADDED) {
    PrintChange("added", change.path, change.newValue, out);
  } else if (change.type == mvcs::SettingsChange::REMOVED) {
    PrintChange("removed", change.path, change.oldValue, out);
  } else {
    out << "changed " << change.path << ": " << Shown(change.oldValue) << " -> "
        << Shown(change.newValue) << "\n";
  }
}

}  // namespace

void WatchCommand(const SettingsTarget& target, const std::string& key, bool json,
                  std::ostream& out) {
  const std::string keyPath = JoinKeyPath(SettingsTarget::SplitKeyPath(key, true));
  mvcs::SettingsWatcher watcher(target.GetProduct(), target.IsInstaller(), keyPath);
  if (!watcher.IsValid()) {
    throw Failure("cannot watch " + target.Describe() + " " + target.DescribeFiles());
  }
  // SIGINT and SIGTERM end the watch (exit status 0) through a descriptor.
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGINT);
  sigaddset(&stop, SIGTERM);
  sigprocmask(SIG_BLOCK, &stop, nullptr);
  const morv_common::FileDescriptor signals(signalfd(-1, &stop, SFD_CLOEXEC));
  if (signals.Get() < 0) throw Failure("cannot watch: " + ErrnoText());
  out.flush();
  for (;;) {
    pollfd waits[2] = {{watcher.GetFileDescriptor(), POLLIN, 0}, {signals.Get(), POLLIN, 0}};
    if (poll(waits, 2, -1) < 0) {
      if (errno == EINTR) continue;
      throw Failure("cannot watch: " + ErrnoText());
    }
    if (waits[1].revents != 0) return;
    std::vector<mvcs::SettingsChange> changes;
    watcher.ReadChanges(changes);
    for (const mvcs::SettingsChange& change : changes) Print(change, json, out);
    out.flush();
    if (!out) return;  // the reader went away
  }
}

void ProductsCommand(bool installer, bool json, std::ostream& out) {
  std::set<std::string> products;
  // Per-user files: com.morv.<product>.plist beside where any product's is.
  const std::string sample = mvcs::GetProductSettingsFile("x");
  if (!installer && !sample.empty()) {
    const std::string folder = sample.substr(0, sample.rfind('/'));
    if (DIR* dir = opendir(folder.c_str())) {
      while (const dirent* entry = readdir(dir)) {
        const std::string name = entry->d_name;
        const std::string prefix = "com.morv.", suffix = ".plist";
        if (name.size() > prefix.size() + suffix.size() &&
            name.compare(0, prefix.size(), prefix) == 0 &&
            name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
          products.insert(name.substr(prefix.size(), name.size() - prefix.size() - suffix.size()));
        }
      }
      closedir(dir);
    }
  }
  // The shared file: the keys below Settings (or Install).
  Node top;
  if (mvcs::CreateMorvSettings(std::string(installer ? "Install" : "Settings"),
                               mvcs::MORVSETTINGSTYPE_SHARED_ALT, &top)) {
    std::set<std::string> names;
    top->GetChildNames(names);
    products.insert(names.begin(), names.end());
  }
  if (json) {
    out << nlohmann::json(products).dump() << "\n";
    return;
  }
  for (const std::string& product : products) out << product << "\n";
}

}  // namespace morv_tool
