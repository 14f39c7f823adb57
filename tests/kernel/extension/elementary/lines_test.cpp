#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/normalization_info.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// Softmax and normalisations along axes against their formulas in double precision.

namespace marlo::test {
namespace {

using runtime::IKernel;
using runtime::LayoutType;
using Dims = std::vector<uint32_t>;
using Floats = std::vector<float>;
using Doubles = std::vector<double>;

// What a kernel makes of one tensor on hostile memory.
Floats pass(IKernel& kernel, TestContext& context, const Dims& dims, const Floats& values) {
  const auto input = context.external_floats(dims, LayoutType::FLEXIABLE, values);
  EXPECT_EQ(kernel.CheckInputs({input}), 0);
  IKernel::Tensors outputs;
  kernel.Forward({input}, outputs, context);
  context.pool().check();
  const bool in_place = kernel.GetKernelName().find("Inplace") != std::string::npos;
  EXPECT_EQ(outputs[0] == input, in_place);
  EXPECT_TRUE(in_place || same_bits(values_of(*input), values)) << "the input changed";
  EXPECT_TRUE(outputs[0]->shape == input->shape);
  return values_of(*outputs[0]);
}

Floats run(const char* name, const std::shared_ptr<runtime::LayerInfo>& info, const Dims& dims,
           const Floats& values) {
  TestContext context;
  const auto kernel = make_kernel(name);
  EXPECT_TRUE(kernel->Config(info, nullptr, context));
  return pass(*kernel, context, dims, values);
}

void expect_close(const Floats& found, const Doubles& exact, double relative, double absolute) {
  ASSERT_EQ(found.size(), exact.size());
  for (size_t i = 0; i < found.size(); ++i) {
    ASSERT_NEAR(found[i], exact[i], relative * std::fabs(exact[i]) + absolute) << "at " << i;
  }
}

// Along the middle one of three dims.
Doubles softmax(const Floats& x, size_t outer, size_t count, size_t inner, bool logarithm) {
  Doubles y(x.size());
  for (size_t o = 0; o < outer; ++o) {
    for (size_t j = 0; j < inner; ++j) {
      const auto at = [&](size_t i) { return (o * count + i) * inner + j; };
      double largest = x[at(0)];
      for (size_t i = 1; i < count; ++i) largest = std::max<double>(largest, x[at(i)]);
      double sum = 0;
      for (size_t i = 0; i < count; ++i) sum += std::exp(x[at(i)] - largest);
      for (size_t i = 0; i < count; ++i) {
        const double power = x[at(i)] - largest;
        y[at(i)] = logarithm ? power - std::log(sum) : std::exp(power) / sum;
      }
    }
  }
  return y;
}

class SoftmaxKernel : public testing::TestWithParam<const kernel::AxisSoftmaxRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }
};

TEST_P(SoftmaxKernel, ComputesEveryEdgeSizeAlongEveryAxis) {
  for (const uint32_t count : {1u, 2u, 7u, 8u, 15u, 17u, 33u, 64u, 65u, 131u}) {
    for (const uint32_t inner : {1u, 3u, 8u, 19u}) {
      for (const bool logarithm : {false, true}) {
        const auto info = std::make_shared<runtime::AxisSoftmaxInfo>();
        info->axis = inner == 3 ? -2 : 1;
        info->logarithm = logarithm;
        const Floats x = Random(count + inner).floats(size_t{2} * count * inner, 30.0f);
        expect_close(run(GetParam()->name, info, {2, count, inner}, x),
                     softmax(x, 2, count, inner, logarithm), 4e-6, logarithm ? 1e-5 : 1e-37);
      }
    }
  }
}

TEST_P(SoftmaxKernel, DoesNotOverflow) {
  const auto info = std::make_shared<runtime::AxisSoftmaxInfo>();
  const Floats found = run(GetParam()->name, info, {4}, {1e30f, -1e30f, 1e30f, -kInfinity});
  EXPECT_EQ(found, (Floats{0.5f, 0.0f, 0.5f, 0.0f}));
}

TEST_P(SoftmaxKernel, SpreadsANaNOverItsLineAlone) {
  const auto info = std::make_shared<runtime::AxisSoftmaxInfo>();
  for (const size_t place : {0u, 5u, 16u}) {
    Floats x(2 * 17, 1.0f);
    x[place] = kNaN;
    const Floats found = run(GetParam()->name, info, {2, 17}, x);
    for (size_t i = 0; i < 17; ++i) EXPECT_TRUE(std::isnan(found[i])) << i;
    for (size_t i = 17; i < 34; ++i) EXPECT_NEAR(found[i], 1.0 / 17, 1e-7) << i;
  }
}

TEST_P(SoftmaxKernel, TakesADocumentedDescription) {
  const auto info = std::make_shared<runtime::SoftmaxInfo>();
  info->dim = 2;  // the batch counted
  const Floats x = Random(9).floats(15, 3.0f);
  expect_close(run(GetParam()->name, info, {3, 5}, x), softmax(x, 3, 5, 1, false), 2e-6, 0);
}

TEST_P(SoftmaxKernel, RefusesAnAxisThatIsNotThere) {
  const auto info = std::make_shared<runtime::AxisSoftmaxInfo>();
  info->axis = 2;
  TestContext context;
  const auto kernel = make_kernel(GetParam()->name);
  ASSERT_TRUE(kernel->Config(info, nullptr, context));
  const auto input = context.floats({2, 2}, LayoutType::FLEXIABLE, Floats(4, 0.0f));
  EXPECT_EQ(kernel->CheckInputs({input}), -2);
  IKernel::Tensors outputs;
  EXPECT_THROW(kernel->Forward({input}, outputs, context), std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(Rows, SoftmaxKernel, testing::ValuesIn(kernel::axis_softmax_rows),
                         [](const auto& test) { return std::string(test.param->name); });

Doubles normalised(const Floats& x, size_t count, double eps) {
  Doubles y(x.size());
  for (size_t first = 0; first < x.size(); first += count) {
    double mean = 0;
    double square = 0;
    for (size_t i = 0; i < count; ++i)
      mean += static_cast<double>(x[first + i]) / static_cast<double>(count);
    for (size_t i = 0; i < count; ++i) square += (x[first + i] - mean) * (x[first + i] - mean);
    const double root = std::sqrt(square / static_cast<double>(count) + eps);
    for (size_t i = 0; i < count; ++i) y[first + i] = (x[first + i] - mean) / root;
  }
  return y;
}

class LayerNormKernel : public testing::TestWithParam<const kernel::LayerNormRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }
};

TEST_P(LayerNormKernel, ComputesEveryEdgeSize) {
  for (const uint32_t count : {2u, 7u, 8u, 16u, 17u, 31u, 64u, 67u, 768u}) {
    Random random(count);
    Floats x = random.floats(size_t{3} * count, 2.0f);
    for (float& number : x) number += 5.0f;
    const auto info = std::make_shared<runtime::LayerNormInfo>();
    info->eps = 1e-3f;
    Doubles exact = normalised(x, count, static_cast<double>(info->eps));
    expect_close(run(GetParam()->name, info, {3, count}, x), exact, 1e-5, 1e-5);
    const Floats scale = random.floats(count, 2.0f);
    const Floats shift = random.floats(count, 2.0f);
    info->scale = weight_text(scale);
    info->shift = weight_text(shift);
    for (size_t i = 0; i < exact.size(); ++i) {
      exact[i] = exact[i] * scale[i % count] + shift[i % count];
    }
    expect_close(run(GetParam()->name, info, {3, count}, x), exact, 1e-5, 2e-5);
  }
}

TEST_P(LayerNormKernel, NormalisesOverSeveralAxes) {
  const auto info = std::make_shared<runtime::LayerNormInfo>();
  info->axis = 1;
  const Floats x = Random(4).floats(2 * 3 * 5, 2.0f);
  expect_close(run(GetParam()->name, info, {2, 3, 5}, x), normalised(x, 15, 1e-5), 1e-5, 1e-5);
}

TEST_P(LayerNormKernel, RefusesOtherCountsThanItsFactors) {
  const auto info = std::make_shared<runtime::LayerNormInfo>();
  info->scale = weight_text({1, 2, 3});
  TestContext context;
  const auto kernel = make_kernel(GetParam()->name);
  ASSERT_TRUE(kernel->Config(info, nullptr, context));
  const auto shape = [&](const Dims& dims) {
    return context.floats(dims, LayoutType::FLEXIABLE, Floats(12, 0.0f));
  };
  EXPECT_EQ(kernel->CheckInputs({shape({4, 3})}), 0);
  EXPECT_EQ(kernel->CheckInputs({shape({3, 4})}), -2);
}

INSTANTIATE_TEST_SUITE_P(Rows, LayerNormKernel, testing::ValuesIn(kernel::layer_norm_rows),
                         [](const auto& test) { return std::string(test.param->name); });

class GroupNormKernel : public testing::TestWithParam<const kernel::GroupNormRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }
};

TEST_P(GroupNormKernel, NormalisesGroupsOfChannels) {
  for (const uint32_t groups : {1u, 2u, 6u}) {
    const uint32_t pixels = 19;
    Random random(groups);
    const Floats x = random.floats(6 * pixels, 3.0f);
    const Floats scale = random.floats(6, 2.0f);
    const Floats shift = random.floats(6, 2.0f);
    const auto info = std::make_shared<runtime::GroupNormInfo>();
    info->groups = groups;
    info->scale = weight_text(scale);
    info->shift = weight_text(shift);
    Doubles exact = normalised(x, size_t{6} / groups * pixels, 1e-5);
    for (size_t i = 0; i < exact.size(); ++i) {
      exact[i] = exact[i] * scale[i / pixels] + shift[i / pixels];
    }
    expect_close(run(GetParam()->name, info, {6, pixels}, x), exact, 1e-5, 1e-5);
  }
}

TEST_P(GroupNormKernel, TakesADocumentedInstanceNormalisation) {
  const auto info = std::make_shared<runtime::InstanceNorm2dInfo>();
  info->num_features = 2;
  const Floats x = Random(2).floats(2 * 35, 3.0f);
  expect_close(run(GetParam()->name, info, {2, 5, 7}, x), normalised(x, 35, 1e-5), 1e-5, 1e-5);
  info->if_track_running_stats = true;
  EXPECT_EQ(make_kernel(GetParam()->name)->CheckConfig(info, nullptr), -1);
}

INSTANTIATE_TEST_SUITE_P(Rows, GroupNormKernel, testing::ValuesIn(kernel::group_norm_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test
