// The states a crash (a power loss) can leave on disk during a save. The
// save runs through a file system that records its operations (folders and
// files made, bytes written, renames, removals, flushes); then, for every
// moment the crash could come, every combination of the operations that no
// completed flush has ordered yet (entries of a folder: flushed by an fsync
// of the folder; a file's bytes: by an fsync of the file) is applied, or
// not, to a model of the disk. In every such state the settings file must
// be readable and hold the old or the new contents; once the save has
// returned true, it must hold the new ones; and a file moved aside must
// never be lost. Three saves: the first (folders made), one that replaces
// the file, one that moves a garbage file aside.

#include <fcntl.h>
#include <gtest/gtest.h>

#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "FileSystem.h"
#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "PassThroughFileSystem.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"
#include "format/PListFormat.h"

namespace {

std::string FolderOf(const std::string& path) { return path.substr(0, path.rfind('/')); }

// One operation of a save, as it reaches the disk.
struct Operation {
  enum Kind { kMkdir, kCreate, kWrite, kRename, kUnlink, kSyncFile, kSyncFolder };
  Operation(Kind what, std::string where) : kind(what), path(std::move(where)) {}
  Kind kind;
  std::string path;  // kRename: from
  std::string to;    // kRename
  int file = -1;     // kCreate, kWrite, kSyncFile: the file (its creating operation)
  std::string bytes;
};

// The POSIX file system, recording what a save does to the disk (lock
// files aside: they hold nothing).
class RecordingFileSystem : public PassThroughFileSystem {
 public:
  std::vector<Operation> operations;
  // The files of the names that existed before (the model's file 0 stands
  // for whatever was there).
  std::map<std::string, int> names;

  int Open(const char* path, int flags, mode_t mode) override {
    const int fd = Posix().Open(path, flags, mode);
    if (fd >= 0) m_paths[fd] = path;
    return fd;
  }
  int Close(int fd) override {
    m_paths.erase(fd);
    return Posix().Close(fd);
  }
  ssize_t Write(int fd, const void* data, size_t size) override {
    const ssize_t written = Posix().Write(fd, data, size);
    if (written > 0 && IsRecorded(m_paths[fd])) {
      Operation write{Operation::kWrite, m_paths[fd]};
      write.file = FileOf(m_paths[fd]);
      write.bytes.assign(static_cast<const char*>(data), static_cast<std::size_t>(written));
      operations.push_back(write);
    }
    return written;
  }
  int Fsync(int fd) override {
    const int result = Posix().Fsync(fd);
    const std::string& path = m_paths[fd];
    struct stat info;
    if (result == 0 && Posix().Fstat(fd, &info) == 0) {
      if (S_ISDIR(info.st_mode)) {
        operations.push_back({Operation::kSyncFolder, path});
      } else if (IsRecorded(path)) {
        Operation sync{Operation::kSyncFile, path};
        sync.file = FileOf(path);
        operations.push_back(sync);
      }
    }
    return result;
  }
  int MakeTemporary(char* name, int flags) override {
    const int fd = Posix().MakeTemporary(name, flags);
    if (fd >= 0) {
      m_paths[fd] = name;
      Operation create{Operation::kCreate, name};
      create.file = static_cast<int>(operations.size()) + 1;
      names[name] = create.file;
      operations.push_back(create);
    }
    return fd;
  }
  int Rename(const char* from, const char* to) override {
    const int result = Posix().Rename(from, to);
    if (result == 0) {
      Operation rename{Operation::kRename, from};
      rename.to = to;
      operations.push_back(rename);
      names[to] = names[from];
      names.erase(from);
    }
    return result;
  }
  int Unlink(const char* path) override {
    const int result = Posix().Unlink(path);
    if (result == 0) {
      operations.push_back({Operation::kUnlink, path});
      names.erase(path);
    }
    return result;
  }
  int Mkdir(const char* path, mode_t mode) override {
    const int result = Posix().Mkdir(path, mode);
    if (result == 0) operations.push_back({Operation::kMkdir, path});
    return result;
  }

 private:
  static bool IsRecorded(const std::string& path) {
    return path.size() < 5 || path.compare(path.size() - 5, 5, ".lock") != 0;
  }
  int FileOf(const std::string& path) {
    const auto found = names.find(path);
    return found != names.end() ? found->second : 0;
  }

  std::map<int, std::string> m_paths;
};

// The disk as the model sees it: folders, names of files, files' bytes.
struct Disk {
  std::set<std::string> folders;
  std::map<std::string, int> names;
  std::map<int, std::string> bytes;

  void Apply(const Operation& operation) {
    switch (operation.kind) {
      case Operation::kMkdir:
        if (folders.count(FolderOf(operation.path)) != 0) folders.insert(operation.path);
        break;
      case Operation::kCreate:
        if (folders.count(FolderOf(operation.path)) != 0) {
          names[operation.path] = operation.file;
          bytes[operation.file];
        }
        break;
      case Operation::kWrite:
        bytes[operation.file] += operation.bytes;
        break;
      case Operation::kRename: {
        const auto from = names.find(operation.path);
        if (from == names.end() || folders.count(FolderOf(operation.to)) == 0) break;
        names[operation.to] = from->second;
        names.erase(operation.path);
        break;
      }
      case Operation::kUnlink:
        names.erase(operation.path);
        break;
      case Operation::kSyncFile:
      case Operation::kSyncFolder:
        break;
    }
  }
};

// Whether the operation `at` is flushed by a flush in (at, crash).
bool IsFlushed(const std::vector<Operation>& operations, std::size_t at, std::size_t crash) {
  const Operation& operation = operations[at];
  if (operation.kind == Operation::kSyncFile || operation.kind == Operation::kSyncFolder) {
    return true;
  }
  for (std::size_t later = at + 1; later < crash; ++later) {
    const Operation& flush = operations[later];
    if (operation.kind == Operation::kWrite) {
      if (flush.kind == Operation::kSyncFile && flush.file == operation.file) return true;
    } else if (flush.kind == Operation::kSyncFolder && flush.path == FolderOf(operation.path)) {
      return true;
    }
  }
  return false;
}

class SettingsCrashState : public sandbox::SettingsSandbox {
 protected:
  void TearDown() override {
    mvcs::SetFileSystem(nullptr);
    SettingsSandbox::TearDown();
  }

  // Saves a store into product P through a recording file system, then
  // checks every state a crash can leave. `old` is the file before (empty:
  // none); `garbage`: the old file must be moved aside, never lost.
  void CheckEveryCrashState(const std::string& old, bool garbage) {
    const std::string file = UserFile("P");
    if (!old.empty()) sandbox::WriteFile(file, old);
    fixtures::Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    ASSERT_NE(node.Get(), nullptr);
    ASSERT_TRUE(node->StoreInteger(std::string("b"), 2));

    Disk before;
    for (std::string folder = m_userConfig; folder.size() > 1; folder = FolderOf(folder)) {
      before.folders.insert(folder);
    }
    before.folders.insert("");  // the root's
    RecordingFileSystem recording;
    if (!old.empty()) {
      before.folders.insert(UserFolder());
      before.names[file] = 0;
      before.bytes[0] = old;
      recording.names[file] = 0;
    }
    mvcs::SetFileSystem(&recording);
    const bool saved = mvcs::SaveSettings(node.Get()).IsOk();
    mvcs::SetFileSystem(nullptr);
    ASSERT_TRUE(saved);
    const std::string written = sandbox::ReadFile(file);
    const std::vector<Operation>& operations = recording.operations;
    ASSERT_LT(operations.size(), 40u);

    int states = 0;
    for (std::size_t crash = 0; crash <= operations.size(); ++crash) {
      std::vector<std::size_t> open;  // not flushed: may or may not be on disk
      for (std::size_t at = 0; at < crash; ++at) {
        if (!IsFlushed(operations, at, crash)) open.push_back(at);
      }
      ASSERT_LT(open.size(), 16u);
      for (unsigned long choice = 0; choice < (1ul << open.size()); ++choice) {
        Disk disk = before;
        std::size_t next = 0;
        for (std::size_t at = 0; at < crash; ++at) {
          const bool isOpen = next < open.size() && open[next] == at;
          const bool applied = !isOpen || ((choice >> next) & 1) != 0;
          if (isOpen) ++next;
          if (applied) disk.Apply(operations[at]);
        }
        ++states;
        const std::string where = "crash after " + std::to_string(crash) + " of " +
                                  std::to_string(operations.size()) + " operations, choice " +
                                  std::to_string(choice);
        const auto live = disk.names.find(file);
        if (crash == operations.size()) {
          // The save returned true: its file is there, whatever else.
          ASSERT_NE(live, disk.names.end()) << where;
          EXPECT_EQ(disk.bytes[live->second], written) << where;
        }
        if (live != disk.names.end()) {
          const std::string& bytes = disk.bytes[live->second];
          EXPECT_TRUE(bytes == written || bytes == old) << where;
          if (!garbage || bytes == written) {
            mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
            EXPECT_TRUE(mvcs::ParsePropertyList(bytes, tree).ok()) << where;
          }
        } else {
          EXPECT_TRUE(old.empty() || garbage) << where << ": the old file is gone";
        }
        if (garbage) {
          // The garbage is somewhere: at its name or kept aside.
          bool kept = false;
          for (const auto& name : disk.names) {
            if (name.second == 0 && disk.bytes[0] == old) kept = true;
          }
          EXPECT_TRUE(kept) << where << ": the file moved aside is lost";
        }
        if (HasFailure()) return;
      }
    }
    EXPECT_GT(states, static_cast<int>(operations.size()));
    std::printf("%zu operations, %d crash states checked\n", operations.size(), states);
  }
};

TEST_F(SettingsCrashState, TheFirstSaveMakingItsFolders) { CheckEveryCrashState("", false); }

TEST_F(SettingsCrashState, ASaveReplacingTheFile) {
  CheckEveryCrashState(
      fixtures::Plist(fixtures::Key(
          "Settings", fixtures::Dict(fixtures::Key(
                          "P", fixtures::Dict(fixtures::Key("a", fixtures::Integer(1))))))),
      false);
}

TEST_F(SettingsCrashState, ASaveMovingAGarbageFileAside) {
  CheckEveryCrashState("garbage, not a property list", true);
}

}  // namespace
