// A key that this process deleted and then made again, saved after
// another process saved the same file: the save merges this process's
// changes into the file as the other process left it, and the key must
// come out as this process made it again, holding only what was stored in
// it since the deletion. What the deleted key held must not come back
// from the disk's copy, and the other process's change must stay.
//
// Each scenario runs in a child process (ChildScenario.h), so that a store
// that aborts fails the test instead of ending the test program. The
// other process is the built morv-settings (and SettingsHelper, which
// holds a file's lock); the file is read back with Python's plistlib.

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "ChildScenario.h"
#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "Plistlib.h"
#include "ProcessRunner.h"
#include "SettingsFixtures.h"
#include "SettingsToolFixture.h"

namespace {

using fixtures::Node;
using Lines = std::vector<std::string>;

const char kHelper[] = MORV_SETTINGS_HELPER;
const mvcs::MORVSETTINGSTYPE kCreate = mvcs::MORVSETTINGSTYPE_USER_CREATE;

// The file after the scenarios: Net made again with Port alone, and the
// other process's Other.
const Lines kNetAgainAndOther = {"\tdict\t1",
                                 "/Settings\tdict\t1",
                                 "/Settings/P\tdict\t2",
                                 "/Settings/P/Net\tdict\t1",
                                 "/Settings/P/Net/Port\tint\t9090",
                                 "/Settings/P/Other\tint\t1"};

class SettingsMergeDeletion : public tool::SettingsTool {
 protected:
  void SetUp() override {
    tool::SettingsTool::SetUp();
    child::ForkTheTestAsItStands();
  }

  // Settings/P/Net = {Host: "a", Port: 1} in P's per-user file.
  void WriteNet() {
    Ok({"write", "P", "Net/Host", "string", "a"});
    Ok({"write", "P", "Net/Port", "int", "1"});
  }

  Lines Dump() const { return plistlib::Dump(UserFile("P")); }

  // Through a node on Settings/P: deletes Net, makes it again and stores
  // Port in it (`net`); then another process saves the file, before this
  // one does.
  void DeleteNetAndMakeItAgain(Node& product, Node& net) {
    product = fixtures::Open("Settings/P", kCreate);
    ASSERT_NE(product.Get(), nullptr);
    ASSERT_TRUE(product->Delete(std::string("Net")));
    ASSERT_TRUE(product->GetChild(std::string("Net"), &net));
    ASSERT_TRUE(net->StoreInt32(std::string("Port"), 9090));
    Ok({"write", "P", "Other", "int", "1"});
  }
};

TEST_F(SettingsMergeDeletion, AKeyDeletedAndMadeAgainHoldsOnlyWhatWasStoredSince) {
  WriteNet();
  const auto scenario = [&] {
    Node product, net;
    DeleteNetAndMakeItAgain(product, net);
    ASSERT_TRUE(mvcs::SaveSettings(product.Get()).IsOk());
    // The open nodes see the merged file.
    std::set<std::string> names;
    EXPECT_TRUE(net->GetValueNames(names));
    EXPECT_EQ(names, std::set<std::string>({"Port"}));
    std::string host = "none";
    EXPECT_FALSE(net->FetchUTF8String(std::string("Host"), host));
    EXPECT_EQ(host, "none");
    EXPECT_TRUE(product->GetValueNames(names));
    EXPECT_EQ(names, std::set<std::string>({"Other"}));
    net = Node();
    product = Node();
  };
  EXPECT_EXIT(child::Run(scenario), ::testing::ExitedWithCode(0), "");
  EXPECT_EQ(Dump(), kNetAgainAndOther);
}

TEST_F(SettingsMergeDeletion, AKeyDeletedAndMadeAgainThroughReleasedNodesHoldsOnlyTheNewEntries) {
  WriteNet();
  const auto scenario = [&] {
    Node product, net;
    DeleteNetAndMakeItAgain(product, net);
    // The last release saves.
    net = Node();
    product = Node();
  };
  EXPECT_EXIT(child::Run(scenario), ::testing::ExitedWithCode(0), "");
  EXPECT_EQ(Dump(), kNetAgainAndOther);
}

TEST_F(SettingsMergeDeletion, ANodeThatDeletedItselfAndMadeItsKeyAgainHoldsOnlyTheNewEntries) {
  WriteNet();
  const auto scenario = [&] {
    // This node keeps the file in memory throughout.
    Node product = fixtures::Open("Settings/P", kCreate);
    Node net = fixtures::Open("Settings/P/Net", kCreate);
    ASSERT_NE(product.Get(), nullptr);
    ASSERT_NE(net.Get(), nullptr);
    // Delete() saves at once; while another program holds the file's lock
    // that save fails, and the deletion waits in memory for the next save.
    process::Child holder = process::Start({kHelper, "hold-lock", UserFile("P"), "30"});
    for (int i = 0; i < 500 && process::OutputSoFar(holder) != "locked\n"; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(process::OutputSoFar(holder), "locked\n");
    const unsigned previous = mvcs::SetSaveLockTimeout(100);
    EXPECT_TRUE(net->Delete());
    kill(holder.pid, SIGTERM);
    process::Finish(holder);
    mvcs::SetSaveLockTimeout(previous);
    // Another process saves; then this node makes its key again.
    Ok({"write", "P", "Other", "int", "1"});
    ASSERT_TRUE(net->StoreInt32(std::string("Port"), 9090));
    net = Node();
    product = Node();
  };
  EXPECT_EXIT(child::Run(scenario), ::testing::ExitedWithCode(0), "");
  EXPECT_EQ(Dump(), kNetAgainAndOther);
}

}  // namespace
