// The settings file format's costs, on settings files of about 4 KiB,
// 100 KiB, 1 MiB and 10 MiB, beside libplist doing the same work on the
// same bytes and the plain file-system floor:
//
//   Read   bytes in memory to a tree, and the tree freed
//     Morv             the store's binary reader
//     libplist         plist_from_bin, then plist_free
//   Write  a tree to bytes in memory
//     Morv             the store's binary writer
//     libplist         plist_to_bin of libplist's tree of the same file
//   Floor  the bytes read from the file, and written with fsync and rename
//     plain_read, plain_write
//   Save   one store and the save of a file of 1k, 10k and 100k entries
//     Morv             through a settings node (time per save)
//   ReadXml, WriteXml  the XML format beside libplist's (XmlFormatBenchmark.cpp)
//
// Names read Op/Implementation/Input; times are per call. The files live in
// a temporary folder (XDG_CONFIG_HOME), removed at exit.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <plist/plist.h>
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "BenchFiles.h"
#include "MorvSettings/MorvSettings.h"
#include "XmlFormatBenchmark.h"
#include "format/PListFormat.h"

namespace {

typedef mvtl::RefCountedPtr<mvcs::PListDictionary> Tree;

std::string g_root;

// A tree of typical settings (numbers, flags, names, paths, small blobs,
// child keys holding a few values each) under Settings/<product>, with
// `groups` groups of values.
Tree SettingsTree(const std::string& product, std::size_t groups) {
  Tree root(new mvcs::PListDictionary);
  mvcs::PListDictionaryRef settings, values;
  settings.Assign(new mvcs::PListDictionary);
  values.Assign(new mvcs::PListDictionary);
  for (std::size_t i = 0; i < groups; ++i) {
    const std::string n = std::to_string(i);
    values->Set("Count" + n, mvcs::PListInteger{static_cast<long long>(i * 37), false});
    values->Set("Enabled" + n, i % 3 == 0);
    values->Set("Name" + n, "Media library folder number " + n);
    values->Set("Path" + n, "/srv/media/library/section-" + n + "/index.db");
    values->Set("Ratio" + n, mvcs::PListReal{static_cast<double>(i) / 7.0});
    values->Set("Blob" + n, mvcs::PListData{static_cast<unsigned char>(i), 1, 2, 3, 4, 5, 6, 7, 8,
                                            9, 10, 11, 12, 13, 14, 15});
    if (i % 16 == 0) {
      mvcs::PListDictionaryRef section;
      section.Assign(new mvcs::PListDictionary);
      section->Set("Level", mvcs::PListInteger{static_cast<long long>(i), false});
      section->Set("Enabled", true);
      section->Set("Name", std::string("Options"));
      values->Set("Section" + n, section);
    }
  }
  settings->Set(product, values);
  root->Set("Settings", settings);
  return root;
}

struct SampleFile {
  std::string name;   // "4KiB", ...
  std::string bytes;  // the binary property list
  std::string path;   // where it is on disk
};

SampleFile MakeFile(const std::string& name, std::size_t size) {
  SampleFile file;
  file.name = name;
  std::size_t groups = 16;
  for (;;) {
    mvcs::WriteBinaryPropertyList(*SettingsTree("Bench", groups), file.bytes);
    if (file.bytes.size() >= size) break;
    groups = groups * size / file.bytes.size() + 1;
  }
  file.path = g_root + "/" + name + ".plist";
  std::ofstream(file.path, std::ios::binary) << file.bytes;
  return file;
}

const std::vector<SampleFile>& Files() {
  static const std::vector<SampleFile> files = {
      MakeFile("4KiB", 4 << 10), MakeFile("100KiB", 100 << 10), MakeFile("1MiB", 1 << 20),
      MakeFile("10MiB", 10 << 20)};
  return files;
}

void ReadMorv(benchmark::State& state, const SampleFile& file) {
  for (auto _ : state) {
    Tree tree;
    if (!mvcs::ParsePropertyList(file.bytes, tree).ok()) state.SkipWithError("read failed");
    benchmark::DoNotOptimize(tree.Get());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<long long>(file.bytes.size()));
}

void ReadLibplist(benchmark::State& state, const SampleFile& file) {
  for (auto _ : state) {
    plist_t root = nullptr;
    plist_from_bin(file.bytes.data(), static_cast<uint32_t>(file.bytes.size()), &root);
    if (root == nullptr) state.SkipWithError("libplist failed");
    plist_free(root);
  }
  state.SetBytesProcessed(state.iterations() * static_cast<long long>(file.bytes.size()));
}

void WriteMorv(benchmark::State& state, const SampleFile& file) {
  Tree tree;
  mvcs::ParsePropertyList(file.bytes, tree);
  std::string bytes;
  for (auto _ : state) {
    if (!mvcs::WriteBinaryPropertyList(*tree, bytes).ok()) state.SkipWithError("write failed");
    benchmark::DoNotOptimize(bytes.data());
  }
  state.SetBytesProcessed(state.iterations() * static_cast<long long>(file.bytes.size()));
}

void WriteLibplist(benchmark::State& state, const SampleFile& file) {
  plist_t root = nullptr;
  plist_from_bin(file.bytes.data(), static_cast<uint32_t>(file.bytes.size()), &root);
  for (auto _ : state) {
    char* bytes = nullptr;
    uint32_t length = 0;
    plist_to_bin(root, &bytes, &length);
    if (bytes == nullptr) state.SkipWithError("libplist failed");
    plist_to_bin_free(bytes);
  }
  plist_free(root);
  state.SetBytesProcessed(state.iterations() * static_cast<long long>(file.bytes.size()));
}

void PlainRead(benchmark::State& state, const SampleFile& file) {
  std::string bytes(file.bytes.size(), '\0');
  for (auto _ : state) {
    const int fd = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0 || read(fd, &bytes[0], bytes.size()) != static_cast<ssize_t>(bytes.size())) {
      state.SkipWithError("read failed");
    }
    close(fd);
  }
}

void PlainWrite(benchmark::State& state, const SampleFile& file) {
  bench::PlainWrite(state, file.path, file.bytes);
}

// One store and its save, on a product whose file holds `entries` values
// (a sixth of them each of the six kinds the tree above has).
void SaveEntries(benchmark::State& state) {
  const std::size_t entries = static_cast<std::size_t>(state.range(0));
  const std::string product = "Entries" + std::to_string(entries);
  {
    std::string bytes;
    mvcs::WriteBinaryPropertyList(*SettingsTree(product, entries / 6), bytes);
    std::ofstream(g_root + "/config/Preferences/com.morv." + product + ".plist", std::ios::binary)
        << bytes;
  }
  bench::StoreAndSaveLoop(state, product);
}

}  // namespace

int main(int argc, char** argv) {
  g_root = bench::CreateSandbox();
  if (g_root.empty()) return 1;

  for (const SampleFile& file : Files()) {
    const std::string size = file.name;
    benchmark::RegisterBenchmark(("Read/Morv/" + size).c_str(), ReadMorv, file);
    benchmark::RegisterBenchmark(("Read/libplist/" + size).c_str(), ReadLibplist, file);
    benchmark::RegisterBenchmark(("Write/Morv/" + size).c_str(), WriteMorv, file);
    benchmark::RegisterBenchmark(("Write/libplist/" + size).c_str(), WriteLibplist, file);
    benchmark::RegisterBenchmark(("Floor/plain_read/" + size).c_str(), PlainRead, file);
    benchmark::RegisterBenchmark(("Floor/plain_write/" + size).c_str(), PlainWrite, file);
  }
  benchmark::RegisterBenchmark("Save/Morv", SaveEntries)->Arg(1000)->Arg(10000)->Arg(100000);
  bench::RegisterXmlFormatBenchmarks();
  for (const SampleFile& file : Files()) {
    std::fprintf(stderr, "%s file: %zu bytes\n", file.name.c_str(), file.bytes.size());
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
