// The store used from many threads at once: one-call functions on each
// thread's own product and on one product that all share, operations on
// one node that all threads hold, and the counting of shared nodes. Every
// acknowledged store must be there afterwards, and nothing may crash
// (this program also runs under ThreadSanitizer).

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsSimple.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvSettings/MorvSettingsWatch.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Node;

constexpr int kThreads = 8;
constexpr int kOperations = 200;

class SettingsThreads : public sandbox::SettingsSandbox {
 protected:
  // Runs body(thread) on kThreads threads at once; returns how many of its
  // calls failed.
  static int OnThreads(const std::function<int(int)>& body) {
    std::atomic<int> failures{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        while (!go) std::this_thread::yield();
        failures += body(t);
      });
    }
    go = true;
    for (std::thread& thread : threads) thread.join();
    return failures;
  }

  static std::string Name(int thread, int i) {
    return "t" + std::to_string(thread) + "_" + std::to_string(i);
  }
};

TEST_F(SettingsThreads, OneCallFunctionsOnOwnAndSharedProducts) {
  const int failures = OnThreads([](int t) {
    int failed = 0;
    const std::string own = "Own" + std::to_string(t);
    for (int i = 0; i < kOperations; ++i) {
      const std::string name = Name(t, i);
      long long value = -1;
      failed += !mvcs::StoreInteger(own, name, i);
      failed += !mvcs::StoreInteger(std::string("Shared"), name, 1000 + i);
      failed += !mvcs::FetchInteger(own, name, value) || value != i;
      failed += !mvcs::FetchInteger(std::string("Shared"), name, value) || value != 1000 + i;
    }
    return failed;
  });
  EXPECT_EQ(failures, 0);
  // Everything is on disk: read back through fresh nodes.
  for (int t = 0; t < kThreads; ++t) {
    unsigned long count = 0;
    ASSERT_TRUE(mvcs::GetValueCount("Own" + std::to_string(t), count));
    EXPECT_EQ(count, static_cast<unsigned long>(kOperations));
  }
  std::set<std::string> names;
  ASSERT_TRUE(mvcs::GetValueNames(std::string("Shared"), names));
  EXPECT_EQ(names.size(), static_cast<std::size_t>(kThreads * kOperations));
  long long value = 0;
  EXPECT_TRUE(
      mvcs::FetchInteger(std::string("Shared"), Name(kThreads - 1, kOperations - 1), value));
  EXPECT_EQ(value, 1000 + kOperations - 1);
}

TEST_F(SettingsThreads, InstallerRecordsFromManyThreads) {
  const int failures = OnThreads([](int t) {
    int failed = 0;
    for (int i = 0; i < kOperations / 4; ++i) {
      std::wstring path;
      const std::wstring name = L"Path" + std::to_wstring(t) + L"_" + std::to_wstring(i);
      const std::wstring value = L"/opt/p" + std::to_wstring(i);
      failed += !mvcs::StoreInstallerWideString(std::wstring(L"Installed"), name, value);
      failed += !mvcs::FetchInstallerWideString(std::wstring(L"Installed"), name, path);
      failed += path != value;
    }
    return failed;
  });
  EXPECT_EQ(failures, 0);
  unsigned long count = 0;
  ASSERT_TRUE(mvcs::GetInstallerValueCount(std::string("Installed"), count));
  EXPECT_EQ(count, static_cast<unsigned long>(kThreads * (kOperations / 4)));
}

TEST_F(SettingsThreads, OneOpenNodeSharedByEveryThread) {
  Node node = fixtures::Open("Settings/Busy", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(node.Get(), nullptr);
  const int failures = OnThreads([&node](int t) {
    int failed = 0;
    for (int i = 0; i < kOperations; ++i) {
      // The counting of the shared node, from every thread.
      Node mine = node;
      const std::string name = Name(t, i);
      failed += !mine->StoreInteger(name, i);
      long long value = -1;
      failed += !mine->FetchInteger(name, value) || value != i;
      std::set<std::string> names;
      failed += !mine->GetValueNames(names) || names.count(name) != 1;
      Node child;
      failed += !mine->GetChild("Child" + std::to_string(t), &child);
      failed += !child->StoreDouble(name, i / 2.0);
      if (i % 50 == 49) failed += !mvcs::SaveSettings(mine.Get()).IsOk();
    }
    return failed;
  });
  EXPECT_EQ(failures, 0);
  node = Node();
  Node reread = fixtures::Open("Settings/Busy", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(reread.Get(), nullptr);
  unsigned long values = 0, children = 0;
  ASSERT_TRUE(reread->GetValueCount(values));
  ASSERT_TRUE(reread->GetChildCount(children));
  EXPECT_EQ(values, static_cast<unsigned long>(kThreads * kOperations));
  EXPECT_EQ(children, static_cast<unsigned long>(kThreads));
  Node child;
  ASSERT_TRUE(reread->GetChild(std::string("Child3"), &child));
  double half = 0;
  EXPECT_TRUE(child->FetchDouble(Name(3, 7), half));
  EXPECT_EQ(half, 3.5);
}

// Fetches on one open node, which hold the store shared, beside one
// thread that stores, saves and refreshes the same node: every fetch sees
// a value stored before it and never an older one than it saw before.
TEST_F(SettingsThreads, FetchesBesideStoresSavesAndRefreshesOnOneNode) {
  Node node = fixtures::Open("Settings/Readers", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(node.Get(), nullptr);
  ASSERT_TRUE(node->StoreInteger(std::string("Counter"), 0));
  constexpr int kStores = 400;
  std::atomic<bool> done{false};
  std::atomic<int> failures{0};
  std::vector<std::thread> readers;
  for (int t = 0; t < 3; ++t) {
    readers.emplace_back([&] {
      long long seen = 0;
      while (!done) {
        long long value = -1;
        if (!node->FetchInteger(std::string("Counter"), value) || value < seen || value > kStores) {
          ++failures;
        }
        seen = value;
        std::string missing;
        if (node->FetchUTF8String(std::string("Missing"), missing)) ++failures;
      }
    });
  }
  for (int i = 1; i <= kStores; ++i) {
    failures += !node->StoreInteger(std::string("Counter"), i);
    if (i % 40 == 0) failures += !mvcs::SaveSettings(node.Get()).IsOk();
    if (i % 100 == 0) failures += !mvcs::RefreshSettings(node.Get());
  }
  done = true;
  for (std::thread& reader : readers) reader.join();
  EXPECT_EQ(failures, 0);
  long long last = -1;
  EXPECT_TRUE(node->FetchInteger(std::string("Counter"), last));
  EXPECT_EQ(last, kStores);
}

TEST_F(SettingsThreads, CreatingDeletingAndReleasingNodesAtOnce) {
  // Threads make, use, delete and drop nodes of overlapping paths; the
  // values of the paths nobody deletes are all there afterwards.
  const int failures = OnThreads([](int t) {
    int failed = 0;
    for (int i = 0; i < kOperations / 4; ++i) {
      Node kept = fixtures::Open("Settings/Mixed/Kept" + std::to_string(t),
                                 mvcs::MORVSETTINGSTYPE_USER_CREATE);
      failed += kept.Get() == nullptr || !kept->StoreInteger(Name(t, i), i);
      Node doomed = fixtures::Open("Settings/Mixed/Doomed", mvcs::MORVSETTINGSTYPE_USER_CREATE);
      if (doomed.Get() != nullptr) {
        doomed->StoreInteger(Name(t, i), i);
        if (i % 5 == 0) doomed->Delete();
      }
    }
    return failed;
  });
  EXPECT_EQ(failures, 0);
  for (int t = 0; t < kThreads; ++t) {
    Node kept =
        fixtures::Open("Settings/Mixed/Kept" + std::to_string(t), mvcs::MORVSETTINGSTYPE_USER);
    ASSERT_NE(kept.Get(), nullptr);
    unsigned long count = 0;
    ASSERT_TRUE(kept->GetValueCount(count));
    EXPECT_EQ(count, static_cast<unsigned long>(kOperations / 4));
  }
}

}  // namespace
