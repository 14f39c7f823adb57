#include "tests/support/activation_reference.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <stdexcept>

#include "tests/support/numbers.h"

namespace marlo::test {
namespace {

using Parameters = ActivationParameters;

// The minimum and maximum of vectors: where the operands don't compare, or are both zeros, the
// second is the result.
float vector_min(float a, float b) { return a < b ? a : b; }
float vector_max(float a, float b) { return a > b ? a : b; }

const float kSixth = float_of(0x3E2AAAAB);

float relu_scalar(float x, const Parameters&) { return vector_max(0.0f, x); }
float relu_vector(float x, const Parameters&) { return vector_max(x, 0.0f); }

float relu6_scalar(float x, const Parameters& p) { return vector_min(6.0f, relu_scalar(x, p)); }
float relu6_vector(float x, const Parameters& p) { return vector_min(relu_vector(x, p), 6.0f); }

float hsigmoid(float x, const Parameters&) {
  const float shifted = x + 3.0f;
  return vector_min(vector_max(shifted, 0.0f), 6.0f) * kSixth;
}

float hswish(float x, const Parameters& p) { return hsigmoid(x, p) * x; }

float leaky_scalar(float x, const Parameters& p) { return 0.0f > x ? x * p.a : x; }
float leaky_vector(float x, const Parameters& p) {
  const float negative = vector_min(x, 0.0f) * p.a;
  return negative + vector_max(x, 0.0f);
}

float linear(float x, const Parameters& p) {
  const float product = x * p.a;
  return product + p.b;
}

float sigmoid_exact(float x, const Parameters&) {
  const float e = std::exp(0.0f - x);
  return 1.0f / (1.0f + e);
}

float sigmoid_fast(float x, const Parameters&) {
  const float e = fast_exponential(0.0f - x);
  return 1.0f / (1.0f + e);
}

float sigmoid_polynomial(float x, const Parameters&) {
  const float e = polynomial_exponential(0.0f - x);
  return 1.0f / (1.0f + e);
}

float tanh_exact(float x, const Parameters&) { return std::tanh(x); }

float tanh_fast(float x, const Parameters&) {
  const float e = fast_exponential(x);
  const float g = 1.0f / e;
  return (e - g) / (g + e);
}

const std::vector<ActivationReference>& references() {
  static const std::vector<ActivationReference> all = {
      {"ReLU_Fallback_Float_M1", relu_scalar},
      {"ReLU6_Fallback_Float_M1", relu6_scalar},
      {"HSigmoid_Fallback_Float_M1", hsigmoid},
      {"HSwish_Fallback_Float_M1", hswish},
      {"Sigmoid_Fallback_Float_M1", sigmoid_exact},
      {"TanH_Fallback_Float_M1", tanh_exact},
      {"Leaky_Fallback_Float_M1", leaky_scalar},
      {"PReLU_Fallback_Float_M1", leaky_scalar},
      {"Linear_Fallback_Float_M1", linear},
      {"ReLU_SSE_Float_M1", relu_scalar, relu_vector, 4},
      {"ReLU6_SSE_Float_M1", relu6_scalar, relu6_vector, 4},
      {"HSigmoid_SSE_Float_M1", hsigmoid, hsigmoid, 16},
      {"HSwish_SSE_Float_M1", hswish, hswish, 16},
      {"Sigmoid_SSE_Float_M1", sigmoid_exact, sigmoid_fast, 16},
      {"TanH_SSE_Float_M1", tanh_exact, tanh_fast, 4},
      {"Leaky_SSE_Float_M1", leaky_scalar, leaky_vector, 16},
      {"PReLU_SSE_Float_M1", leaky_scalar, leaky_vector, 4},
      {"ReLU_Inplace_SSE_Float_M1", relu_scalar, relu_vector, 16},
      {"HSigmoid_Inplace_SSE_Float_M1", hsigmoid, hsigmoid, 16},
      {"ReLU_AVX_Float_M1", relu_scalar, relu_vector, 4},
      {"ReLU6_AVX_Float_M1", relu6_scalar, relu6_vector, 8},
      {"HSwish_AVX_Float_M1", hswish, hswish, 8},
      {"Sigmoid_AVX_Float_M1", sigmoid_exact, sigmoid_polynomial, 8},
      {"Leaky_AVX_Float_M1", leaky_scalar, leaky_vector, 4},
      {"PReLU_AVX_Float_M1", leaky_scalar, leaky_vector, 8},
      {"ReLU_AVX512_Float_M1", relu_scalar, relu_vector, 16},
      {"ReLU_Inplace_AVX512_Float_M1", relu_scalar, relu_vector, 16},
  };
  return all;
}

}  // namespace

std::vector<float> ActivationReference::apply(const std::vector<float>& input,
                                              const Parameters& parameters) const {
  const size_t in_vectors = vector == nullptr ? 0 : input.size() / block * block;
  std::vector<float> output;
  for (size_t i = 0; i < input.size(); ++i) {
    output.push_back((i < in_vectors ? vector : scalar)(input[i], parameters));
  }
  return output;
}

bool ActivationReference::in_place() const {
  return function() == "PReLU" || kernel.find("_Inplace_") != std::string::npos;
}

double ActivationReference::error_bound(double x, double exact, bool in_vector) const {
  // A multiple of the distance between floats at the result, and half the least denormal.
  const auto ulps = [exact](double count) { return count * kEpsilon * std::abs(exact) + 0x1p-149; };
  const ElementFunction form = in_vector ? vector : scalar;
  // The fast exponential is off by up to 4 percent, which moves its argument by 0.041 and the
  // function by that times the steepest slope in between.
  constexpr double kFast = 0.045;
  if (form == sigmoid_fast) return kFast * exact * (1.0 - exact) + ulps(4);
  if (form == tanh_fast) return kFast * (1.0 - exact * exact) + kEpsilon;
  // The clamp at -88.4 leaves 4.2e-39 where the sigmoid is smaller.
  if (form == sigmoid_polynomial) return ulps(4) + 4.2e-39;
  const std::string name = function();
  if (name == "Sigmoid" || name == "TanH") return ulps(4) + 0x1p-126;
  // x + 3 rounds to a number near 3 even where it cancels, and three roundings follow.
  if (name == "HSigmoid") return 4.0 * kEpsilon;
  if (name == "HSwish") return 4.0 * kEpsilon * std::abs(x);
  // Two roundings; the sum of Linear may cancel, so they count at the size of its terms.
  if (name == "Linear") return 2.0 * kEpsilon * (std::abs(x) + 1.0);
  return ulps(1);
}

const ActivationReference& activation_reference(const std::string& kernel) {
  for (const ActivationReference& reference : references()) {
    if (reference.kernel == kernel) return reference;
  }
  throw std::invalid_argument("no reference for the activation kernel " + kernel);
}

float fast_exponential(float v) {
  const float scaled = v * float_of(0x49B8AA38);
  const double t = scaled + float_of(0x4E7FBC4A);
  // Everything that doesn't fit, a NaN too, becomes the least integer.
  const bool fits = t >= -0x1p31 && t < 0x1p31;
  const auto upper =
      fits ? static_cast<int32_t>(std::nearbyint(t)) : std::numeric_limits<int32_t>::min();
  const uint64_t word = uint64_t{static_cast<uint32_t>(upper)} << 32;
  double number;
  std::memcpy(&number, &word, sizeof number);
  return static_cast<float>(number);
}

float polynomial_exponential(float v) {
  v = vector_min(v, float_of(0x42B0C0A5));
  v = vector_max(v, float_of(0xC2B0C0A5));
  const float f = v * float_of(0x3FB8AA3B) + 0.5f;
  const float n = std::floor(f);
  const float first = v - n * float_of(0x3F318000);
  const float r = first - n * float_of(0xB95E8083);
  const float z = r * r;
  float p = float_of(0x39506967);
  for (const uint32_t bits : {0x3AB743CEu, 0x3C088908u, 0x3D2AA9C1u, 0x3E2AAAAAu, 0x3F000000u}) {
    p = p * r + float_of(bits);
  }
  const float y = p * z + r + 1.0f;
  const auto exponent = static_cast<uint32_t>(static_cast<int32_t>(n) + 127);
  return y * float_of(exponent << 23);
}

std::vector<float> special_inputs() {
  std::vector<float> inputs;
  const std::vector<float> magnitudes = {
      0.0f,   kLeastDenormal, 1e-40f,  kLeastNormal, 1e-20f, 0.1f,   0.5f,     1.0f,      2.0f,
      3.0f,   6.0f,           9.0f,    20.0f,        80.0f,  87.3f,  88.0f,    88.37f,    88.38f,
      88.72f, 88.73f,         103.9f,  104.0f,       700.0f, 708.0f, 708.4f,   709.04f,   709.06f,
      709.5f, 709.78f,        709.81f, 709.83f,      710.0f, 710.4f, 710.51f,  710.53f,   711.0f,
      745.0f, 1419.0f,        1420.0f, 1e4f,         1e10f,  1e30f,  kLargest, kInfinity, kNaN,
  };
  for (const float magnitude : magnitudes) {
    inputs.push_back(magnitude);
    inputs.push_back(-magnitude);
  }
  for (const float edge : {3.0f, 6.0f, 88.3762589f}) {
    for (const float near : {std::nextafter(edge, 0.0f), std::nextafter(edge, 1e9f)}) {
      inputs.push_back(near);
      inputs.push_back(-near);
    }
  }
  return inputs;
}

}  // namespace marlo::test
