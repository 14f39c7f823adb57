#include "qrt_core/kernel/conv/point_convolution.h"

namespace marlo::kernel {
namespace {

bool is_point_at(const Conv2dParams& p, uint32_t stride) {
  const bool is_point =
      p.kernel_x == 1 && p.kernel_y == 1 && p.dilation_x == 1 && p.dilation_y == 1 && p.groups != 0;
  const bool is_padded =
      p.padding_l != 0 || p.padding_r != 0 || p.padding_t != 0 || p.padding_b != 0;
  return is_point && !is_padded && p.stride_x == stride && p.stride_y == stride;
}

bool has_channels(const Conv2dParams& p) { return p.in_channels != 0 && p.out_channels != 0; }

}  // namespace

bool accepts_point(const Conv2dParams& params) { return is_point_at(params, 1); }

bool accepts_point_stride2(const Conv2dParams& params) { return is_point_at(params, 2); }

bool accepts_point_planes(const Conv2dParams& params) {
  return accepts_point(params) && has_channels(params);
}

bool accepts_point_planes_stride2(const Conv2dParams& params) {
  return accepts_point_stride2(params) && has_channels(params);
}

#if QRT_WITH_SSE

std::shared_ptr<runtime::TensorCPU> copy_of_planes(
    const std::shared_ptr<runtime::TensorCPU>& input, const Conv2dParams&,
    const std::shared_ptr<runtime::DeviceCPU>& device) {
  return Padding_HW_MainMemory_CHW_Float_Fallback_M1(input, 0, 0, 0, 0, 0.0f, device);
}

#endif

}  // namespace marlo::kernel
