#include "qrt_core/kernel/layout/expand.h"

#include <algorithm>
#include <cstring>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/shape_info.h"

namespace marlo::kernel {

using runtime::DataType;
using runtime::TensorCPU;
using runtime::TensorExpandInfo;
using runtime::TensorShape;
using utility::Assert;

namespace {

// Fewer entries than this may keep a dim.
constexpr long kTooManyKept = 3;

bool is_kept(int16_t entry) { return entry < 0; }

// Among the dims that may be expanded: the last of four is a block's.
bool has_size_of_one(const std::vector<uint32_t>& dims) {
  const auto end = dims.begin() + static_cast<std::ptrdiff_t>(std::min<size_t>(dims.size(), 3));
  return std::find(dims.begin(), end, 1u) != end;
}

// The same for elements of two bytes, for which there is no vector form.
void repeat_halfwords(const uint16_t* values, size_t planes, size_t pixels, size_t block,
                      uint16_t* out) {
  for (size_t plane = 0; plane < planes; ++plane, values += block) {
    for (size_t pixel = 0; pixel < pixels; ++pixel, out += block) {
      std::memcpy(out, values, block * sizeof *values);
    }
  }
}

}  // namespace

int Expand::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits Expand::refusals(const LayerInfo* info, const InferenceParam* param) const {
  Expectations expected;
  const auto* expand = expected.describe<TensorExpandInfo>(info, param);
  if (expand == nullptr) return std::move(expected).unmet();
  const std::vector<int16_t>& shape = expand->new_shape;
  expected.expect(shape.size() >= 2 && shape[0] == 1, "new_shape", "1, the batch, and sizes behind",
                  listed(shape));
  const auto kept = std::count_if(shape.begin(), shape.end(), is_kept);
  expected.expect(kept < kTooManyKept, "new_shape", "at most 2 negative entries",
                  std::to_string(kept));
  return std::move(expected).unmet();
}

KernelFamily::Misfits Expand::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(
      false, "inputs",
      "one FLOAT32 or INT16 tensor " + runtime::LayoutText(row_.layout) + " in main memory",
      runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

KernelFamily::Misfits Expand::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.empty()) return {};
  expected.expect(has_size_of_one(inputs[0].dims), "input 0",
                  "a size of 1 among the first 3 dims, which could be expanded",
                  runtime::ShapeText(inputs[0]));
  return std::move(expected).unmet();
}

bool Expand::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  new_shape_ = static_cast<const TensorExpandInfo&>(*info).new_shape;
  return true;
}

KernelFamily::Shapes Expand::InferOutputShapes(const Shapes& shapes) const {
  Assert(!shapes.empty(), "%s: there is no input", row_.name);
  const std::vector<uint32_t>& from = shapes[0].dims;
  std::vector<uint32_t> dims;
  for (size_t i = 1; i < new_shape_.size(); ++i) {
    const int16_t entry = new_shape_[i];
    if (is_kept(entry) || (i == 1 && entry > 0)) {
      Assert(i <= from.size(), "%s: entry %zu of new_shape keeps a dim of an input of %zu dims",
             row_.name, i, from.size());
      dims.push_back(from[i - 1]);
    } else {
      dims.push_back(static_cast<uint32_t>(entry));
    }
  }
  return {TensorShape(std::move(dims), shapes[0].data_type, shapes[0].layout, shapes[0].location)};
}

int Expand::CheckInputs(const Tensors& tensors) const {
  if (!is_one_in_main_memory(tensors)) return runtime::KERNEL_BAD_TENSOR;
  const TensorShape& shape = tensors[0]->shape;
  const bool type = shape.data_type == DataType::FLOAT32 || shape.data_type == DataType::INT16;
  return tensor_verdict(type && shape.layout == row_.layout);
}

// One value per channel, or one block, onto planes of as many channels.
bool Expand::is_implemented(const std::vector<uint32_t>& from,
                            const std::vector<uint32_t>& to) const {
  const size_t dims = row_.block == 1 ? 3 : 4;
  return from.size() == dims && to.size() == dims && from[0] == to[0] && from[1] == 1 &&
         from[2] == 1 && (dims == 3 || (from[3] == row_.block && to[3] == row_.block));
}

int Expand::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const auto& input = static_cast<const TensorCPU&>(*inputs[0]);
  auto output = pass.create(InferOutputShapes({input.shape})[0]);
  const std::vector<uint32_t>& from = input.shape.dims;
  const std::vector<uint32_t>& to = output->shape.dims;
  Assert(has_size_of_one(from), nullptr);

  const uint32_t element = runtime::ElementSize(input.shape.data_type);
  if (is_implemented(from, to) && element == sizeof(uint16_t)) {
    repeat_halfwords(static_cast<const uint16_t*>(input.RawPointer()), to[0],
                     static_cast<size_t>(to[1]) * to[2], row_.block,
                     static_cast<uint16_t*>(output->RawPointer()));
  } else if (is_implemented(from, to) && element == sizeof(float)) {
    const auto* values = static_cast<const float*>(input.RawPointer());
    auto* plane = static_cast<float*>(output->RawPointer());
    const size_t plane_floats = static_cast<size_t>(to[1]) * to[2] * row_.block;
    for (uint32_t channel = 0; channel < to[0]; ++channel) {
      float pattern[fill::kPatternFloats];
      for (size_t k = 0; k < fill::kPatternFloats; ++k) pattern[k] = values[k % row_.block];
      row_.repeat(plane, plane_floats, pattern);
      values += row_.block;
      plane += plane_floats;
    }
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
