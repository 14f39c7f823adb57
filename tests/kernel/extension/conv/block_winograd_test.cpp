#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/conv_setup.h"
#include "tests/support/conv_tester.h"
#include "tests/support/kernels.h"
#include "tests/support/test_context.h"

// 3x3 convolutions by minimal filtering, held to their bound on data that makes errors large.

#if QRT_WITH_EXTENSIONS && QRT_WITH_AVX

namespace marlo::test {
namespace {

using kernel::PlaneGeometry;
using PlaneRow = kernel::ConvolutionRow<PlaneGeometry>;

class BlockWinograd : public testing::TestWithParam<const PlaneRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  const PlaneRow& row() const { return *GetParam(); }
  bool is_of_four() const { return std::string(row().name).find("Winograd4") != std::string::npos; }

  static ConvTester tester(uint32_t in, uint32_t out) {
    return ConvTester().channels(8 * in, 8 * out).kernel(3);
  }

  // (C + 40) eps K S, S the sum over channels of the largest weight times the largest input.
  double bound(const ConvCase& sizes, const ConvData& data, uint32_t out) const {
    const auto largest = [](const std::vector<float>& from, size_t first, size_t count) {
      double most = 0.0;
      for (size_t i = first; i < first + count; ++i)
        most = std::max(most, std::abs(double{from[i]}));
      return most;
    };
    const size_t plane = size_t{sizes.height} * sizes.width;
    double sum = data.bias.empty() ? 0.0 : std::abs(double{data.bias[out]});
    for (uint32_t c = 0; c < sizes.in_channels; ++c) {
      sum += largest(data.weight, (size_t{out} * sizes.in_channels + c) * 9, 9) *
             largest(data.input, c * plane, plane);
    }
    return (sizes.in_channels + 40.0) * 0x1p-23 * (is_of_four() ? 564.0 : 4580.0) * sum;
  }

  // The largest error, as a share of the bound.
  double share_of_bound(const ConvTester& tester, const ConvData& data) const {
    const testing::ScopedTrace trace("", 0, tester.sentence(row().name));
    const ConvOracle oracle = oracle_of<PlaneGeometry>(tester.sizes(), data);
    const std::vector<float> found = tester.output(row(), data);
    EXPECT_EQ(found.size(), oracle.sums.size());
    if (found.size() != oracle.sums.size()) return 1e9;
    const size_t pixels = found.size() / tester.sizes().out_channels;
    double share = 0.0;
    for (uint32_t out = 0; out < tester.sizes().out_channels; ++out) {
      const double most = bound(tester.sizes(), data, out);
      for (size_t i = out * pixels; i < (out + 1) * pixels; ++i) {
        const double sum = oracle.sums[i].value;
        const double error = std::abs(found[i] - exact_epilogue(row().epilogue, sum));
        const double allowed = epilogue_error(row().epilogue, sum, most);
        share = std::isnan(found[i]) ? 1e9 : std::max(share, error / allowed);
      }
    }
    return share;
  }

  void test(const ConvTester& tester) const {
    EXPECT_LE(share_of_bound(tester, float_data(tester.sizes(), 3)), 1.0);
  }
};

TEST_P(BlockWinograd, TakesEverySize) {
  for (uint32_t size = 1; size <= 19; size += row().epilogue == kernel::Epilogue::none ? 1 : 9) {
    test(tester(1, 1 + size % 7).size(size, 20 - size).padding(1));
  }
  test(tester(2, 7).size(9, 40).padding(1).bias(false));
}

TEST_P(BlockWinograd, TakesAnyPaddings) {
  test(tester(1, 2).size(7, 8).padding(0));
  test(tester(1, 2).size(3, 3).padding(0));
  test(tester(1, 2).size(5, 6).padding(3, 0, 0, 5));
  test(tester(1, 2).size(5, 6).padding(0, 4, 7, 0));
  test(tester(1, 1).size(1, 1).padding(9));
}

// Sums of small numbers from large ones, and numbers of very different magnitudes.
TEST_P(BlockWinograd, StaysInItsBoundOnHostileData) {
  const ConvTester hostile = tester(3, 2).size(14, 15).padding(1);
  EXPECT_LE(share_of_bound(hostile, uneven_data(hostile.sizes(), 5)), 1.0);
  ConvData cancelling = float_data(hostile.sizes(), 7);
  for (float& x : cancelling.input) x = 1000.0f + x;
  for (size_t i = 0; i < cancelling.weight.size(); ++i) {
    if (i % 9 == 8) {
      float sum = 0.0f;
      for (size_t tap = i - 8; tap < i; ++tap) sum += cancelling.weight[tap];
      cancelling.weight[i] = -sum;
    }
  }
  EXPECT_LE(share_of_bound(hostile, cancelling), 1.0);
  ConvData alternating = cancelling;
  for (size_t i = 0; i < alternating.input.size(); ++i) alternating.input[i] *= i % 2 == 0 ? 1 : -1;
  EXPECT_LE(share_of_bound(hostile, alternating), 1.0);
}

// On data as networks have, which the bound is far above of.
TEST_P(BlockWinograd, IsAccurateOnUsualData) {
  if (row().epilogue != kernel::Epilogue::none) GTEST_SKIP() << "as without an epilogue";
  const ConvTester usual = tester(8, 2).size(14, 14).padding(1);
  const ConvData data = float_data(usual.sizes(), 11);
  const ConvOracle oracle = oracle_of<PlaneGeometry>(usual.sizes(), data);
  const std::vector<float> found = usual.output(row(), data);
  double largest = 0.0;
  double worst = 0.0;
  for (size_t i = 0; i < found.size(); ++i) {
    largest = std::max(largest, std::abs(oracle.sums[i].value));
    worst = std::max(worst, std::abs(found[i] - oracle.sums[i].value));
  }
  EXPECT_LE(worst, largest * (is_of_four() ? 1e-5 : 5e-5));
}

TEST_P(BlockWinograd, RefusesOtherLayers) {
  const ConvTester base = tester(1, 1).size(8, 8).padding(1);
  EXPECT_FALSE(ConvTester(base).stride(2).test(row()));
  EXPECT_FALSE(ConvTester(base).dilation(2).test(row()));
  EXPECT_FALSE(ConvTester(base).kernel(1, 3).test(row()));
  EXPECT_FALSE(ConvTester(base).channels(16, 16).groups(2).test(row()));
  EXPECT_FALSE(ConvTester(base).channels(12, 8).test(row()));
}

INSTANTIATE_TEST_SUITE_P(Rows, BlockWinograd, testing::ValuesIn(kernel::block_winograd_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test

#endif
