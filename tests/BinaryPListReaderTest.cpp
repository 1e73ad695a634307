// The binary property-list reader: every object kind and width it reads,
// and every way it refuses bytes, with the reason it gives.

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "BinaryPListBuilder.h"
#include "format/BinaryPListReader.h"
#include "format/PListFormat.h"
#include "format/PListLimits.h"

namespace {

using bplist::BigEndian;
using bplist::Builder;
using bplist::Marker;
// The reader's verdicts are the codes of its statuses.
typedef mvcs::Status::Code Refusal;

typedef mvtl::RefCountedPtr<mvcs::PListDictionary> Tree;

Refusal Read(const std::string& bytes, Tree& tree) {
  return mvcs::ReadBinaryPropertyList(reinterpret_cast<const unsigned char*>(bytes.data()),
                                      bytes.size(), tree)
      .code();
}

// A file whose root dictionary holds {"k": <object given as bytes>}.
std::string WithValue(const std::string& object) {
  Builder builder;
  builder.Dictionary({1}, {2});
  builder.Ascii("k");
  builder.Add(object);
  return builder.Bytes(0);
}

// The value under "k" of the file WithValue(object), which must read.
mvcs::PListValue ValueOf(const std::string& object) {
  Tree tree;
  EXPECT_EQ(Read(WithValue(object), tree), Refusal::kOk);
  if (tree.Get() == nullptr || tree->Find("k") == nullptr) return mvcs::PListValue();
  return *tree->Find("k");
}

// The reason the file WithValue(object) is refused (kOk if it reads).
Refusal RefusalOf(const std::string& object) {
  Tree tree;
  return Read(WithValue(object), tree);
}

TEST(BinaryPListReader, IntegersOfEveryWidth) {
  auto integer = [](const std::string& object) {
    return std::get<mvcs::PListInteger>(ValueOf(object));
  };
  // 1, 2 and 4 bytes are unsigned.
  EXPECT_EQ(integer("\x10\xFF").bits, 255);
  EXPECT_EQ(integer("\x11" + BigEndian(65535, 2)).bits, 65535);
  EXPECT_EQ(integer("\x12" + BigEndian(4294967295u, 4)).bits, 4294967295LL);
  // 8 bytes are signed.
  EXPECT_EQ(integer("\x13" + BigEndian(~0ull, 8)).bits, -1);
  EXPECT_FALSE(integer("\x13" + BigEndian(~0ull, 8)).wide);
  // 16 bytes: unsigned values up to 2^64 - 1 (kept as such), negative ones.
  const mvcs::PListInteger huge = integer("\x14" + BigEndian(0, 8) + BigEndian(~0ull, 8));
  EXPECT_EQ(huge.bits, -1);
  EXPECT_TRUE(huge.wide);
  const mvcs::PListInteger small = integer("\x14" + BigEndian(0, 8) + BigEndian(5, 8));
  EXPECT_EQ(small.bits, 5);
  EXPECT_FALSE(small.wide);
  const mvcs::PListInteger negative = integer("\x14" + BigEndian(~0ull, 8) + BigEndian(~1ull, 8));
  EXPECT_EQ(negative.bits, -2);
  EXPECT_FALSE(negative.wide);
  // What does not fit 64 bits, and widths that do not exist.
  EXPECT_EQ(RefusalOf("\x14" + BigEndian(1, 8) + BigEndian(0, 8)), Refusal::kNotAPropertyList);
  EXPECT_EQ(RefusalOf("\x14" + BigEndian(~0ull, 8) + BigEndian(1, 8)), Refusal::kNotAPropertyList);
  EXPECT_EQ(RefusalOf("\x15" + std::string(32, '\0')), Refusal::kNotAPropertyList);
}

TEST(BinaryPListReader, RealsDatesBooleansAndUids) {
  float quarter = 0.25f;
  std::uint32_t floatBits;
  std::memcpy(&floatBits, &quarter, 4);
  EXPECT_EQ(std::get<mvcs::PListReal>(ValueOf("\x22" + BigEndian(floatBits, 4))).value, 0.25);
  double third = 1.0 / 3;
  std::uint64_t doubleBits;
  std::memcpy(&doubleBits, &third, 8);
  EXPECT_EQ(std::get<mvcs::PListReal>(ValueOf("\x23" + BigEndian(doubleBits, 8))).value, third);
  EXPECT_EQ(std::get<mvcs::PListDate>(ValueOf("\x33" + BigEndian(doubleBits, 8))).seconds, third);
  EXPECT_EQ(RefusalOf("\x21" + BigEndian(0, 2)), Refusal::kNotAPropertyList);  // no 2-byte reals
  EXPECT_EQ(RefusalOf("\x32" + BigEndian(0, 4)), Refusal::kNotAPropertyList);
  EXPECT_TRUE(std::get<bool>(ValueOf("\x09")));
  EXPECT_FALSE(std::get<bool>(ValueOf("\x08")));
  // Null and fill are not property-list values.
  EXPECT_EQ(RefusalOf(std::string(1, '\0')), Refusal::kNotAPropertyList);
  EXPECT_EQ(RefusalOf("\x0F"), Refusal::kNotAPropertyList);
  // UIDs of 1 to 16 bytes; past 8, only zeros may lead.
  EXPECT_EQ(std::get<mvcs::PListUid>(ValueOf("\x80\x07")).value, 7u);
  EXPECT_EQ(std::get<mvcs::PListUid>(ValueOf("\x83" + BigEndian(70000, 4))).value, 70000u);
  EXPECT_EQ(std::get<mvcs::PListUid>(ValueOf("\x8F" + BigEndian(0, 8) + BigEndian(9, 8))).value,
            9u);
  EXPECT_EQ(RefusalOf("\x8F" + BigEndian(1, 8) + BigEndian(9, 8)), Refusal::kNotAPropertyList);
}

TEST(BinaryPListReader, StringsAndData) {
  EXPECT_EQ(std::get<std::string>(ValueOf(Marker(0x5, 3) + "abc")), "abc");
  const std::string longText(40, 'x');  // the count after the marker
  EXPECT_EQ(std::get<std::string>(ValueOf(Marker(0x5, 40) + longText)), longText);
  // UTF-16, with a pair for U+1F30D.
  EXPECT_EQ(
      std::get<std::string>(ValueOf(Marker(0x6, 3) + std::string("\x00\xE9\xD8\x3C\xDF\x0D", 6))),
      "\xC3\xA9\xF0\x9F\x8C\x8D");
  EXPECT_EQ(std::get<mvcs::PListData>(ValueOf(Marker(0x4, 2) + std::string("\x00\xFF", 2))),
            mvcs::PListData({0x00, 0xFF}));
  EXPECT_TRUE(std::get<mvcs::PListData>(ValueOf(Marker(0x4, 0))).empty());
  // Text that is not well-formed: a byte above 0x7F in ASCII, unpaired
  // surrogates in UTF-16.
  EXPECT_EQ(RefusalOf(Marker(0x5, 2) + "a\x80"), Refusal::kBadText);
  EXPECT_EQ(RefusalOf(Marker(0x6, 1) + std::string("\xD8\x3C", 2)), Refusal::kBadText);
  EXPECT_EQ(RefusalOf(Marker(0x6, 1) + std::string("\xDF\x0D", 2)), Refusal::kBadText);
  EXPECT_EQ(RefusalOf(Marker(0x6, 2) + std::string("\xD8\x3C\x00\x41", 4)), Refusal::kBadText);
  // Counts past the end of the objects.
  EXPECT_EQ(RefusalOf(Marker(0x5, 1000) + "abc"), Refusal::kNotAPropertyList);
  EXPECT_EQ(RefusalOf(Marker(0x4, 1000) + "abc"), Refusal::kNotAPropertyList);
}

// U+0000 is text like any other (plistlib, for one, writes it): in ASCII
// and UTF-16 strings, values and keys alike, kept whole.
TEST(BinaryPListReader, StringsAndKeysHoldingZero) {
  EXPECT_EQ(std::get<std::string>(ValueOf(Marker(0x5, 3) + std::string("a\0b", 3))),
            std::string("a\0b", 3));
  EXPECT_EQ(std::get<std::string>(ValueOf(Marker(0x5, 1) + std::string(1, '\0'))),
            std::string(1, '\0'));
  const std::string sixteen(16, '\0');  // the count after the marker
  EXPECT_EQ(std::get<std::string>(ValueOf(Marker(0x5, 16) + sixteen)), sixteen);
  // UTF-16: U+00E9, U+0000, U+1F30D.
  EXPECT_EQ(std::get<std::string>(
                ValueOf(Marker(0x6, 4) + std::string("\x00\xE9\x00\x00\xD8\x3C\xDF\x0D", 8))),
            std::string("\xC3\xA9\0\xF0\x9F\x8C\x8D", 7));
  EXPECT_EQ(std::get<std::string>(ValueOf(Marker(0x6, 1) + std::string(2, '\0'))),
            std::string(1, '\0'));

  Builder builder;
  builder.Dictionary({1, 2, 3}, {4, 4, 4});
  builder.Ascii(std::string("k\0", 2));
  builder.Add(Marker(0x6, 2) + std::string("\x00\x6B\x00\x00", 4));  // "k\0" as UTF-16
  builder.Ascii("k");
  builder.Integer(7);
  Tree tree;
  ASSERT_EQ(Read(builder.Bytes(0), tree), Refusal::kOk);
  // The ASCII and UTF-16 forms of "k\0" are one key (the last one read
  // wins), and "k" another.
  ASSERT_EQ(tree->GetEntries().size(), 2u);
  EXPECT_NE(tree->Find(std::string("k\0", 2)), nullptr);
  EXPECT_NE(tree->Find("k"), nullptr);
  std::vector<std::string> keys;
  for (const auto& entry : tree->GetEntries()) keys.push_back(entry.first);
  EXPECT_EQ(keys, std::vector<std::string>({"k", std::string("k\0", 2)}));
}

TEST(BinaryPListReader, ArraysSetsAndNesting) {
  Builder builder;
  builder.Dictionary({1, 2}, {3, 4});
  builder.Ascii("array");
  builder.Ascii("set");
  builder.Array({5, 6});
  builder.Add(Marker(0xC, 1) + builder.Reference(5));
  builder.Integer(1);
  builder.Dictionary({1}, {5});
  Tree tree;
  ASSERT_EQ(Read(builder.Bytes(0), tree), Refusal::kOk);
  const mvcs::PListArray& array = *std::get<mvcs::PListArrayRef>(*tree->Find("array"));
  EXPECT_FALSE(array.isSet);
  ASSERT_EQ(array.items.size(), 2u);
  EXPECT_EQ(std::get<mvcs::PListInteger>(array.items[0]).bits, 1);
  ASSERT_NE(mvcs::AsDictionary(array.items[1]), nullptr);
  const mvcs::PListArray& set = *std::get<mvcs::PListArrayRef>(*tree->Find("set"));
  EXPECT_TRUE(set.isSet);
  EXPECT_EQ(set.items.size(), 1u);
}

TEST(BinaryPListReader, KeysInAnyOrderAndRepeatedKeys) {
  Builder builder;
  builder.Dictionary({1, 2, 3, 1}, {4, 5, 6, 7});
  builder.Ascii("b");
  builder.Ascii("a");
  builder.Ascii("c");
  builder.Integer(1);
  builder.Integer(2);
  builder.Integer(3);
  builder.Integer(4);
  Tree tree;
  ASSERT_EQ(Read(builder.Bytes(0), tree), Refusal::kOk);
  std::string keys;
  for (const auto& entry : tree->GetEntries()) keys += entry.first;
  EXPECT_EQ(keys, "abc");                                             // kept in order
  EXPECT_EQ(std::get<mvcs::PListInteger>(*tree->Find("b")).bits, 4);  // the last one wins
}

TEST(BinaryPListReader, RefusalsSayWhy) {
  Tree tree;
  // Not a dictionary at the root.
  Builder arrayRoot;
  arrayRoot.Array({});
  EXPECT_EQ(Read(arrayRoot.Bytes(0), tree), Refusal::kNotADictionary);
  // A key that is not a string.
  Builder integerKey;
  integerKey.Dictionary({1}, {1});
  integerKey.Integer(1);
  EXPECT_EQ(Read(integerKey.Bytes(0), tree), Refusal::kNotAPropertyList);
  // An object inside itself.
  Builder cycle;
  cycle.Dictionary({1}, {2});
  cycle.Ascii("k");
  cycle.Array({2});
  EXPECT_EQ(Read(cycle.Bytes(0), tree), Refusal::kNotAPropertyList);
  // A reference past the objects.
  Builder dangling;
  dangling.Dictionary({1}, {9});
  dangling.Ascii("k");
  EXPECT_EQ(Read(dangling.Bytes(0), tree), Refusal::kNotAPropertyList);
  // Nested deeper than a settings file may be.
  Builder deep;
  deep.Dictionary({1}, {2});
  deep.Ascii("k");
  for (std::size_t i = 2; i <= mvcs::kMaxNesting; ++i) deep.Array({i + 1});
  deep.Array({});
  EXPECT_EQ(Read(deep.Bytes(0), tree), Refusal::kTooDeep);
  // Shared objects that would expand past the budget.
  Builder blowup(4, 4);
  blowup.Dictionary({1}, {2});
  blowup.Ascii("k");
  for (std::uint64_t level = 2; level < 60; ++level) {
    blowup.Array({level + 1, level + 1, level + 1, level + 1});
  }
  blowup.Add(Marker(0x4, 100) + std::string(100, 'x'));
  EXPECT_EQ(Read(blowup.Bytes(0), tree), Refusal::kTooLarge);
  // Trailers that do not fit the file.
  Builder good;
  good.Dictionary({}, {});
  const std::string bytes = good.Bytes(0);
  for (std::size_t cut = 0; cut < bytes.size(); ++cut) {
    EXPECT_EQ(Read(bytes.substr(0, cut), tree), Refusal::kNotAPropertyList) << cut;
  }
  Builder::Trailer trailer;
  trailer.offsetSize = 0;
  EXPECT_EQ(Read(good.Bytes(0, trailer), tree), Refusal::kNotAPropertyList);
  trailer = Builder::Trailer();
  trailer.referenceSize = 9;
  EXPECT_EQ(Read(good.Bytes(0, trailer), tree), Refusal::kNotAPropertyList);
  trailer = Builder::Trailer();
  trailer.objectCount = 1 << 30;
  EXPECT_EQ(Read(good.Bytes(0, trailer), tree), Refusal::kNotAPropertyList);
  trailer = Builder::Trailer();
  trailer.topObject = 1;
  EXPECT_EQ(Read(good.Bytes(0, trailer), tree), Refusal::kNotAPropertyList);
  EXPECT_EQ(tree.Get(), nullptr);  // nothing was handed out
  EXPECT_EQ(Read(bytes, tree), Refusal::kOk);
  ASSERT_NE(tree.Get(), nullptr);
}

TEST(BinaryPListReader, ReasonsAreDescribed) {
  for (Refusal error : {Refusal::kNotAPropertyList, Refusal::kNotADictionary, Refusal::kTooDeep,
                        Refusal::kTooLarge, Refusal::kBadText}) {
    EXPECT_GT(std::strlen(mvcs::Status::Describe(error)), 5u);
  }
  EXPECT_STREQ(mvcs::Status::Describe(Refusal::kTooDeep), "nested too deep");
  // Through the format's interface: the size limit, and the reason in words.
  Tree tree;
  const mvcs::Status tooLarge =
      mvcs::ParsePropertyList(std::string(mvcs::kMaxSettingsFileSize + 1, ' '), tree);
  EXPECT_EQ(tooLarge.code(), Refusal::kTooLarge);
  EXPECT_TRUE(tooLarge.IsRefused());
  EXPECT_EQ(tooLarge.operation(), mvcs::Status::Operation::kParse);
  const mvcs::Status neither = mvcs::ParsePropertyList("neither binary nor XML", tree);
  EXPECT_EQ(neither.code(), Refusal::kNotAPropertyList);
  EXPECT_EQ(neither.ToString(), "not a property list (or a damaged one)");
  EXPECT_EQ(neither.WithPath("/f.plist").ToString(),
            "cannot read /f.plist: not a property list (or a damaged one)");
  // Text refused in a UTF-16 string is not called UTF-8.
  const mvcs::Status surrogate =
      mvcs::ParsePropertyList(WithValue(Marker(0x6, 1) + std::string("\xDC\x00", 2)), tree);
  EXPECT_EQ(surrogate.code(), Refusal::kBadText);
  EXPECT_EQ(surrogate.WithPath("/f.plist").ToString(),
            "cannot read /f.plist: holding a key or string that is not well-formed text");
  EXPECT_EQ(tree.Get(), nullptr);
}

}  // namespace
