#include "qrt_core/kernel/conv/crop.h"

#include <algorithm>
#include <utility>

namespace marlo::kernel {

using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::TensorCPU;
using runtime::TensorShape;

namespace {

std::shared_ptr<TensorCPU> crop(const TensorCPU& input, LayoutType layout, uint32_t left,
                                uint32_t right, uint32_t top, uint32_t bottom, DeviceCPU& device) {
  const uint32_t block = runtime::BlockSize(layout);
  const TensorShape& from = input.shape;
  const bool is_of_layout = from.layout == layout && from.data_type == runtime::DataType::FLOAT32 &&
                            from.location == runtime::LocationType::MainMemory &&
                            from.dims.size() == (block == 1 ? 3u : 4u) &&
                            (block == 1 || from.dims[3] == block);
  if (!is_of_layout) return nullptr;
  const size_t height = from.dims[1];
  const size_t width = from.dims[2];
  if (uint64_t{top} + bottom > height || uint64_t{left} + right > width) return nullptr;

  TensorShape shape = from;
  shape.dims[1] -= top + bottom;
  shape.dims[2] -= left + right;
  auto cropped = device.CreateTensor(std::move(shape), nullptr);
  const auto* source = static_cast<const float*>(input.RawPointer());
  auto* target = static_cast<float*>(cropped->RawPointer());
  for (size_t plane = 0; plane < from.dims[0]; ++plane) {
    for (size_t row = top; row < height - bottom; ++row) {
      const float* first = source + ((plane * height + row) * width + left) * block;
      target = std::copy_n(first, (width - left - right) * block, target);
    }
  }
  return cropped;
}

}  // namespace

std::shared_ptr<TensorCPU> Crop_HW_MainMemory_CHW_Float_Fallback_M1(
    std::shared_ptr<TensorCPU> input, uint32_t left, uint32_t right, uint32_t top, uint32_t bottom,
    std::shared_ptr<DeviceCPU> device) {
  return crop(*input, LayoutType::CHW, left, right, top, bottom, *device);
}

std::shared_ptr<TensorCPU> Crop_HW_MainMemory_C4HW4_Float_SSE_M1(
    std::shared_ptr<TensorCPU> input, uint32_t left, uint32_t right, uint32_t top, uint32_t bottom,
    std::shared_ptr<DeviceCPU> device) {
  return crop(*input, LayoutType::C4HW4, left, right, top, bottom, *device);
}

std::shared_ptr<TensorCPU> Crop_HW_MainMemory_C8HW8_Float_AVX_M1(
    std::shared_ptr<TensorCPU> input, uint32_t left, uint32_t right, uint32_t top, uint32_t bottom,
    std::shared_ptr<DeviceCPU> device) {
  return crop(*input, LayoutType::C8HW8, left, right, top, bottom, *device);
}

}  // namespace marlo::kernel
