// PList: the shared in-memory copy of one settings file, and the
// process-wide cache through which nodes share it.

#ifndef MORVSETTINGS_PLIST_H
#define MORVSETTINGS_PLIST_H

#include <cstdint>
#include <map>
#include <mutex>
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
//
// Locking: everything here is guarded by the store lock (StoreLock.h),
// which callers hold. Open, Save and Refresh let go of it while they read,
// lock, write or sync the file, so other threads keep working on the tree
// meanwhile; they take it again to publish what they read or wrote. Saves
// and refreshes of one file are serialised among themselves by the file's
// own I/O mutex, always taken without the store lock.
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

  // Records that this process changed the tree at `path` (see TreeMerge.h):
  // `replaced` when the entry there was replaced as a whole (a value stored,
  // a key deleted), not only a dictionary made. The record is kept until a
  // save writes the change. Any change may take dictionaries out of the
  // tree, so it also moves the generation on.
  void RecordChange(KeyPath path, bool replaced);

  // Writes the root dictionary if it is dirty, merged with what other
  // processes saved meanwhile. Under the file's lock (SettingsFileLock,
  // waiting at most LockTimeout()): removes temporary files that a killed
  // writer left, and looks at the file's identity. When that is what this
  // object last read or wrote (see FileIdentity), nobody else
  // saved it since: the tree as it was when the save began is written, and
  // the file is not read. Otherwise the file is read and, if it is not what
  // this object last read or wrote, this process's recorded changes are
  // applied to it, and that is written and made the in-memory tree (see
  // TreeMerge.h). A file whose identity has changed already when the save
  // begins is merged so, also when its bytes turn out the same. The file is
  // replaced atomically, in the binary format. Makes the folders above the
  // file when they are missing (also when they were removed since the last
  // save). A file that the format refuses is moved aside (see
  // MoveFileAside), never overwritten, and this object's tree is written in
  // its place; a file that cannot be read for an I/O error (EIO, EACCES...)
  // is left as it is, and the save fails. Changes that other threads make while the save
  // runs stay in memory, recorded, and the file stays dirty for them.
  //
  // Success when the file was written or there was nothing to write. A
  // failure names the file and the step that failed (with its errno): the
  // lock not had in time (EWOULDBLOCK), a folder or file that cannot be
  // made or written, a tree too large for the store to read back (kTooLarge)
  // or otherwise refused by the format, or no tree loaded (kNotFound). The
  // object stays dirty and keeps its changes, for a later save.
  // When the save moved an unreadable file aside, *movedAside (when not
  // null) receives its new name.
  Status Save(std::string* movedAside = nullptr);

  // Reads the file again if it changed since this object last read or
  // wrote it (its identity tells, without reading), keeping this process's
  // recorded changes on top, as a save merges them. *changed (when not
  // null) says whether it was read again. False, with the tree as it was,
  // when a file is there that cannot be read. True at once when no tree is
  // loaded.
  bool Refresh(bool* changed = nullptr);

  // Drops this process's changes that no save has written: the tree goes
  // back to the file as this object last read or wrote it (an empty
  // dictionary when nothing readable was there), with no change recorded
  // and not dirty. No file-system call; a save or refresh of this file that
  // another thread is running is waited for (without the store lock), so
  // what it writes or reads is what the tree goes back to. Nothing happens
  // while no tree is loaded. Moves the generation on: dictionaries found in
  // the dropped tree are gone.
  void Discard();

  // Counting, with the cache step described above.
  int Release() override;

  // The root dictionary, or null before a successful Open.
  PListDictionary* GetRoot() const { return m_root.Get(); }
  bool IsDirty() const { return m_dirty; }
  void SetDirty(bool dirty);

  // A number that changes whenever dictionaries may have been added to or
  // taken out of the tree (a load, a merge, a refresh, any recorded
  // change), and is never the same for two trees of any file: a pointer
  // into the tree found under one generation is valid while the generation
  // stays the same.
  std::uint64_t GetGeneration() const { return m_generation; }

  // How long a save waits for the file's lock, for every file of the
  // process: $MORV_SETTINGS_LOCK_TIMEOUT milliseconds when that is set to a
  // number, else 5 seconds, until SetLockTimeout sets it.
  static unsigned LockTimeout();
  static void SetLockTimeout(unsigned milliseconds);

  // A new object for `path`, outside the cache, with a count of 0. The
  // store makes them through GetPList; counted objects die by Release.
  explicit PList(const std::string& path);

 private:
  // The file as last read or written, which saves and refreshes compare the
  // disk with: what was there, and (when it was read) its bytes and
  // identity.
  struct Base {
    FileReadResult state = kFileMissing;
    std::string bytes;
    FileIdentity identity;
  };

  // The tree of the base: its bytes parsed, or an empty dictionary when
  // nothing readable was there.
  mvtl::RefCountedPtr<PListDictionary> BaseTree() const;

  // What a save takes from the tree under the store lock.
  struct Snapshot;

  ~PList() override;

  // Moves the generation on (see GetGeneration).
  void NewGeneration();

  // Replaces the tree by `tree`, this process's changes recorded after
  // `after` applied to it (see TreeMerge.h).
  void ReplaceTree(mvtl::RefCountedPtr<PListDictionary> tree, std::uint64_t after);

  // The part of Save that runs under the file's lock and without the store
  // lock.
  Status WriteLocked(Snapshot& snapshot, std::string* movedAside);

  bool m_inRemoval;  // set while erasing its own cache entry
  const std::string m_path;
  mvtl::RefCountedPtr<PListDictionary> m_root;
  bool m_dirty;
  std::uint64_t m_dirtyCount;  // how often SetDirty(true) was called
  std::uint64_t m_generation;
  // Changes since the file was last read or written; m_changeCount
  // numbers them.
  ChangeLog m_changes;
  std::uint64_t m_changeCount;
  // Written under both the store lock and m_io (or, by a first load,
  // before any save or refresh can run), so read under either.
  Base m_base;
  std::mutex m_io;  // one save or refresh of this file at a time
};

}  // namespace mvcs

#endif  // MORVSETTINGS_PLIST_H
