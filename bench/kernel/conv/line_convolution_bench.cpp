#include "qrt_core/kernel/conv/line_convolution.h"

#include <benchmark/benchmark.h>

#include <cmath>
#include <set>
#include <stdexcept>
#include <string>

#include "bench/support/configured_kernel.h"
#include "bench/support/peers.h"
#include "bench/support/probe.h"
#include "bench/support/reporting.h"
#include "bench/support/shapes.h"
#include "tests/support/conv_setup.h"

// The fast convolution over lines on layers that it takes, beside oneDNN held to AVX2, which has
// its lines in the layout that it likes best. The kernel doesn't fuse, but its limit is the peak of
// fused products, which another form of it could reach.

#if QRT_WITH_AVX

namespace marlo::bench {
namespace {

using kernel::LineGeometry;
using runtime::DataType;
using runtime::LayoutType;
using test::ConvCase;
using test::ConvData;
using Row = kernel::ConvolutionRow<LineGeometry>;

void check(const Row& row, const ConvShape& shape, const ConvData& data,
           const ConfiguredKernel& layer) {
  const auto oracle = test::oracle_of<LineGeometry>(shape.sizes, data);
  bool right = layer.output_count() == oracle.sums.size();
  for (size_t i = 0; right && i < oracle.sums.size(); ++i) {
    right = std::abs(layer.output<float>()[i] - oracle.sums[i].value) <= oracle.sums[i].bound();
  }
  if (!right) throw std::runtime_error(std::string(row.name) + " is wrong on " + shape.name);
}

void run(benchmark::State& state, const Row& row, const ConvShape& shape) {
  const ConvCase& sizes = shape.sizes;
  const ConvData data = test::float_data(sizes, 1);
  const runtime::TensorShape input({sizes.in_channels, sizes.width}, DataType::FLOAT32,
                                   LayoutType::CL);
  ConfiguredKernel layer(row.name, test::describe<LineGeometry>(sizes, data), nullptr, input,
                         data.input.data());
  layer.pass();
  static std::set<std::string> checked;
  if (checked.insert(row.name + shape.name).second) check(row, shape, data, layer);

  const double fused = fused_limit();
  const double limit = fused > 0 ? fused : arithmetic_limit(width_of(row.name));
  for (auto _ : state) layer.pass();
  report_arithmetic(state, 2 * shape.multiply_adds(), limit);
  if (const auto seconds = onednn_seconds(sizes)) report_ratio(state, "x oneDNN", *seconds);
}

bool fits(const Row& row, const ConvShape& shape) {
  return shape.kind == ConvShape::Kind::line && shape.sizes.groups == 1 &&
         row.accepts(LineGeometry::params_of(*test::describe<LineGeometry>(shape.sizes, {})));
}

const bool registered = [] {
  for (const Row* row : kernel::fast_line_convolution_rows) {
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
