// The store's file handling: bounded reads that never block, the atomic
// write (modes, owner, symbolic links, failures), the folder walk, and
// moving unreadable files aside; what each failure says (step, file, errno).

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>
#include <string>

#include "SettingsFiles.h"
#include "SettingsSandbox.h"

namespace {

class SettingsFiles : public sandbox::SettingsSandbox {};

typedef mvcs::Status::Code Code;
typedef mvcs::Status::Operation Step;

mode_t ModeOf(const std::string& path) {
  struct stat info;
  return stat(path.c_str(), &info) == 0 ? (info.st_mode & 07777) : static_cast<mode_t>(-1);
}

TEST_F(SettingsFiles, ReadDistinguishesMissingFromUnreadable) {
  std::string bytes = "unchanged";
  const mvcs::Status none = mvcs::ReadSettingsFile(m_root + "/none", 100, bytes);
  EXPECT_TRUE(none.IsNotFound());
  EXPECT_EQ(none.error(), ENOENT);
  EXPECT_EQ(none.path(), m_root + "/none");
  EXPECT_EQ(mvcs::ReadResultOf(none), mvcs::kFileMissing);
  sandbox::WriteFile(m_root + "/file", "x");
  const mvcs::Status below = mvcs::ReadSettingsFile(m_root + "/file/below", 100, bytes);
  EXPECT_TRUE(below.IsNotFound());
  EXPECT_EQ(below.error(), ENOTDIR);
  const mvcs::Status folder = mvcs::ReadSettingsFile(m_root, 100, bytes);
  EXPECT_EQ(folder.code(), Code::kNotAFile);
  EXPECT_EQ(folder.operation(), Step::kOpen);
  EXPECT_FALSE(folder.IsRefused());  // no bytes were read
  EXPECT_EQ(folder.ToString(), "cannot read " + m_root + ": not a regular file");
  EXPECT_EQ(mvcs::ReadResultOf(folder), mvcs::kFileUnreadable);
  EXPECT_EQ(bytes, "unchanged");
}

TEST_F(SettingsFiles, ReadThatFailsCarriesTheErrno) {
  // A name longer than the system takes: open fails, as root too.
  const std::string path = m_root + "/" + std::string(300, 'n');
  std::string bytes = "unchanged";
  const mvcs::Status failed = mvcs::ReadSettingsFile(path, 100, bytes);
  EXPECT_EQ(failed.code(), Code::kIOError);
  EXPECT_EQ(failed.operation(), Step::kOpen);
  EXPECT_EQ(failed.error(), ENAMETOOLONG);
  EXPECT_EQ(failed.path(), path);
  EXPECT_EQ(failed.ToString(), "cannot read " + path + ": " + std::strerror(ENAMETOOLONG));
  EXPECT_EQ(mvcs::ReadResultOf(failed), mvcs::kFileUnreadable);
  EXPECT_EQ(bytes, "unchanged");
}

TEST_F(SettingsFiles, ReadGivesTheWholeFileUpToTheLimit) {
  const std::string content(5000, 'z');
  sandbox::WriteFile(m_root + "/file", content);
  std::string bytes;
  const mvcs::Status read = mvcs::ReadSettingsFile(m_root + "/file", 5000, bytes);
  EXPECT_TRUE(read.ok());
  EXPECT_EQ(mvcs::ReadResultOf(read), mvcs::kFileRead);
  EXPECT_EQ(bytes, content);
  bytes = "unchanged";
  // Over the limit: refused unread, as the format refuses larger bytes.
  const mvcs::Status tooLarge = mvcs::ReadSettingsFile(m_root + "/file", 4999, bytes);
  EXPECT_EQ(tooLarge.code(), Code::kTooLarge);
  EXPECT_TRUE(tooLarge.IsRefused());
  EXPECT_EQ(tooLarge.error(), 0);
  EXPECT_EQ(tooLarge.ToString(), "cannot read " + m_root + "/file: larger than 4999 bytes");
  EXPECT_EQ(bytes, "unchanged");
  sandbox::WriteFile(m_root + "/empty", "");
  EXPECT_TRUE(mvcs::ReadSettingsFile(m_root + "/empty", 10, bytes).ok());
  EXPECT_EQ(bytes, "");
}

TEST_F(SettingsFiles, ReadOfAFifoNeitherBlocksNorReads) {
  const std::string fifo = m_root + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0666), 0);
  std::string bytes;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(mvcs::ReadSettingsFile(fifo, 100, bytes).code(), Code::kNotAFile);
  EXPECT_LT(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count(), 2.0);
}

// A file that replaces another by rename (as saves do) and gets the inode
// number of one deleted before it (ext4 gives the lowest free number, so
// the second of two replacements often gets the first file's) has another
// identity all the same, by its generation: here with the size and the
// modification time of the first file, which its replacements forge.
TEST_F(SettingsFiles, AFileThatGetsAnotherFilesInodeNumberHasAnotherIdentity) {
  const std::string file = m_root + "/file";
  sandbox::WriteFile(file, "first");
  struct stat info;
  ASSERT_EQ(stat(file.c_str(), &info), 0);
  const mvcs::FileIdentity first = mvcs::IdentityOf(file);
  EXPECT_TRUE(first.exists);
  EXPECT_EQ(first.inode, static_cast<unsigned long long>(info.st_ino));
  std::string bytes;
  mvcs::FileIdentity read;
  ASSERT_TRUE(mvcs::ReadSettingsFile(file, 100, bytes, &read).ok());
  EXPECT_EQ(read, first);
  bool reused = false;
  for (int i = 0; i < 6 && !reused; ++i) {
    sandbox::WriteFile(file + ".new", "again");
    const struct timespec times[2] = {info.st_atim, info.st_mtim};
    ASSERT_EQ(utimensat(AT_FDCWD, (file + ".new").c_str(), times, 0), 0);
    ASSERT_EQ(rename((file + ".new").c_str(), file.c_str()), 0);
    const mvcs::FileIdentity now = mvcs::IdentityOf(file);
    EXPECT_TRUE(now.exists);
    EXPECT_EQ(now.size, first.size);
    EXPECT_EQ(now.modified, first.modified);
    EXPECT_NE(now, first) << i;
    reused = now.inode == first.inode;
    if (reused) {
      ASSERT_TRUE(first.hasGeneration && now.hasGeneration);
      EXPECT_NE(now.generation, first.generation);
    }
  }
  if (!reused) GTEST_SKIP() << "this file system gave no replacement the first file's inode number";
}

TEST_F(SettingsFiles, NewFileGets0666LessTheUmask) {
  const mode_t old = umask(027);
  EXPECT_TRUE(mvcs::WriteFileAtomically(m_root + "/new", "data").ok());
  umask(old);
  EXPECT_EQ(ModeOf(m_root + "/new"), static_cast<mode_t>(0640));
  EXPECT_EQ(sandbox::ReadFile(m_root + "/new"), "data");
}

TEST_F(SettingsFiles, ReplacedFileKeepsItsMode) {
  const std::string path = m_root + "/kept";
  sandbox::WriteFile(path, "old");
  ASSERT_EQ(chmod(path.c_str(), 0600), 0);
  EXPECT_TRUE(mvcs::WriteFileAtomically(path, "new").ok());
  EXPECT_EQ(ModeOf(path), static_cast<mode_t>(0600));
  EXPECT_EQ(sandbox::ReadFile(path), "new");
  EXPECT_EQ(sandbox::List(m_root), std::set<std::string>({"kept"}));  // no temporary left
}

TEST_F(SettingsFiles, ReplacedFileKeepsItsOwnerWhenPermitted) {
  if (geteuid() != 0) GTEST_SKIP() << "only root can give files to other users";
  const std::string path = m_root + "/owned";
  sandbox::WriteFile(path, "old");
  ASSERT_EQ(chown(path.c_str(), 65534, 65534), 0);
  EXPECT_TRUE(mvcs::WriteFileAtomically(path, "new").ok());
  struct stat info;
  ASSERT_EQ(stat(path.c_str(), &info), 0);
  EXPECT_EQ(info.st_uid, 65534u);
  EXPECT_EQ(info.st_gid, 65534u);
}

TEST_F(SettingsFiles, SymbolicLinkIsFollowedAndKept) {
  const std::string target = m_root + "/real";
  const std::string link = m_root + "/link";
  sandbox::WriteFile(target, "old");
  ASSERT_EQ(symlink(target.c_str(), link.c_str()), 0);
  EXPECT_TRUE(mvcs::WriteFileAtomically(link, "new").ok());
  struct stat info;
  ASSERT_EQ(lstat(link.c_str(), &info), 0);
  EXPECT_TRUE(S_ISLNK(info.st_mode));
  EXPECT_EQ(sandbox::ReadFile(target), "new");
}

TEST_F(SettingsFiles, FailedWriteLeavesNothing) {
  const std::string path = m_root + "/no/such/folder/file";
  const mvcs::Status failed = mvcs::WriteFileAtomically(path, "data");
  EXPECT_EQ(failed.code(), Code::kIOError);
  EXPECT_EQ(failed.operation(), Step::kCreate);  // the temporary file beside it
  EXPECT_EQ(failed.error(), ENOENT);
  EXPECT_EQ(failed.path(), path);
  EXPECT_EQ(failed.ToString(), "cannot write " + path + ": " + std::strerror(ENOENT));
  EXPECT_EQ(sandbox::List(m_root), std::set<std::string>());
}

TEST_F(SettingsFiles, FailedWriteSaysWhichStepFailed) {
  // A folder where the file goes: everything works but the rename.
  const std::string path = m_root + "/folder.plist";
  ASSERT_EQ(mkdir(path.c_str(), 0755), 0);
  const mvcs::Status failed = mvcs::WriteFileAtomically(path, "data");
  EXPECT_EQ(failed.operation(), Step::kRename);
  EXPECT_EQ(failed.error(), EISDIR);
  EXPECT_EQ(failed.ToString(), "cannot write " + path + ": " + std::strerror(EISDIR));
  EXPECT_EQ(sandbox::List(m_root), std::set<std::string>({"folder.plist"}));
  // A file where its folder should be.
  sandbox::WriteFile(m_root + "/plain", "x");
  const mvcs::Status notAFolder = mvcs::WriteFileAtomically(m_root + "/plain/file", "data");
  EXPECT_EQ(notAFolder.operation(), Step::kCreate);
  EXPECT_EQ(notAFolder.error(), ENOTDIR);
}

TEST_F(SettingsFiles, AncestorFoldersAreMadeButNotTheFile) {
  const std::string path = m_root + "/a/b/c.plist";
  mvcs::MakeAncestorDirectories(path);
  struct stat info;
  ASSERT_EQ(stat((m_root + "/a/b").c_str(), &info), 0);
  EXPECT_TRUE(S_ISDIR(info.st_mode));
  EXPECT_FALSE(sandbox::Exists(path));
  mvcs::MakeAncestorDirectories(path);  // existing folders are left alone
  EXPECT_EQ(sandbox::List(m_root + "/a"), std::set<std::string>({"b"}));
}

TEST_F(SettingsFiles, MoveAsideRenamesToAFreshName) {
  const std::string path = m_root + "/bad.plist";
  sandbox::WriteFile(path, "garbage");
  std::string movedTo;
  ASSERT_TRUE(mvcs::MoveFileAside(path, &movedTo).ok());
  ASSERT_TRUE(mvcs::MoveFileAside(path).ok());  // nothing there any more: fine
  const std::set<std::string> names = sandbox::List(m_root);
  ASSERT_EQ(names.size(), 1u);
  EXPECT_EQ(names.begin()->rfind("bad.plist.unreadable-", 0), 0u);
  EXPECT_EQ(movedTo, m_root + "/" + *names.begin());
  EXPECT_EQ(sandbox::ReadFile(m_root + "/" + *names.begin()), "garbage");
  // A second unreadable file gets another name; the first stays.
  sandbox::WriteFile(path, "more garbage");
  ASSERT_TRUE(mvcs::MoveFileAside(path).ok());
  EXPECT_EQ(sandbox::List(m_root).size(), 2u);
}

TEST_F(SettingsFiles, MoveAsideRefusesFolders) {
  mkdir((m_root + "/folder").c_str(), 0755);
  const mvcs::Status refused = mvcs::MoveFileAside(m_root + "/folder");
  EXPECT_EQ(refused.code(), Code::kNotAFile);
  EXPECT_EQ(refused.operation(), Step::kMoveAside);
  EXPECT_EQ(refused.path(), m_root + "/folder");
  EXPECT_EQ(sandbox::List(m_root), std::set<std::string>({"folder"}));
}

}  // namespace

namespace {

TEST_F(SettingsFiles, StaleTemporaryFilesOfTheFileAreRemovedAndNothingElse) {
  const std::string path = m_root + "/com.morv.P.plist";
  for (const char* name :
       {".com.morv.P.plist.morv-save-Ab3xYz", ".com.morv.P.plist.morv-save-000000",
        ".com.morv.P.plist.morv-save-short", ".com.morv.Q.plist.morv-save-Ab3xYz",
        // The user's own files beside it, whatever their names look like.
        ".com.morv.P.plist.backup", ".com.morv.P.plist.Ab3xYz",
        "com.morv.P.plist.unreadable-Ab3xYz", "com.morv.P.plist"}) {
    sandbox::WriteFile(m_root + "/" + name, "x");
  }
  mvcs::RemoveStaleTemporaryFiles(path);
  // Only this file's temporary files (".<name>.morv-save-" and six
  // characters) go.
  EXPECT_EQ(sandbox::List(m_root),
            std::set<std::string>({".com.morv.P.plist.morv-save-short",
                                   ".com.morv.Q.plist.morv-save-Ab3xYz", ".com.morv.P.plist.backup",
                                   ".com.morv.P.plist.Ab3xYz", "com.morv.P.plist.unreadable-Ab3xYz",
                                   "com.morv.P.plist"}));
}

TEST_F(SettingsFiles, ASaveKeepsTheUsersFilesBesideTheSettingsFile) {
  const std::string path = m_root + "/com.morv.P.plist";
  sandbox::WriteFile(m_root + "/.com.morv.P.plist.backup", "mine");
  ASSERT_TRUE(mvcs::WriteFileAtomically(path, "x").ok());
  mvcs::RemoveStaleTemporaryFiles(path);
  EXPECT_EQ(sandbox::List(m_root),
            std::set<std::string>({".com.morv.P.plist.backup", "com.morv.P.plist"}));
}

TEST_F(SettingsFiles, LockIsExclusiveAndWaitsNoLongerThanItsTimeout) {
  const std::string path = m_root + "/com.morv.P.plist";
  {
    mvcs::SettingsFileLock first;
    const mode_t old = umask(027);
    ASSERT_TRUE(first.Acquire(path, 0).ok());
    umask(old);
    EXPECT_EQ(ModeOf(path + ".lock"), static_cast<mode_t>(0640));
    // A second lock on the same file (another open file description, as in
    // another process) waits, then gives up.
    mvcs::SettingsFileLock second;
    const auto start = std::chrono::steady_clock::now();
    const mvcs::Status timedOut = second.Acquire(path, 150);
    const double waited =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_GE(waited, 0.14);
    EXPECT_LT(waited, 1.0);
    EXPECT_EQ(timedOut.code(), Code::kIOError);
    EXPECT_EQ(timedOut.operation(), Step::kLock);
    EXPECT_EQ(timedOut.error(), EWOULDBLOCK);
    EXPECT_EQ(timedOut.path(), path);
    EXPECT_EQ(timedOut.ToString(), "cannot write " + path + ": another program held its lock (" +
                                       path + ".lock) for too long; try again");
  }
  // Released with the first: now it can be had at once.
  mvcs::SettingsFileLock again;
  EXPECT_TRUE(again.Acquire(path, 0).ok());
  EXPECT_FALSE(sandbox::Exists(path));  // locking makes no settings file
}

TEST_F(SettingsFiles, LockFileThatIsALinkIsRefused) {
  const std::string path = m_root + "/com.morv.P.plist";
  symlink((m_root + "/elsewhere").c_str(), (path + ".lock").c_str());
  mvcs::SettingsFileLock lock;
  const mvcs::Status refused = lock.Acquire(path, 0);
  EXPECT_EQ(refused.operation(), Step::kLock);
  EXPECT_EQ(refused.error(), ELOOP);
  EXPECT_EQ(refused.path(), path);
  EXPECT_FALSE(sandbox::Exists(m_root + "/elsewhere"));
}

}  // namespace
