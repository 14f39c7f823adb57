#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/extension/conv/block_window_cores.h"
#include "qrt_core/kernel/extension/conv/block_window_internal.h"

namespace marlo::kernel::conv {

void block_window_avx512(const ConvTask& task) noexcept {
  constexpr size_t kResident = 80 * 1024;
  run_window(task, kResident,
             [](ChannelRange range, const WindowPlane& plane, const WindowBand& band) {
               range.take<Avx512Vector, 2>(plane, band);
               range.take<Avx512Vector, 1>(plane, band);
               range.take<FusedVector, 1>(plane, band);
             });
}

}  // namespace marlo::kernel::conv
