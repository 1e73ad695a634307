// Chooses the conversion kernel once per process, from the processor's
// features and the MORV_UTF_KERNEL environment variable (see UTFKernels.h).

#include "UTFKernels.h"

#include <cstdlib>

namespace mvcs {
namespace fast_utf {

std::vector<const Kernel*> SupportedKernels() {
  std::vector<const Kernel*> kernels = {BaselineKernel()};
#if defined(__x86_64__)
  // __builtin_cpu_supports also asks whether the operating system saves the
  // vector registers (XCR0), not only whether the processor has them.
  __builtin_cpu_init();
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("popcnt")) {
    kernels.push_back(AVX2Kernel());
  }
  // The AVX-512 kernel uses AVX2 code for the ASCII prefixes.
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("avx512f") &&
      __builtin_cpu_supports("avx512bw") && __builtin_cpu_supports("avx512cd") &&
      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512vbmi") &&
      __builtin_cpu_supports("avx512vbmi2") && __builtin_cpu_supports("bmi2")) {
    kernels.push_back(AVX512Kernel());
  }
#endif
  return kernels;
}

const Kernel* FindKernel(const std::string& name) {
  for (const Kernel* kernel : SupportedKernels()) {
    if (name == kernel->name) return kernel;
  }
  return nullptr;
}

namespace {

const Kernel& Choose() {
  const char* forced = std::getenv("MORV_UTF_KERNEL");
  if (forced != nullptr) {
    if (const Kernel* kernel = FindKernel(forced)) return *kernel;
  }
  return *SupportedKernels().back();
}

}  // namespace

const Kernel& ActiveKernel() {
  static const Kernel& active = Choose();
  return active;
}

}  // namespace fast_utf
}  // namespace mvcs
