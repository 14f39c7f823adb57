#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>

#include "qrt_core/runtime/model/elementwise_info.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorArithmeticInfo;
using runtime::TensorShape;
using Dims = std::vector<uint32_t>;
using Axes = std::vector<int16_t>;

constexpr const char* kName = "TensorArithmetic_Fallback_M1";
constexpr uint16_t kSum = 0;
constexpr uint16_t kMean = 1;

std::shared_ptr<TensorArithmeticInfo> over(Axes axes, uint16_t type) {
  auto info = std::make_shared<TensorArithmeticInfo>();
  info->dim = std::move(axes);
  info->arith_type = type;
  return info;
}

std::shared_ptr<runtime::Tensor> reduced(const Dims& dims, const std::vector<float>& values,
                                         const Axes& axes, uint16_t type, TestContext& context) {
  const auto kernel = make_kernel(kName);
  EXPECT_TRUE(kernel->Config(over(axes, type), nullptr, context));
  const auto input = context.floats(dims, LayoutType::HWC, values);
  EXPECT_EQ(kernel->CheckInputs({input}), 0);
  IKernel::Tensors outputs;
  EXPECT_EQ(kernel->Forward({input}, outputs, context), 0);
  EXPECT_EQ(outputs.size(), 1u);
  EXPECT_TRUE(outputs[0]->shape == kernel->InferOutputShapes({input->shape})[0]);
  EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
  EXPECT_TRUE(same_bits(values_of(*input), values)) << "the input changed";
  context.pool().check();
  return outputs[0];
}

// Sums over axes of the tensor, in double.
std::vector<Sum> definition(const Dims& dims, const std::vector<float>& values,
                            const std::set<size_t>& axes, uint16_t type) {
  size_t outputs = 1;
  double terms = 1;
  for (size_t i = 0; i < dims.size(); ++i) {
    if (axes.count(i) == 0) {
      outputs *= dims[i];
    } else {
      terms *= dims[i];
    }
  }
  std::vector<Sum> sums(outputs);
  for (size_t k = 0; k < values.size(); ++k) {
    size_t rest = k;
    size_t target = 0;
    size_t stride = 1;
    for (size_t i = dims.size(); i-- > 0;) {
      const size_t index = rest % dims[i];
      rest /= dims[i];
      if (axes.count(i) != 0) continue;
      target += index * stride;
      stride *= dims[i];
    }
    sums[target].add(values[k]);
  }
  if (type == kMean) {
    for (Sum& sum : sums) {
      sum.value /= terms;
      sum.magnitude /= terms;
      ++sum.terms;
    }
  }
  return sums;
}

TEST(Reduction, AgreesWithItsDefinition) {
  struct Case {
    Axes axes;
    std::set<size_t> tensor_axes;
    Dims left;
    LayoutType layout;
  };
  const Dims dims{3, 5, 2, 7};
  const Case cases[] = {
      {{0}, {0}, {5, 2, 7}, LayoutType::CHW},     {{1}, {0}, {5, 2, 7}, LayoutType::CHW},
      {{2}, {1}, {3, 2, 7}, LayoutType::CHW},     {{4}, {3}, {3, 5, 2}, LayoutType::CHW},
      {{-1}, {3}, {3, 5, 2}, LayoutType::CHW},    {{3, 2}, {1, 2}, {3, 7}, LayoutType::SC},
      {{-1, 1}, {0, 3}, {5, 2}, LayoutType::SC},  {{1, -1}, {0, 3}, {5, 2}, LayoutType::SC},
      {{4, 1, 3}, {0, 2, 3}, {5}, LayoutType::C}, {{0, 2, 3, 4}, {0, 1, 2, 3}, {1}, LayoutType::C},
  };
  Random random(8);
  TestContext context;
  for (const Case& c : cases) {
    for (const uint16_t type : {kSum, kMean}) {
      const auto integers = random.small_integers(210);
      const auto floats = random.floats(210);
      const auto exact = reduced(dims, integers, c.axes, type, context);
      EXPECT_EQ(exact->shape.dims, c.left);
      EXPECT_EQ(exact->shape.layout, c.layout);
      std::vector<float> rounded;
      for (const Sum& sum : definition(dims, integers, c.tensor_axes, type)) {
        rounded.push_back(static_cast<float>(sum.value));
      }
      EXPECT_TRUE(same_bits(values_of(*exact), rounded));
      EXPECT_TRUE(within_bounds(values_of(*reduced(dims, floats, c.axes, type, context)),
                                definition(dims, floats, c.tensor_axes, type)));
    }
  }
}

TEST(Reduction, AllAxesOfAPictureGiveOneNumberOfLayoutC) {
  TestContext context;
  const auto sum = reduced({2, 2, 2}, {1, 2, 3, 4, 5, 6, 7, 8}, {1, 2, 3}, kSum, context);
  EXPECT_EQ(sum->shape.dims, Dims{1});
  EXPECT_EQ(static_cast<uint32_t>(sum->shape.layout), 24u);
  EXPECT_TRUE(same_bits(values_of(*sum), {36}));
}

TEST(Reduction, ZeroAndOneAreTheFirstAxis) {
  TestContext context;
  const std::vector<float> values{1, 2, 3, 10, 20, 30};
  for (const int16_t axis : std::initializer_list<int16_t>{0, 1}) {
    const auto sum = reduced({2, 3}, values, {axis}, kSum, context);
    EXPECT_TRUE(same_bits(values_of(*sum), {11, 22, 33}));
  }
}

TEST(Reduction, MoreThanThreeDimsLeftHaveNoLayout) {
  TestContext context;
  const auto sum = reduced({1, 1, 1, 1, 2}, {1, 2}, {-1}, kSum, context);
  EXPECT_EQ(sum->shape.layout, LayoutType::FLEXIABLE);
  EXPECT_TRUE(same_bits(values_of(*sum), {3}));
}

TEST(Reduction, AddsInFloatInMemoryOrderOneAxisAtATimeFromTheHighest) {
  TestContext context;
  const Dims dims{3, 4, 5};
  const auto values = Random(9).uneven_floats(60, 12);
  float rows[12] = {};
  for (size_t i = 0; i < 60; ++i) rows[i / 5] += values[i];
  float planes[3] = {};
  for (size_t i = 0; i < 12; ++i) planes[i / 4] += rows[i];
  const auto sum = reduced(dims, values, {2, 3}, kSum, context);
  EXPECT_TRUE(same_bits(values_of(*sum), {planes[0], planes[1], planes[2]}));
}

TEST(Reduction, ASumStartsFromPositiveZero) {
  TestContext context;
  EXPECT_EQ(bits_of(values_of(*reduced({1, 2}, {-0.0f, -0.0f}, {-1}, kSum, context))[0]), 0u);
}

TEST(Reduction, ARefusedListStillConfigures) {
  TestContext context;
  const auto kernel = make_kernel(kName);
  for (const Axes& axes : {Axes{}, Axes{-1, -1}}) {
    EXPECT_EQ(kernel->CheckConfig(over(axes, kSum), nullptr), -1);
    EXPECT_TRUE(kernel->Config(over(axes, kSum), nullptr, context));
    EXPECT_TRUE(kernel->IsConfigured());
  }
  const auto param = std::make_shared<runtime::InferenceParam>();
  EXPECT_EQ(kernel->CheckConfig(over({1}, kSum), param), -1);
  EXPECT_TRUE(kernel->Config(over({1}, kSum), param, context));
}

TEST(Reduction, AnotherDescriptionDoesNotConfigure) {
  TestContext context;
  const auto kernel = make_kernel(kName);
  EXPECT_EQ(kernel->CheckConfig(over({1}, kSum), nullptr), 0);
  EXPECT_TRUE(kernel->Config(over({1}, kSum), nullptr, context));
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_FALSE(kernel->Config(nullptr, nullptr, context));
  EXPECT_FALSE(kernel->IsConfigured());
  EXPECT_FALSE(kernel->Config(std::make_shared<runtime::SoftmaxInfo>(), nullptr, context));
}

TEST(Reduction, AnEmptyListCopies) {
  TestContext context;
  const auto copy = reduced({2, 2}, {1, 2, 3, 4}, {}, kMean, context);
  EXPECT_TRUE(same_bits(values_of(*copy), {1, 2, 3, 4}));
  EXPECT_EQ(copy->shape.layout, LayoutType::SC);
}

TEST(Reduction, AnUnknownOperationThrows) {
  TestContext context;
  const LogCapture log;
  const auto kernel = make_kernel(kName);
  EXPECT_THAT(failure_of([&] { kernel->Config(over({1}, 2), nullptr, context); }),
              testing::HasSubstr("Invalid arithmetic type"));
  EXPECT_FALSE(kernel->IsConfigured());
}

TEST(Reduction, AcceptsOneTensorOfFloatsOrShorts) {
  TestContext context;
  const auto kernel = make_kernel(kName);
  const auto tensor = [&](DataType type, LocationType location = LocationType::MainMemory) {
    return context.device()->CreateTensor(TensorShape({2}, type, LayoutType::C, location), nullptr);
  };
  for (const DataType type : {DataType::FLOAT32, DataType::INT16}) {
    EXPECT_EQ(kernel->CheckInputs({tensor(type)}), 0);
    EXPECT_EQ(kernel->CheckOutputs({tensor(type)}), 0);
  }
  const auto good = tensor(DataType::FLOAT32);
  for (const IKernel::Tensors& tensors : {IKernel::Tensors{},
                                          {good, good},
                                          {tensor(DataType::INT8)},
                                          {tensor(DataType::FLOAT32, LocationType::OpenGLImage)}}) {
    EXPECT_EQ(kernel->CheckInputs(tensors), -2);
    EXPECT_EQ(kernel->CheckOutputs(tensors), -2);
  }
}

// What `Forward` throws for a list of axes and an input.
std::string refusal(const Axes& axes, const Dims& dims, DataType type, LogCapture& log) {
  TestContext context;
  const auto kernel = make_kernel(kName);
  EXPECT_TRUE(kernel->Config(over(axes, kMean), nullptr, context));
  const auto input =
      context.device()->CreateTensor(TensorShape(dims, type, LayoutType::FLEXIABLE), nullptr);
  log.clear();
  IKernel::Tensors outputs;
  const std::string text = failure_of([&] { kernel->Forward({input}, outputs, context); });
  EXPECT_TRUE(outputs.empty());
  return text;
}

TEST(Reduction, ShortsAndListsLongerThanTheRankFailWithoutAMessage) {
  LogCapture log;
  EXPECT_EQ(refusal({1}, {2}, DataType::INT16, log), "[QRT]: ");
  EXPECT_TRUE(log.lines().empty());
  EXPECT_EQ(refusal({1, 2, 3}, {2, 2}, DataType::FLOAT32, log), "[QRT]: ");
  EXPECT_TRUE(log.lines().empty());
}

TEST(Reduction, RefusesWhatWouldSendItOutOfItsInput) {
  LogCapture log;
  const auto floats = DataType::FLOAT32;
  EXPECT_THAT(refusal({4}, {2, 2}, floats, log), testing::HasSubstr("no axis 4"));
  EXPECT_THAT(refusal({-2}, {2, 2}, floats, log), testing::HasSubstr("no axis -2"));
  EXPECT_THAT(refusal({-32768, 32767}, {2, 2}, floats, log), testing::HasSubstr("no axis"));
  EXPECT_THAT(refusal({1, 0}, {2, 3, 4}, floats, log), testing::HasSubstr("named twice"));
  EXPECT_THAT(refusal({-1, 2}, {2, 3}, floats, log), testing::HasSubstr("named twice"));
  EXPECT_THAT(refusal({-1, -1}, {2, 3}, floats, log), testing::HasSubstr("named twice"));
  EXPECT_THAT(refusal({1}, {0, 3}, floats, log), testing::HasSubstr("size 0"));
  EXPECT_THAT(refusal({-1}, {3, 0}, floats, log), testing::HasSubstr("size 0"));
}

TEST(Reduction, OfNothingOverAnAxisThatIsThereGivesNothing) {
  TestContext context;
  EXPECT_EQ(values_of(*reduced({2, 0}, {}, {1}, kMean, context)).size(), 0u);
}

}  // namespace
}  // namespace marlo::test
