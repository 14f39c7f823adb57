#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <type_traits>
#include <utility>

#include "qrt_core/kernel/kernels.h"
#include "qrt_core/qrt_core.h"
#include "tests/support/fake_kernel.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"

namespace marlo::test {

using namespace runtime;

namespace {

using Tensors = IKernel::Tensors;

using Info = std::shared_ptr<LayerInfo>;
using Param = std::shared_ptr<InferenceParam>;

// The six kernels whose `Config` reads the check in the opposite sense.
const std::set<std::string> kInverted = {"Input_Fallback_M1",       "Straight_Through_Fallback_M1",
                                         "ReLU6_Fallback_Float_M1", "Leaky_Fallback_Float_M1",
                                         "PReLU_Fallback_Float_M1", "Linear_Fallback_Float_M1"};

class KernelContractTest : public ::testing::Test {
 protected:
  KernelContractTest() { utility::create_context(context_, 16); }

  static Info activation() {
    auto info = std::make_shared<ActivationInfo>();
    info->weight = test::weight_text({0.5f});
    return info;
  }
  static Info convolution() {
    return std::make_shared<Conv2dInfo>(test::plane_convolution(1, 1, 1, {1.0f}));
  }
  static Param param() { return std::make_shared<InferenceParamConv2DQuant>(); }

  std::shared_ptr<TensorCPU> tensor() { return context_->cpu->CreateZeroF32CHWMainMem(1, 2, 3); }

  std::shared_ptr<Context> context_;
};

TEST(KernelResult, HasTheNumbersOfTheInterface) {
  EXPECT_EQ(KERNEL_OK, 0);
  EXPECT_EQ(KERNEL_REFUSED, -1);
  EXPECT_EQ(KERNEL_BAD_TENSOR, -2);
  EXPECT_EQ(KERNEL_HAS_NO_STATE, -4);
}

TEST_F(KernelContractTest, BaseClassHasTheDefaultsOfTheContract) {
  test::FakeKernel fake("fake", std::make_shared<test::KernelCalls>());
  IKernel& kernel = fake;
  EXPECT_FALSE(kernel.IsConfigured());
  EXPECT_EQ(kernel.ResetState(), -4);
  EXPECT_EQ(kernel.CheckConfig(nullptr, nullptr), 0);
  EXPECT_EQ(kernel.CheckConfig(activation(), nullptr), -1);
  EXPECT_EQ(kernel.CheckConfig(nullptr, param()), -1);
  EXPECT_EQ(kernel.CheckConfig(activation(), param()), -1);
  const std::vector<TensorShape> shapes = {TensorShape({1, 2}, DataType::INT8, LayoutType::BC),
                                           TensorShape()};
  EXPECT_EQ(kernel.InferOutputShapes(shapes), shapes);
  EXPECT_TRUE(std::has_virtual_destructor_v<IKernel>);
  EXPECT_TRUE(std::is_abstract_v<IKernel>);
}

TEST_F(KernelContractTest, PrepareForwardReturns0AndTouchesNothingInEveryKernel) {
  for (const std::string& name : test::all_kernels().Keys()) {
    Tensors inputs = {tensor()};
    const Tensors before = inputs;
    Tensors outputs;
    bool transient = true;
    EXPECT_EQ(make_kernel(name)->PrepareForward(context_, inputs, transient, outputs), 0) << name;
    EXPECT_EQ(inputs, before);
    EXPECT_TRUE(outputs.empty());
    EXPECT_TRUE(transient);
  }
}

TEST_F(KernelContractTest, InvertedSixAcceptADescriptionAndRefuseTwoEmptyPointers) {
  for (const std::string& name : kInverted) {
    const auto kernel = make_kernel(name);
    EXPECT_FALSE(kernel->Config(nullptr, nullptr, context_)) << name;
    EXPECT_FALSE(kernel->IsConfigured());
    EXPECT_TRUE(kernel->Config(activation(), nullptr, context_)) << name;
    EXPECT_TRUE(kernel->IsConfigured());
    EXPECT_TRUE(kernel->Config(activation(), param(), context_)) << name;
    EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), 0);
    EXPECT_EQ(kernel->CheckConfig(activation(), nullptr), -1);
  }
}

TEST_F(KernelContractTest, InvertedKernelsWithoutParametersAcceptAParameterAlone) {
  for (const char* name :
       {"Input_Fallback_M1", "Straight_Through_Fallback_M1", "ReLU6_Fallback_Float_M1"}) {
    EXPECT_TRUE(make_kernel(name)->Config(nullptr, param(), context_)) << name;
    EXPECT_TRUE(make_kernel(name)->Config(convolution(), nullptr, context_)) << name;
  }
}

TEST_F(KernelContractTest, OnlyTheSixAreInverted) {
  for (const kernel::ActivationRow* row : kernel::activation_rows) {
    const bool inverted = kInverted.count(row->name) != 0;
    EXPECT_EQ(row->config_test == kernel::ConfigTest::inverted, inverted) << row->name;
    const auto kernel = make_kernel(row->name);
    EXPECT_EQ(kernel->CheckConfig(activation(), nullptr), inverted ? -1 : 0) << row->name;
  }
}

TEST_F(KernelContractTest, OtherActivationsWantAnActivationWithoutAParameter) {
  for (const kernel::ActivationRow* row : kernel::activation_rows) {
    if (kInverted.count(row->name) != 0) continue;
    const auto kernel = make_kernel(row->name);
    EXPECT_TRUE(kernel->Config(activation(), nullptr, context_)) << row->name;
    for (const auto& [info, with] :
         std::vector<std::pair<Info, Param>>{{nullptr, nullptr},
                                             {nullptr, param()},
                                             {activation(), param()},
                                             {convolution(), nullptr},
                                             {std::make_shared<LayerInfo>(), nullptr}}) {
      EXPECT_EQ(kernel->CheckConfig(info, with), -1) << row->name;
      EXPECT_FALSE(kernel->Config(info, with, context_)) << row->name;
    }
  }
}

TEST_F(KernelContractTest, CheckConfigChangesNothing) {
  for (const std::string& name : test::all_kernels().Keys()) {
    const auto kernel = make_kernel(name);
    kernel->CheckConfig(activation(), nullptr);
    kernel->CheckConfig(nullptr, nullptr);
    EXPECT_FALSE(kernel->IsConfigured()) << name;
  }
}

TEST_F(KernelContractTest, FailedSecondConfigLeavesTheKernelNotConfigured) {
  const auto relu = make_kernel("ReLU_Fallback_Float_M1");
  ASSERT_TRUE(relu->Config(activation(), nullptr, context_));
  EXPECT_FALSE(relu->Config(convolution(), nullptr, context_));
  EXPECT_FALSE(relu->IsConfigured());

  const auto conv = make_kernel("Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
  ASSERT_TRUE(conv->Config(convolution(), nullptr, context_));
  EXPECT_FALSE(conv->Config(activation(), nullptr, context_));
  EXPECT_FALSE(conv->IsConfigured());

  const auto input = make_kernel("Input_Fallback_M1");
  ASSERT_TRUE(input->Config(std::make_shared<InputInfo>(), nullptr, context_));
  EXPECT_FALSE(input->Config(nullptr, nullptr, context_));
  EXPECT_FALSE(input->IsConfigured());
}

TEST_F(KernelContractTest, ConvolutionsRefuseAParameterAndOtherDescriptions) {
  const auto conv = make_kernel("Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
  EXPECT_EQ(conv->CheckConfig(convolution(), nullptr), 0);
  EXPECT_EQ(conv->CheckConfig(convolution(), param()), -1);
  EXPECT_EQ(conv->CheckConfig(activation(), nullptr), -1);
  EXPECT_EQ(conv->CheckConfig(nullptr, nullptr), -1);
}

TEST_F(KernelContractTest, WeightsComeFromTheStaticPoolAtConfigTime) {
  const auto conv = make_kernel("Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1");
  ASSERT_TRUE(conv->Config(convolution(), nullptr, context_));
  EXPECT_GT(context_->cpu->static_pool->TotalBytes(), 0u);
  EXPECT_EQ(context_->cpu->dynamic_pool->TotalBytes(), 0u);
}

TEST_F(KernelContractTest, ResetStateOnAConvolutionReturnsMinus4) {
  for (const char* name :
       {"Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", "Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1",
        "ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", "Input_Fallback_M1",
        "ReLU_Fallback_Float_M1"}) {
    EXPECT_EQ(make_kernel(name)->ResetState(), -4) << name;
  }
}

TEST_F(KernelContractTest, InputWithTwoEmptyPointersIsRefusedAndWithADescriptionAccepted) {
  const auto input = make_kernel("Input_Fallback_M1");
  EXPECT_FALSE(input->Config(nullptr, nullptr, context_));
  EXPECT_TRUE(input->Config(std::make_shared<InputInfo>(), nullptr, context_));
}

TEST_F(KernelContractTest, InputAndStraightThroughNeedNoContext) {
  for (const char* name : {"Input_Fallback_M1", "Straight_Through_Fallback_M1"}) {
    EXPECT_TRUE(make_kernel(name)->Config(activation(), nullptr, nullptr)) << name;
  }
}

TEST_F(KernelContractTest, InputForwardPassesTheSameTensorPointersThrough) {
  for (const char* name : {"Input_Fallback_M1", "Straight_Through_Fallback_M1"}) {
    const auto kernel = make_kernel(name);
    const Tensors inputs = {tensor(), tensor()};
    Tensors outputs = {tensor()};
    EXPECT_EQ(kernel->Forward(inputs, outputs, context_), 0);
    EXPECT_EQ(outputs, inputs) << name;
  }
}

TEST_F(KernelContractTest, InputShapesPassThrough) {
  const std::vector<TensorShape> shapes = {TensorShape({9}, DataType::INT8, LayoutType::C)};
  EXPECT_EQ(make_kernel("Input_Fallback_M1")->InferOutputShapes(shapes), shapes);
  EXPECT_EQ(make_kernel("Straight_Through_Fallback_M1")->InferOutputShapes(shapes), shapes);
}

TEST_F(KernelContractTest, InputChecksDemandExactlyOneTensorAndNothingElse) {
  const auto input = make_kernel("Input_Fallback_M1");
  float data = 0.0f;
  const auto elsewhere = context_->cpu->CreateTensorExternal(
      TensorShape({1}, DataType::INT8, LayoutType::HWC, LocationType::OpenGLSSBO), &data);
  for (const auto& check : {&IKernel::CheckInputs, &IKernel::CheckOutputs}) {
    EXPECT_EQ((input.get()->*check)({tensor()}), 0);
    EXPECT_EQ((input.get()->*check)({elsewhere}), 0);
    EXPECT_EQ((input.get()->*check)({}), -2);
    EXPECT_EQ((input.get()->*check)({tensor(), tensor()}), -2);
  }
}

TEST_F(KernelContractTest, StraightThroughChecksDemandOneTensorInMainMemory) {
  const auto kernel = make_kernel("Straight_Through_Fallback_M1");
  float data = 0.0f;
  const auto elsewhere = context_->cpu->CreateTensorExternal(
      TensorShape({1}, DataType::FLOAT32, LayoutType::C, LocationType::CPUObject), &data);
  for (const auto& check : {&IKernel::CheckInputs, &IKernel::CheckOutputs}) {
    EXPECT_EQ((kernel.get()->*check)({tensor()}), 0);
    EXPECT_EQ((kernel.get()->*check)({elsewhere}), -2);
    EXPECT_EQ((kernel.get()->*check)({}), -2);
    EXPECT_EQ((kernel.get()->*check)({tensor(), tensor()}), -2);
  }
}

}  // namespace
}  // namespace marlo::test
