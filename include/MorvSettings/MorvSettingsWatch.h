// Following settings while a program runs: bringing a node's files up to
// date with what other processes saved (RefreshSettings), and watchers
// that report, without polling, which entries changed.
//
// A program that keeps nodes open for a long time sees its own changes and
// those of the saves it makes (a save merges with the file on disk), but
// not what another process saves meanwhile until it refreshes. A watcher
// tells it when to: it gives a file descriptor that becomes readable when
// a watched file changes, for poll, epoll or a Qt socket notifier, and a
// call that says what changed. The library starts no thread of its own.
//
//   mvcs::SettingsWatcher watcher("MorvMediaServer", false);
//   pollfd wait = {watcher.GetFileDescriptor(), POLLIN, 0};
//   while (poll(&wait, 1, -1) > 0) {
//     std::vector<mvcs::SettingsChange> changes;
//     watcher.ReadChanges(changes);
//     for (const mvcs::SettingsChange& change : changes) ...;  // change.path, ...
//     mvcs::RefreshSettings(node.Get());  // open nodes: see the new values
//   }
//
// Like the rest of the store, everything here may be used from any thread.

#ifndef MORVSETTINGS_MORVSETTINGSWATCH_H
#define MORVSETTINGS_MORVSETTINGSWATCH_H

#include <memory>
#include <string>
#include <vector>

#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsExport.h"
#include "MorvSettings/MorvSettingsValue.h"

namespace mvcs {

// Brings the files of `node` (all nodes of the process share them) up to
// date with the disk: a file that changed since this process last read or
// wrote it is read again, and the process's own changes not yet saved are
// kept on top of it (as a save would merge them); every open node of the
// file then sees the new contents. Costs one stat of each file when
// nothing changed (device, inode, size, modification and change times).
// *changed (when not null) says whether any file was read again. False,
// with the node's files as they were, when the node is not this library's
// or a file is there but cannot be read (see GetSettingsFileState).
MORVSETTINGS_API bool RefreshSettings(IMorvSettings* node, bool* changed = nullptr);

// A change of one entry, as a watcher reports it. A dictionary that
// appears or goes is one change (its value holds what is below it); within
// a dictionary that stays, each entry that changed is a change of its own.
struct SettingsChange {
  enum Type { ADDED, REMOVED, CHANGED };
  Type type = CHANGED;
  std::string path;        // "Network/HttpPort": the entry below the watched key
  SettingsValue oldValue;  // kind NONE for ADDED
  SettingsValue newValue;  // kind NONE for REMOVED
};

// Watches settings for changes made by any process (this one included):
// the settings of a product, the installer's record of one, a key below
// either, or a node. It compares what the files hold with what it last
// reported, so quick successive saves are reported as their net change
// and the last state is always reported. It keeps working when the
// settings folders do not exist yet, when files are replaced by rename
// (as the store saves them), deleted and made again, or written in place.
class MORVSETTINGS_API SettingsWatcher {
 public:
  // The settings of product `productId` as the product's fetches see them
  // (Settings/<productId> in its per-user file, with the shared file's
  // entries where it has none), or with `installer` the installer's record
  // of it (Install/<productId> in the shared file); only the entries below
  // `keyPath` ("a/b") when it is not empty. The starting state is what the
  // files hold now.
  SettingsWatcher(const std::string& productId, bool installer,
                  const std::string& keyPath = std::string());

  // The files and key of `node` (a node of this library), as its fetches
  // see them.
  explicit SettingsWatcher(IMorvSettings* node);

  ~SettingsWatcher();
  SettingsWatcher(const SettingsWatcher&) = delete;
  SettingsWatcher& operator=(const SettingsWatcher&) = delete;

  // False when the watcher could not be set up: an empty or invalid product
  // id or key path, a node of another library or of a scope without files,
  // no user folder, or no inotify (the system's file watching) left.
  bool IsValid() const;

  // A descriptor that becomes readable (POLLIN) when a watched file may
  // have changed; -1 when the watcher is not valid. It belongs to the
  // watcher: do not read or close it.
  int GetFileDescriptor() const;

  // Takes what the descriptor announced without waiting, reads the watched
  // files again if they changed, and appends to `changes` every entry that
  // differs from the state last reported, in path order (none when nothing
  // changed, or when a file is being written and cannot be read yet: its
  // change comes once it can). False when the watcher is not valid.
  bool ReadChanges(std::vector<SettingsChange>& changes);

 private:
  struct State;
  std::unique_ptr<State> m_state;
};

}  // namespace mvcs

#endif  // MORVSETTINGS_MORVSETTINGSWATCH_H
