// The binary property-list reader against plistlib and libplist: thousands
// of files of every object kind that plistlib reads (random trees, written
// by plistlib and by tests/plist_differential.py's own writer with every
// reference, offset and integer width, and at the object counts where the
// widths change) read by the store to the same tree as plistlib reads them
// and, where libplist reads the kinds soundly, as libplist does.

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
  std::size_t files = 0, boundaries = 0;
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
}

}  // namespace
