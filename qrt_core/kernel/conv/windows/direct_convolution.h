#pragma once

#include <memory>

#include "qrt_core/kernel/conv/steps/convolution.h"
#include "qrt_core/kernel/conv/steps/weight_packing.h"
#include "qrt_core/kernel/conv/windows/direct_convolution_cores.h"

// Convolutions with the windows that networks have most: 3 x 3, 1 x 3, 3 x 1, 5 x 5 and 7 x 7.
// Groups are accepted and not read: only the first group's weights are used.

namespace marlo::kernel {

/// A kernel between planes: data of either floating-point type passes its checks, and no channels
/// are compared.
constexpr ConvolutionRow<PlaneGeometry> window_planes(const Accepts& accepts, conv::Core core) {
  ConvolutionRow<PlaneGeometry> row;
  row.accepts = accepts;
  row.input = {runtime::LayoutType::CHW, true, false};
  row.output = {runtime::LayoutType::CHW, false, false};
  row.margin = Margin::padding;
  row.core = core;
  return row;
}

/// A kernel between blocks, which compares the channels of its input.
constexpr ConvolutionRow<PlaneGeometry> window_blocks(const Accepts& accepts,
                                                      runtime::LayoutType layout, conv::Core core) {
  ConvolutionRow<PlaneGeometry> row = window_planes(accepts, core);
  row.input = {layout, true, true};
  row.output = {layout, false, false};
  return row;
}

/// The same kernel comparing the channels of its output as well; two kernels do.
constexpr ConvolutionRow<PlaneGeometry> testing_output(ConvolutionRow<PlaneGeometry> row) {
  row.output.tests_channels = true;
  return row;
}

// clang-format off

constexpr ConvolutionRow<PlaneGeometry> window_c4_on_sse(const Accepts& accepts,
                                                         conv::Core core) {
  auto row = window_blocks(accepts, runtime::LayoutType::C4HW4, core);
  row.pack = functional::Function_Weight_GNCHW_To_GN4C4HW4n4c_SSE;
  row.fill = fill::repeat_sse;
  return row;
}

constexpr ConvolutionRow<PlaneGeometry> window_c8_on_sse(const Accepts& accepts) {
  auto row = window_blocks(accepts, runtime::LayoutType::C8HW8, conv::window_c8_sse);
  row.pack = functional::Function_Weight_GNCHW_To_GN8C8HW8n8c;
  row.fill = fill::repeat_sse;
  return row;
}

constexpr ConvolutionRow<PlaneGeometry> window_chw_on_sse(const Accepts& accepts) {
  auto row = window_planes(accepts, conv::window_chw_sse);
  row.fill = fill::repeat_portable;
  return row;
}

constexpr ConvolutionRow<PlaneGeometry> window_stride2_chw_on_sse(
    const Accepts& accepts) {
  auto row = window_planes(accepts, conv::window_stride2_chw_sse);
  row.fill = fill::repeat_sse;
  return row;
}

constexpr ConvolutionRow<PlaneGeometry> window_chw_to_c4_on_sse(
    const Accepts& accepts) {
  auto row = window_planes(accepts, conv::window_chw_to_c4_sse);
  row.output.layout = runtime::LayoutType::C4HW4;
  row.pack = functional::Function_Weight_GNCHW_To_GN4CHWn4;
  row.fill = fill::repeat_sse;
  row.starts_from_bias = true;
  return row;
}

#define QRT_DIRECT_CONVOLUTION_KERNELS_SSE(KERNEL)                                                 \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1,                                              \
         window_c4_on_sse(window_of(3, 3, 1, Paddings::one_all_round), conv::window_c4_sse)) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2,                                              \
         window_c4_on_sse(window_of(3, 3, 1, Paddings::one_all_round), conv::window_c4_depth_sse)) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3,                                              \
         window_c4_on_sse(window_of(3, 3, 1, Paddings::one_all_round), conv::window_c4_depth_sse)) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1,                                              \
         window_c8_on_sse(window_of(3, 3, 1, Paddings::one_all_round)))         \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1,                                                \
         window_chw_on_sse(with_channels(window_of(3, 3, 1))))           \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1,                                   \
         window_chw_to_c4_on_sse(with_inputs(window_of(3, 3, 1, Paddings::one_all_round), 3))) \
  KERNEL(Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1,                                              \
         window_c4_on_sse(window_of(3, 3, 2, Paddings::one_all_round), conv::window_c4_sse)) \
  KERNEL(Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1,                                              \
         testing_output(window_c8_on_sse(window_of(3, 3, 2, Paddings::one_all_round)))) \
  KERNEL(Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1,                                                \
         window_stride2_chw_on_sse(with_groups(with_channels(window_of(3, 3, 2)), Groups::any))) \
  KERNEL(Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1,                                              \
         window_c4_on_sse(window_of(1, 3, 1, Paddings::one_beside), conv::window_c4_sse)) \
  KERNEL(Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1,                                              \
         window_c8_on_sse(window_of(1, 3, 1, Paddings::one_beside)))            \
  KERNEL(Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1,                                                \
         window_chw_on_sse(with_channels(window_of(1, 3, 1, Paddings::one_beside))))    \
  KERNEL(Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1,                                              \
         window_c4_on_sse(window_of(3, 1, 1, Paddings::one_above_and_below), conv::window_c4_sse)) \
  KERNEL(Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1,                                              \
         window_c8_on_sse(window_of(3, 1, 1, Paddings::one_above_and_below)))   \
  KERNEL(Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1,                                                \
         window_chw_on_sse(with_channels(window_of(3, 1, 1))))           \
  KERNEL(Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2,                                                \
         window_chw_on_sse(with_channels(window_of(3, 1, 1))))

QRT_IF_SSE(QRT_DIRECT_CONVOLUTION_KERNELS_SSE(QRT_KERNEL))

/// Weights in the panels of `conv::window_columns_avx`: eight output channels interleaved while they last,
/// then four, then one at a time. @return null unless `weight` is of layout GNCHW
std::shared_ptr<runtime::TensorCPU> pack_row_panels(std::shared_ptr<runtime::TensorCPU> weight,
                                                    std::shared_ptr<runtime::DeviceCPU> device);

/// Multiplies the panels with the columns of the input, with room for eight from `device`.
void multiply_columns(const ConvTask& task, runtime::DeviceCPU& device);

constexpr ConvolutionRow<PlaneGeometry> window_c8_on_avx(const Accepts& accepts,
                                                         conv::Core core) {
  auto row = window_blocks(accepts, runtime::LayoutType::C8HW8, core);
  row.pack = functional::Function_Weight_GNCHW_To_GN8C8HW8n8c;
  row.fill = fill::repeat_avx;
  return on_avx(row);
}

constexpr ConvolutionRow<PlaneGeometry> window_c4_on_fma(const Accepts& accepts) {
  auto row = window_blocks(accepts, runtime::LayoutType::C4HW4, conv::window_c4_fma);
  row.pack = functional::Function_Weight_GNCHW_To_GN4C4HW4n4c_AVX;
  row.fill = fill::repeat_avx;
  return on_fma(row);
}

constexpr ConvolutionRow<PlaneGeometry> window_chw_on_avx(const Accepts& accepts) {
  auto row = window_planes(accepts, conv::window_chw_avx);
  row.fill = fill::repeat_avx;
  return on_avx(row);
}

constexpr ConvolutionRow<PlaneGeometry> window_chw_to_c4_on_fma(
    const Accepts& accepts) {
  auto row = window_planes(accepts, conv::window_chw_to_c4_fma);
  row.output.layout = runtime::LayoutType::C4HW4;
  row.pack = functional::Function_Weight_GNCHW_To_GN4CHWn4;
  row.fill = fill::repeat_avx;
  row.starts_from_bias = true;
  return on_fma(row);
}

constexpr ConvolutionRow<PlaneGeometry> window_chw_to_c8_on_avx(
    const Accepts& accepts) {
  auto row = window_planes(accepts, conv::window_chw_to_c8_avx);
  row.output.layout = runtime::LayoutType::C8HW8;
  row.pack = functional::Function_Weight_GNCHW_To_GN8CHWn8;
  row.fill = fill::repeat_avx;
  row.starts_from_bias = true;
  return on_avx(row);
}

/// To planes; the channels of the blocked input aren't compared.
constexpr ConvolutionRow<PlaneGeometry> window_c4_to_chw_on_fma(
    const Accepts& accepts) {
  auto row = window_planes(accepts, conv::window_c4_to_chw_fma);
  row.input.layout = runtime::LayoutType::C4HW4;
  row.pack = functional::Function_Weight_GNCHW_To_GNC4HWc4;
  row.fill = fill::repeat_avx;
  return on_fma(row);
}

constexpr ConvolutionRow<PlaneGeometry> window_c8_to_chw_on_avx(
    const Accepts& accepts) {
  auto row = window_planes(accepts, conv::window_c8_to_chw_avx);
  row.input = {runtime::LayoutType::C8HW8, true, true};
  row.pack = functional::Function_Weight_GNCHW_To_GNC8HWc8;
  row.leaves_odd_ends = true;
  row.fill = fill::repeat_avx;
  return on_avx(row);
}

constexpr ConvolutionRow<PlaneGeometry> window_by_columns(const Accepts& accepts) {
  auto row = window_planes(accepts, nullptr);
  row.pack = pack_row_panels;
  row.fill = fill::repeat_avx;
  row.starts_from_bias = true;
  row.method = multiply_columns;
  return on_avx(row);
}

#define QRT_DIRECT_CONVOLUTION_KERNELS_AVX(KERNEL)                                                 \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1,                                                \
         window_chw_on_avx(with_channels(window_of(3, 3, 1))))           \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1,                                              \
         window_c4_on_fma(window_of(3, 3, 1)))                   \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1,                                              \
         on_fma(window_c8_on_avx(window_of(3, 3, 1), conv::window_c8_fma))) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1,                                   \
         window_chw_to_c4_on_fma(with_inputs(window_of(3, 3, 1, Paddings::one_all_round), 3))) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1,                                   \
         window_chw_to_c8_on_avx(with_inputs(window_of(3, 3, 1, Paddings::one_all_round), 3))) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1,                                  \
         window_c4_to_chw_on_fma(with_outputs(window_of(3, 3, 1, Paddings::one_all_round), 3))) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1,                                  \
         window_c8_to_chw_on_avx(with_outputs(window_of(3, 3, 1, Paddings::one_all_round), 1))) \
  KERNEL(Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1,                                              \
         testing_output(window_c8_on_avx(window_of(3, 3, 2, Paddings::one_all_round), conv::window_c8_avx))) \
  KERNEL(Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1,                                              \
         window_c8_on_avx(window_of(1, 3, 1, Paddings::one_beside), conv::window_c8_avx)) \
  KERNEL(Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1,                                              \
         window_c8_on_avx(window_of(3, 1, 1, Paddings::one_above_and_below), conv::window_c8_avx)) \
  KERNEL(Conv2d_K5x5_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1,                                              \
         window_c8_on_avx(window_of(5, 5, 1, Paddings::two_all_round), conv::window_c8_avx)) \
  KERNEL(Conv2d_K5x5_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1,                                                \
         window_by_columns(with_channels(window_of(5, 5, 2))))           \
  KERNEL(Conv2d_K7x7_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1,                                                \
         window_by_columns(with_channels(window_of(7, 7, 2))))

QRT_IF_AVX(QRT_DIRECT_CONVOLUTION_KERNELS_AVX(QRT_KERNEL))

// clang-format on

/// The rows of the direct convolutions that this build contains.
inline constexpr std::initializer_list<const ConvolutionRow<PlaneGeometry>*>
    direct_convolution_rows = {QRT_IF_SSE(QRT_DIRECT_CONVOLUTION_KERNELS_SSE(QRT_KERNEL_ROW))
                                   QRT_IF_AVX(QRT_DIRECT_CONVOLUTION_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
