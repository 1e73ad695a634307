// A save that waits for a file's lock, held by another process, must keep
// only its own thread waiting: meanwhile other threads fetch from nodes of
// other files and open nodes of other files (which reads them) at once.
//
// Another process (SettingsHelper) holds the lock of product X's file for
// a few seconds; one thread saves a change of X, which waits for that lock;
// a moment later the test thread uses another product's file and times it.
// Each test ends the lock holder as soon as it has measured, so the waiting
// save then completes.

#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsSimple.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "ProcessRunner.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Node;
using Clock = std::chrono::steady_clock;

const char kHelper[] = MORV_SETTINGS_HELPER;

// How long the other process holds X's lock, and how long after the save
// began the other thread uses the store.
const char kHoldSeconds[] = "3";
const std::chrono::milliseconds kSaveHeadStart(200);
// A fetch or an open of a small file takes microseconds; this leaves room
// for a busy machine while telling a wait for the lock apart.
const double kPromptMilliseconds = 50;

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

class SettingsSaveStall : public sandbox::SettingsSandbox {
 protected:
  void SetUp() override {
    SettingsSandbox::SetUp();
    m_previousTimeout = mvcs::SetSaveLockTimeout(5000);
  }

  void TearDown() override {
    EndHolder();
    mvcs::SetSaveLockTimeout(m_previousTimeout);
    SettingsSandbox::TearDown();
  }

  // Another process takes the lock of `product`'s file and holds it.
  void HoldLock(const std::string& product) {
    m_holder = process::Start({kHelper, "hold-lock", UserFile(product), kHoldSeconds});
    for (int i = 0; i < 500 && process::OutputSoFar(m_holder) != "locked\n"; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    ASSERT_EQ(process::OutputSoFar(m_holder), "locked\n");
  }

  // Ends the other process, which frees the lock.
  void EndHolder() {
    if (m_holder.pid <= 0) return;
    kill(m_holder.pid, SIGTERM);
    process::Finish(m_holder);
  }

  // Runs `save` on a thread of its own; once it has had kSaveHeadStart to
  // reach X's lock, runs `measured` on this thread and returns how long it
  // took. Expects the save to be waiting still when `measured` starts (else
  // the scenario tells nothing) and when it has returned (else it waited
  // for the save). Ends the lock holder afterwards and waits for the save.
  double WhileASaveWaits(const std::function<void()>& save, const std::function<void()>& measured) {
    std::atomic<bool> started{false}, finished{false};
    std::thread saver([&] {
      started = true;
      save();
      finished = true;
    });
    while (!started) std::this_thread::yield();
    std::this_thread::sleep_for(kSaveHeadStart);
    EXPECT_FALSE(finished) << "the save of X did not wait for the lock";
    const Clock::time_point start = Clock::now();
    measured();
    const double took = MillisecondsSince(start);
    EXPECT_FALSE(finished) << "the call returned only after the save of X had ended";
    EndHolder();
    saver.join();
    return took;
  }

  unsigned m_previousTimeout = 0;
  process::Child m_holder;
};

TEST_F(SettingsSaveStall, AFetchFromAnotherFileDoesNotWaitForASaveWaitingOnALock) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("Y"), std::string("b"), 2));
  Node y = fixtures::Open("Settings/Y", mvcs::MORVSETTINGSTYPE_USER);
  Node x = fixtures::Open("Settings/X", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(y.Get(), nullptr);
  ASSERT_NE(x.Get(), nullptr);
  long long b = 0;
  ASSERT_TRUE(y->FetchInteger(std::string("b"), b));
  ASSERT_TRUE(x->StoreInteger(std::string("a"), 1));
  ASSERT_NO_FATAL_FAILURE(HoldLock("X"));

  mvcs::SaveResult saved(-1);
  bool fetched = false;
  b = 0;
  const double took = WhileASaveWaits([&] { saved = mvcs::SaveSettings(x.Get()); },
                                      [&] { fetched = y->FetchInteger(std::string("b"), b); });
  EXPECT_TRUE(fetched);
  EXPECT_EQ(b, 2);
  EXPECT_LT(took, kPromptMilliseconds) << "the fetch from Y took " << took << " ms";
  // The save went through once the lock was free.
  EXPECT_TRUE(saved.IsOk()) << saved.GetError();
  x = Node();
  long long a = 0;
  EXPECT_TRUE(mvcs::FetchInteger(std::string("X"), std::string("a"), a));
  EXPECT_EQ(a, 1);
}

TEST_F(SettingsSaveStall, OpeningANodeOfAnotherFileDoesNotWaitForAReleaseWaitingOnALock) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("Z"), std::string("c"), 3));
  Node x = fixtures::Open("Settings/X", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(x.Get(), nullptr);
  ASSERT_TRUE(x->StoreInteger(std::string("a"), 1));
  ASSERT_NO_FATAL_FAILURE(HoldLock("X"));

  Node z;
  long long c = 0;
  bool fetched = false;
  const double took =
      WhileASaveWaits([&] { x = Node(); },  // the last release saves
                      [&] {
                        z = fixtures::Open("Settings/Z", mvcs::MORVSETTINGSTYPE_USER);
                        fetched = z.Get() != nullptr && z->FetchInteger(std::string("c"), c);
                      });
  EXPECT_TRUE(fetched);
  EXPECT_EQ(c, 3);
  EXPECT_LT(took, kPromptMilliseconds) << "opening Z took " << took << " ms";
  long long a = 0;
  EXPECT_TRUE(mvcs::FetchInteger(std::string("X"), std::string("a"), a));
  EXPECT_EQ(a, 1);
}

}  // namespace
