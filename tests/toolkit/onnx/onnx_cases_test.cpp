#include "onnx_cases.h"

#include <gtest/gtest.h>

#include <iostream>

#include "qrt_toolkit/evaluate/evaluate.h"
#include "qrt_toolkit/import_onnx.h"
#include "qrt_toolkit/onnx/read.h"
#include "qrt_toolkit/shapes/infer.h"
#include "tests/support/paths.h"

// ONNX's own test cases through the reader, shape inference and the evaluator. A case that isn't
// supported stands in refused_cases.txt with its reason; one that is must not stand there.

namespace marlo::toolkit::test {
namespace {

constexpr const char* kCases = "/usr/share/libonnx-testdata/data";
const std::string kRefused = marlo::test::source_path("tests/toolkit/onnx/refused_cases.txt");

/// A tensor of a data set, as the graph types it: the data spells bfloat16 by its bits.
SharedNumbers tensor_as(ElementType type, const std::filesystem::path& file) {
  Constant constant = read_onnx_tensor(file);
  if (type == ElementType::bfloat16 && constant.type == ElementType::uint16) constant.type = type;
  return std::make_shared<const Numbers>(constant.numbers());
}

/// What is known beforehand: shapes of all inputs, and the numbers of those that are no pictures or
/// signals, which an import would have to be given.
void state_inputs(Graph& graph, const std::vector<SharedNumbers>& inputs) {
  for (size_t i = 0; i < inputs.size(); ++i) {
    Value& value = graph.value(graph.inputs[i]);
    value.shape = shape_of(inputs[i]->shape);
    value.type = inputs[i]->type;
    const bool list = inputs[i]->shape.size() <= 1 && inputs[i]->count() <= 8;
    if (!is_real(inputs[i]->type) || list) value.constant = constant_of(*inputs[i]);
  }
}

std::string check_facts(const Graph& graph, const std::vector<SharedNumbers>& results) {
  const std::vector<Facts> facts = infer_facts(graph);
  for (size_t i = 0; i < results.size(); ++i) {
    const Facts& known = facts[static_cast<size_t>(graph.outputs[i])];
    if (known.type != results[i]->type) {
      return std::string("inferred ") + name_of(known.type) + ", is " + name_of(results[i]->type);
    }
    const auto extents = known.shape ? extents_of(*known.shape) : std::nullopt;
    if (!extents) return "the shape of output " + std::to_string(i) + " isn't inferred";
    if (*extents != results[i]->shape) {
      return "inferred " + text_of(*known.shape) + ", is " + text_of(results[i]->shape);
    }
  }
  return "";
}

/// Empty when all data sets agree; throws where something isn't supported.
std::string run(const OnnxCase& one) {
  const OnnxModel model = read_onnx(one.model);
  for (const DataSet& data : one.data) {
    std::vector<SharedNumbers> inputs;
    for (size_t i = 0; i < data.inputs.size(); ++i) {
      const ElementType type = model.graph.value(model.graph.inputs.at(i)).type;
      inputs.push_back(tensor_as(type, data.inputs[i]));
    }
    const auto results = evaluate_graph(model.graph, inputs);
    if (results.size() != data.outputs.size()) return "another number of outputs";
    for (size_t i = 0; i < results.size(); ++i) {
      const SharedNumbers expected = tensor_as(results[i]->type, data.outputs[i]);
      const std::string text = difference(*results[i], *expected);
      if (!text.empty()) return "output " + std::to_string(i) + ": " + text;
    }
    Graph stated = model.graph;
    state_inputs(stated, inputs);
    std::string text = check_facts(stated, results);
    if (!text.empty()) return text;
  }
  return "";
}

std::string first_line(const std::string& text) { return text.substr(0, text.find('\n')); }

TEST(OnnxCases, AgreeOrAreRefusedForTheStatedReason) {
  const auto cases = onnx_cases(kCases);
  if (cases.empty()) GTEST_SKIP() << "libonnx-testdata is not installed";
  if (!can_read_onnx()) GTEST_SKIP() << "built without the reader";
  auto refused = refused_cases(kRefused);
  size_t agree = 0;
  size_t stated = 0;
  for (const OnnxCase& one : cases) {
    std::string reason;
    try {
      const std::string text = run(one);
      EXPECT_EQ(text, "") << one.name;
      if (text.empty()) ++agree;
    } catch (const ImportError& error) {
      const Refusal& refusal = error.refusals().front();
      reason = refusal.op.empty() ? refusal.text() : refusal.op + ": " + refusal.why;
      reason = first_line(reason);
    }
    const auto place = refused.find(one.name);
    if (reason.empty()) {
      EXPECT_TRUE(place == refused.end()) << one.name << " is supported, but stands in the table";
    } else {
      ++stated;
      const std::string expected = place == refused.end() ? "nothing in the table" : place->second;
      EXPECT_EQ(reason, expected) << one.name << ": " << reason;
    }
    if (place != refused.end()) refused.erase(place);
  }
  for (const auto& [name, reason] : refused) ADD_FAILURE() << name << " is no case";
  std::cout << agree << " cases agree, " << stated << " are refused for the stated reason\n";
}

}  // namespace
}  // namespace marlo::toolkit::test
