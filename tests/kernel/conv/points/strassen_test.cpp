#include "qrt_core/kernel/conv/points/strassen.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "qrt_core/kernel/conv/points/strassen_cores.h"
#include "tests/support/compare.h"
#include "tests/support/conv_setup.h"
#include "tests/support/conv_tester.h"
#include "tests/support/kernels.h"
#include "tests/support/test_context.h"

#if QRT_WITH_AVX

namespace marlo::test {
namespace {

using runtime::IKernel;
using runtime::LayoutType;

const auto& kStrassen = kernel::rows::Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_Strassen_M1;
const auto& kPlain = kernel::rows::Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3;

// Rows, inner blocks and pixels of the three matrices.
ConvTester tester(uint32_t rows, uint32_t inner, uint32_t pixels) {
  return ConvTester().channels(8 * inner, 8 * rows).size(1, pixels);
}

// How often both halves are whole: the levels of the product.
int levels(uint32_t rows, uint32_t inner, uint32_t pixels) {
  int levels = 0;
  for (; levels < 2 && rows % 2 == 0 && inner % 2 == 0 && pixels % 2 == 0; ++levels) {
    rows /= 2, inner /= 2, pixels /= 2;
  }
  return levels;
}

class Strassen : public testing::Test {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(kStrassen.name); }
};

TEST_F(Strassen, AgreesWithTheDefinitionAtEveryParity) {
  for (uint32_t rows = 1; rows <= 5; ++rows) {
    for (uint32_t inner = 1; inner <= 5; ++inner) {
      for (const uint32_t pixels : {1u, 2u, 3u, 4u, 6u, 8u, 12u}) {
        EXPECT_TRUE(tester(rows, inner, pixels).test(kStrassen));
      }
    }
  }
}

TEST_F(Strassen, TakesEveryNumberOfPixels) {
  for (uint32_t pixels = 1; pixels <= 33; ++pixels) {
    EXPECT_TRUE(tester(4, 4, pixels).bias(pixels % 2 == 0).test(kStrassen));
  }
  EXPECT_TRUE(ConvTester().channels(64, 32).size(14, 14).test(kStrassen));
}

TEST_F(Strassen, RefusesWhatThePlainProductRefuses) {
  EXPECT_FALSE(tester(2, 2, 4).stride(2).test(kStrassen));
  EXPECT_FALSE(tester(2, 2, 4).padding(1).test(kStrassen));
  EXPECT_FALSE(tester(2, 2, 4).kernel(1, 2).test(kStrassen));
}

// The bound of Winograd's form: (18^levels (k^2 + 6 k)) eps max|a| max|b|, k being the channels
// that the innermost product sums. N. J. Higham, Accuracy and Stability of Numerical
// Algorithms, 23.2.
double bound(const ConvTester& tester, const ConvData& data) {
  const auto largest = [](const std::vector<float>& numbers) {
    double most = 0.0;
    for (const float number : numbers) most = std::max(most, std::abs(double{number}));
    return most;
  };
  const ConvCase& sizes = tester.sizes();
  const int depth = levels(sizes.out_channels / 8, sizes.in_channels / 8, sizes.width);
  const double k = sizes.in_channels >> depth;
  const double growth = std::pow(18.0, depth) * (k * k + 6 * k);
  return kEpsilon * (growth * largest(data.weight) * largest(data.input) + largest(data.bias));
}

// Magnitudes that differ from channel to channel: small results come from large numbers that
// cancel.
ConvData cancelling_data(const ConvTester& tester, uint32_t seed) {
  ConvData data = uneven_data(tester.sizes(), seed);
  const ConvCase& sizes = tester.sizes();
  const size_t half = data.weight.size() / 2;
  for (size_t i = half; i < data.weight.size(); ++i) data.weight[i] *= 1024.0f;
  for (size_t i = 0; i < data.input.size() / 2; ++i) data.input[i] *= 1024.0f;
  data.bias.assign(sizes.bias_size(), 0.0f);
  return data;
}

TEST_F(Strassen, StaysWithinItsOwnBoundWhereNumbersCancel) {
  bool exceeds_plain_bound = false;
  for (uint32_t seed = 1; seed <= 20; ++seed) {
    for (const auto& [rows, inner, pixels] :
         {std::array<uint32_t, 3>{4, 4, 8}, {2, 6, 10}, {4, 8, 12}, {8, 4, 16}}) {
      const ConvTester sized = tester(rows, inner, pixels);
      const ConvData data = cancelling_data(sized, seed);
      const ConvOracle oracle = convolution(sized.sizes(), data);
      const std::vector<float> found = sized.output(kStrassen, data);
      const double allowed = bound(sized, data);
      for (size_t i = 0; i < found.size(); ++i) {
        const double error = std::abs(found[i] - oracle.sums[i].value);
        EXPECT_LE(error, allowed) << "element " << i << " with seed " << seed;
        exceeds_plain_bound = exceeds_plain_bound || error > oracle.sums[i].bound();
      }
    }
  }
  EXPECT_TRUE(exceeds_plain_bound) << "the data doesn't show what the wider bound is for";
}

// With an odd size on any side the whole product is one base product, and that has M3's tiles.
TEST_F(Strassen, IsThePlainProductWithAnOddSide) {
  for (const auto& [rows, inner, pixels] :
       {std::array<uint32_t, 3>{3, 3, 5}, {1, 2, 4}, {2, 1, 4}, {2, 2, 5}}) {
    const ConvTester sized = tester(rows, inner, pixels).bias(false);
    const ConvData data = uneven_data(sized.sizes(), 4);
    EXPECT_TRUE(same_bits(sized.output(kStrassen, data), sized.output(kPlain, data)));
  }
}

// Blocks that a pass takes from the pool besides its output.
size_t scratch_blocks(uint32_t rows, uint32_t inner, uint32_t pixels) {
  TestContext context;
  const ConvCase sizes = tester(rows, inner, pixels).sizes();
  const auto kernel = make_kernel(kStrassen.name);
  EXPECT_TRUE(kernel->Config(describe<kernel::PlaneGeometry>(sizes, integer_data(sizes, 1)),
                             nullptr, context));
  const auto input = context.floats({inner, 1, pixels, 8}, LayoutType::C8HW8,
                                    std::vector<float>(size_t{8} * inner * pixels, 1.0f));
  const size_t before = context.pool().allocations();
  const size_t in_use = context.pool().blocks_in_use();
  IKernel::Tensors outputs;
  EXPECT_EQ(kernel->Forward({input}, outputs, context), 0);
  EXPECT_EQ(context.pool().blocks_in_use(), in_use + 1) << "scratch outlives the pass";
  return context.pool().allocations() - before - 1;
}

// Three for the first level, and three for each of its seven products that recurses.
TEST_F(Strassen, TakesScratchForEachLevelByParityAlone) {
  EXPECT_EQ(scratch_blocks(3, 3, 5), 0u);
  EXPECT_EQ(scratch_blocks(1, 2, 2), 0u);
  EXPECT_EQ(scratch_blocks(2, 2, 2), 3u);
  EXPECT_EQ(scratch_blocks(4, 4, 6), 3u) << "six pixels are odd after one halving";
  EXPECT_EQ(scratch_blocks(4, 4, 4), 24u);
  EXPECT_EQ(scratch_blocks(8, 8, 8), 24u) << "no third level";
}

TEST_F(Strassen, FailsWithoutLossWhenScratchRunsOut) {
  TestContext context;
  const ConvCase sizes = tester(4, 4, 4).sizes();
  const auto kernel = make_kernel(kStrassen.name);
  ASSERT_TRUE(kernel->Config(describe<kernel::PlaneGeometry>(sizes, integer_data(sizes, 1)),
                             nullptr, context));
  const auto input = context.floats({4, 1, 4, 8}, LayoutType::C8HW8, std::vector<float>(128, 1.0f));
  const size_t in_use = context.pool().blocks_in_use();
  for (const size_t call : {2u, 4u, 7u}) {
    IKernel::Tensors outputs;
    context.pool().fail_at(call);
    EXPECT_NE(failure_of([&] { kernel->Forward({input}, outputs, context); }), "");
    EXPECT_EQ(context.pool().blocks_in_use(), in_use);
  }
}

using Combine = decltype(&kernel::conv::MatrixAdd_A);

struct ElementFunction {
  const char* name;
  Combine combine;
  float sign;
  size_t unit;
};

class StrassenElements : public testing::TestWithParam<ElementFunction> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(kStrassen.name); }
};

TEST_P(StrassenElements, WalkRowsOfThreeStrides) {
  const auto [name, combine, sign, unit] = GetParam();
  constexpr size_t kRows = 3, kColumns = 2, kA = 2, kB = 3, kResult = 4;
  const std::vector<float> a = Random(1).floats(kRows * kA * unit);
  const std::vector<float> b = Random(2).floats(kRows * kB * unit);
  std::vector<float> expected(kRows * kResult * unit, 7.0f);
  std::vector<float> found = expected;
  for (size_t row = 0; row < kRows; ++row) {
    for (size_t i = 0; i < kColumns * unit; ++i) {
      expected[row * kResult * unit + i] = a[row * kA * unit + i] + sign * b[row * kB * unit + i];
    }
  }
  combine(a.data(), b.data(), found.data(), kRows, kColumns, kA, kB, kResult);
  EXPECT_TRUE(same_bits(found, expected));
}

TEST_P(StrassenElements, MayWriteOntoAnOperand) {
  const auto [name, combine, sign, unit] = GetParam();
  std::vector<float> a(2 * unit, 5.0f);
  std::vector<float> b(2 * unit, 3.0f);
  combine(a.data(), b.data(), a.data(), 2, 1, 1, 1, 1);
  EXPECT_EQ(a, std::vector<float>(2 * unit, 5.0f + sign * 3.0f));
  combine(a.data(), b.data(), b.data(), 2, 1, 1, 1, 1);
  EXPECT_EQ(b, std::vector<float>(2 * unit, 5.0f + sign * 3.0f + sign * 3.0f));
}

INSTANTIATE_TEST_SUITE_P(
    Functions, StrassenElements,
    testing::Values(ElementFunction{"MatrixAdd_A", kernel::conv::MatrixAdd_A, 1.0f, 64},
                    ElementFunction{"MatrixSub_A", kernel::conv::MatrixSub_A, -1.0f, 64},
                    ElementFunction{"MatrixAdd_BC", kernel::conv::MatrixAdd_BC, 1.0f, 8},
                    ElementFunction{"MatrixSub_BC", kernel::conv::MatrixSub_BC, -1.0f, 8}),
    [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace marlo::test

#endif
