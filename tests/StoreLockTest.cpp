// The store mutex: readers hold it together, a holder alone excludes
// everyone else, a waiting writer is not starved by new readers, and the
// recursive and let-go-completely operations keep their depth.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>
#include <vector>

#include "StoreLock.h"

namespace {

using namespace std::chrono_literals;
using mvcs::StoreMutex;

TEST(StoreLock, ReadersHoldItTogether) {
  StoreMutex mutex;
  mutex.lock_shared();
  // Another thread's shared hold does not wait for this one.
  std::future<bool> other = std::async(std::launch::async, [&] {
    mutex.lock_shared();
    mutex.unlock_shared();
    return true;
  });
  ASSERT_EQ(other.wait_for(5s), std::future_status::ready);
  EXPECT_TRUE(other.get());
  mutex.unlock_shared();
}

TEST(StoreLock, AWriterWaitsForTheReadersToLeave) {
  StoreMutex mutex;
  mutex.lock_shared();
  std::atomic<bool> written{false};
  std::thread writer([&] {
    mutex.lock();
    written = true;
    mutex.unlock();
  });
  std::this_thread::sleep_for(100ms);
  EXPECT_FALSE(written.load());
  mutex.unlock_shared();
  writer.join();
  EXPECT_TRUE(written.load());
}

TEST(StoreLock, NewReadersWaitBehindAWaitingWriter) {
  StoreMutex mutex;
  mutex.lock_shared();
  std::atomic<int> order{0};
  std::atomic<int> writerAt{0};
  std::atomic<int> readerAt{0};
  std::thread writer([&] {
    mutex.lock();
    writerAt = ++order;
    mutex.unlock();
  });
  std::this_thread::sleep_for(100ms);  // the writer is waiting by now
  std::thread reader([&] {
    mutex.lock_shared();
    readerAt = ++order;
    mutex.unlock_shared();
  });
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(readerAt.load(), 0);  // it did not slip in before the writer
  mutex.unlock_shared();
  writer.join();
  reader.join();
  EXPECT_EQ(writerAt.load(), 1);
  EXPECT_EQ(readerAt.load(), 2);
}

TEST(StoreLock, NoReaderSeesAWriterHalfWay) {
  StoreMutex mutex;
  long long first = 0;  // written only under the exclusive hold
  long long second = 0;
  std::atomic<long long> torn{0};
  std::atomic<long long> reads{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 20000; ++i) {
        mutex.lock();
        ++first;
        std::this_thread::yield();
        ++second;
        mutex.unlock();
      }
    });
  }
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 40000; ++i) {
        mutex.lock_shared();
        if (first != second) ++torn;
        ++reads;
        mutex.unlock_shared();
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(torn.load(), 0);
  EXPECT_EQ(reads.load(), 4 * 40000);
  EXPECT_EQ(first, 2 * 20000);
  EXPECT_EQ(second, 2 * 20000);
}

TEST(StoreLock, IsRecursiveAndLetsGoAtAnyDepth) {
  StoreMutex mutex;
  mutex.lock();
  mutex.lock();
  mutex.lock_shared();  // a holder alone reads under its own hold
  EXPECT_TRUE(mutex.HeldByThisThread());
  EXPECT_EQ(mutex.ReleaseAll(), 3u);
  EXPECT_FALSE(mutex.HeldByThisThread());
  // Let go completely: another thread takes it meanwhile.
  std::thread other([&] {
    mutex.lock();
    mutex.unlock();
  });
  other.join();
  mutex.Reacquire(3);
  EXPECT_TRUE(mutex.HeldByThisThread());
  mutex.unlock_shared();
  mutex.unlock();
  EXPECT_TRUE(mutex.HeldByThisThread());
  mutex.unlock();
  EXPECT_FALSE(mutex.HeldByThisThread());
  EXPECT_EQ(mutex.ReleaseAll(), 0u);
}

TEST(StoreLock, NestedSharedHoldsCountOnce) {
  StoreMutex mutex;
  mutex.lock_shared();
  mutex.lock_shared();
  mutex.unlock_shared();
  // Still held shared: a writer must wait.
  std::atomic<bool> written{false};
  std::thread writer([&] {
    mutex.lock();
    written = true;
    mutex.unlock();
  });
  std::this_thread::sleep_for(50ms);
  EXPECT_FALSE(written.load());
  mutex.unlock_shared();
  writer.join();
  EXPECT_TRUE(written.load());
}

TEST(StoreLockDeathTest, AReaderTakingItAloneStopsWithAMessage) {
  EXPECT_DEATH(
      {
        StoreMutex mutex;
        mutex.lock_shared();
        mutex.lock();
      },
      "the store lock was taken alone under a shared hold");
}

}  // namespace
