#include "qrt_toolkit/bench/sampling.h"

#include <algorithm>

#include "qrt_toolkit/bench/statistics.h"

namespace marlo::toolkit {
namespace {

bool is_precise(const std::vector<double>& samples, double precision) {
  const Interval interval = median_interval(samples);
  return interval.high - interval.low <= 2.0 * precision * interval.estimate;
}

/// Says when samples are enough.
class Limits {
 public:
  Limits(size_t subjects, const SamplingOptions& options)
      : options_(options),
        spent_(subjects, 0.0),
        next_look_(std::max<size_t>(1, options.least_rounds)) {}

  void add(size_t subject, double taken) { spent_[subject] += taken; }

  bool are_reached(size_t rounds, const std::vector<std::vector<double>>& samples) {
    if (rounds >= options_.most_rounds) return true;
    if (rounds < options_.least_rounds) return false;
    const double least = *std::min_element(spent_.begin(), spent_.end());
    if (options_.exact_ms) return least >= *options_.exact_ms;
    if (*std::max_element(spent_.begin(), spent_.end()) >= options_.most_ms) return true;
    // Intervals cost a sort: they are looked at whenever there are a tenth more samples.
    if (least < options_.least_ms || rounds < next_look_) return false;
    next_look_ = rounds + rounds / 10 + 1;
    return std::all_of(samples.begin(), samples.end(),
                       [&](const auto& one) { return is_precise(one, options_.precision); });
  }

 private:
  const SamplingOptions& options_;
  std::vector<double> spent_;
  size_t next_look_;
};

}  // namespace

WarmUp warm_up(const std::function<double()>& sample, const SamplingOptions& options) {
  const size_t window = std::max<size_t>(1, options.warm_window);
  WarmUp warm;
  double spent = 0.0;
  while (!warm.is_steady && warm.samples.size() < options.most_rounds &&
         (spent < options.most_warm_ms || warm.samples.size() < 2)) {
    warm.samples.push_back(sample());
    spent += warm.samples.back();
    if (warm.samples.size() < 2 * window) continue;
    // Only the last two windows are new.
    const auto begin = warm.samples.end() - static_cast<std::ptrdiff_t>(2 * window);
    warm.is_steady =
        steady_from({begin, warm.samples.end()}, window, options.warm_tolerance).has_value();
  }
  return warm;
}

std::vector<std::vector<double>> take_samples(size_t subjects,
                                              const std::function<double(size_t subject)>& sample,
                                              const SamplingOptions& options) {
  std::vector<std::vector<double>> samples(subjects);
  if (subjects == 0) return samples;
  Limits limits(subjects, options);
  size_t round = 0;
  do {
    for (size_t turn = 0; turn < subjects; ++turn) {
      const size_t subject = round % 2 == 0 ? turn : subjects - 1 - turn;
      samples[subject].push_back(sample(subject));
      limits.add(subject, samples[subject].back());
    }
  } while (!limits.are_reached(++round, samples));
  return samples;
}

}  // namespace marlo::toolkit
