// A node whose key another process removed, or replaced with a value,
// while this process held the node open. Once this process sees the new
// file (it refreshes, or it saves the file through any node), the node
// must behave as a node whose key is missing from that file: fetches and
// queries fail, stores fail unless the scope creates keys (then the key is
// made again and saved), and a value in the way of the key blocks it. It
// must never stop the process.
//
// Each scenario runs in a child process (ChildScenario.h), so that a store
// that aborts fails the test instead of ending the test program. The
// "other process" is the built morv-settings; the files are read back with
// Python's plistlib once the child has ended.

#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "ChildScenario.h"
#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvSettings/MorvSettingsWatch.h"
#include "Plistlib.h"
#include "SettingsFixtures.h"
#include "SettingsToolFixture.h"

namespace {

using fixtures::Node;
using Lines = std::vector<std::string>;
using mvcs::MORVSETTINGSTYPE;

// Where a scope keeps Net: Settings/P/Net in P's per-user file, or, for the
// shared file's scopes, the installer's record Install/P/Net.
struct Where {
  MORVSETTINGSTYPE scope;
  bool installer;
};

void PrintTo(const Where& where, std::ostream* out) {
  *out << "scope " << static_cast<int>(where.scope)
       << (where.installer ? ", Install/P" : ", Settings/P");
}

std::string PrintScope(const ::testing::TestParamInfo<Where>& info) {
  return "Scope" + std::to_string(static_cast<int>(info.param.scope));
}

class SettingsKeyRemovedElsewhere : public tool::SettingsTool,
                                    public ::testing::WithParamInterface<Where> {
 protected:
  void SetUp() override {
    tool::SettingsTool::SetUp();
    child::ForkTheTestAsItStands();
  }

  MORVSETTINGSTYPE Scope() const { return GetParam().scope; }
  bool Installer() const { return GetParam().installer; }
  std::string Top() const { return Installer() ? "Install" : "Settings"; }
  std::string File() const { return Installer() ? SharedFile() : UserFile("P"); }

  // Runs morv-settings COMMAND [--installer] ARGUMENTS... on product P.
  void OtherProcess(const std::string& command, std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "P");
    if (Installer()) arguments.insert(arguments.begin(), "--installer");
    arguments.insert(arguments.begin(), command);
    Ok(arguments);
  }

  // Net = {Host: "a", Port: 1}.
  void WriteNet() {
    OtherProcess("write", {"Net/Host", "string", "a"});
    OtherProcess("write", {"Net/Port", "int", "1"});
  }

  // Opens Net with the test's scope and checks that it reads the file.
  Node OpenNet() const {
    Node net = fixtures::Open(Top() + "/P/Net", Scope());
    int port = 0;
    EXPECT_NE(net.Get(), nullptr);
    EXPECT_TRUE(net.Get() != nullptr && net->FetchInt32(std::string("Port"), port));
    EXPECT_EQ(port, 1);
    return net;
  }

  // What a node answers when it has no key and cannot make one: every
  // fetch and query fails and leaves its output alone (the narrow name
  // lists are emptied), and stores fail.
  static void ExpectNoKey(mvcs::IMorvSettings* net) {
    int port = -1;
    EXPECT_FALSE(net->FetchInt32(std::string("Port"), port));
    EXPECT_EQ(port, -1);
    std::string host = "unchanged";
    EXPECT_FALSE(net->FetchUTF8String(std::string("Host"), host));
    EXPECT_EQ(host, "unchanged");
    std::set<std::string> names = {"stale"};
    EXPECT_FALSE(net->GetValueNames(names));
    EXPECT_TRUE(names.empty());
    unsigned long count = 99;
    EXPECT_FALSE(net->GetValueCount(count));
    EXPECT_EQ(count, 99u);
    EXPECT_FALSE(net->GetChildCount(count));
    EXPECT_EQ(count, 99u);
    EXPECT_FALSE(net->StoreInt32(std::string("Port"), 2));
    // Still nothing after the failed store, and asking again is safe.
    EXPECT_FALSE(net->FetchInt32(std::string("Port"), port));
    EXPECT_EQ(port, -1);
  }

  // A node on Net, refreshed after another process deleted Net; null (with
  // a failure) when that could not be done.
  Node OpenNetRefreshedAfterADeleteElsewhere() {
    Node net = OpenNet();
    if (net.Get() == nullptr) return net;
    OtherProcess("delete", {"Net"});
    bool changed = false;
    EXPECT_TRUE(mvcs::RefreshSettings(net.Get(), &changed));
    EXPECT_TRUE(changed);
    return net;
  }

  // plistlib's listing of the file, with "/<Top>" for "/T" in `expected`.
  Lines Dump() const { return plistlib::Dump(File()); }
  Lines Expected(Lines lines) const {
    for (std::string& line : lines) {
      if (line.compare(0, 2, "/T") == 0) line = "/" + Top() + line.substr(2);
    }
    return lines;
  }
};

// Scopes that do not create keys: the per-user file alone, and the
// per-user file with the shared file as fallback.
class KeyRemovedUnderAReadingNode : public SettingsKeyRemovedElsewhere {
 protected:
  void RemoveThenSaveThroughAnotherNode(const std::function<void(Node&)>& save);
};
// Scopes that create keys, in the per-user file and in the shared file.
class KeyRemovedUnderACreatingNode : public SettingsKeyRemovedElsewhere {};

TEST_P(KeyRemovedUnderAReadingNode, AfterARefreshTheNodeAnswersAsWithoutItsKey) {
  WriteNet();
  const auto scenario = [&] {
    Node net = OpenNetRefreshedAfterADeleteElsewhere();
    ASSERT_NE(net.Get(), nullptr);
    ExpectNoKey(net.Get());
  };
  EXPECT_EXIT(child::Run(scenario), ::testing::ExitedWithCode(0), "");
  // Nothing brought the key back.
  EXPECT_EQ(Dump(), Expected({"\tdict\t1", "/T\tdict\t1", "/T/P\tdict\t0"}));
}

// Another process deletes Net; this process then stores through another
// node of the file and saves that node with `save`, which reads the file
// without Net; the node on Net answers as without its key.
void KeyRemovedUnderAReadingNode::RemoveThenSaveThroughAnotherNode(
    const std::function<void(Node&)>& save) {
  WriteNet();
  const auto scenario = [&] {
    Node net = OpenNet();
    Node product = fixtures::Open(Top() + "/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    ASSERT_NE(net.Get(), nullptr);
    ASSERT_NE(product.Get(), nullptr);
    OtherProcess("delete", {"Net"});
    ASSERT_TRUE(product->StoreInt32(std::string("Other"), 3));
    save(product);
    ExpectNoKey(net.Get());
  };
  EXPECT_EXIT(child::Run(scenario), ::testing::ExitedWithCode(0), "");
  EXPECT_EQ(Dump(), Expected({"\tdict\t1", "/T\tdict\t1", "/T/P\tdict\t1", "/T/P/Other\tint\t3"}));
}

TEST_P(KeyRemovedUnderAReadingNode, AfterASaveOfTheFileTheNodeAnswersAsWithoutItsKey) {
  RemoveThenSaveThroughAnotherNode(
      [](Node& product) { ASSERT_TRUE(mvcs::SaveSettings(product.Get()).IsOk()); });
}

TEST_P(KeyRemovedUnderAReadingNode,
       AfterAnotherNodeOfTheFileIsReleasedTheNodeAnswersAsWithoutItsKey) {
  RemoveThenSaveThroughAnotherNode(
      [](Node& product) { product = Node(); });  // the last release saves
}

INSTANTIATE_TEST_SUITE_P(Scopes, KeyRemovedUnderAReadingNode,
                         ::testing::Values(Where{mvcs::MORVSETTINGSTYPE_USER, false},
                                           Where{mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_ALT,
                                                 false}),
                         PrintScope);

TEST_P(KeyRemovedUnderACreatingNode, TheNodeMakesItsKeyAgainAndSavesIt) {
  WriteNet();
  const auto scenario = [&] {
    Node net = OpenNetRefreshedAfterADeleteElsewhere();
    ASSERT_NE(net.Get(), nullptr);
    // As a new node of this scope: an empty key, made again.
    int port = -1;
    EXPECT_FALSE(net->FetchInt32(std::string("Port"), port));
    EXPECT_EQ(port, -1);
    std::set<std::string> names = {"stale"};
    net->GetValueNames(names);
    EXPECT_TRUE(names.empty());
    EXPECT_TRUE(net->StoreInt32(std::string("Port"), 9090));
    EXPECT_TRUE(net->FetchInt32(std::string("Port"), port));
    EXPECT_EQ(port, 9090);
    net = Node();  // the last release saves
    // A fresh node reads the file again.
    Node reread = fixtures::Open(Top() + "/P/Net", Scope());
    ASSERT_NE(reread.Get(), nullptr);
    EXPECT_TRUE(reread->GetValueNames(names));
    EXPECT_EQ(names, std::set<std::string>({"Port"}));
  };
  EXPECT_EXIT(child::Run(scenario), ::testing::ExitedWithCode(0), "");
  EXPECT_EQ(Dump(), Expected({"\tdict\t1", "/T\tdict\t1", "/T/P\tdict\t1", "/T/P/Net\tdict\t1",
                              "/T/P/Net/Port\tint\t9090"}));
}

TEST_P(KeyRemovedUnderACreatingNode, AValueWhereTheKeyWasBlocksIt) {
  WriteNet();
  const auto scenario = [&] {
    Node net = OpenNet();
    ASSERT_NE(net.Get(), nullptr);
    // The other process replaces the key with a value.
    OtherProcess("delete", {"Net"});
    OtherProcess("write", {"Net", "int", "5"});
    bool changed = false;
    ASSERT_TRUE(mvcs::RefreshSettings(net.Get(), &changed));
    EXPECT_TRUE(changed);
    // The key cannot be made: a value of its name is in the way.
    ExpectNoKey(net.Get());
    net = Node();
    long long value = 0;
    Node product = fixtures::Open(Top() + "/P", Scope());
    ASSERT_NE(product.Get(), nullptr);
    EXPECT_TRUE(product->FetchInteger(std::string("Net"), value));
    EXPECT_EQ(value, 5);
  };
  EXPECT_EXIT(child::Run(scenario), ::testing::ExitedWithCode(0), "");
  // The other process's value stays.
  EXPECT_EQ(Dump(), Expected({"\tdict\t1", "/T\tdict\t1", "/T/P\tdict\t1", "/T/P/Net\tint\t5"}));
}

INSTANTIATE_TEST_SUITE_P(Scopes, KeyRemovedUnderACreatingNode,
                         ::testing::Values(Where{mvcs::MORVSETTINGSTYPE_USER_CREATE, false},
                                           Where{mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_CREATE,
                                                 false},
                                           Where{mvcs::MORVSETTINGSTYPE_SHARED_CREATE, true}),
                         PrintScope);

}  // namespace
