#include <gtest/gtest.h>

#include <cmath>

#include "tests/support/activation_tester.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// What activations do at their edges, stated in numbers.

namespace marlo::test {
namespace {

using kernel::ActivationRow;
using runtime::LayoutType;

/// The row of a kernel of this build.
const ActivationRow& row_of(const std::string& name) {
  for (const ActivationRow* row : kernel::activation_rows) {
    if (row->name == name) return *row;
  }
  throw std::invalid_argument("this build has no " + name);
}

/// Results of a kernel for `x` in its vectors and in the rest behind them.
struct Forms {
  float vector;
  float scalar;
};

Forms forms(const std::string& name, float x, float slope = 0.25f) {
  const size_t block = activation_reference(name).block;
  const std::vector<float> inputs(2 * block - (block > 1 ? 1 : 0), x);
  const std::vector<float> outputs =
      ActivationTester().inputs(inputs).slope(slope).output(row_of(name));
  return {outputs.front(), outputs.back()};
}

std::vector<std::string> kernels_of(const std::string& function) {
  std::vector<std::string> names;
  for (const ActivationRow* row : kernel::activation_rows) {
    if (activation_reference(row->name).function() != function) continue;
    if (why_not_here(row->name).empty()) names.push_back(row->name);
  }
  return names;
}

bool has_vectors(const std::string& name) { return activation_reference(name).vector != nullptr; }

// Every test that walks the kernels of a function leaves out what the processor can't run; the
// tests of single kernels say so by being skipped.

TEST(ActivationEdge, ATensorWithoutElementsGivesAnEmptyNewTensor) {
  for (const ActivationRow* row : kernel::activation_rows) {
    if (!why_not_here(row->name).empty()) continue;
    TestContext context;
    const auto kernel = make_kernel(row->name);
    ASSERT_TRUE(kernel->Config(activation_info({}), nullptr, context));
    const auto input = context.floats({3, 0, 5}, LayoutType::CHW, {});
    runtime::IKernel::Tensors outputs;
    EXPECT_EQ(kernel->Forward({input}, outputs, context), 0) << row->name;
    ASSERT_EQ(outputs.size(), 1u) << row->name;
    EXPECT_EQ(outputs[0]->shape.dims, (std::vector<uint32_t>{3, 0, 5})) << row->name;
  }
}

TEST(ActivationEdge, ReLUKeepsANaNInScalarsAndMakesItZeroInVectors) {
  for (const char* function : {"ReLU", "ReLU6"}) {
    for (const std::string& name : kernels_of(function)) {
      const Forms result = forms(name, kNaN);
      EXPECT_TRUE(std::isnan(result.scalar)) << name;
      if (has_vectors(name)) {
        EXPECT_EQ(bits_of(result.vector), 0u) << name;
      }
    }
  }
}

TEST(ActivationEdge, HSigmoidMakesANaNZeroAndHSwishKeepsIt) {
  for (const std::string& name : kernels_of("HSigmoid")) {
    const Forms result = forms(name, kNaN);
    EXPECT_EQ(bits_of(result.scalar), 0u) << name;
    EXPECT_EQ(bits_of(result.vector), 0u) << name;
  }
  for (const std::string& name : kernels_of("HSwish")) {
    const Forms result = forms(name, kNaN);
    EXPECT_TRUE(std::isnan(result.scalar)) << name;
    EXPECT_TRUE(std::isnan(result.vector)) << name;
  }
}

TEST(ActivationEdge, LeakyKeepsANegativeZeroInScalarsOnly) {
  for (const char* function : {"Leaky", "PReLU"}) {
    for (const std::string& name : kernels_of(function)) {
      for (const float slope : {0.25f, -0.25f}) {
        const Forms result = forms(name, -0.0f, slope);
        EXPECT_EQ(bits_of(result.scalar), 0x80000000u) << name;
        if (has_vectors(name)) {
          EXPECT_EQ(bits_of(result.vector), 0u) << name;
        }
      }
    }
  }
}

TEST(ActivationEdge, AnInfiniteSlopeTurnsPositiveVectorElementsIntoNaN) {
  for (const char* function : {"Leaky", "PReLU"}) {
    for (const std::string& name : kernels_of(function)) {
      const Forms result = forms(name, 2.0f, kInfinity);
      EXPECT_EQ(result.scalar, 2.0f) << name;
      if (has_vectors(name)) {
        EXPECT_TRUE(std::isnan(result.vector)) << name;
      }
      EXPECT_EQ(forms(name, -2.0f, kInfinity).vector, -kInfinity) << name;
    }
  }
}

TEST(ActivationEdge, ClampsAreReachedExactly) {
  for (const std::string& name : kernels_of("HSigmoid")) {
    EXPECT_EQ(forms(name, 3.0f).vector, 1.0f) << name;
    EXPECT_EQ(forms(name, 1e30f).vector, 1.0f) << name;
    EXPECT_EQ(bits_of(forms(name, -3.0f).vector), 0u) << name;
    EXPECT_EQ(bits_of(forms(name, 0.0f).vector), 0x3F000000u) << name;
  }
  for (const std::string& name : kernels_of("ReLU6")) {
    EXPECT_EQ(forms(name, 6.5f).vector, 6.0f) << name;
    EXPECT_EQ(forms(name, kInfinity).scalar, 6.0f) << name;
  }
  for (const std::string& name : kernels_of("HSwish")) {
    EXPECT_EQ(forms(name, 100.0f).vector, 100.0f) << name;
    EXPECT_EQ(forms(name, kInfinity).vector, kInfinity) << name;
    EXPECT_TRUE(std::isnan(forms(name, -kInfinity).vector)) << name;
  }
}

#if QRT_WITH_SSE

float sse_sigmoid(float x) { return forms("Sigmoid_SSE_Float_M1", x).vector; }
float sse_tanh(float x) { return forms("TanH_SSE_Float_M1", x).vector; }

TEST(FastSigmoid, OfZeroIsNotAHalf) {
  EXPECT_FLOAT_EQ(fast_exponential(0.0f), 0.97100830f);
  EXPECT_FLOAT_EQ(sse_sigmoid(0.0f), 0.50735453f);
}

// How many of the first elements are fast, shown by the value of zero.
size_t fast_elements(size_t count) {
  const auto outputs = ActivationTester()
                           .inputs(std::vector<float>(count, 0.0f))
                           .output(row_of("Sigmoid_SSE_Float_M1"));
  size_t fast = 0;
  while (fast < count && outputs[fast] != 0.5f) ++fast;
  for (size_t i = fast; i < count; ++i) EXPECT_EQ(outputs[i], 0.5f);
  return fast;
}

TEST(FastSigmoid, OnExactly16ElementsIsFastForAll) { EXPECT_EQ(fast_elements(16), 16u); }
TEST(FastSigmoid, On15ElementsIsAccurateForAll) { EXPECT_EQ(fast_elements(15), 0u); }
TEST(FastSigmoid, On31ElementsIsFastFor16AndAccurateFor15) { EXPECT_EQ(fast_elements(31), 16u); }
TEST(FastSigmoid, On32ElementsIsFastForAll) { EXPECT_EQ(fast_elements(32), 32u); }

TEST(FastTanH, LeavesCountModulo4ToTheExactFunction) {
  const std::vector<float> inputs(7, 0.7f);
  const auto outputs = ActivationTester().inputs(inputs).output(row_of("TanH_SSE_Float_M1"));
  const float exact = activation_reference("TanH_Fallback_Float_M1").apply({0.7f}, {})[0];
  for (size_t i = 0; i < 4; ++i) EXPECT_NE(outputs[i], exact);
  for (size_t i = 4; i < 7; ++i) EXPECT_EQ(outputs[i], exact);
}

// The argument of the exponential is -x. Where the double that it makes is beyond the float range
// the exponential is infinite, and the sigmoid 0.
TEST(FastSigmoid, IsZeroWhereTheExponentialOverflows) {
  EXPECT_EQ(sse_sigmoid(-100.0f), 0.0f);
  EXPECT_EQ(fast_exponential(709.06f), kInfinity);
  EXPECT_EQ(sse_sigmoid(-709.06f), 0.0f);
}

TEST(FastSigmoid, IsNaNWhereTheExponentFieldIsAllOnes) {
  EXPECT_EQ(fast_exponential(709.7f), kInfinity);
  EXPECT_TRUE(std::isnan(fast_exponential(709.9f)));
  EXPECT_TRUE(std::isnan(sse_sigmoid(-709.9f)));
}

TEST(FastSigmoid, IsOneWhereTheIntegerOverflows) {
  EXPECT_EQ(bits_of(fast_exponential(710.6f)), 0x80000000u);
  EXPECT_EQ(sse_sigmoid(-710.6f), 1.0f);
  EXPECT_EQ(sse_sigmoid(-1e30f), 1.0f);
  EXPECT_EQ(sse_sigmoid(-kInfinity), 1.0f);
  EXPECT_EQ(sse_sigmoid(kNaN), 1.0f);
}

// A negative sum sets the sign bit of the double: its magnitude grows again with the exponent.
TEST(FastSigmoid, SeesNegativeExponentialsFarBelowZero) {
  EXPECT_GE(fast_exponential(-708.9f), 0.0f);
  const float negative = fast_exponential(-1400.0f);
  EXPECT_TRUE(std::signbit(negative) || std::isnan(negative));
  EXPECT_TRUE(same_bits(sse_sigmoid(1400.0f), 1.0f / (1.0f + negative)));
  EXPECT_TRUE(same_bits(sse_sigmoid(712.0f), 1.0f / (1.0f + fast_exponential(-712.0f))));
}

TEST(FastTanH, FollowsTheFastExponentialToItsEnds) {
  EXPECT_NEAR(sse_tanh(0.0f), -0.0294f, 1e-4f);
  EXPECT_EQ(sse_tanh(40.0f), 1.0f);
  EXPECT_EQ(sse_tanh(-40.0f), -1.0f);
  // Infinity over infinity.
  EXPECT_TRUE(std::isnan(sse_tanh(100.0f)));
  EXPECT_TRUE(std::isnan(sse_tanh(-100.0f)));
}

#endif

#if QRT_WITH_AVX

class PolynomialSigmoid : public testing::Test {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING("Sigmoid_AVX_Float_M1"); }

  static float of(float x) { return forms("Sigmoid_AVX_Float_M1", x).vector; }
};

TEST_F(PolynomialSigmoid, IsOneForALargeArgument) {
  EXPECT_EQ(of(89.0f), 1.0f);
  EXPECT_EQ(of(kInfinity), 1.0f);
}

TEST_F(PolynomialSigmoid, IsADenormalForALargeNegativeArgument) {
  for (const float x : {-89.0f, -1e30f, -kInfinity}) {
    EXPECT_NEAR(of(x), 4.156e-39, 1e-42) << x;
    EXPECT_EQ(std::fpclassify(of(x)), FP_SUBNORMAL) << x;
  }
}

TEST_F(PolynomialSigmoid, TakesANaNForTheUpperClamp) {
  EXPECT_EQ(bits_of(of(kNaN)), bits_of(of(-kInfinity)));
  EXPECT_TRUE(std::isnan(forms("Sigmoid_AVX_Float_M1", kNaN).scalar));
}

TEST_F(PolynomialSigmoid, LeavesCountModulo8ToTheExactFunction) {
  const std::vector<float> inputs(15, -88.5f);
  const auto outputs = ActivationTester().inputs(inputs).output(row_of("Sigmoid_AVX_Float_M1"));
  const float exact = activation_reference("Sigmoid_Fallback_Float_M1").apply({-88.5f}, {})[0];
  for (size_t i = 0; i < 8; ++i) EXPECT_NE(outputs[i], exact);
  for (size_t i = 8; i < 15; ++i) EXPECT_EQ(outputs[i], exact);
}

#endif

}  // namespace
}  // namespace marlo::test
