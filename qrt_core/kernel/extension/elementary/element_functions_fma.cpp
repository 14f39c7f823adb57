#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/elementary/element_cores.h"
#include "qrt_core/kernel/extension/elementary/element_functions_internal.h"

namespace marlo::kernel::elementary {

#define QRT_DEFINE_CORE(_, Name)                                    \
  void Name##_fma(const float* input, float* output, size_t count,  \
                  const float* parameters) noexcept {               \
    apply<math::FusedMath, Name>(input, output, count, parameters); \
  }
QRT_DEFINE_CORE(, ReLU)
QRT_EACH_COMMON_FUNCTION(, QRT_DEFINE_CORE)
QRT_EACH_VECTOR_FUNCTION(, QRT_DEFINE_CORE)
#undef QRT_DEFINE_CORE

}  // namespace marlo::kernel::elementary
