// The fixture of the tests that run the built morv-settings: a settings
// sandbox (temporary XDG folders), and the program run in it with its
// output, messages and exit status checked.

#ifndef MORV_TESTS_SETTINGSTOOLFIXTURE_H
#define MORV_TESTS_SETTINGSTOOLFIXTURE_H

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProcessRunner.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace tool {

inline const std::string kTool = MORV_SETTINGS_TOOL;

class SettingsTool : public sandbox::SettingsSandbox {
 protected:
  // Starts the tool with `arguments` in the sandbox, without waiting for
  // it (collect it with process::Finish).
  process::Child StartTool(const std::vector<std::string>& arguments,
                           process::Options options = process::Options()) {
    std::vector<std::string> command = {kTool};
    command.insert(command.end(), arguments.begin(), arguments.end());
    options.directory = m_root;
    return process::Start(command, options);
  }

  // Writes the shared file with `entries` (XML dictionary entries, see
  // SettingsFixtures.h) as the machine-wide defaults of `product`.
  void WriteDefaults(const std::string& product, const std::string& entries) {
    using fixtures::Dict;
    using fixtures::Key;
    sandbox::WriteFile(SharedFile(),
                       fixtures::Plist(Key("Settings", Dict(Key(product, Dict(entries))))));
  }

  // Runs the tool with `arguments`.
  process::Result Tool(const std::vector<std::string>& arguments,
                       process::Options options = process::Options()) {
    process::Child child = StartTool(arguments, options);
    return process::Finish(child);
  }

  // Runs the tool and expects success with no message.
  std::string Ok(const std::vector<std::string>& arguments) {
    const process::Result result = Tool(arguments);
    EXPECT_EQ(result.exitStatus, 0) << result.errorOutput;
    EXPECT_EQ(result.errorOutput, "");
    return result.output;
  }

  // Runs the tool and expects `status` with `message` (without the
  // program's prefix and the newline) and nothing on standard output.
  void Fails(const std::vector<std::string>& arguments, int status, const std::string& message,
             process::Options options = process::Options()) {
    const process::Result result = Tool(arguments, options);
    EXPECT_EQ(result.exitStatus, status);
    EXPECT_EQ(result.errorOutput, "morv-settings: " + message + "\n");
    EXPECT_EQ(result.output, "");
  }

  // The files named in messages about product P.
  std::string Files(const std::string& product = "P") const {
    return "(" + UserFile(product) + ", with machine-wide defaults from " + SharedFile() + ")";
  }

  // A sample product: a string, an integer and a boolean under a key.
  void WriteSample() {
    Ok({"write", "P", "Name", "string", "Caf\xC3\xA9"});
    Ok({"write", "P", "Network/HttpPort", "int", "8080"});
    Ok({"write", "P", "Network/Enabled", "bool", "true"});
  }
};

}  // namespace tool

#endif  // MORV_TESTS_SETTINGSTOOLFIXTURE_H
