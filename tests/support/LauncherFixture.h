// Helpers for the launcher tests: recording servers (shell scripts that
// write down how they were started), running a program in a folder, and
// waiting for a server's record.

#ifndef MORV_TESTS_LAUNCHERFIXTURE_H
#define MORV_TESTS_LAUNCHERFIXTURE_H

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <map>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "ProcessRunner.h"
#include "SettingsSandbox.h"

namespace launcher {

// Writes an executable shell script at `path` that records, in the file
// named by $MORV_RECORD, who it is (`identity`), its working folder, its
// arguments and its process id, then (with $MORV_SERVER_SECONDS) stays
// running that long.
inline void WriteRecordingServer(const std::string& path, const std::string& identity) {
  sandbox::WriteFile(
      path,
      "#!/bin/sh\n"
      "{\n"
      "  echo \"who=" +
          identity +
          "\"\n"
          "  echo \"cwd=$(pwd -P)\"\n"
          "  echo \"argc=$#\"\n"
          "  for argument in \"$@\"; do echo \"arg=$argument\"; done\n"
          "  echo \"pid=$$\"\n"
          "} > \"$MORV_RECORD.tmp\"\n"
          "mv \"$MORV_RECORD.tmp\" \"$MORV_RECORD\"\n"
          "if [ -n \"$MORV_SERVER_SECONDS\" ]; then exec sleep \"$MORV_SERVER_SECONDS\"; fi\n");
  chmod(path.c_str(), 0755);
}

// A server's record, as key=value lines ("arg" may repeat).
struct Record {
  bool found = false;
  std::multimap<std::string, std::string> values;
  std::string Get(const std::string& key) const {
    auto it = values.find(key);
    return it == values.end() ? std::string() : it->second;
  }
};

// Waits up to `seconds` for the record file; the server is detached, so it
// may write it after the launcher has exited.
inline Record WaitForRecord(const std::string& path, double seconds) {
  Record record;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (!sandbox::Exists(path)) {
    if (std::chrono::steady_clock::now() > deadline) return record;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  record.found = true;
  std::istringstream in(sandbox::ReadFile(path));
  for (std::string line; std::getline(in, line);) {
    const std::size_t equals = line.find('=');
    if (equals != std::string::npos) {
      record.values.emplace(line.substr(0, equals), line.substr(equals + 1));
    }
  }
  return record;
}

// Stops a server that a record names, if it still runs.
inline void StopServer(const Record& record) {
  const std::string pid = record.Get("pid");
  if (!pid.empty()) kill(static_cast<pid_t>(std::stol(pid)), SIGKILL);
}

typedef process::Result Result;

// Runs `arguments` (the program first) in folder `directory`, with the
// test's environment plus `environment`; waits for it to exit.
inline Result RunProgram(const std::vector<std::string>& arguments, const std::string& directory,
                         const std::vector<std::pair<std::string, std::string>>& environment) {
  process::Options options;
  options.directory = directory;
  options.environment = environment;
  return process::Run(arguments, options);
}

// A settings sandbox with a working folder for the launcher (m_work) and a
// record file for its servers (m_record, also in $MORV_RECORD); a server
// still running at the end is stopped.
class LauncherSandbox : public sandbox::SettingsSandbox {
 protected:
  void SetUp() override {
    SettingsSandbox::SetUp();
    m_work = m_root + "/work";
    mkdir(m_work.c_str(), 0755);
    m_record = m_root + "/record";
    setenv("MORV_RECORD", m_record.c_str(), 1);
  }
  void TearDown() override {
    StopServer(WaitForRecord(m_record, 0));
    SettingsSandbox::TearDown();
  }
  std::string m_work;
  std::string m_record;
};

}  // namespace launcher

#endif  // MORV_TESTS_LAUNCHERFIXTURE_H
