#include "qrt_core/kernel/layout/crop.h"

#include <algorithm>
#include <utility>

namespace marlo::kernel {

using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::TensorCPU;
using runtime::TensorShape;

void crop_planes(const float* from, size_t planes, size_t height, size_t width, const Frame& frame,
                 float* to) noexcept {
  const size_t count = width - frame.left - frame.right;
  for (size_t plane = 0; plane < planes; ++plane, from += height * width) {
    for (size_t row = frame.top; row < height - frame.bottom; ++row) {
      to = std::copy_n(from + row * width + frame.left, count, to);
    }
  }
}

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
  crop_planes(static_cast<const float*>(input.RawPointer()), from.dims[0], height, width * block,
              {left * block, right * block, top, bottom},
              static_cast<float*>(cropped->RawPointer()));
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
