#include <gtest/gtest.h>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/model/conv_info.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// Products of tensors and full connections against sums in double precision, on hostile memory.

namespace marlo::test {
namespace {

using runtime::IKernel;
using runtime::LayoutType;
using Dims = std::vector<uint32_t>;
using Floats = std::vector<float>;

size_t count_of(const Dims& dims) {
  size_t count = 1;
  for (const uint32_t size : dims) count *= size;
  return count;
}

struct Product {
  uint32_t rows, columns, depth;
  bool transpose_a = false;
  bool transpose_b = false;
  float alpha = 1.0f;
};

// The matrices that stand at these places of a and b.
std::vector<Sum> exact(const Product& sizes, const float* a, const float* b) {
  std::vector<Sum> sums(size_t{sizes.rows} * sizes.columns);
  for (uint32_t i = 0; i < sizes.rows; ++i) {
    for (uint32_t j = 0; j < sizes.columns; ++j) {
      Sum& sum = sums[size_t{i} * sizes.columns + j];
      for (uint32_t k = 0; k < sizes.depth; ++k) {
        const double of_a = sizes.transpose_a ? a[k * sizes.rows + i] : a[i * sizes.depth + k];
        const double of_b = sizes.transpose_b ? b[j * sizes.depth + k] : b[k * sizes.columns + j];
        sum.add(static_cast<double>(sizes.alpha) * of_a * of_b);
      }
    }
  }
  return sums;
}

class MatMulKernel : public testing::TestWithParam<const kernel::MatMulRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  void configure(const Product& sizes) {
    const auto info = std::make_shared<runtime::MatMulInfo>();
    info->transpose_a = sizes.transpose_a;
    info->transpose_b = sizes.transpose_b;
    info->alpha = sizes.alpha;
    ASSERT_TRUE(kernel_->Config(info, nullptr, context_));
  }

  Floats run(const Dims& dims_a, const Floats& a, const Dims& dims_b, const Floats& b,
             const Dims& expected) {
    const IKernel::Tensors inputs = {context_.external_floats(dims_a, LayoutType::FLEXIABLE, a),
                                     context_.external_floats(dims_b, LayoutType::FLEXIABLE, b)};
    EXPECT_EQ(kernel_->CheckInputs(inputs), 0);
    IKernel::Tensors outputs;
    kernel_->Forward(inputs, outputs, context_);
    context_.pool().check();
    EXPECT_EQ(outputs.size(), 1u);
    EXPECT_EQ(kernel_->CheckOutputs(outputs), 0);
    EXPECT_EQ(outputs[0]->shape.dims, expected);
    return values_of(*outputs[0]);
  }

  void test(const Product& sizes) {
    configure(sizes);
    Random random(sizes.rows + 31 * sizes.columns + 977 * sizes.depth);
    const Dims dims_a =
        sizes.transpose_a ? Dims{sizes.depth, sizes.rows} : Dims{sizes.rows, sizes.depth};
    const Dims dims_b =
        sizes.transpose_b ? Dims{sizes.columns, sizes.depth} : Dims{sizes.depth, sizes.columns};
    const Floats a = random.uneven_floats(count_of(dims_a), 4);
    const Floats b = random.uneven_floats(count_of(dims_b), 4);
    EXPECT_TRUE(within_bounds(run(dims_a, a, dims_b, b, {sizes.rows, sizes.columns}),
                              exact(sizes, a.data(), b.data())))
        << sizes.rows << " x " << sizes.columns << " of " << sizes.depth;
  }

  TestContext context_;
  const std::shared_ptr<IKernel> kernel_ = make_kernel(GetParam()->name);
};

// Around rows of a tile, columns of a vector and of a panel, and a part of the depth.
TEST_P(MatMulKernel, ComputesEveryEdgeSize) {
  for (const uint32_t rows : {1u, 2u, 4u, 5u, 6u, 7u, 12u, 13u, 241u}) {
    for (const uint32_t columns : {1u, 4u, 7u, 8u, 9u, 16u, 17u, 31u, 33u, 48u, 64u, 65u, 130u}) {
      test({rows, columns, rows == 241u ? 3u : 19u});
    }
  }
  for (const uint32_t depth : {1u, 2u, 191u, 192u, 193u, 400u}) {
    test({5, 9, depth});
    test({1, 33, depth});
  }
  // Rows that lie a multiple of 4 KiB apart are packed before they are read, in tiles of even height.
  for (const uint32_t rows : {8u, 25u}) test({rows, 40, 1024});
}

TEST_P(MatMulKernel, TransposesAndScales) {
  for (const bool a : {false, true}) {
    for (const bool b : {false, true}) {
      for (const uint32_t rows : {1u, 13u, 250u}) test({rows, 21, 35, a, b, -0.375f});
      // Matrices are turned in squares of four by four, of which the last may overlap others.
      for (const uint32_t lines : {2u, 3u, 4u, 5u, 6u, 7u, 8u, 11u, 27u}) {
        for (const uint32_t depth : {1u, 3u, 4u, 5u, 8u, 11u}) {
          test({lines, 5, depth, a, b, 2.0f});
          test({5, lines, depth, a, b, 1.0f});
        }
      }
    }
  }
}

TEST_P(MatMulKernel, GivesZerosForNoDepth) {
  configure({2, 3, 0});
  EXPECT_EQ(run({2, 0}, {}, {0, 3}, {}, {2, 3}), Floats(6, 0.0f));
}

TEST_P(MatMulKernel, BroadcastsMatricesBeforeTheLastTwoDims) {
  const Product sizes{3, 5, 4};
  configure(sizes);
  Random random(5);
  const Floats a = random.small_integers(2 * 12);
  const Floats b = random.small_integers(3 * 20);
  const Floats found = run({2, 1, 3, 4}, a, {3, 4, 5}, b, {2, 3, 3, 5});
  for (size_t i = 0; i < 2; ++i) {
    for (size_t j = 0; j < 3; ++j) {
      const auto part = found.begin() + static_cast<std::ptrdiff_t>((i * 3 + j) * 15);
      EXPECT_TRUE(exactly({part, part + 15}, exact(sizes, a.data() + i * 12, b.data() + j * 20)));
    }
  }
}

TEST_P(MatMulKernel, TakesVectorsForRowsAndColumns) {
  configure({1, 1, 3});
  EXPECT_EQ(run({3}, {1, 2, 3}, {3}, {4, 5, 6}, {}), Floats{32.0f});
  EXPECT_EQ(run({3}, {1, 2, 3}, {3, 2}, {1, 0, 0, 1, 1, 1}, {2}), (Floats{4.0f, 5.0f}));
  EXPECT_EQ(run({2, 3}, {1, 2, 3, 4, 5, 6}, {3}, {1, 1, 1}, {2}), (Floats{6.0f, 15.0f}));
}

TEST_P(MatMulKernel, RefusesWhatHasNoProduct) {
  configure({1, 1, 1});
  const auto two = context_.floats({2, 3}, LayoutType::FLEXIABLE, Floats(6, 0.0f));
  EXPECT_EQ(kernel_->CheckInputs({two, two}), -2);
  EXPECT_EQ(kernel_->CheckInputs({two}), -2);
  const auto blocked = context_.floats({1, 3, 1, 8}, LayoutType::C8HW8, Floats(24, 0.0f));
  EXPECT_EQ(kernel_->CheckInputs({blocked, blocked}), -2);
  EXPECT_NE(failure_of([&] {
              IKernel::Tensors outputs;
              kernel_->Forward({two, two}, outputs, context_);
            }).find("have no product"),
            std::string::npos);
}

INSTANTIATE_TEST_SUITE_P(Rows, MatMulKernel, testing::ValuesIn(kernel::matmul_rows),
                         [](const auto& test) { return std::string(test.param->name); });

class DenseKernel : public testing::TestWithParam<const kernel::DenseRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  template <typename Info>
  static std::shared_ptr<runtime::LayerInfo> described(const Product& sizes, const Floats& weights,
                                                       const Floats& bias) {
    const auto info = std::make_shared<Info>();
    info->in_features = static_cast<decltype(info->in_features)>(sizes.depth);
    info->out_features = static_cast<decltype(info->out_features)>(sizes.columns);
    info->weight = weight_text(weights);
    info->if_bias = !bias.empty();
    info->bias = weight_text(bias);
    return info;
  }

  static std::shared_ptr<runtime::LayerInfo> description(const Product& sizes,
                                                         const Floats& weights,
                                                         const Floats& bias) {
    return GetParam()->is_full_connection
               ? described<runtime::FullConnectionInfo>(sizes, weights, bias)
               : described<runtime::DenseInfo>(sizes, weights, bias);
  }

  void test(const Product& sizes, bool has_bias) {
    Random random(sizes.rows + 31 * sizes.columns + 977 * sizes.depth);
    const Floats weights = random.uneven_floats(size_t{sizes.columns} * sizes.depth, 4);
    const Floats bias = random.floats(has_bias ? sizes.columns : 0);
    const Floats input = random.uneven_floats(size_t{sizes.rows} * sizes.depth, 4);
    TestContext context;
    const auto kernel = make_kernel(GetParam()->name);
    ASSERT_TRUE(kernel->Config(description(sizes, weights, bias), nullptr, context));
    const Dims dims =
        GetParam()->is_full_connection ? Dims{sizes.depth} : Dims{sizes.rows, sizes.depth};
    const auto tensor = context.external_floats(dims, LayoutType::C, input);
    ASSERT_EQ(kernel->CheckInputs({tensor}), 0);
    IKernel::Tensors outputs;
    kernel->Forward({tensor}, outputs, context);
    context.pool().check();
    Product product = sizes;
    product.transpose_b = true;
    std::vector<Sum> expected = exact(product, input.data(), weights.data());
    for (size_t i = 0; i < expected.size() && has_bias; ++i) expected[i].add(bias[i % bias.size()]);
    EXPECT_TRUE(within_bounds(values_of(*outputs[0]), expected));
    EXPECT_TRUE(outputs[0]->shape == kernel->InferOutputShapes({tensor->shape})[0]);
    EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
  }
};

TEST_P(DenseKernel, ComputesEveryEdgeSize) {
  for (const uint32_t columns : {1u, 7u, 8u, 9u, 16u, 31u, 33u, 64u, 129u, 200u}) {
    for (const uint32_t depth : {1u, 3u, 192u, 193u}) {
      test({1, columns, depth}, columns % 2 == 0);
      if (!GetParam()->is_full_connection) test({7, columns, depth}, columns % 2 == 1);
    }
  }
}

TEST_P(DenseKernel, RefusesTooFewWeightsAndSaysSo) {
  const auto kernel = make_kernel(GetParam()->name);
  TestContext context;
  const auto info = description({1, 2, 3}, Floats(5, 0.0f), {});
  EXPECT_FALSE(kernel->Config(info, nullptr, context));
  const auto misfits =
      dynamic_cast<const runtime::IKernelFacts&>(*kernel).refusals(info.get(), nullptr);
  ASSERT_EQ(misfits.size(), 1u);
  EXPECT_EQ(misfits[0].member, "weight");
}

INSTANTIATE_TEST_SUITE_P(Rows, DenseKernel, testing::ValuesIn(kernel::dense_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test
