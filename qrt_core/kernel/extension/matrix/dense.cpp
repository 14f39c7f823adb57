#include "qrt_core/kernel/extension/matrix/dense.h"

#include <vector>

#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/conv_info.h"
#include "qrt_core/runtime/model/extension_info.h"

namespace marlo::kernel {

using runtime::TensorShape;
using utility::Assert;

namespace {

// What both classes of descriptions say.
struct Described {
  uint32_t in_features = 0;
  uint32_t out_features = 0;
  bool if_bias = false;
  const runtime::WeightBlob* weight = nullptr;  // null for another class
  const runtime::WeightBlob* bias = nullptr;
};

template <typename Info>
Described described_as(const Info* info) {
  if (info == nullptr) return {};
  return {info->in_features, info->out_features, info->if_bias, &info->weight, &info->bias};
}

Described described(const DenseRow& row, const runtime::LayerInfo* info,
                    const runtime::InferenceParam* param, Expectations& expected) {
  if (row.is_full_connection) {
    return described_as(expected.describe<runtime::FullConnectionInfo>(info, param));
  }
  return described_as(expected.describe<runtime::DenseInfo>(info, param));
}

}  // namespace

int Dense::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits Dense::refusals(const LayerInfo* info, const InferenceParam* param) const {
  Expectations expected;
  const Described layer = described(row_, info, param, expected);
  if (layer.weight != nullptr) {
    expected.expect(layer.in_features != 0, "in_features", "above 0", "0");
    expected.expect(layer.out_features != 0, "out_features", "above 0", "0");
    const uint64_t count = uint64_t{layer.in_features} * layer.out_features;
    const uint64_t found = numbers_in(*layer.weight);
    expected.expect(found >= count, "weight", counted(count, "number"), std::to_string(found));
    const uint64_t biases = numbers_in(*layer.bias);
    expected.expect(!layer.if_bias || biases >= layer.out_features, "bias",
                    counted(layer.out_features, "number"), std::to_string(biases));
  }
  return std::move(expected).unmet();
}

bool Dense::Configure(const LayerInfo* info, const InferenceParam* param, const Context& context) {
  Expectations expected;
  const Described layer = described(row_, info, param, expected);
  in_features_ = layer.in_features;
  out_features_ = layer.out_features;
  packed_ = nullptr;
  bias_ = nullptr;
  if (context.cpu == nullptr) return false;
  const std::vector<float> weights = runtime::WeightNumbers(*layer.weight);
  const uint64_t count = matrix::packed_size(in_features_, out_features_, row_.cores.lanes);
  const auto columns = static_cast<uint32_t>(count / in_features_);
  packed_ = context.cpu->CreateTensor(axes::plain_shape({columns, in_features_}), nullptr);
  row_.cores.pack({weights.data(), 1, in_features_, in_features_, out_features_},
                  axes::floats_of(*packed_));
  if (!layer.if_bias) return true;
  const std::vector<float> biases = runtime::WeightNumbers(*layer.bias);
  bias_ = context.cpu->CreateTensor(axes::plain_shape({out_features_}), biases.data());
  return true;
}

KernelFamily::Shapes Dense::InferOutputShapes(const Shapes& shapes) const {
  Assert(!shapes.empty() && !shapes[0].dims.empty(), "%s: there must be one input", row_.name);
  if (row_.is_full_connection) {
    return {TensorShape({out_features_}, shapes[0].data_type, runtime::LayoutType::C)};
  }
  TensorShape output = shapes[0];
  output.dims.back() = out_features_;
  return {output};
}

bool Dense::fits(const TensorShape& shape) const {
  if (!is_float_in_main_memory(shape) || shape.dims.empty()) return false;
  if (row_.is_full_connection) return runtime::ElementCount(shape) == in_features_;
  return axes::is_in_order(shape) && shape.dims.back() == in_features_;
}

int Dense::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float(tensors) && fits(tensors[0]->shape));
}

KernelFamily::Misfits Dense::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (expected.one_float(inputs)) {
    expected.expect(fits(inputs[0]), "input 0",
                    (row_.is_full_connection ? "" : "vectors of ") +
                        counted(in_features_, "feature") +
                        (row_.is_full_connection ? "" : " along the last axis"),
                    runtime::ShapeText(inputs[0]));
  }
  return std::move(expected).unmet();
}

int Dense::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float(tensors) && !tensors[0]->shape.dims.empty() &&
                        tensors[0]->shape.dims.back() == out_features_);
}

int Dense::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const runtime::TensorCPU& input = float_input(row_.name, inputs);
  Assert(packed_ != nullptr, "%s: not configured", row_.name);
  Assert(fits(input.shape), "%s: the input must be FLOAT32 in main memory, of %u features",
         row_.name, in_features_);
  auto output = pass.create(InferOutputShapes({input.shape})[0]);
  matrix::ProductTask task;
  task.a = axes::floats_of(input);
  task.a_row = in_features_;
  task.packed = axes::floats_of(*packed_);
  task.bias = bias_ == nullptr ? nullptr : axes::floats_of(*bias_);
  task.c = axes::floats_of(*output);
  task.c_row = out_features_;
  task.rows = runtime::ElementCount(input.shape) / in_features_;
  task.columns = out_features_;
  task.depth = in_features_;
  std::shared_ptr<runtime::TensorCPU> scratch;
  if (task.rows > 1) {
    const auto floats = static_cast<uint32_t>(matrix::product_scratch(task.rows));
    scratch = pass.create(axes::plain_shape({floats}));
    task.scratch = axes::floats_of(*scratch);
  }
  row_.cores.multiply(task);
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
