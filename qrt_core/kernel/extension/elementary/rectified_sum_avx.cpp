#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/basic/elementwise_internal.h"
#include "qrt_core/kernel/extension/elementary/rectified_sum_cores.h"

namespace marlo::kernel::elementwise {

void add_relu_avx(const float* a, const float* b, float* output, size_t count) noexcept {
  using V = AvxVector;
  map<V>(a, b, output, count, [](auto x, auto y) { return V::maximum(V::plus(x, y), V::zero()); });
}

}  // namespace marlo::kernel::elementwise
