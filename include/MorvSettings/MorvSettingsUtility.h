// Inspecting and exchanging settings: what kind of entry a name holds,
// where a product's files are, saving a node's changes now (with the
// outcome) or dropping them, and a node's entries as a property list, out
// and in.
//
// These serve tools (morv-settings is one) and programs that show or move
// settings; the typed operations of MorvSettings.h remain the way to read
// and write values. Each function takes a node made by CreateMorvSettings or
// CreateSimpleSettings; for any other IMorvSettings it fails. Like the rest
// of the store, they may be called from any thread.

#ifndef MORVSETTINGS_MORVSETTINGSUTILITY_H
#define MORVSETTINGS_MORVSETTINGSUTILITY_H

#include <cstring>
#include <string>
#include <vector>

#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsExport.h"

namespace mvcs {

// The kind of an entry, as a node's typed operations see it.
enum MORVVALUEKIND {
  MORVVALUEKIND_NONE = 0,          // no entry of that name
  MORVVALUEKIND_INTEGER,           // FetchInteger (and the integer widths)
  MORVVALUEKIND_UNSIGNED_INTEGER,  // an integer of 2^63 or more held as unsigned
                                   // (other writers make these): FetchUint64
  MORVVALUEKIND_REAL,              // FetchDouble, FetchFloat
  MORVVALUEKIND_BOOLEAN,           // FetchBoolean
  MORVVALUEKIND_STRING,            // FetchUTF8String, FetchWideString
  MORVVALUEKIND_DATA,              // FetchBuffer
  MORVVALUEKIND_DICTIONARY,        // a child key: GetChild
  MORVVALUEKIND_ARRAY,             // kept in the file, but no operation reads it
  MORVVALUEKIND_DATE,              // likewise
  MORVVALUEKIND_OTHER,             // likewise (no kind a settings file holds yet)
  MORVVALUEKIND_UID,               // likewise: a UID (the keyed archivers' references)
  MORVVALUEKIND_SET                // likewise: a set (an array without order)
};

// The kind of the entry `name` (one entry, as the typed operations take
// names) of `node`: the entry of the node's own dictionary, or, for scopes
// with the shared file as fallback (2, 5, 8) when the own dictionary has no
// entry of that name, the shared one. Opens the node if needed. The name
// is taken as the typed operations take it: up to its first zero
// character. MORVVALUEKIND_NONE for no such entry, an empty name, a name
// that is not valid UTF-8, or a node that does not open.
MORVSETTINGS_API MORVVALUEKIND GetValueKind(IMorvSettings* node, const std::string& name);

// The per-user settings file of product `productId`
// ($XDG_CONFIG_HOME/Preferences/com.morv.<productId>.plist), and the
// machine-wide shared file; whether or not they exist. Empty when there is
// no folder for them (neither XDG_CONFIG_HOME nor HOME is set), or for an
// empty product id.
MORVSETTINGS_API std::string GetProductSettingsFile(const std::string& productId);
MORVSETTINGS_API std::string GetSharedSettingsFile();

// The outcome of a save: success, or the reason it failed as an errno
// value, kept with the outcome (errno itself may be changed by any later
// library call), with the file that failed and a message that says so.
class SaveResult {
 public:
  SaveResult() : m_error(0) {}                        // success
  explicit SaveResult(int error) : m_error(error) {}  // failure (error != 0)
  // The failure (error != 0) of the file at `path`, told by `message`.
  SaveResult(int error, const std::string& path, const std::string& message)
      : m_error(error), m_path(path), m_message(message) {}
  bool IsOk() const { return m_error == 0; }
  explicit operator bool() const { return IsOk(); }
  // 0 on success; otherwise the errno value that says why.
  int GetError() const { return m_error; }
  // The settings file that could not be written: the first one, when a
  // save of two files failed for both. Empty on success, and for a failure
  // of no file in particular (EINVAL for a node not made by this library).
  const std::string& GetPath() const { return m_path; }
  // What failed, for telling the user: "cannot write <file>: <reason>",
  // the reason being the text of the errno ("Permission denied") or what
  // happened ("another program held its lock (<file>.lock) for too long;
  // try again"). Empty on success; the errno's text alone ("Invalid
  // argument") for a failure of no file in particular.
  std::string GetMessage() const {
    if (m_message.empty() && m_error != 0) return std::strerror(m_error);
    return m_message;
  }
  // The files that the save found unreadable and moved aside (renamed to
  // "<file>.unreadable-XXXXXX", never overwritten) before writing: their
  // new names, for telling the user. Usually none.
  const std::vector<std::string>& GetMovedAside() const { return m_movedAside; }
  void AddMovedAside(const std::string& path) { m_movedAside.push_back(path); }

 private:
  int m_error;
  std::string m_path;
  std::string m_message;
  std::vector<std::string> m_movedAside;
};

// Writes the files of `node` that hold changes now, instead of when the
// node closes. Succeeds when every file with changes was written (or none
// had any). On failure the file that failed is on disk as it was (the
// node's other file, when it could be written, is written all the same),
// its changes stay in memory (a later close tries again), the result names
// it (GetPath, GetMessage), and the result's error says why:
// as the failing system call set it (EACCES, EROFS, ENOSPC, ...), EFBIG for
// a file that would be larger than the store reads (64 MiB), or EINVAL for
// settings that cannot be written so as to read back, EWOULDBLOCK when
// another process held the file's lock ("<file>.lock") for longer than the
// save lock timeout. EINVAL also for a node not made by this library.
// Saving merges with what other processes saved meanwhile (see
// MorvSettings.h).
MORVSETTINGS_API SaveResult SaveSettings(IMorvSettings* node);

// Drops the changes to the files of `node` (the per-user file, the shared
// file, or both, as its scope uses them) that this process made and that no
// save has written yet: stores, deletions and imports through any node of
// those files, not only this one, and the keys that the scopes that create
// made. Afterwards every node of those files sees them as this process last
// read or wrote them (as they were on disk then; empty when there was no
// file, or none that could be read), and nothing is left for a save to
// write: a later SaveSettings, or the release of the last node of a file,
// writes nothing. A node whose key only the dropped changes made behaves as
// one whose key another process removed (see MorvSettings.h).
//
// Meant for a program that reports a failed save (see SaveSettings) as
// "nothing was changed": without it, the changes stay in memory and the
// save at the node's release may write them after all. Does no file I/O,
// but waits for a save of those files that another thread is running: what
// that save writes stays written, and is what the nodes then see. True when
// done (also for a node whose files are not loaded, which has nothing to
// drop); false, with nothing done, for a node not made by this library
// (null included).
MORVSETTINGS_API bool DiscardSettingsChanges(IMorvSettings* node);

// How long every save of this process (SaveSettings, and the saves of nodes
// that close) waits for a settings file's lock before it fails with
// EWOULDBLOCK, in milliseconds: the number in the environment variable
// MORV_SETTINGS_LOCK_TIMEOUT when the process's first save starts, else
// 5000, until this function sets it. Returns the previous
// value. A save never waits longer than this, however long another process
// holds the lock.
MORVSETTINGS_API unsigned SetSaveLockTimeout(unsigned milliseconds);

// What is at a settings file's path, as the store would read it.
enum MORVFILESTATE {
  MORVFILE_MISSING = 0,          // nothing there (the store starts empty)
  MORVFILE_READABLE,             // a settings file the store reads
  MORVFILE_NOT_A_PROPERTY_LIST,  // not a property list, or a damaged one
  MORVFILE_NOT_A_DICTIONARY,     // a property list without a dictionary at its root
  MORVFILE_TOO_LARGE,            // larger than 64 MiB, or expanding far beyond its size
  MORVFILE_TOO_DEEP,             // nested deeper than 128 levels
  MORVFILE_BAD_TEXT,             // holding a key or string that is not well-formed text
  MORVFILE_NOT_A_FILE,           // a folder, a device, a pipe...
  MORVFILE_NO_PERMISSION,        // this process may not read it
  MORVFILE_UNREADABLE            // reading it failed otherwise
};

// The state of the settings file at `path` (one of GetProductSettingsFile
// and GetSharedSettingsFile, or any other). Every state but MISSING and
// READABLE is a file that the store does not use: it opens as if nothing
// were there, and the first save that writes the file moves it aside
// ("<file>.unreadable-XXXXXX") instead of overwriting it.
MORVSETTINGS_API MORVFILESTATE GetSettingsFileState(const std::string& path);

// A short description of a state, for messages ("not a property list").
MORVSETTINGS_API const char* DescribeSettingsFileState(MORVFILESTATE state);

enum MORVPLISTFORMAT {
  MORVPLISTFORMAT_BINARY = 0,  // binary property list, version 1.0
  MORVPLISTFORMAT_XML = 1      // XML property list, version 1.0
};

// The entries of the node's own dictionary (the per-user file's for scopes
// 1, 2, 4, 5, 7, 8; the shared file's for 3, 6, 9), child keys included, as
// a property list whose root dictionary holds them: every entry exactly as
// the file holds it, kinds that no operation reads included. Entries that
// the node reads from the shared file as fallback are not part of it. On
// success `bytes` receives the property list. False, with `bytes`
// untouched, when the node does not open or has no dictionary of its own,
// and for MORVPLISTFORMAT_XML when an entry below the node is one that XML
// 1.0 cannot carry (the binary format carries them all): a key or string
// holding U+0000..U+0008, U+000B, U+000C, U+000E..U+001F, U+FFFE or U+FFFF,
// or a date outside the years 1 to 9999. (A NaN real is written as "nan":
// its payload is lost.)
MORVSETTINGS_API bool ExportSettings(IMorvSettings* node, MORVPLISTFORMAT format,
                                     std::string& bytes);

// The same; on failure `reason` receives why, in words, naming the entry
// that XML cannot carry by its key path below the node (for example: the
// string at "Server/Name" holds U+0001, which XML cannot carry).
MORVSETTINGS_API bool ExportSettings(IMorvSettings* node, MORVPLISTFORMAT format,
                                     std::string& bytes, std::string& reason);

enum MORVIMPORTRESULT {
  MORVIMPORT_OK = 0,
  MORVIMPORT_NOT_A_SETTINGS_FILE,  // not a property list with a dictionary at its
                                   // root that the store reads (binary or XML)
  MORVIMPORT_TOO_DEEP,             // the node's path and the list's nesting together
                                   // would go deeper than a settings file may (128)
  MORVIMPORT_NO_NODE               // the node does not open, or has no own dictionary
};

// Merges the property list `bytes` (binary or XML) into the node's own
// dictionary: each dictionary of the list merges into the child key of its
// name (made when missing, replacing a value of that name), every other
// entry replaces the entry of its name. Entries the list does not name are
// kept. A key it makes where there was none merges, at the save, with a key
// of that name that another process made meanwhile. The change is written
// when the node closes (or by SaveSettings).
// On any result but MORVIMPORT_OK nothing has changed.
MORVSETTINGS_API MORVIMPORTRESULT ImportSettings(IMorvSettings* node, const std::string& bytes);

}  // namespace mvcs

#endif  // MORVSETTINGS_MORVSETTINGSUTILITY_H
