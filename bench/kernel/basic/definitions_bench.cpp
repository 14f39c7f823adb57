#include <benchmark/benchmark.h>

#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "bench/support/checks.h"
#include "bench/support/configured_kernel.h"
#include "qrt_core/runtime/model/layers.h"
#include "tests/support/numbers.h"

// Kernels that define an operation and are alone in it, on 64 channels of 56 by 56.

namespace marlo::bench {
namespace {

using runtime::LayoutType;
using Numbers = std::vector<float>;

constexpr uint32_t kChannels = 64;
constexpr uint32_t kSize = 56;
constexpr size_t kPlane = size_t{kSize} * kSize;

/// A layer with one picture, and perhaps a second tensor.
struct Definition {
  const char* kernel;
  std::shared_ptr<runtime::LayerInfo> info;
  std::vector<uint32_t> second_dims;  ///< empty for none
  size_t results;
  /// Element i of the result for the two inputs.
  std::function<double(const Numbers& a, const Numbers& b, size_t i)> expected;
};

double mean_of_square(const Numbers& planes, size_t channel, size_t y, size_t x, size_t side) {
  double sum = 0;
  for (size_t r = y; r < y + side; ++r) {
    for (size_t c = x; c < x + side; ++c) sum += planes[channel * kPlane + r * kSize + c];
  }
  return sum / static_cast<double>(side * side);
}

double softmax_of_channels(const Numbers& planes, size_t i) {
  double sum = 0;
  for (size_t c = 0; c < kChannels; ++c) {
    sum += std::exp(double{planes[c * kPlane + i % kPlane]});
  }
  return std::exp(double{planes[i]}) / sum;
}

// Between pixels: the grid has x and y from -1 to 1, which are the centres of the first and the
// last.
double sampled(const Numbers& planes, const Numbers& grid, size_t i) {
  const auto place = [](float coordinate) { return (double{coordinate} + 1) / 2 * (kSize - 1); };
  const size_t pixel = i % kPlane;
  const double x = place(grid[2 * pixel]);
  const double y = place(grid[2 * pixel + 1]);
  const auto left = static_cast<size_t>(x);
  const auto top = static_cast<size_t>(y);
  const double u = x - static_cast<double>(left);
  const double v = y - static_cast<double>(top);
  const float* const corner = planes.data() + (i - pixel) + top * kSize + left;
  const auto row = [u](const float* from) { return (1 - u) * from[0] + u * from[1]; };
  return (1 - v) * row(corner) + v * row(corner + kSize);
}

std::vector<Definition> definitions() {
  const auto adaptive = std::make_shared<runtime::AdaptiveAvgPool2dInfo>();
  adaptive->output_size = {7, 7};
  const auto add = std::make_shared<runtime::BroadcastOperatorInfo>();
  add->op_type = 0;
  const auto sample = std::make_shared<runtime::GridSampleInfo>();
  sample->mode = 1;  // bilinear
  sample->padding_mode = 0;
  sample->align_corners = true;
  const auto softmax = std::make_shared<runtime::SoftmaxInfo>();
  softmax->dim = 1;  // the channels, behind the batch
  const auto mean = std::make_shared<runtime::TensorArithmeticInfo>();
  mean->arith_type = 1;
  mean->dim = {2, 3};  // rows and columns, behind the batch
  constexpr size_t kAll = kChannels * kPlane;
  return {
      {"AdaptivePooling2D_Avg_Fallback_CHW_Float_M1",
       adaptive,
       {},
       kChannels * 49,
       [](const Numbers& a, const Numbers&, size_t i) {
         return mean_of_square(a, i / 49, i % 49 / 7 * 8, i % 7 * 8, 8);
       }},
      {"BroadcastOperator_Fallback_Float_M1",
       add,
       {kChannels, 1, 1},
       kAll,
       [](const Numbers& a, const Numbers& b, size_t i) { return double{a[i]} + b[i / kPlane]; }},
      {"GridSample_Fallback_CHW_Float_M1", sample, {kSize, kSize, 2}, kAll, sampled},
      {"Softmax_Fallback_Float_M1",
       softmax,
       {},
       kAll,
       [](const Numbers& a, const Numbers&, size_t i) { return softmax_of_channels(a, i); }},
      {"TensorArithmetic_Fallback_M1",
       mean,
       {},
       kChannels,
       [](const Numbers& a, const Numbers&, size_t i) {
         return mean_of_square(a, i, 0, 0, kSize);
       }},
  };
}

void run(benchmark::State& state, const Definition& definition) {
  test::Random random(1);
  ConfiguredKernel kernel(definition.kernel, definition.info);
  const Numbers picture = random.floats(kChannels * kPlane);
  kernel.add_planes({kChannels, kSize, kSize}, LayoutType::CHW, picture);
  Numbers second;
  if (!definition.second_dims.empty()) {
    size_t count = 1;
    for (const uint32_t size : definition.second_dims) count *= size;
    second = random.floats(count, 0.99f);
    kernel.add_floats(definition.second_dims, LayoutType::CHW, second);
  }
  kernel.pass();
  demand_elements(definition.kernel, kernel.output<const float>(), definition.results,
                  [&](size_t i) {
                    return Expected{definition.expected(picture, second, i), 2e-5};
                  });
  time_moving(state, kernel);
}

const bool registered = [] {
  for (const Definition& definition : definitions()) {
    const std::string name = std::string(definition.kernel) + "/forward/64x56x56";
    benchmark::RegisterBenchmark(name.c_str(), run, definition);
  }
  return true;
}();

}  // namespace
}  // namespace marlo::bench
