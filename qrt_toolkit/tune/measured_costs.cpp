#include "qrt_toolkit/tune/measured_costs.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace marlo::toolkit {

MeasuredCosts::MeasuredCosts(Meter& meter, Wisdom& wisdom, MeasuredCostsHooks hooks)
    : meter_(meter), wisdom_(wisdom), hooks_(std::move(hooks)) {}

void MeasuredCosts::compare(const std::vector<Work>& rivals) {
  if (rivals[0].info != nullptr) hooks_.next_layer();
  double best = estimated_.of(rivals[0]);
  for (const Work& work : rivals) best = std::min(best, estimated_.of(work));
  // What is hopeless by any account would take the time of all others together.
  constexpr double kHopeless = 8;
  std::vector<Work> unknown;
  std::vector<std::string> keys;
  std::vector<const Work*> hopeless;
  for (const Work& work : rivals) {
    const std::string key = work.key();
    if (estimated_.of(work) > kHopeless * best) {
      hopeless.push_back(&work);
      continue;
    }
    if (times_.count(key) != 0) continue;
    if (const auto known = wisdom_.time(key)) {
      times_[key] = *known;
      ++remembered_;
      continue;
    }
    unknown.push_back(work);
    keys.push_back(key);
  }
  if (!unknown.empty() && hooks_.lasts()) measure(unknown, keys);
  double fastest = std::numeric_limits<double>::infinity();
  for (const Work& work : rivals) {
    const auto known = times_.find(work.key());
    if (known != times_.end()) fastest = std::min(fastest, known->second);
  }
  if (!std::isfinite(fastest)) return;
  // Estimates tell how far behind they are, and measurements what that is worth here.
  for (const Work* work : hopeless) {
    guesses_[work->key()] = estimated_.of(*work) / best * fastest;
  }
}

void MeasuredCosts::measure(const std::vector<Work>& unknown,
                            const std::vector<std::string>& keys) {
  const std::vector<double> times = meter_.time_work(unknown);
  const bool is_whole = hooks_.goes_on();
  for (size_t i = 0; i < unknown.size(); ++i) {
    if (!std::isfinite(times[i])) continue;
    times_[keys[i]] = times[i];
    if (is_whole) wisdom_.add(keys[i], times[i]);
    ++measured_;
  }
}

double MeasuredCosts::of(const Work& work) {
  const std::string key = work.key();
  const auto found = times_.find(key);
  if (found != times_.end()) return found->second;
  const auto guess = guesses_.find(key);
  return guess != guesses_.end() ? guess->second : estimated_.of(work);
}

bool MeasuredCosts::is_measured(const Work& work) const { return times_.count(work.key()) != 0; }

}  // namespace marlo::toolkit
