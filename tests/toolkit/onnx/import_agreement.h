#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "model_text.h"
#include "network_run.h"
#include "onnx_cases.h"
#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_toolkit/evaluate/evaluate.h"
#include "tests/support/temporary_folder.h"

// Graphs as text that are imported, run, and compared with the plain definitions of their operators.

namespace marlo::toolkit::test {

using Shapes = std::map<std::string, std::vector<int64_t>>;

inline ImportedModel imported(const std::string& graph, int opset, const Shapes& shapes) {
  const marlo::test::TemporaryFolder folder;
  write_model(folder.file("net.onnx"), graph, opset);
  ImportOptions options;
  options.shapes = shapes;
  return import_onnx(folder.file("net.onnx"), options);
}

inline std::vector<NamedInput> random_inputs(const Shapes& shapes) {
  std::mt19937 random(7);
  std::uniform_real_distribution<double> any(-2, 2);
  std::vector<NamedInput> inputs;
  for (const auto& [name, shape] : shapes) {
    Numbers numbers(ElementType::float32, shape);
    for (double& number : numbers.reals()) number = static_cast<float>(any(random));
    inputs.push_back({name, numbers});
  }
  return inputs;
}

/// What the graph's definition gives.
inline std::vector<Numbers> expected_outputs(const std::string& graph, int opset,
                                             const std::vector<NamedInput>& inputs) {
  const OnnxModel model = model_of(graph, opset);
  std::vector<SharedNumbers> numbers;
  for (const ValueId id : model.graph.inputs) {
    for (const NamedInput& input : inputs) {
      if (input.name != model.graph.value(id).name) continue;
      numbers.push_back(std::make_shared<const Numbers>(input.numbers));
    }
  }
  std::vector<Numbers> outputs;
  for (const SharedNumbers& output : evaluate_graph(model.graph, numbers))
    outputs.push_back(*output);
  return outputs;
}

/// Imports, runs and compares. @return the kernels' layers by class
inline ImportedModel expect_agreement(const std::string& graph, int opset, const Shapes& shapes) {
  ImportedModel model = imported(graph, opset, shapes);
  const auto inputs = random_inputs(shapes);
  const auto results = run_network(model, {inputs}).at(0);
  const auto expected = expected_outputs(graph, opset, inputs);
  EXPECT_EQ(results.size(), expected.size());
  for (size_t i = 0; i < results.size() && i < expected.size(); ++i) {
    Numbers with_batch = results[i];
    EXPECT_EQ(with_batch.count(), expected[i].count());
    with_batch.shape = expected[i].shape;
    // Whole numbers and truths come out as float32.
    const Numbers defined =
        is_real(expected[i].type) ? expected[i] : converted(expected[i], ElementType::float32);
    EXPECT_EQ(difference(with_batch, defined), "");
  }
  return model;
}

inline std::vector<std::string> kernels_of(const ImportedModel& model) {
  std::vector<std::string> names;
  const auto& config = *model.model.config_arr->cfgs.at("net")->cpu_sse;
  for (const std::string& id : config.squential_ids) {
    names.push_back(config.layer_cfgs.at(id)->kernel->kernel_type);
  }
  return names;
}

inline size_t count_of_kernel(const ImportedModel& model, const std::string& part) {
  const auto names = kernels_of(model);
  return static_cast<size_t>(
      std::count_if(names.begin(), names.end(),
                    [&](const std::string& name) { return name.find(part) != std::string::npos; }));
}

}  // namespace marlo::toolkit::test
