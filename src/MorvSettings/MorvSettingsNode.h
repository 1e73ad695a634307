// MorvSettings: the one implementation of IMorvSettings, a node of the
// settings tree with its files and key dictionaries.

#ifndef MORVSETTINGS_MORVSETTINGSNODE_H
#define MORVSETTINGS_MORVSETTINGSNODE_H

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "KeyPath.h"
#include "MorvSettings/MorvSettings.h"
#include "PList.h"
#include "common/RefCountedObject.h"
#include "format/PListTree.h"
#include "mvtl/RefCountedPtr.h"

namespace mvcs {

class MorvSettings : public RefCountedObject<IMorvSettings> {
 public:
  typedef std::map<std::string, mvtl::RefCountedPtr_STLSafe<IMorvSettings>> ChildMap;

  // The node `name` with `scope`. With a parent, it takes the parent's file
  // paths and enters the parent's child map (which holds a reference to
  // it); without one, it computes the paths: the per-user file from
  // `productId` ("com.morv.<productId>.plist", or "com.morv.plist" when it
  // is empty) and the shared file. The count starts at 0.
  MorvSettings(MORVSETTINGSTYPE scope, const std::string& name, MorvSettings* parent,
               const std::string& productId);

  // The factory's worker: builds one node per component of `path` and
  // opens the deepest, which *out receives with one reference added.
  static bool CreateMorvSettingsInternal(const std::string& path, MORVSETTINGSTYPE scope,
                                         IMorvSettings** out);

  // Opens the files that the scope selects and finds (or, with scopes 7 to
  // 9, creates) the key dictionaries. An open node finds its keys in the
  // files' current trees on every call: when another process removed a key
  // (a save or refresh merged that in), the node behaves as if the key were
  // missing in that file, and scopes 7 to 9 make it again. Reopening a node
  // whose earlier open obtained its file but found no key, with no Close
  // since, aborts on the "ptr == NULL" assertion.
  bool Open();

  // Saves both files, then drops the file references. True when every save
  // succeeded.
  bool Close();

  // The key dictionary that stores write and fetches read (per-user for
  // scopes 1, 2, 4, 5, 7, 8; shared for 3, 6, 9; null otherwise), and the
  // shared key for scopes 2, 5 and 8 (null otherwise). Valid until the
  // store lock is let go of or the tree changes.
  PListDictionary* GetReadWriteKey() const;
  PListDictionary* GetReadKeyFallback() const;

  // For a fetch under a shared hold of the store lock: when the node is
  // open and its keys are where its open found them (nothing for Open to
  // do), sets the read-write key and the fallback (as the two above) and
  // returns true, changing nothing. False when the fetch must take the
  // store lock alone.
  bool FindKeysToRead(PListDictionary*& key, PListDictionary*& fallback) const;

  // Whether the node's open found its read-write key and another process
  // has removed it since (see Open).
  bool HasLostReadWriteKey() const;

  // Marks the file that owns `dictionary` (one of the key dictionaries)
  // dirty, or clean. The shared key is tested first; a null dictionary, or
  // any other one, marks nothing.
  void SetDirty(PListDictionary* dictionary);
  void ClearDirty(PListDictionary* dictionary);

  // Records a change at the path `below` under the key dictionary `key`
  // (of the key itself for an empty path) with the file that owns the key
  // (see PList::RecordChange); nothing for any other dictionary.
  void RecordChange(PListDictionary* key, const KeyPath& below, bool replaced);

  // This node's key path as components, from the file's root.
  const KeyPath& GetKeyPath() const { return m_keyPath; }

  // The names of the values and of the child keys (see the interface).
  bool GetValueNameSet(std::set<std::string>& names);
  bool GetChildNameSet(std::set<std::string>& names);

  // State, for tests and tools.
  MORVSETTINGSTYPE GetScope() const { return m_scope; }
  const std::string& GetFullKeyPath() const { return m_fullKeyPath; }
  const std::string& GetUserFilePath() const { return m_userFilePath; }
  const std::string& GetSharedFilePath() const { return m_sharedFilePath; }
  PList* GetUserFile() const { return m_userFile.Get(); }
  PList* GetSharedFile() const { return m_sharedFile.Get(); }
  // The key dictionaries in the files' current trees, or null.
  PListDictionary* GetUserKey() const { return m_userKey.Find(m_userFile.Get(), m_keyPath); }
  PListDictionary* GetSharedKey() const { return m_sharedKey.Find(m_sharedFile.Get(), m_keyPath); }
  const ChildMap& GetChildren() const { return m_children; }

  // IMorvSettings. Every operation holds the store's lock (StoreLock.h).
  int AddRef() override;
  int Release() override;
  int GetRefCount() override;
  bool GetName(std::string& name) override;
  bool GetName(std::wstring& name) override;
  bool GetChildCount(unsigned long& count) override;
  bool GetChildNames(std::set<std::string>& names) override;
  bool GetChildNames(std::set<std::wstring>& names) override;
  bool GetChild(std::string const& name, IMorvSettings** child) override;
  bool GetChild(std::wstring const& name, IMorvSettings** child) override;
  bool GetValueCount(unsigned long& count) override;
  bool GetValueNames(std::set<std::string>& names) override;
  bool GetValueNames(std::set<std::wstring>& names) override;

  bool StoreInteger(std::string const& name, long long value) override;
  bool StoreInteger(std::wstring const& name, long long value) override;
  bool StoreInt32(std::string const& name, int value) override;
  bool StoreInt32(std::wstring const& name, int value) override;
  bool StoreUint32(std::string const& name, unsigned int value) override;
  bool StoreUint32(std::wstring const& name, unsigned int value) override;
  bool StoreInt64(std::string const& name, long long value) override;
  bool StoreInt64(std::wstring const& name, long long value) override;
  bool StoreUint64(std::string const& name, unsigned long long value) override;
  bool StoreUint64(std::wstring const& name, unsigned long long value) override;
  bool StoreFloat(std::string const& name, float value) override;
  bool StoreFloat(std::wstring const& name, float value) override;
  bool StoreDouble(std::string const& name, double value) override;
  bool StoreDouble(std::wstring const& name, double value) override;
  bool StoreBoolean(std::string const& name, bool value) override;
  bool StoreBoolean(std::wstring const& name, bool value) override;
  bool StoreUTF8String(std::string const& name, std::string const& value) override;
  bool StoreUTF8String(std::wstring const& name, std::string const& value) override;
  bool StoreWideString(std::string const& name, std::wstring const& value) override;
  bool StoreWideString(std::wstring const& name, std::wstring const& value) override;
  bool StoreBuffer(std::string const& name, void const* data, unsigned long length) override;
  bool StoreBuffer(std::wstring const& name, void const* data, unsigned long length) override;

  bool FetchInteger(std::string const& name, long long& value) override;
  bool FetchInteger(std::wstring const& name, long long& value) override;
  bool FetchInt32(std::string const& name, int& value) override;
  bool FetchInt32(std::wstring const& name, int& value) override;
  bool FetchUint32(std::string const& name, unsigned int& value) override;
  bool FetchUint32(std::wstring const& name, unsigned int& value) override;
  bool FetchInt64(std::string const& name, long long& value) override;
  bool FetchInt64(std::wstring const& name, long long& value) override;
  bool FetchUint64(std::string const& name, unsigned long long& value) override;
  bool FetchUint64(std::wstring const& name, unsigned long long& value) override;
  bool FetchFloat(std::string const& name, float& value) override;
  bool FetchFloat(std::wstring const& name, float& value) override;
  bool FetchDouble(std::string const& name, double& value) override;
  bool FetchDouble(std::wstring const& name, double& value) override;
  bool FetchBoolean(std::string const& name, bool& value) override;
  bool FetchBoolean(std::wstring const& name, bool& value) override;
  bool FetchUTF8String(std::string const& name, std::string& value) override;
  bool FetchUTF8String(std::wstring const& name, std::string& value) override;
  bool FetchWideString(std::string const& name, std::wstring& value) override;
  bool FetchWideString(std::wstring const& name, std::wstring& value) override;
  bool FetchBuffer(std::string const& name, mvtl::MemoryBuffer<unsigned char>& value) override;
  bool FetchBuffer(std::wstring const& name, mvtl::MemoryBuffer<unsigned char>& value) override;

  bool Delete(std::string const& name) override;
  bool Delete(std::wstring const& name) override;
  bool Delete() override;

 protected:
  // Counted: destroyed by the last Release. Closes (saving both files).
  ~MorvSettings() override;

 private:
  // Where a node's key is: whether the node's open found it, and the
  // dictionary found in the file's tree, remembered with the tree's
  // generation (see PList::GetGeneration) so that fetches on an open node
  // need no walk.
  class KeyLocation {
   public:
    // The key in `file`'s current tree, or null when the open found none
    // or it is gone from the tree.
    PListDictionary* Find(PList* file, const KeyPath& path) const;
    bool IsFound() const { return m_found; }
    // Whether Find(file, ...) answers from what it remembers (and so
    // changes nothing): no key, or the tree's generation unchanged.
    bool IsCurrent(const PList* file) const;
    void SetFound(bool found) {
      m_found = found;
      m_generation = 0;
    }

   private:
    bool m_found = false;
    mutable std::uint64_t m_generation = 0;  // 0: nothing remembered
    mutable PListDictionary* m_dictionary = nullptr;
  };

  // Finds (or, with `create`, makes) the dictionary at `keyPath` in
  // `file`'s tree; see the definition for the results.
  static bool GetChildKey(PList* file, const KeyPath& keyPath, bool create, bool isUserFile,
                          KeyLocation& key);

  // The opening step of the node's files: the cached file of `path` into
  // `file`, loaded (or created with `create`). False when it has no tree.
  bool OpenFile(const std::string& path, bool create, mvtl::RefCountedPtr<PList>& file);

  // Open for a node that is open already: makes keys that another process
  // removed again (scopes 7 to 9), then checks the keys as Open does.
  bool Reopen();

  // Open's last step: whether the keys that the scope needs are there.
  bool HasNeededKeys() const;

  // The file whose key `dictionary` is, or null (see SetDirty).
  PList* FileOwning(PListDictionary* dictionary) const;

  // The child node for `name` (one component): found in the child map or
  // made, and opened. Null when it cannot open.
  mvtl::RefCountedPtr<MorvSettings> OpenChild(const std::string& name);

  // The shared paths of the typed operations (MorvSettingsValues.cpp).
  bool StoreValue(const std::string& name, PListValue value);
  template <class T, class Reader>
  bool FetchValue(const std::string& name, T& value, Reader read);
  template <class Result, class... Params, class... Args>
  Result CallNarrow(Result (IMorvSettings::*narrow)(const std::string&, Params...),
                    const std::wstring& name, Args&&... args);
  template <class Name, class T>
  bool FetchIntegerView(const Name& name, T& value);

  MORVSETTINGSTYPE m_scope;
  std::string m_name;
  std::string m_fullKeyPath;
  KeyPath m_keyPath;             // m_fullKeyPath's components
  std::string m_sharedFilePath;  // empty when there is no shared folder
  mvtl::RefCountedPtr<PList> m_sharedFile;
  KeyLocation m_sharedKey;
  std::string m_userFilePath;  // empty when there is no user folder
  mvtl::RefCountedPtr<PList> m_userFile;
  KeyLocation m_userKey;
  ChildMap m_children;
  int m_openers;  // threads in the part of Open that loads files
};

// The library's node behind the interface, or null for another
// implementation.
inline MorvSettings* OwnNode(IMorvSettings* node) { return dynamic_cast<MorvSettings*>(node); }

// The node's own dictionary, the one stores go to (opening the node if
// needed), or null.
inline PListDictionary* OwnDictionary(MorvSettings* node) {
  if (node == nullptr || !node->Open()) return nullptr;
  return node->GetReadWriteKey();
}

}  // namespace mvcs

#endif  // MORVSETTINGS_MORVSETTINGSNODE_H
