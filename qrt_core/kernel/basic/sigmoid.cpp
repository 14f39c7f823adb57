#include "qrt_core/kernel/basic/sigmoid.h"

#include <cstdint>

#include "qrt_core/kernel/basic/activation_cores.h"
#include "qrt_core/utility/build_options.h"

namespace marlo::kernel::functional {

void sigmoid_f32(const float* input, const unsigned int& count, float* output) {
  activation::sigmoid_scalar(input, output, count, nullptr);
}

void sigmoid_sse_f32_m2(const float* input, const unsigned int& count, float* output) {
  size_t done = 0;
#if QRT_WITH_SSE
  constexpr size_t kBlock = 16;
  done = count / kBlock * kBlock;
  activation::sigmoid_fast_sse(input, output, done, nullptr);
#endif
  activation::sigmoid_scalar(input + done, output + done, count - done, nullptr);
}

void Sigmoid_F32_M2(std::shared_ptr<runtime::Tensor>& tensor) {
  // The element count is a signed 32-bit number here: a wrapped one counts as none.
  const auto count = static_cast<int32_t>(runtime::ElementCount(tensor->shape));
  if (count <= 0) return;
  auto* values = static_cast<float*>(tensor->handle.cpu);
  sigmoid_f32(values, static_cast<unsigned int>(count), values);
}

}  // namespace marlo::kernel::functional
