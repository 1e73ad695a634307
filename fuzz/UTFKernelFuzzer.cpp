// libFuzzer target for the whole-string conversions: every kernel this
// processor can run must give exactly what the straightforward reference
// routines give, on the fuzzer's bytes read four ways:
//  - as UTF-8, as they are;
//  - as UTF-8 built from pieces that each byte chooses (runs of ASCII, two-,
//    three- and four-byte characters, forms legal only under the lenient
//    rules, ill-formed and cut-off sequences, U+0000), so that long inputs
//    are mostly well formed and the vector paths leave and resume often;
//  - as wide units (three bytes each, mostly below 0x110000, sometimes any
//    32-bit value);
//  - as UTF-16 units (two bytes each).
// Any difference aborts.
//
// Build and run (clang):
//   cmake -S . -B build-fuzz -G Ninja -DCMAKE_CXX_COMPILER=clang++ \
//         -DCMAKE_C_COMPILER=clang -DMORV_BUILD_FUZZERS=ON
//   cmake --build build-fuzz --target UTFKernelFuzzer
//   build-fuzz/fuzz/UTFKernelFuzzer -max_total_time=1800 -max_len=4096

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "ReferenceStringConversions.h"
#include "UTFKernels.h"

namespace {

using mvcs::fast_utf::Kernel;

const char* const kPieces[] = {
    "a",
    "The quick brown fox jumps over",
    " ",
    "\xC3\xA9",
    "\xDF\xBF",
    "\xE2\x82\xAC",
    "\xE4\xB8\xAD\xE6\x96\x87",
    "\xED\x9F\xBF",
    "\xEF\xBF\xBF",
    "\xF0\x9F\x98\x80",
    "\xF4\x8F\xBF\xBF",
    "\xED\x41\x80",
    "\xF4\x7F\x80\x80",
    "\xC0\x80",
    "\xE0\x80\x80",
    "\xED\xA0\x80",
    "\xF4\x90\x80\x80",
    "\x80",
    "\xFF",
    "\xE2\x82",
};

std::string Pieces(const std::uint8_t* data, std::size_t size) {
  std::string text;
  const std::size_t count = sizeof kPieces / sizeof kPieces[0];
  for (std::size_t i = 0; i < size; ++i) {
    // Mostly the well-formed pieces (the first eleven), sometimes any.
    const std::uint8_t b = data[i];
    if (b == 0xFF) {
      text += '\0';
    } else {
      text += kPieces[b < 0xE0 ? b % 11 : b % count];
    }
  }
  return text;
}

void CheckUTF8(const std::string& text) {
  const std::wstring wide = reference::UTF8ToWide(text);
  const bool legal = reference::IsUTF8(text);
  for (const Kernel* kernel : mvcs::fast_utf::SupportedKernels()) {
    if (mvcs::fast_utf::UTF8ToWideWith(*kernel, text) != wide) std::abort();
    if (mvcs::fast_utf::IsUTF8With(*kernel, text) != legal) std::abort();
  }
}

void CheckWide(const std::uint8_t* data, std::size_t size) {
  std::wstring wide;
  for (std::size_t i = 0; i + 3 <= size; i += 3) {
    std::uint32_t unit = data[i] | data[i + 1] << 8 | data[i + 2] << 16;
    if (data[i + 2] == 0xFF) {
      unit = 0xFFFFFF00u | data[i];  // far out of range
    } else {
      unit %= 0x110000 + 0x20;  // a few just out of range
    }
    wide += static_cast<wchar_t>(unit);
  }
  const std::string expected = reference::WideToUTF8(wide);
  for (const Kernel* kernel : mvcs::fast_utf::SupportedKernels()) {
    if (mvcs::fast_utf::WideToUTF8With(*kernel, wide) != expected) std::abort();
  }
}

void CheckUTF16(const std::uint8_t* data, std::size_t size) {
  std::basic_string<unsigned short> units;
  for (std::size_t i = 0; i + 2 <= size; i += 2) {
    units += static_cast<unsigned short>(data[i] | data[i + 1] << 8);
  }
  const std::string expected = reference::UnicodeToUTF8(units.data(), units.size());
  for (const Kernel* kernel : mvcs::fast_utf::SupportedKernels()) {
    if (mvcs::fast_utf::UnicodeToUTF8With(*kernel, units.data(), units.size()) != expected) {
      std::abort();
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  CheckUTF8(std::string(reinterpret_cast<const char*>(data), size));
  CheckUTF8(Pieces(data, size));
  CheckWide(data, size);
  CheckUTF16(data, size);
  return 0;
}
