#include "qrt_core/kernel/conv/steps/weights.h"

#include <algorithm>

#include "qrt_core/runtime/model/base64.h"

namespace marlo::kernel {

uint64_t numbers_in(const std::string& text) {
  return runtime::Base64DecodedSize(text) / sizeof(float);
}

// Sizes come from a file: they are multiplied out only as far as the text reaches.
bool holds(uint64_t numbers, const std::vector<uint32_t>& dims) {
  if (std::find(dims.begin(), dims.end(), 0u) != dims.end()) return true;
  for (const uint32_t size : dims) numbers /= size;
  return numbers != 0;
}

std::shared_ptr<runtime::TensorCPU> decode_weights(const std::string& text,
                                                   const runtime::TensorShape& shape,
                                                   const runtime::Context& context) {
  if (context.cpu == nullptr) return nullptr;
  // No more than the text has room for, before any memory is taken for it.
  if (!holds((text.size() + 3) / 4 * 3 / sizeof(float), shape.dims)) return nullptr;
  auto tensor = context.cpu->CreateTensor(shape, nullptr);
  const size_t size = runtime::ElementCount(shape) * sizeof(float);
  const size_t found =
      runtime::Base64DecodeTo(text, static_cast<char*>(tensor->RawPointer()), size);
  return found == size ? tensor : nullptr;
}

}  // namespace marlo::kernel
