// Saves under failing file-system calls. For each of six situations (a node
// save; a merge after another process's save; a garbage file moved aside;
// missing folders; a stale temporary file; a one-call store), every call
// that the save makes is failed in turn, once with each of EIO, ENOSPC,
// EACCES and EINTR, through the store's file-system seam. After each case:
// the result tells the truth (EINTR is retried and the save succeeds; a
// save that reports success has its change on disk, and every flush of it
// succeeded), the file on disk is
// the old or the new one, nothing is left of the save's temporary file,
// nothing is moved aside that the format did not refuse, and the next save
// (with the file system working again) writes the change. Every file that a
// case leaves is read by python3's plistlib at the end.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "FileSystem.h"
#include "KeyPath.h"
#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsSimple.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "PassThroughFileSystem.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"
#include "format/PListFormat.h"

namespace {

// The POSIX file system, with the `at`-th call (from 1) of the call named
// `call` failing with `error` while armed. Counts every call while armed.
class FaultyFileSystem : public PassThroughFileSystem {
 public:
  void Arm(const std::string& call, int at, int error) {
    m_call = call;
    m_at = at;
    m_error = error;
    m_counts.clear();
    m_failed = false;
  }
  const std::map<std::string, int>& Counts() const { return m_counts; }
  bool Failed() const { return m_failed; }

  int Open(const char* path, int flags, mode_t mode) override {
    return Hit("open") ? -1 : Posix().Open(path, flags, mode);
  }
  int Close(int fd) override {
    // A close that fails has closed the descriptor all the same (Linux).
    const bool fail = Hit("close");
    const int result = Posix().Close(fd);
    if (fail) errno = m_error;
    return fail ? -1 : result;
  }
  ssize_t Read(int fd, void* buffer, size_t size) override {
    return Hit("read") ? -1 : Posix().Read(fd, buffer, size);
  }
  ssize_t Write(int fd, const void* data, size_t size) override {
    return Hit("write") ? -1 : Posix().Write(fd, data, size);
  }
  int Fstat(int fd, struct stat* info) override {
    return Hit("fstat") ? -1 : Posix().Fstat(fd, info);
  }
  int Stat(const char* path, struct stat* info) override {
    return Hit("stat") ? -1 : Posix().Stat(path, info);
  }
  int Lstat(const char* path, struct stat* info) override {
    return Hit("lstat") ? -1 : Posix().Lstat(path, info);
  }
  int Fsync(int fd) override { return Hit("fsync") ? -1 : Posix().Fsync(fd); }
  int Fchmod(int fd, mode_t mode) override { return Hit("fchmod") ? -1 : Posix().Fchmod(fd, mode); }
  int Fchown(int fd, uid_t owner, gid_t group) override {
    return Hit("fchown") ? -1 : Posix().Fchown(fd, owner, group);
  }
  int MakeTemporary(char* name, int flags) override {
    return Hit("mkostemp") ? -1 : Posix().MakeTemporary(name, flags);
  }
  int Rename(const char* from, const char* to) override {
    return Hit("rename") ? -1 : Posix().Rename(from, to);
  }
  int Unlink(const char* path) override { return Hit("unlink") ? -1 : Posix().Unlink(path); }
  int Mkdir(const char* path, mode_t mode) override {
    return Hit("mkdir") ? -1 : Posix().Mkdir(path, mode);
  }
  int Flock(int fd, int operation) override {
    return Hit("flock") ? -1 : Posix().Flock(fd, operation);
  }
  int ListFolder(const char* path, std::vector<std::string>& names) override {
    return Hit("listfolder") ? -1 : Posix().ListFolder(path, names);
  }
  int RealPath(const char* path, std::string& resolved) override {
    return Hit("realpath") ? -1 : Posix().RealPath(path, resolved);
  }

 private:
  // Counts a call; true (errno set) when it is the one to fail.
  bool Hit(const char* call) {
    const int count = ++m_counts[call];
    if (call != m_call || count != m_at) return false;
    m_failed = true;
    errno = m_error;
    return true;
  }

  std::string m_call;
  int m_at = 0;
  int m_error = 0;
  bool m_failed = false;
  std::map<std::string, int> m_counts;
};

// One situation: what is on disk before, and the save under test.
struct Situation {
  const char* name;
  // Prepares the folders (`user` is the user's config folder) and opens
  // what the save needs; called with the file system working.
  std::function<void(const std::string& user)> before;
  // The save; its result (true for the one-call store, whose result is the
  // store's, not the save's).
  std::function<bool()> save;
  bool merges = false;         // another process's entry must survive
  bool garbage = false;        // the old file is garbage, to be moved aside
  bool reportsTheSave = true;  // whether the result is the save's
};

class SettingsFaultInjection : public sandbox::SettingsSandbox {
 protected:
  void TearDown() override {
    mvcs::SetFileSystem(nullptr);
    m_node = fixtures::Node();
    SettingsSandbox::TearDown();
  }

  std::string File(const std::string& user) const { return user + "/Preferences/com.morv.P.plist"; }

  // The file's Settings/P/<name> as an integer, or -1.
  static long long IntegerOnDisk(const std::string& path, const std::string& name) {
    mvtl::RefCountedPtr<mvcs::PListDictionary> root;
    if (!mvcs::ParsePropertyList(sandbox::ReadFile(path), root).ok()) return -1;
    const mvcs::PListDictionary* p =
        mvcs::FindDictionary<const mvcs::PListDictionary>(root.Get(), {"Settings", "P"});
    const mvcs::PListValue* value = p != nullptr ? p->Find(name) : nullptr;
    const mvcs::PListInteger* integer =
        value != nullptr ? std::get_if<mvcs::PListInteger>(value) : nullptr;
    return integer != nullptr ? integer->bits : -1;
  }

  std::vector<Situation> Situations() {
    const std::string original = fixtures::Plist(fixtures::Key(
        "Settings", fixtures::Dict(fixtures::Key(
                        "P", fixtures::Dict(fixtures::Key("a", fixtures::Integer(1)))))));
    auto openAndStore = [this] {
      m_node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
      ASSERT_NE(m_node.Get(), nullptr);
      ASSERT_TRUE(m_node->StoreInteger(std::string("b"), 2));
    };
    auto saveNode = [this] { return mvcs::SaveSettings(m_node.Get()).IsOk(); };
    std::vector<Situation> situations;
    situations.push_back({"node save",
                          [=](const std::string& user) {
                            sandbox::WriteFile(File(user), original);
                            openAndStore();
                          },
                          saveNode});
    situations.push_back(
        {"merge after another process's save",
         [=](const std::string& user) {
           sandbox::WriteFile(File(user), original);
           openAndStore();
           // Another process saves meanwhile (a new file, renamed in).
           sandbox::WriteFile(
               File(user) + ".other",
               fixtures::Plist(fixtures::Key(
                   "Settings",
                   fixtures::Dict(fixtures::Key(
                       "P", fixtures::Dict(fixtures::Key("a", fixtures::Integer(1)) +
                                           fixtures::Key("c", fixtures::Integer(3))))))));
           rename((File(user) + ".other").c_str(), File(user).c_str());
         },
         saveNode, true});
    situations.push_back({"garbage moved aside",
                          [=](const std::string& user) {
                            sandbox::WriteFile(File(user), "garbage, not a property list");
                            openAndStore();
                          },
                          saveNode, false, true});
    situations.push_back(
        {"missing folders", [=](const std::string&) { openAndStore(); }, saveNode});
    situations.push_back({"stale temporary file",
                          [=](const std::string& user) {
                            sandbox::WriteFile(File(user), original);
                            sandbox::WriteFile(
                                user + "/Preferences/.com.morv.P.plist.morv-save-Ab3xYz", "x");
                            openAndStore();
                          },
                          saveNode});
    situations.push_back(
        {"one-call store",
         [=](const std::string& user) { sandbox::WriteFile(File(user), original); },
         [] { return mvcs::StoreInteger(std::string("P"), std::string("b"), 2); }, false, false,
         false});
    return situations;
  }

  fixtures::Node m_node;
};

TEST_F(SettingsFaultInjection, EveryFailingCallOfASaveLeavesTheTruthOnDisk) {
  FaultyFileSystem faulty;
  const int errors[] = {EIO, ENOSPC, EACCES, EINTR};
  const std::string collected = m_root + "/collected";
  ASSERT_EQ(mkdir(collected.c_str(), 0777), 0);
  int cases = 0;
  int reportedFailures = 0;
  for (const Situation& situation : Situations()) {
    // The calls that the save makes, counted on a save that works.
    std::map<std::string, int> calls;
    {
      const std::string user = m_root + "/count";
      setenv("XDG_CONFIG_HOME", user.c_str(), 1);
      situation.before(user);
      faulty.Arm("", 0, 0);
      mvcs::SetFileSystem(&faulty);
      ASSERT_TRUE(situation.save()) << situation.name;
      mvcs::SetFileSystem(nullptr);
      calls = faulty.Counts();
      m_node = fixtures::Node();
      sandbox::RemoveTree(user);
    }
    ASSERT_FALSE(calls.empty());
    for (const auto& call : calls) {
      for (int at = 1; at <= call.second; ++at) {
        for (int error : errors) {
          const std::string where = std::string(situation.name) + ": " + call.first + " #" +
                                    std::to_string(at) + " fails with " + std::strerror(error);
          const std::string user = m_root + "/case" + std::to_string(++cases);
          setenv("XDG_CONFIG_HOME", user.c_str(), 1);
          situation.before(user);
          const std::string before = sandbox::ReadFile(File(user));
          const bool existed = sandbox::Exists(File(user));
          faulty.Arm(call.first, at, error);
          mvcs::SetFileSystem(&faulty);
          const bool saved = situation.save();
          mvcs::SetFileSystem(nullptr);
          if (!saved) ++reportedFailures;
          if (error == EINTR) {
            EXPECT_TRUE(saved) << where << ": an interruption is retried";
          }
          const bool onDisk = IntegerOnDisk(File(user), "b") == 2;
          if (saved && situation.reportsTheSave) {
            EXPECT_TRUE(onDisk) << where;
          }
          // Every fsync of a save is for durability (the file, its folder,
          // folders made): a save whose flush failed did not succeed.
          if (call.first == "fsync" && error != EINTR && situation.reportsTheSave) {
            EXPECT_FALSE(saved) << where << ": a failed flush is a failed save";
          }
          if (onDisk) {
            if (situation.merges) {
              EXPECT_EQ(IntegerOnDisk(File(user), "c"), 3) << where;
            }
          } else if (!situation.garbage) {
            EXPECT_EQ(sandbox::ReadFile(File(user)), before) << where << ": the old file";
            EXPECT_EQ(sandbox::Exists(File(user)), existed) << where;
          }
          // Nothing of this save's temporary file; nothing moved aside but
          // garbage.
          int aside = 0;
          for (const std::string& name : sandbox::List(user + "/Preferences")) {
            if (name.find(".morv-save-") != std::string::npos) {
              EXPECT_EQ(name, ".com.morv.P.plist.morv-save-Ab3xYz") << where << ": " << name;
            }
            if (name.find(".unreadable-") != std::string::npos) {
              ++aside;
              EXPECT_EQ(sandbox::ReadFile(user + "/Preferences/" + name), before) << where;
            }
          }
          EXPECT_EQ(aside, situation.garbage && (onDisk || !sandbox::Exists(File(user))) ? 1 : 0)
              << where;
          // The next save, with the file system working, writes the change.
          if (m_node.Get() != nullptr) {
            EXPECT_TRUE(mvcs::SaveSettings(m_node.Get()).IsOk()) << where;
            m_node = fixtures::Node();
            EXPECT_EQ(IntegerOnDisk(File(user), "b"), 2) << where << ": the next save";
          }
          if (sandbox::Exists(File(user))) {
            rename(File(user).c_str(),
                   (collected + "/" + std::to_string(cases) + ".plist").c_str());
          }
          sandbox::RemoveTree(user);
          if (HasFailure()) return;
        }
      }
    }
  }
  // Enough cases to mean something, and some of them failed the save.
  EXPECT_GT(cases, 300);
  EXPECT_GT(reportedFailures, 50);
  // plistlib reads every file that a case left.
  std::string output;
  EXPECT_EQ(sandbox::Run("python3 -c 'import plistlib, sys\n"
                         "for path in sys.argv[1:]:\n"
                         "    plistlib.load(open(path, \"rb\"))\n"
                         "print(len(sys.argv) - 1)' " +
                             collected + "/*.plist",
                         &output),
            0);
  EXPECT_GT(std::stoi(output.empty() ? "0" : output), 300);
  std::printf("fault-injection cases: %d, saves reported failed: %d, files read by plistlib: %s",
              cases, reportedFailures, output.c_str());
}

}  // namespace
