// A stand-in for the Morv Media Server, for the launcher's demonstration:
// says that it started (its process id, working folder and arguments), then
// follows its own settings (Settings/MorvMediaServer) the way a long-running
// server does, printing a line for each setting that changes, until SIGTERM
// or SIGINT, or at most MORV_SAMPLE_SERVER_SECONDS seconds (10 when unset),
// then stops.
//
// For scripts: with MORV_SAMPLE_SERVER_READY set, it writes its process id
// to that file once it follows its settings; with MORV_SAMPLE_SERVER_DONE
// set, it creates that file when it has finished writing.

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "MorvSettings/MorvSettingsWatch.h"

namespace {

const char kProduct[] = "MorvMediaServer";

// A value as the server's log shows it.
std::string Shown(const mvcs::SettingsValue& value) {
  switch (value.kind) {
    case mvcs::MORVVALUEKIND_INTEGER:
      return std::to_string(value.integer);
    case mvcs::MORVVALUEKIND_UNSIGNED_INTEGER:
      return std::to_string(static_cast<unsigned long long>(value.integer));
    case mvcs::MORVVALUEKIND_REAL:
      return std::to_string(value.real);
    case mvcs::MORVVALUEKIND_BOOLEAN:
      return value.boolean ? "true" : "false";
    case mvcs::MORVVALUEKIND_STRING:
      return "\"" + value.text + "\"";
    case mvcs::MORVVALUEKIND_DICTIONARY:
      return "(a key with " + std::to_string(value.entries.size()) + " entries)";
    case mvcs::MORVVALUEKIND_NONE:
      return "(none)";
    default:
      return "(a value)";
  }
}

void Report(const std::vector<mvcs::SettingsChange>& changes) {
  for (const mvcs::SettingsChange& change : changes) {
    std::printf("Sample Morv Media Server: setting %s changed: %s -> %s\n", change.path.c_str(),
                Shown(change.oldValue).c_str(), Shown(change.newValue).c_str());
  }
  std::fflush(stdout);
}

// Follows the settings until a stop signal or `seconds` have passed. The
// watcher's descriptor and a signal descriptor are waited on together: no
// thread, no polling.
void FollowSettings(int seconds) {
  mvcs::SettingsWatcher watcher(kProduct, false);
  if (!watcher.IsValid()) {
    std::printf("Sample Morv Media Server: cannot follow its settings\n");
    return;
  }
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  sigaddset(&stop, SIGINT);
  sigprocmask(SIG_BLOCK, &stop, nullptr);
  const int signals = signalfd(-1, &stop, SFD_CLOEXEC);
  std::printf("Sample Morv Media Server: following its settings (Settings/%s)\n", kProduct);
  std::fflush(stdout);
  if (const char* ready = std::getenv("MORV_SAMPLE_SERVER_READY")) {
    const std::string partial = std::string(ready) + ".partial";
    if (FILE* marker = std::fopen(partial.c_str(), "w")) {
      std::fprintf(marker, "%ld\n", static_cast<long>(getpid()));
      std::fclose(marker);
      std::rename(partial.c_str(), ready);
    }
  }
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
  for (;;) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
        end - std::chrono::steady_clock::now());
    if (left.count() <= 0) break;
    pollfd waits[2] = {{watcher.GetFileDescriptor(), POLLIN, 0}, {signals, POLLIN, 0}};
    if (poll(waits, 2, static_cast<int>(left.count())) < 0) break;
    if (waits[1].revents != 0) break;
    std::vector<mvcs::SettingsChange> changes;
    watcher.ReadChanges(changes);
    Report(changes);
  }
  // Changes saved just before the stop are still reported.
  std::vector<mvcs::SettingsChange> changes;
  watcher.ReadChanges(changes);
  Report(changes);
  if (signals >= 0) close(signals);
}

}  // namespace

int main(int argc, char** argv) {
  char folder[4096];
  if (getcwd(folder, sizeof(folder)) == nullptr) folder[0] = '\0';
  std::printf("Sample Morv Media Server: started, process %ld\n", static_cast<long>(getpid()));
  std::fflush(stdout);  // the first line goes out at once (it may be a pipe)
  std::printf("Sample Morv Media Server: working folder %s\n", folder);
  std::printf("Sample Morv Media Server: %d argument%s\n", argc - 1, argc == 2 ? "" : "s");
  for (int i = 1; i < argc; ++i) std::printf("  %s\n", argv[i]);
  const char* seconds = std::getenv("MORV_SAMPLE_SERVER_SECONDS");
  FollowSettings(seconds != nullptr ? std::atoi(seconds) : 10);
  std::printf("Sample Morv Media Server: stopped\n");
  std::fflush(stdout);
  if (const char* done = std::getenv("MORV_SAMPLE_SERVER_DONE")) {
    if (FILE* marker = std::fopen(done, "w")) std::fclose(marker);
  }
  return 0;
}
