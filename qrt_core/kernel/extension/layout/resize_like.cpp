#include "qrt_core/kernel/extension/layout/resize_like.h"

#include <algorithm>
#include <string>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::kernel {

using axes::Dims;
using runtime::TensorShape;
using utility::Assert;

namespace {

// Those of planes for a tensor in blocks; none for one that isn't what its layout says.
Dims dims_of(const TensorShape& shape) {
  if (axes::is_in_order(shape)) return shape.dims;
  const uint32_t block = runtime::BlockSize(shape.layout);
  if (shape.dims.size() != 4 || shape.dims[3] != block) return {};
  return {shape.dims[0] * block, shape.dims[1], shape.dims[2]};
}

}  // namespace

int ResizeLikeKernel::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits ResizeLikeKernel::refusals(const LayerInfo* info,
                                                 const InferenceParam* param) const {
  Expectations expected;
  const auto* layer = expected.describe<runtime::ResizeLikeInfo>(info, param);
  if (layer == nullptr) return std::move(expected).unmet();
  expected.expect(layer->mode <= 2, "mode", "0 to 2", std::to_string(layer->mode));
  expected.expect(layer->places <= 3, "places", "0 to 3", std::to_string(layer->places));
  expected.expect(layer->nearest <= 3, "nearest", "0 to 3", std::to_string(layer->nearest));
  expected.expect(!layer->axes.empty(), "axes", "at least one", "none");
  expected.expect(layer->like_axes.size() == layer->axes.size(), "like_axes",
                  counted(layer->axes.size(), "number"), std::to_string(layer->like_axes.size()));
  expected.expect(!layer->only_cuts || layer->places != 1, "places", "not 1 where axes are cut",
                  std::to_string(layer->places));
  return std::move(expected).unmet();
}

bool ResizeLikeKernel::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  info_ = static_cast<const runtime::ResizeLikeInfo&>(*info);
  sizes_.clear();
  return true;
}

// @return false for shapes that haven't got the axes, or nothing to read along one
bool ResizeLikeKernel::sizes_of(const TensorShape& input, const TensorShape& like,
                                Dims& sizes) const {
  const Dims from = dims_of(like);
  sizes = dims_of(input);
  for (size_t k = 0; k < info_.axes.size(); ++k) {
    const size_t axis = axes::axis_of(info_.axes[k], sizes.size());
    const size_t other = axes::axis_of(info_.like_axes[k], from.size());
    if (axis == sizes.size() || other == from.size()) return false;
    const uint32_t before = sizes[axis];
    sizes[axis] = info_.only_cuts ? std::min(before, from[other]) : from[other];
    if (before == 0 && sizes[axis] != 0) return false;
  }
  return !sizes.empty();
}

runtime::ResizeInfo ResizeLikeKernel::description_of(const Dims& sizes) const {
  runtime::ResizeInfo resize;
  resize.mode = info_.mode;
  resize.places = info_.places;
  resize.nearest = info_.nearest;
  resize.cubic_coefficient = info_.cubic_coefficient;
  resize.exclude_outside = info_.exclude_outside;
  resize.sizes = sizes;
  if (info_.only_cuts) resize.scales.assign(sizes.size(), 1.0f);
  return resize;
}

KernelFamily::Shapes ResizeLikeKernel::InferOutputShapes(const Shapes& shapes) const {
  Dims sizes;
  Assert(shapes.size() == 2 && sizes_of(shapes[0], shapes[1], sizes),
         "%s: inputs %s don't have the axes that are resampled", row_.name,
         runtime::ShapesText(shapes).c_str());
  TensorShape output = shapes[0];
  output.dims = sizes;
  if (!axes::is_in_order(output)) {
    const uint32_t block = runtime::BlockSize(output.layout);
    output.dims = {sizes[0] / block, sizes[1], sizes[2], block};
  }
  return {output};
}

int ResizeLikeKernel::CheckInputs(const Tensors& tensors) const {
  const bool are_two = tensors.size() == 2 && tensors[0] != nullptr && tensors[1] != nullptr;
  Dims sizes;
  if (!are_two || !sizes_of(tensors[0]->shape, tensors[1]->shape, sizes))
    return tensor_verdict(false);
  ResizeKernel resize(row_.resize);
  const runtime::ResizeInfo description = description_of(sizes);
  resize.Configure(&description, nullptr, runtime::Context());
  return resize.CheckInputs({tensors[0]});
}

KernelFamily::Misfits ResizeLikeKernel::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  expected.expect(
      false, "inputs",
      row_.resize.takes_blocks
          ? "two FLOAT32 tensors with the axes, none of the first one's of size 0"
          : "two FLOAT32 tensors with the axes, none of the first one's of size 0, which "
            "isn't in blocks",
      runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

int ResizeLikeKernel::CheckOutputs(const Tensors& tensors) const {
  return resize_.CheckOutputs(tensors);
}

int ResizeLikeKernel::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) {
  Assert(CheckInputs(inputs) == runtime::KERNEL_OK,
         "%s: the inputs must be two tensors that have the axes, the first one FLOAT32 and in a "
         "layout that the kernel takes",
         row_.name);
  Dims sizes;
  sizes_of(inputs[0]->shape, inputs[1]->shape, sizes);
  if (sizes != sizes_) {
    const runtime::ResizeInfo description = description_of(sizes);
    resize_.Configure(&description, nullptr, runtime::Context());
    sizes_ = sizes;
  }
  return resize_.Forward({inputs[0]}, outputs, pass);
}

}  // namespace marlo::kernel
