#include "qrt_core/kernel/conv/scatter_convolution.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <set>
#include <stdexcept>
#include <string>

#include "bench/support/configured_kernel.h"
#include "bench/support/peer.h"
#include "bench/support/probe.h"
#include "bench/support/reporting.h"
#include "bench/support/shapes.h"
#include "tests/support/blocked_layout.h"
#include "tests/support/conv_setup.h"

// The fast transposed convolutions on layers that they take, beside oneDNN held to AVX2. The
// full result and what is cut off it are part of the time.

#if QRT_WITH_SSE || QRT_WITH_AVX

namespace marlo::bench {
namespace {

using kernel::ScatterGeometry;
using kernel::TransposedGeometry;
using runtime::DataType;
using test::ConvCase;
using test::ConvData;
using Row = kernel::ConvolutionRow<ScatterGeometry>;

// The sizes hold paddings of the portable kernel's kind, whose result is longer by the stride less
// one. These kernels take what is cut off the full result, and cut less at the end.
ConvCase with_cuts(ConvCase sizes) {
  sizes.padding_l = sizes.extent_x() - 1 - sizes.padding_l;
  sizes.padding_t = sizes.extent_y() - 1 - sizes.padding_t;
  sizes.padding_r = sizes.extent_x() - sizes.padding_r - static_cast<int>(sizes.stride_x);
  sizes.padding_b = sizes.extent_y() - sizes.padding_b - static_cast<int>(sizes.stride_y);
  return sizes;
}

void check(const Row& row, const ConvShape& shape, const ConvData& data,
           const std::vector<float>& output) {
  const ConvCase& sizes = shape.sizes;
  // The definition has its weights by input channels first.
  ConvData turned = data;
  const size_t taps = size_t{sizes.kernel_x} * sizes.kernel_y;
  for (size_t i = 0; i < data.weight.size(); ++i) {
    const size_t out = i / taps / sizes.in_channels;
    const size_t in = i / taps % sizes.in_channels;
    turned.weight[(in * sizes.out_channels + out) * taps + i % taps] = data.weight[i];
  }
  const auto oracle = test::oracle_of<TransposedGeometry>(sizes, turned);
  bool right = output.size() == oracle.sums.size();
  for (size_t i = 0; right && i < output.size(); ++i) {
    right = std::abs(output[i] - oracle.sums[i].value) <= oracle.sums[i].bound();
  }
  if (!right) throw std::runtime_error(std::string(row.name) + " is wrong on " + shape.name);
}

void run(benchmark::State& state, const Row& row, const ConvShape& shape) {
  const ConvCase& sizes = shape.sizes;
  const ConvData data = test::float_data(sizes, 1);
  const auto layout = row.input.layout;
  const runtime::TensorShape input(
      test::dims_in_layout({sizes.in_channels, sizes.height, sizes.width}, layout),
      DataType::FLOAT32, layout);
  ConfiguredKernel layer(row.name, test::describe<TransposedGeometry>(with_cuts(sizes), data),
                         nullptr, input,
                         test::to_layout(data.input, sizes.in_channels, layout).data());
  layer.pass();
  static std::set<std::string> checked;
  if (checked.insert(row.name + shape.name).second) {
    const auto* first = layer.output<float>();
    check(row, shape, data,
          test::from_layout({first, first + layer.output_count()}, sizes.out_channels, layout));
  }

  const double limit = arithmetic_limit(width_of(row.name));
  for (auto _ : state) layer.pass();
  report_arithmetic(state, 2 * shape.multiply_adds(), limit);
  if (const auto peer = peer_transposed_convolution(sizes)) {
    report_peer(
        state, [&] { layer.pass(); }, *peer);
  }
}

bool fits(const Row& row, const ConvShape& shape) {
  const ConvCase& sizes = shape.sizes;
  return shape.kind == ConvShape::Kind::transposed &&
         sizes.in_channels % runtime::BlockSize(row.input.layout) == 0 &&
         sizes.out_channels % runtime::BlockSize(row.output.layout) == 0 &&
         row.accepts(ScatterGeometry::params_of(*test::describe<TransposedGeometry>(sizes, {})));
}

const bool registered = [] {
  for (const Row* row : kernel::scatter_convolution_rows) {
    if (!can_run(row->name)) continue;
    for (const ConvShape& shape : conv_shapes()) {
      if (!fits(*row, shape)) continue;
      const std::string name = std::string(row->name) + "/" + shape.name;
      benchmark::RegisterBenchmark(name.c_str(), [row, &shape](benchmark::State& state) {
        run(state, *row, shape);
      })->Unit(benchmark::kMillisecond);
    }
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench

#endif
