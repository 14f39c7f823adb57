#pragma once

#include "qrt_core/kernel/conv/reference/reference_convolution.h"
#include "qrt_core/kernel/conv/windows/direct_convolution_cores.h"

// The fast convolution over lines.

namespace marlo::kernel {

/// A line is a plane of height 1. No channels are compared; groups are accepted and not read.
constexpr ConvolutionRow<LineGeometry> line_of_3_on_avx() {
  ConvolutionRow<LineGeometry> row;
  row.accepts = with_channels(window_of(1, 3, 1));
  row.input = {runtime::LayoutType::CL, true, false};
  row.output = {runtime::LayoutType::CL, false, false};
  row.margin = Margin::padding;
  row.fill = fill::repeat_portable;
  row.core = conv::window_chw_avx;
  return on_avx(row);
}

#define QRT_LINE_KERNELS_AVX(KERNEL) KERNEL(Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1, line_of_3_on_avx())

QRT_IF_AVX(QRT_LINE_KERNELS_AVX(QRT_KERNEL))

/// The rows of the fast convolutions over lines.
inline constexpr std::initializer_list<const ConvolutionRow<LineGeometry>*>
    fast_line_convolution_rows = {QRT_IF_AVX(QRT_LINE_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
