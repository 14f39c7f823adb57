#include "qrt_core/kernel/basic/elementwise_internal.h"

namespace marlo::kernel::elementwise {

void add_sse(const float* a, const float* b, float* output, size_t count) noexcept {
  add<SseVector>(a, b, output, count);
}

void subtract_sse(const float* a, const float* b, float* output, size_t count) noexcept {
  subtract<SseVector>(a, b, output, count);
}

void multiply_sse(const float* a, const float* b, float* output, size_t count) noexcept {
  multiply<SseVector>(a, b, output, count);
}

void divide_sse(const float* a, const float* b, float* output, size_t count) noexcept {
  divide<SseVector>(a, b, output, count);
}

void maximum_sse(const float* a, const float* b, float* output, size_t count) noexcept {
  maximum<SseVector>(a, b, output, count);
}

void minimum_sse(const float* a, const float* b, float* output, size_t count) noexcept {
  minimum<SseVector>(a, b, output, count);
}

}  // namespace marlo::kernel::elementwise
