#include "qrt_toolkit/tune/measured_costs.h"

#include <algorithm>
#include <cmath>
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
  for (const Work& work : rivals) {
    if (estimated_.of(work) > kHopeless * best) continue;
    const std::string key = work.key();
    if (times_.count(key) != 0) continue;
    if (const auto known = wisdom_.time(key)) {
      times_[key] = *known;
      ++remembered_;
      continue;
    }
    unknown.push_back(work);
    keys.push_back(key);
  }
  if (unknown.empty() || !hooks_.lasts()) return;
  const std::vector<double> times = meter_.time_work(unknown);
  for (size_t i = 0; i < unknown.size(); ++i) {
    if (!std::isfinite(times[i])) continue;
    times_[keys[i]] = times[i];
    wisdom_.add(keys[i], times[i]);
    ++measured_;
  }
}

double MeasuredCosts::of(const Work& work) {
  const auto found = times_.find(work.key());
  return found != times_.end() ? found->second : estimated_.of(work);
}

bool MeasuredCosts::is_measured(const Work& work) const { return times_.count(work.key()) != 0; }

}  // namespace marlo::toolkit
