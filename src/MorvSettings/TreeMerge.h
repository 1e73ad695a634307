// Merging settings trees: how a save keeps the changes that other processes
// made to a file since this process read it.
//
// A process's in-memory tree is the file as it last read or wrote it plus
// its own changes, whose key paths the file object records as they are
// made (stores, deletions, keys made or imported). When the file on disk
// has changed since, the save writes the disk's tree with, at each recorded
// path, what the in-memory tree holds there (or nothing, if it holds
// nothing there any more): this process's changes win where both changed
// an entry (its save is the later one), and every other entry keeps the
// disk's. The in-memory tree then becomes the merged one, in place, so that
// nodes keep the dictionaries they hold.

#ifndef MORVSETTINGS_TREEMERGE_H
#define MORVSETTINGS_TREEMERGE_H

#include <set>
#include <string>
#include <vector>

#include "KeyPath.h"
#include "format/PListTree.h"

namespace mvcs {

// The paths where a process changed a file's tree since it last read or
// wrote the file.
typedef std::set<KeyPath> ChangedPaths;

// For every path of `changed` (in order, so parents before children): if
// `current` holds a value there, `target` gets a copy of it, making the
// dictionaries on the way (replacing values in their way); if `current`
// holds a dictionary there, `target` gets a dictionary there (its own, if
// it has one: the entries inside are changes of their own paths); if
// `current` holds nothing there, `target` loses what it holds there.
void ApplyChanges(const PListDictionary& current, const ChangedPaths& changed,
                  PListDictionary& target);

// Makes `current` hold what `merged` holds, in place, taking `merged`'s
// entries (which leaves it empty): a dictionary of `current` that has a
// dictionary of the same name in `merged` stays the same object and takes
// that one's entries, recursively; dictionaries of `current` that have none
// are marked detached (PListDictionary::IsDetached). Costs time in the
// number of dictionaries, not of entries.
void Adopt(PListDictionary& current, PListDictionary& merged);

}  // namespace mvcs

#endif  // MORVSETTINGS_TREEMERGE_H
