#pragma once

#include <cstddef>

namespace marlo::kernel::pixel_shuffle {

/// One run of a pixel shuffle. Its *deep* tensor has many channels and few pixels, its *wide*
/// tensor few channels, each of whose squares of pixels comes from that many deep channels.
struct Task {
  const float* input;
  float* output;
  size_t wide_channels;  ///< in blocks where the layout is blocked
  size_t deep_height;
  size_t deep_width;
  size_t wide_height;  ///< rows beyond deep_height * factor are neither read nor written
  size_t wide_width;   ///< columns likewise
  size_t factor;
};

using Core = void (*)(const Task& task) noexcept;

// Any factor, on [C, H, W].
void upscale_portable(const Task& task) noexcept;
void downscale_portable(const Task& task) noexcept;

// Factor 2, on [C/4, H, W, 4]: the four pixels of a square in one wide block are the rows of a 4 x
// 4 matrix whose columns are the same pixel of four deep blocks.
void upscale2_c4_sse(const Task& task) noexcept;
void downscale2_c4_sse(const Task& task) noexcept;

// Factor 2, on [C/8, H, W, 8].
void upscale2_c8_avx(const Task& task) noexcept;
void downscale2_c8_avx(const Task& task) noexcept;

}  // namespace marlo::kernel::pixel_shuffle
