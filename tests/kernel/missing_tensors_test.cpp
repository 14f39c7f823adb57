#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/kernel/kernels.h"
#include "qrt_core/runtime/model/layer_catalogue.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/test_context.h"

// What a pass makes of calls that aren't what its contract asks for, for every kernel.

namespace marlo::test {
namespace {

using runtime::Context;
using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::TensorShape;
using Tensors = IKernel::Tensors;

// A description of each class, most of them of a layer that some kernels take.
const std::vector<std::shared_ptr<runtime::LayerInfo>>& descriptions() {
  static const std::vector<std::shared_ptr<runtime::LayerInfo>> all = [] {
    std::vector<std::shared_ptr<runtime::LayerInfo>> infos = {nullptr};
    for (uint16_t code = 0; code < 100; ++code) {
      try {
        infos.push_back(runtime::MakeLayerInfo(code));
      } catch (const std::exception&) {
        continue;
      }
    }
    return infos;
  }();
  return all;
}

class AnyPass : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    QRT_SKIP_WHERE_MISSING(GetParam());
    configure();
  }

  // By the first default description that it takes; most kernels stay without, which is a case too.
  void configure() {
    for (const auto& info : descriptions()) {
      try {
        if (kernel_->Config(info, nullptr, context_)) return;
      } catch (const std::exception&) {
        continue;
      }
    }
  }

  std::shared_ptr<runtime::Tensor> tensor(LayoutType layout = LayoutType::CHW) {
    const std::vector<float> zeros(64, 0.0f);
    return context_->cpu->CreateTensor(TensorShape({8, 2, 4}, DataType::FLOAT32, layout),
                                       zeros.data());
  }

  // The text of the exception; "-" for none.
  std::string pass(const Tensors& inputs, Tensors& outputs, const std::shared_ptr<Context>& where) {
    try {
      kernel_->Forward(inputs, outputs, where);
    } catch (const std::exception& fault) {
      return fault.what();
    }
    return "-";
  }

  // A call is either carried out or refused; what is refused gives no output.
  void expect_answer(const Tensors& inputs, const std::shared_ptr<Context>& where) {
    Tensors outputs;
    const std::string fault = pass(inputs, outputs, where);
    EXPECT_FALSE(fault.empty());
    if (fault == "-") return;
    EXPECT_TRUE(outputs.empty()) << fault;
  }

  const LogCapture log_;
  const TestContext test_context_;
  const std::shared_ptr<Context> context_ = test_context_;
  const std::shared_ptr<IKernel> kernel_ = make_kernel(GetParam());
};

TEST_P(AnyPass, AnswersWithoutContextAndDevice) {
  for (const size_t count : {1u, 2u}) {
    const Tensors inputs(count, tensor());
    expect_answer(inputs, nullptr);
    expect_answer(inputs, std::make_shared<Context>());
  }
}

TEST_P(AnyPass, AnswersWithMissingAndNullTensors) {
  expect_answer({}, context_);
  expect_answer({nullptr}, context_);
  expect_answer({nullptr, nullptr}, context_);
  expect_answer({tensor(), nullptr}, context_);
  expect_answer({nullptr, tensor()}, context_);
}

TEST_P(AnyPass, AnswersWithTensorsToSpare) {
  for (const LayoutType layout : {LayoutType::CHW, LayoutType::C, LayoutType::FLEXIABLE}) {
    expect_answer(Tensors(3, tensor(layout)), context_);
    expect_answer(Tensors(70, tensor(layout)), context_);
  }
}

// What comes out of a pass into a vector of its own stands at the end of the one vector as well.
TEST_P(AnyPass, TakesOneVectorForInputsAndOutputs) {
  for (const size_t count : {1u, 2u}) {
    Tensors apart;
    const std::string expected = pass(Tensors(count, tensor()), apart, context_);
    Tensors both(count, tensor());
    const std::string found = pass(both, both, context_);
    if (GetParam() == "Transform_MainMemory_Permute_Fallback") continue;  // a test of its own
    EXPECT_EQ(found, expected);
    if (expected != "-" || apart.empty()) continue;
    ASSERT_GE(both.size(), apart.size());
    for (size_t i = 1; i <= apart.size(); ++i) {
      EXPECT_EQ(both[both.size() - i]->shape, apart[apart.size() - i]->shape);
    }
  }
}

std::vector<std::string> row_names() {
  std::vector<std::string> names;
  const auto append = [&](const kernel::KernelRow& row) { names.emplace_back(row.name); };
  kernel::for_each_row(append);
  kernel::for_each_extension_row(append);
  return names;
}

INSTANTIATE_TEST_SUITE_P(Rows, AnyPass, testing::ValuesIn(row_names()),
                         [](const auto& test) { return test.param; });

TEST(MissingTensors, AreNamed) {
  const LogCapture log;
  TestContext context;
  const auto fault = [&](const char* kernel, const Tensors& inputs) {
    return failure_of([&] {
      Tensors outputs;
      make_kernel(kernel)->Forward(inputs, outputs, context);
    });
  };
  const auto one = context.floats({1}, LayoutType::C, {1.0f});
  EXPECT_EQ(fault("ReLU_Fallback_Float_M1", {}),
            "[QRT]: ReLU_Fallback_Float_M1: expected at least 1 input, found 0\n");
  EXPECT_EQ(fault("ReLU_Fallback_Float_M1", {nullptr}),
            "[QRT]: ReLU_Fallback_Float_M1: input 0 is null\n");
  EXPECT_EQ(fault("Elementwise_Fallback_Float_M1", {one}),
            "[QRT]: Elementwise_Fallback_Float_M1: expected at least 2 inputs, found 1\n");
  EXPECT_EQ(fault("Concatenate_C_Fallback_CnHWn_M1", {one, nullptr}),
            "[QRT]: Concatenate_C_Fallback_CnHWn_M1: input 1 is null\n");
}

TEST(MissingTensors, ArePassedOnByKernelsThatHandTheirInputsOn) {
  const Tensors inputs = {nullptr};
  for (const char* name : {"Input_Fallback_M1", "Straight_Through_Fallback_M1"}) {
    Tensors outputs;
    EXPECT_EQ(make_kernel(name)->Forward(inputs, outputs, nullptr), 0);
    EXPECT_EQ(outputs, inputs);
  }
}

}  // namespace
}  // namespace marlo::test
