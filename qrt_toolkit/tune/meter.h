#pragma once

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/utility/export.h"
#include "qrt_toolkit/assign/costs.h"

// What tells how long kernels and networks take.

namespace marlo::toolkit {

/// Takes times. One thread at a time uses it.
class QRT_API Meter {
 public:
  Meter() = default;
  Meter(const Meter&) = delete;
  Meter& operator=(const Meter&) = delete;
  virtual ~Meter();

  /// Milliseconds of each of several works that do the same; infinity where none are known.
  virtual std::vector<double> time_work(const std::vector<Work>& rivals) = 0;

  /// Milliseconds of a pass of each of several models of one network; infinity where none are known.
  /// @param inputs shapes of the network's inputs by layer id
  virtual std::vector<double> time_passes(
      const std::vector<const runtime::QRTModel*>& models, const std::string& network,
      const std::map<std::string, runtime::TensorShape>& inputs) = 0;
};

/// Takes times of the processor on the calling thread, which other programs don't lengthen. Rivals are run in turn, so that whatever else
/// the machine does meets all of them alike; those that are far behind the first are left after a
/// sample, and close ones get more. A time is a median.
class QRT_API ClockMeter final : public Meter {
 public:
  /// @param kernels outlives the meter
  /// @param go_on asked before each run; once it says false nothing more runs. May be empty
  explicit ClockMeter(const runtime::KernelRegistry& kernels, std::function<bool()> go_on = {})
      : kernels_(kernels), go_on_(std::move(go_on)) {}

  std::vector<double> time_work(const std::vector<Work>& rivals) override;
  std::vector<double> time_passes(
      const std::vector<const runtime::QRTModel*>& models, const std::string& network,
      const std::map<std::string, runtime::TensorShape>& inputs) override;

 private:
  struct Sampling;

  bool goes_on() const { return !go_on_ || go_on_(); }
  std::vector<double> medians(const std::vector<std::function<double()>>& rivals,
                              const Sampling& sampling) const;

  const runtime::KernelRegistry& kernels_;
  std::function<bool()> go_on_;
};

}  // namespace marlo::toolkit
