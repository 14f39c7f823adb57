#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "fuzz/targets.h"
#include "tests/support/differential/operation.h"

// One layer made from the bytes, run by every kernel that accepts it. What the test support finds
// is a failure of GoogleTest; here it has to end the process, and be told where a fuzzer listens.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  marlo::fuzz::Library::get();
  marlo::test::try_kernels(data, size);
  const testing::TestResult& result = testing::UnitTest::GetInstance()->ad_hoc_test_result();
  if (!result.Failed()) return 0;
  for (int i = 0; i < result.total_part_count(); ++i) {
    std::fprintf(stderr, "%s\n", result.GetTestPartResult(i).message());
  }
  std::abort();
}
