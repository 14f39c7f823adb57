#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/conv/block_window_cores.h"
#include "qrt_core/kernel/extension/conv/block_window_internal.h"

namespace marlo::kernel::conv {

void block_window_fma(const ConvTask& task) noexcept {
  constexpr size_t kResident = 48 * 1024;
  run_window(task, kResident,
             [](ChannelRange range, const WindowPlane& plane, const WindowBand& band) {
               range.take<FusedVector, 2>(plane, band);
               range.take<FusedVector, 1>(plane, band);
             });
}

}  // namespace marlo::kernel::conv
