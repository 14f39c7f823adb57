#pragma once

#include <cstddef>
#include <cstdint>

// What AVX2 does of the loops in color_cores.h, geometry_cores.h and resize_cores.h: whole groups of
// pixels from the first one on. Each returns how many it has done, and the portable loops do the
// rest. Nothing is read or written outside of `count` pixels.

namespace marlo::kernel::image {

/// Bytes 0, 1 and 2 of pixels of 3 or 4 bytes, each to a plane.
size_t split_bytes_avx2(const uint8_t* pixels, size_t channels, size_t count, uint8_t* plane0,
                        uint8_t* plane1, uint8_t* plane2) noexcept;

/// Pixels of three doublewords to planes.
size_t split_doublewords_avx2(const uint32_t* pixels, size_t count, uint32_t* plane0,
                              uint32_t* plane1, uint32_t* plane2) noexcept;

/// @name Three planes to pixels
/// @{
size_t join_bytes_avx2(const uint8_t* plane0, const uint8_t* plane1, const uint8_t* plane2,
                       size_t count, uint8_t* pixels) noexcept;
size_t join_doublewords_avx2(const uint32_t* plane0, const uint32_t* plane1, const uint32_t* plane2,
                             size_t count, uint32_t* pixels) noexcept;
/// @}

/// What `gray_of_pixels` computes.
size_t gray_of_pixels_avx2(const uint8_t* pixels, size_t channels, bool red_first, size_t count,
                           uint8_t* gray) noexcept;

/// What `gray_by_weights` computes, up to the first 32 pixels of which one's sum is whole.
size_t gray_by_weights_avx2(const uint8_t* pixels, size_t channels, size_t count,
                            uint8_t* gray) noexcept;

/// @name Bytes to floats, and floats to floats
/// What `bytes_to_floats`, `normalize_bytes` and `shift_and_scale_floats` compute.
/// @{
size_t bytes_to_floats_avx2(const uint8_t* bytes, size_t count, float* floats) noexcept;
size_t normalize_bytes_avx2(const uint8_t* bytes, size_t count, float subtrahend, float multiplier,
                            float* floats) noexcept;
size_t shift_and_scale_floats_avx2(const float* input, size_t count, float subtrahend,
                                   float multiplier, float* output) noexcept;
/// @}

/// What `reverse_pixels` does, of pixels of 1, 2, 3 or 4 bytes; nothing of others.
size_t reverse_pixels_avx2(const uint8_t* input, size_t count, size_t pixel_bytes,
                           uint8_t* output) noexcept;

/// (a + b + c + d + 2) / 4 of two pixels of `upper` and the two of `lower` below them, of 1 to 4
/// bytes.
/// @param count pixels of the output
size_t halve_rows_avx2(const uint8_t* upper, const uint8_t* lower, size_t channels, size_t count,
                       uint8_t* output) noexcept;

}  // namespace marlo::kernel::image
