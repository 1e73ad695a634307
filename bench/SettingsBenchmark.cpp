// Settings store costs, on settings files of about 4 KiB, 100 KiB and 1 MiB:
//
//   OneCall        create a node, fetch one value, release it: what a
//                  one-call function costs end to end (the file is read and
//                  parsed on every call, since nothing else holds it)
//     Morv           the store
//     libplist_parse plist_from_bin of the same bytes, then plist_free
//     plain_read     reading the file into memory (the floor)
//   StoreAndSave   one store and the save that follows when the node closes
//     Morv           the store (the file stays cached by another node)
//     plain_write    write, fsync and rename of the same bytes (the floor)
//     plain_write_folder_sync  the same, then fsync of the folder, as a
//                    save does so that the rename survives a power loss
//   StoreAndSaveMerge  the same, when another process has changed the file
//                  since this one last read or wrote it, so that the save
//                  reads the file and merges (the other process's change is
//                  made outside the timing)
//   SaveEntries    one store and its save, on a product whose file holds
//                  1,000, 10,000 or 100,000 values (the file stays cached)
//   FetchOpenNode  one fetch on a node that is already open
//   FetchOpenNodeThreads  the same from 1, 2, 4 and 8 threads at once, all
//                  on one node (wall-clock time; items/s is the fetches
//                  per second of all threads together)
//   ProcessesStoring  N processes (N = 1, 2, 4, 8) each making 40 one-call
//                  stores into one product at once; items/s is the stores
//                  per second of all of them together
//   FetchWhileOtherSaveWaits  one fetch on an open node of the 4 KiB file
//                  while a background thread keeps saving another product's
//                  file, whose lock another process holds throughout: each
//                  save waits for the lock (10 ms, the save lock timeout set
//                  here), fails, and is tried again 1 ms later. The fetches
//                  come at random moments (0 to 22 ms apart, outside the
//                  timing, so that they fall anywhere in the saves' cycle);
//                  p50_us and p99_us are the median and the 99th percentile
//                  of their latency in microseconds. A fetch that waits for
//                  the save waits up to the lock timeout (5 s by default)
//
// Names read Op/Implementation/Input; times are per call. The files live in
// a temporary folder (XDG_CONFIG_HOME), removed at exit.

#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <plist/plist.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "BenchFiles.h"
#include "MorvSettings/MorvSettings.h"
#include "MorvSettings/MorvSettingsSimple.h"
#include "MorvSettings/MorvSettingsUtility.h"

namespace {

struct SettingsFile {
  std::string name;     // "4KiB", ...
  std::string product;  // its product id
  std::string path;     // the per-user file
  std::string bytes;    // its contents
};

std::string g_root;

std::string ReadAll(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Fills Settings/<product> with typical settings (numbers, flags, names,
// paths, small blobs, a few child keys) until the file reaches `bytes`.
SettingsFile MakeFile(const std::string& name, std::size_t bytes) {
  SettingsFile file;
  file.name = name;
  file.product = "Bench" + name;
  file.path = g_root + "/config/Preferences/com.morv." + file.product + ".plist";
  for (int round = 0;; ++round) {
    {
      mvtl::RefCountedPtr<mvcs::IMorvSettings> node;
      mvcs::CreateMorvSettings("Settings/" + file.product, mvcs::MORVSETTINGSTYPE_USER_CREATE,
                               &node);
      for (int i = round * 8; i < round * 8 + 8; ++i) {
        const std::string n = std::to_string(i);
        node->StoreInteger("Count" + n, i * 37);
        node->StoreBoolean("Enabled" + n, i % 3 == 0);
        node->StoreUTF8String("Name" + n, "Media library folder number " + n);
        node->StoreUTF8String("Path" + n, "/srv/media/library/section-" + n + "/index.db");
        node->StoreDouble("Ratio" + n, i / 7.0);
        const unsigned char blob[16] = {static_cast<unsigned char>(i), 1, 2, 3, 4, 5, 6, 7};
        node->StoreBuffer("Blob" + n, blob, sizeof(blob));
        if (i % 16 == 0) {
          mvtl::RefCountedPtr<mvcs::IMorvSettings> child;
          node->GetChild("Section" + n + "/Options", &child);
          child->StoreInteger(std::string("Level"), i);
        }
      }
    }
    file.bytes = ReadAll(file.path);
    if (file.bytes.size() >= bytes) return file;
  }
}

const std::vector<SettingsFile>& Files() {
  static const std::vector<SettingsFile> files = {
      MakeFile("4KiB", 4 << 10), MakeFile("100KiB", 100 << 10), MakeFile("1MiB", 1 << 20)};
  return files;
}

void OneCallMorv(benchmark::State& state, const SettingsFile& file) {
  for (auto _ : state) {
    mvtl::RefCountedPtr<mvcs::IMorvSettings> node;
    mvcs::CreateMorvSettings("Settings/" + file.product, mvcs::MORVSETTINGSTYPE_USER, &node);
    long long value = 0;
    if (!node->FetchInteger(std::string("Count5"), value)) state.SkipWithError("fetch failed");
    benchmark::DoNotOptimize(value);
  }
}

void OneCallLibplist(benchmark::State& state, const SettingsFile& file) {
  for (auto _ : state) {
    plist_t root = nullptr;
    plist_from_bin(file.bytes.data(), static_cast<uint32_t>(file.bytes.size()), &root);
    if (root == nullptr) state.SkipWithError("libplist failed");
    plist_free(root);
  }
}

void OneCallRead(benchmark::State& state, const SettingsFile& file) {
  for (auto _ : state) benchmark::DoNotOptimize(ReadAll(file.path));
}

void StoreAndSaveMorv(benchmark::State& state, const SettingsFile& file) {
  bench::StoreAndSaveLoop(state, file.product);
}

// The file as another process would leave it: the original with one more
// entry, "OtherProcess" = `mark` (made with libplist, outside the timing).
std::string ChangedElsewhere(const SettingsFile& file, long long mark) {
  plist_t root = nullptr;
  plist_from_bin(file.bytes.data(), static_cast<uint32_t>(file.bytes.size()), &root);
  plist_t product =
      plist_dict_get_item(plist_dict_get_item(root, "Settings"), file.product.c_str());
  plist_dict_set_item(product, "OtherProcess", plist_new_uint(static_cast<uint64_t>(mark)));
  char* bytes = nullptr;
  uint32_t length = 0;
  plist_to_bin(root, &bytes, &length);
  std::string result(bytes, length);
  plist_to_bin_free(bytes);
  plist_free(root);
  return result;
}

// Replaces the file as another process's save would: written, flushed to
// disk, renamed over the old one.
void ReplaceFile(const std::string& path, const std::string& bytes) {
  const std::string temporary = path + ".other";
  const int fd = open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return;
  if (write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size())) fsync(fd);
  close(fd);
  rename(temporary.c_str(), path.c_str());
}

void StoreAndSaveMergeMorv(benchmark::State& state, const SettingsFile& file) {
  const std::string variants[2] = {ChangedElsewhere(file, 1), ChangedElsewhere(file, 2)};
  mvtl::RefCountedPtr<mvcs::IMorvSettings> keeper;
  mvcs::CreateMorvSettings("Settings/" + file.product, mvcs::MORVSETTINGSTYPE_USER, &keeper);
  long long counter = 0;
  for (auto _ : state) {
    state.PauseTiming();
    ReplaceFile(file.path, variants[counter % 2]);
    state.ResumeTiming();
    mvtl::RefCountedPtr<mvcs::IMorvSettings> node;
    mvcs::CreateMorvSettings("Settings/" + file.product, mvcs::MORVSETTINGSTYPE_USER, &node);
    node->StoreInteger(std::string("Counter"), ++counter);
  }
}

void StoreAndSavePlain(benchmark::State& state, const SettingsFile& file) {
  bench::PlainWrite(state, file.path, file.bytes);
}

void StoreAndSavePlainFolderSync(benchmark::State& state, const SettingsFile& file) {
  bench::PlainWrite(state, file.path, file.bytes, true);
}

// A product whose file holds `entries` values of the kinds MakeFile uses,
// written by one save.
std::string MakeEntries(std::size_t entries) {
  const std::string product = "Entries" + std::to_string(entries);
  mvtl::RefCountedPtr<mvcs::IMorvSettings> node;
  mvcs::CreateMorvSettings("Settings/" + product, mvcs::MORVSETTINGSTYPE_USER_CREATE, &node);
  for (std::size_t i = 0; i < entries; ++i) {
    const std::string n = std::to_string(i / 4);
    switch (i % 4) {
      case 0:
        node->StoreInteger("Count" + n, static_cast<long long>(i) * 37);
        break;
      case 1:
        node->StoreBoolean("Enabled" + n, i % 3 == 0);
        break;
      case 2:
        node->StoreUTF8String("Name" + n, "Media library folder number " + n);
        break;
      default:
        node->StoreUTF8String("Path" + n, "/srv/media/library/section-" + n + "/index.db");
        break;
    }
  }
  return product;
}

void SaveEntries(benchmark::State& state) {
  static std::map<long long, std::string> products;
  std::string& product = products[state.range(0)];
  if (product.empty()) product = MakeEntries(static_cast<std::size_t>(state.range(0)));
  bench::StoreAndSaveLoop(state, product);
}

void FetchOpenNode(benchmark::State& state, const SettingsFile& file) {
  mvtl::RefCountedPtr<mvcs::IMorvSettings> node;
  mvcs::CreateMorvSettings("Settings/" + file.product, mvcs::MORVSETTINGSTYPE_USER, &node);
  for (auto _ : state) {
    long long value = 0;
    node->FetchInteger(std::string("Count5"), value);
    benchmark::DoNotOptimize(value);
  }
}

void FetchOpenNodeThreads(benchmark::State& state, const SettingsFile& file) {
  static mvtl::RefCountedPtr<mvcs::IMorvSettings> shared;
  if (state.thread_index() == 0) {
    shared = static_cast<const mvcs::IMorvSettings*>(nullptr);
    mvcs::CreateMorvSettings("Settings/" + file.product, mvcs::MORVSETTINGSTYPE_USER, &shared);
  }
  // Google Benchmark starts the timing of all threads together, after
  // thread 0's set-up above.
  for (auto _ : state) {
    long long value = 0;
    shared->FetchInteger(std::string("Count5"), value);
    benchmark::DoNotOptimize(value);
  }
  // Summed over the threads and divided by the wall-clock time: the
  // fetches per second of all threads together.
  state.SetItemsProcessed(state.iterations());
  if (state.thread_index() == 0) shared = static_cast<const mvcs::IMorvSettings*>(nullptr);
}

void ProcessesStoring(benchmark::State& state) {
  const int processes = static_cast<int>(state.range(0));
  const int stores = 40;
  long long round = 0;
  for (auto _ : state) {
    ++round;
    std::vector<pid_t> children;
    for (int p = 0; p < processes; ++p) {
      const pid_t child = fork();
      if (child == 0) {
        bool ok = true;
        for (int i = 0; i < stores; ++i) {
          ok = mvcs::StoreInteger(
                   std::string("BenchProcesses"),
                   "r" + std::to_string(round) + "p" + std::to_string(p) + "_" + std::to_string(i),
                   i) &&
               ok;
        }
        _exit(ok ? 0 : 1);
      }
      children.push_back(child);
    }
    for (pid_t child : children) {
      int status = 0;
      waitpid(child, &status, 0);
      if (!WIFEXITED(status) || WEXITSTATUS(status) != 0) state.SkipWithError("a store failed");
    }
  }
  state.SetItemsProcessed(state.iterations() * processes * stores);
}

// Another process holding the lock of a settings file (as a save of
// another program would) until Release.
class LockHolder {
 public:
  // False when the child could not take the lock.
  bool Hold(const std::string& settingsFile) {
    int ready[2], hold[2];
    if (pipe2(ready, O_CLOEXEC) != 0) return false;
    if (pipe2(hold, O_CLOEXEC) != 0) {
      close(ready[0]);
      close(ready[1]);
      return false;
    }
    const std::string lock = settingsFile + ".lock";
    m_child = fork();
    if (m_child == 0) {
      close(ready[0]);
      close(hold[1]);
      const int fd = open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
      const char locked = fd >= 0 && flock(fd, LOCK_EX) == 0 ? '1' : '0';
      if (write(ready[1], &locked, 1) != 1) _exit(1);
      char end;
      while (read(hold[0], &end, 1) > 0) {
      }
      _exit(0);  // the lock goes with the process
    }
    close(ready[1]);
    close(hold[0]);
    m_hold = hold[1];
    char locked = '0';
    const bool ok = m_child > 0 && read(ready[0], &locked, 1) == 1 && locked == '1';
    close(ready[0]);
    return ok;
  }

  // Lets the child end, which frees the lock.
  void Release() {
    if (m_hold >= 0) close(m_hold);
    m_hold = -1;
    if (m_child > 0) waitpid(m_child, nullptr, 0);
    m_child = -1;
  }

  ~LockHolder() { Release(); }

 private:
  pid_t m_child = -1;
  int m_hold = -1;
};

void FetchWhileOtherSaveWaits(benchmark::State& state, const SettingsFile& file) {
  const std::string other = "BenchLocked";
  mvtl::RefCountedPtr<mvcs::IMorvSettings> reader, writer;
  mvcs::CreateMorvSettings("Settings/" + file.product, mvcs::MORVSETTINGSTYPE_USER, &reader);
  mvcs::CreateMorvSettings("Settings/" + other, mvcs::MORVSETTINGSTYPE_USER_CREATE, &writer);
  if (reader.Get() == nullptr || writer.Get() == nullptr) {
    state.SkipWithError("cannot open the nodes");
    return;
  }
  LockHolder holder;
  if (!holder.Hold(mvcs::GetProductSettingsFile(other))) {
    state.SkipWithError("cannot hold the lock");
    return;
  }
  const unsigned previousTimeout = mvcs::SetSaveLockTimeout(10);
  std::atomic<bool> stop{false};
  std::thread saver([&] {
    for (long long n = 0; !stop; ++n) {
      writer->StoreInteger(std::string("Counter"), n);
      mvcs::SaveSettings(writer.Get());  // waits for the lock, then fails
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
  });

  std::mt19937 random(7);
  std::vector<double> latencies;
  latencies.reserve(static_cast<std::size_t>(state.max_iterations));
  for (auto _ : state) {
    state.PauseTiming();
    std::this_thread::sleep_for(std::chrono::microseconds(random() % 22000));
    state.ResumeTiming();
    const auto start = std::chrono::steady_clock::now();
    long long value = 0;
    reader->FetchInteger(std::string("Count5"), value);
    latencies.push_back(
        std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start)
            .count());
    benchmark::DoNotOptimize(value);
  }

  stop = true;
  saver.join();
  holder.Release();
  writer = static_cast<const mvcs::IMorvSettings*>(nullptr);  // saves, the lock now free
  mvcs::SetSaveLockTimeout(previousTimeout);
  if (latencies.empty()) return;
  std::sort(latencies.begin(), latencies.end());
  const auto at = [&](double fraction) {
    const std::size_t rank = static_cast<std::size_t>(fraction * latencies.size());
    return latencies[std::min(rank, latencies.size() - 1)];
  };
  state.counters["p50_us"] = at(0.50);
  state.counters["p99_us"] = at(0.99);
}

}  // namespace

int main(int argc, char** argv) {
  g_root = bench::CreateSandbox();
  if (g_root.empty()) return 1;

  for (const SettingsFile& file : Files()) {
    const std::string size = file.name;
    benchmark::RegisterBenchmark(("OneCall/Morv/" + size).c_str(), OneCallMorv, file);
    benchmark::RegisterBenchmark(("OneCall/libplist_parse/" + size).c_str(), OneCallLibplist, file);
    benchmark::RegisterBenchmark(("OneCall/plain_read/" + size).c_str(), OneCallRead, file);
    benchmark::RegisterBenchmark(("StoreAndSave/Morv/" + size).c_str(), StoreAndSaveMorv, file);
    benchmark::RegisterBenchmark(("StoreAndSave/plain_write/" + size).c_str(), StoreAndSavePlain,
                                 file);
    benchmark::RegisterBenchmark(("StoreAndSave/plain_write_folder_sync/" + size).c_str(),
                                 StoreAndSavePlainFolderSync, file);
    benchmark::RegisterBenchmark(("StoreAndSaveMerge/Morv/" + size).c_str(), StoreAndSaveMergeMorv,
                                 file);
    benchmark::RegisterBenchmark(("FetchOpenNode/Morv/" + size).c_str(), FetchOpenNode, file);
  }
  benchmark::RegisterBenchmark("SaveEntries/Morv", SaveEntries)->Arg(1000)->Arg(10000)->Arg(100000);
  benchmark::RegisterBenchmark("FetchOpenNodeThreads/Morv/4KiB", FetchOpenNodeThreads, Files()[0])
      ->ThreadRange(1, 8)
      ->UseRealTime();
  benchmark::RegisterBenchmark("ProcessesStoring/Morv", ProcessesStoring)
      ->RangeMultiplier(2)
      ->Range(1, 8)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
  benchmark::RegisterBenchmark("FetchWhileOtherSaveWaits/Morv/4KiB", FetchWhileOtherSaveWaits,
                               Files()[0])
      ->Iterations(300)
      ->Unit(benchmark::kMicrosecond);
  for (const SettingsFile& file : Files()) {
    std::fprintf(stderr, "%s file: %zu bytes\n", file.name.c_str(), file.bytes.size());
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
