// Following settings while a program runs (see MorvSettingsWatch.h):
// refreshing a node's files, and watchers.
//
// A watcher reads the watched files itself (not through the process's
// file cache, whose copy changes only when the process saves or refreshes),
// keeps the view it last reported, and on each call compares the view the
// files give now with it. inotify (FileWatch) says when to look.

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "KeyPath.h"
#include "MorvSettings/MorvSettingsWatch.h"
#include "MorvSettingsNode.h"
#include "SettingsExchange.h"
#include "SettingsFiles.h"
#include "SettingsText.h"
#include "StoreLock.h"
#include "format/PListFormat.h"
#include "format/PListLimits.h"

namespace mvcs {

bool RefreshSettings(IMorvSettings* node, bool* changed) {
  StoreLock lock;
  if (changed != nullptr) *changed = false;
  MorvSettings* own = OwnNode(node);
  if (own == nullptr) return false;
  // Held here: a refresh lets go of the store lock while it reads.
  const mvtl::RefCountedPtr<PList> files[] = {mvtl::RefCountedPtr<PList>(own->GetUserFile()),
                                              mvtl::RefCountedPtr<PList>(own->GetSharedFile())};
  bool ok = true;
  for (const mvtl::RefCountedPtr<PList>& file : files) {
    if (file.Get() == nullptr) continue;
    bool read = false;
    if (!file->Refresh(&read)) ok = false;
    if (read && changed != nullptr) *changed = true;
  }
  return ok;
}

namespace {

// Where a watched view comes from: the dictionary at `key` in `file`. The
// layers of a view lie one over the other, the first on top.
struct Layer {
  std::string file;
  KeyPath key;
};

// Reports the differences between the DICTIONARY values `before` and
// `after` (a NONE counts as empty) below `path`.
void Compare(const SettingsValue& before, const SettingsValue& after, const std::string& path,
             std::vector<SettingsChange>& changes) {
  static const std::vector<SettingsEntry> kNone;
  const std::vector<SettingsEntry>& old =
      before.kind == MORVVALUEKIND_DICTIONARY ? before.entries : kNone;
  const std::vector<SettingsEntry>& now =
      after.kind == MORVVALUEKIND_DICTIONARY ? after.entries : kNone;
  auto a = old.begin();
  auto b = now.begin();
  while (a != old.end() || b != now.end()) {
    const bool onlyOld = b == now.end() || (a != old.end() && a->name < b->name);
    const bool onlyNew = a == old.end() || (b != now.end() && b->name < a->name);
    SettingsChange change;
    if (onlyOld) {
      change.type = SettingsChange::REMOVED;
      change.path = path + a->name;
      change.oldValue = a->value;
      changes.push_back(std::move(change));
      ++a;
    } else if (onlyNew) {
      change.type = SettingsChange::ADDED;
      change.path = path + b->name;
      change.newValue = b->value;
      changes.push_back(std::move(change));
      ++b;
    } else {
      if (a->value.kind == MORVVALUEKIND_DICTIONARY && b->value.kind == MORVVALUEKIND_DICTIONARY) {
        Compare(a->value, b->value, path + a->name + "/", changes);
      } else if (!SameSettingsValue(a->value, b->value)) {
        change.type = SettingsChange::CHANGED;
        change.path = path + a->name;
        change.oldValue = a->value;
        change.newValue = b->value;
        changes.push_back(std::move(change));
      }
      ++a;
      ++b;
    }
  }
}

}  // namespace

struct SettingsWatcher::State {
  std::mutex mutex;
  std::vector<Layer> layers;
  std::vector<std::string> files;  // each file of the layers once
  std::unique_ptr<FileWatch> watch;
  // Per file: the identity last read, and the tree then (null for no file).
  std::vector<FileIdentity> identities;
  std::vector<mvtl::RefCountedPtr<PListDictionary>> trees;
  std::vector<bool> read;  // whether the file has been read at all
  SettingsValue reported;  // the view last reported

  void Start() {
    for (const Layer& layer : layers) {
      if (std::find(files.begin(), files.end(), layer.file) == files.end()) {
        files.push_back(layer.file);
      }
    }
    identities.resize(files.size());
    trees.resize(files.size());
    read.assign(files.size(), false);
    watch.reset(new FileWatch(files));
    if (!watch->IsValid()) return;
    ReadFiles();
    reported = View();
  }

  // Reads again the files whose identity changed; a file that cannot be
  // read (being written in place, say) keeps its last tree until it can.
  void ReadFiles() {
    for (std::size_t i = 0; i < files.size(); ++i) {
      const FileIdentity now = IdentityOf(files[i]);
      if (read[i] && now == identities[i]) continue;
      std::string bytes;
      FileIdentity identity;
      const Status status = ReadSettingsFile(files[i], kMaxSettingsFileSize, bytes, &identity);
      if (status.IsNotFound()) {
        trees[i] = static_cast<const PListDictionary*>(nullptr);
        identities[i] = FileIdentity();
        read[i] = true;
        continue;
      }
      mvtl::RefCountedPtr<PListDictionary> tree;
      if (!status.ok() || !ParsePropertyList(bytes, tree).ok()) continue;
      trees[i] = tree;
      identities[i] = identity;
      read[i] = true;
    }
  }

  // The view the files give: the layers' dictionaries, the first on top.
  SettingsValue View() const {
    SettingsValue view;
    for (const Layer& layer : layers) {
      const std::size_t file = static_cast<std::size_t>(
          std::find(files.begin(), files.end(), layer.file) - files.begin());
      OverlayDictionary(FindDictionary<const PListDictionary>(trees[file].Get(), layer.key), view);
    }
    return view;
  }
};

SettingsWatcher::SettingsWatcher(const std::string& productId, bool installer,
                                 const std::string& keyPath)
    : m_state(new State) {
  KeyPath below;
  if (productId.empty() || productId.find_first_of("/\\") != std::string::npos ||
      !IsCStringText(productId) ||
      morv_common::SplitKeyPath(keyPath, kWatchedKeyPath, below) !=
          morv_common::KeyPathError::kNone) {
    return;
  }
  KeyPath key = {installer ? "Install" : "Settings", productId};
  key.insert(key.end(), below.begin(), below.end());
  if (!installer) {
    const std::string user = UserSettingsFile(productId);
    if (user.empty()) return;
    m_state->layers.push_back({user, key});
  }
  m_state->layers.push_back({SharedSettingsFile(), key});
  m_state->Start();
}

SettingsWatcher::SettingsWatcher(IMorvSettings* node) : m_state(new State) {
  KeyPath key;
  std::string user, shared;
  unsigned scope = 0;
  {
    // Only the node's paths are read under the store lock; Start reads the
    // files without it.
    StoreLock lock;
    MorvSettings* own = OwnNode(node);
    if (own == nullptr) return;
    key = own->GetKeyPath();
    user = own->GetUserFilePath();
    shared = own->GetSharedFilePath();
    scope = own->GetScope();
  }
  switch (scope <= 9 ? (1u << scope) : 0u) {
    case 1u << 1:
    case 1u << 4:
    case 1u << 7:
      if (!user.empty()) m_state->layers.push_back({user, key});
      break;
    case 1u << 2:
    case 1u << 5:
    case 1u << 8:
      if (!user.empty()) m_state->layers.push_back({user, key});
      if (!shared.empty()) m_state->layers.push_back({shared, key});
      break;
    case 1u << 3:
    case 1u << 6:
    case 1u << 9:
      if (!shared.empty()) m_state->layers.push_back({shared, key});
      break;
    default:
      break;
  }
  if (!m_state->layers.empty()) m_state->Start();
}

SettingsWatcher::~SettingsWatcher() {}

bool SettingsWatcher::IsValid() const {
  return m_state->watch != nullptr && m_state->watch->IsValid();
}

int SettingsWatcher::GetFileDescriptor() const {
  return IsValid() ? m_state->watch->Descriptor() : -1;
}

bool SettingsWatcher::ReadChanges(std::vector<SettingsChange>& changes) {
  if (!IsValid()) return false;
  std::lock_guard<std::mutex> lock(m_state->mutex);
  m_state->watch->Drain();
  m_state->ReadFiles();
  SettingsValue view = m_state->View();
  Compare(m_state->reported, view, std::string(), changes);
  m_state->reported = std::move(view);
  return true;
}

}  // namespace mvcs
