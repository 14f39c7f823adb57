#pragma once

#include <benchmark/benchmark.h>

#include <set>
#include <string>

#include "bench/support/processor.h"
#include "bench/support/shapes.h"

// Convolutions on layers of known networks.

namespace marlo::bench {

/// Registers "kernel/network/layer" for each row that this processor can run and each layer that it
/// fits.
/// @param fits whether a row takes a layer: `(row, shape) -> bool`
/// @param run times it: `(state, row, shape)`
/// @param repetitions 0 for as many as the others
template <typename Rows, typename Fits, typename Run>
void register_on_shapes(const Rows& rows, Fits fits, Run run, int repetitions = 0) {
  for (const auto* row : rows) {
    if (!can_run(row->name)) continue;
    for (const ConvShape& shape : conv_shapes()) {
      if (!fits(*row, shape)) continue;
      const std::string name = std::string(row->name) + "/" + shape.name;
      auto* const added = benchmark::RegisterBenchmark(
          name.c_str(), [row, &shape, run](benchmark::State& state) { run(state, *row, shape); });
      added->Unit(benchmark::kMillisecond);
      if (repetitions > 0) added->Repetitions(repetitions);
    }
  }
}

/// Whether the kernel's result on the layer is still to be checked. The definition takes longer
/// than all repetitions together, so that the first of them has to do.
inline bool is_unchecked(const std::string& kernel, const ConvShape& shape) {
  static std::set<std::string> checked;
  return checked.insert(kernel + "/" + shape.name).second;
}

}  // namespace marlo::bench
