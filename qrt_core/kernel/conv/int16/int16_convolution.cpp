#include "qrt_core/kernel/conv/int16/int16_convolution.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "qrt_core/kernel/conv/int16/int16_cores.h"
#include "qrt_core/kernel/conv/steps/conv_geometry.h"
#include "qrt_core/kernel/conv/steps/weight_packing.h"
#include "qrt_core/kernel/conv/steps/weights.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/inference_param.h"

namespace marlo::kernel {

using runtime::DataType;
using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

namespace functional {

std::shared_ptr<TensorCPU> Function_Tensor_Float_To_Int16(std::shared_ptr<TensorCPU> tensor,
                                                          uint16_t step,
                                                          std::shared_ptr<DeviceCPU> device) {
  const TensorShape& from = tensor->shape;
  const bool is_float =
      from.data_type == DataType::FLOAT32 && from.location == LocationType::MainMemory;
  std::shared_ptr<TensorCPU> output;
  if (device != nullptr && is_float) {
    output = device->CreateTensor(TensorShape(from.dims, DataType::INT16, from.layout,
                                              from.location, TensorShape::Extra(step)),
                                  nullptr);
  }
  Assert(output != nullptr, "Can't create output cpu tensor");
  const auto* values = static_cast<const float*>(tensor->RawPointer());
  auto* numbers = static_cast<int16_t*>(output->RawPointer());
  const float scale = std::ldexp(1.0f, step);
  for (size_t i = 0; i < runtime::ElementCount(from); ++i) {
    const float scaled = std::round(values[i] * scale);
    // A NaN fails both comparisons and becomes 0.
    const float limited = scaled > 32767.0f ? 32767.0f : scaled < -32768.0f ? -32768.0f : scaled;
    numbers[i] = std::isnan(limited) ? int16_t{0} : static_cast<int16_t>(limited);
  }
  return output;
}

}  // namespace functional

#if QRT_WITH_SSE

namespace {

constexpr uint32_t kBlock = 8;
constexpr int kLeastStep = 8;
constexpr int kMostStep = 12;

bool is_step(int step) { return step >= kLeastStep && step <= kMostStep; }

bool is_int16(const TensorShape& shape) {
  return shape.data_type == DataType::INT16 && shape.location == LocationType::MainMemory;
}

bool is_fixed_point_block(const KernelFamily::Tensors& tensors) {
  if (!is_one_in_main_memory(tensors)) return false;
  const TensorShape& shape = tensors[0]->shape;
  return is_int16(shape) && shape.layout == LayoutType::C8HW8 && is_step(shape.extra.step_size);
}

int16_t* numbers_of(TensorCPU& tensor) { return static_cast<int16_t*>(tensor.RawPointer()); }

}  // namespace

int FillBias_C8HW8_Int16_SSE(std::shared_ptr<TensorCPU> bias, std::shared_ptr<TensorCPU> output) {
  const TensorShape& from = bias->shape;
  const TensorShape& to = output->shape;
  const bool fits = is_int16(from) && is_int16(to) && from.layout == LayoutType::GN &&
                    to.layout == LayoutType::C8HW8 && to.dims.size() == 4 && to.dims[3] == kBlock;
  if (!fits) return runtime::KERNEL_BAD_TENSOR;
  const int16_t* values = numbers_of(*bias);
  const size_t count = runtime::ElementCount(from);
  int16_t* target = numbers_of(*output);
  const size_t pixels = size_t{to.dims[1]} * to.dims[2];
  for (size_t block = 0; block < to.dims[0]; ++block) {
    // Channels beyond the bias have none.
    int16_t eight[kBlock] = {};
    const size_t first = block * kBlock;
    if (first < count) std::copy_n(values + first, std::min<size_t>(kBlock, count - first), eight);
    for (size_t pixel = 0; pixel < pixels; ++pixel, target += kBlock) {
      std::memcpy(target, eight, sizeof eight);
    }
  }
  return runtime::KERNEL_OK;
}

int FillZero_Int16(std::shared_ptr<TensorCPU> output) {
  if (!is_int16(output->shape)) return runtime::KERNEL_BAD_TENSOR;
  std::fill_n(numbers_of(*output), runtime::ElementCount(output->shape), int16_t{0});
  return runtime::KERNEL_OK;
}

int Int16Convolution::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  const auto* steps = dynamic_cast<const runtime::InferenceParamConv2DQuant*>(param);
  const auto* description = dynamic_cast<const runtime::Conv2dInfo*>(info);
  if (steps == nullptr || description == nullptr) return runtime::KERNEL_REFUSED;
  if (!is_step(steps->weight_step_size) || !is_step(steps->output_step_size)) {
    return runtime::KERNEL_REFUSED;
  }
  return config_verdict(fits(row_.accepts, PlaneGeometry::params_of(*description)));
}

bool Int16Convolution::Configure(const LayerInfo* info, const InferenceParam* param,
                                 const Context& context) {
  const auto& steps = static_cast<const runtime::InferenceParamConv2DQuant&>(*param);
  const auto& description = static_cast<const runtime::Conv2dInfo&>(*info);
  weight_step_size_ = static_cast<uint16_t>(steps.weight_step_size);
  output_step_size_ = static_cast<uint16_t>(steps.output_step_size);
  params_ = PlaneGeometry::params_of(description);
  bias_ = nullptr;
  weight_ = decode_weights(description.weight, PlaneGeometry::weight_shape(params_), context);
  if (weight_ == nullptr) return false;
  weight_ = functional::Function_Weight_GNCHW_To_GN8C8HW8n8c(weight_, context.cpu);
  if (weight_ == nullptr) return false;
  weight_ = functional::Function_Tensor_Float_To_Int16(weight_, weight_step_size_, context.cpu);
  if (!params_.if_bias) return true;
  bias_ = decode_weights(description.bias,
                         bias_shape(params_.groups, params_.out_channels_per_group), context);
  if (bias_ == nullptr) return false;
  bias_ = functional::Function_Tensor_Float_To_Int16(bias_, output_step_size_, context.cpu);
  return true;
}

KernelFamily::Shapes Int16Convolution::InferOutputShapes(const Shapes& shapes) const {
  Assert(!shapes.empty() && shapes[0].dims.size() == 4, "%s: the input must have 4 dims",
         row_.name);
  const TensorShape& input = shapes[0];
  return {TensorShape(
      {(params_.out_channels + kBlock - 1) / kBlock, input.dims[1], input.dims[2], kBlock},
      input.data_type, input.layout, input.location, TensorShape::Extra(output_step_size_))};
}

int Int16Convolution::CheckInputs(const Tensors& tensors) const {
  if (!is_fixed_point_block(tensors)) return runtime::KERNEL_BAD_TENSOR;
  const std::vector<uint32_t>& dims = tensors[0]->shape.dims;
  return tensor_verdict(dims.size() == 4 && uint64_t{dims[0]} * dims[3] == params_.in_channels);
}

int Int16Convolution::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_fixed_point_block(tensors));
}

int Int16Convolution::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(weight_ != nullptr, "%s: not configured", row_.name);
  const bool readable = is_int16(inputs[0]->shape);
  Assert(readable, "%s: the input must be an INT16 tensor in blocks of 8", row_.name);
  auto& input = static_cast<TensorCPU&>(*inputs[0]);
  const std::vector<uint32_t>& dims = input.shape.dims;
  const uint32_t in_blocks = params_.in_channels_per_group / kBlock;
  Assert(dims.size() == 4 && dims[3] == kBlock && dims[0] >= in_blocks,
         "%s: the input must have 4 dims, the last of them %u, and %u channels", row_.name, kBlock,
         in_blocks * kBlock);
  auto output = pass.create(InferOutputShapes({input.shape})[0]);
  if (bias_ == nullptr) {
    FillZero_Int16(output);
  } else {
    FillBias_C8HW8_Int16_SSE(bias_, output);
  }
  Assert(is_step(weight_step_size_), "Invalid weight step size");
  conv::point_int16_sse(numbers_of(input), numbers_of(*weight_), numbers_of(*output), in_blocks,
                        params_.out_channels_per_group / kBlock, size_t{dims[1]} * dims[2],
                        weight_step_size_);
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

namespace {

void add_step_misfit(const char* member, int step, KernelFamily::Misfits& found) {
  if (is_step(step)) return;
  found.push_back({member, std::to_string(kLeastStep) + " to " + std::to_string(kMostStep),
                   std::to_string(step)});
}

}  // namespace

KernelFamily::Misfits Int16Convolution::refusals(const LayerInfo* info,
                                                 const InferenceParam* param) const {
  const auto* steps = dynamic_cast<const runtime::InferenceParamConv2DQuant*>(param);
  if (steps == nullptr) {
    return {{"inference parameter", "InferenceParamConv2DQuant",
             param == nullptr ? "none" : "another one"}};
  }
  const auto* description = dynamic_cast<const runtime::Conv2dInfo*>(info);
  if (description == nullptr) return {other_class<runtime::Conv2dInfo>(info)};
  const Conv2dParams params = PlaneGeometry::params_of(*description);
  Misfits found = misfits(row_.accepts, params);
  add_step_misfit("weight_step_size", steps->weight_step_size, found);
  add_step_misfit("output_step_size", steps->output_step_size, found);
  if (!found.empty()) return found;
  found = missing_numbers("weight", description->weight, PlaneGeometry::weight_shape(params).dims);
  if (!found.empty() || !params.if_bias) return found;
  return missing_numbers("bias", description->bias,
                         bias_shape(params.groups, params.out_channels_per_group).dims);
}

KernelFamily::Misfits Int16Convolution::input_refusals(const Shapes& inputs) const {
  if (inputs.size() == 1 && is_int16(inputs[0]) && inputs[0].layout == LayoutType::C8HW8 &&
      !is_step(inputs[0].extra.step_size)) {
    Misfits found;
    add_step_misfit("step size of input 0", inputs[0].extra.step_size, found);
    return found;
  }
  return input_misfits({LayoutType::C8HW8, false, true}, DataType::INT16, params_.in_channels,
                       PlaneGeometry::kDims, inputs);
}

KernelFamily::Misfits Int16Convolution::differences(const LayerInfo& info, const Shapes&) const {
  const auto* description = dynamic_cast<const runtime::Conv2dInfo*>(&info);
  if (description == nullptr) return {};
  return channel_differences(Computes::first_group, LayoutType::C8HW8, LayoutType::C8HW8,
                             PlaneGeometry::params_of(*description));
}

#endif

}  // namespace marlo::kernel
