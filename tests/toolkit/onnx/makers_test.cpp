#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <random>

#include "import_agreement.h"
#include "tests/support/kernels.h"

// Networks as exporters of several makers write them: each is imported, run, and compared with the
// plain definitions of its operators.

namespace marlo::toolkit::test {
namespace {

using marlo::test::TemporaryFolder;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

TEST(Makers, FlattenWrittenAsShapeArithmeticWithOpenSizes) {
  expect_agreement(R"(g (float[n,2,h,w] x) => (float[n,k] y)
      <float[3,8] m = {1, 2, 3, 4, 5, 6, 7, 8, 1, 0, 1, 0, 1, 0, 1, 0, 2, 2, 2, 2, 1, 1, 1, 1}> {
    p = MaxPool<kernel_shape=[2, 2], strides=[2, 2]>(x)
    s = Shape(p)
    c = Cast<to=6>(s)
    z = Constant<value_ints=[0]>()
    e = Constant<value_ints=[1]>()
    b = Slice(c, z, e, z)
    bl = Cast<to=7>(b)
    r = Constant<value_ints=[-1]>()
    t = Concat<axis=0>(bl, r)
    f = Reshape(p, t)
    y = Gemm<transB=1>(f, m)
  })",
                   13, {{"x", {1, 2, 4, 4}}});
}

TEST(Makers, UpsampledToTheSizeOfAnotherTensor) {
  expect_agreement(R"(g (float[n,2,h,w] x) => (float[n,2,h2,w2] y) {
    p = AveragePool<kernel_shape=[2, 2], strides=[2, 2]>(x)
    s = Shape(x)
    t = Constant<value_ints=[2]>()
    f = Constant<value_ints=[4]>()
    hw = Slice(s, t, f)
    q = Shape(p)
    z = Constant<value_ints=[0]>()
    nc = Slice(q, z, t)
    sizes = Concat<axis=0>(nc, hw)
    u = Resize<mode="linear", coordinate_transformation_mode="pytorch_half_pixel">(p, , , sizes)
    y = Add(u, x)
  })",
                   13, {{"x", {1, 2, 6, 10}}});
}

TEST(Makers, UpsampledByScalesOfAnOldOperatorSet) {
  for (const char* mode : {"nearest", "linear"}) {
    expect_agreement(std::string(R"(g (float[1,2,3,4] x) => (float[1,2,6,8] y)
        <float[4] s = {1, 1, 2, 2}> {
      y = Upsample<mode=")") +
                         mode + "\">(x, s) }",
                     9, {{"x", {1, 2, 3, 4}}});
  }
}

TEST(Makers, EveryWayToResize) {
  for (const char* places : {"half_pixel", "pytorch_half_pixel", "asymmetric", "align_corners"}) {
    for (const char* mode : {"nearest", "linear", "cubic"}) {
      for (const char* sizes : {"{1, 2, 7, 5}", "{1, 2, 2, 8}", "{1, 2, 1, 3}"}) {
        expect_agreement(std::string("g (float[1,2,3,4] x) => (float[1,2,h,w] y) <int64[4] s = ") +
                             sizes + "> { y = Resize<mode=\"" + mode +
                             "\", coordinate_transformation_mode=\"" + places + "\">(x, , , s) }",
                         13, {{"x", {1, 2, 3, 4}}});
      }
    }
  }
}

TEST(Makers, HardSigmoidOfItsDefaultsAndBatchNormalizationAlone) {
  const ImportedModel model = expect_agreement(R"(g (float[1,2,3,3] x) => (float[1,2,3,3] y)
      <float[2] s = {2, 0.5}, float[2] b = {0.5, 1}, float[2] m = {0.1, 0.2}, float[2] v = {4, 0.25}> {
    n = BatchNormalization(x, s, b, m, v)
    y = HardSigmoid(n)
  })",
                                               11, {{"x", {1, 2, 3, 3}}});
  EXPECT_EQ(count_of_kernel(model, "HSigmoid"), 0u);
}

TEST(Makers, LeakyRectifierWrittenAsMaximum) {
  const ImportedModel model = expect_agreement(R"(g (float[1,2,3,3] x) => (float[1,2,3,3] y)
      <float a = {0.125}> {
    s = Mul(x, a)
    y = Max(x, s)
  })",
                                               12, {{"x", {1, 2, 3, 3}}});
  EXPECT_EQ(count_of_kernel(model, "Leaky"), 1u);
  expect_agreement(R"(g (float[1,2,3,3] x) => (float[1,2,3,3] y)
      <float a = {0.1}> {
    s = Mul(a, x)
    y = Max(s, x)
  })",
                   12, {{"x", {1, 2, 3, 3}}});
}

TEST(Makers, HardSwishOlderThanItsOperator) {
  const ImportedModel model = expect_agreement(R"(g (float[1,2,3,3] x) => (float[1,2,3,3] y)
      <float three = {3}, float six = {6}, float zero = {0}> {
    s = Add(x, three)
    c = Clip(s, zero, six)
    m = Mul(x, c)
    d = Div(m, six)
    h = HardSigmoid<alpha=0.16666667>(d)
    y = Mul(d, h)
  })",
                                               11, {{"x", {1, 2, 3, 3}}});
  EXPECT_EQ(count_of_kernel(model, "HSwish"), 2u);
}

TEST(Makers, PicturesWithChannelsLast) {
  const ImportedModel model = expect_agreement(R"(g (float[1,6,6,2] x) => (float[1,3,3,3] y)
      <float[3,2,1,1] w = {1, 2, 3, -1, 0.5, 2}, float[3] b = {1, 0, -1}, float six = {6},
       float zero = {0}> {
    t = Transpose<perm=[0, 3, 1, 2]>(x)
    c = Conv<strides=[2, 2]>(t, w, b)
    u = Transpose<perm=[0, 2, 3, 1]>(c)
    h = Max(u, zero)
    r = Min(h, six)
    v = Transpose<perm=[0, 3, 1, 2]>(r)
    p = MaxPool<kernel_shape=[3, 3], pads=[1, 1, 1, 1]>(v)
    y = Transpose<perm=[0, 2, 3, 1]>(p)
  })",
                                               11, {{"x", {1, 6, 6, 2}}});
  EXPECT_EQ(count_of_kernel(model, "Permute"), 2u);
  EXPECT_EQ(count_of_kernel(model, "ReLU6"), 1u);
}

TEST(Makers, TranspositionsOfChannelsLastVanishInside) {
  const ImportedModel model =
      expect_agreement(R"(g (float[1,6,6,2] x) => (float[1,3] y, float[1,3,3,3] z)
      <float[3,2,1,1] w = {1, 2, 3, -1, 0.5, 2}, float[3,3,1,1] v = {1, 2, 3, 4, 5, 6, 7, 8, 9},
       float[3] s = {1, 2, 3}, float[1,1,3] a = {0.1, 0.2, 0.3},
       float zero = {0}> {
    p = Pad<pads=[0, 0, 0, 0, 0, 1, 1, 0]>(x)
    t = Transpose<perm=[0, 3, 1, 2]>(p)
    c = Conv<strides=[2, 2]>(t, w)
    u = Transpose<perm=[0, 2, 3, 1]>(c)
    m = Mul(u, s)
    b = Add(s, m)
    l = PRelu(b, a)
    k = Greater(l, zero)
    q = Where(k, l, b)
    r = Transpose<perm=[0, 3, 1, 2]>(q)
    d = Conv(r, v)
    e = Transpose<perm=[0, 2, 3, 1]>(d)
    f = Add(e, q)
    j = Concat<axis=3>(f, l)
    h = ReduceMean<axes=[1, 2], keepdims=0>(j)
    y0 = Slice<axes=[1], starts=[0], ends=[3]>(h)
    y = Relu(y0)
    n0 = ReduceMax<axes=[3]>(f)
    n = Sub(f, n0)
    z = Transpose<perm=[0, 3, 1, 2]>(n)
  })",
                       9, {{"x", {1, 6, 6, 2}}});
  EXPECT_EQ(count_of_kernel(model, "Permute"), 1u);
}

TEST(Makers, GatedUnitsWhoseResetStandsInFrontOfTheProduct) {
  for (const char* attributes : {"hidden_size=2", "hidden_size=2, direction=\"reverse\"",
                                 "hidden_size=2, activations=[\"HardSigmoid\", \"Relu\"]"}) {
    SCOPED_TRACE(attributes);
    for (const char* inputs : {"x, w, r, b", "x, w, r, b, , h", "x, w, r"}) {
      SCOPED_TRACE(inputs);
      const ImportedModel model = expect_agreement(
          std::string(R"(g (float[4,1,2] x, float[1,1,2] h) => (float[4,1,1,2] y, float[1,1,2] z)
      <float[1,6,2] w = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, 0.9, -0.1, -0.2, -0.3},
       float[1,6,2] r = {-0.5, 0.4, 0.3, -0.2, 0.1, 0.6, 0.9, 0.8, 0.7, -0.1, -0.2, -0.3},
       float[1,12] b = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.1, 0.1, 0.1, 0.2, 0.2, 0.3}> {
    y, last = GRU<)") +
              attributes + ">(" + inputs + ") z = Add(last, h) }",
          13, {{"x", {4, 1, 2}}, {"h", {1, 1, 2}}});
      EXPECT_EQ(count_of_kernel(model, "GRU"), 0u);
    }
  }
}

TEST(Makers, TransposedConvolutionAsAHead) {
  expect_agreement(R"(g (float[1,2,3,4] x) => (float[1,2,6,8] y)
      <float[2,2,3,3] w = {1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 0, 1, 0, 1, 0, 1, 0, 1,
                           2, 0, 2, 0, 2, 0, 2, 0, 2, 9, 8, 7, 6, 5, 4, 3, 2, 1}, float[2] b = {1, -1}> {
    y = ConvTranspose<strides=[2, 2], pads=[1, 1, 1, 1], output_padding=[1, 1]>(x, w, b)
  })",
                   11, {{"x", {1, 2, 3, 4}}});
}

/// A transposed convolution of random weights [in, out / group, window...] with these attributes.
std::string transposed_convolution(const std::string& shape, const std::string& weight,
                                   const std::string& attributes) {
  return "g (float[" + shape + "] x) => (float[n,c,h,w] y) { s = Constant<value_ints=[" + weight +
         R"(]>()
    zeros = ConstantOfShape(s)
    n = Size(zeros)
    first = Constant<value_int=0>()
    step = Constant<value_int=1>()
    all = Range(first, n, step)
    reals = Cast<to=1>(all)
    bent = Sin(reals)
    w = Reshape(bent, s)
    y = ConvTranspose<)" +
         attributes + ">(x, w) }";
}

struct TransposedCase {
  const char* shape;
  const char* weight;
  const char* attributes;
  bool is_portable;  ///< nothing but the portable kernel computes it
};

TEST(Makers, TransposedConvolutionsOfManyKinds) {
  const bool any_fast = processor_kernels() > KernelSet::portable;
  for (const auto& [shape, weight, attributes, is_portable] : {
           TransposedCase{"1,8,5,6", "8,8,2,2", "strides=[2, 2]", false},
           TransposedCase{"1,8,5,6", "8,8,3,3",
                          "strides=[2, 2], pads=[1, 1, 1, 1], output_padding=[1, 1]", false},
           TransposedCase{"1,8,5,6", "8,16,4,4", "strides=[2, 2], pads=[1, 1, 1, 1]", false},
           TransposedCase{"1,3,4,7", "3,5,3,3", "strides=[2, 2], pads=[1, 1, 1, 1]", false},
           TransposedCase{"1,3,4,7", "3,5,2,3", "strides=[1, 3], dilations=[2, 2]", false},
           TransposedCase{"1,3,4,7", "3,2,9,9", "strides=[2, 2], pads=[4, 4, 4, 4]", false},
           TransposedCase{"1,3,4,7", "3,2,2,2", "strides=[3, 3], output_padding=[2, 1]", false},
           TransposedCase{"1,3,4,7", "3,2,3,3", "strides=[2, 2], output_shape=[9, 13]", false},
           TransposedCase{"1,3,4,7", "3,2,5,5", "strides=[3, 3], auto_pad=\"SAME_UPPER\"", false},
           TransposedCase{"1,5,1,1", "5,4,4,4", "kernel_shape=[4, 4]", false},
           TransposedCase{"1,4,5,6", "4,2,4,4", "group=2, strides=[2, 2]", true},
           TransposedCase{"1,3,4,7", "3,2,2,2", "pads=[3, 3, 0, 0], strides=[1, 1]", true},
       }) {
    SCOPED_TRACE(std::string(weight) + " " + attributes);
    std::vector<int64_t> sizes;
    for (const char* at = shape; *at != 0; at += *at == ',') {
      sizes.push_back(std::strtol(at, const_cast<char**>(&at), 10));
    }
    const ImportedModel model =
        expect_agreement(transposed_convolution(shape, weight, attributes), 13, {{"x", sizes}});
    const size_t portable = count_of_kernel(model, "ConvTranspose2D_Knxm");
    EXPECT_EQ(portable, is_portable || !any_fast ? 1u : 0u);
  }
}

TEST(Makers, TransposedConvolutionsOverLines) {
  expect_agreement(R"(g (float[1,2,7] x) => (float[1,3,l] y)
      <float[2,3,4] w = {1, 2, 3, 4, 5, 6, 7, 8, 9, 1, 2, 3, 1, 0, 2, 0, 3, 0, 4, 0, 5, 0, 6, 1},
       float[3] b = {1, -1, 2}> { y = ConvTranspose<strides=[4], pads=[0, 1]>(x, w, b) })",
                   13, {{"x", {1, 2, 7}}});
}

const char* const kEinsums[] = {"bij,bjk->bik", "bij,bkj->bik", "bij,jk->bik",     "bij,jk",
                                "...ij,...jk",  "bi,bj->bij",   "bij->bji",        "bij->bi",
                                "bij,bij->bi",  "bij,b...->b",  "bij,bkj,kl->bil", "bij,kl->bikjl"};

TEST(Makers, SumsOfProductsOverNamedAxes) {
  const std::map<std::string, std::vector<int64_t>> terms = {
      {"bij", {1, 3, 4}},      {"bjk", {1, 4, 5}},      {"bkj", {1, 5, 4}}, {"jk", {4, 5}},
      {"...ij", {1, 2, 3, 4}}, {"...jk", {1, 2, 4, 5}}, {"bi", {1, 3}},     {"bj", {1, 4}},
      {"b...", {1}},           {"kl", {5, 2}}};
  for (const std::string equation : kEinsums) {
    SCOPED_TRACE(equation);
    Shapes shapes;
    std::string head;
    std::string names;
    std::string left = equation.substr(0, equation.find("->"));
    for (char name = 'x'; !left.empty(); ++name) {
      const std::string term = left.substr(0, left.find(','));
      left.erase(0, term.size() + 1);
      const std::vector<int64_t>& sizes = terms.at(term);
      std::string text;
      for (const int64_t size : sizes) text += (text.empty() ? "" : ",") + std::to_string(size);
      head += (head.empty() ? "float[" : ", float[") + text + "] " + name;
      names += (names.empty() ? "" : ", ") + std::string(1, name);
      shapes[std::string(1, name)] = sizes;
    }
    expect_agreement("g (" + head + ") => (float[n] out) { t = Einsum<equation=\"" + equation +
                         "\">(" + names + ") out = Neg(t) }",
                     13, shapes);
  }
}

TEST(Makers, SumsOfProductsOneBehindTheOther) {
  expect_agreement(R"(g (float[1,3,2,4] x) => (float[1,3,2,4] y)
      <float[2,4,4] w = {1, 2, 3, 4, 5, 6, 7, 8, 1, 0, 1, 0, 0, 1, 0, 1, 1, 2, 3, 4, 5, 6, 7, 8, 1, 0, 1, 0, 0, 1, 0, 1}> {
    q = Einsum<equation="bthd,hdk->bthk">(x, w)
    a = Einsum<equation="bihk,bjhk->bhij">(q, q)
    s = Softmax(a)
    y = Einsum<equation="bhij,bjhd->bihd">(s, x)
  })",
                   13, {{"x", {1, 3, 2, 4}}});
}

TEST(Makers, ElementsChosenByTheirPlaces) {
  for (const char* node :
       {"y = Trilu(x)", "y = Trilu<upper=0>(x, one)", "v, p = TopK<axis=1>(x, one) y = Neg(v)",
        "v, p = TopK<axis=1, largest=0>(x, one) c = Cast<to=1>(p) y = Neg(c)",
        "p = ArgMax<axis=1, keepdims=0>(x) y = OneHot<axis=1>(p, depth, values)",
        "r = Round(x) i = Cast<to=6>(r) y = OneHot(i, depth, values)"}) {
    SCOPED_TRACE(node);
    expect_agreement(std::string("g (float[1,4,5] x) => (float[a,b,c] y) <int64[1] one = {1}, "
                                 "int64[1] depth = {4}, float[2] values = {-1, 3}> { ") +
                         node + " }",
                     14, {{"x", {1, 4, 5}}});
  }
}

TEST(Makers, ConstantsChosenByTheirPlaces) {
  expect_agreement(R"(g (float[1,3,3] x) => (float[1,3,3] y)
      <float[3,3] m = {0, 1, 2, 3, 0, 4, 5, 6, 0}, int64[2,2] at = {0, 1, 2, 0},
       float[2] new = {7, -7}, int64[1] two = {2}, int64[1,3] rows = {2, 0, 1}, float[1,3] low = {1, 2, 3}> {
    eye = EyeLike<k=1>(m)
    changed = ScatterND(m, at, new)
    elements = ScatterElements<axis=0>(changed, rows, low)
    found = GatherND(m, at)
    sum = ReduceSum<keepdims=0>(found)
    places = NonZero(m)
    count = Size(places)
    real = Cast<to=1>(count)
    top, where = TopK<axis=1>(elements, two)
    largest = ReduceSum(top)
    a = Add(x, eye)
    b = Add(a, elements)
    c = Add(b, sum)
    d = Add(c, largest)
    y = Add(d, real)
  })",
                   13, {{"x", {1, 3, 3}}});
}

TEST(Makers, PoolingsOverAxesThatTheyDoNotWalk) {
  for (const char* window : {"3, 1, 1], pads=[1, 0, 0, 1, 0, 0", "1, 2, 3], strides=[1, 2, 1"}) {
    for (const char* op : {"AveragePool", "MaxPool"}) {
      SCOPED_TRACE(window);
      expect_agreement(std::string("g (float[1,2,4,5,6] x) => (float[1,2,a,b,c] y) { y = ") + op +
                           "<kernel_shape=[" + window + "]>(x) }",
                       13, {{"x", {1, 2, 4, 5, 6}}});
    }
  }
}

TEST(Makers, RowsTimesAMatrix) {
  expect_agreement(R"(g (float[1,3,4] x) => (float[1,3,2] y)
      <float[4,2] m = {1, 2, 3, 4, 5, 6, 7, 8}, float[2] b = {1, -1}> {
    p = MatMul(x, m)
    y = Add(p, b)
  })",
                   13, {{"x", {1, 3, 4}}});
  expect_agreement(R"(g (float[3,4] x) => (float[3,2] y)
      <float[2,4] m = {1, 2, 3, 4, 5, 6, 7, 8}, float[3,2] b = {1, -1, 2, 3, 4, 5}> {
    y = Gemm<transB=1, alpha=0.5, beta=2.0>(x, m, b)
  })",
                   13, {{"x", {3, 4}}});
  expect_agreement(R"(g (float[4,3] x) => (float[2,3] y) <float[2,4] m = {1, 2, 3, 4, 5, 6, 7, 8}> {
    y = MatMul(m, x)
  })",
                   13, {{"x", {4, 3}}});
}

TEST(Makers, PaddingOfEveryMode) {
  for (const char* mode : {"constant", "edge", "reflect"}) {
    expect_agreement(std::string(R"(g (float[1,2,4,5] x) => (float[1,c,h,w] y)
        <int64[8] p = {0, 0, 2, 1, 0, 1, 1, -1}, float v = {1.5}> {
      y = Pad<mode=")") + mode +
                         "\">(x, p, v) }",
                     13, {{"x", {1, 2, 4, 5}}});
  }
}

TEST(Makers, PartsInAnyOrder) {
  expect_agreement(R"(g (float[2,3,4,5] x) => (float[a,b,c,d] y, float[e,f,g,h] z, float[i,j,k,l] v)
      <int64[4] i = {3, 0, -1, 0}, int64[1] first = {4}, int64[1] last = {-9}, int64[1] axis = {3},
       int64[1] step = {-2}, int64[4] times = {1, 2, 1, 3}> {
    y = Gather<axis=2>(x, i)
    z = Slice(x, first, last, axis, step)
    v = Tile(x, times)
  })",
                   13, {{"x", {2, 3, 4, 5}}});
}

TEST(Makers, ConstantsAmongTensors) {
  expect_agreement(R"(g (float[1,2,3] x) => (float[1,3,3] y)
      <float[1,1,3] token = {7, 8, 9}, float[1,3,3] places = {1, 2, 3, 4, 5, 6, 7, 8, 9}> {
    t = Concat<axis=1>(token, x)
    y = Add(t, places)
  })",
                   13, {{"x", {1, 2, 3}}});
}

const std::string kLstmWeights = R"(float[1,8,3] w = {0.5, -0.25, 0.125, 1, 0, -1, 0.75, 0.5, -0.5,
       0.1, 0.2, 0.3, -0.3, -0.2, -0.1, 1, 1, 1, 0.25, 0, 0.5, -1, 0.5, 0.25},
     float[1,8,2] r = {0.5, 0.25, -0.5, 1, 0.125, 0, 0.3, -0.3, 1, -1, 0.2, 0.4, 0, 0.5, -0.25, 0.75},
     float[1,16] b = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6, 0.7, 0.8, -0.1, -0.2, -0.3, -0.4, 0, 0, 0.1, 0.1})";

TEST(Makers, ARecurrentLayerBehindItsTransposes) {
  const ImportedModel model = expect_agreement(
      "g (float[1,5,3] x) => (float[1,5,2] y, float[1,1,2] h) <" + kLstmWeights + R"(> {
    t = Transpose<perm=[1, 0, 2]>(x)
    a, h = LSTM<hidden_size=2>(t, w, r, b)
    one = Constant<value_ints=[1]>()
    s = Squeeze(a, one)
    y = Transpose<perm=[1, 0, 2]>(s)
  })",
      13, {{"x", {1, 5, 3}}});
  EXPECT_EQ(count_of_kernel(model, "LSTM"), 1u);
  EXPECT_THAT(model.report.notes, ElementsAre(HasSubstr("ResetState")));
}

TEST(Makers, ARecurrentLayerBackwards) {
  for (const char* op : {"RNN", "LSTM"}) {
    const bool lstm = std::string(op) == "LSTM";
    const std::string graph = "g (float[4,1,3] x) => (float[4,1,1,2] y, float[1,1,2] h) <" +
                              (lstm ? kLstmWeights
                                    : "float[1,2,3] w = {0.5, -0.25, 0.125, 1, 0, -1}, "
                                      "float[1,2,2] r = {0.5, 0.25, -0.5, 1},"
                                      " float[1,4] b = {0.1, 0.2, 0.3, 0.4}") +
                              "> { y, h = " + op +
                              R"(<hidden_size=2, direction="reverse">(x, w, r, b) })";
    expect_agreement(graph, 13, {{"x", {4, 1, 3}}});
  }
}

// Between the two stand the nodes that an exporter puts there; the kernel takes both layers.
TEST(Makers, StackedRecurrentLayersBecomeOne) {
  const std::string weights =
      R"(float[2,2,3] w1 = {0.5, -0.25, 0.125, 1, 0, -1, 1, 0.5, -0.5, 0.3, 0.2, 0.1},
       float[2,2,2] r1 = {0.5, 0.25, -0.5, 1, 0.1, 0.2, 0.3, 0.4}, float[2,4] b1 = {0.1, 0.2, 0.3, 0.4, 0, -0.1, -0.2, 0},
       float[2,2,4] w2 = {0.5, -0.25, 0.125, 1, 0, -1, 1, 0.5, -0.5, 0.3, 0.2, 0.1, 0.7, -0.7, 0.2, 0},
       float[2,2,2] r2 = {0.1, -0.25, 0.5, 1, -0.1, 0.2, -0.3, 0.4}, float[2,4] b2 = {0, 0.2, 0, 0.4, 0.5, -0.1, -0.2, 0})";
  const auto graph = [&](const std::string& outputs) {
    return "g (float[4,1,3] x) => (float[4,1,4] y" + outputs + ") <" + weights +
           R"(, int64[3] s = {0, 0, -1}> {
      a, h = RNN<hidden_size=2, direction="bidirectional">(x, w1, r1, b1)
      t = Transpose<perm=[0, 2, 1, 3]>(a)
      f = Reshape(t, s)
      c = RNN<hidden_size=2, direction="bidirectional">(f, w2, r2, b2)
      u = Transpose<perm=[0, 2, 1, 3]>(c)
      y = Reshape(u, s)
    })";
  };
  const Shapes shapes = {{"x", {4, 1, 3}}};
  EXPECT_EQ(count_of_kernel(expect_agreement(graph(""), 13, shapes), "RNN"), 1u);
  const ImportedModel apart = expect_agreement(graph(", float[2,1,2] h"), 13, shapes);
  EXPECT_EQ(count_of_kernel(apart, "RNN"), 2u);
}

TEST(Makers, GatesInBothDirections) {
  expect_agreement(R"(g (float[3,1,1] x) => (float[3,2,1,1] y, float[2,1,1] h)
      <float[2,3,1] w = {0.5, -0.25, 0.125, 1, 0.3, -1}, float[2,3,1] r = {0.5, 0.25, -0.5, 1, -0.7, 0.4},
       float[2,6] b = {0.1, 0.2, 0.3, 0.4, 0.5, 0.6, -0.1, -0.2, -0.3, -0.4, -0.5, -0.6}> {
    y, h = GRU<hidden_size=1, direction="bidirectional", linear_before_reset=1>(x, w, r, b)
  })",
                   14, {{"x", {3, 1, 1}}});
}

// The state comes in as one tensor that holds h and c, inside of an If on the rate.
TEST(Makers, AStateThatEntersAndLeavesIsKept) {
  const std::string graph =
      "g (float[1,3,4] x, float[2,1,2] state) => (float[1,3,2] y, float[2,1,2] next) <" +
      kLstmWeights + R"(, bool yes = {1}> {
    y, next = If (yes) <then_branch = t () => (float[1,3,2] ty, float[2,1,2] tn) {
      s = Transpose<perm=[2, 0, 1]>(x)
      zero = Constant<value_int=0>()
      one = Constant<value_int=1>()
      axis = Constant<value_ints=[0]>()
      first = Constant<value_ints=[0]>()
      three = Constant<value_ints=[3]>()
      steps = Slice(s, first, three, axis)
      h1 = Gather<axis=0>(state, zero)
      c1 = Gather<axis=0>(state, one)
      h0 = Unsqueeze(h1, axis)
      c0 = Unsqueeze(c1, axis)
      a, hn, cn = LSTM<hidden_size=2>(steps, w, r, b, , h0, c0)
      directions = Constant<value_ints=[1]>()
      q = Squeeze(a, directions)
      ty = Transpose<perm=[1, 0, 2]>(q)
      tn = Concat<axis=0>(hn, cn)
    }, else_branch = e () => (float[1,3,2] ey, float[2,1,2] en) {
      en = Identity(state)
      ey = Identity(x)
    }>
  })";
  const Shapes shapes = {{"state", {2, 1, 2}}, {"x", {1, 3, 4}}};
  const ImportedModel model = imported(graph, 13, {});
  ASSERT_EQ(model.report.inputs.size(), 1u);
  EXPECT_EQ(model.report.inputs[0].name, "x");
  ASSERT_EQ(model.report.outputs.size(), 1u);
  EXPECT_EQ(model.report.outputs[0].name, "y");
  ASSERT_FALSE(model.report.notes.empty());
  EXPECT_THAT(model.report.notes[0],
              HasSubstr("input \"state\" and output \"next\" are the state"));
  // Two passes follow one another as they do with the state handed on.
  auto inputs = random_inputs(shapes);
  for (double& number : inputs[0].numbers.reals()) number = 0;
  const auto results = run_network(model, {inputs, inputs});
  for (size_t pass = 0; pass < 2; ++pass) {
    const auto expected = expected_outputs(graph, 13, inputs);
    Numbers result = results[pass].at(0);
    result.shape = expected[0].shape;
    EXPECT_EQ(difference(result, expected[0]), "") << pass;
    inputs[0].numbers.data = expected[1].reals();
  }
}

// States that aren't kept: given as constants and as inputs, handed out, and handed on from one layer
// to the next as from an encoder to a decoder.
TEST(Makers, StatesComeInAndGoOut) {
  if (marlo::test::all_kernels().Create("LSTMStates_Fallback_SC_F32_M1") == nullptr) {
    GTEST_SKIP() << "this build has no second set";
  }
  const auto graph = [](const std::string& head, const std::string& nodes) {
    return "g (" + head + ") <" + kLstmWeights + ", float[1,1,2] ones = {1, -0.5}> { " + nodes +
           " }";
  };
  const Shapes shapes = {{"x", {3, 1, 3}}};
  const std::string out = ") => (float[3,1,1,2] y, float[1,1,2] h, float[1,1,2] c";
  for (const char* direction : {"forward", "reverse"}) {
    const auto lstm = [&](const std::string& rest) {
      return "y, h, c = LSTM<hidden_size=2, direction=\"" + std::string(direction) + "\">(" + rest +
             ")";
    };
    const ImportedModel model =
        expect_agreement(graph("float[3,1,3] x" + out, lstm("x, w, r, b")), 13, shapes);
    EXPECT_EQ(count_of_kernel(model, "LSTMStates"), 1u);
    EXPECT_TRUE(model.report.notes.empty()) << "there is no state to reset";
    expect_agreement(graph("float[3,1,3] x" + out, lstm("x, w, r, b, , ones, ones")), 13, shapes);
    expect_agreement(graph("float[3,1,3] x, float[1,1,2] s" + out, lstm("x, w, r, b, , s")), 13,
                     {{"s", {1, 1, 2}}, {"x", {3, 1, 3}}});
  }
  const ImportedModel both =
      expect_agreement(graph("float[3,1,3] x, float[2,1,3] z) => (float[2,1,1,2] y, float[1,1,2] d",
                             R"(a, h, c = LSTM<hidden_size=2>(x, w, r, b)
               y, g, d = LSTM<hidden_size=2>(z, w, r, b, , h, c))"),
                       13, {{"x", {3, 1, 3}}, {"z", {2, 1, 3}}});
  EXPECT_EQ(count_of_kernel(both, "LSTMStates"), 2u);
}

TEST(Makers, ChannelsAreShuffledAndSqueezed) {
  expect_agreement(R"(g (float[1,4,3,3] x) => (float[1,4,3,3] y)
      <float[2,4,1,1] a = {1, 2, 3, 4, -1, 0, 1, 0.5}, float[4,2,1,1] c = {1, 0, 0.5, 1, -1, 1, 0.25, 1}> {
    s = Constant<value_ints=[1, 2, 2, 3, 3]>()
    v = Reshape(x, s)
    t = Transpose<perm=[0, 2, 1, 3, 4]>(v)
    u = Constant<value_ints=[1, 4, 3, 3]>()
    z = Reshape(t, u)
    g = ReduceMean<axes=[2, 3], keepdims=1>(z)
    d = Conv(g, a)
    r = Relu(d)
    e = Conv(r, c)
    h = HardSigmoid(e)
    y = Mul(h, z)
  })",
                   12, {{"x", {1, 4, 3, 3}}});
}

TEST(Makers, AMeanOverRowsAndColumnsIsAGlobalAverage) {
  for (const auto& [attributes, result] : {std::pair("axes=[2, 3], keepdims=0", "float[1,4]"),
                                           std::pair("axes=[-1, -2]", "float[1,4,1,1]"),
                                           std::pair("axes=[1, 2, 3], keepdims=0", "float[1]")}) {
    const ImportedModel model = expect_agreement(
        std::string("g (float[1,4,5,3] x) => (") + result +
            " y) {\n p = MaxPool<kernel_shape=[2, 2]>(x)\n y = ReduceMean<" + attributes + ">(p) }",
        13, {{"x", {1, 4, 5, 3}}});
    const bool is_of_planes = std::string(attributes).find("1, 2, 3") == std::string::npos;
    const auto has_average = Contains(HasSubstr("AdaptivePooling2D_Avg"));
    if (is_of_planes) {
      EXPECT_THAT(kernels_of(model), has_average);
    } else {
      EXPECT_THAT(kernels_of(model), Not(has_average));
    }
  }
}

TEST(Makers, HundredsOfConstants) {
  std::string nodes;
  for (int i = 0; i < 300; ++i) {
    const std::string n = std::to_string(i);
    nodes += "c" + n + " = Constant<value_float=1.0>()\n v" + std::to_string(i + 1) + " = Add(v" +
             n + ", c" + n + ")\n";
  }
  expect_agreement(
      "g (float[1,1,2,2] x) => (float[1,1,2,2] y) <float[1,1,1,1] w = {0.5}> {\n v0 = "
      "Conv(x, w)\n" +
          nodes + "y = Relu(v300) }",
      13, {{"x", {1, 1, 2, 2}}});
}

}  // namespace
}  // namespace marlo::toolkit::test
