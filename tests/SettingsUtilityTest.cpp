// The inspection and exchange functions of the settings store: entry kinds
// (own entries shadowing the machine-wide ones), file locations, saving now
// with its outcome (errno, the file that failed, the message), dropping
// changes no save has written, and export and import of a node's own
// dictionary.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <string>
#include <vector>

#include "MorvSettings/MorvSettingsSimple.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvSettings/MorvSettingsValue.h"
#include "Plistlib.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Dict;
using fixtures::Integer;
using fixtures::Key;
using fixtures::Node;
using fixtures::Open;
using fixtures::Plist;
using fixtures::String;

class SettingsUtility : public sandbox::SettingsSandbox {
 protected:
  // The product P's node with scope 8 (per-user, creating, shared fallback).
  Node Product(const std::string& product = "P") {
    return Open("Settings/" + product, mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_CREATE);
  }
};

// --- Kinds -----------------------------------------------------------------------

TEST_F(SettingsUtility, KindOfEveryStoredValue) {
  Node node = Product();
  ASSERT_TRUE(node);
  node->StoreInteger(std::string("int"), -1);
  node->StoreUint64(std::string("uint64"), 18446744073709551615ull);
  node->StoreFloat(std::string("float"), 0.5f);
  node->StoreDouble(std::string("double"), 0.1);
  node->StoreBoolean(std::string("bool"), true);
  node->StoreUTF8String(std::string("string"), "text");
  node->StoreBuffer(std::string("data"), "ab", 2);
  Node child;
  ASSERT_TRUE(node->GetChild(std::string("child"), &child));
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "int"), mvcs::MORVVALUEKIND_INTEGER);
  // The store keeps every integer as signed 64 bits.
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "uint64"), mvcs::MORVVALUEKIND_INTEGER);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "float"), mvcs::MORVVALUEKIND_REAL);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "double"), mvcs::MORVVALUEKIND_REAL);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "bool"), mvcs::MORVVALUEKIND_BOOLEAN);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "string"), mvcs::MORVVALUEKIND_STRING);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "data"), mvcs::MORVVALUEKIND_DATA);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "child"), mvcs::MORVVALUEKIND_DICTIONARY);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "missing"), mvcs::MORVVALUEKIND_NONE);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), ""), mvcs::MORVVALUEKIND_NONE);
  EXPECT_EQ(mvcs::GetValueKind(nullptr, "int"), mvcs::MORVVALUEKIND_NONE);
}

TEST_F(SettingsUtility, KindTakesNamesAsTheTypedOperationsDo) {
  Node node = Product();
  ASSERT_TRUE(node);
  ASSERT_TRUE(node->StoreInteger(std::string("cut\0after", 9), 7));
  // The name ends at its first zero character, for the store and here.
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), std::string("cut\0other", 9)),
            mvcs::MORVVALUEKIND_INTEGER);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "cut"), mvcs::MORVVALUEKIND_INTEGER);
  // A name that is not valid UTF-8 names nothing.
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "\xC3"), mvcs::MORVVALUEKIND_NONE);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "\xFF\xFE"), mvcs::MORVVALUEKIND_NONE);
}

TEST_F(SettingsUtility, KindsOfEntriesOtherWritersMake) {
  sandbox::WriteFile(
      UserFile("P"),
      Plist(Key("Settings",
                Dict(Key("P", Dict(Key("huge", "<integer>18446744073709551615</integer>") +
                                   Key("list", "<array><integer>1</integer></array>") +
                                   Key("when", "<date>2026-11-21T12:00:00Z</date>")))))));
  Node node = Product();
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "huge"), mvcs::MORVVALUEKIND_UNSIGNED_INTEGER);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "list"), mvcs::MORVVALUEKIND_ARRAY);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "when"), mvcs::MORVVALUEKIND_DATE);
  unsigned long long huge = 0;
  EXPECT_TRUE(node->FetchUint64(std::string("huge"), huge));
  EXPECT_EQ(huge, 18446744073709551615ull);
}

TEST_F(SettingsUtility, OwnEntryShadowsTheSharedOne) {
  sandbox::WriteFile(
      SharedFile(),
      Plist(Key("Settings",
                Dict(Key("P", Dict(Key("a", String("shared")) + Key("b", Integer(1))))))));
  Node node = Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_ALT);
  ASSERT_TRUE(node);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "a"), mvcs::MORVVALUEKIND_STRING);
  node = Product();
  node->StoreBoolean(std::string("a"), true);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "a"), mvcs::MORVVALUEKIND_BOOLEAN);
  EXPECT_EQ(mvcs::GetValueKind(node.Get(), "b"), mvcs::MORVVALUEKIND_INTEGER);
  // Without the fallback scope, only the own file counts.
  Node own = Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  EXPECT_EQ(mvcs::GetValueKind(own.Get(), "b"), mvcs::MORVVALUEKIND_NONE);
}

// --- File locations -----------------------------------------------------------------

TEST_F(SettingsUtility, FileLocationsFollowTheEnvironment) {
  EXPECT_EQ(mvcs::GetProductSettingsFile("MorvMediaServer"), UserFile("MorvMediaServer"));
  EXPECT_EQ(mvcs::GetProductSettingsFile(""), "");
  EXPECT_EQ(mvcs::GetSharedSettingsFile(), SharedFile());
  const std::string home = getenv("HOME") != nullptr ? getenv("HOME") : "";
  unsetenv("XDG_CONFIG_HOME");
  setenv("HOME", "/home/someone", 1);
  EXPECT_EQ(mvcs::GetProductSettingsFile("P"),
            "/home/someone/.config/Preferences/com.morv.P.plist");
  unsetenv("HOME");
  EXPECT_EQ(mvcs::GetProductSettingsFile("P"), "");
  unsetenv("XDG_CONFIG_DIRS");
  EXPECT_EQ(mvcs::GetSharedSettingsFile(), "/etc/xdg/Morv/Preferences/com.morv.plist");
  setenv("HOME", home.c_str(), 1);
}

// --- Saving now ------------------------------------------------------------------------

TEST_F(SettingsUtility, SaveWritesBeforeTheNodeCloses) {
  Node node = Product();
  node->StoreInteger(std::string("n"), 5);
  EXPECT_FALSE(sandbox::Exists(UserFile("P")));
  EXPECT_TRUE(mvcs::SaveSettings(node.Get()));
  const std::vector<std::string> dump = plistlib::Dump(UserFile("P"));
  EXPECT_NE(std::find(dump.begin(), dump.end(), "/Settings/P/n\tint\t5"), dump.end());
  const mvcs::SaveResult nothingLeft = mvcs::SaveSettings(node.Get());
  EXPECT_TRUE(nothingLeft.IsOk());
  EXPECT_EQ(nothingLeft.GetError(), 0);
  EXPECT_EQ(nothingLeft.GetPath(), "");
  EXPECT_EQ(nothingLeft.GetMessage(), "");
}

TEST_F(SettingsUtility, SaveOfANodeWithoutFilesOrNotTheLibrarysNode) {
  sandbox::WriteFile(SharedFile(),
                     Plist(Key("Settings", Dict(Key("P", Dict(Key("a", Integer(1))))))));
  Node node = Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_ALT);
  ASSERT_TRUE(node);  // only the shared file has it: the per-user file is not loaded
  EXPECT_TRUE(mvcs::SaveSettings(node.Get()));
  const mvcs::SaveResult notOurs = mvcs::SaveSettings(nullptr);
  EXPECT_FALSE(notOurs);
  EXPECT_EQ(notOurs.GetError(), EINVAL);
  EXPECT_EQ(notOurs.GetPath(), "");  // no file in particular
  EXPECT_EQ(notOurs.GetMessage(), std::strerror(EINVAL));
}

TEST_F(SettingsUtility, FailedSaveReportsWhyAndKeepsTheChange) {
  // A file where the settings folder should be: no write can succeed, as
  // root or not.
  sandbox::WriteFile(UserFolder(), "in the way");
  Node node = Product();
  ASSERT_TRUE(node);
  node->StoreInteger(std::string("n"), 5);
  const mvcs::SaveResult failed = mvcs::SaveSettings(node.Get());
  errno = 0;  // the reason is kept with the result, not in errno
  EXPECT_FALSE(failed.IsOk());
  EXPECT_EQ(failed.GetError(), ENOTDIR);
  EXPECT_EQ(failed.GetPath(), UserFile("P"));
  EXPECT_EQ(failed.GetMessage(), "cannot write " + UserFile("P") + ": " + std::strerror(ENOTDIR));
  EXPECT_EQ(sandbox::ReadFile(UserFolder()), "in the way");
  // Once the way is clear, the kept change is written.
  unlink(UserFolder().c_str());
  mkdir(UserFolder().c_str(), 0755);
  EXPECT_TRUE(mvcs::SaveSettings(node.Get()));
  long long n = 0;
  node = Node();
  EXPECT_TRUE(mvcs::FetchInteger(std::string("P"), std::string("n"), n));
  EXPECT_EQ(n, 5);
}

TEST_F(SettingsUtility, ASaveMakesFoldersAgainThatWereRemovedWhileTheProgramRan) {
  Node node = Product();
  ASSERT_NE(node.Get(), nullptr);
  ASSERT_TRUE(node->StoreInteger(std::string("first"), 1));
  ASSERT_TRUE(mvcs::SaveSettings(node.Get()).IsOk());
  // A user removes the whole folder while the program runs.
  sandbox::RemoveTree(UserFolder());
  ASSERT_FALSE(sandbox::Exists(UserFolder()));
  ASSERT_TRUE(node->StoreInteger(std::string("second"), 2));
  const mvcs::SaveResult saved = mvcs::SaveSettings(node.Get());
  EXPECT_TRUE(saved.IsOk()) << saved.GetMessage();
  // The removal counts as another program's deletion of what was there;
  // what this program stored since is on disk.
  EXPECT_EQ(plistlib::Dump(UserFile("P")),
            std::vector<std::string>({"\tdict\t1", "/Settings\tdict\t1", "/Settings/P\tdict\t1",
                                      "/Settings/P/second\tint\t2"}));
}

TEST_F(SettingsUtility, FailedSaveNamesTheFileThatFailed) {
  sandbox::WriteFile(SharedFile(),
                     Plist(Key("Settings", Dict(Key("P", Dict(Key("shared", Integer(1))))))));
  // The product's node reads the shared file as fallback: a save of it
  // writes both files when both hold changes.
  Node node = Product();
  Node machine = Open("Settings/P", mvcs::MORVSETTINGSTYPE_SHARED);
  ASSERT_TRUE(node);
  ASSERT_TRUE(machine);
  ASSERT_TRUE(node->StoreInteger(std::string("mine"), 2));
  ASSERT_TRUE(machine->StoreInteger(std::string("shared"), 3));
  // A file where the shared folder was: its file cannot be written, as
  // root or not, while the per-user folder is fine.
  sandbox::RemoveTree(SharedFolder());
  sandbox::WriteFile(SharedFolder(), "in the way");
  const mvcs::SaveResult failed = mvcs::SaveSettings(node.Get());
  EXPECT_FALSE(failed.IsOk());
  EXPECT_EQ(failed.GetError(), ENOTDIR);
  EXPECT_EQ(failed.GetPath(), SharedFile());
  EXPECT_EQ(failed.GetMessage(), "cannot write " + SharedFile() + ": " + std::strerror(ENOTDIR));
  EXPECT_NE(failed.GetMessage().find("Not a directory"), std::string::npos);
  EXPECT_TRUE(failed.GetMovedAside().empty());
  // The per-user file was written all the same.
  const std::vector<std::string> dump = plistlib::Dump(UserFile("P"));
  EXPECT_NE(std::find(dump.begin(), dump.end(), "/Settings/P/mine\tint\t2"), dump.end());
  EXPECT_EQ(sandbox::ReadFile(SharedFolder()), "in the way");
}

TEST_F(SettingsUtility, SettingsLargerThanTheStoreReadsAreNotWritten) {
  Node node = Product();
  std::vector<char> big((64u << 20) + 1, 'x');
  ASSERT_TRUE(node->StoreBuffer(std::string("big"), big.data(), big.size()));
  const mvcs::SaveResult tooLarge = mvcs::SaveSettings(node.Get());
  EXPECT_FALSE(tooLarge.IsOk());
  EXPECT_EQ(tooLarge.GetError(), EFBIG);
  EXPECT_EQ(tooLarge.GetPath(), UserFile("P"));
  // The format's refusal, in its own words.
  EXPECT_EQ(tooLarge.GetMessage(), "cannot write " + UserFile("P") + ": too large");
  EXPECT_FALSE(sandbox::Exists(UserFile("P")));
  node->Delete(std::string("big"));
  node->StoreInteger(std::string("small"), 1);
  EXPECT_TRUE(mvcs::SaveSettings(node.Get()));
}

// --- Dropping unsaved changes ---------------------------------------------------------

// An IMorvSettings that the library did not make: every operation fails.
class ForeignNode : public mvcs::IMorvSettings {
 public:
  int AddRef() override { return 1; }
  int Release() override { return 1; }
  int GetRefCount() override { return 1; }
#define MORV_FOREIGN_PAIR(method, ...)                                    \
  bool method(std::string const&, __VA_ARGS__) override { return false; } \
  bool method(std::wstring const&, __VA_ARGS__) override { return false; }
#define MORV_FOREIGN_SET(method, Text) \
  bool method(std::set<Text>&) override { return false; }
  bool GetName(std::string&) override { return false; }
  bool GetName(std::wstring&) override { return false; }
  bool GetChildCount(unsigned long&) override { return false; }
  bool GetValueCount(unsigned long&) override { return false; }
  MORV_FOREIGN_SET(GetChildNames, std::string)
  MORV_FOREIGN_SET(GetChildNames, std::wstring)
  MORV_FOREIGN_SET(GetValueNames, std::string)
  MORV_FOREIGN_SET(GetValueNames, std::wstring)
  MORV_FOREIGN_PAIR(GetChild, IMorvSettings**)
  MORV_FOREIGN_PAIR(StoreInteger, long long)
  MORV_FOREIGN_PAIR(StoreInt32, int)
  MORV_FOREIGN_PAIR(StoreUint32, unsigned int)
  MORV_FOREIGN_PAIR(StoreInt64, long long)
  MORV_FOREIGN_PAIR(StoreUint64, unsigned long long)
  MORV_FOREIGN_PAIR(StoreFloat, float)
  MORV_FOREIGN_PAIR(StoreDouble, double)
  MORV_FOREIGN_PAIR(StoreBoolean, bool)
  MORV_FOREIGN_PAIR(StoreUTF8String, std::string const&)
  MORV_FOREIGN_PAIR(StoreWideString, std::wstring const&)
  MORV_FOREIGN_PAIR(StoreBuffer, void const*, unsigned long)
  MORV_FOREIGN_PAIR(FetchInteger, long long&)
  MORV_FOREIGN_PAIR(FetchInt32, int&)
  MORV_FOREIGN_PAIR(FetchUint32, unsigned int&)
  MORV_FOREIGN_PAIR(FetchInt64, long long&)
  MORV_FOREIGN_PAIR(FetchUint64, unsigned long long&)
  MORV_FOREIGN_PAIR(FetchFloat, float&)
  MORV_FOREIGN_PAIR(FetchDouble, double&)
  MORV_FOREIGN_PAIR(FetchBoolean, bool&)
  MORV_FOREIGN_PAIR(FetchUTF8String, std::string&)
  MORV_FOREIGN_PAIR(FetchWideString, std::wstring&)
  MORV_FOREIGN_PAIR(FetchBuffer, mvtl::MemoryBuffer<unsigned char>&)
#undef MORV_FOREIGN_PAIR
#undef MORV_FOREIGN_SET
  bool Delete(std::string const&) override { return false; }
  bool Delete(std::wstring const&) override { return false; }
  bool Delete() override { return false; }
};

// The file's inode: a save replaces the file (a new inode) even when it
// writes the same bytes.
ino_t InodeOf(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? info.st_ino : 0;
}

// The integer `name` of `node`, or `missing` when it has none.
long long FetchedOr(mvcs::IMorvSettings* node, const std::string& name, long long missing) {
  long long value = missing;
  return node->FetchInteger(name, value) ? value : missing;
}

TEST_F(SettingsUtility, DiscardDropsEveryUnsavedChangeOfTheFileForEveryNode) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("kept"), 1));
  const std::string before = sandbox::ReadFile(UserFile("P"));
  const ino_t inode = InodeOf(UserFile("P"));
  Node node = Product();
  Node other = Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_TRUE(node);
  ASSERT_TRUE(other);
  Node child;
  ASSERT_TRUE(node->GetChild(std::string("Made"), &child));
  ASSERT_TRUE(child->StoreInteger(std::string("deep"), 4));
  ASSERT_TRUE(node->StoreInteger(std::string("kept"), 2));
  ASSERT_TRUE(node->StoreInteger(std::string("added"), 3));
  ASSERT_TRUE(other->StoreInteger(std::string("throughOther"), 5));
  ASSERT_EQ(FetchedOr(other.Get(), "kept", -1), 2);

  EXPECT_TRUE(mvcs::DiscardSettingsChanges(node.Get()));
  // Every node of the file sees it as it was read, whichever node made the
  // change.
  for (mvcs::IMorvSettings* each : {node.Get(), other.Get()}) {
    EXPECT_EQ(FetchedOr(each, "kept", -1), 1);
    EXPECT_EQ(FetchedOr(each, "added", -1), -1);
    EXPECT_EQ(FetchedOr(each, "throughOther", -1), -1);
    EXPECT_EQ(mvcs::GetValueKind(each, "Made"), mvcs::MORVVALUEKIND_NONE);
  }
  EXPECT_EQ(FetchedOr(child.Get(), "deep", -1), -1);  // its key is gone with the change
  // Nothing is left to write: not by a save now, nor at the release.
  EXPECT_TRUE(mvcs::SaveSettings(node.Get()));
  child = Node();
  node = Node();
  other = Node();
  EXPECT_EQ(sandbox::ReadFile(UserFile("P")), before);
  EXPECT_EQ(InodeOf(UserFile("P")), inode);
}

TEST_F(SettingsUtility, DiscardOfAFileNeverWrittenLeavesNoFile) {
  Node node = Product();
  ASSERT_TRUE(node);
  ASSERT_TRUE(node->StoreInteger(std::string("n"), 1));
  EXPECT_TRUE(mvcs::DiscardSettingsChanges(node.Get()));
  EXPECT_EQ(FetchedOr(node.Get(), "n", -1), -1);
  std::set<std::string> names = {"untouched"};
  EXPECT_TRUE(node->GetValueNames(names));  // the creating scope makes its key again
  EXPECT_TRUE(names.empty());
  node = Node();
  EXPECT_FALSE(sandbox::Exists(UserFile("P")));
  EXPECT_EQ(sandbox::ListWithoutLocks(UserFolder()), std::set<std::string>());
}

TEST_F(SettingsUtility, AfterADiscardOnlyLaterChangesAreMergedIntoTheDisksFile) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("shared"), 1));
  Node node = Product();
  ASSERT_TRUE(node);
  ASSERT_TRUE(node->StoreInteger(std::string("shared"), 2));
  ASSERT_TRUE(node->StoreInteger(std::string("dropped"), 3));
  ASSERT_TRUE(mvcs::DiscardSettingsChanges(node.Get()));
  // Another program changes the file meanwhile; this one then stores
  // something else. The save merges only that: the dropped store of
  // "shared" does not overwrite the other program's value.
  sandbox::WriteFile(
      UserFile("P"),
      Plist(Key("Settings",
                Dict(Key("P", Dict(Key("shared", Integer(7)) + Key("theirs", Integer(8))))))));
  ASSERT_TRUE(node->StoreInteger(std::string("later"), 5));
  ASSERT_TRUE(mvcs::SaveSettings(node.Get()));
  EXPECT_EQ(plistlib::Dump(UserFile("P")),
            std::vector<std::string>({"\tdict\t1", "/Settings\tdict\t1", "/Settings/P\tdict\t3",
                                      "/Settings/P/later\tint\t5", "/Settings/P/shared\tint\t7",
                                      "/Settings/P/theirs\tint\t8"}));
}

TEST_F(SettingsUtility, DiscardOfANodeNotMadeByTheLibraryFails) {
  ForeignNode foreign;
  EXPECT_FALSE(mvcs::DiscardSettingsChanges(&foreign));
  EXPECT_FALSE(mvcs::DiscardSettingsChanges(nullptr));
  EXPECT_EQ(mvcs::SaveSettings(&foreign).GetError(), EINVAL);
  // A node of the library whose per-user file is not loaded has nothing to
  // drop.
  sandbox::WriteFile(SharedFile(),
                     Plist(Key("Settings", Dict(Key("P", Dict(Key("a", Integer(1))))))));
  Node node = Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_ALT);
  ASSERT_TRUE(node);
  EXPECT_TRUE(mvcs::DiscardSettingsChanges(node.Get()));
  EXPECT_EQ(FetchedOr(node.Get(), "a", -1), 1);
}

// --- Export and import --------------------------------------------------------------------

TEST_F(SettingsUtility, ExportHoldsTheOwnEntriesOnly) {
  sandbox::WriteFile(SharedFile(),
                     Plist(Key("Settings", Dict(Key("P", Dict(Key("fromShared", Integer(1))))))));
  Node node = Product();
  node->StoreUTF8String(std::string("name"), "value");
  Node child;
  node->GetChild(std::string("sub"), &child);
  child->StoreInteger(std::string("n"), 7);
  std::string xml;
  ASSERT_TRUE(mvcs::ExportSettings(node.Get(), mvcs::MORVPLISTFORMAT_XML, xml));
  sandbox::WriteFile(m_root + "/out.xml", xml);
  EXPECT_EQ(xml.rfind("<?xml", 0), 0u);
  EXPECT_EQ(plistlib::Dump(m_root + "/out.xml"),
            std::vector<std::string>(
                {"\tdict\t2", "/name\tstr\t'value'", "/sub\tdict\t1", "/sub/n\tint\t7"}));
  std::string binary;
  ASSERT_TRUE(mvcs::ExportSettings(node.Get(), mvcs::MORVPLISTFORMAT_BINARY, binary));
  EXPECT_EQ(binary.rfind("bplist00", 0), 0u);
}

TEST_F(SettingsUtility, ExportWithoutAnOwnDictionaryFails) {
  sandbox::WriteFile(SharedFile(),
                     Plist(Key("Settings", Dict(Key("P", Dict(Key("a", Integer(1))))))));
  Node node = Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_ALT);
  std::string bytes = "untouched";
  EXPECT_FALSE(mvcs::ExportSettings(node.Get(), mvcs::MORVPLISTFORMAT_XML, bytes));
  EXPECT_FALSE(mvcs::ExportSettings(nullptr, mvcs::MORVPLISTFORMAT_XML, bytes));
  EXPECT_EQ(bytes, "untouched");
}

TEST_F(SettingsUtility, ImportMergesAndIsWrittenWhenTheNodeCloses) {
  Node node = Product();
  node->StoreInteger(std::string("kept"), 1);
  node->StoreInteger(std::string("becomesKey"), 2);
  Node child;
  node->GetChild(std::string("becomesValue"), &child);
  child = Node();
  node->GetChild(std::string("merged"), &child);
  child->StoreInteger(std::string("old"), 3);
  child = Node();
  const std::string list =
      Plist(Key("becomesKey", Dict(Key("x", Integer(4)))) + Key("becomesValue", String("v")) +
            Key("merged", Dict(Key("new", Integer(5)))) +
            Key("list", "<array><string>a</string></array>"));
  EXPECT_EQ(mvcs::ImportSettings(node.Get(), list), mvcs::MORVIMPORT_OK);
  node = Node();
  EXPECT_EQ(plistlib::Dump(UserFile("P")),
            std::vector<std::string>(
                {"\tdict\t1", "/Settings\tdict\t1", "/Settings/P\tdict\t5",
                 "/Settings/P/becomesKey\tdict\t1", "/Settings/P/becomesKey/x\tint\t4",
                 "/Settings/P/becomesValue\tstr\t'v'", "/Settings/P/kept\tint\t1",
                 "/Settings/P/list\tarray\t1", "/Settings/P/list[0]\tstr\t'a'",
                 "/Settings/P/merged\tdict\t2", "/Settings/P/merged/new\tint\t5",
                 "/Settings/P/merged/old\tint\t3"}));
}

TEST_F(SettingsUtility, ImportOfWhatIsNotASettingsFileChangesNothing) {
  Node node = Product();
  node->StoreInteger(std::string("kept"), 1);
  std::string before;
  ASSERT_TRUE(mvcs::ExportSettings(node.Get(), mvcs::MORVPLISTFORMAT_BINARY, before));
  for (const std::string& bad :
       {std::string("garbage"), std::string(""), std::string("bplist00"),
        std::string("<plist><array></array></plist>"),
        sandbox::ReadFile(std::string(MORV_TEST_SOURCE_DIR) + "/data/hostile/cycle_self.plist")}) {
    EXPECT_EQ(mvcs::ImportSettings(node.Get(), bad), mvcs::MORVIMPORT_NOT_A_SETTINGS_FILE);
  }
  std::string after;
  ASSERT_TRUE(mvcs::ExportSettings(node.Get(), mvcs::MORVPLISTFORMAT_BINARY, after));
  EXPECT_EQ(after, before);
  EXPECT_EQ(mvcs::ImportSettings(nullptr, Plist("")), mvcs::MORVIMPORT_NO_NODE);
}

TEST_F(SettingsUtility, ImportNestingLimitCountsTheNodesDepth) {
  // Settings/P/a is the file's fourth level: a list of 125 levels fits.
  auto nested = [](int levels) {
    std::string entries = Key("leaf", Integer(1));
    for (int i = 1; i < levels; ++i) entries = Key("k", Dict(entries));
    return Plist(entries);
  };
  Node deep = Open("Settings/P/a", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_TRUE(deep);
  EXPECT_EQ(mvcs::ImportSettings(deep.Get(), nested(126)), mvcs::MORVIMPORT_TOO_DEEP);
  EXPECT_EQ(mvcs::GetValueKind(deep.Get(), "k"), mvcs::MORVVALUEKIND_NONE);
  EXPECT_EQ(mvcs::ImportSettings(deep.Get(), nested(125)), mvcs::MORVIMPORT_OK);
  EXPECT_TRUE(mvcs::SaveSettings(deep.Get()));
  // Arrays count as levels too.
  Node other = Open("Settings/Q/a", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  std::string array = "<integer>1</integer>";
  for (int i = 0; i < 125; ++i) array = "<array>" + array + "</array>";
  EXPECT_EQ(mvcs::ImportSettings(other.Get(), Plist(Key("list", array))),
            mvcs::MORVIMPORT_TOO_DEEP);
}

TEST_F(SettingsUtility, ExportThenImportReproducesEveryKindOfEntry) {
  sandbox::WriteFile(UserFile("Product"), "");
  ASSERT_EQ(plistlib::WriteFixture("binary", UserFile("Product")), 0);
  Node source = Open("Settings/Product", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_TRUE(source);
  std::string exported;
  ASSERT_TRUE(mvcs::ExportSettings(source.Get(), mvcs::MORVPLISTFORMAT_XML, exported));
  Node target = Product("Copy");
  ASSERT_EQ(mvcs::ImportSettings(target.Get(), exported), mvcs::MORVIMPORT_OK);
  std::string again;
  ASSERT_TRUE(mvcs::ExportSettings(target.Get(), mvcs::MORVPLISTFORMAT_XML, again));
  EXPECT_EQ(again, exported);
}

// Every kind of entry, with the values at the edges of what XML carries
// (dates of years 1 to 9999, infinities, NaN, -0.0, denormals, CR, text
// that needs escaping, both ends of the integers), exported as XML and
// imported elsewhere, reads back as the same tree; but a UID, which XML
// has no form of, comes back as the dictionary that stands for it there.
TEST_F(SettingsUtility, EveryKindReadsBackEqualThroughAnXmlExport) {
  sandbox::WriteFile(UserFile("Product"), "");
  ASSERT_EQ(plistlib::WriteFixture("binary-edges", UserFile("Product")), 0);
  Node source = Open("Settings/Product", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_TRUE(source);
  std::string exported, reason;
  ASSERT_TRUE(mvcs::ExportSettings(source.Get(), mvcs::MORVPLISTFORMAT_XML, exported, reason))
      << reason;
  Node target = Product("Copy");
  ASSERT_EQ(mvcs::ImportSettings(target.Get(), exported), mvcs::MORVIMPORT_OK);
  mvcs::SettingsValue before, after;
  ASSERT_TRUE(mvcs::ReadSettingsTree(source.Get(), false, before));
  ASSERT_TRUE(mvcs::ReadSettingsTree(target.Get(), false, after));
  ASSERT_EQ(after.entries.size(), before.entries.size());
  std::size_t compared = 0;
  for (std::size_t i = 0; i < before.entries.size(); ++i) {
    const mvcs::SettingsEntry& entry = before.entries[i];
    const mvcs::SettingsEntry& again = after.entries[i];
    ASSERT_EQ(again.name, entry.name);
    if (entry.value.kind == mvcs::MORVVALUEKIND_UID) {
      ASSERT_EQ(again.value.kind, mvcs::MORVVALUEKIND_DICTIONARY);
      ASSERT_EQ(again.value.entries.size(), 1u);
      EXPECT_EQ(again.value.entries[0].name, "CF$UID");
      EXPECT_EQ(again.value.entries[0].value.integer, static_cast<long long>(entry.value.uid));
    } else {
      EXPECT_TRUE(mvcs::SameSettingsValue(entry.value, again.value)) << entry.name;
      ++compared;
    }
  }
  EXPECT_GE(compared, 30u);
}

// XML has no form of U+0000: a node whose keys or strings hold it exports
// as a binary property list only, which imports to the same entries.
TEST_F(SettingsUtility, EntriesHoldingZeroExportAsBinaryOnly) {
  sandbox::WriteFile(UserFile("Product"), "");
  ASSERT_EQ(plistlib::WriteFixture("binary-zero", UserFile("Product")), 0);
  Node source = Open("Settings/Product", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_TRUE(source);
  std::string xml = "untouched";
  EXPECT_FALSE(mvcs::ExportSettings(source.Get(), mvcs::MORVPLISTFORMAT_XML, xml));
  EXPECT_EQ(xml, "untouched");
  std::string binary;
  ASSERT_TRUE(mvcs::ExportSettings(source.Get(), mvcs::MORVPLISTFORMAT_BINARY, binary));
  Node target = Product("Copy");
  ASSERT_EQ(mvcs::ImportSettings(target.Get(), binary), mvcs::MORVIMPORT_OK);
  mvcs::SettingsValue original, copy;
  ASSERT_TRUE(mvcs::ReadSettingsTree(source.Get(), false, original));
  ASSERT_TRUE(mvcs::ReadSettingsTree(target.Get(), false, copy));
  EXPECT_TRUE(mvcs::SameSettingsValue(copy, original));
  const auto zeroKey = std::find_if(original.entries.begin(), original.entries.end(),
                                    [](const mvcs::SettingsEntry& entry) {
                                      return entry.name == std::string("key\0with zero", 13);
                                    });
  ASSERT_NE(zeroKey, original.entries.end());
  EXPECT_EQ(zeroKey->value.text, "value under a key with U+0000");
}

}  // namespace
