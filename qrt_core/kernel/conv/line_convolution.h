#pragma once

#include "qrt_core/kernel/conv/direct_convolution_cores.h"
#include "qrt_core/kernel/conv/reference_convolution.h"

// The fast convolution over lines.

namespace marlo::kernel {

/// Whether a layer has a filter of 3 at stride 1 without dilation, channels, and any groups.
bool accepts_line_of_3(const Conv1dParams& params);

/// A line is a plane of height 1. No channels are compared; groups are accepted and not read.
constexpr ConvolutionRow<LineGeometry> line_of_3_on_avx() {
  ConvolutionRow<LineGeometry> row;
  row.accepts = accepts_line_of_3;
  row.input = {runtime::LayoutType::CL, true, false};
  row.output = {runtime::LayoutType::CL, false, false};
  row.pad = pad_cl;
  row.fill_bias = FillBias_CL_Float_Fallback;
  row.core = conv::window_chw_avx;
  return on_avx(row);
}

#define QRT_LINE_KERNELS_AVX(KERNEL) KERNEL(Conv1d_K3_S1_D1_G1_AVX_CL_FLOAT_M1, line_of_3_on_avx())

QRT_IF_AVX(QRT_LINE_KERNELS_AVX(QRT_KERNEL))

/// The rows of the fast convolutions over lines.
inline constexpr std::initializer_list<const ConvolutionRow<LineGeometry>*>
    fast_line_convolution_rows = {QRT_IF_AVX(QRT_LINE_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
