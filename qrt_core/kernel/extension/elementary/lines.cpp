#include "qrt_core/kernel/extension/elementary/lines.h"

#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/normalization_info.h"

namespace marlo::kernel {

using axes::floats_of;
using utility::Assert;

namespace {

// Factors and summands come both or not at all; `count` of each.
void expect_factors(const std::string& scale, const std::string& shift, uint64_t count,
                    Expectations& expected) {
  for (const auto& [key, text] : {std::pair("scale", &scale), std::pair("shift", &shift)}) {
    const uint64_t found = numbers_in(*text);
    expected.expect(found == 0 || found >= count, key, counted(count, "number"),
                    std::to_string(found));
  }
}

const float* pointer_to(const std::vector<float>& numbers, size_t first) {
  return numbers.empty() ? nullptr : numbers.data() + first;
}

bool is_plain(const KernelFamily::Tensors& tensors) { return axes::are_plain(tensors, 1); }

}  // namespace

int AxisSoftmax::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits AxisSoftmax::refusals(const LayerInfo* info,
                                            const InferenceParam* param) const {
  Expectations expected;
  if (const auto* documented = dynamic_cast<const runtime::SoftmaxInfo*>(info)) {
    expected.expect(param == nullptr, "", "no inference parameter", "one");
    expected.expect(documented->dim != 0, "dim", "above 0, which is the batch", "0");
  } else {
    expected.describe<runtime::AxisSoftmaxInfo>(info, param);
  }
  return std::move(expected).unmet();
}

bool AxisSoftmax::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  if (const auto* documented = dynamic_cast<const runtime::SoftmaxInfo*>(info)) {
    axis_ = documented->dim - 1;
    logarithm_ = false;
    return true;
  }
  const auto& description = static_cast<const runtime::AxisSoftmaxInfo&>(*info);
  axis_ = description.axis;
  logarithm_ = description.logarithm;
  return true;
}

int AxisSoftmax::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_plain(tensors) && axes::axis_of(axis_, tensors[0]->shape.dims.size()) !=
                                                 tensors[0]->shape.dims.size());
}

KernelFamily::Misfits AxisSoftmax::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (axes::expect_plain(inputs, 1, expected)) {
    expected.expect(false, "input 0", "an axis " + std::to_string(axis_),
                    counted(inputs[0].dims.size(), "dim"));
  }
  return std::move(expected).unmet();
}

int AxisSoftmax::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(CheckInputs(inputs) == runtime::KERNEL_OK,
         "%s: the input must be a FLOAT32 tensor with an axis %d, neither in C4HW4 nor in C8HW8",
         row_.name, axis_);
  const axes::Dims& dims = inputs[0]->shape.dims;
  const size_t axis = axes::axis_of(axis_, dims.size());
  std::shared_ptr<runtime::Tensor> output = inputs[0];
  if (row_.input_use == runtime::InputUse::reads) output = pass.create(inputs[0]->shape);
  elementary::SoftmaxTask task;
  task.input = floats_of(*inputs[0]);
  task.output = floats_of(*output);
  task.count = dims[axis];
  task.columns = axes::count_of(dims, axis + 1, dims.size());
  task.logarithm = logarithm_;
  const size_t size = task.count * task.columns;
  const size_t lines = size == 0 ? 0 : axes::count_of(dims, 0, axis);
  for (size_t i = 0; i < lines; ++i, task.input += size, task.output += size) {
    row_.cores.softmax(task);
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

void LineNorm::take(float eps, const std::string& scale, const std::string& shift) {
  eps_ = eps;
  scale_ = runtime::WeightNumbers(scale);
  shift_ = runtime::WeightNumbers(shift);
}

int LayerNorm::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits LayerNorm::refusals(const LayerInfo* info,
                                          const InferenceParam* param) const {
  Expectations expected;
  expected.describe<runtime::LayerNormInfo>(info, param);
  return std::move(expected).unmet();
}

bool LayerNorm::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& description = static_cast<const runtime::LayerNormInfo&>(*info);
  axis_ = description.axis;
  take(description.eps, description.scale, description.shift);
  return true;
}

// The axis is there, and there are factors for all that is normalised together.
bool LayerNorm::fits(const runtime::TensorShape& shape) const {
  const size_t axis = axes::axis_of(axis_, shape.dims.size());
  if (axis == shape.dims.size()) return false;
  const size_t count = axes::count_of(shape.dims, axis, shape.dims.size());
  return (scale_.empty() || scale_.size() == count) && (shift_.empty() || shift_.size() == count);
}

int LayerNorm::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_plain(tensors) && fits(tensors[0]->shape));
}

KernelFamily::Misfits LayerNorm::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (axes::expect_plain(inputs, 1, expected)) {
    const size_t numbers = scale_.empty() ? shift_.size() : scale_.size();
    const std::string size = numbers == 0 ? "" : " that counts " + counted(numbers, "element");
    expected.expect(fits(inputs[0]), "input 0",
                    "dims from axis " + std::to_string(axis_) + " on" + size,
                    runtime::ShapeText(inputs[0]));
  }
  return std::move(expected).unmet();
}

int LayerNorm::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(
      CheckInputs(inputs) == runtime::KERNEL_OK,
      "%s: the input must be a FLOAT32 tensor that has as many elements from axis %d on as there "
      "are factors",
      row_.name, axis_);
  const axes::Dims& dims = inputs[0]->shape.dims;
  const size_t axis = axes::axis_of(axis_, dims.size());
  auto output = pass.create(inputs[0]->shape);
  elementary::NormTask task;
  task.input = floats_of(*inputs[0]);
  task.output = floats_of(*output);
  task.count = axes::count_of(dims, axis, dims.size());
  task.eps = eps_;
  task.scale = pointer_to(scale_, 0);
  task.shift = pointer_to(shift_, 0);
  const size_t lines = task.count == 0 ? 0 : axes::count_of(dims, 0, axis);
  for (size_t i = 0; i < lines; ++i, task.input += task.count, task.output += task.count) {
    row_.cores.normalise(task);
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

int GroupNorm::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits GroupNorm::refusals(const LayerInfo* info,
                                          const InferenceParam* param) const {
  Expectations expected;
  if (const auto* instance = dynamic_cast<const runtime::InstanceNorm2dInfo*>(info)) {
    expected.expect(param == nullptr, "", "no inference parameter", "one");
    expected.expect(!instance->if_track_running_stats, "if_track_running_stats", "false", "true");
    if (instance->if_affine) {
      expect_factors(instance->scale, instance->shift, instance->num_features, expected);
    }
    return std::move(expected).unmet();
  }
  const auto* layer = expected.describe<runtime::GroupNormInfo>(info, param);
  if (layer != nullptr) expected.expect(layer->groups != 0, "groups", "above 0", "0");
  return std::move(expected).unmet();
}

bool GroupNorm::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  if (const auto* instance = dynamic_cast<const runtime::InstanceNorm2dInfo*>(info)) {
    groups_ = 0;
    const std::string none;
    take(instance->eps, instance->if_affine ? instance->scale : none,
         instance->if_affine ? instance->shift : none);
    return true;
  }
  const auto& description = static_cast<const runtime::GroupNormInfo&>(*info);
  groups_ = description.groups;
  take(description.eps, description.scale, description.shift);
  return true;
}

bool GroupNorm::fits(const runtime::TensorShape& shape) const {
  if (shape.dims.empty()) return false;
  const uint32_t channels = shape.dims[0];
  return (groups_ == 0 || channels % groups_ == 0) &&
         (scale_.empty() || scale_.size() == channels) &&
         (shift_.empty() || shift_.size() == channels);
}

int GroupNorm::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_plain(tensors) && fits(tensors[0]->shape));
}

KernelFamily::Misfits GroupNorm::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (axes::expect_plain(inputs, 1, expected)) {
    std::string channels = "channels";
    if (groups_ != 0) channels += " in " + counted(groups_, "group");
    const size_t numbers = scale_.empty() ? shift_.size() : scale_.size();
    if (numbers != 0) channels += ", " + std::to_string(numbers) + " of them";
    expected.expect(fits(inputs[0]), "input 0", channels, runtime::ShapeText(inputs[0]));
  }
  return std::move(expected).unmet();
}

// A group is normalised as one line, and each of its channels then has its factor: where a group is
// one channel, at once.
int GroupNorm::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(CheckInputs(inputs) == runtime::KERNEL_OK,
         "%s: the input must be a FLOAT32 tensor of as many channels as there are factors",
         row_.name);
  const axes::Dims& dims = inputs[0]->shape.dims;
  auto output = pass.create(inputs[0]->shape);
  const size_t channels = dims[0];
  const size_t groups = groups_ == 0 ? channels : groups_;
  const size_t pixels = axes::count_of(dims, 1, dims.size());
  elementary::NormTask task;
  task.input = floats_of(*inputs[0]);
  task.output = floats_of(*output);
  task.eps = eps_;
  const size_t in_group = groups == 0 ? 0 : channels / groups;
  task.count = in_group * pixels;
  for (size_t g = 0; g < groups && task.count != 0; ++g) {
    const bool alone = in_group == 1;
    task.line_scale = alone && !scale_.empty() ? scale_[g] : 1.0f;
    task.line_shift = alone && !shift_.empty() ? shift_[g] : 0.0f;
    row_.cores.normalise(task);
    for (size_t c = 0; c < in_group && !alone; ++c) {
      const float scale = scale_.empty() ? 1.0f : scale_[g * in_group + c];
      const float shift = shift_.empty() ? 0.0f : shift_[g * in_group + c];
      float* const plane = task.output + c * pixels;
      for (size_t i = 0; i < pixels; ++i) plane[i] = plane[i] * scale + shift;
    }
    task.input += task.count;
    task.output += task.count;
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
