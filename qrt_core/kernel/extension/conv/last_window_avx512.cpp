#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/extension/conv/last_window_cores.h"
#include "qrt_core/kernel/extension/conv/last_window_internal.h"

namespace marlo::kernel::conv {

void last_window_avx512(const ConvTask& task) noexcept { LastWindow(task).run<Avx512Vector>(); }

}  // namespace marlo::kernel::conv
