// The store's process-wide mutex (see StoreLock.h).

#include "StoreLock.h"

#include <cstdio>
#include <cstdlib>

namespace mvcs {

namespace {

// The calling thread's reader state: how deep it holds the store mutex
// shared, and its reader slot plus one (0 until its first shared hold).
// Constant-initialised, so that reaching it costs one thread-local lookup.
struct ReaderState {
  unsigned depth;
  unsigned slotPlusOne;
};
thread_local ReaderState t_reader = {0, 0};

// The reader slot of the calling thread: threads take slots in turn.
unsigned ThisThreadsSlot(ReaderState& state, unsigned slots) {
  static std::atomic<unsigned> next{0};
  if (state.slotPlusOne == 0) {
    state.slotPlusOne = next.fetch_add(1, std::memory_order_relaxed) % slots + 1;
  }
  return state.slotPlusOne - 1;
}

}  // namespace

void StoreMutex::lock() {
  if (HeldByThisThread()) {
    ++m_depth;
    return;
  }
  if (t_reader.depth != 0) {
    // A reader taking the store alone would wait for itself forever.
    std::fputs("MorvSettings: the store lock was taken alone under a shared hold\n", stderr);
    std::abort();
  }
  LockWriters();
  m_owner.store(std::this_thread::get_id(), std::memory_order_relaxed);
  m_depth = 1;
}

void StoreMutex::unlock() {
  if (--m_depth != 0) return;
  m_owner.store(std::thread::id(), std::memory_order_relaxed);
  UnlockWriters();
}

// A writer announces itself (m_writing), then waits until every reader slot
// is empty; a reader counts itself in, then looks at m_writing and backs out
// if it is set. Both sides write first and read second, sequentially
// consistent, so at least one of them sees the other: no reader runs beside
// the writer.
void StoreMutex::LockWriters() {
  m_writers.lock();
  m_writing.store(true, std::memory_order_seq_cst);
  if (NoReaders()) return;
  std::unique_lock<std::mutex> wait(m_waitMutex);
  m_changed.wait(wait, [this] { return NoReaders(); });
}

void StoreMutex::UnlockWriters() {
  m_writing.store(false, std::memory_order_seq_cst);
  WakeWaiters();
  m_writers.unlock();
}

bool StoreMutex::NoReaders() const {
  for (const ReaderSlot& slot : m_slots) {
    if (slot.readers.load(std::memory_order_seq_cst) != 0) return false;
  }
  return true;
}

void StoreMutex::WakeWaiters() {
  // Taking the wait mutex orders the wake-up after a waiter's test of its
  // condition: none sleeps through the change it waits for.
  { std::lock_guard<std::mutex> hold(m_waitMutex); }
  m_changed.notify_all();
}

void StoreMutex::lock_shared() {
  if (HeldByThisThread()) {
    ++m_depth;
    return;
  }
  ReaderState& state = t_reader;
  if (state.depth++ != 0) return;
  std::atomic<unsigned>& readers = m_slots[ThisThreadsSlot(state, kReaderSlots)].readers;
  for (;;) {
    readers.fetch_add(1, std::memory_order_seq_cst);
    if (!m_writing.load(std::memory_order_seq_cst)) return;
    // A writer holds the mutex or waits for readers: back out (it may be
    // waiting for this slot) and wait until it is done.
    readers.fetch_sub(1, std::memory_order_seq_cst);
    WakeWaiters();
    std::unique_lock<std::mutex> wait(m_waitMutex);
    m_changed.wait(wait, [this] { return !m_writing.load(std::memory_order_seq_cst); });
  }
}

void StoreMutex::unlock_shared() {
  if (HeldByThisThread()) {
    unlock();
    return;
  }
  ReaderState& state = t_reader;
  if (--state.depth != 0) return;
  std::atomic<unsigned>& readers = m_slots[state.slotPlusOne - 1].readers;
  readers.fetch_sub(1, std::memory_order_seq_cst);
  if (m_writing.load(std::memory_order_seq_cst)) WakeWaiters();
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
