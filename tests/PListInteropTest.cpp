// Interoperability with an independent implementation of property lists,
// Python's plistlib (tests/plist_interop.py): files the store writes read
// correctly there, and files it writes (binary and XML) read correctly in the
// store and keep every entry unchanged through a store and a save.

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "MorvSettings/MorvSettings.h"
#include "Plistlib.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Node;

using plistlib::Dump;

std::set<std::string> Minus(const std::vector<std::string>& a, const std::vector<std::string>& b) {
  std::set<std::string> difference(a.begin(), a.end());
  for (const std::string& line : b) difference.erase(line);
  return difference;
}

class PListInterop : public sandbox::SettingsSandbox {
 protected:
  void WriteFixture(const char* format) {
    sandbox::WriteFile(UserFile("Product"), "");  // makes the folders
    ASSERT_EQ(plistlib::WriteFixture(format, UserFile("Product")), 0);
  }

  // Reads the plistlib fixture through the store and checks every kind;
  // `zeros`: the fixture holds the entries with U+0000 too.
  void ExpectFixtureValues(const Node& node, bool zeros) {
    long long n = 0;
    unsigned long long u = 0;
    double d = 0;
    bool b = false;
    std::string s;
    std::wstring w;
    mvtl::MemoryBuffer<unsigned char> buffer;
    EXPECT_TRUE(node->FetchInteger(std::string("int"), n));
    EXPECT_EQ(n, 42);
    EXPECT_TRUE(node->FetchInteger(std::string("negative"), n));
    EXPECT_EQ(n, -17);
    EXPECT_TRUE(node->FetchInteger(std::string("int64_max"), n));
    EXPECT_EQ(n, 9223372036854775807LL);
    EXPECT_TRUE(node->FetchInteger(std::string("int64_min"), n));
    EXPECT_EQ(n, -9223372036854775807LL - 1);
    EXPECT_TRUE(node->FetchUint64(std::string("above_int64"), u));
    EXPECT_EQ(u, 9223372036854775808ULL);
    EXPECT_TRUE(node->FetchUint64(std::string("uint64_max"), u));
    EXPECT_EQ(u, 18446744073709551615ULL);
    EXPECT_TRUE(node->FetchDouble(std::string("uint64_max"), d));
    EXPECT_EQ(d, 18446744073709551615.0);  // the unsigned value, not -1
    EXPECT_TRUE(node->FetchDouble(std::string("real"), d));
    EXPECT_EQ(d, 3.25);
    EXPECT_TRUE(node->FetchDouble(std::string("third"), d));
    EXPECT_EQ(d, 1.0 / 3);
    EXPECT_TRUE(node->FetchDouble(std::string("huge"), d));
    EXPECT_EQ(d, 1.5e300);
    EXPECT_TRUE(node->FetchBoolean(std::string("yes"), b));
    EXPECT_TRUE(b);
    EXPECT_TRUE(node->FetchBoolean(std::string("no"), b));
    EXPECT_FALSE(b);
    EXPECT_TRUE(node->FetchUTF8String(std::string("string"), s));
    EXPECT_EQ(s, "plain text");
    EXPECT_TRUE(node->FetchWideString(std::string("unicode"), w));
    EXPECT_EQ(w, L"Gr\u00fc\u00dfe, \u4e16\u754c \U0001F30D");
    EXPECT_TRUE(node->FetchInteger(std::string("numeric_text"), n));
    EXPECT_EQ(n, -42);
    EXPECT_TRUE(node->FetchUTF8String(std::string("empty_string"), s));
    EXPECT_EQ(s, "");
    EXPECT_TRUE(node->FetchBuffer(std::string("data"), buffer));
    ASSERT_EQ(buffer.GetCount(), 256ul);
    for (int i = 0; i < 256; ++i) EXPECT_EQ(buffer.GetData()[i], i);
    EXPECT_TRUE(node->FetchBuffer(std::string("empty_data"), buffer));
    EXPECT_EQ(buffer.GetCount(), 0ul);
    EXPECT_TRUE(
        node->FetchUTF8String(std::wstring(L"\u00dcn\u00efc\u00f6d\u00e9 k\u00e9y \u2603"), s));
    EXPECT_EQ(s, "value under a unicode key");
    EXPECT_FALSE(node->FetchInteger(std::string("array"), n));  // kept, not readable as a value
    EXPECT_FALSE(node->FetchUTF8String(std::string("date"), s));
    // Names holding U+0000 are neither listed nor reachable by name (a
    // name ends at its first zero character); strings holding it fetch as
    // their text up to there.
    std::set<std::string> children;
    ASSERT_TRUE(node->GetChildNames(children));
    EXPECT_EQ(children, std::set<std::string>({"deep", "empty_dict"}));
    std::set<std::string> values;
    ASSERT_TRUE(node->GetValueNames(values));
    unsigned long count = 0;
    ASSERT_TRUE(node->GetValueCount(count));
    EXPECT_EQ(count, values.size());
    for (const std::string& name : values) EXPECT_EQ(name.find('\0'), std::string::npos) << name;
    EXPECT_EQ(values.count("nul_ascii"), zeros ? 1u : 0u);
    if (zeros) {
      EXPECT_TRUE(node->FetchUTF8String(std::string("nul_ascii"), s));
      EXPECT_EQ(s, "a");
      EXPECT_TRUE(node->FetchWideString(std::string("nul_unicode"), w));
      EXPECT_EQ(w, L"\u00e9");
      EXPECT_TRUE(node->FetchUTF8String(std::string("nul_unicode"), s));
      EXPECT_EQ(s, "\xC3\xA9");
      EXPECT_FALSE(node->FetchUTF8String(std::string("key\0with zero", 13), s));
    }
    Node deep;
    std::string path = "deep";
    for (int level = 39; level >= 0; --level) path += "/level" + std::to_string(level);
    ASSERT_TRUE(node->GetChild(path, &deep));
    EXPECT_TRUE(deep->FetchUTF8String(std::string("leaf"), s));
    EXPECT_EQ(s, "bottom");
  }

  // Opens the fixture's node, checks its values, stores "added" and closes
  // the node, which saves. With `elsewhere`, another program adds an entry
  // holding U+0000 to the file meanwhile, which the save merges with. Every
  // entry must come out as it was, and no file be kept aside.
  void ExpectUnchangedThroughStoreAndSave(const std::string& format, bool elsewhere = false) {
    WriteFixture(format.c_str());
    const std::vector<std::string> before = Dump(UserFile("Product"));
    ASSERT_GT(before.size(), 50u);
    {
      Node node = fixtures::Open("Settings/Product", mvcs::MORVSETTINGSTYPE_USER);
      ASSERT_NE(node.Get(), nullptr);
      ExpectFixtureValues(node, format == "binary-zero");
      ASSERT_TRUE(node->StoreInteger(std::string("added"), 1));
      if (elsewhere) {
        ASSERT_EQ(sandbox::Run("python3 '" + plistlib::Script() + "' add-zero-entry '" +
                               UserFile("Product") + "'"),
                  0);
      }
    }
    EXPECT_EQ(sandbox::ReadFile(UserFile("Product")).compare(0, 8, "bplist00"), 0);
    EXPECT_EQ(sandbox::List(UserFolder()),
              std::set<std::string>({"com.morv.Product.plist", "com.morv.Product.plist.lock"}));
    const std::vector<std::string> after = Dump(UserFile("Product"));
    unsigned long entries = 0;
    for (const std::string& line : before) {
      if (line.compare(0, 18, "/Settings/Product\t") == 0) entries = std::stoul(line.substr(23));
    }
    ASSERT_GT(entries, 20ul);
    std::set<std::string> added = {"/Settings/Product/added\tint\t1"};
    const char kElsewhere[] = "/Settings/Product/added\0elsewhere\tstr\t'x\\x00y'";
    if (elsewhere) added.insert(std::string(kElsewhere, sizeof(kElsewhere) - 1));
    added.insert("/Settings/Product\tdict\t" + std::to_string(entries + added.size()));
    EXPECT_EQ(Minus(after, before), added);
    EXPECT_EQ(Minus(before, after),
              std::set<std::string>({"/Settings/Product\tdict\t" + std::to_string(entries)}));
  }
};

TEST_F(PListInterop, FilesTheStoreWritesReadInPlistlib) {
  {
    Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    ASSERT_NE(node.Get(), nullptr);
    const unsigned char bytes[] = {0x00, 0x01, 0xFF};
    ASSERT_TRUE(node->StoreInteger(std::string("int"), 42));
    ASSERT_TRUE(node->StoreInt32(std::string("negative"), -7));
    ASSERT_TRUE(node->StoreInt64(std::string("int64_max"), 9223372036854775807LL));
    ASSERT_TRUE(node->StoreUint64(std::string("uint64_max"), 18446744073709551615ULL));
    ASSERT_TRUE(node->StoreFloat(std::string("float"), 1.5f));
    ASSERT_TRUE(node->StoreDouble(std::string("double"), 0.1));
    ASSERT_TRUE(node->StoreBoolean(std::string("true"), true));
    ASSERT_TRUE(node->StoreBoolean(std::string("false"), false));
    ASSERT_TRUE(node->StoreUTF8String(std::string("text"),
                                      "Gr\xC3\xBC\xC3\x9F"
                                      "e"));
    ASSERT_TRUE(node->StoreWideString(std::wstring(L"wide"), std::wstring(L"\U0001F30D")));
    ASSERT_TRUE(node->StoreBuffer(std::string("bytes"), bytes, sizeof(bytes)));
    Node child;
    ASSERT_TRUE(node->GetChild(std::string("Child/Grandchild"), &child));
    ASSERT_TRUE(child->StoreInteger(std::string("inner"), 1));
  }
  const std::vector<std::string> expected = {
      "\tdict\t1",
      "/Settings\tdict\t1",
      "/Settings/P\tdict\t12",
      "/Settings/P/Child\tdict\t1",
      "/Settings/P/Child/Grandchild\tdict\t1",
      "/Settings/P/Child/Grandchild/inner\tint\t1",
      "/Settings/P/bytes\tbytes\t0001ff",
      "/Settings/P/double\treal\t0.1",
      "/Settings/P/false\tbool\tFalse",
      "/Settings/P/float\treal\t1.5",
      "/Settings/P/int\tint\t42",
      "/Settings/P/int64_max\tint\t9223372036854775807",
      "/Settings/P/negative\tint\t-7",
      "/Settings/P/text\tstr\t'Gr\xC3\xBC\xC3\x9F"
      "e'",
      "/Settings/P/true\tbool\tTrue",
      "/Settings/P/uint64_max\tint\t-1",  // the store keeps 64-bit signed integers
      "/Settings/P/wide\tstr\t'\xF0\x9F\x8C\x8D'",
  };
  EXPECT_EQ(Dump(UserFile("P")), expected);
}

TEST_F(PListInterop, BinaryFilesFromPlistlibKeepEveryEntry) {
  ExpectUnchangedThroughStoreAndSave("binary");
}

TEST_F(PListInterop, XmlFilesFromPlistlibKeepEveryEntry) {
  ExpectUnchangedThroughStoreAndSave("xml");
}

// Keys and strings holding U+0000 (ASCII and UTF-16) come out as plistlib
// wrote them, through a save of this process alone and through a save that
// merges with another program's change.
TEST_F(PListInterop, EntriesHoldingZeroKeepTheirKeysAndText) {
  ExpectUnchangedThroughStoreAndSave("binary-zero");
}

TEST_F(PListInterop, EntriesHoldingZeroSurviveAMergeWithAnotherProgramsChange) {
  ExpectUnchangedThroughStoreAndSave("binary-zero", true);
}

}  // namespace
