#include "qrt_core/kernel/layout/permute.h"

#include <algorithm>
#include <utility>

#include "qrt_core/kernel/layout/one_tensor.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/runtime/model/shape_info.h"

namespace marlo::kernel {

using runtime::TensorCPU;
using runtime::TensorShape;
using runtime::TensorTransposeInfo;
using utility::Assert;

int Permute::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits Permute::refusals(const LayerInfo* info, const InferenceParam* param) const {
  Expectations expected;
  expected.describe<TensorTransposeInfo>(info, param);
  return std::move(expected).unmet();
}

KernelFamily::Misfits Permute::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs", "one tensor in main memory", runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

KernelFamily::Misfits Permute::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  const size_t dims = inputs.empty() ? 0 : inputs[0].dims.size();
  std::vector<uint32_t> sorted = axes_;
  std::sort(sorted.begin(), sorted.end());
  bool all = sorted.size() == dims;
  for (size_t i = 0; i < sorted.size(); ++i) all = all && sorted[i] == i;
  expected.expect(all, "axes", "a permutation of the input's " + counted(dims, "dim"),
                  listed(axes_));
  return std::move(expected).unmet();
}

bool Permute::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& axes = static_cast<const TensorTransposeInfo&>(*info).axes;
  axes_.assign(axes.begin(), axes.end());
  return true;
}

KernelFamily::Shapes Permute::InferOutputShapes(const Shapes& shapes) const {
  const TensorShape& input = any_shape(row_.name, shapes);
  TensorShape shape = input;
  shape.dims.clear();
  for (const uint32_t axis : axes_) {
    Assert(axis < input.dims.size(), "%s: axis %u is not below %zu, the number of dims", row_.name,
           axis, input.dims.size());
    shape.dims.push_back(input.dims[axis]);
  }
  shape.layout = runtime::LayoutType::FLEXIABLE;
  return {std::move(shape)};
}

int Permute::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_in_main_memory(tensors));
}

int Permute::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(!inputs.empty() && inputs[0] != nullptr, "Input shared pointer is null.");
  const auto& input = static_cast<const TensorCPU&>(*inputs[0]);
  const uint32_t element_size = runtime::ElementSize(input.shape.data_type);
  Assert(element_size != 0, "bytes per element must be >= 1.");
  Assert(input.shape.dims.size() == axes_.size(),
         "dimensions of shape must be equal to tranpose axes's.");
  Shapes shapes = InferOutputShapes({input.shape});

  const bool given = !outputs.empty();
  if (given) {
    Assert(outputs[0] != nullptr, "Output shared pointer is null.");
    Assert(outputs[0]->handle.cpu != input.handle.cpu, "%s: the output is the input", row_.name);
    const uint32_t needed = runtime::ByteSize(shapes[0]);
    const uint32_t available = runtime::ByteSize(outputs[0]->shape);
    Assert(available >= needed, "%s: the output has %u bytes and needs %u", row_.name, available,
           needed);
  } else {
    outputs.push_back(pass.create(std::move(shapes[0])));
  }
  runtime::TransposeBuffer(input.RawPointer(), input.shape.dims, element_size, axes_,
                           outputs[0]->handle.cpu);
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
