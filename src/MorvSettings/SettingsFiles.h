// Where settings files live and how they are read and written: the
// platform-specific part of the store (XDG base directories, POSIX files).

#ifndef MORVSETTINGS_SETTINGSFILES_H
#define MORVSETTINGS_SETTINGSFILES_H

#include <cstddef>
#include <string>
#include <vector>

#include "common/Status.h"

namespace mvcs {

// The user's settings folder: $XDG_CONFIG_HOME when it is set and absolute,
// else $HOME/.config, followed by "/Preferences". Empty when neither is
// available.
std::string UserPreferencesDirectory();

// The machine-wide settings folder: the first absolute entry of
// $XDG_CONFIG_DIRS, else /etc/xdg, followed by "/Morv/Preferences".
std::string SharedPreferencesDirectory();

// The per-user file of a product, "com.morv.<productId>.plist" in the
// user's settings folder ("com.morv.plist" for an empty id); empty when
// there is no user folder.
std::string UserSettingsFile(const std::string& productId);

// The machine-wide file, "com.morv.plist" in the machine-wide folder.
std::string SharedSettingsFile();

// What a read found at a path, as a cached file remembers it.
enum FileReadResult {
  kFileRead,        // the file, read (and parsed)
  kFileMissing,     // there is no file (or no folder) at the path
  kFileUnreadable,  // something is there that cannot be read or used
};

// What a read (and the parse of its bytes) that ended in `status` found.
FileReadResult ReadResultOf(const Status& status);

// What tells one version of a file from another without reading it: the
// device and inode (a file replaced by rename is a new inode), the inode's
// generation number where the file system keeps one, the size, and the
// modification and change times in nanoseconds. The generation tells a new
// file that got the inode number of one deleted before it (ext4 gives the
// lowest free number: the second of two saves that replace a file often
// gets the number of the file the first replaced). Equal identities mean
// the same content, unless a program rewrote the file in place within one
// tick of the file system's clock (a few milliseconds; a second or two on
// some file systems) and kept its size, which no save of the store does
// (every save renames a new file in); or, on a file system without
// generation numbers that reuses inode numbers, two saves of other
// processes replaced it within one tick and kept its size.
struct FileIdentity {
  unsigned long long device = 0, inode = 0, size = 0;
  long long modified = 0, changed = 0;  // nanoseconds since the epoch
  unsigned generation = 0;
  bool hasGeneration = false;  // whether `generation` is known
  bool exists = false;

  // Generations are compared when both are known.
  bool operator==(const FileIdentity& other) const {
    return exists == other.exists && device == other.device && inode == other.inode &&
           size == other.size && modified == other.modified && changed == other.changed &&
           (!hasGeneration || !other.hasGeneration || generation == other.generation);
  }
  bool operator!=(const FileIdentity& other) const { return !(*this == other); }
};

// The identity of what is at `path` now (symbolic links followed); one
// that does not exist when there is nothing there (or stat fails). The
// generation is known when the file can be opened for reading.
FileIdentity IdentityOf(const std::string& path);

// Reads the regular file at `path`, at most `maxSize` bytes. Never blocks
// on special files (FIFOs, devices). OK with the file in `bytes` and, when
// `identity` is not null, its identity there. Otherwise `bytes` is
// untouched and the status says why, with `path` as its file:
//   kNotFound  nothing (or no folder) at the path
//   kIOError   open, fstat or read failed: its errno (EACCES or EPERM for no
//              permission)
//   kNotAFile  a folder, device, FIFO or socket
//   kTooLarge  larger than `maxSize`: refused without being read
Status ReadSettingsFile(const std::string& path, std::size_t maxSize, std::string& bytes,
                        FileIdentity* identity = nullptr);

// For every "/" in `path` after its first character, in order: if the
// prefix before it does not exist, creates it as a directory with mode 0777
// (less the umask) and flushes the folder above it, so that a power loss
// cannot take the new folder away. Failures to make a folder are ignored
// (the write that follows reports); a failure to flush is returned, named
// after `path`.
Status MakeAncestorDirectories(const std::string& path);

// The file that a save of `path` locks, writes and sweeps beside: `path`
// itself, or where symbolic links in it (the file's own name or any folder
// above it) lead. A link is followed only as the kernel's protected-symlinks
// rule would follow it, in every folder: when it belongs to this process's
// user or to the owner of the folder that holds it; and a link to the
// settings file only into a file that the link's owner may write. A link
// that may not be followed fails with EACCES (ELOOP for too many links),
// naming `path`, and nothing is written.
Status ResolveSettingsFile(const std::string& path, std::string& resolved);

// Replaces the file at `path` with `bytes` atomically and durably: a
// temporary file created exclusively in the same folder, written, flushed
// to disk (fsync), renamed over `path`, then the folder flushed (a failure
// to flush it is a failure of the write: kSync, although the new file is
// in place). Interrupted calls (EINTR) are made again. The file
// keeps the mode (and, where permitted, the owner) of the file it replaces;
// a new file gets 0666 less the umask. Symbolic links are followed as
// ResolveSettingsFile says (a link that may not be followed fails). On any failure (full disk,
// read-only folder, ...) the temporary file is removed, the old file is untouched, and the result
// is a kIOError for `path` with the failing step (kCreate, kWrite, kSync, kRename) and the errno it
// set.
Status WriteFileAtomically(const std::string& path, const std::string& bytes);

// The lock file of a settings file: "<path>.lock" beside it. Every save of
// the file holds an exclusive lock on it (flock); it is the only file the
// store adds to a settings folder, and it is left in place.
std::string LockFilePath(const std::string& settingsPath);

// The exclusive lock on a settings file's lock file, held from a successful
// Acquire until destruction.
class SettingsFileLock {
 public:
  SettingsFileLock() = default;
  ~SettingsFileLock();
  SettingsFileLock(const SettingsFileLock&) = delete;
  SettingsFileLock& operator=(const SettingsFileLock&) = delete;

  // Opens (creating it, mode 0666 less the umask) the lock file of
  // `settingsPath` and takes its lock, waiting at most
  // `timeoutMilliseconds`. When it cannot, a kIOError (step kLock) for
  // `settingsPath`: LockTimedOut's when another process held the lock for
  // all that time, else with the errno that opening the lock file (or
  // flock) failed with.
  Status Acquire(const std::string& settingsPath, unsigned timeoutMilliseconds);

 private:
  int m_fd = -1;
};

// The failure of a save that waited for the lock of `settingsPath` in vain:
// errno EWOULDBLOCK, and a message that names the lock file.
Status LockTimedOut(const std::string& settingsPath);

// Removes the temporary files of WriteFileAtomically for `settingsPath`
// (".<name>.morv-save-XXXXXX" in its folder, and no other name) that a
// writer killed during a save left behind. Only while holding the file's
// lock: then none of them belongs to a save that is still running.
void RemoveStaleTemporaryFiles(const std::string& settingsPath);

// Tells when any of some files may have changed, through inotify: the
// folders that hold them are watched (or, for a folder that does not exist
// yet, the nearest one above it that does, until the folders are made), so
// that files made, replaced by rename, written in place or removed are all
// seen. Says "may": what it reports is to be checked (IdentityOf).
class FileWatch {
 public:
  explicit FileWatch(const std::vector<std::string>& files);
  ~FileWatch();
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;

  // False when inotify could not be had.
  bool IsValid() const { return m_fd >= 0; }

  // Readable (POLLIN) when events are pending.
  int Descriptor() const { return m_fd; }

  // Takes the pending events without waiting, and follows folders that
  // were made, removed or moved. True when there were any.
  bool Drain();

 private:
  // Watches the folder of each file, or the nearest existing one above it,
  // and nothing else.
  void Arm();

  int m_fd;
  std::vector<std::string> m_files;
  std::vector<int> m_watches;  // the watch descriptors now in use
};

// Moves a file that could not be read out of the way before it is
// replaced: renames it to "<path>.unreadable-XXXXXX" (a new name) beside
// it. OK when that worked (and `movedTo`, when not null, receives the new
// name) or when nothing is at `path` any more. Otherwise nothing moved and
// the status (step kMoveAside, file `path`) says why: kNotAFile for a
// folder (or device...) at `path`, else a kIOError with its errno.
Status MoveFileAside(const std::string& path, std::string* movedTo = nullptr);

}  // namespace mvcs

#endif  // MORVSETTINGS_SETTINGSFILES_H
