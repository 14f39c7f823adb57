#include "qrt_core/kernel/layout/unsqueeze.h"

#include <gtest/gtest.h>

#include "qrt_core/runtime/model/inference_param.h"
#include "qrt_core/runtime/model/shape_info.h"
#include "tests/kernel/layout/moves.h"
#include "tests/support/kernels.h"

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorShape;
using runtime::TensorUnSqueezeInfo;

using Dims = std::vector<uint32_t>;

class UnSqueezeTest : public testing::Test {
 protected:
  static std::shared_ptr<TensorUnSqueezeInfo> description(int16_t dim) {
    auto info = std::make_shared<TensorUnSqueezeInfo>();
    info->dim = dim;
    return info;
  }

  std::shared_ptr<IKernel> configured(int16_t dim) {
    auto kernel = make_kernel("UnSqueeze_Fallback_M1");
    EXPECT_TRUE(kernel->Config(description(dim), nullptr, context_));
    return kernel;
  }

  Dims inferred(int16_t dim, Dims dims) {
    const TensorShape shape(std::move(dims), DataType::FLOAT32, LayoutType::CL);
    return configured(dim)->InferOutputShapes({shape})[0].dims;
  }

  TestContext context_;
};

TEST_F(UnSqueezeTest, TakesItsDescriptionOnly) {
  const auto kernel = make_kernel("UnSqueeze_Fallback_M1");
  const auto param = std::make_shared<runtime::InferenceParamConv2DQuant>();
  EXPECT_EQ(kernel->CheckConfig(description(1), nullptr), 0);
  EXPECT_EQ(kernel->CheckConfig(description(1), param), -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::TensorSqueezeInfo>(), nullptr), -1);
  EXPECT_FALSE(kernel->Config(nullptr, nullptr, context_));
}

TEST_F(UnSqueezeTest, OneAndZeroInsertInFront) {
  EXPECT_EQ(inferred(1, {3, 4}), (Dims{1, 3, 4}));
  EXPECT_EQ(inferred(0, {3, 4}), (Dims{1, 3, 4}));
}

TEST_F(UnSqueezeTest, MinusOneAndThreeInsertBehindTwoDims) {
  EXPECT_EQ(inferred(-1, {3, 4}), (Dims{3, 4, 1}));
  EXPECT_EQ(inferred(3, {3, 4}), (Dims{3, 4, 1}));
}

TEST_F(UnSqueezeTest, FourOnTwoDimsThrows) {
  EXPECT_NE(failure_of([&] { inferred(4, {3, 4}); }), "");
  EXPECT_NE(failure_of([&] { inferred(32767, {3, 4}); }), "");
}

TEST_F(UnSqueezeTest, CountsFromBehindDownToTheFront) {
  EXPECT_EQ(inferred(2, {3, 4}), (Dims{3, 1, 4}));
  EXPECT_EQ(inferred(-2, {3, 4}), (Dims{3, 1, 4}));
  EXPECT_EQ(inferred(-3, {3, 4}), (Dims{1, 3, 4}));
  EXPECT_NE(failure_of([&] { inferred(-4, {3, 4}); }), "");
  EXPECT_NE(failure_of([&] { inferred(-32768, {3, 4}); }), "");
  EXPECT_EQ(inferred(1, {}), (Dims{1}));
  EXPECT_EQ(inferred(-1, {}), (Dims{1}));
  EXPECT_NE(failure_of([&] { inferred(2, {}); }), "");
}

TEST_F(UnSqueezeTest, KeepsLayoutTypeLocationExtraAndBytes) {
  for (const DataType type : {DataType::FLOAT32, DataType::INT16, DataType::UINT8}) {
    const auto input = counting_tensor(
        context_,
        TensorShape({3, 5}, type, LayoutType::CL, LocationType::MainMemory, TensorShape::Extra(9)));
    const auto output = output_of(*configured(2), input, context_);
    EXPECT_EQ(output->shape, TensorShape({3, 1, 5}, type, LayoutType::CL, LocationType::MainMemory,
                                         TensorShape::Extra(9)));
    EXPECT_NE(output->handle.cpu, input->handle.cpu);
    EXPECT_EQ(bytes_of(*output), bytes_of(*input));
  }
}

TEST_F(UnSqueezeTest, MissingInputsAndDevicesThrow) {
  IKernel::Tensors outputs;
  EXPECT_NE(failure_of([&] { configured(1)->Forward({}, outputs, context_); }), "");
  EXPECT_NE(failure_of([&] { configured(1)->InferOutputShapes({}); }), "");
  const auto input = context_.floats({2}, LayoutType::C, {1, 2});
  EXPECT_NE(failure_of([&] { configured(1)->Forward({input}, outputs, nullptr); }), "");
}

TEST_F(UnSqueezeTest, ChecksTestOneFloatOrInt16Tensor) {
  const auto kernel = configured(1);
  const auto both = [&](const IKernel::Tensors& tensors, int verdict) {
    EXPECT_EQ(kernel->CheckInputs(tensors), verdict);
    EXPECT_EQ(kernel->CheckOutputs(tensors), verdict);
  };
  const auto of = [&](DataType type, LocationType location = LocationType::MainMemory) {
    return blank(context_, {3, 4}, LayoutType::HWC, type, location);
  };
  both({of(DataType::FLOAT32)}, 0);
  both({of(DataType::INT16)}, 0);
  both({of(DataType::FLOAT16)}, -2);
  both({of(DataType::UINT8)}, -2);
  both({of(DataType::FLOAT32, LocationType::OpenGLSSBO)}, -2);
  both({}, -2);
  both({of(DataType::FLOAT32), of(DataType::FLOAT32)}, -2);
}

}  // namespace
}  // namespace marlo::test
