#include <benchmark/benchmark.h>

#include <algorithm>
#include <string>
#include <vector>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "bench/support/conv_benchmarks.h"
#include "bench/support/onednn_peers.h"
#include "bench/support/openblas_peers.h"
#include "bench/support/probe.h"
#include "qrt_core/kernel/conv/depthwise/depthwise_convolution.h"
#include "qrt_core/kernel/conv/general/general_convolution.h"
#include "qrt_core/kernel/conv/points/strassen.h"
#include "qrt_core/kernel/conv/windows/direct_convolution.h"
#include "qrt_core/kernel/conv/winograd/winograd.h"
#include "qrt_core/kernel/extension/kernels.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"

// The fast convolutions over planes and blocks on layers of known networks, beside oneDNN held to
// AVX2 and, where a layer is a product of matrices, OpenBLAS.

#if QRT_WITH_SSE || QRT_WITH_AVX

namespace marlo::bench {
namespace {

using kernel::PlaneGeometry;
using runtime::BlockSize;
using test::ConvCase;
using test::ConvData;
using Row = kernel::ConvolutionRow<PlaneGeometry>;

constexpr double kMostMultiplyAdds = 3e9;

// Whether a kernel fuses products and sums. Dense kernels with a window do so in four cases only.
bool is_fused(const std::string& name) {
  const auto has = [&name](const char* part) { return name.find(part) != std::string::npos; };
  if (has("_FMA_")) return true;
  if (!has("_AVX_")) return has("_SGEMM_");
  if (has("Depthwise_")) return has("_C4HW4_") || has("_K3x3_S1x1_");
  if (has("_K1x1_S2x2_") || has("_TO_CHW_")) return false;
  if (has("_K1x1_") || has("_Knxm_")) return true;
  return has("_K3x3_S1x1_") && !has("_AVX_CHW_") && !has("_3In_CHW_To_C8HW8_") && !has("_1Out_");
}

// Compares the first and the last output channels, eight of each: all of them would take the oracle
// longer than everything else takes.
void check(const std::string& name, const ConvShape& shape, const ConvData& data,
           const std::vector<float>& output) {
  const ConvCase& all = shape.sizes;
  if (all.groups != 1 || test::epilogue_of(name) != kernel::Epilogue::none) return;
  // Fast algorithms have wider bounds of their own, which their tests hold them to.
  const bool is_plain =
      name.find("Strassen") == std::string::npos && name.find("Winograd") == std::string::npos;
  const double scale = is_plain ? 1.0 : 400.0;
  const uint32_t count = std::min(all.out_channels, 8u);
  for (const uint32_t first : {0u, all.out_channels - count}) {
    ConvCase some = all;
    some.out_channels = count;
    some.bias = !data.bias.empty();
    const auto slice = [&](const std::vector<float>& from) {
      const size_t size = from.size() / all.out_channels;
      const auto begin = from.begin() + static_cast<std::ptrdiff_t>(first * size);
      return std::vector<float>(begin, begin + static_cast<std::ptrdiff_t>(count * size));
    };
    const ConvData part = {data.input, slice(data.weight), slice(data.bias)};
    demand_sums(name + " on " + shape.name + " from channel " + std::to_string(first),
                slice(output), test::convolution(some, part).sums, scale);
  }
}

void report_peers(benchmark::State& state, ConfiguredKernel& layer, const ConvCase& sizes,
                  double pixels) {
  report_peer(state, layer, onednn_convolution(sizes));
  if (sizes.kernel_x != 1 || sizes.kernel_y != 1 || sizes.groups != 1) return;
  report_peer(state, layer,
              openblas_product(sizes.out_channels, sizes.in_channels, static_cast<size_t>(pixels)));
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
  ConfiguredKernel layer(row.name, test::describe<PlaneGeometry>(sizes, data));
  layer.add_planes({sizes.in_channels, sizes.height, sizes.width}, row.input.layout, data.input);
  if (is_unchecked(row.name, shape)) {
    layer.pass();
    check(row.name, shape, data, layer.output_planes(sizes.out_channels));
  }
  const double limit = row.needs == runtime::InstructionSet::avx512 ? wide_limit()
                       : is_fused(row.name)                         ? fused_limit()
                                            : arithmetic_limit(layer.width());
  time_computing(state, layer, 2 * shape.multiply_adds(), limit);
  report_peers(state, layer, sizes,
               shape.multiply_adds() / static_cast<double>(sizes.weight_size()));
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
         kernel::fits(row.accepts,
                      PlaneGeometry::params_of(*test::describe<PlaneGeometry>(sizes, {})));
}

#if QRT_WITH_EXTENSIONS
// With and without a rectifier: what other epilogues take is seen on a few.
void add_extensions() {
  for (const auto& rows :
       {kernel::block_window_rows, kernel::block_winograd_rows, kernel::block_depthwise_rows,
        kernel::first_window_rows, kernel::last_window_rows}) {
    std::vector<const Row*> some;
    for (const Row* row : rows) {
      const auto epilogue = row->epilogue;
      const bool is_one = epilogue == kernel::Epilogue::none ||
                          epilogue == kernel::Epilogue::relu || epilogue == kernel::Epilogue::silu;
      if (is_one && row->input_use == runtime::InputUse::reads) some.push_back(row);
    }
    register_on_shapes(some, fits, run);
  }
}
#endif

template <typename Rows>
void add(const Rows& rows) {
  register_on_shapes(rows, fits, run);
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
#if QRT_WITH_EXTENSIONS
  add_extensions();
#endif
  return true;
}();

}  // namespace
}  // namespace marlo::bench

#endif
