#include "qrt_core/kernel/layout/layout_functions.h"

#include <gtest/gtest.h>

#include <ostream>

#include "qrt_core/utility/build_options.h"
#include "tests/kernel/layout/moves.h"
#include "tests/support/edge_sizes.h"
#include "tests/support/kernels.h"

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;
using runtime::TensorShape;

using TensorPointer = std::shared_ptr<TensorCPU>;

struct Helper {
  const char* name;
  TensorPointer (*function)(TensorPointer, std::shared_ptr<DeviceCPU>);
  LayoutType source;
  LayoutType target;  // the code that the result carries
  uint32_t block;
  bool packs;
  bool any_type;
};

void PrintTo(const Helper& helper, std::ostream* stream) { *stream << helper.name; }

#define PORTABLE(Name) #Name, kernel::Name
#define VECTOR(Name) #Name, kernel::functional::Name

const Helper helpers[] = {
    {PORTABLE(Function_Tensor_C4HW4_To_CHW_Fallback), LayoutType::C4HW4, LayoutType::CHW, 4, false,
     true},
    {PORTABLE(Function_Tensor_C8HW8_To_CHW_Fallback), LayoutType::C8HW8, LayoutType::CHW, 8, false,
     true},
    {PORTABLE(Function_Tensor_CHW_To_C4HW4_Fallback), LayoutType::CHW, LayoutType::C4HW4, 4, true,
     true},
#if QRT_WITH_SSE
    {VECTOR(Function_Tensor_C4HW4_To_CHW_SSE), LayoutType::C4HW4, LayoutType::CHW, 4, false, false},
    {VECTOR(Function_Tensor_C8HW8_To_CHW_SSE), LayoutType::C8HW8, LayoutType::CHW, 8, false, false},
    {VECTOR(Function_Tensor_CHW_To_C4HW4_SSE), LayoutType::CHW, LayoutType::C4HW4, 4, true, false},
#endif
#if QRT_WITH_AVX
    {VECTOR(Function_Tensor_C8HW8_To_CHW_AVX), LayoutType::C8HW8, LayoutType::CHW, 8, false, false},
    {VECTOR(Function_Tensor_CHW_To_C8HW8_AVX), LayoutType::CHW, LayoutType::C4HW4, 8, true, false},
#endif
};

class LayoutFunctionTest : public testing::TestWithParam<Helper> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam().name); }

  TensorPointer run(const TensorPointer& input) {
    return GetParam().function(input, context_.device());
  }

  /// The side that is read and the side that is written, of so many channels.
  BlockedDims source(uint32_t channels, uint32_t height, uint32_t width) const {
    return {channels, height, width, GetParam().packs ? 1 : GetParam().block};
  }
  BlockedDims target(uint32_t channels, uint32_t height, uint32_t width) const {
    return {channels, height, width, GetParam().packs ? GetParam().block : 1};
  }

  TestContext context_;
};

INSTANTIATE_TEST_SUITE_P(All, LayoutFunctionTest, testing::ValuesIn(helpers),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(LayoutFunctionTest, MovesEverySize) {
  const uint32_t step = GetParam().packs ? 1 : GetParam().block;
  for (uint32_t channels = 0; channels <= 24; channels += step) {
    for (const size_t width : edge_sizes({4, 8})) {
      SCOPED_TRACE(std::to_string(channels) + " channels of 2 x " + std::to_string(width));
      const BlockedDims from = source(channels, 2, static_cast<uint32_t>(width));
      const BlockedDims to = target(channels, 2, static_cast<uint32_t>(width));
      const std::vector<float> numbers = distinct_floats(channels * from.pixels());
      const auto input = context_.external_floats(from.dims(), GetParam().source, numbers);
      const TensorPointer output = run(input);
      ASSERT_NE(output, nullptr);
      EXPECT_EQ(output->shape, TensorShape(to.dims(), DataType::FLOAT32, GetParam().target));
      expect_same_bits(rearranged(numbers, from, to), values_of(*output));
    }
  }
}

TEST_P(LayoutFunctionTest, KeepsTheExtraOfBlocksOnly) {
  const BlockedDims from = source(8, 1, 3);
  const auto input =
      context_.device()->CreateTensor(TensorShape(from.dims(), DataType::FLOAT32, GetParam().source,
                                                  LocationType::MainMemory, TensorShape::Extra(10)),
                                      nullptr);
  EXPECT_EQ(run(input)->shape.extra.step_size, GetParam().packs ? 0 : 10);
}

TEST_P(LayoutFunctionTest, AnotherLayoutOrLocationGivesNullWithoutAMessage) {
  const std::vector<uint32_t> dims = source(8, 2, 2).dims();
  const LayoutType other =
      GetParam().source == LayoutType::C8HW8 ? LayoutType::C4HW4 : LayoutType::C8HW8;
  EXPECT_EQ(run(blank(context_, dims, other)), nullptr);
  EXPECT_EQ(run(blank(context_, dims, LayoutType::FLEXIABLE)), nullptr);
  EXPECT_EQ(
      run(blank(context_, dims, GetParam().source, DataType::FLOAT32, LocationType::MetalBuffer)),
      nullptr);
  EXPECT_EQ(run(nullptr), nullptr);
}

TEST_P(LayoutFunctionTest, DimsThatDoNotFitTheLayoutThrow) {
  const auto failure = [&](std::vector<uint32_t> dims) {
    const auto input = blank(context_, std::move(dims), GetParam().source);
    return failure_of([&] { run(input); });
  };
  EXPECT_NE(failure({8, 2}).find(GetParam().name), std::string::npos);
  EXPECT_NE(failure({8, 2, 2, 3}), "");
  EXPECT_NE(failure({}), "");
  const auto good = blank(context_, source(8, 1, 1).dims(), GetParam().source);
  EXPECT_NE(failure_of([&] { GetParam().function(good, nullptr); }), "");
}

TEST_P(LayoutFunctionTest, PortableFormsTakeAnyDataTypeAndVectorFormsFloatsOnly) {
  for (uint32_t code = 0; code <= 7; ++code) {
    const auto type = static_cast<DataType>(code);
    const uint32_t size = runtime::ElementSize(type);
    const BlockedDims from = source(16, 2, 3);
    const BlockedDims to = target(16, 2, 3);
    const auto input = counting_tensor(context_, TensorShape(from.dims(), type, GetParam().source));
    if (!GetParam().any_type && size != 4) {
      EXPECT_NE(failure_of([&] { run(input); }), "") << code;
      continue;
    }
    const TensorPointer output = run(input);
    ASSERT_NE(output, nullptr);
    EXPECT_EQ(output->shape, TensorShape(to.dims(), type, GetParam().target));
    const std::vector<unsigned char> before = bytes_of(*input);
    const std::vector<unsigned char> after = bytes_of(*output);
    for (size_t c = 0; c < 16; ++c) {
      for (size_t pixel = 0; pixel < 6; ++pixel) {
        for (size_t byte = 0; byte < size; ++byte) {
          ASSERT_EQ(after[to.place(c, pixel / 3, pixel % 3) * size + byte],
                    before[from.place(c, pixel / 3, pixel % 3) * size + byte]);
        }
      }
    }
  }
}

TEST_P(LayoutFunctionTest, TheResultComesFromTheDeviceThatWasGiven) {
  TestContext other;
  const auto input = counting_tensor(
      context_, TensorShape(source(8, 2, 2).dims(), DataType::FLOAT32, GetParam().source));
  const size_t before = context_.pool().allocations();
  const TensorPointer output = GetParam().function(input, other.device());
  EXPECT_EQ(output->device, other.device().get());
  EXPECT_EQ(context_.pool().allocations(), before);
  EXPECT_EQ(other.pool().blocks_in_use(), 1u);
}

TEST(LayoutFunctionEdges, SixChannelsGetTwoLanesOfZeros) {
  TestContext context;
  const auto input = context.floats({6, 2, 3}, LayoutType::CHW, distinct_floats(36));
  const auto output = kernel::Function_Tensor_CHW_To_C4HW4_Fallback(input, context.device());
  ASSERT_NE(output, nullptr);
  EXPECT_EQ(output->shape.dims, (std::vector<uint32_t>{2, 2, 3, 4}));
  for (uint32_t h = 0; h < 2; ++h) {
    for (uint32_t w = 0; w < 3; ++w) {
      for (uint32_t lane = 2; lane < 4; ++lane) {
        EXPECT_EQ(bits_of(*static_cast<const float*>(output->Locate4D(1, h, w, lane))), 0u);
      }
    }
  }
}

TEST(LayoutFunctionEdges, APlanarTensorIsNoC4HW4Tensor) {
  TestContext context;
  const auto planar = blank(context, {8, 2, 2}, LayoutType::CHW);
  EXPECT_EQ(kernel::Function_Tensor_C4HW4_To_CHW_Fallback(planar, context.device()), nullptr);
}

#if QRT_WITH_AVX

TEST(LayoutFunctionEdges, BlocksOfEightAreLabelledC4HW4) {
  QRT_SKIP_WHERE_MISSING("Function_Tensor_CHW_To_C8HW8_AVX");
  TestContext context;
  const auto input = context.floats({9, 1, 3}, LayoutType::CHW, distinct_floats(27));
  const auto output = kernel::functional::Function_Tensor_CHW_To_C8HW8_AVX(input, context.device());
  ASSERT_NE(output, nullptr);
  EXPECT_EQ(output->shape.dims, (std::vector<uint32_t>{2, 1, 3, 8}));
  EXPECT_EQ(static_cast<uint32_t>(output->shape.layout), 2u);
}

#endif

}  // namespace
}  // namespace marlo::test
