// Several processes writing the same settings file at once: helper
// processes (tests/helpers/SettingsHelper) and this test process store and
// delete entries of one product, through one-call functions and through
// open nodes. Every acknowledged change must be in the file afterwards,
// where two processes changed the same entry the later save must win, a
// writer killed in the middle of a save must leave a readable file and
// nothing lasting behind, and a save that cannot get the file's lock in
// time must fail cleanly. A morv-settings command whose save fails so must
// leave the file as it was, also when the lock comes free before it exits.

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsSimple.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "Plistlib.h"
#include "ProcessRunner.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Node;

const char kHelper[] = MORV_SETTINGS_HELPER;

class SettingsProcesses : public sandbox::SettingsSandbox {
 protected:
  // Runs the helper in `mode` with `arguments`; expects it to succeed.
  static void Helper(const std::string& mode, const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {kHelper, mode};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const process::Result result = process::Run(command);
    EXPECT_EQ(result.exitStatus, 0) << mode << ": " << result.errorOutput;
  }

  // Runs `count` helpers at once, helper i with mode and arguments(i).
  static void HelpersTogether(int count, const std::string& mode,
                              const std::function<std::vector<std::string>(int)>& arguments) {
    std::vector<std::vector<std::string>> programs;
    for (int i = 0; i < count; ++i) {
      std::vector<std::string> command = {kHelper, mode};
      const std::vector<std::string> extra = arguments(i);
      command.insert(command.end(), extra.begin(), extra.end());
      programs.push_back(command);
    }
    for (const process::Result& result : process::RunTogether(programs)) {
      EXPECT_EQ(result.exitStatus, 0) << mode << ": " << result.errorOutput;
    }
  }

  // The value names of a product's own settings (per-user file, or the
  // installer record): read from the disk when no node of this process
  // holds the file, else this process's copy of it.
  static std::set<std::string> NamesOnDisk(const std::string& product, bool installer = false) {
    std::set<std::string> names;
    if (installer) {
      mvcs::GetInstallerValueNames(product, names);
    } else {
      mvcs::GetValueNames(product, names);
    }
    return names;
  }

  static std::set<std::string> Expected(const std::string& prefix, int writers, int count) {
    std::set<std::string> names;
    for (int w = 0; w < writers; ++w) {
      for (int i = 0; i < count; ++i)
        names.insert(prefix + std::to_string(w) + "_" + std::to_string(i));
    }
    return names;
  }

  // Runs morv-settings with `arguments` on product Locked (its file holds
  // "before" = 1) while another process holds the file's lock, and expects
  // it to fail with the lock's message and to leave the file byte for byte
  // as it was, also once the lock is free. The tool waits 1 s for the lock;
  // the lock is freed 1.5 s after the tool began to wait, when its save has
  // given up and a second save (at the release of its node, say) would
  // still be waiting and would get the lock.
  void ExpectNoChangeWhenTheLockIsHeld(const std::vector<std::string>& arguments) {
    ASSERT_TRUE(mvcs::StoreInteger(std::string("Locked"), std::string("before"), 1));
    const std::string file = UserFile("Locked");
    const std::string original = sandbox::ReadFile(file);
    process::Child holder = process::Start({kHelper, "hold-lock", file, "30"});
    for (int i = 0; i < 500 && process::OutputSoFar(holder) != "locked\n"; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    EXPECT_EQ(process::OutputSoFar(holder), "locked\n");
    std::vector<std::string> command = {MORV_SETTINGS_TOOL};
    command.insert(command.end(), arguments.begin(), arguments.end());
    process::Options options;
    options.environment = {{"MORV_SETTINGS_LOCK_TIMEOUT", "1000"}};
    process::Child tool = process::Start(command, options);
    // A save opens the lock file when it begins to wait for the lock.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!HasOpen(tool.pid, file + ".lock") && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    const auto waiting = std::chrono::steady_clock::now();
    EXPECT_LT(waiting, deadline) << "the tool never waited for the lock";
    std::this_thread::sleep_until(waiting + std::chrono::milliseconds(1500));
    kill(holder.pid, SIGTERM);
    process::Finish(holder);
    const process::Result result = process::Finish(tool);
    EXPECT_EQ(result.exitStatus, 1);
    EXPECT_EQ(result.errorOutput, "morv-settings: cannot write " + file +
                                      ": another program held its lock (" + file +
                                      ".lock) for too long; try again; nothing was changed\n");
    EXPECT_EQ(sandbox::ReadFile(file), original);
  }

  // Whether process `pid` has the file at `path` open.
  static bool HasOpen(pid_t pid, const std::string& path) {
    const std::string folder = "/proc/" + std::to_string(pid) + "/fd";
    for (const std::string& name : sandbox::List(folder)) {
      char target[4096];
      const ssize_t length = readlink((folder + "/" + name).c_str(), target, sizeof(target));
      if (length > 0 && std::string(target, static_cast<std::size_t>(length)) == path) return true;
    }
    return false;
  }

  static long long Value(const std::string& product, const std::string& name) {
    long long value = -12345;
    mvcs::FetchInteger(product, name, value);
    return value;
  }
};

TEST_F(SettingsProcesses, OneCallStoresOfManyProcessesAllArrive) {
  const int writers = 4, count = 150;
  HelpersTogether(writers, "store-keys", [](int w) {
    return std::vector<std::string>{"Many", "k" + std::to_string(w) + "_", std::to_string(count)};
  });
  EXPECT_EQ(NamesOnDisk("Many"), Expected("k", writers, count));
  EXPECT_EQ(Value("Many", "k3_149"), 149);
}

TEST_F(SettingsProcesses, OpenNodesSavedAfterEachStoreAllArrive) {
  const int writers = 4, count = 150;
  HelpersTogether(writers, "node-store-keys", [](int w) {
    return std::vector<std::string>{"Nodes", "n" + std::to_string(w) + "_", std::to_string(count)};
  });
  EXPECT_EQ(NamesOnDisk("Nodes"), Expected("n", writers, count));
}

TEST_F(SettingsProcesses, TheSharedFileMergesToo) {
  const int writers = 4, count = 60;
  HelpersTogether(writers, "store-keys", [](int w) {
    return std::vector<std::string>{"Installed", "i" + std::to_string(w) + "_",
                                    std::to_string(count), "--installer"};
  });
  EXPECT_EQ(NamesOnDisk("Installed", true), Expected("i", writers, count));
  // The shared file holds other products' records side by side.
  HelpersTogether(writers, "store-keys", [](int w) {
    return std::vector<std::string>{"Other" + std::to_string(w), "o", "20", "--installer"};
  });
  EXPECT_EQ(NamesOnDisk("Installed", true), Expected("i", writers, count));
  EXPECT_EQ(NamesOnDisk("Other2", true).size(), 20u);
}

TEST_F(SettingsProcesses, TheLaterSaveWinsForTheSameEntry) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("x"), 0));
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("y"), 0));
  Node node;
  ASSERT_TRUE(CreateSimpleSettings(std::string("P"), false, true, false, &node));

  // Another process changes x and adds w; then this process changes x: the
  // later save (this one) wins x, and w survives.
  Helper("store", {"P", "x", "2"});
  Helper("store", {"P", "w", "7"});
  ASSERT_TRUE(node->StoreInteger(std::string("x"), 1));
  ASSERT_TRUE(mvcs::SaveSettings(node.Get()).IsOk());
  EXPECT_EQ(Value("P", "x"), 1);
  EXPECT_EQ(Value("P", "w"), 7);
  // The open node sees the merged contents.
  long long w = 0;
  EXPECT_TRUE(node->FetchInteger(std::string("w"), w));
  EXPECT_EQ(w, 7);

  // Another process deletes x (a later save): this process's next save
  // does not bring it back, since this process did not change x since.
  Helper("delete", {"P", "x"});
  ASSERT_TRUE(node->StoreInteger(std::string("z"), 3));
  ASSERT_TRUE(mvcs::SaveSettings(node.Get()).IsOk());
  EXPECT_EQ(NamesOnDisk("P"), std::set<std::string>({"w", "y", "z"}));
  long long x = 99;
  EXPECT_FALSE(node->FetchInteger(std::string("x"), x));

  // Another process stores y; then this process deletes y: deleted.
  Helper("store", {"P", "y", "5"});
  ASSERT_TRUE(node->Delete(std::string("y")));
  ASSERT_TRUE(mvcs::SaveSettings(node.Get()).IsOk());
  EXPECT_EQ(NamesOnDisk("P"), std::set<std::string>({"w", "z"}));

  // This process stores y, another process deletes it afterwards: gone.
  ASSERT_TRUE(node->StoreInteger(std::string("y"), 6));
  ASSERT_TRUE(mvcs::SaveSettings(node.Get()).IsOk());
  Helper("delete", {"P", "y"});
  // (This process reads its own copy until it saves again or lets go.)
  node = Node();
  EXPECT_EQ(NamesOnDisk("P"), std::set<std::string>({"w", "z"}));
}

TEST_F(SettingsProcesses, ChangesInsideAKeyThatAnotherProcessRemovedAreKept) {
  Node sub = fixtures::Open("Settings/P/Sub", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(sub.Get(), nullptr);
  ASSERT_TRUE(sub->StoreInteger(std::string("a"), 1));
  ASSERT_TRUE(sub->StoreInteger(std::string("b"), 2));
  ASSERT_TRUE(mvcs::SaveSettings(sub.Get()).IsOk());
  // Another process removes the key Sub; this process then changes b.
  Helper("delete", {"P", "Sub"});
  ASSERT_TRUE(sub->StoreInteger(std::string("b"), 3));
  ASSERT_TRUE(mvcs::SaveSettings(sub.Get()).IsOk());
  // The key comes back with this process's change only.
  std::set<std::string> names;
  Node reread = fixtures::Open("Settings/P/Sub", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(reread.Get(), nullptr);
  ASSERT_TRUE(reread->GetValueNames(names));
  EXPECT_EQ(names, std::set<std::string>({"b"}));
}

TEST_F(SettingsProcesses, StoresThroughANodeWhoseKeyAnotherProcessRemovedAreSaved) {
  Node sub = fixtures::Open("Settings/P/Sub", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  Node top = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(sub.Get(), nullptr);
  ASSERT_TRUE(sub->StoreInteger(std::string("a"), 1));
  ASSERT_TRUE(mvcs::SaveSettings(sub.Get()).IsOk());
  Helper("delete", {"P", "Sub"});
  // A save through another node merges: Sub leaves the in-memory tree.
  ASSERT_TRUE(top->StoreInteger(std::string("t"), 1));
  ASSERT_TRUE(mvcs::SaveSettings(top.Get()).IsOk());
  std::set<std::string> children;
  ASSERT_TRUE(top->GetChildNames(children));
  EXPECT_TRUE(children.empty());
  // The node on Sub finds its key again (its scope creates it), and what
  // it stores is saved.
  ASSERT_TRUE(sub->StoreInteger(std::string("c"), 3));
  ASSERT_TRUE(mvcs::SaveSettings(sub.Get()).IsOk());
  Node reread = fixtures::Open("Settings/P/Sub", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(reread.Get(), nullptr);
  long long c = 0;
  EXPECT_TRUE(reread->FetchInteger(std::string("c"), c));
  EXPECT_EQ(c, 3);
  // A node whose scope does not create fails instead of storing nowhere.
  Node plain = fixtures::Open("Settings/P/Sub", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(plain.Get(), nullptr);
  Helper("delete", {"P", "Sub"});
  ASSERT_TRUE(top->StoreInteger(std::string("t"), 2));
  ASSERT_TRUE(mvcs::SaveSettings(top.Get()).IsOk());
  sub = Node();
  reread = Node();
  EXPECT_FALSE(plain->StoreInteger(std::string("d"), 4));
}

TEST_F(SettingsProcesses, AWriterKilledDuringSavesLosesNothingAcknowledged) {
  std::mt19937 random(12345);
  std::set<std::string> acknowledged;
  const int rounds = 30;
  for (int round = 0; round < rounds; ++round) {
    const std::string prefix = "r" + std::to_string(round) + "_";
    process::Child child =
        process::Start({kHelper, "store-until-killed", "Killed", prefix, "400000"});
    // Killed at a random moment after its first acknowledged save (which
    // an instrumented build takes long to reach).
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (process::OutputSoFar(child).find('\n') == std::string::npos &&
           std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20 + random() % 60));
    kill(child.pid, SIGKILL);
    const process::Result result = process::Finish(child);
    std::istringstream lines(result.output);
    for (std::string line; std::getline(lines, line);) acknowledged.insert(prefix + line);
    // The file is always readable, by plistlib too, and holds every
    // acknowledged store.
    ASSERT_FALSE(plistlib::Dump(UserFile("Killed")).empty());
    const std::set<std::string> names = NamesOnDisk("Killed");
    for (const std::string& name : acknowledged) {
      ASSERT_EQ(names.count(name), 1u) << name << " was acknowledged and is gone";
    }
  }
  EXPECT_GT(acknowledged.size(), static_cast<std::size_t>(rounds));
  // One more save removes whatever temporary files the killed writers left.
  ASSERT_TRUE(mvcs::StoreInteger(std::string("Killed"), std::string("last"), 1));
  EXPECT_EQ(sandbox::List(UserFolder()),
            std::set<std::string>({"com.morv.Killed.plist", "com.morv.Killed.plist.lock"}));
}

TEST_F(SettingsProcesses, ASaveThatCannotGetTheLockInTimeFailsAndKeepsTheChange) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("Locked"), std::string("before"), 1));
  const std::string original = sandbox::ReadFile(UserFile("Locked"));
  process::Child holder = process::Start({kHelper, "hold-lock", UserFile("Locked"), "30"});
  // Wait until the other process holds the lock.
  for (int i = 0; i < 500 && process::OutputSoFar(holder) != "locked\n"; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const unsigned previous = mvcs::SetSaveLockTimeout(200);
  Node node = fixtures::Open("Settings/Locked", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(node.Get(), nullptr);
  ASSERT_TRUE(node->StoreInteger(std::string("during"), 2));
  const auto start = std::chrono::steady_clock::now();
  const mvcs::SaveResult saved = mvcs::SaveSettings(node.Get());
  const double waited =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  EXPECT_FALSE(saved.IsOk());
  EXPECT_EQ(saved.GetError(), EWOULDBLOCK);
  EXPECT_EQ(saved.GetPath(), UserFile("Locked"));
  EXPECT_EQ(saved.GetMessage(), "cannot write " + UserFile("Locked") +
                                    ": another program held its lock (" + UserFile("Locked") +
                                    ".lock) for too long; try again");
  EXPECT_GE(waited, 0.19);
  EXPECT_LT(waited, 2.0);
  EXPECT_EQ(sandbox::ReadFile(UserFile("Locked")), original);
  long long during = 0;
  EXPECT_TRUE(node->FetchInteger(std::string("during"), during));  // kept in memory
  // Once the lock is free (its holder ended), the kept change is saved.
  kill(holder.pid, SIGTERM);
  process::Finish(holder);
  mvcs::SetSaveLockTimeout(previous);
  EXPECT_TRUE(mvcs::SaveSettings(node.Get()).IsOk());
  node = Node();
  EXPECT_EQ(Value("Locked", "during"), 2);
  EXPECT_EQ(Value("Locked", "before"), 1);
}

TEST_F(SettingsProcesses, TheSettingsToolSaysWhenAnotherProgramHoldsTheLock) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("Locked"), std::string("before"), 1));
  process::Child holder = process::Start({kHelper, "hold-lock", UserFile("Locked"), "30"});
  for (int i = 0; i < 500 && process::OutputSoFar(holder) != "locked\n"; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  process::Options options;
  options.environment = {{"MORV_SETTINGS_LOCK_TIMEOUT", "300"}};
  const process::Result result =
      process::Run({MORV_SETTINGS_TOOL, "write", "Locked", "during", "int", "2"}, options);
  EXPECT_EQ(result.exitStatus, 1);
  EXPECT_EQ(result.errorOutput, "morv-settings: cannot write " + UserFile("Locked") +
                                    ": another program held its lock (" + UserFile("Locked") +
                                    ".lock) for too long; try again; nothing was changed\n");
  kill(holder.pid, SIGTERM);
  process::Finish(holder);
  EXPECT_EQ(NamesOnDisk("Locked"), std::set<std::string>({"before"}));
}

TEST_F(SettingsProcesses, AToolWriteWhoseSaveTimesOutLeavesTheFileAsItWas) {
  ExpectNoChangeWhenTheLockIsHeld({"write", "Locked", "during", "int", "2"});
}

TEST_F(SettingsProcesses, AToolDeleteWhoseSaveTimesOutLeavesTheFileAsItWas) {
  ExpectNoChangeWhenTheLockIsHeld({"delete", "Locked", "before"});
}

TEST_F(SettingsProcesses, AToolDeleteOfTheNodeWhoseSaveTimesOutLeavesTheFileAsItWas) {
  ExpectNoChangeWhenTheLockIsHeld({"delete", "Locked"});
}

TEST_F(SettingsProcesses, AToolImportWhoseSaveTimesOutLeavesTheFileAsItWas) {
  const std::string list = m_root + "/import.plist";
  sandbox::WriteFile(list, fixtures::Plist(fixtures::Key("during", fixtures::Integer(2))));
  ExpectNoChangeWhenTheLockIsHeld({"import", "Locked", list});
}

TEST_F(SettingsProcesses, AToolApplyWhoseSaveTimesOutLeavesTheFileAsItWas) {
  const std::string json = m_root + "/apply.json";
  sandbox::WriteFile(json, "{\"before\":5,\"during\":{\"a\":2}}");
  ExpectNoChangeWhenTheLockIsHeld({"apply", "--prune", "Locked", json});
}

TEST_F(SettingsProcesses, KeysThatSeveralProcessesImportAtOnceMerge) {
  // Each process imports the same new keys with entries of its own: the
  // keys that each made merge with those that the others made.
  const int writers = 6;
  std::vector<std::vector<std::string>> programs;
  for (int w = 0; w < writers; ++w) {
    const std::string n = std::to_string(w);
    const std::string json = m_root + "/import" + n + ".json";
    sandbox::WriteFile(json,
                       "{\"Made\":{\"v" + n + "\":" + n + ",\"Deeper\":{\"d" + n + "\":true}}}");
    programs.push_back({MORV_SETTINGS_TOOL, "import", "--json", "Merged", json});
  }
  for (const process::Result& result : process::RunTogether(programs)) {
    EXPECT_EQ(result.exitStatus, 0) << result.errorOutput;
  }
  std::string deeper, values;
  for (int w = 0; w < writers; ++w) {
    const std::string n = std::to_string(w);
    deeper += std::string(w == 0 ? "" : ",") + "\"d" + n + "\":true";
    values += ",\"v" + n + "\":" + n;
  }
  const process::Result read = process::Run({MORV_SETTINGS_TOOL, "read", "--json", "Merged"});
  EXPECT_EQ(read.output, "{\"Made\":{\"Deeper\":{" + deeper + "}" + values + "}}\n");
}

TEST_F(SettingsProcesses, TheSettingsToolRunBySeveralProcessesLosesNothing) {
  const int writers = 6, count = 15;
  std::vector<std::vector<std::string>> programs;
  for (int w = 0; w < writers; ++w) {
    std::string script;
    for (int i = 0; i < count; ++i) {
      script += "'" MORV_SETTINGS_TOOL "' write Tool t" + std::to_string(w) + "_" +
                std::to_string(i) + " int " + std::to_string(i) + " || exit 1\n";
    }
    programs.push_back({"/bin/sh", "-c", script});
  }
  for (const process::Result& result : process::RunTogether(programs)) {
    EXPECT_EQ(result.exitStatus, 0) << result.errorOutput;
  }
  EXPECT_EQ(NamesOnDisk("Tool"), Expected("t", writers, count));
}

}  // namespace
