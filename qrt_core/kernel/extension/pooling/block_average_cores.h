#pragma once

#include <cstddef>

namespace marlo::kernel::pooling {

/// 8 channels, the rows' sums in four parts; see `WindowAverage`.
void window_average_c8_fma(const float* first, size_t row_floats, size_t height, size_t width,
                           float* average) noexcept;

}  // namespace marlo::kernel::pooling
