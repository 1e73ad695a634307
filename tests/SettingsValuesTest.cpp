// Typed values: what each store puts in the file, what each fetch accepts
// and converts, the integer widths, the shared-file fallback, and the
// failures (empty or invalid names, null buffers, missing entries).

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <set>
#include <string>

#include "MorvSettingsNode.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"

namespace {

using fixtures::Dict;
using fixtures::Integer;
using fixtures::Key;
using fixtures::Node;
using fixtures::Plist;
using fixtures::String;
using mvcs::IMorvSettings;
using mvcs::MorvSettings;

class SettingsValues : public sandbox::SettingsSandbox {
 protected:
  void SetUp() override {
    SettingsSandbox::SetUp();
    m_node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
    ASSERT_NE(m_node.Get(), nullptr);
  }
  void TearDown() override {
    m_node = static_cast<const IMorvSettings*>(nullptr);
    SettingsSandbox::TearDown();
  }
  // A string entry as a hand-edited file would hold it.
  void StoreText(const std::string& name, const std::string& text) {
    ASSERT_TRUE(m_node->StoreUTF8String(name, text));
  }
  Node m_node;
};

TEST_F(SettingsValues, IntegerFetchesAsDoubleFloatAndBoolean) {
  ASSERT_TRUE(m_node->StoreInteger(std::string("n"), 5));
  double d = 0;
  float f = 0;
  bool b = false;
  EXPECT_TRUE(m_node->FetchDouble(std::string("n"), d));
  EXPECT_EQ(d, 5.0);
  EXPECT_TRUE(m_node->FetchFloat(std::string("n"), f));
  EXPECT_EQ(f, 5.0f);
  EXPECT_TRUE(m_node->FetchBoolean(std::string("n"), b));
  EXPECT_TRUE(b);
}

TEST_F(SettingsValues, TextEntryFetchesAsNumberButNumberNotAsText) {
  StoreText("text", "123");
  long long n = 0;
  EXPECT_TRUE(m_node->FetchInteger(std::string("text"), n));
  EXPECT_EQ(n, 123);
  ASSERT_TRUE(m_node->StoreInteger(std::string("number"), 123));
  std::string text = "unchanged";
  EXPECT_FALSE(m_node->FetchUTF8String(std::string("number"), text));
  EXPECT_EQ(text, "unchanged");
  std::wstring wide = L"unchanged";
  EXPECT_FALSE(m_node->FetchWideString(std::string("number"), wide));
  EXPECT_EQ(wide, L"unchanged");
}

TEST_F(SettingsValues, Int32MinusOneReadsAsUint32MaxAndIntegerMinusOne) {
  ASSERT_TRUE(m_node->StoreInt32(std::string("v"), -1));
  unsigned int u = 0;
  long long n = 0;
  EXPECT_TRUE(m_node->FetchUint32(std::string("v"), u));
  EXPECT_EQ(u, 4294967295u);
  EXPECT_TRUE(m_node->FetchInteger(std::string("v"), n));
  EXPECT_EQ(n, -1);
}

TEST_F(SettingsValues, Uint32MaxIsZeroExtended) {
  ASSERT_TRUE(m_node->StoreUint32(std::string("v"), 4294967295u));
  long long n = 0;
  EXPECT_TRUE(m_node->FetchInteger(std::string("v"), n));
  EXPECT_EQ(n, 4294967295LL);
}

TEST_F(SettingsValues, Uint64MaxIsStoredAsTheSameBits) {
  ASSERT_TRUE(m_node->StoreUint64(std::string("v"), 18446744073709551615ULL));
  long long signedValue = 0;
  unsigned long long unsignedValue = 0;
  EXPECT_TRUE(m_node->FetchInt64(std::string("v"), signedValue));
  EXPECT_EQ(signedValue, -1);
  EXPECT_TRUE(m_node->FetchUint64(std::string("v"), unsignedValue));
  EXPECT_EQ(unsignedValue, 18446744073709551615ULL);
}

TEST_F(SettingsValues, Int32FetchTakesLowBitsWithoutRangeCheck) {
  ASSERT_TRUE(m_node->StoreInteger(std::string("v"), 4294967296LL));
  int i = 7;
  EXPECT_TRUE(m_node->FetchInt32(std::string("v"), i));
  EXPECT_EQ(i, 0);
  ASSERT_TRUE(m_node->StoreInt64(std::string("w"), 4294967296LL + 5));
  unsigned int u = 0;
  EXPECT_TRUE(m_node->FetchUint32(std::string("w"), u));
  EXPECT_EQ(u, 5u);
}

TEST_F(SettingsValues, NullBufferOfLengthZeroIsEmptyData) {
  ASSERT_TRUE(m_node->StoreBuffer(std::string("b"), nullptr, 0));
  mvtl::MemoryBuffer<unsigned char> buffer;
  buffer.Reset(4, true);
  EXPECT_TRUE(m_node->FetchBuffer(std::string("b"), buffer));
  EXPECT_EQ(buffer.GetCount(), 0ul);
  EXPECT_EQ(buffer.GetData(), nullptr);
}

TEST_F(SettingsValues, BufferRoundTripsExactly) {
  const unsigned char bytes[] = {0, 1, 2, 0xFF, 0x80};
  ASSERT_TRUE(m_node->StoreBuffer(std::wstring(L"b"), bytes, sizeof(bytes)));
  mvtl::MemoryBuffer<unsigned char> buffer;
  buffer.Reset(100, true);
  ASSERT_TRUE(m_node->FetchBuffer(std::wstring(L"b"), buffer));
  ASSERT_EQ(buffer.GetCount(), sizeof(bytes));
  EXPECT_EQ(std::memcmp(buffer.GetData(), bytes, sizeof(bytes)), 0);
}

TEST_F(SettingsValues, NullBufferWithLengthFailsWithoutOpening) {
  MorvSettings* fresh =
      new MorvSettings(mvcs::MORVSETTINGSTYPE_USER_CREATE, "Settings", nullptr, "Q");
  Node node(fresh);
  EXPECT_FALSE(node->StoreBuffer(std::string("b"), nullptr, 3));
  EXPECT_EQ(fresh->GetUserFile(), nullptr);  // never opened
}

TEST_F(SettingsValues, EmptyNameFailsEveryStoreAndFetchWithoutOpening) {
  MorvSettings* fresh =
      new MorvSettings(mvcs::MORVSETTINGSTYPE_USER_CREATE, "Settings", nullptr, "Q");
  Node node(fresh);
  const std::string empty;
  const std::wstring wideEmpty;
  long long n = 1;
  int i = 1;
  unsigned int u = 1;
  unsigned long long ull = 1;
  float f = 1;
  double d = 1;
  bool b = true;
  std::string s = "s";
  std::wstring w = L"w";
  mvtl::MemoryBuffer<unsigned char> buffer;
  for (bool wide : {false, true}) {
    SCOPED_TRACE(wide ? "wide name" : "narrow name");
    EXPECT_FALSE(wide ? node->StoreInteger(wideEmpty, 1) : node->StoreInteger(empty, 1));
    EXPECT_FALSE(wide ? node->StoreInt32(wideEmpty, 1) : node->StoreInt32(empty, 1));
    EXPECT_FALSE(wide ? node->StoreUint32(wideEmpty, 1) : node->StoreUint32(empty, 1));
    EXPECT_FALSE(wide ? node->StoreInt64(wideEmpty, 1) : node->StoreInt64(empty, 1));
    EXPECT_FALSE(wide ? node->StoreUint64(wideEmpty, 1) : node->StoreUint64(empty, 1));
    EXPECT_FALSE(wide ? node->StoreFloat(wideEmpty, 1) : node->StoreFloat(empty, 1));
    EXPECT_FALSE(wide ? node->StoreDouble(wideEmpty, 1) : node->StoreDouble(empty, 1));
    EXPECT_FALSE(wide ? node->StoreBoolean(wideEmpty, true) : node->StoreBoolean(empty, true));
    EXPECT_FALSE(wide ? node->StoreUTF8String(wideEmpty, s) : node->StoreUTF8String(empty, s));
    EXPECT_FALSE(wide ? node->StoreWideString(wideEmpty, w) : node->StoreWideString(empty, w));
    EXPECT_FALSE(wide ? node->StoreBuffer(wideEmpty, "x", 1) : node->StoreBuffer(empty, "x", 1));
    EXPECT_FALSE(wide ? node->FetchInteger(wideEmpty, n) : node->FetchInteger(empty, n));
    EXPECT_FALSE(wide ? node->FetchInt32(wideEmpty, i) : node->FetchInt32(empty, i));
    EXPECT_FALSE(wide ? node->FetchUint32(wideEmpty, u) : node->FetchUint32(empty, u));
    EXPECT_FALSE(wide ? node->FetchInt64(wideEmpty, n) : node->FetchInt64(empty, n));
    EXPECT_FALSE(wide ? node->FetchUint64(wideEmpty, ull) : node->FetchUint64(empty, ull));
    EXPECT_FALSE(wide ? node->FetchFloat(wideEmpty, f) : node->FetchFloat(empty, f));
    EXPECT_FALSE(wide ? node->FetchDouble(wideEmpty, d) : node->FetchDouble(empty, d));
    EXPECT_FALSE(wide ? node->FetchBoolean(wideEmpty, b) : node->FetchBoolean(empty, b));
    EXPECT_FALSE(wide ? node->FetchUTF8String(wideEmpty, s) : node->FetchUTF8String(empty, s));
    EXPECT_FALSE(wide ? node->FetchWideString(wideEmpty, w) : node->FetchWideString(empty, w));
    EXPECT_FALSE(wide ? node->FetchBuffer(wideEmpty, buffer) : node->FetchBuffer(empty, buffer));
  }
  EXPECT_EQ(fresh->GetUserFile(), nullptr);  // never opened
}

TEST_F(SettingsValues, FailedFetchLeavesEveryOutputAsItWas) {
  long long n = 11;
  int i = 12;
  unsigned int u = 13;
  unsigned long long ull = 14;
  float f = 15;
  double d = 16;
  bool b = true;
  std::string s = "17";
  std::wstring w = L"18";
  mvtl::MemoryBuffer<unsigned char> buffer;
  buffer.Reset(19, true);
  const std::string missing = "missing";
  EXPECT_FALSE(m_node->FetchInteger(missing, n));
  EXPECT_FALSE(m_node->FetchInt32(missing, i));
  EXPECT_FALSE(m_node->FetchUint32(missing, u));
  EXPECT_FALSE(m_node->FetchInt64(missing, n));
  EXPECT_FALSE(m_node->FetchUint64(missing, ull));
  EXPECT_FALSE(m_node->FetchFloat(missing, f));
  EXPECT_FALSE(m_node->FetchDouble(missing, d));
  EXPECT_FALSE(m_node->FetchBoolean(missing, b));
  EXPECT_FALSE(m_node->FetchUTF8String(missing, s));
  EXPECT_FALSE(m_node->FetchWideString(missing, w));
  EXPECT_FALSE(m_node->FetchBuffer(missing, buffer));
  EXPECT_EQ(n, 11);
  EXPECT_EQ(i, 12);
  EXPECT_EQ(u, 13u);
  EXPECT_EQ(ull, 14u);
  EXPECT_EQ(f, 15.0f);
  EXPECT_EQ(d, 16.0);
  EXPECT_TRUE(b);
  EXPECT_EQ(s, "17");
  EXPECT_EQ(w, L"18");
  EXPECT_EQ(buffer.GetCount(), 19ul);
}

TEST_F(SettingsValues, WrongKindFetchesFail) {
  const unsigned char bytes[] = {1};
  ASSERT_TRUE(m_node->StoreBuffer(std::string("data"), bytes, 1));
  ASSERT_TRUE(m_node->StoreUTF8String(std::string("text"), "x"));
  long long n = 3;
  EXPECT_FALSE(m_node->FetchInteger(std::string("data"), n));
  mvtl::MemoryBuffer<unsigned char> buffer;
  EXPECT_FALSE(m_node->FetchBuffer(std::string("text"), buffer));
  Node child;
  ASSERT_TRUE(m_node->GetChild(std::string("kid"), &child));
  EXPECT_FALSE(m_node->FetchInteger(std::string("kid"), n));  // a child key is no value
  EXPECT_EQ(n, 3);
}

TEST_F(SettingsValues, NameWithSlashIsOneFlatEntry) {
  ASSERT_TRUE(m_node->StoreInteger(std::string("a/b"), 1));
  long long n = 0;
  EXPECT_TRUE(m_node->FetchInteger(std::string("a/b"), n));
  EXPECT_EQ(n, 1);
  std::set<std::string> names;
  ASSERT_TRUE(m_node->GetValueNames(names));
  EXPECT_EQ(names, std::set<std::string>({"a/b"}));
  ASSERT_TRUE(m_node->GetChildNames(names));
  EXPECT_TRUE(names.empty());
}

TEST_F(SettingsValues, InvalidUTF8NameOrValueIsRefused) {
  EXPECT_FALSE(m_node->StoreInteger(std::string("bad\xC3"), 1));
  EXPECT_FALSE(m_node->StoreUTF8String(std::string("good"), std::string("\xED\xA0\x80")));
  EXPECT_FALSE(m_node->StoreUTF8String(std::string("good"), std::string("\xED\x41\x80")));
  EXPECT_FALSE(
      m_node->StoreWideString(std::string("good"), std::wstring(1, static_cast<wchar_t>(0xD800))));
  EXPECT_FALSE(m_node->StoreWideString(std::string("good"),
                                       std::wstring(1, static_cast<wchar_t>(0x110000))));
  long long n = 0;
  EXPECT_FALSE(m_node->FetchInteger(std::string("\xFF"), n));
  std::set<std::string> names;
  ASSERT_TRUE(m_node->GetValueNames(names));
  EXPECT_TRUE(names.empty());
}

TEST_F(SettingsValues, NamesAndValuesEndAtTheirFirstZeroCharacter) {
  ASSERT_TRUE(m_node->StoreUTF8String(std::string("key\0hidden", 10), std::string("val\0ue", 6)));
  std::string value;
  ASSERT_TRUE(m_node->FetchUTF8String(std::string("key"), value));
  EXPECT_EQ(value, "val");
}

TEST_F(SettingsValues, UTF8AndWideStringsAreTheSameEntry) {
  ASSERT_TRUE(
      m_node->StoreWideString(std::wstring(L"w"), std::wstring(L"Gr\u00fc\u00dfe \U0001F30D")));
  std::string utf8;
  ASSERT_TRUE(m_node->FetchUTF8String(std::string("w"), utf8));
  EXPECT_EQ(utf8,
            "Gr\xC3\xBC\xC3\x9F"
            "e \xF0\x9F\x8C\x8D");
  ASSERT_TRUE(m_node->StoreUTF8String(std::wstring(L"u"), std::string("caf\xC3\xA9")));
  std::wstring wide;
  ASSERT_TRUE(m_node->FetchWideString(std::wstring(L"u"), wide));
  EXPECT_EQ(wide, L"caf\u00e9");
}

TEST_F(SettingsValues, FloatAndDoubleKeepTheirValues) {
  ASSERT_TRUE(m_node->StoreFloat(std::string("f"), 0.1f));
  ASSERT_TRUE(m_node->StoreDouble(std::string("d"), 0.1));
  float f = 0;
  double d = 0;
  ASSERT_TRUE(m_node->FetchFloat(std::string("f"), f));
  EXPECT_EQ(f, 0.1f);
  ASSERT_TRUE(m_node->FetchDouble(std::string("f"), d));
  EXPECT_EQ(d, static_cast<double>(0.1f));
  ASSERT_TRUE(m_node->FetchDouble(std::string("d"), d));
  EXPECT_EQ(d, 0.1);
  ASSERT_TRUE(m_node->FetchFloat(std::string("d"), f));
  EXPECT_EQ(f, static_cast<float>(0.1));
}

TEST_F(SettingsValues, RealsReadAsIntegersTruncateAndSaturate) {
  const double max = std::numeric_limits<double>::max();
  struct {
    double real;
    long long expected;
  } cases[] = {{2.7, 2},
               {-2.7, -2},
               {1e300, std::numeric_limits<long long>::max()},
               {-max, std::numeric_limits<long long>::min()},
               {std::nan(""), 0}};
  for (const auto& c : cases) {
    ASSERT_TRUE(m_node->StoreDouble(std::string("r"), c.real));
    long long n = 99;
    ASSERT_TRUE(m_node->FetchInteger(std::string("r"), n));
    EXPECT_EQ(n, c.expected) << c.real;
  }
  ASSERT_TRUE(m_node->StoreDouble(std::string("r"), 0.0));
  bool b = true;
  ASSERT_TRUE(m_node->FetchBoolean(std::string("r"), b));
  EXPECT_FALSE(b);
  ASSERT_TRUE(m_node->StoreDouble(std::string("r"), 0.25));
  ASSERT_TRUE(m_node->FetchBoolean(std::string("r"), b));
  EXPECT_TRUE(b);
}

TEST_F(SettingsValues, BooleansReadAsNumbers) {
  ASSERT_TRUE(m_node->StoreBoolean(std::string("t"), true));
  long long n = 0;
  double d = 0;
  ASSERT_TRUE(m_node->FetchInteger(std::string("t"), n));
  EXPECT_EQ(n, 1);
  ASSERT_TRUE(m_node->FetchDouble(std::string("t"), d));
  EXPECT_EQ(d, 1.0);
}

TEST_F(SettingsValues, TextEntriesFollowFoundationRules) {
  struct {
    const char* text;
    long long integer;
    double real;
    bool boolean;
  } cases[] = {
      {"42", 42, 42.0, true},
      {"  \t-17xyz", -17, -17.0, true},  // sign, then the digit 1
      {"+8", 8, 8.0, true},
      {"abc", 0, 0.0, false},
      {"", 0, 0.0, false},
      {"3.75", 3, 3.75, true},
      {"1.5e3x", 1, 1500.0, true},
      {"1e", 1, 1.0, true},
      {".5", 0, 0.5, false},  // '.' is not a digit 1-9
      {"0x1A", 0, 0.0, false},
      {"inf", 0, 0.0, false},
      {"nan", 0, 0.0, false},
      {"99999999999999999999", std::numeric_limits<long long>::max(), 1e20, true},
      {"-99999999999999999999", std::numeric_limits<long long>::min(), -1e20, true},
      {"YES", 0, 0.0, true},
      {"yes", 0, 0.0, true},
      {"true", 0, 0.0, true},
      {"no", 0, 0.0, false},
      {"  0007", 7, 7.0, true},
      {"-0", 0, -0.0, false},
      {"000", 0, 0.0, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string("text '") + c.text + "'");
    StoreText("t", c.text);
    long long n = 5;
    double d = 5;
    float f = 5;
    bool b = !c.boolean;
    ASSERT_TRUE(m_node->FetchInteger(std::string("t"), n));
    EXPECT_EQ(n, c.integer);
    ASSERT_TRUE(m_node->FetchDouble(std::string("t"), d));
    EXPECT_EQ(d, c.real);
    ASSERT_TRUE(m_node->FetchFloat(std::string("t"), f));
    EXPECT_EQ(f, static_cast<float>(c.real));
    ASSERT_TRUE(m_node->FetchBoolean(std::string("t"), b));
    EXPECT_EQ(b, c.boolean);
  }
}

TEST_F(SettingsValues, FallbackScopeReadsSharedUntilTheProductStores) {
  for (int scope : {2, 5, 8}) {
    SCOPED_TRACE(scope);
    sandbox::RemoveTree(m_userConfig);
    sandbox::WriteFile(UserFile("Q"), Plist(Key("Settings", Dict(Key("Q", Dict(""))))));
    sandbox::WriteFile(SharedFile(),
                       Plist(Key("Settings", Dict(Key("Q", Dict(Key("name", String("from shared")) +
                                                                Key("number", Integer(5))))))));
    {
      Node node = fixtures::Open("Settings/Q", static_cast<mvcs::MORVSETTINGSTYPE>(scope));
      ASSERT_NE(node.Get(), nullptr);
      std::string text;
      ASSERT_TRUE(node->FetchUTF8String(std::string("name"), text));
      EXPECT_EQ(text, "from shared");
      ASSERT_TRUE(node->StoreUTF8String(std::string("name"), "from product"));
      ASSERT_TRUE(node->FetchUTF8String(std::string("name"), text));
      EXPECT_EQ(text, "from product");
      // An entry of an unaccepted kind in the product falls through too.
      ASSERT_TRUE(node->StoreBuffer(std::string("number"), "x", 1));
      long long number = 0;
      ASSERT_TRUE(node->FetchInteger(std::string("number"), number));
      EXPECT_EQ(number, 5);
    }
    Node shared = fixtures::Open("Settings/Q", mvcs::MORVSETTINGSTYPE_SHARED);
    std::string text;
    ASSERT_TRUE(shared->FetchUTF8String(std::string("name"), text));
    EXPECT_EQ(text, "from shared");  // the shared file is unchanged
  }
}

TEST_F(SettingsValues, NonFallbackScopesDoNotReadTheSharedFile) {
  sandbox::WriteFile(SharedFile(),
                     Plist(Key("Settings", Dict(Key("P", Dict(Key("only", Integer(1))))))));
  long long n = 0;
  EXPECT_FALSE(m_node->FetchInteger(std::string("only"), n));  // scope 7
  Node user = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  EXPECT_FALSE(user->FetchInteger(std::string("only"), n));
}

TEST_F(SettingsValues, StoresSurviveSavingAndReloading) {
  const unsigned char bytes[] = {9, 8, 7};
  ASSERT_TRUE(m_node->StoreInteger(std::string("int"), -123456789012LL));
  ASSERT_TRUE(m_node->StoreUint64(std::string("uint64"), 18446744073709551615ULL));
  ASSERT_TRUE(m_node->StoreFloat(std::string("float"), 1.25f));
  ASSERT_TRUE(m_node->StoreDouble(std::string("double"), 1.0 / 3));
  ASSERT_TRUE(m_node->StoreBoolean(std::string("bool"), true));
  ASSERT_TRUE(m_node->StoreUTF8String(std::string("text"), "t\xC3\xA9xt"));
  ASSERT_TRUE(m_node->StoreBuffer(std::string("data"), bytes, 3));
  m_node = static_cast<const IMorvSettings*>(nullptr);
  m_node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
  ASSERT_NE(m_node.Get(), nullptr);
  long long n = 0;
  unsigned long long ull = 0;
  float f = 0;
  double d = 0;
  bool b = false;
  std::string s;
  mvtl::MemoryBuffer<unsigned char> buffer;
  EXPECT_TRUE(m_node->FetchInteger(std::string("int"), n));
  EXPECT_EQ(n, -123456789012LL);
  EXPECT_TRUE(m_node->FetchUint64(std::string("uint64"), ull));
  EXPECT_EQ(ull, 18446744073709551615ULL);
  EXPECT_TRUE(m_node->FetchFloat(std::string("float"), f));
  EXPECT_EQ(f, 1.25f);
  EXPECT_TRUE(m_node->FetchDouble(std::string("double"), d));
  EXPECT_EQ(d, 1.0 / 3);
  EXPECT_TRUE(m_node->FetchBoolean(std::string("bool"), b));
  EXPECT_TRUE(b);
  EXPECT_TRUE(m_node->FetchUTF8String(std::string("text"), s));
  EXPECT_EQ(s, "t\xC3\xA9xt");
  EXPECT_TRUE(m_node->FetchBuffer(std::string("data"), buffer));
  ASSERT_EQ(buffer.GetCount(), 3ul);
  EXPECT_EQ(std::memcmp(buffer.GetData(), bytes, 3), 0);
}

// A node whose narrow integer operations are overridden: the wide names and
// the integer widths must reach them through the interface.
class RecordingNode : public MorvSettings {
 public:
  RecordingNode() : MorvSettings(mvcs::MORVSETTINGSTYPE_NONE, "Recording", nullptr, "") {}
  using MorvSettings::FetchInteger;
  using MorvSettings::StoreInteger;
  bool StoreInteger(std::string const& name, long long value) override {
    stored.push_back(name + "=" + std::to_string(value));
    return true;
  }
  bool FetchInteger(std::string const& name, long long& value) override {
    fetched.push_back(name);
    value = -2;
    return true;
  }
  std::vector<std::string> stored, fetched;
};

TEST_F(SettingsValues, WideNamesAndIntegerWidthsGoThroughTheNarrowOverloads) {
  RecordingNode* recording = new RecordingNode;
  Node node(recording);
  EXPECT_TRUE(node->StoreInteger(std::wstring(L"a"), 1));
  EXPECT_TRUE(node->StoreInt32(std::string("b"), -1));
  EXPECT_TRUE(node->StoreUint32(std::wstring(L"c"), 4294967295u));
  EXPECT_TRUE(node->StoreUint64(std::string("d"), 18446744073709551615ULL));
  EXPECT_EQ(recording->stored, std::vector<std::string>({"a=1", "b=-1", "c=4294967295", "d=-1"}));
  unsigned int u = 0;
  unsigned long long ull = 0;
  EXPECT_TRUE(node->FetchUint32(std::wstring(L"e"), u));
  EXPECT_TRUE(node->FetchUint64(std::string("f"), ull));
  EXPECT_EQ(u, 4294967294u);
  EXPECT_EQ(ull, 18446744073709551614ULL);
  EXPECT_EQ(recording->fetched, std::vector<std::string>({"e", "f"}));
}

TEST_F(SettingsValues, ScopeWithoutFileStoresNothingAndSucceeds) {
  Node none = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_NONE);
  EXPECT_TRUE(none->StoreInteger(std::string("x"), 1));
  long long n = 0;
  EXPECT_FALSE(none->FetchInteger(std::string("x"), n));
}

}  // namespace
