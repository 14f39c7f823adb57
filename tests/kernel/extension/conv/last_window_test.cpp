#include <gtest/gtest.h>

#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/conv_tester.h"
#include "tests/support/kernels.h"

// Convolutions from C8HW8 to planes.

#if QRT_WITH_EXTENSIONS && QRT_WITH_AVX

namespace marlo::test {
namespace {

using PlaneRow = kernel::ConvolutionRow<kernel::PlaneGeometry>;

class LastWindow : public testing::TestWithParam<const PlaneRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  const PlaneRow& row() const { return *GetParam(); }
  bool is_plain() const { return row().epilogue == kernel::Epilogue::none; }

  static ConvTester tester(uint32_t blocks, uint32_t planes) {
    return ConvTester().channels(8 * blocks, planes);
  }
  void test(const ConvTester& tester) const {
    EXPECT_TRUE(tester.test(row())) << "refused: " << tester.sentence(row().name);
  }
};

TEST_P(LastWindow, TakesAnyNumberOfPlanes) {
  for (uint32_t planes = 1; planes <= 9; planes += is_plain() ? 1 : 4) {
    test(tester(4, planes).size(9, 33).kernel(3).padding(1));
    test(tester(1, planes).size(7, 40).kernel(1));
    test(tester(2, planes).size(10, 21).kernel(7).padding(3));
    test(tester(3, planes).size(11, 30).kernel(5).stride(2).padding(2));
  }
}

TEST_P(LastWindow, TakesEveryWidth) {
  for (uint32_t width = 3; width <= 48; width += is_plain() ? 1 : 9) {
    test(tester(2, 1 + width % 5).size(4, width).kernel(3).stride(1 + width % 2).padding(1));
  }
}

TEST_P(LastWindow, TakesAnyPaddingsStridesAndDilations) {
  if (!is_plain()) GTEST_SKIP() << "as without an epilogue";
  test(tester(2, 2).size(5, 7).kernel(3).padding(4, 0, 0, 5));
  test(tester(2, 3).size(5, 7).kernel(3).padding(0, 3, 6, 0).bias(false));
  test(tester(1, 5).size(1, 1).kernel(3).padding(2));
  test(tester(3, 2).size(16, 32).kernel(4).stride(4));
  test(tester(3, 4).size(17, 33).kernel(3, 5).stride(3, 5).dilation(2, 3).padding(1, 2, 3, 4));
  test(tester(1, 1).size(4, 9).kernel(3).dilation(9).padding(9));
  test(tester(9, 2).size(6, 15).kernel(1).stride(3));
  test(tester(2, 1).size(1, 300).kernel(1, 7).padding(3, 3, 0, 0));
}

TEST_P(LastWindow, RefusesGroupsAndPartsOfBlocks) {
  EXPECT_FALSE(ConvTester().channels(16, 4).groups(2).size(5, 5).kernel(3).test(row()));
  EXPECT_FALSE(ConvTester().channels(12, 3).size(5, 5).kernel(3).test(row()));
}

INSTANTIATE_TEST_SUITE_P(Rows, LastWindow, testing::ValuesIn(kernel::last_window_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test

#endif
