// libFuzzer target for the settings-file parser: arbitrary bytes must never
// crash, hang or exhaust memory; they are refused, or they give a tree that
// serialises and then parses again (what the store writes, it reads back).
//
// Build and run (clang):
//   cmake -S . -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ \
//         -DCMAKE_C_COMPILER=clang -DMORV_BUILD_FUZZERS=ON
//   cmake --build build-fuzz --target PListParseFuzzer
//   build-fuzz/fuzz/PListParseFuzzer -max_total_time=300 tests/data/hostile

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "PListFormat.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
  if (!mvcs::ParsePropertyList(bytes, tree)) return 0;
  std::string written;
  if (!mvcs::WriteBinaryPropertyList(*tree, written)) return 0;
  mvtl::RefCountedPtr<mvcs::PListDictionary> again;
  if (!mvcs::ParsePropertyList(written, again)) std::abort();
  return 0;
}
