#include <cmath>

#include "qrt_core/kernel/basic/activation_cores.h"

// The scalar forms. Clamps are comparisons that keep a NaN where they pass one on: `x < 0 ? 0 : x`
// is x for a NaN.

namespace marlo::kernel::activation {
namespace {

template <typename Function>
void map(const float* input, float* output, size_t count, Function function) noexcept {
  for (size_t i = 0; i < count; ++i) output[i] = function(input[i]);
}

float relu(float x) { return x < 0.0f ? 0.0f : x; }

float relu6(float x) {
  const float y = relu(x);
  return y > 6.0f ? 6.0f : y;
}

// Here a NaN becomes 0: it fails the comparison that would keep it.
float hsigmoid(float x) {
  const float shifted = x + 3.0f;
  const float lower = shifted > 0.0f ? shifted : 0.0f;
  const float clamped = lower < 6.0f ? lower : 6.0f;
  return clamped * kOneSixth;
}

}  // namespace

void relu_scalar(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, relu);
}

void relu6_scalar(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, relu6);
}

void hsigmoid_scalar(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, hsigmoid);
}

void hswish_scalar(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, [](float x) { return hsigmoid(x) * x; });
}

void leaky_scalar(const float* input, float* output, size_t count,
                  const float* parameters) noexcept {
  const float slope = parameters[0];
  map(input, output, count, [slope](float x) { return x < 0.0f ? x * slope : x; });
}

void linear_scalar(const float* input, float* output, size_t count,
                   const float* parameters) noexcept {
  const float scale = parameters[0];
  const float offset = parameters[1];
  map(input, output, count, [scale, offset](float x) { return x * scale + offset; });
}

void sigmoid_scalar(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, [](float x) { return 1.0f / (1.0f + std::exp(0.0f - x)); });
}

void tanh_scalar(const float* input, float* output, size_t count, const float*) noexcept {
  map(input, output, count, [](float x) { return std::tanh(x); });
}

}  // namespace marlo::kernel::activation
