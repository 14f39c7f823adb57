#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <optional>

// The same work done by a library that the distribution packages, where it is installed.
//
//   report_peer(state, [&] { layer.pass(); }, onednn_convolution(sizes));

namespace marlo::bench {

/// One prepared operation: everything but the computation itself has been done.
struct Peer {
  const char* column;          ///< of the report, as "x oneDNN"
  std::function<void()> pass;  ///< computes once
};

/// Runs ours and the peer by turns, and adds its column: how often ours runs in the time that the
/// peer takes once. Without a peer there is no column.
void report_peer(benchmark::State& state, const std::function<void()>& ours,
                 const std::optional<Peer>& peer);

}  // namespace marlo::bench
