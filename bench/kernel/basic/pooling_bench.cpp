#include <benchmark/benchmark.h>

#include <span>
#include <string>
#include <vector>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "bench/support/onednn_peers.h"
#include "qrt_core/kernel/basic/pooling.h"
#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/pooling_tester.h"

// Every pooling on the planes where networks have it: 64 channels of 112 by 112 before a stage, 64
// of 56 by 56 within one, and a last window over all that is left.

namespace marlo::bench {
namespace {

using kernel::PoolingRow;

struct Planes {
  const char* name;
  uint32_t channels;
  uint32_t size;
  int padding;
};

constexpr Planes kStages[] = {
    {"64x112x112", 64, 112, 0}, {"64x112x112/padding:1", 64, 112, 1}, {"64x56x56", 64, 56, 0}};
constexpr Planes kLast[] = {{"512x8x8", 512, 8, 0}};

void run_forward(benchmark::State& state, const PoolingRow& row, const Planes& planes) {
  const auto [name, channels, size, padding] = planes;
  const bool any = row.kernel == 0;
  test::PoolingCase sizes;
  sizes.planes = channels / row.block;
  sizes.height = sizes.width = size;
  sizes.kernel_y = sizes.kernel_x = any ? 3 : row.kernel;
  sizes.stride_y = sizes.stride_x = any ? 2 : row.stride;
  sizes.padding_l = sizes.padding_r = sizes.padding_t = sizes.padding_b = padding;
  const auto tester = test::PoolingTester()
                          .planes(sizes.planes)
                          .size(size, size)
                          .kernel(sizes.kernel_y)
                          .stride(sizes.stride_y)
                          .padding(padding);
  const std::vector<float> values = test::Random(1).floats(size_t{channels} * size * size);
  ConfiguredKernel layer(row.name, tester.description(row));
  layer.add_floats(tester.dims(row), row.layout, values);
  layer.pass();
  const auto expected = test::pooling(row, sizes, values).outputs;
  demand_elements(row.name, layer.output<const float>(), expected.size(), [&](size_t i) {
    return Expected{expected[i].value, 1e-5};
  });
  time_moving(state, layer);
  if (row.layout != runtime::LayoutType::C8HW8) return;
  report_peer(state, layer,
              onednn_pooling(row.kind == kernel::PoolingKind::maximum, channels, size,
                             sizes.kernel_y, sizes.stride_y, static_cast<uint32_t>(padding)));
}

const bool registered = [] {
  std::vector<const PoolingRow*> rows = kernel::pooling_rows;
#if QRT_WITH_EXTENSIONS && QRT_WITH_AVX
  rows.insert(rows.end(), kernel::block_pooling_rows);
#endif
  for (const PoolingRow* row : rows) {
    if (!can_run(row->name)) continue;
    const bool takes_all = row->stride == 1;
    for (const Planes& planes : takes_all ? std::span<const Planes>(kLast) : kStages) {
      benchmark::RegisterBenchmark((std::string(row->name) + "/" + planes.name).c_str(),
                                   run_forward, *row, planes);
    }
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
