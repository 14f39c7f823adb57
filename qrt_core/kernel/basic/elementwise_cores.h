#pragma once

#include <cstddef>

namespace marlo::kernel::elementwise {

/// Combines two flat arrays of `count` elements. The output may be one of the inputs.
using Core = void (*)(const float* a, const float* b, float* output, size_t count) noexcept;

// The forms that define the operators. Where an operand is a NaN, or both are zeros, the maximum
// and the minimum are a.
void add_scalar(const float*, const float*, float*, size_t) noexcept;
void subtract_scalar(const float*, const float*, float*, size_t) noexcept;
void multiply_scalar(const float*, const float*, float*, size_t) noexcept;
void divide_scalar(const float*, const float*, float*, size_t) noexcept;
void maximum_scalar(const float*, const float*, float*, size_t) noexcept;
void minimum_scalar(const float*, const float*, float*, size_t) noexcept;

// Multiples of 4. Where an operand is a NaN, or both are zeros, the maximum and the minimum are b.
void add_sse(const float*, const float*, float*, size_t) noexcept;
void subtract_sse(const float*, const float*, float*, size_t) noexcept;
void multiply_sse(const float*, const float*, float*, size_t) noexcept;
void divide_sse(const float*, const float*, float*, size_t) noexcept;
void maximum_sse(const float*, const float*, float*, size_t) noexcept;
void minimum_sse(const float*, const float*, float*, size_t) noexcept;

// Multiples of 8; NaNs and zeros as with 4 lanes.
void add_avx(const float*, const float*, float*, size_t) noexcept;
void subtract_avx(const float*, const float*, float*, size_t) noexcept;
void multiply_avx(const float*, const float*, float*, size_t) noexcept;
void divide_avx(const float*, const float*, float*, size_t) noexcept;
void maximum_avx(const float*, const float*, float*, size_t) noexcept;
void minimum_avx(const float*, const float*, float*, size_t) noexcept;

}  // namespace marlo::kernel::elementwise
