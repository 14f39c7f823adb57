#include "qrt_core/kernel/conv/windows/direct_convolution.h"

#include <algorithm>

namespace marlo::kernel {

using runtime::DeviceCPU;
using runtime::TensorCPU;
using runtime::TensorShape;

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
