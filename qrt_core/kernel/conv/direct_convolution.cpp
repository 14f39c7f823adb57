#include "qrt_core/kernel/conv/direct_convolution.h"

#include <algorithm>

namespace marlo::kernel {

using runtime::DeviceCPU;
using runtime::TensorCPU;
using runtime::TensorShape;

bool has_margins(const Conv2dParams& p, WindowMargins margins) {
  const auto are = [&p](uint32_t beside, uint32_t above_and_below) {
    return p.padding_l == beside && p.padding_r == beside && p.padding_t == above_and_below &&
           p.padding_b == above_and_below;
  };
  switch (margins) {
    case WindowMargins::one_all_round:
      return are(1, 1);
    case WindowMargins::one_beside:
      return are(1, 0);
    case WindowMargins::one_above_and_below:
      return are(0, 1);
    case WindowMargins::two_all_round:
      return are(2, 2);
    default:
      return true;
  }
}

bool has_channels(const Conv2dParams& p, WindowChannels channels) {
  const bool above_zero = p.in_channels != 0 && p.out_channels != 0;
  if (channels == WindowChannels::above_zero_any_groups) return above_zero;
  if (p.groups == 0) return false;
  switch (channels) {
    case WindowChannels::above_zero:
      return above_zero;
    case WindowChannels::three_in:
      return p.in_channels == 3;
    case WindowChannels::three_out:
      return p.out_channels == 3;
    case WindowChannels::one_out:
      return p.out_channels == 1;
    default:
      return true;
  }
}

std::shared_ptr<TensorCPU> padded_chw(const std::shared_ptr<TensorCPU>& input,
                                      const Conv2dParams& p,
                                      const std::shared_ptr<DeviceCPU>& device) {
  return Padding_HW_MainMemory_CHW_Float_Fallback_M1(input, p.padding_l, p.padding_r, p.padding_t,
                                                     p.padding_b, 0.0f, device);
}

std::shared_ptr<TensorCPU> padded_chw_avx(const std::shared_ptr<TensorCPU>& input,
                                          const Conv2dParams& p,
                                          const std::shared_ptr<DeviceCPU>& device) {
  return Padding_HW_MainMemory_CHW_Float_AVX_M1(input, p.padding_l, p.padding_r, p.padding_t,
                                                p.padding_b, device);
}

std::shared_ptr<TensorCPU> padded_c4(const std::shared_ptr<TensorCPU>& input, const Conv2dParams& p,
                                     const std::shared_ptr<DeviceCPU>& device) {
  return Padding_HW_MainMemory_C4HW4_Float_SSE_M1(input, p.padding_l, p.padding_r, p.padding_t,
                                                  p.padding_b, 0.0f, device);
}

std::shared_ptr<TensorCPU> padded_c8_sse(const std::shared_ptr<TensorCPU>& input,
                                         const Conv2dParams& p,
                                         const std::shared_ptr<DeviceCPU>& device) {
  return Padding_HW_MainMemory_C8HW8_Float_SSE_M1(input, p.padding_l, p.padding_r, p.padding_t,
                                                  p.padding_b, 0.0f, device);
}

std::shared_ptr<TensorCPU> padded_c8_avx(const std::shared_ptr<TensorCPU>& input,
                                         const Conv2dParams& p,
                                         const std::shared_ptr<DeviceCPU>& device) {
  return Padding_HW_MainMemory_C8HW8_Float_AVX_M1(input, p.padding_l, p.padding_r, p.padding_t,
                                                  p.padding_b, 0.0f, device);
}

#if QRT_WITH_AVX

std::shared_ptr<TensorCPU> pack_row_panels(std::shared_ptr<TensorCPU> weight,
                                           std::shared_ptr<DeviceCPU> device) {
  const TensorShape& shape = weight->shape;
  if (shape.layout != runtime::LayoutType::GNCHW || shape.dims.size() != 5) return nullptr;
  const size_t rows = shape.dims[1];
  const size_t depth = size_t{shape.dims[2]} * shape.dims[3] * shape.dims[4];
  auto packed = device->CreateTensor(TensorShape({shape.dims[1], static_cast<uint32_t>(depth)},
                                                 shape.data_type, runtime::LayoutType::FLEXIABLE),
                                     nullptr);
  const auto* from = static_cast<const float*>(weight->RawPointer());
  auto* to = static_cast<float*>(packed->RawPointer());
  for (size_t row = 0; row < rows;) {
    const size_t left = rows - row;
    const size_t panel = left >= 8 ? 8 : left >= 4 ? 4 : 1;
    for (size_t k = 0; k < depth; ++k) {
      for (size_t r = 0; r < panel; ++r) *to++ = from[(row + r) * depth + k];
    }
    row += panel;
  }
  return packed;
}

void multiply_columns(const ConvTask& task, DeviceCPU& device) {
  const uint32_t depth = task.in_blocks * task.params.kernel_y * task.params.kernel_x;
  const auto columns = device.CreateF32FlexiableMainMemory(
      {std::max(depth, 1u), uint32_t{conv::kWindowColumns}}, nullptr);
  conv::window_columns_avx(task, static_cast<float*>(columns->RawPointer()));
}

#endif

}  // namespace marlo::kernel
