#include "qrt_core/kernel/conv/reference_convolution.h"

namespace marlo::kernel {

using runtime::DeviceCPU;
using runtime::TensorCPU;

bool accepts_any_plane(const Conv2dParams& p) {
  return p.kernel_x != 0 && p.kernel_y != 0 && p.stride_x != 0 && p.stride_y != 0 &&
         p.dilation_x != 0 && p.dilation_y != 0 && p.in_channels != 0 && p.out_channels != 0 &&
         p.groups != 0;
}

bool accepts_any_line(const Conv1dParams& p) {
  return p.kernel_size != 0 && p.stride != 0 && p.dilation != 0 && p.in_channels != 0 &&
         p.out_channels != 0 && p.groups != 0;
}

std::shared_ptr<TensorCPU> pad_chw(const std::shared_ptr<TensorCPU>& input, const Conv2dParams& p,
                                   const std::shared_ptr<DeviceCPU>& device) {
  return Padding_HW_MainMemory_CHW_Float_Fallback_M1(input, p.padding_l, p.padding_r, p.padding_t,
                                                     p.padding_b, 0.0f, device);
}

std::shared_ptr<TensorCPU> pad_cl(const std::shared_ptr<TensorCPU>& input, const Conv1dParams& p,
                                  const std::shared_ptr<DeviceCPU>& device) {
  return Padding_L_MainMemory_CL_Float_Fallback_M1(input, p.padding_f, p.padding_b, 0.0f, device);
}

}  // namespace marlo::kernel
