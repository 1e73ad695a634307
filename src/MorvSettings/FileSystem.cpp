// The file system behind the store's file functions: POSIX, or a test's
// (see FileSystem.h).

#include "FileSystem.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <linux/fs.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstring>

namespace mvcs {

namespace {

class Posix : public FileSystem {
 public:
  int Open(const char* path, int flags, mode_t mode) override { return open(path, flags, mode); }
  int Close(int fd) override { return close(fd); }
  ssize_t Read(int fd, void* buffer, size_t size) override { return read(fd, buffer, size); }
  ssize_t Write(int fd, const void* data, size_t size) override { return write(fd, data, size); }
  int Fstat(int fd, struct stat* info) override { return fstat(fd, info); }
  int Stat(const char* path, struct stat* info) override { return stat(path, info); }
  int Lstat(const char* path, struct stat* info) override { return lstat(path, info); }
  int Fsync(int fd) override { return fsync(fd); }
  int Fchmod(int fd, mode_t mode) override { return fchmod(fd, mode); }
  int Fchown(int fd, uid_t owner, gid_t group) override { return fchown(fd, owner, group); }
  int MakeTemporary(char* name, int flags) override { return mkostemp(name, flags); }
  int Rename(const char* from, const char* to) override { return rename(from, to); }
  int Unlink(const char* path) override { return unlink(path); }
  int Mkdir(const char* path, mode_t mode) override { return mkdir(path, mode); }
  int Flock(int fd, int operation) override { return flock(fd, operation); }

  int ListFolder(const char* path, std::vector<std::string>& names) override {
    DIR* folder = opendir(path);  // close-on-exec, as glibc opens folders
    if (folder == nullptr) return -1;
    names.clear();
    while (const dirent* entry = readdir(folder)) {
      if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
        names.push_back(entry->d_name);
      }
    }
    closedir(folder);
    return 0;
  }

  int RealPath(const char* path, std::string& resolved) override {
    char buffer[PATH_MAX];
    if (realpath(path, buffer) == nullptr) return -1;
    resolved = buffer;
    return 0;
  }
};

std::atomic<FileSystem*>& Current() {
  static std::atomic<FileSystem*> current(nullptr);
  return current;
}

}  // namespace

int FileSystem::ReadLink(const char* path, std::string& target) {
  char buffer[PATH_MAX];
  const ssize_t size = readlink(path, buffer, sizeof(buffer));
  if (size < 0) return -1;
  if (static_cast<std::size_t>(size) == sizeof(buffer)) {
    errno = ENAMETOOLONG;
    return -1;
  }
  target.assign(buffer, static_cast<std::size_t>(size));
  return 0;
}

int FileSystem::Generation(int fd, unsigned& generation) {
  int version = 0;  // the kernel writes an int, whatever the request's type says
  if (ioctl(fd, FS_IOC_GETVERSION, &version) != 0) return -1;
  generation = static_cast<unsigned>(version);
  return 0;
}

FileSystem& PosixFileSystem() {
  static Posix* const posix = new Posix;
  return *posix;
}

FileSystem& GetFileSystem() {
  FileSystem* const set = Current().load(std::memory_order_acquire);
  return set != nullptr ? *set : PosixFileSystem();
}

void SetFileSystem(FileSystem* fileSystem) {
  Current().store(fileSystem, std::memory_order_release);
}

}  // namespace mvcs
