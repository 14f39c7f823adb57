#pragma once

#include <cstddef>
#include <cstdint>

namespace marlo::kernel {

/// The window of a pooling, from its description.
struct PoolingParams {
  uint32_t kernel_x = 0;
  uint32_t kernel_y = 0;
  uint32_t stride_x = 0;
  uint32_t stride_y = 0;
  uint32_t dilation_x = 1;  ///< read by maxima only
  uint32_t dilation_y = 1;
  int32_t padding_l = 0;
  int32_t padding_r = 0;
  int32_t padding_t = 0;
  int32_t padding_b = 0;
  bool ceil_mode = false;          ///< read by maxima only
  bool count_include_pad = false;  ///< read by averages only
};

/// One pass of a pooling core.
struct PoolingTask {
  const float* input = nullptr;
  float* output = nullptr;
  size_t planes = 0;  ///< channels, or blocks of them
  size_t height = 0;  ///< of an input plane
  size_t width = 0;   ///< of an input plane, in pixels
  size_t out_height = 0;
  size_t out_width = 0;
  /// Rows and columns by which the first window lies outside of the input, for a core that knows
  /// its margin is zero. Otherwise the margin is part of the input.
  size_t top = 0;
  size_t left = 0;
  /// Windows may pass the end of a row or a plane and read what follows in memory, all of which the
  /// caller owns.
  bool runs_on = false;
  PoolingParams params;
};

}  // namespace marlo::kernel
