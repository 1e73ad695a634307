// The launcher as a real process: the built MMSLaunch, run in a temporary
// working folder with temporary XDG folders, against recording servers.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "LauncherFixture.h"
#include "MorvSettings/MorvSettingsSimple.h"
#include "SettingsSandbox.h"

namespace {

const char kBundle[] = "MorvMediaServer.app/Contents/MacOS/MorvMediaServer";

class LauncherProcess : public launcher::LauncherSandbox {
 protected:
  // A recording server in the bundle layout of the working folder.
  void MakeBundleServer() { launcher::WriteRecordingServer(m_work + "/" + kBundle, "bundle"); }

  // A recording server elsewhere, recorded as the installer's InstallPath.
  std::string MakeInstalledServer(const std::string& name = "installed/server") {
    const std::string path = m_root + "/" + name;
    launcher::WriteRecordingServer(path, "installed");
    EXPECT_TRUE(mvcs::StoreInstallerUTF8String(std::string("MorvMediaServer"),
                                               std::string("InstallPath"), path));
    return path;
  }

  launcher::Result Launch(
      const std::vector<std::string>& extra = {},
      const std::vector<std::pair<std::string, std::string>>& environment = {}) {
    std::vector<std::string> arguments = {MORV_MMSLAUNCH};
    arguments.insert(arguments.end(), extra.begin(), extra.end());
    std::vector<std::pair<std::string, std::string>> variables = {{"MORV_RECORD", m_record}};
    variables.insert(variables.end(), environment.begin(), environment.end());
    return launcher::RunProgram(arguments, m_work, variables);
  }

  static std::string Line(const std::string& path) {
    return "Lauching Morv Media Server: \"" + path + "\" with arguments: ()\n";
  }
};

TEST_F(LauncherProcess, BundleIsStartedEvenWhenTheSettingNamesAnotherServer) {
  MakeBundleServer();
  MakeInstalledServer();
  const launcher::Result result = Launch();
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.errorOutput, Line(kBundle));
  const launcher::Record record = launcher::WaitForRecord(m_record, 10);
  ASSERT_TRUE(record.found);
  EXPECT_EQ(record.Get("who"), "bundle");
  EXPECT_EQ(record.Get("cwd"), m_work);  // the launcher's working folder
}

TEST_F(LauncherProcess, LauncherArgumentsNeverReachTheServer) {
  MakeBundleServer();
  const launcher::Result result = Launch({"--verbose", "some file", "-x"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.errorOutput, Line(kBundle));
  const launcher::Record record = launcher::WaitForRecord(m_record, 10);
  ASSERT_TRUE(record.found);
  EXPECT_EQ(record.Get("argc"), "0");
  EXPECT_EQ(record.values.count("arg"), 0u);
}

TEST_F(LauncherProcess, PathWithQuotesBackslashesAndAccentsIsPrintedAsItStands) {
  const std::string server = MakeInstalledServer("My \"Srv\"\\x/s\xC3\xA9rveur \xE6\x97\xA5");
  for (const char* locale : {"C", "C.UTF-8"}) {
    const launcher::Result result = Launch({}, {{"LC_ALL", locale}});
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errorOutput, Line(server)) << "locale " << locale;
    launcher::StopServer(launcher::WaitForRecord(m_record, 10));
    unlink(m_record.c_str());
  }
}

TEST_F(LauncherProcess, InstallPathIsPrintedInQuotesAndStarted) {
  const std::string server = MakeInstalledServer();
  const launcher::Result result = Launch({"ignored"});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.errorOutput, Line(server));
  const launcher::Record record = launcher::WaitForRecord(m_record, 10);
  ASSERT_TRUE(record.found);
  EXPECT_EQ(record.Get("who"), "installed");
  EXPECT_EQ(record.Get("argc"), "0");
  EXPECT_EQ(record.Get("cwd"), m_work);
}

TEST_F(LauncherProcess, NeitherProbeFindsAServer) {
  const launcher::Result result = Launch();
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.errorOutput, "");
  EXPECT_FALSE(launcher::WaitForRecord(m_record, 0.5).found);
  EXPECT_FALSE(sandbox::Exists(SharedFile()));  // the lookup created nothing
}

TEST_F(LauncherProcess, SettingNamingAMissingFileStartsNothing) {
  ASSERT_TRUE(mvcs::StoreInstallerUTF8String(
      std::string("MorvMediaServer"), std::string("InstallPath"), m_root + "/no/such/server"));
  const launcher::Result result = Launch();
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.errorOutput, "");
  EXPECT_FALSE(launcher::WaitForRecord(m_record, 0.5).found);
}

TEST_F(LauncherProcess, EmptySettingStartsNothing) {
  ASSERT_TRUE(mvcs::StoreInstallerUTF8String(std::string("MorvMediaServer"),
                                             std::string("InstallPath"), ""));
  const launcher::Result result = Launch();
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.errorOutput, "");
}

TEST_F(LauncherProcess, NonExecutableServerIsAnnouncedButNotStarted) {
  const std::string server = MakeInstalledServer();
  chmod(server.c_str(), 0644);
  const launcher::Result result = Launch();
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.errorOutput, Line(server));
  EXPECT_FALSE(launcher::WaitForRecord(m_record, 1).found);
}

TEST_F(LauncherProcess, LongRunningServerDoesNotDelayTheLauncher) {
  MakeBundleServer();
  const launcher::Result result = Launch({}, {{"MORV_SERVER_SECONDS", "30"}});
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_LT(result.seconds, 5.0);
  const launcher::Record record = launcher::WaitForRecord(m_record, 10);
  ASSERT_TRUE(record.found);
  EXPECT_EQ(kill(static_cast<pid_t>(std::stol(record.Get("pid"))), 0),
            0);  // still running after the launcher
}

TEST_F(LauncherProcess, NonAsciiInstallPathIsFoundAndStarted) {
  const std::string server = MakeInstalledServer(
      "Serv\xC3\xAB"
      "r/M\xC3\xB6rv server");
  const launcher::Result result = Launch();
  EXPECT_EQ(result.exitStatus, 0);
  const launcher::Record record = launcher::WaitForRecord(m_record, 10);
  ASSERT_TRUE(record.found);
  EXPECT_EQ(record.Get("who"), "installed");
  EXPECT_NE(result.errorOutput.find("Lauching Morv Media Server: \""), std::string::npos);
}

}  // namespace
