// PList: the shared in-memory copy of one settings file (see PList.h).

#include "PList.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "SettingsFiles.h"
#include "StoreLock.h"
#include "TreeMerge.h"
#include "format/PListFormat.h"
#include "format/PListLimits.h"

namespace mvcs {

PList::Cache& PList::FileCache() {
  // Made on first use and never destroyed: a node that an object destroyed
  // at exit still holds (a global smart pointer, a static of another
  // library) is then closed and saved normally, after this function's
  // statics would otherwise be gone.
  static Cache* const cache = new Cache;
  return *cache;
}

void PList::GetPList(const std::string& path, PList** out) {
  mvtl::RefCountedPtr_STLSafe<PList>& entry = FileCache()[path];
  if (entry.Get() == nullptr) entry.Assign(new PList(path));
  if (out != nullptr) {
    *out = entry.Get();
    (*out)->AddRef();
  }
}

namespace {

// The lock timeout: $MORV_SETTINGS_LOCK_TIMEOUT (milliseconds) when it is a
// number, else 5 seconds; SetLockTimeout replaces it.
std::atomic<unsigned>& LockTimeoutSetting() {
  static std::atomic<unsigned>* const setting = [] {
    unsigned milliseconds = 5000;
    if (const char* text = std::getenv("MORV_SETTINGS_LOCK_TIMEOUT")) {
      char* end = nullptr;
      const unsigned long value = std::strtoul(text, &end, 10);
      if (end != text && *end == '\0' && value <= 24ul * 3600 * 1000) {
        milliseconds = static_cast<unsigned>(value);
      }
    }
    return new std::atomic<unsigned>(milliseconds);
  }();
  return *setting;
}

}  // namespace

unsigned PList::LockTimeout() { return LockTimeoutSetting().load(); }

void PList::SetLockTimeout(unsigned milliseconds) { LockTimeoutSetting() = milliseconds; }

PList::PList(const std::string& path)
    : m_inRemoval(false),
      m_path(path),
      m_dirty(false),
      m_dirtyCount(0),
      m_generation(0),
      m_changeCount(0) {
  NewGeneration();
}

PList::~PList() {}

namespace {

// Serialises `tree` in the binary format, refusing a tree that would not
// read back; the failure names `path`. `previous`: the bytes of the file
// before (empty when none), which make it faster.
Status Serialise(const PListDictionary& tree, std::string& bytes, const std::string& path,
                 const std::string& previous) {
  return WriteBinaryPropertyList(tree, bytes, previous).WithPath(path);
}

// Reads and parses the file at `path`: its bytes, identity and tree (null
// when there is no file). A parse failure names the file.
Status Load(const std::string& path, std::string& bytes, FileIdentity& identity,
            mvtl::RefCountedPtr<PListDictionary>& tree) {
  Status status = ReadSettingsFile(path, kMaxSettingsFileSize, bytes, &identity);
  if (status.ok()) status = ParsePropertyList(bytes, tree).WithPath(path);
  return status;
}

}  // namespace

struct PList::Snapshot {
  // What to write: the tree as the save began, serialised when the file
  // looked unchanged then (else empty, `serialised` false, and the save
  // merges).
  std::string bytes;
  bool serialised = false;
  ChangeList changes;             // this process's changes, for a merge
  std::uint64_t changeCount = 0;  // the last change taken
  std::uint64_t dirtyCount = 0;
  // Set by the write: the merged tree, when there was a merge; whether an
  // unreadable file was moved aside; what is on disk after the write.
  mvtl::RefCountedPtr<PListDictionary> merged;
  bool movedAside = false;
  Base written;
};

mvtl::RefCountedPtr<PListDictionary> PList::BaseTree() const {
  mvtl::RefCountedPtr<PListDictionary> tree;
  if (m_base.state != kFileRead || !ParsePropertyList(m_base.bytes, tree).ok()) {
    tree = new PListDictionary;
  }
  return tree;
}

void PList::NewGeneration() {
  static std::atomic<std::uint64_t> generations(0);
  m_generation = ++generations;
}

void PList::SetDirty(bool dirty) {
  if (dirty) ++m_dirtyCount;
  m_dirty = dirty;
}

bool PList::Open(bool create) {
  if (m_root.Get() == nullptr) {
    Base base;
    mvtl::RefCountedPtr<PListDictionary> root;
    StoreUnlock unlocked;
    std::lock_guard<std::mutex> io(m_io);
    base.state = ReadResultOf(Load(m_path, base.bytes, base.identity, root));
    StoreLock lock;
    // Unless another thread loaded the file meanwhile: the base follows
    // the latest load, so a file that another program repaired since an
    // earlier failed load counts as read.
    if (m_root.Get() == nullptr) {
      if (base.state != kFileRead) base = Base{base.state, std::string(), FileIdentity()};
      m_base = std::move(base);
      if (root.Get() != nullptr) {
        m_root = root;
        NewGeneration();
      }
    }
  }
  if (m_root.Get() == nullptr && create) {
    m_root = new PListDictionary;
    NewGeneration();
  }
  return m_root.Get() != nullptr;
}

void PList::RecordChange(KeyPath path, bool replaced) {
  ChangeRecord& record = m_changes[std::move(path)];
  record.replaced = record.replaced || replaced;
  record.sequence = ++m_changeCount;
  NewGeneration();
}

void PList::ReplaceTree(mvtl::RefCountedPtr<PListDictionary> tree, std::uint64_t after) {
  ApplyChanges(CaptureChanges(*m_root, m_changes, after), *tree);
  m_root = tree;
  NewGeneration();
}

Status PList::Save(std::string* movedAside) {
  // No file-system call under the store lock: the tree is taken under it,
  // written without it, and the outcome published under it again.
  StoreUnlock unlocked;
  std::lock_guard<std::mutex> io(m_io);
  {
    StoreLock lock;
    if (m_root.Get() == nullptr) {
      return Status(Status::Code::kNotFound, Status::Operation::kNone, m_path, 0,
                    "the settings were never loaded");
    }
    if (!m_dirty) return Status::OK();
  }
  // The base does not change while the I/O mutex is held. A file that
  // another process saved since it was read or written is merged: the tree
  // is not serialised for nothing.
  const bool looksUnchanged =
      m_base.state != kFileUnreadable && IdentityOf(m_path) == m_base.identity;
  Snapshot snapshot;
  Status status;
  {
    StoreLock lock;
    snapshot.changeCount = m_changeCount;
    snapshot.dirtyCount = m_dirtyCount;
    snapshot.changes = CaptureChanges(*m_root, m_changes);
    if (looksUnchanged) {
      status = Serialise(*m_root, snapshot.bytes, m_path, m_base.bytes);
      snapshot.serialised = true;
    }
  }
  if (status.ok()) status = WriteLocked(snapshot, movedAside);
  StoreLock lock;
  if (snapshot.movedAside) m_base = Base();  // nothing is there now
  if (!status.ok()) return status;           // dirty still, changes still recorded
  m_base = std::move(snapshot.written);
  if (snapshot.merged.Get() != nullptr) ReplaceTree(snapshot.merged, snapshot.changeCount);
  for (auto it = m_changes.begin(); it != m_changes.end();) {
    it = it->second.sequence <= snapshot.changeCount ? m_changes.erase(it) : std::next(it);
  }
  // Changes made by other threads meanwhile keep the file dirty.
  if (m_dirtyCount == snapshot.dirtyCount) m_dirty = false;
  return status;
}

Status PList::WriteLocked(Snapshot& snapshot, std::string* movedAside) {
  // Locked, written and swept at the file that symbolic links lead to, so
  // that two links to one file share one lock (and refused where a link may
  // not be followed).
  std::string file;
  Status status = ResolveSettingsFile(m_path, file);
  if (!status.ok()) return status;
  SettingsFileLock lock;
  status = lock.Acquire(file, LockTimeout());
  if (status.error() == ENOENT) {
    // The folders are not there: never made yet, or removed since (by a
    // user, while this program ran). Made (again), then locked.
    status = MakeAncestorDirectories(file);
    if (status.ok()) status = lock.Acquire(file, LockTimeout());
  }
  if (!status.ok()) return status;
  // Under the lock no other save of this file runs: any temporary file of
  // one is left over from a writer that was killed.
  RemoveStaleTemporaryFiles(file);

  // What is on disk now. What this object last read or wrote when its
  // identity says so: nothing there, as before, or the same file. Checked
  // under the lock, so that no other save comes between this look and the
  // write. Another save renames a new file in: a new inode, or the number
  // of a deleted one with a new generation, and new times. What the
  // identity cannot tell (FileIdentity) is a program that rewrites the file
  // in place without the lock, keeping its size, within one tick of the
  // clock after this object's last read or write (such a writer races with
  // every save anyway), and, on a file system that reuses inode numbers
  // without generations, two saves of others within one tick that keep
  // its size. When the identity differs, the bytes tell.
  bool asBase = m_base.state != kFileUnreadable && IdentityOf(file) == m_base.identity;
  FileReadResult state = m_base.state;
  std::string disk;
  mvtl::RefCountedPtr<PListDictionary> diskTree;
  if (!asBase) {
    status = ReadSettingsFile(file, kMaxSettingsFileSize, disk);
    // Only bytes read completely and refused by the format (or something
    // that is no file) make the file unreadable: a failing read (EIO,
    // EACCES, ...) says nothing of what the file holds, so the save fails
    // and nothing is moved aside.
    if (status.code() == Status::Code::kIOError) return status;
    state = ReadResultOf(status);
    asBase = state != kFileUnreadable && state == m_base.state && disk == m_base.bytes;
    if (!asBase && state == kFileRead && !ParsePropertyList(disk, diskTree).ok()) {
      state = kFileUnreadable;
    }
  }
  if (!asBase && state == kFileUnreadable) {
    // Something that cannot be read is kept aside, never overwritten; this
    // object's tree, the last readable state known, takes its place.
    status = MoveFileAside(file, movedAside);
    if (!status.ok()) return status;
    snapshot.movedAside = true;
  }
  if (!snapshot.serialised || (!asBase && state != kFileUnreadable)) {
    // Another process saved (or removed) the file since this object read
    // or wrote it: write the disk's tree with this process's changes. (The
    // file as this object knew it, or nothing readable, takes the disk's
    // place when the save merges only because the identity had changed.)
    const bool fromBase = asBase || state == kFileUnreadable;
    mvtl::RefCountedPtr<PListDictionary> target = fromBase ? BaseTree() : diskTree;
    if (target.Get() == nullptr) target = new PListDictionary;  // no file
    ApplyChanges(std::move(snapshot.changes), *target);
    snapshot.merged = target;
    status = Serialise(*target, snapshot.bytes, file, fromBase ? m_base.bytes : disk);
    if (!status.ok()) return status;
  }
  status = WriteFileAtomically(file, snapshot.bytes);
  if (!status.ok()) return status;
  // Under the lock, what is there now is what was just written.
  snapshot.written = Base{kFileRead, std::move(snapshot.bytes), IdentityOf(file)};
  return status;
}

bool PList::Refresh(bool* changed) {
  if (changed != nullptr) *changed = false;
  StoreUnlock unlocked;
  std::lock_guard<std::mutex> io(m_io);
  {
    StoreLock lock;
    if (m_root.Get() == nullptr) return true;
  }
  FileIdentity identity = IdentityOf(m_path);
  if (m_base.state != kFileUnreadable && identity == m_base.identity) return true;
  std::string disk;
  const FileReadResult state =
      ReadResultOf(ReadSettingsFile(m_path, kMaxSettingsFileSize, disk, &identity));
  if (state == kFileUnreadable) return false;
  if (state == m_base.state && disk == m_base.bytes) {
    StoreLock lock;
    m_base.identity = identity;  // touched, not changed
    return true;
  }
  mvtl::RefCountedPtr<PListDictionary> diskTree;
  if (state == kFileRead && !ParsePropertyList(disk, diskTree).ok()) return false;
  if (diskTree.Get() == nullptr) diskTree = new PListDictionary;
  StoreLock lock;
  // Every change of this process stays on top, also those made by other
  // threads while the file was read.
  ReplaceTree(diskTree, 0);
  m_base = Base{state, state == kFileRead ? std::move(disk) : std::string(),
                state == kFileRead ? identity : FileIdentity()};
  if (changed != nullptr) *changed = true;
  return true;
}

void PList::Discard() {
  if (m_root.Get() == nullptr) return;
  StoreUnlock unlocked;
  std::lock_guard<std::mutex> io(m_io);
  // The base does not change while the I/O mutex is held, so the tree is
  // parsed without the store lock.
  mvtl::RefCountedPtr<PListDictionary> tree = BaseTree();
  StoreLock lock;
  m_root = tree;
  m_changes.clear();
  m_dirty = false;
  NewGeneration();
}

int PList::Release() {
  if (GetRefCount() == 2 && !m_inRemoval) {
    // Only the cache and the releasing holder are left: drop the cache's
    // reference (which re-enters Release; the flag keeps that call to the
    // decrement), so that this release is the last.
    m_inRemoval = true;
    Cache& cache = FileCache();
    const Cache::iterator own = cache.find(m_path);
    if (own != cache.end() && own->second.Get() == this) cache.erase(own);
    m_inRemoval = false;
  }
  return RefCountedObject::Release();
}

}  // namespace mvcs
