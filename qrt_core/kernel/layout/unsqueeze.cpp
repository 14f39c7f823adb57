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

bool UnSqueeze::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  dim_ = static_cast<const TensorUnSqueezeInfo&>(*info).dim;
  return true;
}

KernelFamily::Shapes UnSqueeze::InferOutputShapes(const Shapes& shapes) const {
  TensorShape shape = any_shape(row_.name, shapes);
  const auto rank = static_cast<int64_t>(shape.dims.size());
  int64_t position = dim_;
  if (position >= 1) --position;
  Assert(position <= rank, nullptr);
  if (position < 0) {
    Assert(position >= -1 - rank, nullptr);
    position += rank + 1;
  }
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
