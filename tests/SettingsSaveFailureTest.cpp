// Saves that cannot write: a read-only folder, a full disk, a folder or a
// file that cannot be read. The save reports false, keeps the file dirty and
// the change in memory, leaves the old file as it was, and leaves no
// temporary file behind; SaveSettings names the file that failed and why.
//
// Permission bits do not stop root, so these scenarios run in a child
// process that gives up its privileges first (when the tests run as root).
// A full disk is simulated with a file-size limit (RLIMIT_FSIZE), which makes
// writes fail the way a full disk does.

#include <grp.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string>

#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvSettingsNode.h"
#include "PList.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Dict;
using fixtures::Integer;
using fixtures::Key;
using fixtures::Node;
using fixtures::Plist;
using mvcs::MorvSettings;
using mvcs::PList;
using mvcs::PListInteger;

const uid_t kNobody = 65534;

// Runs `scenario` in a child process, without privileges when the test runs
// as root. The scenario returns the first problem it found, or "".
std::string RunInChild(const std::function<std::string()>& scenario, bool dropPrivileges) {
  int channel[2];
  if (pipe(channel) != 0) return "pipe failed";
  const pid_t child = fork();
  if (child == 0) {
    close(channel[0]);
    std::string problem;
    if (dropPrivileges && geteuid() == 0 &&
        (setgroups(0, nullptr) != 0 || setgid(kNobody) != 0 || setuid(kNobody) != 0)) {
      problem = "could not drop privileges";
    } else {
      problem = scenario();
    }
    if (write(channel[1], problem.data(), problem.size()) < 0) _exit(2);
    _exit(problem.empty() ? 0 : 1);
  }
  close(channel[1]);
  std::string problem;
  char buffer[512];
  ssize_t got;
  while ((got = read(channel[0], buffer, sizeof(buffer))) > 0) problem.append(buffer, got);
  close(channel[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (!WIFEXITED(status)) return "the child process died: " + problem;
  return problem;
}

#define CHECK(condition)                                         \
  do {                                                           \
    if (!(condition)) return std::string("failed: " #condition); \
  } while (0)

class SettingsSaveFailure : public sandbox::SettingsSandbox {
 protected:
  // Settings/P/<name> of the per-user file as a fresh node reads it, or -1.
  static long long UserInteger(const std::string& name) {
    Node reread = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
    long long value = -1;
    if (reread.Get() == nullptr || !reread->FetchInteger(name, value)) return -1;
    return value;
  }

  // The product's file, with Settings/P {old: 1}, readable by everyone.
  void WriteProductFile() {
    sandbox::WriteFile(UserFile("P"),
                       Plist(Key("Settings", Dict(Key("P", Dict(Key("old", Integer(1))))))));
    chmod(UserFile("P").c_str(), 0644);
    m_original = sandbox::ReadFile(UserFile("P"));
  }

  // A save that cannot write keeps everything as it was, in memory and on
  // disk; returns the first problem.
  std::string SaveFailsAndKeepsEverything() {
    const std::string path = UserFile("P");
    mvtl::RefCountedPtr<PList> file;
    PList::GetPList(path, &file);
    CHECK(file->Open(false));
    file->GetRoot()->Set("new", PListInteger{2, false});
    file->SetDirty(true);
    CHECK(!file->Save().ok());
    CHECK(file->IsDirty());                          // tried again by the next save
    CHECK(file->GetRoot()->Find("new") != nullptr);  // the change is still in memory
    CHECK(sandbox::ReadFile(path) == m_original);    // the old file is intact
    CHECK(sandbox::ListWithoutLocks(UserFolder()) == std::set<std::string>({"com.morv.P.plist"}));
    CHECK(!file->Save().ok());  // and again
    CHECK(sandbox::ListWithoutLocks(UserFolder()) == std::set<std::string>({"com.morv.P.plist"}));

    // Through a node: the store succeeds in memory, the close reports the
    // failed save, and a second node on the file still sees the change.
    Node keeper = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
    Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
    CHECK(node.Get() != nullptr && keeper.Get() != nullptr);
    CHECK(node->StoreInteger(std::string("viaNode"), 3));
    CHECK(!dynamic_cast<MorvSettings*>(node.Get())->Close());
    long long value = 0;
    CHECK(keeper->FetchInteger(std::string("viaNode"), value) && value == 3);
    CHECK(sandbox::ReadFile(path) == m_original);
    return std::string();
  }

  std::string m_original;
};

TEST_F(SettingsSaveFailure, ReadOnlyFolder) {
  WriteProductFile();
  chmod(m_userConfig.c_str(), 0755);
  chmod(UserFolder().c_str(), 0555);
  EXPECT_EQ(RunInChild([this] { return SaveFailsAndKeepsEverything(); }, true), "");
  EXPECT_EQ(sandbox::ReadFile(UserFile("P")), m_original);
}

TEST_F(SettingsSaveFailure, ReadOnlySharedFolderWhileTheUserFileSaves) {
  WriteProductFile();
  chmod(m_userConfig.c_str(), 0777);
  chmod(UserFolder().c_str(), 0777);
  sandbox::WriteFile(SharedFile(),
                     Plist(Key("Settings", Dict(Key("P", Dict(Key("shared", Integer(1))))))));
  chmod(SharedFile().c_str(), 0644);
  const std::string sharedOriginal = sandbox::ReadFile(SharedFile());
  chmod(SharedFolder().c_str(), 0555);
  EXPECT_EQ(RunInChild(
                [this] {
                  // The product's node with the shared file as fallback, and
                  // the shared file's own node: both files hold changes.
                  Node node =
                      fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_CREATE);
                  Node machine = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_SHARED);
                  CHECK(node.Get() != nullptr && machine.Get() != nullptr);
                  CHECK(node->StoreInteger(std::string("mine"), 2));
                  CHECK(machine->StoreInteger(std::string("shared"), 3));
                  const mvcs::SaveResult result = mvcs::SaveSettings(node.Get());
                  CHECK(!result.IsOk());
                  CHECK(result.GetError() == EACCES);
                  CHECK(result.GetPath() == SharedFile());
                  const std::string expected =
                      "cannot write " + SharedFile() + ": " + std::strerror(EACCES);
                  if (result.GetMessage() != expected) return "message: " + result.GetMessage();
                  return std::string();
                },
                true),
            "");
  chmod(SharedFolder().c_str(), 0755);
  EXPECT_EQ(sandbox::ReadFile(SharedFile()), sharedOriginal);
  // The per-user file was written all the same.
  EXPECT_EQ(UserInteger("mine"), 2);
}

TEST_F(SettingsSaveFailure, FullDisk) {
  WriteProductFile();
  chmod(m_userConfig.c_str(), 0777);
  chmod(UserFolder().c_str(), 0777);
  EXPECT_EQ(RunInChild(
                [this] {
                  // Writes beyond a few bytes now fail with EFBIG, as on a
                  // full disk (the signal that would announce it is ignored).
                  signal(SIGXFSZ, SIG_IGN);
                  struct rlimit limit = {16, 16};
                  setrlimit(RLIMIT_FSIZE, &limit);
                  return SaveFailsAndKeepsEverything();
                },
                false),
            "");
  EXPECT_EQ(sandbox::ReadFile(UserFile("P")), m_original);
}

TEST_F(SettingsSaveFailure, UnreadableFolderOpensNothingAndWritesNothing) {
  WriteProductFile();
  chmod(m_userConfig.c_str(), 0755);
  chmod(UserFolder().c_str(), 0000);
  EXPECT_EQ(RunInChild(
                [this] {
                  CHECK(fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER).Get() == nullptr);
                  Node created = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
                  CHECK(created.Get() != nullptr);  // starts empty, as for a missing file
                  CHECK(created->StoreInteger(std::string("x"), 1));
                  CHECK(!dynamic_cast<MorvSettings*>(created.Get())->Close());
                  return std::string();
                },
                true),
            "");
  chmod(UserFolder().c_str(), 0755);
  EXPECT_EQ(sandbox::ReadFile(UserFile("P")), m_original);
  EXPECT_EQ(sandbox::ListWithoutLocks(UserFolder()), std::set<std::string>({"com.morv.P.plist"}));
}

TEST_F(SettingsSaveFailure, AFileThisProcessMayNotReadIsLeftAlone) {
  // Not reading a file says nothing of what it holds: it is neither moved
  // aside nor replaced, and the save that would replace it fails.
  WriteProductFile();
  chmod(m_userConfig.c_str(), 0777);
  chmod(UserFolder().c_str(), 0777);
  chmod(UserFile("P").c_str(), 0000);
  EXPECT_EQ(RunInChild(
                [this] {
                  CHECK(fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER).Get() == nullptr);
                  Node created = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
                  CHECK(created.Get() != nullptr);
                  CHECK(created->StoreInteger(std::string("fresh"), 5));
                  const mvcs::SaveResult saved = mvcs::SaveSettings(created.Get());
                  CHECK(!saved.IsOk());
                  CHECK(saved.GetError() == EACCES);
                  CHECK(saved.GetPath() == UserFile("P"));
                  return std::string();
                },
                true),
            "");
  EXPECT_EQ(sandbox::List(UserFolder()),
            std::set<std::string>({"com.morv.P.plist", "com.morv.P.plist.lock"}));
  EXPECT_EQ(sandbox::ReadFile(UserFile("P")), m_original);
}

TEST_F(SettingsSaveFailure, WhatRootMakesInAUsersFolderStaysTheUsers) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  // The user's config folder belongs to the user; root saves the user's
  // settings first, making Preferences/, the file and its lock file.
  ASSERT_EQ(mkdir(m_userConfig.c_str(), 0755), 0);
  ASSERT_EQ(chown(m_userConfig.c_str(), kNobody, kNobody), 0);
  {
    Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    ASSERT_NE(node.Get(), nullptr);
    ASSERT_TRUE(node->StoreInteger(std::string("byRoot"), 1));
    ASSERT_TRUE(mvcs::SaveSettings(node.Get()).IsOk());
  }
  for (const std::string& made : {UserFolder(), UserFile("P"), UserFile("P") + ".lock"}) {
    struct stat info;
    ASSERT_EQ(stat(made.c_str(), &info), 0) << made;
    EXPECT_EQ(info.st_uid, kNobody) << made;
    EXPECT_EQ(info.st_gid, kNobody) << made;
  }
  // The user's own next save works.
  EXPECT_EQ(RunInChild(
                [] {
                  Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
                  CHECK(node.Get() != nullptr);
                  CHECK(node->StoreInteger(std::string("byUser"), 2));
                  CHECK(mvcs::SaveSettings(node.Get()).IsOk());
                  return std::string();
                },
                true),
            "");
  EXPECT_EQ(UserInteger("byUser"), 2);
}

TEST_F(SettingsSaveFailure, FolderInTheWayOfTheFile) {
  sandbox::WriteFile(UserFile("P") + "/inside", "x");  // a folder where the file goes
  {
    Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    ASSERT_NE(node.Get(), nullptr);
    ASSERT_TRUE(node->StoreInteger(std::string("x"), 1));
    EXPECT_FALSE(dynamic_cast<MorvSettings*>(node.Get())->Close());
  }
  EXPECT_EQ(sandbox::ReadFile(UserFile("P") + "/inside"), "x");
  EXPECT_EQ(sandbox::List(UserFolder()),
            std::set<std::string>({"com.morv.P.plist", "com.morv.P.plist.lock"}));
}

}  // namespace
