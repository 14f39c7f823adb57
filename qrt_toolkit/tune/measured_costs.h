#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "qrt_toolkit/assign/costs.h"
#include "qrt_toolkit/tune/meter.h"
#include "qrt_toolkit/tune/wisdom.h"

// What work costs by measurement.

namespace marlo::toolkit {

/// Who is asked while costs are measured.
struct MeasuredCostsHooks {
  std::function<bool()> lasts;       ///< whether there is time for another measurement
  std::function<void()> next_layer;  ///< told before the kernels of a layer are compared
  /// Whether nobody has ended it; times that were cut short aren't remembered.
  std::function<bool()> goes_on;
};

/// Costs that are measured once for each distinct work. What isn't measured, for want of time or
/// because it is hopeless, is estimated.
class MeasuredCosts final : public Costs {
 public:
  /// @param meter as the wisdom it outlives the object
  MeasuredCosts(Meter& meter, Wisdom& wisdom, MeasuredCostsHooks hooks);

  void compare(const std::vector<Work>& rivals) override;
  double of(const Work& work) override;

  /// Whether `of` tells a time that was measured.
  bool is_measured(const Work& work) const;

  size_t measured() const { return measured_; }      ///< so many times were taken
  size_t remembered() const { return remembered_; }  ///< so many came from the wisdom

 private:
  void measure(const std::vector<Work>& unknown, const std::vector<std::string>& keys);

  Meter& meter_;
  Wisdom& wisdom_;
  MeasuredCostsHooks hooks_;
  EstimatedCosts estimated_;
  std::map<std::string, double> times_;
  std::map<std::string, double> guesses_;  // of what was hopeless
  size_t measured_ = 0;
  size_t remembered_ = 0;
};

}  // namespace marlo::toolkit
