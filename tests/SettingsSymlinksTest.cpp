// Saves of settings files reached through symbolic links: locked, written
// and swept at the file the links lead to (two links to one file share one
// lock), and followed only as the kernel's protected-symlinks rule follows
// them: a link that belongs neither to the saving user nor to the owner of
// its folder is refused, and so is a link into a file that the link's owner
// may not write (root must not write for a user what the user could not).

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <set>
#include <string>

#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "SettingsFiles.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Node;

const uid_t kNobody = 65534;

class SettingsSymlinks : public sandbox::SettingsSandbox {
 protected:
  // Stores `name` = 1 into product P and saves; the save's result.
  mvcs::SaveResult StoreAndSave(const std::string& name) {
    Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    EXPECT_NE(node.Get(), nullptr);
    if (node.Get() == nullptr) return mvcs::SaveResult(EINVAL);
    EXPECT_TRUE(node->StoreInteger(name, 1));
    const mvcs::SaveResult saved = mvcs::SaveSettings(node.Get());
    mvcs::DiscardSettingsChanges(node.Get());  // nothing more at the release
    return saved;
  }

  // The user's config and settings folders, with `mode`, owned by `owner`.
  void MakeUserFolders(mode_t mode, uid_t owner) {
    for (const std::string& folder : {m_userConfig, UserFolder()}) {
      ASSERT_EQ(mkdir(folder.c_str(), mode), 0);
      ASSERT_EQ(chmod(folder.c_str(), mode), 0);
      ASSERT_EQ(chown(folder.c_str(), owner, owner), 0);
    }
  }

  // A file of root's, holding "root's", with `mode`, outside the settings
  // folders.
  std::string RootsFile(mode_t mode) {
    const std::string file = m_root + "/secret";
    sandbox::WriteFile(file, "root's");
    EXPECT_EQ(chmod(file.c_str(), mode), 0);
    return file;
  }

  // Makes `link` a symbolic link to `target`, owned by `owner`.
  static void Link(const std::string& target, const std::string& link, uid_t owner) {
    ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
    ASSERT_EQ(lchown(link.c_str(), owner, owner), 0);
  }
};

TEST_F(SettingsSymlinks, APlainPathResolvesToItself) {
  std::string resolved;
  ASSERT_TRUE(mvcs::ResolveSettingsFile(UserFile("P"), resolved).ok());
  EXPECT_EQ(resolved, UserFile("P"));
}

TEST_F(SettingsSymlinks, TwoLinksToOneFileShareItsLockAndKeepTheLinks) {
  const std::string real = m_root + "/shared/real.plist";
  sandbox::WriteFile(real, fixtures::Plist(""));
  MakeUserFolders(0755, geteuid());
  Link(real, UserFile("P"), geteuid());
  Link(real, UserFile("Q"), geteuid());
  ASSERT_TRUE(StoreAndSave("first").IsOk());
  Node other = fixtures::Open("Settings/Q", mvcs::MORVSETTINGSTYPE_USER_CREATE);
  ASSERT_NE(other.Get(), nullptr);
  ASSERT_TRUE(other->StoreInteger(std::string("second"), 2));
  ASSERT_TRUE(mvcs::SaveSettings(other.Get()).IsOk());
  // One lock, beside the file the links lead to; the links stay links.
  EXPECT_EQ(sandbox::List(m_root + "/shared"),
            std::set<std::string>({"real.plist", "real.plist.lock"}));
  EXPECT_EQ(sandbox::List(UserFolder()),
            std::set<std::string>({"com.morv.P.plist", "com.morv.Q.plist"}));
  struct stat info;
  ASSERT_EQ(lstat(UserFile("P").c_str(), &info), 0);
  EXPECT_TRUE(S_ISLNK(info.st_mode));
  // Both saves are in the one file.
  Node reread = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(reread.Get(), nullptr);
  long long first = 0;
  EXPECT_TRUE(reread->FetchInteger(std::string("first"), first));
}

TEST_F(SettingsSymlinks, ALinkOfAnotherUserInSomeoneElsesFolderIsNotFollowed) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  // A root-only file, and another user's link to it in root's folder.
  const std::string secret = RootsFile(0600);
  MakeUserFolders(0777, 0);
  Link(secret, UserFile("P"), kNobody);
  const mvcs::SaveResult saved = StoreAndSave("x");
  EXPECT_FALSE(saved.IsOk());
  EXPECT_EQ(saved.GetError(), EACCES);
  EXPECT_EQ(saved.GetPath(), UserFile("P"));
  EXPECT_EQ(sandbox::ReadFile(secret), "root's");
  EXPECT_EQ(sandbox::List(m_root + "/home/Preferences"),
            std::set<std::string>({"com.morv.P.plist"}));
}

TEST_F(SettingsSymlinks, AUsersLinkIsNotFollowedIntoAFileTheUserMayNotWrite) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  // The user's own folders and link; the file it leads to is root's.
  const std::string secret = RootsFile(0644);
  MakeUserFolders(0755, kNobody);
  Link(secret, UserFile("P"), kNobody);
  const mvcs::SaveResult refused = StoreAndSave("x");
  EXPECT_FALSE(refused.IsOk());
  EXPECT_EQ(refused.GetError(), EACCES);
  EXPECT_EQ(sandbox::ReadFile(secret), "root's");
  // Into a file the user may write, the same link is followed.
  ASSERT_EQ(chown(secret.c_str(), kNobody, kNobody), 0);
  sandbox::WriteFile(secret, fixtures::Plist(""));
  EXPECT_TRUE(StoreAndSave("y").IsOk());
  EXPECT_NE(sandbox::ReadFile(secret).find("bplist00"), std::string::npos);
}

TEST_F(SettingsSymlinks, ALinkedFolderOfAnotherUserIsNotFollowed) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root";
  // Preferences/ is another user's link, in root's folder, to root's folder.
  const std::string elsewhere = m_root + "/elsewhere";
  ASSERT_EQ(mkdir(elsewhere.c_str(), 0700), 0);
  ASSERT_EQ(mkdir(m_userConfig.c_str(), 0777), 0);
  Link(elsewhere, UserFolder(), kNobody);
  const mvcs::SaveResult saved = StoreAndSave("x");
  EXPECT_FALSE(saved.IsOk());
  EXPECT_EQ(saved.GetError(), EACCES);
  EXPECT_TRUE(sandbox::List(elsewhere).empty());
}

}  // namespace
