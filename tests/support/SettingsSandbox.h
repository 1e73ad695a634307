// A test fixture for the settings store: fresh temporary folders for
// XDG_CONFIG_HOME and XDG_CONFIG_DIRS (so no test reaches the real home or
// /etc), removed afterwards, and helpers to look at the files.

#ifndef MORV_TESTS_SETTINGSSANDBOX_H
#define MORV_TESTS_SETTINGSSANDBOX_H

#include <dirent.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>

namespace sandbox {

inline bool Exists(const std::string& path) {
  struct stat info;
  return lstat(path.c_str(), &info) == 0;
}

inline std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Writes `bytes` to `path`, making the folders above it.
inline void WriteFile(const std::string& path, const std::string& bytes) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    mkdir(path.substr(0, slash).c_str(), 0777);
  }
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

// The names in a folder (without "." and "..").
inline std::set<std::string> List(const std::string& directory) {
  std::set<std::string> names;
  if (DIR* dir = opendir(directory.c_str())) {
    while (dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.insert(name);
    }
    closedir(dir);
  }
  return names;
}

// The names in a folder, without the lock files of settings files
// ("<file>.lock"), which a save makes when it can.
inline std::set<std::string> ListWithoutLocks(const std::string& directory) {
  std::set<std::string> names = List(directory);
  for (auto it = names.begin(); it != names.end();) {
    const bool lock = it->size() > 5 && it->compare(it->size() - 5, 5, ".lock") == 0;
    it = lock ? names.erase(it) : std::next(it);
  }
  return names;
}

inline void RemoveTree(const std::string& path) {
  struct stat info;
  if (lstat(path.c_str(), &info) != 0) return;
  if (S_ISDIR(info.st_mode)) {
    chmod(path.c_str(), 0700);
    for (const std::string& name : List(path)) RemoveTree(path + "/" + name);
    rmdir(path.c_str());
  } else {
    unlink(path.c_str());
  }
}

// Runs a shell command; returns its exit status and, in `output`, what it
// printed on standard output.
inline int Run(const std::string& command, std::string* output = nullptr) {
  FILE* pipe = popen(command.c_str(), "r");
  if (pipe == nullptr) return -1;
  std::string text;
  char buffer[4096];
  std::size_t got;
  while ((got = fread(buffer, 1, sizeof(buffer), pipe)) > 0) text.append(buffer, got);
  const int status = pclose(pipe);
  if (output != nullptr) *output = text;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The fixture. Each test gets its own folders: <root>/home (the user's
// config folder) and <root>/xdg (the machine-wide one).
class SettingsSandbox : public ::testing::Test {
 protected:
  void SetUp() override {
    const char* tmp = getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp ? tmp : "/tmp") + "/morv-test-XXXXXX";
    ASSERT_NE(mkdtemp(&pattern[0]), nullptr);
    m_root = pattern;
    chmod(m_root.c_str(), 0777);  // reachable for tests that drop privileges
    m_userConfig = m_root + "/home";
    m_machineConfig = m_root + "/xdg";
    setenv("XDG_CONFIG_HOME", m_userConfig.c_str(), 1);
    setenv("XDG_CONFIG_DIRS", (m_machineConfig + ":/etc/xdg").c_str(), 1);
  }

  void TearDown() override { RemoveTree(m_root); }

  // The per-user file of `productId` and the shared file.
  std::string UserFile(const std::string& productId) const {
    return m_userConfig + "/Preferences/" +
           (productId.empty() ? std::string("com.morv.plist") : "com.morv." + productId + ".plist");
  }
  std::string SharedFile() const { return m_machineConfig + "/Morv/Preferences/com.morv.plist"; }
  std::string UserFolder() const { return m_userConfig + "/Preferences"; }
  std::string SharedFolder() const { return m_machineConfig + "/Morv/Preferences"; }

  std::string m_root;
  std::string m_userConfig;
  std::string m_machineConfig;
};

}  // namespace sandbox

#endif  // MORV_TESTS_SETTINGSSANDBOX_H
