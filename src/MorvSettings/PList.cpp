// PList: the shared in-memory copy of one settings file (see PList.h).

#include "PList.h"

#include <cerrno>

#include "PListFormat.h"
#include "SettingsFiles.h"

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

PList::PList(const std::string& path)
    : m_inRemoval(false),
      m_path(path),
      m_directoriesMade(false),
      m_dirty(false),
      m_unreadableFile(false) {}

PList::~PList() {}

bool PList::Open(bool create) {
  if (m_root.Get() != nullptr) return true;
  std::string bytes;
  switch (ReadSettingsFile(m_path, kMaxSettingsFileSize, bytes)) {
    case kFileRead: {
      mvtl::RefCountedPtr<PListDictionary> root;
      // The flag follows the latest load: a file that another program has
      // repaired since an earlier failed load is replaced normally.
      m_unreadableFile = !ParsePropertyList(bytes, root);
      if (!m_unreadableFile) m_root = root;
      break;
    }
    case kFileUnreadable:
      m_unreadableFile = true;
      break;
    case kFileMissing:
      m_unreadableFile = false;
      break;
  }
  if (m_root.Get() == nullptr && create) m_root = new PListDictionary;
  return m_root.Get() != nullptr;
}

bool PList::Save(int* error) {
  if (m_root.Get() == nullptr) {
    if (error != nullptr) *error = 0;
    return false;
  }
  if (!m_dirty) return true;
  if (!m_directoriesMade) {
    MakeAncestorDirectories(m_path);
    m_directoriesMade = true;
  }
  std::string bytes;
  bool ok = WriteBinaryPropertyList(*m_root, bytes);
  if (!ok) errno = EINVAL;
  // Never write a file that the store would refuse to read.
  if (ok && bytes.size() > kMaxSettingsFileSize) {
    errno = EFBIG;
    ok = false;
  }
  if (ok && m_unreadableFile) {
    ok = MoveFileAside(m_path);
    if (ok) m_unreadableFile = false;
  }
  ok = ok && WriteFileAtomically(m_path, bytes);
  m_dirty = !ok;  // a failed save is tried again by the next one
  if (!ok && error != nullptr) *error = errno;
  return ok;
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
