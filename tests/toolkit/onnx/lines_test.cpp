#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "import_agreement.h"
#include "qrt_toolkit/simplify/simplify.h"
#include "tests/support/kernels.h"

// Networks over lines [N, C, L]: windows become those over planes, and lines stay planes between them.

namespace marlo::toolkit::test {
namespace {

/// How often an operator stands in what is left of a graph.
size_t count_after_simplifying(const std::string& text, const std::string& op, int opset) {
  Graph graph = model_of(text, opset).graph;
  simplify(graph);
  size_t count = 0;
  for (const NodeId id : graph.order()) count += graph.node(id).op == op ? 1 : 0;
  return count;
}

/// A graph from lines x [1, 8, 13] to y, with weights u, v and w of windows of 3, 1 and 4.
std::string lines(const std::string& body, const std::string& constants = "") {
  const auto numbers = [](size_t count) {
    std::string list;
    for (size_t i = 0; i < count; ++i) {
      list += (i == 0 ? "" : ", ") + std::to_string(static_cast<int>(i * 7 % 11) - 5) + "e-1";
    }
    return list;
  };
  return "g (float[1,8,13] x) => (float[a,b,c] y) <float[8,8,3] u = {" + numbers(192) +
         "}, float[8,8,1] v = {" + numbers(64) + "}, float[8,8,4] w = {" + numbers(256) + "}" +
         (constants.empty() ? "" : ", " + constants) + "> { " + body + " }";
}

const Shapes kLines = {{"x", {1, 8, 13}}};
constexpr int kOpset = 18;

/// The graph computes the same when it is imported, with a row given once and taken away once.
void expect_one_row(const std::string& body, const std::string& constants = "") {
  SCOPED_TRACE(body);
  const std::string text = lines(body, constants);
  EXPECT_EQ(count_after_simplifying(text, "Unsqueeze", kOpset), 1u);
  EXPECT_EQ(count_after_simplifying(text, "Squeeze", kOpset), 1u);
  expect_agreement(text, kOpset, kLines);
}

TEST(Lines, WindowsOneBehindTheOther) {
  expect_one_row(R"(a = Conv<pads=[1, 1]>(x, u) b = Conv<dilations=[2], pads=[3, 1]>(a, u)
                    c = Conv<strides=[2]>(b, v) y = MaxPool<kernel_shape=[2], strides=[2]>(c))");
  expect_one_row(R"(a = ConvTranspose<strides=[2], pads=[1, 2], output_padding=[1]>(x, w)
                    b = AveragePool<kernel_shape=[3], pads=[1, 1], count_include_pad=1>(a)
                    y = GlobalAveragePool(b))");
  expect_one_row(R"(a = Conv<auto_pad="SAME_UPPER", strides=[2]>(x, u)
                    b = ConvTranspose<strides=[2], output_shape=[13]>(a, w)
                    y = GlobalMaxPool(b))");
}

TEST(Lines, FunctionsBetweenWindows) {
  expect_one_row(R"(a = Conv<pads=[1, 1]>(x, u) b = Elu(a) c = Conv<pads=[1, 1]>(b, u)
                    d = HardSwish(c) e = Softmax<axis=-1>(d) f = Conv(e, v) y = Softmax<axis=1>(f))");
  expect_one_row("a = Conv(x, v) b = PRelu(a, s) c = Conv(b, v) y = InstanceNormalization(c, t, t)",
                 "float[8,1] s = {1, 2, 3, 4, 5, 6, 7, 8}, float[8] t = {1, 2, 3, 4, 5, 6, 7, 8}");
}

TEST(Lines, SumsOfLinesAndOfConstants) {
  expect_one_row(R"(r = Relu(x) a = Conv<pads=[1, 1]>(x, u) b = Relu(a) c = Conv(b, v)
                    d = Add(x, c) e = Conv(d, v) y = Add(d, e))");
  expect_one_row(R"(a = Conv(x, v) b = Mul(a, l) c = Relu(b) d = Mul(p, c) e = Add(d, n)
                    f = Conv(e, v) y = Mul(f, q))",
                 R"(float[13] l = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13}, float n = {3},
                    float[1,8,1] p = {1, 2, 3, 4, 5, 6, 7, 8},
                    float[8,13] q = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 1, 2, 3, 4, 5, 6, 7, 8, 9,
                      10, 11, 12, 13, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 1, 2, 3, 4, 5, 6, 7, 8, 9,
                      10, 11, 12, 13, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 1, 2, 3, 4, 5, 6, 7, 8, 9,
                      10, 11, 12, 13, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 1, 2, 3, 4, 5, 6, 7, 8, 9,
                      10, 11, 12, 13})");
}

TEST(Lines, JoinedAndCutAlongEitherAxis) {
  expect_one_row("a = Conv(x, v) b = Relu(a) y = Concat<axis=1>(a, b)");
  expect_one_row("a = Conv(x, v) b = Relu(a) c = Concat<axis=-1>(b, a) y = Conv(c, u)");
  expect_one_row(R"(a = Conv(x, v) b, c = Split<axis=1, num_outputs=2>(a) d = Tanh(b)
                    e = Sigmoid(c) f = Mul(d, e) g2 = Concat<axis=1>(f, f) y = Conv(g2, u))");
  expect_one_row("a = Conv(x, v) b = Slice(a, f, t, l) y = Conv(b, u)",
                 "int64[1] f = {2}, int64[1] t = {-1}, int64[1] l = {-1}");
  expect_one_row("a = Conv(x, v) b = Slice(a, f, t) y = Relu(b)",
                 "int64[3] f = {0, 1, 2}, int64[3] t = {1, 7, 11}");
}

TEST(Lines, PaddedAndResized) {
  expect_one_row(R"(a = Conv(x, v) b = Pad<mode="reflect">(a, p) y = Conv(b, u))",
                 "int64[6] p = {0, 0, 3, 0, 0, 2}");
  expect_one_row(R"(a = Conv(x, v) b = Resize<mode="nearest">(a, , s) y = Conv(b, u))",
                 "float[3] s = {1, 1, 2}");
  expect_one_row(R"(a = Conv(x, v) b = Resize<mode="linear">(a, , , s) y = Conv(b, u))",
                 "int64[3] s = {1, 8, 21}");
}

TEST(Lines, MeansOverTheirEnds) {
  expect_one_row("a = Conv(x, v) b = ReduceMean(a, l) y = Mul(a, b)", "int64[1] l = {-1}");
  expect_one_row("a = Conv(x, v) y = ReduceMax(a, l)", "int64[1] l = {1}");
  const std::string flat =
      "g (float[1,8,13] x) => (float[a,b] y) <float[2,8,1] v = {1, 2, 3, 4, 5, "
      "6, 7, 8, 1, 3, 1, 2, 1, 1, 1, 2}, int64[1] l = {2}> { "
      "a = Conv(x, v) y = ReduceMean<keepdims=0>(a, l) }";
  EXPECT_EQ(count_after_simplifying(flat, "Squeeze", kOpset), 0u);
  expect_agreement(flat, kOpset, kLines);
}

TEST(Lines, AMeanThatComesBackAsALine) {
  const std::string text = lines(R"(a = Conv(x, v) m = ReduceMean<keepdims=0>(a, l) f = Relu(m)
                                    b = Unsqueeze(f, l) c = Mul(a, b) y = Conv(c, u))",
                                 "int64[1] l = {2}");
  EXPECT_EQ(count_after_simplifying(text, "Squeeze", kOpset), 1u);
  expect_agreement(text, kOpset, kLines);
}

TEST(Lines, WhatNeedsLinesGetsThem) {
  const std::string text = lines(R"(a = Conv<pads=[1, 1]>(x, u) b = Relu(a)
                                    t = Transpose<perm=[0, 2, 1]>(b) c = Conv(b, v)
                                    s = Transpose<perm=[0, 2, 1]>(c) y = MatMul(a, s))");
  expect_agreement(text, kOpset, kLines);
}

TEST(Lines, PlanesAreLeftAlone) {
  const std::string text =
      R"(g (float[1,2,1,9] x) => (float[a,b,c] y) <float[2,2,1,1] w = {1, 2, 3, 4},
      int64[1] row = {2}> { a = Conv(x, w) s = Squeeze(a, row) r = Relu(s) y = Sin(r) })";
  EXPECT_EQ(count_after_simplifying(text, "Unsqueeze", kOpset), 0u);
  EXPECT_EQ(count_after_simplifying(text, "Squeeze", kOpset), 1u);
  expect_agreement(text, kOpset, {{"x", {1, 2, 1, 9}}});
}

TEST(Lines, ConvolutionsStayInBlocks) {
  const ImportedModel model = expect_agreement(
      lines(R"(a = Conv<pads=[1, 1]>(x, u) b = Relu(a) c = Conv<pads=[2, 2], dilations=[2]>(b, u)
               d = Elu(c) e = Add(d, b) y = Conv(e, v))"),
      kOpset, kLines);
  // In front of the first window, and behind the last.
  EXPECT_EQ(count_of_kernel(model, "eshape_"), 2u);
}

TEST(Lines, TheLastConvolutionMakesPlanesOfBlocks) {
  QRT_SKIP_WHERE_MISSING("Conv2d_Knxm_Snxm_Dnxm_G1_FMA_C8HW8_To_CHW_FLOAT_M1");
  const ImportedModel model = expect_agreement(
      lines("a = Conv<pads=[1, 1]>(x, u) b = Relu(a) c = Conv<pads=[1, 1]>(b, o) y = Tanh(c)",
            "float[1,8,3] o = {1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, "
            "5, 6}"),
      kOpset, kLines);
  EXPECT_EQ(count_of_kernel(model, "_C8HW8_To_CHW_FLOAT_Tanh"), 1u);
}

}  // namespace
}  // namespace marlo::toolkit::test
