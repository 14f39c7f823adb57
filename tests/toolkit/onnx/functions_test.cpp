#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <onnx/defs/parser.h>

#include <fstream>

#include "qrt_toolkit/evaluate/evaluate.h"
#include "qrt_toolkit/onnx/read.h"
#include "tests/support/temporary_folder.h"

// Functions that a model brings along.

namespace marlo::toolkit::test {
namespace {

using marlo::test::TemporaryFolder;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

onnx::NodeProto node(const std::string& domain, const std::string& op,
                     const std::vector<std::string>& inputs, const std::string& output) {
  onnx::NodeProto proto;
  proto.set_domain(domain);
  proto.set_op_type(op);
  proto.set_name(op + "_node");
  for (const std::string& input : inputs) proto.add_input(input);
  proto.add_output(output);
  return proto;
}

onnx::FunctionProto function(const std::string& name, const std::vector<onnx::NodeProto>& nodes,
                             int opset = 13) {
  onnx::FunctionProto proto;
  proto.set_domain("local");
  proto.set_name(name);
  proto.add_input("a");
  proto.add_output("out");
  proto.add_attribute("slope");
  auto* import = proto.add_opset_import();
  import->set_version(opset);
  for (const auto& one : nodes) *proto.add_node() = one;
  return proto;
}

/// leaky(a) = -LeakyRelu<alpha = slope>(a)
onnx::FunctionProto leaky(int opset = 13) {
  onnx::NodeProto inner = node("", "LeakyRelu", {"a"}, "t");
  auto* alpha = inner.add_attribute();
  alpha->set_name("alpha");
  alpha->set_type(onnx::AttributeProto::FLOAT);
  alpha->set_ref_attr_name("slope");
  return function("leaky", {inner, node("", "Neg", {"t"}, "out")}, opset);
}

OnnxModel read(const std::string& graph, const std::vector<onnx::FunctionProto>& functions) {
  onnx::ModelProto model;
  const std::string text = "<ir_version: 8, opset_import: [\"\" : 13, \"local\" : 1]>\n" + graph;
  const auto status = onnx::OnnxParser::Parse(model, text.c_str());
  if (!status.IsOK()) throw std::invalid_argument(status.ErrorMessage());
  for (const auto& one : functions) *model.add_functions() = one;
  const TemporaryFolder folder;
  const std::string path = folder.file("model.onnx");
  std::ofstream file(path, std::ios::binary);
  model.SerializeToOstream(&file);
  file.close();
  return read_onnx(path);
}

std::string complaint(const std::string& graph, const std::vector<onnx::FunctionProto>& functions) {
  try {
    read(graph, functions);
  } catch (const ImportError& error) {
    return error.what();
  }
  return "";
}

std::vector<double> evaluated(const OnnxModel& model) {
  const auto x = std::make_shared<const Numbers>(Numbers::reals_1d({-2, 3}));
  return evaluate_graph(model.graph, {x}).at(0)->reals();
}

TEST(Functions, BecomeTheirNodesWithTheCallersAttributes) {
  const OnnxModel model = read(R"(g (float[2] x) => (float[2] y) {
    t = local.leaky<slope = 0.5>(x)
    y = local.leaky(t)
  })",
                               {leaky()});
  std::vector<std::string> operators;
  for (const NodeId id : model.graph.order()) operators.push_back(model.graph.node(id).op);
  EXPECT_THAT(operators, ElementsAre("LeakyRelu", "Neg", "LeakyRelu", "Neg"));
  // -2 -> 1 -> -1, and 3 -> -3 -> 0.03 with the slope that the operator has of its own.
  EXPECT_NEAR(evaluated(model)[0], -1, 1e-6);
  EXPECT_NEAR(evaluated(model)[1], 0.03, 1e-6);
}

TEST(Functions, CallOneAnother) {
  const auto twice =
      function("twice", {node("local", "leaky", {"a"}, "t"), node("local", "leaky", {"t"}, "out")});
  const OnnxModel model =
      read("g (float[2] x) => (float[2] y) { y = local.twice(x) }", {leaky(), twice});
  EXPECT_NEAR(evaluated(model)[1], 0.03, 1e-6);
}

TEST(Functions, ThatCallThemselvesAreRefused) {
  const auto endless = function("endless", {node("local", "endless", {"a"}, "out")});
  EXPECT_THAT(complaint("g (float[2] x) => (float[2] y) { y = local.endless(x) }", {endless}),
              HasSubstr("function \"endless\" is called by itself"));
  // Each calls the one before twice: 2^40 nodes.
  std::vector<onnx::FunctionProto> doubling = {leaky()};
  for (int i = 0; i < 40; ++i) {
    const std::string before = doubling.back().name();
    doubling.push_back(function("f" + std::to_string(i), {node("local", before, {"a"}, "t"),
                                                          node("local", before, {"t"}, "out")}));
  }
  EXPECT_THAT(complaint("g (float[2] x) => (float[2] y) { y = local.f39(x) }", doubling),
              HasSubstr("is called too often"));
}

TEST(Functions, OfAnotherOperatorSetAreRefused) {
  EXPECT_THAT(complaint("g (float[2] x) => (float[2] y) { y = local.leaky(x) }", {leaky(15)}),
              HasSubstr("it is written for operator set 15, the model for 13"));
}

}  // namespace
}  // namespace marlo::toolkit::test
