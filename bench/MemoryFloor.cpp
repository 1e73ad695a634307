// Plain loops for the Floor rows (see MemoryFloor.h). This file is compiled
// with -O3 so that the compiler vectorises them, and each loop is built
// twice, for AVX2 and for the baseline, the processor choosing at load
// time: the floor is what the compiler makes of the plainest code on this
// processor, not a hand-tuned kernel.

#include "MemoryFloor.h"

#include <algorithm>

namespace floor_work {

namespace {

#if defined(__x86_64__) && defined(__GNUC__)
#define MORV_FLOOR_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define MORV_FLOOR_CLONES
#endif

MORV_FLOOR_CLONES void Cast(const unsigned char* __restrict in, std::size_t n,
                            wchar_t* __restrict out) {
  for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<wchar_t>(in[i]);
}

MORV_FLOOR_CLONES void Cast(const wchar_t* __restrict in, std::size_t n, char* __restrict out) {
  for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<char>(in[i]);
}

MORV_FLOOR_CLONES void Cast(const char16_t* __restrict in, std::size_t n, char* __restrict out) {
  for (std::size_t i = 0; i < n; ++i) out[i] = static_cast<char>(in[i]);
}

// (Function templates cannot be built for several targets by every
// compiler, hence one function a type.)
MORV_FLOOR_CLONES unsigned Or(const unsigned char* __restrict in, std::size_t n) {
  unsigned char all = 0;
  for (std::size_t i = 0; i < n; ++i) all |= in[i];
  return all;
}

MORV_FLOOR_CLONES unsigned Or(const wchar_t* __restrict in, std::size_t n) {
  unsigned all = 0;
  for (std::size_t i = 0; i < n; ++i) all |= static_cast<unsigned>(in[i]);
  return all;
}

MORV_FLOOR_CLONES unsigned Or(const char16_t* __restrict in, std::size_t n) {
  char16_t all = 0;
  for (std::size_t i = 0; i < n; ++i) all |= in[i];
  return all;
}

template <typename In, typename Out>
unsigned CastThenRead(const In* in, std::size_t inCount, Out* out, std::size_t outCount) {
  for (std::size_t k = 0; k < outCount;) {
    const std::size_t m = std::min(inCount, outCount - k);
    Cast(in, m, out + k);
    k += m;
  }
  const std::size_t used = std::min(inCount, outCount);
  return Or(in + used, inCount - used);
}

}  // namespace

unsigned CastEach(const unsigned char* in, std::size_t inCount, wchar_t* out,
                  std::size_t outCount) {
  return CastThenRead(in, inCount, out, outCount);
}

unsigned CastEach(const wchar_t* in, std::size_t inCount, char* out, std::size_t outCount) {
  return CastThenRead(in, inCount, out, outCount);
}

unsigned CastEach(const char16_t* in, std::size_t inCount, char* out, std::size_t outCount) {
  return CastThenRead(in, inCount, out, outCount);
}

unsigned OrEach(const unsigned char* in, std::size_t count) { return Or(in, count); }

}  // namespace floor_work
