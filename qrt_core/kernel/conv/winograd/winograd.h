#pragma once

#include <memory>

#include "qrt_core/kernel/conv/steps/convolution.h"
#include "qrt_core/kernel/conv/windows/direct_convolution.h"
#include "qrt_core/kernel/conv/winograd/winograd_cores.h"

// 3 x 3 convolutions by minimal filtering, F(2 x 2, 3 x 3): 2 x 2 outputs from 4 x 4 inputs with 16
// products a pair of channels, where the definition has 36. A. Lavin and S. Gray, "Fast Algorithms
// for Convolutional Neural Networks", 2016; the filtering is S. Winograd's.
//
// The sums are other sums than the definition's, so results agree within rounding, and a NaN or an
// infinity in a filter or a patch reaches all four outputs of its tile. Groups are accepted and not
// read: only the first group's weights are used.

namespace marlo::kernel {

/// The filters of [1, N, C, 3, 3] transformed: [N, C, 16] of layout CHW, where element 4 u + v
/// belongs to combination u of a filter's columns and v of its rows.
/// @return null unless `weight` is a FLOAT32 tensor of layout GNCHW and 3 x 3 filters
std::shared_ptr<runtime::TensorCPU> transform_filters(std::shared_ptr<runtime::TensorCPU> weight,
                                                      std::shared_ptr<runtime::DeviceCPU> device);

constexpr ConvolutionRow<PlaneGeometry> winograd_on_sse(conv::Method method) {
  auto row = window_planes(with_channels(window_of(3, 3, 1, Paddings::one_all_round)), nullptr);
  row.margin = Margin::to_even;
  row.pack = transform_filters;
  row.fill = fill::repeat_portable;
  row.method = method;
  return row;
}

// clang-format off
#define QRT_WINOGRAD_KERNELS_SSE(KERNEL)                                                               \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1,                                       \
         winograd_on_sse(conv::winograd_by_filter_sse))                                            \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2,                                       \
         winograd_on_sse(conv::winograd_by_filter_pairs_sse))

QRT_IF_SSE(QRT_WINOGRAD_KERNELS_SSE(QRT_KERNEL))
// clang-format on

/// The rows of the convolutions by minimal filtering that this build contains.
inline constexpr std::initializer_list<const ConvolutionRow<PlaneGeometry>*> winograd_rows = {
    QRT_IF_SSE(QRT_WINOGRAD_KERNELS_SSE(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
