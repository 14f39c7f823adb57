#include "qrt_toolkit/bench/statistics.h"

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <stdexcept>

namespace marlo::toolkit {
namespace {

constexpr size_t kResamples = 1000;

double quantile_of_sorted(const std::vector<double>& sorted, double share) {
  if (sorted.empty()) return 0.0;
  const double place = std::clamp(share, 0.0, 1.0) * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<size_t>(place);
  if (below + 1 >= sorted.size()) return sorted.back();
  const double part = place - static_cast<double>(below);
  return sorted[below] + part * (sorted[below + 1] - sorted[below]);
}

// The median of numbers that may be put into another order.
double median_in_place(std::vector<double>& samples) {
  if (samples.empty()) return 0.0;
  const auto middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
  std::nth_element(samples.begin(), middle, samples.end());
  if (samples.size() % 2 == 1) return *middle;
  return (*std::max_element(samples.begin(), middle) + *middle) / 2.0;
}

// How many standard deviations of a normal distribution lie on each side at a confidence; found by
// halving, as the C++ library has the distribution but not its inverse.
double normal_deviations(double confidence) {
  double low = 0.0;
  double high = 10.0;
  for (int i = 0; i < 60; ++i) {
    const double middle = (low + high) / 2.0;
    (std::erf(middle / std::sqrt(2.0)) < confidence ? low : high) = middle;
  }
  return low;
}

}  // namespace

double median(std::vector<double> samples) { return median_in_place(samples); }

double quantile(std::vector<double> samples, double share) {
  std::sort(samples.begin(), samples.end());
  return quantile_of_sorted(samples, share);
}

Summary summarise(const std::vector<double>& samples) {
  Summary summary;
  if (samples.empty()) return summary;
  std::vector<double> sorted = samples;
  std::sort(sorted.begin(), sorted.end());
  summary.count = sorted.size();
  summary.minimum = sorted.front();
  summary.maximum = sorted.back();
  summary.median = quantile_of_sorted(sorted, 0.5);
  summary.p90 = quantile_of_sorted(sorted, 0.9);
  summary.p99 = quantile_of_sorted(sorted, 0.99);
  summary.mean =
      std::accumulate(sorted.begin(), sorted.end(), 0.0) / static_cast<double>(sorted.size());
  if (summary.median > 0.0) {
    summary.spread =
        (quantile_of_sorted(sorted, 0.75) - quantile_of_sorted(sorted, 0.25)) / summary.median;
  }
  return summary;
}

Interval median_interval(const std::vector<double>& samples, double confidence) {
  if (samples.empty()) return {};
  std::vector<double> sorted = samples;
  std::sort(sorted.begin(), sorted.end());
  const auto count = static_cast<double>(sorted.size());
  // Ranks count from 1: the interval reaches from the r-th to the (count + 1 - r)-th.
  const double rank = std::floor((count - normal_deviations(confidence) * std::sqrt(count)) / 2.0);
  const size_t cut = rank < 1.0 ? 0 : static_cast<size_t>(rank) - 1;
  return {quantile_of_sorted(sorted, 0.5), sorted[cut], sorted[sorted.size() - 1 - cut]};
}

Interval ratio_interval(const std::vector<double>& first, const std::vector<double>& second,
                        double confidence) {
  const auto is_time = [](double sample) { return sample > 0.0 && std::isfinite(sample); };
  if (first.empty() || first.size() != second.size() ||
      !std::all_of(first.begin(), first.end(), is_time) ||
      !std::all_of(second.begin(), second.end(), is_time)) {
    throw std::invalid_argument(
        "a ratio needs samples above 0 of both, as many of one as of the other");
  }
  const size_t count = first.size();
  const auto block =
      std::max<size_t>(1, static_cast<size_t>(std::cbrt(static_cast<double>(count))));
  const size_t starts = count - block + 1;
  std::mt19937_64 generator(1);  // a fixed seed: what the samples say must not depend on luck
  std::vector<double> a(count);
  std::vector<double> b(count);
  std::vector<double> ratios;
  ratios.reserve(kResamples);
  for (size_t resample = 0; resample < kResamples; ++resample) {
    for (size_t at = 0; at < count; at += block) {
      const auto start = static_cast<size_t>(generator() % starts);
      const size_t length = std::min(block, count - at);
      for (size_t i = 0; i < length; ++i) {
        a[at + i] = first[start + i];
        b[at + i] = second[start + i];
      }
    }
    ratios.push_back(median_in_place(b) / median_in_place(a));
  }
  std::sort(ratios.begin(), ratios.end());
  return {median(second) / median(first), quantile_of_sorted(ratios, (1.0 - confidence) / 2.0),
          quantile_of_sorted(ratios, (1.0 + confidence) / 2.0)};
}

std::optional<size_t> steady_from(const std::vector<double>& samples, size_t window,
                                  double tolerance) {
  const auto median_at = [&](size_t at) {
    const auto begin = samples.begin() + static_cast<std::ptrdiff_t>(at);
    return median({begin, begin + static_cast<std::ptrdiff_t>(window)});
  };
  for (size_t at = 0; window > 0 && at + 2 * window <= samples.size(); ++at) {
    const double here = median_at(at);
    if (std::abs(here - median_at(at + window)) <= tolerance * here) return at;
  }
  return std::nullopt;
}

}  // namespace marlo::toolkit
