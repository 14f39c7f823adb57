#pragma once

#include <cstdint>

#include "qrt_core/kernel/epilogue.h"

namespace marlo::kernel {

/// The parameters of a two-dimensional convolution, as its kernel keeps them.
///
/// Per-group counts are truncated: channels that the groups don't divide evenly are neither read
/// nor computed. The paddings of a transposed convolution are signed numbers in two's complement.
struct Conv2dParams {
  uint32_t kernel_x = 0;
  uint32_t kernel_y = 0;
  uint32_t stride_x = 0;
  uint32_t stride_y = 0;
  uint32_t dilation_x = 0;
  uint32_t dilation_y = 0;
  uint32_t in_channels = 0;
  uint32_t out_channels = 0;
  uint32_t in_channels_per_group = 0;
  uint32_t out_channels_per_group = 0;
  uint32_t groups = 0;
  uint32_t padding_l = 0;
  uint32_t padding_r = 0;
  uint32_t padding_t = 0;
  uint32_t padding_b = 0;
  bool if_bias = false;
};

/// The parameters of a one-dimensional convolution, as its kernel keeps them.
struct Conv1dParams {
  uint32_t kernel_size = 0;
  uint32_t stride = 0;
  uint32_t dilation = 0;
  uint32_t in_channels = 0;
  uint32_t out_channels = 0;
  uint32_t in_channels_per_group = 0;
  uint32_t out_channels_per_group = 0;
  uint32_t groups = 0;
  uint32_t padding_f = 0;
  uint32_t padding_b = 0;
  bool if_bias = false;
};

/// One run of a convolution core: pointers to dense arrays, and their sizes.
///
/// `input` is the padded copy where the kernel makes one. `output` holds the bias or zeros, onto
/// which the core adds, unless the kernel has no step that fills it. A core that knows no groups
/// runs over `in_blocks` and `out_blocks`, the counts that the packed weights have: channels that
/// don't fill a block have no weights, and the tensors may have more blocks than that.
struct ConvTask {
  const float* input = nullptr;   ///< [channels or blocks, in_height, in_width, block]
  const float* weight = nullptr;  ///< as the kernel packed it
  const float* bias = nullptr;    ///< one for each output channel; null without a bias
  float* output = nullptr;        ///< [channels or blocks, out_height, out_width, block]
  uint32_t in_blocks = 0;         ///< channels of a group, in blocks of the input's layout
  uint32_t out_blocks = 0;        ///< channels of a group, in blocks of the output's layout
  uint32_t in_height = 0;
  uint32_t in_width = 0;
  uint32_t out_height = 0;
  uint32_t out_width = 0;
  Epilogue epilogue = Epilogue::none;  ///< what a core that knows epilogues does before it stores
  Conv2dParams params;
};

/// Inputs that one output spans along a dimension.
constexpr uint32_t window_extent(uint32_t kernel, uint32_t dilation) {
  return (kernel - 1) * dilation + 1;
}

}  // namespace marlo::kernel
