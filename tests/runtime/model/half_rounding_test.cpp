#include "qrt_core/runtime/model/half_rounding.h"

#include <gtest/gtest.h>

#include <cmath>

#include "qrt_core/runtime/model/layers.h"
#include "tests/runtime/model/file_helpers.h"
#include "tests/support/numbers.h"

namespace marlo::test {

using namespace runtime;

namespace {

// By the definition of the format, for all but infinities and NaN.
float half_of(uint32_t bits) {
  const uint32_t exponent = bits >> 10 & 0x1F;
  const auto fraction = static_cast<float>(bits & 0x3FF);
  const float magnitude = exponent == 0
                              ? std::ldexp(fraction, -24)
                              : std::ldexp(1024.0f + fraction, static_cast<int>(exponent) - 25);
  return (bits & 0x8000) != 0 ? -magnitude : magnitude;
}

TEST(RoundToHalf, KeepsEveryHalf) {
  for (uint32_t bits = 0; bits < 0x10000; ++bits) {
    if ((bits & 0x7C00) == 0x7C00) continue;
    ASSERT_EQ(bits_of(RoundToHalf(half_of(bits))), bits_of(half_of(bits))) << bits;
  }
  EXPECT_EQ(RoundToHalf(kInfinity), kInfinity);
  EXPECT_EQ(RoundToHalf(-kInfinity), -kInfinity);
  EXPECT_TRUE(std::isnan(RoundToHalf(kNaN)));
}

TEST(RoundToHalf, TakesTheNearerOfTwoNeighboursAndInTheMiddleTheEvenOne) {
  for (const float sign : {1.0f, -1.0f}) {
    for (uint32_t bits = 0; bits < 0x7BFF; ++bits) {
      const float low = half_of(bits);
      const float high = half_of(bits + 1);
      const float middle = low + (high - low) / 2;
      const float even = (bits & 1) == 0 ? low : high;
      ASSERT_EQ(RoundToHalf(sign * middle), sign * even) << bits;
      ASSERT_EQ(RoundToHalf(sign * float_of(bits_of(middle) - 1)), sign * low) << bits;
      ASSERT_EQ(RoundToHalf(sign * float_of(bits_of(middle) + 1)), sign * high) << bits;
      ASSERT_EQ(RoundToHalf(sign * float_of(bits_of(low) + 1)), sign * low) << bits;
      ASSERT_EQ(RoundToHalf(sign * float_of(bits_of(high) - 1)), sign * high) << bits;
    }
  }
}

TEST(RoundToHalf, From65520OnIsInfinite) {
  EXPECT_EQ(RoundToHalf(std::nextafterf(65520.0f, 0.0f)), 65504.0f);
  for (const float number : {65520.0f, 65536.0f, 1e30f, test::kLargest}) {
    EXPECT_EQ(RoundToHalf(number), kInfinity);
    EXPECT_EQ(RoundToHalf(-number), -kInfinity);
  }
}

TEST(RoundToHalf, GivesTheSmallestNumbersAZeroOfTheirSign) {
  for (const float number : {test::kLeastDenormal, test::kLeastNormal, 1e-20f, 0x1p-25f}) {
    EXPECT_EQ(bits_of(RoundToHalf(number)), 0u);
    EXPECT_EQ(bits_of(RoundToHalf(-number)), 0x80000000u);
  }
  EXPECT_EQ(RoundToHalf(std::nextafterf(0x1p-25f, 1.0f)), 0x1p-24f);
}

TEST(HalfLoss, CountsWhatBecomesInfiniteZeroAndSubnormal) {
  const float numbers[] = {1.0f, -70000.0f, 65530.0f,  1e-9f, -0x1p-20f,
                           0.0f, -0.0f,     kInfinity, kNaN,  0x1.8p-25f};
  const HalfLoss nearest = MeasureHalfLoss(numbers, 10, HalfConversion::nearest);
  EXPECT_EQ(nearest.numbers, 10u);
  EXPECT_EQ(nearest.not_finite, 2u);
  EXPECT_EQ(nearest.infinite, 2u);
  EXPECT_EQ(nearest.zero, 1u);
  EXPECT_EQ(nearest.subnormal, 2u);
  EXPECT_EQ(nearest.compared, 4u);
  EXPECT_EQ(nearest.max_relative_error, 1.0);
  const HalfLoss truncated = MeasureHalfLoss(numbers, 10, HalfConversion::truncate);
  EXPECT_EQ(truncated.infinite, 1u);
  EXPECT_EQ(truncated.zero, 2u);
  EXPECT_EQ(truncated.subnormal, 1u);
  EXPECT_EQ(truncated.compared, 5u);
}

TEST(HalfLoss, GivesTheLargestErrorAndTheRootOfTheMeanSquare) {
  // Errors of 2^-12 up, which is the largest by rounding, of 2^-13 down, and of none.
  const float numbers[] = {1.0f + 0x1p-11f, 2.0f, -(1.0f + 0x1p-13f)};
  const HalfLoss loss = MeasureHalfLoss(numbers, 3, HalfConversion::nearest);
  const double first = 0x1p-11 / (1 + 0x1p-11);
  const double last = 0x1p-13 / (1 + 0x1p-13);
  EXPECT_DOUBLE_EQ(loss.max_relative_error, first);
  EXPECT_DOUBLE_EQ(loss.rms_relative_error, std::sqrt((first * first + last * last) / 3));
}

TEST(HalfLoss, OfTruncationIsUpToTwiceThatOfRounding) {
  const std::vector<float> numbers = test::Random(1).floats(100000, 0.25f);
  const HalfLoss nearest = MeasureHalfLoss(numbers.data(), numbers.size(), HalfConversion::nearest);
  const HalfLoss cut = MeasureHalfLoss(numbers.data(), numbers.size(), HalfConversion::truncate);
  // Numbers of 13 bits below 2^-11 lose more.
  EXPECT_GT(cut.rms_relative_error, 1.9 * nearest.rms_relative_error);
  EXPECT_LT(cut.rms_relative_error, 2.1 * nearest.rms_relative_error);
}

TEST(HalfLoss, OfNoNumbersIsNone) {
  const HalfLoss loss = MeasureHalfLoss(nullptr, 0, HalfConversion::nearest);
  EXPECT_EQ(loss.numbers, 0u);
  EXPECT_EQ(loss.rms_relative_error, 0.0);
}

TEST(HalfLoss, OfPartsAddsUpToThatOfTheWhole) {
  std::vector<float> numbers = test::Random(2).uneven_floats(1000, 20);
  numbers[3] = kNaN;
  const HalfLoss whole = MeasureHalfLoss(numbers.data(), 1000, HalfConversion::truncate);
  HalfLoss sum;
  sum += MeasureHalfLoss(numbers.data(), 300, HalfConversion::truncate);
  sum += MeasureHalfLoss(numbers.data() + 300, 700, HalfConversion::truncate);
  EXPECT_EQ(sum.numbers, whole.numbers);
  EXPECT_EQ(sum.not_finite, 1u);
  EXPECT_EQ(sum.infinite, whole.infinite);
  EXPECT_EQ(sum.zero, whole.zero);
  EXPECT_EQ(sum.subnormal, whole.subnormal);
  EXPECT_EQ(sum.compared, whole.compared);
  EXPECT_EQ(sum.max_relative_error, whole.max_relative_error);
  EXPECT_NEAR(sum.rms_relative_error, whole.rms_relative_error, 1e-12);
}

TEST(RoundToHalves, LeavesTheBinaryFormNothingToCut) {
  const std::vector<float> numbers = test::Random(3).floats(1000);
  FullConnectionInfo layer;
  layer.weight = MakeWeightBlob(numbers.data(), numbers.size());
  const HalfLoss loss = RoundToHalves(layer.weight);
  EXPECT_EQ(loss.numbers, 1000u);
  EXPECT_GT(loss.rms_relative_error, 0.0);
  EXPECT_EQ(MeasureHalfLoss(layer.weight, HalfConversion::truncate).max_relative_error, 0.0);
  const std::vector<float> rounded = WeightNumbers(layer.weight);
  for (size_t i = 0; i < numbers.size(); ++i) ASSERT_EQ(rounded[i], RoundToHalf(numbers[i]));

  FullConnectionInfo read;
  ASSERT_TRUE(read_bytes(read, written(layer, "bin")));
  EXPECT_EQ(read.weight, layer.weight);
}

TEST(RoundToHalves, LeavesATextWithoutNumbersAsItIs) {
  for (const char* text : {"", "AAA=", "!!!"}) {
    WeightBlob blob = text;
    EXPECT_EQ(RoundToHalves(blob).numbers, 0u);
    EXPECT_EQ(blob, text);
  }
}

}  // namespace
}  // namespace marlo::test
