#include "qrt_core/kernel/conv/windows/line_convolution.h"

#include <benchmark/benchmark.h>

#include <string>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "bench/support/conv_benchmarks.h"
#include "bench/support/onednn_peers.h"
#include "bench/support/probe.h"
#include "tests/support/conv_setup.h"

// The fast convolution over lines on layers that it takes, beside oneDNN held to AVX2, which has
// its lines in the layout that it likes best. The kernel doesn't fuse, but its limit is the peak of
// fused products, which another form of it could reach.

#if QRT_WITH_AVX

namespace marlo::bench {
namespace {

using kernel::LineGeometry;
using test::ConvCase;
using test::ConvData;
using Row = kernel::ConvolutionRow<LineGeometry>;

void run(benchmark::State& state, const Row& row, const ConvShape& shape) {
  const ConvCase& sizes = shape.sizes;
  const ConvData data = test::float_data(sizes, 1);
  ConfiguredKernel layer(row.name, test::describe<LineGeometry>(sizes, data));
  layer.add_planes({sizes.in_channels, sizes.width}, runtime::LayoutType::CL, data.input);
  layer.pass();
  if (is_unchecked(row.name, shape)) {
    demand_sums(layer.name() + " on " + shape.name, layer.output<const float>(),
                test::oracle_of<LineGeometry>(sizes, data).sums);
  }
  const double fused = fused_limit();
  const double limit = fused > 0 ? fused : arithmetic_limit(layer.width());
  time_computing(state, layer, 2 * shape.multiply_adds(), limit);
  report_peer(state, layer, onednn_convolution(sizes));
}

bool fits(const Row& row, const ConvShape& shape) {
  return shape.kind == ConvShape::Kind::line && shape.sizes.groups == 1 &&
         kernel::fits(row.accepts, LineGeometry::as_plane(LineGeometry::params_of(
                                       *test::describe<LineGeometry>(shape.sizes, {}))));
}

const bool registered = [] {
  register_on_shapes(kernel::fast_line_convolution_rows, fits, run);
  return true;
}();

}  // namespace
}  // namespace marlo::bench

#endif
