#include "qrt_core/utility/time_metrics.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>
#include <type_traits>
#include <vector>

namespace marlo::test {

using namespace utility;

namespace {

constexpr double kLargeSentinel = 3.4028234663852886e38;
constexpr double kSmallSentinel = 1.1754943508222875e-38;

void wait(double seconds) { std::this_thread::sleep_for(std::chrono::duration<double>(seconds)); }

TEST(Clock, TickCountNeverGoesBackAndAdvancesWithTheFrequency) {
  const double start = getTickCount();
  wait(0.02);
  const double seconds = (getTickCount() - start) / getTickFrequency();
  EXPECT_GE(seconds, 0.02);
  EXPECT_LT(seconds, 20.0);
}

TEST(Clock, TimeInMillisecondsIsWholeAndAgreesWithTheSystemClock) {
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  const auto now = [] {
    return static_cast<double>(
        duration_cast<milliseconds>(std::chrono::system_clock::now().time_since_epoch()).count());
  };
  const double before = now();
  const double time = get_time_in_ms();
  const double after = now();
  EXPECT_EQ(time, std::floor(time));
  EXPECT_GE(time, before);
  EXPECT_LE(time, after);
}

TEST(TimeMetrics, EmptyHasZeroStatisticsAndTheTwoSentinels) {
  TimeMetrics timer;
  EXPECT_EQ(timer.avg(), 0.0);
  EXPECT_EQ(timer.var(), 0.0);
  EXPECT_EQ(timer.std(), 0.0);
  EXPECT_EQ(timer.sum(), 0.0);
  EXPECT_EQ(timer.cnt(), 0u);
  EXPECT_EQ(timer.tmin(), kLargeSentinel);
  EXPECT_EQ(timer.tmax(), kSmallSentinel);
}

TEST(TimeMetrics, TicAndTocReturnTheRawTickAndNotTheElapsedTime) {
  TimeMetrics timer;
  const double before = getTickCount();
  const double start = timer.tic();
  const double end = timer.toc();
  const double after = getTickCount();
  EXPECT_GE(start, before);
  EXPECT_GE(end, start);
  EXPECT_LE(end, after);
}

TEST(TimeMetrics, SampleIsTheTimeSinceTicInSeconds) {
  TimeMetrics timer;
  const double start = timer.tic();
  wait(0.01);
  const double end = timer.toc();
  EXPECT_EQ(timer.sum(), (end - start) / timer.feq());
  EXPECT_GE(timer.sum(), 0.01);
  EXPECT_EQ(timer.cnt(), 1u);
  EXPECT_EQ(timer.tmin(), timer.sum());
  EXPECT_EQ(timer.tmax(), timer.sum());
  EXPECT_EQ(timer.var(), 0.0);
}

TEST(TimeMetrics, TocWithoutANewTicMeasuresFromTheLastTic) {
  TimeMetrics timer;
  const double start = timer.tic();
  const double first = timer.toc();
  const double second = timer.toc();
  EXPECT_EQ(timer.cnt(), 2u);
  EXPECT_EQ(timer.tmin(), (first - start) / timer.feq());
  EXPECT_EQ(timer.tmax(), std::max((second - start) / timer.feq(), timer.tmin()));
}

TEST(TimeMetrics, StatisticsAreThoseOfThePopulation) {
  TimeMetrics timer;
  std::vector<double> samples;
  for (int i = 0; i < 20; ++i) {
    const double start = timer.tic();
    if (i % 5 == 0) wait(0.002);
    samples.push_back((timer.toc() - start) / timer.feq());
  }
  double sum = 0.0;
  for (const double sample : samples) sum += sample;
  const double mean = sum / 20;
  double squares = 0.0;
  for (const double sample : samples) squares += (sample - mean) * (sample - mean);

  EXPECT_EQ(timer.cnt(), 20u);
  EXPECT_DOUBLE_EQ(timer.sum(), sum);
  EXPECT_DOUBLE_EQ(timer.avg(), mean);
  EXPECT_DOUBLE_EQ(timer.var(), squares / 20);
  EXPECT_DOUBLE_EQ(timer.std(), std::sqrt(squares / 20));
  EXPECT_EQ(timer.tmin(), *std::min_element(samples.begin(), samples.end()));
  EXPECT_EQ(timer.tmax(), *std::max_element(samples.begin(), samples.end()));
  EXPECT_GT(timer.std(), 0.0);
}

TEST(TimeMetrics, ClearForgetsEverythingIncludingTheLastTick) {
  TimeMetrics timer;
  timer.tic();
  timer.toc();
  timer.clear();
  EXPECT_EQ(timer.cnt(), 0u);
  EXPECT_EQ(timer.sum(), 0.0);
  EXPECT_EQ(timer.var(), 0.0);
  EXPECT_EQ(timer.tmin(), kLargeSentinel);
  EXPECT_EQ(timer.tmax(), kSmallSentinel);
  const double now = timer.toc();
  EXPECT_EQ(timer.sum(), now / timer.feq());
}

TEST(TimeMetrics, FrequencyDoesNotDependOnTheObject) {
  TimeMetrics timer;
  EXPECT_EQ(timer.feq(), getTickFrequency());
}

TEST(TimeMetrics, IsAPlainClassWithItsMembersInTheDocumentedOrder) {
  static_assert(!std::is_polymorphic_v<TimeMetrics>);
  static_assert(sizeof(TimeMetrics) ==
                4 * sizeof(double) + sizeof(uint64_t) + sizeof(std::vector<double>));
  TimeMetrics timer;
  timer.tic();
  wait(0.001);
  timer.toc();
  const double start = timer.tic();
  timer.toc();
  double numbers[3];
  std::memcpy(numbers, &timer, sizeof numbers);
  EXPECT_EQ(numbers[0], timer.tmin());
  EXPECT_EQ(numbers[1], timer.tmax());
  EXPECT_EQ(numbers[2], timer.sum());
  const auto* bytes = reinterpret_cast<const char*>(&timer);
  uint64_t count;
  std::memcpy(&count, bytes + sizeof numbers, sizeof count);
  EXPECT_EQ(count, 2u);
  double last_tick;
  std::memcpy(&last_tick, bytes + sizeof timer - sizeof last_tick, sizeof last_tick);
  EXPECT_EQ(last_tick, start);
}

// Growth: 1, 2, 3, 4, 6, 9, 13, ... Each step takes half of the capacity more, so the vector's
// capacity, which its end pointer shows, is never more than half as large again as its size.
TEST(TimeMetrics, SamplesGrowByHalfOfTheirCapacityAndClearKeepsIt) {
  TimeMetrics timer;
  const auto samples = [&timer] {
    const char* member = reinterpret_cast<const char*>(&timer) + 3 * sizeof(double) + 8;
    return reinterpret_cast<const std::vector<double>*>(member);
  };
  std::vector<size_t> capacities;
  for (int i = 0; i < 500; ++i) {
    timer.tic();
    timer.toc();
    const size_t capacity = samples()->capacity();
    if (capacities.empty() || capacities.back() != capacity) capacities.push_back(capacity);
  }
  for (size_t k = 1; k < capacities.size(); ++k) {
    EXPECT_EQ(capacities[k], capacities[k - 1] + std::max<size_t>(capacities[k - 1] / 2, 1));
  }
  EXPECT_EQ(samples()->size(), 500u);
  timer.clear();
  EXPECT_EQ(samples()->size(), 0u);
  EXPECT_EQ(samples()->capacity(), capacities.back());
}

}  // namespace
}  // namespace marlo::test
