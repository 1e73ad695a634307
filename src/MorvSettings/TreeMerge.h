// Merging settings trees: how a save keeps the changes that other processes
// made to a file since this process read it.
//
// A process's in-memory tree is the file as it last read or wrote it plus
// its own changes, whose key paths the file object records in a change log
// as they are made (stores, deletions, keys made or imported). When the
// file on disk has changed since, the save writes the disk's tree with, at
// each recorded path, what the in-memory tree holds there (or nothing, if
// it holds nothing there any more): this process's changes win where both
// changed an entry (its save is the later one), and every other entry keeps
// the disk's. An entry that this process replaced or deleted (a value
// stored, a key deleted) is replaced as a whole: a dictionary deleted here
// and made again takes none of the disk's old entries back.

#ifndef MORVSETTINGS_TREEMERGE_H
#define MORVSETTINGS_TREEMERGE_H

#include <cstdint>
#include <map>
#include <vector>

#include "KeyPath.h"
#include "format/PListTree.h"

namespace mvcs {

// What the log knows of one changed path.
struct ChangeRecord {
  // Whether this process replaced the entry as a whole (stored a value over
  // it or deleted it) rather than only made a dictionary there.
  bool replaced = false;
  // When the change was last made, from a counter of the file's changes:
  // a save removes the records it wrote and keeps later ones.
  std::uint64_t sequence = 0;
};

// The paths where a process changed a file's tree since it last read or
// wrote the file, in path order (parents before children).
typedef std::map<KeyPath, ChangeRecord> ChangeLog;

// One change as a merge applies it: what the changing tree held at `path`
// when the change was taken.
struct CapturedChange {
  enum Kind { kNothing, kDictionary, kValue };
  KeyPath path;
  Kind kind = kNothing;
  bool replaced = false;
  // kValue: the value; kDictionary with `replaced`: a copy of the whole
  // dictionary (no other tree holds it).
  PListValue value;
};
typedef std::vector<CapturedChange> ChangeList;

// The changes of `log` recorded after `after` (all for 0), with what
// `current` holds at their paths, copied: the list stays valid whatever
// happens to `current` afterwards.
ChangeList CaptureChanges(const PListDictionary& current, const ChangeLog& log,
                          std::uint64_t after = 0);

// Applies `changes` in order (parents before children) to `target`: a
// value is set at its path, making the dictionaries on the way (replacing
// values in their way); a dictionary is made there, keeping `target`'s own
// if it has one, unless the change replaced the entry, when it takes the
// captured copy's place; nothing removes what `target` holds there. The
// captured values move into `target`.
void ApplyChanges(ChangeList changes, PListDictionary& target);

// A copy of `dictionary` and every dictionary below it (arrays, which are
// never changed, are shared).
PListDictionaryRef CopyTree(const PListDictionary& dictionary);

}  // namespace mvcs

#endif  // MORVSETTINGS_TREEMERGE_H
