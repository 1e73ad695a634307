// PList: the shared in-memory copy of one settings file, and the
// process-wide cache through which nodes share it.

#ifndef MORVSETTINGS_PLIST_H
#define MORVSETTINGS_PLIST_H

#include <map>
#include <string>

#include "SettingsFiles.h"
#include "TreeMerge.h"
#include "common/RefCountedObject.h"
#include "format/PListTree.h"
#include "mvtl/RefCountedPtr.h"

namespace mvcs {

// One settings file: its path, its root dictionary once loaded, and whether
// that holds changes not yet written. Counted; the cache's entry holds one
// reference, and the Release that leaves only the cache's reference takes
// the entry out of the cache, so the cache never keeps a file alive by
// itself: when its last user lets go, the object (and any unsaved change)
// is gone, and the next GetPList reads the file afresh.
class PList : public RefCountedObject<mvtl::IRefCounted> {
 public:
  // File path (UTF-8) to the cached object.
  typedef std::map<std::string, mvtl::RefCountedPtr_STLSafe<PList>> Cache;

  // The process-wide cache. Made on first use, so that nodes made during
  // static initialisation find it, and never destroyed, so that nodes
  // released while the process exits still find it.
  static Cache& FileCache();

  // Finds or creates the cached object for `path`; *out (when not null)
  // receives it with one reference added: a new object counts 2, the cache
  // and the caller. Called with an empty RefCountedPtr as the target.
  static void GetPList(const std::string& path, PList** out);

  // Loads the file if no root dictionary is loaded yet. When it cannot be
  // loaded (missing, unreadable, not a property list with a dictionary at
  // its root) and `create` is true, starts from an empty dictionary (not
  // marked dirty). Returns whether a root dictionary exists.
  bool Open(bool create);

  // Records that this process changed the tree at `path` (a store, a
  // deletion, a key made or imported), so that a save that merges with
  // another process's version of the file applies the change (see
  // TreeMerge.h). The record is kept until a save writes the file.
  void RecordChange(KeyPath path);

  // Writes the root dictionary if it is dirty, merged with what other
  // processes saved meanwhile. Under the file's lock (SettingsFileLock,
  // waiting at most LockTimeout()): removes temporary files that a killed
  // writer left, reads the file as it is now and, if it is not what this
  // object last read or wrote, applies this process's recorded changes to
  // it and makes the in-memory tree that merged tree, in place (see
  // TreeMerge.h); then serialises it in the binary format and replaces the
  // file atomically. Creates missing folders first (once per object). A file
  // that is there but cannot be read is moved aside (see MoveFileAside),
  // never overwritten, and this object's tree is written in its place.
  //
  // True on success or when there was nothing to write. False with no root
  // dictionary, or when the save failed: the object stays dirty (a later
  // save tries again), and *error (when not null) says why: the failing
  // call's errno, EWOULDBLOCK when the lock could not be had in time, EFBIG
  // for a file larger than the store reads, EINVAL for a tree that cannot
  // be written so as to read back, or 0 with no root dictionary. errno is
  // left set to the same value.
  // When the save moved an unreadable file aside, *movedAside (when not
  // null) receives its new name.
  bool Save(int* error = nullptr, std::string* movedAside = nullptr);

  // Reads the file again if it changed since this object last read or
  // wrote it (its identity tells, without reading), keeping this process's
  // recorded changes on top, as a save merges them; the tree is updated in
  // place. *changed (when not null) says whether it was read again. False,
  // with the tree as it was, when a file is there that cannot be read.
  // True at once when no tree is loaded.
  bool Refresh(bool* changed = nullptr);

  // Counting, with the cache step described above.
  int Release() override;

  // The root dictionary, or null before a successful Open.
  PListDictionary* GetRoot() const { return m_root.Get(); }
  bool IsDirty() const { return m_dirty; }
  void SetDirty(bool dirty) { m_dirty = dirty; }

  // How long a save waits for the file's lock, for every file of the
  // process: $MORV_SETTINGS_LOCK_TIMEOUT milliseconds when that is set to a
  // number, else 5 seconds, until SetLockTimeout sets it.
  static unsigned LockTimeout();
  static void SetLockTimeout(unsigned milliseconds);

  // A new object for `path`, outside the cache, with a count of 0. The
  // store makes them through GetPList; counted objects die by Release.
  explicit PList(const std::string& path);

 private:
  ~PList() override;

  // The part of Save that runs under the file's lock. False on failure,
  // with `error` set.
  bool SaveLocked(int& error, std::string* movedAside);

  // Records the file as last read or written: what was there (`state`)
  // and, when it was read, its bytes and identity.
  void SetBase(FileReadResult state, std::string bytes, const FileIdentity& identity);

  bool m_inRemoval;  // set while erasing its own cache entry
  std::string m_path;
  bool m_directoriesMade;  // the folders above the file were made once
  mvtl::RefCountedPtr<PListDictionary> m_root;
  bool m_dirty;
  // The file as this object last read or wrote it, which a save compares
  // the disk with, and where this process changed the tree since.
  FileReadResult m_baseState;
  std::string m_baseBytes;
  FileIdentity m_baseIdentity;
  ChangedPaths m_changed;
};

}  // namespace mvcs

#endif  // MORVSETTINGS_PLIST_H
