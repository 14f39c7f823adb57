#include "qrt_toolkit/bench/sampling.h"

#include <gmock/gmock.h>

#include <stdexcept>
#include <string>

namespace marlo::toolkit {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::SizeIs;

TEST(Sampling, WarmingUpEndsWhereASeriesIsSteady) {
  const std::vector<double> recorded{40, 9, 5, 3, 1.01, 1, 1, 1.01, 1, 1, 1, 1};
  size_t next = 0;
  SamplingOptions options;
  options.warm_window = 2;
  const WarmUp warm = warm_up([&] { return recorded.at(next++); }, options);
  EXPECT_TRUE(warm.is_steady);
  EXPECT_THAT(warm.samples, ElementsAre(40, 9, 5, 3, 1.01, 1, 1, 1.01));
}

TEST(Sampling, WarmingUpEndsInTimeWhereNothingSettles) {
  double next = 1000.0;
  SamplingOptions options;
  options.most_warm_ms = 3000.0;
  const WarmUp warm = warm_up([&] { return next *= 0.9; }, options);
  EXPECT_FALSE(warm.is_steady);
  EXPECT_THAT(warm.samples, SizeIs(4));  // 900 + 810 + 729 + 656
}

TEST(Sampling, RoundsGoThroughAllSubjectsThereAndBack) {
  std::string order;
  SamplingOptions options;
  options.least_rounds = options.most_rounds = 4;
  const auto samples = take_samples(
      3,
      [&](size_t subject) {
        order += static_cast<char>('A' + subject);
        return 1.0 + static_cast<double>(subject);
      },
      options);
  EXPECT_EQ(order, "ABCCBAABCCBA");
  EXPECT_THAT(samples, SizeIs(3));
  EXPECT_THAT(samples[2], ElementsAre(3, 3, 3, 3));
}

TEST(Sampling, EndsWhereTheMedianIsKnownWellEnough) {
  SamplingOptions options;
  options.least_ms = 100.0;
  // Nothing varies: as soon as there is enough of it.
  const auto same = take_samples(
      1, [](size_t) { return 2.0; }, options);
  EXPECT_THAT(same[0], SizeIs(50));
  // Every other sample is a tenth longer: half an interval is known to within 5 % only.
  size_t count = 0;
  options.precision = 0.01;
  options.most_ms = 1000.0;
  const auto noisy = take_samples(
      1, [&](size_t) { return ++count % 2 == 0 ? 2.2 : 2.0; }, options);
  EXPECT_GT(noisy[0].size(), 450u);
  options.precision = 0.06;
  EXPECT_THAT(take_samples(
                  1, [&](size_t) { return ++count % 2 == 0 ? 2.2 : 2.0; }, options)[0],
              SizeIs(48));
}

TEST(Sampling, GoesOnAsLongAsItIsTold) {
  SamplingOptions options;
  options.exact_ms = 100.0;
  // As long for the quick one as for the slow one.
  const auto samples = take_samples(
      2, [](size_t subject) { return subject == 0 ? 1.0 : 5.0; }, options);
  EXPECT_THAT(samples[0], SizeIs(100));
  EXPECT_THAT(samples[1], SizeIs(100));
}

TEST(Sampling, WhatAPassThrowsGoesOn) {
  const auto fail = [](size_t) -> double { throw std::runtime_error("a pass"); };
  EXPECT_THROW(take_samples(1, fail), std::runtime_error);
  EXPECT_THAT(take_samples(0, fail), SizeIs(0));
}

}  // namespace
}  // namespace marlo::toolkit
