#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/conv/first_window_cores.h"
#include "qrt_core/kernel/extension/conv/first_window_internal.h"

namespace marlo::kernel::conv {

void first_window_fma(const ConvTask& task, float* lines) noexcept {
  FirstWindow(task, lines).run([](FirstWindow& window) {
    window.groups<FusedVector, 2, 6>();
    window.groups<FusedVector, 1, 12>();
  });
}

}  // namespace marlo::kernel::conv
