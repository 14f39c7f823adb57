#include "tools/qrt/passes.h"

#include <optional>

#include "qrt_toolkit/watch/recorder.h"
#include "qrt_toolkit/watch/reset_states.h"
#include "tools/qrt/errors.h"
#include "tools/qrt/messages.h"
#include "tools/qrt/text.h"

namespace qrt_tool {

using marlo::runtime::Net;
using marlo::runtime::Tensor;

namespace {

using TensorMap = std::unordered_map<unsigned int, std::shared_ptr<Tensor>>;

// New tensors for every pass: a kernel that works in place writes over its input.
TensorMap make_inputs(const std::vector<InputData>& inputs, marlo::runtime::DeviceCPU& device) {
  TensorMap tensors;
  for (const InputData& input : inputs) {
    tensors[input.layer] = device.CreateTensor(input.shape, input.values.data());
  }
  return tensors;
}

std::unordered_map<unsigned int, Net::Tensors> pass(const LoadedNetwork& network,
                                                    const std::vector<InputData>& inputs,
                                                    Times& times,
                                                    marlo::toolkit::Tracer* tracer = nullptr) {
  auto& package = *network.package;
  const TensorMap tensors = make_inputs(inputs, *package.context->cpu);
  if (tracer != nullptr) tracer->begin_pass();
  const Stopwatch watch;
  auto results =
      package.net->Forward(tensors, package.output_ids, package.context, nullptr, nullptr);
  times = watch.times();
  if (tracer != nullptr) tracer->end_pass();
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

// A layer's own kernel reads its weights beside its inputs, and does its multiply-adds.
Profile counted_profile(Profile profile, const NetworkReport& report) {
  for (ProfileRow& row : profile.rows) {
    if (!row.role.empty()) continue;
    const LayerReport& layer = report.layers[row.layer];
    row.multiply_adds = layer.multiply_adds;
    row.bytes += layer.weights * sizeof(float);
  }
  return profile;
}

}  // namespace

std::vector<double> OutputData::values() const {
  return marlo::toolkit::numbers_of(tensor->shape, tensor->handle.cpu);
}

PassResult run_passes(const LoadedNetwork& network, const std::vector<InputData>& inputs,
                      const PassOptions& options) {
  if (network.package->output_ids.empty()) {
    throw ToolError(kRunError, "network " + in_quotes(network.report.id) +
                                   ": expected outputs in \"squential_output_ids\", found none");
  }
  PassResult result;
  std::optional<Profiler> profiler;
  std::optional<Recorder> recorder;
  if (options.record) recorder.emplace(*network.package->net);
  if (options.profile) profiler.emplace(*network.package->net);
  std::vector<Times> samples;
  Progress progress("pass", options.repeat);
  try {
    Times times;
    if (options.repeat > 1) pass(network, inputs, times);
    if (profiler) profiler->clear();
    for (uint64_t i = 0; i < options.repeat; ++i) {
      if (!options.keep_state) marlo::toolkit::reset_states(*network.package->net);
      result.outputs.clear();
      // Made for the last pass only, so that the others aren't watched.
      std::optional<marlo::toolkit::Tracer> tracer;
      if (options.trace && i + 1 == options.repeat) {
        tracer.emplace(*network.package->net, *network.package->context);
      }
      auto results = pass(network, inputs, times, tracer ? &*tracer : nullptr);
      if (tracer) result.trace = tracer->take();
      samples.push_back(times);
      if (profiler) profiler->end_pass(times);
      result.outputs = collect(network, results);
      progress.step();
    }
  } catch (const ToolError&) {
    throw;
  } catch (const std::runtime_error& failure) {
    const std::string fault = take_story(failure);
    throw ToolError(kRunError, "network " + in_quotes(network.report.id) + ": the pass failed: " +
                                   (fault.empty() ? "a kernel refused its input" : fault));
  }
  if (result.trace) result.trace->network = printable(network.report.id);
  if (recorder) result.records = recorder->take_records();
  result.pass = median(samples);
  if (profiler) result.profile = counted_profile(profiler->profile(), network.report);
  return result;
}

}  // namespace qrt_tool
