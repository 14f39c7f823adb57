#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "tests/support/blocked_layout.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// Functions of two tensors that broadcast, and reductions, against their definitions.

namespace marlo::test {
namespace {

using runtime::IKernel;
using runtime::LayoutType;
using Dims = std::vector<uint32_t>;
using Floats = std::vector<float>;

float exact(uint32_t function, float a, float b) {
  switch (function) {
    case 0:
      return a + b;
    case 1:
      return a - b;
    case 2:
      return a * b;
    case 3:
      return a / b;
    case 4:
      return static_cast<float>(std::pow(static_cast<double>(a), static_cast<double>(b)));
    case 5:
      return std::isnan(a) || std::isnan(b) ? kNaN : std::fmin(a, b);
    case 6:
      return std::isnan(a) || std::isnan(b) ? kNaN : std::fmax(a, b);
    case 7:
      return std::fmod(a, b);
    case 8:
      return a < 0 ? a * b : a;
    case 9:
      return a == b;
    case 10:
      return a < b;
    case 11:
      return a <= b;
    case 12:
      return a > b;
    case 13:
      return a >= b;
    case 14:
      return a != 0 && b != 0;
    case 15:
      return a != 0 || b != 0;
    case 16:
      return (a != 0) != (b != 0);
    default:
      return a != 0 ? b : 0;
  }
}

class BinaryFunctions : public testing::TestWithParam<const kernel::BinaryRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  static bool has(uint32_t function) {
    return !GetParam()->is_vector || kernel::elementary::has_vector_form(function);
  }

  static std::shared_ptr<runtime::BinaryFunctionInfo> described(uint32_t function) {
    const auto info = std::make_shared<runtime::BinaryFunctionInfo>();
    info->function = function;
    return info;
  }

  Floats run(const std::shared_ptr<runtime::LayerInfo>& info, const IKernel::Tensors& inputs,
             const Dims& expected) {
    const auto kernel = make_kernel(GetParam()->name);
    EXPECT_TRUE(kernel->Config(info, nullptr, context_));
    EXPECT_EQ(kernel->CheckInputs(inputs), 0);
    IKernel::Tensors outputs;
    kernel->Forward(inputs, outputs, context_);
    context_.pool().check();
    EXPECT_EQ(outputs[0]->shape.dims, expected);
    return values_of(*outputs[0]);
  }

  std::shared_ptr<runtime::Tensor> tensor(const Dims& dims, const Floats& values) {
    return context_.external_floats(dims, LayoutType::FLEXIABLE, values);
  }

  TestContext context_;
};

TEST_P(BinaryFunctions, ComputeEveryFunctionOfEverySize) {
  for (uint32_t function = 0; function <= 17; ++function) {
    if (!has(function)) continue;
    for (const uint32_t count : {0u, 1u, 7u, 8u, 17u, 37u}) {
      Floats a = Random(count + 1).floats(count, 3.0f);
      Floats b = Random(count + 2).floats(count, 3.0f);
      for (size_t i = 0; i < count; i += 3) b[i] = a[i];
      if (count > 8) a[2] = b[5] = kNaN, a[3] = a[5] = 0.0f, b[4] = kInfinity;
      Floats expected;
      for (size_t i = 0; i < count; ++i) expected.push_back(exact(function, a[i], b[i]));
      EXPECT_TRUE(same_bits(
          run(described(function), {tensor({count}, a), tensor({count}, b)}, {count}), expected))
          << "function " << function << " of " << count;
    }
  }
}

// Every pattern of dims that are there, 1, or missing.
TEST_P(BinaryFunctions, BroadcastEveryPattern) {
  for (uint32_t pattern = 0; pattern < 3 * 64; ++pattern) {
    const Dims full = {2, 3, pattern < 64 ? 5u : pattern < 128 ? 8u : 16u};  // a vector, and not
    Dims a = full;
    Dims b = full;
    for (uint32_t k = 0; k < 3; ++k) {
      if ((pattern >> k & 1) != 0) a[k] = 1;
      if ((pattern >> (k + 3) & 1) != 0) b[k] = 1;
    }
    Dims expected(3);
    for (size_t k = 0; k < 3; ++k) expected[k] = std::max(a[k], b[k]);
    const size_t count_a = size_t{a[0]} * a[1] * a[2];
    const size_t count_b = size_t{b[0]} * b[1] * b[2];
    const Floats of_a = Random(1).floats(count_a);
    const Floats of_b = Random(2).floats(count_b);
    Floats values;
    for (uint32_t i = 0; i < expected[0]; ++i) {
      for (uint32_t j = 0; j < expected[1]; ++j) {
        for (uint32_t k = 0; k < expected[2]; ++k) {
          const auto at = [&](const Dims& dims) {
            return ((i % dims[0]) * dims[1] + j % dims[1]) * dims[2] + k % dims[2];
          };
          values.push_back(of_a[at(a)] - of_b[at(b)]);
        }
      }
    }
    Dims shorter = b;
    while (shorter.size() > 1 && shorter[0] == 1) shorter.erase(shorter.begin());
    EXPECT_TRUE(
        same_bits(run(described(1), {tensor(a, of_a), tensor(shorter, of_b)}, expected), values))
        << "pattern " << pattern;
  }
}

TEST_P(BinaryFunctions, TakeAConstantOnEitherSide) {
  const auto info = described(1);
  info->has_constant = true;
  info->constant_dims = {2, 1};
  info->constant = {10, 20};
  EXPECT_EQ(run(info, {tensor({2, 2}, {1, 2, 3, 4})}, {2, 2}), (Floats{-9, -8, -17, -16}));
  info->constant_is_first = true;
  EXPECT_EQ(run(info, {tensor({2, 2}, {1, 2, 3, 4})}, {2, 2}), (Floats{9, 8, 17, 16}));
  info->constant.pop_back();
  EXPECT_EQ(make_kernel(GetParam()->name)->CheckConfig(info, nullptr), -1);
}

TEST_P(BinaryFunctions, TakeDocumentedDescriptionsAndBlocksOfOneShape) {
  const auto same = std::make_shared<runtime::ElementWiseOperatorInfo>();
  same->op_type = 2;
  const auto blocked = context_.floats({1, 1, 2, 8}, LayoutType::C8HW8, Floats(16, 3.0f));
  EXPECT_EQ(run(same, {blocked, blocked}, {1, 1, 2, 8}), Floats(16, 9.0f));
  const auto spread = std::make_shared<runtime::BroadcastOperatorInfo>();
  EXPECT_EQ(run(spread, {tensor({2}, {1, 2}), tensor({1}, {5})}, {2}), (Floats{6, 7}));
  const auto kernel = make_kernel(GetParam()->name);
  ASSERT_TRUE(kernel->Config(spread, nullptr, context_));
  EXPECT_EQ(kernel->CheckInputs({blocked, tensor({1}, {5})}), 0);
  EXPECT_EQ(kernel->CheckInputs({tensor({2}, {1, 2}), tensor({3}, {1, 2, 3})}), -2);
  EXPECT_EQ(kernel->CheckInputs({blocked}), -2);
}

// What spreads over channels, rows and columns of planes does so in blocks.
TEST_P(BinaryFunctions, SpreadOverBlocks) {
  struct Pair {
    Dims a, b;
  };
  for (const Pair& pair :
       {Pair{{16, 3, 5}, {16, 1, 1}}, Pair{{16, 1, 1}, {16, 3, 5}}, Pair{{16, 3, 5}, {1, 3, 5}},
        Pair{{16, 3, 5}, {3, 1}}, Pair{{16, 1, 1}, {3, 5}}, Pair{{5}, {16, 3, 5}},
        Pair{{16, 3, 1}, {16, 1, 5}}, Pair{{16, 3, 5}, {1, 1, 1, 1}}}) {
    for (const LayoutType layout : {LayoutType::C8HW8, LayoutType::C4HW4}) {
      const auto numbers = [](const Dims& dims, uint32_t seed) {
        return Random(seed).floats(kernel::axes::count_of(dims));
      };
      const auto blocked = [&](const Dims& dims, const Floats& values) {
        if (dims[0] != 16 || dims.size() != 3) return tensor(dims, values);
        return std::static_pointer_cast<runtime::Tensor>(context_.external_floats(
            dims_in_layout(dims, layout), layout, to_layout(values, 16, layout)));
      };
      Dims sizes;
      ASSERT_TRUE(kernel::axes::broadcast(pair.a, pair.b, sizes));
      if (sizes.size() > 3) sizes.erase(sizes.begin());
      Dims outer = sizes;
      if (pair.b.size() > 3) outer.insert(outer.begin(), 1);
      const Floats a = numbers(pair.a, 1);
      const Floats b = numbers(pair.b, 2);
      const Floats planes = run(described(1), {tensor(pair.a, a), tensor(pair.b, b)}, outer);
      EXPECT_TRUE(same_bits(run(described(1), {blocked(pair.a, a), blocked(pair.b, b)},
                                dims_in_layout(sizes, layout)),
                            to_layout(planes, 16, layout)));
    }
  }
}

TEST_P(BinaryFunctions, SpreadConstantsOverBlocks) {
  const auto info = described(1);
  info->has_constant = true;
  info->constant_is_first = true;
  info->constant_dims = {16, 1, 1};
  info->constant = Random(1).floats(16);
  const Floats values = Random(2).floats(16 * 6);
  const Floats planes = run(info, {tensor({16, 2, 3}, values)}, {16, 2, 3});
  const LayoutType layout = LayoutType::C8HW8;
  const auto blocked =
      context_.external_floats({2, 2, 3, 8}, layout, to_layout(values, 16, layout));
  EXPECT_TRUE(same_bits(run(info, {blocked}, {2, 2, 3, 8}), to_layout(planes, 16, layout)));
}

TEST_P(BinaryFunctions, RefuseBlocksThatDoNotSpread) {
  const auto kernel = make_kernel(GetParam()->name);
  ASSERT_TRUE(kernel->Config(described(0), nullptr, context_));
  const auto blocks = [&](const Dims& dims, LayoutType layout = LayoutType::C8HW8) {
    return context_.floats(dims, layout, Floats(kernel::axes::count_of(dims)));
  };
  const auto two = blocks({2, 2, 3, 8});
  EXPECT_EQ(kernel->CheckInputs({two, blocks({1, 1, 1, 8})}), -2);
  EXPECT_EQ(kernel->CheckInputs({two, blocks({2, 3, 3, 8})}), -2);
  EXPECT_EQ(kernel->CheckInputs({two, blocks({4, 2, 3, 4}, LayoutType::C4HW4)}), -2);
  for (const Dims& dims : {Dims{16, 2, 3}, Dims{8, 1, 1}, Dims{2, 2, 3}, Dims{2, 1, 1, 1}}) {
    EXPECT_EQ(kernel->CheckInputs({two, blocks(dims, LayoutType::CHW)}), -2);
    EXPECT_EQ(kernel->CheckInputs({blocks(dims, LayoutType::CHW), two}), -2);
  }
}

TEST_P(BinaryFunctions, RefuseFunctionsThatTheyLack) {
  const auto kernel = make_kernel(GetParam()->name);
  EXPECT_EQ(kernel->CheckConfig(described(18), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(described(4), nullptr), GetParam()->is_vector ? -1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Rows, BinaryFunctions, testing::ValuesIn(kernel::binary_rows),
                         [](const auto& test) { return std::string(test.param->name); });

class Reductions : public testing::TestWithParam<const kernel::AxisReductionRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  static bool has(uint32_t function) {
    return !GetParam()->is_vector || kernel::elementary::has_vector_reduction(function);
  }

  Floats run(uint32_t function, std::vector<int32_t> axes, bool keep, const Dims& dims,
             const Floats& values, const Dims& expected) {
    const auto info = std::make_shared<runtime::AxisReductionInfo>();
    info->function = function;
    info->axes = std::move(axes);
    info->keep_dims = keep;
    TestContext context;
    const auto kernel = make_kernel(GetParam()->name);
    EXPECT_TRUE(kernel->Config(info, nullptr, context));
    const auto input = context.external_floats(dims, LayoutType::FLEXIABLE, values);
    EXPECT_EQ(kernel->CheckInputs({input}), 0);
    IKernel::Tensors outputs;
    kernel->Forward({input}, outputs, context);
    context.pool().check();
    EXPECT_EQ(outputs[0]->shape.dims, expected);
    return values_of(*outputs[0]);
  }
};

TEST_P(Reductions, ComputeEveryFunction) {
  const Floats four = {-3, 1, 2, 4};
  const Floats expected = {4, 1, 4, -3, -24, 10, std::sqrt(30.0f), 30, std::log(4.0f), 0};
  for (uint32_t function = 0; function < 9; ++function) {
    EXPECT_FLOAT_EQ(run(function, {}, false, {2, 2}, four, {})[0], expected[function]) << function;
  }
  if (!has(9)) return;
  const double sum = std::exp(-3.0) + std::exp(1.0) + std::exp(2.0) + std::exp(4.0);
  EXPECT_FLOAT_EQ(run(9, {0, 1}, true, {2, 2}, four, {1, 1})[0], static_cast<float>(std::log(sum)));
  EXPECT_FLOAT_EQ(run(9, {}, false, {2}, {1000, 1000}, {})[0], 1000 + std::log(2.0f));
}

TEST_P(Reductions, ReduceAnyAxesInAnyPlace) {
  Floats values(24);
  for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i);
  EXPECT_EQ(run(0, {1}, true, {2, 3, 4}, values, {2, 1, 4}),
            (Floats{12, 15, 18, 21, 48, 51, 54, 57}));
  EXPECT_EQ(run(2, {0, -1}, false, {2, 3, 4}, values, {3}), (Floats{15, 19, 23}));
  EXPECT_EQ(run(3, {0, 0}, false, {2, 3, 4}, values, {3, 4})[11], 11.0f);
}

// One result after the other, element by element; the axes are those whose bit is set.
Floats reduced_one_by_one(uint32_t function, uint32_t axes, const Dims& dims,
                          const Floats& values) {
  std::map<size_t, std::vector<double>> parts;
  for (size_t i = 0; i < values.size(); ++i) {
    size_t rest = i;
    size_t place = 0;
    size_t step = 1;
    for (size_t axis = dims.size(); axis-- > 0; rest /= dims[axis]) {
      if ((axes >> axis) % 2 != 0) continue;
      place += rest % dims[axis] * step;
      step *= dims[axis];
    }
    parts[place].push_back(static_cast<double>(values[i]));
  }
  Floats results;
  for (const auto& [place, part] : parts) {
    double sum = 0, product = 1, magnitudes = 0, squares = 0, exponentials = 0;
    for (const double x : part) {
      sum += x, product *= x, magnitudes += std::fabs(x), squares += x * x,
          exponentials += std::exp(x);
    }
    const auto [least, largest] = std::minmax_element(part.begin(), part.end());
    const double all[] = {sum,
                          sum / static_cast<double>(part.size()),
                          *largest,
                          *least,
                          product,
                          magnitudes,
                          std::sqrt(squares),
                          squares,
                          std::log(sum),
                          std::log(exponentials)};
    results.push_back(static_cast<float>(all[function]));
  }
  return results;
}

TEST_P(Reductions, AreTheDefinitionOverEveryChoiceOfAxes) {
  for (const Dims& dims : {Dims{2, 3, 5, 7}, Dims{3, 1, 4}, Dims{2, 600}, Dims{601, 2}, Dims{5},
                           Dims{3, 9, 1}, Dims{6, 67}}) {
    const Floats values =
        Random(static_cast<uint32_t>(dims.size())).floats(kernel::axes::count_of(dims), 1.0f);
    for (uint32_t axes = 1; axes < 1u << dims.size(); ++axes) {
      std::vector<int32_t> list;
      Dims kept;
      for (size_t axis = 0; axis < dims.size(); ++axis) {
        if ((axes >> axis) % 2 != 0) list.push_back(static_cast<int32_t>(axis));
        if ((axes >> axis) % 2 == 0) kept.push_back(dims[axis]);
      }
      for (uint32_t function = 0; function < 10; ++function) {
        if (!has(function)) continue;
        const Floats found = run(function, list, false, dims, values, kept);
        const Floats expected = reduced_one_by_one(function, axes, dims, values);
        ASSERT_EQ(found.size(), expected.size());
        for (size_t i = 0; i < found.size(); ++i) {
          if (std::isnan(expected[i]) && std::isnan(found[i])) continue;
          ASSERT_FLOAT_EQ(found[i], expected[i]) << "function " << function << ", axes " << axes;
        }
      }
    }
  }
}

TEST_P(Reductions, KeepTheSignOfZero) {
  EXPECT_TRUE(std::signbit(run(2, {0}, false, {2}, {-0.0f, -0.0f}, {})[0]));
  EXPECT_TRUE(std::signbit(run(3, {0}, false, {2, 3}, Floats(6, -0.0f), {3})[1]));
}

TEST_P(Reductions, PassANaNOnAndGiveZeroForNothing) {
  for (const uint32_t function : {0u, 2u, 3u, 4u, 5u, 7u}) {
    for (size_t place = 0; place < 37; ++place) {
      Floats values(37, 1.0f);
      values[place] = kNaN;
      EXPECT_TRUE(std::isnan(run(function, {0}, false, {37}, values, {})[0])) << place;
      Floats columns(5 * 37, 1.0f);
      columns[place % 5 * 37 + place] = kNaN;
      const Floats found = run(function, {0}, false, {5, 37}, columns, {37});
      for (size_t i = 0; i < 37; ++i) EXPECT_EQ(std::isnan(found[i]), i == place) << place;
    }
  }
  EXPECT_EQ(run(0, {1}, false, {2, 0}, {}, {2}), (Floats{0, 0}));
}

TEST_P(Reductions, RefuseAnAxisThatIsNotThere) {
  const auto info = std::make_shared<runtime::AxisReductionInfo>();
  info->axes = {2};
  TestContext context;
  const auto kernel = make_kernel(GetParam()->name);
  ASSERT_TRUE(kernel->Config(info, nullptr, context));
  EXPECT_EQ(kernel->CheckInputs({context.floats({2}, LayoutType::C, {1, 2})}), -2);
  info->function = 10;
  EXPECT_EQ(kernel->CheckConfig(info, nullptr), -1);
  info->function = 9;
  EXPECT_EQ(kernel->CheckConfig(info, nullptr), GetParam()->is_vector ? -1 : 0);
}

INSTANTIATE_TEST_SUITE_P(Rows, Reductions, testing::ValuesIn(kernel::axis_reduction_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test
