#pragma once

#include "qrt_core/kernel/conv/steps/convolution.h"
#include "qrt_core/kernel/extension/conv/block_window_cores.h"

// Convolutions in C8HW8 for FMA and AVX-512 that read the picture itself, start from the bias and end
// with an epilogue.

namespace marlo::kernel {

/// @name Packing of dense weights in widths
/// [G, N, C, H, W] as [G, N / width, C / 8, H, W, c, n], where as many output channels as can be stand
/// in groups of the first width, and the rest in the next ones. One dim, layout FLEXIABLE.
/// @return null unless `weight` is a FLOAT32 tensor of layout GNCHW in main memory, with channels in
///   multiples of 8
/// @{

/// Widths of 16 and 8.
std::shared_ptr<runtime::TensorCPU> pack_in_widths_of_16(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// Widths of 32, 16 and 8.
std::shared_ptr<runtime::TensorCPU> pack_in_widths_of_32(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// The same with input channels one by one: [G, N / width, C, H, W, n], widths of 16 and 8.
std::shared_ptr<runtime::TensorCPU> pack_planes_in_widths_of_16(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// Widths of 32, 16 and 8.
std::shared_ptr<runtime::TensorCPU> pack_planes_in_widths_of_32(
    std::shared_ptr<runtime::TensorCPU> weight, std::shared_ptr<runtime::DeviceCPU> device);
/// @}

/// Whole blocks of channels.
template <typename Geometry>
constexpr ConvolutionRow<Geometry> in_whole_blocks(Accepts accepts, Groups groups) {
  ConvolutionRow<Geometry> row;
  row.accepts = with_groups(in_blocks_of(8, with_channels(accepts)), groups);
  row.input = row.output = {runtime::LayoutType::C8HW8, false, true};
  row.starts_from_bias = true;
  row.computes = Computes::all_groups;
  return row;
}

constexpr ConvolutionRow<PlaneGeometry> block_convolution(Accepts accepts, Groups groups) {
  return in_whole_blocks<PlaneGeometry>(accepts, groups);
}

constexpr ConvolutionRow<PlaneGeometry> block_window_on_fma(Accepts accepts, Groups groups) {
  auto row = on_fma(block_convolution(accepts, groups));
  row.pack = pack_in_widths_of_16;
  row.core = conv::block_window_fma;
  return row;
}

constexpr ConvolutionRow<PlaneGeometry> block_window_on_avx512(Accepts accepts, Groups groups) {
  auto row = on_avx512(block_convolution(accepts, groups));
  row.pack = pack_in_widths_of_32;
  row.core = conv::block_window_avx512;
  return row;
}

// clang-format off
#define QRT_BLOCK_WINDOW_KERNELS(KERNEL, ISA, make)                                                 \
  QRT_WITH_EPILOGUES(KERNEL, Conv2d_K1x1_S1x1_D1x1_G1_##ISA##_C8HW8_FLOAT,                          \
                     make(window_of(1, 1, 1, Paddings::none), Groups::one))                         \
  QRT_WITH_EPILOGUES(KERNEL, Conv2d_K3x3_S1x1_D1x1_G1_##ISA##_C8HW8_FLOAT,                          \
                     make(window_of(3, 3, 1), Groups::one))                                         \
  QRT_WITH_EPILOGUES(KERNEL, Conv2d_Knxm_Snxm_Dnxm_Gn_##ISA##_C8HW8_FLOAT,                          \
                     make(any_above_zero(), Groups::in_eights))
// clang-format on

#define QRT_BLOCK_WINDOW_KERNELS_FMA(KERNEL) \
  QRT_BLOCK_WINDOW_KERNELS(KERNEL, FMA, block_window_on_fma)
#define QRT_BLOCK_WINDOW_KERNELS_AVX512(KERNEL) \
  QRT_BLOCK_WINDOW_KERNELS(KERNEL, AVX512, block_window_on_avx512)

QRT_IF_AVX(QRT_BLOCK_WINDOW_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_BLOCK_WINDOW_KERNELS_AVX512(QRT_KERNEL))

/// The rows of these convolutions that this build contains.
// clang-format off
inline constexpr std::initializer_list<const ConvolutionRow<PlaneGeometry>*> block_window_rows = {
    QRT_IF_AVX(QRT_BLOCK_WINDOW_KERNELS_FMA(QRT_KERNEL_ROW))
    QRT_IF_AVX(QRT_BLOCK_WINDOW_KERNELS_AVX512(QRT_KERNEL_ROW))};
// clang-format on

}  // namespace marlo::kernel
