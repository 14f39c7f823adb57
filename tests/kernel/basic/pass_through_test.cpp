#include "qrt_core/kernel/basic/pass_through.h"

#include <gtest/gtest.h>

#include "qrt_core/runtime/model/inference_param.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "tests/support/kernels.h"
#include "tests/support/test_context.h"

// Kernels that hand on the tensor objects that they get.

namespace marlo::test {
namespace {

using kernel::PassThroughRow;
using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::LocationType;

class PassThroughKernel : public testing::TestWithParam<const PassThroughRow*> {
 protected:
  std::string name() const { return GetParam()->name; }

  TestContext context_;
  std::shared_ptr<IKernel> kernel_ = make_kernel(GetParam()->name);
};

TEST_P(PassThroughKernel, IsConfiguredByAnyDescriptionOrParameter) {
  const auto info = std::make_shared<runtime::InputInfo>();
  const auto param = std::make_shared<runtime::InferenceParam>();
  EXPECT_EQ(kernel_->CheckConfig(info, nullptr), -1);
  EXPECT_EQ(kernel_->CheckConfig(nullptr, param), -1);
  EXPECT_EQ(kernel_->CheckConfig(nullptr, nullptr), 0);
  EXPECT_TRUE(kernel_->Config(info, nullptr, context_));
  EXPECT_TRUE(kernel_->Config(nullptr, param, nullptr));
  EXPECT_TRUE(kernel_->IsConfigured());
}

TEST_P(PassThroughKernel, IsNotConfiguredByTwoEmptyPointers) {
  ASSERT_TRUE(kernel_->Config(std::make_shared<runtime::InputInfo>(), nullptr, context_));
  EXPECT_FALSE(kernel_->Config(nullptr, nullptr, context_));
  EXPECT_FALSE(kernel_->IsConfigured());
}

TEST_P(PassThroughKernel, HandsTheSameObjectsOn) {
  const auto first = context_.floats({2}, LayoutType::C, {1.0f, 2.0f});
  const auto second = context_.floats({1}, LayoutType::C, {3.0f});
  const size_t allocations = context_.pool().allocations();
  IKernel::Tensors outputs{nullptr, second};
  EXPECT_EQ(kernel_->Forward({first}, outputs, context_), 0);
  EXPECT_EQ(outputs, IKernel::Tensors{first});
  EXPECT_EQ(kernel_->Forward({first, second}, outputs, nullptr), 0);
  EXPECT_EQ(outputs, (IKernel::Tensors{first, second}));
  EXPECT_EQ(context_.pool().allocations(), allocations);
}

TEST_P(PassThroughKernel, InfersTheShapesOfItsInputs) {
  const runtime::TensorShape shape({3, 5}, DataType::INT16, LayoutType::CL);
  const auto inferred = kernel_->InferOutputShapes({shape});
  ASSERT_EQ(inferred.size(), 1u);
  EXPECT_TRUE(inferred[0] == shape);
  EXPECT_TRUE(kernel_->InferOutputShapes({}).empty());
}

TEST_P(PassThroughKernel, TakesExactlyOneTensor) {
  const auto tensor =
      context_.device()->CreateTensor({{2}, DataType::INT8, LayoutType::C}, nullptr);
  for (const auto check : {&IKernel::CheckInputs, &IKernel::CheckOutputs}) {
    EXPECT_EQ((kernel_.get()->*check)({tensor}), 0);
    EXPECT_EQ((kernel_.get()->*check)({}), -2);
    EXPECT_EQ((kernel_.get()->*check)({tensor, tensor}), -2);
  }
}

TEST_P(PassThroughKernel, LooksAtTheLocationInStraightThroughOnly) {
  const auto tensor = context_.floats({1}, LayoutType::C, {1.0f});
  tensor->shape.location = LocationType::MetalBuffer;
  const int verdict = name() == "Straight_Through_Fallback_M1" ? -2 : 0;
  EXPECT_EQ(kernel_->CheckInputs({tensor}), verdict);
  EXPECT_EQ(kernel_->CheckOutputs({tensor}), verdict);
}

INSTANTIATE_TEST_SUITE_P(Rows, PassThroughKernel, testing::ValuesIn(kernel::pass_through_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test
