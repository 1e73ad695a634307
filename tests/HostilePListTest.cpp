// Hostile settings files: truncated, garbage, non-dictionary roots, cycles,
// shared-reference blow-ups, absurd counts and offsets, deep nesting, and
// XML made against readers that count tags in the raw text, expand entities
// or fetch what a document names. Each must make the open fail exactly as
// an unreadable file does: no crash, no hang, memory bounded by a small
// multiple of the file's size, the file untouched (and kept aside when a
// save replaces it). Files just inside the limits must still load.

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <random>
#include <string>
#include <vector>

#include "BinaryPListBuilder.h"
#include "MorvSettingsNode.h"
#include "SettingsFixtures.h"
#include "SettingsSandbox.h"
#include "format/PListFormat.h"
#include "format/PListLimits.h"

#if defined(__SANITIZE_ADDRESS__)
#define MORV_UNDER_ASAN 1
#else
#define MORV_UNDER_ASAN 0
#endif
// Set by the build when the tests run under an emulator (a cross build).
#if defined(MORV_TESTS_UNDER_EMULATOR)
#define MORV_UNDER_EMULATOR 1
#else
#define MORV_UNDER_EMULATOR 0
#endif

namespace {

using fixtures::Node;

const std::string kCorpus = MORV_TEST_SOURCE_DIR "/data/hostile";

std::vector<std::string> CorpusFiles() {
  std::vector<std::string> names;
  for (const std::string& name : sandbox::List(kCorpus)) {
    if (name.size() > 6 && name.compare(name.size() - 6, 6, ".plist") == 0) names.push_back(name);
  }
  return names;
}

// Builders of hostile files that are best made in code (too large to keep,
// or parameterised).
// `levels` arrays, each holding the next one `width` times: width^levels
// nodes once every shared reference is expanded.
std::string SharedReferenceBlowup(int levels, int width) {
  bplist::Builder builder(2, 2);
  const std::size_t top = builder.Dictionary({1}, {2});
  builder.Ascii("k");
  for (int i = 0; i < levels; ++i) {
    const std::uint64_t next = i + 1 < levels ? static_cast<std::uint64_t>(3 + i) : 1;
    builder.Array(std::vector<std::uint64_t>(width, next));
  }
  return builder.Bytes(top);
}

std::string NestedArrays(std::size_t depth) {
  bplist::Builder builder(4, 4);
  const std::size_t top = builder.Dictionary({1}, {2});
  builder.Ascii("k");
  for (std::size_t i = 0; i < depth; ++i) {
    builder.Array(i + 1 < depth ? std::vector<std::uint64_t>{3 + i} : std::vector<std::uint64_t>{});
  }
  return builder.Bytes(top);
}

// Nested dictionaries: `depth` containers including the root.
std::string NestedDictionariesXml(std::size_t depth) {
  std::string body;  // depth - 1 levels below the root: the last one empty
  for (std::size_t i = 2; i < depth; ++i) body += "<dict><key>k</key>";
  body += "<dict/>";
  for (std::size_t i = 2; i < depth; ++i) body += "</dict>";
  return "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>k</key>" + body +
         "</dict></plist>";
}

std::string NestedDictionariesBinary(std::size_t depth) {
  bplist::Builder builder(4, 4);
  const std::size_t key = builder.Ascii("k");
  // Dictionary i (object key + 1 + i) holds dictionary i+1 under "k".
  for (std::size_t i = 0; i < depth; ++i) {
    if (i + 1 < depth) {
      builder.Dictionary({key}, {key + 2 + i});
    } else {
      builder.Dictionary({}, {});
    }
  }
  return builder.Bytes(key + 1);
}

// A valid file written by the store, with a little of everything.
std::string ValidStoreFile() {
  mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
  const std::string xml = fixtures::Plist(fixtures::Key(
      "Settings",
      fixtures::Dict(fixtures::Key(
          "P",
          fixtures::Dict(fixtures::Key("i", fixtures::Integer(-5)) +
                         fixtures::Key("s", fixtures::String("text")) +
                         fixtures::Key("r", "<real>2.5</real>") + fixtures::Key("b", "<true/>") +
                         fixtures::Key("d", "<data>AAEC</data>") +
                         fixtures::Key("a",
                                       "<array><integer>1</integer><dict><key>x</key><string>y</"
                                       "string></dict></array>") +
                         fixtures::Key("t", "<date>2026-11-21T12:00:00Z</date>"))))));
  if (!mvcs::ParsePropertyList(xml, tree).ok()) return std::string();
  std::string bytes;
  mvcs::WriteBinaryPropertyList(*tree, bytes);
  return bytes;
}

class HostilePList : public sandbox::SettingsSandbox {
 protected:
  // Puts `bytes` in the product's per-user file and checks that opening it
  // behaves as for an unreadable file, touches nothing, and is quick.
  void ExpectRefusedLikeUnreadable(const std::string& bytes, const std::string& what) {
    SCOPED_TRACE(what);
    const std::string path = UserFile("P");
    sandbox::WriteFile(path, bytes);
    struct stat before;
    ASSERT_EQ(stat(path.c_str(), &before), 0);

    const auto start = std::chrono::steady_clock::now();
    mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
    EXPECT_FALSE(mvcs::ParsePropertyList(bytes, tree).ok());
    EXPECT_EQ(tree.Get(), nullptr);
    EXPECT_EQ(fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER).Get(), nullptr);
    {
      // Opening with create starts from an empty dictionary, as for a file
      // that cannot be read.
      Node created = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
      ASSERT_NE(created.Get(), nullptr);
      unsigned long count = 9;
      EXPECT_TRUE(created->GetValueCount(count));
      EXPECT_EQ(count, 0ul);
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 5.0);

    struct stat after;
    ASSERT_EQ(stat(path.c_str(), &after), 0);
    EXPECT_EQ(sandbox::ReadFile(path), bytes);
    EXPECT_EQ(after.st_mtim.tv_sec, before.st_mtim.tv_sec);
    EXPECT_EQ(after.st_mtim.tv_nsec, before.st_mtim.tv_nsec);
    // Nothing was saved: not even a lock file was made.
    EXPECT_EQ(sandbox::List(UserFolder()), std::set<std::string>({"com.morv.P.plist"}));
  }

  // Puts `bytes` in the product's per-user file and saves a value there:
  // the save must keep the refused file aside, byte for byte, and the new
  // file must hold the value.
  void ExpectKeptAsideOnSave(const std::string& bytes, const std::string& what) {
    SCOPED_TRACE(what);
    sandbox::RemoveTree(UserFolder());
    sandbox::WriteFile(UserFile("P"), bytes);
    {
      Node node = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER_CREATE);
      ASSERT_NE(node.Get(), nullptr);
      EXPECT_TRUE(node->StoreInteger(std::string("fresh"), 1));
    }
    std::string aside;
    for (const std::string& name : sandbox::List(UserFolder())) {
      if (name.rfind("com.morv.P.plist.unreadable-", 0) == 0) aside = name;
    }
    ASSERT_FALSE(aside.empty()) << "the refused file was not kept";
    EXPECT_TRUE(sandbox::ReadFile(UserFolder() + "/" + aside) == bytes);
    Node reread = fixtures::Open("Settings/P", mvcs::MORVSETTINGSTYPE_USER);
    ASSERT_NE(reread.Get(), nullptr);
    long long fresh = 0;
    EXPECT_TRUE(reread->FetchInteger(std::string("fresh"), fresh));
    EXPECT_EQ(fresh, 1);
    sandbox::RemoveTree(UserFolder());
  }

  // Both: the open refuses the file as unreadable, a save keeps it aside.
  void ExpectHandledAsUnreadable(const std::string& bytes, const std::string& what) {
    sandbox::RemoveTree(UserFolder());
    ExpectRefusedLikeUnreadable(bytes, what);
    ExpectKeptAsideOnSave(bytes, what);
  }
};

// How much the resident set grows (in bytes) while a child process parses
// `bytes`. (Not meaningful under AddressSanitizer, whose shadow memory and
// quarantine dominate.)
long ParseMemoryGrowth(const std::string& bytes) {
  const pid_t child = fork();
  if (child == 0) {
    long pages = 0, resident = 0;
    FILE* statm = fopen("/proc/self/statm", "r");
    if (statm == nullptr || fscanf(statm, "%ld %ld", &pages, &resident) != 2) _exit(255);
    fclose(statm);
    const long before = resident * sysconf(_SC_PAGESIZE) / 1024;
    mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
    mvcs::ParsePropertyList(bytes, tree);
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    const long growthMiB = (usage.ru_maxrss - before) / 1024;
    _exit(growthMiB > 250 ? 250 : static_cast<int>(growthMiB < 0 ? 0 : growthMiB));
  }
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? static_cast<long> WEXITSTATUS(status) << 20 : -1;
}

TEST_F(HostilePList, CorpusIsRefusedLikeUnreadableFiles) {
  const std::vector<std::string> files = CorpusFiles();
  ASSERT_GE(files.size(), 15u);
  for (const std::string& name : files) {
    ExpectRefusedLikeUnreadable(sandbox::ReadFile(kCorpus + "/" + name), name);
  }
}

TEST_F(HostilePList, SharedReferenceBlowupsAreRefused) {
  ExpectRefusedLikeUnreadable(SharedReferenceBlowup(64, 2), "2^64 nodes from 64 levels");
  ExpectRefusedLikeUnreadable(SharedReferenceBlowup(12, 16), "16^12 nodes from 12 levels");
  ExpectRefusedLikeUnreadable(SharedReferenceBlowup(3, 3000), "3000^3 nodes from 3 levels");
}

TEST_F(HostilePList, DeepNestingIsRefused) {
  ExpectRefusedLikeUnreadable(NestedArrays(100000), "100000 nested arrays");
  ExpectRefusedLikeUnreadable(NestedDictionariesBinary(mvcs::kMaxNesting + 1),
                              "binary dictionaries one level too deep");
  ExpectRefusedLikeUnreadable(NestedDictionariesXml(mvcs::kMaxNesting + 1),
                              "XML dictionaries one level too deep");
  std::string deepXml = "<?xml version=\"1.0\"?><plist version=\"1.0\">";
  for (int i = 0; i < 200000; ++i) deepXml += "<array>";
  ExpectRefusedLikeUnreadable(deepXml, "200000 unclosed XML arrays");
}

TEST_F(HostilePList, NestingAtTheLimitLoads) {
  for (const std::string& bytes :
       {NestedDictionariesBinary(mvcs::kMaxNesting), NestedDictionariesXml(mvcs::kMaxNesting)}) {
    mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
    EXPECT_TRUE(mvcs::ParsePropertyList(bytes, tree).ok());
  }
}

TEST_F(HostilePList, AbsurdCountsOffsetsAndSizesAreRefused) {
  bplist::Builder builder;
  const std::size_t top = builder.Dictionary({1}, {2});
  builder.Ascii("k");
  builder.Ascii("v");
  const std::string good = builder.Bytes(top);
  mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
  ASSERT_TRUE(mvcs::ParsePropertyList(good, tree).ok());  // the unmodified file loads

  struct {
    const char* what;
    std::int64_t objectCount, topObject, tableOffset;
    int offsetSize, referenceSize;
  } cases[] = {
      {"object count 2^62", 1ll << 62, -1, -1, -1, -1},
      {"object count 0", 0, -1, -1, -1, -1},
      {"more objects than the table holds", 4, -1, -1, -1, -1},
      {"top object past the count", -1, 3, -1, -1, -1},
      {"offset table past the end", -1, -1, 1ll << 40, -1, -1},
      {"offset table inside the header", -1, -1, 3, -1, -1},
      {"offset size 0", -1, -1, -1, 0, -1},
      {"offset size 9", -1, -1, -1, 9, -1},
      {"reference size 0", -1, -1, -1, -1, 0},
      {"reference size 9", -1, -1, -1, -1, 9},
  };
  for (const auto& c : cases) {
    bplist::Builder::Trailer t;
    t.objectCount = c.objectCount;
    t.topObject = c.topObject;
    t.tableOffset = c.tableOffset;
    t.offsetSize = c.offsetSize;
    t.referenceSize = c.referenceSize;
    ExpectRefusedLikeUnreadable(builder.Bytes(top, t), c.what);
  }

  // Objects whose counts run past the file.
  for (unsigned type : {0x4u, 0x5u, 0x6u, 0xAu, 0xDu}) {
    bplist::Builder absurd;
    const std::size_t root = absurd.Dictionary({1}, {2});
    absurd.Ascii("k");
    absurd.Add(bplist::Marker(type, 0x7FFFFFFFFFFFFFFFull) + "\x01\x01\x01");
    ExpectRefusedLikeUnreadable(absurd.Bytes(root), "count 2^63-1 of type " + std::to_string(type));
  }
  // A reference to an object that does not exist, and a key that is no string.
  bplist::Builder dangling;
  dangling.Dictionary({1}, {9});
  dangling.Ascii("k");
  ExpectRefusedLikeUnreadable(dangling.Bytes(0), "reference past the objects");
  bplist::Builder integerKey;
  integerKey.Dictionary({1}, {1});
  integerKey.Integer(3);
  ExpectRefusedLikeUnreadable(integerKey.Bytes(0), "integer key");
}

// U+0000 is text in a binary file (ASCII and UTF-16 strings, keys and
// values): such files read, every string whole. XML has no form of U+0000:
// a NUL byte there makes the file unreadable.
TEST_F(HostilePList, ZeroInBinaryTextIsKeptAndInXmlRefused) {
  bplist::Builder builder;
  builder.Dictionary({1, 2}, {3, 4});
  builder.Ascii(std::string("a\0b", 3));
  builder.Add(bplist::Marker(0x6, 2) + std::string("\0k\0\0", 4));  // "k\0" in UTF-16
  builder.Add(bplist::Marker(0x6, 2) + std::string("\0A\0\0", 4));  // "A\0" in UTF-16
  builder.Array({5});
  builder.Ascii(std::string("x\0", 2));
  mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
  ASSERT_TRUE(mvcs::ParsePropertyList(builder.Bytes(0), tree).ok());
  const mvcs::PListValue* value = tree->Find(std::string("a\0b", 3));
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(std::get<std::string>(*value), std::string("A\0", 2));
  value = tree->Find(std::string("k\0", 2));
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(std::get<std::string>(std::get<mvcs::PListArrayRef>(*value)->items.at(0)),
            std::string("x\0", 2));

  ExpectRefusedLikeUnreadable(
      fixtures::Plist(
          fixtures::Key("k", "<array><string>a" + std::string(1, '\0') + "b</string></array>")),
      "NUL byte in an XML string inside an array");
  ExpectRefusedLikeUnreadable(
      fixtures::Plist(fixtures::Key("a" + std::string(1, '\0') + "b", fixtures::String("v"))),
      "NUL byte in an XML key");
}

TEST_F(HostilePList, EveryTruncationOfAValidFileIsRefused) {
  const std::string whole = ValidStoreFile();
  ASSERT_GT(whole.size(), 100u);
  mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
  ASSERT_TRUE(mvcs::ParsePropertyList(whole, tree).ok());
  for (std::size_t length = 0; length < whole.size(); ++length) {
    mvtl::RefCountedPtr<mvcs::PListDictionary> cut;
    EXPECT_FALSE(mvcs::ParsePropertyList(whole.substr(0, length), cut).ok()) << length;
  }
  ExpectRefusedLikeUnreadable(whole.substr(0, whole.size() / 2), "half of a valid file");
}

TEST_F(HostilePList, GarbageIsRefused) {
  std::mt19937 random(7);
  for (std::size_t size : {0u, 1u, 7u, 8u, 40u, 41u, 100u, 4096u, 65536u}) {
    std::string noise(size, '\0');
    for (char& c : noise) c = static_cast<char>(random());
    ExpectRefusedLikeUnreadable(noise, "random bytes: " + std::to_string(size));
    if (size >= 8) {
      noise.replace(0, 8, "bplist00");
      ExpectRefusedLikeUnreadable(noise, "magic then random bytes: " + std::to_string(size));
    }
  }
  ExpectRefusedLikeUnreadable(std::string(1000, '\0'), "zeros");
  ExpectRefusedLikeUnreadable(std::string(1000, '\xFF'), "0xFF bytes");
  ExpectRefusedLikeUnreadable("<?xml version=\"1.0\"?><plist><dict><key>", "unclosed XML");
}

// Random damage to valid files (binary and XML) must never crash, hang or
// leak; the parser either refuses the bytes or yields a dictionary.
TEST_F(HostilePList, MutatedValidFilesNeverCrash) {
  const std::string binary = ValidStoreFile();
  const std::string xml = fixtures::Plist(fixtures::Key(
      "a",
      fixtures::Dict(fixtures::Key("b", "<array><integer>1</integer><real>1.5</real></array>") +
                     fixtures::Key("c", fixtures::String("d")) +
                     fixtures::Key("e", "<data>AAEC</data>"))));
  std::mt19937 random(11);
  int accepted = 0, refused = 0;
  for (const std::string& original : {binary, xml}) {
    ASSERT_FALSE(original.empty());
    for (int round = 0; round < 20000; ++round) {
      std::string mutated = original;
      const int changes = 1 + static_cast<int>(random() % 6);
      for (int i = 0; i < changes; ++i) {
        const std::size_t at = random() % mutated.size();
        switch (random() % 4) {
          case 0:
            mutated[at] = static_cast<char>(random());
            break;
          case 1:
            mutated[at] ^= static_cast<char>(1 << (random() % 8));
            break;
          case 2:
            mutated.erase(at, 1 + random() % 4);
            break;
          default:
            mutated.insert(at, 1, static_cast<char>(random()));
            break;
        }
        if (mutated.empty()) mutated = "x";
      }
      mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
      if (mvcs::ParsePropertyList(mutated, tree).ok()) {
        ++accepted;
        std::string again;
        EXPECT_TRUE(mvcs::WriteBinaryPropertyList(*tree, again).ok());
      } else {
        ++refused;
      }
    }
  }
  EXPECT_GT(refused, 0);
  EXPECT_GT(accepted, 0);
}

TEST_F(HostilePList, ParsingMemoryStaysProportionalToTheFile) {
  if (MORV_UNDER_ASAN) GTEST_SKIP() << "resident memory is not measurable under AddressSanitizer";
  const std::string blowup = SharedReferenceBlowup(64, 2);
  const std::string nested = NestedArrays(100000);
  EXPECT_LE(ParseMemoryGrowth(blowup), 16l << 20);
  EXPECT_LE(ParseMemoryGrowth(nested), 16l << 20);
  for (const std::string& name : CorpusFiles()) {
    EXPECT_LE(ParseMemoryGrowth(sandbox::ReadFile(kCorpus + "/" + name)), 16l << 20) << name;
  }
}

// Legitimate sharing (one string used as the value of many entries, as
// writers that unique their objects produce) stays well inside the budget.
TEST_F(HostilePList, SharedLeafObjectsWithinBudgetLoad) {
  bplist::Builder builder(2, 4);
  const std::size_t value = builder.Ascii(std::string(200, 'v'));
  std::vector<std::uint64_t> keys, values;
  for (int i = 0; i < 2000; ++i) {
    keys.push_back(builder.Ascii("key" + std::to_string(i)));
    values.push_back(value);
  }
  const std::size_t top = builder.Dictionary(keys, values);
  mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
  ASSERT_TRUE(mvcs::ParsePropertyList(builder.Bytes(top), tree).ok());
  EXPECT_EQ(tree->GetEntries().size(), 2000u);
}

// --- XML against tag counting, entity expansion and fetching -------------------

const char kXmlHead[] = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">";

// Seconds that `parse` takes, and its result in `status`.
template <typename Parse>
double Timed(Parse parse, mvcs::Status& status) {
  const auto start = std::chrono::steady_clock::now();
  status = parse();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

mvcs::Status Parse(const std::string& bytes) {
  mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
  return mvcs::ParsePropertyList(bytes, tree);
}

// `levels` dictionaries, each inside the one before, each followed by
// `hidden` (a comment or CDATA section around "</dict>", which closes
// nothing); the real closing tags follow only when `close`.
std::string HiddenClosers(std::size_t levels, const std::string& hidden, bool close) {
  std::string text = std::string(kXmlHead) + "<dict>";
  const std::string level = "<key>k</key><dict>" + hidden;
  text.reserve(text.size() + levels * (level.size() + 7) + 20);
  for (std::size_t i = 0; i < levels; ++i) text += level;
  for (std::size_t i = 0; close && i < levels; ++i) text += "</dict>";
  return text + "</dict></plist>";
}

// An XML property list of exactly `size` bytes: one long string.
std::string XmlOfSize(std::size_t size) {
  const std::string head = std::string(kXmlHead) + "<dict><key>k</key><string>";
  const std::string tail = "</string></dict></plist>";
  return head + std::string(size - head.size() - tail.size(), 'x') + tail;
}

// The string under `key` in `tree`, or "(none)".
std::string StringAt(const mvcs::PListDictionary& tree, const std::string& key) {
  const auto* entry = tree.GetEntries().Find(key.data(), key.size());
  const std::string* text = entry != nullptr ? std::get_if<std::string>(&entry->second) : nullptr;
  return text != nullptr ? *text : "(none)";
}

TEST_F(HostilePList, XmlNestingHiddenFromTagCountsIsRefused) {
  const struct {
    const char* what;
    std::string bytes;
  } cases[] = {
      {"400000 dictionaries closed only inside comments",
       HiddenClosers(400000, "<!--</dict>-->", false)},
      {"400000 dictionaries with closers inside CDATA, then closed",
       HiddenClosers(400000, "<![CDATA[</dict>]]>", true)},
      {"400000 dictionaries with closers inside processing instructions, then closed",
       HiddenClosers(400000, "<?pi </dict>?>", true)},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    mvcs::Status status;
    const double seconds = Timed([&] { return Parse(c.bytes); }, status);
    EXPECT_TRUE(status.code() == mvcs::Status::Code::kTooDeep ||
                status.code() == mvcs::Status::Code::kNotAPropertyList)
        << status.ToString();
    EXPECT_LT(seconds, 3.0);
    ExpectHandledAsUnreadable(c.bytes, c.what);
  }
}

TEST_F(HostilePList, XmlTagsInsideCommentsAndCdataCountForNothing) {
  std::string tags;
  for (int i = 0; i < 5000; ++i) tags += "<dict><array>";
  const std::string bytes = fixtures::Plist(
      "<!--" + tags + "-->" + fixtures::Key("c", "<string><![CDATA[" + tags + "]]></string>") +
      "<?pi " + tags + "?>" + fixtures::Key("n", fixtures::Integer(7)) +
      fixtures::Key("e", fixtures::String("&lt;dict&gt;<!--" + tags + "-->")) + "<!--" + tags +
      "-->");
  mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
  const mvcs::Status status = mvcs::ParsePropertyList(bytes, tree);
  ASSERT_TRUE(status.ok()) << status.ToString();
  EXPECT_EQ(tree->GetEntries().size(), 3u);
  EXPECT_TRUE(StringAt(*tree, "c") == tags);
  EXPECT_EQ(StringAt(*tree, "e"), "<dict>");
  const auto* n = tree->GetEntries().Find("n", 1);
  ASSERT_NE(n, nullptr);
  const auto* integer = std::get_if<mvcs::PListInteger>(&n->second);
  ASSERT_NE(integer, nullptr);
  EXPECT_EQ(integer->bits, 7);
}

TEST_F(HostilePList, XmlEntityDeclarationsAreRefused) {
  // Ten levels of ten references each: 10^10 copies of "lol" if expanded.
  std::string laughs = "<!ENTITY l0 \"lol\">";
  for (int level = 1; level <= 10; ++level) {
    std::string refs;
    for (int i = 0; i < 10; ++i) refs += "&l" + std::to_string(level - 1) + ";";
    laughs += "<!ENTITY l" + std::to_string(level) + " \"" + refs + "\">";
  }
  // One 100 KB entity referenced 50000 times: 5 GB from 250 KB.
  std::string quadratic;
  for (int i = 0; i < 50000; ++i) quadratic += "&a;";
  const std::string plist = "<plist version=\"1.0\"><dict><key>k</key><string>";
  const struct {
    const char* what;
    std::string bytes;
  } cases[] = {
      {"billion laughs", "<?xml version=\"1.0\"?><!DOCTYPE plist [" + laughs + "]>" + plist +
                             "&l10;</string></dict></plist>"},
      {"billion laughs in a key",
       "<?xml version=\"1.0\"?><!DOCTYPE plist [" + laughs +
           "]><plist version=\"1.0\"><dict><key>&l10;</key><true/></dict></plist>"},
      {"quadratic blow-up", "<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY a \"" +
                                std::string(100000, 'a') + "\">]>" + plist + quadratic +
                                "</string></dict></plist>"},
      {"an entity declared and never used",
       "<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY x \"y\">]>" + plist +
           "z</string></dict></plist>"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    mvcs::Status status;
    const double seconds = Timed([&] { return Parse(c.bytes); }, status);
    EXPECT_EQ(status.code(), mvcs::Status::Code::kNotAPropertyList) << status.ToString();
    EXPECT_LT(seconds, 2.0);
    ExpectHandledAsUnreadable(c.bytes, c.what);
  }
}

TEST_F(HostilePList, XmlExternalEntitiesAreNeverFetched) {
  const std::string secret = m_root + "/secret.xml";
  sandbox::WriteFile(secret, "<string>secret</string>");
  const std::string dtd = m_root + "/entities.dtd";
  sandbox::WriteFile(dtd, "<!ENTITY x \"secret\">");
  const std::string value = "<plist version=\"1.0\"><dict><key>k</key>";
  const struct {
    const char* what;
    std::string bytes;
  } cases[] = {
      {"an external entity naming /etc/passwd",
       "<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY x SYSTEM \"file:///etc/passwd\">]>" +
           value + "<string>&x;</string></dict></plist>"},
      {"an external entity naming a property-list fragment",
       "<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY x SYSTEM \"file://" + secret + "\">]>" +
           value + "&x;</dict></plist>"},
      {"an external parameter entity",
       "<?xml version=\"1.0\"?><!DOCTYPE plist [<!ENTITY % p SYSTEM \"file://" + dtd + "\">%p;]>" +
           value + "<string>&x;</string></dict></plist>"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
    const mvcs::Status status = mvcs::ParsePropertyList(c.bytes, tree);
    EXPECT_EQ(status.code(), mvcs::Status::Code::kNotAPropertyList) << status.ToString();
    EXPECT_EQ(tree.Get(), nullptr);
    ExpectHandledAsUnreadable(c.bytes, c.what);
  }
  // A document type whose external subset declares the entity: the subset
  // is never read, so the reference stays undefined, and (the document not
  // being standalone) is skipped, as plistlib reads it.
  const std::string external = "<?xml version=\"1.0\"?><!DOCTYPE plist SYSTEM \"file://" + dtd +
                               "\">" + value + "<string>a&x;b</string></dict></plist>";
  mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
  const mvcs::Status status = mvcs::ParsePropertyList(external, tree);
  ASSERT_TRUE(status.ok()) << status.ToString();
  EXPECT_EQ(StringAt(*tree, "k"), "ab");
}

TEST_F(HostilePList, XmlOverTheSizeLimitIsRefused) {
  const std::string bytes = XmlOfSize(mvcs::kMaxSettingsFileSize + 1);
  EXPECT_EQ(Parse(bytes).code(), mvcs::Status::Code::kTooLarge);
  ExpectHandledAsUnreadable(bytes, "XML of 64 MiB and one byte");
}

TEST_F(HostilePList, XmlAtTheSizeLimitLoads) {
  const std::string bytes = XmlOfSize(mvcs::kMaxSettingsFileSize);
  mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
  mvcs::Status status;
  const double seconds = Timed([&] { return mvcs::ParsePropertyList(bytes, tree); }, status);
  ASSERT_TRUE(status.ok()) << status.ToString();
  const std::string text = StringAt(*tree, "k");
  EXPECT_EQ(text.size(),
            bytes.size() - (sizeof kXmlHead - 1) -
                std::string("<dict><key>k</key><string></string></dict></plist>").size());
  EXPECT_EQ(text.find_first_not_of('x'), std::string::npos);
  EXPECT_LT(seconds, MORV_UNDER_ASAN || MORV_UNDER_EMULATOR ? 20.0 : 4.0);
}

}  // namespace
