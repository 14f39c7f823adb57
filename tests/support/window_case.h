#pragma once

#include <cstdint>

namespace marlo::test {

/// How a window moves over planes.
struct WindowCase {
  uint32_t height = 1;  ///< of a plane
  uint32_t width = 1;
  uint32_t kernel_y = 1;
  uint32_t kernel_x = 1;
  uint32_t stride_y = 1;
  uint32_t stride_x = 1;
  uint32_t dilation_y = 1;
  uint32_t dilation_x = 1;
  int padding_l = 0;
  int padding_r = 0;
  int padding_t = 0;
  int padding_b = 0;
};

/// Copies kernel, strides and paddings into a description of a layer.
template <typename Info>
void describe_window(const WindowCase& window, Info& info) {
  using Padding = decltype(info.padding_l);
  info.kernel_x = static_cast<uint16_t>(window.kernel_x);
  info.kernel_y = static_cast<uint16_t>(window.kernel_y);
  info.stride_x = static_cast<uint16_t>(window.stride_x);
  info.stride_y = static_cast<uint16_t>(window.stride_y);
  info.padding_l = static_cast<Padding>(window.padding_l);
  info.padding_r = static_cast<Padding>(window.padding_r);
  info.padding_t = static_cast<Padding>(window.padding_t);
  info.padding_b = static_cast<Padding>(window.padding_b);
}

template <typename Info>
void describe_dilation(const WindowCase& window, Info& info) {
  info.dilation_x = static_cast<uint16_t>(window.dilation_x);
  info.dilation_y = static_cast<uint16_t>(window.dilation_y);
}

/// The setters of a tester whose sizes are a `Case`; each returns the tester.
template <typename Tester, typename Case>
class WindowSetters {
 public:
  Tester& size(uint32_t height, uint32_t width) {
    sizes_.height = height;
    sizes_.width = width;
    return tester();
  }
  Tester& kernel(uint32_t height, uint32_t width) {
    sizes_.kernel_y = height;
    sizes_.kernel_x = width;
    return tester();
  }
  Tester& kernel(uint32_t both) { return kernel(both, both); }
  Tester& stride(uint32_t vertical, uint32_t horizontal) {
    sizes_.stride_y = vertical;
    sizes_.stride_x = horizontal;
    return tester();
  }
  Tester& stride(uint32_t both) { return stride(both, both); }
  Tester& dilation(uint32_t vertical, uint32_t horizontal) {
    sizes_.dilation_y = vertical;
    sizes_.dilation_x = horizontal;
    return tester();
  }
  Tester& dilation(uint32_t both) { return dilation(both, both); }
  Tester& padding(int left, int right, int top, int bottom) {
    sizes_.padding_l = left;
    sizes_.padding_r = right;
    sizes_.padding_t = top;
    sizes_.padding_b = bottom;
    return tester();
  }
  Tester& padding(int all) { return padding(all, all, all, all); }

 protected:
  Tester& tester() { return static_cast<Tester&>(*this); }

  Case sizes_;
};

}  // namespace marlo::test
