#include <algorithm>
#include <utility>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/groups.h"
#include "qrt_toolkit/operators/window.h"

// Convolutions, poolings and matrix products.

namespace marlo::toolkit {
namespace {

runtime::WeightBlob blob_of(const Numbers& numbers) {
  std::vector<float> floats(numbers.reals().begin(), numbers.reals().end());
  return runtime::MakeWeightBlob(floats.data(), floats.size());
}

/// A window over planes: one over lines is one row high.
struct PlaneWindow {
  WindowAxis y;
  WindowAxis x;
};

/// @param sizes of the input without batch, channels first
PlaneWindow plane_window(const Window& window, const Extents& sizes) {
  const size_t count = window.axes.size();
  if (count > 2 || sizes.size() != count + 1) {
    throw NodeFault{"kernel_shape", "windows of three axes have no kernel"};
  }
  PlaneWindow plane;
  plane.x = resolved(window, count - 1, sizes.back());
  if (count == 2) plane.y = resolved(window, 0, sizes[1]);
  return plane;
}

/// The description's names for a window; their paddings may be of another width.
template <class Info>
void describe(Info& info, const PlaneWindow& window) {
  using Padding = decltype(info.padding_l);
  const auto padding = [](int64_t pad) {
    if constexpr (std::is_signed_v<Padding>) {
      return narrow_i16(pad, "pads");
    } else {
      return narrow_u16(pad, "pads");
    }
  };
  info.kernel_x = narrow_u16(window.x.kernel, "kernel_shape");
  info.kernel_y = narrow_u16(window.y.kernel, "kernel_shape");
  info.stride_x = narrow_u16(window.x.stride, "strides");
  info.stride_y = narrow_u16(window.y.stride, "strides");
  info.padding_l = padding(window.x.pad_begin);
  info.padding_r = padding(window.x.pad_end);
  info.padding_t = padding(window.y.pad_begin);
  info.padding_b = padding(window.y.pad_end);
}

template <class Info>
void describe_dilation(Info& info, const PlaneWindow& window) {
  info.dilation_x = narrow_u16(window.x.dilation, "dilations");
  info.dilation_y = narrow_u16(window.y.dilation, "dilations");
}

template <class Info>
void set_weights(Lowering& lowering, Info& info) {
  info.weight = blob_of(*lowering.required_constant(1));
  if (lowering.node().has_input(2)) {
    info.if_bias = true;
    info.bias = blob_of(*lowering.required_constant(2));
  } else {
    info.if_bias = false;
  }
}

uint64_t product(const Extents& sizes) {
  return static_cast<uint64_t>(count_of(sizes).value_or(0));
}

void lower_conv(Lowering& lowering) {
  const Extents weight = lowering.required_constant(1)->shape;
  const Window window =
      window_of(lowering.node(), std::vector<int64_t>(weight.begin() + 2, weight.end()));
  const PlaneWindow plane = plane_window(window, lowering.input_sizes(0));
  auto info = std::make_shared<runtime::Conv2dInfo>();
  describe(*info, plane);
  describe_dilation(*info, plane);
  info->in_channels = narrow_u16(lowering.input_sizes(0)[0], "channels");
  info->out_channels = narrow_u16(weight[0], "channels");
  info->groups = narrow_u16(lowering.node().integer("group", 1), "group");
  set_weights(lowering, *info);
  const size_t layer = lowering.plan().add(info, "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
                                           {lowering.planes(0)});
  const Extents out = lowering.output_sizes();
  lowering.plan().layer(layer).products =
      product(weight) * (product(out) / static_cast<uint64_t>(std::max<int64_t>(1, out[0])));
  lowering.result(layer);
}

// The description holds the paddings of the convolution that the transposed one amounts to.
void lower_conv_transpose(Lowering& lowering) {
  const Node& node = lowering.node();
  const Extents weight = lowering.required_constant(1)->shape;
  const std::vector<int64_t> kernel(weight.begin() + 2, weight.end());
  Window window = window_of(node, kernel);
  const bool same =
      window.auto_pad == AutoPad::same_upper || window.auto_pad == AutoPad::same_lower;
  const Extents in = lowering.input_sizes(0);
  const Extents out = lowering.output_sizes();
  if (window.auto_pad == AutoPad::valid || node.has("output_shape") || same) {
    // The output's size is known, and what it lacks is cut off at both ends.
    for (size_t i = 0; i < kernel.size(); ++i) {
      WindowAxis& axis = window.axes[i];
      const int64_t cut = axis.stride * (in[i + 1] - 1) + axis.span() - out[i + 1];
      const int64_t half = std::max<int64_t>(0, cut) / 2;
      const bool upper = window.auto_pad == AutoPad::same_upper;
      axis.pad_begin = upper ? half : std::max<int64_t>(0, cut) - half;
    }
  }
  window.auto_pad = AutoPad::given;
  for (size_t i = 0; i < kernel.size(); ++i) {
    WindowAxis& axis = window.axes[i];
    const int64_t reach = axis.span() - 1;
    axis.pad_begin = reach - axis.pad_begin;
    axis.pad_end = out[i + 1] - axis.stride * in[i + 1] + reach - axis.pad_begin;
  }
  PlaneWindow plane = plane_window(window, in);
  auto info = std::make_shared<runtime::ConvTranspose2dInfo>();
  describe(*info, plane);
  describe_dilation(*info, plane);
  info->in_channels = narrow_u16(in[0], "channels");
  info->out_channels = narrow_u16(out[0], "channels");
  info->groups = narrow_u16(node.integer("group", 1), "group");
  set_weights(lowering, *info);
  const size_t layer = lowering.plan().add(
      info, "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", {lowering.planes(0)});
  lowering.plan().layer(layer).products =
      product(weight) * (product(in) / static_cast<uint64_t>(std::max<int64_t>(1, in[0])));
  lowering.result(layer);
}

/// Sizes are rounded down by the kernels: where the operator rounds up, the padding at the end is
/// as large as the last place of the window needs.
void pad_last_place(WindowAxis& axis, int64_t in, int64_t out) {
  const int64_t needed = (out - 1) * axis.stride + axis.span() - in - axis.pad_begin;
  axis.pad_end = std::max(axis.pad_end, needed);
}

PlaneWindow pooling_plane(Lowering& lowering, bool& widened) {
  const Extents in = lowering.input_sizes(0);
  const Extents out = lowering.output_sizes();
  const Window window = pooling_window(lowering.node(), in.size() + 1);
  PlaneWindow plane = plane_window(window, in);
  const PlaneWindow before = plane;
  pad_last_place(plane.x, in.back(), out.back());
  if (in.size() == 3) pad_last_place(plane.y, in[1], out[1]);
  widened = plane.x.pad_end != before.x.pad_end || plane.y.pad_end != before.y.pad_end;
  return plane;
}

void lower_max_pool(Lowering& lowering) {
  if (lowering.node().has_output(1)) {
    throw NodeFault{"output 1", "the places of the maxima have no kernel"};
  }
  bool widened = false;
  const PlaneWindow plane = pooling_plane(lowering, widened);
  auto info = std::make_shared<runtime::MaxPool2dInfo>();
  describe(*info, plane);
  describe_dilation(*info, plane);
  lowering.result(
      lowering.plan().add(info, "Pooling2D_Max_Fallback_Float_M1", {lowering.planes(0)}));
}

void lower_average_pool(Lowering& lowering) {
  bool widened = false;
  const PlaneWindow plane = pooling_plane(lowering, widened);
  if (plane.x.dilation != 1 || plane.y.dilation != 1) {
    throw NodeFault{"dilations", "an average of elements that don't touch has no kernel"};
  }
  auto info = std::make_shared<runtime::AvgPool2dInfo>();
  describe(*info, plane);
  info->count_include_pad = lowering.node().integer("count_include_pad", 0) != 0;
  if (widened && info->count_include_pad) {
    throw NodeFault{"ceil_mode", "a window that reaches beyond counted padding has no kernel"};
  }
  lowering.result(
      lowering.plan().add(info, "Pooling2D_Avg_Fallback_Float_M1", {lowering.planes(0)}));
}

/// Everything behind the channels in one line.
size_t channel_lines(Lowering& lowering) {
  const Extents sizes = lowering.input_sizes(0);
  if (sizes.size() == 3) return lowering.planes(0);
  const int64_t rest = count_of(sizes).value_or(0) / std::max<int64_t>(1, sizes[0]);
  return lowering.reshaped(lowering.input(0), {sizes[0], 1, rest});
}

void lower_global_average(Lowering& lowering) {
  auto info = std::make_shared<runtime::AdaptiveAvgPool2dInfo>();
  info->output_size = {1, 1};
  lowering.result(lowering.plan().add(info, "AdaptivePooling2D_Avg_Fallback_CHW_Float_M1",
                                      {channel_lines(lowering)}));
}

void lower_global_max(Lowering& lowering) {
  const size_t in = channel_lines(lowering);
  auto info = std::make_shared<runtime::MaxPool2dInfo>();
  info->kernel_y = narrow_u16(lowering.plan().shape(in).dims[1], "size");
  info->kernel_x = narrow_u16(lowering.plan().shape(in).dims[2], "size");
  info->stride_x = info->stride_y = info->dilation_x = info->dilation_y = 1;
  lowering.result(lowering.plan().add(info, "Pooling2D_Max_Fallback_Float_M1", {in}));
}

/// Rows times a constant matrix: one row is a full connection, more are a convolution of 1 x 1 over
/// the rows, which have to be columns for it.
/// @param weight [out, in]
size_t rows_times(Lowering& lowering, size_t rows_layer, int64_t rows, const Numbers& weight,
                  const Numbers* bias) {
  const int64_t outputs = weight.shape[0];
  const int64_t inputs = weight.shape[1];
  if (rows != 1) {
    throw NodeFault{"inputs", "a product of " + std::to_string(rows) + " rows has no kernel"};
  }
  auto info = std::make_shared<runtime::FullConnectionInfo>();
  info->in_features = narrow_u16(inputs, "features");
  info->out_features = narrow_u16(outputs, "features");
  info->weight = blob_of(weight);
  info->if_bias = bias != nullptr;
  if (bias != nullptr) info->bias = blob_of(*bias);
  const size_t vector = lowering.reshaped(rows_layer, {inputs});
  const size_t layer = lowering.plan().add(info, "FullConnection_Fallback_C_Float_M1", {vector});
  lowering.plan().layer(layer).products = product(weight.shape);
  return layer;
}

Numbers transposed(const Numbers& matrix) {
  Numbers result(matrix.type, {matrix.shape[1], matrix.shape[0]});
  for (int64_t r = 0; r < matrix.shape[0]; ++r) {
    for (int64_t c = 0; c < matrix.shape[1]; ++c) {
      result.reals()[static_cast<size_t>(c * matrix.shape[0] + r)] =
          matrix.reals()[static_cast<size_t>(r * matrix.shape[1] + c)];
    }
  }
  return result;
}

void lower_gemm(Lowering& lowering) {
  const Node& node = lowering.node();
  const SharedNumbers given = lowering.required_constant(1);
  Numbers weight = node.integer("transB", 0) != 0 ? *given : transposed(*given);
  const double alpha = node.real("alpha", 1);
  for (double& number : weight.reals()) number *= alpha;
  const int64_t rows = count_of(lowering.output_sizes()).value_or(0) / weight.shape[0];
  if (!node.has_input(2)) {
    return lowering.result(rows_times(lowering, lowering.input(0), rows, weight, nullptr));
  }
  const SharedNumbers addend = lowering.required_constant(2);
  Numbers bias(ElementType::float32, {weight.shape[0]});
  const double beta = node.real("beta", 1);
  for (size_t i = 0; i < bias.reals().size(); ++i) {
    bias.reals()[i] = beta * addend->real(addend->count() == 1 ? 0 : i);
  }
  lowering.result(rows_times(lowering, lowering.input(0), rows, weight, &bias));
}

void lower_matmul(Lowering& lowering) {
  const SharedNumbers given = lowering.required_constant(1);
  if (given->shape.size() != 2) {
    throw NodeFault{"input 1", "only one matrix can stand here, not " + text_of(given->shape)};
  }
  const Numbers weight = transposed(*given);
  const int64_t rows = count_of(lowering.output_sizes()).value_or(0) / weight.shape[0];
  lowering.result(rows_times(lowering, lowering.input(0), rows, weight, nullptr));
}

constexpr LoweringRow kRows[] = {
    {"AveragePool", lower_average_pool, "windows of one and two axes without dilation"},
    {"Conv", lower_conv, "windows of one and two axes, constant weights"},
    {"ConvTranspose", lower_conv_transpose, "windows of one and two axes, constant weights"},
    {"Gemm", lower_gemm, "one row times a constant matrix"},
    {"GlobalAveragePool", lower_global_average},
    {"GlobalMaxPool", lower_global_max},
    {"MatMul", lower_matmul, "one row times a constant matrix"},
    {"MaxPool", lower_max_pool, "windows of one and two axes, without places"},
};

}  // namespace

std::span<const LoweringRow> window_lowerings() { return kRows; }

}  // namespace marlo::toolkit
