// POSIX file helpers shared by the settings store and the settings tool: a
// descriptor that closes itself, and a write that writes everything.

#ifndef MORV_COMMON_FILEDESCRIPTOR_H
#define MORV_COMMON_FILEDESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace morv_common {

// Closes a descriptor on every way out.
class FileDescriptor {
 public:
  explicit FileDescriptor(int fd) : m_fd(fd) {}
  ~FileDescriptor() {
    if (m_fd >= 0) close(m_fd);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int Get() const { return m_fd; }
  // Closes now and reports whether the close succeeded (a delayed write
  // error shows here).
  bool Close() {
    const int fd = m_fd;
    m_fd = -1;
    return fd < 0 || close(fd) == 0;
  }

 private:
  int m_fd;
};

// Writes all `size` bytes, going on after short writes and interruptions.
// False on the first error (errno tells which).
inline bool WriteAll(int fd, const char* data, std::size_t size) {
  while (size > 0) {
    const ssize_t written = write(fd, data, size);
    if (written < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    data += written;
    size -= static_cast<std::size_t>(written);
  }
  return true;
}

}  // namespace morv_common

#endif  // MORV_COMMON_FILEDESCRIPTOR_H
