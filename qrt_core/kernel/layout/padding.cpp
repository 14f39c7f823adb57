#include "qrt_core/kernel/layout/padding.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "qrt_core/utility/log.h"

namespace marlo::kernel {

using runtime::DataType;
using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;
using runtime::TensorShape;
using TensorPointer = std::shared_ptr<TensorCPU>;

void frame_planes(const float* from, size_t planes, size_t height, size_t width, const Frame& frame,
                  float value, float* to) noexcept {
  const size_t framed_width = width + frame.left + frame.right;
  for (size_t plane = 0; plane < planes; ++plane) {
    to = std::fill_n(to, frame.top * framed_width, value);
    for (size_t row = 0; row < height; ++row) {
      to = std::fill_n(to, frame.left, value);
      to = std::copy_n(from, width, to);
      to = std::fill_n(to, frame.right, value);
      from += width;
    }
    to = std::fill_n(to, frame.bottom * framed_width, value);
  }
}

namespace {

bool is_float_of(const TensorCPU* tensor, LayoutType layout, size_t dims) {
  if (tensor == nullptr) return false;
  const TensorShape& shape = tensor->shape;
  return shape.layout == layout && shape.data_type == DataType::FLOAT32 &&
         shape.location == LocationType::MainMemory && shape.dims.size() == dims;
}

// What a margin on both sides makes of a size.
uint32_t enlarged(uint32_t size, uint32_t before, uint32_t behind) {
  const uint64_t sum = uint64_t{size} + before + behind;
  utility::Assert(sum <= std::numeric_limits<uint32_t>::max(),
                  "a margin of %u and %u makes %u pixels more than a tensor can have", before,
                  behind, size);
  return static_cast<uint32_t>(sum);
}

TensorPointer padded_tensor(TensorShape shape, DeviceCPU* device) {
  utility::Assert(device != nullptr, "a padded tensor needs a device");
  return device->CreateTensor(std::move(shape), nullptr);
}

// Pads [planes, H, W] or [planes, H, W, block]; a copy of whole rows is as fast as memory allows
// whatever the block.
TensorPointer pad_planes(const TensorPointer& input, LayoutType layout, Frame frame, float value,
                         const std::shared_ptr<DeviceCPU>& device) {
  const bool blocked = layout != LayoutType::CHW;
  if (!is_float_of(input.get(), layout, blocked ? 4 : 3)) return nullptr;
  const std::vector<uint32_t>& dims = input->shape.dims;
  const uint32_t block = blocked ? dims[3] : 1;

  TensorShape shape = input->shape;
  shape.dims[1] = enlarged(dims[1], frame.top, frame.bottom);
  shape.dims[2] = enlarged(dims[2], frame.left, frame.right);
  auto padded = padded_tensor(std::move(shape), device.get());
  frame.left *= block;
  frame.right *= block;
  frame_planes(static_cast<const float*>(input->RawPointer()), dims[0], dims[1],
               static_cast<size_t>(dims[2]) * block, frame, value,
               static_cast<float*>(padded->RawPointer()));
  return padded;
}

}  // namespace

std::shared_ptr<TensorCPU> Padding_HW_MainMemory_CHW_Float_Fallback_M1(
    std::shared_ptr<TensorCPU> input, uint32_t left, uint32_t right, uint32_t top, uint32_t bottom,
    float value, std::shared_ptr<DeviceCPU> device) {
  return pad_planes(input, LayoutType::CHW, {left, right, top, bottom}, value, device);
}

std::shared_ptr<TensorCPU> Padding_HW_MainMemory_C4HW4_Float_SSE_M1(
    std::shared_ptr<TensorCPU> input, uint32_t left, uint32_t right, uint32_t top, uint32_t bottom,
    float value, std::shared_ptr<DeviceCPU> device) {
  return pad_planes(input, LayoutType::C4HW4, {left, right, top, bottom}, value, device);
}

std::shared_ptr<TensorCPU> Padding_HW_MainMemory_C8HW8_Float_SSE_M1(
    std::shared_ptr<TensorCPU> input, uint32_t left, uint32_t right, uint32_t top, uint32_t bottom,
    float value, std::shared_ptr<DeviceCPU> device) {
  return pad_planes(input, LayoutType::C8HW8, {left, right, top, bottom}, value, device);
}

std::shared_ptr<TensorCPU> Padding_HW_MainMemory_C8HW8_Float_AVX_M1(
    std::shared_ptr<TensorCPU> input, uint32_t left, uint32_t right, uint32_t top, uint32_t bottom,
    float value, std::shared_ptr<DeviceCPU> device) {
  return pad_planes(input, LayoutType::C8HW8, {left, right, top, bottom}, value, device);
}

std::shared_ptr<TensorCPU> Padding_HW_MainMemory_C8HW8_Float_AVX_M2(
    std::shared_ptr<TensorCPU> input, uint32_t left, uint32_t right, uint32_t top, uint32_t bottom,
    float value, std::shared_ptr<DeviceCPU> device) {
  return pad_planes(input, LayoutType::C8HW8, {left, right, top, bottom}, value, device);
}

std::shared_ptr<TensorCPU> Padding_HW_MainMemory_CHW_Float_AVX_M1(
    std::shared_ptr<TensorCPU> input, uint32_t left, uint32_t right, uint32_t top, uint32_t bottom,
    std::shared_ptr<DeviceCPU> device) {
  return pad_planes(input, LayoutType::CHW, {left, right, top, bottom}, 0.0f, device);
}

std::shared_ptr<TensorCPU> Padding_L_MainMemory_CL_Float_Fallback_M1(
    std::shared_ptr<TensorCPU> input, uint32_t front, uint32_t back, float value,
    std::shared_ptr<DeviceCPU> device) {
  if (!is_float_of(input.get(), LayoutType::CL, 2)) return nullptr;
  const std::vector<uint32_t>& dims = input->shape.dims;
  TensorShape shape = input->shape;
  shape.dims[1] = enlarged(dims[1], front, back);
  auto padded = padded_tensor(std::move(shape), device.get());
  frame_planes(static_cast<const float*>(input->RawPointer()), dims[0], 1, dims[1],
               {front, back, 0, 0}, value, static_cast<float*>(padded->RawPointer()));
  return padded;
}

}  // namespace marlo::kernel
