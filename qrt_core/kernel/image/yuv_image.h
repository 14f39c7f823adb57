#pragma once

#include <cstdint>
#include <memory>

#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/log.h"

// Tensors of YUV pictures in one buffer (NV12, NV21, IYUV), as `ImageProcess` reads them: the dims
// are those of the luminance, and the chrominance, half as many bytes, lies behind it in the
// buffer.

namespace marlo::kernel {

/// Bytes of a picture whose squares of 2 by 2 pixels share a pair of chrominance values.
/// @param height, width even
inline uint64_t yuv420_bytes(uint32_t height, uint32_t width) {
  return uint64_t{height} * width / 2 * 3;
}

/// A picture in the caller's buffer, which holds `yuv420_bytes` and stays the caller's.
///
/// @code
/// const auto picture = yuv420_image(*context->cpu, 480, 640, frame);
/// const auto planes = context->cpu->CreateRGBUInt8CHWTensor(480, 640, nullptr);
/// ImageProcessFallback().ConvertPixel(picture, planes, 22, context);  // NV12
/// @endcode
inline std::shared_ptr<runtime::TensorCPU> yuv420_image(runtime::DeviceCPU& device, uint32_t height,
                                                        uint32_t width, void* bytes) {
  return device.CreateYPlane8BitTensorExternal(height, width, bytes);
}

/// A picture in a tensor of its own, which the result keeps alive.
/// @param storage of at least `yuv420_bytes`, for example [height / 2 * 3, width, 1] of UINT8
/// @throws std::runtime_error for a storage that is missing or too small
inline std::shared_ptr<runtime::TensorCPU> yuv420_image(
    runtime::DeviceCPU& device, uint32_t height, uint32_t width,
    const std::shared_ptr<runtime::TensorCPU>& storage) {
  const bool fits =
      storage != nullptr && runtime::ByteSize(storage->shape) >= yuv420_bytes(height, width);
  utility::Assert(fits, "yuv420_image: the storage is smaller than a picture of %u x %u", width,
                  height);
  const auto view = yuv420_image(device, height, width, storage->RawPointer());
  return {view.get(), [owned = view, kept = storage](runtime::TensorCPU*) mutable {
            owned.reset();
            kept.reset();
          }};
}

}  // namespace marlo::kernel
