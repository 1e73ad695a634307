// The store's process-wide mutex (see StoreLock.h).

#include "StoreLock.h"

#include <cstdio>
#include <cstdlib>

namespace mvcs {

namespace {

// How deep the calling thread holds the store mutex shared.
thread_local unsigned t_sharedDepth = 0;

}  // namespace

void StoreMutex::lock() {
  if (HeldByThisThread()) {
    ++m_depth;
    return;
  }
  if (t_sharedDepth != 0) {
    // A reader taking the store alone would wait for itself forever.
    std::fputs("MorvSettings: the store lock was taken alone under a shared hold\n", stderr);
    std::abort();
  }
  m_mutex.lock();
  m_owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
  m_depth = 1;
}

void StoreMutex::unlock() {
  if (--m_depth != 0) return;
  m_owner.store(std::thread::id(), std::memory_order_relaxed);
  m_mutex.unlock();
}

void StoreMutex::lock_shared() {
  if (HeldByThisThread()) {
    ++m_depth;
  } else if (t_sharedDepth++ == 0) {
    m_mutex.lock_shared();
  }
}

void StoreMutex::unlock_shared() {
  if (HeldByThisThread()) {
    unlock();
  } else if (--t_sharedDepth == 0) {
    m_mutex.unlock_shared();
  }
}

bool StoreMutex::HeldByThisThread() const {
  // Only the owner ever stores its own id here, so a thread reads its own
  // id only when it holds the mutex.
  return m_owner.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

unsigned StoreMutex::ReleaseAll() {
  if (!HeldByThisThread()) return 0;
  const unsigned levels = m_depth;
  m_depth = 1;
  unlock();
  return levels;
}

void StoreMutex::Reacquire(unsigned levels) {
  if (levels == 0) return;
  lock();
  m_depth = levels;
}

StoreMutex& GetStoreMutex() {
  static StoreMutex* const mutex = new StoreMutex;
  return *mutex;
}

}  // namespace mvcs
