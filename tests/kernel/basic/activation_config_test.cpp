#include <gtest/gtest.h>

#include <set>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/model/base64.h"
#include "qrt_core/runtime/model/conv_info.h"
#include "qrt_core/runtime/model/inference_param.h"
#include "tests/support/activation_tester.h"
#include "tests/support/compare.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// What activation kernels accept, what they read from a description, and what they refuse.

namespace marlo::test {
namespace {

using kernel::ActivationRow;
using runtime::ActivationInfo;
using runtime::DataType;
using runtime::IKernel;
using runtime::InferenceParam;
using runtime::LayerInfo;
using runtime::LayoutType;
using runtime::LocationType;

class ActivationConfig : public testing::TestWithParam<const ActivationRow*> {
 protected:
  // Some checks run the kernel.
  void SetUp() override { QRT_SKIP_WHERE_MISSING(name()); }

  std::string name() const { return GetParam()->name; }
  std::string function() const { return activation_reference(name()).function(); }

  // The kernels whose check accepts two empty pointers only and is read the other way round.
  bool is_inverted() const {
    const std::set<std::string> inverted{"ReLU6_Fallback_Float_M1", "Leaky_Fallback_Float_M1",
                                         "PReLU_Fallback_Float_M1", "Linear_Fallback_Float_M1"};
    return inverted.count(name()) != 0;
  }

  bool reads_parameters() const {
    return function() == "Leaky" || function() == "PReLU" || function() == "Linear";
  }

  std::vector<float> run(const std::shared_ptr<ActivationInfo>& info,
                         const std::vector<float>& inputs) {
    const auto kernel = make_kernel(name());
    EXPECT_TRUE(kernel->Config(info, nullptr, context_));
    const auto dims = std::vector<uint32_t>{static_cast<uint32_t>(inputs.size())};
    IKernel::Tensors outputs;
    kernel->Forward({context_.floats(dims, LayoutType::C, inputs)}, outputs, context_);
    return values_of(*outputs.at(0));
  }

  TestContext context_;
};

const std::shared_ptr<LayerInfo> kNoInfo;
const std::shared_ptr<InferenceParam> kNoParam;

TEST_P(ActivationConfig, ChecksItsDescription) {
  const auto kernel = make_kernel(name());
  const auto activation = activation_info({0.5f, 0.0f});
  const auto other = std::make_shared<runtime::Conv2dInfo>();
  const auto param = std::make_shared<runtime::InferenceParamActQuant>();
  const bool inverted = is_inverted();
  EXPECT_EQ(kernel->CheckConfig(activation, kNoParam), inverted ? -1 : 0);
  EXPECT_EQ(kernel->CheckConfig(activation, param), -1);
  EXPECT_EQ(kernel->CheckConfig(other, kNoParam), -1);
  EXPECT_EQ(kernel->CheckConfig(kNoInfo, param), -1);
  EXPECT_EQ(kernel->CheckConfig(kNoInfo, kNoParam), inverted ? 0 : -1);
  EXPECT_FALSE(kernel->IsConfigured());
}

TEST_P(ActivationConfig, TakesADescription) {
  const auto kernel = make_kernel(name());
  EXPECT_FALSE(kernel->IsConfigured());
  EXPECT_TRUE(kernel->Config(activation_info({0.5f, 0.0f}), kNoParam, context_));
  EXPECT_TRUE(kernel->IsConfigured());
}

TEST_P(ActivationConfig, NeedsNoContext) {
  EXPECT_TRUE(make_kernel(name())->Config(activation_info({0.5f, 0.0f}), kNoParam, nullptr));
}

TEST_P(ActivationConfig, RefusesTwoEmptyPointersAfterASuccess) {
  const auto kernel = make_kernel(name());
  ASSERT_TRUE(kernel->Config(activation_info({0.5f, 0.0f}), kNoParam, context_));
  EXPECT_FALSE(kernel->Config(kNoInfo, kNoParam, context_));
  EXPECT_FALSE(kernel->IsConfigured());
}

// An inverted check lets a parameter and another layer's description through; a kernel that has to
// read from the description still refuses that one.
TEST_P(ActivationConfig, RefusesAParameterUnlessItsCheckIsInverted) {
  const auto kernel = make_kernel(name());
  const auto param = std::make_shared<runtime::InferenceParamActQuant>();
  EXPECT_EQ(kernel->Config(activation_info({0.5f, 0.0f}), param, context_), is_inverted());
  EXPECT_EQ(kernel->IsConfigured(), is_inverted());
  EXPECT_EQ(kernel->Config(kNoInfo, param, context_), is_inverted() && !reads_parameters());
}

TEST_P(ActivationConfig, RefusesAnotherDescriptionUnlessItReadsNothingAndIsInverted) {
  const auto kernel = make_kernel(name());
  const bool taken = kernel->Config(std::make_shared<runtime::Conv2dInfo>(), kNoParam, context_);
  EXPECT_EQ(taken, is_inverted() && !reads_parameters());
  EXPECT_EQ(kernel->IsConfigured(), taken);
}

// The label of the description doesn't choose the function, nor do its other numbers count.
TEST_P(ActivationConfig, IgnoresTheTypeAndTheNumberOfParameters) {
  const std::vector<float> inputs = Random(3).floats(21, 4.0f);
  const auto plain = activation_info({0.5f, 0.0f});
  const auto labelled = activation_info({0.5f, 0.0f});
  labelled->activation_type = 5;
  labelled->num_parameters = 64;
  labelled->weight = weight_text({0.5f, 9.0f, 9.0f});
  EXPECT_TRUE(same_bits(run(labelled, inputs), run(plain, inputs)));
}

// 0.1 isn't a half: it comes truncated to 0x2E66.
TEST_P(ActivationConfig, WidensAlphaAndBetaFromHalf) {
  if (function() != "Leaky" && function() != "Linear") GTEST_SKIP() << "reads neither";
  const auto info = std::make_shared<ActivationInfo>();
  info->activation_alpha = half_float::half(0.1f);
  info->activation_beta = half_float::half(-0.1f);
  const float tenth = float_of(0x3DCCC000);
  const auto found = run(info, std::vector<float>(17, -3.0f));
  const float expected = function() == "Leaky" ? -3.0f * tenth : -3.0f * tenth - tenth;
  EXPECT_TRUE(same_bits(found, std::vector<float>(17, expected)));
}

TEST_P(ActivationConfig, TakesTheFirstFloatOfItsTextForASlope) {
  if (function() != "PReLU") GTEST_SKIP() << "reads no text";
  const auto info = activation_info({9.0f, 9.0f});
  info->weight = weight_text({float_of(0x3DCCCCCD), 7.0f, 7.0f});
  const auto found = run(info, std::vector<float>(17, -3.0f));
  EXPECT_TRUE(same_bits(found, std::vector<float>(17, -3.0f * 0.1f)));
}

// "AACA" is the bytes 00 00 80, "AAAAQA==" those of 2.0: what a short text lacks counts as zero.
TEST_P(ActivationConfig, TakesWhatAShortTextHoldsForASlope) {
  if (function() != "PReLU") GTEST_SKIP() << "reads no text";
  const auto info = activation_info({9.0f, 9.0f});
  info->weight = "AACA";
  EXPECT_EQ(runtime::Base64Decode(info->weight).size(), 3u);
  const float slope = float_of(0x00800000);
  EXPECT_TRUE(
      same_bits(run(info, std::vector<float>(17, -2.0f)), std::vector<float>(17, -2.0f * slope)));
  info->weight = "!";
  EXPECT_TRUE(same_bits(run(info, {-2.0f}), {-0.0f}));
}

TEST_P(ActivationConfig, RefusesAnEmptyTextForASlope) {
  if (function() != "PReLU") GTEST_SKIP() << "reads no text";
  const auto kernel = make_kernel(name());
  const auto info = activation_info({0.5f, 0.0f});
  ASSERT_TRUE(kernel->Config(info, kNoParam, context_));
  info->weight.clear();
  EXPECT_FALSE(kernel->Config(info, kNoParam, context_));
  EXPECT_FALSE(kernel->IsConfigured());
}

TEST_P(ActivationConfig, ChecksItsTensors) {
  const auto kernel = make_kernel(name());
  ASSERT_TRUE(kernel->Config(activation_info({0.5f, 0.0f}), kNoParam, context_));
  const auto expect = [&](const IKernel::Tensors& tensors, int verdict) {
    EXPECT_EQ(kernel->CheckInputs(tensors), verdict);
    EXPECT_EQ(kernel->CheckOutputs(tensors), verdict);
  };
  for (const LayoutType layout : {LayoutType::CHW, LayoutType::C4HW4, LayoutType::FLEXIABLE}) {
    expect({context_.floats({1, 1, 1, 4}, layout, {1, 2, 3, 4})}, 0);
  }
  const auto good = context_.floats({2}, LayoutType::C, {1, 2});
  expect({}, -2);
  expect({nullptr}, -2);
  expect({good, good}, -2);
  for (const DataType type : {DataType::FLOAT16, DataType::INT32, DataType::UINT8}) {
    expect({context_.device()->CreateTensor({{2}, type, LayoutType::C}, nullptr)}, -2);
  }
  const auto elsewhere = context_.floats({2}, LayoutType::C, {1, 2});
  elsewhere->shape.location = LocationType::OpenGLSSBO;
  expect({elsewhere}, -2);
}

TEST_P(ActivationConfig, RefusesToRunOnWhatItCannotRead) {
  const auto kernel = make_kernel(name());
  ASSERT_TRUE(kernel->Config(activation_info({0.5f, 0.0f}), kNoParam, context_));
  IKernel::Tensors outputs;
  const auto run = [&](const IKernel::Tensors& inputs) {
    return failure_of([&] { kernel->Forward(inputs, outputs, context_); });
  };
  const auto half =
      context_.device()->CreateTensor({{2}, DataType::FLOAT16, LayoutType::C}, nullptr);
  const std::string expected = name() + ": the input must be a FLOAT32 tensor";
  EXPECT_NE(run({half}).find(expected), std::string::npos);
  EXPECT_TRUE(outputs.empty());
}

TEST_P(ActivationConfig, RefusesToRunWithoutADevice) {
  const auto kernel = make_kernel(name());
  ASSERT_TRUE(kernel->Config(activation_info({0.5f, 0.0f}), kNoParam, context_));
  if (activation_reference(name()).in_place()) GTEST_SKIP() << "makes no tensor";
  const auto input = context_.floats({2}, LayoutType::C, {1, 2});
  IKernel::Tensors outputs;
  EXPECT_NE(failure_of([&] { kernel->Forward({input}, outputs, nullptr); }).find(name()),
            std::string::npos);
}

TEST_P(ActivationConfig, SurvivesAPoolWithoutMemory) {
  if (activation_reference(name()).in_place()) GTEST_SKIP() << "makes no tensor";
  const auto kernel = make_kernel(name());
  ASSERT_TRUE(kernel->Config(activation_info({0.5f, 0.0f}), kNoParam, context_));
  const auto input = context_.floats({2}, LayoutType::C, {1, 2});
  IKernel::Tensors outputs;
  context_.pool().fail_at(1);
  EXPECT_THROW(kernel->Forward({input}, outputs, context_), std::bad_alloc);
  EXPECT_TRUE(outputs.empty());
  EXPECT_EQ(kernel->Forward({input}, outputs, context_), 0);
}

TEST_P(ActivationConfig, InfersTheShapesOfItsInputs) {
  const auto kernel = make_kernel(name());
  const runtime::TensorShape shape({3, 4, 5, 4}, DataType::FLOAT32, LayoutType::C4HW4);
  const auto inferred = kernel->InferOutputShapes({shape});
  ASSERT_EQ(inferred.size(), 1u);
  EXPECT_TRUE(inferred[0] == shape);
}

#if QRT_WITH_EXTENSIONS
INSTANTIATE_TEST_SUITE_P(ExtensionRows, ActivationConfig,
                         testing::ValuesIn(kernel::extension_activation_rows),
                         [](const auto& test) { return std::string(test.param->name); });
#endif
INSTANTIATE_TEST_SUITE_P(Rows, ActivationConfig, testing::ValuesIn(kernel::activation_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test
