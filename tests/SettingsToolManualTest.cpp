// morv-settings(1), the manual page made at build time: man renders it
// without a warning, and it names every command the program has, every
// option, and the files and environment the program uses.

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "ProcessRunner.h"
#include "SettingsToolFixture.h"

namespace {

const std::string kManual = MORV_SETTINGS_MANUAL;

class SettingsToolManual : public tool::SettingsTool {
 protected:
  // The page as man renders it, as plain text 80 columns wide.
  std::string Rendered() {
    process::Options options;
    options.environment = {{"MANWIDTH", "80"}, {"LC_ALL", "C.UTF-8"}};
    const process::Result result = process::Run(
        {"/usr/bin/man", "--no-hyphenation", "--no-justification", "-l", kManual}, options);
    EXPECT_EQ(result.exitStatus, 0);
    EXPECT_EQ(result.errorOutput, "");
    return result.output;
  }
};

TEST_F(SettingsToolManual, RendersWithItsSections) {
  const std::string page = Rendered();
  EXPECT_EQ(page.compare(0, 13, "morv-settings"), 0) << page.substr(0, 200);
  for (const char* section : {"NAME", "SYNOPSIS", "DESCRIPTION", "COMMANDS", "OPTIONS", "TYPES",
                              "JSON", "FILES", "ENVIRONMENT", "EXIT STATUS", "EXAMPLES"}) {
    EXPECT_NE(page.find(std::string("\n") + section + "\n"), std::string::npos) << section;
  }
  EXPECT_NE(page.find("morv-settings - read and change the settings of Morv's products"),
            std::string::npos);
}

TEST_F(SettingsToolManual, NamesEveryCommandAndOption) {
  const std::string page = Rendered();
  // Every command that --help lists has its synopsis and its entry.
  std::istringstream help(Ok({"--help"}));
  std::vector<std::string> commands;
  bool listing = false;
  for (std::string line; std::getline(help, line);) {
    if (line == "Subcommands:") {
      listing = true;
    } else if (listing && line.compare(0, 2, "  ") == 0) {
      commands.push_back(line.substr(2, line.find(' ', 2) - 2));
    } else if (listing) {
      break;
    }
  }
  ASSERT_EQ(commands.size(), 10u);
  for (const std::string& command : commands) {
    EXPECT_NE(page.find("\n       morv-settings " + command + " "), std::string::npos) << command;
    EXPECT_NE(page.find("\n       " + command + " "), std::string::npos) << command;
  }
  for (const char* option : {"--installer", "-t, --type", "-f, --file", "--format", "--json",
                             "-h, --help", "--version", "--prune", "--check", "--diff"}) {
    // Each option has an entry of its own: a line of its own, then its text.
    EXPECT_NE(page.find(std::string("\n       ") + option), std::string::npos) << option;
  }
  for (const char* type : {"int32", "uint64", "double", "bool", "string", "data"}) {
    EXPECT_NE(page.find(type), std::string::npos) << type;
  }
}

TEST_F(SettingsToolManual, NamesTheFilesAndTheEnvironment) {
  const std::string page = Rendered();
  for (const char* text : {"$XDG_CONFIG_HOME/Preferences/com.morv.PRODUCT.plist",
                           "$XDG_CONFIG_DIRS/Morv/Preferences/com.morv.plist",
                           "MORV_SETTINGS_LOCK_TIMEOUT", ".unreadable-XXXXXX"}) {
    EXPECT_NE(page.find(text), std::string::npos) << text;
  }
}

}  // namespace
