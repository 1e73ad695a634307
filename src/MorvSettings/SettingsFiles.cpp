// Where settings files live and how they are read and written (see
// SettingsFiles.h). All of the store's file-system calls are here, made
// through the process's FileSystem (FileSystem.h), inotify aside.

#include "SettingsFiles.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <limits.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "FileSystem.h"
#include "common/FileDescriptor.h"

namespace mvcs {

namespace {

FileSystem& Fs() { return GetFileSystem(); }

// Calls `call` again while it fails with EINTR (for calls that may be
// repeated; close may not be).
template <class Call>
auto Retrying(Call call) -> decltype(call()) {
  for (;;) {
    const auto result = call();
    if (result >= 0 || errno != EINTR) return result;
  }
}

int CloseThroughFs(int fd) { return Fs().Close(fd); }
ssize_t WriteThroughFs(int fd, const void* data, std::size_t size) {
  return Fs().Write(fd, data, size);
}

// A descriptor of the process's file system, closed through it.
class Descriptor : public morv_common::FileDescriptor {
 public:
  explicit Descriptor(int fd) : FileDescriptor(fd, &CloseThroughFs) {}
};

// Opens through the file system, again after an interruption.
int OpenRetrying(const std::string& path, int flags, mode_t mode = 0) {
  return Retrying([&] { return Fs().Open(path.c_str(), flags, mode); });
}

// An environment variable's value, or empty.
std::string Environment(const char* name) {
  const char* value = getenv(name);
  return value != nullptr ? std::string(value) : std::string();
}

bool IsAbsolute(const std::string& path) { return !path.empty() && path[0] == '/'; }

// The folder part of a path ("." for a bare name).
std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  if (slash == 0) return "/";
  return path.substr(0, slash);
}

std::string BaseNameOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The process's umask, read without changing it (a change would race with
// other threads creating files); the set-and-restore way is the fallback.
mode_t CurrentUmask() {
  // Opened close-on-exec, as every descriptor of the store: another thread
  // may start a program meanwhile.
  const Descriptor fd(OpenRetrying("/proc/self/status", O_RDONLY | O_CLOEXEC));
  std::string status;
  char buffer[4096];
  for (ssize_t got; fd.Get() >= 0 && (got = Fs().Read(fd.Get(), buffer, sizeof(buffer))) != 0;) {
    if (got < 0) {
      if (errno == EINTR) continue;
      break;
    }
    status.append(buffer, static_cast<std::size_t>(got));
  }
  const std::size_t field = status.find("\nUmask:");
  if (field != std::string::npos) {
    return static_cast<mode_t>(std::strtoul(status.c_str() + field + 7, nullptr, 8)) & 0777;
  }
  const mode_t mask = umask(022);
  umask(mask);
  return mask;
}

// Where a symbolic link at `path` points, or `path` itself.
std::string LinkTarget(const std::string& path) {
  struct stat link;
  std::string resolved;
  if (Retrying([&] { return Fs().Lstat(path.c_str(), &link); }) == 0 && S_ISLNK(link.st_mode) &&
      Fs().RealPath(path.c_str(), resolved) == 0) {
    return resolved;
  }
  return path;
}

// The start of the names of WriteFileAtomically's temporary files for the
// (resolved) `path`: "." and the file's name and ".morv-save-"; mkstemp adds
// six characters. The infix keeps the sweep of stale ones off the user's own
// files (".<file>.backup", say).
std::string TemporaryPrefix(const std::string& path) {
  return "." + BaseNameOf(path) + ".morv-save-";
}
const std::size_t kTemporarySuffixLength = 6;

// Gives what `fd` is (a file or folder just made in `folder`) to the
// owner of `folder`, when that is not this process: what root makes in a
// user's folder stays the user's. Only a privileged process may; for any
// other the call fails and changes nothing, which is as it should be.
void GiveToOwnerOfFolder(int fd, const std::string& folder) {
  struct stat owner;
  if (Retrying([&] { return Fs().Stat(folder.c_str(), &owner); }) != 0) return;
  if (owner.st_uid == geteuid() && owner.st_gid == getegid()) return;
  struct stat made;
  if (Fs().Fstat(fd, &made) != 0) return;
  if (made.st_uid == owner.st_uid && made.st_gid == owner.st_gid) return;
  if (Fs().Fchown(fd, owner.st_uid, owner.st_gid) != 0) {
    // Not permitted (not root): it stays this process's.
  }
}

// Flushes a folder's entries (a rename, a file or folder made) to disk. A
// file system that cannot flush folders (EINVAL) has nothing more to do;
// any other failure is the save's, named after `file`.
Status SyncDirectory(const std::string& directory, const std::string& file) {
  typedef Status::Operation Step;
  const Descriptor fd(OpenRetrying(directory, O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  int reason = 0;
  if (fd.Get() < 0) {
    reason = errno;
  } else if (Retrying([&] { return Fs().Fsync(fd.Get()); }) != 0 && errno != EINVAL) {
    reason = errno;
  }
  if (reason == 0) return Status::OK();
  return Status::IOError(
      Step::kSync, file, reason,
      std::string("cannot flush its folder ") + directory + ": " + std::strerror(reason));
}

}  // namespace

std::string UserPreferencesDirectory() {
  std::string base = Environment("XDG_CONFIG_HOME");
  if (!IsAbsolute(base)) {
    const std::string home = Environment("HOME");
    if (!IsAbsolute(home)) return std::string();
    base = home + "/.config";
  }
  return base + "/Preferences";
}

std::string SharedPreferencesDirectory() {
  const std::string dirs = Environment("XDG_CONFIG_DIRS");
  std::string base = "/etc/xdg";
  std::size_t start = 0;
  while (start <= dirs.size()) {
    std::size_t colon = dirs.find(':', start);
    if (colon == std::string::npos) colon = dirs.size();
    const std::string entry = dirs.substr(start, colon - start);
    if (IsAbsolute(entry)) {
      base = entry;
      break;
    }
    start = colon + 1;
  }
  return base + "/Morv/Preferences";
}

std::string UserSettingsFile(const std::string& productId) {
  const std::string directory = UserPreferencesDirectory();
  if (directory.empty()) return std::string();
  return directory + "/" +
         (productId.empty() ? std::string("com.morv.plist") : "com.morv." + productId + ".plist");
}

std::string SharedSettingsFile() { return SharedPreferencesDirectory() + "/com.morv.plist"; }

namespace {

// The identity `info` describes, with the generation of `fd` (when not -1)
// if its file system keeps one.
FileIdentity IdentityFrom(const struct stat& info, int fd) {
  FileIdentity identity;
  identity.hasGeneration = fd >= 0 && Fs().Generation(fd, identity.generation) == 0;
  identity.exists = true;
  identity.device = info.st_dev;
  identity.inode = info.st_ino;
  identity.size = static_cast<unsigned long long>(info.st_size);
  identity.modified = info.st_mtim.tv_sec * 1000000000LL + info.st_mtim.tv_nsec;
  identity.changed = info.st_ctim.tv_sec * 1000000000LL + info.st_ctim.tv_nsec;
  return identity;
}

}  // namespace

FileIdentity IdentityOf(const std::string& path) {
  struct stat info;
  // Opened (without blocking, as any open of the store) for the
  // generation; stat where it cannot be.
  const Descriptor fd(OpenRetrying(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (fd.Get() >= 0 && Retrying([&] { return Fs().Fstat(fd.Get(), &info); }) == 0) {
    return IdentityFrom(info, fd.Get());
  }
  return Retrying([&] { return Fs().Stat(path.c_str(), &info); }) == 0 ? IdentityFrom(info, -1)
                                                                       : FileIdentity();
}

FileReadResult ReadResultOf(const Status& status) {
  if (status.ok()) return kFileRead;
  return status.IsNotFound() ? kFileMissing : kFileUnreadable;
}

Status ReadSettingsFile(const std::string& path, std::size_t maxSize, std::string& bytes,
                        FileIdentity* identity) {
  typedef Status::Operation Step;
  // Non-blocking, so that opening a FIFO cannot wait for a writer.
  const Descriptor fd(OpenRetrying(path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
  if (fd.Get() < 0) {
    const int reason = errno;
    if (reason == ENOENT || reason == ENOTDIR) {
      return Status(Status::Code::kNotFound, Step::kOpen, path, reason);
    }
    return Status::IOError(Step::kOpen, path, reason);
  }
  struct stat info;
  if (Retrying([&] { return Fs().Fstat(fd.Get(), &info); }) != 0) {
    return Status::IOError(Step::kOpen, path, errno);
  }
  if (!S_ISREG(info.st_mode)) return Status(Status::Code::kNotAFile, Step::kOpen, path);
  if (identity != nullptr) *identity = IdentityFrom(info, fd.Get());
  auto tooLarge = [&] {
    return Status(Status::Code::kTooLarge, Step::kRead, path, 0,
                  "larger than " + std::to_string(maxSize) + " bytes");
  };
  if (static_cast<std::size_t>(info.st_size) > maxSize) return tooLarge();
  // One byte more than the file holds, so that the read that meets its end
  // needs no more room.
  std::string contents;
  contents.resize(static_cast<std::size_t>(info.st_size) + 1);
  std::size_t total = 0;
  for (;;) {
    // The file may grow while it is read: read on to its end, but never
    // past the size limit.
    if (total == contents.size()) {
      if (contents.size() > maxSize) return tooLarge();
      contents.resize(contents.size() + 4096);
    }
    const ssize_t got = Fs().Read(fd.Get(), &contents[total], contents.size() - total);
    if (got < 0) {
      if (errno == EINTR) continue;
      return Status::IOError(Step::kRead, path, errno);
    }
    if (got == 0) break;
    total += static_cast<std::size_t>(got);
  }
  if (total > maxSize) return tooLarge();
  contents.resize(total);
  bytes.swap(contents);
  return Status::OK();
}

Status MakeAncestorDirectories(const std::string& path) {
  Status flushed;
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    const std::string prefix = path.substr(0, slash);
    struct stat info;
    if (Retrying([&] { return Fs().Stat(prefix.c_str(), &info); }) == 0) continue;
    if (Retrying([&] { return Fs().Mkdir(prefix.c_str(), 0777); }) != 0) continue;
    {
      const Descriptor made(OpenRetrying(prefix, O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
      if (made.Get() >= 0) GiveToOwnerOfFolder(made.Get(), DirectoryOf(prefix));
    }
    // A folder made: its entry in the folder above is flushed, or a power
    // loss could take it, and the file saved in it, away.
    Status status = SyncDirectory(DirectoryOf(prefix), path);
    if (flushed.ok()) flushed = std::move(status);
  }
  return flushed;
}

Status WriteFileAtomically(const std::string& requestedPath, const std::string& bytes) {
  typedef Status::Operation Step;
  // Write where symbolic links lead (keeping the links), as far as they may
  // be followed (see ResolveSettingsFile).
  std::string path;
  Status resolved = ResolveSettingsFile(requestedPath, path);
  if (!resolved.ok()) return resolved;
  const std::string directory = DirectoryOf(path);

  struct stat old;
  const bool replacing =
      Retrying([&] { return Fs().Stat(path.c_str(), &old); }) == 0 && S_ISREG(old.st_mode);
  const mode_t mode = replacing ? (old.st_mode & 07777) : (0666 & ~CurrentUmask());

  std::string temporary = directory + "/" + TemporaryPrefix(path) + "XXXXXX";
  const std::size_t suffix = temporary.size() - kTemporarySuffixLength;
  Descriptor fd(Retrying([&] {
    temporary.replace(suffix, kTemporarySuffixLength, "XXXXXX");  // as mkostemp wants it
    return Fs().MakeTemporary(&temporary[0], O_CLOEXEC);
  }));
  if (fd.Get() < 0) return Status::IOError(Step::kCreate, requestedPath, errno);
  // The first step that failed, and its errno (the failure's, not the
  // clean-up's).
  Step failed = Step::kNone;
  int reason = 0;
  auto fail = [&](Step step) {
    failed = step;
    reason = errno;
  };
  if (Retrying([&] { return Fs().Fchmod(fd.Get(), mode); }) != 0) {
    fail(Step::kWrite);
  } else {
    if (!replacing) {
      GiveToOwnerOfFolder(fd.Get(), directory);
    } else if (old.st_uid != geteuid() || old.st_gid != getegid()) {
      // Keep the owner where the process may (as root); otherwise the file
      // becomes the writer's, as any replacement would.
      if (Fs().Fchown(fd.Get(), old.st_uid, old.st_gid) != 0) {
        // Not permitted: the new file keeps the writer as owner.
      }
    }
    if (!morv_common::WriteAll(fd.Get(), bytes.data(), bytes.size(), &WriteThroughFs)) {
      fail(Step::kWrite);
    } else if (Retrying([&] { return Fs().Fsync(fd.Get()); }) != 0) {
      fail(Step::kSync);
    }
  }
  if (!fd.Close() && failed == Step::kNone) fail(Step::kWrite);
  if (failed == Step::kNone &&
      Retrying([&] { return Fs().Rename(temporary.c_str(), path.c_str()); }) != 0) {
    fail(Step::kRename);
  }
  if (failed != Step::kNone) {
    Retrying([&] { return Fs().Unlink(temporary.c_str()); });
    return Status::IOError(failed, requestedPath, reason);
  }
  // The new file is in place; until its folder is flushed, a power loss
  // may bring the old one back: a failure here is the save's.
  return SyncDirectory(directory, requestedPath);
}

namespace {

// Whether the user and group `uid`, `gid` may write the file `info`
// describes, by its mode (root may write anything).
bool MayWrite(uid_t uid, gid_t gid, const struct stat& info) {
  if (uid == 0) return true;
  if (info.st_uid == uid) return (info.st_mode & S_IWUSR) != 0;
  if (info.st_gid == gid) return (info.st_mode & S_IWGRP) != 0;
  return (info.st_mode & S_IWOTH) != 0;
}

}  // namespace

Status ResolveSettingsFile(const std::string& path, std::string& resolved) {
  auto refuse = [&](int error, const std::string& why) {
    return Status::IOError(Status::Operation::kOpen, path, error, why);
  };
  // Components still to walk, the last first; the resolved folder so far.
  std::vector<std::string> pending;
  auto push = [&pending](const std::string& text) {
    std::vector<std::string> parts;
    for (std::size_t start = 0; start <= text.size();) {
      std::size_t slash = text.find('/', start);
      if (slash == std::string::npos) slash = text.size();
      if (slash > start) parts.push_back(text.substr(start, slash - start));
      start = slash + 1;
    }
    pending.insert(pending.end(), parts.rbegin(), parts.rend());
  };
  if (!IsAbsolute(path)) {
    resolved = path;
    return Status::OK();
  }
  push(path);
  std::string current;  // "" is the root
  int links = 0;
  std::vector<struct stat> fileLinks;  // the links that stood for the file's own name
  while (!pending.empty()) {
    const std::string component = pending.back();
    pending.pop_back();
    if (component == ".") continue;
    if (component == "..") {
      current = DirectoryOf(current.empty() ? "/" : current);
      if (current == "/") current.clear();
      continue;
    }
    const std::string candidate = current + "/" + component;
    struct stat link;
    if (Retrying([&] { return Fs().Lstat(candidate.c_str(), &link); }) != 0 ||
        !S_ISLNK(link.st_mode)) {
      current = candidate;
      continue;
    }
    if (++links > 40) return refuse(ELOOP, "too many symbolic links in " + path);
    struct stat folder;
    const std::string holder = current.empty() ? "/" : current;
    if (Retrying([&] { return Fs().Stat(holder.c_str(), &folder); }) != 0) {
      return refuse(errno, std::string("cannot look at ") + holder + ": " + std::strerror(errno));
    }
    if (link.st_uid != geteuid() && link.st_uid != folder.st_uid) {
      return refuse(EACCES, "will not follow the symbolic link " + candidate +
                                ": it belongs neither to this user nor to its folder's owner");
    }
    std::string target;
    if (Fs().ReadLink(candidate.c_str(), target) != 0) {
      return refuse(errno,
                    "cannot read the symbolic link " + candidate + ": " + std::strerror(errno));
    }
    if (IsAbsolute(target)) current.clear();
    if (pending.empty()) fileLinks.push_back(link);
    push(target);
  }
  resolved = current.empty() ? "/" : current;
  // Through a link, only into a file that the link's owner may write: a
  // save must not write for this process what the link's owner could not.
  struct stat file;
  if (fileLinks.empty() || Retrying([&] { return Fs().Stat(resolved.c_str(), &file); }) != 0) {
    return Status::OK();
  }
  for (const struct stat& link : fileLinks) {
    if (link.st_uid != geteuid() && !MayWrite(link.st_uid, link.st_gid, file)) {
      return refuse(EACCES, "will not write " + resolved +
                                " through the symbolic link of a user who may not write it");
    }
  }
  return Status::OK();
}

std::string LockFilePath(const std::string& settingsPath) { return settingsPath + ".lock"; }

SettingsFileLock::~SettingsFileLock() {
  if (m_fd >= 0) Fs().Close(m_fd);  // closing releases the lock
}

Status LockTimedOut(const std::string& settingsPath) {
  return Status::IOError(
      Status::Operation::kLock, settingsPath, EWOULDBLOCK,
      "another program held its lock (" + LockFilePath(settingsPath) + ") for too long; try again");
}

Status SettingsFileLock::Acquire(const std::string& settingsPath, unsigned timeoutMilliseconds) {
  const std::string path = LockFilePath(settingsPath);
  int fd = OpenRetrying(path, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0666);
  if (fd < 0) {
    const int reason = errno;
    // A lock file that someone else made and this process may not write
    // still takes a lock: flock needs no write access. When there is none
    // either, the reason is the first open's (no permission to make it).
    if (reason == EACCES) fd = OpenRetrying(path, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (fd < 0) return Status::IOError(Status::Operation::kLock, settingsPath, reason);
  }
  // Polls rather than blocks, so that the wait is bounded; the pauses
  // grow from 1 ms to 16 ms, so a short save by another process costs little.
  const auto deadline =
      std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMilliseconds);
  std::chrono::microseconds pause(1000);
  for (;;) {
    if (Fs().Flock(fd, LOCK_EX | LOCK_NB) == 0) break;
    const int reason = errno;
    if (reason == EINTR) continue;
    if (reason != EWOULDBLOCK) {
      Fs().Close(fd);
      return Status::IOError(Status::Operation::kLock, settingsPath, reason);
    }
    if (std::chrono::steady_clock::now() >= deadline) {
      Fs().Close(fd);
      return LockTimedOut(settingsPath);
    }
    std::this_thread::sleep_for(pause);
    pause = std::min(pause * 2, std::chrono::microseconds(16000));
  }
  GiveToOwnerOfFolder(fd, DirectoryOf(path));  // a lock file just made
  if (m_fd >= 0) Fs().Close(m_fd);
  m_fd = fd;
  return Status::OK();
}

void RemoveStaleTemporaryFiles(const std::string& settingsPath) {
  std::string path;
  if (!ResolveSettingsFile(settingsPath, path).ok()) return;
  const std::string directory = DirectoryOf(path);
  const std::string prefix = TemporaryPrefix(path);
  std::vector<std::string> names;
  if (Retrying([&] { return Fs().ListFolder(directory.c_str(), names); }) != 0) return;
  for (const std::string& name : names) {
    if (name.size() == prefix.size() + kTemporarySuffixLength &&
        name.compare(0, prefix.size(), prefix) == 0) {
      Retrying([&] { return Fs().Unlink((directory + "/" + name).c_str()); });
    }
  }
}

FileWatch::FileWatch(const std::vector<std::string>& files)
    : m_fd(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)), m_files(files) {
  if (m_fd >= 0) Arm();
}

FileWatch::~FileWatch() {
  if (m_fd >= 0) close(m_fd);  // closing drops every watch
}

void FileWatch::Arm() {
  const uint32_t mask = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_CLOSE_WRITE |
                        IN_MODIFY | IN_ATTRIB | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;
  std::vector<int> watches;
  for (const std::string& file : m_files) {
    // The file's folder, or the nearest folder above it that exists.
    std::string folder = DirectoryOf(LinkTarget(file));
    for (;;) {
      const int watch = inotify_add_watch(m_fd, folder.c_str(), mask);
      if (watch >= 0) {
        watches.push_back(watch);
        break;
      }
      if (folder == "/" || folder == ".") break;
      folder = DirectoryOf(folder);
    }
  }
  std::sort(watches.begin(), watches.end());
  watches.erase(std::unique(watches.begin(), watches.end()), watches.end());
  for (int old : m_watches) {
    if (!std::binary_search(watches.begin(), watches.end(), old)) inotify_rm_watch(m_fd, old);
  }
  m_watches.swap(watches);
}

bool FileWatch::Drain() {
  if (m_fd < 0) return false;
  bool any = false, folders = false;
  alignas(inotify_event) char buffer[16384];
  for (;;) {
    const ssize_t got = read(m_fd, buffer, sizeof(buffer));
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    any = true;
    for (ssize_t at = 0; at < got;) {
      const inotify_event* event = reinterpret_cast<const inotify_event*>(buffer + at);
      // A folder made, removed or moved (or a watch gone with its folder,
      // or events lost): the folders to watch may be others now.
      if ((event->mask & (IN_ISDIR | IN_DELETE_SELF | IN_MOVE_SELF | IN_IGNORED | IN_Q_OVERFLOW)) !=
          0) {
        folders = true;
      }
      at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
    }
  }
  if (folders) Arm();
  return any;
}

Status MoveFileAside(const std::string& path, std::string* movedTo) {
  typedef Status::Operation Step;
  struct stat info;
  if (Retrying([&] { return Fs().Lstat(path.c_str(), &info); }) != 0) {
    if (errno == ENOENT || errno == ENOTDIR) return Status::OK();
    return Status::IOError(Step::kMoveAside, path, errno);
  }
  if (!S_ISREG(info.st_mode) && !S_ISLNK(info.st_mode)) {
    return Status(Status::Code::kNotAFile, Step::kMoveAside, path);
  }
  // A new name that nothing else uses: mkstemp makes an empty file there,
  // which the rename then replaces.
  std::string aside = path + ".unreadable-XXXXXX";
  const std::size_t suffix = aside.size() - 6;
  const int fd = Retrying([&] {
    aside.replace(suffix, 6, "XXXXXX");
    return Fs().MakeTemporary(&aside[0], O_CLOEXEC);
  });
  if (fd < 0) return Status::IOError(Step::kMoveAside, path, errno);
  Fs().Close(fd);
  if (Retrying([&] { return Fs().Rename(path.c_str(), aside.c_str()); }) != 0) {
    const int reason = errno;
    Retrying([&] { return Fs().Unlink(aside.c_str()); });
    return Status::IOError(Step::kMoveAside, path, reason);
  }
  if (movedTo != nullptr) *movedTo = aside;
  // Flushed before anything takes the old name: a power loss must not lose
  // the file kept aside.
  return SyncDirectory(DirectoryOf(path), path);
}

}  // namespace mvcs
