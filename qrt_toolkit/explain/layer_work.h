#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/layer_info.h"

// What a layer has to do, by its description.

namespace marlo::toolkit {

/// A convolution of any kind, in 64 bits; a line is a plane of height 1.
struct LayerWindow {
  int64_t in_channels, out_channels, groups;
  int64_t width, height, stride_x, stride_y, dilation_x, dilation_y;
  int64_t padding_x, padding_y;  // both sides together
  bool is_line, is_transposed, if_bias;
  const std::string* weight;
  const std::string* bias;

  bool is_usable() const {
    return in_channels != 0 && out_channels != 0 && groups != 0 && width != 0 && height != 0 &&
           stride_x != 0 && stride_y != 0 && dilation_x != 0 && dilation_y != 0;
  }
  int64_t weights() const {
    return groups * (in_channels / groups) * (out_channels / groups) * width * height;
  }
};

/// The window of a convolution; nothing for other layers. It points into the description.
std::optional<LayerWindow> layer_window_of(const runtime::LayerInfo& info);

/// How many numbers a persisted blob holds, or several of them.
uint64_t numbers_in(const std::string& blob);
uint64_t numbers_in(const std::vector<std::string>& blobs);

/// "Conv2d": the library's name for the layer's type, or that of its class where it has none.
std::string kind_of(const runtime::LayerInfo& info);

/// Multiply-adds of one pass; nothing for layers that aren't counted: all but convolutions, full
/// connections, matrix products and recurrent layers.
/// @param input sizes of the first input
/// @param output sizes of the first output
std::optional<uint64_t> multiply_adds(const runtime::LayerInfo& info,
                                      const std::vector<uint32_t>& input,
                                      const std::vector<uint32_t>& output);

}  // namespace marlo::toolkit
