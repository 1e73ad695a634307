// The settings store: typed, hierarchical settings of Morv's products in
// property-list files.
//
// A node (IMorvSettings) is a dictionary in a settings file, addressed by a
// slash path such as "Settings/<product id>/Sub/Key" and a scope, which
// picks the file: each product's per-user file
//   $XDG_CONFIG_HOME/Preferences/com.morv.<product id>.plist
//   (or ~/.config/... when XDG_CONFIG_HOME is not set),
// the machine-wide shared file
//   <first entry of $XDG_CONFIG_DIRS, or /etc/xdg>/Morv/Preferences/com.morv.plist,
// or both (the shared file as read fallback). Values are named entries of
// the node's dictionary; child dictionaries are child keys.
//
// Nodes opened on the same file share one in-memory copy of it; changes are
// written back (atomically) when a node that changed it closes: when it is
// deleted with Delete() or released for the last time.
//
// Threads and processes. Every function of the store (the factory, every node
// operation including AddRef and Release, the one-call functions of
// MorvSettingsSimple.h and the functions of MorvSettingsUtility.h) may be
// called from any number of threads at once, on the same or different nodes and
// files: one lock serialises the process's in-memory store state, so each call
// is atomic with respect to the others. Fetches on an open node hold that lock
// shared, so the fetches of many threads never wait for one another (only for
// a call that changes something). That lock is never held while a file is
// read, locked, written or flushed: a thread whose save waits for another
// process's file lock, or for the disk, holds up no other thread, neither one
// working on other files nor one fetching from or storing to the file being
// saved (its changes made meanwhile stay in memory and are written by the next
// save). Several processes may use the same files at once: a save takes an
// exclusive lock on "<file>.lock" beside the settings file (the only file the
// store adds to a settings folder), reads the file as it is then, and writes it
// with this process's own changes (stores and deletions since this process last
// read or wrote the file) applied to it, so changes that other processes saved
// meanwhile survive; where two processes changed the same entry, the later save
// wins. After a save, every open node of that file sees the merged contents. A
// node finds its dictionary by its key path in the file's current contents:
// when another process removed the node's key, the node behaves as if the key
// were missing in that file (fetches and queries fail; stores fail, except with
// the scopes that create, which make the key again). A key deleted here and
// made again is written as made here, without the entries it had before the
// deletion. Readers take no lock and never see a partial file. A save that
// cannot get the lock within its timeout (5 s; see mvcs::SetSaveLockTimeout)
// fails and keeps the change for the next save.
//
// Every operation reports failure only by returning false, and fills its
// output arguments only on success (with one exception: the narrow
// GetChildNames and GetValueNames empty their set first, so a failure
// leaves it empty). Nothing is logged or thrown. Names and UTF-8 values
// must be valid UTF-8 (else false); like C strings, they end at their first
// zero character.
//
// Keys and strings holding U+0000, which files that other programs wrote
// may have, are kept: the file is read and written back with them whole.
// Through this interface, whose names and values are C strings, such an
// entry shows as a C string would: a string value fetches as its text up
// to the U+0000, and a name holding U+0000 is neither listed nor counted by
// GetValueNames, GetChildNames and their counts (no name given here can
// reach it). ReadSettingsTree (MorvSettingsValue.h) shows them whole.

#ifndef MORVSETTINGS_MORVSETTINGS_H
#define MORVSETTINGS_MORVSETTINGS_H

#include <set>
#include <string>

#include "MorvSettings/MorvSettingsExport.h"
#include "mvtl/MemoryBuffer.h"
#include "mvtl/RefCountedPtr.h"

namespace mvcs {

// The scope of a node: which file it reads and writes, and whether missing
// files and keys are created. Values 4 to 6 behave as 1 to 3 in the store
// (the one-call functions choose them with a flag of their own). Any value
// above 9 behaves as 0.
enum MORVSETTINGSTYPE {
  MORVSETTINGSTYPE_NONE = 0,                     // no file
  MORVSETTINGSTYPE_USER = 1,                     // per-user file
  MORVSETTINGSTYPE_USER_WITH_SHARED = 2,         // per-user, shared file as read fallback
  MORVSETTINGSTYPE_SHARED = 3,                   // shared file
  MORVSETTINGSTYPE_USER_ALT = 4,                 // as 1
  MORVSETTINGSTYPE_USER_WITH_SHARED_ALT = 5,     // as 2
  MORVSETTINGSTYPE_SHARED_ALT = 6,               // as 3
  MORVSETTINGSTYPE_USER_CREATE = 7,              // as 1, creating the file and keys
  MORVSETTINGSTYPE_USER_WITH_SHARED_CREATE = 8,  // as 2, creating the per-user file and keys
  MORVSETTINGSTYPE_SHARED_CREATE = 9             // as 3, creating the file and keys
};

// A settings node. Counted: the caller that receives a node through an
// IMorvSettings** owns one reference and releases it (mvtl::RefCountedPtr
// does). Wide names (32-bit wchar_t) are converted to UTF-8 and forwarded to
// the narrow operations.
class IMorvSettings : public mvtl::IRefCounted {
 public:
  ~IMorvSettings() override {}

  // This node's name: the last component of its path. Always true.
  virtual bool GetName(std::string& name) = 0;
  virtual bool GetName(std::wstring& name) = 0;

  // The number and the names of the child keys (entries that are
  // dictionaries), names holding U+0000 left out (see the top of this
  // file). Scopes 2, 5 and 8 include the shared file's. The narrow
  // GetChildNames empties `names` before it opens the node (a failure
  // leaves it empty); the wide one changes `names` only on success.
  virtual bool GetChildCount(unsigned long& count) = 0;
  virtual bool GetChildNames(std::set<std::string>& names) = 0;
  virtual bool GetChildNames(std::set<std::wstring>& names) = 0;

  // The node for a child key, by a relative path ("a" or "a/b/c"; "\\"
  // separates too), with this node's scope. *child receives one reference.
  // False when the key does not exist and the scope does not create it.
  //
  // Do not repeat a GetChild that failed on the same node for the same
  // name: the child node that failed to open stays in this node's child
  // map holding its file, and opening it again stops the process on the
  // smart pointer's assertion ("ptr == NULL"), which guards against opening
  // a node twice over. Ask GetChildNames first, or use a creating scope
  // (7 to 9), which makes missing keys.
  virtual bool GetChild(std::string const& name, IMorvSettings** child) = 0;
  virtual bool GetChild(std::wstring const& name, IMorvSettings** child) = 0;

  // The number and the names of the values (entries that are not
  // dictionaries), names holding U+0000 left out (see the top of this
  // file). Scopes 2, 5 and 8 include the shared file's. The narrow
  // GetValueNames empties `names` before it opens the node (a failure
  // leaves it empty); the wide one changes `names` only on success.
  virtual bool GetValueCount(unsigned long& count) = 0;
  virtual bool GetValueNames(std::set<std::string>& names) = 0;
  virtual bool GetValueNames(std::set<std::wstring>& names) = 0;

  // Stores a value under `name` (one entry, even if the name holds "/"),
  // replacing whatever was there. All integer widths are one 64-bit signed
  // entry: Uint32 is zero-extended, Uint64 stored as the same 64 bits.
  // False for an empty name, invalid UTF-8, or a node that cannot open.
  //
  // A node of scope 2 or 5 whose key exists only in the shared file (it
  // opened through the shared key) has no dictionary to store into: its
  // stores return true and keep nothing, and no file is written. Scope 8
  // creates the per-user key, so its stores are kept. Scopes 0 and above 9
  // likewise return true and keep nothing.
  virtual bool StoreInteger(std::string const& name, long long value) = 0;
  virtual bool StoreInteger(std::wstring const& name, long long value) = 0;
  virtual bool StoreInt32(std::string const& name, int value) = 0;
  virtual bool StoreInt32(std::wstring const& name, int value) = 0;
  virtual bool StoreUint32(std::string const& name, unsigned int value) = 0;
  virtual bool StoreUint32(std::wstring const& name, unsigned int value) = 0;
  virtual bool StoreInt64(std::string const& name, long long value) = 0;
  virtual bool StoreInt64(std::wstring const& name, long long value) = 0;
  virtual bool StoreUint64(std::string const& name, unsigned long long value) = 0;
  virtual bool StoreUint64(std::wstring const& name, unsigned long long value) = 0;
  virtual bool StoreFloat(std::string const& name, float value) = 0;
  virtual bool StoreFloat(std::wstring const& name, float value) = 0;
  virtual bool StoreDouble(std::string const& name, double value) = 0;
  virtual bool StoreDouble(std::wstring const& name, double value) = 0;
  virtual bool StoreBoolean(std::string const& name, bool value) = 0;
  virtual bool StoreBoolean(std::wstring const& name, bool value) = 0;
  // UTF-8 and wide strings are the same entry on disk. StoreWideString
  // refuses (false, nothing stored) a value that has no UTF-8 form: a unit
  // above 0x10FFFF or a surrogate.
  virtual bool StoreUTF8String(std::string const& name, std::string const& value) = 0;
  virtual bool StoreUTF8String(std::wstring const& name, std::string const& value) = 0;
  virtual bool StoreWideString(std::string const& name, std::wstring const& value) = 0;
  virtual bool StoreWideString(std::wstring const& name, std::wstring const& value) = 0;
  // `length` bytes from `data` (the caller keeps them); null data with a
  // length of 0 stores an empty buffer, null data with another length fails.
  virtual bool StoreBuffer(std::string const& name, void const* data, unsigned long length) = 0;
  virtual bool StoreBuffer(std::wstring const& name, void const* data, unsigned long length) = 0;

  // Fetches a value. Numbers and booleans also read string entries, by
  // Foundation's rules ("42" reads as 42); strings read only strings,
  // buffers only data. Int32/Uint32 take the low 32 bits of the stored 64
  // (no range check); Uint64 and Int64 the 64 bits as stored. Scopes 2, 5
  // and 8 read the shared file when the per-user file has no usable entry.
  // False when no entry is usable; `value` is then left as it was. A
  // string entry holding U+0000 fetches as its text up to the U+0000 (as
  // UTF-8 and wide alike; numbers read from it stop there too).
  virtual bool FetchInteger(std::string const& name, long long& value) = 0;
  virtual bool FetchInteger(std::wstring const& name, long long& value) = 0;
  virtual bool FetchInt32(std::string const& name, int& value) = 0;
  virtual bool FetchInt32(std::wstring const& name, int& value) = 0;
  virtual bool FetchUint32(std::string const& name, unsigned int& value) = 0;
  virtual bool FetchUint32(std::wstring const& name, unsigned int& value) = 0;
  virtual bool FetchInt64(std::string const& name, long long& value) = 0;
  virtual bool FetchInt64(std::wstring const& name, long long& value) = 0;
  virtual bool FetchUint64(std::string const& name, unsigned long long& value) = 0;
  virtual bool FetchUint64(std::wstring const& name, unsigned long long& value) = 0;
  virtual bool FetchFloat(std::string const& name, float& value) = 0;
  virtual bool FetchFloat(std::wstring const& name, float& value) = 0;
  virtual bool FetchDouble(std::string const& name, double& value) = 0;
  virtual bool FetchDouble(std::wstring const& name, double& value) = 0;
  virtual bool FetchBoolean(std::string const& name, bool& value) = 0;
  virtual bool FetchBoolean(std::wstring const& name, bool& value) = 0;
  virtual bool FetchUTF8String(std::string const& name, std::string& value) = 0;
  virtual bool FetchUTF8String(std::wstring const& name, std::string& value) = 0;
  virtual bool FetchWideString(std::string const& name, std::wstring& value) = 0;
  virtual bool FetchWideString(std::wstring const& name, std::wstring& value) = 0;
  // The buffer ends holding exactly the stored bytes.
  virtual bool FetchBuffer(std::string const& name, mvtl::MemoryBuffer<unsigned char>& value) = 0;
  virtual bool FetchBuffer(std::wstring const& name, mvtl::MemoryBuffer<unsigned char>& value) = 0;

  // Removes the value or child key `name` under this node (true also when
  // there is none). The change is written when the node closes.
  virtual bool Delete(std::string const& name) = 0;
  virtual bool Delete(std::wstring const& name) = 0;

  // Removes this node's own key from its parent dictionary, then closes the
  // node, which writes the file. False when there is no key to remove (the
  // node has none open, or its scope has no read-write file); the outcome of
  // the write does not change the result.
  virtual bool Delete() = 0;
};

// Creates the node for `path` (components separated by "/" or "\\"; none
// may be empty) with `scope` and opens it. On success *settings (when not
// null) receives the node with one reference for the caller, and the result
// is true. False, with *settings untouched, for an empty path, an empty
// component, invalid UTF-8, a path of more than 127 components (a settings
// file nests at most 128 dictionaries, its root included; GetChild paths
// count towards the same limit), or a node that cannot open (a missing file
// or key in a scope that does not create them, a key path through a value).
MORVSETTINGS_API bool CreateMorvSettings(std::string const& path, MORVSETTINGSTYPE scope,
                                         IMorvSettings** settings);
MORVSETTINGS_API bool CreateMorvSettings(std::wstring const& path, MORVSETTINGSTYPE scope,
                                         IMorvSettings** settings);

}  // namespace mvcs

#endif  // MORVSETTINGS_MORVSETTINGS_H
