#pragma once

#include <array>
#include <cstdint>

#include "qrt_toolkit/operators/operator.h"

// What convolutions and poolings have in common: a window that walks over up to three axes.

namespace marlo::toolkit {

/// The window along one axis.
struct WindowAxis {
  int64_t kernel = 1;
  int64_t stride = 1;
  int64_t dilation = 1;
  int64_t pad_begin = 0;
  int64_t pad_end = 0;

  /// From the first to the last element that one place of the window reads.
  int64_t span() const { return (kernel - 1) * dilation + 1; }
};

/// Paddings that a node leaves to the operator: they follow from the input's size.
enum class AutoPad : uint8_t { given, same_upper, same_lower, valid };

/// A node's window, one `WindowAxis` per axis behind batch and channels.
struct Window {
  std::vector<WindowAxis> axes;
  AutoPad auto_pad = AutoPad::given;
  bool ceil_mode = false;
};

/// Reads strides, dilations, pads, auto_pad and ceil_mode.
/// @param kernel the window's size, of as many axes as the input has behind its first two
Window window_of(const Node& node, const std::vector<int64_t>& kernel);

/// The window of a pooling, from its own `kernel_shape`.
Window pooling_window(const Node& node, size_t rank);

/// The axis with its paddings for an input of `size`.
WindowAxis resolved(const Window& window, size_t axis, int64_t size);

/// How many places a window of resolved paddings takes on an input of `size`; 0 for none. With
/// `ceil_mode` also one that reaches beyond the end, unless it would begin there.
int64_t places_of(const WindowAxis& axis, int64_t size, bool ceil_mode);

/// Three axes with those of `window` at the end and ones in front, so that one loop serves all.
struct Box {
  std::array<WindowAxis, 3> window;
  std::array<int64_t, 3> in;
  std::array<int64_t, 3> out;
};

/// Throws NodeFault for more than three axes.
Box box_of(const Window& window, const Extents& input);

/// Batch, channels, and the sizes of `places_of`; sizes that aren't known stay so.
Shape windowed_shape(const Window& window, const Shape& input, const Dimension& channels);

}  // namespace marlo::toolkit
