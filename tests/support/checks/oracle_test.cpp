#include "tests/support/oracle.h"

#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/activation_reference.h"
#include "tests/support/compare.h"
#include "tests/support/numbers.h"

// Definitions and comparisons by examples that were worked out by hand.

namespace marlo::test {
namespace {

std::vector<double> values(const ConvOracle& oracle) {
  std::vector<double> values;
  for (const Sum& sum : oracle.sums) values.push_back(sum.value);
  return values;
}

TEST(ConvolutionOracle, SlidesAWindowOverAPaddedPicture) {
  ConvCase sizes;
  sizes.height = 2;
  sizes.width = 3;
  sizes.kernel_y = sizes.kernel_x = 2;
  sizes.padding_r = 1;
  const ConvData data{{1, 2, 3, 4, 5, 6}, {1, 10, 100, 1000}, {7}};
  const ConvOracle oracle = convolution(sizes, data);
  EXPECT_EQ(oracle.height, 1);
  EXPECT_EQ(oracle.width, 3);
  EXPECT_EQ(values(oracle), (std::vector<double>{5428, 6539, 610}));
}

TEST(ConvolutionOracle, KeepsGroupsApart) {
  ConvCase sizes;
  sizes.in_channels = sizes.out_channels = 4;
  sizes.groups = 2;
  sizes.bias = false;
  const ConvData data{{1, 2, 3, 4}, {1, 10, 2, 20, 3, 30, 4, 40}, {}};
  EXPECT_EQ(values(convolution(sizes, data)), (std::vector<double>{21, 42, 129, 172}));
  // The transposed form takes the same numbers as [input][output] of a group.
  EXPECT_EQ(values(transposed_convolution(sizes, data)), (std::vector<double>{5, 50, 25, 250}));
}

TEST(ConvolutionOracle, ScattersTheFilterOfATransposedConvolution) {
  ConvCase sizes;
  sizes.width = 2;
  sizes.kernel_x = 3;
  sizes.stride_x = 2;
  sizes.padding_l = sizes.padding_r = 2;
  sizes.bias = false;
  const ConvData data{{1, 10}, {1, 2, 3}, {}};
  // Nothing is cut off, and one column of the stride stays at the end.
  EXPECT_EQ(values(transposed_convolution(sizes, data)),
            (std::vector<double>{1, 2, 13, 20, 30, 0}));
  sizes.padding_l = 1;
  sizes.padding_r = 0;
  EXPECT_EQ(values(transposed_convolution(sizes, data)), (std::vector<double>{2, 13, 20}));
}

TEST(Sum, BoundsByTermsAndMagnitude) {
  Sum sum;
  sum.add(3.0);
  sum.add(-1.0);
  EXPECT_EQ(sum.value, 2.0);
  EXPECT_EQ(sum.magnitude, 4.0);
  EXPECT_EQ(sum.bound(), 2 * kEpsilon * 4.0);
}

TEST(Compare, SeesOneWrongElement) {
  std::vector<Sum> sums(3);
  for (Sum& sum : sums) sum.add(1.0);
  EXPECT_TRUE(exactly({1, 1, 1}, sums));
  EXPECT_TRUE(within_bounds({1, 1.0f + 1e-7f, 1}, sums));
  EXPECT_FALSE(exactly({1, 1.0f + 1.2e-7f, 1}, sums));
  EXPECT_FALSE(within_bounds({1, 1.0f + 4e-7f, 1}, sums));
  EXPECT_FALSE(within_bounds({1, kNaN, 1}, sums));
  EXPECT_FALSE(exactly({1, 1}, sums));
  EXPECT_TRUE(same_bits({kNaN, 1.0f}, {-kNaN, 1.0f}));
  EXPECT_FALSE(same_bits(std::vector<float>{0.0f}, std::vector<float>{-0.0f}));
  EXPECT_FALSE(same_bits({1.0f}, {1.0f, 1.0f}));
}

TEST(Compare, NamesTheFirstWrongElement) {
  const std::string message = same_bits({1.0f, 2.0f, 3.0f}, {1.0f, 4.0f, 5.0f}).message();
  EXPECT_EQ(message,
            "2 of 3 elements are wrong, the first at 1: 2 (bits 40000000) instead of 4 (bits "
            "40800000)");
}

TEST(Numbers, CountFloatsBetweenTwo) {
  EXPECT_EQ(ulp_distance(1.0f, 1.0f), 0u);
  EXPECT_EQ(ulp_distance(0.0f, -0.0f), 0u);
  EXPECT_EQ(ulp_distance(-kLeastDenormal, kLeastDenormal), 2u);
  EXPECT_EQ(ulp_distance(1.0f, std::nextafter(1.0f, 2.0f)), 1u);
}

TEST(Numbers, AreTheSameForOneSeed) {
  EXPECT_TRUE(same_bits(Random(3).floats(10), Random(3).floats(10)));
  EXPECT_FALSE(same_bits(Random(3).floats(10), Random(4).floats(10)));
}

TEST(ActivationReference, HasFastExponentialsNearTheTrueOne) {
  for (float v = -80.0f; v <= 80.0f; v += 0.01f) {
    const double exact = std::exp(static_cast<double>(v));
    EXPECT_GT(fast_exponential(v) / exact, 0.960) << v;
    EXPECT_LT(fast_exponential(v) / exact, 1.021) << v;
    EXPECT_NEAR(polynomial_exponential(v) / exact, 1.0, 3e-7) << v;
  }
}

TEST(ActivationReference, RefusesAKernelThatItDoesNotKnow) {
  EXPECT_THROW(activation_reference("ReLU_SSE_Float_M2"), std::invalid_argument);
}

}  // namespace
}  // namespace marlo::test
