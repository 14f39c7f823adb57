#pragma once

#include <cstddef>

namespace marlo::kernel::activation {

// Cores of the activations, over flat arrays. Input and output may be the same array.
//
// Each function maps x to one element, each operation rounded separately:
//   relu      max(x, 0)
//   relu6     min(max(x, 0), 6)
//   hsigmoid  min(max(x + 3, 0), 6) / 6, as a product with kOneSixth
//   hswish    hsigmoid(x) * x
//   leaky     scalar: x < 0 ? x * a : x; vector: min(x, 0) * a + max(x, 0), with a = parameters[0]
//   linear    x * parameters[0] + parameters[1]
//   sigmoid   1 / (1 + exp(-x))
//   tanh      tanh(x)

/// Computes `count` elements. A vector core takes a multiple of its lanes; `parameters` may be null
/// where the function has none.
using Core = void (*)(const float* input, float* output, size_t count,
                      const float* parameters) noexcept;

/// One sixth, rounded up to a float: bits 0x3E2AAAAB.
constexpr float kOneSixth = 0x1.555556p-3f;

// The forms that define the functions. relu, relu6 and hswish keep a NaN, hsigmoid makes it 0.
void relu_scalar(const float*, float*, size_t, const float*) noexcept;
void relu6_scalar(const float*, float*, size_t, const float*) noexcept;
void hsigmoid_scalar(const float*, float*, size_t, const float*) noexcept;
void hswish_scalar(const float*, float*, size_t, const float*) noexcept;
void leaky_scalar(const float*, float*, size_t, const float*) noexcept;
void linear_scalar(const float*, float*, size_t, const float*) noexcept;
void sigmoid_scalar(const float*, float*, size_t, const float*) noexcept;
void tanh_scalar(const float*, float*, size_t, const float*) noexcept;

// Multiples of 4. relu, relu6 and hsigmoid make a NaN 0, hswish keeps it.
void relu_sse(const float*, float*, size_t, const float*) noexcept;
void relu6_sse(const float*, float*, size_t, const float*) noexcept;
void hsigmoid_sse(const float*, float*, size_t, const float*) noexcept;
void hswish_sse(const float*, float*, size_t, const float*) noexcept;
void leaky_sse(const float*, float*, size_t, const float*) noexcept;

// By the fast exponential, which is a line through the bits of a double: N. N. Schraudolph, "A
// Fast, Compact Approximation of the Exponential Function", Neural Computation 11(4), 1999. Off by
// up to 4 percent, and without a clamp.
void sigmoid_fast_sse(const float*, float*, size_t, const float*) noexcept;
void tanh_fast_sse(const float*, float*, size_t, const float*) noexcept;

// Multiples of 8; NaNs as with 4 lanes. relu and leaky also take multiples of 4.
void relu_avx(const float*, float*, size_t, const float*) noexcept;
void relu6_avx(const float*, float*, size_t, const float*) noexcept;
void hswish_avx(const float*, float*, size_t, const float*) noexcept;
void leaky_avx(const float*, float*, size_t, const float*) noexcept;

/// Multiples of 8, by a polynomial exponential (S. Moshier, Cephes, expf) of an argument clamped to
/// +-88.37625885, so that the result is never 0. A NaN counts as the upper clamp.
void sigmoid_polynomial_avx(const float*, float*, size_t, const float*) noexcept;

}  // namespace marlo::kernel::activation
