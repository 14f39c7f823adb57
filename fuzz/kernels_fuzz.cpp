#include <gtest/gtest.h>

#include <cstdlib>

#include "fuzz/targets.h"
#include "tests/support/differential/operation.h"

// One layer made from the bytes, run by every kernel that accepts it. What the test support finds
// is a failure of GoogleTest, which prints it; here it has to end the process as well.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  marlo::fuzz::Library::get();
  marlo::test::try_kernels(data, size);
  if (testing::UnitTest::GetInstance()->ad_hoc_test_result().Failed()) std::abort();
  return 0;
}
