#include <algorithm>
#include <optional>
#include <tuple>
#include <utility>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/groups.h"
#include "qrt_toolkit/lower/phases.h"
#include "qrt_toolkit/operators/window.h"

// Convolutions and poolings.

namespace marlo::toolkit {
namespace {

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

/// A convolution with the weights of a transposed one; its channels are the phases of the results.
std::shared_ptr<runtime::Conv2dInfo> phased_convolution(
    const runtime::ConvTranspose2dInfo& transposed, const PhasedAxis& y, const PhasedAxis& x,
    int64_t phases) {
  auto info = std::make_shared<runtime::Conv2dInfo>();
  info->in_channels = transposed.in_channels;
  info->out_channels = narrow_u16(transposed.out_channels * phases, "channels");
  info->kernel_y = narrow_u16(y.kernel, "kernel_shape");
  info->kernel_x = narrow_u16(x.kernel, "kernel_shape");
  info->padding_t = narrow_u16(y.pad_begin, "pads");
  info->padding_b = narrow_u16(y.pad_end, "pads");
  info->padding_l = narrow_u16(x.pad_begin, "pads");
  info->padding_r = narrow_u16(x.pad_end, "pads");
  const std::vector<float> given = runtime::WeightNumbers(transposed.weight);
  const auto window = static_cast<size_t>(y.kernel * x.kernel);
  const size_t outs = transposed.out_channels;
  const size_t ins = transposed.in_channels;
  std::vector<float> weight(outs * static_cast<size_t>(phases) * ins * window);
  for (size_t in = 0; in < ins; ++in) {
    for (size_t out = 0; out < outs; ++out) {
      const float* source = &given[(in * outs + out) * transposed.kernel_y * transposed.kernel_x];
      size_t channel = out * static_cast<size_t>(phases);
      for (const auto& row : y.place) {
        for (const auto& column : x.place) {
          float* target = &weight[(channel++ * ins + in) * window];
          for (size_t ky = 0; ky < row.size(); ++ky) {
            for (size_t kx = 0; kx < column.size(); ++kx) {
              if (row[ky] < 0 || column[kx] < 0) continue;
              target[row[ky] * x.kernel + column[kx]] = source[ky * column.size() + kx];
            }
          }
        }
      }
    }
  }
  info->weight = runtime::MakeWeightBlob(weight.data(), weight.size());
  info->if_bias = transposed.if_bias;
  if (info->if_bias) {
    std::vector<float> bias;
    bias.reserve(outs * static_cast<size_t>(phases));
    for (const float number : runtime::WeightNumbers(transposed.bias)) {
      bias.insert(bias.end(), static_cast<size_t>(phases), number);
    }
    info->bias = runtime::MakeWeightBlob(bias.data(), bias.size());
  }
  return info;
}

/// The transposed convolution as a convolution whose channels become rows and columns; nothing where
/// that can't be.
std::optional<size_t> lower_phases(Lowering& lowering,
                                   const runtime::ConvTranspose2dInfo& transposed, size_t in) {
  if (transposed.groups != 1) return std::nullopt;
  const Extents from = lowering.sizes_of_layer(in);
  Extents to = lowering.output_sizes();
  if (to.size() == 2) to.insert(to.begin() + 1, 1);
  const auto axis = [&](size_t place, int64_t kernel, int64_t stride, int64_t dilation,
                        int64_t padding) {
    return phased(
        {kernel, stride, dilation, (kernel - 1) * dilation - padding, from[place], to[place]});
  };
  const int64_t sy = transposed.stride_y;
  const int64_t sx = transposed.stride_x;
  const auto y = axis(1, transposed.kernel_y, sy, transposed.dilation_y, transposed.padding_t);
  const auto x = axis(2, transposed.kernel_x, sx, transposed.dilation_x, transposed.padding_l);
  const int64_t phases = sy * sx;
  constexpr int64_t kMostChannels = 65535;
  if (!y || !x || to[0] * phases > kMostChannels) return std::nullopt;
  Plan& plan = lowering.plan();
  size_t layer = plan.add(phased_convolution(transposed, *y, *x, phases),
                          "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", {in});
  plan.layer(layer).products = static_cast<uint64_t>(to[0] * from[0] * phases * y->kernel *
                                                     x->kernel * y->places * x->places);
  if (phases > 1) {
    const bool is_line = sy == 1 && y->places == 1;
    layer = lowering.reshaped(layer, is_line ? Extents{to[0], sx, x->places}
                                             : Extents{to[0], sy, sx, y->places, x->places});
    layer =
        is_line ? lowering.permuted(layer, {0, 2, 1}) : lowering.permuted(layer, {0, 3, 1, 4, 2});
    layer = lowering.reshaped(layer, {to[0], y->places * sy, x->places * sx});
  }
  for (const size_t place : {size_t{1}, size_t{2}}) {
    if (lowering.sizes_of_layer(layer)[place] == to[place]) continue;
    layer = lowering.part_of(layer, place, {0, to[place], 1});
  }
  return layer;
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
  const size_t source = lowering.planes(0);
  if (lowering.is_slow(info, source)) {
    if (const auto layer = lower_phases(lowering, *info, source)) return lowering.result(*layer);
  }
  const size_t layer = lowering.plan().add(
      info, "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", {source});
  lowering.plan().layer(layer).products =
      product(weight) * (product(in) / static_cast<uint64_t>(std::max<int64_t>(1, in[0])));
  lowering.result(layer);
}

/// The elements of a padded axis; negative ones stand for padding.
std::vector<int64_t> padded_places(int64_t size, int64_t begin, int64_t end) {
  std::vector<int64_t> places(static_cast<size_t>(begin), -1);
  for (int64_t i = 0; i < size; ++i) places.push_back(i);
  places.insert(places.end(), static_cast<size_t>(end), -1);
  return places;
}

/// Sizes are rounded down by the kernels: where the operator rounds up, the padding at the end is
/// as large as the last place of the window needs.
void pad_last_place(WindowAxis& axis, int64_t in, int64_t out) {
  const int64_t needed = (out - 1) * axis.stride + axis.span() - in - axis.pad_begin;
  axis.pad_end = std::max(axis.pad_end, needed);
}

PlaneWindow given_plane(const Lowering& lowering) {
  const Extents in = lowering.input_sizes(0);
  return plane_window(pooling_window(lowering.node(), in.size() + 1), in);
}

PlaneWindow pooling_plane(const Lowering& lowering, bool& widened) {
  const Extents in = lowering.input_sizes(0);
  const Extents out = lowering.output_sizes();
  PlaneWindow plane = given_plane(lowering);
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
  const PlaneWindow given = given_plane(lowering);
  PlaneWindow plane = pooling_plane(lowering, widened);
  if (plane.x.dilation != 1 || plane.y.dilation != 1) {
    throw NodeFault{"dilations", "an average of elements that don't touch has no kernel"};
  }
  auto info = std::make_shared<runtime::AvgPool2dInfo>();
  info->count_include_pad = lowering.node().integer("count_include_pad", 0) != 0;
  size_t in = lowering.planes(0);
  if (widened && info->count_include_pad) {
    // Padding counts, and what the window reaches beyond it doesn't: so padding becomes zeros.
    for (const auto& [axis, window, own] :
         {std::tuple(size_t{1}, &plane.y, &given.y), std::tuple(size_t{2}, &plane.x, &given.x)}) {
      const int64_t size = lowering.sizes_of_layer(in)[axis];
      in = lowering.taken(in, axis, padded_places(size, own->pad_begin, own->pad_end));
      window->pad_begin = 0;
      window->pad_end -= own->pad_end;
    }
    info->count_include_pad = false;
  }
  describe(*info, plane);
  lowering.result(lowering.plan().add(info, "Pooling2D_Avg_Fallback_Float_M1", {in}));
}

/// Everything behind the channels in one line.
size_t channel_lines(Lowering& lowering) {
  const Extents sizes = lowering.input_sizes(0);
  if (sizes.size() == 3) return lowering.planes(0);
  const int64_t rest = count_of(sizes).value_or(0) / std::max<int64_t>(1, sizes[0]);
  return lowering.reshaped(lowering.input(0), {sizes[0], 1, rest});
}

void lower_global_average(Lowering& lowering) {
  lowering.result(lowering.averages_of_planes(channel_lines(lowering)));
}

void lower_global_max(Lowering& lowering) {
  const size_t in = channel_lines(lowering);
  auto info = std::make_shared<runtime::MaxPool2dInfo>();
  info->kernel_y = narrow_u16(lowering.plan().shape(in).dims[1], "size");
  info->kernel_x = narrow_u16(lowering.plan().shape(in).dims[2], "size");
  info->stride_x = info->stride_y = info->dilation_x = info->dilation_y = 1;
  lowering.result(lowering.plan().add(info, "Pooling2D_Max_Fallback_Float_M1", {in}));
}

}  // namespace

size_t Lowering::averages_of_planes(size_t layer) {
  auto info = std::make_shared<runtime::AdaptiveAvgPool2dInfo>();
  info->output_size = {1, 1};
  return plan_.add(std::move(info), "AdaptivePooling2D_Avg_Fallback_CHW_Float_M1", {layer});
}

std::span<const LoweringRow> window_lowerings() {
  static constexpr LoweringRow kRows[] = {
      {"AveragePool", lower_average_pool, "windows of one and two axes without dilation"},
      {"Conv", lower_conv, "windows of one and two axes, constant weights"},
      {"ConvTranspose", lower_conv_transpose, "windows of one and two axes, constant weights"},
      {"GlobalAveragePool", lower_global_average},
      {"GlobalMaxPool", lower_global_max},
      {"MaxPool", lower_max_pool, "windows of one and two axes, without places"},
  };
  return kRows;
}

}  // namespace marlo::toolkit
