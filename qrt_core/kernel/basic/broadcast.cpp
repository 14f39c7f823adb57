#include "qrt_core/kernel/basic/broadcast.h"

#include <algorithm>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/elementwise_info.h"

namespace marlo::kernel {

using runtime::BroadcastOperatorInfo;
using runtime::DataType;
using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

std::map<uint16_t, BroadcastFunction> broadcast_functions{
    {0, [](const float& a, const float& b) { return a + b; }},
    {1, [](const float& a, const float& b) { return a - b; }},
    {2, [](const float& a, const float& b) { return a * b; }},
    {3, [](const float& a, const float& b) { return a / b; }},
    {4, [](const float& a, const float& b) { return a > b ? a : b; }},
    {5, [](const float& a, const float& b) { return a < b ? a : b; }},
};

namespace {

using Dims = std::vector<uint32_t>;

bool is_float(const std::shared_ptr<runtime::Tensor>& tensor) {
  return tensor != nullptr && tensor->shape.data_type == DataType::FLOAT32;
}

// Aligned at the last; dims that only one side has are free.
bool broadcast_together(const Dims& a, const Dims& b) {
  const size_t shared = std::min(a.size(), b.size());
  return std::equal(a.rbegin(), a.rbegin() + static_cast<std::ptrdiff_t>(shared), b.rbegin(),
                    [](uint32_t x, uint32_t y) { return x == y || x == 1 || y == 1; });
}

Dims extended(const Dims& dims, size_t rank) {
  Dims result(rank - dims.size(), 1);
  result.insert(result.end(), dims.begin(), dims.end());
  return result;
}

size_t count_of(const Dims& dims) {
  size_t count = 1;
  for (const uint32_t size : dims) count *= size;
  return count;
}

// Elements from one index to the next on each axis of the output: 0 where the operand repeats.
std::vector<size_t> steps_of(const Dims& dims, const Dims& output) {
  std::vector<size_t> steps(output.size());
  size_t stride = 1;
  for (size_t axis = output.size(); axis-- > 0;) {
    steps[axis] = dims[axis] == output[axis] ? stride : 0;
    stride *= dims[axis];
  }
  return steps;
}

// Calls `visit` with the offsets of both operands for each index of the output, in its order.
template <typename Visit>
void for_each_pair(const Dims& a, const Dims& b, const Dims& output, Visit visit) {
  const std::vector<size_t> a_steps = steps_of(a, output);
  const std::vector<size_t> b_steps = steps_of(b, output);
  Dims index(output.size(), 0);
  size_t a_offset = 0;
  size_t b_offset = 0;
  for (size_t left = count_of(output); left > 0; --left) {
    visit(a_offset, b_offset);
    for (size_t axis = output.size(); axis-- > 0;) {
      a_offset += a_steps[axis];
      b_offset += b_steps[axis];
      if (++index[axis] < output[axis]) break;
      a_offset -= a_steps[axis] * output[axis];
      b_offset -= b_steps[axis] * output[axis];
      index[axis] = 0;
    }
  }
}

}  // namespace

int Broadcast::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits Broadcast::refusals(const LayerInfo* info,
                                          const InferenceParam* param) const {
  Expectations expected;
  expected.describe<BroadcastOperatorInfo>(info, param);
  return std::move(expected).unmet();
}

KernelFamily::Misfits Broadcast::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs",
                  "two FLOAT32 tensors in one memory whose sizes, from the last, are equal or 1",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

KernelFamily::Misfits Broadcast::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.size() != 2) return {};
  const bool makes_nothing = runtime::ElementCount(InferOutputShapes(inputs)[0]) == 0;
  const bool has_numbers =
      runtime::ElementCount(inputs[0]) != 0 && runtime::ElementCount(inputs[1]) != 0;
  expected.expect(makes_nothing || has_numbers, "inputs",
                  "two that have elements, for an output that has some",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

bool Broadcast::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  op_type_ = static_cast<const BroadcastOperatorInfo&>(*info).op_type;
  return true;
}

KernelFamily::Shapes Broadcast::InferOutputShapes(const Shapes& shapes) const {
  Assert(shapes.size() >= 2, "%s: there must be two inputs", row_.name);
  const size_t rank = std::max(shapes[0].dims.size(), shapes[1].dims.size());
  TensorShape output = shapes[0];
  output.dims = extended(output.dims, rank);
  const Dims other = extended(shapes[1].dims, rank);
  for (size_t axis = 0; axis < rank; ++axis) {
    output.dims[axis] = std::max(output.dims[axis], other[axis]);
  }
  return {output};
}

int Broadcast::CheckInputs(const Tensors& tensors) const {
  if (tensors.size() != 2 || !is_float(tensors[0]) || !is_float(tensors[1])) {
    return runtime::KERNEL_BAD_TENSOR;
  }
  const TensorShape& a = tensors[0]->shape;
  const TensorShape& b = tensors[1]->shape;
  return tensor_verdict(a.location == b.location && a.extra == b.extra &&
                        broadcast_together(a.dims, b.dims));
}

int Broadcast::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float(tensors));
}

int Broadcast::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(inputs.size() == 2 && is_float(inputs[0]) && is_float(inputs[1]),
         "%s: the inputs must be two FLOAT32 tensors", row_.name);
  const TensorShape shape = InferOutputShapes({inputs[0]->shape, inputs[1]->shape})[0];
  auto output = pass.create(shape);
  const Dims a_dims = extended(inputs[0]->shape.dims, shape.dims.size());
  const Dims b_dims = extended(inputs[1]->shape.dims, shape.dims.size());
  // A size of 0 broadcasts to one of 1, and then there is nothing to read.
  Assert(count_of(shape.dims) == 0 || (count_of(a_dims) != 0 && count_of(b_dims) != 0),
         "%s: an input is empty and the output isn't", row_.name);

  const auto* a = static_cast<const float*>(static_cast<TensorCPU&>(*inputs[0]).RawPointer());
  const auto* b = static_cast<const float*>(static_cast<TensorCPU&>(*inputs[1]).RawPointer());
  auto* result = static_cast<float*>(output->RawPointer());
  const BroadcastFunction& function = broadcast_functions[op_type_];
  for_each_pair(a_dims, b_dims, shape.dims, [&](size_t a_offset, size_t b_offset) {
    *result++ = function(a[a_offset], b[b_offset]);
  });
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
