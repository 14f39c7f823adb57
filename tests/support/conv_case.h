#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "tests/support/window_case.h"

namespace marlo::test {

/// The sizes of one convolution over [channels, height, width]. A line has height 1.
///
/// Paddings are those of the description: for a transposed convolution they hold
/// (kernel - 1) * dilation - p, where p rows or columns are cut off the full result.
struct ConvCase : WindowCase {
  uint32_t in_channels = 1;
  uint32_t out_channels = 1;
  uint32_t groups = 1;
  bool bias = true;

  uint32_t ins() const { return in_channels / groups; }    ///< input channels of a group
  uint32_t outs() const { return out_channels / groups; }  ///< output channels of a group
  int extent_y() const { return static_cast<int>((kernel_y - 1) * dilation_y + 1); }
  int extent_x() const { return static_cast<int>((kernel_x - 1) * dilation_x + 1); }

  size_t input_size() const { return size_t{in_channels} * height * width; }
  size_t weight_size() const { return size_t{groups} * outs() * ins() * kernel_y * kernel_x; }
  size_t bias_size() const { return bias ? size_t{groups} * outs() : 0; }
};

/// What a convolution is computed from. Weights are [groups, out, in, kernel_y, kernel_x] with the
/// channels of a group, and [groups, in, out, kernel_y, kernel_x] for a transposed convolution.
struct ConvData {
  std::vector<float> input;
  std::vector<float> weight;
  std::vector<float> bias;
};

}  // namespace marlo::test
