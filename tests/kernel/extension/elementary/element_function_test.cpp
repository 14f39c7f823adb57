#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "tests/support/compare.h"
#include "tests/support/edge_sizes.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/pace.h"
#include "tests/support/test_context.h"

// The functions of the second set against their definitions in double precision.

namespace marlo::test {
namespace {

using kernel::ElementFunctionRow;
using runtime::ElementFunction;
using runtime::IKernel;
using runtime::LayoutType;
using Floats = std::vector<float>;

/// A function and how far a kernel on vectors may be off.
struct Definition {
  std::function<double(double x, double a, double b)> exact;
  double ulps;          // of the result
  double of_input = 0;  // or this times the input, where the function is a product with it
  float a = 1.0f;
  float b = 0.0f;
};

double gate(double x, double factor) { return factor == 0.0 ? 0.0 : x * factor; }
double logistic(double x) { return 1.0 / (1.0 + std::exp(-x)); }
double clamp(double x, double a, double b) {
  return std::isnan(x) ? x : std::fmin(std::fmax(x, a), b);
}
double log_1_plus_exp(double x) {
  return x > 0 ? x + std::log1p(std::exp(-x)) : std::log1p(std::exp(x));
}
double elu(double x, double a) { return x < 0 ? a * std::expm1(x) : x; }
double tanh_form(double x) {
  return gate(x, 0.5 * (1 + std::tanh(std::sqrt(2 / M_PI) * (x + 0.044715 * x * x * x))));
}

#define QRT_OF(expression)                                                       \
  [](double x, [[maybe_unused]] double a, [[maybe_unused]] double b) -> double { \
    return expression;                                                           \
  }

const std::map<std::string, Definition>& definitions() {
  static const std::map<std::string, Definition> all = {
      {"Abs", {QRT_OF(std::fabs(x)), 0}},
      {"Neg", {QRT_OF(-x), 0}},
      {"Square", {QRT_OF(x * x), 0.5}},
      {"Sqrt", {QRT_OF(std::sqrt(x)), 0.5}},
      {"Reciprocal", {QRT_OF(1 / x), 0.5}},
      {"Floor", {QRT_OF(std::floor(x)), 0}},
      {"Ceil", {QRT_OF(std::ceil(x)), 0}},
      {"Round", {QRT_OF(std::rint(x)), 0}},
      {"Sign", {QRT_OF(x > 0 ? 1 : (x < 0 ? -1 : x)), 0}},
      {"Exp", {QRT_OF(std::exp(x)), 0.988}},
      {"Log", {QRT_OF(std::log(x)), 1.0}},
      {"Erf", {QRT_OF(std::erf(x)), 1.22}},
      {"Sigmoid", {QRT_OF(x < 0 ? std::exp(x) / (1 + std::exp(x)) : logistic(x)), 2.41}},
      {"TanH", {QRT_OF(std::tanh(x)), 1.34}},
      {"ReLU", {QRT_OF(x < 0 ? 0 : x), 0}},
      {"ReLU6", {QRT_OF(clamp(x, 0, 6)), 0}},
      {"HSigmoid", {QRT_OF(std::isnan(x) ? 0 : clamp(x + 3, 0, 6) / 6), 2, 1e-7}},
      {"HSwish", {QRT_OF(x * (clamp(x + 3, 0, 6) / 6)), 3, 2e-7}},
      {"HardSigmoid", {QRT_OF(clamp(a * x + b, 0, 1)), 1, 0, 0.2f, 0.5f}},
      {"LeakyReLU", {QRT_OF(x < 0 ? a * x : x), 0.5, 0, 0.1f}},
      {"Elu", {QRT_OF(elu(x, a)), 2, 0, 0.7f}},
      {"Selu", {QRT_OF(b * elu(x, a)), 2.5, 0, 1.6732632f, 1.0507010f}},
      {"Celu", {QRT_OF(x < 0 ? a * std::expm1(x / a) : x), 3, 1e-7, 1.5f}},
      {"GELU", {QRT_OF(gate(x, 0.5 * std::erfc(-x / std::sqrt(2.0)))), 3, 2e-7}},
      {"GELUTanh", {QRT_OF(tanh_form(x)), 4, 3e-7}},
      {"SiLU", {QRT_OF(gate(x, logistic(x))), 3, 1e-37}},
      {"Swish", {QRT_OF(gate(x, logistic(a * x))), 3, 3e-6, 1.702f}},
      {"Softplus", {QRT_OF(log_1_plus_exp(x)), 2.5}},
      {"Softsign", {QRT_OF(std::isinf(x) ? std::copysign(1.0, x) : x / (1 + std::fabs(x))), 2}},
      {"Mish", {QRT_OF(gate(x, std::tanh(log_1_plus_exp(x)))), 6, 1e-37}},
      {"Clip", {QRT_OF(clamp(x, a, b)), 0, 0, -0.5f, 2.5f}},
      {"ScaleShift", {QRT_OF(a * x + b), 0.5, 0, 1.5f, -0.25f}},
      {"ThresholdedReLU", {QRT_OF(x > a || std::isnan(x) ? x : 0), 0, 0, 0.75f}},
      {"Pow", {QRT_OF(std::pow(x, a)), 0.5, 0, 3.0f}},
      {"Sin", {QRT_OF(std::sin(x)), 0.5}},
      {"Cos", {QRT_OF(std::cos(x)), 0.5}},
      {"Tan", {QRT_OF(std::tan(x)), 0.5}},
      {"Asin", {QRT_OF(std::asin(x)), 0.5}},
      {"Acos", {QRT_OF(std::acos(x)), 0.5}},
      {"Atan", {QRT_OF(std::atan(x)), 0.5}},
      {"Sinh", {QRT_OF(std::sinh(x)), 0.5}},
      {"Cosh", {QRT_OF(std::cosh(x)), 0.5}},
      {"Asinh", {QRT_OF(std::asinh(x)), 0.5}},
      {"Acosh", {QRT_OF(std::acosh(x)), 0.5}},
      {"Atanh", {QRT_OF(std::atanh(x)), 0.5}},
      {"Not", {QRT_OF(x == 0 ? 1 : 0), 0}},
      {"IsNaN", {QRT_OF(std::isnan(x) ? 1 : 0), 0}},
      {"Shrink",
       {QRT_OF(std::isnan(x) ? x : (x < -a ? x + b : (x > a ? x - b : 0))), 0.5, 0, 0.5f, 0.25f}},
  };
  return all;
}

// Units in the last place of a float of this size.
double ulp_at(double x) {
  if (!(std::fabs(x) >= 0x1p-126)) return 0x1p-149;
  return std::ldexp(1.0, std::min(std::ilogb(x), 127) - 23);
}

class ElementFunctionKernel : public testing::TestWithParam<const ElementFunctionRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  static std::string function() {
    const std::string name = GetParam()->name;
    return name.substr(0, name.find('_'));
  }
  static bool keeps_sign_of_zero() {
    for (const char* const odd :
         {"Exp", "TanH", "Erf", "Sigmoid", "GELU", "SiLU", "Abs", "Neg", "Sqrt", "Sin", "Tan"}) {
      if (function() == odd) return true;
    }
    return false;
  }
  static const Definition& definition() { return definitions().at(function()); }

  static std::shared_ptr<runtime::LayerInfo> description() {
    if (GetParam()->description == kernel::FunctionDescription::activation) {
      return std::make_shared<runtime::ActivationInfo>();
    }
    const auto info = std::make_shared<runtime::ElementFunctionInfo>();
    info->function = static_cast<uint32_t>(GetParam()->function);
    info->alpha = definition().a;
    info->beta = definition().b;
    return info;
  }

  static Floats run(const Floats& input) {
    TestContext context;
    const auto kernel = make_kernel(GetParam()->name);
    EXPECT_TRUE(kernel->Config(description(), nullptr, context));
    const auto size = static_cast<uint32_t>(input.size());
    const auto tensor = context.external_floats({size}, LayoutType::C, input);
    EXPECT_EQ(kernel->CheckInputs({tensor}), 0);
    IKernel::Tensors outputs;
    kernel->Forward({tensor}, outputs, context);
    context.pool().check();
    const bool in_place = std::string(GetParam()->name).find("_Inplace_") != std::string::npos;
    EXPECT_EQ(outputs[0] == tensor, in_place);
    EXPECT_TRUE(in_place || same_bits(values_of(*tensor), input)) << "the input changed";
    return values_of(*outputs[0]);
  }

  static void expect_close(const Floats& input, const Floats& found) {
    const Definition& is = definition();
    ASSERT_EQ(found.size(), input.size());
    for (size_t i = 0; i < input.size(); ++i) {
      const double x = input[i];
      const double exact = is.exact(x, static_cast<double>(is.a), static_cast<double>(is.b));
      if (std::isnan(exact)) {
        ASSERT_TRUE(std::isnan(found[i])) << function() << " of " << x;
      } else if (std::fabs(exact) > 0x1.fffffep127) {
        ASSERT_GE(found[i] * (exact > 0 ? 1 : -1), 0x1.fffffep127f) << function() << " of " << x;
      } else {
        // Zeros keep their signs where the definition does, but for sums and limits.
        if (x == 0 && exact == 0 && keeps_sign_of_zero()) {
          ASSERT_EQ(std::signbit(found[i]), std::signbit(exact)) << function() << " of " << x;
        }
        const double by_input = std::isfinite(x) ? is.of_input * std::fabs(x) : 0.0;
        const double bound = is.ulps * ulp_at(exact) + by_input + 0.5 * ulp_at(0);
        ASSERT_LE(std::fabs(found[i] - exact), bound * 1.001)
            << function() << " of " << x << " is " << exact << ", found " << found[i];
      }
    }
  }
};

TEST_P(ElementFunctionKernel, ComputesEveryEdgeCount) {
  for (const size_t count : edge_sizes(std::vector<size_t>{8, 16, 32, 64})) {
    const Floats input = Random(static_cast<uint32_t>(count)).floats(count, 6.0f);
    expect_close(input, run(input));
  }
}

// About 10000 floats: of every exponent, and of both signs.
TEST_P(ElementFunctionKernel, IsAsCloseAsStatedOverAllMagnitudes) {
  Floats input;
  for (uint64_t bits = 0; bits < uint64_t{1} << 32; bits += 400009) {
    input.push_back(float_of(static_cast<uint32_t>(bits)));
  }
  expect_close(input, run(input));
}

TEST_P(ElementFunctionKernel, IsAsCloseAsStatedWhereItBends) {
  for (const float scale : {0.5f, 4.0f, 20.0f, 110.0f}) {
    const Floats input = Random(7).floats(5003, scale);
    expect_close(input, run(input));
  }
}

TEST_P(ElementFunctionKernel, TakesSpecialNumbersAtEveryPlace) {
  for (const float special : {0.0f, -0.0f, kInfinity, -kInfinity, kNaN, kLargest, -kLargest,
                              kLeastNormal, kLeastDenormal, -kLeastDenormal}) {
    Floats input(35, 0.5f);
    for (size_t place = 0; place < input.size(); place += 5) {
      input[place] = special;
      expect_close(input, run(input));
      input[place] = 0.5f;
    }
  }
}

TEST_P(ElementFunctionKernel, RefusesAnotherFunction) {
  const auto kernel = make_kernel(GetParam()->name);
  const auto other = std::make_shared<runtime::ElementFunctionInfo>();
  other->function = 1000;
  EXPECT_EQ(kernel->CheckConfig(other, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(description(), nullptr), 0);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
}

INSTANTIATE_TEST_SUITE_P(Rows, ElementFunctionKernel,
                         testing::ValuesIn(kernel::element_function_rows),
                         [](const auto& test) { return std::string(test.param->name); });

TEST(ClipKernels, TakeADocumentedClip) {
  TestContext context;
  const auto info = std::make_shared<runtime::ClipInfo>();
  info->minimum_value = -1.0f;
  info->maximum_value = 0.5f;
  const auto kernel = make_kernel("Clip_Fallback_Float_M1");
  ASSERT_TRUE(kernel->Config(info, nullptr, context));
  IKernel::Tensors outputs;
  kernel->Forward({context.floats({3}, LayoutType::C, {-2, 0, 2})}, outputs, context);
  EXPECT_EQ(values_of(*outputs[0]), (Floats{-1.0f, 0.0f, 0.5f}));
}

// A negative alpha makes the argument of the exponential positive, up to where it is infinite.
TEST(CeluKernels, GrowWithoutBoundWhereAlphaIsNegative) {
  const auto info = std::make_shared<runtime::ElementFunctionInfo>();
  info->function = static_cast<uint32_t>(ElementFunction::Celu);
  info->alpha = -0.5f;
  const Floats input{-1e30f, -300.0f, -94.0f, -60.0f, -44.0f, -20.0f, -1.0f, -0.0f, 2.0f};
  for (const char* const name :
       {"Celu_Fallback_Float_M1", "Celu_FMA_Float_M1", "Celu_AVX512_Float_M1"}) {
    if (!why_not_here(name).empty()) continue;
    TestContext context;
    const auto kernel = make_kernel(name);
    ASSERT_TRUE(kernel->Config(info, nullptr, context));
    IKernel::Tensors outputs;
    kernel->Forward({context.floats({9}, LayoutType::C, input)}, outputs, context);
    const Floats found = values_of(*outputs[0]);
    for (size_t i = 0; i < input.size(); ++i) {
      const double x = input[i];
      const double exact = x < 0 ? -0.5 * std::expm1(x / -0.5) : x;
      if (exact < -0x1.fffffep127) {
        EXPECT_EQ(found[i], -kInfinity) << name << " of " << x;
      } else {
        EXPECT_NEAR(found[i], exact, 4 * ulp_at(exact)) << name << " of " << x;
      }
    }
  }
}

#if QRT_WITH_AVX
// The error of a core over floats that are `stride` apart, in units in the last place.
double worst_error(kernel::elementary::Core core, double (*exact)(double), uint64_t stride) {
  constexpr size_t kBlock = 4096;
  const float parameters[] = {1.0f, 0.0f};
  Floats input(kBlock);
  Floats found(kBlock);
  double worst = 0;
  for (uint64_t bits = 0; bits < uint64_t{1} << 32;) {
    for (float& x : input) {
      x = float_of(static_cast<uint32_t>(bits));
      bits = std::min(bits + stride, uint64_t{1} << 32);
    }
    core(input.data(), found.data(), kBlock, parameters);
    for (size_t i = 0; i < kBlock; ++i) {
      const double y = exact(static_cast<double>(input[i]));
      const double result = static_cast<double>(found[i]);
      if (std::isnan(y) != std::isnan(result)) return HUGE_VAL;
      if (std::isnan(y)) continue;
      if (std::fabs(y) < 0x1.ffffffp127 && std::isfinite(result)) {
        worst = std::max(worst, std::fabs(result - y) / ulp_at(y));
      } else if (static_cast<float>(y) != found[i]) {
        return HUGE_VAL;
      }
    }
  }
  return worst;
}

double sigmoid_of(double x) { return x < 0 ? std::exp(x) / (1 + std::exp(x)) : logistic(x); }
double exp_of(double x) { return std::exp(x); }
double tanh_of(double x) { return std::tanh(x); }
double erf_of(double x) { return std::erf(x); }

// What the catalogue states.
void expect_stated_errors(uint64_t stride) {
  using namespace kernel::elementary;
  struct Stated {
    const char* name;
    Core fma, avx512;
    double (*exact)(double);
    double ulps;
  };
  const Stated functions[] = {{"exp", Exp_fma, Exp_avx512, exp_of, 0.988},
                              {"tanh", TanH_fma, TanH_avx512, tanh_of, 1.34},
                              {"sigmoid", Sigmoid_fma, Sigmoid_avx512, sigmoid_of, 2.41},
                              {"erf", Erf_fma, Erf_avx512, erf_of, 1.22}};
  const bool has_fma = why_not_here("Exp_FMA_Float_M1").empty();
  const bool has_avx512 = why_not_here("Exp_AVX512_Float_M1").empty();
  for (const Stated& function : functions) {
    if (has_fma) {
      EXPECT_LE(worst_error(function.fma, function.exact, stride), function.ulps) << function.name;
    }
    if (has_avx512) {
      EXPECT_LE(worst_error(function.avx512, function.exact, stride), function.ulps)
          << function.name;
    }
  }
}

// Floats all over the range. QRT_TEST_FLOAT_STRIDE=1 takes every one, which lasts minutes.
TEST(ElementFunctions, StayWithinTheStatedError) {
  const char* const given = std::getenv("QRT_TEST_FLOAT_STRIDE");
  const uint64_t usual = runs_slowly() ? 20011 : 2003;
  const uint64_t stride = given == nullptr ? usual : std::strtoull(given, nullptr, 10);
  ASSERT_GT(stride, 0u) << "QRT_TEST_FLOAT_STRIDE is a number above 0";
  expect_stated_errors(stride);
}

// All vectors give the same bits.
TEST(ElementFunctions, AgreeBetweenVectors) {
  QRT_SKIP_WHERE_MISSING("Exp_AVX512_Float_M1");
  using kernel::elementary::Core;
#define QRT_PAIR(_, Name) {kernel::elementary::Name##_fma, kernel::elementary::Name##_avx512},
  const std::pair<Core, Core> pairs[] = {QRT_EACH_COMMON_FUNCTION(, QRT_PAIR)
                                             QRT_EACH_VECTOR_FUNCTION(, QRT_PAIR)};
#undef QRT_PAIR
  const float parameters[] = {0.75f, 1.25f};
  Floats input = Random(3).floats(20011, 30.0f);
  for (size_t i = 0; i < 5000; ++i) input[i] = float_of(static_cast<uint32_t>(i * 858993));
  for (const auto& [fma, avx512] : pairs) {
    Floats found(input.size());
    Floats wider(input.size());
    fma(input.data(), found.data(), input.size(), parameters);
    avx512(input.data(), wider.data(), input.size(), parameters);
    EXPECT_TRUE(same_bits(found, wider)) << "function " << (&fma - &pairs[0].first);
  }
}
#endif

}  // namespace
}  // namespace marlo::test
