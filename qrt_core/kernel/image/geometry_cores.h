#pragma once

#include <cstddef>
#include <cstdint>

// Moves of whole pixels on plain memory. Pixels are `pixel_bytes` long, of any number of bytes;
// input and output don't overlap.

namespace marlo::kernel::image {

/// out[x, height - 1 - y] = in[y, x]: a plane of `width` rows of `height` pixels.
void turn_clockwise(const void* input, size_t height, size_t width, size_t pixel_bytes,
                    void* output) noexcept;

/// out[width - 1 - x, y] = in[y, x].
void turn_counterclockwise(const void* input, size_t height, size_t width, size_t pixel_bytes,
                           void* output) noexcept;

/// out[i] = in[count - 1 - i]: a whole plane turned by half.
void reverse_pixels(const void* input, size_t count, size_t pixel_bytes, void* output) noexcept;

/// What does as `reverse_pixels`.
using ReversePixels = void (*)(const void* input, size_t count, size_t pixel_bytes,
                               void* output) noexcept;

/// out[y, x] = in[y, width - 1 - x], each row by `reverse_row`.
void reverse_columns(const void* input, size_t height, size_t width, size_t pixel_bytes,
                     void* output, ReversePixels reverse_row = reverse_pixels) noexcept;

/// `rows` rows of `row_bytes` each, between memory where rows are `..._stride` bytes apart.
void copy_rows(const void* input, size_t input_stride, size_t rows, size_t row_bytes, void* output,
               size_t output_stride) noexcept;

/// out[y] = in[height - 1 - y], by rows.
void reverse_rows(const void* input, size_t height, size_t row_bytes, void* output) noexcept;

}  // namespace marlo::kernel::image
