// Runs a test scenario in a forked child process, for scenarios in which
// the store might stop the process (a failed assertion aborts it): the
// abort then fails the one test instead of ending the test program.
//
//   EXPECT_EXIT(child::Run([&] { ...GoogleTest assertions... }),
//               ::testing::ExitedWithCode(0), "");
//
// The scenario uses the ordinary GoogleTest assertions. The child catches
// their failures (a death test's child reports nothing by itself), prints
// them on standard error, which EXPECT_EXIT shows when it fails, and exits
// with 1 when there was any, 0 otherwise. An abort shows as "Terminated by
// signal 6" with the assertion's message.

#ifndef MORV_TESTS_CHILDSCENARIO_H
#define MORV_TESTS_CHILDSCENARIO_H

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <functional>

namespace child {

// The parent checks what a scenario left on disk, so the child must be a
// fork of the test as it stands (GoogleTest's "fast" death tests), not a
// new run of the test program from its start ("threadsafe"), which would
// work in a sandbox of its own. Fixtures call this in SetUp.
inline void ForkTheTestAsItStands() { GTEST_FLAG_SET(death_test_style, "fast"); }

[[noreturn]] inline void Run(const std::function<void()>& scenario) {
  // An abort needs no core file.
  const rlimit noCore = {0, 0};
  setrlimit(RLIMIT_CORE, &noCore);
  ::testing::TestPartResultArray results;
  {
    ::testing::ScopedFakeTestPartResultReporter catcher(
        ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ALL_THREADS, &results);
    scenario();
  }
  int failures = 0;
  for (int i = 0; i < results.size(); ++i) {
    const ::testing::TestPartResult& result = results.GetTestPartResult(i);
    if (!result.failed()) continue;
    ++failures;
    std::fprintf(stderr, "%s:%d: %s\n", result.file_name() ? result.file_name() : "?",
                 result.line_number(), result.message());
  }
  std::fflush(stderr);
  _exit(failures == 0 ? 0 : 1);
}

}  // namespace child

#endif  // MORV_TESTS_CHILDSCENARIO_H
