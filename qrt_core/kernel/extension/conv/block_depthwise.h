#pragma once

#include "qrt_core/kernel/conv/depthwise/depthwise_convolution.h"
#include "qrt_core/kernel/extension/conv/block_depthwise_cores.h"

// Depthwise convolutions in C8HW8 for FMA and AVX-512 that end with an epilogue.

namespace marlo::kernel {

/// Whole blocks of channels, each of them a group.
constexpr ConvolutionRow<PlaneGeometry> block_depthwise(const Accepts& accepts,
                                                        conv::Method method) {
  auto row = depthwise_blocks(with_groups(in_blocks_of(8, accepts), Groups::one_a_channel),
                              runtime::LayoutType::C8HW8, method);
  row.pack = functional::Function_Weight_GNCHW_To_G8NCHWg8;
  return row;
}

/// Any window, stride and dilation.
constexpr ConvolutionRow<PlaneGeometry> block_depthwise_any(conv::Core core) {
  auto row = block_depthwise(any_above_zero(), nullptr);
  row.core = core;
  return row;
}

/// One factor and one summand for each channel, as a normalisation becomes that follows no
/// convolution.
constexpr ConvolutionRow<PlaneGeometry> block_scale(conv::Core core) {
  auto row = block_depthwise(window_of(1, 1, 1, Paddings::none), nullptr);
  row.core = core;
  return row;
}

// clang-format off
#define QRT_BLOCK_DEPTHWISE_KERNELS(KERNEL, ISA, on, suffix) \
  QRT_WITH_EPILOGUES(KERNEL, Depthwise_Conv2D_K3x3_S1x1_D1x1_##ISA##_C8HW8_FLOAT, on(block_depthwise(window_of(3, 3, 1), over_blocks<8, conv::block_depthwise_3x3_##suffix>))) \
  QRT_WITH_EPILOGUES(KERNEL, Depthwise_Conv2D_K3x3_S2x2_D1x1_##ISA##_C8HW8_FLOAT, on(block_depthwise(window_of(3, 3, 2), over_blocks<8, conv::block_depthwise_3x3_stride2_##suffix>))) \
  QRT_WITH_EPILOGUES(KERNEL, Depthwise_Conv2D_K5x5_S1x1_D1x1_##ISA##_C8HW8_FLOAT, on(block_depthwise(window_of(5, 5, 1), over_blocks<8, conv::block_depthwise_5x5_##suffix>))) \
  QRT_WITH_EPILOGUES(KERNEL, Depthwise_Conv2D_K5x5_S2x2_D1x1_##ISA##_C8HW8_FLOAT, on(block_depthwise(window_of(5, 5, 2), over_blocks<8, conv::block_depthwise_5x5_stride2_##suffix>))) \
  QRT_WITH_EPILOGUES(KERNEL, Depthwise_Conv2D_K7x7_S1x1_D1x1_##ISA##_C8HW8_FLOAT, on(block_depthwise(window_of(7, 7, 1), over_blocks<8, conv::block_depthwise_7x7_##suffix>)))
// clang-format on

#define QRT_BLOCK_DEPTHWISE_KERNELS_FMA(KERNEL)                                       \
  QRT_BLOCK_DEPTHWISE_KERNELS(KERNEL, FMA, on_fma, fma)                               \
  QRT_WITH_EPILOGUES(KERNEL, Depthwise_Conv2D_Knxm_Snxm_Dnxm_FMA_C8HW8_FLOAT,         \
                     on_fma(block_depthwise_any(conv::block_depthwise_any_fma)))      \
  QRT_WITH_EPILOGUES(KERNEL, Depthwise_Conv2D_K1x1_S1x1_D1x1_FMA_C8HW8_FLOAT,         \
                     on_fma(block_scale(conv::block_scale_fma)))                      \
  QRT_WITH_EPILOGUES(KERNEL, Depthwise_Conv2D_K1x1_S1x1_D1x1_Inplace_FMA_C8HW8_FLOAT, \
                     in_place(on_fma(block_scale(conv::block_scale_fma))))
#define QRT_BLOCK_DEPTHWISE_KERNELS_AVX512(KERNEL) \
  QRT_BLOCK_DEPTHWISE_KERNELS(KERNEL, AVX512, on_avx512, avx512)

QRT_IF_AVX(QRT_BLOCK_DEPTHWISE_KERNELS_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_BLOCK_DEPTHWISE_KERNELS_AVX512(QRT_KERNEL))

/// The rows of these convolutions that this build contains.
// clang-format off
inline constexpr std::initializer_list<const ConvolutionRow<PlaneGeometry>*> block_depthwise_rows = {
    QRT_IF_AVX(QRT_BLOCK_DEPTHWISE_KERNELS_FMA(QRT_KERNEL_ROW))
    QRT_IF_AVX(QRT_BLOCK_DEPTHWISE_KERNELS_AVX512(QRT_KERNEL_ROW))};
// clang-format on

}  // namespace marlo::kernel
