// Merging settings trees (see TreeMerge.h).

#include "TreeMerge.h"

#include <utility>

namespace mvcs {

namespace {

// The dictionary at components [0, count) of `path` below `root`, or null
// when one of them is missing or not a dictionary.
template <class Dictionary>
Dictionary* Walk(Dictionary& root, const KeyPath& path, std::size_t count) {
  Dictionary* dictionary = &root;
  for (std::size_t i = 0; i < count && dictionary != nullptr; ++i) {
    const PListValue* entry = dictionary->Find(path[i]);
    dictionary = entry != nullptr ? AsDictionary(*entry) : nullptr;
  }
  return dictionary;
}

// The dictionary at components [0, count) of `path` below `root`, made
// where it is missing (replacing any value in the way).
PListDictionary& MakePath(PListDictionary& root, const KeyPath& path, std::size_t count) {
  PListDictionary* dictionary = &root;
  for (std::size_t i = 0; i < count; ++i) {
    const PListValue* entry = dictionary->Find(path[i]);
    PListDictionary* next = entry != nullptr ? AsDictionary(*entry) : nullptr;
    if (next == nullptr) {
      PListDictionaryRef made;
      made.Assign(new PListDictionary);
      dictionary->Set(path[i], made);
      next = made.Get();
    }
    dictionary = next;
  }
  return *dictionary;
}

}  // namespace

void ApplyChanges(const PListDictionary& current, const ChangedPaths& changed,
                  PListDictionary& target) {
  for (const KeyPath& path : changed) {
    if (path.empty()) continue;
    const std::size_t last = path.size() - 1;
    const PListDictionary* holder = Walk(current, path, last);
    const PListValue* mine = holder != nullptr ? holder->Find(path[last]) : nullptr;
    if (mine == nullptr) {
      if (PListDictionary* theirs = Walk(target, path, last)) theirs->Remove(path[last]);
    } else if (AsDictionary(*mine) != nullptr) {
      MakePath(target, path, path.size());
    } else {
      MakePath(target, path, last).Set(path[last], *mine);
    }
  }
}

void Adopt(PListDictionary& current, PListDictionary& merged) {
  PListDictionary::Entries previous = current.TakeEntries();
  current.TakeEntriesOf(merged);
  // Both are in key order: one walk over the two pairs up the names.
  auto before = previous.begin();
  for (auto& entry : current.MutableEntries()) {
    while (before != previous.end() && before->first < entry.first) ++before;
    if (before == previous.end() || before->first != entry.first) continue;
    PListDictionary* incoming = AsDictionary(entry.second);
    PListDictionary* kept = AsDictionary(before->second);
    if (incoming == nullptr || kept == nullptr) continue;
    // Keep the object that nodes may hold; it takes the incoming entries.
    PListDictionaryRef keep;
    keep.Assign(kept);
    Adopt(*kept, *incoming);
    entry.second = keep;
    before->second = PListValue();  // it stays in the tree: not detached
  }
  for (const auto& entry : previous) {
    if (PListDictionary* gone = AsDictionary(entry.second)) gone->MarkDetached();
  }
}

}  // namespace mvcs
