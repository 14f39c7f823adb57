#include "qrt_toolkit/operators/window.h"

#include <algorithm>
#include <limits>

namespace marlo::toolkit {
namespace {

// Beyond this, sums of sizes could leave 64 bits; no tensor is as large.
constexpr int64_t kMost = std::numeric_limits<int32_t>::max();

std::vector<int64_t> list_of(const Node& node, const char* name, size_t count, int64_t otherwise,
                             int64_t least) {
  std::vector<int64_t> list = node.integers(name, std::vector<int64_t>(count, otherwise));
  if (list.size() != count) {
    throw NodeFault{name, "expected " + std::to_string(count) + " numbers, found " +
                              std::to_string(list.size())};
  }
  for (const int64_t number : list) {
    if (number < least || number > kMost) {
      throw NodeFault{name, std::to_string(number) + " is out of range"};
    }
  }
  return list;
}

AutoPad auto_pad_of(const Node& node) {
  const std::string text = node.text("auto_pad", "NOTSET");
  if (text == "NOTSET" || text.empty()) return AutoPad::given;
  if (text == "SAME_UPPER") return AutoPad::same_upper;
  if (text == "SAME_LOWER") return AutoPad::same_lower;
  if (text == "VALID") return AutoPad::valid;
  throw NodeFault{"auto_pad", "\"" + text + "\" is none of NOTSET, SAME_UPPER, SAME_LOWER, VALID"};
}

}  // namespace

Window window_of(const Node& node, const std::vector<int64_t>& kernel) {
  const size_t count = kernel.size();
  const auto strides = list_of(node, "strides", count, 1, 1);
  const auto dilations = list_of(node, "dilations", count, 1, 1);
  const auto pads = list_of(node, "pads", 2 * count, 0, 0);
  Window window;
  window.auto_pad = auto_pad_of(node);
  window.ceil_mode = node.integer("ceil_mode", 0) != 0;
  for (size_t i = 0; i < count; ++i) {
    if (kernel[i] < 1 || kernel[i] > kMost) {
      throw NodeFault{"kernel_shape", std::to_string(kernel[i]) + " is out of range"};
    }
    window.axes.push_back({kernel[i], strides[i], dilations[i], pads[i], pads[count + i]});
  }
  return window;
}

Window pooling_window(const Node& node, size_t rank) {
  const auto kernel = node.integers("kernel_shape");
  if (rank < 3 || kernel.size() != rank - 2) {
    throw NodeFault{"kernel_shape", "a window of " + std::to_string(kernel.size()) +
                                        " axes on an input of " + std::to_string(rank) + " axes"};
  }
  return window_of(node, kernel);
}

WindowAxis resolved(const Window& window, size_t axis, int64_t size) {
  WindowAxis result = window.axes[axis];
  if (window.auto_pad == AutoPad::given) return result;
  result.pad_begin = 0;
  result.pad_end = 0;
  if (window.auto_pad == AutoPad::valid) return result;
  const int64_t places = (size + result.stride - 1) / result.stride;
  const int64_t pad = std::max<int64_t>(0, (places - 1) * result.stride + result.span() - size);
  result.pad_begin = window.auto_pad == AutoPad::same_upper ? pad / 2 : pad - pad / 2;
  result.pad_end = pad - result.pad_begin;
  return result;
}

int64_t places_of(const WindowAxis& axis, int64_t size, bool ceil_mode) {
  const int64_t room = size + axis.pad_begin + axis.pad_end - axis.span();
  if (room < 0) return 0;
  int64_t places = room / axis.stride + 1;
  if (ceil_mode && room % axis.stride != 0 && places * axis.stride < size + axis.pad_begin) {
    ++places;
  }
  return places;
}

Box box_of(const Window& window, const Extents& input) {
  const size_t count = window.axes.size();
  if (count > 3) {
    throw NodeFault{"kernel_shape", "windows of more than three axes aren't computed"};
  }
  if (input.size() != count + 2) {
    throw NodeFault{"input 0", "a window of " + std::to_string(count) + " axes on an input of " +
                                   text_of(input)};
  }
  Box box;
  box.in.fill(1);
  box.out.fill(1);
  for (size_t i = 0; i < count; ++i) {
    const size_t at = 3 - count + i;
    box.in[at] = input[i + 2];
    box.window[at] = resolved(window, i, input[i + 2]);
    box.out[at] = places_of(box.window[at], input[i + 2], window.ceil_mode);
  }
  return box;
}

Shape windowed_shape(const Window& window, const Shape& input, const Dimension& channels) {
  Shape shape = {input[0], channels};
  for (size_t i = 0; i < window.axes.size(); ++i) {
    const Dimension& size = input[i + 2];
    if (size.known()) {
      shape.emplace_back(places_of(resolved(window, i, size.size), size.size, window.ceil_mode));
    } else {
      shape.emplace_back();
    }
  }
  return shape;
}

}  // namespace marlo::toolkit
