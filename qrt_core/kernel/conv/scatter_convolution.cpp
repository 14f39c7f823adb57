#include "qrt_core/kernel/conv/scatter_convolution.h"

namespace marlo::kernel {

using runtime::DeviceCPU;
using runtime::TensorCPU;

bool accepts_scatter(const Conv2dParams& p) {
  return p.kernel_x == 3 && p.kernel_y == 3 && p.stride_x == 2 && p.stride_y == 2 &&
         p.dilation_x == 1 && p.dilation_y == 1 && p.groups != 0;
}

bool accepts_scatter_planes(const Conv2dParams& p) {
  return accepts_scatter(p) && p.in_channels != 0 && p.out_channels != 0;
}

std::shared_ptr<TensorCPU> framed_chw(const std::shared_ptr<TensorCPU>& input, const Conv2dParams&,
                                      const std::shared_ptr<DeviceCPU>& device) {
  return Padding_HW_MainMemory_CHW_Float_Fallback_M1(input, 1, 1, 1, 1, 0.0f, device);
}

std::shared_ptr<TensorCPU> framed_c4(const std::shared_ptr<TensorCPU>& input, const Conv2dParams&,
                                     const std::shared_ptr<DeviceCPU>& device) {
  return Padding_HW_MainMemory_C4HW4_Float_SSE_M1(input, 1, 1, 1, 1, 0.0f, device);
}

std::shared_ptr<TensorCPU> framed_c8(const std::shared_ptr<TensorCPU>& input, const Conv2dParams&,
                                     const std::shared_ptr<DeviceCPU>& device) {
  return Padding_HW_MainMemory_C8HW8_Float_AVX_M1(input, 1, 1, 1, 1, 0.0f, device);
}

}  // namespace marlo::kernel
