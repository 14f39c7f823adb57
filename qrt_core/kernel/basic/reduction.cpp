#include "qrt_core/kernel/basic/reduction.h"

#include <algorithm>
#include <cstring>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/layer_catalogue.h"

namespace marlo::kernel {

using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorArithmeticInfo;
using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

namespace {

constexpr int16_t kLastAxis = -1;

size_t product(const std::vector<uint32_t>& dims, size_t begin, size_t end) {
  size_t count = 1;
  for (size_t i = begin; i < end; ++i) count *= dims[i];
  return count;
}

LayoutType layout_of_rank(size_t rank) {
  switch (rank) {
    case 1:
      return LayoutType::C;
    case 2:
      return LayoutType::SC;
    case 3:
      return LayoutType::CHW;
    default:
      return LayoutType::FLEXIABLE;
  }
}

// An axis of the model as one of the tensor.
int16_t without_batch(int16_t axis) { return axis > 0 ? static_cast<int16_t>(axis - 1) : axis; }

// Where an axis of the model is among those of the tensor; may be outside.
int64_t place_of(int16_t axis, const std::vector<uint32_t>& dims) {
  return axis == kLastAxis ? static_cast<int64_t>(dims.size()) - 1 : int64_t{without_batch(axis)};
}

// The axes of the tensor in ascending order.
std::vector<size_t> sorted_axes(const char* kernel, const std::vector<int16_t>& listed,
                                const std::vector<uint32_t>& dims) {
  std::vector<size_t> axes;
  for (const int16_t axis : listed) {
    const int64_t place = place_of(axis, dims);
    Assert(place >= 0 && place < static_cast<int64_t>(dims.size()),
           "%s: there is no axis %d in a tensor of %zu dims", kernel, axis, dims.size());
    axes.push_back(static_cast<size_t>(place));
    Assert(dims[axes.back()] != 0, "%s: axis %d has size 0", kernel, axis);
  }
  std::sort(axes.begin(), axes.end());
  const bool unique = std::adjacent_find(axes.begin(), axes.end()) == axes.end();
  Assert(unique, "%s: an axis is named twice", kernel);
  return axes;
}

// Adds [outer, size, inner] over its middle axis, from zero and in memory order.
void add_axis(const float* source, size_t outer, size_t size, size_t inner, float* target) {
  std::fill_n(target, outer * inner, 0.0f);
  for (size_t o = 0; o < outer; ++o, target += inner) {
    for (size_t k = 0; k < size; ++k, source += inner) {
      for (size_t i = 0; i < inner; ++i) target[i] += source[i];
    }
  }
}

// Adds over all of `axes`, ascending, into `target`.
void add_axes(const float* source, std::vector<uint32_t> dims, std::vector<size_t> axes,
              float* target, runtime::DeviceCPU& device) {
  std::shared_ptr<TensorCPU> held;  // what `source` points into after the first axis
  while (!axes.empty()) {
    const size_t axis = axes.back();
    axes.pop_back();
    const size_t outer = product(dims, 0, axis);
    const size_t inner = product(dims, axis + 1, dims.size());
    const uint32_t size = dims[axis];
    dims.erase(dims.begin() + static_cast<std::ptrdiff_t>(axis));
    if (axes.empty()) {
      add_axis(source, outer, size, inner, target);
      return;
    }
    auto partial =
        device.CreateTensor(TensorShape(dims, DataType::FLOAT32, LayoutType::FLEXIABLE), nullptr);
    auto* sums = static_cast<float*>(partial->RawPointer());
    add_axis(source, outer, size, inner, sums);
    held = std::move(partial);
    source = sums;
  }
  std::copy_n(source, product(dims, 0, dims.size()), target);
}

}  // namespace

int Reduction::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  const auto* arithmetic = dynamic_cast<const TensorArithmeticInfo*>(info);
  if (param != nullptr || arithmetic == nullptr) return runtime::KERNEL_REFUSED;
  const std::vector<int16_t>& axes = arithmetic->dim;
  return config_verdict(!axes.empty() && std::count(axes.begin(), axes.end(), kLastAxis) <= 1);
}

// `Config` takes what the check refuses, as long as it is described at all.
KernelFamily::Misfits Reduction::refusals(const LayerInfo* info, const InferenceParam*) const {
  Expectations expected;
  expected.describe<TensorArithmeticInfo>(info, nullptr);
  return std::move(expected).unmet();
}

bool Reduction::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto* arithmetic = dynamic_cast<const TensorArithmeticInfo*>(info);
  if (arithmetic == nullptr) return false;
  const char* word = runtime::ArithmeticWord(arithmetic->arith_type);
  axes_ = arithmetic->dim;
  operation_ = std::strcmp(word, "Mean") == 0 ? Operation::mean : Operation::sum;
  return true;
}

KernelFamily::Shapes Reduction::InferOutputShapes(const Shapes& shapes) const {
  Assert(!shapes.empty(), "%s: there is no input", row_.name);
  const TensorShape& input = shapes[0];
  Assert(axes_.size() <= input.dims.size(), nullptr);
  std::vector<uint32_t> dims = input.dims;
  std::vector<bool> marked(dims.size(), false);
  for (const int16_t listed : axes_) {
    const int16_t axis = without_batch(listed);
    if (axis == kLastAxis) {
      dims.pop_back();
      continue;
    }
    Assert(axis >= 0 && static_cast<size_t>(axis) < marked.size(),
           "%s: there is no axis %d in a tensor of %zu dims", row_.name, listed, marked.size());
    marked[static_cast<size_t>(axis)] = true;
  }
  std::vector<uint32_t> left;
  for (size_t axis = 0; axis < dims.size(); ++axis) {
    if (!marked[axis]) left.push_back(dims[axis]);
  }
  if (left.empty()) left.push_back(1);
  const LayoutType layout = layout_of_rank(left.size());
  return {TensorShape(std::move(left), input.data_type, layout, input.location)};
}

KernelFamily::Misfits Reduction::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs", "one FLOAT32 or INT16 tensor in main memory",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

KernelFamily::Misfits Reduction::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.empty()) return {};
  const std::vector<uint32_t>& dims = inputs[0].dims;
  expected.expect(inputs[0].data_type == DataType::FLOAT32, "input 0", "FLOAT32",
                  runtime::ShapeText(inputs[0]));
  expected.expect(operation_ != Operation::none, "arith_type", "a kind that was configured",
                  "none");
  std::vector<int64_t> places;
  for (const int16_t axis : axes_) places.push_back(place_of(axis, dims));
  bool exist = true;
  for (const int64_t place : places) {
    exist = exist && place >= 0 && place < static_cast<int64_t>(dims.size()) &&
            dims[static_cast<size_t>(place)] != 0;
  }
  std::sort(places.begin(), places.end());
  const bool unique = std::adjacent_find(places.begin(), places.end()) == places.end();
  expected.expect(
      exist && unique, "dim",
      "axes of the input " + listed(dims) + ", behind a batch at 0, of sizes above 0, each once",
      listed(axes_));
  return std::move(expected).unmet();
}

int Reduction::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_in_main_memory(tensors) &&
                        (tensors[0]->shape.data_type == DataType::FLOAT32 ||
                         tensors[0]->shape.data_type == DataType::INT16));
}

int Reduction::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const TensorShape& shape = inputs[0]->shape;
  auto output = pass.create(InferOutputShapes({shape})[0]);
  Assert(shape.data_type == DataType::FLOAT32, nullptr);
  Assert(operation_ != Operation::none, nullptr);
  const std::vector<size_t> axes = sorted_axes(row_.name, axes_, shape.dims);
  const auto* source = static_cast<const float*>(static_cast<TensorCPU&>(*inputs[0]).RawPointer());
  auto* result = static_cast<float*>(output->RawPointer());
  add_axes(source, shape.dims, axes, result, pass.device());
  if (operation_ == Operation::mean) {
    uint32_t terms = 1;
    for (const size_t axis : axes) terms *= shape.dims[axis];
    const auto divisor = static_cast<float>(terms);
    const size_t count = runtime::ElementCount(output->shape);
    for (size_t i = 0; i < count; ++i) result[i] /= divisor;
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
