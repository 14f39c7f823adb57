#include "qrt_core/kernel/conv/windows/line_convolution.h"

#include <gtest/gtest.h>

#include "tests/support/conv_rows.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"

#if QRT_WITH_AVX

namespace marlo::test {
namespace {

class LineConvolution
    : public testing::TestWithParam<const kernel::ConvolutionRow<kernel::LineGeometry>*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  bool test(const ConvTester& tester) { return tester.test(*GetParam()); }
};

// Eight outputs are a vector, three of them a tile.
TEST_P(LineConvolution, TakesEveryLength) {
  for (uint32_t length = 3; length <= 36; ++length) {
    EXPECT_TRUE(
        test(ConvTester().channels(1 + length % 4, 1 + length % 6).size(1, length).kernel(3, 3)));
    EXPECT_TRUE(
        test(ConvTester().channels(2, 5).size(1, length).kernel(3, 3).padding(1).bias(false)));
  }
  EXPECT_TRUE(test(ConvTester().channels(3, 4).size(1, 1).kernel(3, 3).padding(1, 1, 0, 0)));
}

TEST_P(LineConvolution, TakesEveryNumberOfChannelsAndPadding) {
  for (uint32_t in = 1; in <= 9; ++in) {
    for (uint32_t out = 1; out <= 9; ++out) {
      EXPECT_TRUE(test(ConvTester().channels(in, out).size(1, 13).kernel(3, 3).padding(
          static_cast<int>(in % 3), static_cast<int>(out % 4), 0, 0)));
    }
  }
}

TEST_P(LineConvolution, RefusesOtherFilters) {
  const ConvTester base = ConvTester().channels(2, 2).size(1, 11).kernel(3, 3);
  EXPECT_FALSE(test(ConvTester(base).kernel(2, 2)));
  EXPECT_FALSE(test(ConvTester(base).stride(2)));
  EXPECT_FALSE(test(ConvTester(base).dilation(2)));
}

INSTANTIATE_TEST_SUITE_P(Rows, LineConvolution,
                         testing::ValuesIn(kernel::fast_line_convolution_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test

#endif
