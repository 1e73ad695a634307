// MorvSettings: construction, the factory, opening, navigation,
// enumeration, deletion and closing of settings nodes. The typed Store and
// Fetch operations are in MorvSettingsValues.cpp.

#include "MorvSettingsNode.h"

#include <list>

#include "MorvString/MorvString.h"
#include "SettingsFiles.h"
#include "SettingsText.h"
#include "StoreLock.h"
#include "format/PListLimits.h"

namespace mvcs {

namespace {

// Scopes as bit sets over their values (bit n for value n).
const unsigned kUserSet = 0x92;            // 1, 4, 7: the per-user file
const unsigned kFallbackSet = 0x124;       // 2, 5, 8: per-user, shared as fallback
const unsigned kSharedSet = 0x248;         // 3, 6, 9: the shared file
const unsigned kUserReadWriteSet = 0x1B6;  // 1, 2, 4, 5, 7, 8

bool InSet(MORVSETTINGSTYPE scope, unsigned set) {
  return static_cast<unsigned>(scope) <= 9 && ((1u << static_cast<unsigned>(scope)) & set) != 0;
}

// Scopes 7, 8 and 9 create missing files and keys.
bool Creates(MORVSETTINGSTYPE scope) { return static_cast<unsigned>(scope) - 7u <= 2u; }

bool HasReadWriteFile(MORVSETTINGSTYPE scope) {
  return InSet(scope, kUserReadWriteSet) || InSet(scope, kSharedSet);
}

// Adds the names of the entries of `dictionary` that are (or are not)
// dictionaries. Names holding U+0000 (which files from other programs may
// have) are left out: a name given back to the store ends at its first
// zero character, so such an entry cannot be reached by name.
void CollectNames(const PListDictionary* dictionary, bool dictionaries,
                  std::set<std::string>& names) {
  if (dictionary == nullptr) return;
  for (const auto& entry : dictionary->GetEntries()) {
    if ((AsDictionary(entry.second) != nullptr) == dictionaries &&
        entry.first.find('\0') == std::string::npos) {
      names.insert(entry.first);
    }
  }
}

void ToWide(const std::set<std::string>& names, std::set<std::wstring>& wide) {
  wide.clear();
  for (const std::string& name : names) wide.insert(UTF8ToWide(name));
}

}  // namespace

MorvSettings::MorvSettings(MORVSETTINGSTYPE scope, const std::string& name, MorvSettings* parent,
                           const std::string& productId)
    : m_scope(scope), m_name(name), m_fullKeyPath(name), m_keyPath(1, name), m_openers(0) {
  if (parent != nullptr) {
    m_fullKeyPath = parent->m_fullKeyPath + "/" + name;
    m_keyPath = parent->m_keyPath;
    m_keyPath.push_back(name);
    m_sharedFilePath = parent->m_sharedFilePath;
    m_userFilePath = parent->m_userFilePath;
    parent->m_children[name].Assign(this);  // replaces an earlier child of that name
    return;
  }
  m_userFilePath = UserSettingsFile(productId);
  m_sharedFilePath = SharedSettingsFile();
}

MorvSettings::~MorvSettings() { Close(); }

bool MorvSettings::CreateMorvSettingsInternal(const std::string& path, MORVSETTINGSTYPE scope,
                                              IMorvSettings** out) {
  StoreLock lock;
  std::string text;
  if (path.empty() || !StoredText(path, text)) return false;
  const std::vector<std::string> components = tokenize(text, "/\\");
  const std::string productId =
      components.size() >= 2 && components[0] == "Settings" ? components[1] : std::string();
  // The chain is held here while it is built; each node also holds its
  // child, so after this list goes only the handed-out node (and what it
  // holds) stays.
  std::list<mvtl::RefCountedPtr_STLSafe<IMorvSettings>> chain;
  MorvSettings* deepest = nullptr;
  for (const std::string& component : components) {
    if (component.empty()) return false;
    MorvSettings* node = new MorvSettings(scope, component, deepest, productId);
    chain.emplace_back();
    chain.back().Assign(node);
    deepest = node;
  }
  if (deepest == nullptr || !deepest->Open()) return false;
  if (out != nullptr) {
    *out = deepest;
    deepest->AddRef();
  }
  return true;
}

bool CreateMorvSettings(std::string const& path, MORVSETTINGSTYPE scope, IMorvSettings** settings) {
  return MorvSettings::CreateMorvSettingsInternal(path, scope, settings);
}

bool CreateMorvSettings(std::wstring const& path, MORVSETTINGSTYPE scope,
                        IMorvSettings** settings) {
  return MorvSettings::CreateMorvSettingsInternal(WideToUTF8(path), scope, settings);
}

bool MorvSettings::Open() {
  if (m_userKey.IsFound() || m_sharedKey.IsFound()) return Reopen();
  const bool create = Creates(m_scope);
  // Counts the threads inside this part, which lets go of the store lock
  // while files load (see OpenFile).
  struct Opening {
    explicit Opening(int& count) : m_count(++count) {}
    ~Opening() { --m_count; }
    int& m_count;
  } opening(m_openers);
  if (InSet(m_scope, kUserSet)) {
    if (m_userFilePath.empty()) return false;
    if (!OpenFile(m_userFilePath, create, m_userFile)) return false;
  } else if (InSet(m_scope, kFallbackSet)) {
    if (m_userFilePath.empty() || m_sharedFilePath.empty()) return false;
    OpenFile(m_userFilePath, create, m_userFile);
    OpenFile(m_sharedFilePath, false, m_sharedFile);  // the fallback is never created
  } else if (InSet(m_scope, kSharedSet)) {
    if (m_sharedFilePath.empty()) return false;
    if (!OpenFile(m_sharedFilePath, create, m_sharedFile)) return false;
  }
  // Another thread may have opened this node while a file was read.
  if (m_userKey.IsFound() || m_sharedKey.IsFound()) return Reopen();
  GetChildKey(m_sharedFile.Get(), m_keyPath, create, false, m_sharedKey);
  GetChildKey(m_userFile.Get(), m_keyPath, create, true, m_userKey);
  return HasNeededKeys();
}

bool MorvSettings::OpenFile(const std::string& path, bool create,
                            mvtl::RefCountedPtr<PList>& file) {
  // Loaded through a reference of its own: a load lets go of the store
  // lock while it reads, and the node's reference is set only after it.
  mvtl::RefCountedPtr<PList> loading;
  PList::GetPList(path, &loading);
  const bool opened = loading->Open(create);
  // Another thread opened this node, or is opening it, meanwhile.
  if (m_userKey.IsFound() || m_sharedKey.IsFound()) return opened;
  if (file.Get() != nullptr && m_openers > 1) return opened;
  // Files are fetched through the smart pointers' out-parameter, which
  // requires them empty: a node whose earlier open obtained a file but then
  // failed (and was not closed since) stops the process here.
  PList::GetPList(path, &file);
  return opened;
}

bool MorvSettings::Reopen() {
  const bool userGone = m_userKey.IsFound() && GetUserKey() == nullptr;
  const bool sharedGone = m_sharedKey.IsFound() && GetSharedKey() == nullptr;
  if (!userGone && !sharedGone) return true;
  // Another process removed a key that this node found (a save or refresh
  // brought that in): the node behaves as if the key were missing in that
  // file, and the scopes that create make it again where they write.
  if (Creates(m_scope)) {
    if (InSet(m_scope, kSharedSet)) {
      if (sharedGone) GetChildKey(m_sharedFile.Get(), m_keyPath, true, false, m_sharedKey);
    } else if (userGone) {
      GetChildKey(m_userFile.Get(), m_keyPath, true, true, m_userKey);
    }
  }
  return HasNeededKeys();
}

bool MorvSettings::HasNeededKeys() const {
  switch (m_scope) {
    case MORVSETTINGSTYPE_USER:
    case MORVSETTINGSTYPE_USER_ALT:
    case MORVSETTINGSTYPE_USER_CREATE:
    case MORVSETTINGSTYPE_USER_WITH_SHARED_CREATE:  // with create it always has one
      return GetUserKey() != nullptr;
    case MORVSETTINGSTYPE_USER_WITH_SHARED:
    case MORVSETTINGSTYPE_USER_WITH_SHARED_ALT:
      return GetUserKey() != nullptr || GetSharedKey() != nullptr;
    case MORVSETTINGSTYPE_SHARED:
    case MORVSETTINGSTYPE_SHARED_ALT:
    case MORVSETTINGSTYPE_SHARED_CREATE:
      return GetSharedKey() != nullptr;
    default:
      return true;  // no file at all
  }
}

bool MorvSettings::KeyLocation::IsCurrent(const PList* file) const {
  return !m_found || file == nullptr || m_generation == file->GetGeneration();
}

PListDictionary* MorvSettings::KeyLocation::Find(PList* file, const KeyPath& path) const {
  if (!m_found || file == nullptr) return nullptr;
  if (m_generation != file->GetGeneration()) {
    m_dictionary = FindDictionary(file->GetRoot(), path);
    m_generation = file->GetGeneration();
  }
  return m_dictionary;
}

// Walks `keyPath` down from `file`'s root. Each component must be a
// dictionary: a value in the way fails (false, nothing set); a missing one
// is made with `create` (an empty dictionary, the file not marked dirty),
// and otherwise fails for the per-user file (false) but not for the shared
// one (true), nothing set in both cases. On reaching the end, `key` is
// marked found. With no file or no loaded tree: true, nothing set.
bool MorvSettings::GetChildKey(PList* file, const KeyPath& components, bool create, bool isUserFile,
                               KeyLocation& key) {
  if (file == nullptr || file->GetRoot() == nullptr) return true;
  // No key deeper than a settings file may nest (the root is one level).
  if (components.size() >= kMaxNesting) return false;
  PListDictionary* current = file->GetRoot();
  for (std::size_t i = 0; i < components.size(); ++i) {
    const std::string& component = components[i];
    const PListValue* entry = current->Find(component);
    PListDictionary* next = nullptr;
    if (entry != nullptr) {
      next = AsDictionary(*entry);
      if (next == nullptr) return false;
    } else if (create) {
      PListDictionaryRef made;
      made.Assign(new PListDictionary);
      current->Set(component, made);
      file->RecordChange(KeyPath(components.begin(), components.begin() + i + 1), false);
      next = made.Get();
    } else {
      return !isUserFile;
    }
    current = next;
  }
  key.SetFound(true);
  return true;
}

bool MorvSettings::GetName(std::string& name) {
  name = m_name;
  return true;
}

bool MorvSettings::GetName(std::wstring& name) {
  name = UTF8ToWide(m_name);
  return true;
}

int MorvSettings::AddRef() {
  StoreLock lock;
  return RefCountedObject::AddRef();
}

int MorvSettings::Release() {
  StoreLock lock;
  return RefCountedObject::Release();
}

int MorvSettings::GetRefCount() {
  StoreLock lock;
  return RefCountedObject::GetRefCount();
}

mvtl::RefCountedPtr<MorvSettings> MorvSettings::OpenChild(const std::string& name) {
  // Held through a reference of its own while it opens (which may let go
  // of the store lock, when another thread could clear the child map).
  mvtl::RefCountedPtr<MorvSettings> child;
  const ChildMap::iterator found = m_children.find(name);
  if (found != m_children.end()) {
    child = dynamic_cast<MorvSettings*>(found->second.Get());
  } else {
    // The new child enters the child map, which keeps it, also when it
    // fails to open.
    child = new MorvSettings(m_scope, name, this, std::string());
  }
  if (child.Get() == nullptr || !child->Open()) child = static_cast<const MorvSettings*>(nullptr);
  return child;
}

bool MorvSettings::GetChild(std::string const& name, IMorvSettings** out) {
  StoreLock lock;
  std::string path;
  if (name.empty() || !StoredText(name, path) || !Open()) return false;
  const std::size_t separator = path.find_first_of("/\\");
  const mvtl::RefCountedPtr<MorvSettings> child = OpenChild(path.substr(0, separator));
  if (child.Get() == nullptr) return false;
  if (separator != std::string::npos) {
    return static_cast<IMorvSettings*>(child.Get())->GetChild(path.substr(separator + 1), out);
  }
  if (out != nullptr) {
    *out = child.Get();
    child->AddRef();
  }
  return true;
}

bool MorvSettings::GetChild(std::wstring const& name, IMorvSettings** out) {
  return GetChild(WideToUTF8(name), out);
}

bool MorvSettings::GetValueNameSet(std::set<std::string>& names) {
  StoreLock lock;
  names.clear();
  if (!Open()) return false;
  CollectNames(GetReadWriteKey(), false, names);
  if (InSet(m_scope, kFallbackSet)) CollectNames(GetSharedKey(), false, names);
  return true;
}

bool MorvSettings::GetChildNameSet(std::set<std::string>& names) {
  StoreLock lock;
  names.clear();
  if (!Open()) return false;
  CollectNames(GetReadWriteKey(), true, names);
  if (InSet(m_scope, kFallbackSet)) CollectNames(GetSharedKey(), true, names);
  return true;
}

bool MorvSettings::GetValueNames(std::set<std::string>& names) { return GetValueNameSet(names); }

bool MorvSettings::GetValueNames(std::set<std::wstring>& names) {
  std::set<std::string> narrow;
  if (!GetValueNameSet(narrow)) return false;
  ToWide(narrow, names);
  return true;
}

bool MorvSettings::GetValueCount(unsigned long& count) {
  std::set<std::string> names;
  if (!GetValueNameSet(names)) return false;
  count = names.size();
  return true;
}

bool MorvSettings::GetChildNames(std::set<std::string>& names) { return GetChildNameSet(names); }

bool MorvSettings::GetChildNames(std::set<std::wstring>& names) {
  std::set<std::string> narrow;
  if (!GetChildNameSet(narrow)) return false;
  ToWide(narrow, names);
  return true;
}

bool MorvSettings::GetChildCount(unsigned long& count) {
  std::set<std::string> names;
  if (!GetChildNameSet(names)) return false;
  count = names.size();
  return true;
}

bool MorvSettings::Delete(std::string const& name) {
  StoreLock lock;
  std::string key;
  if (name.empty() || !StoredText(name, key) || !Open() || !HasReadWriteFile(m_scope)) {
    return false;
  }
  PListDictionary* target = GetReadWriteKey();
  if (target == nullptr) return false;
  target->Remove(key);  // a missing name is no error
  SetDirty(target);
  RecordChange(target, {key}, true);
  return true;
}

bool MorvSettings::Delete(std::wstring const& name) { return Delete(WideToUTF8(name)); }

bool MorvSettings::Delete() {
  StoreLock lock;
  if (!m_userKey.IsFound() && !m_sharedKey.IsFound()) return false;
  PListDictionary* const target = GetReadWriteKey();
  // The key is removed from the dictionary that holds it, in the file that
  // owns it; with no key of its own in the read-write file (a node of scope
  // 2 or 5 opened through the shared key alone, or a key that another
  // process removed) nothing is removed and nothing is marked.
  PList* const file = FileOwning(target);
  PListDictionary* parent = nullptr;
  if (file != nullptr) {
    ClearDirty(target);
    SetDirty(target);
    parent = FindDictionary(file->GetRoot(), m_keyPath, m_keyPath.size() - 1);
  }
  const bool removed = parent != nullptr;
  if (removed) {
    parent->Remove(m_name);
    file->RecordChange(m_keyPath, true);
  }
  Close();  // saves
  m_children.clear();
  return removed;
}

bool MorvSettings::Close() {
  // The node lets go of its files first, then saves them: a save lets go of
  // the store lock while it writes, and the node is closed by then.
  const mvtl::RefCountedPtr<PList> user(m_userFile.Get());
  const mvtl::RefCountedPtr<PList> shared(m_sharedFile.Get());
  m_userFile = static_cast<const PList*>(nullptr);
  m_sharedFile = static_cast<const PList*>(nullptr);
  m_userKey.SetFound(false);
  m_sharedKey.SetFound(false);
  bool saved = true;
  if (user.Get() != nullptr && !user->Save().ok()) saved = false;
  if (shared.Get() != nullptr && !shared->Save().ok()) saved = false;
  return saved;
}

PListDictionary* MorvSettings::GetReadWriteKey() const {
  if (InSet(m_scope, kUserReadWriteSet)) return GetUserKey();
  if (InSet(m_scope, kSharedSet)) return GetSharedKey();
  return nullptr;
}

bool MorvSettings::HasLostReadWriteKey() const {
  const KeyLocation* key = InSet(m_scope, kUserReadWriteSet) ? &m_userKey
                           : InSet(m_scope, kSharedSet)      ? &m_sharedKey
                                                             : nullptr;
  return key != nullptr && key->IsFound() && GetReadWriteKey() == nullptr;
}

bool MorvSettings::FindKeysToRead(PListDictionary*& key, PListDictionary*& fallback) const {
  // Not open, or keys to look up again: Open has work to do.
  if (!m_userKey.IsFound() && !m_sharedKey.IsFound()) return false;
  if (!m_userKey.IsCurrent(m_userFile.Get()) || !m_sharedKey.IsCurrent(m_sharedFile.Get())) {
    return false;
  }
  // A key that another process removed: Reopen decides what the node is.
  if ((m_userKey.IsFound() && GetUserKey() == nullptr) ||
      (m_sharedKey.IsFound() && GetSharedKey() == nullptr)) {
    return false;
  }
  key = GetReadWriteKey();
  fallback = GetReadKeyFallback();
  return true;
}

PListDictionary* MorvSettings::GetReadKeyFallback() const {
  return InSet(m_scope, kFallbackSet) ? GetSharedKey() : nullptr;
}

// The file that owns `dictionary`: the shared key is tested first. A null
// dictionary (no key in that file) and any dictionary other than the two
// keys belong to no file, and so do keys of a scope without that file.
PList* MorvSettings::FileOwning(PListDictionary* dictionary) const {
  if (dictionary == nullptr) return nullptr;
  if (dictionary == GetSharedKey()) return m_sharedFile.Get();
  if (dictionary == GetUserKey()) return m_userFile.Get();
  return nullptr;
}

void MorvSettings::RecordChange(PListDictionary* key, const KeyPath& below, bool replaced) {
  PList* file = FileOwning(key);
  if (file == nullptr) return;
  KeyPath path = m_keyPath;
  path.insert(path.end(), below.begin(), below.end());
  file->RecordChange(std::move(path), replaced);
}

void MorvSettings::SetDirty(PListDictionary* dictionary) {
  if (PList* file = FileOwning(dictionary)) file->SetDirty(true);
}

void MorvSettings::ClearDirty(PListDictionary* dictionary) {
  if (PList* file = FileOwning(dictionary)) file->SetDirty(false);
}

}  // namespace mvcs
