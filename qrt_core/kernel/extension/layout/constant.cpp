#include "qrt_core/kernel/extension/layout/constant.h"

#include <cstring>

#include "qrt_core/kernel/layout/one_tensor.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::kernel {

using axes::Dims;
using axes::floats_of;
using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorShape;
using utility::Assert;

namespace {

bool holds_numbers(const TensorShape& shape) {
  return shape.location == runtime::LocationType::MainMemory && axes::is_in_order(shape) &&
         (shape.data_type == DataType::FLOAT32 || shape.data_type == DataType::INT32);
}

}  // namespace

int ConstantKernel::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits ConstantKernel::refusals(const LayerInfo* info,
                                               const InferenceParam* param) const {
  Expectations expected;
  const auto* layer = expected.describe<runtime::ConstantInfo>(info, param);
  if (layer != nullptr) {
    axes::expect_layout(layer->layout, expected);
    expected.expect(layer->values.size() == axes::count_of(layer->dims), "values",
                    counted(axes::count_of(layer->dims), "number"),
                    std::to_string(layer->values.size()));
  }
  return std::move(expected).unmet();
}

bool ConstantKernel::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& description = static_cast<const runtime::ConstantInfo&>(*info);
  shape_ =
      TensorShape(description.dims, DataType::FLOAT32, static_cast<LayoutType>(description.layout));
  values_ = description.values;
  return true;
}

int ConstantKernel::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(tensors.empty());
}

KernelFamily::Misfits ConstantKernel::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(inputs.empty(), "inputs", "none", runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

int ConstantKernel::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float(tensors) && tensors[0]->shape == shape_);
}

int ConstantKernel::Forward(const Tensors&, Tensors& outputs, const Pass& pass) const {
  const auto output = pass.create(shape_);
  const size_t bytes = runtime::ByteSize(shape_);
  Assert(bytes == values_.size() * sizeof(float), "%s: not configured", row_.name);
  if (bytes != 0) std::memcpy(output->RawPointer(), values_.data(), bytes);
  outputs.push_back(output);
  return runtime::KERNEL_OK;
}

int EmbeddingKernel::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits EmbeddingKernel::refusals(const LayerInfo* info,
                                                const InferenceParam* param) const {
  Expectations expected;
  const auto* layer = expected.describe<runtime::EmbeddingInfo>(info, param);
  if (layer != nullptr) {
    const uint64_t count = uint64_t{layer->rows} * layer->width;
    const uint64_t found = numbers_in(layer->weight);
    expected.expect(found >= count, "weight", counted(count, "number"), std::to_string(found));
  }
  return std::move(expected).unmet();
}

bool EmbeddingKernel::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& description = static_cast<const runtime::EmbeddingInfo&>(*info);
  rows_ = description.rows;
  width_ = description.width;
  table_ = runtime::WeightNumbers(description.weight);
  return true;
}

KernelFamily::Shapes EmbeddingKernel::InferOutputShapes(const Shapes& shapes) const {
  Assert(shapes.size() == 1, "%s: expected 1 input, found %zu", row_.name, shapes.size());
  Dims dims = shapes[0].dims;
  dims.push_back(width_);
  return {axes::plain_shape(std::move(dims))};
}

int EmbeddingKernel::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_in_main_memory(tensors) && holds_numbers(tensors[0]->shape));
}

KernelFamily::Misfits EmbeddingKernel::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(inputs.size() == 1 && holds_numbers(inputs[0]), "inputs",
                  "one FLOAT32 or INT32 tensor in main memory", runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

int EmbeddingKernel::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(axes::are_plain(tensors, 1));
}

int EmbeddingKernel::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(CheckInputs(inputs) == runtime::KERNEL_OK,
         "%s: the input must be one FLOAT32 or INT32 tensor in main memory", row_.name);
  const TensorShape& shape = inputs[0]->shape;
  const auto output = pass.create(InferOutputShapes({shape})[0]);
  const void* const numbers = static_cast<const runtime::TensorCPU&>(*inputs[0]).RawPointer();
  const size_t count = runtime::ElementCount(shape);
  float* to = floats_of(*output);
  for (size_t i = 0; i < count; ++i, to += width_) {
    const double row = shape.data_type == DataType::INT32
                           ? static_cast<const int32_t*>(numbers)[i]
                           : static_cast<double>(static_cast<const float*>(numbers)[i]);
    Assert(row >= 0.0 && row < static_cast<double>(rows_), "%s: %g is none of %u rows", row_.name,
           row, rows_);
    std::memcpy(to, table_.data() + static_cast<size_t>(row) * width_, width_ * sizeof(float));
  }
  outputs.push_back(output);
  return runtime::KERNEL_OK;
}

int ReshapeToKernel::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits ReshapeToKernel::refusals(const LayerInfo* info,
                                                const InferenceParam* param) const {
  Expectations expected;
  const auto* layer = expected.describe<runtime::ReshapeToInfo>(info, param);
  if (layer != nullptr) {
    axes::expect_layout(layer->layout, expected);
    int unknown = 0;
    for (const int32_t size : layer->dims) {
      if (size == -1) ++unknown;
      expected.expect(size >= -1, "dims", "-1 or more", std::to_string(size));
    }
    expected.expect(unknown <= 1, "dims", "-1 once", std::to_string(unknown) + " times");
  }
  return std::move(expected).unmet();
}

bool ReshapeToKernel::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& description = static_cast<const runtime::ReshapeToInfo&>(*info);
  dims_ = description.dims;
  layout_ = static_cast<LayoutType>(description.layout);
  return true;
}

bool ReshapeToKernel::dims_of(const Dims& input, Dims& output) const {
  const uint64_t count = axes::count_of(input);
  output.clear();
  uint64_t known = 1;
  for (size_t k = 0; k < dims_.size(); ++k) {
    if (dims_[k] == 0 && k >= input.size()) return false;
    output.push_back(dims_[k] == 0 ? input[k] : static_cast<uint32_t>(dims_[k]));
    if (dims_[k] != -1) known *= output[k];
  }
  for (size_t k = 0; k < dims_.size(); ++k) {
    if (dims_[k] != -1) continue;
    if (known == 0 || count % known != 0) return false;
    output[k] = static_cast<uint32_t>(count / known);
    known = count;
  }
  return known == count;
}

KernelFamily::Shapes ReshapeToKernel::InferOutputShapes(const Shapes& shapes) const {
  Dims dims;
  Assert(shapes.size() == 1 && dims_of(shapes[0].dims, dims),
         "%s: input %s doesn't have as many elements as the new dims", row_.name,
         runtime::ShapesText(shapes).c_str());
  return {TensorShape(std::move(dims), shapes[0].data_type, layout_)};
}

int ReshapeToKernel::CheckInputs(const Tensors& tensors) const {
  Dims dims;
  return tensor_verdict(is_one_in_main_memory(tensors) && holds_numbers(tensors[0]->shape) &&
                        dims_of(tensors[0]->shape.dims, dims));
}

KernelFamily::Misfits ReshapeToKernel::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  Dims dims;
  const bool fits = inputs.size() == 1 && holds_numbers(inputs[0]) && dims_of(inputs[0].dims, dims);
  expected.expect(fits, "inputs",
                  "one FLOAT32 or INT32 tensor, neither in C4HW4 nor in C8HW8, of as many elements "
                  "as the new dims",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

int ReshapeToKernel::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_in_main_memory(tensors) && holds_numbers(tensors[0]->shape) &&
                        tensors[0]->shape.layout == layout_);
}

int ReshapeToKernel::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(CheckInputs(inputs) == runtime::KERNEL_OK,
         "%s: the input must be a FLOAT32 or INT32 tensor of as many elements as the new dims, "
         "neither in C4HW4 nor in C8HW8",
         row_.name);
  append_reshaped(row_, inputs, InferOutputShapes({inputs[0]->shape})[0], pass, outputs);
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
