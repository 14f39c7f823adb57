#pragma once

#include <cstdint>
#include <vector>

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/kernel/layout/padding.h"
#include "qrt_core/runtime/model/conv_info.h"
#include "qrt_core/runtime/tensor/tensor_shape.h"

namespace marlo::kernel {

// What sets the convolutions over planes, the two transposed ones and those over lines apart: their
// description, their parameter record, the shapes of weights and output, what is put around the
// input and cut off the result, and how a core sees them.

/// A two-dimensional convolution over [C, H, W].
struct PlaneGeometry {
  using Info = runtime::Conv2dInfo;
  using Params = Conv2dParams;

  /// Dimensions of an input tensor that isn't blocked.
  static constexpr size_t kDims = 3;
  static constexpr const char* kMisfit = "the window is larger than the padded input";

  /// What a padded copy of the input has around it.
  static Frame padding_of(const Params& p) {
    return {p.padding_l, p.padding_r, p.padding_t, p.padding_b};
  }
  /// What the core's result has around the output.
  static Frame surplus_of(const Params&) { return {}; }
  /// Dims with a frame around them.
  static void enlarge(const Frame& frame, std::vector<uint32_t>& dims);

  static Params params_of(const Info& info);
  static const Conv2dParams& as_plane(const Params& params) { return params; }
  static runtime::TensorShape weight_shape(const Params& params);

  /// Whether outputs can be counted at all: not at a stride of 0.
  static bool has_strides(const Params& params) {
    return params.stride_x != 0 && params.stride_y != 0;
  }

  /// [out_channels, H_out, W_out], in 32-bit arithmetic: the division floors, and a window larger
  /// than the padded input wraps. Without strides there is no output.
  static std::vector<uint32_t> output_dims(const Params& params,
                                           const std::vector<uint32_t>& input);

  /// Whether each window lies inside the padded input.
  static bool window_fits(const Params& params, const std::vector<uint32_t>& input);

  static ConvTask task_of(const Params& params, const std::vector<uint32_t>& padded,
                          const std::vector<uint32_t>& output);
};

/// A transposed two-dimensional convolution over [C, H, W].
struct TransposedGeometry {
  using Info = runtime::ConvTranspose2dInfo;
  using Params = Conv2dParams;

  static constexpr size_t kDims = 3;
  static constexpr const char* kMisfit = "the window is larger than the padded input";

  static Frame padding_of(const Params&) { return {}; }
  static Frame surplus_of(const Params&) { return {}; }
  static void enlarge(const Frame& frame, std::vector<uint32_t>& dims) {
    PlaneGeometry::enlarge(frame, dims);
  }

  static Params params_of(const Info& info);
  static const Conv2dParams& as_plane(const Params& params) { return params; }
  static runtime::TensorShape weight_shape(const Params& params);

  /// [out_channels, H * stride - (kernel - 1) * dilation + padding, ...], in 32-bit arithmetic. The
  /// stored paddings are signed and hold (kernel - 1) * dilation - p, which turns the minus sign
  /// into the usual size.
  static std::vector<uint32_t> output_dims(const Params& params,
                                           const std::vector<uint32_t>& input);

  /// A stride of 0 multiplies the input away, which is a size like any other.
  static bool has_strides(const Params&) { return true; }

  /// A gather over the output reads no input outside the plane, whatever the sizes.
  static bool window_fits(const Params&, const std::vector<uint32_t>&) { return true; }

  static ConvTask task_of(const Params& params, const std::vector<uint32_t>& input,
                          const std::vector<uint32_t>& output);
};

/// A transposed two-dimensional convolution whose weights are [out, in, y, x] and whose paddings
/// are cut off the full result, as its fast kernels have it.
struct ScatterGeometry {
  using Info = runtime::ConvTranspose2dInfo;
  using Params = Conv2dParams;

  static constexpr size_t kDims = 3;
  static constexpr const char* kMisfit =
      "there must be an input, and paddings that are not negative and leave something of the "
      "result";

  static bool has_strides(const Params&) { return true; }

  static Frame padding_of(const Params&) { return {}; }
  /// The paddings are those of the full result.
  static Frame surplus_of(const Params& params) { return PlaneGeometry::padding_of(params); }
  static void enlarge(const Frame& frame, std::vector<uint32_t>& dims) {
    PlaneGeometry::enlarge(frame, dims);
  }

  static Params params_of(const Info& info) { return TransposedGeometry::params_of(info); }
  static const Conv2dParams& as_plane(const Params& params) { return params; }
  static runtime::TensorShape weight_shape(const Params& params);

  /// [out_channels, (H - 1) * stride + (kernel - 1) * dilation + 1 - paddings, ...], in 32-bit
  /// arithmetic.
  static std::vector<uint32_t> output_dims(const Params& params,
                                           const std::vector<uint32_t>& input);

  /// Whether there is a full result of less than 2^32 rows and columns, larger than its paddings.
  static bool window_fits(const Params& params, const std::vector<uint32_t>& input);

  static ConvTask task_of(const Params& params, const std::vector<uint32_t>& input,
                          const std::vector<uint32_t>& output) {
    return TransposedGeometry::task_of(params, input, output);
  }
};

/// A one-dimensional convolution over [C, L].
struct LineGeometry {
  using Info = runtime::Conv1dInfo;
  using Params = Conv1dParams;

  static constexpr size_t kDims = 2;
  static constexpr const char* kMisfit = "the window is larger than the padded input";

  static Frame padding_of(const Params& p) { return {p.padding_f, p.padding_b, 0, 0}; }
  static Frame surplus_of(const Params&) { return {}; }
  static void enlarge(const Frame& frame, std::vector<uint32_t>& dims) {
    dims[1] += frame.left + frame.right;
  }

  static Params params_of(const Info& info);
  /// A line is a plane of height 1.
  static Conv2dParams as_plane(const Params& params);
  static runtime::TensorShape weight_shape(const Params& params);

  static bool has_strides(const Params& params) { return params.stride != 0; }

  /// [out_channels, L_out], in 32-bit arithmetic.
  static std::vector<uint32_t> output_dims(const Params& params,
                                           const std::vector<uint32_t>& input);

  static bool window_fits(const Params& params, const std::vector<uint32_t>& input);

  static ConvTask task_of(const Params& params, const std::vector<uint32_t>& padded,
                          const std::vector<uint32_t>& output);
};

}  // namespace marlo::kernel
