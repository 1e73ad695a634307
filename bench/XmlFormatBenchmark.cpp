// The XML rows of PListFormatBenchmark: on settings trees whose XML is about
// 4 KiB, 100 KiB, 1 MiB and 10 MiB (nested dictionaries of integers,
// reals, booleans, strings, data, dates and a few arrays), the same tree
// for every library:
//
//   ReadXml   the XML bytes in memory to a tree, and the tree freed
//     Morv             the store's reader (ParsePropertyList)
//     libplist         plist_from_xml, then plist_free, on the same bytes
//     Morv_binary      the store's reader on the same tree's binary form,
//                      for reference
//   WriteXml  a tree to XML bytes in memory
//     Morv             WriteXmlPropertyList
//     libplist         plist_to_xml of libplist's copy of the same tree
//
// Every row counts the bytes of the store's XML of its tree (also the
// binary row and libplist's writer, whose output differs a little), so
// that throughputs compare the time each takes over the same tree and
// their ratio is the ratio of speeds (bench/compare.py prints it).

#include "XmlFormatBenchmark.h"

#include <benchmark/benchmark.h>
#include <expat.h>
#include <plist/plist.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <utility>
#include <variant>

#include "format/PListFormat.h"

namespace bench {

namespace {

typedef mvtl::RefCountedPtr<mvcs::PListDictionary> Tree;

// Owns a libplist node.
struct LibplistDeleter {
  void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};
typedef std::unique_ptr<void, LibplistDeleter> LibplistTree;

mvcs::PListDictionaryRef NewDictionary() {
  mvcs::PListDictionaryRef dictionary;
  dictionary.Assign(new mvcs::PListDictionary);
  return dictionary;
}

// One group of settings, the `index`th: a dictionary of every kind of value,
// with a nested dictionary in every fourth group and an array in every
// eighth; every eighth name holds non-ASCII text and characters XML escapes.
mvcs::PListDictionaryRef SettingsGroup(std::size_t index) {
  const std::string n = std::to_string(index);
  mvcs::PListDictionaryRef group = NewDictionary();
  group->Set("Count", mvcs::PListInteger{static_cast<long long>(index * 7919) - 50000, false});
  group->Set("Enabled", index % 3 == 0);
  group->Set("Name", index % 8 == 0 ? "S\xC3\xA9ries & films <HD> " + n
                                    : "Media library folder number " + n);
  group->Set("Path", "/srv/media/library/section-" + n + "/index.db");
  group->Set("Ratio", mvcs::PListReal{static_cast<double>(index) / 7.0});
  mvcs::PListData blob(16 + index % 32);
  for (std::size_t i = 0; i < blob.size(); ++i) blob[i] = static_cast<unsigned char>(index + i);
  group->Set("Blob", std::move(blob));
  group->Set("Modified", mvcs::PListDate{600000000.0 + static_cast<double>(index) * 3607.0});
  if (index % 4 == 0) {
    mvcs::PListDictionaryRef options = NewDictionary();
    options->Set("Level", mvcs::PListInteger{static_cast<long long>(index % 10), false});
    options->Set("Verbose", false);
    options->Set("Label", std::string("Options"));
    group->Set("Options", options);
  }
  if (index % 8 == 0) {
    auto extensions = std::make_shared<mvcs::PListArray>();
    for (const char* extension : {"mkv", "mp4", "avi"}) {
      extensions->items.emplace_back(std::string(extension));
    }
    extensions->items.emplace_back(mvcs::PListInteger{static_cast<long long>(index), false});
    group->Set("Extensions", mvcs::PListArrayRef(std::move(extensions)));
  }
  return group;
}

// Settings/Bench/Group<i> for `groups` groups.
Tree SettingsTree(std::size_t groups) {
  mvcs::PListDictionaryRef product = NewDictionary();
  for (std::size_t i = 0; i < groups; ++i)
    product->Set("Group" + std::to_string(i), SettingsGroup(i));
  mvcs::PListDictionaryRef settings = NewDictionary();
  settings->Set("Bench", product);
  Tree root(new mvcs::PListDictionary);
  root->Set("Settings", settings);
  return root;
}

// libplist's node for one value of the store's tree: how the same tree is
// made for libplist.
struct LibplistNode {
  plist_t operator()(const mvcs::PListDictionaryRef& dictionary) const {
    return Dictionary(*dictionary);
  }
  plist_t Dictionary(const mvcs::PListDictionary& dictionary) const {
    plist_t node = plist_new_dict();
    for (const auto& entry : dictionary.GetEntries()) {
      plist_dict_set_item(node, entry.first.c_str(), std::visit(*this, entry.second));
    }
    return node;
  }
  plist_t operator()(const mvcs::PListArrayRef& array) const {
    plist_t node = plist_new_array();
    for (const mvcs::PListValue& item : array->items) {
      plist_array_append_item(node, std::visit(*this, item));
    }
    return node;
  }
  plist_t operator()(const mvcs::PListInteger& integer) const {
    return plist_new_uint(static_cast<std::uint64_t>(integer.bits));
  }
  plist_t operator()(const mvcs::PListReal& real) const { return plist_new_real(real.value); }
  plist_t operator()(bool boolean) const { return plist_new_bool(boolean ? 1 : 0); }
  plist_t operator()(const std::string& text) const { return plist_new_string(text.c_str()); }
  plist_t operator()(const mvcs::PListData& data) const {
    return plist_new_data(reinterpret_cast<const char*>(data.data()), data.size());
  }
  plist_t operator()(const mvcs::PListDate& date) const {
    const double seconds = std::floor(date.seconds);
    return plist_new_date(static_cast<int32_t>(seconds),
                          static_cast<int32_t>((date.seconds - seconds) * 1e6));
  }
  plist_t operator()(const mvcs::PListUid& uid) const { return plist_new_uid(uid.value); }
};

struct XmlSample {
  Tree tree;              // the store's tree
  LibplistTree libplist;  // libplist's copy of it
  std::string xml;        // the store's XML of it
  std::string binary;     // the store's binary form of it
};

struct SampleSize {
  const char* name;
  std::size_t bytes;
};
const SampleSize kSizes[] = {
    {"4KiB", 4 << 10}, {"100KiB", 100 << 10}, {"1MiB", 1 << 20}, {"10MiB", 10 << 20}};
constexpr std::size_t kSizeCount = sizeof(kSizes) / sizeof(kSizes[0]);

// Says on standard error when libplist does not see the sample as the
// store does: when it cannot read the store's XML, or when its copy of the
// tree, written in binary (which keeps every value exactly), does not read
// back through the store to the store's tree.
void CheckSameTree(const XmlSample& sample, const char* name) {
  plist_t parsed = nullptr;
  plist_from_xml(sample.xml.data(), static_cast<uint32_t>(sample.xml.size()), &parsed);
  if (parsed == nullptr) {
    std::fprintf(stderr, "warning: libplist cannot read XML %s\n", name);
  } else {
    plist_free(parsed);
  }
  char* binary = nullptr;
  uint32_t length = 0;
  plist_to_bin(sample.libplist.get(), &binary, &length);
  Tree copy;
  if (binary == nullptr || !mvcs::ParsePropertyList(std::string(binary, length), copy).ok() ||
      !mvcs::SameTree(*sample.tree, *copy)) {
    std::fprintf(stderr, "warning: libplist's copy of XML %s is not the store's tree\n", name);
  }
  plist_to_bin_free(binary);
}

// The sample of size `index` (of kSizes), made on first use: as many groups
// as make its XML at least that large.
const XmlSample& Sample(std::size_t index) {
  static std::unique_ptr<XmlSample> samples[kSizeCount];
  std::unique_ptr<XmlSample>& sample = samples[index];
  if (sample) return *sample;
  sample.reset(new XmlSample);
  const std::size_t size = kSizes[index].bytes;
  std::size_t groups = 4;
  for (;;) {
    sample->tree = SettingsTree(groups);
    mvcs::WriteXmlPropertyList(*sample->tree, sample->xml);
    if (sample->xml.size() >= size) break;
    groups = groups * size / sample->xml.size() + 1;
  }
  mvcs::WriteBinaryPropertyList(*sample->tree, sample->binary);
  sample->libplist.reset(LibplistNode().Dictionary(*sample->tree));
  CheckSameTree(*sample, kSizes[index].name);
  std::fprintf(stderr, "XML %s: %zu bytes (%zu groups; binary form %zu bytes)\n",
               kSizes[index].name, sample->xml.size(), groups, sample->binary.size());
  return *sample;
}

void CountBytes(benchmark::State& state, const XmlSample& sample) {
  state.SetBytesProcessed(state.iterations() * static_cast<long long>(sample.xml.size()));
}

// The store's reader on `bytes` (the sample's XML or binary form).
void ReadMorv(benchmark::State& state, const XmlSample& sample, const std::string& bytes) {
  for (auto _ : state) {
    Tree tree;
    if (!mvcs::ParsePropertyList(bytes, tree).ok()) state.SkipWithError("read failed");
    benchmark::DoNotOptimize(tree.Get());
  }
  CountBytes(state, sample);
}

void ReadXmlMorv(benchmark::State& state, std::size_t index) {
  ReadMorv(state, Sample(index), Sample(index).xml);
}

void ReadBinaryMorv(benchmark::State& state, std::size_t index) {
  ReadMorv(state, Sample(index), Sample(index).binary);
}

void ReadXmlLibplist(benchmark::State& state, std::size_t index) {
  const XmlSample& sample = Sample(index);
  for (auto _ : state) {
    plist_t root = nullptr;
    plist_from_xml(sample.xml.data(), static_cast<uint32_t>(sample.xml.size()), &root);
    if (root == nullptr) state.SkipWithError("libplist failed");
    plist_free(root);
  }
  CountBytes(state, sample);
}

// expat alone, with handlers that do nothing: the floor under any reader
// built on it (the store's builds the tree on top of these events).
void ReadXmlExpatOnly(benchmark::State& state, std::size_t index) {
  const XmlSample& sample = Sample(index);
  for (auto _ : state) {
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetElementHandler(
        parser, [](void*, const XML_Char*, const XML_Char**) {}, [](void*, const XML_Char*) {});
    XML_SetCharacterDataHandler(parser, [](void*, const XML_Char*, int) {});
    if (XML_Parse(parser, sample.xml.data(), static_cast<int>(sample.xml.size()), XML_TRUE) !=
        XML_STATUS_OK) {
      state.SkipWithError("expat failed");
    }
    XML_ParserFree(parser);
  }
  CountBytes(state, sample);
}

void WriteXmlMorv(benchmark::State& state, std::size_t index) {
  const XmlSample& sample = Sample(index);
  std::string xml;
  for (auto _ : state) {
    if (!mvcs::WriteXmlPropertyList(*sample.tree, xml).ok()) state.SkipWithError("write failed");
    benchmark::DoNotOptimize(xml.data());
  }
  CountBytes(state, sample);
}

void WriteXmlLibplist(benchmark::State& state, std::size_t index) {
  const XmlSample& sample = Sample(index);
  for (auto _ : state) {
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(sample.libplist.get(), &xml, &length);
    if (xml == nullptr) state.SkipWithError("libplist failed");
    plist_to_xml_free(xml);
  }
  CountBytes(state, sample);
}

}  // namespace

void RegisterXmlFormatBenchmarks() {
  for (std::size_t index = 0; index < kSizeCount; ++index) {
    const std::string size = kSizes[index].name;
    benchmark::RegisterBenchmark(("ReadXml/Morv/" + size).c_str(), ReadXmlMorv, index);
    benchmark::RegisterBenchmark(("ReadXml/libplist/" + size).c_str(), ReadXmlLibplist, index);
    benchmark::RegisterBenchmark(("ReadXml/Morv_binary/" + size).c_str(), ReadBinaryMorv, index);
    benchmark::RegisterBenchmark(("ReadXml/expat_alone/" + size).c_str(), ReadXmlExpatOnly, index);
    benchmark::RegisterBenchmark(("WriteXml/Morv/" + size).c_str(), WriteXmlMorv, index);
    benchmark::RegisterBenchmark(("WriteXml/libplist/" + size).c_str(), WriteXmlLibplist, index);
  }
}

}  // namespace bench
