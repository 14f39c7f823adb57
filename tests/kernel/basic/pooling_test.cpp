#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <initializer_list>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/model/pooling_info.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/numbers.h"
#include "tests/support/pooling_tester.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using kernel::PoolingKind;
using kernel::PoolingRow;
using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorShape;

// A tester with the window that the row is made for, or 3 by 3 with stride 2.
PoolingTester tester_of(const PoolingRow& row) {
  const bool any = row.kernel == 0;
  return PoolingTester().kernel(any ? 3 : row.kernel).stride(any ? 2 : row.stride);
}

uint32_t window_of(const PoolingRow& row) { return row.kernel == 0 ? 3 : row.kernel; }
uint32_t stride_of(const PoolingRow& row) { return row.stride == 0 ? 2 : row.stride; }

struct Margins {
  int left, right, top, bottom;
};

class EveryPooling : public testing::TestWithParam<const PoolingRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(row().name); }
  const PoolingRow& row() const { return *GetParam(); }
};

TEST_P(EveryPooling, AgreesWithItsDefinitionAtTheEdgesOfRows) {
  const uint32_t window = window_of(row());
  const uint32_t stride = stride_of(row());
  for (const uint32_t outputs : {1u, 2u, 3u, 4u, 5u, 7u, 8u, 9u, 13u}) {
    for (uint32_t rest = 0; rest < stride; ++rest) {
      const uint32_t width = window + (outputs - 1) * stride + rest;
      tester_of(row()).planes(2).size(window + stride, width).test(row());
    }
  }
}

TEST_P(EveryPooling, AgreesWithItsDefinitionForEveryMargin) {
  const auto window = static_cast<int>(window_of(row()));
  const Margins all[] = {{1, 0, 0, 0},
                         {0, 1, 0, 0},
                         {0, 0, 1, 0},
                         {0, 0, 0, 1},
                         {1, 1, 1, 1},
                         {window - 1, window - 1, window - 1, window - 1},
                         {0, 2 * window, 0, 2 * window},
                         {2 * window + 1, 0, 2 * window + 1, 0}};
  for (const Margins& margins : all) {
    for (const bool count : {false, true}) {
      const auto tester = tester_of(row()).count_include_pad(count).padding(
          margins.left, margins.right, margins.top, margins.bottom);
      const auto size = static_cast<uint32_t>(window);
      PoolingTester(tester).planes(2).size(size, size).test(row());
      PoolingTester(tester).planes(1).size(size + 4, size + 3).test(row());
      PoolingTester(tester).planes(3).size(size + 1, size + 9).test(row());
    }
  }
}

TEST_P(EveryPooling, TakesAOnePixelPictureInsideItsMargin) {
  const int margin = static_cast<int>(window_of(row())) - 1;
  tester_of(row()).size(1, 1).padding(margin, margin, margin, margin).test(row());
  tester_of(row()).size(1, 1).padding(margin, 0, 0, margin).test(row());
  tester_of(row()).planes(3).size(1, 9).padding(0, margin, margin, 0).test(row());
}

TEST_P(EveryPooling, TakesAPictureWithoutPlanes) {
  tester_of(row()).planes(0).size(window_of(row()), window_of(row())).test(row());
}

TEST_P(EveryPooling, AcceptsItsWindowOnly) {
  const auto kernel = make_kernel(row().name);
  const int other = row().kernel == 0 ? 0 : -1;
  const uint32_t window = window_of(row());
  const uint32_t stride = stride_of(row());
  const auto verdict = [&](PoolingTester tester) {
    return kernel->CheckConfig(tester.description(row()), nullptr);
  };
  EXPECT_EQ(verdict(tester_of(row())), 0);
  EXPECT_EQ(verdict(tester_of(row()).kernel(window + 1, window)), other);
  EXPECT_EQ(verdict(tester_of(row()).kernel(window, window + 1)), other);
  EXPECT_EQ(verdict(tester_of(row()).stride(stride + 1, stride)), other);
  EXPECT_EQ(verdict(tester_of(row()).stride(stride, stride + 1)), other);
  EXPECT_EQ(verdict(tester_of(row()).padding(5, 4, 3, 2).dilation(7, 9).ceil_mode(true)), 0);
}

TEST_P(EveryPooling, RefusesOtherDescriptions) {
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const auto param = std::make_shared<runtime::InferenceParam>();
  const auto info = tester_of(row()).description(row());
  EXPECT_TRUE(kernel->Config(info, nullptr, context));
  EXPECT_EQ(kernel->CheckConfig(info, param), -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  std::shared_ptr<runtime::LayerInfo> wrong = std::make_shared<runtime::AvgPool2dInfo>();
  if (row().kind == PoolingKind::average) wrong = std::make_shared<runtime::MaxPool2dInfo>();
  EXPECT_EQ(kernel->CheckConfig(wrong, nullptr), -1);
  EXPECT_FALSE(kernel->Config(wrong, nullptr, context));
  EXPECT_FALSE(kernel->IsConfigured()) << "a second Config that fails leaves the kernel configured";
}

TEST_P(EveryPooling, TakesOneFloatTensorOfItsLayout) {
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const auto dims = tester_of(row()).planes(1).size(9, 9).dims(row());
  const auto tensor = [&](DataType type, LayoutType layout, LocationType location) {
    return context.device()->CreateTensor(TensorShape(dims, type, layout, location), nullptr);
  };
  const auto good = tensor(DataType::FLOAT32, row().layout, LocationType::MainMemory);
  const IKernel::Tensors refused[] = {
      {},
      {nullptr},
      {good, good},
      {tensor(DataType::FLOAT16, row().layout, LocationType::MainMemory)},
      {tensor(DataType::FLOAT32, LayoutType::HWC, LocationType::MainMemory)},
      {tensor(DataType::FLOAT32, row().layout, LocationType::OpenGLImage)}};
  EXPECT_EQ(kernel->CheckInputs({good}), 0);
  EXPECT_EQ(kernel->CheckOutputs({good}), 0);
  for (const IKernel::Tensors& tensors : refused) {
    EXPECT_EQ(kernel->CheckInputs(tensors), -2);
    EXPECT_EQ(kernel->CheckOutputs(tensors), -2);
  }
}

TEST_P(EveryPooling, HasNoState) {
  EXPECT_EQ(make_kernel(row().name)->ResetState(), -4);
  EXPECT_EQ(make_kernel(row().name)->GetKernelName(), row().name);
}

// What `Forward` says about a tester's layer, for an input of the given dims.
std::string refusal(const PoolingRow& row, const PoolingTester& tester,
                    const std::vector<uint32_t>& dims) {
  TestContext context;
  const auto kernel = make_kernel(row.name);
  EXPECT_TRUE(kernel->Config(tester.description(row), nullptr, context));
  const auto input =
      context.device()->CreateTensor(TensorShape(dims, DataType::FLOAT32, row.layout), nullptr);
  IKernel::Tensors outputs;
  const LogCapture log;
  return failure_of([&] { kernel->Forward({input}, outputs, context); });
}

TEST_P(EveryPooling, RefusesWhatWouldSendItOutOfItsInput) {
  const auto dims_of = [this](uint32_t height, uint32_t width) {
    return PoolingTester().planes(2).size(height, width).dims(row());
  };
  const uint32_t window = window_of(row());
  EXPECT_THAT(refusal(row(), tester_of(row()), dims_of(window - 1, 20)),
              testing::HasSubstr("doesn't fit"));
  EXPECT_THAT(refusal(row(), tester_of(row()), dims_of(20, window - 1)),
              testing::HasSubstr("doesn't fit"));
  EXPECT_THAT(refusal(row(), tester_of(row()), dims_of(0, 0)), testing::HasSubstr("doesn't fit"));
  EXPECT_THAT(refusal(row(), tester_of(row()).padding(-1, 0, 0, 0), dims_of(20, 20)),
              testing::HasSubstr("negative"));
  EXPECT_THAT(refusal(row(), tester_of(row()).padding(0, 0, 0, -32768), dims_of(20, 20)),
              testing::HasSubstr("negative"));
  EXPECT_THAT(refusal(row(), tester_of(row()), {9, 9}), testing::HasSubstr("must be one"));
  auto wrong_block = dims_of(20, 20);
  row().block == 1 ? wrong_block.push_back(1) : void(wrong_block.back() = 3);
  EXPECT_THAT(refusal(row(), tester_of(row()), wrong_block), testing::HasSubstr("must be one"));
  EXPECT_THAT(refusal(row(), tester_of(row()).padding(32767), {0, 4294967295u, 1, row().block}),
              testing::Not(testing::IsEmpty()));
}

INSTANTIATE_TEST_SUITE_P(Rows, EveryPooling, testing::ValuesIn(kernel::pooling_rows),
                         [](const auto& row) { return std::string(row.param->name); });

// What only kernels for any window do: the portable ones, and those over blocks.

std::vector<const PoolingRow*> rows_of_any_window(PoolingKind kind) {
  std::vector<const PoolingRow*> rows;
  const auto add = [&](std::initializer_list<const PoolingRow*> all) {
    for (const PoolingRow* row : all) {
      if (row->kernel == 0 && row->kind == kind && why_not_here(row->name).empty())
        rows.push_back(row);
    }
  };
  add(kernel::pooling_rows);
#if QRT_WITH_EXTENSIONS && QRT_WITH_AVX
  add(kernel::block_pooling_rows);
#endif
  return rows;
}

#if QRT_WITH_EXTENSIONS && QRT_WITH_AVX
INSTANTIATE_TEST_SUITE_P(BlockRows, EveryPooling, testing::ValuesIn(kernel::block_pooling_rows),
                         [](const auto& row) { return std::string(row.param->name); });

// What the portable kernel makes of each of eight planes, in blocks.
std::vector<float> in_a_block(const PoolingTester& tester, const PoolingRow& portable,
                              const std::vector<float>& input) {
  std::vector<float> outputs;
  for (size_t lane = 0; lane < 8; ++lane) {
    std::vector<float> plane;
    for (size_t i = lane; i < input.size(); i += 8) plane.push_back(input[i]);
    const std::vector<float> output = tester.output(portable, plane);
    outputs.resize(8 * output.size());
    for (size_t i = 0; i < output.size(); ++i) outputs[8 * i + lane] = output[i];
  }
  return outputs;
}

TEST(BlockPooling, HasTheBitsOfThePortableKernels) {
  const PoolingRow* const rows[][2] = {{&kernel::rows::Pooling2D_Avg_Knxm_Snxm_AVX_C8HW8_Float_M1,
                                        &kernel::rows::Pooling2D_Avg_Fallback_Float_M1},
                                       {&kernel::rows::Pooling2D_Max_Knxm_Snxm_AVX_C8HW8_Float_M1,
                                        &kernel::rows::Pooling2D_Max_Fallback_Float_M1}};
  QRT_SKIP_WHERE_MISSING(rows[0][0]->name);
  std::vector<float> input = Random(5).floats(size_t{9} * 13 * 8);
  for (size_t i = 3; i < input.size(); i += 7) {
    constexpr float kSpecial[] = {kNaN, kInfinity, -kInfinity, -0.0f, 0.0f};
    input[i] = kSpecial[i % 5];
  }
  for (const auto& [blocked, portable] : rows) {
    for (const bool count : {false, true}) {
      const auto tester = PoolingTester().size(9, 13).count_include_pad(count);
      for (const auto& one : {PoolingTester(tester).kernel(3).stride(1).padding(1),
                              PoolingTester(tester).kernel(2, 5).stride(3, 2).padding(2, 1, 0, 1),
                              PoolingTester(tester).kernel(9, 13).stride(1),
                              PoolingTester(tester).kernel(3).stride(2).padding(3)}) {
        EXPECT_TRUE(same_bits(one.output(*blocked, input), in_a_block(one, *portable, input)))
            << one.sentence(blocked->name);
      }
    }
  }
}
#endif

const PoolingRow& portable_average() { return kernel::rows::Pooling2D_Avg_Fallback_Float_M1; }
const PoolingRow& portable_maximum() { return kernel::rows::Pooling2D_Max_Fallback_Float_M1; }

TEST(AnyWindowPooling, TakesAnyWindow) {
  std::vector<const PoolingRow*> rows = rows_of_any_window(PoolingKind::average);
  for (const PoolingRow* row : rows_of_any_window(PoolingKind::maximum)) rows.push_back(row);
  for (const PoolingRow* row : rows) {
    PoolingTester().planes(2).size(7, 9).kernel(1).stride(1).test(*row);
    PoolingTester().planes(2).size(7, 9).kernel(2, 5).stride(3, 1).test(*row);
    PoolingTester().planes(2).size(7, 9).kernel(7, 9).stride(1).test(*row);
    PoolingTester().planes(2).size(7, 9).kernel(2, 1).stride(5, 7).test(*row);
    PoolingTester().planes(2).size(7, 9).kernel(3, 5).stride(2).padding(3, 1, 0, 2).test(*row);
  }
}

TEST(AnyWindowPooling, MaximaHonourDilation) {
  for (const PoolingRow* row : rows_of_any_window(PoolingKind::maximum)) {
    for (const bool ceil_mode : {false, true}) {
      const auto tester = PoolingTester().planes(2).size(11, 12).kernel(3, 2).ceil_mode(ceil_mode);
      PoolingTester(tester).stride(2).dilation(2, 3).padding(1, 2, 0, 1).test(*row);
      PoolingTester(tester).stride(4).dilation(5, 1).test(*row);
      PoolingTester(tester).stride(3).dilation(0, 0).test(*row);
    }
  }
}

TEST(AnyWindowPooling, CeilModeRepeatsTheLastRowAndColumnInMaxima) {
  for (const PoolingRow* row : rows_of_any_window(PoolingKind::maximum)) {
    PoolingTester().planes(2).size(6, 8).kernel(3).stride(2).ceil_mode(true).test(*row);
    PoolingTester().planes(2).size(6, 8).kernel(2).stride(5).ceil_mode(true).test(*row);
  }
}

TEST(PortablePooling, AnAverageOverPaddingThatDoesNotCountIsNaN) {
  const auto tester = PoolingTester().size(2, 2).kernel(2).stride(2).padding(2, 0, 0, 0);
  const std::vector<float> input{1, 2, 3, 6};
  EXPECT_TRUE(same_bits(tester.output(portable_average(), input), {kNaN, 3}));
  EXPECT_TRUE(same_bits(
      PoolingTester(tester).count_include_pad(true).output(portable_average(), input), {0, 3}));
}

TEST(PortablePooling, AnAverageCountsPaddingOnDemand) {
  const auto tester = PoolingTester().size(1, 2).kernel(1, 2).stride(1).padding(1, 1, 0, 0);
  EXPECT_TRUE(same_bits(tester.output(portable_average(), {2, 4}), {2, 3, 4}));
  EXPECT_TRUE(same_bits(
      PoolingTester(tester).count_include_pad(true).output(portable_average(), {2, 4}), {1, 3, 2}));
}

TEST(PortablePooling, CeilModeHasNoEffectOnAverages) {
  const std::vector<float> input = Random(7).small_integers(64);
  const auto tester = PoolingTester().size(8, 8).kernel(3).stride(2);
  const auto plain = tester.output(portable_average(), input);
  EXPECT_EQ(plain.size(), 9u);
  EXPECT_TRUE(
      same_bits(PoolingTester(tester).ceil_mode(true).output(portable_average(), input), plain));
}

TEST(PortablePooling, AMaximumDropsNaNs) {
  const auto tester = PoolingTester().size(1, 4).kernel(1, 2).stride(2);
  EXPECT_TRUE(same_bits(tester.output(portable_maximum(), {kNaN, -5, -7, kNaN}), {-5, -7}));
}

TEST(PortablePooling, AMaximumOverNothingButNaNOrMinusInfinityIsTheLowestFloat) {
  const auto tester = PoolingTester().size(1, 4).kernel(1, 2).stride(2);
  EXPECT_TRUE(same_bits(tester.output(portable_maximum(), {kNaN, kNaN, -kInfinity, -kInfinity}),
                        {-kLargest, -kLargest}));
}

TEST(PortablePooling, TheMarginOfAMaximumIsTheLowestFloat) {
  const auto tester = PoolingTester().size(1, 1).kernel(2).stride(2).padding(2, 1, 1, 0);
  EXPECT_TRUE(same_bits(tester.output(portable_maximum(), {-3}), {-kLargest, -3}));
}

TEST(PortablePooling, AWindowOfNoPixelsReadsNothing) {
  const auto tester = PoolingTester().size(3, 3).kernel(0).stride(3);
  EXPECT_TRUE(same_bits(tester.output(portable_average(), Random(1).floats(9)),
                        std::vector<float>(4, kNaN)));
  EXPECT_TRUE(same_bits(tester.output(portable_maximum(), Random(1).floats(9)),
                        std::vector<float>(4, -kLargest)));
}

TEST(PortablePooling, RefusesAStrideOfZero) {
  for (const PoolingRow* row : {&portable_average(), &portable_maximum()}) {
    for (const auto& tester :
         {PoolingTester().kernel(1).stride(0, 1), PoolingTester().kernel(1).stride(1, 0)}) {
      EXPECT_THAT(refusal(*row, tester, {1, 3, 3}), testing::HasSubstr("a stride is 0"));
    }
  }
}

TEST(PortablePooling, RefusesADilationBeyondThePicture) {
  const auto tester = PoolingTester().kernel(65535).stride(1).dilation(65535, 65535);
  EXPECT_THAT(refusal(portable_maximum(), tester, {1, 3, 3}), testing::HasSubstr("doesn't fit"));
}

TEST(PortablePooling, RefusesAnOutputOfFourGigabytes) {
  const auto tester = PoolingTester().kernel(1).stride(1).padding(32767);
  EXPECT_THAT(refusal(portable_average(), tester, {1, 3, 3}), testing::HasSubstr("4 GiB"));
}

TEST(PortablePooling, SizesOfMaximaComeFromADivisionInFloat) {
  TestContext context;
  const auto kernel = make_kernel(portable_maximum().name);
  kernel->Config(PoolingTester().kernel(1).stride(1).description(portable_maximum()), nullptr,
                 context);
  const TensorShape wide({1, 1, (1u << 24) + 3}, DataType::FLOAT32, LayoutType::CHW);
  // 2^24 + 2 steps and one more, which a float rounds to the even neighbour.
  EXPECT_EQ(kernel->InferOutputShapes({wide})[0].dims[2], (1u << 24) + 4);
}

// What only the vector kernels do.

class VectorPooling : public testing::TestWithParam<const PoolingRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(row().name); }
  const PoolingRow& row() const { return *GetParam(); }
  bool is_maximum() const { return row().kind == PoolingKind::maximum; }
};

class VectorAverage : public VectorPooling {};
class VectorMaximum : public VectorPooling {};

TEST_P(VectorPooling, WithoutPaddingAgreesWithThePortableKernelButForRounding) {
  const auto tester = tester_of(row()).planes(1).size(17, 18);
  const size_t pixels = size_t{17} * 18;
  const std::vector<float> input = Random(3).floats(pixels * row().block);
  const std::vector<float> found = tester.output(row(), input);
  const PoolingRow& portable = is_maximum() ? portable_maximum() : portable_average();
  for (size_t lane = 0; lane < row().block; ++lane) {
    std::vector<float> plane;
    for (size_t i = 0; i < pixels; ++i) plane.push_back(input[i * row().block + lane]);
    const std::vector<float> expected = tester.output(portable, plane);
    for (size_t i = 0; i < expected.size(); ++i) {
      const float number = found[i * row().block + lane];
      EXPECT_NEAR(number, expected[i], is_maximum() ? 0.0 : 8 * kEpsilon);
    }
  }
}

TEST_P(VectorAverage, DividesByTheAreaWhateverCountIncludePadSays) {
  const uint32_t window = row().kernel;
  const int margin = static_cast<int>(window) - 1;
  const std::vector<float> input(row().block, 1.0f);
  for (const bool count : {false, true}) {
    const auto found = tester_of(row())
                           .size(1, 1)
                           .padding(margin, 0, margin, 0)
                           .count_include_pad(count)
                           .output(row(), input);
    const float expected = 1.0f / static_cast<float>(window * window);
    EXPECT_TRUE(same_bits(found, std::vector<float>(row().block, expected)));
  }
}

TEST_P(VectorMaximum, OfNegativesNextToPaddingIsZero) {
  const std::vector<float> input(row().block, -3.0f);
  const auto tester = tester_of(row()).size(1, 1);
  const int margin = static_cast<int>(row().kernel) - 1;
  const std::vector<float> zeros(row().block, 0.0f);
  EXPECT_TRUE(
      same_bits(PoolingTester(tester).padding(margin, 0, margin, 0).output(row(), input), zeros));
  EXPECT_TRUE(
      same_bits(PoolingTester(tester).padding(0, margin, 0, margin).output(row(), input), zeros));
}

TEST_P(VectorPooling, CeilModeReadsOnInMemory) {
  // The extra windows see the next row, the next plane and, past the last plane, zeros.
  const uint32_t window = row().kernel;
  for (const uint32_t planes : {1u, 3u}) {
    const auto tester = tester_of(row()).planes(planes).ceil_mode(true);
    PoolingTester(tester).size(window + 1, window + 1).test(row());
    PoolingTester(tester).size(window + 1, window + 8).test(row());
    PoolingTester(tester).size(window + 8, window + 1).padding(1, 0, 0, 1).test(row());
    PoolingTester(tester).size(window, window).padding(1, 2, 2, 1).test(row());
  }
}

TEST_P(VectorMaximum, DilationChangesTheSizeButNotTheWindow) {
  const auto tester = tester_of(row()).planes(2).size(12, 17);
  for (const bool ceil_mode : {false, true}) {
    PoolingTester(tester).ceil_mode(ceil_mode).dilation(2, 3).test(row());
    PoolingTester(tester).ceil_mode(ceil_mode).dilation(3, 2).padding(1, 2, 2, 1).test(row());
    // A dilation that was never set gives windows that pass the edge.
    PoolingTester(tester).ceil_mode(ceil_mode).dilation(0, 0).test(row());
    PoolingTester(tester).ceil_mode(ceil_mode).size(1, 1).dilation(0, 0).test(row());
  }
}

std::vector<const PoolingRow*> vector_rows(std::initializer_list<PoolingKind> kinds) {
  std::vector<const PoolingRow*> rows;
  for (const PoolingRow* row : kernel::pooling_rows) {
    for (const PoolingKind kind : kinds) {
      if (row->kernel != 0 && row->kind == kind) rows.push_back(row);
    }
  }
  return rows;
}

std::string name_of(const testing::TestParamInfo<const PoolingRow*>& row) {
  return row.param->name;
}

// A build without vector kernels has none to test.
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(VectorPooling);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(VectorAverage);
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(VectorMaximum);
INSTANTIATE_TEST_SUITE_P(
    Rows, VectorPooling,
    testing::ValuesIn(vector_rows({PoolingKind::average, PoolingKind::maximum})), name_of);
INSTANTIATE_TEST_SUITE_P(Rows, VectorAverage,
                         testing::ValuesIn(vector_rows({PoolingKind::average})), name_of);
INSTANTIATE_TEST_SUITE_P(Rows, VectorMaximum,
                         testing::ValuesIn(vector_rows({PoolingKind::maximum})), name_of);

// 3 by 3 maxima over values that are all below -999.

std::vector<float> five_maxima_of_far_negatives(const PoolingRow& row) {
  const auto tester = PoolingTester().size(3, 11).kernel(3).stride(2);
  return tester.output(row, std::vector<float>(size_t{33} * row.block, -2000.0f));
}

TEST(MaximaBelowTheFloor, ThePortableKernelGivesTheTrueMaximum) {
  EXPECT_TRUE(
      same_bits(five_maxima_of_far_negatives(portable_maximum()), std::vector<float>(5, -2000.0f)));
}

#if QRT_WITH_AVX
TEST(MaximaBelowTheFloor, TheAvxKernelGivesTheTrueMaximum) {
  const PoolingRow& row = kernel::rows::Pooling2D_Max_K3x3_S2x2_AVX_C8HW8_Float_M1;
  QRT_SKIP_WHERE_MISSING(row.name);
  EXPECT_TRUE(same_bits(five_maxima_of_far_negatives(row), std::vector<float>(40, -2000.0f)));
}
#endif

#if QRT_WITH_SSE
TEST(MaximaBelowTheFloor, TheSseKernelGivesTheFloorInItsVectorsAndTheTrueMaximumInItsTail) {
  const PoolingRow& row = kernel::rows::Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1;
  EXPECT_TRUE(same_bits(five_maxima_of_far_negatives(row), {-999, -999, -999, -999, -2000}));
}
#endif

}  // namespace
}  // namespace marlo::test
