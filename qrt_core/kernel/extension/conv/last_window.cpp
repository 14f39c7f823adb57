#include "qrt_core/kernel/extension/conv/last_window.h"

#include <algorithm>

namespace marlo::kernel {

std::shared_ptr<runtime::TensorCPU> pack_for_last_channels(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device) {
  constexpr size_t kBlock = 8;
  const runtime::TensorShape& shape = weight->shape;
  const bool packable = shape.layout == runtime::LayoutType::GNCHW &&
                        shape.location == runtime::LocationType::MainMemory &&
                        shape.data_type == runtime::DataType::FLOAT32 && shape.dims.size() == 5 &&
                        shape.dims[0] == 1 && shape.dims[2] % kBlock == 0;
  if (!packable) return nullptr;
  const size_t outs = shape.dims[1];
  const size_t ins = shape.dims[2];
  const size_t taps = size_t{shape.dims[3]} * shape.dims[4];
  const auto* from = static_cast<const float*>(weight->RawPointer());
  auto packed = device->CreateTensor(
      runtime::TensorShape({static_cast<uint32_t>(runtime::ElementCount(shape))}, shape.data_type,
                           runtime::LayoutType::FLEXIABLE, shape.location),
      nullptr);
  auto* to = static_cast<float*>(packed->RawPointer());
  for (size_t first = 0; first < outs; first += conv::kLastChannels) {
    const size_t end = std::min(outs, first + conv::kLastChannels);
    for (size_t block = 0; block < ins; block += kBlock) {
      for (size_t tap = 0; tap < taps; ++tap) {
        for (size_t n = first; n < end; ++n) {
          for (size_t c = block; c < block + kBlock; ++c) *to++ = from[(n * ins + c) * taps + tap];
        }
      }
    }
  }
  return packed;
}

}  // namespace marlo::kernel
