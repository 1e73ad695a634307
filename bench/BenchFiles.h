// Files for the settings benchmarks: a temporary settings folder for the
// program (a fresh folder under /tmp, with XDG_CONFIG_HOME and
// XDG_CONFIG_DIRS pointing into it, so that no benchmark touches the real
// settings, removed when the program exits), the store-and-save loop, and
// the floor that saves are measured against.

#ifndef MORV_BENCH_BENCHFILES_H
#define MORV_BENCH_BENCHFILES_H

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>

#include <cstdlib>
#include <string>

#include "MorvSettings/MorvSettings.h"

namespace bench {

// The folder; empty until CreateSandbox succeeds.
inline std::string& SandboxRoot() {
  static std::string root;
  return root;
}

inline void RemoveSandbox() {
  if (!SandboxRoot().empty()) std::system(("rm -rf '" + SandboxRoot() + "'").c_str());
}

// Makes the folder with its per-user Preferences folder and points the XDG
// variables at it; returns the folder, or an empty string if it cannot be
// made.
inline std::string CreateSandbox() {
  char pattern[] = "/tmp/morv-bench-XXXXXX";
  if (mkdtemp(pattern) == nullptr) return std::string();
  SandboxRoot() = pattern;
  std::atexit(RemoveSandbox);
  setenv("XDG_CONFIG_HOME", (SandboxRoot() + "/config").c_str(), 1);
  setenv("XDG_CONFIG_DIRS", (SandboxRoot() + "/xdg").c_str(), 1);
  std::system(("mkdir -p '" + SandboxRoot() + "/config/Preferences'").c_str());
  return SandboxRoot();
}

// Each iteration opens a node of Settings/<product>, stores an integer and
// releases the node, which saves the file. Another node holds the file
// throughout, so that no iteration reads it again.
inline void StoreAndSaveLoop(benchmark::State& state, const std::string& product) {
  mvtl::RefCountedPtr<mvcs::IMorvSettings> keeper;
  mvcs::CreateMorvSettings("Settings/" + product, mvcs::MORVSETTINGSTYPE_USER, &keeper);
  long long counter = 0;
  for (auto _ : state) {
    mvtl::RefCountedPtr<mvcs::IMorvSettings> node;
    mvcs::CreateMorvSettings("Settings/" + product, mvcs::MORVSETTINGSTYPE_USER, &node);
    if (!node || !node->StoreInteger(std::string("Counter"), ++counter)) {
      state.SkipWithError("store failed");
    }
  }
}

// The floor of a save: each iteration writes `bytes` to a temporary file
// beside `path`, syncs it and renames it over another (both removed after);
// with `syncFolder`, then also syncs the folder, as a save must for the
// rename to survive a power loss.
inline void PlainWrite(benchmark::State& state, const std::string& path, const std::string& bytes,
                       bool syncFolder = false) {
  const std::string temporary = path + ".plain";
  const std::string target = path + ".plain-target";
  const std::string folder = path.substr(0, path.rfind('/'));
  for (auto _ : state) {
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || write(fd, bytes.data(), bytes.size()) < 0 || fsync(fd) != 0) {
      state.SkipWithError("write failed");
    }
    close(fd);
    std::rename(temporary.c_str(), target.c_str());
    if (syncFolder) {
      const int folderFd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      if (folderFd < 0 || fsync(folderFd) != 0) state.SkipWithError("folder sync failed");
      if (folderFd >= 0) close(folderFd);
    }
  }
  unlink(target.c_str());
}

}  // namespace bench

#endif  // MORV_BENCH_BENCHFILES_H
