// The lock that makes the settings store safe to use from many threads: one
// recursive mutex for all of the process's in-memory store state (nodes,
// their counts, the file cache and the in-memory trees). Every public entry
// point of the store holds it for the whole operation; operations that call
// other operations (a wide overload calling the narrow one, a release that
// closes and saves) take it again, which a recursive mutex allows.
//
// A fetch on an open node that changes nothing (its keys are where they
// were) holds it shared instead (StoreReadLock): fetches of many threads go
// on at once, and every operation that changes anything holds it alone. A
// thread that holds it shared reads only: it never takes it alone (that
// would wait for itself), and it reaches no file.
//
// It is never held across a file-system call: code that reads or writes a
// file lets go of it for that time (StoreUnlock), so that a thread waiting
// for another process's file lock, a slow disk or an fsync never holds up
// other threads' work on the in-memory trees.

#ifndef MORVSETTINGS_STORELOCK_H
#define MORVSETTINGS_STORELOCK_H

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <thread>

namespace mvcs {

// A recursive mutex that a thread can let go of completely, whatever the
// depth it holds it at, and take again at that depth.
class StoreMutex {
 public:
  void lock();
  void unlock();

  // A shared hold, for reading: many threads may hold it so at once, none
  // while another holds it alone. Recursive too; a thread that holds it
  // alone takes it again alone. A reader counts itself in a slot of its own
  // cache line (threads spread over kReaderSlots of them), so that readers
  // on different cores write no common memory: a shared std::shared_mutex
  // bounces its one counter between the cores on every fetch, which costs
  // as much as the fetch itself.
  void lock_shared();
  void unlock_shared();

  // Whether the calling thread holds it.
  bool HeldByThisThread() const;

  // Lets go of every level the calling thread holds (0 when it holds none)
  // and returns how many; Reacquire(levels) takes it again as deep.
  unsigned ReleaseAll();
  void Reacquire(unsigned levels);

 private:
  static constexpr unsigned kReaderSlots = 16;
  // 128 bytes: processors that fetch cache lines in pairs would otherwise
  // make neighbouring slots share memory after all.
  struct alignas(128) ReaderSlot {
    std::atomic<unsigned> readers{0};
  };

  void LockWriters();
  void UnlockWriters();
  bool NoReaders() const;
  // Wakes whoever waits for a change of m_writing or of a reader count.
  void WakeWaiters();

  ReaderSlot m_slots[kReaderSlots];
  // Set while a thread holds the mutex alone or waits for readers to leave.
  alignas(128) std::atomic<bool> m_writing{false};
  std::mutex m_writers;  // held by the thread that holds the mutex alone
  std::mutex m_waitMutex;
  std::condition_variable m_changed;
  std::atomic<std::thread::id> m_owner{std::thread::id()};
  unsigned m_depth = 0;  // only the owner reads or writes it
};

// The process's store mutex. Made on first use and never destroyed, so that
// nodes released while the process exits can still take it.
StoreMutex& GetStoreMutex();

// Holds the store mutex for its lifetime.
class StoreLock {
 public:
  StoreLock() { GetStoreMutex().lock(); }
  ~StoreLock() { GetStoreMutex().unlock(); }
  StoreLock(const StoreLock&) = delete;
  StoreLock& operator=(const StoreLock&) = delete;
};

// Holds the store mutex shared for its lifetime (see StoreMutex::lock_shared).
class StoreReadLock {
 public:
  StoreReadLock() { GetStoreMutex().lock_shared(); }
  ~StoreReadLock() { GetStoreMutex().unlock_shared(); }
  StoreReadLock(const StoreReadLock&) = delete;
  StoreReadLock& operator=(const StoreReadLock&) = delete;
};

// Lets go of the store mutex completely for its lifetime (if the calling
// thread holds it), and takes it again, as deep as before, at its end.
// Whoever uses it must not keep pointers into the store's state across it:
// other threads may change anything meanwhile.
class StoreUnlock {
 public:
  StoreUnlock() : m_levels(GetStoreMutex().ReleaseAll()) {}
  ~StoreUnlock() { GetStoreMutex().Reacquire(m_levels); }
  StoreUnlock(const StoreUnlock&) = delete;
  StoreUnlock& operator=(const StoreUnlock&) = delete;

 private:
  unsigned m_levels;
};

}  // namespace mvcs

#endif  // MORVSETTINGS_STORELOCK_H
