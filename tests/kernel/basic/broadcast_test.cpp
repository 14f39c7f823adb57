#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>

#include "qrt_core/kernel/basic/broadcast.h"
#include "qrt_core/kernel/basic/channel_multiply.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using runtime::BroadcastOperatorInfo;
using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorShape;
using Dims = std::vector<uint32_t>;

constexpr const char* kGeneral = "BroadcastOperator_Fallback_Float_M1";

std::shared_ptr<BroadcastOperatorInfo> operation(uint16_t op_type) {
  auto info = std::make_shared<BroadcastOperatorInfo>();
  info->op_type = op_type;
  return info;
}

size_t count_of(const Dims& dims) {
  size_t count = 1;
  for (const uint32_t size : dims) count *= size;
  return count;
}

struct Result {
  Dims dims;
  std::vector<float> values;
};

Result broadcast(uint16_t op_type, const Dims& a_dims, const std::vector<float>& a,
                 const Dims& b_dims, const std::vector<float>& b) {
  TestContext context;
  const auto kernel = make_kernel(kGeneral);
  EXPECT_TRUE(kernel->Config(operation(op_type), nullptr, context));
  const auto first = context.floats(a_dims, LayoutType::FLEXIABLE, a);
  const auto second = context.floats(b_dims, LayoutType::CHW, b);
  EXPECT_EQ(kernel->CheckInputs({first, second}), 0);
  IKernel::Tensors outputs;
  EXPECT_EQ(kernel->Forward({first, second}, outputs, context), 0);
  EXPECT_EQ(outputs.size(), 1u);
  EXPECT_TRUE(outputs[0]->shape == kernel->InferOutputShapes({first->shape, second->shape})[0]);
  EXPECT_EQ(outputs[0]->shape.layout, LayoutType::FLEXIABLE) << "not the layout of input 0";
  EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
  return {outputs[0]->shape.dims, values_of(*outputs[0])};
}

// The definition: the index of output element k on each axis, by division.
Result definition(const std::function<double(double, double)>& function, Dims a_dims,
                  const std::vector<float>& a, Dims b_dims, const std::vector<float>& b) {
  Result result;
  while (a_dims.size() < b_dims.size()) a_dims.insert(a_dims.begin(), 1);
  while (b_dims.size() < a_dims.size()) b_dims.insert(b_dims.begin(), 1);
  for (size_t i = 0; i < a_dims.size(); ++i) {
    result.dims.push_back(std::max(a_dims[i], b_dims[i]));
  }
  for (size_t k = 0; k < count_of(result.dims); ++k) {
    size_t rest = k;
    size_t a_stride = 1;
    size_t b_stride = 1;
    size_t a_index = 0;
    size_t b_index = 0;
    for (size_t i = result.dims.size(); i-- > 0;) {
      const size_t index = rest % result.dims[i];
      rest /= result.dims[i];
      if (a_dims[i] == result.dims[i]) a_index += index * a_stride;
      if (b_dims[i] == result.dims[i]) b_index += index * b_stride;
      a_stride *= a_dims[i];
      b_stride *= b_dims[i];
    }
    result.values.push_back(static_cast<float>(function(a[a_index], b[b_index])));
  }
  return result;
}

TEST(Broadcast, AgreesWithItsDefinitionForEveryOperatorAndRank) {
  const std::function<double(double, double)> functions[] = {
      [](double a, double b) { return a + b; },
      [](double a, double b) { return a - b; },
      [](double a, double b) { return a * b; },
      [](double a, double b) { return a / b; },
      [](double a, double b) { return std::max(a, b); },
      [](double a, double b) { return std::min(a, b); }};
  const std::pair<Dims, Dims> shapes[] = {{{2, 3}, {3}},
                                          {{3}, {2, 3}},
                                          {{2, 1}, {1, 3}},
                                          {{2, 3}, {2, 3}},
                                          {{1}, {4}},
                                          {{4}, {1}},
                                          {{}, {3}},
                                          {{}, {}},
                                          {{2, 3, 4}, {3, 1}},
                                          {{2, 1, 4}, {5, 1, 3, 1}},
                                          {{1, 1, 1, 2}, {3, 2, 2, 1}},
                                          {{2, 3, 2, 2, 3}, {3, 1, 2, 1}},
                                          {{0, 3}, {0, 3}},
                                          {{2, 0}, {1, 0}}};
  Random random(3);
  for (const auto& [a_dims, b_dims] : shapes) {
    const auto a = random.floats(count_of(a_dims));
    const auto b = random.floats(count_of(b_dims));
    for (uint16_t op_type = 0; op_type < 6; ++op_type) {
      const Result found = broadcast(op_type, a_dims, a, b_dims, b);
      const Result expected = definition(functions[op_type], a_dims, a, b_dims, b);
      EXPECT_EQ(found.dims, expected.dims);
      EXPECT_TRUE(same_bits(found.values, expected.values)) << "operator " << op_type;
    }
  }
}

TEST(Broadcast, ARowRepeatsOverATableOfRows) {
  const Result result = broadcast(1, {2, 3}, {1, 2, 3, 4, 5, 6}, {3}, {10, 20, 30});
  EXPECT_EQ(result.dims, (Dims{2, 3}));
  EXPECT_TRUE(same_bits(result.values, {-9, -18, -27, -6, -15, -24}));
}

TEST(Broadcast, AnExtremumWithANaNIsTheSecondOperand) {
  const std::vector<float> a{kNaN, 1, 0.0f, -0.0f};
  const std::vector<float> b{1, kNaN, -0.0f, 0.0f};
  EXPECT_TRUE(same_bits(broadcast(4, {4}, a, {4}, b).values, b));
  EXPECT_TRUE(same_bits(broadcast(5, {4}, a, {4}, b).values, b));
}

TEST(Broadcast, AnUnknownOperatorThrowsAndGrowsTheTable) {
  TestContext context;
  const uint16_t unknown = 4711;
  ASSERT_EQ(kernel::broadcast_functions.count(unknown), 0u);
  const size_t size = kernel::broadcast_functions.size();
  const auto kernel = make_kernel(kGeneral);
  EXPECT_EQ(kernel->CheckConfig(operation(unknown), nullptr), 0);
  EXPECT_TRUE(kernel->Config(operation(unknown), nullptr, context));
  const auto tensor = context.floats({1}, LayoutType::C, {1});
  IKernel::Tensors outputs;
  EXPECT_THROW(kernel->Forward({tensor, tensor}, outputs, context), std::bad_function_call);
  EXPECT_TRUE(outputs.empty());
  EXPECT_EQ(kernel::broadcast_functions.size(), size + 1);
  EXPECT_FALSE(kernel::broadcast_functions.at(unknown));
  const auto empty = context.floats({0}, LayoutType::C, {});
  EXPECT_EQ(kernel->Forward({empty, empty}, outputs, context), 0) << "there was nothing to call";
  kernel::broadcast_functions.erase(unknown);
}

TEST(Broadcast, RefusesToReadAnEmptyInput) {
  TestContext context;
  const LogCapture log;
  const auto kernel = make_kernel(kGeneral);
  EXPECT_TRUE(kernel->Config(operation(0), nullptr, context));
  const auto empty = context.floats({0, 3}, LayoutType::SC, {});
  const auto single = context.floats({1, 3}, LayoutType::SC, {1, 2, 3});
  EXPECT_EQ(kernel->CheckInputs({empty, single}), 0);
  IKernel::Tensors outputs;
  EXPECT_THAT(failure_of([&] {
                kernel->Forward({empty, single}, outputs, context);
              }),
              testing::HasSubstr("is empty"));
}

TEST(Broadcast, ChecksItsInputs) {
  TestContext context;
  const auto kernel = make_kernel(kGeneral);
  const auto tensor = [&](Dims dims, DataType type = DataType::FLOAT32,
                          LocationType location = LocationType::MainMemory, uint16_t step = 0) {
    return context.device()->CreateTensor(
        TensorShape(std::move(dims), type, LayoutType::CHW, location, TensorShape::Extra(step)),
        nullptr);
  };
  const auto good = tensor({2, 3});
  EXPECT_EQ(kernel->CheckInputs({good, tensor({1, 3})}), 0);
  EXPECT_EQ(kernel->CheckInputs({good, tensor({5, 2, 3})}), 0);
  EXPECT_EQ(kernel->CheckInputs({tensor({7, 5, 3}), tensor({1})}), 0);
  const auto image = tensor({2, 3}, DataType::FLOAT32, LocationType::OpenGLImage);
  EXPECT_EQ(kernel->CheckInputs({image, image}), 0) << "equal locations suffice";
  for (const IKernel::Tensors& tensors :
       {IKernel::Tensors{},
        {good},
        {good, nullptr},
        {good, good, good},
        {good, tensor({2, 2})},
        {good, tensor({3, 3})},
        {good, tensor({2})},
        {good, tensor({5, 4, 3})},
        {good, image},
        {good, tensor({2, 3}, DataType::FLOAT16)},
        {good, tensor({2, 3}, DataType::FLOAT32, LocationType::MainMemory, 1)}}) {
    EXPECT_EQ(kernel->CheckInputs(tensors), -2);
  }
  EXPECT_EQ(kernel->CheckOutputs({good}), 0);
  EXPECT_EQ(kernel->CheckOutputs({good, good}), -2);
  EXPECT_EQ(kernel->CheckOutputs({image}), -2);
}

TEST(Broadcast, RefusesOtherDescriptions) {
  TestContext context;
  const auto kernel = make_kernel(kGeneral);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(operation(0), std::make_shared<runtime::InferenceParam>()), -1);
  EXPECT_FALSE(
      kernel->Config(std::make_shared<runtime::ElementWiseOperatorInfo>(), nullptr, context));
  EXPECT_FALSE(kernel->IsConfigured());
}

#if QRT_WITH_AVX

using kernel::ChannelMultiplyRow;

class ChannelMultiplication : public testing::TestWithParam<const ChannelMultiplyRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(row().name); }
  const ChannelMultiplyRow& row() const { return *GetParam(); }
  TestContext context;
};

TEST_P(ChannelMultiplication, AgreesWithItsDefinitionInEitherOrder) {
  Random random(6);
  const uint32_t lanes = row().block;
  const auto kernel = make_kernel(row().name);
  EXPECT_TRUE(kernel->Config(operation(2), nullptr, context));
  for (const uint32_t blocks : {1u, 3u}) {
    for (const uint32_t width : {0u, 1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 13u}) {
      const Dims map_dims{blocks, 2, width, lanes};
      const auto factors = random.floats(size_t{blocks} * lanes);
      const auto map = random.floats(count_of(map_dims));
      std::vector<float> expected;
      for (size_t i = 0; i < map.size(); ++i) {
        const size_t block = i / (size_t{2} * width * lanes);
        expected.push_back(static_cast<float>(double{map[i]} * factors[block * lanes + i % lanes]));
      }
      const auto a = context.floats({blocks, 1, 1, lanes}, row().layout, factors);
      const auto b = context.external_floats(map_dims, row().layout, map);
      const IKernel::Tensors orders[] = {{a, b}, {b, a}};
      for (const IKernel::Tensors& inputs : orders) {
        if (width == 0) continue;
        EXPECT_EQ(kernel->CheckInputs(inputs), 0);
        IKernel::Tensors outputs;
        EXPECT_EQ(kernel->Forward(inputs, outputs, context), 0);
        EXPECT_TRUE(outputs[0]->shape == b->shape);
        EXPECT_TRUE(kernel->InferOutputShapes({inputs[0]->shape, inputs[1]->shape})[0] == b->shape);
        EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
        EXPECT_TRUE(same_bits(values_of(*outputs[0]), expected)) << width << " columns";
        context.pool().check();
      }
    }
  }
}

TEST_P(ChannelMultiplication, ConfiguresForOtherOperatorsAndMultipliesAllTheSame) {
  const auto kernel = make_kernel(row().name);
  for (const uint16_t op_type : std::initializer_list<uint16_t>{0, 1, 3, 5, 999}) {
    EXPECT_EQ(kernel->CheckConfig(operation(op_type), nullptr), -2);
    EXPECT_TRUE(kernel->Config(operation(op_type), nullptr, context));
    EXPECT_TRUE(kernel->IsConfigured());
    const Dims dims{1, 1, 1, row().block};
    const auto a = context.floats(dims, row().layout, std::vector<float>(row().block, 3));
    const auto b = context.floats(dims, row().layout, std::vector<float>(row().block, 5));
    IKernel::Tensors outputs;
    kernel->Forward({a, b}, outputs, context);
    EXPECT_TRUE(same_bits(values_of(*outputs[0]), std::vector<float>(row().block, 15)));
  }
  EXPECT_EQ(kernel->CheckConfig(operation(2), nullptr), 0);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(operation(2), std::make_shared<runtime::InferenceParam>()), -1);
  EXPECT_FALSE(
      kernel->Config(std::make_shared<runtime::ElementWiseOperatorInfo>(), nullptr, context));
}

TEST_P(ChannelMultiplication, ChecksHeightAndWidthSeparately) {
  const auto kernel = make_kernel(row().name);
  const auto tensor = [&](uint32_t height, uint32_t width) {
    return context.device()->CreateTensor(
        TensorShape({1, height, width, row().block}, DataType::FLOAT32, row().layout), nullptr);
  };
  const auto map = tensor(3, 5);
  EXPECT_EQ(kernel->CheckInputs({map, tensor(1, 1)}), 0);
  EXPECT_EQ(kernel->CheckInputs({tensor(3, 1), tensor(1, 5)}), 0);
  EXPECT_EQ(kernel->CheckInputs({tensor(0, 1), tensor(0, 1)}), 0);
  EXPECT_EQ(kernel->CheckInputs({map, map}), -2);
  EXPECT_EQ(kernel->CheckInputs({map, tensor(3, 1)}), -2);
  EXPECT_EQ(kernel->CheckInputs({map, tensor(1, 5)}), -2);
  EXPECT_EQ(kernel->CheckInputs({map, tensor(0, 1)}), -2);
  EXPECT_EQ(kernel->CheckInputs({map}), -2);
  const auto planar = context.floats({1, 1, 1, 1}, LayoutType::CHW, {1});
  EXPECT_EQ(kernel->CheckInputs({map, planar}), -2);
  EXPECT_EQ(kernel->CheckOutputs({planar}), -2);
  EXPECT_EQ(kernel->CheckOutputs({map, map}), -2);
}

TEST_P(ChannelMultiplication, RefusesInputsThatDoNotBelongTogether) {
  const LogCapture log;
  const auto kernel = make_kernel(row().name);
  EXPECT_TRUE(kernel->Config(operation(2), nullptr, context));
  const auto tensor = [&](uint32_t blocks, uint32_t height, uint32_t width, uint32_t lanes) {
    return context.device()->CreateTensor(
        TensorShape({blocks, height, width, lanes}, DataType::FLOAT32, row().layout), nullptr);
  };
  const uint32_t lanes = row().block;
  const std::pair<IKernel::Tensors, const char*> refused[] = {
      // Too few blocks in the vector, and in the map.
      {{tensor(3, 2, 2, lanes), tensor(1, 1, 1, lanes)}, "is no map"},
      {{tensor(3, 1, 1, lanes), tensor(1, 2, 2, lanes)}, "is no map"},
      // A map of height 1 that stands first counts as the vector.
      {{tensor(2, 1, 5, lanes), tensor(2, 1, 1, lanes)}, "input 1 is no map"},
      // Neither is the whole picture.
      {{tensor(2, 1, 5, lanes), tensor(2, 3, 1, lanes)}, "is no map"},
      {{tensor(2, 2, 2, lanes + 1), tensor(2, 1, 1, lanes + 1)}, "blocks of"},
      {{tensor(2, 2, 2, lanes)}, "at least 2 inputs"}};
  for (const auto& [inputs, text] : refused) {
    IKernel::Tensors outputs;
    EXPECT_THAT(failure_of([&, &tensors = inputs] { kernel->Forward(tensors, outputs, context); }),
                testing::HasSubstr(text));
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, ChannelMultiplication,
                         testing::ValuesIn(kernel::channel_multiply_rows),
                         [](const auto& row) { return std::string(row.param->name); });

#endif

}  // namespace
}  // namespace marlo::test
