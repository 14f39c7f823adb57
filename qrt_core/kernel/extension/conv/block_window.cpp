#include "qrt_core/kernel/extension/conv/block_window.h"

#include <cstddef>

namespace marlo::kernel {

using runtime::DataType;
using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;
using runtime::TensorShape;

namespace {

constexpr size_t kBlock = 8;

// Output channels `first` to `first + width` of one group, with input channels in blocks of `in_block`.
float* pack_width(const float* from, size_t first, size_t width, size_t ins, size_t in_block,
                  size_t taps, float* to) {
  for (size_t block = 0; block < ins; block += in_block) {
    for (size_t tap = 0; tap < taps; ++tap) {
      for (size_t c = block; c < block + in_block; ++c) {
        for (size_t n = first; n < first + width; ++n) *to++ = from[(n * ins + c) * taps + tap];
      }
    }
  }
  return to;
}

std::shared_ptr<TensorCPU> pack_in_widths(const TensorCPU& weight, DeviceCPU& device,
                                          size_t in_block, size_t widest) {
  const TensorShape& shape = weight.shape;
  const bool packable = shape.layout == LayoutType::GNCHW &&
                        shape.location == LocationType::MainMemory &&
                        shape.data_type == DataType::FLOAT32 && shape.dims.size() == 5 &&
                        shape.dims[1] % kBlock == 0 && shape.dims[2] % in_block == 0;
  if (!packable) return nullptr;
  const size_t outs = shape.dims[1];
  const size_t ins = shape.dims[2];
  const size_t taps = size_t{shape.dims[3]} * shape.dims[4];
  const auto count = static_cast<uint32_t>(runtime::ElementCount(shape));
  auto packed = device.CreateTensor(
      TensorShape({count}, shape.data_type, LayoutType::FLEXIABLE, shape.location), nullptr);
  const auto* from = static_cast<const float*>(weight.RawPointer());
  auto* to = static_cast<float*>(packed->RawPointer());
  for (size_t group = 0; group < shape.dims[0]; ++group, from += outs * ins * taps) {
    size_t first = 0;
    for (size_t width = widest; width >= kBlock; width /= 2) {
      for (; first + width <= outs; first += width) {
        to = pack_width(from, first, width, ins, in_block, taps, to);
      }
    }
  }
  return packed;
}

}  // namespace

std::shared_ptr<TensorCPU> pack_in_widths_of_16(std::shared_ptr<TensorCPU> weight,
                                                std::shared_ptr<DeviceCPU> device) {
  return pack_in_widths(*weight, *device, kBlock, 16);
}

std::shared_ptr<TensorCPU> pack_in_widths_of_32(std::shared_ptr<TensorCPU> weight,
                                                std::shared_ptr<DeviceCPU> device) {
  return pack_in_widths(*weight, *device, kBlock, 32);
}

std::shared_ptr<TensorCPU> pack_planes_in_widths_of_16(std::shared_ptr<TensorCPU> weight,
                                                       std::shared_ptr<DeviceCPU> device) {
  return pack_in_widths(*weight, *device, 1, 16);
}

std::shared_ptr<TensorCPU> pack_planes_in_widths_of_32(std::shared_ptr<TensorCPU> weight,
                                                       std::shared_ptr<DeviceCPU> device) {
  return pack_in_widths(*weight, *device, 1, 32);
}

}  // namespace marlo::kernel
