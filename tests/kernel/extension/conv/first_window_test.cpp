#include <gtest/gtest.h>

#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/conv_tester.h"
#include "tests/support/kernels.h"

// Convolutions from planes to C8HW8.

#if QRT_WITH_EXTENSIONS && QRT_WITH_AVX

namespace marlo::test {
namespace {

using PlaneRow = kernel::ConvolutionRow<kernel::PlaneGeometry>;

class FirstWindow : public testing::TestWithParam<const PlaneRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  const PlaneRow& row() const { return *GetParam(); }
  bool is_plain() const { return row().epilogue == kernel::Epilogue::none; }

  static ConvTester tester(uint32_t planes, uint32_t blocks) {
    return ConvTester().channels(planes, 8 * blocks);
  }
  void test(const ConvTester& tester) const {
    EXPECT_TRUE(tester.test(row())) << "refused: " << tester.sentence(row().name);
  }
};

TEST_P(FirstWindow, TakesTheUsualFirstLayers) {
  for (uint32_t planes = 1; planes <= 4; ++planes) {
    test(tester(planes, 8).size(9, 33).kernel(3).padding(1));
    test(tester(planes, 4).size(10, 31).kernel(3).stride(2).padding(1));
    test(tester(planes, 3).size(11, 30).kernel(5).stride(2).padding(2));
    test(tester(planes, 1).size(13, 29).kernel(7).stride(2).padding(3));
  }
}

TEST_P(FirstWindow, TakesEveryWidthAndNumberOfBlocks) {
  for (uint32_t width = 3; width <= 48; width += is_plain() ? 1 : 9) {
    test(tester(3, 1 + width % 7).size(4, width).kernel(3).stride(1 + width % 2).padding(1));
  }
}

// As many channels as take four vectors, and tiles of every size.
TEST_P(FirstWindow, TakesManyBlocks) {
  for (uint32_t width = 1; width <= 15; width += is_plain() ? 1 : 7) {
    const uint32_t blocks = 8 + width % 8;
    test(tester(1 + width % 3, blocks).size(5, width).kernel(3).padding(1));
    test(tester(2, blocks).size(9, 2 * width).kernel(3).stride(2).padding(1));
  }
}

// Windows far apart, side by side and overlapping: how many of their lines are seen again.
TEST_P(FirstWindow, KeepsLinesForTheNextRow) {
  if (!is_plain()) GTEST_SKIP() << "as without an epilogue";
  for (const uint32_t kernel : {1u, 2u, 3u, 4u, 7u}) {
    for (uint32_t stride = 1; stride <= kernel + 1; ++stride) {
      const auto padding = static_cast<int>(kernel / 2);
      test(tester(2, 3).size(19, 11).kernel(kernel).stride(stride).padding(padding));
    }
  }
  test(tester(3, 1).size(23, 9).kernel(5).dilation(2).padding(4));
  test(tester(1, 2).size(2, 9).kernel(3).padding(5));
}

TEST_P(FirstWindow, TakesAnyPaddingsStridesAndDilations) {
  if (!is_plain()) GTEST_SKIP() << "as without an epilogue";
  test(tester(2, 2).size(5, 7).kernel(3).padding(4, 0, 0, 5));
  test(tester(2, 2).size(5, 7).kernel(3).padding(0, 3, 6, 0).bias(false));
  test(tester(1, 5).size(1, 1).kernel(3).padding(2));
  test(tester(3, 2).size(16, 32).kernel(4).stride(4));
  test(tester(3, 2).size(17, 33).kernel(3, 5).stride(3, 5).dilation(2, 3).padding(1, 2, 3, 4));
  test(tester(9, 2).size(6, 15).kernel(1));
  test(tester(2, 9).size(3, 40).kernel(1, 3).padding(1, 1, 0, 0));
}

TEST_P(FirstWindow, RefusesGroupsAndPartsOfBlocks) {
  EXPECT_FALSE(ConvTester().channels(4, 16).groups(2).size(5, 5).kernel(3).test(row()));
  EXPECT_FALSE(ConvTester().channels(3, 12).size(5, 5).kernel(3).test(row()));
}

INSTANTIATE_TEST_SUITE_P(Rows, FirstWindow, testing::ValuesIn(kernel::first_window_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test

#endif
