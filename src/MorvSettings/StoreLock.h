// The lock that makes the settings store safe to use from many threads: one
// recursive mutex for all of the process's store state (nodes, their counts,
// the file cache and the in-memory trees). Every public entry point of the
// store holds it for the whole operation; operations that call other
// operations (a wide overload calling the narrow one, a release that closes
// and saves) take it again, which a recursive mutex allows.

#ifndef MORVSETTINGS_STORELOCK_H
#define MORVSETTINGS_STORELOCK_H

#include <mutex>

namespace mvcs {

// The process's store mutex. Made on first use and never destroyed, so that
// nodes released while the process exits can still take it.
std::recursive_mutex& StoreMutex();

// Holds the store mutex for its lifetime.
class StoreLock {
 public:
  StoreLock() : m_lock(StoreMutex()) {}
  StoreLock(const StoreLock&) = delete;
  StoreLock& operator=(const StoreLock&) = delete;

 private:
  std::lock_guard<std::recursive_mutex> m_lock;
};

}  // namespace mvcs

#endif  // MORVSETTINGS_STORELOCK_H
