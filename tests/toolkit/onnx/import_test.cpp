#include "qrt_toolkit/import_onnx.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model_text.h"
#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/model/inference_config.h"
#include "tests/support/temporary_folder.h"

namespace marlo::toolkit::test {
namespace {

using marlo::test::TemporaryFolder;
using ::testing::AllOf;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

ImportedModel imported(const std::string& graph, const ImportOptions& options = {},
                       int opset = 13) {
  const TemporaryFolder folder;
  write_model(folder.file("small.onnx"), graph, opset);
  return import_onnx(folder.file("small.onnx"), options);
}

std::string refusal_of(const std::string& graph, const ImportOptions& options = {}) {
  try {
    imported(graph, options);
  } catch (const ImportError& error) {
    return error.what();
  }
  return "";
}

const char* const kClassifier = R"(g (float[n,1,4,4] x) => (float[n,3] p)
    <float[2,1,3,3] w = {1, 0, -1, 2, 0, -2, 1, 0, -1, 1, 2, 1, 0, 0, 0, -1, -2, -1},
     float[2] s = {2, 0.5}, float[2] z = {0, 1}, float[2] v = {1, 4},
     float[3,2] m = {1, 2, 3, 4, 5, 6}, float[3] b = {1, 0, -1}> {
  c = Conv<pads=[1, 1, 1, 1]>(x, w)
  n = BatchNormalization(c, s, z, z, v)
  r = Relu(n)
  a = Add(r, n)
  q = GlobalAveragePool(a)
  f = Flatten(q)
  l = Gemm<transB=1>(f, m, b)
  p = Softmax<axis=1>(l)
})";

TEST(ImportOnnx, ReportsWhatBecameOfTheNetwork) {
  const ImportedModel model = imported(kClassifier);
  const ImportReport& report = model.report;
  EXPECT_EQ(report.network, "small");
  EXPECT_EQ(report.opset, 13);
  ASSERT_EQ(report.inputs.size(), 1u);
  EXPECT_EQ(report.inputs[0].name, "x");
  EXPECT_THAT(report.inputs[0].shape, ElementsAre(1, 4, 4));
  EXPECT_TRUE(report.inputs[0].has_batch);
  ASSERT_EQ(report.outputs.size(), 1u);
  EXPECT_EQ(report.outputs[0].name, "p");
  EXPECT_THAT(report.outputs[0].shape, ElementsAre(3));
  EXPECT_EQ(report.multiply_adds, 2u * 9 * 16 + 6);
  EXPECT_THAT(report.notes, ElementsAre(HasSubstr("taken for a batch of 1")));
}

TEST(ImportOnnx, WritesAModelThatLoads) {
  const TemporaryFolder folder;
  ImportedModel model = imported(kClassifier);
  model.model.ToFile(folder.file("small.qrtmodel").c_str(), "bin");
  runtime::KernelRegistry kernels;
  runtime::InferenceParamRegistry params;
  std::shared_ptr<runtime::Context> context;
  utility::init_register_operators(kernels, params);
  utility::init_register_extension_operators(kernels, params);
  utility::create_context(context, 64);
  std::map<std::string, std::shared_ptr<utility::_NetworkPackage>> nets;
  ASSERT_EQ(
      utility::load_model(folder.file("small.qrtmodel"), nets, context, kernels, params, "", 0, 0),
      0);
  const auto& package = nets.at("small");
  EXPECT_THAT(package->extra_info.summary, HasSubstr("{\"qrt_model\":1,\"source\":\"small.onnx\""));
  EXPECT_EQ(package->extra_info.model_base_h, 4u);
  const std::vector<float> pixels(16, 1.0f);
  const auto input = package->net->input_map.at("x");
  const auto results = package->net->Forward(
      {{input,
        context->cpu->CreateTensor(
            runtime::TensorShape({1, 4, 4}, runtime::DataType::FLOAT32, runtime::LayoutType::CHW),
            pixels.data())}},
      package->output_ids, context, nullptr, nullptr);
  const auto tensor =
      std::dynamic_pointer_cast<runtime::TensorCPU>(results.at(package->output_ids.at(0)).at(0));
  const auto* numbers = static_cast<const float*>(tensor->RawPointer());
  EXPECT_NEAR(numbers[0] + numbers[1] + numbers[2], 1, 1e-6);
}

TEST(ImportOnnx, NamesLayersAfterTensorsAndKeepsTheirNodes) {
  const ImportedModel model = imported(kClassifier);
  const auto& ids = model.model.model_arr->infos.at("small")->squential_ids;
  EXPECT_THAT(ids, ElementsAre("x", "n", "r", "a", "q", "f", "l", "p"));
  EXPECT_EQ(model.report.node_of_layer.at("r"), "r");
}

TEST(ImportOnnx, ListsEverythingThatIsRefused) {
  const std::string text = refusal_of(R"(g (float[1,4] x) => (float[1,4] y) {
    a = Erf(x)
    b = Det(a)
    y = Acos(b)
  })");
  EXPECT_THAT(
      text,
      HasSubstr("node \"b\" (Det, opset 13): no layers of this library compute the operator"));
  const std::string lowered = refusal_of(R"(g (float a, float b) => (float[n] y, float[m] z) {
    s = Constant<value_float=1.0>()
    y = Range(a, b, s)
    z = Range(b, a, s)
  })");
  EXPECT_THAT(lowered, AllOf(HasSubstr("node \"y\" (Range, opset 13): no layers"),
                             HasSubstr("node \"z\" (Range, opset 13): no layers")));
}

TEST(ImportOnnx, ABatchIsRefused) {
  EXPECT_THAT(refusal_of(R"(g (float[2,1,4,4] x) => (float[2,1,1,1] y) {
                y = GlobalAveragePool(x)
              })"),
              AllOf(HasSubstr("input \"x\": a batch of 2 can't be run"),
                    HasSubstr("give the network's inputs a batch of 1")));
}

TEST(ImportOnnx, AGraphWithoutBatchKeepsItsAxes) {
  const ImportedModel model =
      imported("g (float[3,4,5] x, float[5] z) => (float[3,4,5] y) { y = Add(x, z) }");
  EXPECT_THAT(model.report.inputs[0].shape, ElementsAre(3, 4, 5));
  EXPECT_FALSE(model.report.inputs[0].has_batch);
  EXPECT_THAT(model.report.outputs[0].shape, ElementsAre(3, 4, 5));
}

TEST(ImportOnnx, InputsCanBecomeConstants) {
  const char* graph = "g (float[2,3] x, int64[2] s) => (float[6] y) { y = Reshape(x, s) }";
  EXPECT_THAT(refusal_of(graph), HasSubstr("make those constants that decide shapes"));
  ImportOptions options;
  options.constants["s"] = {{2}, {3, 2}};
  EXPECT_THAT(imported(graph, options).report.outputs[0].shape, ElementsAre(3, 2));
  options.constants["t"] = {{}, {1}};
  EXPECT_THAT(refusal_of(graph, options),
              AllOf(HasSubstr("input \"t\": the graph has no such input"), HasSubstr("x, s")));
}

TEST(ImportOnnx, OpenSizesCanBeGiven) {
  const char* graph = "g (float[1,1,h,w] x) => (float[1,1,h,w] y) { y = Relu(x) }";
  EXPECT_THAT(refusal_of(graph), HasSubstr("its shape isn't known: 1x1xhxw"));
  ImportOptions options;
  options.shapes["x"] = {1, 1, 6, 8};
  EXPECT_THAT(imported(graph, options).report.inputs[0].shape, ElementsAre(1, 1, 6, 8));
  options.shapes["x"] = {1, 2, 6, 8};
  EXPECT_THAT(refusal_of(graph, options), HasSubstr("a shape of 1x2x6x8 is not 1x1xhxw"));
}

TEST(ImportOnnx, NumbersBeyondSixteenBitsAreRefusedByName) {
  const char* graph = R"(g (float[1,1,1,70000] x) => (float[1,1,1,1] y)
      { y = AveragePool<kernel_shape=[1, 70000]>(x) })";
  EXPECT_THAT(refusal_of(graph), HasSubstr("kernel_shape: 70000 is beyond the 65535"));
}

TEST(ImportOnnx, ASizeThatStaysFreeIsAnyInTheModel) {
  const char* graph = R"(g (float[n,1,4,w] x) => (float[n,s,4] y) <int64[3] s = {1, 4, -1}> {
    r = Relu(x)
    p = MaxPool<kernel_shape=[1, 2], strides=[1, 2]>(r)
    q = Reshape(p, s)
    y = Transpose<perm=[0, 2, 1]>(q)
  })";
  ImportOptions options;
  options.shapes["x"] = {1, 1, 4, -1};
  const ImportedModel model = imported(graph, options);
  EXPECT_THAT(model.report.inputs[0].shape, ElementsAre(1, 4, 0));
  EXPECT_THAT(model.report.outputs[0].shape, ElementsAre(0, 4));
  EXPECT_THAT(model.report.notes, ::testing::Contains(HasSubstr("sizes stay free")));
}

TEST(ImportOnnx, LayersThatPinAFreeSizeAreNamed) {
  const char* graph = R"(g (float[n,1,4,w] x) => (float[n,1,4,w] y) {
    a = Relu(x)
    p = GlobalMaxPool(a)
    y = Mul(a, p)
  })";
  ImportOptions options;
  options.shapes[""] = {1, 1, 4, -1};
  const std::string text = refusal_of(graph, options);
  // A window as large as its input.
  EXPECT_THAT(text, AllOf(HasSubstr("node \"p\" (GlobalMaxPool"), HasSubstr("free sizes of 64 and"),
                          Not(HasSubstr("node \"a\""))));
}

TEST(ImportOnnx, APartOfTheGraphCanBeTaken) {
  const char* graph = R"(g (float[1,2,4,4] x, float[1,2,4,4] z) => (float[1,2,4,4] y) {
    a = Relu(x)
    b = Mod(z, z)
    y = Add(a, b)
  })";
  ImportOptions options;
  options.outputs = {"a"};
  const ImportedModel model = imported(graph, options);
  ASSERT_EQ(model.report.inputs.size(), 1u);
  EXPECT_EQ(model.report.outputs.at(0).name, "a");
  options.outputs = {"a", "x", "nowhere"};
  EXPECT_THAT(refusal_of(graph, options),
              AllOf(HasSubstr("output \"x\": no node makes it"), HasSubstr("output \"nowhere\"")));
}

TEST(SupportedOperators, AreTheTable) {
  const auto operators = supported_operators();
  const auto find = [&](const std::string& name) {
    return *std::find_if(operators.begin(), operators.end(),
                         [&](const OperatorSupport& row) { return row.name == name; });
  };
  EXPECT_TRUE(find("Conv").is_lowered);
  EXPECT_THAT(find("Conv").limits, HasSubstr("constant weights"));
  EXPECT_EQ(find("Erf").limits, "");
  EXPECT_FALSE(find("Range").is_lowered);
}

}  // namespace
}  // namespace marlo::toolkit::test
