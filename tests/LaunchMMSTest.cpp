// launchMMS in process: its result in each case, and the one message it
// hands to Qt's debug stream before starting the server.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <QCoreApplication>
#include <QString>
#include <QtGlobal>

#include <string>
#include <vector>

#include "LaunchMMS.h"
#include "LauncherFixture.h"
#include "MorvSettings/MorvSettingsSimple.h"
#include "SettingsSandbox.h"

namespace {

struct Message {
  QtMsgType type;
  std::string text;
};
std::vector<Message> g_messages;

void Capture(QtMsgType type, const QMessageLogContext&, const QString& text) {
  g_messages.push_back({type, text.toStdString()});
}

class LaunchMMS : public launcher::LauncherSandbox {
 protected:
  // launchMMS looks in the current folder: work in m_work.
  void SetUp() override {
    LauncherSandbox::SetUp();
    char previous[4096];
    ASSERT_NE(getcwd(previous, sizeof(previous)), nullptr);
    m_previous = previous;
    ASSERT_EQ(chdir(m_work.c_str()), 0);
    g_messages.clear();
    qInstallMessageHandler(Capture);
  }
  void TearDown() override {
    qInstallMessageHandler(nullptr);
    if (chdir(m_previous.c_str()) != 0) ADD_FAILURE() << "could not return to " << m_previous;
    LauncherSandbox::TearDown();
  }
  std::string Installed(bool executable) {
    const std::string path = m_root + "/bin/server";
    launcher::WriteRecordingServer(path, "installed");
    if (!executable) chmod(path.c_str(), 0644);
    EXPECT_TRUE(mvcs::StoreInstallerWideString(std::wstring(L"MorvMediaServer"),
                                               std::wstring(L"InstallPath"),
                                               std::wstring(path.begin(), path.end())));
    return path;
  }
  std::string m_previous;
};

TEST_F(LaunchMMS, NothingFoundReturnsZeroSilently) {
  EXPECT_EQ(launchMMS(), 0);
  EXPECT_TRUE(g_messages.empty());
}

TEST_F(LaunchMMS, BundleStartedReturnsTwoAfterOneDebugMessage) {
  launcher::WriteRecordingServer(m_work + "/MorvMediaServer.app/Contents/MacOS/MorvMediaServer",
                                 "bundle");
  EXPECT_EQ(launchMMS(), 2);
  ASSERT_EQ(g_messages.size(), 1u);
  EXPECT_EQ(g_messages[0].type, QtDebugMsg);
  EXPECT_EQ(g_messages[0].text,
            "Lauching Morv Media Server: \"MorvMediaServer.app/Contents/MacOS/MorvMediaServer\" "
            "with arguments: ()");
  EXPECT_EQ(launcher::WaitForRecord(m_record, 10).Get("who"), "bundle");
}

TEST_F(LaunchMMS, InstalledServerStartedReturnsTwo) {
  const std::string path = Installed(true);
  EXPECT_EQ(launchMMS(), 2);
  ASSERT_EQ(g_messages.size(), 1u);
  EXPECT_EQ(g_messages[0].text, "Lauching Morv Media Server: \"" + path + "\" with arguments: ()");
  EXPECT_EQ(launcher::WaitForRecord(m_record, 10).Get("who"), "installed");
}

TEST_F(LaunchMMS, PathIsPrintedAsItStandsBetweenQuotes) {
  // Quotes, backslashes and non-ASCII letters are not escaped.
  const std::string folder = m_root + "/My \"Srv\"\\x \xC3\xA9t\xC3\xA9";
  const std::string path = folder + "/s\xC3\xA9rveur";
  launcher::WriteRecordingServer(path, "quoted");
  ASSERT_TRUE(mvcs::StoreInstallerUTF8String(std::string("MorvMediaServer"),
                                             std::string("InstallPath"), path));
  EXPECT_EQ(launchMMS(), 2);
  ASSERT_EQ(g_messages.size(), 1u);
  EXPECT_EQ(g_messages[0].text, "Lauching Morv Media Server: \"" + path + "\" with arguments: ()");
  EXPECT_EQ(launcher::WaitForRecord(m_record, 10).Get("who"), "quoted");
}

TEST_F(LaunchMMS, FailedStartReturnsOneAfterTheMessage) {
  const std::string path = Installed(false);
  EXPECT_EQ(launchMMS(), 1);
  ASSERT_EQ(g_messages.size(), 1u);
  EXPECT_EQ(g_messages[0].text, "Lauching Morv Media Server: \"" + path + "\" with arguments: ()");
}

TEST_F(LaunchMMS, MissingInstalledFileReturnsZeroSilently) {
  ASSERT_TRUE(mvcs::StoreInstallerUTF8String(std::string("MorvMediaServer"),
                                             std::string("InstallPath"), m_root + "/gone"));
  EXPECT_EQ(launchMMS(), 0);
  EXPECT_TRUE(g_messages.empty());
}

}  // namespace

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  QCoreApplication application(argc, argv);
  return RUN_ALL_TESTS();
}
