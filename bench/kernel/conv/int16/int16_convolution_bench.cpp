#include "qrt_core/kernel/conv/int16/int16_convolution.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/support/configured_kernel.h"
#include "bench/support/conv_benchmarks.h"
#include "bench/support/probe.h"
#include "qrt_core/runtime/model/inference_param.h"
#include "tests/support/conv_setup.h"

// The fixed-point 1x1 convolution, in turns with the SSE kernel of the same layer in floats. Its
// limit is the peak of SSE in floats.

#if QRT_WITH_SSE

namespace marlo::bench {
namespace {

using kernel::PlaneGeometry;
using runtime::DataType;
using runtime::LayoutType;
using test::ConvCase;
using test::ConvData;
using Row = kernel::Int16ConvolutionRow;

constexpr char kFloatKernel[] = "Conv2d_K1x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1";
constexpr uint32_t kBlock = 8;
constexpr int kStep = 8;

// Product by product: shifted with its sign, saturated, and added modulo 2^16.
void check(const std::string& name, const ConvCase& sizes, const ConvData& data,
           const std::vector<int16_t>& input, std::span<const int16_t> output) {
  const size_t pixels = size_t{sizes.height} * sizes.width;
  for (size_t o = 0; o < sizes.out_channels; ++o) {
    for (size_t pixel = 0; pixel < pixels; ++pixel) {
      uint16_t sum = 0;
      for (size_t i = 0; i < sizes.in_channels; ++i) {
        const int32_t x = input[(i / kBlock * pixels + pixel) * kBlock + i % kBlock];
        const auto w = static_cast<int32_t>(
            std::lround(std::ldexp(double{data.weight[o * sizes.in_channels + i]}, kStep)));
        sum = static_cast<uint16_t>(sum + std::clamp((x * w) >> kStep, -32768, 32767));
      }
      if (output[(o / kBlock * pixels + pixel) * kBlock + o % kBlock] !=
          static_cast<int16_t>(sum)) {
        throw std::runtime_error(name + " is wrong at channel " + std::to_string(o));
      }
    }
  }
}

void run(benchmark::State& state, const Row& row, const ConvShape& shape) {
  ConvCase sizes = shape.sizes;
  sizes.bias = false;
  const ConvData data = test::float_data(sizes, 1);
  std::vector<int16_t> numbers(data.input.size());
  std::transform(data.input.begin(), data.input.end(), numbers.begin(),
                 [](float x) { return static_cast<int16_t>(x * 2048.0f); });
  const auto steps = std::make_shared<runtime::InferenceParamConv2DQuant>();
  steps->weight_step_size = kStep;
  steps->output_step_size = 11;
  const runtime::TensorShape input(
      {sizes.in_channels / kBlock, sizes.height, sizes.width, kBlock}, DataType::INT16,
      LayoutType::C8HW8, runtime::LocationType::MainMemory, runtime::TensorShape::Extra(11));
  ConfiguredKernel layer(row.name, test::describe<PlaneGeometry>(sizes, data), steps);
  layer.add_input(input, numbers.data());
  layer.pass();
  if (is_unchecked(row.name, shape)) {
    check(row.name, sizes, data, numbers, layer.output<const int16_t>());
  }

  time_computing(state, layer, 2 * shape.multiply_adds(), arithmetic_limit(Width::sse));
  ConfiguredKernel floats(kFloatKernel, test::describe<PlaneGeometry>(sizes, data));
  floats.add_planes({sizes.in_channels, sizes.height, sizes.width}, LayoutType::C8HW8, data.input);
  report_peer(state, layer, Peer{"x float", [&] { floats.pass(); }});
}

bool fits(const Row&, const ConvShape& shape) {
  const ConvCase& sizes = shape.sizes;
  return shape.kind == ConvShape::Kind::plane && sizes.kernel_x == 1 && sizes.kernel_y == 1 &&
         sizes.stride_x == 1 && sizes.groups == 1 && sizes.in_channels % kBlock == 0 &&
         sizes.out_channels % kBlock == 0;
}

const bool registered = [] {
  register_on_shapes(kernel::int16_convolution_rows, fits, run);
  return true;
}();

}  // namespace
}  // namespace marlo::bench

#endif
