#include "qrt_toolkit/bench/statistics.h"

#include <gmock/gmock.h>

#include <cmath>
#include <random>
#include <stdexcept>

namespace marlo::toolkit {
namespace {

std::vector<double> up_to(size_t count) {
  std::vector<double> samples;
  for (size_t i = 1; i <= count; ++i) samples.push_back(static_cast<double>(i));
  return samples;
}

// Times of passes as they come: a floor, small disturbances above it, and rare large ones.
std::vector<double> recorded_like(double floor, size_t count, uint64_t seed) {
  std::mt19937_64 generator(seed);
  std::vector<double> samples;
  for (size_t i = 0; i < count; ++i) {
    const double unit = static_cast<double>(generator() >> 11) * 0x1p-53;
    samples.push_back(floor * (1.0 - 0.02 * std::log(1.0 - unit)) *
                      (generator() % 50 == 0 ? 3 : 1));
  }
  return samples;
}

TEST(Statistics, MedianIsTheMiddleOrTheMeanOfTheTwoInIt) {
  EXPECT_EQ(median({}), 0.0);
  EXPECT_EQ(median({7}), 7.0);
  EXPECT_EQ(median({3, 1, 2}), 2.0);
  EXPECT_EQ(median({4, 1, 2, 3}), 2.5);
}

TEST(Statistics, QuantilesLieBetweenSamplesInProportion) {
  EXPECT_EQ(quantile({}, 0.5), 0.0);
  EXPECT_EQ(quantile({5}, 0.99), 5.0);
  EXPECT_EQ(quantile({4, 1, 3, 2, 5}, 0.0), 1.0);
  EXPECT_EQ(quantile({4, 1, 3, 2, 5}, 1.0), 5.0);
  EXPECT_DOUBLE_EQ(quantile({4, 1, 3, 2, 5}, 0.9), 4.6);
  EXPECT_EQ(quantile({1, 2}, 7.0), 2.0);
}

TEST(Statistics, ASummarySaysWhatLiesWhere) {
  const Summary summary = summarise(up_to(101));
  EXPECT_EQ(summary.count, 101u);
  EXPECT_EQ(summary.minimum, 1.0);
  EXPECT_EQ(summary.median, 51.0);
  EXPECT_EQ(summary.mean, 51.0);
  EXPECT_EQ(summary.p90, 91.0);
  EXPECT_EQ(summary.p99, 100.0);
  EXPECT_EQ(summary.maximum, 101.0);
  EXPECT_DOUBLE_EQ(summary.spread, 50.0 / 51.0);
  const Summary none = summarise({});
  EXPECT_EQ(none.count, 0u);
  EXPECT_EQ(none.spread, 0.0);
}

// With 100 samples the ranks at 95 % are 40 and 61 in the tables.
TEST(Statistics, TheIntervalOfAMedianIsThatOfTheTables) {
  const Interval interval = median_interval(up_to(100));
  EXPECT_EQ(interval.estimate, 50.5);
  EXPECT_EQ(interval.low, 40.0);
  EXPECT_EQ(interval.high, 61.0);
  const Interval few = median_interval({3, 1, 2});
  EXPECT_EQ(few.low, 1.0);
  EXPECT_EQ(few.high, 3.0);
}

TEST(Statistics, IntervalsHoldTheTrueMedianAboutAsOftenAsTheySay) {
  const double truth = 1.0 + 0.02 * std::log(2.0);
  int held = 0;
  constexpr int kTrials = 400;
  for (int trial = 0; trial < kTrials; ++trial) {
    std::vector<double> samples = recorded_like(1.0, 101, static_cast<uint64_t>(trial) + 7);
    for (double& sample : samples) sample = sample > 2.0 ? sample / 3.0 : sample;
    const Interval interval = median_interval(samples);
    if (interval.low <= truth && truth <= interval.high) ++held;
  }
  EXPECT_GE(held, kTrials * 92 / 100);
  EXPECT_LE(held, kTrials * 99 / 100);
}

TEST(Statistics, ARatioOfEqualSeriesIsOneWithoutDoubt) {
  const std::vector<double> samples = recorded_like(2.0, 200, 1);
  const Interval ratio = ratio_interval(samples, samples);
  EXPECT_EQ(ratio.estimate, 1.0);
  EXPECT_EQ(ratio.low, 1.0);
  EXPECT_EQ(ratio.high, 1.0);
}

TEST(Statistics, ARatioLiesInItsIntervalAndIsTheSameEveryTime) {
  const std::vector<double> first = recorded_like(2.0, 300, 2);
  const std::vector<double> second = recorded_like(1.6, 300, 3);
  const Interval ratio = ratio_interval(first, second);
  EXPECT_LT(ratio.low, 0.8);
  EXPECT_GT(ratio.high, 0.8);
  EXPECT_LE(ratio.low, ratio.estimate);
  EXPECT_GE(ratio.high, ratio.estimate);
  EXPECT_LT(ratio.high - ratio.low, 0.02);
  const Interval again = ratio_interval(first, second);
  EXPECT_EQ(again.low, ratio.low);
  EXPECT_EQ(again.high, ratio.high);
  EXPECT_LT(ratio_interval(first, second, 0.5).high - ratio_interval(first, second, 0.5).low,
            ratio.high - ratio.low);
}

TEST(Statistics, WhatDisturbsBothOfARoundCancelsOut) {
  std::vector<double> first = recorded_like(2.0, 300, 4);
  std::vector<double> second = first;
  for (size_t i = 0; i < first.size(); ++i) {
    const double load = i % 30 < 15 ? 1.0 : 1.5;  // another program, now and then
    first[i] *= load;
    second[i] *= 1.1 * load;
  }
  const Interval ratio = ratio_interval(first, second);
  EXPECT_NEAR(ratio.low, 1.1, 1e-12);
  EXPECT_NEAR(ratio.high, 1.1, 1e-12);
}

TEST(Statistics, ASlowDriftOfOneWidensTheInterval) {
  const std::vector<double> steady = recorded_like(2.0, 400, 5);
  const std::vector<double> other = recorded_like(2.0, 400, 6);
  std::vector<double> drifting = other;
  for (size_t i = 0; i < drifting.size(); ++i) {
    drifting[i] *= 1.0 + 0.1 * std::sin(static_cast<double>(i) / 30.0);
  }
  const Interval narrow = ratio_interval(steady, other);
  const Interval wide = ratio_interval(steady, drifting);
  EXPECT_GT(wide.high - wide.low, 3.0 * (narrow.high - narrow.low));
}

TEST(Statistics, ARatioNeedsAsManySamplesOfBoth) {
  EXPECT_THROW(ratio_interval({}, {}), std::invalid_argument);
  EXPECT_THROW(ratio_interval({1, 2}, {1}), std::invalid_argument);
  EXPECT_THROW(ratio_interval({1, 0}, {1, 1}), std::invalid_argument);
  EXPECT_THROW(ratio_interval({1, 1}, {1, -1}), std::invalid_argument);
  const Interval one = ratio_interval({2}, {3});
  EXPECT_EQ(one.low, 1.5);
  EXPECT_EQ(one.high, 1.5);
}

TEST(Statistics, ASeriesIsSteadyWhereItStopsFalling) {
  const std::vector<double> falling{9, 5, 3, 2, 1.5, 1.01, 1, 1.01, 1, 1, 1, 1};
  EXPECT_EQ(steady_from(falling, 3, 0.02), 4u);
  EXPECT_EQ(steady_from({1, 1, 1, 1}, 2, 0.0), 0u);
  EXPECT_EQ(steady_from({8, 4, 2, 1}, 1, 0.02), std::nullopt);
  EXPECT_EQ(steady_from({1, 1}, 2, 0.02), std::nullopt);
  EXPECT_EQ(steady_from({}, 1, 0.02), std::nullopt);
  EXPECT_EQ(steady_from({1, 1}, 0, 0.02), std::nullopt);
}

}  // namespace
}  // namespace marlo::toolkit
