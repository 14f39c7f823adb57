#include "qrt_core/kernel/conv/steps/conv_geometry.h"

namespace marlo::kernel {

using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorShape;

namespace {

// A record with 0 groups is refused before it is used; until then it just must not divide.
uint32_t per_group(uint32_t channels, uint32_t groups) {
  return groups == 0 ? 0 : channels / groups;
}

// The signed paddings of a transposed convolution are sign-extended.
template <typename Info>
Conv2dParams plane_params(const Info& info) {
  Conv2dParams params;
  params.kernel_x = info.kernel_x;
  params.kernel_y = info.kernel_y;
  params.stride_x = info.stride_x;
  params.stride_y = info.stride_y;
  params.dilation_x = info.dilation_x;
  params.dilation_y = info.dilation_y;
  params.in_channels = info.in_channels;
  params.out_channels = info.out_channels;
  params.in_channels_per_group = per_group(info.in_channels, info.groups);
  params.out_channels_per_group = per_group(info.out_channels, info.groups);
  params.groups = info.groups;
  params.padding_l = static_cast<uint32_t>(static_cast<int32_t>(info.padding_l));
  params.padding_r = static_cast<uint32_t>(static_cast<int32_t>(info.padding_r));
  params.padding_t = static_cast<uint32_t>(static_cast<int32_t>(info.padding_t));
  params.padding_b = static_cast<uint32_t>(static_cast<int32_t>(info.padding_b));
  params.if_bias = info.if_bias;
  return params;
}

TensorShape weights(std::vector<uint32_t> dims, LayoutType layout) {
  return TensorShape(std::move(dims), DataType::FLOAT32, layout);
}

uint32_t output_size(uint32_t padded, uint32_t kernel, uint32_t dilation, uint32_t stride) {
  return stride == 0 ? 0 : (padded - window_extent(kernel, dilation)) / stride + 1;
}

uint32_t transposed_size(uint32_t input, uint32_t kernel, uint32_t dilation, uint32_t stride,
                         uint32_t padding) {
  return input * stride - (kernel - 1) * dilation + padding;
}

// Whether a window fits into a padded size, which is a 32-bit number itself.
bool fits(uint64_t input, uint64_t padding, uint64_t extent) {
  return input + padding >= extent && input + padding <= UINT32_MAX;
}

// What a transposed convolution makes before anything is cut off.
uint32_t full_size(uint32_t input, uint32_t kernel, uint32_t dilation, uint32_t stride) {
  return (input - 1) * stride + (kernel - 1) * dilation + 1;
}

}  // namespace

void PlaneGeometry::enlarge(const Frame& frame, std::vector<uint32_t>& dims) {
  dims[1] += frame.top + frame.bottom;
  dims[2] += frame.left + frame.right;
}

Conv2dParams PlaneGeometry::params_of(const Info& info) { return plane_params(info); }

TensorShape PlaneGeometry::weight_shape(const Params& p) {
  return weights(
      {p.groups, p.out_channels_per_group, p.in_channels_per_group, p.kernel_y, p.kernel_x},
      LayoutType::GNCHW);
}

std::vector<uint32_t> PlaneGeometry::output_dims(const Params& p,
                                                 const std::vector<uint32_t>& input) {
  const uint32_t height = input[1] + p.padding_b + p.padding_t;
  const uint32_t width = input[2] + p.padding_r + p.padding_l;
  return {p.out_channels, output_size(height, p.kernel_y, p.dilation_y, p.stride_y),
          output_size(width, p.kernel_x, p.dilation_x, p.stride_x)};
}

bool PlaneGeometry::window_fits(const Params& p, const std::vector<uint32_t>& input) {
  return fits(input[1], p.padding_b + p.padding_t, window_extent(p.kernel_y, p.dilation_y)) &&
         fits(input[2], p.padding_r + p.padding_l, window_extent(p.kernel_x, p.dilation_x));
}

ConvTask PlaneGeometry::task_of(const Params& params, const std::vector<uint32_t>& padded,
                                const std::vector<uint32_t>& output) {
  ConvTask task;
  task.in_height = padded[1];
  task.in_width = padded[2];
  task.out_height = output[1];
  task.out_width = output[2];
  task.params = params;
  return task;
}

Conv2dParams TransposedGeometry::params_of(const Info& info) { return plane_params(info); }

TensorShape TransposedGeometry::weight_shape(const Params& p) {
  return weights(
      {p.groups, p.in_channels_per_group, p.out_channels_per_group, p.kernel_y, p.kernel_x},
      LayoutType::GNCHW);
}

std::vector<uint32_t> TransposedGeometry::output_dims(const Params& p,
                                                      const std::vector<uint32_t>& input) {
  return {
      p.out_channels,
      transposed_size(input[1], p.kernel_y, p.dilation_y, p.stride_y, p.padding_b + p.padding_t),
      transposed_size(input[2], p.kernel_x, p.dilation_x, p.stride_x, p.padding_r + p.padding_l)};
}

ConvTask TransposedGeometry::task_of(const Params& params, const std::vector<uint32_t>& input,
                                     const std::vector<uint32_t>& output) {
  return PlaneGeometry::task_of(params, input, output);
}

TensorShape ScatterGeometry::weight_shape(const Params& p) {
  return PlaneGeometry::weight_shape(p);
}

std::vector<uint32_t> ScatterGeometry::output_dims(const Params& p,
                                                   const std::vector<uint32_t>& input) {
  return {p.out_channels,
          full_size(input[1], p.kernel_y, p.dilation_y, p.stride_y) - p.padding_b - p.padding_t,
          full_size(input[2], p.kernel_x, p.dilation_x, p.stride_x) - p.padding_r - p.padding_l};
}

bool ScatterGeometry::window_fits(const Params& p, const std::vector<uint32_t>& input) {
  constexpr uint32_t kMost = 0x7FFFFFFF;  // of a signed number
  const auto fits = [](uint64_t size, uint64_t kernel, uint64_t dilation, uint64_t stride,
                       uint64_t before, uint64_t behind) {
    const uint64_t full = (size - 1) * stride + (kernel - 1) * dilation + 1;
    return size != 0 && before <= kMost && behind <= kMost && full <= UINT32_MAX &&
           before + behind <= full;
  };
  return fits(input[1], p.kernel_y, p.dilation_y, p.stride_y, p.padding_t, p.padding_b) &&
         fits(input[2], p.kernel_x, p.dilation_x, p.stride_x, p.padding_l, p.padding_r);
}

Conv1dParams LineGeometry::params_of(const Info& info) {
  Conv1dParams params;
  params.kernel_size = info.kernel_size;
  params.stride = info.stride;
  params.dilation = info.dilation;
  params.in_channels = info.in_channels;
  params.out_channels = info.out_channels;
  params.in_channels_per_group = per_group(info.in_channels, info.groups);
  params.out_channels_per_group = per_group(info.out_channels, info.groups);
  params.groups = info.groups;
  params.padding_f = info.padding_f;
  params.padding_b = info.padding_b;
  params.if_bias = info.if_bias;
  return params;
}

Conv2dParams LineGeometry::as_plane(const Params& line) {
  Conv2dParams plane;
  plane.kernel_x = line.kernel_size;
  plane.stride_x = line.stride;
  plane.dilation_x = line.dilation;
  plane.kernel_y = plane.stride_y = plane.dilation_y = 1;
  plane.in_channels = line.in_channels;
  plane.out_channels = line.out_channels;
  plane.in_channels_per_group = line.in_channels_per_group;
  plane.out_channels_per_group = line.out_channels_per_group;
  plane.groups = line.groups;
  plane.padding_l = line.padding_f;
  plane.padding_r = line.padding_b;
  plane.if_bias = line.if_bias;
  return plane;
}

TensorShape LineGeometry::weight_shape(const Params& p) {
  return weights({p.groups, p.out_channels_per_group, p.in_channels_per_group, p.kernel_size},
                 LayoutType::GNCL);
}

std::vector<uint32_t> LineGeometry::output_dims(const Params& p,
                                                const std::vector<uint32_t>& input) {
  const uint32_t length = input[1] + p.padding_b + p.padding_f;
  return {p.out_channels, output_size(length, p.kernel_size, p.dilation, p.stride)};
}

bool LineGeometry::window_fits(const Params& p, const std::vector<uint32_t>& input) {
  return fits(input[1], p.padding_b + p.padding_f, window_extent(p.kernel_size, p.dilation));
}

ConvTask LineGeometry::task_of(const Params& params, const std::vector<uint32_t>& padded,
                               const std::vector<uint32_t>& output) {
  ConvTask task;
  task.in_height = 1;
  task.in_width = padded[1];
  task.out_height = 1;
  task.out_width = output[1];
  task.params = as_plane(params);
  return task;
}

}  // namespace marlo::kernel
