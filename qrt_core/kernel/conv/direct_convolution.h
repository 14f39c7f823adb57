#pragma once

#include <memory>

#include "qrt_core/kernel/conv/convolution.h"
#include "qrt_core/kernel/conv/direct_convolution_cores.h"
#include "qrt_core/kernel/conv/weight_packing.h"

// Convolutions with the windows that networks have most: 3 x 3, 1 x 3, 3 x 1, 5 x 5 and 7 x 7.
// Groups are accepted and not read: only the first group's weights are used.

namespace marlo::kernel {

/// The paddings that a kernel demands.
enum class WindowMargins { any, one_all_round, one_beside, one_above_and_below, two_all_round };

/// What a kernel demands of channels, and of groups that there are any.
enum class WindowChannels {
  any,
  above_zero,
  above_zero_any_groups,  ///< one kernel never looks at the groups
  three_in,
  three_out,
  one_out,
};

bool has_margins(const Conv2dParams& params, WindowMargins margins);
bool has_channels(const Conv2dParams& params, WindowChannels channels);

/// Whether a layer has this window, stride, paddings and channels, and no dilation.
template <uint32_t kHeight, uint32_t kWidth, uint32_t kStride, WindowMargins margins,
          WindowChannels channels>
bool accepts_window(const Conv2dParams& p) {
  return p.kernel_y == kHeight && p.kernel_x == kWidth && p.stride_x == kStride &&
         p.stride_y == kStride && p.dilation_x == 1 && p.dilation_y == 1 &&
         has_margins(p, margins) && has_channels(p, channels);
}

/// @name Padded copies
/// @{
std::shared_ptr<runtime::TensorCPU> padded_chw(const std::shared_ptr<runtime::TensorCPU>& input,
                                               const Conv2dParams& params,
                                               const std::shared_ptr<runtime::DeviceCPU>& device);
std::shared_ptr<runtime::TensorCPU> padded_chw_avx(
    const std::shared_ptr<runtime::TensorCPU>& input, const Conv2dParams& params,
    const std::shared_ptr<runtime::DeviceCPU>& device);
std::shared_ptr<runtime::TensorCPU> padded_c4(const std::shared_ptr<runtime::TensorCPU>& input,
                                              const Conv2dParams& params,
                                              const std::shared_ptr<runtime::DeviceCPU>& device);
std::shared_ptr<runtime::TensorCPU> padded_c8_sse(
    const std::shared_ptr<runtime::TensorCPU>& input, const Conv2dParams& params,
    const std::shared_ptr<runtime::DeviceCPU>& device);
std::shared_ptr<runtime::TensorCPU> padded_c8_avx(
    const std::shared_ptr<runtime::TensorCPU>& input, const Conv2dParams& params,
    const std::shared_ptr<runtime::DeviceCPU>& device);
/// @}

/// A kernel between planes: data of either floating-point type passes its checks, and no channels
/// are compared.
constexpr ConvolutionRow<PlaneGeometry> window_planes(bool (*accepts)(const Conv2dParams&),
                                                      conv::Core core) {
  ConvolutionRow<PlaneGeometry> row;
  row.accepts = accepts;
  row.input = {runtime::LayoutType::CHW, true, false};
  row.output = {runtime::LayoutType::CHW, false, false};
  row.pad = padded_chw;
  row.core = core;
  return row;
}

/// A kernel between blocks, which compares the channels of its input.
constexpr ConvolutionRow<PlaneGeometry> window_blocks(bool (*accepts)(const Conv2dParams&),
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

namespace rows {
using Margins = WindowMargins;
using Channels = WindowChannels;
}  // namespace rows

// clang-format off

constexpr ConvolutionRow<PlaneGeometry> window_c4_on_sse(bool (*accepts)(const Conv2dParams&),
                                                         conv::Core core) {
  auto row = window_blocks(accepts, runtime::LayoutType::C4HW4, core);
  row.pad = padded_c4;
  row.pack = functional::Function_Weight_GNCHW_To_GN4C4HW4n4c_SSE;
  row.fill_bias = FillBias_C4HW4_Float_SSE;
  return row;
}

constexpr ConvolutionRow<PlaneGeometry> window_c8_on_sse(bool (*accepts)(const Conv2dParams&)) {
  auto row = window_blocks(accepts, runtime::LayoutType::C8HW8, conv::window_c8_sse);
  row.pad = padded_c8_sse;
  row.pack = functional::Function_Weight_GNCHW_To_GN8C8HW8n8c;
  row.fill_bias = FillBias_C8HW8_Float_SSE;
  return row;
}

constexpr ConvolutionRow<PlaneGeometry> window_chw_on_sse(bool (*accepts)(const Conv2dParams&)) {
  auto row = window_planes(accepts, conv::window_chw_sse);
  row.fill_bias = FillBias_CHW_Float_Fallback;
  return row;
}

constexpr ConvolutionRow<PlaneGeometry> window_stride2_chw_on_sse(
    bool (*accepts)(const Conv2dParams&)) {
  auto row = window_planes(accepts, conv::window_stride2_chw_sse);
  row.fill_bias = FillBias_CHW_Float_SSE;
  return row;
}

constexpr ConvolutionRow<PlaneGeometry> window_chw_to_c4_on_sse(
    bool (*accepts)(const Conv2dParams&)) {
  auto row = window_planes(accepts, conv::window_chw_to_c4_sse);
  row.output.layout = runtime::LayoutType::C4HW4;
  row.pack = functional::Function_Weight_GNCHW_To_GN4CHWn4;
  row.fill_bias = FillBias_C4HW4_Float_SSE;
  row.starts_from_bias = true;
  return row;
}

#define QRT_DIRECT_CONVOLUTION_KERNELS_SSE(KERNEL)                                                 \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1,                                              \
         window_c4_on_sse(accepts_window<3, 3, 1, Margins::one_all_round, Channels::any>, conv::window_c4_sse)) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2,                                              \
         window_c4_on_sse(accepts_window<3, 3, 1, Margins::one_all_round, Channels::any>, conv::window_c4_depth_sse)) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3,                                              \
         window_c4_on_sse(accepts_window<3, 3, 1, Margins::one_all_round, Channels::any>, conv::window_c4_depth_sse)) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1,                                              \
         window_c8_on_sse(accepts_window<3, 3, 1, Margins::one_all_round, Channels::any>))         \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1,                                                \
         window_chw_on_sse(accepts_window<3, 3, 1, Margins::any, Channels::above_zero>))           \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_SSE_3In_CHW_To_C4HW4_FLOAT_M1,                                   \
         window_chw_to_c4_on_sse(accepts_window<3, 3, 1, Margins::one_all_round, Channels::three_in>)) \
  KERNEL(Conv2d_K3x3_S2x2_D1x1_G1_SSE_C4HW4_FLOAT_M1,                                              \
         window_c4_on_sse(accepts_window<3, 3, 2, Margins::one_all_round, Channels::any>, conv::window_c4_sse)) \
  KERNEL(Conv2d_K3x3_S2x2_D1x1_G1_SSE_C8HW8_FLOAT_M1,                                              \
         testing_output(window_c8_on_sse(accepts_window<3, 3, 2, Margins::one_all_round, Channels::any>))) \
  KERNEL(Conv2d_K3x3_S2x2_D1x1_G1_SSE_CHW_FLOAT_M1,                                                \
         window_stride2_chw_on_sse(accepts_window<3, 3, 2, Margins::any, Channels::above_zero_any_groups>)) \
  KERNEL(Conv2d_K1x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1,                                              \
         window_c4_on_sse(accepts_window<1, 3, 1, Margins::one_beside, Channels::any>, conv::window_c4_sse)) \
  KERNEL(Conv2d_K1x3_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1,                                              \
         window_c8_on_sse(accepts_window<1, 3, 1, Margins::one_beside, Channels::any>))            \
  KERNEL(Conv2d_K1x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1,                                                \
         window_chw_on_sse(accepts_window<1, 3, 1, Margins::one_beside, Channels::above_zero>))    \
  KERNEL(Conv2d_K3x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1,                                              \
         window_c4_on_sse(accepts_window<3, 1, 1, Margins::one_above_and_below, Channels::any>, conv::window_c4_sse)) \
  KERNEL(Conv2d_K3x1_S1x1_D1x1_G1_SSE_C8HW8_FLOAT_M1,                                              \
         window_c8_on_sse(accepts_window<3, 1, 1, Margins::one_above_and_below, Channels::any>))   \
  KERNEL(Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1,                                                \
         window_chw_on_sse(accepts_window<3, 1, 1, Margins::any, Channels::above_zero>))           \
  KERNEL(Conv2d_K3x1_S1x1_D1x1_G1_SSE_CHW_FLOAT_M2,                                                \
         window_chw_on_sse(accepts_window<3, 1, 1, Margins::any, Channels::above_zero>))

QRT_IF_SSE(QRT_DIRECT_CONVOLUTION_KERNELS_SSE(QRT_KERNEL))

/// Weights in the panels of `conv::window_columns_avx`: eight output channels interleaved while they last,
/// then four, then one at a time. @return null unless `weight` is of layout GNCHW
std::shared_ptr<runtime::TensorCPU> pack_row_panels(std::shared_ptr<runtime::TensorCPU> weight,
                                                    std::shared_ptr<runtime::DeviceCPU> device);

/// Multiplies the panels with the columns of the input, with room for eight from `device`.
void multiply_columns(const ConvTask& task, runtime::DeviceCPU& device);

constexpr ConvolutionRow<PlaneGeometry> window_c8_on_avx(bool (*accepts)(const Conv2dParams&),
                                                         conv::Core core) {
  auto row = window_blocks(accepts, runtime::LayoutType::C8HW8, core);
  row.pad = padded_c8_avx;
  row.pack = functional::Function_Weight_GNCHW_To_GN8C8HW8n8c;
  row.fill_bias = FillBias_C8HW8_Float_AVX;
  return on_avx(row);
}

constexpr ConvolutionRow<PlaneGeometry> window_c4_on_fma(bool (*accepts)(const Conv2dParams&)) {
  auto row = window_blocks(accepts, runtime::LayoutType::C4HW4, conv::window_c4_fma);
  row.pad = padded_c4;
  row.pack = functional::Function_Weight_GNCHW_To_GN4C4HW4n4c_AVX;
  row.fill_bias = FillBias_C4HW4_Float_SSE;
  return on_fma(row);
}

constexpr ConvolutionRow<PlaneGeometry> window_chw_on_avx(bool (*accepts)(const Conv2dParams&)) {
  auto row = window_planes(accepts, conv::window_chw_avx);
  row.fill_bias = FillBias_CHW_Float_AVX;
  return on_avx(row);
}

constexpr ConvolutionRow<PlaneGeometry> window_chw_to_c4_on_fma(
    bool (*accepts)(const Conv2dParams&)) {
  auto row = window_planes(accepts, conv::window_chw_to_c4_fma);
  row.output.layout = runtime::LayoutType::C4HW4;
  row.pad = padded_chw_avx;
  row.pack = functional::Function_Weight_GNCHW_To_GN4CHWn4;
  row.fill_bias = FillBias_C4HW4_Float_SSE;
  row.starts_from_bias = true;
  return on_fma(row);
}

constexpr ConvolutionRow<PlaneGeometry> window_chw_to_c8_on_avx(
    bool (*accepts)(const Conv2dParams&)) {
  auto row = window_planes(accepts, conv::window_chw_to_c8_avx);
  row.output.layout = runtime::LayoutType::C8HW8;
  row.pad = padded_chw_avx;
  row.pack = functional::Function_Weight_GNCHW_To_GN8CHWn8;
  row.fill_bias = FillBias_C8HW8_Float_AVX;
  row.starts_from_bias = true;
  return on_avx(row);
}

/// To planes; the channels of the blocked input aren't compared.
constexpr ConvolutionRow<PlaneGeometry> window_c4_to_chw_on_fma(
    bool (*accepts)(const Conv2dParams&)) {
  auto row = window_planes(accepts, conv::window_c4_to_chw_fma);
  row.input.layout = runtime::LayoutType::C4HW4;
  row.pad = padded_c4;
  row.pack = functional::Function_Weight_GNCHW_To_GNC4HWc4;
  row.fill_bias = FillBias_CHW_Float_AVX;
  return on_fma(row);
}

constexpr ConvolutionRow<PlaneGeometry> window_c8_to_chw_on_avx(
    bool (*accepts)(const Conv2dParams&)) {
  auto row = window_planes(accepts, conv::window_c8_to_chw_avx);
  row.input = {runtime::LayoutType::C8HW8, true, true};
  row.pad = padded_c8_avx;
  row.pack = functional::Function_Weight_GNCHW_To_GNC8HWc8;
  row.fill_bias = FillBias_CHW_Float_AVX;
  return on_avx(row);
}

constexpr ConvolutionRow<PlaneGeometry> window_by_columns(bool (*accepts)(const Conv2dParams&)) {
  auto row = window_planes(accepts, nullptr);
  row.pack = pack_row_panels;
  row.fill_bias = FillBias_CHW_Float_AVX;
  row.starts_from_bias = true;
  row.method = multiply_columns;
  return on_avx(row);
}

#define QRT_DIRECT_CONVOLUTION_KERNELS_AVX(KERNEL)                                                 \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1,                                                \
         window_chw_on_avx(accepts_window<3, 3, 1, Margins::any, Channels::above_zero>))           \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_FLOAT_M1,                                              \
         window_c4_on_fma(accepts_window<3, 3, 1, Margins::any, Channels::any>))                   \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1,                                              \
         on_fma(window_c8_on_avx(accepts_window<3, 3, 1, Margins::any, Channels::any>, conv::window_c8_fma))) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C4HW4_FLOAT_M1,                                   \
         window_chw_to_c4_on_fma(accepts_window<3, 3, 1, Margins::one_all_round, Channels::three_in>)) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_3In_CHW_To_C8HW8_FLOAT_M1,                                   \
         window_chw_to_c8_on_avx(accepts_window<3, 3, 1, Margins::one_all_round, Channels::three_in>)) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C4HW4_To_CHW_3Out_FLOAT_M1,                                  \
         window_c4_to_chw_on_fma(accepts_window<3, 3, 1, Margins::one_all_round, Channels::three_out>)) \
  KERNEL(Conv2d_K3x3_S1x1_D1x1_G1_AVX_C8HW8_To_CHW_1Out_FLOAT_M1,                                  \
         window_c8_to_chw_on_avx(accepts_window<3, 3, 1, Margins::one_all_round, Channels::one_out>)) \
  KERNEL(Conv2d_K3x3_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1,                                              \
         testing_output(window_c8_on_avx(accepts_window<3, 3, 2, Margins::one_all_round, Channels::any>, conv::window_c8_avx))) \
  KERNEL(Conv2d_K1x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1,                                              \
         window_c8_on_avx(accepts_window<1, 3, 1, Margins::one_beside, Channels::any>, conv::window_c8_avx)) \
  KERNEL(Conv2d_K3x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1,                                              \
         window_c8_on_avx(accepts_window<3, 1, 1, Margins::one_above_and_below, Channels::any>, conv::window_c8_avx)) \
  KERNEL(Conv2d_K5x5_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1,                                              \
         window_c8_on_avx(accepts_window<5, 5, 1, Margins::two_all_round, Channels::any>, conv::window_c8_avx)) \
  KERNEL(Conv2d_K5x5_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1,                                                \
         window_by_columns(accepts_window<5, 5, 2, Margins::any, Channels::above_zero>))           \
  KERNEL(Conv2d_K7x7_S2x2_D1x1_G1_AVX_CHW_FLOAT_M1,                                                \
         window_by_columns(accepts_window<7, 7, 2, Margins::any, Channels::above_zero>))

QRT_IF_AVX(QRT_DIRECT_CONVOLUTION_KERNELS_AVX(QRT_KERNEL))

// clang-format on

/// The rows of the direct convolutions that this build contains.
inline constexpr std::initializer_list<const ConvolutionRow<PlaneGeometry>*>
    direct_convolution_rows = {QRT_IF_SSE(QRT_DIRECT_CONVOLUTION_KERNELS_SSE(QRT_KERNEL_ROW))
                                   QRT_IF_AVX(QRT_DIRECT_CONVOLUTION_KERNELS_AVX(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
