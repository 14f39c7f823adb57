#pragma once

#include <cstddef>

namespace marlo::kernel::pooling {

/// Averages a window, for each channel of a block: its sum, divided by its height and then by its width.
/// @param first of the window's pixels, with all channels of a block
/// @param row_floats from a row to the next, in floats
/// @param average gets a number for each channel of a block
using WindowAverage = void (*)(const float* first, size_t row_floats, size_t height, size_t width,
                               float* average) noexcept;

/// One channel, summed in row order.
void window_average_portable(const float* first, size_t row_floats, size_t height, size_t width,
                             float* average) noexcept;

}  // namespace marlo::kernel::pooling
