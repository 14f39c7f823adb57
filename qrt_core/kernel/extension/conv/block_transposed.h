#pragma once

#include "qrt_core/kernel/extension/conv/block_transposed_cores.h"
#include "qrt_core/kernel/extension/conv/block_window.h"

// Transposed convolutions in C8HW8 for FMA and AVX-512. Descriptions mean what they mean to the portable
// kernel: weights are [in, out, y, x], and paddings hold (kernel - 1) * dilation - p.

namespace marlo::kernel {

/// @name Packing of transposed weights in widths
/// [G, C, N, H, W] as [G, N / width, windows, C / 8, taps, c, n], with the taps of the outputs that are
/// at one place within a stride side by side, in the order of their inputs. One dim, layout FLEXIABLE.
/// @return null unless `weight` is a FLOAT32 tensor of layout GNCHW in main memory, with channels in
///   multiples of 8
/// @{

/// Widths of 16 and 8.
std::shared_ptr<runtime::TensorCPU> pack_transposed_in_widths_of_16(
    std::shared_ptr<runtime::TensorCPU> weight, const Conv2dParams& params,
    std::shared_ptr<runtime::DeviceCPU> device);
/// Widths of 32, 16 and 8.
std::shared_ptr<runtime::TensorCPU> pack_transposed_in_widths_of_32(
    std::shared_ptr<runtime::TensorCPU> weight, const Conv2dParams& params,
    std::shared_ptr<runtime::DeviceCPU> device);
/// @}

constexpr ConvolutionRow<TransposedGeometry> block_transposed_on_fma() {
  auto row = on_fma(in_whole_blocks<TransposedGeometry>(any_above_zero(), Groups::in_eights));
  row.pack_for = pack_transposed_in_widths_of_16;
  row.core = conv::block_transposed_fma;
  return row;
}

constexpr ConvolutionRow<TransposedGeometry> block_transposed_on_avx512() {
  auto row = on_avx512(in_whole_blocks<TransposedGeometry>(any_above_zero(), Groups::in_eights));
  row.pack_for = pack_transposed_in_widths_of_32;
  row.core = conv::block_transposed_avx512;
  return row;
}

#define QRT_BLOCK_TRANSPOSED_KERNELS_FMA(KERNEL)                                \
  QRT_WITH_EPILOGUES(KERNEL, ConvTranspose2d_Knxm_Snxm_Dnxm_Gn_FMA_C8HW8_FLOAT, \
                     block_transposed_on_fma())
#define QRT_BLOCK_TRANSPOSED_KERNELS_AVX512(KERNEL)                                \
  QRT_WITH_EPILOGUES(KERNEL, ConvTranspose2d_Knxm_Snxm_Dnxm_Gn_AVX512_C8HW8_FLOAT, \
                     block_transposed_on_avx512())

QRT_IF_AVX(QRT_BLOCK_TRANSPOSED_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_BLOCK_TRANSPOSED_KERNELS_AVX512(QRT_KERNEL))

/// The rows of these convolutions that this build contains.
// clang-format off
inline constexpr std::initializer_list<const ConvolutionRow<TransposedGeometry>*>
    block_transposed_rows = {QRT_IF_AVX(QRT_BLOCK_TRANSPOSED_KERNELS_FMA(QRT_KERNEL_ROW))
                             QRT_IF_AVX(QRT_BLOCK_TRANSPOSED_KERNELS_AVX512(QRT_KERNEL_ROW))};
// clang-format on

}  // namespace marlo::kernel
