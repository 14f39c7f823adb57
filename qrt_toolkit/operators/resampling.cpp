#include <algorithm>
#include <cmath>
#include <string>

#include "qrt_toolkit/operators/cubic.h"
#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"
#include "qrt_toolkit/operators/sampling.h"

// Resize, axis after axis: a picture that is resampled along x and then along y has been resampled
// in both, for every mode.

namespace marlo::toolkit {
namespace {

/// The sizes that a node asks for.
struct Target {
  std::vector<double> scales;  ///< one per axis; 1 where nothing changes
  Extents sizes;
};

/// The axes that scales and sizes are given for: all of them unless `axes` says otherwise.
std::vector<size_t> resized_axes(const Node& node, size_t rank) {
  std::vector<size_t> axes;
  if (!node.has("axes")) {
    for (size_t i = 0; i < rank; ++i) axes.push_back(i);
  }
  for (const int64_t axis : node.integers("axes"))
    axes.push_back(axis_from_front(axis, rank, "axes"));
  return axes;
}

void require_count(const char* input, size_t found, size_t expected) {
  if (found != expected) {
    throw NodeFault{
        input, "expected " + std::to_string(expected) + " numbers, found " + std::to_string(found)};
  }
}

Target target_of(const Node& node, const Extents& shape, const Numbers* scales,
                 const Numbers* sizes) {
  const auto axes = resized_axes(node, shape.size());
  Target target{std::vector<double>(shape.size(), 1), shape};
  if (scales != nullptr && scales->count() != 0) {
    require_count("scales", scales->reals().size(), axes.size());
    for (size_t i = 0; i < axes.size(); ++i) {
      const double scale = scales->reals()[i];
      if (!(scale > 0) || scale > 65536) {
        throw NodeFault{"scales", std::to_string(scale) + " is out of range"};
      }
      target.scales[axes[i]] = scale;
      // In single precision, as the file's scales are meant: 3 * 1.6666666 is 5.
      target.sizes[axes[i]] = static_cast<int64_t>(
          std::floor(static_cast<float>(shape[axes[i]]) * static_cast<float>(scale)));
    }
    return target;
  }
  if (sizes == nullptr) throw NodeFault{"inputs", "neither scales nor sizes are given"};
  require_count("sizes", sizes->integers().size(), axes.size());
  const std::string policy = node.text("keep_aspect_ratio_policy", "stretch");
  double common = policy == "not_larger" ? HUGE_VAL : 0;
  for (size_t i = 0; i < axes.size(); ++i) {
    const int64_t in = shape[axes[i]];
    const int64_t out = sizes->integers()[i];
    if (in == 0 || out < 0) throw NodeFault{"sizes", "nothing can be resized to this"};
    target.sizes[axes[i]] = out;
    target.scales[axes[i]] = static_cast<double>(out) / static_cast<double>(in);
    const double scale = target.scales[axes[i]];
    common = policy == "not_larger" ? std::min(common, scale) : std::max(common, scale);
  }
  if (policy == "stretch") return target;
  for (const size_t axis : axes) {
    target.scales[axis] = common;
    target.sizes[axis] =
        static_cast<int64_t>(std::floor(common * static_cast<double>(shape[axis]) + 0.5));
  }
  return target;
}

double source_of(const std::string& mode, const ResampledAxis& axis, double x) {
  const auto in = static_cast<double>(axis.in);
  // Where scales leave a fraction of an element, the corners are those of the whole stretch.
  const double stretch = axis.scale * in;
  if (mode == "half_pixel") return (x + 0.5) / axis.scale - 0.5;
  if (mode == "pytorch_half_pixel") return stretch > 1 ? (x + 0.5) / axis.scale - 0.5 : 0;
  if (mode == "asymmetric") return x / axis.scale;
  if (mode == "tf_half_pixel_for_nn") return (x + 0.5) / axis.scale;
  if (mode == "align_corners") return stretch > 1 ? x * (in - 1) / (stretch - 1) : 0;
  if (mode == "half_pixel_symmetric") {
    const double adjusted = static_cast<double>(axis.out) / stretch;
    return in / 2 * (1 - adjusted) + (x + 0.5) / axis.scale - 0.5;
  }
  if (mode == "tf_crop_and_resize") {
    if (stretch <= 1) return 0.5 * (axis.roi_start + axis.roi_end) * (in - 1);
    return axis.roi_start * (in - 1) +
           x * (axis.roi_end - axis.roi_start) * (in - 1) / (stretch - 1);
  }
  throw NodeFault{"coordinate_transformation_mode", "\"" + mode + "\" is not known"};
}

double nearest_of(const std::string& mode, double x) {
  if (mode == "round_prefer_floor") return std::ceil(x - 0.5);
  if (mode == "round_prefer_ceil") return std::floor(x + 0.5);
  if (mode == "floor") return std::floor(x);
  if (mode == "ceil") return std::ceil(x);
  throw NodeFault{"nearest_mode", "\"" + mode + "\" is not known"};
}

/// The taps of one output: `first` and those behind it, which may lie outside of the input.
struct Taps {
  int64_t first = 0;
  std::vector<double> weights;
  bool outside = false;  ///< the extrapolation value stands in its place
};

Taps taps_of(const Node& node, const ResampledAxis& axis, int64_t place) {
  const auto last = static_cast<double>(axis.in - 1);
  const std::string mode = node.text("mode", "nearest");
  const std::string transformation = node.text("coordinate_transformation_mode", "half_pixel");
  const double x = source_of(transformation, axis, static_cast<double>(place));
  Taps taps;
  taps.outside = transformation == "tf_crop_and_resize" && (x < 0 || x > last);
  if (mode == "nearest") {
    // Scales are rounded numbers; a half of theirs is meant as one.
    const double exact = std::nearbyint(x * 1e6) / 1e6;
    taps.first =
        static_cast<int64_t>(nearest_of(node.text("nearest_mode", "round_prefer_floor"), exact));
    taps.weights = {1};
    return taps;
  }
  const double whole = std::floor(x);
  const double part = x - whole;
  taps.first = static_cast<int64_t>(whole);
  if (mode == "linear") {
    taps.weights = {1 - part, part};
    return taps;
  }
  if (mode != "cubic") throw NodeFault{"mode", "\"" + mode + "\" is not known"};
  taps.first -= 1;
  const auto weights = cubic_weights(part, node.real("cubic_coeff_a", -0.75));
  taps.weights.assign(weights.begin(), weights.end());
  if (node.integer("exclude_outside", 0) == 0) return taps;
  double sum = 0;
  for (size_t i = 0; i < taps.weights.size(); ++i) {
    const auto at = static_cast<double>(taps.first) + static_cast<double>(i);
    if (at < 0 || at > last) taps.weights[i] = 0;
    sum += taps.weights[i];
  }
  for (double& weight : taps.weights) weight /= sum;
  return taps;
}

/// Resamples one axis.
Numbers resample(const Node& node, const Numbers& x, size_t at, const ResampledAxis& axis) {
  Extents shape = x.shape;
  shape[at] = axis.out;
  Numbers result(x.type, shape);
  int64_t outer = 1;
  int64_t inner = 1;
  for (size_t i = 0; i < at; ++i) outer *= shape[i];
  for (size_t i = at + 1; i < shape.size(); ++i) inner *= shape[i];
  const double beyond = node.real("extrapolation_value", 0);
  for (int64_t place = 0; place < axis.out; ++place) {
    const Taps taps = taps_of(node, axis, place);
    for (int64_t o = 0; o < outer; ++o) {
      double* to = result.reals().data() + (o * axis.out + place) * inner;
      if (taps.outside) {
        std::fill(to, to + inner, beyond);
        continue;
      }
      for (size_t k = 0; k < taps.weights.size(); ++k) {
        const int64_t tap = taps.first + static_cast<int64_t>(k);
        const double* from =
            x.reals().data() + (o * axis.in + std::clamp<int64_t>(tap, 0, axis.in - 1)) * inner;
        for (int64_t i = 0; i < inner; ++i) to[i] += taps.weights[k] * from[i];
      }
    }
  }
  return result;
}

Results resize(const Node& node, const Operands& inputs) {
  if (node.integer("antialias", 0) != 0) {
    throw NodeFault{"antialias", "resampling with a filter as wide as the scale isn't computed"};
  }
  const ElementType type = inputs[0].type;
  Numbers x = is_real(type) ? inputs[0] : converted(inputs[0], ElementType::float64);
  const auto given = [&](size_t place) { return inputs.has(place) ? &inputs[place] : nullptr; };
  const auto axes = resampled_axes(node, x.shape, given(1), given(2), given(3));
  for (size_t at = 0; at < axes.size(); ++at) {
    if (axes[at].changes) x = resample(node, x, at, axes[at]);
  }
  if (!is_real(type)) return {converted(x, type)};
  return {std::move(x)};
}

void infer_resize(ShapeStep& step) {
  const Shape* shape = step.shape(0);
  std::optional<Shape> result;
  if (shape != nullptr) {
    result = unknown_shape(shape->size());
    const auto known = extents_of(*shape);
    const auto numbers = [&](size_t place) -> const Numbers* {
      return step.has(place) ? step.inputs[place].numbers.get() : nullptr;
    };
    const bool given = numbers(2) != nullptr || numbers(3) != nullptr;
    if (known && given) {
      result = shape_of(target_of(step.node, *known, numbers(2), numbers(3)).sizes);
    } else if (given && !step.node.has("axes")) {
      // Axes that keep their size are known even where the others aren't.
      for (size_t i = 0; i < shape->size(); ++i) {
        const bool kept = numbers(2) != nullptr && numbers(2)->count() > static_cast<int64_t>(i) &&
                          numbers(2)->real(i) == 1;
        if (kept) (*result)[i] = (*shape)[i];
        if (numbers(3) != nullptr && numbers(3)->count() > static_cast<int64_t>(i)) {
          (*result)[i] = numbers(3)->integer(i);
        }
      }
    }
  }
  step.set(0, step.input(0).type, result);
}

}  // namespace

std::vector<ResampledAxis> resampled_axes(const Node& node, const Extents& shape,
                                          const Numbers* roi, const Numbers* scales,
                                          const Numbers* sizes) {
  const Target target = target_of(node, shape, scales, sizes);
  const bool cropped =
      node.text("coordinate_transformation_mode", "half_pixel") == "tf_crop_and_resize";
  std::vector<ResampledAxis> result;
  for (const int64_t size : shape) result.push_back({size, size, 1, 0, 1, false});
  const auto axes = resized_axes(node, shape.size());
  for (size_t i = 0; i < axes.size(); ++i) {
    ResampledAxis& axis = result[axes[i]];
    axis.out = target.sizes[axes[i]];
    axis.scale = target.scales[axes[i]];
    axis.changes = cropped || axis.scale != 1 || axis.out != axis.in;
    if (axis.changes && axis.in == 0) throw NodeFault{"input 0", "nothing can be resized"};
    if (roi != nullptr && roi->count() == static_cast<int64_t>(2 * axes.size())) {
      axis.roi_start = roi->real(i);
      axis.roi_end = roi->real(i + axes.size());
    }
    // The whole of an axis at its own size is the axis.
    const bool whole = axis.roi_start == 0 && axis.roi_end == 1;
    if (cropped && whole && axis.out == axis.in) axis.changes = false;
  }
  return result;
}

int64_t nearest_source(const Node& node, const ResampledAxis& axis, int64_t place) {
  const Taps taps = taps_of(node, axis, place);
  return taps.outside ? -1 : std::clamp<int64_t>(taps.first, 0, axis.in - 1);
}

Resampling resampling_of(const Node& node, const ResampledAxis& axis) {
  Resampling map{Numbers(ElementType::float32, {axis.out, axis.in}),
                 Numbers(ElementType::float32, {axis.out})};
  for (int64_t place = 0; place < axis.out; ++place) {
    const Taps taps = taps_of(node, axis, place);
    if (taps.outside) {
      map.shift.reals()[static_cast<size_t>(place)] = node.real("extrapolation_value", 0);
      continue;
    }
    for (size_t k = 0; k < taps.weights.size(); ++k) {
      const int64_t tap = std::clamp<int64_t>(taps.first + static_cast<int64_t>(k), 0, axis.in - 1);
      map.matrix.reals()[static_cast<size_t>(place * axis.in + tap)] += taps.weights[k];
    }
  }
  return map;
}

std::span<const Operator> resampling_operators() {
  static constexpr Operator kRows[] = {
      {"GridSample", 16, grid_sample, infer_grid_sample, "pictures: inputs of four axes"},
      {"Resize", 7, resize, infer_resize, "no antialiasing"},
  };
  return kRows;
}

}  // namespace marlo::toolkit
