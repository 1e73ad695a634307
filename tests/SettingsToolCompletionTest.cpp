// morv-settings' bash completion, loaded into bash as the package installs
// it: registered for the program, and the candidates it offers for the
// commands, options, types, products and keys of a sample setup (products
// and keys come from the built program, run in the settings sandbox).

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "ProcessRunner.h"
#include "SettingsToolFixture.h"

namespace {

const std::string kCompletion = MORV_SETTINGS_COMPLETION;

class SettingsToolCompletion : public tool::SettingsTool {
 protected:
  // Runs `script` in bash after loading the completion script.
  std::string Bash(const std::string& script) {
    const process::Result result =
        process::Run({"/bin/bash", "--norc", "--noprofile", "-c",
                      "source '" + kCompletion + "' || exit 3\n" + script});
    EXPECT_EQ(result.exitStatus, 0) << result.errorOutput;
    EXPECT_EQ(result.errorOutput, "");
    return result.output;
  }

  // The candidates bash is offered when the command line is the program
  // followed by `words`, the last of which is being completed, one per
  // line in the order given.
  std::string Candidates(const std::vector<std::string>& words) {
    std::string line = "COMP_WORDS=('" + tool::kTool + "'";
    for (const std::string& word : words) line += " '" + word + "'";
    line += ")\nCOMP_CWORD=" + std::to_string(words.size()) +
            "\n_morv_settings\nprintf '%s\\n' \"${COMPREPLY[@]}\"\n";
    std::string output = Bash(line);
    return output == "\n" ? std::string() : output;
  }

  // A sample setup: two products, one with keys and values, and an
  // installer record.
  void WriteSample() {
    Ok({"write", "MorvMediaServer", "Network/HttpPort", "int", "8080"});
    Ok({"write", "MorvMediaServer", "Network/Proxy/Host", "string", "h"});
    Ok({"write", "MorvMediaServer", "Name", "string", "x"});
    Ok({"write", "MorvPlayer", "Volume", "int", "3"});
    Ok({"write", "--installer", "MorvInstaller", "InstallPath", "string", "/opt"});
  }
};

TEST_F(SettingsToolCompletion, IsRegisteredForTheProgram) {
  EXPECT_EQ(Bash("complete -p morv-settings"), "complete -F _morv_settings morv-settings\n");
}

TEST_F(SettingsToolCompletion, CommandsAreTheProgramsCommands) {
  // The commands that --help lists, in its order.
  std::istringstream help(Ok({"--help"}));
  std::string commands, line;
  bool listing = false;
  while (std::getline(help, line)) {
    if (line == "Subcommands:") {
      listing = true;
    } else if (listing && line.compare(0, 2, "  ") == 0) {
      commands += line.substr(2, line.find(' ', 2) - 2) + "\n";
    } else if (listing) {
      break;
    }
  }
  EXPECT_EQ(commands, "read\nwrite\ndelete\nlist\nexport\nimport\napply\nwhere\nwatch\nproducts\n");
  EXPECT_EQ(Candidates({""}), commands + "--help\n--version\n");
  EXPECT_EQ(Candidates({"w"}), "write\nwhere\nwatch\n");
  EXPECT_EQ(Candidates({"pro"}), "products\n");
  EXPECT_EQ(Candidates({"ap"}), "apply\n");
}

TEST_F(SettingsToolCompletion, OptionsOfEachCommand) {
  EXPECT_EQ(Candidates({"read", "-"}), "--help\n--installer\n--type\n--json\n");
  EXPECT_EQ(Candidates({"write", "--"}), "--help\n--installer\n--file\n");
  EXPECT_EQ(Candidates({"export", "--f"}), "--format\n");
  EXPECT_EQ(Candidates({"export", "--format", ""}), "xml\nbinary\n");
  EXPECT_EQ(Candidates({"watch", "--j"}), "--json\n");
  EXPECT_EQ(Candidates({"import", "--"}), "--help\n--installer\n--json\n");
  EXPECT_EQ(Candidates({"apply", "--"}), "--help\n--installer\n--prune\n--check\n--diff\n--json\n");
}

TEST_F(SettingsToolCompletion, TypesAreTheProgramsTypes) {
  // The types that write --help lists.
  std::istringstream help(Ok({"write", "--help"}));
  std::string types, line;
  bool listing = false;
  while (std::getline(help, line)) {
    if (line == "Types:") {
      listing = true;
    } else if (listing && line.compare(0, 2, "  ") == 0) {
      types += line.substr(2, line.find(' ', 2) - 2) + "\n";
    } else if (listing) {
      break;
    }
  }
  EXPECT_EQ(types, "int\nuint\nint32\nuint32\nint64\nuint64\nfloat\ndouble\nbool\nstring\ndata\n");
  EXPECT_EQ(Candidates({"write", "P", "Name", ""}), types);
  EXPECT_EQ(Candidates({"read", "--type", ""}), types);
  EXPECT_EQ(Candidates({"read", "-t", "u"}), "uint\nuint32\nuint64\n");
  EXPECT_EQ(Candidates({"write", "P", "Flag", "bool", ""}), "true\nfalse\n");
}

TEST_F(SettingsToolCompletion, ProductsFoundInTheSettingsFolders) {
  EXPECT_EQ(Candidates({"read", ""}), "");
  WriteSample();
  EXPECT_EQ(Candidates({"read", ""}), "MorvMediaServer\nMorvPlayer\n");
  EXPECT_EQ(Candidates({"write", "MorvM"}), "MorvMediaServer\n");
  EXPECT_EQ(Candidates({"read", "--installer", ""}), "MorvInstaller\n");
  EXPECT_EQ(Candidates({"products", ""}), "");
}

TEST_F(SettingsToolCompletion, KeysOfAProductOneLevelAtATime) {
  WriteSample();
  EXPECT_EQ(Candidates({"read", "MorvMediaServer", ""}), "Network/\nName\n");
  EXPECT_EQ(Candidates({"read", "MorvMediaServer", "Net"}), "Network/\n");
  EXPECT_EQ(Candidates({"read", "MorvMediaServer", "Network/"}),
            "Network/Proxy/\nNetwork/HttpPort\n");
  EXPECT_EQ(Candidates({"delete", "MorvMediaServer", "Network/Pr"}), "Network/Proxy/\n");
  EXPECT_EQ(Candidates({"read", "MorvMediaServer", "Network/Proxy/"}), "Network/Proxy/Host\n");
  // list and watch take keys only.
  EXPECT_EQ(Candidates({"list", "MorvMediaServer", ""}), "Network/\n");
  EXPECT_EQ(Candidates({"watch", "MorvMediaServer", "Network/"}), "Network/Proxy/\n");
  EXPECT_EQ(Candidates({"read", "--installer", "MorvInstaller", ""}), "InstallPath\n");
  EXPECT_EQ(Candidates({"read", "MorvMediaServer", "Missing/"}), "");
  EXPECT_EQ(Candidates({"read", "Unknown", ""}), "");
}

}  // namespace
