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

#include "ChangeReport.h"
#include "Commands.h"
#include "JsonValues.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvSettings/MorvSettingsWatch.h"
#include "ToolError.h"
#include "ToolFiles.h"
#include "common/FileDescriptor.h"

namespace morv_tool {

namespace {

void Print(const mvcs::SettingsChange& change, bool json, std::ostream& out) {
  if (json) {
    out << ChangeJson(change).dump() << "\n";
  } else {
    PrintChangeLines(change, true, out);
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
