#include "tools/qrt/passes.h"

#include <chrono>
#include <cstring>
#include <optional>

#include "tools/qrt/errors.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::DataType;
using marlo::runtime::Net;
using marlo::runtime::Tensor;

namespace {

using Clock = std::chrono::steady_clock;
using TensorMap = std::unordered_map<unsigned int, std::shared_ptr<Tensor>>;

template <typename T>
std::vector<double> widened(const Tensor& tensor) {
  std::vector<double> values(ElementCount(tensor.shape));
  const char* from = static_cast<const char*>(tensor.handle.cpu);
  for (size_t i = 0; i < values.size(); ++i) {
    T value;
    std::memcpy(&value, from + i * sizeof value, sizeof value);
    values[i] = static_cast<double>(
        static_cast<std::conditional_t<std::is_same_v<T, half_float::half>, float, T>>(value));
  }
  return values;
}

// New tensors for every pass: a kernel that works in place writes over its input.
TensorMap make_inputs(const std::vector<InputData>& inputs, marlo::runtime::DeviceCPU& device) {
  TensorMap tensors;
  for (const InputData& input : inputs) {
    tensors[input.layer] = device.CreateTensor(input.shape, input.values.data());
  }
  return tensors;
}

// What recurrent kernels carry from pass to pass.
void reset_state(const Net& net) {
  for (const auto& layer : net.layers) {
    for (const auto& [position, converter] : layer->input_converters) converter->ResetState();
    layer->kernel->ResetState();
    for (const auto& [position, converter] : layer->output_converters) converter->ResetState();
  }
}

std::unordered_map<unsigned int, Net::Tensors> pass(const LoadedNetwork& network,
                                                    const std::vector<InputData>& inputs,
                                                    double& milliseconds) {
  auto& package = *network.package;
  const TensorMap tensors = make_inputs(inputs, *package.context->cpu);
  const Clock::time_point start = Clock::now();
  auto results =
      package.net->Forward(tensors, package.output_ids, package.context, nullptr, nullptr);
  milliseconds = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
  return results;
}

std::vector<OutputData> collect(const LoadedNetwork& network,
                                std::unordered_map<unsigned int, Net::Tensors>& results) {
  std::vector<OutputData> outputs;
  for (const uint32_t layer : network.package->output_ids) {
    const auto found = results.find(layer);
    if (found == results.end()) continue;
    uint32_t position = 0;
    for (auto& tensor : found->second) {
      if (tensor == nullptr) {
        throw ToolError(kRunError, network.report.layers[layer].title() + ": it made no tensor");
      }
      outputs.push_back({layer, network.report.layers[layer].id, position++, std::move(tensor)});
    }
    results.erase(found);
  }
  return outputs;
}

}  // namespace

std::vector<double> OutputData::values() const {
  switch (tensor->shape.data_type) {
    case DataType::FLOAT32:
      return widened<float>(*tensor);
    case DataType::FLOAT16:
      return widened<half_float::half>(*tensor);
    case DataType::INT32:
      return widened<int32_t>(*tensor);
    case DataType::INT16:
      return widened<int16_t>(*tensor);
    case DataType::INT8:
      return widened<int8_t>(*tensor);
    case DataType::UINT32:
      return widened<uint32_t>(*tensor);
    case DataType::UINT16:
      return widened<uint16_t>(*tensor);
    case DataType::UINT8:
      return widened<uint8_t>(*tensor);
  }
  return {};
}

PassResult run_passes(const LoadedNetwork& network, const std::vector<InputData>& inputs,
                      const PassOptions& options) {
  if (network.package->output_ids.empty()) {
    throw ToolError(kRunError, "network " + quoted(network.report.id) +
                                   ": expected outputs in \"squential_output_ids\", found none");
  }
  PassResult result;
  std::optional<Profiler> profiler;
  if (options.profile) profiler.emplace(*network.package->net);
  std::vector<double> times;
  Progress progress("pass", options.repeat);
  try {
    double milliseconds = 0.0;
    if (options.repeat > 1) pass(network, inputs, milliseconds);
    if (profiler) profiler->clear();
    for (uint64_t i = 0; i < options.repeat; ++i) {
      if (!options.keep_state) reset_state(*network.package->net);
      result.outputs.clear();
      auto results = pass(network, inputs, milliseconds);
      times.push_back(milliseconds);
      if (profiler) profiler->end_pass();
      result.outputs = collect(network, results);
      progress.step();
    }
  } catch (const ToolError&) {
    throw;
  } catch (const std::runtime_error& failure) {
    const std::string fault = take_fault(failure);
    throw ToolError(kRunError, "network " + quoted(network.report.id) + ": the pass failed: " +
                                   (fault.empty() ? "a kernel refused its input" : fault));
  }
  result.median_ms = median(times);
  if (profiler) result.rows = profiler->rows();
  return result;
}

}  // namespace qrt_tool
