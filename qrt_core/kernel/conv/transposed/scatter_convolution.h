#pragma once

#include "qrt_core/kernel/conv/steps/convolution.h"
#include "qrt_core/kernel/conv/steps/weight_packing.h"
#include "qrt_core/kernel/conv/transposed/scatter_cores.h"

// Fast transposed convolutions, 3 x 3 at stride 2.
//
// They differ from the portable one in what a description means, and models depend on it: weights
// are [out, in, y, x], and a padding is what is cut off the full result on that side.

namespace marlo::kernel {

/// A kernel in one layout, which compares no channels.
constexpr ConvolutionRow<ScatterGeometry> scatter(const Accepts& accepts,
                                                  runtime::LayoutType layout, conv::Core core) {
  ConvolutionRow<ScatterGeometry> row;
  row.accepts = accepts;
  row.input = {layout, true, false};
  row.output = {layout, false, false};
  row.takes_any_layout = true;
  row.core = core;
  return row;
}

// clang-format off

constexpr ConvolutionRow<ScatterGeometry> scatter_chw_on_sse() {
  auto row = scatter(with_channels(window_of(3, 3, 2)), runtime::LayoutType::CHW, conv::scatter_chw_sse);
  row.fill = fill::repeat_portable;
  return row;
}

constexpr ConvolutionRow<ScatterGeometry> scatter_c4_on_sse() {
  auto row = scatter(window_of(3, 3, 2), runtime::LayoutType::C4HW4, conv::scatter_c4_sse);
  row.pack = functional::Function_Weight_GNCHW_To_GN4C4HW4n4c_SSE;
  row.fill = fill::repeat_sse;
  return row;
}

#define QRT_SCATTER_KERNELS_SSE(KERNEL)                                      \
  KERNEL(ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1, scatter_chw_on_sse())  \
  KERNEL(ConvTranspose2d_K3x3_D1x1_G1_SSE_C4HW4_FLOAT_M1, scatter_c4_on_sse())

QRT_IF_SSE(QRT_SCATTER_KERNELS_SSE(QRT_KERNEL))

constexpr ConvolutionRow<ScatterGeometry> scatter_c8_on_avx() {
  auto row = scatter(window_of(3, 3, 2), runtime::LayoutType::C8HW8, conv::scatter_c8_avx);
  row.pack = functional::Function_Weight_GNCHW_To_GN8C8HW8n8c;
  row.fill = fill::repeat_avx;
  return on_avx(row);
}

#define QRT_SCATTER_KERNELS_AVX(KERNEL)                                      \
  KERNEL(ConvTranspose2d_K3x3_D1x1_G1_AVX_C8HW8_FLOAT_M1, scatter_c8_on_avx())

QRT_IF_AVX(QRT_SCATTER_KERNELS_AVX(QRT_KERNEL))

// clang-format on

/// The rows of the fast transposed convolutions that this build contains.
inline constexpr std::initializer_list<const ConvolutionRow<ScatterGeometry>*>
    scatter_convolution_rows = {QRT_IF_SSE(QRT_SCATTER_KERNELS_SSE(QRT_KERNEL_ROW))
                                    QRT_IF_AVX(QRT_SCATTER_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
