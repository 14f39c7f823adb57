#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/basic/elementwise_internal.h"

namespace marlo::kernel::elementwise {

void add_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  add<AvxVector>(a, b, output, count);
}

void subtract_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  subtract<AvxVector>(a, b, output, count);
}

void multiply_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  multiply<AvxVector>(a, b, output, count);
}

void divide_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  divide<AvxVector>(a, b, output, count);
}

void maximum_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  maximum<AvxVector>(a, b, output, count);
}

void minimum_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  minimum<AvxVector>(a, b, output, count);
}

}  // namespace marlo::kernel::elementwise
