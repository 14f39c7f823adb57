#include <gtest/gtest.h>

#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/conv_tester.h"
#include "tests/support/kernels.h"

// Convolutions in C8HW8 that read the picture itself and end with an epilogue.

#if QRT_WITH_EXTENSIONS && QRT_WITH_AVX

namespace marlo::test {
namespace {

using PlaneRow = kernel::ConvolutionRow<kernel::PlaneGeometry>;

std::vector<const PlaneRow*> rows_with(bool epilogues) {
  std::vector<const PlaneRow*> rows;
  for (const PlaneRow* row : kernel::block_window_rows) {
    if ((row->epilogue != kernel::Epilogue::none) == epilogues) rows.push_back(row);
  }
  return rows;
}

class BlockWindow : public testing::TestWithParam<const PlaneRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  const PlaneRow& row() const { return *GetParam(); }
  bool takes_any_window() const { return row().accepts.kernel_x == 0; }
  uint32_t window() const { return takes_any_window() ? 3 : row().accepts.kernel_x; }
  int most_padding() const { return row().accepts.paddings == kernel::Paddings::none ? 0 : 1; }

  ConvTester tester(uint32_t in, uint32_t out) const {
    return ConvTester().channels(8 * in, 8 * out).kernel(window());
  }
  void test(const ConvTester& tester) {
    EXPECT_TRUE(tester.test(row())) << "refused: " << tester.sentence(row().name);
  }
};

// Tiles have 1 to 14 pixels; narrow pictures have tiles over the ends of rows.
TEST_P(BlockWindow, TakesEveryWidth) {
  for (uint32_t width = 3; width <= 45; ++width) {
    test(tester(1 + width % 2, 1 + width % 5).size(3, width).padding(most_padding()));
  }
}

TEST_P(BlockWindow, TakesEveryNumberOfBlocks) {
  for (uint32_t in = 1; in <= 3; ++in) {
    for (uint32_t out = 1; out <= 9; ++out) {
      test(tester(in, out).size(4, 9).padding(most_padding()).bias(out % 2 == 0));
    }
  }
}

// From 64 channels on, windows of one pixel have tiles of up to 6 pixels.
TEST_P(BlockWindow, TakesEveryNumberOfPixelsToManyChannels) {
  for (uint32_t width = 1; width <= 19; ++width) {
    test(tester(1 + width % 3, 8 + width % 2 * 5).size(window(), width + window() - 1));
  }
  test(tester(2, 17).size(6, 7).bias(false));
}

// More than stays in L2, so that the picture is taken in bands.
TEST_P(BlockWindow, TakesBands) {
  test(tester(70, 1).size(3 + 1, 190).padding(most_padding()));
  test(tester(40, 3).size(1 + 2 * window(), 95).padding(most_padding()));
  test(tester(70, 8).size(window(), 200));
}

TEST_P(BlockWindow, TakesPaddingsOnAnySide) {
  if (most_padding() == 0) GTEST_SKIP() << "takes none";
  for (int side = 0; side < 4; ++side) {
    for (const int size : {1, 2, 5}) {
      int padding[4] = {};
      padding[side] = size;
      test(tester(1, 3).size(4, 17).padding(padding[0], padding[1], padding[2], padding[3]));
    }
  }
  test(tester(2, 2).size(1, 1).padding(3));
  test(tester(1, 1).size(1, 30).padding(1));
  test(tester(1, 1).size(30, 1).padding(1));
}

TEST_P(BlockWindow, TakesAnyWindowStrideAndDilation) {
  if (!takes_any_window()) GTEST_SKIP() << "is for one window";
  for (uint32_t stride = 1; stride <= 4; ++stride) {
    test(tester(1, 5).size(15, 33).stride(stride).padding(1));
    test(tester(2, 1).kernel(1).size(9, 31).stride(stride));
    test(tester(1, 2).kernel(5).size(11, 40).stride(stride).padding(2));
    test(tester(1, 4).kernel(3).size(9, 37).stride(stride, 5 - stride).dilation(2).padding(2));
  }
  test(tester(1, 4).kernel(1, 3).size(4, 31).padding(1, 1, 0, 0));
  test(tester(1, 4).kernel(3, 1).size(4, 31).padding(0, 0, 1, 1));
  test(tester(1, 4).kernel(7).size(9, 20).dilation(1, 2).padding(5));
  test(tester(2, 4).kernel(1).size(5, 9).padding(2));
  // Most of a window lies outside of the picture, above, below and beside.
  for (const uint32_t dilation : {4u, 7u, 12u}) {
    const auto far = static_cast<int>(dilation);
    test(tester(2, 5).size(8, 8).dilation(dilation).padding(far));
    test(tester(1, 3).size(3, 33).dilation(dilation).padding(far));
    test(tester(1, 1).size(9, 5).stride(2).dilation(dilation).padding(far));
  }
}

TEST_P(BlockWindow, TakesGroupsOfWholeBlocks) {
  const bool takes_groups = row().accepts.groups == kernel::Groups::in_eights;
  for (const uint32_t groups : {2u, 3u}) {
    const ConvTester grouped = tester(2 * groups, 3 * groups).size(5, 16).groups(groups);
    EXPECT_EQ(ConvTester(grouped).padding(most_padding()).test(row()), takes_groups);
  }
  EXPECT_FALSE(tester(1, 1).size(5, 9).groups(2).test(row()));
}

TEST_P(BlockWindow, RefusesPartsOfBlocks) {
  EXPECT_FALSE(ConvTester().channels(12, 8).kernel(window()).size(5, 5).test(row()));
  EXPECT_FALSE(ConvTester().channels(8, 4).kernel(window()).size(5, 5).test(row()));
}

const auto name_of_row = [](const auto& test) { return std::string(test.param->name); };

INSTANTIATE_TEST_SUITE_P(Rows, BlockWindow, testing::ValuesIn(rows_with(false)), name_of_row);

// The sums are those of the row without the epilogue; what is tested is what becomes of them.
class BlockWindowEpilogue : public BlockWindow {};

TEST_P(BlockWindowEpilogue, IsAppliedToEveryPixel) {
  for (const uint32_t width : {3u, 7u, 14u, 29u}) {
    test(tester(2, 7).size(3, width).padding(most_padding()));
  }
  test(tester(2, 9).size(3, 9));
}

INSTANTIATE_TEST_SUITE_P(Rows, BlockWindowEpilogue, testing::ValuesIn(rows_with(true)),
                         name_of_row);

}  // namespace
}  // namespace marlo::test

#endif
