#include "qrt_core/kernel/conv/convolution.h"

#include <type_traits>
#include <utility>

#include "qrt_core/kernel/conv/weights.h"
#include "qrt_core/kernel/tensor_checks.h"

namespace marlo::kernel {

using runtime::BlockSize;
using runtime::DataType;
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
  return row_.accepts(Geometry::params_of(*description)) ? runtime::KERNEL_OK
                                                         : runtime::KERNEL_REFUSED;
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

// The tensor that the core reads. What would send the core beyond it is refused here.
template <typename Geometry>
std::shared_ptr<TensorCPU> Convolution<Geometry>::prepared_input(const Tensors& inputs,
                                                                 const Pass& pass) const {
  TensorCPU& input = float_input(row_.name, inputs);
  const std::vector<uint32_t>& dims = input.shape.dims;
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
  const bool readable = input.shape.data_type == DataType::FLOAT32 &&
                        input.shape.location == runtime::LocationType::MainMemory &&
                        input.shape.layout == layout;
  Assert(readable, "%s: the input must be FLOAT32 of layout %u in main memory", row_.name,
         static_cast<uint32_t>(layout));
  auto tensor = std::static_pointer_cast<TensorCPU>(inputs[0]);
  if (row_.pad != nullptr) tensor = row_.pad(tensor, params_, pass.shared_device());
  Assert(tensor != nullptr, "%s: the input can't be padded", row_.name);
  return tensor;
}

template <typename Geometry>
std::shared_ptr<TensorCPU> Convolution<Geometry>::initial_output(const TensorShape& shape,
                                                                 const Pass& pass) const {
  auto output = pass.create(shape);
  const uint32_t block = BlockSize(row_.output.layout);
  uint32_t computed = params_.groups == 1 ? params_.out_channels : 0;
  if (row_.is_depthwise) computed = params_.groups;
  const bool writes_all = computed == params_.out_channels && computed % block == 0;
  if (row_.starts_from_bias && writes_all) return output;
  // Planes beyond the last whole group have no bias and are never computed.
  const bool all_have_bias =
      bias_ != nullptr && params_.groups * params_.out_channels_per_group == params_.out_channels;
  if (!all_have_bias) FillZero_Float(output);
  if (bias_ != nullptr) row_.fill_bias(bias_, output);
  return output;
}

template <typename Geometry>
ConvTask Convolution<Geometry>::task_of(const TensorCPU& input, TensorCPU& output) const {
  ConvTask task = Geometry::task_of(params_, input.shape.dims, output.shape.dims);
  task.input = static_cast<const float*>(input.RawPointer());
  task.weight = floats_of(weight_);
  task.bias = floats_of(bias_);
  task.output = static_cast<float*>(output.RawPointer());
  task.in_blocks = params_.in_channels_per_group / BlockSize(row_.input.layout);
  task.out_blocks = params_.out_channels_per_group / BlockSize(row_.output.layout);
  return task;
}

template <typename Geometry>
int Convolution<Geometry>::Forward(const Tensors& inputs, Tensors& outputs,
                                   const Pass& pass) const {
  const auto input = prepared_input(inputs, pass);
  TensorShape shape = output_shape(inputs[0]->shape);
  Geometry::enlarge(params_, shape.dims);
  auto output = initial_output(shape, pass);
  // A transposed output may have no columns and billions of rows.
  if (runtime::ElementCount(output->shape) != 0) {
    const ConvTask task = task_of(*input, *output);
    if (row_.method != nullptr) {
      row_.method(task, pass.device());
    } else {
      row_.core(task);
    }
  }
  output = cropped(std::move(output), pass);
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

template <typename Geometry>
std::shared_ptr<TensorCPU> Convolution<Geometry>::cropped(TensorPointer result,
                                                          const Pass& pass) const {
  if constexpr (std::is_same_v<Geometry, ScatterGeometry>) {
    result = row_.crop(result, params_.padding_l, params_.padding_r, params_.padding_t,
                       params_.padding_b, pass.shared_device());
    Assert(result != nullptr, "%s: %s", row_.name, Geometry::kMisfit);
  }
  return result;
}

template class Convolution<PlaneGeometry>;
template class Convolution<TransposedGeometry>;
template class Convolution<LineGeometry>;
template class Convolution<ScatterGeometry>;

}  // namespace marlo::kernel
