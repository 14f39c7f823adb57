#include "qrt_core/kernel/conv/transposed/scatter_convolution.h"

#include <benchmark/benchmark.h>

#include <string>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "bench/support/conv_benchmarks.h"
#include "bench/support/onednn_peers.h"
#include "bench/support/probe.h"
#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/conv_setup.h"

// The fast transposed convolutions on layers that they take, beside oneDNN held to AVX2. The
// full result and what is cut off it are part of the time of the first set's kernels.

#if QRT_WITH_SSE || QRT_WITH_AVX

namespace marlo::bench {
namespace {

using kernel::ScatterGeometry;
using kernel::TransposedGeometry;
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

// The definition has its weights by input channels first.
ConvData by_input_channels(ConvData data, const ConvCase& sizes) {
  const std::vector<float> by_outputs = data.weight;
  const size_t taps = size_t{sizes.kernel_x} * sizes.kernel_y;
  for (size_t i = 0; i < by_outputs.size(); ++i) {
    const size_t out = i / taps / sizes.in_channels;
    const size_t in = i / taps % sizes.in_channels;
    data.weight[(in * sizes.out_channels + out) * taps + i % taps] = by_outputs[i];
  }
  return data;
}

void run(benchmark::State& state, const Row& row, const ConvShape& shape) {
  const ConvCase& sizes = shape.sizes;
  const ConvData data = test::float_data(sizes, 1);
  ConfiguredKernel layer(row.name, test::describe<TransposedGeometry>(with_cuts(sizes), data));
  layer.add_planes({sizes.in_channels, sizes.height, sizes.width}, row.input.layout, data.input);
  layer.pass();
  if (is_unchecked(row.name, shape)) {
    const auto oracle = test::oracle_of<TransposedGeometry>(sizes, by_input_channels(data, sizes));
    demand_sums(layer.name() + " on " + shape.name, layer.output_planes(sizes.out_channels),
                oracle.sums);
  }
  time_computing(state, layer, 2 * shape.multiply_adds(), arithmetic_limit(layer.width()));
  report_peer(state, layer, onednn_transposed_convolution(sizes));
}

bool fits(const Row& row, const ConvShape& shape) {
  const ConvCase& sizes = shape.sizes;
  return shape.kind == ConvShape::Kind::transposed &&
         sizes.in_channels % runtime::BlockSize(row.input.layout) == 0 &&
         sizes.out_channels % runtime::BlockSize(row.output.layout) == 0 &&
         kernel::fits(row.accepts,
                      ScatterGeometry::params_of(*test::describe<TransposedGeometry>(sizes, {})));
}

#if QRT_WITH_EXTENSIONS
using BlockRow = kernel::ConvolutionRow<TransposedGeometry>;

// A result that is larger than the input by the stride, as networks have it.
ConvCase enlarging(ConvCase sizes) {
  sizes.padding_r = sizes.extent_x() - 1 - sizes.padding_l;
  sizes.padding_b = sizes.extent_y() - 1 - sizes.padding_t;
  return sizes;
}

void run_blocks(benchmark::State& state, const BlockRow& row, const ConvShape& shape) {
  const ConvCase sizes = enlarging(shape.sizes);
  const ConvData data = test::float_data(sizes, 1);
  ConfiguredKernel layer(row.name, test::describe<TransposedGeometry>(sizes, data));
  layer.add_planes({sizes.in_channels, sizes.height, sizes.width}, row.input.layout, data.input);
  layer.pass();
  if (is_unchecked(row.name, shape)) {
    demand_sums(layer.name() + " on " + shape.name, layer.output_planes(sizes.out_channels),
                test::oracle_of<TransposedGeometry>(sizes, data).sums);
  }
  const bool is_wide = row.needs == runtime::InstructionSet::avx512;
  time_computing(state, layer, 2 * shape.multiply_adds(), is_wide ? wide_limit() : fused_limit());
  report_peer(state, layer, onednn_transposed_convolution(sizes));
}

bool fits_blocks(const BlockRow& row, const ConvShape& shape) {
  return shape.kind == ConvShape::Kind::transposed && row.epilogue == kernel::Epilogue::none &&
         kernel::fits(row.accepts, TransposedGeometry::params_of(
                                       *test::describe<TransposedGeometry>(shape.sizes, {})));
}
#endif

const bool registered = [] {
  register_on_shapes(kernel::scatter_convolution_rows, fits, run);
#if QRT_WITH_EXTENSIONS
  register_on_shapes(kernel::block_transposed_rows, fits_blocks, run_blocks);
#endif
  return true;
}();

}  // namespace
}  // namespace marlo::bench

#endif
