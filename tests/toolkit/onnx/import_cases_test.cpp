#include <gtest/gtest.h>

#include <iostream>

#include "network_run.h"
#include "onnx_cases.h"
#include "qrt_toolkit/import_onnx.h"
#include "qrt_toolkit/onnx/read.h"
#include "tests/support/paths.h"

// ONNX's own test cases through the whole import: what becomes a network computes the outputs that
// were published, and what doesn't stands in unimported_cases.txt with its reason.

namespace marlo::toolkit::test {
namespace {

constexpr const char* kCases = "/usr/share/libonnx-testdata/data";
const std::string kRefused = marlo::test::source_path("tests/toolkit/onnx/refused_cases.txt");
const std::string kUnimported = marlo::test::source_path("tests/toolkit/onnx/unimported_cases.txt");

GivenTensor given_of(const Numbers& numbers) {
  GivenTensor given;
  given.shape = numbers.shape;
  for (size_t i = 0; i < static_cast<size_t>(numbers.count()); ++i) {
    given.numbers.push_back(numbers.real(i));
  }
  return given;
}

/// The tensors of a data set with the names of the graph's inputs.
std::vector<NamedInput> inputs_of(const Graph& graph, const DataSet& data) {
  std::vector<NamedInput> inputs;
  for (size_t i = 0; i < data.inputs.size(); ++i) {
    const Value& input = graph.value(graph.inputs.at(i));
    Constant published = read_onnx_tensor(data.inputs[i]);
    // The files hold these as their bits.
    if (input.type == ElementType::bfloat16) published.type = input.type;
    inputs.push_back({input.name, published.numbers()});
  }
  return inputs;
}

/// Imports with integers as constants; where that is refused, with all inputs but the first.
ImportedModel import_case(const OnnxCase& one, const std::vector<NamedInput>& inputs) {
  ImportOptions options;
  for (const NamedInput& input : inputs) {
    if (!is_real(input.numbers.type))
      options.constants[input.name] = given_of(input.numbers);
    else
      options.shapes[input.name] = input.numbers.shape;
  }
  try {
    return import_onnx(one.model.string(), options);
  } catch (const UnsupportedError& first) {
    for (size_t i = 1; i < inputs.size(); ++i) {
      options.shapes.erase(inputs[i].name);
      options.constants[inputs[i].name] = given_of(inputs[i].numbers);
    }
    try {
      return import_onnx(one.model.string(), options);
    } catch (const UnsupportedError&) {
      // Where constants were asked for, they were given now.
      if (first.refusals().front().why != "only a constant can stand here") throw first;
      throw;
    }
  }
}

/// Empty when all outputs agree.
std::string run(const OnnxCase& one) {
  const OnnxModel model = read_onnx(one.model);
  for (const DataSet& data : one.data) {
    const std::vector<NamedInput> inputs = inputs_of(model.graph, data);
    const std::vector<Numbers> results = run_network(import_case(one, inputs), {inputs}).at(0);
    if (results.size() != data.outputs.size()) return "another number of outputs";
    for (size_t i = 0; i < results.size(); ++i) {
      Constant published = read_onnx_tensor(data.outputs[i]);
      const ElementType type = model.graph.value(model.graph.outputs.at(i)).type;
      if (type == ElementType::bfloat16) published.type = type;
      Numbers expected = published.numbers();
      if (results[i].count() != expected.count()) return "another number of elements";
      // Without its batch the shape is another.
      expected.shape = results[i].shape;
      expected.type = ElementType::float32;
      const std::string text = difference(results[i], expected);
      if (!text.empty()) return "output " + std::to_string(i) + ": " + text;
    }
  }
  return "";
}

TEST(ImportCases, AgreeOrAreRefusedForTheStatedReason) {
  const auto cases = onnx_cases(kCases);
  if (cases.empty()) GTEST_SKIP() << "libonnx-testdata is not installed";
  const auto unread = refused_cases(kRefused);
  auto refused = refused_cases(kUnimported);
  size_t agree = 0;
  size_t stated = 0;
  for (const OnnxCase& one : cases) {
    if (unread.count(one.name) != 0) continue;
    std::string reason;
    try {
      const std::string text = run(one);
      if (!text.empty()) reason = "differs: " + text;
    } catch (const ImportError& error) {
      const Refusal& refusal = error.refusals().front();
      reason = refusal.op.empty() ? refusal.text() : refusal.op + ": ";
      if (!refusal.op.empty()) {
        reason += refusal.attribute.empty() ? refusal.why : refusal.attribute + ": " + refusal.why;
      }
    } catch (const std::exception& error) {
      reason = std::string("throws ") + error.what();
    }
    const auto place = refused.find(one.name);
    if (reason.empty()) {
      ++agree;
      EXPECT_TRUE(place == refused.end()) << one.name << " is imported, but stands in the table";
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
