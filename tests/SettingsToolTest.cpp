// morv-settings as its users run it: the built program in a settings
// sandbox (temporary XDG folders), its output, messages and exit status for
// every command and every kind of bad input, and its files read back by the
// library and by python3's plistlib.

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "MorvSettings/MorvSettingsSimple.h"
#include "Plistlib.h"
#include "ProcessRunner.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"
#include "SettingsToolFixture.h"

namespace {

using tool::SettingsTool;

using fixtures::Dict;
using fixtures::Integer;
using fixtures::Key;
using fixtures::Plist;
using fixtures::String;

// --- Help and usage ----------------------------------------------------------

TEST_F(SettingsTool, VersionPrintsTheProjectVersion) {
  EXPECT_EQ(Ok({"--version"}), std::string("morv-settings ") + MORV_VERSION + "\n");
}

TEST_F(SettingsTool, HelpDescribesEveryCommand) {
  const std::string help = Ok({"--help"});
  for (const char* command :
       {"read", "write", "delete", "list", "export", "import", "where", "watch", "products"}) {
    EXPECT_NE(help.find(std::string("\n  ") + command + " "), std::string::npos) << command;
  }
  EXPECT_NE(help.find("Exit status: 0 on success"), std::string::npos);
  EXPECT_NE(help.find("$XDG_CONFIG_HOME/Preferences/com.morv.PRODUCT.plist"), std::string::npos);
}

TEST_F(SettingsTool, EveryCommandHasItsOwnHelp) {
  for (const char* command :
       {"read", "write", "delete", "list", "export", "import", "where", "watch", "products"}) {
    const std::string help = Ok({command, "--help"});
    EXPECT_NE(help.find(std::string("Usage: morv-settings ") + command), std::string::npos)
        << command;
    EXPECT_NE(help.find("--installer"), std::string::npos) << command;
  }
}

TEST_F(SettingsTool, WriteHelpListsEveryType) {
  const std::string help = Ok({"write", "--help"});
  for (const char* type : {"int", "uint", "int32", "uint32", "int64", "uint64", "float", "double",
                           "bool", "string", "data"}) {
    EXPECT_NE(help.find(std::string("\n  ") + type + " "), std::string::npos) << type;
  }
}

TEST_F(SettingsTool, NoCommandIsAUsageError) {
  const process::Result result = Tool({});
  EXPECT_EQ(result.exitStatus, 2);
  EXPECT_NE(result.errorOutput.find("A subcommand is required"), std::string::npos);
}

TEST_F(SettingsTool, UnknownCommandIsAUsageError) {
  Fails({"remove", "P"}, 2,
        "unknown command \"remove\" (the commands are read, write, delete, list, export, "
        "import, apply, where, watch, products)\nRun morv-settings --help for more information.");
}

TEST_F(SettingsTool, MissingArgumentsAndUnknownOptionsAreUsageErrors) {
  for (const std::vector<std::string>& arguments :
       std::vector<std::vector<std::string>>{{"read"},
                                             {"write", "P", "Name"},
                                             {"write", "P", "Name", "int", "1", "2"},
                                             {"read", "P", "--color"},
                                             {"export", "P", "--format", "json"}}) {
    const process::Result result = Tool(arguments);
    EXPECT_EQ(result.exitStatus, 2) << arguments.back();
    EXPECT_EQ(result.errorOutput.rfind("morv-settings: ", 0), 0u) << result.errorOutput;
    EXPECT_NE(result.errorOutput.find("--help"), std::string::npos);
  }
  EXPECT_FALSE(sandbox::Exists(UserFile("P")));
}

// --- write and read --------------------------------------------------------------

struct TypedCase {
  const char* type;
  const char* text;
  const char* shown;     // read without --type
  const char* kind;      // in the tree
  const char* plistlib;  // plistlib's type and value
};

TEST_F(SettingsTool, EveryTypeIsWrittenAndReadBack) {
  const TypedCase cases[] = {
      {"int", "-42", "-42", "integer", "int\t-42"},
      {"uint", "42", "42", "integer", "int\t42"},
      {"int32", "-2147483648", "-2147483648", "integer", "int\t-2147483648"},
      {"uint32", "4294967295", "4294967295", "integer", "int\t4294967295"},
      {"int64", "9223372036854775807", "9223372036854775807", "integer",
       "int\t9223372036854775807"},
      {"uint64", "18446744073709551615", "-1", "integer", "int\t-1"},
      {"float", "0.1", "0.10000000149011612", "real", "real\t0.10000000149011612"},
      {"double", "-2.5e-3", "-0.0025", "real", "real\t-0.0025"},
      {"bool", "yes", "true", "boolean", "bool\tTrue"},
      {"string",
       "Gr\xC3\xBC\xC3\x9F"
       "e \"x\"",
       "Gr\xC3\xBC\xC3\x9F"
       "e \"x\"",
       "string",
       "str\t'Gr\xC3\xBC\xC3\x9F"
       "e \"x\"'"},
      {"data", "00ff1a", "00ff1a", "data", "bytes\t00ff1a"},
  };
  for (const TypedCase& c : cases) {
    const std::string name = std::string("v_") + c.type;
    Ok({"write", "P", name, c.type, c.text});
    EXPECT_EQ(Ok({"read", "P", name}), std::string(c.shown) + "\n") << c.type;
  }
  const std::string tree = Ok({"read", "P"});
  const std::vector<std::string> dump = plistlib::Dump(UserFile("P"));
  for (const TypedCase& c : cases) {
    const std::string name = std::string("v_") + c.type;
    EXPECT_NE(tree.find(name + " (" + c.kind + ") = "), std::string::npos) << tree;
    EXPECT_NE(std::find(dump.begin(), dump.end(), "/Settings/P/" + name + "\t" + c.plistlib),
              dump.end())
        << c.type;
  }
}

TEST_F(SettingsTool, ValuesWrittenByTheToolAreReadByTheLibrary) {
  Ok({"write", "P", "Port", "int32", "8080"});
  Ok({"write", "P", "Big", "uint64", "18446744073709551615"});
  Ok({"write", "P", "Ratio", "double", "0.1"});
  Ok({"write", "P", "On", "bool", "false"});
  Ok({"write", "P", "Name", "string", "Caf\xC3\xA9"});
  Ok({"write", "P", "Blob", "data", "0001ff"});
  Ok({"write", "--installer", "P", "InstallPath", "string", "/opt/p/bin/p"});
  int port = 0;
  unsigned long long big = 0;
  double ratio = 0;
  bool on = true;
  std::string name, installPath;
  mvtl::MemoryBuffer<unsigned char> blob;
  EXPECT_TRUE(mvcs::FetchInt32(std::string("P"), std::string("Port"), port));
  EXPECT_EQ(port, 8080);
  EXPECT_TRUE(mvcs::FetchUint64(std::string("P"), std::string("Big"), big));
  EXPECT_EQ(big, 18446744073709551615ull);
  EXPECT_TRUE(mvcs::FetchDouble(std::string("P"), std::string("Ratio"), ratio));
  EXPECT_EQ(ratio, 0.1);
  EXPECT_TRUE(mvcs::FetchBoolean(std::string("P"), std::string("On"), on));
  EXPECT_FALSE(on);
  EXPECT_TRUE(mvcs::FetchUTF8String(std::string("P"), std::string("Name"), name));
  EXPECT_EQ(name, "Caf\xC3\xA9");
  ASSERT_TRUE(mvcs::FetchBuffer(std::string("P"), std::string("Blob"), blob));
  ASSERT_EQ(blob.GetCount(), 3u);
  EXPECT_EQ(blob.GetData()[2], 0xFF);
  EXPECT_TRUE(
      mvcs::FetchInstallerUTF8String(std::string("P"), std::string("InstallPath"), installPath));
  EXPECT_EQ(installPath, "/opt/p/bin/p");
}

TEST_F(SettingsTool, ReadOfTheProductShowsTheTreeWithKinds) {
  WriteSample();
  Ok({"write", "P", "Network/Proxy/Host", "string", "proxy \"one\"\n"});
  EXPECT_EQ(Ok({"read", "P"}),
            "Name (string) = \"Caf\xC3\xA9\"\n"
            "Network/\n"
            "  Enabled (boolean) = true\n"
            "  HttpPort (integer) = 8080\n"
            "  Proxy/\n"
            "    Host (string) = \"proxy \\\"one\\\"\\n\"\n");
  EXPECT_EQ(Ok({"read", "P", "Network/Proxy"}), "Host (string) = \"proxy \\\"one\\\"\\n\"\n");
}

TEST_F(SettingsTool, ReadWithTypeUsesThatTypesFetch) {
  Ok({"write", "P", "Text", "string", "42"});
  Ok({"write", "P", "Big", "uint64", "18446744073709551615"});
  Ok({"write", "P", "Small", "float", "0.1"});
  Ok({"write", "P", "Minus", "int", "-1"});
  EXPECT_EQ(Ok({"read", "P", "Text", "--type", "int"}), "42\n");
  EXPECT_EQ(Ok({"read", "P", "Big", "--type", "uint64"}), "18446744073709551615\n");
  EXPECT_EQ(Ok({"read", "P", "Small", "-t", "float"}), "0.1\n");
  EXPECT_EQ(Ok({"read", "P", "Minus", "--type", "uint32"}), "4294967295\n");
  EXPECT_EQ(Ok({"read", "P", "Minus", "--type", "bool"}), "true\n");
  Fails({"read", "P", "Minus", "--type", "string"}, 1,
        "\"Minus\" in the settings of product \"P\" is an integer, which cannot be read as string");
  Fails({"read", "P", "Minus", "--type", "word"}, 2,
        "unknown type \"word\" (the types are int, uint, int32, uint32, int64, uint64, float, "
        "double, bool, string, data)");
  Fails({"read", "P", "--type", "int"}, 2, "--type needs a KEY: a node holds many values");
}

TEST_F(SettingsTool, ReadOfSomethingMissingFailsNamingProductKeyAndFiles) {
  Fails({"read", "P"}, 1, "nothing is stored in the settings of product \"P\" " + Files());
  WriteSample();
  Fails({"read", "P", "Network/Missing"}, 1,
        "there is no \"Network/Missing\" in the settings of product \"P\" " + Files());
  Fails({"read", "P", "Name/Below"}, 1,
        "there is no \"Name/Below\" in the settings of product \"P\" " + Files());
  Fails({"read", "--installer", "P", "InstallPath"}, 1,
        "there is no \"InstallPath\" in the installer record of product \"P\" (" + SharedFile() +
            ")");
}

TEST_F(SettingsTool, ReadFallsBackToMachineWideDefaults) {
  sandbox::WriteFile(SharedFile(),
                     Plist(Key("Settings", Dict(Key("P", Dict(Key("Default", String("shared")) +
                                                              Key("Name", String("shadowed"))))))));
  Ok({"write", "P", "Name", "string", "mine"});
  EXPECT_EQ(Ok({"read", "P", "Default"}), "shared\n");
  EXPECT_EQ(Ok({"read", "P", "Name"}), "mine\n");
  EXPECT_EQ(Ok({"read", "P"}), "Default (string) = \"shared\"\nName (string) = \"mine\"\n");
}

TEST_F(SettingsTool, EntriesNoOperationReadsAreNamedButNotShown) {
  sandbox::WriteFile(
      UserFile("P"),
      Plist(
          Key("Settings", Dict(Key("P", Dict(Key("List", "<array><integer>1</integer></array>") +
                                             Key("When", "<date>2026-11-21T12:00:00Z</date>")))))));
  EXPECT_EQ(Ok({"read", "P"}), "List (array)\nWhen (date)\n");
  Fails({"read", "P", "List"}, 1,
        "\"List\" in the settings of product \"P\" is an array, which the settings interface "
        "cannot read (export shows it)");
  Fails({"read", "P", "When"}, 1,
        "\"When\" in the settings of product \"P\" is a date, which the settings interface "
        "cannot read (export shows it)");
}

TEST_F(SettingsTool, InstallerRecordIsTheSharedFile) {
  Ok({"write", "--installer", "MorvMediaServer", "InstallPath", "string", "/opt/mms/bin/mms"});
  EXPECT_TRUE(sandbox::Exists(SharedFile()));
  EXPECT_FALSE(sandbox::Exists(UserFile("MorvMediaServer")));
  EXPECT_EQ(Ok({"read", "--installer", "MorvMediaServer", "InstallPath"}), "/opt/mms/bin/mms\n");
  const std::vector<std::string> dump = plistlib::Dump(SharedFile());
  EXPECT_NE(std::find(dump.begin(), dump.end(),
                      "/Install/MorvMediaServer/InstallPath\tstr\t'/opt/mms/bin/mms'"),
            dump.end());
  // The product's own settings do not include the installer's record.
  Fails({"read", "MorvMediaServer", "InstallPath"}, 1,
        "there is no \"InstallPath\" in the settings of product \"MorvMediaServer\" " +
            Files("MorvMediaServer"));
}

TEST_F(SettingsTool, WriteReplacesAValueOfAnyType) {
  Ok({"write", "P", "X", "int", "1"});
  Ok({"write", "P", "X", "string", "one"});
  EXPECT_EQ(Ok({"read", "P"}), "X (string) = \"one\"\n");
}

TEST_F(SettingsTool, WriteTakesStringsAndDataFromFiles) {
  const std::string bytes("\x00\x01\xFFz", 4);
  sandbox::WriteFile(m_root + "/blob", bytes);
  sandbox::WriteFile(m_root + "/text", "line one\nline two\n");
  Ok({"write", "P", "Blob", "data", "--file", m_root + "/blob"});
  Ok({"write", "P", "Text", "string", "-f", "text"});  // relative to the working folder
  EXPECT_EQ(Ok({"read", "P", "Blob"}), "0001ff7a\n");
  EXPECT_EQ(Ok({"read", "P", "Text"}), "line one\nline two\n\n");
  process::Options input;
  input.input = "from standard input";
  EXPECT_EQ(Tool({"write", "P", "Piped", "string", "--file", "-"}, input).exitStatus, 0);
  EXPECT_EQ(Ok({"read", "P", "Piped"}), "from standard input\n");
}

// --- Bad input changes nothing --------------------------------------------------

class SettingsToolBadInput : public SettingsTool {
 protected:
  void SetUp() override {
    SettingsTool::SetUp();
    WriteSample();
    m_before = sandbox::ReadFile(UserFile("P"));
  }
  void TearDown() override {
    EXPECT_EQ(sandbox::ReadFile(UserFile("P")), m_before) << "the file changed";
    EXPECT_EQ(sandbox::List(UserFolder()),
              std::set<std::string>({"com.morv.P.plist", "com.morv.P.plist.lock"}));
    SettingsTool::TearDown();
  }
  // A write of `text` as `type` to "N" is refused, saying `reason`.
  void Refused(const std::string& type, const std::string& text, const std::string& reason) {
    Fails({"write", "P", "N", type, "--", text}, 2,
          "cannot write \"N\" in the settings of product \"P\": \"" + text + "\" " + reason +
              " (type " + type + "); nothing was changed");
  }

  std::string m_before;
};

TEST_F(SettingsToolBadInput, UnknownType) {
  Fails({"write", "P", "X", "integer", "1"}, 2,
        "unknown type \"integer\" (the types are int, uint, int32, uint32, int64, uint64, "
        "float, double, bool, string, data)");
}

TEST_F(SettingsToolBadInput, ValueThatDoesNotParseIsNeverASilentZero) {
  Refused("int", "80abc", "is not a whole number");
  Refused("int", "", "is not a whole number");
  Refused("int32", "0x10", "is not a whole number");
  Refused("double", "nan", "is not a decimal number");
  Refused("float", "1,5", "is not a decimal number");
  Refused("bool", "maybe", "is not a boolean (true, false, yes, no, 1 or 0)");
  Refused("data", "abc",
          "is not hexadecimal data (pairs of the digits 0-9 and a-f, such as 00ff1a)");
}

TEST_F(SettingsToolBadInput, OutOfRangeIntegers) {
  Refused("int32", "2147483648", "is out of range (-2147483648 to 2147483647)");
  Refused("uint32", "-1", "is out of range (0 to 4294967295)");
  Refused("uint64", "18446744073709551616", "is out of range (0 to 18446744073709551615)");
  Refused("int", "9223372036854775808",
          "is out of range (-9223372036854775808 to 9223372036854775807)");
  Refused("float", "1e39", "is out of range");
}

TEST_F(SettingsToolBadInput, InvalidUTF8) {
  Fails({"write", "P", "Name", "string", "caf\xE9"}, 2,
        "cannot write \"Name\" in the settings of product \"P\": \"caf\xE9\" is not valid UTF-8 "
        "(type string); nothing was changed");
  Fails({"write", "P", "N\xFF", "int", "1"}, 2, "the key \"N\xFF\" is not valid UTF-8");
  Fails({"write", "P\xC0\x80", "N", "int", "1"}, 2, "the product id is not valid UTF-8");
  sandbox::WriteFile(m_root + "/latin1", "caf\xE9");
  Fails({"write", "P", "Name", "string", "--file", m_root + "/latin1"}, 2,
        "cannot write \"Name\" in the settings of product \"P\": the text in " + m_root +
            "/latin1 is not valid UTF-8; nothing was changed");
  sandbox::WriteFile(m_root + "/zero", std::string("a\0b", 3));
  Fails({"write", "P", "Name", "string", "--file", m_root + "/zero"}, 2,
        "cannot write \"Name\" in the settings of product \"P\": the text in " + m_root +
            "/zero holds a zero character, which the settings interface cannot store in a string; "
            "nothing was changed");
}

TEST_F(SettingsToolBadInput, EmptyNames) {
  Fails({"write", "P", "", "int", "1"}, 2, "the key is empty");
  Fails({"write", "P", "a//b", "int", "1"}, 2, "the key \"a//b\" has an empty name in it");
  Fails({"write", "P", "a/", "int", "1"}, 2, "the key \"a/\" has an empty name in it");
  Fails({"write", "P", "/a", "int", "1"}, 2, "the key \"/a\" has an empty name in it");
  Fails({"write", "", "N", "int", "1"}, 2, "the product id is empty");
  Fails({"read", "P", "a//b"}, 2, "the key \"a//b\" has an empty name in it");
  Fails({"delete", "P", "Network/"}, 2, "the key \"Network/\" has an empty name in it");
}

TEST_F(SettingsToolBadInput, NamesThatWouldBePaths) {
  Fails({"write", "a/b", "N", "int", "1"}, 2,
        "the product id \"a/b\" is not a name (it may not hold / or \\, nor be . or ..)");
  Fails({"write", "..", "N", "int", "1"}, 2,
        "the product id \"..\" is not a name (it may not hold / or \\, nor be . or ..)");
  Fails({"write", "P", "a\\b", "int", "1"}, 2,
        "the key \"a\\b\" holds \\, which the settings store takes as a separator; use /");
}

TEST_F(SettingsToolBadInput, ValueAndFileTogetherOrNeither) {
  Fails({"write", "P", "N", "string", "x", "--file", "f"}, 2, "give the VALUE or --file, not both");
  Fails({"write", "P", "N", "string"}, 2, "no VALUE (give it, or --file FILE for string and data)");
  Fails({"write", "P", "N", "int", "--file", "f"}, 2, "--file is for string and data values");
  Fails({"write", "P", "N", "data", "--file", m_root + "/missing"}, 1,
        "cannot read " + m_root + "/missing: No such file or directory");
}

TEST_F(SettingsToolBadInput, ValueOverAKeyOrKeyThroughAValue) {
  Fails({"write", "P", "Network", "int", "1"}, 1,
        "\"Network\" in the settings of product \"P\" is a key with settings below it; delete "
        "it first to replace it with a value");
  Fails({"write", "P", "Name/Sub", "int", "1"}, 1,
        "cannot make the key \"Name\" in the settings of product \"P\" " + Files() +
            ": a value of that name is in the way");
}

// --- Files that cannot be written or read -----------------------------------------

TEST_F(SettingsToolBadInput, UnwritableFolder) {
  chmod(UserFolder().c_str(), 0555);
  process::Options nobody;
  nobody.dropPrivileges = true;
  Fails({"write", "P", "Network/HttpPort", "int", "81"}, 1,
        "cannot write " + UserFile("P") + ": Permission denied; nothing was changed", nobody);
  Fails({"delete", "P", "Name"}, 1,
        "cannot write " + UserFile("P") + ": Permission denied; nothing was changed", nobody);
  Fails({"delete", "P"}, 1,
        "cannot write " + UserFile("P") + ": Permission denied; nothing was changed", nobody);
  sandbox::WriteFile(m_root + "/import.plist", Plist(Key("New", Integer(1))));
  Fails({"import", "P", m_root + "/import.plist"}, 1,
        "cannot write " + UserFile("P") + ": Permission denied; nothing was changed", nobody);
  chmod(UserFolder().c_str(), 0755);
}

TEST_F(SettingsToolBadInput, FullDisk) {
  process::Options full;
  full.fileSizeLimit = 16;  // every write of the file fails, as on a full disk
  Fails({"write", "P", "Network/HttpPort", "int", "81"}, 1,
        "cannot write " + UserFile("P") + ": File too large; nothing was changed", full);
}

TEST_F(SettingsToolBadInput, UnreadableFile) {
  chmod(UserFile("P").c_str(), 0);
  process::Options nobody;
  nobody.dropPrivileges = true;
  // Run as nobody, who may neither read the file nor change its folder.
  const std::string denied = "the per-user file " + UserFile("P") +
                             " exists but cannot be read (no permission to read it); no write "
                             "can keep it aside (its folder cannot be changed)";
  Fails({"read", "P", "Name"}, 1, denied, nobody);
  Fails({"list", "P"}, 1, denied, nobody);
  Fails({"export", "P"}, 1, denied, nobody);
  Fails({"write", "P", "Name", "string", "y"}, 1, denied + "; nothing was changed", nobody);
  Fails({"delete", "P", "Name"}, 1, denied + "; nothing was changed", nobody);
  chmod(UserFile("P").c_str(), 0644);
  EXPECT_EQ(Ok({"read", "P", "Name"}), "Caf\xC3\xA9\n");
}

TEST_F(SettingsToolBadInput, UnreadableFolder) {
  chmod(UserFolder().c_str(), 0);
  process::Options nobody;
  nobody.dropPrivileges = true;
  const std::string denied = "the per-user file " + UserFile("P") +
                             " cannot be read (no permission to read it); no write can keep it "
                             "aside (its folder cannot be changed)";
  Fails({"read", "P"}, 1, denied, nobody);
  Fails({"write", "P", "Name", "string", "x"}, 1, denied + "; nothing was changed", nobody);
  Fails({"import", "P", "-"}, 1, denied + "; nothing was changed", nobody);
  chmod(UserFolder().c_str(), 0755);
}

// A file that is there but is no settings file: reading commands say which
// and why; writing ones keep it aside and say where.
TEST_F(SettingsTool, FileThatIsNotASettingsFile) {
  struct Case {
    std::string bytes;
    std::string why;
  };
  for (const Case& bad :
       std::vector<Case>{{"garbage, not a property list", "not a property list"},
                         {"<plist version=\"1.0\"><string>x</string></plist>",
                          "a property list without a dictionary at its root"},
                         {"bplist00" + std::string(40, '\xff'), "not a property list"}}) {
    sandbox::WriteFile(UserFile("P"), bad.bytes);
    const std::string problem = "the per-user file " + UserFile("P") +
                                " exists but cannot be read (" + bad.why +
                                "); the next write keeps it aside as " + UserFile("P") +
                                ".unreadable-XXXXXX and starts the file afresh";
    Fails({"read", "P"}, 1, problem);
    Fails({"read", "P", "Name"}, 1, problem);
    Fails({"list", "P"}, 1, problem);
    const std::string where = Ok({"where", "P"});
    EXPECT_NE(where.find(UserFile("P") + " (exists but cannot be read: " + bad.why + ")\n"),
              std::string::npos)
        << where;
    EXPECT_NE(where.find("note: " + problem + "\n"), std::string::npos) << where;

    // The write goes through; the old file is kept aside, and said so.
    const process::Result written = Tool({"write", "P", "Name", "string", "new"});
    EXPECT_EQ(written.exitStatus, 0);
    const std::string prefix = "morv-settings: the per-user file " + UserFile("P") +
                               " could not be read (" + bad.why + "); it was kept aside as ";
    ASSERT_EQ(written.errorOutput.compare(0, prefix.size(), prefix), 0) << written.errorOutput;
    const std::string aside =
        written.errorOutput.substr(prefix.size(), written.errorOutput.size() - prefix.size() - 1);
    EXPECT_EQ(aside.compare(0, UserFile("P").size() + 12, UserFile("P") + ".unreadable-"), 0);
    EXPECT_EQ(sandbox::ReadFile(aside), bad.bytes);
    EXPECT_EQ(Ok({"read", "P", "Name"}), "new\n");
    unlink(aside.c_str());
  }
}

TEST_F(SettingsTool, ImportAndDeleteOverAFileThatIsNotASettingsFile) {
  sandbox::WriteFile(m_root + "/in.plist", Plist(Key("Name", String("imported"))));
  sandbox::WriteFile(UserFile("P"), "garbage");
  const process::Result imported = Tool({"import", "P", m_root + "/in.plist"});
  EXPECT_EQ(imported.exitStatus, 0);
  EXPECT_NE(imported.errorOutput.find("could not be read (not a property list); it was kept "
                                      "aside as " +
                                      UserFile("P") + ".unreadable-"),
            std::string::npos)
      << imported.errorOutput;
  EXPECT_EQ(Ok({"read", "P", "Name"}), "imported\n");

  // A delete finds nothing to delete in a file it cannot read.
  sandbox::WriteFile(UserFile("P"), "garbage");
  Fails({"delete", "P", "Name"}, 1,
        "the per-user file " + UserFile("P") +
            " exists but cannot be read (not a property list); the next write keeps it aside as " +
            UserFile("P") + ".unreadable-XXXXXX and starts the file afresh; nothing was changed");
  EXPECT_EQ(sandbox::ReadFile(UserFile("P")), "garbage");
}

TEST_F(SettingsTool, SharedFileThatIsNotASettingsFile) {
  sandbox::WriteFile(SharedFile(), "garbage");
  const std::string problem =
      "the shared file " + SharedFile() + " exists but cannot be read (not a property list)";
  const process::Result read = Tool({"read", "P"});
  EXPECT_EQ(read.exitStatus, 1);
  EXPECT_EQ(read.errorOutput.compare(0, 15 + problem.size(), "morv-settings: " + problem), 0)
      << read.errorOutput;
  const process::Result installer = Tool({"read", "--installer", "P"});
  EXPECT_EQ(installer.errorOutput.compare(0, 15 + problem.size(), "morv-settings: " + problem), 0)
      << installer.errorOutput;
}

// --- delete -------------------------------------------------------------------------

TEST_F(SettingsTool, DeleteAValueKeepsTheOthers) {
  WriteSample();
  Ok({"delete", "P", "Network/HttpPort"});
  EXPECT_EQ(Ok({"read", "P"}),
            "Name (string) = \"Caf\xC3\xA9\"\nNetwork/\n  Enabled (boolean) = true\n");
  long long port = 0;
  EXPECT_FALSE(mvcs::FetchInteger(std::string("P"), std::string("Network/HttpPort"), port));
}

TEST_F(SettingsTool, DeleteAKeyRemovesEverythingBelowIt) {
  WriteSample();
  Ok({"delete", "P", "Network"});
  EXPECT_EQ(Ok({"read", "P"}), "Name (string) = \"Caf\xC3\xA9\"\n");
}

TEST_F(SettingsTool, DeleteTheProductsNode) {
  WriteSample();
  Ok({"write", "Other", "Kept", "int", "1"});
  Ok({"delete", "P"});
  Fails({"read", "P"}, 1, "nothing is stored in the settings of product \"P\" " + Files());
  EXPECT_EQ(Ok({"read", "Other", "Kept"}), "1\n");
  const std::vector<std::string> dump = plistlib::Dump(UserFile("P"));
  EXPECT_EQ(dump, std::vector<std::string>({"\tdict\t1", "/Settings\tdict\t0"}));
}

TEST_F(SettingsTool, DeleteOfSomethingMissingFails) {
  Fails({"delete", "P"}, 1, "nothing is stored in the settings of product \"P\" " + Files());
  WriteSample();
  Fails({"delete", "P", "Missing"}, 1,
        "there is no \"Missing\" in the settings of product \"P\" " + Files());
  Fails({"delete", "--installer", "P", "InstallPath"}, 1,
        "there is no \"InstallPath\" in the installer record of product \"P\" (" + SharedFile() +
            ")");
}

TEST_F(SettingsTool, DeleteLeavesMachineWideDefaultsAlone) {
  sandbox::WriteFile(
      SharedFile(), Plist(Key("Settings", Dict(Key("P", Dict(Key("Default", String("shared"))))))));
  const std::string shared = sandbox::ReadFile(SharedFile());
  Fails({"delete", "P", "Default"}, 1,
        "not in the per-user file of product \"P\" (" + UserFile("P") +
            "): \"Default\" comes from the machine-wide defaults in " + SharedFile() +
            ", which this command does not change");
  Fails({"delete", "P"}, 1,
        "not in the per-user file of product \"P\" (" + UserFile("P") +
            "): the settings come from the machine-wide defaults in " + SharedFile() +
            ", which this command does not change");
  EXPECT_EQ(sandbox::ReadFile(SharedFile()), shared);
}

// --- list ---------------------------------------------------------------------------

TEST_F(SettingsTool, ListShowsKeysThenValues) {
  WriteSample();
  Ok({"write", "P", "Alpha", "int", "1"});
  EXPECT_EQ(Ok({"list", "P"}), "Network/\nAlpha\nName\n");
  EXPECT_EQ(Ok({"list", "P", "Network"}), "Enabled\nHttpPort\n");
}

TEST_F(SettingsTool, ListOfSomethingMissingOrOfAValueFails) {
  Fails({"list", "P"}, 1, "nothing is stored in the settings of product \"P\" " + Files());
  WriteSample();
  Fails({"list", "P", "Missing"}, 1,
        "there is no \"Missing\" in the settings of product \"P\" " + Files());
  Fails({"list", "P", "Network/HttpPort"}, 1,
        "\"Network/HttpPort\" in the settings of product \"P\" is an integer, not a key; read "
        "shows it");
}

// --- export and import -----------------------------------------------------------------

TEST_F(SettingsTool, ExportWritesAPropertyListThatPlistlibReads) {
  WriteSample();
  Ok({"export", "P", m_root + "/p.xml"});
  EXPECT_EQ(sandbox::ReadFile(m_root + "/p.xml").rfind("<?xml", 0), 0u);
  EXPECT_EQ(
      plistlib::Dump(m_root + "/p.xml"),
      std::vector<std::string>({"\tdict\t2", "/Name\tstr\t'Caf\xC3\xA9'", "/Network\tdict\t2",
                                "/Network/Enabled\tbool\tTrue", "/Network/HttpPort\tint\t8080"}));
  Ok({"export", "P", "--format", "binary", m_root + "/p.bin"});
  EXPECT_EQ(sandbox::ReadFile(m_root + "/p.bin").rfind("bplist00", 0), 0u);
  EXPECT_EQ(plistlib::Dump(m_root + "/p.bin"), plistlib::Dump(m_root + "/p.xml"));
}

// XML 1.0 cannot carry every character a string may hold: the XML export
// fails, naming the entry, and writes nothing; the binary export carries it.
TEST_F(SettingsTool, AnXmlExportNamesTheEntryThatXmlCannotCarry) {
  WriteSample();
  Ok({"write", "P", "Server/Title", "string",
      "a\x01"
      "b"});
  Fails({"export", "P", m_root + "/p.xml"}, 1,
        "cannot export the settings of product \"P\" " + Files() +
            ": the string at \"Server/Title\" holds U+0001, which XML cannot carry");
  EXPECT_FALSE(sandbox::Exists(m_root + "/p.xml"));
  Ok({"export", "P", "--format", "binary", m_root + "/p.bin"});
  const std::vector<std::string> dump = plistlib::Dump(m_root + "/p.bin");
  ASSERT_EQ(dump.size(), 7u);
  EXPECT_EQ(dump[6], "/Server/Title\tstr\t'a\\x01b'");
}

TEST_F(SettingsTool, ExportToStandardOutput) {
  WriteSample();
  Ok({"export", "P", "p.xml"});  // relative to the working folder
  EXPECT_EQ(Ok({"export", "P"}), sandbox::ReadFile(m_root + "/p.xml"));
  EXPECT_EQ(Ok({"export", "P", "--format", "binary", "-"}).rfind("bplist00", 0), 0u);
}

TEST_F(SettingsTool, ExportThenImportIntoAnotherProductReproducesTheNode) {
  // Every kind of entry, from plistlib's fixture: the product "Product".
  sandbox::WriteFile(UserFile("Product"), "");
  ASSERT_EQ(plistlib::WriteFixture("binary", UserFile("Product")), 0);
  Ok({"export", "Product", "--format", "binary", m_root + "/product.plist"});
  Ok({"import", "Copy", m_root + "/product.plist"});
  Ok({"export", "Copy", "--format", "binary", m_root + "/copy.plist"});
  EXPECT_EQ(sandbox::ReadFile(m_root + "/copy.plist"),
            sandbox::ReadFile(m_root + "/product.plist"));
  // The same entries as plistlib wrote them, under the new product's key.
  std::vector<std::string> original, copy;
  for (const std::string& line : plistlib::Dump(UserFile("Product"))) {
    if (line.rfind("/Settings/Product/", 0) == 0) original.push_back(line.substr(17));
  }
  for (const std::string& line : plistlib::Dump(UserFile("Copy"))) {
    if (line.rfind("/Settings/Copy/", 0) == 0) copy.push_back(line.substr(14));
  }
  EXPECT_GT(original.size(), 30u);
  EXPECT_EQ(copy, original);
}

TEST_F(SettingsTool, ImportMergesIntoTheNode) {
  WriteSample();
  sandbox::WriteFile(
      m_root + "/in.plist",
      Plist(Key("Name", String("replaced")) +
            Key("Network", Dict(Key("HttpPort", Integer(81)) + Key("Added", String("new")))) +
            Key("Fresh", Dict(Key("Deep", Integer(1))))));
  Ok({"import", "P", m_root + "/in.plist"});
  EXPECT_EQ(Ok({"read", "P"}),
            "Name (string) = \"replaced\"\n"
            "Fresh/\n"
            "  Deep (integer) = 1\n"
            "Network/\n"
            "  Added (string) = \"new\"\n"
            "  Enabled (boolean) = true\n"
            "  HttpPort (integer) = 81\n");
}

TEST_F(SettingsTool, ImportFromStandardInputCreatesTheProduct) {
  process::Options input;
  input.input = Plist(Key("FromStdin", Integer(7)));
  const process::Result result = Tool({"import", "--installer", "P", "-"}, input);
  EXPECT_EQ(result.exitStatus, 0) << result.errorOutput;
  EXPECT_EQ(Ok({"read", "--installer", "P", "FromStdin"}), "7\n");
}

TEST_F(SettingsToolBadInput, ImportOfWhatIsNotASettingsFile) {
  const std::string tail =
      " is not a property list with a dictionary at its root that the settings store can "
      "read; nothing was changed";
  sandbox::WriteFile(m_root + "/garbage", "not a property list");
  Fails({"import", "P", m_root + "/garbage"}, 1, m_root + "/garbage" + tail);
  sandbox::WriteFile(m_root + "/array", "<plist><array><integer>1</integer></array></plist>");
  Fails({"import", "P", m_root + "/array"}, 1, m_root + "/array" + tail);
  for (const char* hostile : {"cycle_self.plist", "blowup_shared_references.plist",
                              "deep_arrays.plist", "billion_laughs_xml.plist"}) {
    const std::string path = std::string(MORV_TEST_SOURCE_DIR) + "/data/hostile/" + hostile;
    Fails({"import", "P", path}, 1, path + tail);
  }
  Fails({"import", "P", m_root + "/missing"}, 1,
        "cannot read " + m_root + "/missing: No such file or directory");
  Fails({"import", "P", m_root}, 1, "cannot read " + m_root + ": not a regular file");
}

TEST_F(SettingsToolBadInput, ImportNestingTooDeepForTheNode) {
  // The node's dictionary is the file's third level (root, Settings, P),
  // and the list's root stands for it: a list may nest 126 levels, not 127.
  std::string entries = Key("leaf", Integer(1));
  for (int i = 1; i < 127; ++i) entries = Key("k", Dict(entries));
  sandbox::WriteFile(m_root + "/deep", Plist(entries));
  Fails({"import", "P", m_root + "/deep"}, 1,
        m_root +
            "/deep nests too deep to go into the settings of product \"P\" (a settings "
            "file nests at most 128 levels); nothing was changed");
}

TEST_F(SettingsTool, ImportNestingUpToTheLimit) {
  std::string entries = Key("leaf", Integer(1));
  for (int i = 1; i < 126; ++i) entries = Key("k", Dict(entries));
  sandbox::WriteFile(m_root + "/fits", Plist(entries));
  Ok({"import", "P", m_root + "/fits"});
  std::string path = "k";
  for (int i = 2; i < 126; ++i) path += "/k";
  EXPECT_EQ(Ok({"read", "P", path + "/leaf"}), "1\n");
}

TEST_F(SettingsTool, ExportOfSomethingMissingOrToAnUnwritablePlaceFails) {
  Fails({"export", "P"}, 1, "nothing is stored in the settings of product \"P\" " + Files());
  WriteSample();
  Fails({"export", "P", m_root + "/no/such/folder/p.xml"}, 1,
        "cannot write " + m_root + "/no/such/folder/p.xml: No such file or directory");
}

// --- where ------------------------------------------------------------------------------

TEST_F(SettingsTool, WhereShowsTheFilesAndTheKey) {
  EXPECT_EQ(Ok({"where", "P"}), "per-user file: " + UserFile("P") + " (missing)\n" +
                                    "shared file:   " + SharedFile() + " (missing)\n" +
                                    "key:           Settings/P\n");
  WriteSample();
  EXPECT_EQ(Ok({"where", "--installer", "P"}),
            "shared file:   " + SharedFile() + " (missing)\nkey:           Install/P\n");
  EXPECT_EQ(Ok({"where", "P"}).substr(0, 15 + UserFile("P").size() + 9),
            "per-user file: " + UserFile("P") + " (exists)");
}

TEST_F(SettingsTool, WhereWithoutAHomeHasNoPerUserFile) {
  process::Options noHome;
  noHome.unset = {"HOME", "XDG_CONFIG_HOME"};
  const process::Result result = Tool({"where", "P"}, noHome);
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.output,
            "per-user file: none (neither XDG_CONFIG_HOME nor HOME is set)\n"
            "shared file:   " +
                SharedFile() +
                " (missing)\n"
                "key:           Settings/P\n");
}

}  // namespace
