// The store's process-wide mutex (see StoreLock.h).

#include "StoreLock.h"

namespace mvcs {

std::recursive_mutex& StoreMutex() {
  static std::recursive_mutex* const mutex = new std::recursive_mutex;
  return *mutex;
}

}  // namespace mvcs
