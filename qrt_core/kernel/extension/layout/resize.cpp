#include "qrt_core/kernel/extension/layout/resize.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::kernel {

using axes::Dims;
using axes::floats_of;
using runtime::ResizeMode;
using runtime::ResizePlaces;
using runtime::ResizeRounding;
using utility::Assert;

namespace {

double place_of(ResizePlaces places, uint32_t x, double scale, uint32_t in, uint32_t out) {
  switch (places) {
    case ResizePlaces::AlignCorners:
      return out == 1 ? 0.0 : x * (in - 1.0) / (out - 1.0);
    case ResizePlaces::Asymmetric:
      return x / scale;
    case ResizePlaces::HalfPixelOrZero:
      if (out == 1) return 0.0;
      [[fallthrough]];
    default:
      return (x + 0.5) / scale - 0.5;
  }
}

double rounded(ResizeRounding rounding, double place) {
  switch (rounding) {
    case ResizeRounding::PreferFloor:
      return std::ceil(place - 0.5);
    case ResizeRounding::PreferCeil:
      return std::floor(place + 0.5);
    case ResizeRounding::Floor:
      return std::floor(place);
    default:
      return std::ceil(place);
  }
}

// R. Keys, "Cubic Convolution Interpolation for Digital Image Processing", IEEE Transactions on
// Acoustics, Speech, and Signal Processing 29(6), 1981.
double cubic_weight(double distance, double a) {
  const double x = std::fabs(distance);
  if (x <= 1.0) return ((a + 2.0) * x - (a + 3.0)) * x * x + 1.0;
  if (x < 2.0) return ((a * x - 5.0 * a) * x + 8.0 * a) * x - 4.0 * a;
  return 0.0;
}

}  // namespace

int ResizeKernel::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits ResizeKernel::refusals(const LayerInfo* info,
                                             const InferenceParam* param) const {
  Expectations expected;
  const auto* layer = expected.describe<runtime::ResizeInfo>(info, param);
  if (layer == nullptr) return std::move(expected).unmet();
  expected.expect(layer->mode <= 2, "mode", "0 to 2", std::to_string(layer->mode));
  expected.expect(layer->places <= 3, "places", "0 to 3", std::to_string(layer->places));
  expected.expect(layer->nearest <= 3, "nearest", "0 to 3", std::to_string(layer->nearest));
  const size_t ranks = layer->sizes.empty() ? layer->scales.size() : layer->sizes.size();
  expected.expect(ranks != 0, "sizes, scales", "one of them", "none");
  expected.expect(layer->scales.empty() || layer->scales.size() == ranks, "scales",
                  counted(ranks, "number"), std::to_string(layer->scales.size()));
  const bool positive = std::all_of(layer->scales.begin(), layer->scales.end(),
                                    [](float scale) { return scale > 0.0f && scale < 0x1p20f; });
  expected.expect(positive, "scales", "above 0 and below 2^20", "another one");
  return std::move(expected).unmet();
}

bool ResizeKernel::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& description = static_cast<const runtime::ResizeInfo&>(*info);
  mode_ = description.mode;
  places_ = description.places;
  nearest_ = description.nearest;
  cubic_ = static_cast<double>(description.cubic_coefficient);
  exclude_outside_ = description.exclude_outside;
  sizes_ = description.sizes;
  scales_ = description.scales;
  return true;
}

// Output dims: as given, or scaled and rounded down. @return false where there is nothing to read
bool ResizeKernel::sizes_of(const Dims& input, Dims& output) const {
  const size_t rank = sizes_.empty() ? scales_.size() : sizes_.size();
  if (rank == 0 || input.size() != rank) return false;
  output = sizes_;
  for (size_t k = 0; k < rank; ++k) {
    if (sizes_.empty()) {
      const double size = std::floor(input[k] * static_cast<double>(scales_[k]));
      if (size >= 0x1p31) return false;
      output.push_back(static_cast<uint32_t>(size));
    }
    if (input[k] == 0 && output[k] != 0) return false;
  }
  return true;
}

double ResizeKernel::scale_of(size_t axis, uint32_t in, uint32_t out) const {
  return scales_.empty() ? static_cast<double>(out) / in : static_cast<double>(scales_[axis]);
}

ResizeKernel::Taps ResizeKernel::taps_of(size_t axis, uint32_t in, uint32_t out) const {
  Taps taps(out);
  const double scale = scale_of(axis, in, out);
  const double last = in - 1.0;
  for (uint32_t x = 0; x < out; ++x) {
    const double place = place_of(static_cast<ResizePlaces>(places_), x, scale, in, out);
    const auto add = [&](double at, double weight) {
      taps[x].push_back(
          {static_cast<uint32_t>(std::clamp(at, 0.0, last)), static_cast<float>(weight)});
    };
    if (mode_ == static_cast<uint32_t>(ResizeMode::Nearest)) {
      add(rounded(static_cast<ResizeRounding>(nearest_), place), 1.0);
      continue;
    }
    const double first = std::floor(place);
    if (mode_ == static_cast<uint32_t>(ResizeMode::Linear)) {
      const double inside = std::clamp(place, 0.0, last);
      const double below = std::floor(inside);
      add(below, 1.0 - (inside - below));
      if (inside > below) add(below + 1.0, inside - below);
      continue;
    }
    double sum = 0.0;
    for (int k = -1; k <= 2; ++k) {
      const double at = first + k;
      const bool left_out = exclude_outside_ && (at < 0.0 || at > last);
      if (!left_out) sum += cubic_weight(place - at, cubic_);
    }
    for (int k = -1; k <= 2; ++k) {
      const double at = first + k;
      if (exclude_outside_ && (at < 0.0 || at > last)) continue;
      const double weight = cubic_weight(place - at, cubic_);
      add(at, exclude_outside_ ? weight / sum : weight);
    }
  }
  return taps;
}

KernelFamily::Shapes ResizeKernel::InferOutputShapes(const Shapes& shapes) const {
  Dims dims;
  Assert(shapes.size() == 1 && sizes_of(shapes[0].dims, dims),
         "%s: input %s doesn't have the axes that are resampled", row_.name,
         runtime::ShapesText(shapes).c_str());
  runtime::TensorShape output = shapes[0];
  output.dims = dims;
  return {output};
}

int ResizeKernel::CheckInputs(const Tensors& tensors) const {
  Dims dims;
  return tensor_verdict(axes::are_plain(tensors, 1) && sizes_of(tensors[0]->shape.dims, dims));
}

KernelFamily::Misfits ResizeKernel::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (axes::expect_plain(inputs, 1, expected)) {
    const size_t rank = sizes_.empty() ? scales_.size() : sizes_.size();
    expected.expect(false, "input 0", counted(rank, "dim") + ", none of them 0",
                    runtime::ShapeText(inputs[0]));
  }
  return std::move(expected).unmet();
}

int ResizeKernel::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(axes::are_plain(tensors, 1));
}

// Rows of `inner` numbers that lie side by side.
void ResizeKernel::resample_rows(const Taps& taps, const float* from, size_t inner, size_t plane,
                                 size_t planes, float* to) {
  for (size_t p = 0; p < planes; ++p, from += plane) {
    for (const std::vector<Tap>& reads : taps) {
      std::fill_n(to, inner, 0.0f);
      for (const Tap& tap : reads) {
        const float* const row = from + tap.place * inner;
        for (size_t i = 0; i < inner; ++i) to[i] += tap.weight * row[i];
      }
      to += inner;
    }
  }
}

// Single numbers along the last axis: all their taps stand in one list, which every line goes through.
void ResizeKernel::resample_lines(const Taps& taps, const float* from, size_t width, size_t lines,
                                  float* to) {
  std::vector<Tap> all;
  std::vector<size_t> ends;
  all.reserve(4 * taps.size());
  ends.reserve(taps.size());
  for (const std::vector<Tap>& reads : taps) {
    all.insert(all.end(), reads.begin(), reads.end());
    ends.push_back(all.size());
  }
  for (size_t line = 0; line < lines; ++line, from += width) {
    const Tap* tap = all.data();
    for (const size_t end : ends) {
      float sum = 0.0f;
      for (const Tap* const last = all.data() + end; tap != last; ++tap) {
        sum += tap->weight * from[tap->place];
      }
      *to++ = sum;
    }
  }
}

int ResizeKernel::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(CheckInputs(inputs) == runtime::KERNEL_OK,
         "%s: the input must be a FLOAT32 tensor that has the axes, neither in C4HW4 nor in C8HW8",
         row_.name);
  Dims dims = inputs[0]->shape.dims;
  Dims target;
  sizes_of(dims, target);
  std::shared_ptr<runtime::Tensor> from = inputs[0];
  for (size_t axis = 0; axis < dims.size(); ++axis) {
    if (dims[axis] == target[axis] && scale_of(axis, dims[axis], target[axis]) == 1.0) continue;
    const Taps taps = taps_of(axis, dims[axis], target[axis]);
    const size_t outer = axes::count_of(dims, 0, axis);
    const size_t inner = axes::count_of(dims, axis + 1, dims.size());
    const size_t dims_before = dims[axis];
    const size_t plane = dims_before * inner;
    dims[axis] = target[axis];
    runtime::TensorShape shape = inputs[0]->shape;
    shape.dims = dims;
    const auto to = pass.create(shape);
    if (inner == 1) {
      resample_lines(taps, floats_of(*from), dims_before, outer, floats_of(*to));
    } else {
      resample_rows(taps, floats_of(*from), inner, plane, outer, floats_of(*to));
    }
    from = to;
  }
  if (from == inputs[0]) {
    from = pass.create(inputs[0]->shape);
    const size_t bytes = runtime::ByteSize(from->shape);
    if (bytes != 0) std::memcpy(floats_of(*from), floats_of(*inputs[0]), bytes);
  }
  outputs.push_back(std::move(from));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
