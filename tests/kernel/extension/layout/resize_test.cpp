#include <gtest/gtest.h>

#include <cmath>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// Resampling along any axes, against results worked out by hand and against its formula.

namespace marlo::test {
namespace {

using runtime::IKernel;
using runtime::LayoutType;
using Dims = std::vector<uint32_t>;
using Floats = std::vector<float>;

class Resizing : public testing::TestWithParam<const kernel::ResizeRow*> {
 protected:
  static std::shared_ptr<runtime::ResizeInfo> described(uint32_t mode, uint32_t places,
                                                        Dims sizes) {
    const auto info = std::make_shared<runtime::ResizeInfo>();
    info->mode = mode;
    info->places = places;
    info->sizes = std::move(sizes);
    return info;
  }

  static Floats run(const std::shared_ptr<runtime::ResizeInfo>& info, const Dims& dims,
                    const Floats& values, const Dims& expected) {
    TestContext context;
    const auto kernel = make_kernel(GetParam()->name);
    EXPECT_TRUE(kernel->Config(info, nullptr, context));
    const auto input = context.external_floats(dims, LayoutType::CHW, values);
    EXPECT_EQ(kernel->CheckInputs({input}), 0);
    IKernel::Tensors outputs;
    kernel->Forward({input}, outputs, context);
    context.pool().check();
    EXPECT_EQ(outputs[0]->shape.dims, expected);
    EXPECT_NE(outputs[0]->handle.cpu, input->handle.cpu);
    return values_of(*outputs[0]);
  }
};

TEST_P(Resizing, TakesTheNearestByEveryRule) {
  const Floats four = {0, 1, 2, 3};
  const auto info = described(0, 2, {6});  // places 0, 0.67, 1.33, 2, 2.67, 3.33
  EXPECT_EQ(run(info, {4}, four, {6}), (Floats{0, 1, 1, 2, 3, 3}));
  info->nearest = 2;
  EXPECT_EQ(run(info, {4}, four, {6}), (Floats{0, 0, 1, 2, 2, 3}));
  info->nearest = 3;
  EXPECT_EQ(run(info, {4}, four, {6}), (Floats{0, 1, 2, 2, 3, 3}));
  const auto half = described(0, 2, {8});  // each second place is a tie
  EXPECT_EQ(run(half, {4}, four, {8}), (Floats{0, 0, 1, 1, 2, 2, 3, 3}));
  half->nearest = 1;
  EXPECT_EQ(run(half, {4}, four, {8}), (Floats{0, 1, 1, 2, 2, 3, 3, 3}));
}

TEST_P(Resizing, InterpolatesAtEveryKindOfPlace) {
  const Floats line = {0, 4};
  EXPECT_EQ(run(described(1, 0, {4}), {2}, line, {4}), (Floats{0, 1, 3, 4}));
  EXPECT_EQ(run(described(1, 1, {5}), {2}, line, {5}), (Floats{0, 1, 2, 3, 4}));
  EXPECT_EQ(run(described(1, 2, {4}), {2}, line, {4}), (Floats{0, 2, 4, 4}));
  EXPECT_EQ(run(described(1, 0, {1}), {2}, line, {1}), Floats{2});
  EXPECT_EQ(run(described(1, 3, {1}), {2}, line, {1}), Floats{0});
}

TEST_P(Resizing, ScalesAxesOneAfterTheOther) {
  const auto info = described(1, 0, {});
  info->scales = {1, 2, 2};
  EXPECT_EQ(run(info, {1, 2, 2}, {0, 4, 8, 12}, {1, 4, 4}),
            (Floats{0, 1, 3, 4, 2, 3, 5, 6, 6, 7, 9, 10, 8, 9, 11, 12}));
  info->scales = {1, 1, 1};
  EXPECT_EQ(run(info, {1, 2, 2}, {0, 4, 8, 12}, {1, 2, 2}), (Floats{0, 4, 8, 12}));
}

// The kernel of Keys reproduces lines away from the borders, and its weights add up to 1.
TEST_P(Resizing, InterpolatesByCubics) {
  Floats line(9);
  for (size_t i = 0; i < line.size(); ++i) line[i] = 3.0f * static_cast<float>(i) - 2.0f;
  for (const bool exclude : {false, true}) {
    const auto info = described(2, 0, {18});
    info->cubic_coefficient = -0.5f;
    info->exclude_outside = exclude;
    const Floats found = run(info, {9}, line, {18});
    for (size_t x = 4; x < 14; ++x) {
      const double place = (static_cast<double>(x) + 0.5) / 2 - 0.5;
      EXPECT_NEAR(found[x], 3 * place - 2, 1e-5) << x;
    }
    const Floats level = run(info, {9}, Floats(9, 1.0f), {18});
    for (const float value : level) EXPECT_NEAR(value, 1.0f, 1e-6);
  }
}

TEST_P(Resizing, RefusesWhatItCannotRead) {
  const auto kernel = make_kernel(GetParam()->name);
  EXPECT_EQ(kernel->CheckConfig(described(3, 0, {1}), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(described(0, 4, {1}), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(described(0, 0, {}), nullptr), -1);
  const auto scaled = described(0, 0, {});
  scaled->scales = {0.0f};
  EXPECT_EQ(kernel->CheckConfig(scaled, nullptr), -1);
  TestContext context;
  ASSERT_TRUE(kernel->Config(described(0, 0, {2, 2}), nullptr, context));
  EXPECT_EQ(kernel->CheckInputs({context.floats({2}, LayoutType::C, {1, 2})}), -2);
  EXPECT_EQ(kernel->CheckInputs({context.floats({2, 0}, LayoutType::CHW, {})}), -2);
}

INSTANTIATE_TEST_SUITE_P(Rows, Resizing, testing::ValuesIn(kernel::resize_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test
