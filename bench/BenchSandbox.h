// A temporary settings folder for a benchmark program: a fresh folder under
// /tmp, with XDG_CONFIG_HOME and XDG_CONFIG_DIRS pointing into it (so that
// no benchmark touches the real settings), removed when the program exits.

#ifndef MORV_BENCH_BENCHSANDBOX_H
#define MORV_BENCH_BENCHSANDBOX_H

#include <stdlib.h>

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

}  // namespace bench

#endif  // MORV_BENCH_BENCHSANDBOX_H
