#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "import_agreement.h"

// Weights that are kept as whole multiples of a scale become floats; networks that compute with such
// numbers are refused, and told why.

namespace marlo::toolkit::test {
namespace {

using ::testing::AllOf;
using ::testing::HasSubstr;
using ::testing::Not;

/// The numbers that a graph without inputs makes.
Numbers computed(const std::string& graph, int opset) {
  return *evaluate_graph(model_of(graph, opset).graph, {}).at(0);
}

std::string refusal_of_import(const std::string& graph, int opset, const Shapes& shapes) {
  try {
    imported(graph, opset, shapes);
  } catch (const ImportError& error) {
    return error.what();
  }
  return "";
}

TEST(Quantised, WeightsBecomeFloats) {
  const ImportedModel model = expect_agreement(R"(g (float[1,2,3,3] x) => (float[1,3,3,3] y)
      <int8[3,2,1,1] q = {-128, 127, 4, -5, 60, 7}, float[3] s = {0.5, 0.25, 0.125}, int8[3] z = {0, 3, -2},
       int32[3] b = {100, -7, 9}, float[3] t = {0.01, 0.02, 0.03}> {
    w = DequantizeLinear<axis=0>(q, s, z)
    c = DequantizeLinear<axis=0>(b, t)
    y = Conv(x, w, c)
  })",
                                               13, {{"x", {1, 2, 3, 3}}});
  EXPECT_EQ(count_of_kernel(model, "Conv"), 1u);
  EXPECT_EQ(kernels_of(model).size(), 2u);
}

TEST(Quantised, EveryFormOfScales) {
  const Numbers one = computed(
      "g () => (float[3] y) <uint8[3] q = {0, 128, 255}, float s = {0.5}, uint8 z = {128}> "
      "{ y = DequantizeLinear(q, s, z) }",
      10);
  EXPECT_EQ(one.reals(), (Numbers::Reals{-64, 0, 63.5}));
  const Numbers axis = computed(
      "g () => (float[2,3] y) <int8[2,3] q = {1, 2, 3, 4, 5, 6}, float[3] s = {1, 10, 100}, "
      "int8[3] z = {0, 1, 2}> { y = DequantizeLinear<axis=-1>(q, s, z) }",
      13);
  EXPECT_EQ(axis.reals(), (Numbers::Reals{1, 10, 100, 4, 40, 400}));
  const Numbers blocks = computed(
      "g () => (float[2,5] y) <int8[2,5] q = {1, 1, 1, 1, 1, 2, 2, 2, 2, 2}, "
      "float[2,3] s = {1, 2, 3, 4, 5, 6}, int8[2,3] z = {0, 0, 0, 1, 1, 1}> "
      "{ y = DequantizeLinear<axis=1, block_size=2>(q, s, z) }",
      21);
  EXPECT_EQ(blocks.reals(), (Numbers::Reals{1, 1, 2, 2, 3, 4, 4, 5, 5, 6}));
  const Numbers columns = computed(
      "g () => (float[4,2] y) <uint8[4,2] q = {1, 2, 3, 4, 5, 6, 7, 8}, "
      "float[2,2] s = {1, 10, 100, 1000}> { y = DequantizeLinear<axis=0, block_size=2>(q, s) }",
      21);
  EXPECT_EQ(columns.reals(), (Numbers::Reals{1, 20, 3, 40, 500, 6000, 700, 8000}));
}

TEST(Quantised, RoundsToTheNearestAndStaysWithinBounds) {
  const Numbers made = computed(
      "g () => (int8[6] y) <float[6] x = {0.25, 0.75, -0.25, 1000, -1000, 1.3}, float s = {0.5}, "
      "int8 z = {1}> { y = QuantizeLinear(x, s, z) }",
      13);
  // Halves go to the even number, before the zero point is added.
  EXPECT_EQ(made.integers(), (Numbers::Integers{1, 3, 1, 127, -128, 4}));
  expect_agreement(R"(g (float[1,2] x) => (float[1,3] y)
      <float[2,3] w = {0.1, -0.2, 0.33, 0.4, -0.55, 0.61}, float s = {0.01}, uint8 z = {128}> {
    q = QuantizeLinear(w, s, z)
    d = DequantizeLinear(q, s, z)
    y = MatMul(x, d)
  })",
                   13, {{"x", {1, 2}}});
}

TEST(Quantised, ScalesThatFitNothingAreRefused) {
  EXPECT_THAT(refusal_of_import(R"(g (float[1,2] x) => (float[1,2] y)
      <int8[2] q = {1, 2}, float[3] s = {1, 2, 3}> {
    w = DequantizeLinear<axis=0>(q, s)
    y = Add(x, w)
  })",
                                13, {{"x", {1, 2}}}),
              HasSubstr("expected one scale, or one for each of 2, found 3"));
  EXPECT_THAT(refusal_of_import(R"(g (float[1,4] x) => (float[1,4] y)
      <int8[1,4] q = {1, 2, 3, 4}, float[1,2] s = {1, 2}> {
    w = DequantizeLinear<axis=1, block_size=3>(q, s)
    u = DequantizeLinear<axis=1>(q, s)
    z = Add(x, w)
    y = Add(z, u)
  })",
                                21, {{"x", {1, 4}}}),
              HasSubstr("scales of 1x2 don't fit a tensor of 1x4 in blocks of 0"));
}

TEST(Quantised, NetworksThatComputeWithThemAreRefusedWithWhatHelps) {
  const std::string around = refusal_of_import(R"(g (float[1,4] x) => (float[1,4] y)
      <float s = {0.1}, uint8 z = {128}> {
    q = QuantizeLinear(x, s, z)
    d = DequantizeLinear(q, s, z)
    y = Relu(d)
  })",
                                               13, {{"x", {1, 4}}});
  EXPECT_THAT(around, AllOf(HasSubstr("node \"q\" (QuantizeLinear, opset 13)"),
                            HasSubstr("node \"d\" (DequantizeLinear, opset 13)"),
                            HasSubstr("layers of this library compute in float32"),
                            HasSubstr("import the network as it was before it was quantised")));
  const std::string integers = refusal_of_import(R"(g (float[1,4] x) => (float[1,4] y)
      <uint8[4,4] w = {1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7}> {
    q, s, z = DynamicQuantizeLinear(x)
    i = MatMulInteger(q, w, z)
    f = Cast<to=1>(i)
    y = Mul(f, s)
  })",
                                                 13, {{"x", {1, 4}}});
  EXPECT_THAT(integers, AllOf(HasSubstr("(DynamicQuantizeLinear, opset 13): it computes with"),
                              HasSubstr("(MatMulInteger, opset 13): it computes with")));
}

TEST(Quantised, LoopsAndListsSayWhatTheyAre) {
  EXPECT_THAT(refusal_of_import("g (float[1,4] x) => (float[1,4] y) { s = SequenceConstruct(x) "
                                "y = SequenceAt(s, s) }",
                                13, {{"x", {1, 4}}}),
              HasSubstr("there are no sequences of tensors"));
  EXPECT_THAT(refusal_of_import("g (float[1,4] x) => (float[1,4] y) { y = RandomNormalLike(x) }",
                                13, {{"x", {1, 4}}}),
              AllOf(HasSubstr("nothing is random"), Not(HasSubstr("float32"))));
}

}  // namespace
}  // namespace marlo::toolkit::test
