#include "qrt_core/kernel/layout/layout_transform.h"

#include <gtest/gtest.h>

#include <map>
#include <ostream>

#include "qrt_core/runtime/model/inference_param.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "tests/kernel/layout/moves.h"
#include "tests/support/edge_sizes.h"
#include "tests/support/kernels.h"

namespace marlo::kernel {

// How GoogleTest prints the parameter of a test.
void PrintTo(const LayoutTransformRow* row, std::ostream* stream) { *stream << row->name; }

}  // namespace marlo::kernel

namespace marlo::test {
namespace {

using kernel::LayoutTransformRow;
using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::Tensor;
using runtime::TensorCPU;
using runtime::TensorShape;

using Function = void (*)(std::shared_ptr<TensorCPU>, std::shared_ptr<TensorCPU>);

Function function_of(const std::string& name) {
#define ENTRY(Name, row) {#Name, kernel::functional::Name},
  static const std::map<std::string, Function> functions = {
#if QRT_WITH_SSE
    QRT_LAYOUT_TRANSFORM_KERNELS_SSE(ENTRY)
#endif
#if QRT_WITH_AVX
        QRT_LAYOUT_TRANSFORM_KERNELS_AVX(ENTRY)
#endif
  };
#undef ENTRY
  return functions.at(name);
}

/// `TransformTester(row).channels(16).size(3, 5).test()` runs kernel and function on one size.
class TransformTester {
 public:
  explicit TransformTester(const LayoutTransformRow& row) : row_(row) {}

  TransformTester& channels(uint32_t count) {
    channels_ = count;
    return *this;
  }

  TransformTester& size(uint32_t height, uint32_t width) {
    height_ = height;
    width_ = width;
    return *this;
  }

  void test() {
    const BlockedDims from{channels_, height_, width_, row_.source.block};
    const BlockedDims to{channels_, height_, width_, row_.target.block};
    SCOPED_TRACE(std::string("TransformTester(") + row_.name + ").channels(" +
                 std::to_string(channels_) + ").size(" + std::to_string(height_) + ", " +
                 std::to_string(width_) + ").test()");
    const std::vector<float> numbers = distinct_floats(channels_ * from.pixels());
    const std::vector<float> expected = rearranged(numbers, from, to);

    TestContext context;
    const auto input = context.floats(from.dims(), row_.source.layout, numbers);
    const auto kernel = make_kernel(row_.name);
    ASSERT_EQ(kernel->CheckInputs({input}), 0);
    const auto output = output_of(*kernel, input, context);
    ASSERT_NE(output, nullptr);
    EXPECT_EQ(output->shape, TensorShape(to.dims(), DataType::FLOAT32, row_.target.layout));
    EXPECT_EQ(kernel->CheckOutputs({output}), 0);
    expect_same_bits(expected, values_of(*output));

    const auto unaligned_input = context.external_floats(from.dims(), row_.source.layout, numbers);
    const auto unaligned_output = context.external_floats(
        to.dims(), row_.target.layout, std::vector<float>(expected.size(), kNaN));
    function_of(row_.name)(unaligned_input, unaligned_output);
    expect_same_bits(expected, values_of(*unaligned_output));
    expect_same_bits(numbers, values_of(*unaligned_input));
  }

 private:
  const LayoutTransformRow& row_;
  uint32_t channels_ = 8;
  uint32_t height_ = 1;
  uint32_t width_ = 1;
};

class LayoutTransformTest : public testing::TestWithParam<const LayoutTransformRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  const LayoutTransformRow& row() const { return *GetParam(); }
  std::shared_ptr<IKernel> kernel() const { return make_kernel(row().name); }
};

std::string name_of(const testing::TestParamInfo<const LayoutTransformRow*>& info) {
  return info.param->name;
}

// The SSE kernels may be left out of a build, so the list may be empty.
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(LayoutTransformTest);
INSTANTIATE_TEST_SUITE_P(All, LayoutTransformTest, testing::ValuesIn(kernel::layout_transform_rows),
                         name_of);

TEST_P(LayoutTransformTest, MovesPlanesOfEverySize) {
  for (const size_t width : edge_sizes({4, 8})) {
    for (const uint32_t height : {1u, 2u, 3u}) {
      TransformTester(row()).channels(16).size(height, static_cast<uint32_t>(width)).test();
    }
  }
}

TEST_P(LayoutTransformTest, MovesAnyNumberOfBlocks) {
  for (const uint32_t channels : {0u, 8u, 24u, 40u}) {
    TransformTester(row()).channels(channels).size(5, 7).test();
  }
}

TEST_P(LayoutTransformTest, APlaneOfOneTwoOrThreePixelsTakesTheScalarPath) {
  for (const uint32_t pixels : {1u, 2u, 3u}) {
    TransformTester(row()).channels(8).size(1, pixels).test();
    TransformTester(row()).channels(8).size(pixels, 1).test();
  }
}

TEST_P(LayoutTransformTest, MovesPlanesOfARealNetwork) {
  TransformTester(row()).channels(64).size(56, 56).test();
  TransformTester(row()).channels(32).size(17, 31).test();
}

TEST_P(LayoutTransformTest, ThereAndBackGivesTheSameBytes) {
  for (const LayoutTransformRow* back : kernel::layout_transform_rows) {
    const bool inverse =
        back->source.layout == row().target.layout && back->target.layout == row().source.layout;
    if (!inverse || !why_not_here(back->name).empty()) continue;
    SCOPED_TRACE(back->name);
    const BlockedDims dims{24, 3, 13, row().source.block};
    TestContext context;
    const std::vector<float> numbers = distinct_floats(24 * 3 * 13);
    const auto input = context.floats(dims.dims(), row().source.layout, numbers);
    const auto there = output_of(*kernel(), input, context);
    const auto again = output_of(*make_kernel(back->name), there, context);
    EXPECT_EQ(again->shape, input->shape);
    expect_same_bits(numbers, values_of(*again));
  }
}

TEST_P(LayoutTransformTest, ConfiguresWithoutDescriptionAndParameterOnly) {
  const auto some_info = std::make_shared<runtime::LayerInfo>();
  const auto some_param = std::make_shared<runtime::InferenceParamConv2DQuant>();
  const auto kernel = this->kernel();
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), 0);
  EXPECT_EQ(kernel->CheckConfig(some_info, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, some_param), -1);
  EXPECT_TRUE(kernel->Config(nullptr, nullptr, nullptr));
  EXPECT_TRUE(kernel->IsConfigured());
  EXPECT_FALSE(kernel->Config(nullptr, some_param, nullptr));
  EXPECT_FALSE(kernel->IsConfigured());
  EXPECT_FALSE(kernel->Config(some_info, nullptr, nullptr));
  EXPECT_EQ(kernel->ResetState(), -4);
}

TEST_P(LayoutTransformTest, InfersAShapePerInput) {
  const BlockedDims from{16, 2, 3, row().source.block};
  const BlockedDims to{16, 2, 3, row().target.block};
  const TensorShape first(from.dims(), DataType::INT16, row().source.layout,
                          LocationType::MetalBuffer, TensorShape::Extra(9));
  const TensorShape second(BlockedDims{8, 1, 1, row().source.block}.dims(), DataType::FLOAT32,
                           row().source.layout);
  const auto shapes = kernel()->InferOutputShapes({first, second});
  ASSERT_EQ(shapes.size(), 2u);
  EXPECT_EQ(shapes[0], TensorShape(to.dims(), DataType::INT16, row().target.layout,
                                   LocationType::MetalBuffer, TensorShape::Extra(9)));
  EXPECT_EQ(shapes[1], TensorShape(BlockedDims{8, 1, 1, row().target.block}.dims(),
                                   DataType::FLOAT32, row().target.layout));
  EXPECT_TRUE(kernel()->InferOutputShapes({}).empty());
}

TEST_P(LayoutTransformTest, RunsAnyNumberOfInputsAndAppends) {
  TestContext context;
  const BlockedDims small{8, 1, 2, row().source.block};
  const BlockedDims large{16, 3, 3, row().source.block};
  const auto a = context.floats(small.dims(), row().source.layout, distinct_floats(16));
  const auto b = context.floats(large.dims(), row().source.layout, distinct_floats(144));
  IKernel::Tensors outputs{a};
  EXPECT_EQ(kernel()->Forward({a, b}, outputs, context), 0);
  ASSERT_EQ(outputs.size(), 3u);
  EXPECT_EQ(outputs[0], a);
  EXPECT_EQ(outputs[1]->shape.dims, (BlockedDims{8, 1, 2, row().target.block}.dims()));
  EXPECT_EQ(outputs[2]->shape.dims, (BlockedDims{16, 3, 3, row().target.block}.dims()));

  IKernel::Tensors none;
  EXPECT_EQ(kernel()->Forward({}, none, context), 0);
  EXPECT_TRUE(none.empty());
}

TEST_P(LayoutTransformTest, ChecksOnAnEmptyVectorGiveZero) {
  EXPECT_EQ(kernel()->CheckInputs({}), 0);
  EXPECT_EQ(kernel()->CheckOutputs({}), 0);
}

TEST_P(LayoutTransformTest, ChecksTestEveryTensor) {
  TestContext context;
  const BlockedDims from{8, 2, 2, row().source.block};
  const BlockedDims to{8, 2, 2, row().target.block};
  const auto check = [&](LayoutType layout, const BlockedDims& dims, bool inputs) {
    const auto verdict = [&](const std::shared_ptr<Tensor>& tensor) {
      const auto good = blank(context, dims.dims(), layout);
      const IKernel::Tensors tensors{good, tensor};
      return inputs ? kernel()->CheckInputs(tensors) : kernel()->CheckOutputs(tensors);
    };
    EXPECT_EQ(verdict(blank(context, dims.dims(), layout)), 0);
    EXPECT_EQ(verdict(nullptr), -2);
    EXPECT_EQ(verdict(blank(context, dims.dims(), layout, DataType::FLOAT16)), -2);
    EXPECT_EQ(verdict(blank(context, dims.dims(), LayoutType::HWC)), -2);
    EXPECT_EQ(
        verdict(blank(context, dims.dims(), layout, DataType::FLOAT32, LocationType::OpenGLImage)),
        -2);
  };
  check(row().source.layout, from, true);
  check(row().target.layout, to, false);
}

TEST_P(LayoutTransformTest, RefusesWhatItWouldReadBeyond) {
  TestContext context;
  IKernel::Tensors outputs;
  const auto refused = [&](const std::shared_ptr<Tensor>& tensor) {
    const std::string text = failure_of([&] { kernel()->Forward({tensor}, outputs, context); });
    return text.find(row().name) != std::string::npos;
  };
  const LayoutType layout = row().source.layout;
  EXPECT_TRUE(refused(nullptr));
  EXPECT_TRUE(refused(blank(context, {8, 2}, layout)));
  EXPECT_TRUE(refused(blank(context, {8, 2, 2, 3}, layout)));
  EXPECT_TRUE(refused(blank(context, {}, layout)));
  EXPECT_TRUE(refused(
      blank(context, BlockedDims{8, 2, 2, row().source.block}.dims(), layout, DataType::FLOAT16)));
  EXPECT_TRUE(outputs.empty());

  const auto good = blank(context, BlockedDims{8, 2, 2, row().source.block}.dims(), layout);
  EXPECT_NE(failure_of([&] { kernel()->Forward({good}, outputs, nullptr); }), "");
}

TEST_P(LayoutTransformTest, TheFunctionRefusesTensorsThatDoNotFit) {
  TestContext context;
  const Function function = function_of(row().name);
  const auto input = [&](uint32_t channels, uint32_t width) {
    return blank(context, BlockedDims{channels, 2, width, row().source.block}.dims(),
                 row().source.layout);
  };
  const auto output = [&](uint32_t channels, uint32_t width) {
    return blank(context, BlockedDims{channels, 2, width, row().target.block}.dims(),
                 row().target.layout);
  };
  const bool packing = row().target.block > row().source.block;
  EXPECT_NE(failure_of([&] { function(input(8, 3), output(8, 4)); }), "");
  EXPECT_NE(failure_of([&] {
              function(packing ? input(8, 3) : input(16, 3),
                       packing ? output(16, 3) : output(8, 3));
            }),
            "");
  EXPECT_NE(failure_of([&] { function(nullptr, output(8, 3)); }), "");
  EXPECT_NE(failure_of([&] { function(input(8, 3), nullptr); }), "");
  EXPECT_NE(failure_of([&] { function(input(8, 3), input(8, 3)); }), "");
}

#if QRT_WITH_SSE

TEST(LayoutTransformEdges, ChannelFiveOfEightStandsInBlockOne) {
  TestContext context;
  const auto input = context.floats({8, 2, 3}, LayoutType::CHW, distinct_floats(48));
  const auto output = std::static_pointer_cast<TensorCPU>(output_of(
      *make_kernel("LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2"), input, context));
  EXPECT_EQ(output->shape.dims, (std::vector<uint32_t>{2, 2, 3, 4}));
  const uint32_t expected = bits_of(*static_cast<const float*>(input->Locate3D(5, 1, 2)));
  EXPECT_EQ(bits_of(*static_cast<const float*>(output->Locate4D(1, 1, 2, 1))), expected);
  EXPECT_EQ(bits_of(values_of(*output)[((1 * 2 + 1) * 3 + 2) * 4 + 1]), expected);
}

TEST(LayoutTransformEdges, C4HW4ToC8HW8AndBackGivesTheSameBytes) {
  TestContext context;
  const auto input = context.floats({4, 3, 5, 4}, LayoutType::C4HW4, distinct_floats(240));
  const auto there = output_of(
      *make_kernel("LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1"), input, context);
  EXPECT_EQ(there->shape.dims, (std::vector<uint32_t>{2, 3, 5, 8}));
  const auto back = output_of(
      *make_kernel("LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1"), there, context);
  EXPECT_EQ(bytes_of(*back), bytes_of(*input));
}

TEST(LayoutTransformEdges, CHWToC4HW4AndBackThroughTheKernelsGivesTheSameBytes) {
  TestContext context;
  for (const char* name : {"LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1",
                           "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2"}) {
    const auto input = context.floats({12, 5, 7}, LayoutType::CHW, distinct_floats(420));
    const auto there = output_of(*make_kernel(name), input, context);
    const auto back = output_of(
        *make_kernel("LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1"), there, context);
    EXPECT_EQ(bytes_of(*back), bytes_of(*input)) << name;
  }
}

TEST(LayoutTransformEdges, CheckInputsRefusesSixChannelsForC4HW4) {
  TestContext context;
  const auto six = blank(context, {6, 2, 2}, LayoutType::CHW);
  for (const char* name : {"LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1",
                           "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2"}) {
    EXPECT_EQ(make_kernel(name)->CheckInputs({six}), -2);
  }
}

// What dims[0] has to be a multiple of: each kernel's inputs and outputs.
TEST(LayoutTransformEdges, ChannelTestsAreSharedBetweenTheDirections) {
  const std::map<std::string, std::pair<uint32_t, uint32_t>> multiples = {
      {"LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1", {4, 1}},
      {"LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2", {4, 1}},
      {"LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1", {1, 1}},
      {"LayoutTransform_MainMemory_CHW_Float_To_C8HW8_SSE_M1", {8, 1}},
      {"LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M1", {1, 8}},
      {"LayoutTransform_MainMemory_C8HW8_Float_To_CHW_SSE_M2", {1, 8}},
      {"LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1", {2, 1}},
      {"LayoutTransform_MainMemory_C8HW8_Float_To_C4HW4_SSE_M1", {1, 2}},
      {"LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1", {8, 1}},
      {"LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M2", {8, 1}},
      {"LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1", {1, 8}},
      {"LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M2", {1, 8}},
  };
  TestContext context;
  for (const LayoutTransformRow* row : kernel::layout_transform_rows) {
    const auto& [of_inputs, of_outputs] = multiples.at(row->name);
    const auto kernel = make_kernel(row->name);
    for (uint32_t first = 1; first <= 16; ++first) {
      const auto tensor = [&](const kernel::ChannelBlocks& side) {
        return blank(context, BlockedDims{first * side.block, 2, 2, side.block}.dims(),
                     side.layout);
      };
      SCOPED_TRACE(std::string(row->name) + ", dims[0] = " + std::to_string(first));
      EXPECT_EQ(kernel->CheckInputs({tensor(row->source)}), first % of_inputs == 0 ? 0 : -2);
      EXPECT_EQ(kernel->CheckOutputs({tensor(row->target)}), first % of_outputs == 0 ? 0 : -2);
    }
  }
}

// Forward doesn't run the checks: channels beyond the last whole block are left behind.
TEST(LayoutTransformEdges, ForwardLeavesChannelsBeyondTheLastBlock) {
  TestContext context;
  const std::vector<float> numbers = distinct_floats(6 * 5);
  const auto input = context.floats({6, 1, 5}, LayoutType::CHW, numbers);
  const auto output = output_of(
      *make_kernel("LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M2"), input, context);
  EXPECT_EQ(output->shape.dims, (std::vector<uint32_t>{1, 1, 5, 4}));
  expect_same_bits(rearranged(numbers, {4, 1, 5, 1}, {4, 1, 5, 4}), values_of(*output));

  const std::vector<float> blocks = distinct_floats(3 * 5 * 4);
  const auto odd = context.floats({3, 1, 5, 4}, LayoutType::C4HW4, blocks);
  const auto joined = output_of(
      *make_kernel("LayoutTransform_MainMemory_C4HW4_Float_To_C8HW8_SSE_M1"), odd, context);
  EXPECT_EQ(joined->shape.dims, (std::vector<uint32_t>{1, 1, 5, 8}));
  expect_same_bits(rearranged(blocks, {8, 1, 5, 4}, {8, 1, 5, 8}), values_of(*joined));
}

#endif

}  // namespace
}  // namespace marlo::test
