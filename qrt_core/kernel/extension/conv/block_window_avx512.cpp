#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/extension/conv/block_transposed_internal.h"
#include "qrt_core/kernel/extension/conv/block_window_cores.h"

namespace marlo::kernel::conv {

namespace {

template <typename Plane>
void run_in_widths(const ConvTask& task) noexcept {
  constexpr size_t kResident = 80 * 1024;
  run_window<Plane>(task, kResident,
                    [](ChannelRange range, const Plane& plane, const WindowBand& band) {
                      range.take_points<Avx512Vector, 2>(plane, band);
                      range.take<Avx512Vector, 2>(plane, band);
                      range.take<Avx512Vector, 1>(plane, band);
                      range.take<FusedVector, 1>(plane, band);
                    });
}

}  // namespace

void block_window_avx512(const ConvTask& task) noexcept { run_in_widths<WindowPlane>(task); }

void block_transposed_avx512(const ConvTask& task) noexcept {
  run_in_widths<TransposedPlane>(task);
}

}  // namespace marlo::kernel::conv
