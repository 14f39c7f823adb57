#include "qrt_core/kernel/layout/layout_transform.h"

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "tests/support/numbers.h"

// Every layout transform: a whole Forward on planes of known networks, from L2 to memory, and on
// planes of 2^12 floats, whose rows all fall into the same sets of a cache. The share is that of a
// copy between the same two tensors.

namespace marlo::bench {
namespace {

using kernel::LayoutTransformRow;

/// [channels, height, width].
struct Planes {
  uint32_t channels;
  uint32_t height;
  uint32_t width;
};

constexpr Planes kPlanes[] = {{64, 112, 112}, {64, 56, 56}, {256, 14, 14}, {32, 64, 64}};

void run_forward(benchmark::State& state, const LayoutTransformRow& row, const Planes& planes) {
  const std::vector<float> values =
      test::Random(1).floats(size_t{planes.channels} * planes.height * planes.width);
  ConfiguredKernel kernel(row.name, nullptr);
  kernel.add_planes({planes.channels, planes.height, planes.width}, row.source.layout, values);
  kernel.pass();
  demand_numbers(row.name, kernel.output_planes(planes.channels), values);
  time_transforming(state, kernel);
}

const bool registered = [] {
  for (const LayoutTransformRow* row : kernel::layout_transform_rows) {
    if (!can_run(row->name)) continue;
    for (const Planes& planes : kPlanes) {
      const std::string name = std::string(row->name) + "/forward/" +
                               std::to_string(planes.channels) + "x" +
                               std::to_string(planes.height) + "x" + std::to_string(planes.width);
      benchmark::RegisterBenchmark(name.c_str(), run_forward, *row, planes);
    }
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
