// Inspecting and exchanging settings (see MorvSettingsUtility.h): entry
// kinds, file locations, saving now, and export and import of a node's own
// dictionary as a property list.

#include "MorvSettings/MorvSettingsUtility.h"

#include <cerrno>

#include "MorvSettingsNode.h"
#include "SettingsFiles.h"
#include "SettingsText.h"
#include "StoreLock.h"
#include "format/PListFormat.h"
#include "format/PListLimits.h"

namespace mvcs {

namespace {

// The library's node behind the interface, or null for another
// implementation.
MorvSettings* OwnNode(IMorvSettings* node) { return dynamic_cast<MorvSettings*>(node); }

// The node's own dictionary (opened if needed), or null.
PListDictionary* OwnDictionary(MorvSettings* node) {
  if (node == nullptr || !node->Open()) return nullptr;
  return node->GetReadWriteKey();
}

struct KindOfEntry {
  MORVVALUEKIND operator()(const PListDictionaryRef&) const { return MORVVALUEKIND_DICTIONARY; }
  MORVVALUEKIND operator()(const PListInteger& integer) const {
    return integer.wide ? MORVVALUEKIND_UNSIGNED_INTEGER : MORVVALUEKIND_INTEGER;
  }
  MORVVALUEKIND operator()(const PListReal&) const { return MORVVALUEKIND_REAL; }
  MORVVALUEKIND operator()(bool) const { return MORVVALUEKIND_BOOLEAN; }
  MORVVALUEKIND operator()(const std::string&) const { return MORVVALUEKIND_STRING; }
  MORVVALUEKIND operator()(const PListData&) const { return MORVVALUEKIND_DATA; }
  MORVVALUEKIND operator()(const PListDate&) const { return MORVVALUEKIND_DATE; }
  MORVVALUEKIND operator()(const PListUid&) const { return MORVVALUEKIND_OTHER; }
  MORVVALUEKIND operator()(const PListArrayRef& array) const {
    return array->isSet ? MORVVALUEKIND_OTHER : MORVVALUEKIND_ARRAY;
  }
};

// Calls changed(path) for the path of every entry below `dictionary`
// (`path` is the dictionary's own).
template <class Changed>
void ForEveryPath(const PListDictionary& dictionary, KeyPath& path, Changed& changed) {
  for (const auto& entry : dictionary.GetEntries()) {
    path.push_back(entry.first);
    changed(path);
    if (const PListDictionary* inner = AsDictionary(entry.second)) {
      ForEveryPath(*inner, path, changed);
    }
    path.pop_back();
  }
}

// Merges `from` into `into`: dictionaries into dictionaries of the same
// name, every other entry replacing. `from` is a freshly parsed tree that
// nothing else holds, so its dictionaries can be taken over as they are.
// Calls changed(path) for the path (below `into`) of every entry it sets or
// merges into, dictionaries and what they hold included.
template <class Changed>
void Merge(PListDictionary& into, const PListDictionary& from, KeyPath& path, Changed& changed) {
  for (const auto& entry : from.GetEntries()) {
    const PListDictionary* incoming = AsDictionary(entry.second);
    const PListValue* existing = into.Find(entry.first);
    PListDictionary* target = existing != nullptr ? AsDictionary(*existing) : nullptr;
    path.push_back(entry.first);
    changed(path);
    if (incoming != nullptr && target != nullptr) {
      Merge(*target, *incoming, path, changed);
    } else {
      into.Set(entry.first, entry.second);
      // A dictionary that comes in whole: every path inside it changes.
      if (incoming != nullptr) ForEveryPath(*incoming, path, changed);
    }
    path.pop_back();
  }
}

// The number of dictionaries from the file's root down to the node's own
// (the root counted).
std::size_t NodeDepth(const MorvSettings& node) {
  return tokenize(node.GetFullKeyPath(), "/").size() + 1;
}

}  // namespace

MORVVALUEKIND GetValueKind(IMorvSettings* node, const std::string& name) {
  StoreLock lock;
  MorvSettings* own = OwnNode(node);
  std::string key;
  if (own == nullptr || name.empty() || !StoredText(name, key) || !own->Open()) {
    return MORVVALUEKIND_NONE;
  }
  for (const PListDictionary* dictionary : {own->GetReadWriteKey(), own->GetReadKeyFallback()}) {
    const PListValue* entry = dictionary != nullptr ? dictionary->Find(key) : nullptr;
    if (entry != nullptr) return std::visit(KindOfEntry(), *entry);
  }
  return MORVVALUEKIND_NONE;
}

std::string GetProductSettingsFile(const std::string& productId) {
  return productId.empty() ? std::string() : UserSettingsFile(productId);
}

std::string GetSharedSettingsFile() { return SharedSettingsFile(); }

unsigned SetSaveLockTimeout(unsigned milliseconds) {
  const unsigned previous = PList::LockTimeout();
  PList::SetLockTimeout(milliseconds);
  return previous;
}

SaveResult SaveSettings(IMorvSettings* node) {
  StoreLock lock;
  MorvSettings* own = OwnNode(node);
  if (own == nullptr) return SaveResult(EINVAL);
  SaveResult result;
  for (PList* file : {own->GetUserFile(), own->GetSharedFile()}) {
    if (file == nullptr || file->GetRoot() == nullptr || !file->IsDirty()) continue;
    int error = 0;
    if (!file->Save(&error) && result.IsOk()) result = SaveResult(error != 0 ? error : EIO);
  }
  return result;
}

bool ExportSettings(IMorvSettings* node, MORVPLISTFORMAT format, std::string& bytes) {
  StoreLock lock;
  const PListDictionary* dictionary = OwnDictionary(OwnNode(node));
  if (dictionary == nullptr) return false;
  return format == MORVPLISTFORMAT_XML ? WriteXmlPropertyList(*dictionary, bytes)
                                       : WriteBinaryPropertyList(*dictionary, bytes);
}

MORVIMPORTRESULT ImportSettings(IMorvSettings* node, const std::string& bytes) {
  StoreLock lock;
  MorvSettings* own = OwnNode(node);
  PListDictionary* dictionary = OwnDictionary(own);
  if (dictionary == nullptr) return MORVIMPORT_NO_NODE;
  mvtl::RefCountedPtr<PListDictionary> incoming;
  if (!ParsePropertyList(bytes, incoming)) return MORVIMPORT_NOT_A_SETTINGS_FILE;
  // The list's root stands for the node's own dictionary.
  if (NodeDepth(*own) - 1 + NestingDepth(*incoming) > kMaxNesting) return MORVIMPORT_TOO_DEEP;
  KeyPath path;
  auto changed = [own, dictionary](const KeyPath& below) { own->RecordChange(dictionary, below); };
  Merge(*dictionary, *incoming, path, changed);
  own->SetDirty(dictionary);
  return MORVIMPORT_OK;
}

}  // namespace mvcs
