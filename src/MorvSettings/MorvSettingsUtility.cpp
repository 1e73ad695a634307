// Inspecting settings (see MorvSettingsUtility.h): entry kinds, file
// locations and states, saving now or dropping what is not saved. Export
// and import are in SettingsExchange.cpp.

#include "MorvSettings/MorvSettingsUtility.h"

#include <array>
#include <cerrno>
#include <utility>
#include <vector>

#include "MorvSettingsNode.h"
#include "SettingsFiles.h"
#include "SettingsText.h"
#include "StoreLock.h"
#include "format/PListFormat.h"
#include "format/PListLimits.h"

namespace mvcs {

namespace {

struct KindOfEntry {
  MORVVALUEKIND operator()(const PListDictionaryRef&) const { return MORVVALUEKIND_DICTIONARY; }
  MORVVALUEKIND operator()(const PListInteger& integer) const {
    return integer.wide ? MORVVALUEKIND_UNSIGNED_INTEGER : MORVVALUEKIND_INTEGER;
  }
  MORVVALUEKIND operator()(const PListReal&) const { return MORVVALUEKIND_REAL; }
  MORVVALUEKIND operator()(bool) const { return MORVVALUEKIND_BOOLEAN; }
  MORVVALUEKIND operator()(const std::string&) const { return MORVVALUEKIND_STRING; }
  MORVVALUEKIND operator()(const PListData&) const { return MORVVALUEKIND_DATA; }
  MORVVALUEKIND operator()(const PListDate&) const { return MORVVALUEKIND_DATE; }
  MORVVALUEKIND operator()(const PListUid&) const { return MORVVALUEKIND_UID; }
  MORVVALUEKIND operator()(const PListArrayRef& array) const {
    return array->isSet ? MORVVALUEKIND_SET : MORVVALUEKIND_ARRAY;
  }
};

}  // namespace

MORVVALUEKIND GetValueKind(IMorvSettings* node, const std::string& name) {
  StoreLock lock;
  MorvSettings* own = OwnNode(node);
  std::string key;
  if (own == nullptr || name.empty() || !StoredText(name, key) || !own->Open()) {
    return MORVVALUEKIND_NONE;
  }
  for (const PListDictionary* dictionary : {own->GetReadWriteKey(), own->GetReadKeyFallback()}) {
    const PListValue* entry = dictionary != nullptr ? dictionary->Find(key) : nullptr;
    if (entry != nullptr) return std::visit(KindOfEntry(), *entry);
  }
  return MORVVALUEKIND_NONE;
}

std::string GetProductSettingsFile(const std::string& productId) {
  return productId.empty() ? std::string() : UserSettingsFile(productId);
}

std::string GetSharedSettingsFile() { return SharedSettingsFile(); }

MORVFILESTATE GetSettingsFileState(const std::string& path) {
  std::string bytes;
  Status status = ReadSettingsFile(path, kMaxSettingsFileSize, bytes);
  if (status.ok()) {
    mvtl::RefCountedPtr<PListDictionary> tree;
    status = ParsePropertyList(bytes, tree);
  }
  switch (status.code()) {
    case Status::Code::kOk:
      return MORVFILE_READABLE;
    case Status::Code::kNotFound:
      return MORVFILE_MISSING;
    case Status::Code::kNotAFile:
      return MORVFILE_NOT_A_FILE;
    case Status::Code::kNotAPropertyList:
      return MORVFILE_NOT_A_PROPERTY_LIST;
    case Status::Code::kNotADictionary:
      return MORVFILE_NOT_A_DICTIONARY;
    case Status::Code::kTooLarge:
      return MORVFILE_TOO_LARGE;
    case Status::Code::kTooDeep:
      return MORVFILE_TOO_DEEP;
    case Status::Code::kBadText:
      return MORVFILE_BAD_TEXT;
    case Status::Code::kIOError:
      break;
  }
  const int error = status.error();
  return error == EACCES || error == EPERM ? MORVFILE_NO_PERMISSION : MORVFILE_UNREADABLE;
}

const char* DescribeSettingsFileState(MORVFILESTATE state) {
  switch (state) {
    case MORVFILE_MISSING:
      return "missing";
    case MORVFILE_READABLE:
      return "readable";
    case MORVFILE_NOT_A_PROPERTY_LIST:
      return "not a property list";
    case MORVFILE_NOT_A_DICTIONARY:
      return "a property list without a dictionary at its root";
    case MORVFILE_TOO_LARGE:
      return "too large (over 64 MiB, or expanding far beyond its size)";
    case MORVFILE_TOO_DEEP:
      return "nested too deep (over 128 levels)";
    case MORVFILE_BAD_TEXT:
      return "holding a key or string that is not well-formed text";
    case MORVFILE_NOT_A_FILE:
      return "not a regular file";
    case MORVFILE_NO_PERMISSION:
      return "no permission to read it";
    case MORVFILE_UNREADABLE:
      return "reading it failed";
  }
  return "reading it failed";
}

unsigned SetSaveLockTimeout(unsigned milliseconds) {
  const unsigned previous = PList::LockTimeout();
  PList::SetLockTimeout(milliseconds);
  return previous;
}

namespace {

// The errno value that SaveResult gives for a failed save: the failing
// call's, or EFBIG for a file larger than the store reads, EINVAL for a
// tree the format refuses.
int ErrnoOf(const Status& failure) {
  if (failure.error() != 0) return failure.error();
  if (failure.code() == Status::Code::kTooLarge) return EFBIG;
  return failure.IsRefused() ? EINVAL : EIO;
}

// The node's files (each may be null), held by references of their own: a
// save or a discard lets go of the store lock while it waits, and another
// thread may close the node meanwhile.
std::array<mvtl::RefCountedPtr<PList>, 2> FilesOf(const MorvSettings& node) {
  return {mvtl::RefCountedPtr<PList>(node.GetUserFile()),
          mvtl::RefCountedPtr<PList>(node.GetSharedFile())};
}

}  // namespace

SaveResult SaveSettings(IMorvSettings* node) {
  StoreLock lock;
  MorvSettings* own = OwnNode(node);
  if (own == nullptr) return SaveResult(EINVAL);
  Status failure;
  std::vector<std::string> movedAside;
  for (const mvtl::RefCountedPtr<PList>& file : FilesOf(*own)) {
    if (file.Get() == nullptr || file->GetRoot() == nullptr || !file->IsDirty()) continue;
    std::string aside;
    Status saved = file->Save(&aside);
    if (!aside.empty()) movedAside.push_back(aside);
    if (!saved.ok() && failure.ok()) failure = std::move(saved);
  }
  SaveResult result;
  if (!failure.ok()) result = SaveResult(ErrnoOf(failure), failure.path(), failure.ToString());
  for (const std::string& aside : movedAside) result.AddMovedAside(aside);
  return result;
}

bool DiscardSettingsChanges(IMorvSettings* node) {
  StoreLock lock;
  MorvSettings* own = OwnNode(node);
  if (own == nullptr) return false;
  for (const mvtl::RefCountedPtr<PList>& file : FilesOf(*own)) {
    if (file.Get() != nullptr) file->Discard();
  }
  return true;
}

}  // namespace mvcs
