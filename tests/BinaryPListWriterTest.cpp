// The binary property-list writer: what it writes (shared strings, the
// smallest sizes, every kind), that it reads back to the same tree over
// thousands of random trees, and that plistlib and libplist read it to the
// same tree. (That its time grows linearly with the number of objects is
// measured in bench/PListFormatBenchmark: Save/Morv/1000, 10000, 100000.)

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <fstream>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "PListListing.h"
#include "RandomPListTrees.h"
#include "SettingsSandbox.h"
#include "format/BinaryPListReader.h"
#include "format/BinaryPListWriter.h"
#include "format/PListFormat.h"
#include "format/PListLimits.h"

namespace {

using mvcs::PListArray;
using mvcs::PListArrayRef;
using mvcs::PListDictionary;
using mvcs::PListDictionaryRef;
typedef mvcs::Status::Code Refusal;
using mvcs::PListValue;

typedef mvtl::RefCountedPtr<PListDictionary> Tree;

Tree NewTree() { return Tree(new PListDictionary); }

PListDictionaryRef NewDictionary() {
  PListDictionaryRef dictionary;
  dictionary.Assign(new PListDictionary);
  return dictionary;
}

std::string Write(const PListDictionary& root) {
  std::string bytes;
  EXPECT_EQ(mvcs::WriteBinaryPList(root, bytes).code(), Refusal::kOk);
  return bytes;
}

Tree Read(const std::string& bytes) {
  Tree tree;
  EXPECT_EQ(mvcs::ReadBinaryPropertyList(reinterpret_cast<const unsigned char*>(bytes.data()),
                                         bytes.size(), tree)
                .code(),
            Refusal::kOk);
  return tree;
}

// The trailer's fields: offset size, reference size, object count.
struct Trailer {
  unsigned offsetSize, referenceSize;
  unsigned long long objects;
};
Trailer TrailerOf(const std::string& bytes) {
  const unsigned char* t = reinterpret_cast<const unsigned char*>(bytes.data()) + bytes.size() - 32;
  unsigned long long objects = 0;
  for (int i = 8; i < 16; ++i) objects = objects << 8 | t[i];
  return {t[6], t[7], objects};
}

// --- What it writes -------------------------------------------------------------

TEST(BinaryPListWriter, EqualStringsAreWrittenOnce) {
  Tree tree = NewTree();
  for (int i = 0; i < 20; ++i) {
    PListDictionaryRef child = NewDictionary();
    child->Set("Enabled", true);
    child->Set("Name", std::string("same value"));
    tree->Set("child" + std::to_string(i), child);
  }
  const std::string bytes = Write(*tree);
  // "Enabled" and "Name" once each, "same value" once.
  std::size_t count = 0;
  for (std::size_t at = bytes.find("Enabled"); at != std::string::npos;
       at = bytes.find("Enabled", at + 1)) {
    ++count;
  }
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(bytes.find("same value"), bytes.rfind("same value"));
  // Objects: root, 20 child keys, 20 children, the 2 keys, the true, the
  // shared string... (booleans are not shared; strings are).
  EXPECT_EQ(TrailerOf(bytes).objects, 1u + 20 + 20 + 2 + 20 + 1);
  EXPECT_TRUE(mvcs::SameTree(*tree, *Read(bytes)));
}

TEST(BinaryPListWriter, SizesAreTheSmallestThatFit) {
  Tree small = NewTree();
  small->Set("a", mvcs::PListInteger{1, false});
  Trailer trailer = TrailerOf(Write(*small));
  EXPECT_EQ(trailer.offsetSize, 1u);
  EXPECT_EQ(trailer.referenceSize, 1u);
  // 256 objects need 2-byte references; a file past 64 KiB 4-byte offsets.
  Tree many = NewTree();
  for (int i = 0; i < 128; ++i) many->Set("k" + std::to_string(i), mvcs::PListInteger{i, false});
  trailer = TrailerOf(Write(*many));
  EXPECT_EQ(trailer.objects, 257u);
  EXPECT_EQ(trailer.referenceSize, 2u);
  many->Remove("k0");
  EXPECT_EQ(TrailerOf(Write(*many)).referenceSize, 1u);  // 255 objects
  Tree big = NewTree();
  big->Set("blob", mvcs::PListData(70000, 7));
  trailer = TrailerOf(Write(*big));
  EXPECT_EQ(trailer.offsetSize, 4u);
}

TEST(BinaryPListWriter, RefusesWhatCouldNotBeReadBack) {
  Tree tree = NewTree();
  tree->Set("bad", std::string("\xC3"));
  std::string bytes = "untouched";
  EXPECT_EQ(mvcs::WriteBinaryPList(*tree, bytes).code(), Refusal::kBadText);
  EXPECT_EQ(bytes, "untouched");
  tree = NewTree();
  tree->Set("k", std::string("\xED\xA0\x80"));  // a surrogate
  EXPECT_EQ(mvcs::WriteBinaryPList(*tree, bytes).code(), Refusal::kBadText);
  tree = NewTree();
  tree->Set(std::string("\xC0\x80", 2), true);  // U+0000 in an overlong form
  EXPECT_EQ(mvcs::WriteBinaryPList(*tree, bytes).code(), Refusal::kBadText);
  // Nested deeper than a settings file may be.
  Tree deep = NewTree();
  PListDictionary* current = deep.Get();
  for (std::size_t depth = 1; depth <= mvcs::kMaxNesting; ++depth) {
    PListDictionaryRef child = NewDictionary();
    current->Set("k", child);
    current = child.Get();
  }
  EXPECT_EQ(mvcs::WriteBinaryPList(*deep, bytes).code(), Refusal::kTooDeep);
  // One long string used very many times: small once shared, but the
  // reader would have to copy it at every use.
  Tree shared = NewTree();
  PListDictionaryRef holder = NewDictionary();
  const std::string text(40000, 'x');
  for (int i = 0; i < 300; ++i) holder->Set("k" + std::to_string(i), text);
  shared->Set("h", holder);
  EXPECT_EQ(mvcs::WriteBinaryPList(*shared, bytes).code(), Refusal::kTooLarge);
}

// U+0000 is text like any other: ASCII text holding it stays an ASCII
// object, other text a UTF-16 one.
TEST(BinaryPListWriter, StringsHoldingZeroKeepTheirForm) {
  Tree tree = NewTree();
  tree->Set(std::string("k\0", 2), std::string("a\0b", 3));
  const std::string ascii = Write(*tree);
  EXPECT_NE(ascii.find(std::string("\x52k\0", 3)), std::string::npos);
  EXPECT_NE(ascii.find(std::string("\x53"
                                   "a\0b",
                                   4)),
            std::string::npos);
  EXPECT_TRUE(mvcs::SameTree(*tree, *Read(ascii)));
  tree = NewTree();
  tree->Set("k", std::string("\xC3\xA9\0", 3));
  const std::string utf16 = Write(*tree);
  EXPECT_NE(utf16.find(std::string("\x62\x00\xE9\x00\x00", 5)), std::string::npos);
  EXPECT_TRUE(mvcs::SameTree(*tree, *Read(utf16)));
}

TEST(BinaryPListWriter, RandomTreesReadBackTheSameAndWriteTheSameBytes) {
  randomtrees::RandomTrees trees(20261123, true, true);
  for (int i = 0; i < 3000; ++i) {
    const Tree tree = trees.Make();
    const std::string bytes = Write(*tree);
    const Tree again = Read(bytes);
    ASSERT_NE(again.Get(), nullptr) << i;
    ASSERT_TRUE(mvcs::SameTree(*tree, *again)) << i;
    ASSERT_EQ(Write(*again), bytes) << i;
  }
}

// Trees whose object counts sit at the reference sizes' limits (255 and
// 256 objects, 65,535 and 65,536), and one whose shared strings bring 80,001
// uses down to 40,001 objects: `n` keys, each holding an integer, or (with
// `shared`) a string equal to its own key.
Tree FlatTree(std::size_t n, bool shared) {
  Tree tree = NewTree();
  for (std::size_t i = 0; i < n; ++i) {
    const std::string key = "key" + std::to_string(i);
    if (shared) {
      tree->Set(key, key);
    } else {
      tree->Set(key, mvcs::PListInteger{static_cast<long long>(i), false});
    }
  }
  return tree;
}

// FNV-1a, 64 bits.
std::uint64_t Digest(std::uint64_t hash, const std::string& bytes) {
  for (unsigned char byte : bytes) hash = (hash ^ byte) * 0x100000001B3ull;
  return hash;
}

// The bytes written for a tree stay what they have always been: random
// trees of every kind, and trees at the reference sizes' limits, hash to
// the digest of the bytes this writer has always written for them, whatever
// earlier bytes the writer is given to size itself.
TEST(BinaryPListWriter, TheBytesForATreeNeverChange) {
  std::uint64_t digest = 0xCBF29CE484222325ull;
  randomtrees::RandomTrees trees(20261125, true, true);
  for (int i = 0; i < 500; ++i) digest = Digest(digest, Write(*trees.Make()));
  const std::size_t sizes[] = {127, 128, 32767, 32768};
  std::vector<Tree> edges;
  for (std::size_t n : sizes) edges.push_back(FlatTree(n, false));
  edges.push_back(FlatTree(40000, true));
  Tree wide = NewTree();
  wide->Set("blob", mvcs::PListData(70000, 7));
  wide->Set("\xC3\xA9t\xC3\xA9", std::string("\xE4\xB8\x96\xF0\x9F\x8C\x8D"));
  wide->Set("same", std::string("\xC3\xA9t\xC3\xA9"));
  edges.push_back(wide);
  std::vector<std::string> written;
  for (const Tree& tree : edges) {
    written.push_back(Write(*tree));
    digest = Digest(digest, written.back());
  }
  // The bytes of an earlier version only size the writer: with those of
  // any other tree (larger, smaller, across the reference sizes' limits)
  // or with bytes of no property list, the bytes are the same.
  for (std::size_t i = 0; i < edges.size(); ++i) {
    for (const std::string& previous : written) {
      std::string again;
      ASSERT_TRUE(mvcs::WriteBinaryPList(*edges[i], again, previous).ok());
      ASSERT_EQ(again, written[i]) << i << " after " << previous.size();
    }
    std::string again;
    ASSERT_TRUE(mvcs::WriteBinaryPList(*edges[i], again, "bplist00 but not one").ok());
    ASSERT_EQ(again, written[i]) << i;
  }
  EXPECT_EQ(TrailerOf(Write(*edges[0])).objects, 255u);
  EXPECT_EQ(TrailerOf(Write(*edges[1])).referenceSize, 2u);
  EXPECT_EQ(TrailerOf(Write(*edges[3])).referenceSize, 4u);
  EXPECT_EQ(TrailerOf(Write(*edges[4])).objects, 40001u);
  EXPECT_EQ(TrailerOf(Write(*edges[4])).referenceSize, 2u);
  EXPECT_EQ(digest, 0xD451A26DDCECC786ull);
}

// Whether a tree holds a UID above 2^32 - 1.
bool HasLongUid(const PListValue& value) {
  if (const PListDictionary* dictionary = mvcs::AsDictionary(value)) {
    for (const auto& entry : dictionary->GetEntries()) {
      if (HasLongUid(entry.second)) return true;
    }
  } else if (const PListArrayRef* array = std::get_if<PListArrayRef>(&value)) {
    for (const PListValue& item : (*array)->items) {
      if (HasLongUid(item)) return true;
    }
  } else if (const mvcs::PListUid* uid = std::get_if<mvcs::PListUid>(&value)) {
    return uid->value > 0xFFFFFFFFu;
  }
  return false;
}
bool HasLongUid(const PListDictionary& root) {
  PListDictionaryRef holder;
  holder.Assign(const_cast<PListDictionary*>(&root));
  return HasLongUid(PListValue(holder));
}

// plistlib (through tests/plist_differential.py) and libplist read what
// the writer writes to the same tree as the store's reader does.
class BinaryPListWriterInterop : public sandbox::SettingsSandbox {};

// Files that plistlib writes with U+0000 in keys and strings (ASCII and
// UTF-16) are read and written back to the very same bytes.
TEST_F(BinaryPListWriterInterop, PlistlibFilesHoldingZeroAreWrittenBackByteForByte) {
  ASSERT_EQ(sandbox::Run("python3 '" MORV_TEST_SOURCE_DIR "/plist_differential.py' zero-samples '" +
                         m_root + "/zero'"),
            0);
  std::size_t files = 0;
  for (const std::string& name : sandbox::List(m_root + "/zero")) {
    const std::string bytes = sandbox::ReadFile(m_root + "/zero/" + name);
    const Tree tree = Read(bytes);
    ASSERT_NE(tree.Get(), nullptr) << name;
    EXPECT_TRUE(mvcs::HoldsZeroText(*tree)) << name;
    EXPECT_EQ(listing::Hex(Write(*tree)), listing::Hex(bytes)) << name;
    ++files;
  }
  EXPECT_EQ(files, 6u);
}

TEST_F(BinaryPListWriterInterop, PlistlibAndLibplistReadTheSameTree) {
  // plistlib has no sets; libplist neither. The last hundred trees hold
  // U+0000 in keys and strings.
  randomtrees::RandomTrees trees(42, false);
  randomtrees::RandomTrees zeroTrees(43, false, true);
  std::vector<Tree> written;
  for (int i = 0; i < 300; ++i) {
    written.push_back(i < 200 ? trees.Make() : zeroTrees.Make());
    sandbox::WriteFile(m_root + "/w" + std::to_string(1000 + i) + ".plist", Write(*written.back()));
  }
  ASSERT_EQ(sandbox::Run("python3 '" MORV_TEST_SOURCE_DIR "/plist_differential.py' dump '" +
                         m_root + "'"),
            0);
  for (int i = 0; i < 300; ++i) {
    const std::string stem = m_root + "/w" + std::to_string(1000 + i);
    ASSERT_FALSE(sandbox::Exists(stem + ".error")) << sandbox::ReadFile(stem + ".error");
    EXPECT_EQ(listing::FirstDifference(sandbox::ReadFile(stem + ".txt"), listing::Of(*written[i])),
              "")
        << i;
    // libplist 2.2 reads UIDs of up to four bytes only, and keeps keys as C
    // strings.
    if (mvcs::HoldsZeroText(*written[i])) continue;
    const std::string ours = listing::Of(*written[i], listing::LibplistOptions());
    const std::string libplist = listing::OfLibplist(sandbox::ReadFile(stem + ".plist"));
    if (libplist.empty() && HasLongUid(*written[i])) continue;
    EXPECT_EQ(listing::FirstDifference(libplist, ours), "") << i;
  }
}

}  // namespace
