#include "qrt_core/runtime/engine/net.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/runtime/tensor/shape_text.h"
#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/log.h"
#include "qrt_core/utility/time_metrics.h"

namespace marlo::runtime {

using utility::Assert;
using utility::Error;
using utility::LayerFault;

namespace {

using Tensors = Net::Tensors;
using TensorMap = std::unordered_map<unsigned int, std::shared_ptr<Tensor>>;

constexpr char kInputName[] = "Input";

/// What a layer has left behind.
struct LayerResult {
  Tensors tensors;     // empty before the layer has run and after its release
  size_t awaited = 0;  // a place in its consumers: the last one seen without a result
};

/// What the steps of one pass share.
struct Pass {
  const std::vector<std::shared_ptr<Layer>>& layers;
  const TensorMap& inputs;
  const std::shared_ptr<Context>& context;
  std::vector<LayerResult> results;
};

/// One kernel of a layer, at its turn.
struct Step {
  IKernel* kernel;
  uint32_t layer;
  const char* converter = nullptr;  // "input converter" or "output converter"; null for the kernel
  uint32_t position = 0;            // of the converter
};

std::string role_of(const Step& step) {
  if (step.converter == nullptr) return "";
  return step.converter + (" " + std::to_string(step.position));
}

LayerFault place_of(const Pass& pass, uint32_t index) {
  LayerFault fault;
  fault.layer = index;
  fault.id = pass.layers[index]->id;
  fault.kind = pass.layers[index]->name;
  return fault;
}

// Why a kernel could not take its inputs, as far as it can say; else what they were.
std::vector<utility::Misfit> misfits_of(IKernel* kernel, const Tensors& inputs) {
  std::vector<TensorShape> shapes;
  for (const auto& tensor : inputs) {
    if (tensor == nullptr) return {{"inputs", "a tensor in each position", "a null pointer"}};
    shapes.push_back(tensor->shape);
  }
  std::vector<utility::Misfit> misfits;
  if (const auto* facts = dynamic_cast<const IKernelFacts*>(kernel)) {
    misfits = facts->input_refusals(shapes);
  }
  if (misfits.empty()) misfits.push_back({"inputs", "", ShapesText(shapes)});
  return misfits;
}

void add_place(Error& failure, const Pass& pass, const Step& step, const Tensors& inputs) {
  LayerFault fault = place_of(pass, step.layer);
  fault.role = role_of(step);
  fault.kernel = step.kernel->GetKernelName();
  try {
    fault.misfits = misfits_of(step.kernel, inputs);
  } catch (const std::exception&) {
    // A kernel that can't say why has still failed in this place.
  }
  failure.in_layer(std::move(fault));
}

// Lets `fail`, which throws, do so with the place of a layer.
template <typename Fail>
void fail_at(LayerFault place, Fail fail) {
  try {
    fail();
  } catch (Error& failure) {
    failure.in_layer(std::move(place));
    throw;
  }
}

void refuse_missing_kernel(const Pass& pass, const Step& step) {
  const Layer& layer = *pass.layers[step.layer];
  LayerFault place = place_of(pass, step.layer);
  place.role = role_of(step);
  for (const LayerFault& refused : layer.refused) {
    if (refused.role == place.role) place = refused;
  }
  fail_at(std::move(place), [&] {
    Assert(false, "layer %u (%s) has a kernel or converter that could not be configured",
           step.layer, layer.name.c_str());
  });
}

void run(const Step& step, const Pass& pass, Tensors& inputs, bool transient, Tensors& outputs) {
  if (step.kernel == nullptr) refuse_missing_kernel(pass, step);
  try {
    step.kernel->PrepareForward(pass.context, inputs, transient, outputs);
    step.kernel->Forward(inputs, outputs, pass.context);
  } catch (Error& failure) {
    add_place(failure, pass, step, inputs);
    throw;
  } catch (const std::runtime_error& failure) {
    // A class of the application's own keeps its type.
    if (typeid(failure) != typeid(std::runtime_error)) throw;
    Error error(failure.what());
    add_place(error, pass, step, inputs);
    throw error;
  }
}

// Runs a converter on one tensor and puts its first output in the tensor's place.
void convert(const Step& step, const Pass& pass, bool transient, std::shared_ptr<Tensor>& tensor) {
  Tensors in{tensor};
  Tensors out;
  run(step, pass, in, transient, out);
  if (out.empty()) {
    LayerFault place = place_of(pass, step.layer);
    place.role = role_of(step);
    place.kernel = step.kernel->GetKernelName();
    fail_at(std::move(place), [&] {
      Assert(false, "a converter of layer %u (%s) made no tensor", step.layer,
             pass.layers[step.layer]->name.c_str());
    });
  }
  tensor = std::move(out[0]);
}

void gather(const Pass& pass, uint32_t index, Tensors& tensors) {
  const Layer& layer = *pass.layers[index];
  if (layer.name == kInputName) {
    const auto found = pass.inputs.find(index);
    if (found == pass.inputs.end() || found->second == nullptr) {
      fail_at(place_of(pass, index),
              [&] { Assert(false, "no tensor was given for input layer %u", index); });
    }
    tensors.push_back(found->second);
    return;
  }
  tensors.reserve(layer.inputs.size());
  for (uint32_t position = 0; position < layer.inputs.size(); ++position) {
    const auto [source, output] = layer.inputs[position];
    if (source >= pass.results.size() || output >= pass.results[source].tensors.size()) {
      fail_at(place_of(pass, index), [&, from = source, which = output] {
        Assert(false, "input %u of layer %u (%s): layer %u has no output %u", position, index,
               layer.name.c_str(), from, which);
      });
    }
    std::shared_ptr<Tensor> tensor = pass.results[source].tensors[output];
    const auto converter = layer.input_converters.find(position);
    if (converter != layer.input_converters.end()) {
      convert({converter->second.get(), index, "input converter", position}, pass, true, tensor);
    }
    tensors.push_back(std::move(tensor));
  }
}

// Whether all readers of a layer have their results at this moment. The search begins at the reader
// that was last found without one. What has lost its result stays without, so that all searches of
// a pass together go through the readers twice at most.
bool all_readers_have_results(const Pass& pass, const Layer& source, LayerResult& result) {
  const auto& readers = source.consumers;
  for (size_t seen = 0; seen < readers.size(); ++seen) {
    const uint32_t reader = readers[result.awaited].first;
    if (reader >= pass.results.size() || pass.results[reader].tensors.empty()) return false;
    if (++result.awaited == readers.size()) result.awaited = 0;
  }
  return true;
}

// Drops the results that the layer just run was the last to read.
void release_inputs(Pass& pass, uint32_t index) {
  for (const auto& [source, output] : pass.layers[index]->inputs) {
    if (source >= pass.results.size()) continue;  // of an input layer, which reads nothing
    LayerResult& result = pass.results[source];
    if (result.tensors.empty() || pass.inputs.count(source) != 0) continue;
    if (all_readers_have_results(pass, *pass.layers[source], result)) {
      Tensors().swap(result.tensors);
    }
  }
}

void empty_with_room(std::vector<float>* times, size_t count) {
  if (times == nullptr) return;
  times->clear();
  times->reserve(count);
}

}  // namespace

Net::Net(const std::vector<std::shared_ptr<Layer>>& net_layers,
         const std::map<std::string, unsigned int>& inputs)
    : layers(net_layers), input_map(inputs) {}

std::unordered_map<unsigned int, Tensors> Net::Forward(const TensorMap& inputs,
                                                       const std::vector<unsigned int>& output_ids,
                                                       std::shared_ptr<Context> context,
                                                       std::vector<float>* cpu_times,
                                                       std::vector<float>* gpu_times) const {
  Assert(context != nullptr && context->cpu != nullptr, "a pass needs a context with a CPU device");
  DeviceCPU& device = *context->cpu;
  device.dynamic_mode = device.dynamic_pool != nullptr;
  empty_with_room(cpu_times, layers.size());
  empty_with_room(gpu_times, layers.size());

  Pass pass{layers, inputs, context, std::vector<LayerResult>(layers.size())};
  std::vector<unsigned int> pending = output_ids;
  std::unordered_map<unsigned int, Tensors> outputs_by_id;
  Tensors in;

  for (uint32_t index = 0; index < layers.size() && !pending.empty(); ++index) {
    Assert(layers[index] != nullptr, "layer %u of the network is a null pointer", index);
    const Layer& layer = *layers[index];
    if (gpu_times != nullptr && layer.name == kInputName && layer.input_converters.empty() &&
        layer.output_converters.empty()) {
      utility::Log(utility::LOG_TRACE,
                   "Input Layer without any converter do not need to profile gpu time.");
    }
    const double start = cpu_times != nullptr ? utility::get_time_in_ms() : -1.0;
    const auto wanted = std::find(pending.begin(), pending.end(), index);
    const bool requested = wanted != pending.end();

    gather(pass, index, in);
    Tensors out;
    run({layer.kernel.get(), index}, pass, in, !requested || !layer.output_converters.empty(), out);
    for (const auto& [position, converter] : layer.output_converters) {
      if (position < out.size()) {
        convert({converter.get(), index, "output converter", position}, pass, !requested,
                out[position]);
      }
    }

    if (requested) {
      pass.results[index].tensors = out;
      pending.erase(wanted);
      outputs_by_id.emplace(index, std::move(out));
    } else {
      pass.results[index].tensors = std::move(out);
    }
    release_inputs(pass, index);
    in.clear();

    if (cpu_times != nullptr) {
      cpu_times->push_back(static_cast<float>(utility::get_time_in_ms() - start));
    }
    if (gpu_times != nullptr) gpu_times->push_back(0.0f);
  }

  device.dynamic_mode = false;
  return outputs_by_id;
}

}  // namespace marlo::runtime
