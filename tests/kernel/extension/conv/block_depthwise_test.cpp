#include <gtest/gtest.h>

#include <algorithm>

#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/conv_tester.h"
#include "tests/support/kernels.h"

// Depthwise convolutions in C8HW8 with an epilogue.

#if QRT_WITH_EXTENSIONS && QRT_WITH_AVX

namespace marlo::test {
namespace {

using PlaneRow = kernel::ConvolutionRow<kernel::PlaneGeometry>;

class BlockDepthwise : public testing::TestWithParam<const PlaneRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  const PlaneRow& row() const { return *GetParam(); }
  bool is_plain() const { return row().epilogue == kernel::Epilogue::none; }

  bool takes_any_window() const { return row().accepts.kernel_x == 0; }
  uint32_t window() const { return takes_any_window() ? 3 : row().accepts.kernel_x; }

  ConvTester tester(uint32_t blocks) const {
    return ConvTester()
        .channels(8 * blocks, 8 * blocks)
        .groups(8 * blocks)
        .kernel(window())
        .stride(takes_any_window() ? 1 : row().accepts.stride);
  }
  // Of a padding that leaves every window a place.
  int padding() const {
    const bool takes_paddings = row().accepts.paddings == kernel::Paddings::any;
    return takes_paddings ? std::max(2, static_cast<int>(window()) / 2) : 0;
  }

  void test(const ConvTester& tester) const {
    EXPECT_TRUE(tester.test(row())) << "refused: " << tester.sentence(row().name);
  }
};

TEST_P(BlockDepthwise, TakesEveryWidth) {
  for (uint32_t width = 1; width <= 40; width += is_plain() ? 1 : 7) {
    test(tester(1 + width % 3).size(1 + width % 6, width).padding(padding()).bias(width % 4 != 0));
  }
}

TEST_P(BlockDepthwise, TakesAnyPaddings) {
  if (!is_plain()) GTEST_SKIP() << "as without an epilogue";
  if (padding() == 0) GTEST_SKIP() << "takes none";
  test(tester(1).size(7, 7).padding(0));
  test(tester(2).size(6, 9).padding(1));
  test(tester(2).size(6, 9).padding(5, 0, 0, 1));
  test(tester(2).size(6, 9).padding(0, 6, 7, 0));
  test(tester(1).size(1, 1).padding(4));
}

TEST_P(BlockDepthwise, TakesAnyWindowStrideAndDilation) {
  if (!takes_any_window()) GTEST_SKIP() << "is for one window";
  if (!is_plain()) GTEST_SKIP() << "as without an epilogue";
  for (uint32_t stride = 1; stride <= 3; ++stride) {
    test(tester(2).kernel(1).size(5, 23).stride(stride));
    test(tester(1).kernel(5).size(8, 19).stride(stride, 4 - stride).dilation(2, 1).padding(4));
    test(tester(2).kernel(2, 4).size(6, 11).stride(stride).dilation(1, 3).padding(1, 0, 0, 2));
  }
  test(tester(1).kernel(9).size(9, 9));
  test(tester(2).kernel(5).size(8, 8).dilation(9).padding(18));
  test(tester(1).kernel(3).size(2, 5).dilation(7).padding(7));
}

TEST_P(BlockDepthwise, WantsAGroupForEachChannelOfWholeBlocks) {
  EXPECT_FALSE(tester(2).groups(1).size(6, 6).padding(2).test(row()));
  EXPECT_FALSE(tester(2).groups(8).size(6, 6).padding(2).test(row()));
  EXPECT_FALSE(tester(1).channels(12, 12).groups(12).size(6, 6).padding(2).test(row()));
}

INSTANTIATE_TEST_SUITE_P(Rows, BlockDepthwise, testing::ValuesIn(kernel::block_depthwise_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test

#endif
