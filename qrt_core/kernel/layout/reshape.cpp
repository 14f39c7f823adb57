#include "qrt_core/kernel/layout/reshape.h"

#include <limits>
#include <utility>

#include "qrt_core/kernel/layout/one_tensor.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/runtime/model/shape_info.h"

namespace marlo::kernel {

using runtime::TensorReshapeInfo;
using runtime::TensorShape;
using utility::Assert;

int Reshape::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(param == nullptr &&
                        dynamic_cast<const TensorReshapeInfo*>(info) != nullptr);
}

bool Reshape::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& new_shape = static_cast<const TensorReshapeInfo&>(*info).new_shape;
  entries_.assign(new_shape.begin(), new_shape.end());
  known_ = 1;
  for (const int32_t entry : entries_) {
    const bool stopped = known_ > std::numeric_limits<uint32_t>::max();
    if (entry > 0 && !stopped) known_ *= static_cast<uint32_t>(entry);
  }
  return true;
}

KernelFamily::Shapes Reshape::InferOutputShapes(const Shapes& shapes) const {
  TensorShape shape = any_shape(row_.name, shapes);
  if (row_.batch == BatchEntry::one && (entries_.empty() || entries_[0] != 1)) {
    Assert(false, "[%s] batch of new shape != 1", row_.name);
  }
  const auto inferred = static_cast<uint32_t>(runtime::ElementCount(shape) / known_);
  shape.dims.clear();
  for (size_t i = 1; i < entries_.size(); ++i) {
    shape.dims.push_back(entries_[i] > 0 ? static_cast<uint32_t>(entries_[i]) : inferred);
  }
  shape.layout = row_.layout;
  return {std::move(shape)};
}

KernelFamily::Misfits Reshape::refusals(const LayerInfo* info, const InferenceParam* param) const {
  Expectations expected;
  expected.describe<TensorReshapeInfo>(info, param);
  return std::move(expected).unmet();
}

KernelFamily::Misfits Reshape::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(
      false, "inputs",
      "one tensor in main memory whose elements are a multiple of " + std::to_string(known_),
      runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

KernelFamily::Misfits Reshape::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.empty()) return {};
  expected.expect(
      !grows(inputs[0], InferOutputShapes(inputs)[0]), "new_shape",
      "at most the " + counted(runtime::ElementCount(inputs[0]), "element") + " of the input",
      listed(entries_));
  return std::move(expected).unmet();
}

KernelFamily::Misfits Reshape::differences(const LayerInfo& info, const Shapes& inputs) const {
  Expectations expected;
  const auto* layer = expected.describe<TensorReshapeInfo>(&info, nullptr);
  if (layer == nullptr || layer->new_shape.empty()) return std::move(expected).unmet();
  const int16_t batch = layer->new_shape[0];
  const bool none = batch == 1 || (batch <= 0 && row_.batch == BatchEntry::any);
  expected.expect(none, "new_shape", "1 as the first entry, a batch, which the output leaves out",
                  std::to_string(batch));
  uint64_t count = 1;
  bool all_known = true;
  for (size_t i = 1; i < layer->new_shape.size(); ++i) {
    all_known = all_known && layer->new_shape[i] > 0;
    if (layer->new_shape[i] > 0 && count <= UINT32_MAX) {
      count *= static_cast<uint64_t>(layer->new_shape[i]);
    }
  }
  if (none && all_known && inputs.size() == 1) {
    expected.expect(count == runtime::ElementCount(inputs[0]), "new_shape",
                    counted(runtime::ElementCount(inputs[0]), "element"), std::to_string(count));
  }
  return std::move(expected).unmet();
}

int Reshape::CheckInputs(const Tensors& tensors) const {
  if (!is_one_in_main_memory(tensors)) return runtime::KERNEL_BAD_TENSOR;
  const uint32_t count = runtime::ElementCount(tensors[0]->shape);
  return tensor_verdict(count >= known_ && count % known_ == 0);
}

int Reshape::CheckOutputs(const Tensors& tensors) const {
  if (!is_one_in_main_memory(tensors)) return runtime::KERNEL_BAD_TENSOR;
  const std::vector<uint32_t>& dims = tensors[0]->shape.dims;
  const bool with_batch =
      row_.output_rank == OutputRank::with_or_without_batch && dims.size() == entries_.size();
  if (!with_batch && dims.size() + 1 != entries_.size()) return runtime::KERNEL_BAD_TENSOR;
  for (size_t i = 1; i < entries_.size(); ++i) {
    const uint32_t size = dims[with_batch ? i : i - 1];
    if (entries_[i] > 0 && static_cast<uint32_t>(entries_[i]) != size) {
      return runtime::KERNEL_BAD_TENSOR;
    }
  }
  return runtime::KERNEL_OK;
}

int Reshape::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const runtime::TensorCPU& input = any_input(inputs);
  Shapes shapes = InferOutputShapes({input.shape});
  append_reshaped(row_, inputs, std::move(shapes[0]), pass, outputs);
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
