#pragma once

#include "qrt_core/kernel/extension/conv/block_window.h"
#include "qrt_core/kernel/extension/conv/first_window_cores.h"

// First layers: convolutions from planes, a few of them as a rule, to C8HW8.

namespace marlo::kernel {

namespace conv {

/// Runs a core with room for the lines under its windows.
/// @throws whatever the device throws when it has no memory
void run_first_window(const ConvTask& task, runtime::DeviceCPU& device, FirstWindowCore core);

/// The same as the method of a row.
template <FirstWindowCore core>
void first_window_by(const ConvTask& task, runtime::DeviceCPU& device) {
  run_first_window(task, device, core);
}

}  // namespace conv

/// Any number of planes to whole blocks of channels.
constexpr ConvolutionRow<PlaneGeometry> first_window(
    decltype(ConvolutionRow<PlaneGeometry>::pack) pack, conv::Method method) {
  auto row = block_convolution(any_above_zero(), Groups::one);
  row.accepts.in.multiple_of = 1;
  row.input = {runtime::LayoutType::CHW, false, true};
  row.pack = pack;
  row.method = method;
  return row;
}

#define QRT_FIRST_WINDOW_KERNELS_FMA(KERNEL)                                  \
  QRT_WITH_EPILOGUES(KERNEL, Conv2d_Knxm_Snxm_Dnxm_G1_FMA_CHW_To_C8HW8_FLOAT, \
                     on_fma(first_window(pack_planes_in_widths_of_16,         \
                                         conv::first_window_by<conv::first_window_fma>)))

#define QRT_FIRST_WINDOW_KERNELS_AVX512(KERNEL)                                  \
  QRT_WITH_EPILOGUES(KERNEL, Conv2d_Knxm_Snxm_Dnxm_G1_AVX512_CHW_To_C8HW8_FLOAT, \
                     on_avx512(first_window(pack_planes_in_widths_of_32,         \
                                            conv::first_window_by<conv::first_window_avx512>)))

QRT_IF_AVX(QRT_FIRST_WINDOW_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_FIRST_WINDOW_KERNELS_AVX512(QRT_KERNEL))

/// The rows of these convolutions that this build contains.
// clang-format off
inline constexpr std::initializer_list<const ConvolutionRow<PlaneGeometry>*> first_window_rows = {
    QRT_IF_AVX(QRT_FIRST_WINDOW_KERNELS_FMA(QRT_KERNEL_ROW))
    QRT_IF_AVX(QRT_FIRST_WINDOW_KERNELS_AVX512(QRT_KERNEL_ROW))};
// clang-format on

}  // namespace marlo::kernel
