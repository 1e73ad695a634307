// One-call settings functions: product paths, the flag-to-scope table,
// which node each family opens and how, what their result tells (not the
// save at the release), and every function of the table, product and
// installer, narrow and wide.

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <set>
#include <string>

#include "MorvSettings/MorvComponentIds.h"
#include "MorvSettings/MorvSettingsSimple.h"
#include "MorvSettings/MorvSettingsUtility.h"
#include "MorvSettingsNode.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Dict;
using fixtures::Key;
using fixtures::Plist;
using fixtures::String;

class SettingsSimple : public sandbox::SettingsSandbox {
 protected:
  // Nothing at all exists in either configuration folder.
  void ExpectNothingCreated() {
    EXPECT_FALSE(sandbox::Exists(UserFolder()));
    EXPECT_FALSE(sandbox::Exists(SharedFolder()));
  }
};

TEST(ProductPath, InstallOrSettingsThenTheIdAsItIs) {
  EXPECT_EQ(GetProductIDPath(std::string("MorvMediaServer"), true), "Install/MorvMediaServer");
  EXPECT_EQ(GetProductIDPath(std::string("MorvMediaServer"), false), "Settings/MorvMediaServer");
  EXPECT_EQ(GetProductIDPath(std::wstring(L"P"), true), L"Install/P");
  EXPECT_EQ(GetProductIDPath(std::wstring(L"P"), false), L"Settings/P");
  EXPECT_EQ(GetProductIDPath(std::string(""), true), "Install/");
  EXPECT_EQ(GetProductIDPath(std::string("/a//b/"), false), "Settings//a//b/");
}

TEST(ComponentIds, MediaServer) {
  EXPECT_STREQ(mvcs::kMorvMediaServerId, "MorvMediaServer");
  EXPECT_EQ(std::wstring(mvcs::kMorvMediaServerIdW), L"MorvMediaServer");
}

TEST_F(SettingsSimple, FlagsSelectTheScope) {
  // Files and nodes that every scope can open.
  sandbox::WriteFile(UserFile("P"), Plist(Key("Settings", Dict(Key("P", Dict(""))))));
  sandbox::WriteFile(SharedFile(), Plist(Key("Install", Dict(Key("P", Dict(""))))));
  struct {
    bool installer, create, query;
    int scope;
  } table[] = {{false, true, true, 8},   {false, true, false, 8}, {false, false, true, 5},
               {false, false, false, 2}, {true, true, true, 9},   {true, true, false, 9},
               {true, false, true, 6},   {true, false, false, 3}};
  for (const auto& row : table) {
    for (bool wide : {false, true}) {
      mvcs::IMorvSettings* node = nullptr;
      const bool created = wide ? CreateSimpleSettings(std::wstring(L"P"), row.installer,
                                                       row.create, row.query, &node)
                                : CreateSimpleSettings(std::string("P"), row.installer, row.create,
                                                       row.query, &node);
      ASSERT_TRUE(created);
      const mvtl::RefCountedPtr<mvcs::IMorvSettings> holder(node);
      node->Release();  // the reference CreateSimpleSettings handed out
      mvcs::MorvSettings* impl = dynamic_cast<mvcs::MorvSettings*>(node);
      EXPECT_EQ(impl->GetScope(), row.scope);
      EXPECT_EQ(impl->GetFullKeyPath(), row.installer ? "Install/P" : "Settings/P");
    }
  }
}

TEST_F(SettingsSimple, CreateSimpleSettingsWithoutOutParameter) {
  EXPECT_TRUE(CreateSimpleSettings(std::string("P"), false, true, false, nullptr));
  mvcs::IMorvSettings* untouched = reinterpret_cast<mvcs::IMorvSettings*>(0x1);
  EXPECT_FALSE(CreateSimpleSettings(std::string(""), false, true, false, &untouched));
  EXPECT_EQ(untouched, reinterpret_cast<mvcs::IMorvSettings*>(0x1));
  EXPECT_FALSE(CreateSimpleSettings(std::string("Missing"), true, false, true, &untouched));
  EXPECT_EQ(untouched, reinterpret_cast<mvcs::IMorvSettings*>(0x1));
}

TEST_F(SettingsSimple, InstallerFetchReadsTheInstallRecordProductFetchTheSettings) {
  sandbox::WriteFile(
      SharedFile(),
      Plist(Key("Install",
                Dict(Key("MorvMediaServer", Dict(Key("InstallPath", String("/opt/installed")))))) +
            Key("Settings",
                Dict(Key("MorvMediaServer", Dict(Key("InstallPath", String("/from/settings"))))))));
  std::wstring value;
  ASSERT_TRUE(mvcs::FetchInstallerWideString(std::wstring(L"MorvMediaServer"),
                                             std::wstring(L"InstallPath"), value));
  EXPECT_EQ(value, L"/opt/installed");
  // The product's settings read the per-user file, then the shared file's
  // Settings/MorvMediaServer.
  ASSERT_TRUE(
      mvcs::FetchWideString(std::wstring(L"MorvMediaServer"), std::wstring(L"InstallPath"), value));
  EXPECT_EQ(value, L"/from/settings");
  EXPECT_FALSE(sandbox::Exists(UserFile("MorvMediaServer")));  // reading created nothing
}

TEST_F(SettingsSimple, EmptyNameFailsWithoutOpeningOrCreatingAnything) {
  const std::string p = "P", empty;
  long long n = 0;
  std::string s;
  EXPECT_FALSE(mvcs::StoreInteger(p, empty, 1));
  EXPECT_FALSE(mvcs::StoreInstallerUTF8String(p, empty, "x"));
  EXPECT_FALSE(mvcs::StoreBuffer(std::wstring(L"P"), std::wstring(), "x", 1));
  EXPECT_FALSE(mvcs::FetchInteger(p, empty, n));
  EXPECT_FALSE(mvcs::FetchInstallerUTF8String(p, empty, s));
  EXPECT_FALSE(mvcs::DeleteSetting(p, empty));
  EXPECT_FALSE(mvcs::DeleteInstallerSetting(std::wstring(L"P"), std::wstring()));
  ExpectNothingCreated();
}

TEST_F(SettingsSimple, EmptyProductIdFailsInEveryFamily) {
  const std::string none, name = "n";
  long long n = 0;
  unsigned long count = 0;
  std::set<std::string> names;
  EXPECT_FALSE(mvcs::StoreInteger(none, name, 1));
  EXPECT_FALSE(mvcs::StoreInstallerInteger(none, name, 1));
  EXPECT_FALSE(mvcs::FetchInteger(none, name, n));
  EXPECT_FALSE(mvcs::DeleteSetting(none, name));
  EXPECT_FALSE(mvcs::DeleteSetting(none));
  EXPECT_FALSE(mvcs::ProductSettingsExists(none));
  EXPECT_FALSE(mvcs::ProductInstallerSettingsExists(std::wstring()));
  EXPECT_FALSE(mvcs::GetValueNames(none, names));
  EXPECT_FALSE(mvcs::GetInstallerChildCount(none, count));
  ExpectNothingCreated();
}

TEST_F(SettingsSimple, ExistsTestsFollowWhetherTheNodeOpens) {
  EXPECT_FALSE(mvcs::ProductSettingsExists(std::string("P")));
  EXPECT_FALSE(mvcs::ProductInstallerSettingsExists(std::string("P")));
  ExpectNothingCreated();
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("n"), 1));
  EXPECT_TRUE(mvcs::ProductSettingsExists(std::string("P")));
  EXPECT_FALSE(mvcs::ProductInstallerSettingsExists(std::string("P")));
  ASSERT_TRUE(mvcs::StoreInstallerInteger(std::wstring(L"P"), std::wstring(L"n"), 1));
  EXPECT_TRUE(mvcs::ProductInstallerSettingsExists(std::wstring(L"P")));
}

TEST_F(SettingsSimple, ReadsDeletesAndQueriesNeverCreate) {
  long long n = 0;
  unsigned long count = 0;
  std::set<std::string> names;
  EXPECT_FALSE(mvcs::FetchInteger(std::string("P"), std::string("n"), n));
  EXPECT_FALSE(mvcs::FetchInstallerInteger(std::string("P"), std::string("n"), n));
  EXPECT_FALSE(mvcs::DeleteSetting(std::string("P"), std::string("n")));
  EXPECT_FALSE(mvcs::DeleteInstallerSetting(std::string("P")));
  EXPECT_FALSE(mvcs::GetValueNames(std::string("P"), names));
  EXPECT_FALSE(mvcs::GetInstallerValueCount(std::string("P"), count));
  EXPECT_FALSE(mvcs::ProductSettingsExists(std::string("P")));
  ExpectNothingCreated();
  // With the files present but not the nodes, nothing is added either.
  sandbox::WriteFile(UserFile("P"), Plist(Key("Other", Dict(""))));
  sandbox::WriteFile(SharedFile(), Plist(Key("Other", Dict(""))));
  const std::string user = sandbox::ReadFile(UserFile("P"));
  const std::string shared = sandbox::ReadFile(SharedFile());
  EXPECT_FALSE(mvcs::FetchInteger(std::string("P"), std::string("n"), n));
  EXPECT_FALSE(mvcs::DeleteInstallerSetting(std::string("P"), std::string("n")));
  EXPECT_FALSE(mvcs::GetChildNames(std::string("P"), names));
  EXPECT_FALSE(mvcs::ProductInstallerSettingsExists(std::string("P")));
  EXPECT_EQ(sandbox::ReadFile(UserFile("P")), user);
  EXPECT_EQ(sandbox::ReadFile(SharedFile()), shared);
}

TEST_F(SettingsSimple, StoresCreateTheFileAndNode) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("n"), 5));
  EXPECT_TRUE(sandbox::Exists(UserFile("P")));
  EXPECT_FALSE(sandbox::Exists(SharedFile()));
  ASSERT_TRUE(mvcs::StoreInstallerInteger(std::string("P"), std::string("n"), 6));
  EXPECT_TRUE(sandbox::Exists(SharedFile()));
  long long product = 0, installer = 0;
  EXPECT_TRUE(mvcs::FetchInteger(std::string("P"), std::string("n"), product));
  EXPECT_TRUE(mvcs::FetchInstallerInteger(std::string("P"), std::string("n"), installer));
  EXPECT_EQ(product, 5);
  EXPECT_EQ(installer, 6);
}

TEST_F(SettingsSimple, AOneCallStoreTellsTheStoreNotTheSaveAtTheRelease) {
  // A file where the product's settings folder should be: no save can write
  // the settings, as root or not.
  sandbox::WriteFile(UserFolder(), "in the way");
  // The store into the node worked, so the result is true; the save at the
  // node's release failed, and nothing says so.
  EXPECT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("n"), 5));
  EXPECT_EQ(sandbox::ReadFile(UserFolder()), "in the way");
  long long n = 0;
  EXPECT_FALSE(mvcs::FetchInteger(std::string("P"), std::string("n"), n));
  // A program that must know stores through a node and saves it.
  fixtures::Node node;
  ASSERT_TRUE(CreateSimpleSettings(std::string("P"), false, true, false, &node));
  ASSERT_TRUE(node->StoreInteger(std::string("n"), 5));
  const mvcs::SaveResult saved = mvcs::SaveSettings(node.Get());
  EXPECT_FALSE(saved.IsOk());
  EXPECT_EQ(saved.GetError(), ENOTDIR);
  EXPECT_EQ(saved.GetPath(), UserFile("P"));
  EXPECT_EQ(sandbox::ReadFile(UserFolder()), "in the way");
}

TEST_F(SettingsSimple, ProductAndInstallerDeletesTouchOnlyTheirOwnNode) {
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("a"), 1));
  ASSERT_TRUE(mvcs::StoreInteger(std::string("P"), std::string("b"), 2));
  ASSERT_TRUE(mvcs::StoreInstallerInteger(std::string("P"), std::string("a"), 3));
  ASSERT_TRUE(mvcs::StoreInstallerInteger(std::string("P"), std::string("b"), 4));
  EXPECT_TRUE(mvcs::DeleteInstallerSetting(std::string("P"), std::string("a")));
  long long n = 0;
  EXPECT_TRUE(mvcs::FetchInteger(std::string("P"), std::string("a"), n));  // product keeps a
  EXPECT_FALSE(mvcs::FetchInstallerInteger(std::string("P"), std::string("a"), n));
  EXPECT_TRUE(mvcs::DeleteSetting(std::string("P")));  // the whole product node
  EXPECT_FALSE(mvcs::ProductSettingsExists(std::string("P")));
  EXPECT_TRUE(mvcs::ProductInstallerSettingsExists(std::string("P")));
  EXPECT_TRUE(mvcs::FetchInstallerInteger(std::string("P"), std::string("b"), n));
  EXPECT_EQ(n, 4);
  EXPECT_TRUE(mvcs::DeleteInstallerSetting(std::wstring(L"P")));
  EXPECT_FALSE(mvcs::ProductInstallerSettingsExists(std::string("P")));
}

// Every function of the table for one family and string type: stores of
// every kind, fetches of every kind, names and counts, deletes.
template <class StringT>
void RoundTripEveryFunction(bool installer) {
  auto S = [](const char* text) { return StringT(text, text + std::strlen(text)); };
  const StringT p = S("Prod");
  const unsigned char bytes[] = {1, 2, 3};
  EXPECT_TRUE(installer ? mvcs::StoreInstallerInteger(p, S("integer"), -5)
                        : mvcs::StoreInteger(p, S("integer"), -5));
  EXPECT_TRUE(installer ? mvcs::StoreInstallerInt32(p, S("int32"), -6)
                        : mvcs::StoreInt32(p, S("int32"), -6));
  EXPECT_TRUE(installer ? mvcs::StoreInstallerUint32(p, S("uint32"), 7u)
                        : mvcs::StoreUint32(p, S("uint32"), 7u));
  EXPECT_TRUE(installer ? mvcs::StoreInstallerInt64(p, S("int64"), -8)
                        : mvcs::StoreInt64(p, S("int64"), -8));
  EXPECT_TRUE(installer ? mvcs::StoreInstallerUint64(p, S("uint64"), 9u)
                        : mvcs::StoreUint64(p, S("uint64"), 9u));
  EXPECT_TRUE(installer ? mvcs::StoreInstallerFloat(p, S("float"), 1.5f)
                        : mvcs::StoreFloat(p, S("float"), 1.5f));
  EXPECT_TRUE(installer ? mvcs::StoreInstallerDouble(p, S("double"), 2.5)
                        : mvcs::StoreDouble(p, S("double"), 2.5));
  EXPECT_TRUE(installer ? mvcs::StoreInstallerBoolean(p, S("bool"), true)
                        : mvcs::StoreBoolean(p, S("bool"), true));
  EXPECT_TRUE(installer ? mvcs::StoreInstallerUTF8String(p, S("utf8"), "caf\xC3\xA9")
                        : mvcs::StoreUTF8String(p, S("utf8"), "caf\xC3\xA9"));
  EXPECT_TRUE(installer ? mvcs::StoreInstallerWideString(p, S("wide"), L"w\u00e9")
                        : mvcs::StoreWideString(p, S("wide"), L"w\u00e9"));
  EXPECT_TRUE(installer ? mvcs::StoreInstallerBuffer(p, S("buffer"), bytes, 3)
                        : mvcs::StoreBuffer(p, S("buffer"), bytes, 3));

  long long integer = 0, int64 = 0;
  int int32 = 0;
  unsigned int uint32 = 0;
  unsigned long long uint64 = 0;
  float f = 0;
  double d = 0;
  bool b = false;
  std::string utf8;
  std::wstring wide;
  mvtl::MemoryBuffer<unsigned char> buffer;
  EXPECT_TRUE(installer ? mvcs::FetchInstallerInteger(p, S("integer"), integer)
                        : mvcs::FetchInteger(p, S("integer"), integer));
  EXPECT_TRUE(installer ? mvcs::FetchInstallerInt32(p, S("int32"), int32)
                        : mvcs::FetchInt32(p, S("int32"), int32));
  EXPECT_TRUE(installer ? mvcs::FetchInstallerUint32(p, S("uint32"), uint32)
                        : mvcs::FetchUint32(p, S("uint32"), uint32));
  EXPECT_TRUE(installer ? mvcs::FetchInstallerInt64(p, S("int64"), int64)
                        : mvcs::FetchInt64(p, S("int64"), int64));
  EXPECT_TRUE(installer ? mvcs::FetchInstallerUint64(p, S("uint64"), uint64)
                        : mvcs::FetchUint64(p, S("uint64"), uint64));
  EXPECT_TRUE(installer ? mvcs::FetchInstallerFloat(p, S("float"), f)
                        : mvcs::FetchFloat(p, S("float"), f));
  EXPECT_TRUE(installer ? mvcs::FetchInstallerDouble(p, S("double"), d)
                        : mvcs::FetchDouble(p, S("double"), d));
  EXPECT_TRUE(installer ? mvcs::FetchInstallerBoolean(p, S("bool"), b)
                        : mvcs::FetchBoolean(p, S("bool"), b));
  EXPECT_TRUE(installer ? mvcs::FetchInstallerUTF8String(p, S("utf8"), utf8)
                        : mvcs::FetchUTF8String(p, S("utf8"), utf8));
  EXPECT_TRUE(installer ? mvcs::FetchInstallerWideString(p, S("wide"), wide)
                        : mvcs::FetchWideString(p, S("wide"), wide));
  EXPECT_TRUE(installer ? mvcs::FetchInstallerBuffer(p, S("buffer"), buffer)
                        : mvcs::FetchBuffer(p, S("buffer"), buffer));
  EXPECT_EQ(integer, -5);
  EXPECT_EQ(int32, -6);
  EXPECT_EQ(uint32, 7u);
  EXPECT_EQ(int64, -8);
  EXPECT_EQ(uint64, 9u);
  EXPECT_EQ(f, 1.5f);
  EXPECT_EQ(d, 2.5);
  EXPECT_TRUE(b);
  EXPECT_EQ(utf8, "caf\xC3\xA9");
  EXPECT_EQ(wide, L"w\u00e9");
  ASSERT_EQ(buffer.GetCount(), 3ul);
  EXPECT_EQ(std::memcmp(buffer.GetData(), bytes, 3), 0);

  // A child key, for the child queries.
  {
    mvtl::RefCountedPtr<mvcs::IMorvSettings> node;
    ASSERT_TRUE(CreateSimpleSettings(p, installer, true, false, &node));
    mvtl::RefCountedPtr<mvcs::IMorvSettings> child;
    ASSERT_TRUE(node->GetChild(S("Kid"), &child));
    ASSERT_TRUE(child->StoreBoolean(S("x"), true));
  }
  std::set<StringT> names;
  unsigned long count = 0;
  EXPECT_TRUE(installer ? mvcs::GetInstallerValueNames(p, names) : mvcs::GetValueNames(p, names));
  EXPECT_EQ(names.size(), 11u);
  EXPECT_EQ(names.count(S("wide")), 1u);
  EXPECT_TRUE(installer ? mvcs::GetInstallerValueCount(p, count) : mvcs::GetValueCount(p, count));
  EXPECT_EQ(count, 11ul);
  EXPECT_TRUE(installer ? mvcs::GetInstallerChildNames(p, names) : mvcs::GetChildNames(p, names));
  EXPECT_EQ(names, std::set<StringT>({S("Kid")}));
  EXPECT_TRUE(installer ? mvcs::GetInstallerChildCount(p, count) : mvcs::GetChildCount(p, count));
  EXPECT_EQ(count, 1ul);
  EXPECT_TRUE(installer ? mvcs::ProductInstallerSettingsExists(p) : mvcs::ProductSettingsExists(p));

  EXPECT_TRUE(installer ? mvcs::DeleteInstallerSetting(p, S("utf8"))
                        : mvcs::DeleteSetting(p, S("utf8")));
  EXPECT_FALSE(installer ? mvcs::FetchInstallerUTF8String(p, S("utf8"), utf8)
                         : mvcs::FetchUTF8String(p, S("utf8"), utf8));
  EXPECT_TRUE(installer ? mvcs::DeleteInstallerSetting(p) : mvcs::DeleteSetting(p));
  EXPECT_FALSE(installer ? mvcs::ProductInstallerSettingsExists(p)
                         : mvcs::ProductSettingsExists(p));
}

TEST_F(SettingsSimple, EveryProductFunctionNarrow) { RoundTripEveryFunction<std::string>(false); }
TEST_F(SettingsSimple, EveryProductFunctionWide) { RoundTripEveryFunction<std::wstring>(false); }
TEST_F(SettingsSimple, EveryInstallerFunctionNarrow) { RoundTripEveryFunction<std::string>(true); }
TEST_F(SettingsSimple, EveryInstallerFunctionWide) { RoundTripEveryFunction<std::wstring>(true); }

}  // namespace
