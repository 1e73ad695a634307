// Settings nodes: counting, splitting paths, walking to children,
// enumeration, deletion, closing and dirty marking.

#include <gtest/gtest.h>

#include <csignal>
#include <set>
#include <string>
#include <vector>

#include "SettingsFixtures.h"
#include "SettingsInternals.h"
#include "SettingsSandbox.h"
#include "format/PListLimits.h"

namespace {

using fixtures::Dict;
using fixtures::Impl;
using fixtures::Integer;
using fixtures::Key;
using fixtures::Node;
using fixtures::Plist;
using fixtures::String;
using mvcs::IMorvSettings;
using mvcs::MorvSettings;

class SettingsNode : public sandbox::SettingsSandbox {
 protected:
  // The per-user file of product P: Settings/P {value: 1, a: {b: {c: {}}}}.
  void WriteProductFile() {
    sandbox::WriteFile(
        UserFile("P"),
        Plist(Key("Settings",
                  Dict(Key("P", Dict(Key("value", Integer(1)) +
                                     Key("a", Dict(Key("b", Dict(Key("c", Dict("")))))))))) +
              Key("Other", String("kept"))));
  }
};

TEST(Tokenize, KeepsEveryPieceIncludingEmptyOnes) {
  EXPECT_EQ(mvcs::tokenize("", "/"), std::vector<std::string>());
  EXPECT_EQ(mvcs::tokenize("abc", "/"), std::vector<std::string>({"abc"}));
  EXPECT_EQ(mvcs::tokenize("a/b", "/"), std::vector<std::string>({"a", "b"}));
  EXPECT_EQ(mvcs::tokenize("/a", "/"), std::vector<std::string>({"", "a"}));
  EXPECT_EQ(mvcs::tokenize("a/", "/"), std::vector<std::string>({"a", ""}));
  EXPECT_EQ(mvcs::tokenize("a//b", "/"), std::vector<std::string>({"a", "", "b"}));
  EXPECT_EQ(mvcs::tokenize("/", "/"), std::vector<std::string>({"", ""}));
  EXPECT_EQ(mvcs::tokenize("a\\b/c", "/\\"), std::vector<std::string>({"a", "b", "c"}));
}

TEST_F(SettingsNode, FreshNodeCountsZeroAndLastReleaseDestroysIt) {
  MorvSettings* node = new MorvSettings(mvcs::MORVSETTINGSTYPE_USER, "Settings", nullptr, "");
  EXPECT_EQ(node->GetRefCount(), 0);
  EXPECT_EQ(node->AddRef(), 1);
  EXPECT_EQ(node->Release(), 0);
}

TEST_F(SettingsNode, ReleaseFromThreeReturnsTwo) {
  Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  node->AddRef();
  node->AddRef();
  EXPECT_EQ(node->GetRefCount(), 3);
  EXPECT_EQ(node->Release(), 2);
  EXPECT_EQ(node->Release(), 1);
}

TEST_F(SettingsNode, ChildEntersParentMapAndTakesItsPaths) {
  MorvSettings* root = new MorvSettings(mvcs::MORVSETTINGSTYPE_USER, "Settings", nullptr, "Prod");
  root->AddRef();
  MorvSettings* child = new MorvSettings(mvcs::MORVSETTINGSTYPE_USER, "Prod", root, "");
  EXPECT_EQ(child->GetRefCount(), 1);  // the parent's map
  EXPECT_EQ(root->GetChildren().at("Prod").Get(), child);
  EXPECT_EQ(child->GetFullKeyPath(), "Settings/Prod");
  EXPECT_EQ(child->GetUserFilePath(), UserFile("Prod"));
  EXPECT_EQ(child->GetSharedFilePath(), SharedFile());
  // A second child of the same name replaces the first in the map.
  MorvSettings* again = new MorvSettings(mvcs::MORVSETTINGSTYPE_USER, "Prod", root, "");
  EXPECT_EQ(root->GetChildren().at("Prod").Get(), again);
  root->Release();
}

TEST_F(SettingsNode, GetChildWithPathReachesKeyAndFillsEachChildMap) {
  WriteProductFile();
  Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(start.Get(), nullptr);
  Node c;
  ASSERT_TRUE(start->GetChild(std::string("a/b/c"), &c));
  EXPECT_EQ(Impl(c)->GetFullKeyPath(), "Settings/P/a/b/c");
  MorvSettings* a = Impl(Impl(start)->GetChildren().at("a"));
  ASSERT_NE(a, nullptr);
  MorvSettings* b = Impl(a->GetChildren().at("b"));
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(Impl(b->GetChildren().at("c")), Impl(c));
  EXPECT_EQ(c->GetRefCount(), 2);  // b's map and the caller
  // Step by step reaches the same key dictionary.
  Node stepA, stepB, stepC;
  ASSERT_TRUE(start->GetChild(std::string("a"), &stepA));
  ASSERT_TRUE(stepA->GetChild(std::string("b"), &stepB));
  ASSERT_TRUE(stepB->GetChild(std::string("c"), &stepC));
  EXPECT_EQ(Impl(stepC)->GetUserKey(), Impl(c)->GetUserKey());
  EXPECT_EQ(stepC.Get(), c.Get());  // the same cached child node
}

TEST_F(SettingsNode, GetChildAcceptsBackslashAndWideNames) {
  WriteProductFile();
  Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  Node c;
  ASSERT_TRUE(start->GetChild(std::wstring(L"a\\b\\c"), &c));
  std::wstring name;
  ASSERT_TRUE(c->GetName(name));
  EXPECT_EQ(name, L"c");
}

TEST_F(SettingsNode, GetChildWithEmptyComponentFailsWithoutCreate) {
  WriteProductFile();
  Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  Node child;
  EXPECT_FALSE(start->GetChild(std::string("a//b"), &child));
  EXPECT_EQ(child.Get(), nullptr);
}

TEST_F(SettingsNode, GetChildWithEmptyComponentMakesEmptyNamedKeyWithCreate) {
  {
    Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    Node child;
    ASSERT_TRUE(start->GetChild(std::string("a//b"), &child));
    EXPECT_EQ(Impl(child)->GetFullKeyPath(), "Settings/P/a//b");
    ASSERT_TRUE(child->StoreInteger(std::string("deep"), 5));
  }
  Node reopened = fixtures::Open("Settings/P/a", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(reopened.Get(), nullptr);
  std::set<std::string> children;
  ASSERT_TRUE(reopened->GetChildNames(children));
  EXPECT_EQ(children, std::set<std::string>({""}));
}

TEST_F(SettingsNode, GetChildOfEmptyNameOrUnopenableNodeFails) {
  WriteProductFile();
  Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  Node child;
  EXPECT_FALSE(start->GetChild(std::string(), &child));
  EXPECT_FALSE(start->GetChild(std::string("value"), &child));  // a value, not a key
  EXPECT_FALSE(start->GetChild(std::string("\xFF"), &child));   // not UTF-8
}

TEST_F(SettingsNode, MissingChildFailsWithoutCreate) {
  WriteProductFile();
  Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  Node child;
  EXPECT_FALSE(start->GetChild(std::string("missing"), &child));
  // The failed child stays in the map, holding its file.
  ASSERT_EQ(Impl(start)->GetChildren().count("missing"), 1u);
  EXPECT_NE(Impl(Impl(start)->GetChildren().at("missing"))->GetUserFile(), nullptr);
}

TEST_F(SettingsNode, RepeatingFailedGetChildAbortsOnTheAssertion) {
  WriteProductFile();
  Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  Node child;
  ASSERT_FALSE(start->GetChild(std::string("missing"), &child));
  EXPECT_EXIT(start->GetChild(std::string("missing"), &child), ::testing::KilledBySignal(SIGABRT),
              "^[^\n]*include/mvtl/RefCountedPtr\\.h:383: failed assertion `ptr == NULL'\n$");
}

TEST_F(SettingsNode, CreateScopeMakesMissingChildAndWritesOnlyAfterAChange) {
  {
    Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    Node child;
    ASSERT_TRUE(start->GetChild(std::string("made"), &child));
    std::set<std::string> values;
    EXPECT_TRUE(child->GetValueNames(values));
    EXPECT_TRUE(values.empty());
  }
  EXPECT_FALSE(sandbox::Exists(UserFile("P")));  // nothing marked dirty
  {
    Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    Node child;
    ASSERT_TRUE(start->GetChild(std::string("made"), &child));
    ASSERT_TRUE(child->StoreInteger(std::string("n"), 3));
  }
  Node check = fixtures::Open("Settings/P/made", mvcs::MORVSETTINGSTYPE_USER);
  long long n = 0;
  ASSERT_NE(check.Get(), nullptr);
  EXPECT_TRUE(check->FetchInteger(std::string("n"), n));
  EXPECT_EQ(n, 3);
}

TEST_F(SettingsNode, ValueNamesOfFallbackScopeAreTheUnion) {
  sandbox::WriteFile(
      UserFile("P"),
      Plist(Key("Settings", Dict(Key("P", Dict(Key("user", Integer(1)) + Key("both", Integer(1)) +
                                               Key("kid", Dict(""))))))));
  sandbox::WriteFile(
      SharedFile(),
      Plist(Key("Settings", Dict(Key("P", Dict(Key("shared", Integer(2)) + Key("both", Integer(2)) +
                                               Key("sharedKid", Dict(""))))))));
  Node fallback = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED);
  std::set<std::string> names;
  ASSERT_TRUE(fallback->GetValueNames(names));
  EXPECT_EQ(names, std::set<std::string>({"both", "shared", "user"}));
  std::set<std::wstring> wide;
  ASSERT_TRUE(fallback->GetValueNames(wide));
  EXPECT_EQ(wide, std::set<std::wstring>({L"both", L"shared", L"user"}));
  unsigned long count = 0;
  ASSERT_TRUE(fallback->GetValueCount(count));
  EXPECT_EQ(count, 3ul);
  ASSERT_TRUE(fallback->GetChildNames(names));
  EXPECT_EQ(names, std::set<std::string>({"kid", "sharedKid"}));
  ASSERT_TRUE(fallback->GetChildCount(count));
  EXPECT_EQ(count, 2ul);

  Node user = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_TRUE(user->GetValueNames(names));
  EXPECT_EQ(names, std::set<std::string>({"both", "user"}));
  ASSERT_TRUE(user->GetChildNames(names));
  EXPECT_EQ(names, std::set<std::string>({"kid"}));
}

TEST_F(SettingsNode, StoringAValueUnderAChildNameReplacesTheChildKey) {
  WriteProductFile();
  Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_TRUE(start->StoreInteger(std::string("a"), 9));
  std::set<std::string> names;
  ASSERT_TRUE(start->GetChildNames(names));
  EXPECT_TRUE(names.empty());
  ASSERT_TRUE(start->GetValueNames(names));
  EXPECT_EQ(names, std::set<std::string>({"a", "value"}));
}

TEST_F(SettingsNode, DeleteOfMissingNameSucceeds) {
  WriteProductFile();
  Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  EXPECT_TRUE(start->Delete(std::string("never-there")));
  EXPECT_FALSE(start->Delete(std::string()));
}

TEST_F(SettingsNode, DeleteNameRemovesValueOrChildKeyAndSavesOnClose) {
  WriteProductFile();
  {
    Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
    EXPECT_TRUE(start->Delete(std::string("value")));
    EXPECT_TRUE(start->Delete(std::wstring(L"a")));
  }
  Node start = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  unsigned long values = 9, children = 9;
  ASSERT_TRUE(start->GetValueCount(values));
  ASSERT_TRUE(start->GetChildCount(children));
  EXPECT_EQ(values, 0ul);
  EXPECT_EQ(children, 0ul);
}

TEST_F(SettingsNode, DeleteOnRootNodeRemovesFirstLevelKeyAndSaves) {
  // A one-component path has no product id: its file is com.morv.plist.
  sandbox::WriteFile(UserFile(""),
                     Plist(Key("Settings", Dict(Key("P", Dict(Key("v", Integer(1)))))) +
                           Key("Keep", Dict(Key("k", Integer(2))))));
  Node root = fixtures::Open("Settings", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(root.Get(), nullptr);
  EXPECT_TRUE(root->Delete());
  // Saved at once, while the node is still held, in the binary format.
  EXPECT_EQ(sandbox::ReadFile(UserFile("")).compare(0, 8, "bplist00"), 0);
  EXPECT_EQ(fixtures::Open("Settings", mvcs::MORVSETTINGSTYPE_USER).Get(), nullptr);
  Node keep = fixtures::Open("Keep", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(keep.Get(), nullptr);
  std::set<std::string> names;
  ASSERT_TRUE(keep->GetValueNames(names));
  EXPECT_EQ(names, std::set<std::string>({"k"}));
  // The node is closed; a further Delete() finds no key.
  EXPECT_FALSE(root->Delete());
}

TEST_F(SettingsNode, DeleteOfNodeKeepsItsSiblings) {
  WriteProductFile();
  Node a = fixtures::Open("Settings/P/a", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_TRUE(a->Delete());
  Node p = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  std::set<std::string> names;
  ASSERT_TRUE(p->GetValueNames(names));
  EXPECT_EQ(names, std::set<std::string>({"value"}));
  ASSERT_TRUE(p->GetChildNames(names));
  EXPECT_TRUE(names.empty());
}

TEST_F(SettingsNode, DeleteOfKeyOnlyInSharedFileFailsAndLeavesPerUserFileAlone) {
  // The per-user file is XML and has no key for the node; the shared file
  // has it. Delete() finds no key of its own to remove: it fails, marks
  // nothing dirty, and the per-user file is not rewritten.
  const std::string perUser = Plist(Key("Other", String("kept")));
  sandbox::WriteFile(UserFile("P"), perUser);
  sandbox::WriteFile(SharedFile(),
                     Plist(Key("Settings", Dict(Key("P", Dict(Key("v", Integer(4))))))));
  for (mvcs::MORVSETTINGSTYPE scope :
       {mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED, mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED_ALT}) {
    Node node = fixtures::Open("Settings/P", scope);
    ASSERT_NE(node.Get(), nullptr);
    ASSERT_EQ(Impl(node)->GetUserKey(), nullptr);
    EXPECT_FALSE(node->Delete());
    EXPECT_TRUE(Impl(node)->GetChildren().empty());
    EXPECT_EQ(Impl(node)->GetUserFile(), nullptr);  // closed
    node = Node();
    EXPECT_EQ(sandbox::ReadFile(UserFile("P")), perUser);
    EXPECT_EQ(sandbox::ReadFile(SharedFile()).compare(0, 5, "<?xml"), 0);
  }
}

TEST_F(SettingsNode, StoreOnNodeOpenOnlyThroughSharedKeyRewritesNoFile) {
  // Scope 2 opened through the shared key alone: a store has no dictionary
  // to go to; it reports true, keeps nothing, and leaves both files as they are.
  const std::string perUser = Plist(Key("Other", String("kept")));
  const std::string shared = Plist(Key("Settings", Dict(Key("P", Dict(Key("v", Integer(4)))))));
  sandbox::WriteFile(UserFile("P"), perUser);
  sandbox::WriteFile(SharedFile(), shared);
  {
    Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED);
    ASSERT_NE(node.Get(), nullptr);
    EXPECT_TRUE(node->StoreInteger(std::string("lost"), 1));
    EXPECT_FALSE(Impl(node)->GetUserFile()->IsDirty());
    EXPECT_FALSE(Impl(node)->GetSharedFile()->IsDirty());
    long long lost = 0;
    EXPECT_FALSE(node->FetchInteger(std::string("lost"), lost));
  }
  EXPECT_EQ(sandbox::ReadFile(UserFile("P")), perUser);
  EXPECT_EQ(sandbox::ReadFile(SharedFile()), shared);
}

TEST_F(SettingsNode, DeleteOfScopeWithoutFileFails) {
  Node none = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_NONE);
  ASSERT_NE(none.Get(), nullptr);
  EXPECT_FALSE(none->Delete());
  EXPECT_FALSE(none->Delete(std::string("x")));
}

TEST_F(SettingsNode, CloseDropsTheFilesAndAllowsReopening) {
  sandbox::WriteFile(SharedFile(),
                     Plist(Key("Settings", Dict(Key("P", Dict(Key("v", Integer(4))))))));
  Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_SHARED);
  MorvSettings* impl = Impl(node);
  ASSERT_NE(impl->GetSharedKey(), nullptr);
  EXPECT_TRUE(impl->Close());
  EXPECT_EQ(impl->GetSharedKey(), nullptr);
  EXPECT_EQ(impl->GetSharedFile(), nullptr);
  long long v = 0;
  EXPECT_TRUE(node->FetchInteger(std::string("v"), v));  // reopens lazily
  EXPECT_EQ(v, 4);
}

TEST_F(SettingsNode, DirtyMarkingGoesToTheFileOwningTheKey) {
  sandbox::WriteFile(UserFile("P"), Plist(Key("Settings", Dict(Key("P", Dict(""))))));
  sandbox::WriteFile(SharedFile(), Plist(Key("Settings", Dict(Key("P", Dict(""))))));
  Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED);
  MorvSettings* impl = Impl(node);
  impl->SetDirty(impl->GetSharedKey());
  EXPECT_TRUE(impl->GetSharedFile()->IsDirty());
  EXPECT_FALSE(impl->GetUserFile()->IsDirty());
  impl->SetDirty(impl->GetUserKey());
  EXPECT_TRUE(impl->GetUserFile()->IsDirty());
  impl->ClearDirty(impl->GetUserKey());
  EXPECT_FALSE(impl->GetUserFile()->IsDirty());
  impl->ClearDirty(impl->GetSharedKey());
  EXPECT_FALSE(impl->GetSharedFile()->IsDirty());
  // Any other dictionary marks nothing.
  impl->SetDirty(impl->GetUserFile()->GetRoot());
  EXPECT_FALSE(impl->GetUserFile()->IsDirty());
  EXPECT_FALSE(impl->GetSharedFile()->IsDirty());
}

TEST_F(SettingsNode, DirtyMarkingWithoutFilesDoesNothing) {
  Node none = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_NONE);
  Impl(none)->SetDirty(nullptr);  // addresses the (absent) shared file: no effect
  Impl(none)->ClearDirty(nullptr);
  EXPECT_EQ(Impl(none)->GetSharedFile(), nullptr);
}

TEST_F(SettingsNode, OpenIsIdempotent) {
  WriteProductFile();
  Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  mvcs::PListDictionary* key = Impl(node)->GetUserKey();
  EXPECT_TRUE(Impl(node)->Open());
  EXPECT_EQ(Impl(node)->GetUserKey(), key);
}

TEST_F(SettingsNode, KeyPathThroughAValueFails) {
  WriteProductFile();
  EXPECT_EQ(fixtures::Open("Settings/P/value/deeper", mvcs::MORVSETTINGSTYPE_USER_CREATE).Get(),
            nullptr);
}

TEST_F(SettingsNode, NoKeyDeeperThanAFileMayNest) {
  std::string path = "Settings/P";
  while (mvcs::tokenize(path, "/").size() < mvcs::kMaxNesting) path += "/k";
  EXPECT_EQ(fixtures::Open(path, mvcs::MORVSETTINGSTYPE_USER_CREATE).Get(), nullptr);
  path.resize(path.size() - 2);  // one level less fits
  Node deepest = fixtures::Open(path, mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(deepest.Get(), nullptr);
  ASSERT_TRUE(deepest->StoreInteger(std::string("bottom"), 1));
  deepest = static_cast<const IMorvSettings*>(nullptr);
  // What the store wrote, it reads back.
  Node again = fixtures::Open(path, mvcs::MORVSETTINGSTYPE_USER);
  long long bottom = 0;
  ASSERT_NE(again.Get(), nullptr);
  EXPECT_TRUE(again->FetchInteger(std::string("bottom"), bottom));
}

}  // namespace
