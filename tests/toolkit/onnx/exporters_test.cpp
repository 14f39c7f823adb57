#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "import_agreement.h"
#include "tests/support/kernels.h"

// What files of newer operator sets and of other exporters have at their borders: sizes with symbols,
// outputs that are inputs or constants, parts and scales in forms that came late.

namespace marlo::toolkit::test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

TEST(Exporters, OneSymbolIsOneSizeForAllInputs) {
  // The batch of the state is not its first size.
  const std::string streaming =
      R"(g (float[b,t,2] x, float[1,b,3] h) => (float[t,1,b,3] y, float[1,b,3] k)
      <float[1,9,2] w = {1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9},
       float[1,9,3] r = {1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9}> {
    s = Transpose<perm=[1, 0, 2]>(x)
    y, k = GRU<hidden_size=3, linear_before_reset=1>(s, w, r, , , h)
  })";
  const ImportedModel model = imported(streaming, 14, {{"x", {1, 4, 2}}});
  ASSERT_EQ(model.report.inputs.size(), 1u);
  EXPECT_THAT(model.report.inputs[0].shape, ElementsAre(4, 2));
  expect_agreement(
      "g (float[b,t] x, float[b,t] m) => (float[b,t] y) { s = Mul(x, m) y = Softmax(s) }", 13,
      {{"x", {1, 4}}, {"m", {1, 4}}});
  const ImportedModel both = imported(
      "g (float[b,t] x, float[b,t] m) => (float[b,t] y) { y = Mul(x, m) }", 13, {{"x", {1, 4}}});
  EXPECT_THAT(both.report.inputs[1].shape, ElementsAre(1, 4));
}

bool supports_any_size() {
  return marlo::test::all_kernels().Create("StridedSlice_Fallback_Float_M1") != nullptr;
}

/// Imports a graph whose input has a size that stays free, and runs it on two.
void expect_agreement_on_any_size(const std::string& graph, const std::vector<int64_t>& shape) {
  const ImportedModel model = imported(graph, 13, {{"x", shape}});
  EXPECT_THAT(model.report.notes, ::testing::Contains(HasSubstr("sizes stay free")));
  for (const int64_t size : {5, 12}) {
    SCOPED_TRACE(size);
    Extents sizes = shape;
    std::replace(sizes.begin(), sizes.end(), int64_t{-1}, size);
    ImportedModel sized = model;
    for (uint32_t& dim : sized.report.inputs[0].shape) {
      if (dim == 0) dim = static_cast<uint32_t>(size);
    }
    const auto inputs = random_inputs({{"x", sizes}});
    const auto found = run_network(sized, {inputs}).at(0);
    const auto expected = expected_outputs(graph, 13, inputs);
    ASSERT_EQ(found.size(), expected.size());
    for (size_t i = 0; i < found.size(); ++i) {
      Numbers made = found[i];
      ASSERT_EQ(made.count(), expected[i].count());
      made.shape = expected[i].shape;
      EXPECT_EQ(difference(made, expected[i]), "");
    }
  }
}

TEST(Exporters, PartsAndCopiesBesideASizeThatStaysFree) {
  if (!supports_any_size()) GTEST_SKIP() << "this build has no second set";
  // Halves of the channels, all but the last three steps, every second, and the last two.
  expect_agreement_on_any_size(
      R"(g (float[n,4,t] x) => (float[n,2,a] y, float[n,4,b] z, float[n,4,c] l) {
    p, q = Split<axis=1>(x)
    s = Sigmoid(q)
    m = Mul(p, s)
    from = Constant<value_ints=[0]>()
    to = Constant<value_ints=[-3]>()
    last = Constant<value_ints=[9223372036854775807]>()
    two = Constant<value_ints=[2]>()
    back = Constant<value_ints=[-2]>()
    along = Constant<value_ints=[2]>()
    y = Slice(m, from, to, along)
    z = Slice(x, from, last, along, two)
    l = Slice(x, back, last, along)
  })",
      {1, 4, -1});
  // Keys of two heads for four, as attention with fewer keys than queries repeats them.
  expect_agreement_on_any_size(R"(g (float[n,t,6] x) => (float[n,4,t,3] y)
      <int64[4] heads = {1, -1, 2, 3}, int64[1] one = {1}, int64[1] two = {2}, int64[1] four = {4}, int64[1] three = {3}> {
    r = Reshape(x, heads)
    k = Transpose<perm=[0, 2, 1, 3]>(r)
    s = Shape(x)
    i = Constant<value_ints=[1]>()
    t = Gather(s, i)
    u = Unsqueeze(k, two)
    e = Concat<axis=0>(one, two, two, t, three)
    w = Expand(u, e)
    f = Concat<axis=0>(one, four, t, three)
    y = Reshape(w, f)
  })",
                               {1, -1, 6});
}

TEST(Exporters, ASymbolForSizesThatDifferIsNone) {
  const std::string graph =
      "g (float[n,n] x, float[n,n] m) => (float[a,b] y) { s = Softmax(x) t = Softmax(m) "
      "y = Concat<axis=1>(s, t) }";
  EXPECT_THROW(imported(graph, 13, {{"x", {1, 4}}}), UnsupportedError);
  expect_agreement(graph, 13, {{"x", {1, 4}}, {"m", {1, 3}}});
}

TEST(Exporters, OutputsThatAreInputsOrConstants) {
  const std::string graph =
      R"(g (float[1,3] x) => (float[1,3] y, float[1,3] x, int64[2] s, float[2] c)
      <float[2] c = {1, 2}> {
    y = Relu(x)
    s = Shape(y)
  })";
  const ImportedModel model = expect_agreement(graph, 13, {{"x", {1, 3}}});
  ASSERT_EQ(model.report.outputs.size(), 4u);
  EXPECT_EQ(model.report.inputs[0].name, "x");
  EXPECT_EQ(model.report.outputs[1].name, "x#2");
}

TEST(Exporters, WholeNumbersBeyondThoseOfFloat32AreNoOutput) {
  try {
    imported(
        "g (float[1,3] x) => (float[1,3] y, int64[1] c) <int64[1] c = {16777217}> { y = Relu(x) }",
        13, {{"x", {1, 3}}});
    FAIL() << "it was imported";
  } catch (const UnsupportedError& error) {
    EXPECT_THAT(error.what(), HasSubstr("whole numbers beyond those of float32"));
    EXPECT_THAT(error.what(), HasSubstr("--output"));
  }
}

TEST(Exporters, PartsByTheirNumberOfWhichSomeHaveNoName) {
  expect_agreement(R"(g (float[1,7,4] x) => (float[1,3,4] a, float[1,1,4] c) {
    a, , c = Split<axis=1, num_outputs=3>(x)
  })",
                   18, {{"x", {1, 7, 4}}});
  expect_agreement(
      R"(g (float[1,7,4] x) => (float[1,2,4] a, float[1,1,4] c) <int64[3] s = {2, 4, 1}> {
    a, , c = Split<axis=1>(x, s)
  })",
      13, {{"x", {1, 7, 4}}});
  expect_agreement(R"(g (float[1,6] x) => (float[1,2] a, float[1,2] b, float[1,2] c) {
    a, b, c = Split<axis=-1, num_outputs=3>(x)
  })",
                   21, {{"x", {1, 6}}});
}

TEST(Exporters, ShufflesAndMirrorsBesideSizesThatStayFree) {
  if (!supports_any_size()) GTEST_SKIP() << "this build has no second set";
  expect_agreement_on_any_size(
      R"(g (float[n,6,h,w] x) => (float[n,6,h,w] y) <int64[1] c = {2}, int64[1] g = {3}> {
    s = Shape(x)
    begin = Constant<value_ints=[0]>()
    channels = Constant<value_ints=[1]>()
    rows = Constant<value_ints=[2]>()
    end = Constant<value_ints=[4]>()
    n = Slice(s, begin, channels)
    hw = Slice(s, rows, end)
    box = Concat<axis=0>(n, g, c, hw)
    r = Reshape(x, box)
    t = Transpose<perm=[0, 2, 1, 3, 4]>(r)
    y = Reshape(t, s)
  })",
      {1, 6, -1, -1});
  for (const char* const mode : {"CRD", "DCR"}) {
    expect_agreement_on_any_size(
        R"(g (float[n,18,h,w] x) => (float[n,2,a,b] y, float[n,18,h,w] z) {
      y = DepthToSpace<blocksize=3, mode=")" +
            std::string(mode) + R"(">(x)
      z = Relu(x)
    })",
        {1, 18, -1, -1});
  }
  for (const char* const mode : {"reflect", "edge", "constant"}) {
    expect_agreement_on_any_size(
        R"(g (float[n,2,h,w] x) => (float[n,2,a,b] y) <int64[8] p = {0, 0, 2, 1, 0, 0, 3, -1}, float v = {2}> {
      y = Pad<mode=")" +
            std::string(mode) +
            R"(">(x, p, v)
    })",
        {1, 2, -1, -1});
  }
}

// As a decoder reads its encoder's pictures, whose sizes pooling has rounded down.
TEST(Exporters, SizesOfAnotherTensorStayFree) {
  if (!supports_any_size()) GTEST_SKIP() << "this build has no second set";
  for (const char* const how :
       {R"(mode="nearest", coordinate_transformation_mode="asymmetric", nearest_mode="floor")",
        R"(mode="linear", coordinate_transformation_mode="half_pixel")",
        R"(mode="linear", coordinate_transformation_mode="align_corners")",
        R"(mode="cubic", coordinate_transformation_mode="pytorch_half_pixel")"}) {
    SCOPED_TRACE(how);
    expect_agreement_on_any_size(
        R"(g (float[n,2,h,w] x) => (float[n,2,h,w] y, float[n,2,a,b] z)
        <int64[1] begin = {0}, int64[1] two = {2}, int64[1] four = {4}, int64[1] rows = {2}, int64[1] columns = {3}> {
      p = MaxPool<kernel_shape=[2, 2], strides=[2, 2]>(x)
      q = AveragePool<kernel_shape=[2, 2], strides=[1, 2]>(p)
      xs = Shape(x)
      ps = Shape(p)
      front = Slice(ps, begin, two)
      back = Slice(xs, two, four)
      whole = Cast<to=7>(back)
      sizes = Concat<axis=0>(front, whole)
      u = Resize<)" +
            std::string(how) +
            R"(>(p, , , sizes)
      y = Sub(x, u)
      qs = Shape(q)
      ph = Gather(ps, rows)
      pw = Gather(ps, columns)
      qf = Slice(qs, begin, two)
      qsizes = Concat<axis=0>(qf, ph, pw)
      v = Resize<)" +
            how + R"(>(q, , , qsizes)
      z = Concat<axis=1>(p, v)
    })",
        {1, 2, -1, -1});
  }
  expect_agreement_on_any_size(
      R"(g (float[n,1,h,w] x) => (float[n,1,a,b] y)
      <int64[1] begin = {0}, int64[1] two = {2}, int64[1] four = {4}, int64[2] none = {0, 0}, int64[2] axes = {2, 3}> {
    p = MaxPool<kernel_shape=[3, 2], strides=[1, 1]>(x)
    s = Shape(p)
    ends = Slice(s, two, four)
    c = Slice(x, none, ends, axes)
    y = Add(p, c)
  })",
      {1, 1, -1, -1});
}

// Numbers of words as floats, which aren't taken for a state on the way.
TEST(Exporters, WordsInFrontOfARecurrentLayer) {
  if (!supports_any_size()) GTEST_SKIP() << "this build has no second set";
  const std::string graph = R"(g (float[1,3] x) => (float[3,1,1,1] y)
      <float[4,2] table = {1, -1, 0.5, 2, -0.25, 0, 3, -2}, float[1,1,2] w = {0.5, 0.25},
       float[1,1,1] r = {-0.5}> {
    i = Cast<to=6>(x)
    e = Gather(table, i)
    t = Transpose<perm=[1, 0, 2]>(e)
    y = RNN<hidden_size=1>(t, w, r)
  })";
  auto inputs = random_inputs({{"x", {1, 3}}});
  inputs[0].numbers.reals() = {3, 0, 2};
  Numbers made = run_network(imported(graph, 13, {}), {inputs}).at(0).at(0);
  const Numbers expected = expected_outputs(graph, 13, inputs).at(0);
  ASSERT_EQ(made.count(), expected.count());
  made.shape = expected.shape;
  EXPECT_EQ(difference(made, expected), "");
}

TEST(Exporters, StatesOfASequenceOfAnyLength) {
  if (!supports_any_size()) GTEST_SKIP() << "this build has no second set";
  expect_agreement_on_any_size(
      R"(g (float[t,1,2] x) => (float[t,1,1,1] y, float[1,1,1] h, float[1,1,1] c)
      <float[1,4,2] w = {1, -0.5, 0.25, 1, 0, -1, 0.75, 0.5}, float[1,4,1] r = {0.5, 1, -1, 0.25},
       float[1,1,1] one = {1}> { y, h, c = LSTM<hidden_size=1>(x, w, r, , , one) })",
      {-1, 1, 2});
}

TEST(Exporters, GatesWithFirstStates) {
  if (!supports_any_size()) GTEST_SKIP() << "this build has no second set";
  for (const char* reset : {"0", "1"}) {
    expect_agreement(R"(g (float[3,1,1] x, float[2,1,1] s) => (float[3,2,1,1] y, float[2,1,1] h)
        <float[2,3,1] w = {0.5, -0.25, 0.125, 1, 0.3, -1}, float[2,3,1] r = {0.5, 0.25, -0.5, 1, -0.7, 0.4},
         float[2,6] b = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6, -0.1, -0.2, -0.3, -0.4, -0.5, -0.6},
         float[2,1,1] ones = {1, -1}> {
      a, g = GRU<hidden_size=1, direction="bidirectional", linear_before_reset=)" +
                         std::string(reset) + R"(>(x, w, r, b, , ones)
      t = Add(g, s)
      y, h = GRU<hidden_size=1, direction="bidirectional", linear_before_reset=)" +
                         reset +
                         R"(>(x, w, r, b, , t)
    })",
                     14, {{"s", {2, 1, 1}}, {"x", {3, 1, 1}}});
  }
}

// A first size is no batch where it is that of a sequence, or of rows.
TEST(Exporters, AFirstSizeMayStayFree) {
  expect_agreement_on_any_size(
      R"(g (float[t,1,3] x) => (float[t,1,2] y) <float[3,2] w = {1, 2, 3, 4, 5, 6}>
      { y = MatMul(x, w) })",
      {-1, 1, 3});
  const ImportedModel model = imported(
      "g (float[n,2,h,3] x) => (float[n,2,h,3] y) <float[2,2,1,1] w = {1, 2, 3, 4}>"
      "{ y = Conv(x, w) }",
      13, {{"x", {-1, 2, -1, 3}}});
  EXPECT_THAT(model.report.inputs[0].shape, ::testing::ElementsAre(2u, 0u, 3u));
  EXPECT_TRUE(model.report.inputs[0].has_batch);
}

TEST(Exporters, PixelsAreShuffledBothWays) {
  expect_agreement(R"(g (float[1,2,4,6] x) => (float[1,8,2,3] y, float[1,2,4,6] z) {
    y = SpaceToDepth<blocksize=2>(x)
    z = DepthToSpace<blocksize=2>(y)
  })",
                   13, {{"x", {1, 2, 4, 6}}});
  expect_agreement(
      "g (float[1,2,3,6] x) => (float[1,18,1,2] y) { y = SpaceToDepth<blocksize=3>(x) }", 13,
      {{"x", {1, 2, 3, 6}}});
}

TEST(Exporters, GroupNormalizationOfBothForms) {
  expect_agreement(R"(g (float[1,4,2,3] x) => (float[1,4,2,3] y)
      <float[2] s = {2, 3}, float[2] b = {0.5, -1}> { y = GroupNormalization<num_groups=2>(x, s, b) })",
                   18, {{"x", {1, 4, 2, 3}}});
  expect_agreement(R"(g (float[1,4,2,3] x) => (float[1,4,2,3] y)
      <float[4] s = {2, 3, 4, 5}, float[4] b = {0.5, -1, 1, 2}> {
    y = GroupNormalization<num_groups=2>(x, s, b)
  })",
                   21, {{"x", {1, 4, 2, 3}}});
}

TEST(Exporters, LayerNormalizationAndItsStatistics) {
  expect_agreement(R"(g (float[1,5,4] x) => (float[1,5,4] y, float[1,5,1] m, float[1,5,1] i)
      <float[4] s = {2, 3, 0.5, 1}, float[4] b = {0.5, -1, 0, 1}> {
    y, m, i = LayerNormalization<epsilon=0.01>(x, s, b)
  })",
                   17, {{"x", {1, 5, 4}}});
  expect_agreement(R"(g (float[1,2,3] x) => (float[1,2,3] y)
      <float[2,3] s = {1, 2, 3, 4, 5, 6}> { y = LayerNormalization<axis=1>(x, s) })",
                   17, {{"x", {1, 2, 3}}});
}

TEST(Exporters, ResizeWithAxesAndPolicies) {
  for (const int opset : {18, 19}) {
    for (const char* attributes :
         {"mode=\"linear\"", "mode=\"nearest\"", "mode=\"cubic\"",
          "mode=\"linear\", keep_aspect_ratio_policy=\"not_larger\"",
          "mode=\"nearest\", keep_aspect_ratio_policy=\"not_smaller\"",
          "mode=\"linear\", coordinate_transformation_mode=\"asymmetric\""}) {
      SCOPED_TRACE(attributes);
      expect_agreement(
          std::string("g (float[1,2,3,4] x) => (float[1,2,h,w] y) <int64[2] s = {6, 12}> "
                      "{ y = Resize<axes=[2, 3], ") +
              attributes + ">(x, , , s) }",
          opset, {{"x", {1, 2, 3, 4}}});
    }
  }
  expect_agreement(R"(g (float[1,2,3,4] x) => (float[1,2,h,w] y) <float[2] s = {1.5, 2}> {
    y = Resize<axes=[3, 2], mode="linear", coordinate_transformation_mode="half_pixel_symmetric">(x, , s)
  })",
                   19, {{"x", {1, 2, 3, 4}}});
}

TEST(Exporters, ReductionsAndPaddingsWithAxesAsInputs) {
  for (const char* op :
       {"ReduceMean", "ReduceMax", "ReduceL2", "ReduceSumSquare", "ReduceLogSumExp"}) {
    SCOPED_TRACE(op);
    expect_agreement(
        std::string("g (float[1,4,5,6] x) => (float[1,5] y) <int64[2] a = {-1, 1}> { y = ") + op +
            "<keepdims=0>(x, a) }",
        18, {{"x", {1, 4, 5, 6}}});
  }
  expect_agreement(R"(g (float[1,2,3,4] x) => (float[1,2,h,w] y)
      <int64[4] p = {1, 2, 0, 1}, int64[2] a = {-1, 2}> { y = Pad<mode="reflect">(x, p, , a) })",
                   18, {{"x", {1, 2, 3, 4}}});
}

}  // namespace
}  // namespace marlo::toolkit::test
