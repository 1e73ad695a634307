// Scopes, file locations and the factory: how a path and a scope become a
// chain of nodes, which files a scope opens, and what every scope value
// does for open, store, fetch, enumerate and delete.

#include <gtest/gtest.h>

#include <set>
#include <string>

#include "SettingsFiles.h"
#include "SettingsFixtures.h"
#include "SettingsInternals.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Dict;
using fixtures::Impl;
using fixtures::Integer;
using fixtures::Key;
using fixtures::Node;
using fixtures::Plist;
using fixtures::String;
using mvcs::MorvSettings;
using mvcs::MORVSETTINGSTYPE;

class SettingsScope : public sandbox::SettingsSandbox {};

TEST_F(SettingsScope, ProductPathBuildsTwoNodesWithProductFiles) {
  sandbox::WriteFile(SharedFile(), Plist(Key("Settings", Dict(Key("MorvMediaServer", Dict(""))))));
  Node node = fixtures::Open("Settings/MorvMediaServer", mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED);
  ASSERT_NE(node.Get(), nullptr);
  std::string name;
  ASSERT_TRUE(node->GetName(name));
  EXPECT_EQ(name, "MorvMediaServer");
  EXPECT_EQ(Impl(node)->GetFullKeyPath(), "Settings/MorvMediaServer");
  EXPECT_EQ(Impl(node)->GetUserFilePath(),
            m_userConfig + "/Preferences/com.morv.MorvMediaServer.plist");
  EXPECT_EQ(Impl(node)->GetSharedFilePath(), m_machineConfig + "/Morv/Preferences/com.morv.plist");
}

TEST_F(SettingsScope, SettingsAloneHasNoProductId) {
  Node node = fixtures::Open("Settings", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(node.Get(), nullptr);
  EXPECT_EQ(Impl(node)->GetUserFilePath(), m_userConfig + "/Preferences/com.morv.plist");
}

TEST_F(SettingsScope, SettingsMatchIsCaseSensitive) {
  Node node = fixtures::Open("settings/X", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(node.Get(), nullptr);
  EXPECT_EQ(Impl(node)->GetUserFilePath(), m_userConfig + "/Preferences/com.morv.plist");
  EXPECT_EQ(Impl(node)->GetFullKeyPath(), "settings/X");
}

TEST_F(SettingsScope, ProductIdIsTheSecondComponentOfDeeperPaths) {
  Node node = fixtures::Open("Settings/Prod/Sub/Key", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(node.Get(), nullptr);
  EXPECT_EQ(Impl(node)->GetUserFilePath(), UserFile("Prod"));
  EXPECT_EQ(Impl(node)->GetFullKeyPath(), "Settings/Prod/Sub/Key");
}

TEST_F(SettingsScope, BackslashAndSlashBothSeparate) {
  Node node = fixtures::Open("a\\b/c", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(node.Get(), nullptr);
  std::string name;
  node->GetName(name);
  EXPECT_EQ(name, "c");
  EXPECT_EQ(Impl(node)->GetFullKeyPath(), "a/b/c");
}

TEST_F(SettingsScope, EmptyComponentsFail) {
  for (const char* path : {"a//b", "/a", "a/", "", "/", "a\\\\b"}) {
    mvcs::IMorvSettings* out = reinterpret_cast<mvcs::IMorvSettings*>(0x1);
    EXPECT_FALSE(
        mvcs::CreateMorvSettings(std::string(path), mvcs::MORVSETTINGSTYPE_USER_CREATE, &out))
        << path;
    EXPECT_EQ(out, reinterpret_cast<mvcs::IMorvSettings*>(0x1)) << path;
  }
  EXPECT_FALSE(sandbox::Exists(UserFile("")));
}

TEST_F(SettingsScope, InvalidUTF8PathFails) {
  Node node;
  EXPECT_FALSE(mvcs::CreateMorvSettings(std::string("Settings/\xC3"),
                                        mvcs::MORVSETTINGSTYPE_USER_CREATE, &node));
  EXPECT_EQ(node.Get(), nullptr);
}

TEST_F(SettingsScope, WidePathIsConvertedToUTF8) {
  Node node;
  ASSERT_TRUE(mvcs::CreateMorvSettings(std::wstring(L"Settings/Caf\u00e9"),
                                       mvcs::MORVSETTINGSTYPE_USER_CREATE, &node));
  EXPECT_EQ(Impl(node)->GetUserFilePath(), UserFile("Caf\xC3\xA9"));
}

TEST_F(SettingsScope, NullOutParameterStillSucceeds) {
  EXPECT_TRUE(mvcs::CreateMorvSettings(std::string("Settings/P"),
                                       mvcs::MORVSETTINGSTYPE_USER_CREATE, nullptr));
}

TEST_F(SettingsScope, HandedOutNodeCarriesOneReference) {
  Node node = fixtures::Open("Settings/P/Q", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(node.Get(), nullptr);
  EXPECT_EQ(node->GetRefCount(), 1);  // the ancestors are gone with the factory's list
}

TEST_F(SettingsScope, OutOfRangeScopeOpensNothing) {
  Node node = fixtures::Open("Settings/P", static_cast<MORVSETTINGSTYPE>(12));
  ASSERT_NE(node.Get(), nullptr);
  EXPECT_EQ(Impl(node)->GetReadWriteKey(), nullptr);
  EXPECT_EQ(Impl(node)->GetReadKeyFallback(), nullptr);
  EXPECT_EQ(Impl(node)->GetUserFile(), nullptr);
  EXPECT_EQ(Impl(node)->GetSharedFile(), nullptr);
  EXPECT_TRUE(node->StoreInteger(std::string("x"), 1));  // stores nowhere
  node = static_cast<const mvcs::IMorvSettings*>(nullptr);
  EXPECT_FALSE(sandbox::Exists(UserFile("P")));
  EXPECT_FALSE(sandbox::Exists(SharedFile()));
}

TEST_F(SettingsScope, ScopesFourToSixStayDistinctFromOneToThree) {
  const std::string tree = Plist(Key("Settings", Dict(Key("P", Dict(Key("Kid", Dict("")))))));
  sandbox::WriteFile(UserFile("P"), tree);
  sandbox::WriteFile(SharedFile(), tree);
  for (int scope : {4, 5, 6}) {
    Node node = fixtures::Open("Settings/P", static_cast<MORVSETTINGSTYPE>(scope));
    ASSERT_NE(node.Get(), nullptr);
    EXPECT_EQ(Impl(node)->GetScope(), scope);
    Node child;
    ASSERT_TRUE(node->GetChild(std::string("Kid"), &child));
    EXPECT_EQ(Impl(child)->GetScope(), scope);  // children keep the value too
  }
  EXPECT_NE(mvcs::MORVSETTINGSTYPE_USER_ALT, mvcs::MORVSETTINGSTYPE_USER);
  EXPECT_EQ(mvcs::MORVSETTINGSTYPE_SHARED_ALT, 6);
}

TEST_F(SettingsScope, CreateScopesCreateMissingFiles) {
  for (MORVSETTINGSTYPE scope :
       {mvcs::MORVSETTINGSTYPE_USER, mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED,
        mvcs::MORVSETTINGSTYPE_SHARED, mvcs::MORVSETTINGSTYPE_USER_ALT,
        mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_ALT, mvcs::MORVSETTINGSTYPE_SHARED_ALT}) {
    EXPECT_EQ(fixtures::Open("Settings/P", scope).Get(), nullptr) << scope;
  }
  EXPECT_NE(fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE).Get(), nullptr);
  EXPECT_NE(fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_CREATE).Get(),
            nullptr);
  EXPECT_NE(fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_SHARED_CREATE).Get(), nullptr);
  // Created in memory only: nothing was stored, so nothing was written.
  EXPECT_FALSE(sandbox::Exists(UserFile("P")));
  EXPECT_FALSE(sandbox::Exists(SharedFile()));
}

TEST_F(SettingsScope, UserFolderFromHomeWhenXdgConfigHomeIsRelative) {
  setenv("XDG_CONFIG_HOME", "relative/dir", 1);
  setenv("HOME", (m_root + "/homedir").c_str(), 1);
  EXPECT_EQ(mvcs::UserPreferencesDirectory(), m_root + "/homedir/.config/Preferences");
  unsetenv("XDG_CONFIG_HOME");
  EXPECT_EQ(mvcs::UserPreferencesDirectory(), m_root + "/homedir/.config/Preferences");
  unsetenv("HOME");
  EXPECT_EQ(mvcs::UserPreferencesDirectory(), "");
  // With no user folder the per-user path stays empty, and user scopes fail.
  Node node;
  EXPECT_FALSE(mvcs::CreateMorvSettings(std::string("Settings/P"),
                                        mvcs::MORVSETTINGSTYPE_USER_CREATE, &node));
}

TEST_F(SettingsScope, SharedFolderIsFirstAbsoluteXdgConfigDirsEntry) {
  setenv("XDG_CONFIG_DIRS", ("relative:" + m_root + "/first:" + m_root + "/second").c_str(), 1);
  EXPECT_EQ(mvcs::SharedPreferencesDirectory(), m_root + "/first/Morv/Preferences");
  setenv("XDG_CONFIG_DIRS", "", 1);
  EXPECT_EQ(mvcs::SharedPreferencesDirectory(), "/etc/xdg/Morv/Preferences");
}

// Every scope value on the same two files: the per-user file holds
// Settings/P {uv: 1, both: "user"}, the shared file Settings/P
// {sv: 2, both: "shared"}.
struct ScopeExpectation {
  int scope;
  bool storesToUser, storesToShared;  // where a store lands
  bool fetchesUser, fetchesShared;    // which of uv and sv fetch
  const char* both;                   // what "both" fetches as ("" = fails)
  std::set<std::string> values;       // the value names listed
  bool deletes;                       // Delete("both") succeeds
};

class EveryScope : public sandbox::SettingsSandbox,
                   public ::testing::WithParamInterface<ScopeExpectation> {};

TEST_P(EveryScope, OpenStoreFetchEnumerateDelete) {
  const ScopeExpectation& expect = GetParam();
  sandbox::WriteFile(
      UserFile("P"),
      Plist(Key("Settings",
                Dict(Key("P", Dict(Key("uv", Integer(1)) + Key("both", String("user"))))))));
  sandbox::WriteFile(
      SharedFile(),
      Plist(Key("Settings",
                Dict(Key("P", Dict(Key("sv", Integer(2)) + Key("both", String("shared"))))))));
  const std::string userBefore = sandbox::ReadFile(UserFile("P"));
  const std::string sharedBefore = sandbox::ReadFile(SharedFile());

  Node node = fixtures::Open("Settings/P", static_cast<MORVSETTINGSTYPE>(expect.scope));
  ASSERT_NE(node.Get(), nullptr) << "every scope opens when both files have the key";

  long long number = -1;
  EXPECT_EQ(node->FetchInteger(std::string("uv"), number), expect.fetchesUser);
  EXPECT_EQ(node->FetchInteger(std::string("sv"), number), expect.fetchesShared);
  std::string both = "unchanged";
  EXPECT_EQ(node->FetchUTF8String(std::string("both"), both), *expect.both != '\0');
  EXPECT_EQ(both, *expect.both ? expect.both : "unchanged");

  std::set<std::string> names;
  EXPECT_TRUE(node->GetValueNames(names));
  EXPECT_EQ(names, expect.values);

  EXPECT_TRUE(node->StoreInteger(std::string("stored"), 7));
  EXPECT_EQ(node->Delete(std::string("both")), expect.deletes);
  node = static_cast<const mvcs::IMorvSettings*>(nullptr);  // closes and saves

  // What landed where, read back through a user-only and a shared-only node.
  Node user = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  Node shared = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_SHARED);
  ASSERT_NE(user.Get(), nullptr);
  ASSERT_NE(shared.Get(), nullptr);
  EXPECT_EQ(user->FetchInteger(std::string("stored"), number), expect.storesToUser);
  EXPECT_EQ(shared->FetchInteger(std::string("stored"), number), expect.storesToShared);
  const bool userDeleted = expect.deletes && expect.storesToUser;
  const bool sharedDeleted = expect.deletes && expect.storesToShared;
  EXPECT_EQ(user->FetchUTF8String(std::string("both"), both), !userDeleted);
  EXPECT_EQ(shared->FetchUTF8String(std::string("both"), both), !sharedDeleted);
  if (!expect.storesToUser) {
    EXPECT_EQ(sandbox::ReadFile(UserFile("P")), userBefore);
  }
  if (!expect.storesToShared) {
    EXPECT_EQ(sandbox::ReadFile(SharedFile()), sharedBefore);
  }
}

const std::set<std::string> kUserNames = {"both", "uv"};
const std::set<std::string> kSharedNames = {"both", "sv"};
const std::set<std::string> kAllNames = {"both", "sv", "uv"};
const std::set<std::string> kNoNames = {};

INSTANTIATE_TEST_SUITE_P(
    Values0To12, EveryScope,
    ::testing::Values(ScopeExpectation{0, false, false, false, false, "", kNoNames, false},
                      ScopeExpectation{1, true, false, true, false, "user", kUserNames, true},
                      ScopeExpectation{2, true, false, true, true, "user", kAllNames, true},
                      ScopeExpectation{3, false, true, false, true, "shared", kSharedNames, true},
                      ScopeExpectation{4, true, false, true, false, "user", kUserNames, true},
                      ScopeExpectation{5, true, false, true, true, "user", kAllNames, true},
                      ScopeExpectation{6, false, true, false, true, "shared", kSharedNames, true},
                      ScopeExpectation{7, true, false, true, false, "user", kUserNames, true},
                      ScopeExpectation{8, true, false, true, true, "user", kAllNames, true},
                      ScopeExpectation{9, false, true, false, true, "shared", kSharedNames, true},
                      ScopeExpectation{10, false, false, false, false, "", kNoNames, false},
                      ScopeExpectation{11, false, false, false, false, "", kNoNames, false},
                      ScopeExpectation{12, false, false, false, false, "", kNoNames, false}),
    [](const ::testing::TestParamInfo<ScopeExpectation>& info) {
      return "Scope" + std::to_string(info.param.scope);
    });

// Without the files, only the create scopes (and those with no file) open.
class EveryScopeWithoutFiles : public sandbox::SettingsSandbox,
                               public ::testing::WithParamInterface<int> {};

TEST_P(EveryScopeWithoutFiles, OpensOnlyWhenItCreatesOrNeedsNoFile) {
  const int scope = GetParam();
  const bool opens = scope == 0 || scope >= 7;
  Node node = fixtures::Open("Settings/P", static_cast<MORVSETTINGSTYPE>(scope));
  EXPECT_EQ(node.Get() != nullptr, opens);
  if (node.Get() != nullptr) {
    unsigned long count = 99;
    EXPECT_TRUE(node->GetValueCount(count));
    EXPECT_EQ(count, 0ul);
    EXPECT_TRUE(node->StoreBoolean(std::string("flag"), true));
    bool flag = false;
    EXPECT_EQ(node->FetchBoolean(std::string("flag"), flag), scope >= 7 && scope <= 9);
  }
  node = static_cast<const mvcs::IMorvSettings*>(nullptr);
  EXPECT_EQ(sandbox::Exists(UserFile("P")), scope == 7 || scope == 8);
  EXPECT_EQ(sandbox::Exists(SharedFile()), scope == 9);
}

INSTANTIATE_TEST_SUITE_P(Values0To12, EveryScopeWithoutFiles, ::testing::Range(0, 13),
                         [](const ::testing::TestParamInfo<int>& info) {
                           return "Scope" + std::to_string(info.param);
                         });

}  // namespace
