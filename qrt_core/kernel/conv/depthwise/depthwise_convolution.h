#pragma once

#include "qrt_core/kernel/conv/depthwise/depthwise_cores.h"
#include "qrt_core/kernel/conv/steps/convolution.h"
#include "qrt_core/kernel/conv/steps/weight_packing.h"

// Depthwise convolutions: as many groups as channels, one filter for each.

namespace marlo::kernel {

/// Layers with a square filter and no dilation; paddings aren't tested. Kernels over planes want
/// one channel in each group. Those over blocks take any number of groups, and compute what groups
/// have channels.
constexpr Accepts depthwise_planes(uint32_t size, uint32_t stride) {
  return with_groups(window_of(size, size, stride), Groups::one_a_channel);
}

/// A kernel in one layout. Unlike dense kernels it lets no FLOAT16 pass.
constexpr ConvolutionRow<PlaneGeometry> depthwise(const Accepts& accepts,
                                                  runtime::LayoutType layout, conv::Core core) {
  ConvolutionRow<PlaneGeometry> row;
  row.accepts = accepts;
  row.input = {layout, false, true};
  row.output = {layout, false, layout == runtime::LayoutType::CHW};
  row.computes = Computes::filter_per_channel;
  row.core = core;
  return row;
}

/// A core over blocks, which needs a row of zeros in place of margins: planes are small and passed
/// over once, so that a padded copy would take as long as half of the sums.
using BlockedCore = void (*)(const ConvTask& task, const float* zeros) noexcept;

void run_over_blocks(const ConvTask& task, runtime::DeviceCPU& device, uint32_t block,
                     BlockedCore core);

/// The same as the method of a row.
template <uint32_t kBlock, BlockedCore core>
void over_blocks(const ConvTask& task, runtime::DeviceCPU& device) {
  run_over_blocks(task, device, kBlock, core);
}

/// A kernel over blocks.
constexpr ConvolutionRow<PlaneGeometry> depthwise_blocks(const Accepts& accepts,
                                                         runtime::LayoutType layout,
                                                         conv::Method method) {
  ConvolutionRow<PlaneGeometry> row = depthwise(accepts, layout, nullptr);
  row.method = method;
  row.starts_from_bias = true;
  return row;
}

// clang-format off

constexpr ConvolutionRow<PlaneGeometry> depthwise_chw_on_sse(const Accepts& accepts,
                                                             conv::Core core) {
  auto row = depthwise(accepts, runtime::LayoutType::CHW, core);
  row.margin = Margin::padding;
  row.fill = fill::repeat_portable;
  return row;
}

#define QRT_DEPTHWISE_CHW_KERNELS_SSE(KERNEL)                                                      \
  KERNEL(Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1,                                         \
         depthwise_chw_on_sse(depthwise_planes(3, 1), conv::depthwise_3x3_chw_sse))        \
  KERNEL(Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_CHW_FLOAT_M1,                                         \
         depthwise_chw_on_sse(depthwise_planes(3, 2), conv::depthwise_3x3_stride2_chw_sse))

constexpr ConvolutionRow<PlaneGeometry> depthwise_c4(const Accepts& accepts,
                                                     conv::Method method) {
  auto row = depthwise_blocks(accepts, runtime::LayoutType::C4HW4, method);
  row.pack = functional::Function_Weight_GNCHW_To_G4NCHWg4;
  row.fill = fill::repeat_portable;
  return row;
}

#define QRT_DEPTHWISE_KERNELS_SSE(KERNEL)                                                          \
  QRT_DEPTHWISE_CHW_KERNELS_SSE(KERNEL)                                                            \
  KERNEL(Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_C4HW4_FLOAT_M1,                                       \
         depthwise_c4(window_of(3, 3, 1), over_blocks<4, conv::depthwise_3x3_c4_sse>))                 \
  KERNEL(Depthwise_Conv2D_K3x3_S2x2_D1x1_SSE_C4HW4_FLOAT_M1,                                       \
         depthwise_c4(window_of(3, 3, 2), over_blocks<4, conv::depthwise_3x3_stride2_c4_sse>))

QRT_IF_SSE(QRT_DEPTHWISE_KERNELS_SSE(QRT_KERNEL))

constexpr ConvolutionRow<PlaneGeometry> depthwise_c8(const Accepts& accepts,
                                                     conv::Method method) {
  auto row = depthwise_blocks(accepts, runtime::LayoutType::C8HW8, method);
  row.pack = functional::Function_Weight_GNCHW_To_G8NCHWg8;
  row.fill = fill::repeat_avx;
  return on_avx(row);
}

#define QRT_DEPTHWISE_KERNELS_AVX(KERNEL)                                                          \
  KERNEL(Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C4HW4_FLOAT_M1,                                       \
         on_fma(depthwise_c4(window_of(3, 3, 1), over_blocks<4, conv::depthwise_3x3_c4_fma>)))                 \
  KERNEL(Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C4HW4_FLOAT_M1,                                       \
         on_fma(depthwise_c4(window_of(3, 3, 2), over_blocks<4, conv::depthwise_3x3_stride2_c4_fma>)))         \
  KERNEL(Depthwise_Conv2D_K3x3_S1x1_D1x1_AVX_C8HW8_FLOAT_M1,                                       \
         on_fma(depthwise_c8(window_of(3, 3, 1), over_blocks<8, conv::depthwise_3x3_c8_fma>)))                 \
  KERNEL(Depthwise_Conv2D_K3x3_S2x2_D1x1_AVX_C8HW8_FLOAT_M1,                                       \
         depthwise_c8(window_of(3, 3, 2), over_blocks<8, conv::depthwise_3x3_stride2_c8_avx>))                 \
  KERNEL(Depthwise_Conv2D_K5x5_S1x1_D1x1_AVX_C8HW8_FLOAT_M1,                                       \
         depthwise_c8(window_of(5, 5, 1), over_blocks<8, conv::depthwise_5x5_c8_avx>))                 \
  KERNEL(Depthwise_Conv2D_K5x5_S2x2_D1x1_AVX_C8HW8_FLOAT_M1,                                       \
         depthwise_c8(window_of(5, 5, 2), over_blocks<8, conv::depthwise_5x5_stride2_c8_avx>))

QRT_IF_AVX(QRT_DEPTHWISE_KERNELS_AVX(QRT_KERNEL))

// clang-format on

/// The rows of the depthwise convolutions that this build contains.
inline constexpr std::initializer_list<const ConvolutionRow<PlaneGeometry>*>
    depthwise_convolution_rows = {QRT_IF_SSE(QRT_DEPTHWISE_KERNELS_SSE(QRT_KERNEL_ROW))
                                      QRT_IF_AVX(QRT_DEPTHWISE_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
