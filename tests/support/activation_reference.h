#pragma once

#include <cstddef>
#include <string>
#include <vector>

// What the activation kernels compute, bit for bit: each function written as scalar operations on
// floats, each rounded, in the form of single elements and in that of vectors. The two differ for
// NaNs and zeros, and for the functions that are approximated in vectors.

namespace marlo::test {

/// The parameters of an activation: slope; or scale and offset.
struct ActivationParameters {
  float a = 0.0f;
  float b = 0.0f;
};

using ElementFunction = float (*)(float x, const ActivationParameters& parameters);

/// How one kernel treats an array: whole blocks of elements by one form, the rest by another.
struct ActivationReference {
  std::string kernel;
  ElementFunction scalar = nullptr;
  ElementFunction vector = nullptr;  ///< null for a kernel without vectors
  size_t block = 1;                  ///< elements that only the vector form takes together

  /// The result for a whole array.
  std::vector<float> apply(const std::vector<float>& input,
                           const ActivationParameters& parameters) const;

  /// The function, as it stands at the beginning of the kernel's name.
  std::string function() const { return kernel.substr(0, kernel.find('_')); }

  /// Whether the output is the input's tensor.
  bool in_place() const;

  /// The most by which an element may be off the function in real numbers.
  double error_bound(double x, double exact, bool in_vector) const;
};

/// The reference of a kernel. @throws std::invalid_argument for a kernel without one
const ActivationReference& activation_reference(const std::string& kernel);

/// e to the v as a line through the bits of a double, which is what the SSE forms of sigmoid and
/// tanh are made of.
float fast_exponential(float v);

/// e to the v by a polynomial, which is what the AVX form of sigmoid is made of.
float polynomial_exponential(float v);

/// Inputs at which forms differ, overflow or go through a clamp.
std::vector<float> special_inputs();

}  // namespace marlo::test
