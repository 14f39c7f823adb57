#include "qrt_core/kernel/basic/elementwise_cores.h"

namespace marlo::kernel::elementwise {
namespace {

template <typename Function>
void map(const float* a, const float* b, float* output, size_t count, Function function) noexcept {
  for (size_t i = 0; i < count; ++i) output[i] = function(a[i], b[i]);
}

}  // namespace

void add_scalar(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](float x, float y) { return x + y; });
}

void subtract_scalar(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](float x, float y) { return x - y; });
}

void multiply_scalar(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](float x, float y) { return x * y; });
}

void divide_scalar(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](float x, float y) { return x / y; });
}

void maximum_scalar(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](float x, float y) { return y > x ? y : x; });
}

void minimum_scalar(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](float x, float y) { return x > y ? y : x; });
}

}  // namespace marlo::kernel::elementwise
