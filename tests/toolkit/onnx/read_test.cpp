#include "qrt_toolkit/onnx/read.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <onnx/onnx_pb.h>

#include <filesystem>
#include <fstream>
#include <functional>

#include "model_text.h"
#include "tests/support/temporary_folder.h"

namespace marlo::toolkit::test {
namespace {

using marlo::test::TemporaryFolder;
using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// A model that the text form has no words for: one Relu, changed by `change`.
onnx::ModelProto relu_model() {
  onnx::ModelProto model;
  model.set_ir_version(8);
  model.add_opset_import()->set_version(13);
  auto* graph = model.mutable_graph();
  graph->set_name("g");
  auto* node = graph->add_node();
  node->set_op_type("Relu");
  node->set_name("r");
  node->add_input("x");
  node->add_output("y");
  graph->add_output()->set_name("y");
  return model;
}

onnx::TensorProto* add_constant(onnx::ModelProto& model, const std::string& name,
                                const std::vector<int64_t>& dims) {
  auto* tensor = model.mutable_graph()->add_initializer();
  tensor->set_name(name);
  tensor->set_data_type(onnx::TensorProto::FLOAT);
  for (const int64_t size : dims) tensor->add_dims(size);
  return tensor;
}

class Reading : public ::testing::Test {
 protected:
  std::filesystem::path write(const std::string& name, const std::string& bytes) {
    std::filesystem::path path = folder_.file(name);
    std::filesystem::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }

  /// The text of the error that reading ends in, empty for none.
  std::string complaint(const std::filesystem::path& path) {
    try {
      read_onnx(path);
    } catch (const ImportError& error) {
      return error.what();
    }
    return "";
  }
  std::string complaint(const onnx::ModelProto& model) {
    return complaint(write("m/model.onnx", model.SerializeAsString()));
  }

  TemporaryFolder folder_;
};

TEST_F(Reading, SaysWhatKindOfFileItIsNot) {
  EXPECT_THAT(complaint(folder_.file("none.onnx")), HasSubstr("there is no file"));
  EXPECT_THAT(complaint(write("empty.onnx", "")), HasSubstr("is empty"));
  EXPECT_THAT(complaint(std::filesystem::path(folder_.file("."))), HasSubstr("no regular file"));
  EXPECT_THAT(complaint(write("text.onnx", "hello, world")), HasSubstr("no ONNX file"));
}

TEST_F(Reading, RefusesEveryFileThatIsCutShort) {
  onnx::ModelProto model = relu_model();
  add_constant(model, "x", {2})->set_raw_data(std::string(8, 'a'));
  const std::string whole = model.SerializeAsString();
  ASSERT_EQ(complaint(write("m.onnx", whole)), "");
  for (size_t size = 0; size + 1 < whole.size(); ++size) {
    // Cut between two fields a file may still be whole, but then it has no operator set.
    EXPECT_NE(complaint(write("m.onnx", whole.substr(0, size))), "") << size;
  }
}

TEST_F(Reading, ComparesTheSizeOfATensorWithItsBytes) {
  onnx::ModelProto model = relu_model();
  onnx::TensorProto* tensor = add_constant(model, "x", {3, 4});
  tensor->set_raw_data(std::string(47, 'a'));
  EXPECT_THAT(complaint(model), HasSubstr("tensor \"x\": a tensor of 3x4 float32 takes 48 bytes, "
                                          "the file holds 47"));
  tensor->clear_raw_data();
  tensor->add_float_data(1);
  EXPECT_THAT(complaint(model), HasSubstr("the file holds 4"));
}

TEST_F(Reading, RefusesSizesThatNoMemoryHas) {
  onnx::ModelProto model = relu_model();
  add_constant(model, "x", {int64_t{1} << 40, int64_t{1} << 40});
  EXPECT_THAT(complaint(model), HasSubstr("is impossible"));
  model = relu_model();
  add_constant(model, "x", {-2});
  EXPECT_THAT(complaint(model), HasSubstr("is impossible"));
}

TEST_F(Reading, ListsAllThatIsWrongAtOnce) {
  onnx::ModelProto model = relu_model();
  add_constant(model, "w", {2});
  add_constant(model, "w", {2})->set_raw_data(std::string(8, 'a'));
  model.mutable_graph()->add_output()->set_name("z");
  const std::string text = complaint(model);
  EXPECT_THAT(text, HasSubstr("tensor \"w\": a tensor of 2 float32 takes 8 bytes"));
  EXPECT_THAT(text, HasSubstr("\"w\": the constant has the name of another tensor"));
  EXPECT_THAT(text, HasSubstr("node \"r\" (Relu, opset 13): input \"x\": nothing makes it"));
  EXPECT_THAT(text, HasSubstr("output \"z\": nothing makes it"));
}

TEST_F(Reading, FindsCircles) {
  EXPECT_THAT(complaint_about("g () => (float[2] y) { a = Relu(b)\n b = Relu(a)\n y = Relu(a) }"),
              AllOf(HasSubstr("node \"a\" (Relu, opset 13): inputs: the node reads"),
                    HasSubstr("in a circle")));
}

TEST_F(Reading, TakesNodesInAnyOrder) {
  const OnnxModel model = model_of("g (float[2] x) => (float[2] y) { y = Neg(a)\n a = Relu(x) }");
  const auto order = model.graph.order();
  ASSERT_EQ(order.size(), 2u);
  EXPECT_EQ(model.graph.node(order[0]).op, "Relu");
}

TEST_F(Reading, RefusesOutputsWithOneName) {
  EXPECT_THAT(complaint_about("g (float[2] x) => (float[2] y) { y = Relu(x)\n y = Neg(x) }"),
              HasSubstr("\"y\": the output of a node has the name of another tensor"));
}

/// A model whose only node is an If with an If in its branch, and so on.
onnx::ModelProto nested_ifs(int depth) {
  onnx::ModelProto model = relu_model();
  onnx::GraphProto* graph = model.mutable_graph();
  graph->clear_node();
  auto* condition = graph->add_initializer();
  condition->set_name("c");
  condition->set_data_type(onnx::TensorProto::BOOL);
  condition->set_raw_data(std::string(1, '\1'));
  for (int i = 0; i < depth; ++i) {
    auto* node = graph->add_node();
    node->set_op_type("If");
    node->add_input("c");
    node->add_output(graph->output(0).name());
    for (const char* name : {"else_branch", "then_branch"}) {
      auto* attribute = node->add_attribute();
      attribute->set_name(name);
      attribute->set_type(onnx::AttributeProto::GRAPH);
      graph = attribute->mutable_g();
      const std::string output = name[0] + std::to_string(i);
      graph->add_output()->set_name(output);
      auto* constant = graph->add_initializer();
      constant->set_data_type(onnx::TensorProto::FLOAT);
      constant->set_raw_data(std::string(4, '\0'));
      constant->set_name(output);
    }
    // The branch goes on inside of its own constant's place.
    if (i + 1 < depth) graph->clear_initializer();
  }
  return model;
}

TEST_F(Reading, FollowsNestedGraphsToADepth) {
  EXPECT_EQ(complaint(nested_ifs(kMostNesting)), "");
  EXPECT_THAT(complaint(nested_ifs(kMostNesting + 1)), HasSubstr("nested deeper than 64"));
  EXPECT_THAT(complaint(nested_ifs(1000)), HasSubstr("nested deeper than 64"));
  EXPECT_THAT(complaint(nested_ifs(20000)), HasSubstr("nests graphs too deep"));
}

class External : public Reading {
 protected:
  /// What is said of a model with an external tensor of four floats.
  std::string about(const std::string& location, const std::string& offset = "",
                    const std::string& length = "") {
    onnx::ModelProto model = relu_model();
    onnx::TensorProto* tensor = add_constant(model, "x", {4});
    tensor->set_data_location(onnx::TensorProto::EXTERNAL);
    const auto set = [&](const char* key, const std::string& value) {
      auto* entry = tensor->add_external_data();
      entry->set_key(key);
      entry->set_value(value);
    };
    set("location", location);
    if (!offset.empty()) set("offset", offset);
    if (!length.empty()) set("length", length);
    return complaint(model);
  }
};

TEST_F(External, DataIsReadFromTheModelsFolder) {
  write("m/weights.bin",
        std::string(8, '\0') + std::string("\0\0\x80\x3f", 4) + std::string(12, '\0'));
  EXPECT_EQ(about("weights.bin", "8", "16"), "");
  EXPECT_EQ(about("weights.bin", "8"), "");
  const OnnxModel model = read_onnx(folder_.file("m/model.onnx"));
  const Graph& graph = model.graph;
  const ValueId x = graph.node(graph.order().at(0)).inputs.at(0);
  EXPECT_EQ(graph.value(x).constant->numbers().reals().at(0), 1.0);
}

TEST_F(External, DataMustFitTheShape) {
  write("m/weights.bin", std::string(20, '\0'));
  EXPECT_THAT(about("weights.bin", "8", "16"), HasSubstr("holds 12 bytes for it at 8"));
  EXPECT_THAT(about("weights.bin", "0", "12"), HasSubstr("the shape takes 16"));
  EXPECT_THAT(about("weights.bin", "99999999999", "16"), HasSubstr("holds 0 bytes"));
  EXPECT_THAT(about("weights.bin", "-8"), HasSubstr("is no number of bytes"));
  EXPECT_THAT(about("none.bin"), HasSubstr("there is no file"));
}

TEST_F(External, DataOutsideOfTheFolderIsNotRead) {
  write("secret.bin", std::string(16, '\0'));
  EXPECT_THAT(about("../secret.bin"), HasSubstr("leads out of the model's folder"));
  EXPECT_THAT(about("a/../../secret.bin"), HasSubstr("leads out of the model's folder"));
  EXPECT_THAT(about(folder_.file("secret.bin")), HasSubstr("leads out of the model's folder"));
  std::filesystem::create_symlink(folder_.file("secret.bin"), folder_.file("m/link.bin"));
  EXPECT_THAT(about("link.bin"), HasSubstr("leads out of the model's folder"));
  EXPECT_THAT(about(""), HasSubstr("leads out of the model's folder"));
}

TEST_F(Reading, NamesTheNewestOperatorSet) {
  EXPECT_EQ(complaint_about("g (float[2] x) => (float[2] y) { y = Relu(x) }", 21), "");
  EXPECT_THAT(complaint_about("g (float[2] x) => (float[2] y) { y = Relu(x) }", 23),
              HasSubstr("operator set 23 is newer than 22"));
}

TEST_F(Reading, PassesOnWhatTheCheckerOfOnnxSays) {
  EXPECT_THAT(complaint_about("g (float[2] x) => (float[2] y) { y = Relu<slope = 1>(x) }"),
              AllOf(HasSubstr("node \"y\" (Relu, opset 13)"), HasSubstr("slope")));
}

TEST_F(Reading, KeepsWhereANodeComesFrom) {
  onnx::ModelProto model = relu_model();
  model.mutable_graph()->mutable_node(0)->set_doc_string("\n net.py(12): forward\nmore");
  EXPECT_THAT(complaint(model), HasSubstr("node \"r\" (Relu, opset 13, from net.py(12): forward)"));
}

TEST_F(Reading, ResolvesNamesOfOuterGraphs) {
  const OnnxModel model = model_of(R"(g (float[2] x, bool c) => (float[2] y) {
    a = Relu(x)
    y = If (c) <then_branch = t () => (float[2] p) { p = Neg(a) },
                else_branch = e () => (float[2] q) { q = Add(a, x) }>
  })");
  const Graph& graph = model.graph;
  const Node& node = graph.node(graph.order().back());
  EXPECT_EQ(node.graph("then_branch").captures.size(), 1u);
  EXPECT_EQ(node.graph("else_branch").captures.size(), 2u);
  // The node waits for what its branches read.
  EXPECT_EQ(graph.reads(node).size(), 4u);
}

}  // namespace
}  // namespace marlo::toolkit::test
