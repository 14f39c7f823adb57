#include "qrt_core/kernel/matrix/full_connection.h"

#include <cstring>

#include "qrt_core/kernel/conv/steps/weights.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/conv_info.h"

namespace marlo::kernel {

using runtime::DataType;
using runtime::FullConnectionInfo;
using runtime::LayoutType;
using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

namespace {

std::shared_ptr<TensorCPU> floats(const std::string& text, std::vector<uint32_t> dims,
                                  const runtime::Context& context) {
  return decode_weights(text, {std::move(dims), DataType::FLOAT32, LayoutType::FLEXIABLE}, context);
}

// [out, in] as [out/n, in/n, n inputs, n outputs].
std::shared_ptr<TensorCPU> packed(TensorCPU& weight, uint32_t block) {
  const auto n = static_cast<int32_t>(block);
  const auto out_blocks = static_cast<int32_t>(weight.shape.dims[0] / block);
  const auto in_blocks = static_cast<int32_t>(weight.shape.dims[1] / block);
  return weight.Reshape({out_blocks, n, in_blocks, n})->Permute({0, 2, 3, 1});
}

}  // namespace

bool accepts_any_features(uint32_t, uint32_t) { return true; }

bool accepts_blocks_of_8(uint32_t in_features, uint32_t out_features) {
  return in_features % 8 == 0 && out_features % 8 == 0;
}

bool accepts_square_blocks_of_4(uint32_t in_features, uint32_t out_features) {
  return in_features % 4 == 0 && in_features == out_features;
}

bool accepts_no_features(uint32_t, uint32_t) { return false; }

int FullConnection::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  const auto* description = dynamic_cast<const FullConnectionInfo*>(info);
  if (param != nullptr || description == nullptr) return runtime::KERNEL_REFUSED;
  const uint32_t ins = description->in_features;
  const uint32_t outs = description->out_features;
  return config_verdict(ins != 0 && outs != 0 && row_.accepts(ins, outs));
}

KernelFamily::Misfits FullConnection::refusals(const LayerInfo* info,
                                               const InferenceParam* param) const {
  Expectations expected;
  const auto* layer = expected.describe<FullConnectionInfo>(info, param);
  if (layer == nullptr) return std::move(expected).unmet();
  const uint32_t ins = layer->in_features;
  const uint32_t outs = layer->out_features;
  const std::string found = std::to_string(ins) + " and " + std::to_string(outs);
  const char* const members = "in_features, out_features";
  expected.expect(ins != 0 && outs != 0, members, "above 0", found);
  if (ins != 0 && outs != 0 && !row_.accepts(ins, outs)) {
    const char* blocks = row_.block == 8   ? "multiples of 8"
                         : row_.block == 4 ? "one multiple of 4 for both"
                                           : "none: the kernel's method doesn't fit together";
    expected.expect(false, members, blocks, found);
  }
  const uint64_t weights = uint64_t{ins} * outs;
  const uint64_t found_weights = numbers_in(layer->weight);
  expected.expect(found_weights >= weights, "weight", counted(weights, "number"),
                  std::to_string(found_weights));
  const uint64_t found_biases = numbers_in(layer->bias);
  expected.expect(!layer->if_bias || found_biases >= outs, "bias", counted(outs, "number"),
                  std::to_string(found_biases));
  return std::move(expected).unmet();
}

KernelFamily::Misfits FullConnection::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  const bool readable = row_.takes_any_layout ? expected.one_float(inputs)
                                              : expected.one_float_of(inputs, row_.layout);
  if (readable) {
    expected.expect(false, "input 0",
                    row_.is_batch ? "rows of " + counted(in_features_, "feature")
                                  : counted(in_features_, "feature"),
                    runtime::ShapeText(inputs[0]));
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits FullConnection::differences(const LayerInfo& info,
                                                  const Shapes& inputs) const {
  Expectations expected;
  const auto* layer = expected.describe<FullConnectionInfo>(&info, nullptr);
  if (layer == nullptr) return std::move(expected).unmet();
  const uint64_t weights = uint64_t{layer->in_features} * layer->out_features;
  const uint64_t found = numbers_in(layer->weight);
  expected.expect(found <= weights, "weight", counted(weights, "number"), std::to_string(found));
  const uint64_t biases = numbers_in(layer->bias);
  expected.expect(layer->if_bias || biases == 0, "if_bias", "true, as there is a bias", "false");
  expected.expect(!layer->if_bias || biases <= layer->out_features, "bias",
                  counted(layer->out_features, "number"), std::to_string(biases));
  if (inputs.size() != 1 || inputs[0].dims.empty()) return std::move(expected).unmet();
  if (row_.is_batch) {
    expected.expect(inputs[0].dims[0] <= 1, "input 0", "1 row: no other is computed",
                    std::to_string(inputs[0].dims[0]));
  } else {
    const uint32_t elements = runtime::ElementCount(inputs[0]);
    expected.expect(elements <= layer->in_features, "input 0",
                    counted(layer->in_features, "feature"), std::to_string(elements));
  }
  return std::move(expected).unmet();
}

bool FullConnection::Configure(const LayerInfo* info, const InferenceParam*,
                               const Context& context) {
  const auto& description = static_cast<const FullConnectionInfo&>(*info);
  in_features_ = description.in_features;
  out_features_ = description.out_features;
  bias_ = nullptr;
  weight_ = floats(description.weight, {out_features_, in_features_}, context);
  if (weight_ == nullptr) return false;
  if (row_.block > 1) weight_ = packed(*weight_, row_.block);
  if (!description.if_bias) return true;
  bias_ = floats(description.bias, {out_features_}, context);
  return bias_ != nullptr;
}

KernelFamily::Shapes FullConnection::InferOutputShapes(const Shapes& shapes) const {
  const bool usable = !shapes.empty() && (!row_.is_batch || !shapes[0].dims.empty());
  Assert(usable, "%s: there must be one input%s", row_.name, row_.is_batch ? " of rows" : "");
  std::vector<uint32_t> dims = {out_features_};
  if (row_.is_batch) dims.insert(dims.begin(), shapes[0].dims[0]);
  return {TensorShape(std::move(dims), shapes[0].data_type, row_.layout, shapes[0].location)};
}

bool FullConnection::passes(const Tensors& tensors, uint32_t features) const {
  if (!is_one_float(tensors)) return false;
  const TensorShape& shape = tensors[0]->shape;
  if (!row_.takes_any_layout && shape.layout != row_.layout) return false;
  const size_t axis = row_.is_batch ? 1 : 0;
  return shape.dims.size() > axis && shape.dims[axis] == features;
}

int FullConnection::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(passes(tensors, in_features_));
}

int FullConnection::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(passes(tensors, out_features_));
}

// The floats that the core reads. What would send it beyond them is refused here, and nothing else:
// the numbers count, whatever their dims and their layout are called. A batch has rows, though.
const float* FullConnection::readable_input(const Tensors& inputs) const {
  const TensorCPU& input = float_input(row_.name, inputs);
  Assert(weight_ != nullptr, "%s: not configured", row_.name);
  const bool readable = is_float_in_main_memory(input.shape) &&
                        runtime::ElementCount(input.shape) >= in_features_ &&
                        (!row_.is_batch || passes(inputs, in_features_));
  Assert(readable, "%s: the input must be FLOAT32 in main memory, of %s%u features", row_.name,
         row_.is_batch ? "rows of " : "", in_features_);
  return static_cast<const float*>(input.RawPointer());
}

// A batch is stored, anything else added onto bias or zero.
void FullConnection::start_output(TensorCPU& output) const {
  if (row_.is_batch) return;
  if (bias_ == nullptr) {
    std::memset(output.RawPointer(), 0, runtime::ByteSize(output.shape));
  } else {
    std::memcpy(output.RawPointer(), bias_->RawPointer(), runtime::ByteSize(output.shape));
  }
}

int FullConnection::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  matrix::FullConnectionTask task;
  task.input = readable_input(inputs);
  auto output = pass.create(InferOutputShapes({inputs[0]->shape})[0]);
  start_output(*output);
  task.weight = static_cast<const float*>(weight_->RawPointer());
  task.bias = bias_ == nullptr ? nullptr : static_cast<const float*>(bias_->RawPointer());
  task.output = static_cast<float*>(output->RawPointer());
  task.in_features = in_features_;
  task.out_features = out_features_;
  row_.core(task);
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
