#include "qrt_core/kernel/conv/convolution.h"

#include "qrt_core/kernel/conv/weights.h"
#include "qrt_core/kernel/tensor_checks.h"

namespace marlo::kernel {

using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

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
  weight_ = decode_weights(description.weight, Geometry::weight_shape(params_), context);
  bias_ = nullptr;
  if (weight_ == nullptr) return false;
  if (!params_.if_bias) return true;
  bias_ = decode_weights(description.bias,
                         bias_shape(params_.groups, params_.out_channels_per_group), context);
  return bias_ != nullptr;
}

template <typename Geometry>
KernelFamily::Shapes Convolution<Geometry>::InferOutputShapes(const Shapes& shapes) const {
  const bool usable = !shapes.empty() && shapes[0].dims.size() == Geometry::kDims;
  Assert(usable, "%s: the input must have %zu dims", row_.name, Geometry::kDims);
  const TensorShape& input = shapes[0];
  return {TensorShape(Geometry::output_dims(params_, input.dims), input.data_type, input.layout,
                      input.location)};
}

template <typename Geometry>
bool Convolution<Geometry>::is_plane_of(const Tensors& tensors, uint32_t channels) const {
  if (!is_one_float_of(tensors, row_.layout)) return false;
  const TensorShape& shape = tensors[0]->shape;
  return !shape.dims.empty() && shape.dims[0] == channels;
}

template <typename Geometry>
int Convolution<Geometry>::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(is_plane_of(tensors, params_.in_channels));
}

template <typename Geometry>
int Convolution<Geometry>::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_plane_of(tensors, params_.out_channels));
}

// The tensor that the core reads. What would send the core beyond it is refused here.
template <typename Geometry>
std::shared_ptr<TensorCPU> Convolution<Geometry>::prepared_input(const Tensors& inputs,
                                                                 const Context& context) const {
  TensorCPU& input = float_input(row_.name, inputs);
  const std::vector<uint32_t>& dims = input.shape.dims;
  Assert(weight_ != nullptr, "%s: not configured", row_.name);
  const uint32_t channels = params_.groups * params_.in_channels_per_group;
  Assert(dims.size() == Geometry::kDims && dims[0] >= channels,
         "%s: the input must have %zu dims and %u channels", row_.name, Geometry::kDims, channels);
  Assert(Geometry::window_fits(params_, dims), "%s: the window is larger than the padded input",
         row_.name);
  const bool readable = input.shape.data_type == runtime::DataType::FLOAT32 &&
                        input.shape.location == runtime::LocationType::MainMemory &&
                        input.shape.layout == row_.layout;
  Assert(readable, "%s: the input must be FLOAT32 of layout %u in main memory", row_.name,
         static_cast<uint32_t>(row_.layout));
  device_of(row_.name, context);
  auto tensor = std::static_pointer_cast<TensorCPU>(inputs[0]);
  return row_.pad == nullptr ? tensor : row_.pad(tensor, params_, context.cpu);
}

template <typename Geometry>
std::shared_ptr<TensorCPU> Convolution<Geometry>::initial_output(const TensorShape& input,
                                                                 const Context& context) const {
  auto output =
      context.cpu->CreateTensor(TensorShape(Geometry::output_dims(params_, input.dims),
                                            input.data_type, input.layout, input.location),
                                nullptr);
  // Planes beyond the last whole group have no bias and are never computed.
  const bool all_have_bias =
      bias_ != nullptr && params_.groups * params_.out_channels_per_group == params_.out_channels;
  if (!all_have_bias) FillZero_Float(output);
  if (bias_ != nullptr) row_.fill_bias(bias_, output);
  return output;
}

template <typename Geometry>
int Convolution<Geometry>::Forward(const Tensors& inputs, Tensors& outputs,
                                   const Context& context) const {
  const auto input = prepared_input(inputs, context);
  auto output = initial_output(inputs[0]->shape, context);
  ConvTask task = Geometry::task_of(params_, input->shape.dims, output->shape.dims);
  task.input = static_cast<const float*>(input->RawPointer());
  task.weight = static_cast<const float*>(weight_->RawPointer());
  task.output = static_cast<float*>(output->RawPointer());
  // A transposed output may have no columns and billions of rows.
  if (runtime::ElementCount(output->shape) != 0) row_.core(task);
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

template class Convolution<PlaneGeometry>;
template class Convolution<TransposedGeometry>;
template class Convolution<LineGeometry>;

}  // namespace marlo::kernel
