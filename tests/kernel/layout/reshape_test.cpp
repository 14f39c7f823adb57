#include "qrt_core/kernel/layout/reshape.h"

#include <gtest/gtest.h>

#include <ostream>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/model/inference_param.h"
#include "qrt_core/runtime/model/shape_info.h"
#include "tests/kernel/layout/moves.h"
#include "tests/support/kernels.h"

namespace marlo::kernel {

// How GoogleTest prints the parameter of a test.
void PrintTo(const ReshapeRow* row, std::ostream* stream) { *stream << row->name; }

}  // namespace marlo::kernel

namespace marlo::test {
namespace {

using kernel::ReshapeRow;
using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorReshapeInfo;
using runtime::TensorShape;

using Dims = std::vector<uint32_t>;

std::shared_ptr<TensorReshapeInfo> description(std::vector<int16_t> new_shape) {
  auto info = std::make_shared<TensorReshapeInfo>();
  info->new_shape = std::move(new_shape);
  return info;
}

class ReshapeTest : public testing::TestWithParam<const ReshapeRow*> {
 protected:
  std::shared_ptr<IKernel> configured(std::vector<int16_t> new_shape) {
    auto kernel = make_kernel(GetParam()->name);
    EXPECT_TRUE(kernel->Config(description(std::move(new_shape)), nullptr, context_));
    return kernel;
  }

  Dims inferred(std::vector<int16_t> new_shape, Dims dims) {
    const TensorShape shape(std::move(dims), DataType::FLOAT32, LayoutType::CHW);
    return configured(std::move(new_shape))->InferOutputShapes({shape})[0].dims;
  }

  int verdict_on_output(std::vector<int16_t> new_shape, Dims dims) {
    return configured(std::move(new_shape))
        ->CheckOutputs({blank(context_, std::move(dims), GetParam()->layout)});
  }

  bool is_free() const { return GetParam()->layout == LayoutType::FLEXIABLE; }

  bool copies() const { return GetParam()->input_use == runtime::InputUse::reads; }

  TestContext context_;
};

// Those of both sets.
std::vector<const ReshapeRow*> all_rows() {
  std::vector<const ReshapeRow*> rows(kernel::reshape_rows);
#if QRT_WITH_EXTENSIONS
  rows.insert(rows.end(), kernel::reshape_in_place_rows.begin(),
              kernel::reshape_in_place_rows.end());
#endif
  return rows;
}

INSTANTIATE_TEST_SUITE_P(All, ReshapeTest, testing::ValuesIn(all_rows()),
                         [](const auto& row) { return std::string(row.param->name); });

TEST_P(ReshapeTest, TakesReshapeDescriptionsOnly) {
  const auto kernel = make_kernel(GetParam()->name);
  const auto param = std::make_shared<runtime::InferenceParamConv2DQuant>();
  EXPECT_EQ(kernel->CheckConfig(description({1, 2}), nullptr), 0);
  EXPECT_EQ(kernel->CheckConfig(description({}), nullptr), 0);
  EXPECT_EQ(kernel->CheckConfig(description({1, 2}), param), -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::TensorExpandInfo>(), nullptr), -1);
  EXPECT_TRUE(kernel->Config(description({1, 2}), nullptr, context_));
  EXPECT_FALSE(kernel->Config(nullptr, nullptr, context_));
  EXPECT_FALSE(kernel->IsConfigured());
}

TEST_P(ReshapeTest, DropsTheBatchAndInfersWhatIsNotPositive) {
  EXPECT_EQ(inferred({1, 4, 6}, {2, 3, 4}), (Dims{4, 6}));
  EXPECT_EQ(inferred({1, 4, -1}, {2, 3, 4}), (Dims{4, 6}));
  EXPECT_EQ(inferred({1, 0, 4}, {2, 3, 4}), (Dims{6, 4}));
  EXPECT_EQ(inferred({1, -1}, {2, 3, 4}), (Dims{24}));
  EXPECT_EQ(inferred({1, -7, 2, 2}, {2, 3, 4}), (Dims{6, 2, 2}));
  EXPECT_EQ(inferred({1}, {1, 1, 1}), (Dims{}));
}

TEST_P(ReshapeTest, GivesItsLayoutAndKeepsTypeLocationAndExtra) {
  const TensorShape shape({2, 3, 4}, DataType::INT16, LayoutType::CHW, LocationType::MetalBuffer,
                          TensorShape::Extra(11));
  EXPECT_EQ(configured({1, 6, 4})->InferOutputShapes({shape})[0],
            TensorShape({6, 4}, DataType::INT16, GetParam()->layout, LocationType::MetalBuffer,
                        TensorShape::Extra(11)));
}

TEST_P(ReshapeTest, ABatchCountsAmongTheKnownEntriesUnlessItIsForbidden) {
  if (GetParam()->batch == kernel::BatchEntry::one) {
    const std::string text = failure_of([&] { inferred({2, -1}, {2, 3, 4}); });
    const std::string expected = std::string("[") + GetParam()->name + "] batch of new shape != 1";
    EXPECT_NE(text.find(expected), std::string::npos) << text;
    EXPECT_NE(failure_of([&] { inferred({-1, 6, 4}, {2, 3, 4}); }), "");
    EXPECT_NE(failure_of([&] { inferred({}, {2, 3, 4}); }), "");
    return;
  }
  EXPECT_EQ(inferred({2, -1}, {2, 3, 4}), (Dims{12}));
  EXPECT_EQ(inferred({-1, 6, 4}, {2, 3, 4}), (Dims{6, 4}));
}

TEST_P(ReshapeTest, LeavesTheBytesAsTheyStandWhateverTheLayout) {
  for (const LayoutType layout : {LayoutType::CHW, LayoutType::C4HW4, LayoutType::HWC}) {
    for (const DataType type : {DataType::FLOAT32, DataType::FLOAT16, DataType::UINT8}) {
      const auto input = counting_tensor(context_, TensorShape({1, 3, 5, 4}, type, layout));
      const auto bytes = bytes_of(*input);
      const auto output = output_of(*configured({1, -1, 4}), input, context_);
      EXPECT_EQ(output->shape, TensorShape({15, 4}, type, GetParam()->layout));
      EXPECT_EQ(output->handle.cpu != input->handle.cpu, copies());
      EXPECT_EQ(output != input, copies());
      EXPECT_EQ(bytes_of(*output), bytes);
      EXPECT_EQ(static_cast<runtime::TensorCPU&>(*output).strides, (Dims{4, 1}));
    }
  }
}

TEST_P(ReshapeTest, ASmallerShapeTakesTheFirstElements) {
  const std::vector<float> numbers = distinct_floats(24);
  const auto input = context_.floats({2, 3, 4}, LayoutType::CHW, numbers);
  const auto output = output_of(*configured({1, 3, 4}), input, context_);
  expect_same_bits(std::vector<float>(numbers.begin(), numbers.begin() + 12), values_of(*output));
}

TEST_P(ReshapeTest, ALargerShapeThrows) {
  const auto input = context_.floats({2, 3, 4}, LayoutType::CHW, distinct_floats(24));
  IKernel::Tensors outputs;
  for (const auto& new_shape :
       {std::vector<int16_t>{1, 25}, {1, -1, -1}, {1, 32767, 32767, 32767, 32767, 32767}}) {
    const std::string text =
        failure_of([&] { configured(new_shape)->Forward({input}, outputs, context_); });
    EXPECT_NE(text.find(GetParam()->name), std::string::npos) << text;
  }
  EXPECT_TRUE(outputs.empty());
  EXPECT_EQ(input->shape.dims, (Dims{2, 3, 4}));
}

TEST_P(ReshapeTest, AnEmptyTensorStaysEmpty) {
  const auto input = context_.floats({0, 3, 4}, LayoutType::CHW, {});
  EXPECT_EQ(output_of(*configured({1, -1, 4}), input, context_)->shape.dims, (Dims{0, 4}));
}

TEST_P(ReshapeTest, MissingInputsAndDevicesThrow) {
  IKernel::Tensors outputs;
  const auto kernel = configured({1, -1});
  EXPECT_NE(failure_of([&] { kernel->Forward({}, outputs, context_); }), "");
  EXPECT_NE(failure_of([&] { kernel->Forward({nullptr}, outputs, context_); }), "");
  EXPECT_NE(failure_of([&] { kernel->InferOutputShapes({}); }), "");
  const auto input = context_.floats({2}, LayoutType::C, {1, 2});
  // What makes no tensor needs no device.
  EXPECT_EQ(failure_of([&] { kernel->Forward({input}, outputs, nullptr); }) != "", copies());
}

TEST_P(ReshapeTest, ChecksThatTheElementsFitTheKnownEntries) {
  const auto kernel = configured({1, 4, -1});
  const auto of = [&](Dims dims, LocationType location = LocationType::MainMemory) {
    return kernel->CheckInputs(
        {blank(context_, std::move(dims), LayoutType::HWC, DataType::UINT8, location)});
  };
  EXPECT_EQ(of({2, 3, 4}), 0);
  EXPECT_EQ(of({4}), 0);
  EXPECT_EQ(of({3}), -2);
  EXPECT_EQ(of({2, 3}), -2);
  EXPECT_EQ(of({2, 3, 4}, LocationType::OpenGLSSBO), -2);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
  const auto good = blank(context_, {4}, LayoutType::C);
  EXPECT_EQ(kernel->CheckInputs({good, good}), -2);
  EXPECT_EQ(configured({1, 32767, 32767, 32767, 32767, 32767})->CheckInputs({good}), -2);
}

TEST_P(ReshapeTest, ChecksTheKnownEntriesOfAnOutput) {
  EXPECT_EQ(verdict_on_output({1, 4, -1}, {4, 6}), 0);
  EXPECT_EQ(verdict_on_output({1, 4, -1}, {4, 99}), 0);
  EXPECT_EQ(verdict_on_output({1, 4, -1}, {5, 6}), -2);
  EXPECT_EQ(verdict_on_output({1, 4, -1}, {4}), -2);
  EXPECT_EQ(verdict_on_output({1, 4, -1}, {1, 1, 4, 6}), -2);
  EXPECT_EQ(verdict_on_output({}, {}), is_free() ? -2 : 0);
}

// With the batch the entries stand one place further behind; its value isn't compared.
TEST_P(ReshapeTest, AcceptsAnOutputWithItsBatchUnlessFree) {
  EXPECT_EQ(verdict_on_output({1, 4, -1}, {1, 4, 6}), is_free() ? -2 : 0);
  EXPECT_EQ(verdict_on_output({1, 4, -1}, {7, 4, 6}), is_free() ? -2 : 0);
  EXPECT_EQ(verdict_on_output({1, 4, -1}, {4, 6, 1}), -2);
}

TEST(ReshapeEdges, SequenceWithABatchOfTwoThrowsWithItsMessage) {
  TestContext context;
  const auto kernel = make_kernel("Reshape_Fallback_To_SC_M1");
  ASSERT_TRUE(kernel->Config(description({2, 3, 4}), nullptr, context));
  const auto input = context.floats({2, 3, 4}, LayoutType::CHW, distinct_floats(24));
  IKernel::Tensors outputs;
  const std::string text = failure_of([&] { kernel->Forward({input}, outputs, context); });
  EXPECT_NE(text.find("[Reshape_Fallback_To_SC_M1] batch of new shape != 1"), std::string::npos)
      << text;
}

}  // namespace
}  // namespace marlo::test
