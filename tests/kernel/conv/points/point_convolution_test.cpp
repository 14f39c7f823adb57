#include "qrt_core/kernel/conv/points/point_convolution.h"

#include <gtest/gtest.h>

#include "qrt_core/kernel/matrix/sgemm.h"
#include "tests/support/blocked_layout.h"
#include "tests/support/compare.h"
#include "tests/support/conv_rows.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"
#include "tests/support/test_context.h"

// 1x1 convolutions in every layout, at stride 1 and 2.

#if QRT_WITH_SSE || QRT_WITH_AVX || QRT_WITH_SGEMM

namespace marlo::test {
namespace {

using kernel::PlaneRow;
using runtime::BlockSize;
using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::TensorShape;

uint32_t stride_of(const PlaneRow& row) {
  return std::string(row.name).find("_S2x2_") == std::string::npos ? 1 : 2;
}

// `in` and `out` blocks of channels; planes count as blocks of one.
ConvTester tester(const PlaneRow& row, uint32_t in, uint32_t out) {
  return ConvTester()
      .channels(in * BlockSize(row.input.layout), out * BlockSize(row.output.layout))
      .stride(stride_of(row));
}

class PointConvolution : public testing::TestWithParam<const PlaneRow*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  const PlaneRow& row() const { return *GetParam(); }

  void test(ConvTester tester) {
    EXPECT_TRUE(tester.test(row())) << "refused: " << tester.sentence(row().name);
  }
};

// At stride 1 an image is one run of pixels; at stride 2 a row is.
TEST_P(PointConvolution, TakesEveryNumberOfPixels) {
  for (uint32_t pixels = 1; pixels <= 33; ++pixels) {
    const uint32_t width = (pixels - 1) * stride_of(row()) + 1;
    test(tester(row(), 1 + pixels % 3, 1 + pixels % 5).size(1, width));
    test(tester(row(), 1 + pixels % 5, 1 + pixels % 4).size(1, width).bias(false));
  }
}

TEST_P(PointConvolution, TakesEveryNumberOfBlocks) {
  for (uint32_t in = 1; in <= 5; ++in) {
    for (uint32_t out = 1; out <= 5; ++out) {
      test(tester(row(), in, out).size(3, 5));
      test(tester(row(), in, out).size(4, 7).bias(false));
    }
  }
}

// Planes that aren't a multiple of what a tile holds: 12 and 24 pixels, 4 planes.
TEST_P(PointConvolution, TakesEveryNumberOfChannelsOverPlanes) {
  if (BlockSize(row().input.layout) != 1) GTEST_SKIP() << "for kernels over planes";
  for (uint32_t channels = 6; channels <= 17; ++channels) {
    test(tester(row(), channels, 23 - channels).size(2, 11));
  }
}

TEST_P(PointConvolution, TakesImagesOfAnyShape) {
  for (const uint32_t height : {1u, 2u, 3u, 6u, 7u}) {
    for (const uint32_t width : {1u, 2u, 3u, 8u, 13u}) {
      test(tester(row(), 2, 3).size(height, width));
    }
  }
}

// More input channels than a pass over the output takes, and more pixels than a panel holds.
TEST_P(PointConvolution, TakesManyChannelsAndPixels) {
  const uint32_t block = BlockSize(row().input.layout);
  test(tester(row(), 520 / block, 2).size(2, 3));
  test(tester(row(), 1032 / block, 3).size(1, 5).bias(false));
  test(tester(row(), 136 / block, 5).size(9, 53));
}

TEST_P(PointConvolution, RefusesWhatItsNameExcludes) {
  const auto refuses = [this](ConvTester tester) { return !tester.test(row()); };
  const ConvTester base = tester(row(), 1, 1).size(6, 6);
  const uint32_t other = 3 - stride_of(row());
  EXPECT_TRUE(refuses(ConvTester(base).kernel(1, 2)));
  EXPECT_TRUE(refuses(ConvTester(base).kernel(2, 1)));
  EXPECT_TRUE(refuses(ConvTester(base).stride(other)));
  EXPECT_TRUE(refuses(ConvTester(base).stride(other, stride_of(row()))));
  EXPECT_TRUE(refuses(ConvTester(base).stride(stride_of(row()), other)));
  EXPECT_TRUE(refuses(ConvTester(base).dilation(2, 1)));
  EXPECT_TRUE(refuses(ConvTester(base).dilation(1, 2)));
  EXPECT_TRUE(refuses(ConvTester(base).padding(1, 0, 0, 0)));
  EXPECT_TRUE(refuses(ConvTester(base).padding(0, 1, 0, 0)));
  EXPECT_TRUE(refuses(ConvTester(base).padding(0, 0, 1, 0)));
  EXPECT_TRUE(refuses(ConvTester(base).padding(0, 0, 0, 1)));
}

TEST_P(PointConvolution, ChecksGroupsAndChannelsAsDocumented) {
  const auto kernel = make_kernel(row().name);
  auto verdict = [&](uint16_t in, uint16_t out, uint16_t groups) {
    ConvCase sizes = tester(row(), 1, 1).sizes();
    const auto info = describe<kernel::PlaneGeometry>(sizes, integer_data(sizes, 1));
    info->in_channels = in;
    info->out_channels = out;
    info->groups = groups;
    return kernel->CheckConfig(info, nullptr);
  };
  EXPECT_EQ(verdict(8, 8, 0), -1);
  EXPECT_EQ(verdict(8, 8, 1), 0);
  EXPECT_EQ(verdict(8, 8, 2), 0);
  const int without_channels = row().input.layout == LayoutType::CHW ? -1 : 0;
  EXPECT_EQ(verdict(0, 8, 1), without_channels);
  EXPECT_EQ(verdict(8, 0, 1), without_channels);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
}

// Checks that compare channels do so on blocked inputs only, and let FLOAT16 pass.
TEST_P(PointConvolution, ChecksTensorsByTheirLayouts) {
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const ConvCase sizes = tester(row(), 2, 2).sizes();
  ASSERT_TRUE(kernel->Config(describe<kernel::PlaneGeometry>(sizes, integer_data(sizes, 1)),
                             nullptr, context));
  const auto tensor = [&](LayoutType layout, uint32_t blocks, DataType type) {
    std::vector<uint32_t> dims = {blocks, 2, 3};
    if (BlockSize(layout) > 1) dims.push_back(BlockSize(layout));
    return IKernel::Tensors{
        context.device()->CreateTensor(TensorShape(dims, type, layout), nullptr)};
  };
  const LayoutType in = row().input.layout;
  const LayoutType out = row().output.layout;
  EXPECT_EQ(kernel->CheckInputs(tensor(in, 2, DataType::FLOAT32)), 0);
  EXPECT_EQ(kernel->CheckInputs(tensor(in, 2, DataType::FLOAT16)), 0);
  EXPECT_EQ(kernel->CheckInputs(tensor(in, 2, DataType::INT16)), -2);
  EXPECT_EQ(kernel->CheckInputs(tensor(in, 3, DataType::FLOAT32)), in == LayoutType::CHW ? 0 : -2);
  EXPECT_EQ(kernel->CheckInputs(tensor(LayoutType::HWC, 2, DataType::FLOAT32)), -2);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
  EXPECT_EQ(kernel->CheckOutputs(tensor(out, 2, DataType::FLOAT32)), 0);
  EXPECT_EQ(kernel->CheckOutputs(tensor(out, 3, DataType::FLOAT32)), 0);
  EXPECT_EQ(kernel->CheckOutputs(tensor(out, 2, DataType::FLOAT16)), -2);
  EXPECT_EQ(kernel->CheckOutputs(tensor(LayoutType::HWC, 2, DataType::FLOAT32)), -2);
}

// Weights exist for whole blocks of one group; what has none holds its bias, or zero.
TEST_P(PointConvolution, LeavesChannelsWithoutWeightsAtTheirBias) {
  for (const bool bias : {true, false}) {
    TestContext context;
    const auto kernel = make_kernel(row().name);
    const uint32_t in_block = BlockSize(row().input.layout);
    const uint32_t out_block = BlockSize(row().output.layout);
    const ConvCase sizes = ConvTester()
                               .channels(2 * in_block, 4 * out_block)
                               .groups(2)
                               .stride(stride_of(row()))
                               .bias(bias)
                               .sizes();
    ConvData data = integer_data(sizes, 3);
    ASSERT_TRUE(kernel->Config(describe<kernel::PlaneGeometry>(sizes, data), nullptr, context));
    std::vector<uint32_t> dims = {2, 1, 1};
    if (in_block > 1) dims.push_back(in_block);
    const auto input =
        context.floats(dims, row().input.layout, std::vector<float>(2 * in_block, 1.0f));
    IKernel::Tensors outputs;
    ASSERT_EQ(kernel->Forward({input}, outputs, context), 0);
    const std::vector<float> output = values_of(*outputs.at(0));
    ASSERT_EQ(output.size(), 4 * out_block);
    for (uint32_t c = 0; c < 4 * out_block; ++c) {
      float expected = bias ? data.bias[c] : 0.0f;
      for (uint32_t i = 0; i < in_block && c < 2 * out_block; ++i) {
        expected += data.weight[c * in_block + i];
      }
      EXPECT_EQ(output[c], expected) << "channel " << c;
    }
  }
}

TEST_P(PointConvolution, RefusesInputsThatItCannotRead) {
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const ConvCase sizes = tester(row(), 2, 2).sizes();
  ASSERT_TRUE(kernel->Config(describe<kernel::PlaneGeometry>(sizes, integer_data(sizes, 1)),
                             nullptr, context));
  IKernel::Tensors outputs;
  const auto fails = [&](const TensorShape& shape) {
    const auto input = context.device()->CreateTensor(shape, nullptr);
    return !failure_of([&] { kernel->Forward({input}, outputs, context); }).empty();
  };
  std::vector<uint32_t> dims = {1, 2, 3};
  if (BlockSize(row().input.layout) > 1) dims.push_back(BlockSize(row().input.layout));
  EXPECT_TRUE(fails({dims, DataType::FLOAT32, row().input.layout})) << "too few channels";
  dims[0] = 2;
  EXPECT_TRUE(fails({dims, DataType::FLOAT16, row().input.layout})) << "halves aren't computed";
  // The one member that makes a copy of its input does so for its layout only.
  const bool copies = row().margin != kernel::Margin::none;
  EXPECT_EQ(fails({dims, DataType::FLOAT32, LayoutType::HWC}), copies);
  EXPECT_EQ(outputs.empty(), copies);
}

// `Reshape` and `Permute` label what they make FLEXIABLE, and one of the layout functions labels
// blocks of 8 as blocks of 4.
TEST_P(PointConvolution, ReadsBlocksAsItsOwnWhateverTheirLabel) {
  if (row().margin != kernel::Margin::none) GTEST_SKIP() << "copies its input";
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const ConvCase sizes = tester(row(), 2, 2).sizes();
  const ConvData data = integer_data(sizes, 1);
  ASSERT_TRUE(kernel->Config(describe<kernel::PlaneGeometry>(sizes, data), nullptr, context));
  const LayoutType layout = row().input.layout;
  const auto dims = dims_in_layout({sizes.in_channels, sizes.height, sizes.width}, layout);
  const auto input = context.floats(dims, layout, to_layout(data.input, sizes.in_channels, layout));
  IKernel::Tensors outputs;
  ASSERT_EQ(kernel->Forward({input}, outputs, context), 0);
  for (const LayoutType label : {LayoutType::FLEXIABLE, LayoutType::C4HW4}) {
    input->shape.layout = label;
    outputs.resize(1);
    ASSERT_EQ(kernel->Forward({input}, outputs, context), 0);
    EXPECT_TRUE(same_bits(values_of(*outputs[1]), values_of(*outputs[0])));
    EXPECT_EQ(outputs[1]->shape.dims, outputs[0]->shape.dims);
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, PointConvolution, testing::ValuesIn(kernel::point_convolution_rows),
                         [](const auto& test) { return test.param->name; });

// What two kernels make of data whose sums show any change of order or rounding.
testing::AssertionResult agree(const PlaneRow& a, const PlaneRow& b, const ConvTester& tester) {
  const ConvData data = uneven_data(tester.sizes(), 7);
  return same_bits(tester.output(a, data), tester.output(b, data));
}

#if QRT_WITH_AVX

const auto& kM1 = kernel::rows::Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M1;
const auto& kM2 = kernel::rows::Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M2;
const auto& kM3 = kernel::rows::Conv2d_K1x1_S1x1_D1x1_G1_AVX_C8HW8_FLOAT_M3;

TEST(PointConvolutionMembers, M1AndM3AgreeToTheLastBit) {
  QRT_SKIP_WHERE_MISSING(kM1.name);
  for (uint32_t pixels = 1; pixels <= 33; ++pixels) {
    const ConvTester tester =
        ConvTester().channels(8 * (1 + pixels % 3), 8 * (1 + pixels % 5)).size(1, pixels);
    EXPECT_TRUE(agree(kM1, kM3, tester)) << pixels << " pixels";
  }
}

// M2 doesn't fuse the pixels that are left over by its groups of eight.
TEST(PointConvolutionMembers, M2FusesWholeGroupsOfPixels) {
  QRT_SKIP_WHERE_MISSING(kM1.name);
  for (uint32_t pixels = 1; pixels <= 33; ++pixels) {
    const ConvTester tester = ConvTester().channels(24, 16).size(1, pixels);
    const ConvData data = uneven_data(tester.sizes(), 7);
    const std::vector<float> fused = tester.output(kM1, data);
    const std::vector<float> found = tester.output(kM2, data);
    for (size_t i = 0; i < found.size(); ++i) {
      const size_t channel = i / pixels;
      const size_t pixel = i % pixels;
      float expected = fused[i];
      if (pixel >= pixels / 8 * 8) {
        expected = data.bias[channel];
        for (size_t k = 0; k < 24; ++k) {
          const float product = data.input[k * pixels + pixel] * data.weight[channel * 24 + k];
          expected = expected + product;
        }
      }
      EXPECT_TRUE(same_bits(found[i], expected)) << "pixel " << pixel << " of " << pixels;
    }
  }
}

TEST(PointConvolutionMembers, FuseTheirProducts) {
  QRT_SKIP_WHERE_MISSING(kM1.name);
  // (1 + e)^2 - 1 - 2e is e^2 if the product isn't rounded, and 0 if it is.
  const float e = 0x1p-13f;
  const ConvTester tester = ConvTester().channels(8, 8).size(1, 8);
  ConvData data;
  data.input.assign(64, 0.0f);
  std::fill_n(data.input.begin(), 8, 1.0f + e);
  data.weight.assign(64, 0.0f);
  for (size_t n = 0; n < 8; ++n) data.weight[8 * n] = 1.0f + e;
  data.bias.assign(8, -1.0f - 2 * e);
  const auto& planes = kernel::rows::Conv2d_K1x1_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1;
  for (const PlaneRow* row : {&kM1, &kM2, &kM3, &planes}) {
    EXPECT_TRUE(same_bits(tester.output(*row, data), std::vector<float>(64, e * e))) << row->name;
  }
  const auto& separate = kernel::rows::Conv2d_K1x1_S2x2_D1x1_G1_AVX_C8HW8_FLOAT_M1;
  const ConvTester halved = ConvTester().channels(8, 8).size(1, 8).stride(2);
  EXPECT_TRUE(same_bits(halved.output(separate, data), std::vector<float>(32, 0.0f)));
}

#endif

#if QRT_WITH_SGEMM

TEST(PointConvolutionMembers, SgemmWithoutBiasIsTheProductItself) {
  const auto& row = kernel::rows::Conv2d_K1x1_S1x1_D1x1_G1_SGEMM_CHW_FLOAT_M1;
  const ConvTester tester = ConvTester().channels(13, 7).size(5, 9).bias(false);
  const ConvData data = uneven_data(tester.sizes(), 3);
  std::vector<float> expected(size_t{7} * 45);
  kernel::Sgemm(7, 13, 45, 1.0f, data.weight.data(), data.input.data(), 0.0f, expected.data());
  EXPECT_TRUE(same_bits(tester.output(row, data), expected));
}

#endif

#if QRT_WITH_SSE

TEST(PointConvolutionMembers, SseM1AndM2AgreeToTheLastBit) {
  const auto& m1 = kernel::rows::Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1;
  const auto& m2 = kernel::rows::Conv2d_K1x1_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2;
  for (uint32_t pixels = 1; pixels <= 33; ++pixels) {
    const ConvTester tester =
        ConvTester().channels(4 * (1 + pixels % 3), 4 * (1 + pixels % 5)).size(1, pixels);
    EXPECT_TRUE(agree(m1, m2, tester)) << pixels << " pixels";
  }
}

#endif

}  // namespace
}  // namespace marlo::test

#endif
