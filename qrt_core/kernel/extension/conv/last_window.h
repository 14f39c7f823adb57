#pragma once

#include "qrt_core/kernel/extension/conv/block_window.h"
#include "qrt_core/kernel/extension/conv/last_window_cores.h"

// Last layers: convolutions from C8HW8 to planes, a few of them as a rule.

namespace marlo::kernel {

/// Weights [1, N, C, H, W] as [N / 4, C / 8, H, W, n, c], the last group of output channels as narrow
/// as it comes. One dim, layout FLEXIABLE.
/// @return null unless `weight` is a FLOAT32 tensor of layout GNCHW in main memory in one group, with
///   input channels in multiples of 8
std::shared_ptr<runtime::TensorCPU> pack_for_last_channels(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);

/// Whole blocks of channels to any number of planes.
constexpr ConvolutionRow<PlaneGeometry> last_window(conv::Core core) {
  auto row = block_convolution(any_above_zero(), Groups::one);
  row.accepts.out.multiple_of = 1;
  row.output = {runtime::LayoutType::CHW, false, true};
  row.pack = pack_for_last_channels;
  row.core = core;
  return row;
}

#define QRT_LAST_WINDOW_KERNELS_FMA(KERNEL)                                   \
  QRT_WITH_EPILOGUES(KERNEL, Conv2d_Knxm_Snxm_Dnxm_G1_FMA_C8HW8_To_CHW_FLOAT, \
                     on_fma(last_window(conv::last_window_fma)))

#define QRT_LAST_WINDOW_KERNELS_AVX512(KERNEL)                                   \
  QRT_WITH_EPILOGUES(KERNEL, Conv2d_Knxm_Snxm_Dnxm_G1_AVX512_C8HW8_To_CHW_FLOAT, \
                     on_avx512(last_window(conv::last_window_avx512)))

QRT_IF_AVX(QRT_LAST_WINDOW_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_LAST_WINDOW_KERNELS_AVX512(QRT_KERNEL))

/// The rows of these convolutions that this build contains.
// clang-format off
inline constexpr std::initializer_list<const ConvolutionRow<PlaneGeometry>*> last_window_rows = {
    QRT_IF_AVX(QRT_LAST_WINDOW_KERNELS_FMA(QRT_KERNEL_ROW))
    QRT_IF_AVX(QRT_LAST_WINDOW_KERNELS_AVX512(QRT_KERNEL_ROW))};
// clang-format on

}  // namespace marlo::kernel
