#include "qrt_core/kernel/conv/depthwise/depthwise_convolution.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

#include "tests/support/conv_rows.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"
#include "tests/support/test_context.h"

// Convolutions with one filter for each channel, in every layout.

#if QRT_WITH_SSE || QRT_WITH_AVX

namespace marlo::test {
namespace {

using kernel::PlaneGeometry;
using runtime::BlockSize;
using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::TensorShape;

using Row = kernel::ConvolutionRow<PlaneGeometry>;

class DepthwiseConvolution : public testing::TestWithParam<const Row*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  const Row& row() const { return *GetParam(); }
  uint32_t size() const {
    return std::string(row().name).find("_K5x5_") != std::string::npos ? 5 : 3;
  }
  uint32_t stride() const {
    return std::string(row().name).find("_S2x2_") != std::string::npos ? 2 : 1;
  }
  uint32_t block() const { return BlockSize(row().input.layout); }

  ConvTester tester(uint32_t blocks) const {
    const uint32_t channels = blocks * block();
    return ConvTester()
        .channels(channels, channels)
        .groups(channels)
        .kernel(size(), size())
        .stride(stride());
  }

  void test(const ConvTester& tester) {
    EXPECT_TRUE(tester.test(row())) << "refused: " << tester.sentence(row().name);
  }
};

// Tiles take up to eight vectors, or as many pairs of pixels; an odd last row and column are stages
// of their own.
TEST_P(DepthwiseConvolution, TakesEverySizeOfItsOutput) {
  const auto size_for = [this](uint32_t outputs) { return (outputs - 1) * stride() + size(); };
  for (uint32_t height = 1; height <= 5; ++height) {
    for (uint32_t width = 1; width <= 26; ++width) {
      test(tester(1 + width % 3).size(size_for(height), size_for(width)).bias(width % 4 != 0));
    }
  }
}

TEST_P(DepthwiseConvolution, TakesAnyPadding) {
  for (const auto& p : {std::array{1, 1, 1, 1}, std::array{0, 0, 0, 0}, std::array{2, 0, 1, 3},
                        std::array{0, 5, 0, 4}, std::array{2, 2, 2, 2}}) {
    test(tester(2).size(9, 12).padding(p[0], p[1], p[2], p[3]));
    test(tester(3).size(6, 7).padding(p[0], p[1], p[2], p[3]).bias(false));
  }
}

// Tiles may reach half a window outside on either side; beyond that, pixels are taken singly.
TEST_P(DepthwiseConvolution, TakesNarrowPicturesInEveryMargin) {
  for (uint32_t width = 1; width <= 8; ++width) {
    for (const int left : {0, 1, 2, 4}) {
      for (const int right : {0, 1, 2, 4}) {
        const uint32_t padded = width + static_cast<uint32_t>(left + right);
        if (padded < size()) continue;
        test(tester(1).size(1 + width % 3, width).padding(left, right, 2, 2));
      }
    }
  }
}

// Margins are multiplied as well: an infinite tap makes no number of them.
TEST_P(DepthwiseConvolution, MultipliesItsMargins) {
  const ConvTester sized = tester(1).size(2, 2).padding(static_cast<int>(size() / 2)).bias(false);
  ConvData data = integer_data(sized.sizes(), 1);
  const size_t taps = size_t{size()} * size();
  for (size_t i = 0; i < data.weight.size(); i += taps) data.weight[i] = INFINITY;
  std::fill(data.input.begin(), data.input.end(), 1.0f);
  const std::vector<float> found = sized.output(row(), data);
  const size_t pixels = found.size() / sized.sizes().out_channels;
  for (size_t corner = 0; corner < found.size(); corner += pixels) {
    EXPECT_TRUE(std::isnan(found[corner])) << corner << " is " << found[corner];
  }
}

TEST_P(DepthwiseConvolution, TakesEveryNumberOfBlocks) {
  for (uint32_t blocks = 1; blocks <= 9; ++blocks) test(tester(blocks).size(7, 8).padding(1));
}

TEST_P(DepthwiseConvolution, RefusesWhatItsNameExcludes) {
  const auto refuses = [this](const ConvTester& other) { return !other.test(row()); };
  const ConvTester base = tester(1).size(11, 11);
  EXPECT_TRUE(refuses(ConvTester(base).kernel(size(), size() + 1)));
  EXPECT_TRUE(refuses(ConvTester(base).kernel(size() - 1, size())));
  EXPECT_TRUE(refuses(ConvTester(base).stride(3 - stride())));
  EXPECT_TRUE(refuses(ConvTester(base).stride(stride(), 3 - stride())));
  EXPECT_TRUE(refuses(ConvTester(base).dilation(2)));
}

TEST_P(DepthwiseConvolution, ChecksGroupsAsDocumented) {
  const auto kernel = make_kernel(row().name);
  const ConvCase sizes = tester(2).sizes();
  const auto verdict = [&](uint32_t in, uint32_t out, uint32_t groups) {
    const auto info = describe<PlaneGeometry>(sizes, integer_data(sizes, 1));
    info->in_channels = static_cast<uint16_t>(in);
    info->out_channels = static_cast<uint16_t>(out);
    info->groups = static_cast<uint16_t>(groups);
    return kernel->CheckConfig(info, nullptr);
  };
  const uint32_t n = sizes.in_channels;
  const int uneven = block() == 1 ? -1 : 0;
  EXPECT_EQ(verdict(n, n, n), 0);
  EXPECT_EQ(verdict(n, n, 0), -1);
  EXPECT_EQ(verdict(n, n, 1), uneven);
  EXPECT_EQ(verdict(2 * n, n, n), uneven);
  EXPECT_EQ(verdict(n, 2 * n, n), uneven);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
}

TEST_P(DepthwiseConvolution, ChecksTensorsAsDocumented) {
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const ConvCase sizes = tester(2).sizes();
  ASSERT_TRUE(
      kernel->Config(describe<PlaneGeometry>(sizes, integer_data(sizes, 1)), nullptr, context));
  const LayoutType layout = row().input.layout;
  const auto tensor = [&](LayoutType order, uint32_t blocks, DataType type) {
    std::vector<uint32_t> dims = {blocks, 2, 3};
    if (block() > 1) dims.push_back(block());
    return IKernel::Tensors{
        context.device()->CreateTensor(TensorShape(dims, type, order), nullptr)};
  };
  EXPECT_EQ(kernel->CheckInputs(tensor(layout, 2, DataType::FLOAT32)), 0);
  EXPECT_EQ(kernel->CheckInputs(tensor(layout, 3, DataType::FLOAT32)), -2);
  EXPECT_EQ(kernel->CheckInputs(tensor(layout, 2, DataType::FLOAT16)), -2);
  EXPECT_EQ(kernel->CheckInputs(tensor(LayoutType::HWC, 2, DataType::FLOAT32)), -2);
  EXPECT_EQ(kernel->CheckOutputs(tensor(layout, 2, DataType::FLOAT32)), 0);
  EXPECT_EQ(kernel->CheckOutputs(tensor(layout, 3, DataType::FLOAT32)), block() == 1 ? -2 : 0);
  EXPECT_EQ(kernel->CheckOutputs(tensor(layout, 2, DataType::FLOAT16)), -2);
}

// Blocked kernels accept any groups. Channels that don't fill a block have no packed weights, and
// groups without a channel none at all: no access leaves a tensor.
TEST_P(DepthwiseConvolution, StaysInsideItsWeightsWhateverTheGroups) {
  if (block() == 1) GTEST_SKIP() << "over planes such layers are refused";
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const ConvCase sizes = tester(3).size(8, 8).sizes();
  const uint32_t n = sizes.in_channels;
  for (const uint32_t groups : {n - 1, n / 2, n + 1, 2 * n, 1u, 3u}) {
    const auto info = describe<PlaneGeometry>(sizes, integer_data(sizes, 1));
    info->groups = static_cast<uint16_t>(groups);
    if (!kernel->Config(info, nullptr, context)) continue;
    const std::vector<float> values(sizes.input_size(), 1.0f);
    IKernel::Tensors outputs;
    kernel->Forward({context.floats({3, 8, 8, block()}, row().input.layout, values)}, outputs,
                    context);
    ASSERT_EQ(outputs.size(), 1u);
    context.pool().check();
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, DepthwiseConvolution,
                         testing::ValuesIn(kernel::depthwise_convolution_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test

#endif
