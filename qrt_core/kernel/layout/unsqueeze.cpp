#include "qrt_core/kernel/layout/unsqueeze.h"

#include <utility>

#include "qrt_core/kernel/layout/one_tensor.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/runtime/model/shape_info.h"

namespace marlo::kernel {

using runtime::DataType;
using runtime::TensorShape;
using runtime::TensorUnSqueezeInfo;
using utility::Assert;

int UnSqueeze::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits UnSqueeze::refusals(const LayerInfo* info,
                                          const InferenceParam* param) const {
  Expectations expected;
  expected.describe<TensorUnSqueezeInfo>(info, param);
  return std::move(expected).unmet();
}

KernelFamily::Misfits UnSqueeze::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs", "one FLOAT32 or INT16 tensor in main memory",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

// Where the new axis stands; outside of 0 to `dims` where there is no such place.
int64_t UnSqueeze::position_among(size_t dims) const {
  const int64_t position = dim_ >= 1 ? dim_ - 1 : dim_;
  return position < 0 ? position + static_cast<int64_t>(dims) + 1 : position;
}

KernelFamily::Misfits UnSqueeze::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  const size_t dims = inputs.empty() ? 0 : inputs[0].dims.size();
  const int64_t position = position_among(dims);
  expected.expect(position >= 0 && position <= static_cast<int64_t>(dims), "dim",
                  "a place among " + counted(dims, "dim") + " behind the batch",
                  std::to_string(dim_));
  return std::move(expected).unmet();
}

bool UnSqueeze::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  dim_ = static_cast<const TensorUnSqueezeInfo&>(*info).dim;
  return true;
}

KernelFamily::Shapes UnSqueeze::InferOutputShapes(const Shapes& shapes) const {
  TensorShape shape = any_shape(row_.name, shapes);
  const int64_t position = position_among(shape.dims.size());
  Assert(position >= 0 && position <= static_cast<int64_t>(shape.dims.size()), nullptr);
  shape.dims.insert(shape.dims.begin() + position, 1);
  return {std::move(shape)};
}

int UnSqueeze::CheckInputs(const Tensors& tensors) const {
  if (!is_one_in_main_memory(tensors)) return runtime::KERNEL_BAD_TENSOR;
  const DataType type = tensors[0]->shape.data_type;
  return tensor_verdict(type == DataType::FLOAT32 || type == DataType::INT16);
}

int UnSqueeze::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const runtime::TensorCPU& input = any_input(inputs);
  Shapes shapes = InferOutputShapes({input.shape});
  append_copy(row_.name, input, std::move(shapes[0]), pass, outputs);
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
