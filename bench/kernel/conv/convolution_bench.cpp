#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <set>
#include <stdexcept>
#include <string>

#include "bench/support/peers.h"
#include "bench/support/probe.h"
#include "bench/support/reporting.h"
#include "bench/support/shapes.h"
#include "qrt_core/kernel/conv/depthwise_convolution.h"
#include "qrt_core/kernel/conv/direct_convolution.h"
#include "qrt_core/kernel/conv/general_convolution.h"
#include "qrt_core/kernel/conv/strassen.h"
#include "qrt_core/kernel/conv/winograd.h"
#include "qrt_core/utility/application.h"
#include "tests/support/blocked_layout.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"

// The fast convolutions over planes and blocks on layers of known networks, beside oneDNN held to
// AVX2 and, where a layer is a product of matrices, OpenBLAS.

#if QRT_WITH_SSE || QRT_WITH_AVX

namespace marlo::bench {
namespace {

using kernel::PlaneGeometry;
using runtime::BlockSize;
using runtime::IKernel;
using test::ConvCase;
using test::ConvData;
using Row = kernel::ConvolutionRow<PlaneGeometry>;

constexpr double kMostMultiplyAdds = 3e9;

// Whether a kernel fuses products and sums. Dense kernels with a window do so in four cases only.
bool is_fused(const std::string& name) {
  const auto has = [&name](const char* part) { return name.find(part) != std::string::npos; };
  if (!has("_AVX_")) return has("_SGEMM_");
  if (has("Depthwise_")) return has("_C4HW4_") || has("_K3x3_S1x1_");
  if (has("_K1x1_S2x2_") || has("_TO_CHW_")) return false;
  if (has("_K1x1_") || has("_Knxm_")) return true;
  return has("_K3x3_S1x1_") && !has("_AVX_CHW_") && !has("_3In_CHW_To_C8HW8_") && !has("_1Out_");
}

// Compares the first and the last output channels, eight of each: all of them would take the oracle
// longer than everything else takes.
void check(const Row& row, const ConvShape& shape, const ConvData& data,
           const std::vector<float>& output) {
  const ConvCase& all = shape.sizes;
  if (all.groups != 1) return;
  const size_t pixels = output.size() / all.out_channels;
  const uint32_t count = std::min(all.out_channels, 8u);
  for (const uint32_t first : {0u, all.out_channels - count}) {
    ConvCase some = all;
    some.out_channels = count;
    some.bias = !data.bias.empty();
    const size_t filter = all.weight_size() / all.out_channels;
    const auto slice = [&](const std::vector<float>& from, size_t size) {
      const auto begin = from.begin() + static_cast<std::ptrdiff_t>(first * size);
      return std::vector<float>(begin, begin + static_cast<std::ptrdiff_t>(count * size));
    };
    const ConvData part = {data.input, slice(data.weight, filter),
                           data.bias.empty() ? data.bias : slice(data.bias, 1)};
    const auto oracle = test::convolution(some, part);
    // Fast algorithms have wider bounds of their own, which their tests hold them to.
    const std::string name = row.name;
    const bool is_plain =
        name.find("Strassen") == std::string::npos && name.find("Winograd") == std::string::npos;
    const double scale = is_plain ? 1.0 : 400.0;
    for (size_t i = 0; i < oracle.sums.size(); ++i) {
      const double found = output[first * pixels + i];
      if (std::abs(found - oracle.sums[i].value) <= scale * oracle.sums[i].bound()) continue;
      throw std::runtime_error(std::string(row.name) + " on " + shape.name + " is wrong at " +
                               std::to_string(first * pixels + i));
    }
  }
}

void report_peers(benchmark::State& state, const ConvCase& sizes, double pixels) {
  if (const auto seconds = onednn_seconds(sizes)) report_ratio(state, "x oneDNN", *seconds);
  if (sizes.kernel_x != 1 || sizes.kernel_y != 1 || sizes.groups != 1) return;
  if (const auto seconds =
          openblas_seconds(sizes.out_channels, sizes.in_channels, static_cast<size_t>(pixels))) {
    report_ratio(state, "x OpenBLAS", *seconds);
  }
}

// A product of matrices is compared with the same product alone, so its bias, a pass of its own
// over the output, is left out.
ConvCase measured_sizes(const Row& row, const ConvShape& shape) {
  ConvCase sizes = shape.sizes;
  if (std::string(row.name).find("_SGEMM_") != std::string::npos) sizes.bias = false;
  return sizes;
}

void run(benchmark::State& state, const Row& row, const ConvShape& shape) {
  const ConvCase sizes = measured_sizes(row, shape);
  const ConvData data = test::float_data(sizes, 1);
  std::shared_ptr<runtime::Context> context;
  utility::create_context(context, 64);
  const auto kernel = test::make_kernel(row.name);
  if (!kernel->Config(test::describe<PlaneGeometry>(sizes, data), nullptr, context)) {
    throw std::runtime_error(std::string(row.name) + " refuses " + shape.name);
  }
  const auto layout = row.input.layout;
  const auto dims = test::dims_in_layout({sizes.in_channels, sizes.height, sizes.width}, layout);
  const runtime::TensorShape input(dims, runtime::DataType::FLOAT32, layout);
  const auto values = test::to_layout(data.input, sizes.in_channels, layout);
  const IKernel::Tensors inputs = {context->cpu->CreateTensor(input, values.data())};
  IKernel::Tensors outputs;
  static std::set<std::string> checked;
  if (checked.insert(row.name + shape.name).second) {
    kernel->Forward(inputs, outputs, context);
    const auto* first = static_cast<const float*>(outputs.at(0)->handle.cpu);
    const std::vector<float> elements(first, first + runtime::ElementCount(outputs[0]->shape));
    check(row, shape, data, test::from_layout(elements, sizes.out_channels, row.output.layout));
  }

  const double limit = is_fused(row.name) ? fused_limit() : arithmetic_limit(width_of(row.name));
  for (auto _ : state) {
    outputs.clear();
    kernel->Forward(inputs, outputs, context);
  }
  report_arithmetic(state, 2 * shape.multiply_adds(), limit);
  report_peers(state, sizes, shape.multiply_adds() / static_cast<double>(sizes.weight_size()));
}

bool fits(const Row& row, const ConvShape& shape) {
  const ConvCase& sizes = shape.sizes;
  const bool is_depthwise = std::string(row.name).find("Depthwise_") != std::string::npos;
  if (is_depthwise && sizes.groups != sizes.in_channels) return false;
  const bool knows_groups = std::string(row.name).find("_G1_") == std::string::npos;
  return shape.kind == ConvShape::Kind::plane && shape.multiply_adds() <= kMostMultiplyAdds &&
         (sizes.groups == 1 || knows_groups) &&
         sizes.in_channels % BlockSize(row.input.layout) == 0 &&
         sizes.out_channels % BlockSize(row.output.layout) == 0 &&
         row.accepts(PlaneGeometry::params_of(*test::describe<PlaneGeometry>(sizes, {})));
}

template <size_t n>
void add(const Row* const (&rows)[n]) {
  for (const Row* row : rows) {
    if (!can_run(row->name)) continue;
    for (const ConvShape& shape : conv_shapes()) {
      if (!fits(*row, shape)) continue;
      const std::string name = std::string(row->name) + "/" + shape.name;
      benchmark::RegisterBenchmark(name.c_str(), [row, &shape](benchmark::State& state) {
        run(state, *row, shape);
      })->Unit(benchmark::kMillisecond);
    }
  }
}

const bool registered = [] {
  add(kernel::direct_convolution_rows);
  add(kernel::depthwise_convolution_rows);
  add(kernel::point_convolution_rows);
  add(kernel::general_convolution_rows);
#if QRT_WITH_SSE
  add(kernel::winograd_rows);
#endif
#if QRT_WITH_AVX
  add(kernel::strassen_convolution_rows);
#endif
  return true;
}();

}  // namespace
}  // namespace marlo::bench

#endif
