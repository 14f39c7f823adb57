#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/basic/elementwise_internal.h"
#include "qrt_core/kernel/extension/elementary/rectified_sum.h"

namespace marlo::kernel::elementwise {

void add_relu_fma(const float* a, const float* b, float* output, size_t count) noexcept {
  using V = FusedVector;
  map<V>(a, b, output, count, [](auto x, auto y) { return V::maximum(V::plus(x, y), V::zero()); });
}

}  // namespace marlo::kernel::elementwise
