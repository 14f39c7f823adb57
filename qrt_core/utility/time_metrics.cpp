#include "qrt_core/utility/time_metrics.h"

#include <algorithm>
#include <cmath>
#include <ctime>
#include <limits>

namespace marlo::utility {
namespace {

constexpr double kNanosecondsPerSecond = 1e9;
constexpr long kNanosecondsPerMillisecond = 1000000;

}  // namespace

double getTickCount() {
  std::timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) * kNanosecondsPerSecond + static_cast<double>(now.tv_nsec);
}

double getTickFrequency() { return kNanosecondsPerSecond; }

double get_time_in_ms() {
  std::timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  const auto seconds = static_cast<int32_t>(now.tv_sec);
  const long milliseconds = now.tv_nsec / kNanosecondsPerMillisecond;
  return seconds * 1000.0 + static_cast<double>(milliseconds);
}

TimeMetrics::TimeMetrics() { clear(); }

double TimeMetrics::tic() {
  last_tick_ = getTickCount();
  return last_tick_;
}

double TimeMetrics::toc() {
  const double now = getTickCount();
  const double sample = (now - last_tick_) / getTickFrequency();
  if (samples_.size() == samples_.capacity()) {
    const std::size_t capacity = samples_.capacity();
    samples_.reserve(capacity + std::max<std::size_t>(capacity / 2, 1));
  }
  samples_.push_back(sample);
  if (sample > maximum_) maximum_ = sample;
  if (sample < minimum_) minimum_ = sample;
  sum_ += sample;
  ++count_;
  return now;
}

double TimeMetrics::avg() const { return count_ == 0 ? 0.0 : sum_ / static_cast<double>(count_); }

double TimeMetrics::var() const {
  if (count_ == 0) return 0.0;
  const double mean = avg();
  double squares = 0.0;
  for (const double sample : samples_) squares += (sample - mean) * (sample - mean);
  return squares / static_cast<double>(count_);
}

double TimeMetrics::std() const { return std::sqrt(var()); }

double TimeMetrics::sum() const { return sum_; }

uint64_t TimeMetrics::cnt() const { return count_; }

double TimeMetrics::tmin() const { return minimum_; }

double TimeMetrics::tmax() const { return maximum_; }

double TimeMetrics::feq() const { return getTickFrequency(); }

void TimeMetrics::clear() {
  last_tick_ = 0.0;
  sum_ = 0.0;
  count_ = 0;
  minimum_ = std::numeric_limits<float>::max();
  maximum_ = std::numeric_limits<float>::min();
  samples_.clear();
}

}  // namespace marlo::utility
