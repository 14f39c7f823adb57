#include "qrt_toolkit/simplify/simplify.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "model_text.h"
#include "qrt_toolkit/evaluate/evaluate.h"

// Each rule alone: what it changes, what it leaves, and that the graph computes the same.

namespace marlo::toolkit::test {
namespace {

using ::testing::ElementsAre;

std::vector<std::string> operators_of(const Graph& graph) {
  std::vector<std::string> names;
  for (const NodeId id : graph.order()) names.push_back(graph.node(id).op);
  return names;
}

SharedNumbers random_numbers(const Extents& shape) {
  std::mt19937 random(1);
  std::uniform_real_distribution<double> any(-2, 2);
  auto numbers = std::make_shared<Numbers>(ElementType::float32, shape);
  for (double& number : numbers->reals()) number = any(random);
  return numbers;
}

/// The graph before and after a change computes the same for these inputs, up to float32.
void expect_same(const Graph& before, const Graph& after,
                 const std::vector<SharedNumbers>& inputs) {
  const auto a = evaluate_graph(before, inputs);
  const auto b = evaluate_graph(after, inputs);
  ASSERT_EQ(a.size(), b.size());
  for (size_t i = 0; i < a.size(); ++i) {
    ASSERT_EQ(a[i]->shape, b[i]->shape);
    for (size_t k = 0; k < static_cast<size_t>(a[i]->count()); ++k) {
      EXPECT_NEAR(a[i]->real(k), b[i]->real(k), 1e-5) << i << " " << k;
    }
  }
}

TEST(FoldConstants, ShapeArithmeticFoldsAway) {
  const OnnxModel model = model_of(R"(g (float[2,3,4] x) => (float[2,12] y) {
    s = Shape(x)
    i = Constant<value_ints=[0]>()
    n = Gather(s, i)
    m = Constant<value_ints=[-1]>()
    t = Concat<axis=0>(n, m)
    y = Reshape(x, t)
  })");
  Graph graph = model.graph;
  EXPECT_TRUE(fold_constants(graph));
  EXPECT_THAT(operators_of(graph), ElementsAre("Reshape"));
  EXPECT_FALSE(fold_constants(graph));
  expect_same(model.graph, graph, {random_numbers({2, 3, 4})});
}

TEST(FoldConstants, LeavesWhatDependsOnInputs) {
  Graph graph = model_of("g (float[2] x) => (float[2] y) { y = Relu(x) }").graph;
  EXPECT_FALSE(fold_constants(graph));
}

TEST(TakeBranches, AConstantConditionChoosesOne) {
  const OnnxModel model = model_of(R"(g (float[2] x) => (float[2] y) {
    c = Constant<value = bool[1] {0}>()
    a = Relu(x)
    y = If (c) <then_branch = t () => (float[2] p) { p = Neg(a) },
                else_branch = e () => (float[2] q) { r = Abs(a)
                                                     q = Add(r, x) }>
  })");
  Graph graph = model.graph;
  EXPECT_TRUE(take_branches(graph));
  EXPECT_THAT(operators_of(graph), ElementsAre("Relu", "Abs", "Add"));
  expect_same(model.graph, graph, {random_numbers({2})});
}

TEST(TakeBranches, AnOpenConditionStays) {
  Graph graph = model_of(R"(g (float[2] x, bool c) => (float[2] y) {
    y = If (c) <then_branch = t () => (float[2] p) { p = Neg(x) },
                else_branch = e () => (float[2] q) { q = Abs(x) }>
  })")
                    .graph;
  EXPECT_FALSE(take_branches(graph));
}

TEST(DropIdentities, LeavesOutWhatHandsItsInputOn) {
  const OnnxModel model = model_of(R"(g (float[2,3] x) => (float[2,3] y) {
    a = Identity(x)
    b, mask = Dropout(a)
    c = Cast<to=11>(b)
    d = Cast<to=1>(c)
    s = Constant<value_ints=[2, 3]>()
    e = Reshape(d, s)
    f = Transpose<perm=[0, 1]>(e)
    y = Relu(f)
  })");
  Graph graph = model.graph;
  EXPECT_TRUE(drop_identities(graph));
  EXPECT_THAT(operators_of(graph), ElementsAre("Relu"));
  expect_same(model.graph, graph, {random_numbers({2, 3})});
}

TEST(DropIdentities, LeavesOutAReshapeBackAgain) {
  const std::string start =
      "g (float[2,3,4] x) => (float[a,b,c] y) <int64[1] axis = {1}, int64[3] back = {2, 3, 4}, "
      "int64[2] flat = {6, 4}, int64[3] other = {3, 2, 4}> ";
  const auto left_of = [&](const std::string& body) {
    const OnnxModel model = model_of(start + body);
    Graph graph = model.graph;
    drop_identities(graph);
    drop_unused(graph);
    expect_same(model.graph, graph, {random_numbers({2, 3, 4})});
    return operators_of(graph);
  };
  EXPECT_THAT(left_of("{ u = Unsqueeze(x, axis) s = Squeeze(u, axis) y = Relu(s) }"),
              ElementsAre("Relu"));
  EXPECT_THAT(left_of("{ f = Reshape(x, flat) b = Reshape(f, back) y = Relu(b) }"),
              ElementsAre("Relu"));
  EXPECT_THAT(left_of("{ f = Reshape(x, flat) b = Reshape(f, other) y = Relu(b) }"),
              ElementsAre("Reshape", "Reshape", "Relu"));
  EXPECT_THAT(left_of("{ f = Reshape(x, other) b = Reshape(f, other) y = Relu(b) }"),
              ElementsAre("Reshape", "Relu"));
  EXPECT_THAT(left_of("{ r = Relu(x) u = Unsqueeze(r, axis) y = Squeeze(u, axis) }"),
              ElementsAre("Relu"));
}

TEST(DropIdentities, KeepsAMaskThatIsRead) {
  Graph graph = model_of("g (float[2] x) => (float[2] y, bool[2] m) { y, m = Dropout(x) }").graph;
  EXPECT_FALSE(drop_identities(graph));
}

TEST(DropIdentities, KeepsCastsThatChangeNumbers) {
  Graph graph = model_of(R"(g (float[2] x) => (float[2] y) {
    a = Cast<to=7>(x)
    y = Cast<to=1>(a)
  })")
                    .graph;
  EXPECT_FALSE(drop_identities(graph));
}

TEST(FoldScalesBehind, GoIntoTheConvolutionInFront) {
  const OnnxModel model = model_of(R"(g (float[1,1,3,3] x) => (float[1,2,2,2] y)
      <float[2,1,2,2] w = {1, 2, 3, 4, -1, 0, 2, 1}, float[2] b = {1, -1}, float[2] s = {2, 0.5},
       float[2] o = {0.5, 1}, float[2] m = {0.1, 0.2}, float[2] v = {4, 0.25}> {
    c = Conv(x, w, b)
    y = BatchNormalization(c, s, o, m, v)
  })");
  Graph graph = model.graph;
  EXPECT_TRUE(fold_scales_behind(graph));
  EXPECT_THAT(operators_of(graph), ElementsAre("Conv"));
  expect_same(model.graph, graph, {random_numbers({1, 1, 3, 3})});
}

TEST(FoldScalesBehind, GoIntoTransposedConvolutionsWithGroups) {
  const OnnxModel model = model_of(R"(g (float[1,4,2,2] x) => (float[1,4,3,3] y)
      <float[4,2,2,2] w = {1, 2, 3, 4, -1, 0, 2, 1, 2, 2, 1, 0, 3, 1, 1, 1, 0, 2, 1, 4, -1, 5, 2, 1,
                           1, 1, 3, 4, -1, 0, 0, 1},
       float[4] s = {2, 0.5, 3, 1}, float[4] o = {0.5, 1, 0, 2}, float[4] m = {0.1, 0.2, 0, 1},
       float[4] v = {4, 0.25, 1, 2}> {
    c = ConvTranspose<group=2>(x, w)
    y = BatchNormalization(c, s, o, m, v)
  })");
  Graph graph = model.graph;
  EXPECT_TRUE(fold_scales_behind(graph));
  EXPECT_THAT(operators_of(graph), ElementsAre("ConvTranspose"));
  expect_same(model.graph, graph, {random_numbers({1, 4, 2, 2})});
}

TEST(FoldScalesBehind, LeaveAConvolutionThatIsReadTwice) {
  Graph graph = model_of(R"(g (float[1,1,3,3] x) => (float[1,1,3,3] y, float[1,1,3,3] z)
      <float[1,1,1,1] w = {2}, float[1] s = {2}> {
    c = Conv(x, w)
    y = BatchNormalization(c, s, s, s, s)
    z = Relu(c)
  })")
                    .graph;
  EXPECT_FALSE(fold_scales_behind(graph));
}

/// One rule on one graph: it changes something, then nothing, leaves these operators, and the graph
/// computes the same.
void expect_rule(bool (*rule)(Graph&), const std::string& text, const Extents& input,
                 const std::vector<std::string>& left) {
  const OnnxModel model = model_of(text, 14);
  Graph graph = model.graph;
  EXPECT_TRUE(rule(graph));
  EXPECT_FALSE(rule(graph));
  drop_unused(graph);
  EXPECT_EQ(operators_of(graph), left);
  expect_same(model.graph, graph, {random_numbers(input)});
}

/// A rule that has to leave a graph alone.
void expect_no_rule(bool (*rule)(Graph&), const std::string& text) {
  Graph graph = model_of(text, 14).graph;
  EXPECT_FALSE(rule(graph)) << text;
}

const std::string kPicture = "g (float[1,2,3,3] x) => (float[1,2,h,w] y) ";

TEST(FoldScalesBehind, TakesArithmeticWithConstants) {
  for (const char* node : {"y = Mul(c, k)", "y = Mul(k, c)", "y = Add(c, k)", "y = Sub(c, k)",
                           "y = Sub(k, c)", "y = Div(c, k)", "y = Mul(c, n)"}) {
    expect_rule(fold_scales_behind,
                kPicture + R"(<float[2,2,1,1] w = {1, 2, -1, 3}, float[2] b = {1, 2},
                    float[2,1,1] k = {2, -0.5}, float n = {3}> { c = Conv(x, w, b) )" +
                    node + " }",
                {1, 2, 3, 3}, {"Conv"});
  }
}

TEST(FoldScalesBehind, LeavesWhatIsNoChannel) {
  const std::string start = kPicture + R"(<float[2,2,1,1] w = {1, 2, -1, 3}, float[3] k = {2, 1, 3},
      float[1,1,3,1] r = {1, 2, 3}, float[2,1,1] z = {1, 2}> { c = Conv(x, w) )";
  for (const char* node : {"y = Mul(c, k)", "y = Mul(c, r)", "y = Div(z, c)"}) {
    expect_no_rule(fold_scales_behind, start + node + " }");
  }
}

TEST(FoldScalesInFront, GoThroughWhereNothingIsPadded) {
  const std::string weights =
      "<float[2,1,2,2] w = {1, 2, -1, 3, 2, 0, 1, 1}, float[2] b = {1, 2}, "
      "float[2,1,1] k = {2, -0.5}> ";
  expect_rule(fold_scales_in_front,
              kPicture + weights + "{ s = Add(x, k) y = Conv<group=2>(s, w, b) }", {1, 2, 3, 3},
              {"Conv"});
  expect_rule(
      fold_scales_in_front,
      kPicture + weights + "{ s = Mul(x, k) y = Conv<group=2, pads=[1, 1, 1, 1]>(s, w, b) }",
      {1, 2, 3, 3}, {"Conv"});
  expect_no_rule(
      fold_scales_in_front,
      kPicture + weights + "{ s = Add(x, k) y = Conv<group=2, pads=[1, 1, 1, 1]>(s, w, b) }");
  expect_rule(fold_scales_in_front, R"(g (float[1,2] x) => (float[1,3] y)
      <float[2,3] w = {1, 2, 3, 4, 5, 6}, float[2] k = {2, 3}> { s = Mul(x, k) y = Gemm(s, w) })",
              {1, 2}, {"Gemm"});
}

TEST(MakeGemms, OfAProductAndARow) {
  expect_rule(make_gemms, R"(g (float[1,2] x) => (float[1,3] y)
      <float[2,3] w = {1, 2, 3, 4, 5, 6}, float[3] b = {1, 2, 3}> { p = MatMul(x, w) y = Add(b, p) })",
              {1, 2}, {"Gemm"});
  const std::string rows = R"(g (float[2,3,2] x) => (float[2,3,3] y)
      <float[2,3] w = {1, 2, 3, 4, 5, 6}, float[1,3] b = {1, 2, 3}, float[3,1] k = {2, 3, 4}> )";
  expect_rule(make_gemms, rows + "{ p = MatMul(x, w) y = Add(b, p) }", {2, 3, 2}, {"MatMul"});
  expect_no_rule(make_gemms, rows + "{ p = MatMul(x, w) y = Add(k, p) }");
  expect_rule(fold_scales_behind, rows + "{ p = MatMul(x, w) y = Mul(p, b) }", {2, 3, 2},
              {"MatMul"});
  expect_no_rule(fold_scales_behind, rows + "{ p = MatMul(x, w) y = Mul(p, k) }");
  expect_no_rule(make_gemms, R"(g (float[3,2] x) => (float[3,3] y)
      <float[2,3] w = {1, 2, 3, 4, 5, 6}, float[3,1] b = {1, 2, 3}> { p = MatMul(x, w) y = Add(b, p) })");
}

TEST(FoldPaddings, IntoTheWindowBehind) {
  const std::string pads = "int64[8] p = {0, 0, 1, 0, 0, 0, 2, 1}";
  expect_rule(fold_paddings,
              kPicture + "<float[2,1,2,2] w = {1, 2, -1, 3, 2, 0, 1, 1}, " + pads +
                  "> { q = Pad(x, p) y = Conv<group=2, pads=[1, 1, 1, 1]>(q, w) }",
              {1, 2, 3, 3}, {"Conv"});
  expect_rule(
      fold_paddings,
      kPicture + "<" + pads +
          "> { q = Pad(x, p) y = AveragePool<kernel_shape=[2, 2], count_include_pad=1>(q) }",
      {1, 2, 3, 3}, {"AveragePool"});
  expect_no_rule(fold_paddings, kPicture + "<" + pads +
                                    "> { q = Pad(x, p) y = AveragePool<kernel_shape=[2, 2]>(q) }");
  expect_no_rule(fold_paddings, kPicture + "<float[2,2,1,1] w = {1, 2, -1, 3}, " + pads +
                                    ", float v = {1}> { q = Pad(x, p, v) y = Conv(q, w) }");
}

TEST(JoinClips, OfMaximaAndMinima) {
  const std::string numbers = "<float a = {-0.5}, float b = {0.75}, float z = {0}> ";
  expect_rule(join_clips, kPicture + numbers + "{ m = Max(x, a) y = Min(b, m) }", {1, 2, 3, 3},
              {"Clip"});
  expect_rule(join_clips, kPicture + numbers + "{ m = Relu(x) y = Clip(m, a, b) }", {1, 2, 3, 3},
              {"Clip"});
  expect_rule(join_clips, kPicture + numbers + "{ m = Max(x, a) y = Relu(m) }", {1, 2, 3, 3},
              {"Relu"});
  expect_no_rule(join_clips, kPicture + numbers + "{ m = Max(x, a) n = Add(m, m) y = Min(n, b) }");
}

TEST(FindLeakyRectifiers, OfAMaximum) {
  expect_rule(find_leaky_rectifiers, kPicture + "<float a = {0.1}> { m = Mul(x, a) y = Max(m, x) }",
              {1, 2, 3, 3}, {"LeakyRelu"});
  expect_rule(find_leaky_rectifiers, kPicture + "<float a = {8}> { m = Div(x, a) y = Max(x, m) }",
              {1, 2, 3, 3}, {"LeakyRelu"});
  expect_no_rule(find_leaky_rectifiers,
                 kPicture + "<float a = {2}> { m = Mul(x, a) y = Max(m, x) }");
}

TEST(FindHardSwishes, HoweverWritten) {
  const std::string numbers =
      "<float three = {3}, float six = {6}, float sixth = {0.16666667}, float z = {0}> ";
  for (const char* nodes : {"s = Add(x, three) c = Clip(s, z, six) m = Mul(x, c) y = Div(m, six)",
                            "s = Add(x, three) c = Clip(s, z, six) d = Div(c, six) y = Mul(d, x)",
                            "s = Add(three, x) c = Clip(s, z, six) d = Mul(c, sixth) y = Mul(x, d)",
                            "h = HardSigmoid<alpha=0.16666667>(x) y = Mul(x, h)"}) {
    expect_rule(find_hard_swishes, kPicture + numbers + "{ " + nodes + " }", {1, 2, 3, 3},
                {"HardSwish"});
  }
  expect_no_rule(find_hard_swishes, kPicture + "{ h = HardSigmoid(x) y = Mul(x, h) }");
}

TEST(FindSwishes, InEitherOrder) {
  for (const char* product : {"Mul(x, s)", "Mul(s, x)"}) {
    expect_rule(find_swishes, kPicture + "{ s = Sigmoid(x) y = " + product + " }", {1, 2, 3, 3},
                {"Swish"});
  }
  expect_no_rule(find_swishes, kPicture + "{ s = Sigmoid(x) y = Mul(s, s) }");
}

TEST(FindHardSigmoids, OfAClip) {
  expect_rule(find_hard_sigmoids,
              kPicture + R"(<float three = {3}, float six = {6}, float z = {0}> {
      s = Add(x, three) c = Clip(s, z, six) y = Div(c, six) })",
              {1, 2, 3, 3}, {"HardSigmoid"});
}

TEST(Transposes, JoinAndMoveOn) {
  const std::string start = "g (float[1,2,3,4] x) => (float[a,b,c,d] y) <float n = {2}> ";
  expect_rule(join_transposes,
              start + "{ t = Transpose<perm=[0, 2, 3, 1]>(x) y = Transpose<perm=[3, 0, 1, 2]>(t) }",
              {1, 2, 3, 4}, {"Transpose"});
  expect_rule(
      push_transposes_down,
      start +
          R"({ t = Transpose<perm=[0, 2, 3, 1]>(x) r = Relu(t) u = Transpose<perm=[0, 2, 3, 1]>(x)
                          s = Sub(r, u) y = Mul(n, s) })",
      {1, 2, 3, 4}, {"Relu", "Sub", "Mul", "Transpose"});
  expect_no_rule(push_transposes_down,
                 start +
                     "{ t = Transpose<perm=[0, 2, 1, 3]>(x) u = Transpose<perm=[0, 2, 1, 3]>(x) "
                     "v = Transpose<perm=[0, 1, 2, 3]>(u) y = Add(t, v) }");
}

TEST(Simplify, RunsToAFixedPointAndDropsWhatNothingReads) {
  const OnnxModel model = model_of(R"(g (float[1,1,3,3] x) => (float[1,1,3,3] y)
      <float[1,1,1,1] w = {2}, float[1] s = {2}> {
    unused = Relu(x)
    a = Identity(w)
    c = Conv(x, a)
    d = Identity(c)
    y = BatchNormalization(d, s, s, s, s)
  })");
  Graph graph = model.graph;
  simplify(graph);
  EXPECT_THAT(operators_of(graph), ElementsAre("Conv"));
  expect_same(model.graph, graph, {random_numbers({1, 1, 3, 3})});
}

/// The graph of one tensor after a rule, which has to compute the same as before.
Graph changed_by(bool (*rule)(Graph&), const std::string& text, const Extents& shape) {
  const OnnxModel model = model_of(text);
  Graph graph = model.graph;
  EXPECT_TRUE(rule(graph)) << text;
  drop_unused(graph);
  expect_same(model.graph, graph, {random_numbers(shape)});
  return graph;
}

/// Whether a rule leaves a graph as it is.
bool is_left_by(bool (*rule)(Graph&), const std::string& text) {
  Graph graph = model_of(text).graph;
  return !rule(graph);
}

TEST(FindGelus, TheErrorFunctionInEveryOrder) {
  const std::string before = R"(g (float[2,5] x) => (float[2,5] y)
      <float root = {1.4142135}, float one = {1}, float half = {0.5}> {
    d = Div(x, root)
    e = Erf(d)
    s = Add(e, one)
  )";
  for (const char* end : {"p = Mul(x, s) y = Mul(p, half)", "h = Mul(half, x) y = Mul(h, s)",
                          "h = Mul(s, half) y = Mul(h, x)", "h = Mul(x, half) y = Mul(s, h)"}) {
    const Graph graph = changed_by(find_gelus, before + end + "}", {2, 5});
    ASSERT_THAT(operators_of(graph), ElementsAre("Gelu")) << end;
    EXPECT_EQ(graph.node(graph.order()[0]).text("approximate", "none"), "none");
  }
  // Of another tensor, or with another factor, it is another function.
  EXPECT_TRUE(is_left_by(find_gelus, R"(g (float[2,5] x, float[2,5] z) => (float[2,5] y)
      <float root = {1.4142135}, float one = {1}, float half = {0.5}> {
    d = Div(x, root)
    e = Erf(d)
    s = Add(e, one)
    p = Mul(z, s)
    y = Mul(p, half)
  })"));
  EXPECT_TRUE(is_left_by(find_gelus, R"(g (float[2,5] x) => (float[2,5] y)
      <float root = {1.5}, float one = {1}, float half = {0.5}> {
    d = Div(x, root)
    e = Erf(d)
    s = Add(e, one)
    p = Mul(x, s)
    y = Mul(p, half)
  })"));
}

TEST(FindGelus, TheHyperbolicTangentWithPowerAndProducts) {
  for (const char* cube : {"c = Pow(x, three)", "q = Mul(x, x) c = Mul(x, q)"}) {
    const std::string text = std::string(R"(g (float[2,5] x) => (float[2,5] y)
        <float three = {3}, float bend = {0.044715}, float slope = {0.7978846}, float one = {1},
         float half = {0.5}> {
      h = Mul(x, half) )") + cube +
                             R"(
      b = Mul(c, bend)
      i = Add(x, b)
      l = Mul(slope, i)
      t = Tanh(l)
      s = Add(t, one)
      y = Mul(h, s)
    })";
    const Graph graph = changed_by(find_gelus, text, {2, 5});
    ASSERT_THAT(operators_of(graph), ElementsAre("Gelu")) << cube;
    EXPECT_EQ(graph.node(graph.order()[0]).text("approximate", "none"), "tanh");
  }
}

std::string layer_normalization_text(const std::string& axes, const std::string& square,
                                     const std::string& scale) {
  return "g (float[2,3,4] x) => (float[2,3,4] y) <float two = {2}, float eps = {0.001}, float" +
         scale + R"(, float[4] shift = {0, 1, -1, 2}> {
    m = ReduceMean<axes=)" +
         axes + R"(>(x)
    d = Sub(x, m)
    q = )" +
         square + R"(
    v = ReduceMean<axes=)" +
         axes + R"(>(q)
    e = Add(v, eps)
    r = Sqrt(e)
    n = Div(d, r)
    p = Mul(n, w)
    y = Add(p, shift)
  })";
}

TEST(FindLayerNormalizations, TheDecomposedOneOverTheLastAxis) {
  const std::string scale = "[4] w = {1, 2, 3, -1}";
  for (const char* axes : {"[-1]", "[2]"}) {
    for (const char* square : {"Pow(d, two)", "Mul(d, d)"}) {
      const Graph graph = changed_by(find_layer_normalizations,
                                     layer_normalization_text(axes, square, scale), {2, 3, 4});
      ASSERT_THAT(operators_of(graph), ElementsAre("LayerNormalization"));
      EXPECT_NEAR(graph.node(graph.order()[0]).real("epsilon", 0), 0.001, 1e-9);
    }
  }
  for (const char* axes : {"[0]", "[1, 2]"}) {
    EXPECT_TRUE(
        is_left_by(find_layer_normalizations, layer_normalization_text(axes, "Mul(d, d)", scale)));
  }
  EXPECT_TRUE(
      is_left_by(find_layer_normalizations, layer_normalization_text("[-1]", "Mul(d, x)", scale)));
}

TEST(FindLayerNormalizations, WhatStandsBehindJoinsWhereItLiesAlongTheAxis) {
  const auto found = [](const std::string& axes, const std::string& scale) {
    return operators_of(changed_by(find_layer_normalizations,
                                   layer_normalization_text(axes, "Mul(d, d)", scale), {2, 3, 4}));
  };
  EXPECT_THAT(found("[-1]", "[3,1] w = {1, 2, 3}"),
              ElementsAre("LayerNormalization", "Mul", "Add"));
  EXPECT_THAT(found("[1]", "[4] w = {1, 2, 3, -1}"),
              ElementsAre("Transpose", "LayerNormalization", "Transpose", "Mul", "Add"));
  EXPECT_THAT(found("[1]", "[3,1] w = {1, 2, 3}"),
              ElementsAre("Transpose", "LayerNormalization", "Transpose", "Add"));
}

}  // namespace
}  // namespace marlo::toolkit::test
