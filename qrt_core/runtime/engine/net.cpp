#include "qrt_core/runtime/engine/net.h"

#include <algorithm>

#include "qrt_core/utility/log.h"
#include "qrt_core/utility/time_metrics.h"

namespace marlo::runtime {

using utility::Assert;

namespace {

using Tensors = Net::Tensors;
using TensorMap = std::unordered_map<unsigned int, std::shared_ptr<Tensor>>;

constexpr char kInputName[] = "Input";

/// What the steps of one pass share.
struct Pass {
  const std::vector<std::shared_ptr<Layer>>& layers;
  const TensorMap& inputs;
  const std::shared_ptr<Context>& context;
  std::vector<Tensors> results;  // per layer, empty before it has run and after its release
};

void run(IKernel* kernel, const Pass& pass, uint32_t index, Tensors& inputs, bool transient,
         Tensors& outputs) {
  if (kernel == nullptr) {
    Assert(false, "layer %u (%s) has a kernel or converter that could not be configured", index,
           pass.layers[index]->name.c_str());
  }
  kernel->PrepareForward(pass.context, inputs, transient, outputs);
  kernel->Forward(inputs, outputs, pass.context);
}

// Runs a converter on one tensor and puts its first output in the tensor's place.
void convert(IKernel* converter, const Pass& pass, uint32_t index, bool transient,
             std::shared_ptr<Tensor>& tensor) {
  Tensors in{tensor};
  Tensors out;
  run(converter, pass, index, in, transient, out);
  if (out.empty()) {
    Assert(false, "a converter of layer %u (%s) made no tensor", index,
           pass.layers[index]->name.c_str());
  }
  tensor = std::move(out[0]);
}

std::shared_ptr<Tensor> caller_input(const Pass& pass, uint32_t index) {
  const auto found = pass.inputs.find(index);
  if (found == pass.inputs.end() || found->second == nullptr) {
    Assert(false, "no tensor was given for input layer %u", index);
  }
  return found->second;
}

void gather(const Pass& pass, uint32_t index, Tensors& tensors) {
  const Layer& layer = *pass.layers[index];
  if (layer.name == kInputName) {
    tensors.push_back(caller_input(pass, index));
    return;
  }
  tensors.reserve(layer.inputs.size());
  for (uint32_t position = 0; position < layer.inputs.size(); ++position) {
    const auto [source, output] = layer.inputs[position];
    if (source >= pass.results.size() || output >= pass.results[source].size()) {
      Assert(false, "input %u of layer %u (%s): layer %u has no output %u", position, index,
             layer.name.c_str(), source, output);
    }
    std::shared_ptr<Tensor> tensor = pass.results[source][output];
    const auto converter = layer.input_converters.find(position);
    if (converter != layer.input_converters.end()) {
      convert(converter->second.get(), pass, index, true, tensor);
    }
    tensors.push_back(std::move(tensor));
  }
}

// Drops the results that the layer just run was the last to read.
void release_inputs(Pass& pass, uint32_t index) {
  for (const auto& [source, output] : pass.layers[index]->inputs) {
    if (pass.inputs.count(source) != 0) continue;
    const auto& consumers = pass.layers[source]->consumers;
    const bool all_ran = std::all_of(consumers.begin(), consumers.end(), [&](const auto& reader) {
      return reader.first < pass.results.size() && !pass.results[reader.first].empty();
    });
    if (all_ran) Tensors().swap(pass.results[source]);
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
  DeviceCPU& device = *context->cpu;
  device.dynamic_mode = device.dynamic_pool != nullptr;
  empty_with_room(cpu_times, layers.size());
  empty_with_room(gpu_times, layers.size());

  Pass pass{layers, inputs, context, std::vector<Tensors>(layers.size())};
  std::vector<unsigned int> pending = output_ids;
  std::unordered_map<unsigned int, Tensors> outputs_by_id;

  for (uint32_t index = 0; index < layers.size() && !pending.empty(); ++index) {
    const Layer& layer = *layers[index];
    if (gpu_times != nullptr && layer.name == kInputName && layer.input_converters.empty() &&
        layer.output_converters.empty()) {
      utility::Log(utility::LOG_TRACE,
                   "Input Layer without any converter do not need to profile gpu time.");
    }
    const double start = cpu_times != nullptr ? utility::get_time_in_ms() : -1.0;
    const auto wanted = std::find(pending.begin(), pending.end(), index);
    const bool requested = wanted != pending.end();

    Tensors in;
    gather(pass, index, in);
    Tensors out;
    run(layer.kernel.get(), pass, index, in, !requested || !layer.output_converters.empty(), out);
    for (const auto& [position, converter] : layer.output_converters) {
      if (position < out.size()) {
        convert(converter.get(), pass, index, !requested, out[position]);
      }
    }

    if (requested) {
      pass.results[index] = out;
      pending.erase(wanted);
      outputs_by_id.emplace(index, std::move(out));
    } else {
      pass.results[index] = std::move(out);
    }
    release_inputs(pass, index);

    if (cpu_times != nullptr) {
      cpu_times->push_back(static_cast<float>(utility::get_time_in_ms() - start));
    }
    if (gpu_times != nullptr) gpu_times->push_back(0.0f);
  }

  device.dynamic_mode = false;
  return outputs_by_id;
}

}  // namespace marlo::runtime
