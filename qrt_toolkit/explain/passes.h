#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/runtime/tensor/context.h"
#include "qrt_toolkit/watch/profiler.h"

// Passes of one network, timed whole and kernel by kernel.

namespace marlo::toolkit {

/// What passes took.
struct PassTimes {
  Profile profile;   ///< kernels, without what the clock costs; its whole passes are watched ones
  double ms = 0;     ///< a pass that nobody watches, in the processor's time
  size_t count = 0;  ///< of passes that were watched
};

/// How long passes are timed.
struct PassBudget {
  double ms = 1000;    ///< for watched passes, and as much for others
  size_t least = 5;    ///< passes of each kind, however long they take
  size_t most = 2000;  ///< however short they are
  /// Asked between passes, now and then; false ends them, and what is known so far is what there is.
  std::function<bool()> go_on{};
};

/// A network with its inputs. It belongs to one thread.
class TimedNetwork {
 public:
  /// @param inputs shapes of the network's inputs by layer id
  /// @throws std::invalid_argument for an input without a shape, or a network that returns nothing
  TimedNetwork(const runtime::QRTModel& model, const std::string& id,
               const std::map<std::string, runtime::TensorShape>& inputs,
               const runtime::KernelRegistry& kernels);

  /// Runs passes until they are warm, then some that nobody watches, watched ones, and some more of
  /// the first kind, so that a drift of the machine meets both. No count is a pass that was ended
  /// before anything was known.
  PassTimes time(const PassBudget& budget);

  const runtime::Net& net() const { return *net_; }

 private:
  Times pass();
  bool goes_on(const PassBudget& budget);
  template <typename Pass>
  size_t run_passes(const PassBudget& budget, const Pass& pass);
  std::vector<double> plain_passes(const PassBudget& budget);

  std::shared_ptr<runtime::Context> context_;
  std::shared_ptr<runtime::Net> net_;
  std::map<unsigned int, runtime::TensorShape> inputs_;
  std::map<unsigned int, std::vector<char>> bytes_;
  std::vector<unsigned int> wanted_;
  std::chrono::steady_clock::time_point asked_{};  // when `go_on` was
  bool is_ended_ = false;
};

}  // namespace marlo::toolkit
