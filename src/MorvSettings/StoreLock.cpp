// The store's process-wide mutex (see StoreLock.h).

#include "StoreLock.h"

namespace mvcs {

void StoreMutex::lock() {
  if (HeldByThisThread()) {
    ++m_depth;
    return;
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
