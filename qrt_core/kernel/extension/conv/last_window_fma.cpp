#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/conv/last_window_cores.h"
#include "qrt_core/kernel/extension/conv/last_window_internal.h"

namespace marlo::kernel::conv {

void last_window_fma(const ConvTask& task) noexcept { LastWindow(task).run<FusedVector>(); }

}  // namespace marlo::kernel::conv
