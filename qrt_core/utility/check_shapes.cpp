#include "qrt_core/utility/check_shapes.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/runtime/tensor/hollow_tensors.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_core/utility/log.h"

namespace marlo::utility {
namespace {

using runtime::IKernel;
using runtime::ShapesText;
using runtime::TensorShape;
using Shapes = std::vector<TensorShape>;

constexpr char kInputName[] = "Input";

bool is_empty(const TensorShape& shape) {
  return std::find(shape.dims.begin(), shape.dims.end(), 0u) != shape.dims.end();
}

// A size that wrapped below zero is far above what 32 bits of bytes can count.
bool is_too_large(const TensorShape& shape) {
  double bytes = runtime::ElementSize(shape.data_type);
  for (const uint32_t size : shape.dims) bytes *= size;
  return bytes > static_cast<double>(UINT32_MAX);
}

bool any(const Shapes& shapes, bool (*is)(const TensorShape&)) {
  return std::any_of(shapes.begin(), shapes.end(), is);
}

/// The walk through the kernels of one layer. Each step returns why it can't be taken, or nothing.
class LayerWalk {
 public:
  LayerWalk(const runtime::Layer& layer, runtime::DeviceCPU& device, LayerShapes& found)
      : layer_(layer), device_(device), found_(found) {}

  std::string run() {
    std::string fault;
    // A pass hands an input layer its tensor as it is.
    if (layer_.name != kInputName) {
      fault = convert("input converter ", layer_.input_converters, found_.inputs);
    }
    if (!fault.empty()) return fault;
    fault = step("", layer_.kernel.get(), found_.inputs, found_.made);
    if (!fault.empty()) return fault;
    Shapes outputs = found_.made;
    fault = convert("output converter ", layer_.output_converters, outputs);
    if (fault.empty()) found_.outputs = std::move(outputs);
    return fault;
  }

 private:
  std::string convert(const std::string& role,
                      const std::map<uint32_t, std::shared_ptr<IKernel>>& converters,
                      Shapes& shapes) {
    for (const auto& [position, converter] : converters) {
      if (position >= shapes.size()) continue;
      Shapes converted;
      std::string fault =
          step(role + std::to_string(position), converter.get(), {shapes[position]}, converted);
      if (!fault.empty()) return fault;
      if (converted.empty()) return converter->GetKernelName() + " would make nothing";
      shapes[position] = std::move(converted[0]);
    }
    return "";
  }

  std::string step(const std::string& role, IKernel* kernel, const Shapes& inputs,
                   Shapes& outputs) {
    found_.place.role = role;
    if (kernel == nullptr) {
      for (const LayerFault& refused : layer_.refused) {
        if (refused.role != role) continue;
        found_.place.kernel = refused.kernel;
        found_.place.misfits = refused.misfits;
      }
      return "it has a kernel or converter that could not be configured";
    }
    const std::string name = kernel->GetKernelName();
    found_.place.kernel = name;
    const auto* facts = dynamic_cast<const runtime::IKernelFacts*>(kernel);
    if (kernel->CheckInputs(runtime::HollowTensors(inputs, device_)) != runtime::KERNEL_OK) {
      if (facts != nullptr) found_.place.misfits = facts->input_refusals(inputs);
      return name + " refuses " + ShapesText(inputs);
    }
    if (facts != nullptr) {
      found_.place.misfits = facts->pass_refusals(inputs);
      if (!found_.place.misfits.empty()) return name + " refuses " + ShapesText(inputs);
    }
    outputs = kernel->InferOutputShapes(inputs);
    const std::string result =
        name + " would make " + ShapesText(outputs) + " of " + ShapesText(inputs);
    if (any(outputs, is_too_large)) return result + ", which no tensor can hold";
    // A sequence without steps stays one; nothing else is meant to vanish.
    if (any(outputs, is_empty) && !any(inputs, is_empty)) return result + ", which is empty";
    if (kernel->CheckOutputs(runtime::HollowTensors(outputs, device_)) != runtime::KERNEL_OK) {
      return name + " refuses its own output " + ShapesText(outputs);
    }
    return "";
  }

  const runtime::Layer& layer_;
  runtime::DeviceCPU& device_;
  LayerShapes& found_;
};

// Collects what a layer reads. Returns why that isn't known.
std::string gather_inputs(const runtime::Layer& layer, uint32_t index,
                          const std::unordered_map<unsigned int, TensorShape>& inputs,
                          const std::vector<LayerShapes>& before, LayerShapes& found) {
  if (layer.name == kInputName) {
    const auto given = inputs.find(index);
    if (given == inputs.end()) return "no shape is given for this input";
    found.inputs = {given->second};
    return "";
  }
  found.inputs.reserve(layer.inputs.size());
  for (const auto& [source, output] : layer.inputs) {
    const bool known = source < index && output < before[source].outputs.size();
    if (!known) return "it reads layer " + std::to_string(source) + ", which gives nothing";
    found.inputs.push_back(before[source].outputs[output]);
  }
  return "";
}

void check_layer(const runtime::Layer& layer, uint32_t index,
                 const std::unordered_map<unsigned int, TensorShape>& inputs,
                 runtime::DeviceCPU& device, const std::vector<LayerShapes>& before,
                 LayerShapes& found) {
  found.place.layer = index;
  found.place.id = layer.id;
  found.place.kind = layer.name;
  found.fault = gather_inputs(layer, index, inputs, before, found);
  found.is_consequence = !found.fault.empty();
  if (found.fault.empty()) found.fault = LayerWalk(layer, device, found).run();
}

}  // namespace

std::vector<LayerShapes> check_shapes(const runtime::Net& net,
                                      const std::unordered_map<unsigned int, TensorShape>& inputs,
                                      const std::shared_ptr<runtime::Context>& context) {
  Assert(context != nullptr && context->cpu != nullptr,
         "a check of shapes needs a context with a CPU device");
  std::vector<LayerShapes> layers(net.layers.size());
  for (uint32_t index = 0; index < layers.size(); ++index) {
    if (net.layers[index] == nullptr) {
      layers[index].fault = "it is a null pointer";
      continue;
    }
    try {
      check_layer(*net.layers[index], index, inputs, *context->cpu, layers, layers[index]);
    } catch (const Error& failure) {
      layers[index].fault = failure.message();
      // Some refusals have no text of their own.
      if (layers[index].fault.empty()) {
        layers[index].fault =
            layers[index].place.kernel + " refuses " + ShapesText(layers[index].inputs);
      }
    } catch (const std::exception& failure) {
      layers[index].fault = failure.what();
    }
    if (layers[index].fault.empty()) {
      // Nothing is wrong in the place that was asked last.
      layers[index].place.kernel = net.layers[index]->kernel->GetKernelName();
      layers[index].place.role.clear();
    }
  }
  return layers;
}

}  // namespace marlo::utility
