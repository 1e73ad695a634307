// morv-settings apply: a product's entries made equal to a JSON file's,
// storing only what differs (a file with nothing to change is not written at
// all), --prune, --check, --diff, the report in text and JSON, the
// installer record, failures that change nothing, and several processes
// applying to one product at once.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <set>
#include <string>
#include <vector>

#include "Plistlib.h"
#include "ProcessRunner.h"
#include "SettingsSandbox.h"
#include "SettingsToolFixture.h"

namespace {

// What identifies one version of a file on disk: a write replaces the file
// (new inode) and sets its modification time.
struct FileVersion {
  ino_t inode = 0;
  long long seconds = 0;
  long long nanoseconds = 0;
  bool operator==(const FileVersion& other) const {
    return inode == other.inode && seconds == other.seconds && nanoseconds == other.nanoseconds;
  }
};

FileVersion VersionOf(const std::string& path) {
  struct stat info {};
  FileVersion version;
  if (stat(path.c_str(), &info) == 0) {
    version = {info.st_ino, static_cast<long long>(info.st_mtim.tv_sec),
               static_cast<long long>(info.st_mtim.tv_nsec)};
  }
  return version;
}

class SettingsToolApply : public tool::SettingsTool {
 protected:
  // Writes `json` to a file in the sandbox and gives its path.
  std::string JsonFile(const std::string& json, const std::string& name = "wanted.json") {
    const std::string path = m_root + "/" + name;
    sandbox::WriteFile(path, json);
    return path;
  }

  // Runs apply with `options` and `json` as FILE; its standard output.
  std::string Apply(const std::vector<std::string>& options, const std::string& json,
                    const std::string& product = "P") {
    std::vector<std::string> arguments = {"apply"};
    arguments.insert(arguments.end(), options.begin(), options.end());
    arguments.push_back(product);
    arguments.push_back(JsonFile(json));
    return Ok(arguments);
  }

  // read --json of the whole product.
  std::string Read(const std::string& product = "P") { return Ok({"read", "--json", product}); }

  // Expects apply with `json` to fail with `message` and to leave the
  // per-user file of P as it was, byte for byte and untouched.
  void FailsWithNothingChanged(const std::string& json, const std::string& message) {
    const std::string before = sandbox::ReadFile(UserFile("P"));
    const FileVersion version = VersionOf(UserFile("P"));
    Fails({"apply", "P", JsonFile(json)}, 1, message);
    EXPECT_EQ(sandbox::ReadFile(UserFile("P")), before);
    EXPECT_EQ(VersionOf(UserFile("P")), version);
  }

  // The sample (see SettingsTool::WriteSample) as JSON.
  static constexpr const char* kSample =
      "{\"Name\":\"Caf\xC3\xA9\",\"Network\":{\"Enabled\":true,\"HttpPort\":8080}}";
};

TEST_F(SettingsToolApply, EqualEntriesAreNotStoredAgainAndTheFileIsNotWritten) {
  WriteSample();
  const std::string before = sandbox::ReadFile(UserFile("P"));
  const FileVersion version = VersionOf(UserFile("P"));
  EXPECT_EQ(Apply({"--json"}, "{\"Network\":{\"HttpPort\":8080}}"),
            "{\"changed\":false,\"changes\":[]}\n");
  EXPECT_EQ(Apply({}, kSample), "");
  EXPECT_EQ(Apply({"--prune", "--diff"}, kSample), "");
  EXPECT_EQ(Apply({}, "{}"), "");
  EXPECT_EQ(sandbox::ReadFile(UserFile("P")), before);
  EXPECT_EQ(VersionOf(UserFile("P")), version);
}

TEST_F(SettingsToolApply, NothingToApplyToAProductWithoutSettingsMakesNoFile) {
  EXPECT_EQ(Apply({"--json", "--prune"}, "{}"), "{\"changed\":false,\"changes\":[]}\n");
  EXPECT_FALSE(sandbox::Exists(UserFile("P")));
  EXPECT_FALSE(sandbox::Exists(SharedFile()));
}

TEST_F(SettingsToolApply, OnlyWhatDiffersChangesAndTheOtherEntriesKeepTheirValues) {
  WriteSample();
  Ok({"write", "P", "Other/Count", "int", "3"});
  EXPECT_EQ(Apply({}, "{\"Network\":{\"HttpPort\":9090,\"Enabled\":true},\"New\":\"x\"}"),
            "changed Network/HttpPort: (integer) -> (integer)\nadded New (string)\n");
  EXPECT_EQ(Read(),
            "{\"Name\":\"Caf\xC3\xA9\",\"Network\":{\"Enabled\":true,\"HttpPort\":9090},"
            "\"New\":\"x\",\"Other\":{\"Count\":3}}\n");
}

TEST_F(SettingsToolApply, TheJsonReportNamesEachChangeWithItsKindsAndValues) {
  WriteSample();
  EXPECT_EQ(Apply({"--json", "--prune"},
                  "{\"Name\":1.5,\"Network\":{\"HttpPort\":8080,\"Proxy\":{\"Host\":\"h\"}},"
                  "\"Blob\":{\"$data\":\"AAE=\"}}"),
            "{\"changed\":true,\"changes\":["
            "{\"change\":\"added\",\"new\":{\"$data\":\"AAE=\"},\"newKind\":\"data\","
            "\"path\":\"Blob\"},"
            "{\"change\":\"changed\",\"new\":1.5,\"newKind\":\"real\",\"old\":\"Caf\xC3\xA9\","
            "\"oldKind\":\"string\",\"path\":\"Name\"},"
            "{\"change\":\"removed\",\"old\":true,\"oldKind\":\"boolean\","
            "\"path\":\"Network/Enabled\"},"
            "{\"change\":\"added\",\"new\":\"h\",\"newKind\":\"string\","
            "\"path\":\"Network/Proxy/Host\"}]}\n");
  EXPECT_EQ(Read(),
            "{\"Blob\":{\"$data\":\"AAE=\"},\"Name\":1.5,"
            "\"Network\":{\"HttpPort\":8080,\"Proxy\":{\"Host\":\"h\"}}}\n");
}

TEST_F(SettingsToolApply, DiffShowsTheOldAndNewValues) {
  WriteSample();
  EXPECT_EQ(Apply({"--diff", "--prune"}, "{\"Name\":\"Tea\",\"Network\":{\"HttpPort\":81}}"),
            "changed Name: (string) \"Caf\xC3\xA9\" -> (string) \"Tea\"\n"
            "removed Network/Enabled (boolean) true\n"
            "changed Network/HttpPort: (integer) 8080 -> (integer) 81\n");
}

TEST_F(SettingsToolApply, PruneRemovesWhatTheFileDoesNotNameAtEveryLevel) {
  WriteSample();
  Ok({"write", "P", "Network/Proxy/Host", "string", "h"});
  Ok({"write", "P", "Old/Gone", "int", "1"});
  EXPECT_EQ(Apply({"--prune"}, "{\"Network\":{\"HttpPort\":8080,\"Proxy\":{}}}"),
            "removed Name (string)\nremoved Network/Enabled (boolean)\n"
            "removed Network/Proxy/Host (string)\nremoved Old/Gone (integer)\n");
  EXPECT_EQ(Read(), "{\"Network\":{\"HttpPort\":8080,\"Proxy\":{}}}\n");
  // Without --prune, the same file keeps what it does not name.
  Ok({"write", "P", "Kept", "bool", "false"});
  EXPECT_EQ(Apply({}, "{\"Network\":{\"Proxy\":{}}}"), "");
  EXPECT_EQ(Read(), "{\"Kept\":false,\"Network\":{\"HttpPort\":8080,\"Proxy\":{}}}\n");
}

TEST_F(SettingsToolApply, KeysAndValuesReplaceEachOther) {
  Ok({"write", "P", "Key/Inner", "int", "1"});
  Ok({"write", "P", "Value", "string", "v"});
  EXPECT_EQ(Apply({"--diff"}, "{\"Key\":7,\"Value\":{\"Inner\":2}}"),
            "changed Key: (key) {\"Inner\":1} -> (integer) 7\n"
            "changed Value: (string) \"v\" -> (key) {\"Inner\":2}\n");
  EXPECT_EQ(Read(), "{\"Key\":7,\"Value\":{\"Inner\":2}}\n");
  // An empty key is made, and shown as one.
  EXPECT_EQ(Apply({"--diff"}, "{\"Empty\":{}}"), "added Empty/ (key)\n");
  EXPECT_EQ(Read(), "{\"Empty\":{},\"Key\":7,\"Value\":{\"Inner\":2}}\n");
}

TEST_F(SettingsToolApply, EveryKindIsComparedExactly) {
  const std::string every =
      "{\"array\":[1,\"two\",{\"three\":3.0}],\"date\":{\"$date\":\"2026-11-21T12:34:56Z\"},"
      "\"huge\":18446744073709551615,\"nan\":{\"$real\":\"nan\"},\"set\":{\"$set\":[1,2]},"
      "\"uid\":{\"$uid\":7},\"zero\":-0.0}";
  EXPECT_EQ(Apply({}, every),
            "added array (array)\nadded date (date)\nadded huge (integer)\n"
            "added nan (real)\nadded set (set)\nadded uid (uid)\n"
            "added zero (real)\n");
  EXPECT_EQ(Read(), every + std::string("\n"));
  const FileVersion version = VersionOf(UserFile("P"));
  EXPECT_EQ(Apply({}, every), "");
  // 0.0 is not -0.0, nor 3 the real 3.0.
  EXPECT_EQ(
      Apply({"--diff"}, "{\"zero\":0.0,\"array\":[1,\"two\",{\"three\":3}]}"),
      "changed array: (array) [1,\"two\",{\"three\":3.0}] -> (array) [1,\"two\",{\"three\":3}]\n"
      "changed zero: (real) -0 -> (real) 0\n");
  EXPECT_FALSE(VersionOf(UserFile("P")) == version);
}

TEST_F(SettingsToolApply, WhatReadJsonPrintsOfEveryKindAppliesWithoutAChange) {
  // plistlib's fixture: every kind of entry, and names holding U+0000.
  sandbox::WriteFile(UserFile("Product"), "");
  ASSERT_EQ(plistlib::WriteFixture("binary-zero", UserFile("Product")), 0);
  const std::string json = Read("Product");
  const std::string before = sandbox::ReadFile(UserFile("Product"));
  const FileVersion version = VersionOf(UserFile("Product"));
  EXPECT_EQ(Apply({"--json", "--prune"}, json, "Product"), "{\"changed\":false,\"changes\":[]}\n");
  // A removal of an entry whose name holds U+0000, which the node's
  // operations cannot name, changes nothing.
  Fails({"apply", "--prune", "Product", JsonFile("{}")}, 1,
        "cannot remove \"key\\x00with zero\" from the settings of product \"Product\": the "
        "settings interface cannot name it (an empty name, or one holding /, \\ or U+0000); "
        "nothing was changed");
  EXPECT_EQ(sandbox::ReadFile(UserFile("Product")), before);
  EXPECT_EQ(VersionOf(UserFile("Product")), version);
}

TEST_F(SettingsToolApply, CheckReportsWhatWouldChangeAndChangesNothing) {
  WriteSample();
  Ok({"write", "P", "Old/Gone", "int", "1"});
  const std::string before = sandbox::ReadFile(UserFile("P"));
  const FileVersion version = VersionOf(UserFile("P"));
  const std::string wanted = "{\"Name\":{\"First\":\"A\"},\"Network\":{\"HttpPort\":1}}";
  const std::string report = Apply({"--check", "--json", "--prune"}, wanted);
  EXPECT_EQ(
      report,
      "{\"changed\":true,\"changes\":["
      "{\"change\":\"changed\",\"new\":{\"First\":\"A\"},\"newKind\":\"key\","
      "\"old\":\"Caf\xC3\xA9\",\"oldKind\":\"string\",\"path\":\"Name\"},"
      "{\"change\":\"removed\",\"old\":true,\"oldKind\":\"boolean\","
      "\"path\":\"Network/Enabled\"},"
      "{\"change\":\"changed\",\"new\":1,\"newKind\":\"integer\",\"old\":8080,"
      "\"oldKind\":\"integer\",\"path\":\"Network/HttpPort\"},"
      "{\"change\":\"removed\",\"old\":{\"Gone\":1},\"oldKind\":\"key\",\"path\":\"Old\"}]}\n");
  EXPECT_EQ(sandbox::ReadFile(UserFile("P")), before);
  EXPECT_EQ(VersionOf(UserFile("P")), version);
  // A check of a product without settings makes no file either.
  EXPECT_EQ(Apply({"--check"}, "{\"A\":1}", "Fresh"), "added A (integer)\n");
  EXPECT_FALSE(sandbox::Exists(UserFile("Fresh")));
  // The same apply without --check reports the same, and does it.
  EXPECT_EQ(Apply({"--json", "--prune"}, wanted), report);
  EXPECT_EQ(Read(), "{\"Name\":{\"First\":\"A\"},\"Network\":{\"HttpPort\":1}}\n");
}

TEST_F(SettingsToolApply, TheInstallerRecordGoesToTheSharedFile) {
  EXPECT_EQ(Apply({"--installer", "--json"}, "{\"InstallPath\":\"/opt/mms\"}"),
            "{\"changed\":true,\"changes\":[{\"change\":\"added\",\"new\":\"/opt/mms\","
            "\"newKind\":\"string\",\"path\":\"InstallPath\"}]}\n");
  EXPECT_EQ(Ok({"read", "--installer", "P", "InstallPath"}), "/opt/mms\n");
  EXPECT_FALSE(sandbox::Exists(UserFile("P")));
  const FileVersion version = VersionOf(SharedFile());
  EXPECT_EQ(Apply({"--installer"}, "{\"InstallPath\":\"/opt/mms\"}"), "");
  EXPECT_EQ(VersionOf(SharedFile()), version);
  // The product's own settings are another node: nothing there to prune.
  EXPECT_EQ(Apply({"--prune"}, "{}"), "");
  EXPECT_EQ(Apply({"--installer", "--prune"}, "{}"), "removed InstallPath (string)\n");
  EXPECT_EQ(Ok({"read", "--installer", "--json", "P"}), "{}\n");
}

TEST_F(SettingsToolApply, ComparesWithTheProductsOwnEntriesNotTheDefaults) {
  WriteDefaults("P", "<key>Port</key><integer>80</integer>");
  EXPECT_EQ(Apply({}, "{\"Port\":80}"), "added Port (integer)\n");
  EXPECT_EQ(Ok({"export", "P"}).find("<key>Port</key>") != std::string::npos, true);
}

TEST_F(SettingsToolApply, ReadsStandardInput) {
  process::Options options;
  options.input = "{\"FromInput\":true}";
  const process::Result result = Tool({"apply", "--json", "P", "-"}, options);
  EXPECT_EQ(result.exitStatus, 0) << result.errorOutput;
  EXPECT_EQ(result.output,
            "{\"changed\":true,\"changes\":[{\"change\":\"added\",\"new\":true,"
            "\"newKind\":\"boolean\",\"path\":\"FromInput\"}]}\n");
  EXPECT_EQ(Read(), "{\"FromInput\":true}\n");
  options.input = "[";
  const process::Result bad = Tool({"apply", "P", "-"}, options);
  EXPECT_EQ(bad.exitStatus, 1);
  EXPECT_EQ(bad.errorOutput, "morv-settings: standard input is not JSON; nothing was changed\n");
}

TEST_F(SettingsToolApply, AFileThatIsNotANodesJsonChangesNothing) {
  WriteSample();
  const std::string file = m_root + "/wanted.json";
  FailsWithNothingChanged("{\"Name\":\"x\",", file + " is not JSON; nothing was changed");
  FailsWithNothingChanged("[1,2]", file +
                                       " is not the JSON of a settings node (as read --json "
                                       "prints it); nothing was changed");
  FailsWithNothingChanged("{\"Name\":\"x\",\"Network\":{\"HttpPort\":null}}",
                          file +
                              " is not the JSON of a settings node (as read --json prints it): "
                              "at /Network/HttpPort: null is no settings value; nothing was "
                              "changed");
  FailsWithNothingChanged("{\"Name\":\"x\",\"Blob\":{\"$data\":5}}",
                          file +
                              " is not the JSON of a settings node (as read --json prints it): "
                              "at /Blob: $data holds no base64 text; nothing was changed");
  FailsWithNothingChanged("{\"Name\":\"x\",\"Network\":{\"a/b\":1}}",
                          file +
                              " names an entry \"a/b\" (below \"Network\"), which no key path "
                              "reaches: a name may not be empty nor hold / or \\; nothing was "
                              "changed");
  FailsWithNothingChanged("{\"Name\":\"x\",\"\":1}",
                          file +
                              " names an entry \"\" (below \"\"), which no key path reaches: a "
                              "name may not be empty nor hold / or \\; nothing was changed");
  EXPECT_EQ(Read(), std::string(kSample) + "\n");
}

TEST_F(SettingsToolApply, AFileThatCannotBeReadChangesNothing) {
  WriteSample();
  const std::string before = sandbox::ReadFile(UserFile("P"));
  Fails({"apply", "P", m_root + "/missing.json"}, 1,
        "cannot read " + m_root + "/missing.json: No such file or directory");
  Fails({"apply", "P", m_root}, 1, "cannot read " + m_root + ": not a regular file");
  EXPECT_EQ(sandbox::ReadFile(UserFile("P")), before);
}

TEST_F(SettingsToolApply, UsageErrors) {
  const process::Result noFile = Tool({"apply", "P"});
  EXPECT_EQ(noFile.exitStatus, 2);
  EXPECT_NE(noFile.errorOutput.find("FILE is required"), std::string::npos) << noFile.errorOutput;
  Fails({"apply", "a/b", JsonFile("{}")}, 2,
        "the product id \"a/b\" is not a name (it may not hold / or \\, nor be . or ..)");
}

TEST_F(SettingsToolApply, SeveralProcessesApplyingToOneProductLoseNothing) {
  const int writers = 8, count = 25;
  std::vector<std::vector<std::string>> programs;
  std::vector<std::string> reports;
  for (int w = 0; w < writers; ++w) {
    // Writer w: Shared/w<w>_<i> = i, and Writer<w> = w.
    std::string json = "{\"Shared\":{";
    std::set<std::string> names;
    for (int i = 0; i < count; ++i) {
      const std::string name = "w" + std::to_string(w) + "_" + std::to_string(i);
      json += std::string(i == 0 ? "" : ",") + "\"" + name + "\":" + std::to_string(i);
      names.insert(name);
    }
    json += "},\"Writer" + std::to_string(w) + "\":" + std::to_string(w) + "}";
    programs.push_back(
        {tool::kTool, "apply", "P", JsonFile(json, "writer" + std::to_string(w) + ".json")});
    // Its own entries are new to it, whatever the others did first.
    std::string report;
    for (const std::string& name : names) report += "added Shared/" + name + " (integer)\n";
    reports.push_back(report + "added Writer" + std::to_string(w) + " (integer)\n");
  }
  const std::vector<process::Result> results = process::RunTogether(programs);
  for (int w = 0; w < writers; ++w) {
    EXPECT_EQ(results[w].exitStatus, 0) << results[w].errorOutput;
    EXPECT_EQ(results[w].output, reports[w]);
  }
  // Every writer's entries arrived, each with its value.
  std::string expected = "{\"Shared\":{";
  std::set<std::string> entries;
  for (int w = 0; w < writers; ++w) {
    for (int i = 0; i < count; ++i) {
      entries.insert("\"w" + std::to_string(w) + "_" + std::to_string(i) +
                     "\":" + std::to_string(i));
    }
  }
  for (const std::string& entry : entries) {
    expected += (expected.back() == '{' ? "" : ",") + entry;
  }
  expected += "}";
  for (int w = 0; w < writers; ++w) {
    expected += ",\"Writer" + std::to_string(w) + "\":" + std::to_string(w);
  }
  EXPECT_EQ(Read(), expected + "}\n");
}

}  // namespace
