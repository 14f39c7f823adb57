#include "qrt_core/kernel/conv/general/general_convolution.h"

#include <gtest/gtest.h>

#include "qrt_core/kernel/conv/steps/im2col.h"
#include "tests/support/compare.h"
#include "tests/support/conv_rows.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"
#include "tests/support/test_context.h"

// Convolutions over columns. What they share with the portable kernels is tested with these.

namespace marlo::test {
namespace {

using Im2col = decltype(&kernel::Im2col_CHW_Float_SSE);

struct Columns {
  Im2col im2col;
  uint32_t block;
};

class Im2colFunction : public testing::TestWithParam<Columns> {};

// Every element of the columns is the pixel that its tap meets.
TEST_P(Im2colFunction, WritesEveryTapOfEveryOutput) {
  const auto [im2col, block] = GetParam();
  Random random(5);
  for (int round = 0; round < 60; ++round) {
    const auto pick = [&random](int least, int most) {
      return static_cast<uint32_t>(random.integer(least, most));
    };
    const uint32_t blocks = pick(1, 3), kh = pick(1, 3), kw = pick(1, 3);
    const uint32_t sy = round < 5 ? 1 : pick(1, 3), sx = pick(1, 3);
    const uint32_t dy = pick(1, 3), dx = pick(1, 3);
    const uint32_t oh = pick(1, 5), ow = pick(1, 6);
    const uint32_t height = (oh - 1) * sy + (kh - 1) * dy + 1 + pick(0, 2) % sy;
    const uint32_t width = (ow - 1) * sx + (kw - 1) * dx + 1 + pick(0, 2) % sx;
    const std::vector<float> source = random.floats(size_t{blocks} * height * width * block);
    std::vector<float> found(size_t{blocks} * kh * kw * oh * ow * block, kNaN);
    im2col(blocks, height, width, oh, ow, kh, kw, sy, sx, dy, dx, source.data(), found.data());
    size_t at = 0;
    for (uint32_t b = 0; b < blocks; ++b) {
      for (uint32_t tap = 0; tap < kh * kw; ++tap) {
        for (uint32_t out = 0; out < oh * ow; ++out) {
          const uint32_t y = out / ow * sy + tap / kw * dy;
          const uint32_t x = out % ow * sx + tap % kw * dx;
          for (uint32_t lane = 0; lane < block; ++lane, ++at) {
            ASSERT_EQ(found[at], source[((b * height + y) * width + x) * block + lane])
                << "tap " << tap << ", output " << out;
          }
        }
      }
    }
  }
}

TEST_P(Im2colFunction, CopiesPointsAtStrideOne) {
  const auto [im2col, block] = GetParam();
  const std::vector<float> source = Random(6).floats(size_t{2} * 3 * 5 * block);
  std::vector<float> found(source.size());
  im2col(2, 3, 5, 3, 5, 1, 1, 1, 1, 4, 4, source.data(), found.data());
  EXPECT_TRUE(same_bits(found, source));
}

INSTANTIATE_TEST_SUITE_P(Layouts, Im2colFunction,
                         testing::Values(Columns{kernel::Im2col_CHW_Float_SSE, 1},
                                         Columns{kernel::Im2col_C4HW4_Float_SSE, 4},
                                         Columns{kernel::Im2col_C8HW8_Float_AVX, 8}),
                         [](const auto& test) {
                           return "BlocksOf" + std::to_string(test.param.block);
                         });

#if QRT_WITH_SSE || QRT_WITH_AVX

class GeneralConvolution
    : public testing::TestWithParam<const kernel::ConvolutionRow<kernel::PlaneGeometry>*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  std::shared_ptr<runtime::Conv2dInfo> info(const ConvTester& tester) {
    return describe<kernel::PlaneGeometry>(tester.sizes(), integer_data(tester.sizes(), 1));
  }

  ConvTester blocks(uint32_t in, uint32_t out) {
    const uint32_t block = runtime::BlockSize(GetParam()->input.layout);
    return ConvTester().channels(block * in, block * out);
  }

  TestContext context_;
  std::shared_ptr<runtime::IKernel> kernel_ = make_kernel(GetParam()->name);
};

TEST_P(GeneralConvolution, TakesPointsWithAndWithoutStride) {
  EXPECT_TRUE(blocks(3, 2).size(5, 7).test(*GetParam()));
  EXPECT_TRUE(blocks(3, 2).size(5, 7).stride(2).test(*GetParam()));
  EXPECT_TRUE(blocks(3, 2).size(5, 7).stride(1, 2).test(*GetParam()));
}

TEST_P(GeneralConvolution, TakesFiveBlocksOnEachSide) {
  for (uint32_t count = 1; count <= 5; ++count) {
    const ConvTester base = blocks(count, 6 - count).kernel(3, 3).dilation(2).padding(2);
    EXPECT_TRUE(ConvTester(base).size(6, 7).test(*GetParam()));
    EXPECT_TRUE(ConvTester(base).size(3, 11).bias(false).test(*GetParam()));
  }
}

TEST_P(GeneralConvolution, AcceptsGroupsWhetherItKnowsThemOrNot) {
  EXPECT_EQ(kernel_->CheckConfig(info(blocks(2, 2).groups(2)), nullptr), 0);
  EXPECT_EQ(kernel_->CheckConfig(info(blocks(2, 2)), std::make_shared<runtime::InferenceParam>()),
            -1);
  EXPECT_EQ(kernel_->CheckConfig(nullptr, nullptr), -1);
}

// The only one that looks at the channels is the AVX form.
TEST_P(GeneralConvolution, TestsChannelsOnlyWithAvx) {
  const bool is_avx = std::string(GetParam()->name).find("_AVX_") != std::string::npos;
  EXPECT_EQ(kernel_->CheckConfig(info(ConvTester().channels(8, 16)), nullptr), 0);
  EXPECT_EQ(kernel_->CheckConfig(info(ConvTester().channels(12, 8)), nullptr), is_avx ? -1 : 0);
  EXPECT_EQ(kernel_->CheckConfig(info(ConvTester().channels(8, 12)), nullptr), is_avx ? -1 : 0);
}

TEST_P(GeneralConvolution, ConfiguresNothingWithoutAStride) {
  for (const auto& tester : {blocks(1, 1).stride(0, 1), blocks(1, 1).stride(1, 0)}) {
    EXPECT_EQ(kernel_->CheckConfig(info(tester), nullptr), 0);
    EXPECT_FALSE(kernel_->Config(info(tester), nullptr, context_));
    EXPECT_FALSE(kernel_->IsConfigured());
  }
}

// No filter, and so no columns: what is left of the sum is the bias.
TEST_P(GeneralConvolution, GivesTheBiasWithoutAFilter) {
  auto description = info(blocks(1, 2));
  description->kernel_x = 0;
  const uint32_t block = runtime::BlockSize(GetParam()->input.layout);
  if (!kernel_->Config(description, nullptr, context_)) GTEST_SKIP() << "refused";
  std::vector<uint32_t> dims = {1, 2, 2};
  if (block > 1) dims.push_back(block);
  const auto input =
      context_.floats(dims, GetParam()->input.layout, std::vector<float>(4 * block, 1.0f));
  runtime::IKernel::Tensors outputs;
  ASSERT_EQ(kernel_->Forward({input}, outputs, context_), 0);
  const auto bias = integer_data(blocks(1, 2).sizes(), 1).bias;
  EXPECT_EQ(values_of(*outputs.at(0)).front(), bias.front());
  EXPECT_EQ(values_of(*outputs.at(0)).back(), bias.back());
}

INSTANTIATE_TEST_SUITE_P(Rows, GeneralConvolution,
                         testing::ValuesIn(kernel::general_convolution_rows),
                         [](const auto& test) { return test.param->name; });

#endif

}  // namespace
}  // namespace marlo::test
