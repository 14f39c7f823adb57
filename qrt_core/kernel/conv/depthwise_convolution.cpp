#include "qrt_core/kernel/conv/depthwise_convolution.h"

namespace marlo::kernel {

bool has_depthwise_window(const Conv2dParams& p, uint32_t size, uint32_t stride) {
  return p.kernel_x == size && p.kernel_y == size && p.stride_x == stride && p.stride_y == stride &&
         p.dilation_x == 1 && p.dilation_y == 1;
}

}  // namespace marlo::kernel
