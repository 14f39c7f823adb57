#include "qrt_core/kernel/basic/channel_multiply.h"

#include <algorithm>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/elementwise_info.h"

namespace marlo::kernel {

using runtime::BroadcastOperatorInfo;
using runtime::DataType;
using runtime::LocationType;
using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

namespace {

constexpr uint16_t kMultiply = 2;
constexpr int kOtherOperation = -2;

// One of the two is 1, or both are 0.
bool one_is_single(uint64_t a, uint64_t b) { return a * b == std::max(a, b); }

}  // namespace

int ChannelMultiply::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  const auto* operation = dynamic_cast<const BroadcastOperatorInfo*>(info);
  if (param != nullptr || operation == nullptr) return runtime::KERNEL_REFUSED;
  return operation->op_type == kMultiply ? runtime::KERNEL_OK : kOtherOperation;
}

// `Config` takes every operation; `differences` tells of those that aren't computed.
KernelFamily::Misfits ChannelMultiply::refusals(const LayerInfo* info,
                                                const InferenceParam* param) const {
  Expectations expected;
  expected.describe<BroadcastOperatorInfo>(info, param);
  return std::move(expected).unmet();
}

KernelFamily::Misfits ChannelMultiply::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs",
                  "a map and a vector of one pixel, FLOAT32 " + runtime::LayoutText(row_.layout) +
                      " with 4 dims in main memory",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

// The sizes of a vector and a map that don't belong together aren't part of the test of inputs.
bool ChannelMultiply::belong_together(const TensorShape& vector, const TensorShape& map,
                                      const TensorShape& output) const {
  const uint64_t channels = uint64_t{output.dims[0]} * row_.block;
  return runtime::ElementCount(vector) >= channels &&
         runtime::ElementCount(map) >= channels * output.dims[1] * output.dims[2];
}

KernelFamily::Misfits ChannelMultiply::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.size() != 2 || inputs[0].dims.size() != 4 || inputs[1].dims.size() != 4) return {};
  expected.expect(inputs[0].dims[3] == row_.block, "input 0",
                  "blocks of " + std::to_string(row_.block), runtime::ShapeText(inputs[0]));
  const size_t vector = inputs[0].dims[1] == 1 ? 0 : 1;
  expected.expect(belong_together(inputs[vector], inputs[1 - vector], InferOutputShapes(inputs)[0]),
                  "inputs", "a map, and a vector of as many blocks of channels",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

KernelFamily::Misfits ChannelMultiply::differences(const LayerInfo& info, const Shapes&) const {
  Expectations expected;
  const auto* layer = expected.describe<BroadcastOperatorInfo>(&info, nullptr);
  if (layer != nullptr) {
    expected.expect(layer->op_type == kMultiply, "op_type", "2, a multiplication",
                    std::to_string(layer->op_type));
  }
  return std::move(expected).unmet();
}

KernelFamily::Shapes ChannelMultiply::InferOutputShapes(const Shapes& shapes) const {
  Assert(shapes.size() >= 2 && shapes[0].dims.size() == 4 && shapes[1].dims.size() == 4,
         "%s: there must be two inputs of 4 dims", row_.name);
  TensorShape output = shapes[0];
  for (const size_t axis : {size_t{1}, size_t{2}}) {
    output.dims[axis] = std::max(output.dims[axis], shapes[1].dims[axis]);
  }
  return {output};
}

bool ChannelMultiply::is_blocked(const std::shared_ptr<runtime::Tensor>& tensor) const {
  return tensor != nullptr && tensor->shape.data_type == DataType::FLOAT32 &&
         tensor->shape.location == LocationType::MainMemory && tensor->shape.layout == row_.layout;
}

int ChannelMultiply::CheckInputs(const Tensors& tensors) const {
  if (tensors.size() != 2 || !is_blocked(tensors[0]) || !is_blocked(tensors[1])) {
    return runtime::KERNEL_BAD_TENSOR;
  }
  const std::vector<uint32_t>& a = tensors[0]->shape.dims;
  const std::vector<uint32_t>& b = tensors[1]->shape.dims;
  return tensor_verdict(a.size() == 4 && b.size() == 4 && one_is_single(a[1], b[1]) &&
                        one_is_single(a[2], b[2]));
}

int ChannelMultiply::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float_of(tensors, row_.layout));
}

int ChannelMultiply::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(CheckInputs(inputs) == runtime::KERNEL_OK && inputs[0]->shape.dims[3] == row_.block,
         "%s: the inputs must be a map and a vector of blocks of %u", row_.name, row_.block);
  const bool vector_first = inputs[0]->shape.dims[1] == 1;
  const auto& vector = static_cast<const TensorCPU&>(*inputs[vector_first ? 0 : 1]);
  const auto& map = static_cast<const TensorCPU&>(*inputs[vector_first ? 1 : 0]);
  auto output = pass.create(InferOutputShapes({inputs[0]->shape, inputs[1]->shape})[0]);
  const std::vector<uint32_t>& dims = output->shape.dims;
  const size_t blocks = dims[0];
  const size_t pixels = size_t{dims[1]} * dims[2];
  Assert(belong_together(vector.shape, map.shape, output->shape),
         "%s: input %d is no map of %zu blocks of %zu pixels, or input %d no vector of theirs",
         row_.name, vector_first ? 1 : 0, blocks, pixels, vector_first ? 0 : 1);
  row_.core(static_cast<const float*>(vector.RawPointer()),
            static_cast<const float*>(map.RawPointer()), static_cast<float*>(output->RawPointer()),
            blocks, pixels);
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
