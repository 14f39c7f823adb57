#include "qrt_core/kernel/basic/adaptive_pooling.h"

#include <algorithm>
#include <cmath>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/pooling_info.h"

namespace marlo::kernel {

using runtime::AdaptiveAvgPool2dInfo;
using runtime::LayoutType;
using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

namespace {

// The windows along one dimension.
class Windows {
 public:
  Windows(uint32_t from, uint32_t to)
      : size_(from), scale_(static_cast<float>(from) / static_cast<float>(to)) {}

  size_t begin(size_t i) const {
    return static_cast<size_t>(std::floor(static_cast<float>(i) * scale_));
  }
  size_t end(size_t i) const {
    return std::min(static_cast<size_t>(std::ceil(static_cast<float>(i + 1) * scale_)), size_);
  }

 private:
  size_t size_;
  float scale_;
};

float average(const float* plane, size_t row_size, size_t r0, size_t r1, size_t c0, size_t c1) {
  float sum = 0.0f;
  for (size_t r = r0; r < r1; ++r) {
    const float* row = plane + r * row_size;
    for (size_t c = c0; c < c1; ++c) sum += row[c];
  }
  return sum / static_cast<float>(r1 - r0) / static_cast<float>(c1 - c0);
}

}  // namespace

int AdaptivePooling::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits AdaptivePooling::refusals(const LayerInfo* info,
                                                const InferenceParam* param) const {
  Expectations expected;
  const auto* pooling = expected.describe<AdaptiveAvgPool2dInfo>(info, param);
  if (pooling != nullptr) {
    expected.expect(pooling->output_size.size() >= 2, "output_size", "a height and a width",
                    counted(pooling->output_size.size(), "number"));
  }
  return std::move(expected).unmet();
}

KernelFamily::Misfits AdaptivePooling::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.one_float_of(inputs, LayoutType::CHW);
  return std::move(expected).unmet();
}

bool AdaptivePooling::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& pooling = static_cast<const AdaptiveAvgPool2dInfo&>(*info);
  height_ = pooling.output_size[0];
  width_ = pooling.output_size[1];
  return true;
}

KernelFamily::Shapes AdaptivePooling::InferOutputShapes(const Shapes& shapes) const {
  Assert(!shapes.empty() && shapes[0].dims.size() == 3, "%s: the input must have 3 dims",
         row_.name);
  const TensorShape& input = shapes[0];
  return {
      TensorShape({input.dims[0], height_, width_}, input.data_type, input.layout, input.location)};
}

int AdaptivePooling::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float(tensors) && tensors[0]->shape.layout == LayoutType::CHW);
}

int AdaptivePooling::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const TensorCPU& input = float_input(row_.name, inputs);
  auto result = pass.create(InferOutputShapes({input.shape})[0]);
  const std::vector<uint32_t>& dims = input.shape.dims;
  const Windows rows(dims[1], height_);
  const Windows columns(dims[2], width_);
  const size_t row_size = dims[2];
  const float* plane = static_cast<const float*>(input.RawPointer());
  float* output = static_cast<float*>(result->RawPointer());
  for (uint32_t c = 0; c < dims[0]; ++c, plane += dims[1] * row_size) {
    for (uint32_t i = 0; i < height_; ++i) {
      for (uint32_t j = 0; j < width_; ++j) {
        *output++ =
            average(plane, row_size, rows.begin(i), rows.end(i), columns.begin(j), columns.end(j));
      }
    }
  }
  outputs.push_back(std::move(result));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
