#pragma once

#include <cstddef>
#include <cstdint>

namespace marlo::kernel::upsampling {

/// Where one output row or column comes from: two input rows or columns, and their weights.
struct Taps {
  uint32_t first;
  uint32_t second;
  float first_weight;
  float second_weight;
};

/// One run of an upsampling over planes of [height, width, block] elements.
struct Task {
  const float* input;
  float* output;
  size_t planes;
  size_t in_height;
  size_t in_width;
  size_t out_height;
  size_t out_width;
  const Taps* rows;     ///< one per output row
  const Taps* columns;  ///< one per output column
  float* scratch;       ///< two output rows; unused by nearest sampling
};

using Core = void (*)(const Task& task) noexcept;

// Bilinear: (tl * wl + tr * wr) * wt + (bl * wl + br * wr) * wb, each operation rounded separately.
// The blend along a row is computed once per input row and kept for the output rows that need it.
void bilinear_portable(const Task& task) noexcept;
void bilinear_chw_sse(const Task& task) noexcept;
void bilinear_c4_sse(const Task& task) noexcept;
void bilinear_chw_avx(const Task& task) noexcept;
void bilinear_c8_avx(const Task& task) noexcept;

// Nearest: a copy of the first tap.
void nearest_portable(const Task& task) noexcept;
void nearest_c4_sse(const Task& task) noexcept;
void nearest_c8_avx(const Task& task) noexcept;

}  // namespace marlo::kernel::upsampling
