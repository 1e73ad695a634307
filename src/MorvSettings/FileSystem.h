// The file system as the settings store sees it: every file-system call of
// the store's file functions (SettingsFiles.cpp) goes through one
// interface, in the manner of LevelDB's Env or SQLite's VFS, so that tests
// can make any call fail (EIO, ENOSPC, EACCES, EINTR...) without root,
// chattr or a preloaded library. The process's file system is the POSIX one
// unless a test sets another.
//
// Each member does what the POSIX call of its name does, with the same
// results: -1 (or null) with errno set on failure. Nothing here retries
// EINTR; the callers do, where a retry is safe.

#ifndef MORVSETTINGS_FILESYSTEM_H
#define MORVSETTINGS_FILESYSTEM_H

#include <sys/stat.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace mvcs {

class FileSystem {
 public:
  virtual ~FileSystem() = default;

  virtual int Open(const char* path, int flags, mode_t mode) = 0;
  virtual int Close(int fd) = 0;
  virtual ssize_t Read(int fd, void* buffer, size_t size) = 0;
  virtual ssize_t Write(int fd, const void* data, size_t size) = 0;
  virtual int Fstat(int fd, struct stat* info) = 0;
  virtual int Stat(const char* path, struct stat* info) = 0;
  virtual int Lstat(const char* path, struct stat* info) = 0;
  virtual int Fsync(int fd) = 0;
  virtual int Fchmod(int fd, mode_t mode) = 0;
  virtual int Fchown(int fd, uid_t owner, gid_t group) = 0;
  // mkostemp: `name` ends in "XXXXXX", replaced by the name made.
  virtual int MakeTemporary(char* name, int flags) = 0;
  virtual int Rename(const char* from, const char* to) = 0;
  virtual int Unlink(const char* path) = 0;
  virtual int Mkdir(const char* path, mode_t mode) = 0;
  virtual int Flock(int fd, int operation) = 0;
  // The names in a folder (without "." and ".."): 0, or -1 with errno.
  virtual int ListFolder(const char* path, std::vector<std::string>& names) = 0;
  // realpath: 0 with `resolved` set, or -1 with errno.
  virtual int RealPath(const char* path, std::string& resolved) = 0;
  // readlink: 0 with `target` set to what the link holds, or -1 with
  // errno. The POSIX call unless a file system needs another.
  virtual int ReadLink(const char* path, std::string& target);
  // The generation number of the open file's inode (ioctl
  // FS_IOC_GETVERSION), which the file system draws afresh when it gives
  // an inode number to a new file: 0 with `generation` set, or -1 with
  // errno (ENOTTY where the file system keeps none). The ioctl unless a
  // file system needs another.
  virtual int Generation(int fd, unsigned& generation);
};

// The process's file system: the POSIX one, or what SetFileSystem set.
FileSystem& GetFileSystem();

// Makes `fileSystem` (not owned; it must outlive its use) the process's
// file system, or restores the POSIX one for null. For tests: set it while
// no other thread uses the store.
void SetFileSystem(FileSystem* fileSystem);

// The POSIX file system (the default), for file systems that pass calls on.
FileSystem& PosixFileSystem();

}  // namespace mvcs

#endif  // MORVSETTINGS_FILESYSTEM_H
