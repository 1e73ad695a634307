// Following settings while running: refreshing open nodes with what other
// processes saved, and watchers that report each kind of change (values
// added, changed, removed; keys added, removed; files deleted and made
// again; folders made later; files written in place), quickly, and always
// the last state when saves come fast.

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsSimple.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvSettings/MorvSettingsWatch.h"
#include "ProcessRunner.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Node;
using mvcs::SettingsChange;
using mvcs::SettingsWatcher;

const char kHelper[] = MORV_SETTINGS_HELPER;

// Runs the helper (another process) in `mode`.
void Helper(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {kHelper};
  command.insert(command.end(), arguments.begin(), arguments.end());
  const process::Result result = process::Run(command);
  EXPECT_EQ(result.exitStatus, 0) << result.errorOutput;
}

// Waits (at most `seconds`) until the watcher's descriptor is readable and
// its changes are not empty; returns them.
std::vector<SettingsChange> WaitForChanges(SettingsWatcher& watcher, double seconds = 5) {
  std::vector<SettingsChange> changes;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  while (changes.empty() && std::chrono::steady_clock::now() < deadline) {
    pollfd wait = {watcher.GetFileDescriptor(), POLLIN, 0};
    poll(&wait, 1, 50);
    EXPECT_TRUE(watcher.ReadChanges(changes));
  }
  return changes;
}

std::string Describe(const std::vector<SettingsChange>& changes) {
  std::string text;
  for (const SettingsChange& change : changes) {
    text += change.type == SettingsChange::ADDED     ? "added "
            : change.type == SettingsChange::REMOVED ? "removed "
                                                     : "changed ";
    text += change.path + ";";
  }
  return text;
}

class SettingsWatch : public sandbox::SettingsSandbox {};

// --- Refresh -------------------------------------------------------------------------

TEST_F(SettingsWatch, RefreshBringsInWhatAnotherProcessSaved) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("a"), 1));
  Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(node.Get(), nullptr);
  bool changed = true;
  EXPECT_TRUE(mvcs::RefreshSettings(node.Get(), &changed));
  EXPECT_FALSE(changed);  // nothing changed: nothing read
  Helper({"store", "P", "a", "2"});
  Helper({"store", "P", "b", "3"});
  long long value = 0;
  ASSERT_TRUE(node->FetchInteger(std::string("a"), value));
  EXPECT_EQ(value, 1);  // the process's own copy, until it refreshes
  EXPECT_TRUE(mvcs::RefreshSettings(node.Get(), &changed));
  EXPECT_TRUE(changed);
  ASSERT_TRUE(node->FetchInteger(std::string("a"), value));
  EXPECT_EQ(value, 2);
  ASSERT_TRUE(node->FetchInteger(std::string("b"), value));
  EXPECT_EQ(value, 3);
  EXPECT_TRUE(mvcs::RefreshSettings(node.Get(), &changed));
  EXPECT_FALSE(changed);
}

TEST_F(SettingsWatch, RefreshKeepsOwnUnsavedChangesOnTop) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("a"), 1));
  Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_TRUE(node->StoreInteger(std::string("mine"), 10));  // not saved
  ASSERT_TRUE(node->StoreInteger(std::string("a"), 11));     // not saved
  Helper({"store", "P", "a", "2"});
  Helper({"store", "P", "theirs", "20"});
  ASSERT_TRUE(mvcs::RefreshSettings(node.Get()));
  long long value = 0;
  ASSERT_TRUE(node->FetchInteger(std::string("mine"), value));
  EXPECT_EQ(value, 10);
  ASSERT_TRUE(node->FetchInteger(std::string("a"), value));
  EXPECT_EQ(value, 11);  // this process's change stays on top
  ASSERT_TRUE(node->FetchInteger(std::string("theirs"), value));
  EXPECT_EQ(value, 20);
  // Still unsaved: the save writes them, over the other process's.
  ASSERT_TRUE(mvcs::SaveSettings(node.Get()).IsOk());
  node = Node();
  ASSERT_TRUE(mvcs::FetchInteger(std::string("P"), std::string("a"), value));
  EXPECT_EQ(value, 11);
  ASSERT_TRUE(mvcs::FetchInteger(std::string("P"), std::string("theirs"), value));
  EXPECT_EQ(value, 20);
}

TEST_F(SettingsWatch, RefreshOfAFileThatCannotBeReadKeepsTheCopy) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("a"), 1));
  Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  sandbox::WriteFile(UserFile("P"), "not a property list");
  EXPECT_FALSE(mvcs::RefreshSettings(node.Get()));
  long long value = 0;
  ASSERT_TRUE(node->FetchInteger(std::string("a"), value));
  EXPECT_EQ(value, 1);
  EXPECT_FALSE(mvcs::RefreshSettings(nullptr));
}

// --- Watchers ------------------------------------------------------------------------

TEST_F(SettingsWatch, ValuesAddedChangedAndRemovedAreReportedWithTheirValues) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("port"), 8080));
  SettingsWatcher watcher("P", false);
  ASSERT_TRUE(watcher.IsValid());
  std::vector<SettingsChange> none;
  ASSERT_TRUE(watcher.ReadChanges(none));
  EXPECT_TRUE(none.empty());  // the starting state is not a change

  Helper({"store", "P", "port", "9090"});
  std::vector<SettingsChange> changes = WaitForChanges(watcher);
  ASSERT_EQ(changes.size(), 1u) << Describe(changes);
  EXPECT_EQ(changes[0].type, SettingsChange::CHANGED);
  EXPECT_EQ(changes[0].path, "port");
  EXPECT_EQ(changes[0].oldValue.kind, mvcs::MORVVALUEKIND_INTEGER);
  EXPECT_EQ(changes[0].oldValue.integer, 8080);
  EXPECT_EQ(changes[0].newValue.integer, 9090);

  ASSERT_TRUE(mvcs::StoreUTF8String(std::string("P"), std::string("name"), "Living room"));
  changes = WaitForChanges(watcher);
  ASSERT_EQ(changes.size(), 1u) << Describe(changes);
  EXPECT_EQ(changes[0].type, SettingsChange::ADDED);
  EXPECT_EQ(changes[0].path, "name");
  EXPECT_EQ(changes[0].oldValue.kind, mvcs::MORVVALUEKIND_NONE);
  EXPECT_EQ(changes[0].newValue.kind, mvcs::MORVVALUEKIND_STRING);
  EXPECT_EQ(changes[0].newValue.text, "Living room");

  Helper({"delete", "P", "port"});
  changes = WaitForChanges(watcher);
  ASSERT_EQ(changes.size(), 1u) << Describe(changes);
  EXPECT_EQ(changes[0].type, SettingsChange::REMOVED);
  EXPECT_EQ(changes[0].path, "port");
  EXPECT_EQ(changes[0].oldValue.integer, 9090);
  EXPECT_EQ(changes[0].newValue.kind, mvcs::MORVVALUEKIND_NONE);
}

TEST_F(SettingsWatch, KeysAddedAndRemovedAndChangesBelowThem) {
  SettingsWatcher watcher("P", false);
  ASSERT_TRUE(watcher.IsValid());
  {
    Node network = fixtures::Open("Settings/P/Network", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    ASSERT_TRUE(network->StoreInteger(std::string("HttpPort"), 80));
  }
  std::vector<SettingsChange> changes = WaitForChanges(watcher);
  ASSERT_EQ(changes.size(), 1u) << Describe(changes);
  EXPECT_EQ(changes[0].type, SettingsChange::ADDED);
  EXPECT_EQ(changes[0].path, "Network");
  EXPECT_EQ(changes[0].newValue.kind, mvcs::MORVVALUEKIND_DICTIONARY);
  ASSERT_EQ(changes[0].newValue.entries.size(), 1u);
  EXPECT_EQ(changes[0].newValue.entries[0].name, "HttpPort");
  {
    Node network = fixtures::Open("Settings/P/Network", mvcs::MORVSETTINGSTYPE_USER);
    ASSERT_TRUE(network->StoreInteger(std::string("HttpPort"), 81));
  }
  changes = WaitForChanges(watcher);
  ASSERT_EQ(changes.size(), 1u) << Describe(changes);
  EXPECT_EQ(changes[0].path, "Network/HttpPort");
  EXPECT_EQ(changes[0].type, SettingsChange::CHANGED);
  Helper({"delete", "P", "Network"});
  changes = WaitForChanges(watcher);
  ASSERT_EQ(changes.size(), 1u) << Describe(changes);
  EXPECT_EQ(changes[0].type, SettingsChange::REMOVED);
  EXPECT_EQ(changes[0].path, "Network");
}

TEST_F(SettingsWatch, FileDeletedAndMadeAgain) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("a"), 1));
  SettingsWatcher watcher("P", false);
  ASSERT_EQ(unlink(UserFile("P").c_str()), 0);
  std::vector<SettingsChange> changes = WaitForChanges(watcher);
  EXPECT_EQ(Describe(changes), "removed a;");
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("a"), 2));
  changes = WaitForChanges(watcher);
  EXPECT_EQ(Describe(changes), "added a;");
  ASSERT_EQ(changes.size(), 1u);
  EXPECT_EQ(changes[0].newValue.integer, 2);
}

TEST_F(SettingsWatch, FoldersMadeAfterTheWatcherStarted) {
  // Nothing exists yet: not the settings folders, not their parents.
  const std::string home = m_root + "/later/config";
  setenv("XDG_CONFIG_HOME", home.c_str(), 1);
  SettingsWatcher watcher("P", false);
  ASSERT_TRUE(watcher.IsValid());
  ASSERT_EQ(mkdir((m_root + "/later").c_str(), 0755), 0);
  ASSERT_EQ(mkdir(home.c_str(), 0755), 0);
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("a"), 1));  // makes Preferences
  std::vector<SettingsChange> changes = WaitForChanges(watcher);
  EXPECT_EQ(Describe(changes), "added a;");
}

TEST_F(SettingsWatch, FileWrittenInPlaceByAnotherProgram) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("a"), 1));
  SettingsWatcher watcher("P", false);
  // Another program rewrites the file in place (same inode), as XML.
  sandbox::WriteFile(
      UserFile("P"),
      fixtures::Plist(fixtures::Key(
          "Settings", fixtures::Dict(fixtures::Key(
                          "P", fixtures::Dict(fixtures::Key("a", fixtures::Integer(5))))))));
  std::vector<SettingsChange> changes = WaitForChanges(watcher);
  ASSERT_EQ(Describe(changes), "changed a;");
  EXPECT_EQ(changes[0].newValue.integer, 5);
}

TEST_F(SettingsWatch, AChangeIsReportedWithinAHundredMilliseconds) {
  SettingsWatcher watcher("P", false);
  double slowest = 0;
  for (int i = 0; i < 10; ++i) {
    ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("a"), i));  // saved on return
    const auto saved = std::chrono::steady_clock::now();
    pollfd wait = {watcher.GetFileDescriptor(), POLLIN, 0};
    ASSERT_EQ(poll(&wait, 1, 1000), 1);
    std::vector<SettingsChange> changes;
    ASSERT_TRUE(watcher.ReadChanges(changes));
    ASSERT_EQ(changes.size(), 1u);
    slowest = std::max(
        slowest, std::chrono::duration<double>(std::chrono::steady_clock::now() - saved).count());
  }
  EXPECT_LT(slowest, 0.1);
}

TEST_F(SettingsWatch, QuickSuccessiveSavesEndInTheLastState) {
  SettingsWatcher watcher("P", false);
  Helper({"store-keys", "P", "k", "60"});  // 60 saves, one after the other
  std::vector<SettingsChange> all;
  for (int round = 0; round < 100; ++round) {
    std::vector<SettingsChange> changes = WaitForChanges(watcher, 0.2);
    all.insert(all.end(), changes.begin(), changes.end());
    if (changes.empty() && all.size() >= 60) break;
  }
  // Every key was reported added (perhaps several in one report), the last
  // state is what was reported last, and nothing is pending.
  std::vector<std::string> added;
  for (const SettingsChange& change : all) {
    ASSERT_EQ(change.type, SettingsChange::ADDED);
    added.push_back(change.path);
  }
  EXPECT_EQ(added.size(), 60u);
  std::vector<SettingsChange> rest;
  ASSERT_TRUE(watcher.ReadChanges(rest));
  EXPECT_TRUE(rest.empty());
}

TEST_F(SettingsWatch, InstallerRecordKeysAndNodes) {
  // The installer's record: the shared file.
  SettingsWatcher installer("P", true);
  // A key below a product's settings.
  SettingsWatcher network("P", false, "Network");
  ASSERT_TRUE(mvcs::StoreInstallerUTF8String(std::string("P"), std::string("InstallPath"), "/x"));
  EXPECT_EQ(Describe(WaitForChanges(installer)), "added InstallPath;");
  {
    Node node = fixtures::Open("Settings/P/Network", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    ASSERT_TRUE(node->StoreInteger(std::string("Port"), 1));
    ASSERT_TRUE(fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER)
                    ->StoreInteger(std::string("Outside"), 1));
  }
  EXPECT_EQ(Describe(WaitForChanges(network)), "added Port;");
  // A node: as its fetches see it (scope 2: the shared file below).
  Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED);
  SettingsWatcher nodeWatcher(node.Get());
  ASSERT_TRUE(nodeWatcher.IsValid());
  {
    Node shared = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_SHARED_CREATE);
    ASSERT_TRUE(shared->StoreInteger(std::string("Default"), 7));
    ASSERT_TRUE(shared->StoreInteger(std::string("Outside"), 2));  // hidden by the per-user one
  }
  EXPECT_EQ(Describe(WaitForChanges(nodeWatcher)), "added Default;");
  // Watchers that cannot be.
  EXPECT_FALSE(SettingsWatcher("", false).IsValid());
  EXPECT_FALSE(SettingsWatcher("a/b", false).IsValid());
  EXPECT_FALSE(SettingsWatcher("P", false, "a//b").IsValid());
  EXPECT_FALSE(SettingsWatcher(nullptr).IsValid());
  EXPECT_EQ(SettingsWatcher(nullptr).GetFileDescriptor(), -1);
}

}  // namespace
