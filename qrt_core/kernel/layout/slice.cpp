#include "qrt_core/kernel/layout/slice.h"

#include <cstring>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/shape_info.h"

namespace marlo::kernel {

using runtime::TensorCPU;
using runtime::TensorShape;
using runtime::TensorSliceInfo;
using utility::Assert;

namespace {

constexpr size_t kTriple = 3;

/// What is taken of one dimension.
struct Range {
  size_t start;
  size_t step;
  size_t count;
};

// Copies `count` runs of `run` floats that lie `distance` apart.
float* copy_runs(const float* from, size_t count, size_t distance, size_t run, float* to) {
  if (distance == run) {
    std::memcpy(to, from, count * run * sizeof(float));
    return to + count * run;
  }
  for (size_t i = 0; i < count; ++i, from += distance, to += run) {
    std::memcpy(to, from, run * sizeof(float));
  }
  return to;
}

// Contiguous columns, rows and planes are copied in one piece each.
void copy_box(const float* in, size_t height, size_t width, const Range& c, const Range& h,
              const Range& w, float* out) {
  const bool whole_rows = w.count == width && w.step == 1;
  const bool whole_planes = whole_rows && h.count == height && h.step == 1;
  const size_t plane = height * width;
  const float* first = in + c.start * plane + h.start * width + w.start;
  if (whole_planes) {
    copy_runs(first, c.count, c.step * plane, plane, out);
    return;
  }
  for (size_t channel = 0; channel < c.count; ++channel, first += c.step * plane) {
    if (w.step == 1) {
      out = copy_runs(first, h.count, h.step * width, w.count, out);
      continue;
    }
    for (size_t row = 0; row < h.count; ++row) {
      out = copy_runs(first + row * h.step * width, w.count, w.step, 1, out);
    }
  }
}

}  // namespace

// The read position moves three times as fast as the counter, so of a list of three triples only
// the first is looked at. A position behind the list ends the check.
int Slice::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  const auto* slice = dynamic_cast<const TensorSliceInfo*>(info);
  if (param != nullptr || slice == nullptr) return runtime::KERNEL_REFUSED;
  const std::vector<int16_t>& list = slice->slice_dims;
  if (list.empty() || list.size() % kTriple != 0) return runtime::KERNEL_REFUSED;
  size_t position = 0;
  for (size_t counter = 0; counter < list.size() && position + kTriple <= list.size();
       counter += kTriple, position += kTriple * kTriple) {
    const int start = list[position];
    const int end = list[position + 1];
    const int step = list[position + 2];
    if (start < 0 || end < 0 || step < 1 || start < end || step > end - start + 1) {
      return runtime::KERNEL_REFUSED;
    }
  }
  return runtime::KERNEL_OK;
}

// `Config` takes what the check refuses, as long as it is described at all.
KernelFamily::Misfits Slice::refusals(const LayerInfo* info, const InferenceParam*) const {
  Expectations expected;
  expected.describe<TensorSliceInfo>(info, nullptr);
  return std::move(expected).unmet();
}

KernelFamily::Misfits Slice::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.one_float_of(inputs, runtime::LayoutType::CHW);
  return std::move(expected).unmet();
}

KernelFamily::Misfits Slice::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.empty()) return {};
  const std::vector<uint32_t>& dims = inputs[0].dims;
  const std::vector<uint32_t> counts = InferOutputShapes(inputs)[0].dims;
  expected.expect(dims.size() == 3, "input 0", "3 dims", runtime::ShapeText(inputs[0]));
  expected.expect(counts.size() == 3, "slice_dims", "start, end and step of 3 dims",
                  listed(triples_));
  if (!expected.met()) return std::move(expected).unmet();
  for (size_t k = 0; k < 3; ++k) {
    expected.expect(stays_inside(k, counts[k], dims[k]), "slice_dims",
                    "a slice inside of dim " + std::to_string(k) + ", which has the size " +
                        std::to_string(dims[k]),
                    listed(triples_));
  }
  return std::move(expected).unmet();
}

// Whether the last of `count` places of an axis is one of `size`.
bool Slice::stays_inside(size_t axis, size_t count, size_t size) const {
  const auto start = static_cast<size_t>(triples_[kTriple * axis]);
  const auto step = static_cast<size_t>(triples_[kTriple * axis + 2]);
  return count == 0 || start + (count - 1) * step < size;
}

bool Slice::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto* slice = dynamic_cast<const TensorSliceInfo*>(info);
  if (slice == nullptr) return false;
  triples_ = slice->slice_dims;
  return true;
}

KernelFamily::Shapes Slice::InferOutputShapes(const Shapes& shapes) const {
  Assert(!shapes.empty(), "%s: there is no input", row_.name);
  std::vector<uint32_t> dims;
  for (size_t k = 0; k + kTriple <= triples_.size(); k += kTriple) {
    const int start = triples_[k];
    const int end = triples_[k + 1];
    const int step = triples_[k + 2];
    Assert(start >= 0 && start <= end && step >= 1,
           "%s: slice from %d to %d in steps of %d takes nothing", row_.name, start, end, step);
    dims.push_back(static_cast<uint32_t>((end - start) / step));
  }
  return {TensorShape(std::move(dims), shapes[0].data_type, shapes[0].layout, shapes[0].location)};
}

int Slice::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float_of(tensors, runtime::LayoutType::CHW));
}

int Slice::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const TensorCPU& input = float_input(row_.name, inputs);
  const std::vector<uint32_t>& dims = input.shape.dims;
  const TensorShape shape = InferOutputShapes({input.shape})[0];
  Assert(dims.size() == 3 && shape.dims.size() == 3,
         "%s: input and slice must have 3 dims, not %zu and %zu", row_.name, dims.size(),
         shape.dims.size());
  Range ranges[3];
  for (size_t k = 0; k < 3; ++k) {
    const auto start = static_cast<size_t>(triples_[kTriple * k]);
    const auto step = static_cast<size_t>(triples_[kTriple * k + 2]);
    const size_t count = shape.dims[k];
    Assert(stays_inside(k, count, dims[k]), "%s: the slice reaches outside dim %zu of size %u",
           row_.name, k, dims[k]);
    ranges[k] = {start, step, count};
  }
  auto output = pass.create(shape);
  if (runtime::ElementCount(shape) != 0) {
    copy_box(static_cast<const float*>(input.RawPointer()), dims[1], dims[2], ranges[0], ranges[1],
             ranges[2], static_cast<float*>(output->RawPointer()));
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
