#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "import_agreement.h"
#include "qrt_core/qrt_core.h"
#include "qrt_toolkit/bench/bench.h"
#include "qrt_toolkit/errors.h"
#include "qrt_toolkit/explain/explain.h"
#include "qrt_toolkit/tune/tune.h"
#include "tests/support/kernels.h"

// Numbers that are none or infinite, places that aren't there, types that wrap, and sizes beyond all
// bounds: what is imported agrees, and what isn't is refused in words.

namespace marlo::toolkit::test {
namespace {

using ::testing::HasSubstr;

std::string refusal_of(const std::string& graph, int opset, const Shapes& shapes) {
  try {
    imported(graph, opset, shapes);
  } catch (const ImportError& error) {
    return error.what();
  }
  return "imported";
}

TEST(EdgeCases, WhereLeavesNothingOfTheOtherSide) {
  const Shapes shapes = {{"x", {2, 3}}};
  // Of the numbers below zero there is no logarithm.
  expect_agreement(R"(g (float[2,3] x) => (float[2,3] y, float[2,3] z) <float zero = {0}> {
    c = Greater(x, zero)
    l = Log(x)
    y = Where(c, l, x)
    z = Where(c, l, zero)
  })",
                   13, shapes);
  expect_agreement(R"(g (float[2,3] x) => (float[2,3] y, float[2,3] z)
      <float below = {-1}, int64[3] whole = {5, -6, 7}> {
    c = Greater(x, below)
    n = Sqrt(below)
    y = Where(c, x, n)
    f = Cast<to=7>(x)
    i = Where(c, whole, f)
    z = Cast<to=1>(i)
  })",
                   13, shapes);
  // Infinite scores times a mask that is known.
  expect_agreement(R"(g (float[2,3] x) => (float[2,3] y, float[2,3] z, float[2,3] w)
      <float zero = {0}, float[3] m = {1, -1, 1}, float[2,1] k = {-1, 1}> {
    i = Log(zero)
    c = Greater(m, zero)
    d = Greater(k, zero)
    s = Where(c, x, i)
    y = Softmax<axis=-1>(s)
    l = Log(x)
    z = Where(d, l, x)
    w = Where(c, zero, l)
  })",
                   13, shapes);
}

TEST(EdgeCases, KnownMasksOfLongRows) {
  const ImportedModel model = expect_agreement(
      R"(g (float[1,1,300,300] x) => (float[1,1,300,300] y)
      <int64 zero = {0}, int64 one = {1}, int64 n = {300}, int64[1] behind = {1}, float low = {-1000000000}> {
    r = Range(zero, n, one)
    q = Unsqueeze(r, behind)
    c = GreaterOrEqual(q, r)
    y = Where(c, x, low)
  })",
      13, {{"x", {1, 1, 300, 300}}});
  EXPECT_EQ(count_of_kernel(model, "Conv2D"), 0u);
}

TEST(EdgeCases, ExtremaOfWhatIsNoNumber) {
  const Shapes shapes = {{"x", {4, 3}}};
  // Lines of infinity alone, and of numbers some of which are none.
  expect_agreement(
      R"(g (float[4,3] x) => (float[4] a, float[4] b, float[4] c, float[4] d, float[4,3] e)
      <float[4,1] k = {0, 1, 1, 0}, float zero = {0}> {
    l = Log(k)
    s = Add(x, l)
    a = ReduceMax<axes=[1], keepdims=0>(s)
    t = Neg(s)
    b = ReduceMin<axes=[1], keepdims=0>(t)
    n = Sqrt(x)
    c = ReduceMax<axes=[1], keepdims=0>(n)
    d = ReduceMin<axes=[1], keepdims=0>(n)
    e = Max(n, s)
  })",
      12, shapes);
}

TEST(EdgeCases, PowersAndBoundsBeyondWholeNumbers) {
  const Shapes shapes = {{"x", {7}}};
  for (const char* power : {"10000000000", "-10000000000", "9", "8", "-8", "0"}) {
    expect_agreement(
        "g (float[7] x) => (float[7] y) <float p = {" + std::string(power) + "}> { y = Pow(x, p) }",
        13, shapes);
  }
  expect_agreement(R"(g (float[7] x) => (float[7] y, float[7] z) <float zero = {0}> {
    l = Log(zero)
    i = Neg(l)
    y = Pow(x, i)
    z = Clip(x, zero, l)
  })",
                   13, shapes);
}

TEST(EdgeCases, PlacesThatArentThere) {
  const auto gathered = [](const std::string& op, const std::string& indices) {
    return refusal_of("g (float[3,2] x) => (float y) <" + indices + "> { y = " + op + "(x, i) }",
                      13, {{"x", {3, 2}}});
  };
  EXPECT_THAT(gathered("Gather", "int64[1] i = {-5}"),
              HasSubstr("there is no element -5 in an axis of 3"));
  EXPECT_THAT(gathered("Gather", "int64[1] i = {3}"), HasSubstr("no element 3 in an axis of 3"));
  EXPECT_THAT(gathered("GatherElements<axis=1>", "int64[3,1] i = {0, 1, 2}"),
              HasSubstr("no element 2 in an axis of 2"));
  EXPECT_THAT(gathered("GatherElements<axis=1>", "int64[4,1] i = {0, 1, 0, 0}"),
              HasSubstr("reach beyond"));
  EXPECT_THAT(gathered("GatherElements<axis=1>", "int64[2] i = {0, 1}"), HasSubstr("as many axes"));
}

TEST(EdgeCases, WholeNumbersThatFloatsDontHold) {
  for (const char* op : {"Div(i, i)", "Mod(i, i)", "ReduceSum(i)"}) {
    EXPECT_THAT(
        refusal_of(std::string("g (int64[4] i) => (int64 y) { y = ") + op + " }", 13, {{"i", {4}}}),
        HasSubstr("of int64 is another function"))
        << op;
  }
  for (const char* op : {"Sub(i, i)", "Add(i, i)", "Mul(i, i)"}) {
    EXPECT_THAT(refusal_of(std::string("g (uint8[4] i) => (uint8[4] y) { y = ") + op + " }", 14,
                           {{"i", {4}}}),
                HasSubstr("of uint8 doesn't wrap"))
        << op;
  }
  const std::string rows = "g (int64[2] i) => (int64[2] y) <int64[3] t = {1, ";
  EXPECT_THAT(refusal_of(rows + "2049, 3}> { y = Gather(t, i) }", 13, {{"i", {2}}}),
              HasSubstr("whole numbers such as 2049 have no half"));
  EXPECT_NO_THROW(imported(rows + "2048, 3}> { y = Gather(t, i) }", 13, {{"i", {2}}}));
}

TEST(EdgeCases, SizesAndNumbersBeyondAllBounds) {
  const Shapes shapes = {{"x", {1, 3, 4}}};
  EXPECT_THAT(
      refusal_of(R"(g (float[1,3,4] x) => (float y) <int64[6] p = {0, 0, 0, 0, 0, 2147483647}> {
    y = Pad<mode="edge">(x, p)
  })",
                 13, shapes),
      HasSubstr("expected axes of 1 to 16777216 elements, found one of 2147483647"));
  EXPECT_THAT(refusal_of(R"(g (float[1,3,4] x) => (float y) <int64[3] s = {1, 3, 2147483647}> {
    y = Resize(x, , , s)
  })",
                         13, shapes),
              HasSubstr("expected axes of 1 to 16777216 elements"));
  EXPECT_THAT(refusal_of(R"(g (float[1,3,4] x) => (float[1,3,4] y) <float[2] low = {0, 1}> {
    y = Clip(x, low)
  })",
                         13, shapes),
              HasSubstr("expected one number, found 2"));
  EXPECT_THAT(
      refusal_of("g (float[1,3,4] x) => (float[1,3,4] y) { y = LRN<size=0>(x) }", 13, shapes),
      HasSubstr("found 0"));
  EXPECT_THAT(refusal_of(R"(g (float[1,3,4] x) => (float[1,3,4] y) <float[3] w = {1, 2, 3}> {
    y = GroupNormalization<num_groups=2>(x, w, w)
  })",
                         21, shapes),
              HasSubstr("expected a divisor of 3 channels, found 2"));
}

TEST(EdgeCases, ConstantsThatAddAxesMakeNoGelu) {
  expect_agreement(R"(g (float[3] x) => (float[1,3] y)
      <float edge = {1.4142135}, float one = {1}, float[1,1] half = {0.5}> {
    d = Div(x, edge)
    e = Erf(d)
    s = Add(e, one)
    m = Mul(x, s)
    y = Mul(m, half)
  })",
                   13, {{"x", {3}}});
}

TEST(EdgeCases, NumbersOfWordsAreMeasured) {
  ImportedModel model = imported(R"(g (int64[1,6] i) => (float[1,6,3] y)
      <float[2,3] t = {1, 2, 3, 4, 5, 6}, int64[2] turned = {6, 1}> {
    r = Reshape(i, turned)
    j = Transpose(r)
    e = Gather(t, j)
    y = Relu(e)
  })",
                                 13, {{"i", {1, 6}}});
  const marlo::test::TemporaryFolder folder;
  const std::string path = folder.file("net.json");
  model.model.ToFile(path.c_str(), "json");
  const auto& dims = model.report.inputs.at(0).shape;
  const runtime::TensorShape shape(
      dims, runtime::DataType::FLOAT32,
      dims.size() == 1 ? runtime::LayoutType::C : runtime::LayoutType::FLEXIABLE);

  BenchSubject subject;
  subject.name = "words";
  subject.open = [&] { return utility::Model(path); };
  subject.inputs[0] = shape;
  BenchOptions bench_options;
  bench_options.sampling.exact_ms = 1;
  bench_options.sampling.most_warm_ms = 1;
  EXPECT_EQ(bench({subject}, bench_options).networks.size(), 1u);

  TuneOptions tune_options;
  tune_options.assign.inputs["i"] = shape;
  tune_options.assign.set = KernelSet::portable;
  tune_options.budget = 1;
  EXPECT_EQ(tune_model(model.model, marlo::test::all_kernels(), tune_options).report.difference, 0);

  MachineLimits machine;
  machine.gigaflops.fill(1e6);
  machine.levels.resize(1);
  machine.levels[0].bandwidth.fill({1e6, 1e6});
  ExplainOptions explain_options;
  explain_options.inputs["i"] = shape;
  explain_options.passes_ms = 1;
  explain_options.least_passes = 3;
  explain_options.machine = &machine;
  EXPECT_FALSE(
      explain_model(model.model, marlo::test::all_kernels(), explain_options).layers.empty());
}

}  // namespace
}  // namespace marlo::toolkit::test
