#include "qrt_core/kernel/layout/placeholder.h"

#include <algorithm>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/layer_info.h"

namespace marlo::kernel {

using runtime::LayerPlaceholderInfo;
using runtime::TensorShape;

namespace {

constexpr float kValue = 128.0f;

}  // namespace

int Placeholder::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits Placeholder::refusals(const LayerInfo* info,
                                            const InferenceParam* param) const {
  Expectations expected;
  const auto* placeholder = expected.describe<LayerPlaceholderInfo>(info, param);
  if (placeholder != nullptr) {
    expected.expect(!placeholder->output_shape.empty(), "output_shape", "sizes", "none");
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits Placeholder::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs", "a tensor in main memory as the first",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

bool Placeholder::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  output_shape_ = static_cast<const LayerPlaceholderInfo&>(*info).output_shape;
  return true;
}

KernelFamily::Shapes Placeholder::InferOutputShapes(const Shapes&) const {
  return {TensorShape(std::vector<uint32_t>(output_shape_.begin(), output_shape_.end()),
                      runtime::DataType::FLOAT32, runtime::LayoutType::CHW)};
}

int Placeholder::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(!tensors.empty() && tensors[0] != nullptr &&
                        tensors[0]->shape.location == runtime::LocationType::MainMemory);
}

int Placeholder::Forward(const Tensors&, Tensors& outputs, const Pass& pass) const {
  auto output = pass.create(InferOutputShapes({})[0]);
  std::fill_n(static_cast<float*>(output->RawPointer()), runtime::ElementCount(output->shape),
              kValue);
  outputs.clear();
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
