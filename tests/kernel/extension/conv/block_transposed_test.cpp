#include <gtest/gtest.h>

#include <cmath>

#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/conv_setup.h"
#include "tests/support/conv_tester.h"
#include "tests/support/kernels.h"

// Transposed convolutions in C8HW8, beside the portable one's definition, with an epilogue.

#if QRT_WITH_EXTENSIONS && QRT_WITH_AVX

namespace marlo::test {
namespace {

using TransposedRow = kernel::ConvolutionRow<kernel::TransposedGeometry>;

std::vector<const TransposedRow*> rows_with(bool epilogues) {
  std::vector<const TransposedRow*> rows;
  for (const TransposedRow* row : kernel::block_transposed_rows) {
    if ((row->epilogue != kernel::Epilogue::none) == epilogues) rows.push_back(row);
  }
  return rows;
}

class BlockTransposed : public testing::TestWithParam<const TransposedRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  const TransposedRow& row() const { return *GetParam(); }

  /// A filter at a stride of two whose result is twice as large as its input, as networks have them.
  static ConvTester doubling(uint32_t in, uint32_t out, uint32_t kernel) {
    const int before = static_cast<int>(kernel / 2);
    const int behind = static_cast<int>(kernel - 1) - before;
    return ConvTester()
        .channels(8 * in, 8 * out)
        .kernel(kernel)
        .stride(2)
        .padding(before, behind, before, behind);
  }
  void test(const ConvTester& tester) {
    EXPECT_TRUE(tester.test(row())) << "refused: " << tester.sentence(row().name);
  }
};

// Tiles have 1 to 14 pixels, each of which may begin or end at a margin.
TEST_P(BlockTransposed, DoublesEveryWidth) {
  for (uint32_t width = 1; width <= 31; ++width) {
    test(doubling(1 + width % 2, 1 + width % 5, 2 + width % 3).size(3, width));
  }
}

TEST_P(BlockTransposed, TakesEveryNumberOfBlocks) {
  for (uint32_t in = 1; in <= 3; ++in) {
    for (uint32_t out = 1; out <= 9; ++out) {
      test(doubling(in, out, 2 + out % 3).size(2, 9).bias(out % 2 == 0));
    }
  }
}

TEST_P(BlockTransposed, TakesAnyWindowStrideAndDilation) {
  for (uint32_t kernel = 1; kernel <= 5; ++kernel) {
    for (uint32_t stride = 1; stride <= 4; ++stride) {
      for (uint32_t dilation = 1; dilation <= 3; ++dilation) {
        const int padding = static_cast<int>(kernel / 2 * dilation);
        test(ConvTester()
                 .channels(8, 8 * (1 + stride % 3))
                 .size(3, 7)
                 .kernel(kernel)
                 .stride(stride)
                 .dilation(dilation)
                 .padding(padding));
      }
    }
  }
  test(ConvTester().channels(8, 16).size(4, 9).kernel(1, 4).stride(1, 3).padding(2, 2, 0, 0));
  test(ConvTester().channels(8, 16).size(9, 4).kernel(4, 1).stride(3, 1).padding(0, 0, 2, 2));
  test(ConvTester().channels(8, 8).size(3, 5).kernel(3).stride(4, 6).dilation(6, 4).padding(9));
}

// Below zero outputs are cut off, above what windows reach they are the bias alone.
TEST_P(BlockTransposed, TakesPaddingsOfEitherSignOnAnySide) {
  for (int side = 0; side < 4; ++side) {
    for (const int size : {-3, -1, 1, 4, 9}) {
      int padding[4] = {};
      padding[side] = size;
      test(ConvTester().channels(8, 24).size(5, 18).kernel(3).stride(2).padding(
          padding[0], padding[1], padding[2], padding[3]));
      test(ConvTester().channels(16, 8).size(4, 4).kernel(2).stride(3).padding(
          padding[0], padding[1], padding[2], padding[3]));
    }
  }
}

TEST_P(BlockTransposed, TakesFewerPixelsThanAStride) {
  test(ConvTester().channels(8, 32).size(1, 1).kernel(2).stride(2).padding(1));
  test(ConvTester().channels(8, 8).size(1, 1).kernel(1).stride(7).padding(-2));
  test(ConvTester().channels(8, 8).size(1, 2).kernel(3).stride(65, 9).padding(1));
  test(ConvTester().channels(8, 8).size(1, 1).kernel(3).stride(1).padding(2));
}

// More than stays in L2, so that the picture is taken in bands.
TEST_P(BlockTransposed, TakesBands) {
  test(doubling(32, 1, 2).size(3, 120));
  test(doubling(40, 3, 3).size(7, 95));
}

TEST_P(BlockTransposed, TakesGroupsOfWholeBlocks) {
  for (const uint32_t groups : {2u, 3u}) {
    test(doubling(2 * groups, 3 * groups, 4).size(3, 9).groups(groups));
  }
  EXPECT_FALSE(doubling(1, 1, 2).size(3, 5).groups(2).test(row()));
}

TEST_P(BlockTransposed, RefusesPartsOfBlocks) {
  EXPECT_FALSE(ConvTester().channels(12, 8).kernel(2).stride(2).size(5, 5).test(row()));
  EXPECT_FALSE(ConvTester().channels(8, 4).kernel(2).stride(2).size(5, 5).test(row()));
}

// A tap that is infinite reaches no output of another window.
TEST_P(BlockTransposed, KeepsWindowsApart) {
  const ConvTester tester =
      ConvTester().channels(8, 8).size(2, 5).kernel(2).stride(2).padding(1, 0, 1, 0);
  ConvData data = float_data(tester.sizes(), 1);
  for (size_t i = 0; i < data.weight.size(); i += 4) data.weight[i] = kInfinity;
  const std::vector<float> output = tester.output(row(), data);
  ASSERT_EQ(output.size(), 8u * 4 * 10);
  for (size_t i = 0; i < output.size(); ++i) {
    const bool is_even = i / 10 % 2 == 0 && i % 2 == 0;
    EXPECT_NE(std::isfinite(output[i]), is_even) << "output " << i;
  }
}

const auto name_of_row = [](const auto& test) { return std::string(test.param->name); };

INSTANTIATE_TEST_SUITE_P(Rows, BlockTransposed, testing::ValuesIn(rows_with(false)), name_of_row);

// The sums are those of the row without the epilogue; what is tested is what becomes of them.
class BlockTransposedEpilogue : public BlockTransposed {};

TEST_P(BlockTransposedEpilogue, IsAppliedToEveryPixel) {
  for (const uint32_t width : {1u, 7u, 29u}) test(doubling(2, 7, 2 + width % 3).size(2, width));
}

INSTANTIATE_TEST_SUITE_P(Rows, BlockTransposedEpilogue, testing::ValuesIn(rows_with(true)),
                         name_of_row);

}  // namespace
}  // namespace marlo::test

#endif
