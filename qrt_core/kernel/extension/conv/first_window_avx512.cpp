#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/extension/conv/first_window_cores.h"
#include "qrt_core/kernel/extension/conv/first_window_internal.h"

namespace marlo::kernel::conv {

void first_window_avx512(const ConvTask& task, float* lines) noexcept {
  FirstWindow(task, lines).run([](FirstWindow& window) {
    window.groups<Avx512Vector, 4, 6, 2>();
    window.groups<Avx512Vector, 2, 14>();
    window.groups<FusedVector, 2, 12>();  // loads of 64 bytes would be what it waits for
    window.groups<FusedVector, 1, 12>();
  });
}

}  // namespace marlo::kernel::conv
