#include "qrt_core/kernel/basic/softmax.h"

#include <cmath>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/elementwise_info.h"

namespace marlo::kernel {

using runtime::SoftmaxInfo;
using utility::Assert;

namespace {

// Computes the exponentials twice rather than keep them: there is no scratch memory.
void normalise_line(const float* in, size_t count, size_t stride, float* out) {
  double sum = 0.0;
  for (size_t k = 0; k < count; ++k) sum += std::exp(in[k * stride]);
  for (size_t k = 0; k < count; ++k) {
    const float e = std::exp(in[k * stride]);
    out[k * stride] = static_cast<float>(e / sum);
  }
}

}  // namespace

int Softmax::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits Softmax::refusals(const LayerInfo* info, const InferenceParam* param) const {
  Expectations expected;
  expected.describe<SoftmaxInfo>(info, param);
  return std::move(expected).unmet();
}

KernelFamily::Misfits Softmax::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(false, "inputs", "a FLOAT32 tensor in main memory as the first",
                  runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

KernelFamily::Misfits Softmax::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  const size_t dims = inputs.empty() ? 0 : inputs[0].dims.size();
  expected.expect(dim_ >= 1 && dim_ <= dims, "dim",
                  "an axis of the input, counted from 1, which has " + counted(dims, "dim"),
                  std::to_string(dim_));
  return std::move(expected).unmet();
}

bool Softmax::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  dim_ = static_cast<const SoftmaxInfo&>(*info).dim;
  return true;
}

int Softmax::CheckInputs(const Tensors& tensors) const {
  const bool fits = !tensors.empty() && tensors[0] != nullptr &&
                    tensors[0]->shape.location == runtime::LocationType::MainMemory &&
                    tensors[0]->shape.data_type == runtime::DataType::FLOAT32;
  return tensor_verdict(fits);
}

int Softmax::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const runtime::TensorCPU& input = float_input(row_.name, inputs);
  const std::vector<uint32_t>& dims = input.shape.dims;
  Assert(dim_ >= 1 && dim_ <= dims.size(), "%s: dim %u is no axis of an input of %zu dims",
         row_.name, dim_, dims.size());
  const size_t axis = dim_ - 1;
  size_t outer = 1;
  for (size_t k = 0; k < axis; ++k) outer *= dims[k];
  size_t inner = 1;
  for (size_t k = axis + 1; k < dims.size(); ++k) inner *= dims[k];

  auto output = pass.create(input.shape);
  const auto* in = static_cast<const float*>(input.RawPointer());
  auto* out = static_cast<float*>(output->RawPointer());
  for (size_t o = 0; o < outer; ++o) {
    for (size_t i = 0; i < inner; ++i) {
      const size_t first = o * dims[axis] * inner + i;
      normalise_line(in + first, dims[axis], inner, out + first);
    }
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
