// A node's entries out and in (see MorvSettingsUtility.h and
// MorvSettingsValue.h): as property lists (ExportSettings, ImportSettings)
// and as value trees (ReadSettingsTree, WriteSettingsTree), and the
// conversions between the store's tree and SettingsValue.

#include <algorithm>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvSettings/MorvSettingsValue.h"
#include "MorvSettingsNode.h"
#include "SettingsExchange.h"
#include "StoreLock.h"
#include "format/PListFormat.h"
#include "format/PListLimits.h"
#include "format/PListText.h"

namespace mvcs {

namespace {

// Calls changed(path, false) for the path of every entry below
// `dictionary` (`path` is the dictionary's own).
template <class Changed>
void ForEveryPath(const PListDictionary& dictionary, KeyPath& path, Changed& changed) {
  for (const auto& entry : dictionary.GetEntries()) {
    path.push_back(entry.first);
    changed(path, false);
    if (const PListDictionary* inner = AsDictionary(entry.second)) {
      ForEveryPath(*inner, path, changed);
    }
    path.pop_back();
  }
}

// Merges `from` into `into`: dictionaries into dictionaries of the same
// name, every other entry replacing. `from` is a freshly parsed tree that
// nothing else holds, so its dictionaries can be taken over as they are.
// Calls changed(path, replaced) for the path (below `into`) of every entry
// it sets over another (replaced), merges into or makes where there was
// none (not replaced), and of every entry inside a dictionary that comes
// in whole. A dictionary made where there was nothing is a key made, as a
// store through a scope that creates makes one: when another process made
// the same key meanwhile, a save merges the two instead of dropping the
// other's entries.
template <class Changed>
void Merge(PListDictionary& into, const PListDictionary& from, KeyPath& path, Changed& changed) {
  for (const auto& entry : from.GetEntries()) {
    const PListDictionary* incoming = AsDictionary(entry.second);
    const PListValue* existing = into.Find(entry.first);
    PListDictionary* target = existing != nullptr ? AsDictionary(*existing) : nullptr;
    path.push_back(entry.first);
    if (incoming != nullptr && target != nullptr) {
      changed(path, false);
      Merge(*target, *incoming, path, changed);
    } else {
      changed(path, incoming == nullptr || existing != nullptr);
      into.Set(entry.first, entry.second);
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

// Merges `incoming` into the node's own dictionary, recording the changes,
// and marks the node's file dirty.
MORVIMPORTRESULT MergeIntoNode(MorvSettings* own, const PListDictionary& incoming) {
  PListDictionary* dictionary = OwnDictionary(own);
  if (dictionary == nullptr) return MORVIMPORT_NO_NODE;
  // The incoming root stands for the node's own dictionary.
  if (NodeDepth(*own) - 1 + NestingDepth(incoming) > kMaxNesting) return MORVIMPORT_TOO_DEEP;
  KeyPath path;
  auto changed = [own, dictionary](const KeyPath& below, bool replaced) {
    own->RecordChange(dictionary, below, replaced);
  };
  Merge(*dictionary, incoming, path, changed);
  own->SetDirty(dictionary);
  return MORVIMPORT_OK;
}

// The store's value for a SettingsValue, which sits at nesting `depth` if
// it is a container (the root is 1), or false when a settings file cannot
// hold it (see WriteSettingsTree); `tooDeep` is set when containers nest
// deeper than a settings file may. The one conversion from SettingsValue
// to the tree; ToSettingsValue goes the other way.
bool FromSettingsValue(const SettingsValue& value, std::size_t depth, PListValue& out,
                       bool& tooDeep) {
  const bool container = value.kind == MORVVALUEKIND_ARRAY || value.kind == MORVVALUEKIND_SET ||
                         value.kind == MORVVALUEKIND_DICTIONARY;
  if (container && depth > kMaxNesting) {
    tooDeep = true;
    return false;
  }
  switch (value.kind) {
    case MORVVALUEKIND_INTEGER:
      out = PListInteger{value.integer, false};
      return true;
    case MORVVALUEKIND_UNSIGNED_INTEGER:
      // Below 2^63 it is an ordinary integer of the same value.
      out = PListInteger{value.integer, value.integer < 0};
      return true;
    case MORVVALUEKIND_REAL:
      out = PListReal{value.real};
      return true;
    case MORVVALUEKIND_BOOLEAN:
      out = value.boolean;
      return true;
    case MORVVALUEKIND_STRING:
      if (!IsTreeText(value.text.data(), value.text.size())) return false;
      out = value.text;
      return true;
    case MORVVALUEKIND_DATA:
      out = PListData(value.data);
      return true;
    case MORVVALUEKIND_DATE:
      out = PListDate{value.real};
      return true;
    case MORVVALUEKIND_UID:
      out = PListUid{value.uid};
      return true;
    case MORVVALUEKIND_ARRAY:
    case MORVVALUEKIND_SET: {
      auto array = std::make_shared<PListArray>();
      array->isSet = value.kind == MORVVALUEKIND_SET;
      array->items.resize(value.items.size());
      for (std::size_t i = 0; i < value.items.size(); ++i) {
        if (!FromSettingsValue(value.items[i], depth + 1, array->items[i], tooDeep)) {
          return false;
        }
      }
      out = PListArrayRef(std::move(array));
      return true;
    }
    case MORVVALUEKIND_DICTIONARY: {
      PListDictionaryRef dictionary;
      dictionary.Assign(new PListDictionary);
      for (const SettingsEntry& entry : value.entries) {
        if (!IsTreeText(entry.name.data(), entry.name.size()) ||
            dictionary->Find(entry.name) != nullptr) {
          return false;
        }
        PListValue item;
        if (!FromSettingsValue(entry.value, depth + 1, item, tooDeep)) return false;
        dictionary->Set(entry.name, std::move(item));
      }
      out = std::move(dictionary);
      return true;
    }
    default:
      return false;
  }
}

}  // namespace

SettingsValue ToSettingsValue(const PListValue& value) {
  SettingsValue out;
  if (const PListDictionary* dictionary = AsDictionary(value)) {
    out.kind = MORVVALUEKIND_DICTIONARY;
    out.entries.reserve(dictionary->GetEntries().size());
    for (const auto& entry : dictionary->GetEntries()) {
      out.entries.push_back({entry.first, ToSettingsValue(entry.second)});
    }
  } else if (const PListInteger* integer = std::get_if<PListInteger>(&value)) {
    out.kind = integer->wide ? MORVVALUEKIND_UNSIGNED_INTEGER : MORVVALUEKIND_INTEGER;
    out.integer = integer->bits;
  } else if (const PListReal* real = std::get_if<PListReal>(&value)) {
    out.kind = MORVVALUEKIND_REAL;
    out.real = real->value;
  } else if (const bool* boolean = std::get_if<bool>(&value)) {
    out.kind = MORVVALUEKIND_BOOLEAN;
    out.boolean = *boolean;
  } else if (const std::string* text = std::get_if<std::string>(&value)) {
    out.kind = MORVVALUEKIND_STRING;
    out.text = *text;
  } else if (const PListData* data = std::get_if<PListData>(&value)) {
    out.kind = MORVVALUEKIND_DATA;
    out.data = *data;
  } else if (const PListDate* date = std::get_if<PListDate>(&value)) {
    out.kind = MORVVALUEKIND_DATE;
    out.real = date->seconds;
  } else if (const PListUid* uid = std::get_if<PListUid>(&value)) {
    out.kind = MORVVALUEKIND_UID;
    out.uid = uid->value;
  } else if (const PListArrayRef* array = std::get_if<PListArrayRef>(&value)) {
    out.kind = (*array)->isSet ? MORVVALUEKIND_SET : MORVVALUEKIND_ARRAY;
    out.items.reserve((*array)->items.size());
    for (const PListValue& item : (*array)->items) out.items.push_back(ToSettingsValue(item));
  }
  return out;
}

void OverlayDictionary(const PListDictionary* layer, SettingsValue& view) {
  if (layer == nullptr) return;
  if (view.kind != MORVVALUEKIND_DICTIONARY) {
    view = SettingsValue();
    view.kind = MORVVALUEKIND_DICTIONARY;
  }
  // `view` holds the layers above this one: their entries win, their
  // dictionaries take this layer's entries where they have none.
  std::vector<SettingsEntry> merged;
  merged.reserve(view.entries.size() + layer->GetEntries().size());
  auto mine = view.entries.begin();
  for (const auto& entry : layer->GetEntries()) {
    while (mine != view.entries.end() && mine->name < entry.first)
      merged.push_back(std::move(*mine++));
    if (mine != view.entries.end() && mine->name == entry.first) {
      if (mine->value.kind == MORVVALUEKIND_DICTIONARY) {
        OverlayDictionary(AsDictionary(entry.second), mine->value);
      }
      merged.push_back(std::move(*mine++));
    } else {
      merged.push_back({entry.first, ToSettingsValue(entry.second)});
    }
  }
  while (mine != view.entries.end()) merged.push_back(std::move(*mine++));
  view.entries.swap(merged);
}

bool SameSettingsValue(const SettingsValue& a, const SettingsValue& b) {
  if (a.kind != b.kind) return false;
  switch (a.kind) {
    case MORVVALUEKIND_INTEGER:
    case MORVVALUEKIND_UNSIGNED_INTEGER:
      return a.integer == b.integer;
    case MORVVALUEKIND_REAL:
    case MORVVALUEKIND_DATE:
      return SameBits(a.real, b.real);
    case MORVVALUEKIND_BOOLEAN:
      return a.boolean == b.boolean;
    case MORVVALUEKIND_STRING:
      return a.text == b.text;
    case MORVVALUEKIND_DATA:
      return a.data == b.data;
    case MORVVALUEKIND_UID:
      return a.uid == b.uid;
    case MORVVALUEKIND_ARRAY:
    case MORVVALUEKIND_SET:
      return std::equal(a.items.begin(), a.items.end(), b.items.begin(), b.items.end(),
                        SameSettingsValue);
    case MORVVALUEKIND_DICTIONARY:
      return std::equal(a.entries.begin(), a.entries.end(), b.entries.begin(), b.entries.end(),
                        [](const SettingsEntry& i, const SettingsEntry& j) {
                          return i.name == j.name && SameSettingsValue(i.value, j.value);
                        });
    default:
      return true;
  }
}

bool ReadSettingsTree(IMorvSettings* node, bool withFallback, SettingsValue& tree) {
  StoreLock lock;
  MorvSettings* own = OwnNode(node);
  if (own == nullptr || !own->Open()) return false;
  SettingsValue view;
  view.kind = MORVVALUEKIND_DICTIONARY;
  OverlayDictionary(own->GetReadWriteKey(), view);
  if (withFallback) OverlayDictionary(own->GetReadKeyFallback(), view);
  tree = std::move(view);
  return true;
}

MORVIMPORTRESULT WriteSettingsTree(IMorvSettings* node, const SettingsValue& tree) {
  StoreLock lock;
  if (tree.kind != MORVVALUEKIND_DICTIONARY) return MORVIMPORT_NOT_A_SETTINGS_FILE;
  PListValue incoming;
  bool tooDeep = false;
  if (!FromSettingsValue(tree, 1, incoming, tooDeep)) {
    return tooDeep ? MORVIMPORT_TOO_DEEP : MORVIMPORT_NOT_A_SETTINGS_FILE;
  }
  return MergeIntoNode(OwnNode(node), *AsDictionary(incoming));
}

bool ExportSettings(IMorvSettings* node, MORVPLISTFORMAT format, std::string& bytes,
                    std::string& reason) {
  StoreLock lock;
  const PListDictionary* dictionary = OwnDictionary(OwnNode(node));
  if (dictionary == nullptr) {
    reason = "the node does not open or has no dictionary of its own";
    return false;
  }
  const Status written = format == MORVPLISTFORMAT_XML
                             ? WriteXmlPropertyList(*dictionary, bytes)
                             : WriteBinaryPropertyList(*dictionary, bytes);
  if (!written.ok()) reason = written.Reason();
  return written.ok();
}

bool ExportSettings(IMorvSettings* node, MORVPLISTFORMAT format, std::string& bytes) {
  std::string reason;
  return ExportSettings(node, format, bytes, reason);
}

MORVIMPORTRESULT ImportSettings(IMorvSettings* node, const std::string& bytes) {
  StoreLock lock;
  MorvSettings* own = OwnNode(node);
  if (OwnDictionary(own) == nullptr) return MORVIMPORT_NO_NODE;
  mvtl::RefCountedPtr<PListDictionary> incoming;
  // Every refusal of the format makes the list no settings file, one
  // nested too deep for any file included: MORVIMPORT_TOO_DEEP is for lists
  // that a file holds but not below this node.
  const Status parsed = ParsePropertyList(bytes, incoming);
  if (!parsed.ok()) return MORVIMPORT_NOT_A_SETTINGS_FILE;
  return MergeIntoNode(own, *incoming);
}

}  // namespace mvcs
