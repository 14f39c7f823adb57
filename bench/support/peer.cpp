#include "bench/support/peer.h"

#include <vector>

#include "bench/support/timing.h"

namespace marlo::bench {
namespace {

// What a turn takes at least, so that reading the clock doesn't count.
constexpr double kTurnSeconds = 1e-4;
// Slow layers have fewer turns, which take so long together.
constexpr size_t kMostTurns = 31;
constexpr size_t kLeastTurns = 5;
constexpr double kSeconds = 0.2;

/// One side, and its time for a call in each turn.
class Side {
 public:
  explicit Side(const std::function<void()>& work)
      : work_(work), calls_(calls_longer_than(kTurnSeconds, work)) {}

  /// @return the seconds that it took
  double take_turn() {
    const double seconds = seconds_of(work_, calls_);
    times_.push_back(seconds / static_cast<double>(calls_));
    return seconds;
  }

  size_t turns() const { return times_.size(); }
  double median_seconds() const { return median(times_); }

 private:
  const std::function<void()>& work_;
  size_t calls_;
  std::vector<double> times_;
};

}  // namespace

void report_peer(benchmark::State& state, const std::function<void()>& ours,
                 const std::optional<Peer>& peer) {
  if (!peer) return;
  Side us(ours);
  Side them(peer->pass);
  double seconds = 0.0;
  while (us.turns() < kLeastTurns || (us.turns() < kMostTurns && seconds < kSeconds)) {
    seconds += us.take_turn() + them.take_turn();
  }
  state.counters[peer->column] = them.median_seconds() / us.median_seconds();
}

}  // namespace marlo::bench
