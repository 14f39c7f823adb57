#pragma once

#include <cstdint>
#include <exception>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/tensor/context.h"
#include "qrt_core/runtime/tensor/device_cpu.h"

// Whether the layers of a network fit together, asked before anything runs. It needs nothing but
// the public interface of kernels, so it is no symbol of the library.

namespace marlo::utility {

/// What `check_shapes` finds out about one layer. Plain data: any number of threads may read it
/// while none changes it.
struct LayerShapes {
  std::vector<runtime::TensorShape> inputs;   ///< what the kernel gets, after input converters
  std::vector<runtime::TensorShape> outputs;  ///< what its readers get; empty after a fault
  std::string fault;                          ///< why it doesn't fit; empty if it does
};

namespace detail {

/// "FLOAT32 CHW [1, 28, 28]"
inline std::string shape_text(const runtime::TensorShape& shape) {
  const char* type = runtime::PrintedName(shape.data_type);
  const char* layout = runtime::PrintedName(shape.layout);
  std::string text = type == nullptr ? "unknown type" : type;
  text += layout == nullptr ? " layout " + std::to_string(static_cast<uint32_t>(shape.layout))
                            : std::string(" ") + layout;
  std::string sizes;
  for (const uint32_t size : shape.dims) {
    sizes += (sizes.empty() ? "" : ", ") + std::to_string(size);
  }
  return text + " [" + sizes + "]";
}

/// The same of several, joined by "and"; "nothing" for none.
inline std::string shapes_text(const std::vector<runtime::TensorShape>& shapes) {
  std::string text;
  for (const runtime::TensorShape& shape : shapes) {
    text += (text.empty() ? "" : " and ") + shape_text(shape);
  }
  return text.empty() ? "nothing" : text;
}

/// The step of one kernel, or the fault that stops it. One object belongs to one thread, that of
/// its network.
class ShapeStep {
 public:
  using Shapes = std::vector<runtime::TensorShape>;  ///< one per input or output

  /// @param kernel null for one that could not be configured
  /// @param device makes the tensors without numbers that the kernel is asked about
  ShapeStep(const std::shared_ptr<runtime::IKernel>& kernel, runtime::DeviceCPU& device)
      : kernel_(kernel), device_(device) {}

  /// @return an empty text, or why the kernel can't take `inputs`
  std::string run(const Shapes& inputs, Shapes& outputs) const {
    if (kernel_ == nullptr) return "it has a kernel or converter that could not be configured";
    const std::string name = kernel_->GetKernelName();
    if (kernel_->CheckInputs(hollow(inputs)) != runtime::KERNEL_OK) {
      return name + " refuses " + shapes_text(inputs);
    }
    outputs = kernel_->InferOutputShapes(inputs);
    const std::string result =
        name + " would make " + shapes_text(outputs) + " of " + shapes_text(inputs);
    if (any(outputs, is_too_large)) return result + ", which no tensor can hold";
    // A sequence without steps stays one; nothing else is meant to vanish.
    if (any(outputs, is_empty) && !any(inputs, is_empty)) return result + ", which is empty";
    if (kernel_->CheckOutputs(hollow(outputs)) != runtime::KERNEL_OK) {
      return name + " refuses its own output " + shapes_text(outputs);
    }
    return "";
  }

 private:
  static bool any(const Shapes& shapes, bool (*is)(const runtime::TensorShape&)) {
    for (const runtime::TensorShape& shape : shapes) {
      if (is(shape)) return true;
    }
    return false;
  }

  static bool is_empty(const runtime::TensorShape& shape) {
    for (const uint32_t size : shape.dims) {
      if (size == 0) return true;
    }
    return false;
  }

  // A size that wrapped below zero is far above what 32 bits of bytes can count.
  static bool is_too_large(const runtime::TensorShape& shape) {
    double bytes = runtime::ElementSize(shape.data_type);
    for (const uint32_t size : shape.dims) bytes *= size;
    return bytes > static_cast<double>(UINT32_MAX);
  }

  // Tensors without numbers: checks look at shapes only.
  runtime::IKernel::Tensors hollow(const Shapes& shapes) const {
    static char nothing[64];
    runtime::IKernel::Tensors tensors;
    for (const runtime::TensorShape& shape : shapes) {
      tensors.push_back(device_.CreateTensorExternal(shape, nothing));
    }
    return tensors;
  }

  const std::shared_ptr<runtime::IKernel>& kernel_;
  runtime::DeviceCPU& device_;
};

/// Fills `found` for one layer whose inputs are known.
inline std::string check_layer(const runtime::Layer& layer, runtime::DeviceCPU& device,
                               LayerShapes& found) {
  std::vector<runtime::TensorShape> outputs;
  for (const auto& [position, converter] : layer.input_converters) {
    if (position >= found.inputs.size()) continue;
    std::string fault = ShapeStep(converter, device).run({found.inputs[position]}, outputs);
    if (!fault.empty()) return fault;
    if (!outputs.empty()) found.inputs[position] = outputs[0];
  }
  std::string fault = ShapeStep(layer.kernel, device).run(found.inputs, outputs);
  if (!fault.empty()) return fault;
  std::vector<runtime::TensorShape> results = std::move(outputs);
  for (const auto& [position, converter] : layer.output_converters) {
    if (position >= results.size()) continue;
    fault = ShapeStep(converter, device).run({results[position]}, outputs);
    if (!fault.empty()) return fault;
    if (!outputs.empty()) results[position] = outputs[0];
  }
  found.outputs = std::move(results);
  return "";
}

/// Collects what a layer reads. @return why that isn't known
inline std::string gather_inputs(
    const runtime::Net& net, uint32_t index,
    const std::unordered_map<unsigned int, runtime::TensorShape>& inputs,
    const std::vector<LayerShapes>& before, LayerShapes& found) {
  const runtime::Layer& layer = *net.layers[index];
  if (layer.name == "Input") {
    const auto given = inputs.find(index);
    if (given == inputs.end()) return "no shape is given for this input";
    found.inputs = {given->second};
    return "";
  }
  for (const auto& [source, output] : layer.inputs) {
    const bool known = source < index && output < before[source].outputs.size();
    if (!known) return "it reads layer " + std::to_string(source) + ", which gives nothing";
    found.inputs.push_back(before[source].outputs[output]);
  }
  return "";
}

}  // namespace detail

/// Walks the shapes through a network: every kernel and converter is asked whether it takes its
/// inputs, what it makes of them, and whether that is right. Nothing runs and nothing is allocated,
/// so that an application can ask before it lets a foreign file compute.
///
/// @code
/// for (const auto& layer : check_shapes(*package.net, {{0, image->shape}}, context)) {
///   if (!layer.fault.empty()) return refuse(layer.fault);
/// }
/// @endcode
///
/// @param inputs the shape of each input layer, by layer index
/// @param context with a CPU device
/// @return one entry per layer. A layer whose inputs aren't known because of a fault before it
///   has a fault too.
inline std::vector<LayerShapes> check_shapes(
    const runtime::Net& net, const std::unordered_map<unsigned int, runtime::TensorShape>& inputs,
    const std::shared_ptr<runtime::Context>& context) {
  std::vector<LayerShapes> layers(net.layers.size());
  for (uint32_t index = 0; index < layers.size(); ++index) {
    LayerShapes& found = layers[index];
    try {
      found.fault = detail::gather_inputs(net, index, inputs, layers, found);
      if (!found.fault.empty()) continue;
      found.fault = detail::check_layer(*net.layers[index], *context->cpu, found);
    } catch (const std::exception& failure) {
      found.fault = failure.what();
    }
  }
  return layers;
}

}  // namespace marlo::utility
