// Every descriptor the store opens is close-on-exec, so that a program
// started by another thread meanwhile inherits none of them: each open and
// each temporary file of loads, saves (first save, replacing save, merge,
// a file moved aside), refreshes and one-call functions is watched through
// the store's file-system seam.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "FileSystem.h"
#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsSimple.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvSettings/MorvSettingsWatch.h"
#include "PassThroughFileSystem.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Node;

// The POSIX file system, noting every open and temporary file made
// without O_CLOEXEC.
class CheckingFileSystem : public PassThroughFileSystem {
 public:
  std::vector<std::string> inherited;  // paths opened without close-on-exec
  int opened = 0;

  int Open(const char* path, int flags, mode_t mode) override {
    Note(path, flags);
    return Posix().Open(path, flags, mode);
  }
  int MakeTemporary(char* name, int flags) override {
    Note(name, flags);
    return Posix().MakeTemporary(name, flags);
  }

 private:
  void Note(const char* path, int flags) {
    ++opened;
    if ((flags & O_CLOEXEC) == 0) inherited.push_back(path);
  }
};

class SettingsDescriptors : public sandbox::SettingsSandbox {
 protected:
  void TearDown() override {
    mvcs::SetFileSystem(nullptr);
    SettingsSandbox::TearDown();
  }
};

TEST_F(SettingsDescriptors, EveryDescriptorTheStoreOpensIsCloseOnExec) {
  CheckingFileSystem checking;
  mvcs::SetFileSystem(&checking);
  {
    // A first save (folders and file made), a load and a replacing save.
    Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    ASSERT_NE(node.Get(), nullptr);
    ASSERT_TRUE(node->StoreInteger(std::string("a"), 1));
    ASSERT_TRUE(mvcs::SaveSettings(node.Get()).IsOk());
    ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("b"), 2));
    // A merge with another process's save, and a refresh.
    sandbox::WriteFile(
        UserFile("P"),
        fixtures::Plist(fixtures::Key(
            "Settings", fixtures::Dict(fixtures::Key(
                            "P", fixtures::Dict(fixtures::Key("c", fixtures::Integer(3))))))));
    ASSERT_TRUE(mvcs::RefreshSettings(node.Get()));
    ASSERT_TRUE(node->StoreInteger(std::string("d"), 4));
    ASSERT_TRUE(mvcs::SaveSettings(node.Get()).IsOk());
    // A garbage file moved aside.
    sandbox::WriteFile(UserFile("P"), "garbage");
    ASSERT_TRUE(node->StoreInteger(std::string("e"), 5));
    const mvcs::SaveResult saved = mvcs::SaveSettings(node.Get());
    ASSERT_TRUE(saved.IsOk());
    ASSERT_EQ(saved.GetMovedAside().size(), 1u);
  }
  long long value = 0;
  ASSERT_TRUE(mvcs::FetchInteger(std::string("P"), std::string("e"), value));
  EXPECT_EQ(value, 5);
  mvcs::SetFileSystem(nullptr);
  EXPECT_GT(checking.opened, 10);
  EXPECT_TRUE(checking.inherited.empty()) << checking.inherited.front();
}

}  // namespace
