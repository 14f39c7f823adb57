#include "qrt_core/kernel/basic/adaptive_pooling.h"

#include <algorithm>
#include <cmath>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/pooling_info.h"

namespace marlo::kernel {

using runtime::AdaptiveAvgPool2dInfo;
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

}  // namespace

void pooling::window_average_portable(const float* first, size_t row_floats, size_t height,
                                      size_t width, float* average) noexcept {
  float sum = 0.0f;
  for (size_t r = 0; r < height; ++r, first += row_floats) {
    for (size_t c = 0; c < width; ++c) sum += first[c];
  }
  *average = sum / static_cast<float>(height) / static_cast<float>(width);
}

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
  expected.one_float_of(inputs, row_.layout);
  return std::move(expected).unmet();
}

bool AdaptivePooling::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& pooling = static_cast<const AdaptiveAvgPool2dInfo&>(*info);
  height_ = pooling.output_size[0];
  width_ = pooling.output_size[1];
  return true;
}

KernelFamily::Shapes AdaptivePooling::InferOutputShapes(const Shapes& shapes) const {
  const uint32_t block = runtime::BlockSize(row_.layout);
  const size_t rank = block == 1 ? 3 : 4;
  Assert(!shapes.empty() && shapes[0].dims.size() == rank, "%s: the input must have %zu dims",
         row_.name, rank);
  Assert(block == 1 || shapes[0].dims[3] == block, "%s: a pixel must have %u channels", row_.name,
         block);
  TensorShape output(shapes[0].dims, shapes[0].data_type, shapes[0].layout, shapes[0].location);
  output.dims[1] = height_;
  output.dims[2] = width_;
  return {output};
}

int AdaptivePooling::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float(tensors) && tensors[0]->shape.layout == row_.layout);
}

int AdaptivePooling::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const TensorCPU& input = float_input(row_.name, inputs);
  auto result = pass.create(InferOutputShapes({input.shape})[0]);
  const std::vector<uint32_t>& dims = input.shape.dims;
  const Windows rows(dims[1], height_);
  const Windows columns(dims[2], width_);
  const size_t block = runtime::BlockSize(row_.layout);
  const size_t row_floats = dims[2] * block;
  const float* plane = static_cast<const float*>(input.RawPointer());
  float* output = static_cast<float*>(result->RawPointer());
  for (uint32_t c = 0; c < dims[0]; ++c, plane += dims[1] * row_floats) {
    for (uint32_t i = 0; i < height_; ++i) {
      const float* const row = plane + rows.begin(i) * row_floats;
      for (uint32_t j = 0; j < width_; ++j, output += block) {
        row_.average(row + columns.begin(j) * block, row_floats, rows.end(i) - rows.begin(i),
                     columns.end(j) - columns.begin(j), output);
      }
    }
  }
  outputs.push_back(std::move(result));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
