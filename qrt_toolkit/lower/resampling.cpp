#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/groups.h"
#include "qrt_toolkit/operators/sampling.h"
#include "qrt_toolkit/shapes/tie.h"

// Pictures of another size, and pictures at places that a tensor names.

namespace marlo::toolkit {
namespace {

/// Whether the kernels, which take element floor(place / scale), take the same as the node.
bool takes_same_elements(const Node& node, const ResampledAxis& axis) {
  const auto scale = static_cast<float>(axis.scale);
  for (int64_t place = 0; place < axis.out; ++place) {
    const auto taken = static_cast<int64_t>(std::floor(static_cast<float>(place) / scale));
    if (taken != nearest_source(node, axis, place)) return false;
  }
  return true;
}

/// Whether the kernels make a tensor of the asked size: they round it themselves.
bool is_whole(const ResampledAxis& axis) {
  return axis.scale * static_cast<double>(axis.in) == static_cast<double>(axis.out);
}

/// The description of a picture kernel that computes the node; null where none does.
std::shared_ptr<runtime::Upsample2dInfo> picture_kernel(const Node& node, const ResampledAxis& y,
                                                        const ResampledAxis& x) {
  if (!is_whole(y) || !is_whole(x)) return nullptr;
  auto info = std::make_shared<runtime::Upsample2dInfo>();
  info->scale_factor_y = static_cast<float>(y.scale);
  info->scale_factor_x = static_cast<float>(x.scale);
  const std::string mode = node.text("mode", "nearest");
  if (mode == "nearest") {
    const bool same = takes_same_elements(node, y) && takes_same_elements(node, x);
    return same ? info : nullptr;
  }
  if (mode != "linear") return nullptr;
  const std::string places = node.text("coordinate_transformation_mode", "half_pixel");
  const bool one = y.out == 1 || x.out == 1;
  info->unsample_type = 1;
  info->align_corner = places == "align_corners";
  const bool known =
      info->align_corner || places == "half_pixel" || (places == "pytorch_half_pixel" && !one);
  return known ? info : nullptr;
}

/// Any mode along one axis: elements are taken where it takes them whole, and otherwise multiplied
/// with the matrix that the mode amounts to.
size_t resampled(Lowering& lowering, size_t layer, size_t at, const ResampledAxis& axis) {
  const Node& node = lowering.node();
  if (node.text("mode", "nearest") == "nearest") {
    std::vector<int64_t> elements;
    for (int64_t i = 0; i < axis.out; ++i) elements.push_back(nearest_source(node, axis, i));
    const int64_t times = axis.out / axis.in;
    bool repeats = times * axis.in == axis.out;
    for (int64_t i = 0; i < axis.out && repeats; ++i) {
      repeats = elements[static_cast<size_t>(i)] == i / times;
    }
    if (!repeats) {
      return lowering.taken(layer, at, elements, node.real("extrapolation_value", 0));
    }
    Extents sizes = lowering.sizes_of_layer(layer);
    Extents split = sizes;
    split.insert(split.begin() + static_cast<std::ptrdiff_t>(at) + 1, 1);
    sizes[at] = axis.out;
    return lowering.reshaped(lowering.repeated(lowering.reshaped(layer, split), at + 1, times),
                             sizes);
  }
  const Resampling map = resampling_of(node, axis);
  return lowering.along_axis(layer, at, map.matrix, &map.shift);
}

/// The number of a word in a list; nothing for a word that isn't there.
std::optional<uint32_t> number_of(const std::string& word,
                                  std::initializer_list<const char*> words) {
  const auto place = std::find(words.begin(), words.end(), word);
  if (place == words.end()) return std::nullopt;
  return static_cast<uint32_t>(place - words.begin());
}

/// The layer that resamples to the sizes that another tensor has, whichever these are; nothing where no
/// kernel does it in the node's way.
std::optional<size_t> resized_like_another(Lowering& lowering) {
  const Node& node = lowering.node();
  const size_t other = tied_input(node);
  const std::string policy = node.text("keep_aspect_ratio_policy", "stretch");
  if (!lowering.is_tensor(other) || policy != "stretch") return std::nullopt;
  const auto mode = number_of(node.text("mode", "nearest"), {"nearest", "linear", "cubic"});
  const auto places =
      number_of(node.text("coordinate_transformation_mode", "half_pixel"),
                {"half_pixel", "align_corners", "asymmetric", "pytorch_half_pixel"});
  const auto nearest = number_of(node.text("nearest_mode", "round_prefer_floor"),
                                 {"round_prefer_floor", "round_prefer_ceil", "floor", "ceil"});
  if (!mode || !places || !nearest) return std::nullopt;
  runtime::ResizeLikeInfo info;
  info.mode = *mode;
  info.places = *places;
  info.nearest = *nearest;
  info.cubic_coefficient = as_float(node.real("cubic_coeff_a", -0.75));
  info.exclude_outside = node.integer("exclude_outside", 0) != 0;
  return lowering.sized_like_another(info);
}

void lower_resize(Lowering& lowering) {
  const Node& node = lowering.node();
  if (node.integer("antialias", 0) != 0) {
    throw NodeFault{"antialias", "it has no kernel", "export the network without it"};
  }
  if (const auto layer = resized_like_another(lowering)) return lowering.result(*layer);
  const auto constant = [&](size_t place) {
    return node.has_input(place) ? lowering.required_constant(place) : nullptr;
  };
  const auto axes = resampled_axes(node, lowering.input_shape(0), constant(1).get(),
                                   constant(2).get(), constant(3).get());
  std::vector<std::pair<size_t, ResampledAxis>> changed;
  for (size_t i = 0; i < axes.size(); ++i) {
    if (axes[i].changes) {
      check_axis_size(axes[i].out);
      changed.emplace_back(lowering.axis_of_input(0, static_cast<int64_t>(i)), axes[i]);
    }
  }
  const bool picture = lowering.input_sizes(0).size() == 3;
  ResampledAxis y{1, 1, 1};
  ResampledAxis x{1, 1, 1};
  bool rows_and_columns = picture && !changed.empty();
  if (picture) {
    y.in = y.out = lowering.input_sizes(0)[1];
    x.in = x.out = lowering.input_sizes(0)[2];
  }
  for (const auto& [at, axis] : changed) {
    rows_and_columns = rows_and_columns && at != 0;
    if (at == 1) y = axis;
    if (at == 2) x = axis;
  }
  if (rows_and_columns) {
    if (auto info = picture_kernel(node, y, x)) {
      return lowering.result(lowering.plan().add(
          std::move(info), "Upsampling2D_Fallback_CHW_Float_M1", {lowering.planes(0)}));
    }
  }
  size_t layer = lowering.input(0);
  for (const auto& [at, axis] : changed) layer = resampled(lowering, layer, at, axis);
  lowering.result(layer);
}

void lower_grid_sample(Lowering& lowering) {
  const Node& node = lowering.node();
  const std::string mode = node.text("mode", "linear");
  const std::string padding = node.text("padding_mode", "zeros");
  if (mode != "linear") throw NodeFault{"mode", "\"" + mode + "\" has no kernel that rounds alike"};
  if (padding == "reflection") throw NodeFault{"padding_mode", "reflection has no kernel"};
  auto info = std::make_shared<runtime::GridSampleInfo>();
  info->mode = 1;
  info->padding_mode = padding == "zeros" ? 0 : 1;
  info->align_corners = node.integer("align_corners", 0) != 0;
  lowering.result(lowering.plan().add(std::move(info), "GridSample_Fallback_CHW_Float_M1",
                                      {lowering.planes(0), lowering.planes(1)}));
}

}  // namespace

std::span<const LoweringRow> resampling_lowerings() {
  static constexpr LoweringRow kRows[] = {
      {"GridSample", lower_grid_sample, "linear; zeros and border"},
      {"Resize", lower_resize, "constant sizes and scales, no antialiasing"},
  };
  return kRows;
}

}  // namespace marlo::toolkit
