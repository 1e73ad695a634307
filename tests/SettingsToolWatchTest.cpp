// morv-settings watch and products as their users run them: the built
// program following a product's settings while other runs of the tool
// change them (its lines as text and as JSON read back by python3's json),
// stopping with exit status 0 on SIGINT and SIGTERM; and the products that
// have settings.

#include <dirent.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "ProcessRunner.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"
#include "SettingsToolFixture.h"

namespace {

const std::string kCanonical = MORV_TEST_SOURCE_DIR "/json_canonical.py";

// Whether process `pid` has a signal descriptor open: watch opens it once
// its watcher is set up, so from then on every change is reported.
bool IsWatching(pid_t pid) {
  const std::string folder = "/proc/" + std::to_string(pid) + "/fdinfo";
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) return false;
  bool found = false;
  while (const dirent* entry = readdir(dir)) {
    std::ifstream info(folder + "/" + entry->d_name);
    for (std::string line; !found && std::getline(info, line);) {
      found = line.compare(0, 8, "sigmask:") == 0;
    }
  }
  closedir(dir);
  return found;
}

class SettingsToolWatch : public tool::SettingsTool {
 protected:
  // Starts `watch` with `arguments` and waits until it watches.
  process::Child StartWatch(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {"watch"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    process::Child child = StartTool(command);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!IsWatching(child.pid) && std::chrono::steady_clock::now() < end) {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    EXPECT_TRUE(IsWatching(child.pid)) << "watch did not start";
    return child;
  }

  // Runs the tool with `change`, then waits (up to 10 s) until the watch
  // has printed `lines` more lines, and returns them.
  std::string Expect(process::Child& watch, const std::vector<std::string>& change,
                     std::size_t lines = 1) {
    const std::size_t before = process::OutputSoFar(watch).size();
    Ok(change);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (;;) {
      const std::string added = process::OutputSoFar(watch).substr(before);
      if (static_cast<std::size_t>(std::count(added.begin(), added.end(), '\n')) >= lines ||
          std::chrono::steady_clock::now() > end) {
        return added;
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  }

  // Stops the watch with `signal` and expects it to exit with status 0 and
  // no message.
  process::Result Stop(process::Child& watch, int signal) {
    kill(watch.pid, signal);
    const process::Result result = process::Finish(watch);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errorOutput, "");
    return result;
  }

  // Each line of `text` read by python3's json, in canonical form.
  static std::string CanonicalLines(const std::string& text) {
    process::Options options;
    options.input = text;
    const process::Result result =
        process::Run({"/usr/bin/env", "python3", kCanonical, "--lines"}, options);
    EXPECT_EQ(result.exitStatus, 0) << result.errorOutput << "in:\n" << text;
    return result.output;
  }
};

TEST_F(SettingsToolWatch, PrintsEachChangeAsItHappens) {
  Ok({"write", "P", "Network/HttpPort", "int", "8080"});
  process::Child watch = StartWatch({"P"});
  EXPECT_EQ(Expect(watch, {"write", "P", "Network/HttpPort", "int", "9090"}),
            "changed Network/HttpPort: (integer) 8080 -> (integer) 9090\n");
  EXPECT_EQ(Expect(watch, {"write", "P", "Name", "string", "Caf\xC3\xA9 \"q\""}),
            "added Name (string) \"Caf\xC3\xA9 \\\"q\\\"\"\n");
  EXPECT_EQ(Expect(watch, {"write", "P", "Name", "double", "0.1"}),
            "changed Name: (string) \"Caf\xC3\xA9 \\\"q\\\"\" -> (real) 0.1\n");
  EXPECT_EQ(Expect(watch, {"write", "P", "Blob", "data", "00ff"}), "added Blob (data) <00ff>\n");
  EXPECT_EQ(Expect(watch, {"delete", "P", "Name"}), "removed Name (real) 0.1\n");
  EXPECT_EQ(Expect(watch, {"write", "P", "Media/Folders/Music", "bool", "true"}),
            "added Media/Folders/Music (boolean) true\n");
  EXPECT_EQ(Expect(watch, {"delete", "P", "Media"}),
            "removed Media/Folders/Music (boolean) true\n");
  EXPECT_EQ(Expect(watch, {"delete", "P"}, 2),
            "removed Blob (data) <00ff>\nremoved Network/HttpPort (integer) 9090\n");
  const process::Result result = Stop(watch, SIGINT);
  EXPECT_EQ(result.output.substr(result.output.size() - 40),
            "removed Network/HttpPort (integer) 9090\n");
}

TEST_F(SettingsToolWatch, JsonLinesReadBackByPython) {
  Ok({"write", "P", "Ratio", "double", "0.1"});
  process::Child watch = StartWatch({"--json", "P"});
  std::string lines;
  lines += Expect(watch, {"write", "P", "Ratio", "double", "0.25"});
  lines += Expect(watch, {"write", "P", "Big", "uint64", "18446744073709551615"});
  lines += Expect(watch, {"write", "P", "Key/Blob", "data", "00ff"});
  lines += Expect(watch, {"delete", "P", "Key"});
  Stop(watch, SIGTERM);
  EXPECT_EQ(CanonicalLines(lines),
            "{\"change\":\"changed\",\"new\":0.25,\"old\":0.1,\"path\":\"Ratio\"}\n"
            "{\"change\":\"added\",\"new\":-1,\"path\":\"Big\"}\n"
            "{\"change\":\"added\",\"new\":{\"Blob\":{\"$data\":\"AP8=\"}},\"path\":\"Key\"}\n"
            "{\"change\":\"removed\",\"old\":{\"Blob\":{\"$data\":\"AP8=\"}},\"path\":\"Key\"}\n");
}

TEST_F(SettingsToolWatch, AKeyIsWatchedWithWhatIsBelowItOnly) {
  Ok({"write", "P", "Network/HttpPort", "int", "8080"});
  process::Child watch = StartWatch({"P", "Network"});
  Ok({"write", "P", "Elsewhere", "int", "1"});
  EXPECT_EQ(Expect(watch, {"write", "P", "Network/HttpPort", "int", "9090"}),
            "changed HttpPort: (integer) 8080 -> (integer) 9090\n");
  EXPECT_EQ(Expect(watch, {"write", "P", "Network/Proxy/Host", "string", "h"}),
            "added Proxy/Host (string) \"h\"\n");
  const process::Result result = Stop(watch, SIGTERM);
  EXPECT_EQ(result.output,
            "changed HttpPort: (integer) 8080 -> (integer) 9090\nadded Proxy/Host (string) "
            "\"h\"\n");
}

TEST_F(SettingsToolWatch, InstallerRecord) {
  process::Child watch = StartWatch({"--installer", "P"});
  EXPECT_EQ(Expect(watch, {"write", "--installer", "P", "InstallPath", "string", "/opt/p"}),
            "added InstallPath (string) \"/opt/p\"\n");
  // The product's own settings are not the installer's record.
  Ok({"write", "P", "InstallPath", "string", "/elsewhere"});
  EXPECT_EQ(Expect(watch, {"delete", "--installer", "P", "InstallPath"}),
            "removed InstallPath (string) \"/opt/p\"\n");
  Stop(watch, SIGINT);
}

TEST_F(SettingsToolWatch, StartsBeforeAnyFileOrFolderExists) {
  ASSERT_FALSE(sandbox::Exists(m_userConfig));
  process::Child watch = StartWatch({"P"});
  EXPECT_EQ(Expect(watch, {"write", "P", "First", "int", "1"}), "added First (integer) 1\n");
  // Defaults in the shared file show too, as the product reads them.
  sandbox::WriteFile(
      SharedFile(),
      fixtures::Plist(fixtures::Key(
          "Settings", fixtures::Dict(fixtures::Key(
                          "P", fixtures::Dict(fixtures::Key("Default", fixtures::Integer(7))))))));
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (process::OutputSoFar(watch).find("Default") == std::string::npos &&
         std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  const process::Result result = Stop(watch, SIGTERM);
  EXPECT_EQ(result.output, "added First (integer) 1\nadded Default (integer) 7\n");
}

TEST_F(SettingsToolWatch, BadProductOrKeyIsAUsageError) {
  Fails({"watch", "a/b"}, 2,
        "the product id \"a/b\" is not a name (it may not hold / or \\, nor be . or ..)");
  Fails({"watch", "P", "a//b"}, 2, "the key \"a//b\" has an empty name in it");
}

TEST_F(SettingsToolWatch, ProductsListsThoseWithSettings) {
  EXPECT_EQ(Ok({"products"}), "");
  Ok({"write", "Zeta", "A", "int", "1"});
  Ok({"write", "Alpha", "A", "int", "1"});
  sandbox::WriteFile(
      SharedFile(),
      fixtures::Plist(
          fixtures::Key("Settings", fixtures::Dict(fixtures::Key("Shared", fixtures::Dict("")))) +
          fixtures::Key("Install",
                        fixtures::Dict(fixtures::Key("Installed", fixtures::Dict(""))))));
  sandbox::WriteFile(UserFolder() + "/unrelated.plist", "x");
  EXPECT_EQ(Ok({"products"}), "Alpha\nShared\nZeta\n");
  EXPECT_EQ(Ok({"products", "--installer"}), "Installed\n");
  EXPECT_EQ(Ok({"products", "--json"}), "[\"Alpha\",\"Shared\",\"Zeta\"]\n");
}

}  // namespace
