#include <benchmark/benchmark.h>

#include <initializer_list>
#include <string>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "bench/support/conv_benchmarks.h"
#include "bench/support/probe.h"
#include "qrt_core/kernel/conv/reference/reference_convolution.h"
#include "tests/support/conv_setup.h"

// The portable convolutions on layers of known networks.

namespace marlo::bench {
namespace {

using kernel::ConvolutionRow;
using test::ConvCase;
using test::ConvData;

// The portable kernels, and the oracle even more so, take too long for larger layers.
constexpr double kMostMultiplyAdds = 6e8;

template <typename Geometry>
void run(benchmark::State& state, const ConvolutionRow<Geometry>& row, const ConvShape& shape) {
  const ConvCase& sizes = shape.sizes;
  const ConvData data = test::float_data(sizes, 1);
  const auto dims = test::dims_of<Geometry>(sizes.in_channels, static_cast<int>(sizes.height),
                                            static_cast<int>(sizes.width));
  const auto layout = dims.size() == 2 ? runtime::LayoutType::CL : runtime::LayoutType::CHW;
  ConfiguredKernel layer(row.name, test::describe<Geometry>(sizes, data));
  layer.add_planes(dims, layout, data.input);
  if (is_unchecked(row.name, shape)) {
    layer.pass();
    demand_sums(layer.name() + " on " + shape.name, layer.output<const float>(),
                test::oracle_of<Geometry>(sizes, data).sums);
  }
  time_computing(state, layer, 2 * shape.multiply_adds(), arithmetic_limit(layer.width()));
}

template <typename Geometry>
void add(std::initializer_list<const ConvolutionRow<Geometry>*> rows, ConvShape::Kind kind) {
  const auto fits = [kind](const ConvolutionRow<Geometry>&, const ConvShape& shape) {
    return shape.kind == kind && shape.multiply_adds() <= kMostMultiplyAdds;
  };
  register_on_shapes(rows, fits, run<Geometry>, 3);
}

const bool registered = [] {
  add(kernel::plane_convolution_rows, ConvShape::Kind::plane);
  add(kernel::transposed_convolution_rows, ConvShape::Kind::transposed);
  add(kernel::line_convolution_rows, ConvShape::Kind::line);
  return true;
}();

}  // namespace
}  // namespace marlo::bench
