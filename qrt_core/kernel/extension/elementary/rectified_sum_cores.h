#pragma once

#include <cstddef>

namespace marlo::kernel::elementwise {

/// max(a + b, 0), and 0 for a NaN.
void add_relu_scalar(const float* a, const float* b, float* output, size_t count) noexcept;

/// The same. Multiples of 8.
void add_relu_avx(const float* a, const float* b, float* output, size_t count) noexcept;

}  // namespace marlo::kernel::elementwise
