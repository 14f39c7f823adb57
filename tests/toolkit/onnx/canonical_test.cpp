#include "qrt_toolkit/onnx/canonical.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model_text.h"
#include "qrt_toolkit/evaluate/evaluate.h"

// One form for all operator sets: the same numbers from an old spelling and from the new one.

namespace marlo::toolkit::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

/// The only output of a model with one input of these numbers.
Numbers result_of(const std::string& graph, int opset, Extents shape, Numbers::Reals numbers) {
  const OnnxModel model = model_of(graph, opset);
  auto input = std::make_shared<Numbers>(ElementType::float32, std::move(shape));
  input->data = std::move(numbers);
  return *evaluate_graph(model.graph, {input}).at(0);
}

TEST(Canonical, AxesOfSqueezeAreAnAttributeOrAnInput) {
  const Numbers old = result_of("g (float[1,2,1] x) => (float[1,2] y) { y = Squeeze<axes=[2]>(x) }",
                                11, {1, 2, 1}, {3, 4});
  EXPECT_THAT(old.shape, ElementsAre(1, 2));
  const Numbers now =
      result_of("g (float[1,2,1] x) => (float[1,2] y) <int64[1] a = {2}> { y = Squeeze(x, a) }", 13,
                {1, 2, 1}, {3, 4});
  EXPECT_EQ(now.shape, old.shape);
}

TEST(Canonical, SoftmaxRanOverAllAxesFromOneOn) {
  const char* graph = "g (float[1,2,2] x) => (float[1,2,2] y) { y = Softmax<axis=1>(x) }";
  EXPECT_THAT(result_of(graph, 12, {1, 2, 2}, {0, 0, 0, 0}).reals(),
              ElementsAre(0.25, 0.25, 0.25, 0.25));
  EXPECT_THAT(result_of(graph, 13, {1, 2, 2}, {0, 0, 0, 0}).reals(),
              ElementsAre(0.5, 0.5, 0.5, 0.5));
}

TEST(Canonical, BoundsOfClipWereAttributes) {
  const char* graph = "g (float[3] x) => (float[3] y) { y = Clip<min=0.0, max=6.0>(x) }";
  EXPECT_THAT(result_of(graph, 6, {3}, {-1, 3, 9}).reals(), ElementsAre(0, 3, 6));
}

TEST(Canonical, UpsampleIsAResizeFromTheFirstElement) {
  const char* graph =
      "g (float[1,1,1,2] x) => (float[1,1,1,4] y) "
      "{ y = Upsample<mode=\"nearest\", scales=[1.0,1.0,1.0,2.0]>(x) }";
  EXPECT_THAT(result_of(graph, 7, {1, 1, 1, 2}, {1, 2}).reals(), ElementsAre(1, 1, 2, 2));
}

TEST(Canonical, RefusalsNameTheOperatorOfTheFile) {
  const OnnxModel model = model_of(
      "g (float[1,1,1,2] x) => (float[1,1,1,4] y) "
      "{ y = Upsample<mode=\"nearest\", scales=[1.0,1.0,1.0]>(x) }",
      7);
  const Graph& graph = model.graph;
  try {
    const Numbers x(ElementType::float32, {1, 1, 1, 2});
    evaluate_node(graph.node(graph.order().at(0)),
                  {&x, nullptr, std::make_unique<Numbers>(Numbers::reals_1d({1, 1, 1})).get()});
    FAIL();
  } catch (const UnsupportedError& error) {
    EXPECT_EQ(error.refusals().at(0).op, "Upsample");
    EXPECT_EQ(error.refusals().at(0).opset, 7);
    EXPECT_EQ(error.refusals().at(0).attribute, "scales");
  }
}

TEST(Canonical, ConstantsAreValues) {
  const OnnxModel model = model_of(
      "g () => (float[2] y) { c = Constant<value_floats=[1.0, -2.0]>()\n y = Relu(c) }", 13);
  EXPECT_EQ(model.graph.order().size(), 1u);
  EXPECT_THAT(evaluate_graph(model.graph, {}).at(0)->reals(), ElementsAre(1, 0));
}

TEST(Canonical, TrainingIsRefused) {
  EXPECT_THAT(complaint_about("g (float[1,2] x, float[2] s) => (float[1,2] y) "
                              "{ y = BatchNormalization<spatial=0>(x, s, s, s, s) }",
                              7),
              HasSubstr("spatial: "));
}

}  // namespace
}  // namespace marlo::toolkit::test
