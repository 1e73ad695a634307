// Key paths: the components of a path from a settings file's root
// ({"Settings", "P", "Net"}), how text is split into them (the node's
// lenient rule here; the checked rules that watchers and the tool share in
// common/KeyPathSplitter.h), and the one walk of a path through a tree.

#ifndef MORVSETTINGS_KEYPATH_H
#define MORVSETTINGS_KEYPATH_H

#include <cstddef>
#include <string>
#include <vector>

#include "common/KeyPathSplitter.h"
#include "format/PListTree.h"

namespace mvcs {

// The components of a key path from a file's root: {"Settings", "P", "x"}.
typedef std::vector<std::string> KeyPath;

// Splits `text` at every character of `separators`, keeping empty pieces (a
// leading, doubled or trailing separator gives one). Empty text gives none.
// This is the node's own rule: the factory and GetChild split at "/" and
// "\\" and keep empty components.
std::vector<std::string> tokenize(const std::string& text, const std::string& separators);

// The rule of a watcher's key path (SettingsWatcher): "" for the watched
// dictionary itself, otherwise names between single "/", no "\", and the
// whole of a name given to the store (well-formed UTF-8 without U+0000).
extern const morv_common::KeyPathRule kWatchedKeyPath;

// The dictionary at components [0, count) of `path` below `root` (the root
// itself for count 0), or null when one of them is missing or is not a
// dictionary. `count` defaults to the whole path.
template <class Dictionary>
Dictionary* FindDictionary(Dictionary* root, const KeyPath& path,
                           std::size_t count = static_cast<std::size_t>(-1)) {
  if (count > path.size()) count = path.size();
  for (std::size_t i = 0; i < count && root != nullptr; ++i) {
    const PListValue* entry = root->Find(path[i]);
    root = entry != nullptr ? AsDictionary(*entry) : nullptr;
  }
  return root;
}

}  // namespace mvcs

#endif  // MORVSETTINGS_KEYPATH_H
