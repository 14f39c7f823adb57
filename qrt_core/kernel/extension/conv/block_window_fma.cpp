#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/conv/block_transposed_internal.h"
#include "qrt_core/kernel/extension/conv/block_window_cores.h"

namespace marlo::kernel::conv {

namespace {

template <typename Plane>
void run_in_widths(const ConvTask& task) noexcept {
  constexpr size_t kResident = 48 * 1024;
  run_window<Plane>(task, kResident,
                    [](ChannelRange range, const Plane& plane, const WindowBand& band) {
                      range.take<FusedVector, 2>(plane, band);
                      range.take<FusedVector, 1>(plane, band);
                    });
}

}  // namespace

void block_window_fma(const ConvTask& task) noexcept { run_in_widths<WindowPlane>(task); }

void block_transposed_fma(const ConvTask& task) noexcept { run_in_widths<TransposedPlane>(task); }

}  // namespace marlo::kernel::conv
