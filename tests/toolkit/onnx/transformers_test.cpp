#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "import_agreement.h"
#include "tests/support/kernels.h"

// Blocks of transformers, and the operators that they are made of.

namespace marlo::toolkit::test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;

/// As many numbers as a constant of a graph's text holds, none like its neighbours.
std::string listed(int count) {
  std::string text = "{";
  for (int i = 0; i < count; ++i) {
    text += (i == 0 ? "" : ", ") + std::to_string((i * 7 % 11 - 5) * 0.125);
  }
  return text + "}";
}

/// A block of an encoder: attention with two heads and a mask, normalizations as operators of their
/// own, two dense layers with a GELU, and what they add.
std::string encoder_block(const std::string& mask) {
  return "g (float[1,5,6] x, float[1,1,1,5] k) => (float[1,5,6] y) <float[6,6] wq = " + listed(36) +
         ", float[6,6] wk = " + listed(36) + ", float[6,12] wu = " + listed(72) +
         ", float[12,6] wd = " + listed(72) + ", float[12] bu = " + listed(12) + R"(,
      int64[4] heads = {0, 0, 2, 3}, int64[3] whole = {0, 0, 6}, float root = {1.7320508},
      float two = {2}, float eps = {0.00001}, float[6] w = {1, 2, 3, 1, 0.5, 1}, float[6] b = {0, 1, 0, -1, 0, 2},
      float edge = {1.4142135}, float one = {1}, float half = {0.5}, float zero = {0}> {
    q0 = MatMul(x, wq)
    q1 = Reshape(q0, heads)
    q = Transpose<perm=[0, 2, 1, 3]>(q1)
    k0 = MatMul(x, wk)
    k1 = Reshape(k0, heads)
    t = Transpose<perm=[0, 2, 3, 1]>(k1)
    v1 = Reshape(x, heads)
    v = Transpose<perm=[0, 2, 1, 3]>(v1)
    s0 = MatMul(q, t)
    s1 = Div(s0, root)
    )" + mask +
         R"(
    p = Softmax<axis=-1>(s2)
    o = MatMul(p, v)
    o1 = Transpose<perm=[0, 2, 1, 3]>(o)
    o2 = Reshape(o1, whole)
    r = Add(x, o2)
    m = ReduceMean<axes=[-1]>(r)
    d = Sub(r, m)
    d2 = Pow(d, two)
    va = ReduceMean<axes=[-1]>(d2)
    ve = Add(va, eps)
    sd = Sqrt(ve)
    n = Div(d, sd)
    n1 = Mul(n, w)
    n2 = Add(n1, b)
    u0 = MatMul(n2, wu)
    u = Add(u0, bu)
    g0 = Div(u, edge)
    g1 = Erf(g0)
    g2 = Add(g1, one)
    g3 = Mul(u, g2)
    g4 = Mul(g3, half)
    z = MatMul(g4, wd)
    y = Add(n2, z)
  })";
}

// Of pictures whose channels are normalized in the middle of a block, as several operators and as one,
// two transpositions and the products are left.
TEST(Transformers, ABlockOverTheChannelsOfAPicture) {
  const std::string head =
      "g (float[1,4,3,5] x) => (float[1,4,3,5] y) <float[4,1,3,3] k = " + listed(36) +
      ", float[4,6] wu = " + listed(24) + ", float[6,4] wd = " + listed(24) +
      ", float[6] bu = " + listed(6) +
      R"(, float[4] bd = {1, 0, -1, 2}, float[4,1,1] g = {0.5, 1, 2, 0.25},
      float[4] w = {1, 2, 3, 1}, float[4] b = {0, 1, 0, -1}, float two = {2}, float eps = {0.001}> {
    c = Conv<group=4, pads=[1, 1, 1, 1]>(x, k)
    t = Transpose<perm=[0, 2, 3, 1]>(c)
    )";
  const std::string tail = R"(
    u0 = MatMul(n, wu)
    u1 = Add(bu, u0)
    u = Relu(u1)
    d0 = MatMul(u, wd)
    d1 = Add(d0, bd)
    d2 = Transpose<perm=[0, 3, 1, 2]>(d1)
    s = Mul(g, d2)
    y = Add(s, x)
  })";
  const std::string parts = R"(m = ReduceMean<axes=[-1]>(t)
    o = Sub(t, m)
    q = Pow(o, two)
    v = ReduceMean<axes=[-1]>(q)
    e = Add(v, eps)
    r = Sqrt(e)
    h = Div(o, r)
    h1 = Mul(h, w)
    n = Add(h1, b))";
  for (const std::string& norm : {parts, std::string("n = LayerNormalization(t, w, b)")}) {
    const ImportedModel model =
        expect_agreement(head + norm + tail, norm == parts ? 13 : 17, {{"x", {1, 4, 3, 5}}});
    EXPECT_EQ(count_of_kernel(model, "LayerNorm_"), 1u);
    EXPECT_EQ(count_of_kernel(model, "Permute"), 2u);
    EXPECT_EQ(count_of_kernel(model, "Dense_"), 2u);
    EXPECT_LE(count_of_kernel(model, "Binary_"), 1u);
  }
}

// Without transpositions in the graph they are put around it.
TEST(Transformers, ANormOverTheChannelsOfPlanes) {
  const ImportedModel model = expect_agreement(R"(g (float[1,4,3,5] x) => (float[1,4,3,5] y)
      <float[4,1,1] w = {1, 2, 3, 1}, float[1,4,1,1] b = {0, 1, 0, -1}, float eps = {0.001}> {
    m = ReduceMean<axes=[1]>(x)
    o = Sub(x, m)
    q = Mul(o, o)
    v = ReduceMean<axes=[1]>(q)
    e = Add(v, eps)
    r = Sqrt(e)
    h = Div(o, r)
    h1 = Mul(w, h)
    y = Add(h1, b)
  })",
                                               13, {{"x", {1, 4, 3, 5}}});
  EXPECT_EQ(count_of_kernel(model, "LayerNorm_"), 1u);
  EXPECT_EQ(count_of_kernel(model, "Binary_"), 0u);
}

// Windows that a small trial has no room for are tried on larger pictures.
TEST(Transformers, APatchConvolutionIsNoPortableOne) {
  const auto with_patches = [](const std::string& window, int planes, int numbers) {
    const std::string channels = std::to_string(planes);
    return expect_agreement(
        "g (float[1," + channels + ",60,64] x) => (float[1,8,a,b] y) <float[8," + channels + ',' +
            window + "] w = " + listed(numbers) + "> { y = Conv<strides=[" + window + "]>(x, w) }",
        13, {{"x", {1, planes, 60, 64}}});
  };
  for (const ImportedModel& model :
       {with_patches("16,16", 3, 6144), with_patches("20,12", 1, 1920)}) {
    if (!marlo::test::why_not_here("Conv2d_Knxm_Snxm_Dnxm_G1_FMA_CHW_To_C8HW8_FLOAT_M1").empty())
      continue;
    EXPECT_EQ(count_of_kernel(model, "_CHW_To_C8HW8_"), 1u);
  }
}

TEST(Transformers, AnEncoderBlock) {
  const ImportedModel model = expect_agreement(encoder_block("s2 = Add(s1, k)"), 13,
                                               {{"x", {1, 5, 6}}, {"k", {1, 1, 1, 5}}});
  EXPECT_EQ(count_of_kernel(model, "LayerNorm_"), 1u);
  EXPECT_EQ(count_of_kernel(model, "GELU_"), 1u);
  EXPECT_EQ(count_of_kernel(model, "MatMul_"), 2u);
}

TEST(Transformers, AMaskThatChoosesInfiniteScores) {
  expect_agreement(encoder_block(R"(c = Greater(k, edge)
    l = Constant<value_float=0.0>()
    i = Log(l)
    s2 = Where(c, i, s1))"),
                   13, {{"x", {1, 5, 6}}, {"k", {1, 1, 1, 5}}});
  expect_agreement(encoder_block(R"(c = LessOrEqual(zero, k)
    f = Constant<value_float=-10000.0>()
    s2 = Where(c, s1, f))"),
                   13, {{"x", {1, 5, 6}}, {"k", {1, 1, 1, 5}}});
}

TEST(Transformers, InfiniteConstantsAreWrittenAsJson) {
  ImportedModel model = expect_agreement(R"(g (float[2,3] x) => (float[2,3] y, float[2,3] z)
      <float[2,3] k = {0, 1, 0, 2, 0, 1}, float zero = {0}, float one = {1}> {
    l = Log(k)
    s = Add(x, l)
    y = Softmax<axis=-1>(s)
    i = Div(one, zero)
    z = Min(x, i)
  })",
                                         13, {{"x", {2, 3}}});
  const marlo::test::TemporaryFolder folder;
  const std::string path = folder.file("net.json");
  model.model.ToFile(path.c_str(), "json");
  const auto inputs = random_inputs({{"x", {2, 3}}});
  const auto before = run_network(model, {inputs}).at(0);
  model.model = runtime::QRTModel();
  model.model.FromFile(path.c_str(), "json");
  const auto after = run_network(model, {inputs}).at(0);
  ASSERT_EQ(after.size(), before.size());
  for (size_t i = 0; i < after.size(); ++i) EXPECT_EQ(difference(after[i], before[i]), "");
}

TEST(Transformers, ProductsOfTwoTensors) {
  struct Product {
    std::vector<int64_t> a, b;
    const char* y;
  };
  const auto text_of_sizes = [](const std::vector<int64_t>& sizes) {
    std::string text;
    for (const int64_t size : sizes) text += (text.empty() ? "" : ",") + std::to_string(size);
    return "float[" + text + "]";
  };
  for (const Product& one :
       {Product{{3, 5}, {5, 7}, "float[3,7]"}, Product{{1, 3, 5}, {1, 5, 7}, "float[1,3,7]"},
        Product{{2, 3, 4, 5}, {3, 5, 2}, "float[2,3,4,2]"},
        Product{{3, 4, 5}, {2, 1, 5, 2}, "float[2,3,4,2]"}, Product{{5}, {5}, "float"},
        Product{{5}, {2, 5, 3}, "float[2,3]"}, Product{{2, 3, 5}, {5}, "float[2,3]"}}) {
    expect_agreement("g (" + text_of_sizes(one.a) + " a, " + text_of_sizes(one.b) + " b) => (" +
                         one.y + " y) { y = MatMul(a, b) }",
                     13, {{"a", one.a}, {"b", one.b}});
  }
  // A constant of several matrices on each side, one of which stands for all others.
  expect_agreement("g (float[2,3,4] x) => (float[2,3,5] y) <float[2,4,5] c = " + listed(40) +
                       "> { y = MatMul(x, c) }",
                   13, {{"x", {2, 3, 4}}});
  expect_agreement("g (float[2,3,1,4] x) => (float[2,3,1,2] y) <float[3,4,2] c = " + listed(24) +
                       "> { y = MatMul(x, c) }",
                   13, {{"x", {2, 3, 1, 4}}});
  expect_agreement("g (float[4,3] x) => (float[2,5,3] y) <float[2,5,4] c = " + listed(40) +
                       "> { y = MatMul(c, x) }",
                   13, {{"x", {4, 3}}});
  expect_agreement(R"(g (float[4,3] a, float[5,4] b, float[3,1] c) => (float[3,5] y) {
    y = Gemm<transA=1, transB=1, alpha=0.5, beta=-2.0>(a, b, c)
  })",
                   13, {{"a", {4, 3}}, {"b", {5, 4}}, {"c", {3, 1}}});
}

TEST(Transformers, NormalizationsOverAnyAxes) {
  const Shapes shapes = {{"x", {1, 4, 3, 5}}};
  const std::string x = "g (float[1,4,3,5] x) => (float[1,4,3,5] y";
  expect_agreement(x + ") <float[3,5] w = " + listed(15) +
                       "> { y = LayerNormalization<axis=-2, epsilon=0.01>(x, w) }",
                   17, shapes);
  expect_agreement(x + ", float[1,4,3,1] m, float[1,4,3,1] d) <float[5] w = " + listed(5) +
                       ", float[5] b = " + listed(5) +
                       "> { y, m, d = LayerNormalization(x, w, b) }",
                   17, shapes);
  expect_agreement(x + ") <float[4] w = " + listed(4) + ", float[4] b = " + listed(4) +
                       "> { y = GroupNormalization<num_groups=2>(x, w, b) }",
                   21, shapes);
  expect_agreement(x + ") <float[4] w = " + listed(4) + ", float[4] b = " + listed(4) +
                       "> { y = InstanceNormalization(x, w, b) }",
                   13, shapes);
  for (const char* op : {"Softmax", "LogSoftmax"}) {
    for (const char* axis : {"1", "-2", "3"}) {
      for (const int opset : {11, 13}) {
        expect_agreement(x + ") { y = " + op + "<axis=" + axis + ">(x) }", opset, shapes);
      }
    }
  }
}

TEST(Transformers, FunctionsOfOddSizes) {
  for (const char* op :
       {"Celu<alpha=0.5>", "Cos", "Elu<alpha=2.0>", "Erf", "Exp", "Mish", "Selu", "Sign", "Sin",
        "Softplus", "Softsign", "Round", "ThresholdedRelu<alpha=0.5>",
        "Shrink<lambd=0.75, bias=0.25>", "Gelu", "Gelu<approximate=\"tanh\">"}) {
    expect_agreement(std::string("g (float[3,5,7] x) => (float[3,5,7] y) { y = ") + op + "(x) }",
                     20, {{"x", {3, 5, 7}}});
  }
  for (const char* op : {"Log", "Sqrt", "Reciprocal"}) {
    expect_agreement(
        std::string("g (float[19] x) => (float[19] y) { a = Abs(x) y = ") + op + "(a) }", 13,
        {{"x", {19}}});
  }
}

TEST(Transformers, PlacesOfTheLargestNumbers) {
  const Shapes shapes = {{"x", {1, 4, 3, 5}}};
  const std::string x = "g (float[1,4,3,5] x) => (";
  for (const char* op : {"ArgMax", "ArgMin"}) {
    for (const char* last : {"0", "1"}) {
      // Rounded, so that several numbers are the largest.
      expect_agreement(x + "float[1,3,5] y) { r = Round(x) i = " + op +
                           "<axis=1, keepdims=0, select_last_index=" + last +
                           ">(r) y = Cast<to=1>(i) }",
                       13, shapes);
    }
    expect_agreement(x + "float[1,4,3,1] y) { i = " + op + "<axis=-1>(x) y = Cast<to=1>(i) }", 13,
                     shapes);
  }
  for (const int opset : {11, 13}) {
    expect_agreement(x + "float[1,4,3,5] y) { r = Round(x) y = Hardmax<axis=2>(r) }", opset,
                     shapes);
  }
  expect_agreement(R"(g (float[1,2,3,2] x) => (float[1,2,2,2] y)
      <int64[1,2,2,2] i = {0, -1, 2, 1, 1, 1, -3, 0}> { y = GatherElements<axis=2>(x, i) })",
                   13, {{"x", {1, 2, 3, 2}}});
}

TEST(Transformers, ResponsesOfChannelsAround) {
  for (const char* size : {"3", "4"}) {
    expect_agreement("g (float[1,5,3,2] x) => (float[1,5,3,2] y) { y = LRN<size=" +
                         std::string(size) + ", alpha=0.5, beta=0.6, bias=2.0>(x) }",
                     13, {{"x", {1, 5, 3, 2}}});
  }
}

TEST(Transformers, NumbersOfWordsTakeRows) {
  const std::string graph = "g (int64[1,5] i) => (float[1,5,3] y) <float[7,3] t = " + listed(21) +
                            R"(, int64 none = {0}> {
    e = Gather(t, i)
    z = Equal(i, none)
    n = Not(z)
    f = Cast<to=1>(n)
    a = Constant<value_ints=[2]>()
    m = Unsqueeze(f, a)
    y = Mul(e, m)
  })";
  const ImportedModel model = imported(graph, 13, {{"i", {1, 5}}});
  EXPECT_THAT(model.report.notes, Contains(HasSubstr("input \"i\" holds int64")));
  const std::vector<double> ids = {3, 0, 6, 0, 5};
  Numbers whole(ElementType::int64, {1, 5});
  Numbers reals(ElementType::float32, {1, 5});
  std::transform(ids.begin(), ids.end(), whole.integers().begin(),
                 [](double id) { return static_cast<int64_t>(id); });
  std::copy(ids.begin(), ids.end(), reals.reals().begin());
  Numbers result = run_network(model, {{{"i", reals}}}).at(0).at(0);
  const Numbers expected = expected_outputs(graph, 13, {{"i", whole}}).at(0);
  EXPECT_EQ(result.count(), expected.count());
  result.shape = expected.shape;
  EXPECT_EQ(difference(result, expected), "");
}

}  // namespace
}  // namespace marlo::toolkit::test
