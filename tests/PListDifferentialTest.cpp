// The binary property-list reader against plistlib and libplist: thousands
// of files of every object kind that plistlib reads (random trees, a
// quarter of them with U+0000 in keys and strings, written by plistlib and
// by tests/plist_differential.py's own writer with every reference, offset
// and integer width, and at the object counts where the widths change) read
// by the store to the same tree as plistlib reads them and, where libplist
// reads the kinds soundly, as libplist does; and what the store's writer
// writes of each, read by plistlib to that tree again.

#include <gtest/gtest.h>

#include <string>

#include "PListListing.h"
#include "SettingsSandbox.h"
#include "format/PListFormat.h"

namespace {

class PListDifferential : public sandbox::SettingsSandbox {
 protected:
  void SetUp() override {
    SettingsSandbox::SetUp();
    ASSERT_EQ(sandbox::Run("python3 '" MORV_TEST_SOURCE_DIR "/plist_differential.py' generate '" +
                           m_root + "/files' 2000 7"),
              0);
  }
};

TEST_F(PListDifferential, TheReaderReadsWhatPlistlibAndLibplistRead) {
  std::size_t files = 0, boundaries = 0, zeros = 0;
  for (const std::string& name : sandbox::List(m_root + "/files")) {
    if (name.size() < 7 || name.compare(name.size() - 6, 6, ".plist") != 0) continue;
    const std::string stem = m_root + "/files/" + name.substr(0, name.size() - 6);
    const std::string bytes = sandbox::ReadFile(stem + ".plist");
    mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
    const mvcs::Status parsed = mvcs::ParsePropertyList(bytes, tree);
    ASSERT_TRUE(parsed.ok()) << name << ": " << parsed.ToString();
    ASSERT_EQ(listing::FirstDifference(listing::Of(*tree), sandbox::ReadFile(stem + ".txt")), "")
        << name;
    // libplist reads 16-byte integers and 4-byte reals soundly too; its
    // dates are whole microseconds of 32-bit seconds, so they are left out.
    // It keeps keys as C strings, so trees with U+0000 are plistlib's alone.
    if (mvcs::HoldsZeroText(*tree)) {
      ++zeros;
      ++files;
      continue;
    }
    const std::string libplist = listing::OfLibplist(bytes);
    if (!libplist.empty()) {
      ASSERT_EQ(listing::FirstDifference(listing::Of(*tree, listing::LibplistOptions()), libplist),
                "")
          << name;
    }
    ++files;
    if (name[0] == 'b') ++boundaries;
  }
  EXPECT_GE(files, 2000u);
  EXPECT_GE(boundaries, 20u);
  EXPECT_GE(zeros, 300u);
}

TEST_F(PListDifferential, PlistlibReadsWhatTheWriterWritesOfEachFile) {
  std::size_t files = 0;
  for (const std::string& name : sandbox::List(m_root + "/files")) {
    if (name.size() < 7 || name.compare(name.size() - 6, 6, ".plist") != 0) continue;
    mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
    ASSERT_TRUE(mvcs::ParsePropertyList(sandbox::ReadFile(m_root + "/files/" + name), tree).ok())
        << name;
    std::string bytes;
    ASSERT_TRUE(mvcs::WriteBinaryPropertyList(*tree, bytes).ok()) << name;
    sandbox::WriteFile(m_root + "/written/" + name, bytes);
    ++files;
  }
  ASSERT_GE(files, 2000u);
  ASSERT_EQ(sandbox::Run("python3 '" MORV_TEST_SOURCE_DIR "/plist_differential.py' dump '" +
                         m_root + "/written'"),
            0);
  for (const std::string& name : sandbox::List(m_root + "/files")) {
    if (name.size() < 5 || name.compare(name.size() - 4, 4, ".txt") != 0) continue;
    ASSERT_FALSE(sandbox::Exists(m_root + "/written/" + name.substr(0, name.size() - 4) + ".error"))
        << name;
    ASSERT_EQ(listing::FirstDifference(sandbox::ReadFile(m_root + "/written/" + name),
                                       sandbox::ReadFile(m_root + "/files/" + name)),
              "")
        << name;
  }
}

}  // namespace
