#include "qrt_core/kernel/layout/layout_functions.h"

#include <cstdint>
#include <cstring>
#include <utility>

#include "qrt_core/kernel/layout/layout_transform_cores.h"
#include "qrt_core/utility/build_options.h"
#include "qrt_core/utility/log.h"

namespace marlo::kernel {

using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

namespace {

using TensorPointer = std::shared_ptr<TensorCPU>;

/// One helper: its name, its blocked side, and the layout code that it reads there or writes.
struct Helper {
  const char* name;
  uint32_t block;
  LayoutType blocked_layout;
};

bool is_readable(const TensorPointer& input, LayoutType layout) {
  return input != nullptr && input->shape.layout == layout &&
         input->shape.location == LocationType::MainMemory;
}

size_t pixels_of(const TensorShape& shape) {
  return static_cast<size_t>(shape.dims[1]) * shape.dims[2];
}

// The result of packing planes into blocks, not yet filled; empty if the input isn't of layout CHW.
TensorPointer blocks_for(const Helper& helper, const TensorPointer& input, DeviceCPU* device) {
  if (!is_readable(input, LayoutType::CHW)) return nullptr;
  const std::vector<uint32_t>& dims = input->shape.dims;
  Assert(device != nullptr && dims.size() == 3,
         "%s: needs a device and a tensor [C, H, W], not one of %zu dims", helper.name,
         dims.size());
  const uint32_t blocks = dims[0] / helper.block + (dims[0] % helper.block != 0 ? 1 : 0);
  return device->CreateTensor(
      TensorShape({blocks, dims[1], dims[2], helper.block}, input->shape.data_type,
                  helper.blocked_layout, input->shape.location),
      nullptr);
}

// The same for planes out of blocks.
TensorPointer planes_for(const Helper& helper, const TensorPointer& input, DeviceCPU* device) {
  if (!is_readable(input, helper.blocked_layout)) return nullptr;
  TensorShape shape = input->shape;
  Assert(device != nullptr && shape.dims.size() == 4 && shape.dims[3] == helper.block,
         "%s: needs a device and a tensor [C/%u, H, W, %u]", helper.name, helper.block,
         helper.block);
  shape.dims[0] *= helper.block;
  shape.dims.pop_back();
  shape.layout = LayoutType::CHW;
  return device->CreateTensor(std::move(shape), nullptr);
}

// Where element (channel, pixel) of planes stands in blocks.
size_t place_in_blocks(size_t channel, size_t pixel, size_t pixels, size_t block) {
  return (channel / block * pixels + pixel) * block + channel % block;
}

template <typename Element>
void pack_elements(const TensorCPU& input, TensorCPU& output, size_t block) {
  const auto* from = static_cast<const Element*>(input.RawPointer());
  auto* to = static_cast<Element*>(output.RawPointer());
  const size_t pixels = pixels_of(input.shape);
  const size_t channels = input.shape.dims[0];
  const size_t padded_channels = output.shape.dims[0] * block;
  for (size_t channel = 0; channel < padded_channels; ++channel) {
    for (size_t pixel = 0; pixel < pixels; ++pixel) {
      to[place_in_blocks(channel, pixel, pixels, block)] =
          channel < channels ? *from++ : Element{0};
    }
  }
}

template <typename Element>
void unpack_elements(const TensorCPU& input, TensorCPU& output, size_t block) {
  const auto* from = static_cast<const Element*>(input.RawPointer());
  auto* to = static_cast<Element*>(output.RawPointer());
  const size_t pixels = pixels_of(input.shape);
  const size_t channels = input.shape.dims[0] * block;
  for (size_t channel = 0; channel < channels; ++channel) {
    for (size_t pixel = 0; pixel < pixels; ++pixel) {
      *to++ = from[place_in_blocks(channel, pixel, pixels, block)];
    }
  }
}

// Elements are moved as numbers of their size; those of an unknown data type have none.
TensorPointer pack_portable(const Helper& helper, const TensorPointer& input, DeviceCPU* device) {
  TensorPointer output = blocks_for(helper, input, device);
  if (output == nullptr) return nullptr;
  switch (runtime::ElementSize(input->shape.data_type)) {
    case sizeof(uint32_t):
      pack_elements<uint32_t>(*input, *output, helper.block);
      break;
    case sizeof(uint16_t):
      pack_elements<uint16_t>(*input, *output, helper.block);
      break;
    case sizeof(uint8_t):
      pack_elements<uint8_t>(*input, *output, helper.block);
      break;
    default:
      break;
  }
  return output;
}

TensorPointer unpack_portable(const Helper& helper, const TensorPointer& input, DeviceCPU* device) {
  TensorPointer output = planes_for(helper, input, device);
  if (output == nullptr) return nullptr;
  switch (runtime::ElementSize(input->shape.data_type)) {
    case sizeof(uint32_t):
      unpack_elements<uint32_t>(*input, *output, helper.block);
      break;
    case sizeof(uint16_t):
      unpack_elements<uint16_t>(*input, *output, helper.block);
      break;
    case sizeof(uint8_t):
      unpack_elements<uint8_t>(*input, *output, helper.block);
      break;
    default:
      break;
  }
  return output;
}

#if QRT_WITH_SSE || QRT_WITH_AVX

void run(const Helper& helper, layout::Core core, const TensorCPU& input, TensorCPU& output,
         size_t channels) {
  Assert(runtime::ElementSize(input.shape.data_type) == sizeof(float),
         "%s: the tensor must be FLOAT32", helper.name);
  if (pixels_of(input.shape) == 0) return;
  core(static_cast<const float*>(input.RawPointer()), static_cast<float*>(output.RawPointer()),
       channels, pixels_of(input.shape));
}

TensorPointer pack_floats(const Helper& helper, layout::Core core, const TensorPointer& input,
                          DeviceCPU* device) {
  TensorPointer output = blocks_for(helper, input, device);
  if (output != nullptr) run(helper, core, *input, *output, input->shape.dims[0]);
  return output;
}

TensorPointer unpack_floats(const Helper& helper, layout::Core core, const TensorPointer& input,
                            DeviceCPU* device) {
  TensorPointer output = planes_for(helper, input, device);
  if (output != nullptr) run(helper, core, *input, *output, output->shape.dims[0]);
  return output;
}

#endif

}  // namespace

TensorPointer Function_Tensor_C4HW4_To_CHW_Fallback(TensorPointer input,
                                                    std::shared_ptr<DeviceCPU> device) {
  return unpack_portable({__func__, 4, LayoutType::C4HW4}, input, device.get());
}

TensorPointer Function_Tensor_C8HW8_To_CHW_Fallback(TensorPointer input,
                                                    std::shared_ptr<DeviceCPU> device) {
  return unpack_portable({__func__, 8, LayoutType::C8HW8}, input, device.get());
}

TensorPointer Function_Tensor_CHW_To_C4HW4_Fallback(TensorPointer input,
                                                    std::shared_ptr<DeviceCPU> device) {
  return pack_portable({__func__, 4, LayoutType::C4HW4}, input, device.get());
}

namespace functional {

#if QRT_WITH_SSE

TensorPointer Function_Tensor_C4HW4_To_CHW_SSE(TensorPointer input,
                                               std::shared_ptr<DeviceCPU> device) {
  return unpack_floats({__func__, 4, LayoutType::C4HW4}, layout::blocks_of_4_to_planes_sse, input,
                       device.get());
}

TensorPointer Function_Tensor_C8HW8_To_CHW_SSE(TensorPointer input,
                                               std::shared_ptr<DeviceCPU> device) {
  return unpack_floats({__func__, 8, LayoutType::C8HW8}, layout::blocks_of_8_to_planes_wide_sse,
                       input, device.get());
}

TensorPointer Function_Tensor_CHW_To_C4HW4_SSE(TensorPointer input,
                                               std::shared_ptr<DeviceCPU> device) {
  return pack_floats({__func__, 4, LayoutType::C4HW4}, layout::planes_to_blocks_of_4_sse, input,
                     device.get());
}

#endif

#if QRT_WITH_AVX

TensorPointer Function_Tensor_C8HW8_To_CHW_AVX(TensorPointer input,
                                               std::shared_ptr<DeviceCPU> device) {
  return unpack_floats({__func__, 8, LayoutType::C8HW8}, layout::blocks_of_8_to_planes_avx, input,
                       device.get());
}

// The code of C4HW4 on blocks of 8 is meant: callers exist that expect it.
TensorPointer Function_Tensor_CHW_To_C8HW8_AVX(TensorPointer input,
                                               std::shared_ptr<DeviceCPU> device) {
  return pack_floats({__func__, 8, LayoutType::C4HW4}, layout::planes_to_blocks_of_8_avx, input,
                     device.get());
}

#endif

}  // namespace functional
}  // namespace marlo::kernel
