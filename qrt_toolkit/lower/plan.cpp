#include "qrt_toolkit/lower/plan.h"

#include <exception>
#include <utility>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/runtime/tensor/hollow_tensors.h"
#include "qrt_core/utility/application.h"

namespace marlo::toolkit {
namespace {

using runtime::TensorShape;

std::string text_of(const std::vector<TensorShape>& shapes) {
  std::string text;
  for (const TensorShape& shape : shapes) {
    text += text.empty() ? "" : " and ";
    text += toolkit::text_of(Extents(shape.dims.begin(), shape.dims.end()));
  }
  return text;
}

}  // namespace

Plan::Plan() {
  utility::init_register_operators(kernels_, params_);
  utility::init_register_extension_operators(kernels_, params_);
  utility::create_context(context_, 64);
}

size_t Plan::add_input(const std::string& name, TensorShape shape) {
  PlannedLayer layer;
  layer.info = std::make_shared<runtime::InputInfo>();
  layer.kernel = "Input_Fallback_M1";
  layer.shape = std::move(shape);
  layer.node = name;
  layers_.push_back(std::move(layer));
  return layers_.size() - 1;
}

size_t Plan::add(std::shared_ptr<runtime::LayerInfo> info, const std::string& kernel,
                 const std::vector<size_t>& inputs) {
  const std::shared_ptr<runtime::IKernel> made = kernels_.Create(kernel);
  if (made == nullptr) {
    throw NodeFault{"", "this build has no kernel " + kernel,
                    "take a build with the second set of kernels, QRT_WITH_EXTENSIONS=ON"};
  }
  std::vector<TensorShape> shapes;
  shapes.reserve(inputs.size());
  for (const size_t input : inputs) shapes.push_back(shape(input));
  const auto refuse = [&](const std::string& why) {
    throw NodeFault{"", "the kernel " + kernel + " " + why};
  };
  std::vector<TensorShape> outputs;
  try {
    if (!made->Config(info, nullptr, context_)) refuse("refuses the layer");
    if (made->CheckInputs(runtime::HollowTensors(shapes, *context_->cpu)) != runtime::KERNEL_OK) {
      refuse("can't take " + text_of(shapes));
    }
    outputs = made->InferOutputShapes(shapes);
  } catch (const std::runtime_error& error) {
    refuse(std::string("says: ") + error.what());
  }
  if (outputs.size() != 1) refuse("makes no single output");
  PlannedLayer layer;
  layer.info = std::move(info);
  layer.kernel = kernel;
  layer.inputs = inputs;
  layer.shape = outputs[0];
  layer.node = node;
  layers_.push_back(std::move(layer));
  return layers_.size() - 1;
}

void Plan::keep_only(std::vector<size_t>& outputs) {
  std::vector<bool> stays(layers_.size(), false);
  for (const size_t output : outputs) stays[output] = true;
  for (size_t i = layers_.size(); i-- > 0;) {
    if (layers_[i].inputs.empty()) stays[i] = true;
    if (!stays[i]) continue;
    for (const size_t input : layers_[i].inputs) stays[input] = true;
  }
  std::vector<size_t> number(layers_.size());
  std::vector<PlannedLayer> kept;
  for (size_t i = 0; i < layers_.size(); ++i) {
    if (!stays[i]) continue;
    number[i] = kept.size();
    kept.push_back(std::move(layers_[i]));
    for (size_t& input : kept.back().inputs) input = number[input];
  }
  for (size_t& output : outputs) output = number[output];
  layers_ = std::move(kept);
}

}  // namespace marlo::toolkit
