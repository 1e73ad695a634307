// For the conversion suites that ctest runs once per kernel, with
// MORV_UTF_KERNEL naming it: checks that the kernel asked for is the one the
// conversions use, and skips every test when this processor cannot run it.
// Without MORV_UTF_KERNEL the suite tests the kernel chosen by default.

#ifndef MORV_TESTS_KERNELUNDERTEST_H
#define MORV_TESTS_KERNELUNDERTEST_H

#include <gtest/gtest.h>

#include <cstdlib>

#include "UTFKernels.h"

class KernelUnderTest : public ::testing::Environment {
 public:
  void SetUp() override {
    const char* wanted = std::getenv("MORV_UTF_KERNEL");
    if (wanted == nullptr) return;
    if (mvcs::fast_utf::FindKernel(wanted) == nullptr) {
      GTEST_SKIP() << "this processor cannot run the kernel " << wanted;
    }
    ASSERT_STREQ(mvcs::fast_utf::ActiveKernel().name, wanted);
  }
};

inline ::testing::Environment* const kKernelUnderTest =
    ::testing::AddGlobalTestEnvironment(new KernelUnderTest);

#endif  // MORV_TESTS_KERNELUNDERTEST_H
