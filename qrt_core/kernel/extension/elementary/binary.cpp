#include "qrt_core/kernel/extension/elementary/binary.h"

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::kernel {

using axes::Dims;
using axes::floats_of;
using runtime::BinaryFunction;
using runtime::BinaryFunctionInfo;
using runtime::TensorShape;
using utility::Assert;

namespace {

constexpr auto kLastFunction = static_cast<uint32_t>(BinaryFunction::Select);

// Documented operators have the first four codes.
const uint16_t* documented_code(const runtime::LayerInfo* info) {
  if (const auto* same = dynamic_cast<const runtime::ElementWiseOperatorInfo*>(info)) {
    return &same->op_type;
  }
  const auto* spread = dynamic_cast<const runtime::BroadcastOperatorInfo*>(info);
  return spread == nullptr ? nullptr : &spread->op_type;
}

// One of the two, along dims that both broadcast to.
struct Operand {
  const float* numbers;
  axes::Strides strides;
};

// Drops from the end what both run through without a gap, or stand still on. @return its size
size_t take_run(Dims& dims, Operand& a, Operand& b) {
  size_t run = 1;
  const auto goes_on = [&run](const Operand& operand, bool still) {
    return operand.strides.back() == (still ? 0 : run);
  };
  if (dims.empty()) return run;
  // Along a dim of 1 the stride says nothing.
  while (!dims.empty() && dims.back() == 1) {
    dims.pop_back();
    a.strides.pop_back();
    b.strides.pop_back();
  }
  if (dims.empty()) return run;
  const bool a_still = a.strides.back() == 0;
  const bool b_still = b.strides.back() == 0;
  while (!dims.empty() && (dims.back() == 1 || (goes_on(a, a_still) && goes_on(b, b_still)))) {
    run *= dims.back();
    dims.pop_back();
    a.strides.pop_back();
    b.strides.pop_back();
  }
  return run;
}

}  // namespace

int BinaryKernel::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits BinaryKernel::refusals(const LayerInfo* info,
                                             const InferenceParam* param) const {
  Expectations expected;
  uint32_t function = 0;
  if (const uint16_t* code = documented_code(info)) {
    expected.expect(param == nullptr, "", "no inference parameter", "one");
    expected.expect(*code <= 3, "op_type", "0 to 3", std::to_string(*code));
    function = *code;
  } else {
    const auto* layer = expected.describe<BinaryFunctionInfo>(info, param);
    if (layer == nullptr) return std::move(expected).unmet();
    function = layer->function;
    expected.expect(function <= kLastFunction, "function", "0 to " + std::to_string(kLastFunction),
                    std::to_string(function));
    const uint64_t count = axes::count_of(layer->constant_dims);
    expected.expect(!layer->has_constant || layer->constant.size() == count, "constant",
                    counted(count, "number"), std::to_string(layer->constant.size()));
  }
  expected.expect(!row_.is_vector || elementary::has_vector_form(function), "function",
                  "one that vectors have", std::to_string(function));
  return std::move(expected).unmet();
}

bool BinaryKernel::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  has_constant_ = false;
  if (const uint16_t* code = documented_code(info)) {
    function_ = *code;
    return true;
  }
  const auto& description = static_cast<const BinaryFunctionInfo&>(*info);
  function_ = description.function;
  has_constant_ = description.has_constant;
  constant_is_first_ = description.constant_is_first;
  constant_dims_ = description.constant_dims;
  constant_ = description.constant;
  return true;
}

// The shape of the output. @return false for inputs that have none
bool BinaryKernel::result_of(const Shapes& inputs, TensorShape& result) const {
  if (inputs.size() != inputs_needed()) return false;
  for (const TensorShape& shape : inputs) {
    if (!is_float_in_main_memory(shape)) return false;
  }
  const Dims& b = has_constant_ ? constant_dims_ : inputs[1].dims;
  result = inputs[0];
  if (!has_constant_ && inputs[1].dims.size() > inputs[0].dims.size()) result = inputs[1];
  const bool same = inputs[0].dims == b;
  const bool blocked =
      !axes::is_in_order(inputs[0]) || (!has_constant_ && !axes::is_in_order(inputs[1]));
  if (blocked &&
      (has_constant_ ? axes::count_of(b) != 1 : !same || inputs[0].layout != inputs[1].layout)) {
    return false;
  }
  if (blocked) return true;
  return axes::broadcast(inputs[0].dims, b, result.dims);
}

KernelFamily::Shapes BinaryKernel::InferOutputShapes(const Shapes& shapes) const {
  TensorShape result;
  Assert(result_of(shapes, result), "%s: inputs %s don't broadcast", row_.name,
         runtime::ShapesText(shapes).c_str());
  return {result};
}

int BinaryKernel::CheckInputs(const Tensors& tensors) const {
  Shapes shapes;
  for (const auto& tensor : tensors) {
    if (tensor == nullptr) return runtime::KERNEL_BAD_TENSOR;
    shapes.push_back(tensor->shape);
  }
  TensorShape result;
  return tensor_verdict(result_of(shapes, result));
}

KernelFamily::Misfits BinaryKernel::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  TensorShape result;
  const std::string count = counted(inputs_needed(), "FLOAT32 tensor");
  expected.expect(result_of(inputs, result), "inputs",
                  count + " in main memory whose dims broadcast", runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

int BinaryKernel::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float(tensors));
}

int BinaryKernel::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(inputs.size() == inputs_needed(), "%s: expected %zu inputs, found %zu", row_.name,
         inputs_needed(), inputs.size());
  Shapes shapes;
  for (const auto& tensor : inputs) {
    Assert(tensor != nullptr, "%s: an input is null", row_.name);
    shapes.push_back(tensor->shape);
  }
  const auto output = pass.create(InferOutputShapes(shapes)[0]);
  Dims dims = output->shape.dims;
  Operand a{floats_of(*inputs[0]), axes::broadcast_strides(shapes[0].dims, dims)};
  Operand b{has_constant_ ? constant_.data() : floats_of(*inputs[1]),
            axes::broadcast_strides(has_constant_ ? constant_dims_ : shapes[1].dims, dims)};
  if (has_constant_ && constant_is_first_) std::swap(a, b);
  elementary::BinaryTask task;
  task.function = function_;
  const size_t count = axes::count_of(dims);
  const Dims all = dims;
  const auto last_stride = [&](const Operand& operand) {
    for (size_t k = all.size(); k-- > 0;) {
      if (all[k] != 1) return operand.strides[k];
    }
    return size_t{0};
  };
  task.a_step = last_stride(a) == 0 ? 0 : 1;
  task.b_step = last_stride(b) == 0 ? 0 : 1;
  task.count = take_run(dims, a, b);
  task.c = floats_of(*output);
  axes::Walk walk_a(dims, a.strides);
  axes::Walk walk_b(dims, b.strides);
  for (size_t done = 0; done < count; done += task.count, task.c += task.count) {
    task.a = a.numbers + walk_a.offset();
    task.b = b.numbers + walk_b.offset();
    row_.core(task);
    walk_a.next();
    walk_b.next();
  }
  outputs.push_back(output);
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
