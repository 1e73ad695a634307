// The choice of the kernel behind the whole-string conversions, and those
// conversions with a kernel given (for the tests and benchmarks that run
// every kernel side by side).
//
// The kernel is chosen once per process, on the first conversion: the best
// one this processor can run ("avx512", then "avx2", then the baseline:
// "sse2" on x86-64, "scalar" elsewhere). The environment variable
// MORV_UTF_KERNEL, read at that moment, can name another one that the
// processor supports; a name that is unknown or unsupported is ignored.
// Every kernel gives the same results; only their speed differs.

#ifndef MORVSTRING_UTFKERNELS_H
#define MORVSTRING_UTFKERNELS_H

#include <string>
#include <vector>

#include "FastUTF.h"

namespace mvcs {
namespace fast_utf {

// The kernels this processor can run, the baseline first and the best last.
std::vector<const Kernel*> SupportedKernels();

// The supported kernel called `name`, or null.
const Kernel* FindKernel(const std::string& name);

// The kernel the conversions use (see above). Thread-safe.
const Kernel& ActiveKernel();

// MorvString.h's whole-string conversions, with `kernel`.
std::wstring UTF8ToWideWith(const Kernel& kernel, const std::string& utf8);
std::string WideToUTF8With(const Kernel& kernel, const std::wstring& wide);
std::string UnicodeToUTF8With(const Kernel& kernel, const unsigned short* units,
                              unsigned long count);
bool IsUTF8With(const Kernel& kernel, const std::string& text);

}  // namespace fast_utf
}  // namespace mvcs

#endif  // MORVSTRING_UTFKERNELS_H
