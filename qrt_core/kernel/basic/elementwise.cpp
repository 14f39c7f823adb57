#include "qrt_core/kernel/basic/elementwise.h"

#include <cstring>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/layer_catalogue.h"

namespace marlo::kernel {

using runtime::ElementCount;
using runtime::ElementWiseOperatorInfo;
using runtime::TensorCPU;
using utility::Assert;

namespace {

bool is_float_in_main_memory(const std::shared_ptr<runtime::Tensor>& tensor) {
  return tensor != nullptr && tensor->shape.data_type == runtime::DataType::FLOAT32 &&
         tensor->shape.location == runtime::LocationType::MainMemory;
}

elementwise::Core core_of(const char* word) {
  constexpr struct {
    const char* word;
    elementwise::Core core;
  } kCores[] = {{"Add", elementwise::add_scalar},
                {"Sub", elementwise::subtract_scalar},
                {"Mul", elementwise::multiply_scalar},
                {"Div", elementwise::divide_scalar}};
  for (const auto& entry : kCores) {
    if (std::strcmp(entry.word, word) == 0) return entry.core;
  }
  return nullptr;
}

}  // namespace

int Elementwise::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  const auto* operation = dynamic_cast<const ElementWiseOperatorInfo*>(info);
  if (param != nullptr || operation == nullptr) return runtime::KERNEL_REFUSED;
  if (row_.word == nullptr) return runtime::KERNEL_OK;
  return config_verdict(std::strcmp(runtime::ElementWiseWord(operation->op_type), row_.word) == 0);
}

KernelFamily::Misfits Elementwise::refusals(const LayerInfo* info,
                                            const InferenceParam* param) const {
  constexpr uint16_t kWords = 4;
  Expectations expected;
  const auto* layer = expected.describe<ElementWiseOperatorInfo>(info, param);
  if (layer == nullptr) return std::move(expected).unmet();
  if (layer->op_type >= kWords) {
    expected.expect(false, "op_type", "0 to 3", std::to_string(layer->op_type));
  } else if (row_.word != nullptr) {
    const std::string word = runtime::ElementWiseWord(layer->op_type);
    expected.expect(word == row_.word, "op_type", row_.word,
                    std::to_string(layer->op_type) + ", " + word);
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits Elementwise::input_refusals(const Shapes& inputs) const {
  const bool any_shapes = row_.inputs == ElementwiseInputs::any_shapes;
  Expectations expected;
  expected.expect(false, "inputs",
                  any_shapes ? "two FLOAT32 tensors in main memory"
                             : "two FLOAT32 tensors of one shape in main memory",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

KernelFamily::Misfits Elementwise::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.size() == 2) {
    expected.expect(ElementCount(inputs[1]) >= ElementCount(inputs[0]), "input 1",
                    "as many elements as input 0 " + runtime::ShapeText(inputs[0]),
                    runtime::ShapeText(inputs[1]));
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits Elementwise::differences(const LayerInfo&, const Shapes& inputs) const {
  Expectations expected;
  if (inputs.size() == 2) {
    expected.expect(inputs[0] == inputs[1], "inputs",
                    "two tensors of one shape: elements are combined in memory order",
                    runtime::ShapesText(inputs));
  }
  Misfits misfits = std::move(expected).unmet();
  add_epilogue_difference(row_.epilogue, misfits);
  return misfits;
}

bool Elementwise::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  if (row_.word != nullptr) return true;
  const auto& operation = static_cast<const ElementWiseOperatorInfo&>(*info);
  scalar_ = core_of(runtime::ElementWiseWord(operation.op_type));
  return true;
}

KernelFamily::Shapes Elementwise::InferOutputShapes(const Shapes& shapes) const {
  Assert(!shapes.empty(), "%s: there is no input", row_.name);
  return {shapes[0]};
}

int Elementwise::CheckInputs(const Tensors& tensors) const {
  const bool two_floats = tensors.size() == 2 && is_float_in_main_memory(tensors[0]) &&
                          is_float_in_main_memory(tensors[1]);
  return tensor_verdict(two_floats && (row_.inputs == ElementwiseInputs::any_shapes ||
                                       tensors[0]->shape == tensors[1]->shape));
}

int Elementwise::CheckOutputs(const Tensors& tensors) const {
  if (row_.output == ElementwiseOutput::as_inputs) return CheckInputs(tensors);
  const bool right_number = row_.output == ElementwiseOutput::at_least_one_tensor
                                ? !tensors.empty()
                                : tensors.size() == 1;
  return tensor_verdict(right_number && is_float_in_main_memory(tensors[0]));
}

int Elementwise::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(inputs.size() == 2 && is_float_in_main_memory(inputs[0]) &&
             is_float_in_main_memory(inputs[1]),
         "%s: the inputs must be two FLOAT32 tensors in main memory", row_.name);
  const size_t count = ElementCount(inputs[0]->shape);
  Assert(ElementCount(inputs[1]->shape) >= count,
         "%s: the second input has %u elements and the first %zu", row_.name,
         ElementCount(inputs[1]->shape), count);
  std::shared_ptr<runtime::Tensor> output = inputs[0];
  if (row_.input_use == runtime::InputUse::reads) output = pass.create(inputs[0]->shape);
  const auto* a = static_cast<const float*>(static_cast<TensorCPU&>(*inputs[0]).RawPointer());
  const auto* b = static_cast<const float*>(static_cast<TensorCPU&>(*inputs[1]).RawPointer());
  auto* result = static_cast<float*>(static_cast<TensorCPU&>(*output).RawPointer());

  const size_t in_blocks = row_.vector == nullptr ? 0 : count - count % row_.block;
  if (in_blocks != 0) row_.vector(a, b, result, in_blocks);
  // Without an operator the new tensor stays as it is.
  if (scalar_ != nullptr) {
    scalar_(a + in_blocks, b + in_blocks, result + in_blocks, count - in_blocks);
  }
  // `inputs` and `outputs` may be one vector.
  outputs.assign(1, output);
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
