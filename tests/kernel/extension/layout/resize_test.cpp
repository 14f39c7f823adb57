#include <gtest/gtest.h>

#include <cmath>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "tests/support/blocked_layout.h"
#include "tests/support/compare.h"
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
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  static std::shared_ptr<runtime::ResizeInfo> described(uint32_t mode, uint32_t places,
                                                        Dims sizes) {
    const auto info = std::make_shared<runtime::ResizeInfo>();
    info->mode = mode;
    info->places = places;
    info->sizes = std::move(sizes);
    return info;
  }

  static Floats run(const std::shared_ptr<runtime::ResizeInfo>& info, const Dims& dims,
                    const Floats& values, const Dims& expected, const char* name = GetParam()->name,
                    LayoutType layout = LayoutType::CHW) {
    TestContext context;
    const auto kernel = make_kernel(name);
    EXPECT_TRUE(kernel->Config(info, nullptr, context));
    const auto input = context.external_floats(dims, layout, values);
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

// Every mode, kind of place and size that fills vectors or doesn't, along each axis and along all.
TEST_P(Resizing, GivesThePortableBits) {
  constexpr const char* kPortable = "Resize_Fallback_Float_M1";
  struct Sizes {
    Dims in, out;
  };
  for (const Sizes& sizes : {Sizes{{3, 7, 5}, {3, 7, 16}}, Sizes{{9, 2, 17}, {9, 5, 31}},
                             Sizes{{2, 9, 40}, {2, 4, 9}}, Sizes{{3, 4, 35}, {5, 4, 35}},
                             Sizes{{1, 1, 1}, {1, 3, 9}}, Sizes{{17, 1, 8}, {17, 1, 8}}}) {
    const Floats values = Random(1).floats(kernel::axes::count_of(sizes.in));
    for (uint32_t mode = 0; mode < 3; ++mode) {
      for (uint32_t places = 0; places < 4; ++places) {
        const auto info = described(mode, places, sizes.out);
        info->nearest = places;
        EXPECT_TRUE(same_bits(run(info, sizes.in, values, sizes.out),
                              run(info, sizes.in, values, sizes.out, kPortable)))
            << "mode " << mode << ", places " << places << ", width " << sizes.in[2];
      }
    }
  }
}

TEST_P(Resizing, TakesBlocksWhoseChannelsStay) {
  const Floats values = Random(1).floats(size_t{16} * 5 * 3);
  for (const LayoutType layout : {LayoutType::C8HW8, LayoutType::C4HW4}) {
    const Dims dims = dims_in_layout({16, 5, 3}, layout);
    const Floats blocks = to_layout(values, 16, layout);
    for (uint32_t mode = 0; mode < 3 && GetParam()->takes_blocks; ++mode) {
      const auto info = described(mode, 0, {16, 7, 8});
      const Floats planes = run(info, {16, 5, 3}, values, {16, 7, 8});
      EXPECT_TRUE(same_bits(
          run(info, dims, blocks, dims_in_layout({16, 7, 8}, layout), GetParam()->name, layout),
          to_layout(planes, 16, layout)));
    }
    TestContext context;
    const auto kernel = make_kernel(GetParam()->name);
    const auto input = context.floats(dims, layout, blocks);
    if (!GetParam()->takes_blocks) {
      ASSERT_TRUE(kernel->Config(described(0, 0, {16, 7, 8}), nullptr, context));
      EXPECT_EQ(kernel->CheckInputs({input}), -2);
      continue;
    }
    ASSERT_TRUE(kernel->Config(described(0, 0, {32, 5, 3}), nullptr, context));
    EXPECT_EQ(kernel->CheckInputs({input}), -2);
    ASSERT_TRUE(kernel->Config(described(0, 0, dims), nullptr, context));
    EXPECT_EQ(kernel->CheckInputs({input}), -2);
  }
}

// What is read along an axis belongs to its sizes.
TEST_P(Resizing, FollowsSizesThatChange) {
  const auto info = described(1, 0, {});
  info->scales = {1, 2};
  TestContext context;
  const auto kernel = make_kernel(GetParam()->name);
  ASSERT_TRUE(kernel->Config(info, nullptr, context));
  for (const uint32_t width : {3u, 3u, 11u, 2u}) {
    const Floats values = Random(width).floats(2 * width);
    IKernel::Tensors outputs;
    kernel->Forward({context.floats({2, width}, LayoutType::FLEXIABLE, values)}, outputs, context);
    EXPECT_EQ(values_of(*outputs[0]), run(info, {2, width}, values, {2, 2 * width}));
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

class ResizingLike : public testing::TestWithParam<const kernel::ResizeLikeRow*> {
 protected:
  static std::shared_ptr<runtime::ResizeLikeInfo> described(std::vector<int32_t> axes,
                                                            std::vector<int32_t> like_axes) {
    const auto info = std::make_shared<runtime::ResizeLikeInfo>();
    info->axes = std::move(axes);
    info->like_axes = std::move(like_axes);
    return info;
  }
};

// One kernel on inputs of several sizes, as a network with free sizes has it.
TEST_P(ResizingLike, TakesTheSizesOfItsSecondInput) {
  QRT_SKIP_WHERE_MISSING(GetParam()->name);
  TestContext context;
  const auto info = described({-2, -1}, {1, 0});
  info->mode = 1;
  const auto like = make_kernel(GetParam()->name);
  ASSERT_TRUE(like->Config(info, nullptr, context));
  Floats numbers(48);
  Random random(3);
  for (float& number : numbers) number = static_cast<float>(random.integer(-99, 99)) / 8;
  for (const Dims& sizes : {Dims{3, 5}, Dims{9, 2}, Dims{4, 6}, Dims{3, 5}}) {
    const auto plain_info = std::make_shared<runtime::ResizeInfo>();
    plain_info->mode = 1;
    plain_info->sizes = {2, sizes[1], sizes[0]};
    const auto plain = make_kernel("Resize_Fallback_Float_M1");
    ASSERT_TRUE(plain->Config(plain_info, nullptr, context));
    const auto x = context.external_floats({2, 4, 6}, LayoutType::CHW, numbers);
    const auto other = context.external_floats(sizes, LayoutType::FLEXIABLE,
                                               Floats(size_t{sizes[0]} * sizes[1], 7.0f));
    ASSERT_EQ(like->CheckInputs({x, other}), 0);
    IKernel::Tensors found;
    IKernel::Tensors expected;
    like->Forward({x, other}, found, context);
    plain->Forward({x}, expected, context);
    context.pool().check();
    EXPECT_EQ(found[0]->shape, expected[0]->shape);
    EXPECT_EQ(found[0]->shape, like->InferOutputShapes({x->shape, other->shape})[0]);
    EXPECT_EQ(values_of(*found[0]), values_of(*expected[0]));
  }
}

TEST_P(ResizingLike, CutsToTheElementsThatBothHave) {
  QRT_SKIP_WHERE_MISSING(GetParam()->name);
  TestContext context;
  const auto info = described({1}, {0});
  info->places = 2;
  info->only_cuts = true;
  const auto kernel = make_kernel(GetParam()->name);
  ASSERT_TRUE(kernel->Config(info, nullptr, context));
  const auto x = context.floats({2, 3}, LayoutType::FLEXIABLE, {1, 2, 3, 4, 5, 6});
  for (const uint32_t size : {2u, 7u}) {
    IKernel::Tensors outputs;
    kernel->Forward({x, context.floats({size}, LayoutType::C, Floats(size))}, outputs, context);
    EXPECT_EQ(values_of(*outputs[0]), size == 2 ? (Floats{1, 2, 4, 5}) : values_of(*x));
  }
}

TEST_P(ResizingLike, CountsBlocksAsPlanes) {
  QRT_SKIP_WHERE_MISSING(GetParam()->name);
  TestContext context;
  const auto info = described({1, 2}, {-2, -1});
  const auto kernel = make_kernel(GetParam()->name);
  ASSERT_TRUE(kernel->Config(info, nullptr, context));
  Floats planes(8 * 2 * 3);
  for (size_t i = 0; i < planes.size(); ++i) planes[i] = static_cast<float>(i);
  const auto x = context.floats({8, 2, 3}, LayoutType::CHW, planes);
  const auto other = context.floats({1, 5, 4, 8}, LayoutType::C8HW8, Floats(160));
  IKernel::Tensors outputs;
  ASSERT_EQ(kernel->CheckInputs({x, other}), 0) << "the second one is only asked for its dims";
  kernel->Forward({x, other}, outputs, context);
  EXPECT_EQ(outputs[0]->shape.dims, (Dims{8, 5, 4}));
  const auto blocks =
      context.floats({1, 2, 3, 8}, LayoutType::C8HW8, to_layout(planes, 8, LayoutType::C8HW8));
  ASSERT_EQ(kernel->CheckInputs({blocks, other}), GetParam()->resize.takes_blocks ? 0 : -2);
  if (!GetParam()->resize.takes_blocks) return;
  IKernel::Tensors in_blocks;
  kernel->Forward({blocks, other}, in_blocks, context);
  EXPECT_EQ(in_blocks[0]->shape, kernel->InferOutputShapes({blocks->shape, other->shape})[0]);
  EXPECT_EQ(values_of(*in_blocks[0]), to_layout(values_of(*outputs[0]), 8, LayoutType::C8HW8));
}

TEST_P(ResizingLike, RefusesAxesThatAreNotThere) {
  QRT_SKIP_WHERE_MISSING(GetParam()->name);
  TestContext context;
  const auto kernel = make_kernel(GetParam()->name);
  EXPECT_EQ(kernel->CheckConfig(described({}, {}), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(described({0, 1}, {0}), nullptr), -1);
  const auto corners = described({0}, {0});
  corners->places = 1;
  corners->only_cuts = true;
  EXPECT_EQ(kernel->CheckConfig(corners, nullptr), -1);
  ASSERT_TRUE(kernel->Config(described({2}, {-3}), nullptr, context));
  const auto plane = context.floats({1, 2}, LayoutType::FLEXIABLE, {1, 2});
  const auto planes = context.floats({1, 1, 2}, LayoutType::CHW, {1, 2});
  EXPECT_EQ(kernel->CheckInputs({plane, planes}), -2);
  EXPECT_EQ(kernel->CheckInputs({planes, plane}), -2);
  EXPECT_EQ(kernel->CheckInputs({planes, planes}), 0);
  EXPECT_EQ(kernel->CheckInputs({planes}), -2);
}

INSTANTIATE_TEST_SUITE_P(Rows, ResizingLike, testing::ValuesIn(kernel::resize_like_rows),
                         [](const auto& test) { return std::string(test.param->name); });

INSTANTIATE_TEST_SUITE_P(Rows, Resizing, testing::ValuesIn(kernel::resize_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test
