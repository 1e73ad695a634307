// The file format: the in-memory tree to binary property list and back, for
// every kind of entry, and the entries the store never writes.

#include <gtest/gtest.h>

#include <string>

#include "SettingsFixtures.h"
#include "format/PListFormat.h"

namespace {

using fixtures::Key;
using fixtures::Plist;
using mvcs::PListData;
using mvcs::PListDictionary;
using mvcs::PListDictionaryRef;
using mvcs::PListInteger;
using mvcs::PListReal;
using mvcs::PListValue;

typedef mvtl::RefCountedPtr<PListDictionary> Tree;
typedef mvcs::Status::Code Refusal;

Tree RoundTrip(const PListDictionary& tree) {
  std::string bytes;
  EXPECT_TRUE(mvcs::WriteBinaryPropertyList(tree, bytes).ok());
  EXPECT_EQ(bytes.compare(0, 8, "bplist00"), 0);
  Tree parsed;
  EXPECT_TRUE(mvcs::ParsePropertyList(bytes, parsed).ok());
  return parsed;
}

Tree ParseXml(const std::string& entries) {
  Tree tree;
  EXPECT_TRUE(mvcs::ParsePropertyList(Plist(entries), tree).ok());
  return tree;
}

template <class T>
const T& Get(const Tree& tree, const std::string& key) {
  const PListValue* value = tree->Find(key);
  static const T none{};
  if (value == nullptr || std::get_if<T>(value) == nullptr) {
    ADD_FAILURE() << key << " is missing or of another kind";
    return none;
  }
  return *std::get_if<T>(value);
}

TEST(PListFormat, EveryStoredKindRoundTrips) {
  Tree tree(new PListDictionary);
  PListDictionaryRef child;
  child.Assign(new PListDictionary);
  child->Set("inner", std::string("text"));
  tree->Set("child", child);
  tree->Set("int", PListInteger{-5, false});
  tree->Set("max", PListInteger{9223372036854775807LL, false});
  tree->Set("float", PListReal{0.1f});
  tree->Set("double", PListReal{0.1});
  tree->Set("true", true);
  tree->Set("false", false);
  tree->Set("utf8", std::string("Gr\xC3\xBC\xC3\x9F"
                                "e \xF0\x9F\x8C\x8D"));
  tree->Set("empty", std::string());
  tree->Set("data", PListData({0, 1, 2, 255}));
  tree->Set("nodata", PListData());

  const Tree parsed = RoundTrip(*tree);
  ASSERT_NE(parsed.Get(), nullptr);
  EXPECT_EQ(parsed->GetEntries().size(), 11u);
  EXPECT_EQ(Get<PListInteger>(parsed, "int").bits, -5);
  EXPECT_FALSE(Get<PListInteger>(parsed, "int").wide);
  EXPECT_EQ(Get<PListInteger>(parsed, "max").bits, 9223372036854775807LL);
  EXPECT_EQ(Get<PListReal>(parsed, "float").value, static_cast<double>(0.1f));
  EXPECT_EQ(Get<PListReal>(parsed, "double").value, 0.1);
  EXPECT_TRUE(Get<bool>(parsed, "true"));
  EXPECT_FALSE(Get<bool>(parsed, "false"));
  EXPECT_EQ(Get<std::string>(parsed, "utf8"),
            "Gr\xC3\xBC\xC3\x9F"
            "e \xF0\x9F\x8C\x8D");
  EXPECT_EQ(Get<std::string>(parsed, "empty"), "");
  EXPECT_EQ(Get<PListData>(parsed, "data"), PListData({0, 1, 2, 255}));
  EXPECT_TRUE(Get<PListData>(parsed, "nodata").empty());
  const PListDictionary* inner = mvcs::AsDictionary(*parsed->Find("child"));
  ASSERT_NE(inner, nullptr);
  EXPECT_EQ(std::get<std::string>(*inner->Find("inner")), "text");
}

TEST(PListFormat, SixteenByteUnsignedIntegersStayUnsigned) {
  const Tree tree = ParseXml(Key("big", "<integer>18446744073709551615</integer>") +
                             Key("negative", "<integer>-1</integer>") +
                             Key("edge", "<integer>9223372036854775808</integer>"));
  EXPECT_TRUE(Get<PListInteger>(tree, "big").wide);
  EXPECT_EQ(Get<PListInteger>(tree, "big").bits, -1);
  EXPECT_FALSE(Get<PListInteger>(tree, "negative").wide);
  EXPECT_EQ(Get<PListInteger>(tree, "negative").bits, -1);
  EXPECT_TRUE(Get<PListInteger>(tree, "edge").wide);
  const Tree again = RoundTrip(*tree);
  EXPECT_TRUE(Get<PListInteger>(again, "big").wide);
  EXPECT_FALSE(Get<PListInteger>(again, "negative").wide);
  EXPECT_TRUE(Get<PListInteger>(again, "edge").wide);
}

TEST(PListFormat, EntriesTheStoreNeverWritesAreKeptAsRead) {
  const Tree tree =
      ParseXml(Key("array",
                   "<array><integer>1</integer><dict><key>x</key><array><string>y</string>"
                   "</array></dict></array>") +
               Key("date", "<date>2026-11-21T12:34:56Z</date>") + Key("empty", "<array/>"));
  const mvcs::PListArray& array = *Get<mvcs::PListArrayRef>(tree, "array");
  ASSERT_EQ(array.items.size(), 2u);
  EXPECT_EQ(std::get<PListInteger>(array.items[0]).bits, 1);
  const mvcs::PListDictionary* inside = mvcs::AsDictionary(array.items[1]);
  ASSERT_NE(inside, nullptr);
  EXPECT_EQ(std::get<std::string>(std::get<mvcs::PListArrayRef>(*inside->Find("x"))->items.at(0)),
            "y");
  // 2026-11-21T12:34:56Z, in seconds after 2001-01-01T00:00:00Z.
  EXPECT_EQ(Get<mvcs::PListDate>(tree, "date").seconds, 816957296.0);
  EXPECT_TRUE(Get<mvcs::PListArrayRef>(tree, "empty")->items.empty());
  std::string first, second;
  ASSERT_TRUE(mvcs::WriteBinaryPropertyList(*tree, first).ok());
  const Tree again = RoundTrip(*tree);
  ASSERT_TRUE(mvcs::WriteBinaryPropertyList(*again, second).ok());
  EXPECT_EQ(first, second);  // byte for byte: nothing was lost on the way
}

TEST(PListFormat, RootMustBeADictionary) {
  Tree tree;
  EXPECT_EQ(mvcs::ParsePropertyList("<plist><array/></plist>", tree).code(),
            Refusal::kNotADictionary);
  EXPECT_EQ(mvcs::ParsePropertyList("<plist><string>x</string></plist>", tree).code(),
            Refusal::kNotADictionary);
  EXPECT_EQ(mvcs::ParsePropertyList("", tree).code(), Refusal::kNotAPropertyList);
  EXPECT_EQ(tree.Get(), nullptr);
  EXPECT_TRUE(mvcs::ParsePropertyList("<plist><dict/></plist>", tree).ok());
  EXPECT_TRUE(tree->GetEntries().empty());
}

TEST(PListFormat, TextThatCannotBeWrittenBackMakesTheFileUnreadable) {
  Tree tree;
  EXPECT_EQ(mvcs::ParsePropertyList(Plist(Key("k", "<string>\xC3</string>")), tree).code(),
            Refusal::kBadText);
  EXPECT_EQ(mvcs::ParsePropertyList(Plist(Key("\xFF", "<string>v</string>")), tree).code(),
            Refusal::kBadText);
  const mvcs::Status surrogate = mvcs::ParsePropertyList(
      Plist(Key("k", "<array><string>\xED\xA0\x80</string></array>")), tree);
  EXPECT_EQ(surrogate.code(), Refusal::kBadText);
  EXPECT_TRUE(surrogate.IsRefused());
  EXPECT_EQ(surrogate.operation(), mvcs::Status::Operation::kParse);
  EXPECT_EQ(tree.Get(), nullptr);
}

}  // namespace
