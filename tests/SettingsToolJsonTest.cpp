// morv-settings' JSON: read, list and where --json read back by python3's
// json module (an independent parser), each kind of entry in its documented
// form with exact values, and read --json then import --json restoring the
// same tree over every kind a settings file holds.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "Plistlib.h"
#include "ProcessRunner.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"
#include "SettingsToolFixture.h"

namespace {

const std::string kCanonical = MORV_TEST_SOURCE_DIR "/json_canonical.py";

class SettingsToolJson : public tool::SettingsTool {
 protected:
  // What python3's json makes of `text`, in a canonical form (sorted keys,
  // no spaces); a test failure when it is not JSON.
  static std::string Canonical(const std::string& text) {
    process::Options options;
    options.input = text;
    const process::Result result = process::Run({"/usr/bin/env", "python3", kCanonical}, options);
    EXPECT_EQ(result.exitStatus, 0) << result.errorOutput << "in:\n" << text;
    return result.output.empty() ? result.output
                                 : result.output.substr(0, result.output.size() - 1);
  }

  // python3's reading of `read --json` with `arguments`.
  std::string ReadJson(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"read", "--json"});
    return Canonical(Ok(arguments));
  }

  // plistlib's reference fixture (every kind of entry, and keys and
  // strings holding U+0000) as product "Product"'s per-user file.
  void WriteFixture() {
    sandbox::WriteFile(UserFile("Product"), "");
    ASSERT_EQ(plistlib::WriteFixture("binary-zero", UserFile("Product")), 0);
  }

  // Imports `json` into `product` with import --json, and gives what
  // read --json then prints for the product.
  std::string ImportThenRead(const std::string& product, const std::string& json) {
    const std::string file = m_root + "/" + product + ".json";
    sandbox::WriteFile(file, json);
    Ok({"import", "--json", product, file});
    return Ok({"read", "--json", product});
  }

  // plistlib's listing of a product's node in its per-user file, with the
  // paths made relative to it.
  std::vector<std::string> Listing(const std::string& product) {
    const std::string prefix = "/Settings/" + product;
    std::vector<std::string> lines;
    for (const std::string& line : plistlib::Dump(UserFile(product))) {
      if (line.compare(0, prefix.size(), prefix) == 0) lines.push_back(line.substr(prefix.size()));
    }
    return lines;
  }
};

TEST_F(SettingsToolJson, EachKindHasItsDocumentedForm) {
  WriteFixture();
  struct Case {
    const char* name;
    const char* json;
  };
  for (const Case& kind : std::vector<Case>{
           {"int", "42"},
           {"negative", "-17"},
           {"int64_max", "9223372036854775807"},
           {"int64_min", "-9223372036854775808"},
           {"above_int64", "9223372036854775808"},
           {"uint64_max", "18446744073709551615"},
           {"real", "3.25"},
           {"third", "0.3333333333333333"},
           {"tiny", "1e-300"},
           {"huge", "1.5e+300"},
           {"negative_zero", "-0.0"},
           {"yes", "true"},
           {"no", "false"},
           {"string", "\"plain text\""},
           {"unicode",
            "\"Gr\xC3\xBC\xC3\x9F"
            "e, \xE4\xB8\x96\xE7\x95\x8C \xF0\x9F\x8C\x8D\""},
           {"empty_string", "\"\""},
           {"empty_data", "{\"$data\":\"\"}"},
           {"array",
            "[1,\"two\",3.5,[4,{\"five\":5}],{\"six\":[6,{\"seven\":{\"$data\":\"Nw==\"}}]}]"},
           {"empty_array", "[]"},
           {"date", "{\"$date\":\"2026-11-21T12:34:56Z\"}"},
           {"empty_dict", "{}"},
           {"uid", "{\"$uid\":7}"},
           {"nul_ascii", "\"a\\u0000b\""},
       }) {
    EXPECT_EQ(ReadJson({"Product", kind.name}), kind.json) << kind.name;
  }
  // U+0000 is written \u0000, in keys and strings alike.
  EXPECT_EQ(Ok({"read", "--json", "Product", "nul_unicode"}), "\"\xC3\xA9\\u0000\xE4\xB8\x96\"\n");
  const std::string node = Ok({"read", "--json", "Product"});
  EXPECT_NE(node.find("\"key\\u0000with zero\":\"value under a key with U+0000\""),
            std::string::npos);
  EXPECT_NE(node.find("\"\xC3\xA9\\u0000dict\":{\"inner\\u0000\":\"\\u0000\"}"), std::string::npos);
  // All 256 byte values, in base64.
  std::string bytes;
  for (int i = 0; i < 256; ++i) bytes += static_cast<char>(i);
  const std::string data = ReadJson({"Product", "data"});
  EXPECT_EQ(data.substr(0, 14), "{\"$data\":\"AAEC");
  EXPECT_EQ(data.substr(data.size() - 10), "/P3+/w==\"}");
  EXPECT_EQ(data.size(), 10 + 344 + 2u);
}

TEST_F(SettingsToolJson, ReadThenImportRestoresTheSameTreeOverEveryKind) {
  WriteFixture();
  const std::string json = Ok({"read", "--json", "Product"});
  sandbox::WriteFile(m_root + "/product.json", json);
  Ok({"import", "--json", "Copy", m_root + "/product.json"});
  EXPECT_EQ(Ok({"read", "--json", "Copy"}), json);
  // The files agree entry by entry, kinds included, as plistlib reads them.
  const std::vector<std::string> original = Listing("Product");
  EXPECT_GT(original.size(), 60u);
  EXPECT_EQ(Listing("Copy"), original);
}

TEST_F(SettingsToolJson, MarkersAndEscapesRoundTrip) {
  // Sets, reals without a number's form, a dictionary whose only key starts
  // with "$", dates with fractions and beyond the years ISO 8601 covers.
  const std::string json =
      "{\"Set\":{\"$set\":[1,\"a\",true]},"
      "\"NaN\":{\"$real\":\"nan\"},\"Inf\":{\"$real\":\"inf\"},\"MinusInf\":{\"$real\":\"-inf\"},"
      "\"MinusNaN\":{\"$real\":\"nan:fff8000000000000\"},"
      "\"Payload\":{\"$real\":\"nan:7ff0000000000123\"},"
      "\"Escaped\":{\"$dictionary\":{\"$data\":\"not data\"}},"
      "\"Nested\":{\"$dictionary\":{\"$x\":{\"$dictionary\":{\"$y\":1}}}},"
      "\"Fraction\":{\"$date\":\"2026-11-21T12:34:56.25Z\"},"
      "\"Before2001\":{\"$date\":\"1969-07-20T20:17:40Z\"},"
      "\"FarOut\":{\"$date\":1e+300},"
      "\"Uid\":{\"$uid\":18446744073709551615},"
      "\"Key With / And Space\":{\"\xC3\x9C\":\"\xF0\x9F\x8C\x8D\"}}";
  EXPECT_EQ(Canonical(ImportThenRead("P", json)), Canonical(json));
}

TEST_F(SettingsToolJson, ImportMergesLikeAPropertyListImport) {
  Ok({"write", "P", "Kept", "int", "1"});
  Ok({"write", "P", "Network/HttpPort", "int", "80"});
  Ok({"write", "P", "Network/Kept", "bool", "true"});
  sandbox::WriteFile(m_root + "/in.json", "{\"Network\":{\"HttpPort\":8080},\"New\":\"x\"}");
  Ok({"import", "--json", "P", m_root + "/in.json"});
  EXPECT_EQ(ReadJson({"P"}),
            "{\"Kept\":1,\"Network\":{\"HttpPort\":8080,\"Kept\":true},\"New\":\"x\"}");
}

TEST_F(SettingsToolJson, ImportOfWhatIsNotASettingsNodeChangesNothing) {
  Ok({"write", "P", "Kept", "int", "1"});
  const std::string before = sandbox::ReadFile(UserFile("P"));
  const std::string file = m_root + "/in.json";
  const std::string tail = "; nothing was changed";
  const std::string notANode =
      file + " is not the JSON of a settings node (as read --json prints it)";
  struct Case {
    std::string json;
    std::string message;
  };
  for (const Case& bad : std::vector<Case>{
           {"{\"a\": ", file + " is not JSON" + tail},
           {"{\"a\": \"\xC3\x28\"}", file + " is not JSON" + tail},
           {"[1, 2]", notANode + tail},
           {"42", notANode + tail},
           {"{\"a\": null}", notANode + ": at /a: null is no settings value" + tail},
           {"{\"a\": {\"b\": {\"$data\": \"!!\"}}}",
            notANode + ": at /a/b: $data holds no base64 text" + tail},
           {"{\"a\": {\"$date\": \"yesterday\"}}",
            notANode + ": at /a: $date holds no date like 2026-11-21T12:34:56Z" + tail},
           {"{\"a\": {\"$uid\": -1}}", notANode + ": at /a: $uid holds no whole number" + tail},
           {"{\"a\": {\"$real\": \"big\"}}",
            notANode + ": at /a: $real holds none of nan, nan:<16 hex digits>, inf, -inf" + tail},
           {"{\"a\": {\"$date\": \"2000-12-31T23:59:59.Z\"}}",
            notANode + ": at /a: $date holds no date like 2026-11-21T12:34:56Z" + tail},
           {"{\"a\": {\"$secret\": 1}}",
            notANode +
                ": at /a: unknown marker $secret (a dictionary whose only key starts with $ is "
                "written {\"$dictionary\": ...})" +
                tail},
       }) {
    sandbox::WriteFile(file, bad.json);
    Fails({"import", "--json", "P", file}, 1, bad.message);
    EXPECT_EQ(sandbox::ReadFile(UserFile("P")), before) << bad.json;
  }
}

// Dates print with as many fraction digits as their bits take, or as
// seconds when the calendar cannot carry them, and import reads every one
// back to the same bits.
TEST_F(SettingsToolJson, DatesKeepEveryBitThroughReadAndImport) {
  const std::string json =
      "{\"AHairBefore2001\":{\"$date\":\"2000-12-31T23:59:59.999999999Z\"},"
      "\"BeforeMinusZero\":{\"$date\":-0.0},"
      "\"Between\":{\"$date\":\"2000-12-31T23:59:59.5Z\"},"
      "\"JustBelowOne\":{\"$date\":\"2001-01-01T00:00:00.9999999999999999Z\"},"
      "\"NaN\":{\"$date\":{\"$real\":\"nan:fff8000000000000\"}},"
      "\"Past\":{\"$date\":-1e+300},"
      "\"Tiny\":{\"$date\":1e-300},"
      "\"TinyBefore\":{\"$date\":-1e-300},"
      "\"Usual\":{\"$date\":\"2026-11-21T12:34:56.123Z\"}}";
  const std::string back = ImportThenRead("P", json);
  EXPECT_EQ(back, json + "\n");
  // Seconds given for a date that has a calendar form print in that form.
  EXPECT_EQ(ImportThenRead("Q", "{\"d\":{\"$date\":-1e-09}}"),
            "{\"d\":{\"$date\":\"2000-12-31T23:59:59.999999999Z\"}}\n");
  // What read --json printed imports to the same bits: the same file bytes.
  EXPECT_EQ(ImportThenRead("Copy", back), back);
  Ok({"export", "--format", "binary", "P", m_root + "/p.plist"});
  Ok({"export", "--format", "binary", "Copy", m_root + "/copy.plist"});
  EXPECT_EQ(sandbox::ReadFile(m_root + "/copy.plist"), sandbox::ReadFile(m_root + "/p.plist"));
}

// A file that another program wrote with U+0000 in keys and strings is read
// and written back whole by a write of another entry, nothing kept aside;
// the plain (not JSON) forms show such entries as C strings would.
TEST_F(SettingsToolJson, KeysAndStringsHoldingZeroSurviveAWrite) {
  WriteFixture();
  const std::vector<std::string> before = Listing("Product");
  Ok({"write", "Product", "Probe", "int", "1"});
  EXPECT_EQ(sandbox::List(UserFolder()),
            std::set<std::string>({"com.morv.Product.plist", "com.morv.Product.plist.lock"}));
  std::vector<std::string> expected = before;
  for (std::string& line : expected) {
    if (line.compare(0, 6, "\tdict\t") == 0)
      line = "\tdict\t" + std::to_string(std::stoul(line.substr(6)) + 1);
  }
  expected.push_back("/Probe\tint\t1");
  std::vector<std::string> after = Listing("Product");
  std::sort(expected.begin(), expected.end());
  std::sort(after.begin(), after.end());
  EXPECT_EQ(after, expected);
  const char kZeroKey[] = "/key\0with zero\tstr\t'value under a key with U+0000'";
  EXPECT_NE(std::find(after.begin(), after.end(), std::string(kZeroKey, sizeof(kZeroKey) - 1)),
            after.end());
  EXPECT_NE(std::find(after.begin(), after.end(), "/nul_ascii\tstr\t'a\\x00b'"), after.end());
  EXPECT_EQ(Ok({"read", "Product", "nul_ascii"}), "a\n");
  const std::string list = Ok({"list", "Product"});
  EXPECT_EQ(list.find('\0'), std::string::npos);
  EXPECT_NE(list.find("\nnul_ascii\n"), std::string::npos);
}

TEST_F(SettingsToolJson, ReadWithATypeGivesThatTypesJson) {
  Ok({"write", "P", "Port", "int", "8080"});
  Ok({"write", "P", "Blob", "data", "0001ff"});
  EXPECT_EQ(ReadJson({"--type", "double", "P", "Port"}), "8080.0");
  EXPECT_EQ(ReadJson({"--type", "uint64", "P", "Port"}), "8080");
  EXPECT_EQ(ReadJson({"--type", "data", "P", "Blob"}), "{\"$data\":\"AAH/\"}");
}

TEST_F(SettingsToolJson, ReadOfANodeIncludesMachineWideDefaults) {
  WriteDefaults("P", fixtures::Key("Default", fixtures::String("shared")));
  Ok({"write", "P", "Own", "int", "1"});
  EXPECT_EQ(ReadJson({"P"}), "{\"Default\":\"shared\",\"Own\":1}");
  EXPECT_EQ(ReadJson({"P", "Default"}), "\"shared\"");
}

TEST_F(SettingsToolJson, ListGivesKeysAndTheKindsOfValues) {
  Ok({"write", "P", "Network/HttpPort", "int", "8080"});
  Ok({"write", "P", "Name", "string", "x"});
  Ok({"write", "P", "Ratio", "double", "0.5"});
  Ok({"write", "P", "Media/Folders/Music", "string", "/srv/music"});
  EXPECT_EQ(Canonical(Ok({"list", "--json", "P"})),
            "{\"keys\":[\"Media\",\"Network\"],\"values\":{\"Name\":\"string\",\"Ratio\":"
            "\"real\"}}");
  EXPECT_EQ(Canonical(Ok({"list", "--json", "P", "Network"})),
            "{\"keys\":[],\"values\":{\"HttpPort\":\"integer\"}}");
}

TEST_F(SettingsToolJson, WhereGivesTheFilesTheirStateAndTheKey) {
  Ok({"write", "P", "Name", "string", "x"});
  sandbox::WriteFile(SharedFile(), "garbage");
  EXPECT_EQ(Canonical(Ok({"where", "--json", "P"})),
            "{\"key\":\"Settings/P\",\"perUserFile\":{\"exists\":true,\"path\":\"" + UserFile("P") +
                "\",\"readable\":true},\"sharedFile\":{\"exists\":true,\"path\":\"" + SharedFile() +
                "\",\"problem\":\"not a property list\",\"readable\":false}}");
  EXPECT_EQ(Canonical(Ok({"where", "--json", "--installer", "Q"})),
            "{\"key\":\"Install/Q\",\"sharedFile\":{\"exists\":true,\"path\":\"" + SharedFile() +
                "\",\"problem\":\"not a property list\",\"readable\":false}}");
  sandbox::RemoveTree(SharedFile());
  EXPECT_EQ(Canonical(Ok({"where", "--json", "--installer", "Q"})),
            "{\"key\":\"Install/Q\",\"sharedFile\":{\"exists\":false,\"path\":\"" + SharedFile() +
                "\",\"readable\":true}}");
}

}  // namespace
