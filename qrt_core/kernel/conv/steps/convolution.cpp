#include "qrt_core/kernel/conv/steps/convolution.h"

#include <algorithm>
#include <utility>

#include "qrt_core/kernel/conv/steps/weights.h"
#include "qrt_core/kernel/layout/crop.h"
#include "qrt_core/kernel/layout/padding.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"

namespace marlo::kernel {

using runtime::BlockSize;
using runtime::DataType;
using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

namespace {

// Whether the last dim of a blocked tensor is its block.
bool has_dims(const std::vector<uint32_t>& dims, size_t planar_dims, LayoutType layout) {
  const uint32_t block = BlockSize(layout);
  if (block == 1) return dims.size() == planar_dims;
  return dims.size() == planar_dims + 1 && dims.back() == block;
}

bool has_channels(const std::vector<uint32_t>& dims, LayoutType layout, uint32_t channels) {
  if (BlockSize(layout) == 1) return !dims.empty() && dims[0] == channels;
  return dims.size() == 4 && uint64_t{dims[0]} * dims[3] == channels;
}

bool passes(const KernelFamily::Tensors& tensors, const ConvolutionSide& side, uint32_t channels) {
  if (!is_one_in_main_memory(tensors)) return false;
  const TensorShape& shape = tensors[0]->shape;
  const bool right_type = shape.data_type == DataType::FLOAT32 ||
                          (side.passes_half && shape.data_type == DataType::FLOAT16);
  if (!right_type || shape.layout != side.layout) return false;
  return !side.tests_channels || has_channels(shape.dims, side.layout, channels);
}

const float* floats_of(const std::shared_ptr<TensorCPU>& tensor) {
  return tensor == nullptr ? nullptr : static_cast<const float*>(tensor->RawPointer());
}

}  // namespace

template <typename Geometry>
int Convolution<Geometry>::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  const auto* description = dynamic_cast<const typename Geometry::Info*>(info);
  if (param != nullptr || description == nullptr) return runtime::KERNEL_REFUSED;
  return config_verdict(fits(row_.accepts, Geometry::as_plane(Geometry::params_of(*description))));
}

template <typename Geometry>
bool Convolution<Geometry>::Configure(const LayerInfo* info, const InferenceParam*,
                                      const Context& context) {
  const auto& description = static_cast<const typename Geometry::Info&>(*info);
  params_ = Geometry::params_of(description);
  weight_ = nullptr;
  if (!Geometry::has_strides(params_)) return false;
  weight_ = decode_weights(description.weight, Geometry::weight_shape(params_), context);
  bias_ = nullptr;
  if (weight_ != nullptr && row_.pack != nullptr) weight_ = row_.pack(weight_, context.cpu);
  if (weight_ != nullptr && row_.pack_for != nullptr) {
    weight_ = row_.pack_for(weight_, params_, context.cpu);
  }
  if (weight_ == nullptr) return false;
  if (!params_.if_bias) return true;
  bias_ = decode_weights(description.bias,
                         bias_shape(params_.groups, params_.out_channels_per_group), context);
  return bias_ != nullptr;
}

// The output of an input whose number of dims has been tested. A layout other than the input's is
// named only by a kernel that changes it.
template <typename Geometry>
TensorShape Convolution<Geometry>::output_shape(const TensorShape& input) const {
  std::vector<uint32_t> dims = Geometry::output_dims(params_, input.dims);
  const uint32_t block = BlockSize(row_.output.layout);
  if (block > 1) {
    dims[0] = (dims[0] + block - 1) / block;
    dims.push_back(block);
  }
  const bool changes = row_.output.layout != row_.input.layout;
  return TensorShape(std::move(dims), input.data_type, changes ? row_.output.layout : input.layout,
                     input.location);
}

template <typename Geometry>
KernelFamily::Shapes Convolution<Geometry>::InferOutputShapes(const Shapes& shapes) const {
  const size_t dims = Geometry::kDims + (BlockSize(row_.input.layout) > 1 ? 1 : 0);
  const bool usable = !shapes.empty() && shapes[0].dims.size() == dims;
  Assert(usable, "%s: the input must have %zu dims", row_.name, dims);
  return {output_shape(shapes[0])};
}

template <typename Geometry>
int Convolution<Geometry>::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(passes(tensors, row_.input, params_.in_channels));
}

template <typename Geometry>
int Convolution<Geometry>::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(passes(tensors, row_.output, params_.out_channels));
}

// Refuses what would send the core outside the input.
template <typename Geometry>
void Convolution<Geometry>::check_input(const Tensors& inputs) const {
  const TensorShape& shape = float_input(row_.name, inputs).shape;
  const std::vector<uint32_t>& dims = shape.dims;
  Assert(weight_ != nullptr, "%s: not configured", row_.name);
  const LayoutType layout = row_.input.layout;
  const uint32_t channels = params_.groups * params_.in_channels_per_group;
  const uint32_t block = BlockSize(layout);
  if (!has_dims(dims, Geometry::kDims, layout) || dims[0] < channels / block) {
    Assert(block != 1, "%s: the input must have %zu dims and %u channels", row_.name,
           Geometry::kDims, channels);
    Assert(false, "%s: the input must have %zu dims, the last of them %u, and %u channels",
           row_.name, Geometry::kDims + 1, block, channels);
  }
  Assert(Geometry::window_fits(params_, dims), "%s: %s", row_.name, Geometry::kMisfit);
  const bool readable = shape.data_type == DataType::FLOAT32 &&
                        shape.location == runtime::LocationType::MainMemory &&
                        (row_.takes_any_layout || shape.layout == layout);
  Assert(readable, "%s: the input must be FLOAT32 of layout %u in main memory", row_.name,
         static_cast<uint32_t>(layout));
}

// The input or its padded copy, which is larger by the row's room.
template <typename Geometry>
auto Convolution<Geometry>::source_of(TensorPointer input, DeviceCPU& device) const -> Source {
  std::vector<uint32_t> dims = input->shape.dims;
  if (row_.margin == Margin::none) return {std::move(input), std::move(dims)};
  Frame frame = Geometry::padding_of(params_);
  if (row_.margin == Margin::to_even) {
    frame.right += dims[2] % 2;
    frame.bottom += dims[1] % 2;
  }
  const size_t planes = dims[0];
  const size_t height = Geometry::kDims == 2 ? 1 : dims[1];
  const uint32_t block = BlockSize(row_.input.layout);
  const size_t width = size_t{dims[Geometry::kDims - 1]} * block;
  Geometry::enlarge(frame, dims);
  frame.left *= block;
  frame.right *= block;

  constexpr uint64_t kMost = UINT32_MAX;  // a tensor of so many floats is refused
  const uint64_t rows = uint64_t{planes} * (height + frame.top + frame.bottom);
  const uint64_t row = width + frame.left + frame.right;
  const uint64_t floats = row == 0 || rows <= kMost / row ? rows * row : kMost;
  const auto size = static_cast<uint32_t>(floats + row_.room <= kMost ? floats + row_.room : kMost);
  auto copy = device.CreateF32FlexiableMainMemory({size}, nullptr);
  frame_planes(static_cast<const float*>(input->RawPointer()), planes, height, width, frame, 0.0f,
               static_cast<float*>(copy->RawPointer()));
  return {std::move(copy), std::move(dims)};
}

// Output channels that the core writes. A group without channels has no weights.
template <typename Geometry>
uint32_t Convolution<Geometry>::computed_channels() const {
  if (row_.computes == Computes::filter_per_channel) {
    return params_.in_channels_per_group == 0 ? 0 : params_.groups;
  }
  if (row_.computes == Computes::all_groups) return params_.groups * params_.out_channels_per_group;
  return params_.groups == 1 ? params_.out_channels : 0;
}

template <typename Geometry>
std::shared_ptr<TensorCPU> Convolution<Geometry>::initial_output(const TensorShape& shape,
                                                                 DeviceCPU& device) const {
  auto output = device.CreateTensor(shape, nullptr);
  const uint32_t block = BlockSize(row_.output.layout);
  if (row_.starts_from_bias && computed_channels() == output->shape.dims[0] * block) return output;
  // Planes beyond the last whole group have no bias and are never computed.
  const uint32_t channels = params_.groups * params_.out_channels_per_group;
  auto* floats = static_cast<float*>(output->RawPointer());
  const size_t count = runtime::ElementCount(output->shape);
  if (bias_ == nullptr || channels != params_.out_channels) std::fill_n(floats, count, 0.0f);
  if (bias_ != nullptr) {
    fill_channels(floats_of(bias_), channels, floats, output->shape.dims[0], output->strides[0],
                  block, row_.fill);
  }
  return output;
}

template <typename Geometry>
ConvTask Convolution<Geometry>::task_of(const Source& source, TensorCPU& output) const {
  ConvTask task = Geometry::task_of(params_, source.dims, output.shape.dims);
  task.input = floats_of(source.memory);
  task.weight = floats_of(weight_);
  task.bias = floats_of(bias_);
  task.epilogue = row_.epilogue;
  task.output = static_cast<float*>(output.RawPointer());
  task.in_blocks = params_.in_channels_per_group / BlockSize(row_.input.layout);
  task.out_blocks = params_.out_channels_per_group / BlockSize(row_.output.layout);
  return task;
}

// What lies inside a frame of the result.
template <typename Geometry>
std::shared_ptr<TensorCPU> Convolution<Geometry>::without(const Frame& frame, TensorPointer result,
                                                          DeviceCPU& device) const {
  if (frame.is_empty()) return result;
  TensorShape shape = result->shape;
  const std::vector<uint32_t>& dims = result->shape.dims;
  shape.dims[1] -= frame.top + frame.bottom;
  shape.dims[2] -= frame.left + frame.right;
  auto inside = device.CreateTensor(std::move(shape), nullptr);
  const uint32_t block = BlockSize(row_.output.layout);
  crop_planes(floats_of(result), dims[0], dims[1], size_t{dims[2]} * block,
              {frame.left * block, frame.right * block, frame.top, frame.bottom},
              static_cast<float*>(inside->RawPointer()));
  return inside;
}

template <typename Geometry>
int Convolution<Geometry>::Forward(const Tensors& inputs, Tensors& outputs,
                                   const Pass& pass) const {
  check_input(inputs);
  DeviceCPU& device = pass.device();
  const Source source = source_of(std::static_pointer_cast<TensorCPU>(inputs[0]), device);
  const Frame surplus = Geometry::surplus_of(params_);
  TensorShape shape = output_shape(inputs[0]->shape);
  Geometry::enlarge(surplus, shape.dims);
  auto output = row_.input_use == runtime::InputUse::overwrites ? source.memory
                                                                : initial_output(shape, device);
  // A transposed output may have no columns and billions of rows.
  if (runtime::ElementCount(output->shape) != 0) {
    const ConvTask task = task_of(source, *output);
    if (row_.method != nullptr) {
      row_.method(task, device);
    } else {
      row_.core(task);
    }
  }
  outputs.push_back(without(surplus, std::move(output), device));
  return runtime::KERNEL_OK;
}

template <typename Geometry>
KernelFamily::Misfits Convolution<Geometry>::refusals(const LayerInfo* info,
                                                      const InferenceParam* param) const {
  if (param != nullptr) return {{"inference parameter", "none", "one"}};
  const auto* description = dynamic_cast<const typename Geometry::Info*>(info);
  if (description == nullptr) return {other_class<typename Geometry::Info>(info)};
  const Params params = Geometry::params_of(*description);
  const Conv2dParams plane = Geometry::as_plane(params);
  Misfits found = misfits(row_.accepts, plane, Geometry::kDims == 2);
  if (!found.empty()) return found;
  if (!Geometry::has_strides(params)) {
    return {{"stride_y, stride_x", "above 0",
             std::to_string(plane.stride_y) + " x " + std::to_string(plane.stride_x)}};
  }
  found = missing_numbers("weight", description->weight, Geometry::weight_shape(params).dims);
  if (!found.empty() || !params.if_bias) return found;
  return missing_numbers("bias", description->bias,
                         bias_shape(params.groups, params.out_channels_per_group).dims);
}

template <typename Geometry>
KernelFamily::Misfits Convolution<Geometry>::input_refusals(const Shapes& inputs) const {
  return input_misfits(row_.input, DataType::FLOAT32, params_.in_channels, Geometry::kDims, inputs);
}

template <typename Geometry>
KernelFamily::Misfits Convolution<Geometry>::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.empty() || !has_dims(inputs[0].dims, Geometry::kDims, row_.input.layout)) return {};
  const auto& plane = Geometry::as_plane(params_);
  expected.expect(
      Geometry::window_fits(params_, inputs[0].dims), "input 0",
      "room for a window of " + by(plane.kernel_y, plane.kernel_x) + ", paddings included",
      runtime::ShapeText(inputs[0]));
  return std::move(expected).unmet();
}

template <typename Geometry>
KernelFamily::Misfits Convolution<Geometry>::differences(const LayerInfo& info,
                                                         const Shapes& inputs) const {
  const auto* description = dynamic_cast<const typename Geometry::Info*>(&info);
  if (description == nullptr) return {};
  const Params params = Geometry::params_of(*description);
  Misfits found = channel_differences(row_.computes, row_.input.layout, row_.output.layout,
                                      Geometry::as_plane(params));
  add_epilogue_difference(row_.epilogue, found);
  const bool has_input = !inputs.empty() && inputs[0].dims.size() >= Geometry::kDims;
  if (!has_input) return found;
  if (inputs[0].data_type == DataType::FLOAT16) {
    found.push_back({"input 0", "FLOAT32, which a pass computes", "FLOAT16"});
  }
  if (row_.leaves_odd_ends && Geometry::window_fits(params, inputs[0].dims)) {
    const std::vector<uint32_t> dims = Geometry::output_dims(params, inputs[0].dims);
    if (dims[1] % 2 != 0 || dims[2] % 2 != 0) {
      found.push_back({"output", "an even size; an odd last row or column holds the bias alone",
                       std::to_string(dims[1]) + " x " + std::to_string(dims[2])});
    }
  }
  return found;
}

template class Convolution<PlaneGeometry>;
template class Convolution<TransposedGeometry>;
template class Convolution<LineGeometry>;
template class Convolution<ScatterGeometry>;

}  // namespace marlo::kernel
