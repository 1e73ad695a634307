// PList: the shared in-memory copy of one settings file (see PList.h).

#include "PList.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <utility>

#include "SettingsFiles.h"
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
      m_directoriesMade(false),
      m_dirty(false),
      m_baseState(kFileMissing) {}

PList::~PList() {}

void PList::SetBase(FileReadResult state, std::string bytes, const FileIdentity& identity) {
  m_baseState = state;
  m_baseBytes = state == kFileRead ? std::move(bytes) : std::string();
  m_baseIdentity = state == kFileRead ? identity : FileIdentity();
}

bool PList::Open(bool create) {
  if (m_root.Get() != nullptr) return true;
  std::string bytes;
  FileIdentity identity;
  FileReadResult state =
      ReadResultOf(ReadSettingsFile(m_path, kMaxSettingsFileSize, bytes, &identity));
  mvtl::RefCountedPtr<PListDictionary> root;
  if (state == kFileRead && !ParsePropertyList(bytes, root).ok()) state = kFileUnreadable;
  if (state == kFileRead) m_root = root;
  // The base follows the latest load: a file that another program repaired
  // since an earlier failed load counts as read.
  SetBase(state, std::move(bytes), identity);
  if (m_root.Get() == nullptr && create) m_root = new PListDictionary;
  return m_root.Get() != nullptr;
}

bool PList::Save(int* error, std::string* movedAside) {
  if (m_root.Get() == nullptr) {
    if (error != nullptr) *error = 0;
    return false;
  }
  if (!m_dirty) return true;
  if (!m_directoriesMade) {
    MakeAncestorDirectories(m_path);
    m_directoriesMade = true;
  }
  int failure = 0;
  const bool ok = SaveLocked(failure, movedAside);
  m_dirty = !ok;  // a failed save is tried again by the next one
  if (!ok) {
    if (error != nullptr) *error = failure;
    errno = failure;
  }
  return ok;
}

bool PList::SaveLocked(int& error, std::string* movedAside) {
  SettingsFileLock lock;
  const Status locked = lock.Acquire(m_path, LockTimeout());
  if (!locked.ok()) {
    error = locked.error();
    return false;
  }
  // Under the lock no other save of this file runs: any temporary file of
  // one is left over from a writer that was killed.
  RemoveStaleTemporaryFiles(m_path);

  // What is on disk now: the same as this object last read or wrote when
  // its identity says so (nothing there, as before, or the same file);
  // else the bytes tell.
  std::string disk;
  FileIdentity identity = IdentityOf(m_path);
  FileReadResult state = m_baseState;
  bool unchanged = m_baseState != kFileUnreadable && identity == m_baseIdentity;
  if (!unchanged) {
    state = ReadResultOf(ReadSettingsFile(m_path, kMaxSettingsFileSize, disk, &identity));
    unchanged = state != kFileUnreadable && state == m_baseState && disk == m_baseBytes;
  }
  mvtl::RefCountedPtr<PListDictionary> diskTree;
  if (!unchanged && state == kFileRead && !ParsePropertyList(disk, diskTree).ok()) {
    state = kFileUnreadable;
  }
  if (unchanged) {
    // Nobody else saved the file: this object's tree is what to write.
  } else if (state == kFileUnreadable) {
    // Something that cannot be read is kept aside, never overwritten; this
    // object's tree, the last readable state known, takes its place.
    const Status moved = MoveFileAside(m_path, movedAside);
    if (!moved.ok()) {
      error = moved.error();
      return false;
    }
  } else {
    // Another process saved (or removed) the file since this object read
    // or wrote it: write the disk's tree with this process's changes.
    if (diskTree.Get() == nullptr) diskTree = new PListDictionary;
    ApplyChanges(*m_root, m_changed, *diskTree);
    Adopt(*m_root, *diskTree);
    // The tree now is the disk's plus this process's changes, which stay
    // recorded: should the write fail, the next save applies them again.
    SetBase(state, std::move(disk), identity);
  }

  // Never write a file that the store would refuse to read.
  std::string bytes;
  const Status serialised = WriteBinaryPropertyList(*m_root, bytes, m_baseBytes.size());
  if (!serialised.ok()) {
    error = serialised.code() == Status::Code::kTooLarge ? EFBIG : EINVAL;
    return false;
  }
  const Status written = WriteFileAtomically(m_path, bytes);
  if (!written.ok()) {
    error = written.error();
    return false;
  }
  // Under the lock, what is there now is what was just written.
  SetBase(kFileRead, std::move(bytes), IdentityOf(m_path));
  m_changed.clear();
  return true;
}

bool PList::Refresh(bool* changed) {
  if (changed != nullptr) *changed = false;
  if (m_root.Get() == nullptr) return true;
  FileIdentity identity = IdentityOf(m_path);
  if (m_baseState != kFileUnreadable && identity == m_baseIdentity) return true;
  std::string disk;
  const FileReadResult state =
      ReadResultOf(ReadSettingsFile(m_path, kMaxSettingsFileSize, disk, &identity));
  if (state == kFileUnreadable) return false;
  if (state == m_baseState && disk == m_baseBytes) {
    m_baseIdentity = identity;  // touched, not changed
    return true;
  }
  mvtl::RefCountedPtr<PListDictionary> diskTree;
  if (state == kFileRead && !ParsePropertyList(disk, diskTree).ok()) return false;
  if (diskTree.Get() == nullptr) diskTree = new PListDictionary;
  ApplyChanges(*m_root, m_changed, *diskTree);
  Adopt(*m_root, *diskTree);
  SetBase(state, std::move(disk), identity);
  if (changed != nullptr) *changed = true;
  return true;
}

void PList::RecordChange(KeyPath path) { m_changed.insert(std::move(path)); }

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
