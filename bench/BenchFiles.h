// Files for the settings benchmarks: a temporary settings folder for the
// program (a fresh folder under /tmp, with XDG_CONFIG_HOME and
// XDG_CONFIG_DIRS pointing into it, so that no benchmark touches the real
// settings, removed when the program exits), and the floor that saves are
// measured against.

#ifndef MORV_BENCH_BENCHFILES_H
#define MORV_BENCH_BENCHFILES_H

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>

#include <cstdlib>
#include <string>

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

// The floor of a save: each iteration writes `bytes` to a temporary file
// beside `path`, syncs it and renames it over another (both removed after).
inline void PlainWrite(benchmark::State& state, const std::string& path, const std::string& bytes) {
  const std::string temporary = path + ".plain";
  const std::string target = path + ".plain-target";
  for (auto _ : state) {
    const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || write(fd, bytes.data(), bytes.size()) < 0 || fsync(fd) != 0) {
      state.SkipWithError("write failed");
    }
    close(fd);
    std::rename(temporary.c_str(), target.c_str());
  }
  unlink(target.c_str());
}

}  // namespace bench

#endif  // MORV_BENCH_BENCHFILES_H
