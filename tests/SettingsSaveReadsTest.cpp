// Saves read the settings file only when it changed since this process last
// read or wrote it: the reads of the file are counted through the store's
// file-system seam, while other writers change the file between saves (in
// place, by a rename, by two renames that leave its size and modification
// time as they were).

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <set>
#include <string>

#include "FileSystem.h"
#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "PassThroughFileSystem.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"
#include "format/PListFormat.h"

namespace {

using fixtures::Node;

// The POSIX file system, counting the reads of one file: read calls on
// descriptors that opened it.
class ReadCountingFileSystem : public PassThroughFileSystem {
 public:
  explicit ReadCountingFileSystem(const std::string& file) : m_file(file) {}

  int reads = 0;

  int Open(const char* path, int flags, mode_t mode) override {
    const int fd = Posix().Open(path, flags, mode);
    if (fd >= 0 && m_file == path) m_descriptors.insert(fd);
    return fd;
  }
  int Close(int fd) override {
    m_descriptors.erase(fd);
    return Posix().Close(fd);
  }
  ssize_t Read(int fd, void* buffer, size_t size) override {
    if (m_descriptors.count(fd) != 0) ++reads;
    return Posix().Read(fd, buffer, size);
  }

 private:
  const std::string m_file;
  std::set<int> m_descriptors;
};

class SettingsSaveReads : public sandbox::SettingsSandbox {
 protected:
  void SetUp() override {
    SettingsSandbox::SetUp();
    m_file = UserFile("P");
    sandbox::WriteFile(
        m_file,
        fixtures::Plist(fixtures::Key(
            "Settings", fixtures::Dict(fixtures::Key(
                            "P", fixtures::Dict(fixtures::Key("a", fixtures::Integer(1))))))));
  }

  // The counting file system of a test is gone before its node closes.
  void TearDown() override {
    mvcs::SetFileSystem(nullptr);
    m_node = Node();
    SettingsSandbox::TearDown();
  }

  // Stores `name` = `value` through the open node and saves.
  void StoreAndSave(const std::string& name, long long value) {
    ASSERT_TRUE(m_node->StoreInteger(name, value));
    ASSERT_TRUE(mvcs::SaveSettings(m_node.Get()).IsOk());
  }

  // Settings/P/<name> in the file as an integer, or -1.
  long long OnDisk(const std::string& name) const {
    mvtl::RefCountedPtr<mvcs::PListDictionary> root;
    if (!mvcs::ParsePropertyList(sandbox::ReadFile(m_file), root).ok()) return -1;
    const mvcs::PListValue* settings = root->Find("Settings");
    const mvcs::PListDictionary* product =
        settings != nullptr ? mvcs::AsDictionary(*settings) : nullptr;
    const mvcs::PListValue* p = product != nullptr ? product->Find("P") : nullptr;
    const mvcs::PListDictionary* values = p != nullptr ? mvcs::AsDictionary(*p) : nullptr;
    const mvcs::PListValue* value = values != nullptr ? values->Find(name) : nullptr;
    const mvcs::PListInteger* integer =
        value != nullptr ? std::get_if<mvcs::PListInteger>(value) : nullptr;
    return integer != nullptr ? integer->bits : -1;
  }

  // The file as another process's save leaves it: the file now with
  // Settings/P/a = `a`, in the binary format, written beside it and renamed
  // over it. With the same number of digits in `a`, the same size.
  void ReplaceElsewhere(long long a) {
    mvtl::RefCountedPtr<mvcs::PListDictionary> root;
    ASSERT_TRUE(mvcs::ParsePropertyList(sandbox::ReadFile(m_file), root).ok());
    mvcs::PListDictionary* values =
        mvcs::AsDictionary(*mvcs::AsDictionary(*root->Find("Settings"))->Find("P"));
    values->Set("a", mvcs::PListInteger{a, false});
    std::string bytes;
    ASSERT_TRUE(mvcs::WriteBinaryPropertyList(*root, bytes).ok());
    sandbox::WriteFile(m_file + ".other", bytes);
    ASSERT_EQ(std::rename((m_file + ".other").c_str(), m_file.c_str()), 0);
  }

  std::string m_file;
  Node m_node;
};

TEST_F(SettingsSaveReads, SavesOfAFileNobodyElseChangedReadNothing) {
  ReadCountingFileSystem counting(m_file);
  mvcs::SetFileSystem(&counting);
  m_node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(m_node.Get(), nullptr);
  EXPECT_GT(counting.reads, 0);  // the load
  counting.reads = 0;
  // The first save after the load, and saves after saves.
  StoreAndSave("b", 2);
  EXPECT_EQ(counting.reads, 0);
  StoreAndSave("c", 3);
  StoreAndSave("c", 4);
  EXPECT_EQ(counting.reads, 0);
  EXPECT_EQ(OnDisk("a"), 1);
  EXPECT_EQ(OnDisk("b"), 2);
  EXPECT_EQ(OnDisk("c"), 4);
}

TEST_F(SettingsSaveReads, ASaveReadsAndMergesWhatAnotherWriterChanged) {
  ReadCountingFileSystem counting(m_file);
  mvcs::SetFileSystem(&counting);
  m_node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(m_node.Get(), nullptr);
  StoreAndSave("b", 2);

  // Written in place.
  sandbox::WriteFile(
      m_file,
      fixtures::Plist(fixtures::Key(
          "Settings", fixtures::Dict(fixtures::Key(
                          "P", fixtures::Dict(fixtures::Key("other", fixtures::Integer(7))))))));
  counting.reads = 0;
  StoreAndSave("c", 3);
  EXPECT_GT(counting.reads, 0);
  EXPECT_EQ(OnDisk("other"), 7);
  EXPECT_EQ(OnDisk("c"), 3);
  // Saved before the other writer wrote its file without it: gone.
  EXPECT_EQ(OnDisk("b"), -1);

  // Another save renamed in.
  ReplaceElsewhere(5);
  counting.reads = 0;
  StoreAndSave("d", 4);
  EXPECT_GT(counting.reads, 0);
  EXPECT_EQ(OnDisk("a"), 5);
  EXPECT_EQ(OnDisk("d"), 4);

  // Two more at once, which leave the size and the modification time as
  // this process's save left them: the second often gets the inode number
  // of the file this process wrote, and, so soon after, may get its change
  // time too; its generation tells.
  struct stat written;
  ASSERT_EQ(stat(m_file.c_str(), &written), 0);
  ReplaceElsewhere(6);
  ReplaceElsewhere(8);
  const struct timespec times[2] = {written.st_atim, written.st_mtim};
  ASSERT_EQ(utimensat(AT_FDCWD, m_file.c_str(), times, 0), 0);
  struct stat replaced;
  ASSERT_EQ(stat(m_file.c_str(), &replaced), 0);
  ASSERT_EQ(replaced.st_size, written.st_size);
  counting.reads = 0;
  StoreAndSave("e", 5);
  EXPECT_GT(counting.reads, 0);
  EXPECT_EQ(OnDisk("a"), 8);
  EXPECT_EQ(OnDisk("e"), 5);
  EXPECT_EQ(OnDisk("d"), 4);

  // And then nothing more to read.
  counting.reads = 0;
  StoreAndSave("f", 6);
  EXPECT_EQ(counting.reads, 0);
  EXPECT_EQ(OnDisk("a"), 8);
}

}  // namespace
