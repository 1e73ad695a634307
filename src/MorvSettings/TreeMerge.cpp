// Merging settings trees (see TreeMerge.h).

#include "TreeMerge.h"

#include <utility>

namespace mvcs {

namespace {

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

PListDictionaryRef CopyTree(const PListDictionary& dictionary) {
  PListDictionaryRef copy;
  copy.Assign(new PListDictionary);
  copy->Reserve(dictionary.GetEntries().size());
  for (const auto& entry : dictionary.GetEntries()) {
    const PListDictionary* inner = AsDictionary(entry.second);
    copy->Set(entry.first, inner != nullptr ? PListValue(CopyTree(*inner)) : entry.second);
  }
  return copy;
}

ChangeList CaptureChanges(const PListDictionary& current, const ChangeLog& log,
                          std::uint64_t after) {
  ChangeList changes;
  for (const auto& record : log) {
    if (record.second.sequence <= after || record.first.empty()) continue;
    CapturedChange change;
    change.path = record.first;
    change.replaced = record.second.replaced;
    const KeyPath& path = record.first;
    const PListDictionary* holder = FindDictionary(&current, path, path.size() - 1);
    const PListValue* mine = holder != nullptr ? holder->Find(path.back()) : nullptr;
    if (mine == nullptr) {
      change.kind = CapturedChange::kNothing;
    } else if (const PListDictionary* dictionary = AsDictionary(*mine)) {
      change.kind = CapturedChange::kDictionary;
      if (change.replaced) change.value = CopyTree(*dictionary);
    } else {
      change.kind = CapturedChange::kValue;
      change.value = *mine;
    }
    changes.push_back(std::move(change));
  }
  return changes;
}

void ApplyChanges(ChangeList changes, PListDictionary& target) {
  for (CapturedChange& change : changes) {
    const KeyPath& path = change.path;
    const std::size_t last = path.size() - 1;
    switch (change.kind) {
      case CapturedChange::kNothing:
        if (PListDictionary* theirs = FindDictionary(&target, path, last)) {
          theirs->Remove(path[last]);
        }
        break;
      case CapturedChange::kDictionary:
        if (change.replaced) {
          MakePath(target, path, last).Set(path[last], std::move(change.value));
        } else {
          MakePath(target, path, path.size());
        }
        break;
      case CapturedChange::kValue:
        MakePath(target, path, last).Set(path[last], std::move(change.value));
        break;
    }
  }
}

}  // namespace mvcs
