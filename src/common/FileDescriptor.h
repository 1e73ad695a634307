// POSIX file helpers shared by the settings store and the settings tool: a
// descriptor that closes itself, and a write that writes everything.

#ifndef MORV_COMMON_FILEDESCRIPTOR_H
#define MORV_COMMON_FILEDESCRIPTOR_H

#include <unistd.h>

#include <cerrno>
#include <cstddef>

namespace morv_common {

// Closes a descriptor on every way out, with close(2) or with `closer`
// (code that reaches the file system through an interface of its own).
class FileDescriptor {
 public:
  typedef int (*Closer)(int fd);
  explicit FileDescriptor(int fd, Closer closer = &close) : m_fd(fd), m_closer(closer) {}
  ~FileDescriptor() {
    if (m_fd >= 0) m_closer(m_fd);
  }
  FileDescriptor(const FileDescriptor&) = delete;
  FileDescriptor& operator=(const FileDescriptor&) = delete;
  int Get() const { return m_fd; }
  // Closes now and reports whether the close succeeded (a delayed write
  // error shows here).
  bool Close() {
    const int fd = m_fd;
    m_fd = -1;
    // An interrupted close has closed the descriptor all the same (Linux).
    return fd < 0 || m_closer(fd) == 0 || errno == EINTR;
  }

 private:
  int m_fd;
  Closer m_closer;
};

// Writes all `size` bytes with write(2) or `writer`, going on after short
// writes and interruptions. False on the first error (errno tells which).
typedef ssize_t (*Writer)(int fd, const void* data, std::size_t size);
inline bool WriteAll(int fd, const char* data, std::size_t size, Writer writer = &write) {
  while (size > 0) {
    const ssize_t written = writer(fd, data, size);
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
