#include "qrt_core/kernel/conv/weights.h"

#include "qrt_core/runtime/model/base64.h"

namespace marlo::kernel {

std::shared_ptr<runtime::TensorCPU> decode_weights(const std::string& text,
                                                   const runtime::TensorShape& shape,
                                                   const runtime::Context& context) {
  if (context.cpu == nullptr) return nullptr;
  const std::string bytes = runtime::Base64Decode(text);
  // Sizes come from a file: they are multiplied out only as far as the text reaches.
  uint64_t numbers = bytes.size() / sizeof(float);
  for (const uint32_t size : shape.dims) {
    if (size == 0) return context.cpu->CreateTensor(shape, nullptr);
    numbers /= size;
  }
  if (numbers == 0) return nullptr;
  return context.cpu->CreateTensor(shape, bytes.data());
}

}  // namespace marlo::kernel
