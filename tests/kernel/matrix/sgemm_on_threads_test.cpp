#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "cmake/checks/products_on_threads.h"
#include "qrt_core/kernel/matrix/sgemm.h"
#include "qrt_core/utility/build_options.h"

// The BLAS is shared by all contexts of a process, and contexts are independent: so a product is
// right whatever other threads multiply, with every choice of kernels that the BLAS has for this
// processor.

#if QRT_WITH_SGEMM

namespace {

void product(int m, int k, int n, const float* a, const float* b, float* c) {
  marlo::kernel::Sgemm(m, k, n, 1.0f, a, b, 0.0f, c);
}

TEST(SgemmOnThreads, IsRightOnOne) { EXPECT_EQ(marlo::test::wrong_products(product, 1, 10), 0); }

TEST(SgemmOnThreads, IsRightOnMoreThanThereAreProcessors) {
  EXPECT_EQ(marlo::test::wrong_products(product, 8, 4000), 0);
}

TEST(SgemmOnThreads, IsRightWithEveryChoiceOfKernels) {
  const char* const launcher = std::getenv("QRT_TEST_LAUNCHER");
  if (launcher != nullptr && *launcher != '\0') {
    GTEST_SKIP() << "an emulated processor has its own kernels, which the tests above run";
  }
  const std::string self = std::filesystem::read_symlink("/proc/self/exe").string();
  const auto only = [](const std::string& test) { return "--gtest_filter=SgemmOnThreads." + test; };
  const auto unsafe = marlo::test::unsafe_choices(
      {self, only("IsRightOnOne")}, {self, only("IsRightOnMoreThanThereAreProcessors")});
  EXPECT_EQ(unsafe, std::vector<std::string>{});
}

}  // namespace

#endif
