#pragma once

#include <cstddef>
#include <cstdint>

// Warps of float planes. Matrices are six floats, row by row.

namespace marlo::kernel::image {

/// Planes of one size, side by side in memory.
struct FloatPlanes {
  size_t channels, height, width;
};

/// Each input pixel goes to the output pixel that it lies nearest to, if there is one.
/// @param to of at least the channels of `from`
void scatter(const uint32_t* input, const FloatPlanes& from, const float* matrix, uint32_t* output,
             const FloatPlanes& to) noexcept;

/// Each output pixel comes from the input pixel that it lies nearest to, if there is one.
/// @param from of at least the channels of `to`
void gather_nearest(const uint32_t* input, const FloatPlanes& from, const float* matrix,
                    uint32_t* output, const FloatPlanes& to) noexcept;

/// Each output pixel that lies between four input pixels is mixed of them.
/// @param from of at least the channels of `to`
void gather_bilinear(const float* input, const FloatPlanes& from, const float* matrix,
                     float* output, const FloatPlanes& to) noexcept;

/// A matrix in coordinates from -1 to 1, made one of pixels.
struct NormalizedWarp {
  NormalizedWarp(const float* matrix, size_t height, size_t width) noexcept;
  float half_height, half_width;
  float x_x, x_y, x_offset;  ///< column of the input from column and row of the output
  float y_y, y_x, y_offset;  ///< row of the input
};

/// Columns from `begin` on of output row `y`, of `to.channels` planes. What lies outside of the
/// input is extrapolated from its border.
void warp_normalized_row(const float* input, const FloatPlanes& from, const NormalizedWarp& warp,
                         size_t y, size_t begin, float* output, const FloatPlanes& to) noexcept;

/// The same, four pixels at a time.
/// @return the columns that were written, from 0 on: a multiple of 4
size_t warp_normalized_row_sse(const float* input, const FloatPlanes& from,
                               const NormalizedWarp& warp, size_t y, float* output,
                               const FloatPlanes& to) noexcept;

}  // namespace marlo::kernel::image
