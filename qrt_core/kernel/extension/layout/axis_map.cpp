#include "qrt_core/kernel/extension/layout/axis_map.h"

#include <algorithm>
#include <cstring>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::kernel {

using axes::Dims;
using axes::floats_of;
using utility::Assert;

namespace {

using Places = std::vector<int32_t>;

// A copy that outlives the caller's.
template <typename Info>
bool copy_as(const runtime::LayerInfo& info, std::shared_ptr<runtime::LayerInfo>& copy) {
  const auto* description = dynamic_cast<const Info*>(&info);
  if (description != nullptr) copy = std::make_shared<Info>(*description);
  return description != nullptr;
}

bool is_identity(const Places& places, uint32_t size) {
  if (places.size() != size) return false;
  for (size_t i = 0; i < places.size(); ++i) {
    if (places[i] != static_cast<int32_t>(i)) return false;
  }
  return true;
}

// Writes the box of axes from `axis` on; `from` is null where it holds the constant. Runs of `run`
// numbers lie together behind the last axis.
class Mover {
 public:
  Mover(const AxisMaps& maps, const Dims& input, size_t axes, size_t run)
      : maps_(maps), axes_(axes), run_(run), strides_(axes), boxes_(axes + 1, run) {
    size_t stride = run;
    for (size_t k = axes; k-- > 0;) {
      strides_[k] = stride;
      stride *= input[k];
      boxes_[k] = boxes_[k + 1] * maps.places[k].size();
    }
  }

  void move(size_t axis, const float* from, float* to) const {
    if (from == nullptr) {
      std::fill_n(to, boxes_[axis], maps_.value);
      return;
    }
    if (axis == axes_) {
      std::memcpy(to, from, run_ * sizeof(float));
      return;
    }
    const Places& places = maps_.places[axis];
    if (axis + 1 == axes_ && run_ == 1) {
      for (size_t i = 0; i < places.size(); ++i) {
        to[i] = places[i] < 0 ? maps_.value : from[places[i]];
      }
      return;
    }
    for (const int32_t place : places) {
      move(axis + 1, place < 0 ? nullptr : from + static_cast<size_t>(place) * strides_[axis], to);
      to += boxes_[axis + 1];
    }
  }

 private:
  const AxisMaps& maps_;
  const size_t axes_;
  const size_t run_;
  std::vector<size_t> strides_;  // in the input
  std::vector<size_t> boxes_;    // numbers of the output from an axis on
};

}  // namespace

int AxisMapKernel::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits AxisMapKernel::refusals(const LayerInfo* info,
                                              const InferenceParam* param) const {
  Expectations expected;
  expected.expect(row_.is_described(info), "",
                  std::string("a ") + row_.description + " whose members fit together",
                  class_of(info));
  expected.expect(param == nullptr, "", "no inference parameter", "one");
  return std::move(expected).unmet();
}

bool AxisMapKernel::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  return copy_as<runtime::PadInfo>(*info, info_) || copy_as<runtime::GatherInfo>(*info, info_) ||
         copy_as<runtime::BroadcastToInfo>(*info, info_) ||
         copy_as<runtime::StridedSliceInfo>(*info, info_);
}

bool AxisMapKernel::maps_of(const runtime::TensorShape& shape, AxisMaps& maps) const {
  return info_ != nullptr && is_float_in_main_memory(shape) && axes::is_in_order(shape) &&
         row_.map(*info_, shape.dims, maps);
}

KernelFamily::Shapes AxisMapKernel::InferOutputShapes(const Shapes& shapes) const {
  AxisMaps maps;
  Assert(shapes.size() == 1 && maps_of(shapes[0], maps),
         "%s: input %s doesn't fit the layer's description", row_.name,
         runtime::ShapesText(shapes).c_str());
  runtime::TensorShape output = shapes[0];
  if (maps.dims.size() != output.dims.size()) output.layout = runtime::LayoutType::FLEXIABLE;
  output.dims = maps.dims;
  return {output};
}

int AxisMapKernel::CheckInputs(const Tensors& tensors) const {
  AxisMaps maps;
  return tensor_verdict(is_one_float(tensors) && maps_of(tensors[0]->shape, maps));
}

KernelFamily::Misfits AxisMapKernel::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  AxisMaps maps;
  if (axes::expect_plain(inputs, 1, expected)) {
    expected.expect(maps_of(inputs[0], maps), "input 0", "dims that the layer's description fits",
                    runtime::ShapeText(inputs[0]));
  }
  return std::move(expected).unmet();
}

int AxisMapKernel::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(axes::are_plain(tensors, 1));
}

int AxisMapKernel::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(is_one_float(inputs), "%s: the input must be one FLOAT32 tensor", row_.name);
  const auto output = pass.create(InferOutputShapes({inputs[0]->shape})[0]);
  AxisMaps maps;
  maps_of(inputs[0]->shape, maps);
  // Input dims in as many places as maps: in front of them there may be more maps than dims.
  Dims input = inputs[0]->shape.dims;
  input.insert(input.begin(), maps.places.size() - input.size(), 1);
  size_t axes = input.size();
  size_t run = 1;
  while (axes > 0 && is_identity(maps.places[axes - 1], input[axes - 1])) run *= input[--axes];
  if (runtime::ElementCount(output->shape) != 0) {
    Mover(maps, input, axes, run).move(0, floats_of(*inputs[0]), floats_of(*output));
  }
  outputs.push_back(output);
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
