// libFuzzer target for the settings file format (binary property lists
// through the store's own reader, XML ones through libplist): arbitrary
// bytes must never crash, hang or exhaust memory. They are refused, or they
// give a tree that the writer writes (unless the result would be larger
// than a settings file may be), that reads back to an equal tree, and that
// is written again to the very same bytes.
//
// Build and run (clang):
//   cmake -S . -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ \
//         -DCMAKE_C_COMPILER=clang -DMORV_BUILD_FUZZERS=ON
//   cmake --build build-fuzz --target PListParseFuzzer
//   build-fuzz/fuzz/PListParseFuzzer -max_total_time=1800 tests/data/hostile

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "format/PListFormat.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  mvtl::RefCountedPtr<mvcs::PListDictionary> tree;
  if (!mvcs::ParsePropertyList(bytes, tree).ok()) return 0;
  std::string written;
  const mvcs::Status serialised = mvcs::WriteBinaryPropertyList(*tree, written);
  if (!serialised.ok()) {
    if (serialised.code() == mvcs::Status::Code::kTooLarge) return 0;
    std::abort();  // a tree that was read must be writable
  }
  mvtl::RefCountedPtr<mvcs::PListDictionary> again;
  if (!mvcs::ParsePropertyList(written, again).ok()) std::abort();
  if (!mvcs::SameTree(*tree, *again)) std::abort();
  std::string rewritten;
  if (!mvcs::WriteBinaryPropertyList(*again, rewritten).ok() || rewritten != written) std::abort();
  return 0;
}
