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
using resize::Tap;
using runtime::ResizeMode;
using runtime::ResizePlaces;
using runtime::ResizeRounding;
using runtime::TensorShape;
using utility::Assert;

namespace {

// Over a scale of two sizes both are taken one after the other, so that a place on an element is exact.
struct Scale {
  double factor;
  double divisor;

  double source(double x) const { return x * factor / divisor; }
};

double place_of(ResizePlaces places, uint32_t x, const Scale& scale, uint32_t in, uint32_t out) {
  switch (places) {
    case ResizePlaces::AlignCorners:
      return out == 1 ? 0.0 : x * (in - 1.0) / (out - 1.0);
    case ResizePlaces::Asymmetric:
      return scale.source(x);
    case ResizePlaces::HalfPixelOrZero:
      if (out == 1) return 0.0;
      [[fallthrough]];
    default:
      return scale.source(x + 0.5) - 0.5;
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
  tables_.assign(sizes_.empty() ? scales_.size() : sizes_.size(), {});
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

// The same for a shape: in blocks channels stay, and are counted as those of planes.
bool ResizeKernel::dims_of(const TensorShape& input, Dims& output) const {
  if (!is_float_in_main_memory(input)) return false;
  if (axes::is_in_order(input)) return sizes_of(input.dims, output);
  const uint32_t block = runtime::BlockSize(input.layout);
  if (!row_.takes_blocks || input.dims.size() != 4 || input.dims[3] != block) return false;
  const uint32_t channels = input.dims[0] * block;
  if (!sizes_of({channels, input.dims[1], input.dims[2]}, output)) return false;
  if (output[0] != channels || scale_of(0, channels, channels) != 1.0) return false;
  output = {input.dims[0], output[1], output[2], block};
  return true;
}

double ResizeKernel::scale_of(size_t axis, uint32_t in, uint32_t out) const {
  return scales_.empty() ? static_cast<double>(out) / in : static_cast<double>(scales_[axis]);
}

// What one place of the output reads, which lies at `place` of an axis whose last place is `last`.
void ResizeKernel::add_taps(double place, double last, std::vector<Tap>& taps) const {
  const auto add = [&](double at, double weight) {
    taps.push_back({static_cast<uint32_t>(std::clamp(at, 0.0, last)), static_cast<float>(weight)});
  };
  if (mode_ == static_cast<uint32_t>(ResizeMode::Nearest)) {
    return add(rounded(static_cast<ResizeRounding>(nearest_), place), 1.0);
  }
  if (mode_ == static_cast<uint32_t>(ResizeMode::Linear)) {
    const double inside = std::clamp(place, 0.0, last);
    const double below = std::floor(inside);
    add(below, 1.0 - (inside - below));
    if (inside > below) add(below + 1.0, inside - below);
    return;
  }
  const double first = std::floor(place);
  const auto is_read = [&](double at) { return !exclude_outside_ || (at >= 0.0 && at <= last); };
  double sum = 0.0;
  for (int k = -1; k <= 2; ++k) {
    if (is_read(first + k)) sum += cubic_weight(place - (first + k), cubic_);
  }
  for (int k = -1; k <= 2; ++k) {
    const double at = first + k;
    if (!is_read(at)) continue;
    const double weight = cubic_weight(place - at, cubic_);
    add(at, exclude_outside_ ? weight / sum : weight);
  }
}

const ResizeKernel::Table& ResizeKernel::table_of(size_t axis, uint32_t in, uint32_t out) {
  Table& table = tables_[axis];
  if (table.in == in && table.out == out && !table.ends.empty()) return table;
  table = {in, out, {}, {}};
  table.ends.reserve(out);
  const Scale scale = scales_.empty() ? Scale{static_cast<double>(in), static_cast<double>(out)}
                                      : Scale{1.0, scale_of(axis, in, out)};
  for (uint32_t x = 0; x < out; ++x) {
    add_taps(place_of(static_cast<ResizePlaces>(places_), x, scale, in, out), in - 1.0, table.taps);
    table.ends.push_back(static_cast<uint32_t>(table.taps.size()));
  }
  return table;
}

KernelFamily::Shapes ResizeKernel::InferOutputShapes(const Shapes& shapes) const {
  TensorShape output;
  if (shapes.size() == 1) output = shapes[0];
  Assert(shapes.size() == 1 && dims_of(shapes[0], output.dims),
         "%s: input %s doesn't have the axes that are resampled", row_.name,
         runtime::ShapesText(shapes).c_str());
  return {output};
}

int ResizeKernel::CheckInputs(const Tensors& tensors) const {
  Dims dims;
  return tensor_verdict(is_one_float(tensors) && dims_of(tensors[0]->shape, dims));
}

KernelFamily::Misfits ResizeKernel::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  const bool met =
      row_.takes_blocks ? expected.one_float(inputs) : axes::expect_plain(inputs, 1, expected);
  if (met) {
    const size_t rank = tables_.size();
    std::string dims = counted(rank, "dim") + ", none of them 0";
    if (!axes::is_in_order(inputs[0])) dims = "blocks whose channels stay, of 3 dims";
    expected.expect(false, "input 0", std::move(dims), runtime::ShapeText(inputs[0]));
  }
  return std::move(expected).unmet();
}

int ResizeKernel::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float(tensors) &&
                        (row_.takes_blocks || axes::is_in_order(tensors[0]->shape)));
}

int ResizeKernel::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) {
  if (CheckInputs(inputs) != runtime::KERNEL_OK) {
    Assert(false, "%s: input %s doesn't have the axes that are resampled", row_.name,
           runtime::ShapeText(inputs[0]->shape).c_str());
  }
  TensorShape shape = inputs[0]->shape;
  Dims& dims = shape.dims;
  Dims target;
  dims_of(shape, target);
  std::shared_ptr<runtime::Tensor> from = inputs[0];
  for (size_t axis = 0; axis < tables_.size(); ++axis) {
    if (dims[axis] == target[axis] && scale_of(axis, dims[axis], target[axis]) == 1.0) continue;
    resize::Task task;
    task.from = floats_of(*from);
    task.planes = axes::count_of(dims, 0, axis);
    task.in = dims[axis];
    task.out = target[axis];
    task.inner = axes::count_of(dims, axis + 1, dims.size());
    dims[axis] = target[axis];
    const auto to = pass.create(shape);
    task.to = floats_of(*to);
    const Table& table = table_of(axis, static_cast<uint32_t>(task.in), target[axis]);
    task.taps = table.taps.data();
    task.ends = table.ends.data();
    std::shared_ptr<runtime::TensorCPU> scratch;
    if (task.inner == 1) {
      scratch = pass.create(axes::plain_shape({table.in, resize::kLinesAtOnce}));
      task.scratch = floats_of(*scratch);
    }
    if (runtime::ElementCount(shape) != 0) row_.core(task);
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
