// The file cache: sharing one in-memory copy per file, counting and the
// cache's removal step, loading, saving, and what happens to files that
// cannot be read.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <string>

#include "PList.h"
#include "SettingsFixtures.h"
#include "SettingsInternals.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Dict;
using fixtures::Impl;
using fixtures::Integer;
using fixtures::Key;
using fixtures::Node;
using fixtures::Plist;
using mvcs::MorvSettings;
using mvcs::PList;
using mvcs::PListDictionary;
using mvcs::PListInteger;

class PListCache : public sandbox::SettingsSandbox {};

TEST_F(PListCache, FreshObjectCountsZeroAndLastReleaseDestroysIt) {
  PList* file = new PList(m_root + "/loose.plist");
  EXPECT_EQ(file->GetRefCount(), 0);
  EXPECT_EQ(file->AddRef(), 1);
  EXPECT_EQ(file->Release(), 0);  // destroyed (the sanitizer build checks no leak)
  EXPECT_TRUE(PList::FileCache().empty());
}

TEST_F(PListCache, NewCachedObjectCountsTwo) {
  mvtl::RefCountedPtr<PList> file;
  PList::GetPList(m_root + "/a.plist", &file);
  ASSERT_NE(file.Get(), nullptr);
  EXPECT_EQ(file->GetRefCount(), 2);  // the cache and the caller
  ASSERT_EQ(PList::FileCache().count(m_root + "/a.plist"), 1u);
  EXPECT_EQ(PList::FileCache()[m_root + "/a.plist"].Get(), file.Get());
}

TEST_F(PListCache, ReleaseFromThreeReturnsTwoAndKeepsTheEntry) {
  const std::string path = m_root + "/a.plist";
  PList* file = nullptr;
  PList::GetPList(path, &file);
  file->AddRef();
  EXPECT_EQ(file->GetRefCount(), 3);
  EXPECT_EQ(file->Release(), 2);
  EXPECT_EQ(PList::FileCache().count(path), 1u);
  EXPECT_EQ(file->Release(), 0);  // at 2: the entry goes, then the object
  EXPECT_EQ(PList::FileCache().count(path), 0u);
}

TEST_F(PListCache, LastOutsideReleaseRemovesTheEntry) {
  const std::string path = m_root + "/a.plist";
  {
    mvtl::RefCountedPtr<PList> first;
    PList::GetPList(path, &first);
    mvtl::RefCountedPtr<PList> second;
    PList::GetPList(path, &second);
    EXPECT_EQ(first.Get(), second.Get());
    EXPECT_EQ(first->GetRefCount(), 3);
  }
  EXPECT_TRUE(PList::FileCache().empty());
}

TEST_F(PListCache, TwoNodesShareOneFileAndSeeStoresBeforeAnySave) {
  Node a = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  Node b = fixtures::Open("Settings/P/Child", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  Node c = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(a.Get(), nullptr);
  ASSERT_NE(c.Get(), nullptr);
  EXPECT_EQ(Impl(a)->GetUserFile(), Impl(c)->GetUserFile());
  EXPECT_EQ(Impl(a)->GetUserFile(), Impl(b)->GetUserFile());
  EXPECT_EQ(Impl(a)->GetUserKey(), Impl(c)->GetUserKey());
  ASSERT_TRUE(a->StoreInteger(std::string("seen"), 12));
  long long value = 0;
  EXPECT_TRUE(c->FetchInteger(std::string("seen"), value));
  EXPECT_EQ(value, 12);
  EXPECT_FALSE(sandbox::Exists(UserFile("P")));  // not saved yet
}

TEST_F(PListCache, UnsavedChangeIsLostWhenEveryHolderReleases) {
  const std::string path = UserFile("P");
  sandbox::WriteFile(path, Plist(Key("kept", Integer(1))));
  {
    mvtl::RefCountedPtr<PList> file;
    PList::GetPList(path, &file);
    ASSERT_TRUE(file->Open(false));
    file->GetRoot()->Set("lost", PListInteger{2, false});
    file->SetDirty(true);
  }
  mvtl::RefCountedPtr<PList> again;
  PList::GetPList(path, &again);
  ASSERT_TRUE(again->Open(false));
  EXPECT_NE(again->GetRoot()->Find("kept"), nullptr);
  EXPECT_EQ(again->GetRoot()->Find("lost"), nullptr);
}

TEST_F(PListCache, FileIsReadOncePerObject) {
  const std::string path = UserFile("P");
  sandbox::WriteFile(path, Plist(Key("version", Integer(1))));
  mvtl::RefCountedPtr<PList> file;
  PList::GetPList(path, &file);
  ASSERT_TRUE(file->Open(false));
  sandbox::WriteFile(path, Plist(Key("version", Integer(2))));
  ASSERT_TRUE(file->Open(false));
  const PListInteger* version = std::get_if<PListInteger>(file->GetRoot()->Find("version"));
  ASSERT_NE(version, nullptr);
  EXPECT_EQ(version->bits, 1);
}

TEST_F(PListCache, SaveOfCleanObjectSucceedsAndWritesNothing) {
  mvtl::RefCountedPtr<PList> file;
  PList::GetPList(UserFile("P"), &file);
  ASSERT_TRUE(file->Open(true));
  EXPECT_FALSE(file->IsDirty());  // an empty dictionary made by Open is not a change
  EXPECT_TRUE(file->Save().ok());
  EXPECT_FALSE(sandbox::Exists(UserFile("P")));
  EXPECT_FALSE(sandbox::Exists(UserFolder()));
}

TEST_F(PListCache, SaveWithoutRootDictionaryFails) {
  mvtl::RefCountedPtr<PList> file;
  PList::GetPList(UserFile("P"), &file);
  EXPECT_FALSE(file->Open(false));
  file->SetDirty(true);
  EXPECT_FALSE(file->Save().ok());
}

TEST_F(PListCache, SaveCreatesMissingFoldersWithMode0777LessUmask) {
  const std::string path = m_root + "/one/two/three/file.plist";
  for (mode_t mask : {static_cast<mode_t>(0), static_cast<mode_t>(022)}) {
    sandbox::RemoveTree(m_root + "/one");
    const mode_t old = umask(mask);
    {
      mvtl::RefCountedPtr<PList> file;
      PList::GetPList(path, &file);
      ASSERT_TRUE(file->Open(true));
      file->GetRoot()->Set("x", PListInteger{1, false});
      file->SetDirty(true);
      EXPECT_TRUE(file->Save().ok());
      EXPECT_FALSE(file->IsDirty());
    }
    umask(old);
    for (const char* folder : {"/one", "/one/two", "/one/two/three"}) {
      struct stat info;
      ASSERT_EQ(stat((m_root + folder).c_str(), &info), 0) << folder;
      EXPECT_TRUE(S_ISDIR(info.st_mode));
      EXPECT_EQ(info.st_mode & 0777, 0777 & ~mask) << folder;
    }
    struct stat info;
    ASSERT_EQ(stat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0666 & ~mask);
  }
}

TEST_F(PListCache, ArrayAtRootIsNotASettingsFile) {
  const std::string path = UserFile("P");
  sandbox::WriteFile(path,
                     "<?xml version=\"1.0\"?><plist version=\"1.0\"><array>"
                     "<integer>1</integer></array></plist>");
  mvtl::RefCountedPtr<PList> file;
  PList::GetPList(path, &file);
  EXPECT_FALSE(file->Open(false));
  EXPECT_EQ(file->GetRoot(), nullptr);
  EXPECT_TRUE(file->Open(true));  // a later create still makes a dictionary
  EXPECT_TRUE(file->GetRoot()->GetEntries().empty());
}

TEST_F(PListCache, UnreadableFileIsMovedAsideNotOverwritten) {
  const std::string path = UserFile("P");
  const std::string garbage = "this is not a property list";
  sandbox::WriteFile(path, garbage);
  {
    Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    ASSERT_NE(node.Get(), nullptr);
    EXPECT_EQ(sandbox::ReadFile(path), garbage);  // opening touches nothing
    ASSERT_TRUE(node->StoreInteger(std::string("fresh"), 1));
  }
  // The new file holds the store's data; the old bytes are kept beside it.
  Node reread = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  long long fresh = 0;
  ASSERT_NE(reread.Get(), nullptr);
  EXPECT_TRUE(reread->FetchInteger(std::string("fresh"), fresh));
  std::string aside;
  for (const std::string& name : sandbox::List(UserFolder())) {
    if (name.rfind("com.morv.P.plist.unreadable-", 0) == 0) aside = name;
  }
  ASSERT_FALSE(aside.empty()) << "the unreadable file was not kept";
  EXPECT_EQ(sandbox::ReadFile(UserFolder() + "/" + aside), garbage);
}

TEST_F(PListCache, FileRepairedWhileHeldIsReplacedWithoutBackup) {
  // A node of scope 2 holds the per-user file object while that file is
  // garbage (it opens through the shared key). Another program then repairs
  // the file; a node that loads it through the same object and saves must
  // replace it normally, not move the repaired file aside.
  const std::string path = UserFile("P");
  sandbox::WriteFile(path, "garbage, for now");
  sandbox::WriteFile(SharedFile(), Plist(Key("Settings", Dict(Key("P", Dict(""))))));
  Node holder = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_WITH_SHARED);
  ASSERT_NE(holder.Get(), nullptr);
  ASSERT_EQ(Impl(holder)->GetUserFile()->GetRoot(), nullptr);
  sandbox::WriteFile(path, Plist(Key("Settings", Dict(Key("P", Dict(Key("old", Integer(1))))))));
  {
    Node writer = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
    ASSERT_NE(writer.Get(), nullptr);
    EXPECT_EQ(Impl(writer)->GetUserFile(), Impl(holder)->GetUserFile());
    ASSERT_TRUE(writer->StoreInteger(std::string("new"), 2));
  }
  holder = Node();
  EXPECT_EQ(sandbox::List(UserFolder()),
            std::set<std::string>({"com.morv.P.plist", "com.morv.P.plist.lock"}));
  Node reread = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  long long old = 0, fresh = 0;
  ASSERT_NE(reread.Get(), nullptr);
  EXPECT_TRUE(reread->FetchInteger(std::string("old"), old));
  EXPECT_TRUE(reread->FetchInteger(std::string("new"), fresh));
  EXPECT_EQ(old, 1);
  EXPECT_EQ(fresh, 2);
}

TEST_F(PListCache, ReadableFileIsReplacedWithoutBackup) {
  sandbox::WriteFile(UserFile("P"), Plist(Key("Settings", Dict(Key("P", Dict(""))))));
  {
    Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
    ASSERT_TRUE(node->StoreInteger(std::string("x"), 1));
  }
  EXPECT_EQ(sandbox::List(UserFolder()),
            std::set<std::string>({"com.morv.P.plist", "com.morv.P.plist.lock"}));
}

}  // namespace
