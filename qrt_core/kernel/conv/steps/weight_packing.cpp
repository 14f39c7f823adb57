#include "qrt_core/kernel/conv/steps/weight_packing.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace marlo::kernel::functional {

using runtime::DataType;
using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;
using runtime::TensorShape;

namespace {

// An axis of [G, N, C, H, W] of which blocks lie innermost.
struct Block {
  size_t axis;
  uint32_t size;
};

constexpr size_t kGroup = 0;
constexpr size_t kOut = 1;
constexpr size_t kIn = 2;
constexpr size_t kAxes = 5;

// The walk through the source in the order of the packed tensor: its sizes, and the source's step
// along each of them.
struct Walk {
  std::vector<uint32_t> sizes;
  std::vector<size_t> steps;
};

Walk walk_of(const std::vector<uint32_t>& source, const std::vector<Block>& blocks) {
  Walk walk;
  walk.sizes = source;
  walk.steps.assign(kAxes, 1);
  for (size_t axis = kAxes - 1; axis > 0; --axis) {
    walk.steps[axis - 1] = walk.steps[axis] * source[axis];
  }
  for (const Block& block : blocks) {
    walk.sizes.push_back(block.size);
    walk.steps.push_back(walk.steps[block.axis]);
    walk.sizes[block.axis] /= block.size;
    walk.steps[block.axis] *= block.size;
  }
  return walk;
}

float* copy_along(const Walk& walk, size_t axis, const float* from, float* to) {
  for (uint32_t i = 0; i < walk.sizes[axis]; ++i, from += walk.steps[axis]) {
    if (axis + 1 == walk.sizes.size()) {
      *to++ = *from;
    } else {
      to = copy_along(walk, axis + 1, from, to);
    }
  }
  return to;
}

std::shared_ptr<TensorCPU> pack(const TensorCPU& weight, DeviceCPU& device, LayoutType layout,
                                const std::vector<Block>& blocks) {
  const TensorShape& shape = weight.shape;
  const bool packable = shape.layout == LayoutType::GNCHW &&
                        shape.location == LocationType::MainMemory &&
                        shape.data_type == DataType::FLOAT32 && shape.dims.size() == kAxes;
  if (!packable) return nullptr;
  const Walk walk = walk_of(shape.dims, blocks);
  auto packed = device.CreateTensor(
      TensorShape(walk.sizes, shape.data_type, layout, shape.location, shape.extra), nullptr);
  copy_along(walk, 0, static_cast<const float*>(weight.RawPointer()),
             static_cast<float*>(packed->RawPointer()));
  return packed;
}

}  // namespace

std::shared_ptr<TensorCPU> Function_Weight_GNCHW_To_GN4C4HW4n4c_SSE(
    std::shared_ptr<TensorCPU> weight, std::shared_ptr<DeviceCPU> device) {
  return pack(*weight, *device, LayoutType::GN4C4HW4n4c, {{kIn, 4}, {kOut, 4}});
}

std::shared_ptr<TensorCPU> Function_Weight_GNCHW_To_GN4C4HW4n4c_AVX(
    std::shared_ptr<TensorCPU> weight, std::shared_ptr<DeviceCPU> device) {
  return pack(*weight, *device, LayoutType::GN4C4HW4n4c, {{kOut, 4}, {kIn, 4}});
}

std::shared_ptr<TensorCPU> Function_Weight_GNCHW_To_GN8C8HW8n8c(std::shared_ptr<TensorCPU> weight,
                                                                std::shared_ptr<DeviceCPU> device) {
  return pack(*weight, *device, LayoutType::GN8C8HWc8n8, {{kIn, 8}, {kOut, 8}});
}

std::shared_ptr<TensorCPU> Function_Weight_GNCHW_To_GN4C8HW8(std::shared_ptr<TensorCPU> weight,
                                                             std::shared_ptr<DeviceCPU> device) {
  return pack(*weight, *device, LayoutType::GN4C8HWn4c8, {{kOut, 4}, {kIn, 8}});
}

std::shared_ptr<TensorCPU> Function_Weight_GNCHW_To_GN8C4HW4(std::shared_ptr<TensorCPU> weight,
                                                             std::shared_ptr<DeviceCPU> device) {
  return pack(*weight, *device, LayoutType::GN8C4HWn8c4, {{kOut, 8}, {kIn, 4}});
}

std::shared_ptr<TensorCPU> Function_Weight_GNCHW_To_GN4CHWn4(std::shared_ptr<TensorCPU> weight,
                                                             std::shared_ptr<DeviceCPU> device) {
  return pack(*weight, *device, LayoutType::GN4CHWn4, {{kOut, 4}});
}

std::shared_ptr<TensorCPU> Function_Weight_GNCHW_To_GN8CHWn8(std::shared_ptr<TensorCPU> weight,
                                                             std::shared_ptr<DeviceCPU> device) {
  return pack(*weight, *device, LayoutType::GN8CHWn8, {{kOut, 8}});
}

std::shared_ptr<TensorCPU> Function_Weight_GNCHW_To_GNC8HWc8(std::shared_ptr<TensorCPU> weight,
                                                             std::shared_ptr<DeviceCPU> device) {
  return pack(*weight, *device, LayoutType::GN8CHWn8, {{kIn, 8}});
}

std::shared_ptr<TensorCPU> Function_Weight_GNCHW_To_GNC4HWc4(std::shared_ptr<TensorCPU> weight,
                                                             std::shared_ptr<DeviceCPU> device) {
  return pack(*weight, *device, LayoutType::GN4CHWn4, {{kIn, 4}});
}

std::shared_ptr<TensorCPU> Function_Weight_GNCHW_To_G4NCHWg4(std::shared_ptr<TensorCPU> weight,
                                                             std::shared_ptr<DeviceCPU> device) {
  return pack(*weight, *device, LayoutType::G4NCHWg4, {{kGroup, 4}});
}

std::shared_ptr<TensorCPU> Function_Weight_GNCHW_To_G8NCHWg8(std::shared_ptr<TensorCPU> weight,
                                                             std::shared_ptr<DeviceCPU> device) {
  return pack(*weight, *device, LayoutType::G8NCHWg8, {{kGroup, 8}});
}

}  // namespace marlo::kernel::functional
