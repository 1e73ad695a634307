// A file system for tests that passes every call on to the POSIX one; a
// test overrides the calls it watches or fails (see the store's
// FileSystem.h).

#ifndef MORV_TESTS_PASSTHROUGHFILESYSTEM_H
#define MORV_TESTS_PASSTHROUGHFILESYSTEM_H

#include <string>
#include <vector>

#include "FileSystem.h"

class PassThroughFileSystem : public mvcs::FileSystem {
 public:
  int Open(const char* path, int flags, mode_t mode) override {
    return Posix().Open(path, flags, mode);
  }
  int Close(int fd) override { return Posix().Close(fd); }
  ssize_t Read(int fd, void* buffer, size_t size) override {
    return Posix().Read(fd, buffer, size);
  }
  ssize_t Write(int fd, const void* data, size_t size) override {
    return Posix().Write(fd, data, size);
  }
  int Fstat(int fd, struct stat* info) override { return Posix().Fstat(fd, info); }
  int Stat(const char* path, struct stat* info) override { return Posix().Stat(path, info); }
  int Lstat(const char* path, struct stat* info) override { return Posix().Lstat(path, info); }
  int Fsync(int fd) override { return Posix().Fsync(fd); }
  int Fchmod(int fd, mode_t mode) override { return Posix().Fchmod(fd, mode); }
  int Fchown(int fd, uid_t owner, gid_t group) override { return Posix().Fchown(fd, owner, group); }
  int MakeTemporary(char* name, int flags) override { return Posix().MakeTemporary(name, flags); }
  int Rename(const char* from, const char* to) override { return Posix().Rename(from, to); }
  int Unlink(const char* path) override { return Posix().Unlink(path); }
  int Mkdir(const char* path, mode_t mode) override { return Posix().Mkdir(path, mode); }
  int Flock(int fd, int operation) override { return Posix().Flock(fd, operation); }
  int ListFolder(const char* path, std::vector<std::string>& names) override {
    return Posix().ListFolder(path, names);
  }
  int RealPath(const char* path, std::string& resolved) override {
    return Posix().RealPath(path, resolved);
  }

 protected:
  static mvcs::FileSystem& Posix() { return mvcs::PosixFileSystem(); }
};

#endif  // MORV_TESTS_PASSTHROUGHFILESYSTEM_H
