#include "qrt_core/kernel/layout/concatenate.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/shape_info.h"

namespace marlo::kernel {

using runtime::ConcatenateInfo;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

namespace {

constexpr uint16_t kChannelDim = 1;  // behind the batch axis

bool has_outer_channels(LayoutType layout) {
  return layout == LayoutType::CHW || layout == LayoutType::C4HW4 || layout == LayoutType::C8HW8;
}

bool in_main_memory(const std::shared_ptr<runtime::Tensor>& tensor) {
  return tensor != nullptr && tensor->shape.location == LocationType::MainMemory;
}

// Whether dims agree, but for the index `axis`.
bool agree_elsewhere(const std::vector<uint32_t>& a, const std::vector<uint32_t>& b, size_t axis) {
  if (a.size() != b.size()) return false;
  for (size_t k = 0; k < a.size(); ++k) {
    if (k != axis && a[k] != b[k]) return false;
  }
  return true;
}

// The shape of the first with its size at `axis` the sum over all.
TensorShape joined(const KernelFamily::Shapes& shapes, size_t axis) {
  TensorShape shape = shapes[0];
  uint64_t size = 0;
  for (const TensorShape& part : shapes) size += part.dims[axis];
  Assert(size <= std::numeric_limits<uint32_t>::max(), "the concatenation is too large");
  shape.dims[axis] = static_cast<uint32_t>(size);
  return shape;
}

bool fill_exactly(const KernelFamily::Shapes& parts, const TensorShape& whole) {
  uint64_t bytes = 0;
  for (const TensorShape& part : parts) bytes += runtime::ByteSize(part);
  return bytes == runtime::ByteSize(whole);
}

KernelFamily::Shapes shapes_of(const KernelFamily::Tensors& tensors) {
  KernelFamily::Shapes shapes;
  shapes.reserve(tensors.size());
  for (const auto& tensor : tensors) shapes.push_back(tensor->shape);
  return shapes;
}

}  // namespace

int ChannelConcatenate::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits ChannelConcatenate::refusals(const LayerInfo* info,
                                                   const InferenceParam* param) const {
  Expectations expected;
  const auto* concatenate = expected.describe<ConcatenateInfo>(info, param);
  if (concatenate != nullptr) {
    expected.expect(concatenate->dim == kChannelDim, "dim", "1, the channels behind the batch",
                    std::to_string(concatenate->dim));
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits ChannelConcatenate::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs",
                  "tensors of one type and layout, CHW, C4HW4 or C8HW8, in main memory",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

KernelFamily::Misfits ChannelConcatenate::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(fill_exactly(inputs, InferOutputShapes(inputs)[0]), "inputs",
                  "tensors that differ in their first dim only", runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

KernelFamily::Shapes ChannelConcatenate::InferOutputShapes(const Shapes& shapes) const {
  const bool usable = !shapes.empty() && std::none_of(shapes.begin(), shapes.end(),
                                                      [](auto& s) { return s.dims.empty(); });
  Assert(usable, "%s: every input must have dims", row_.name);
  return {joined(shapes, 0)};
}

int ChannelConcatenate::CheckInputs(const Tensors& tensors) const {
  if (tensors.empty() || !in_main_memory(tensors[0])) return runtime::KERNEL_BAD_TENSOR;
  const TensorShape& first = tensors[0]->shape;
  if (!has_outer_channels(first.layout)) return runtime::KERNEL_BAD_TENSOR;
  const bool alike = std::all_of(tensors.begin() + 1, tensors.end(), [&first](const auto& tensor) {
    return tensor != nullptr && tensor->shape.data_type == first.data_type &&
           tensor->shape.layout == first.layout && tensor->shape.location == first.location &&
           tensor->shape.extra == first.extra;
  });
  return tensor_verdict(alike);
}

int ChannelConcatenate::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_in_main_memory(tensors) &&
                        has_outer_channels(tensors[0]->shape.layout));
}

int ChannelConcatenate::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const Shapes parts = shapes_of(inputs);
  auto output = pass.create(InferOutputShapes(parts)[0]);
  Assert(fill_exactly(parts, output->shape), "%s: the inputs must differ in their first dim only",
         row_.name);

  auto* to = static_cast<char*>(output->RawPointer());
  for (const auto& input : inputs) {
    const uint32_t part = runtime::ByteSize(input->shape);
    std::memcpy(to, static_cast<const TensorCPU&>(*input).RawPointer(), part);
    to += part;
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

int AxisConcatenate::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits AxisConcatenate::refusals(const LayerInfo* info,
                                                const InferenceParam* param) const {
  Expectations expected;
  expected.describe<ConcatenateInfo>(info, param);
  return std::move(expected).unmet();
}

KernelFamily::Misfits AxisConcatenate::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs",
                  "two or more tensors of one type in main memory, of one shape but for dim " +
                      std::to_string(axis_),
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

bool AxisConcatenate::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  axis_ = static_cast<const ConcatenateInfo&>(*info).dim;
  return true;
}

KernelFamily::Shapes AxisConcatenate::InferOutputShapes(const Shapes& shapes) const {
  Assert(!shapes.empty() && axis_ < shapes[0].dims.size(), "input tensor shapes error.");
  for (const TensorShape& shape : shapes) {
    Assert(agree_elsewhere(shape.dims, shapes[0].dims, axis_), "input tensor shapes error.");
  }
  return {joined(shapes, axis_)};
}

int AxisConcatenate::CheckInputs(const Tensors& tensors) const {
  if (tensors.size() < 2) return runtime::KERNEL_BAD_TENSOR;
  const bool fit = std::all_of(tensors.begin(), tensors.end(), [&](const auto& tensor) {
    return in_main_memory(tensor) && tensor->shape.data_type == tensors[0]->shape.data_type &&
           agree_elsewhere(tensor->shape.dims, tensors[0]->shape.dims, axis_);
  });
  return tensor_verdict(fit);
}

int AxisConcatenate::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_in_main_memory(tensors));
}

int AxisConcatenate::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(CheckInputs(inputs) == runtime::KERNEL_OK, "Invalid forward input param");
  auto output = pass.create(InferOutputShapes(shapes_of(inputs))[0]);

  const std::vector<uint32_t>& dims = output->shape.dims;
  size_t outer = 1;
  for (size_t k = 0; k < axis_; ++k) outer *= dims[k];
  size_t inner_bytes = runtime::ElementSize(output->shape.data_type);
  for (size_t k = axis_ + 1; k < dims.size(); ++k) inner_bytes *= dims[k];

  auto* to = static_cast<char*>(output->RawPointer());
  for (size_t row = 0; row < outer; ++row) {
    for (const auto& input : inputs) {
      const size_t part = input->shape.dims[axis_] * inner_bytes;
      const auto* from = static_cast<const char*>(static_cast<TensorCPU&>(*input).RawPointer());
      std::memcpy(to, from + row * part, part);
      to += part;
    }
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
