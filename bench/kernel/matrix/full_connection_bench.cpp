#include "qrt_core/kernel/matrix/full_connection.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <vector>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "bench/support/openblas_peers.h"
#include "bench/support/probe.h"
#include "bench/support/reporting.h"
#include "qrt_core/runtime/model/conv_info.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/oracle.h"

// Full connections of three sizes, beside OpenBLAS. The limit is reading the weights: from L2, from
// the last level and from memory.

namespace marlo::bench {
namespace {

using kernel::FullConnectionRow;

struct Features {
  uint32_t outs;
  uint32_t ins;
};

constexpr Features kSizes[] = {{256, 256}, {1000, 1024}, {1024, 1024}, {4096, 4096}};

std::vector<test::Sum> sums_of(const std::vector<float>& weight, const std::vector<float>& input,
                               uint32_t outs) {
  std::vector<test::Sum> sums(outs);
  for (size_t i = 0; i < weight.size(); ++i) {
    sums[i / input.size()].add(double{weight[i]} * input[i % input.size()]);
  }
  return sums;
}

void run(benchmark::State& state, const FullConnectionRow& row, const Features& size) {
  test::Random random(1);
  const std::vector<float> weight = random.floats(size_t{size.outs} * size.ins);
  const std::vector<float> input = random.floats(size.ins);
  const auto info = std::make_shared<runtime::FullConnectionInfo>();
  info->in_features = static_cast<uint16_t>(size.ins);
  info->out_features = static_cast<uint16_t>(size.outs);
  info->weight = test::weight_text(weight);
  std::vector<uint32_t> dims = {size.ins};
  if (row.is_batch) dims.insert(dims.begin(), 1);
  ConfiguredKernel layer(row.name, info);
  layer.add_floats(dims, row.layout, input);
  layer.pass();
  demand_sums(row.name, layer.output<const float>(), sums_of(weight, input, size.outs));

  const double limit = read_limit(layer.width(), weight.data(), weight.size());
  for (auto _ : state) layer.pass();
  report_bandwidth(state, weight.size() * sizeof(float), limit);
  report_peer(state, layer, openblas_vector_product(weight.data(), size.outs, size.ins));
}

const bool registered = [] {
  for (const FullConnectionRow* row : kernel::full_connection_rows) {
    if (!can_run(row->name)) continue;
    for (const Features& size : kSizes) {
      if (!row->accepts(size.ins, size.outs)) continue;
      const std::string name =
          std::string(row->name) + "/" + std::to_string(size.outs) + "x" + std::to_string(size.ins);
      benchmark::RegisterBenchmark(
          name.c_str(), [row, &size](benchmark::State& state) { run(state, *row, size); });
    }
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
