#include "qrt_core/kernel/layout/slice.h"

#include <gtest/gtest.h>

#include <numeric>

#include "qrt_core/runtime/model/layers.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::LayoutType;
using Tensors = runtime::IKernel::Tensors;
using Triples = std::vector<int16_t>;

constexpr char kName[] = "Slice_Fallback_CHW_Float_M1";

std::shared_ptr<runtime::TensorSliceInfo> description(const Triples& triples) {
  auto info = std::make_shared<runtime::TensorSliceInfo>();
  info->slice_dims = triples;
  return info;
}

int check(const Triples& triples) {
  return make_kernel(kName)->CheckConfig(description(triples), nullptr);
}

class Slice : public testing::Test {
 protected:
  std::shared_ptr<runtime::Tensor> run(const Triples& triples, const std::vector<uint32_t>& dims) {
    const auto kernel = make_kernel(kName);
    EXPECT_TRUE(kernel->Config(description(triples), nullptr, context_));
    Tensors outputs;
    EXPECT_EQ(kernel->Forward({input(dims)}, outputs, context_), 0);
    return outputs.at(0);
  }

  std::string failure(const Triples& triples, const std::vector<uint32_t>& dims) {
    return failure_of([&] { run(triples, dims); });
  }

  std::shared_ptr<runtime::Tensor> input(const std::vector<uint32_t>& dims) {
    std::vector<float> values(runtime::ElementCount({dims, DataType::FLOAT32, LayoutType::CHW}));
    std::iota(values.begin(), values.end(), 0.0f);
    return context_.external_floats(dims, LayoutType::CHW, values);
  }

  TestContext context_;
};

// From the definition: as many entries as the truncating division gives.
std::vector<float> expected(const Triples& t, const std::vector<uint32_t>& dims) {
  const auto count = [&t](int k) {
    return (t[size_t(3 * k + 1)] - t[size_t(3 * k)]) / t[size_t(3 * k + 2)];
  };
  std::vector<float> values;
  for (int c = 0; c < count(0); ++c) {
    for (int h = 0; h < count(1); ++h) {
      for (int w = 0; w < count(2); ++w) {
        const auto index = [&t](int k, int i) {
          return uint32_t(t[size_t(3 * k)] + i * t[size_t(3 * k + 2)]);
        };
        values.push_back(
            static_cast<float>((index(0, c) * dims[1] + index(1, h)) * dims[2] + index(2, w)));
      }
    }
  }
  return values;
}

TEST_F(Slice, TakesEveryKindOfBox) {
  const std::vector<uint32_t> dims{5, 6, 7};
  const std::vector<Triples> cases{
      {0, 5, 1, 0, 6, 1, 0, 7, 1},  // all
      {1, 4, 1, 0, 6, 1, 0, 7, 1},  // whole planes
      {0, 5, 2, 0, 6, 1, 0, 7, 1},  // every second plane
      {0, 5, 1, 2, 5, 1, 0, 7, 1},  // whole rows
      {1, 5, 2, 0, 6, 3, 0, 7, 1},  // every third row
      {0, 5, 1, 1, 6, 2, 2, 6, 1},  // parts of rows
      {0, 5, 1, 0, 6, 1, 1, 7, 2},  // every second column
      {4, 5, 1, 5, 6, 1, 6, 7, 1},  // the last element
      {0, 5, 3, 1, 6, 2, 0, 7, 3}, {0, 5, 1, 0, 6, 1, 0, 7, 7},
  };
  for (const Triples& triples : cases) {
    const auto output = run(triples, dims);
    EXPECT_TRUE(same_bits(values_of(*output), expected(triples, dims)))
        << testing::PrintToString(triples);
    EXPECT_EQ(output->shape.layout, LayoutType::CHW);
  }
}

TEST_F(Slice, AStepOf2Over5ElementsLeavesOutTheLast) {
  const auto output = run({0, 1, 1, 0, 1, 1, 0, 5, 2}, {1, 1, 5});
  EXPECT_EQ(output->shape.dims, (std::vector<uint32_t>{1, 1, 2}));
  EXPECT_TRUE(same_bits(values_of(*output), {0.0f, 2.0f}));
}

TEST_F(Slice, AnEmptyRangeGivesAnEmptyTensor) {
  EXPECT_EQ(runtime::ElementCount(run({0, 2, 1, 3, 3, 1, 0, 4, 1}, {2, 4, 4})->shape), 0u);
}

TEST_F(Slice, CheckConfigRefusesTheOrdinaryCaseThatConfigAccepts) {
  const Triples ordinary{0, 5, 1, 0, 6, 1, 0, 7, 1};
  EXPECT_EQ(check(ordinary), -1);
  const auto kernel = make_kernel(kName);
  EXPECT_TRUE(kernel->Config(description(ordinary), nullptr, context_));
  EXPECT_TRUE(kernel->IsConfigured());
}

TEST_F(Slice, CheckConfigLooksAtTheFirstTripleOfThree) {
  EXPECT_EQ(check({3, 3, 1, 0, 6, 1, 0, 7, 1}), 0);
  EXPECT_EQ(check({3, 3, 1, -1, -1, 0, -1, -1, 0}), 0);
}

TEST_F(Slice, CheckConfigRefusesEachFaultOfATriple) {
  EXPECT_EQ(check({}), -1);
  EXPECT_EQ(check({3, 3}), -1);
  EXPECT_EQ(check({3, 3, 1, 0}), -1);
  EXPECT_EQ(check({-1, 3, 1}), -1);
  EXPECT_EQ(check({3, -1, 1}), -1);
  EXPECT_EQ(check({3, 3, 0}), -1);
  EXPECT_EQ(check({2, 3, 1}), -1);
  EXPECT_EQ(check({3, 3, 2}), -1);
  EXPECT_EQ(check({3, 3, 1}), 0);
  // A start above its end leaves no step that is small enough.
  EXPECT_EQ(check({5, 3, 1}), -1);
}

TEST_F(Slice, CheckConfigReadsEveryThirdTripleOfALongList) {
  const Triples long_list{3, 3, 1, 9, 9, 9, 9, 9, 9, -1, 3, 1};
  EXPECT_EQ(check(long_list), -1);
}

TEST_F(Slice, ConfigNeedsTheRightDescriptionOnly) {
  const auto kernel = make_kernel(kName);
  const auto param = std::make_shared<runtime::InferenceParamActQuant>();
  EXPECT_EQ(kernel->CheckConfig(description({3, 3, 1}), param), -1);
  EXPECT_TRUE(kernel->Config(description({3, 3, 1}), param, context_));
  EXPECT_FALSE(kernel->Config(std::make_shared<runtime::InputInfo>(), nullptr, context_));
  EXPECT_FALSE(kernel->IsConfigured());
  EXPECT_FALSE(kernel->Config(nullptr, nullptr, context_));
}

TEST_F(Slice, WhatReachesOutsideFailsCleanly) {
  EXPECT_NE(failure({0, 6, 1, 0, 6, 1, 0, 7, 1}, {5, 6, 7}), "");
  EXPECT_NE(failure({0, 5, 1, 0, 6, 1, -1, 7, 1}, {5, 6, 7}), "");
  EXPECT_NE(failure({0, 5, 0, 0, 6, 1, 0, 7, 1}, {5, 6, 7}), "");
  EXPECT_NE(failure({4, 2, 1, 0, 6, 1, 0, 7, 1}, {5, 6, 7}), "");
  EXPECT_NE(failure({0, 5, 1}, {5, 6, 7}), "");
  EXPECT_NE(failure({0, 5, 1, 0, 6, 1, 0, 7, 1}, {5, 42}), "");
}

TEST_F(Slice, ChecksOneFloatTensorOfLayoutCHW) {
  const auto kernel = make_kernel(kName);
  EXPECT_EQ(kernel->CheckInputs({input({1, 2, 3})}), 0);
  EXPECT_EQ(kernel->CheckOutputs({input({1, 2, 3})}), 0);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
  EXPECT_EQ(kernel->CheckInputs({context_.device()->CreateU8CHWMainMem({1, 2, 3}, nullptr)}), -2);
  EXPECT_EQ(
      kernel->CheckInputs({context_.device()->CreateF32FlexiableMainMemory({1, 2, 3}, nullptr)}),
      -2);
}

}  // namespace
}  // namespace marlo::test
