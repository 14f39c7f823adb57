#include "qrt_core/kernel/conv/windows/direct_convolution.h"

#include <gtest/gtest.h>

#include <array>

#include "tests/support/compare.h"
#include "tests/support/conv_rows.h"
#include "tests/support/conv_setup.h"
#include "tests/support/kernels.h"
#include "tests/support/test_context.h"

// Convolutions with a window of their own, in every layout.

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
using Paddings = std::array<int, 4>;  // left, right, top, bottom

bool contains(const Row& row, const char* text) {
  return std::string(row.name).find(text) != std::string::npos;
}

// The window and stride in a name such as Conv2d_K3x1_S1x1_...
struct Window {
  explicit Window(const Row& row)
      : height(static_cast<uint32_t>(row.name[8] - '0')),
        width(static_cast<uint32_t>(row.name[10] - '0')),
        stride(static_cast<uint32_t>(row.name[13] - '0')) {}
  uint32_t height, width, stride;
};

uint32_t in_channels(const Row& row, uint32_t blocks) {
  return contains(row, "_3In_") ? 3 : blocks * BlockSize(row.input.layout);
}

uint32_t out_channels(const Row& row, uint32_t blocks) {
  if (contains(row, "_3Out_")) return 3;
  return contains(row, "_1Out_") ? 1 : blocks * BlockSize(row.output.layout);
}

bool leaves_odd_ends(const Row& row) { return contains(row, "_1Out_"); }

class DirectConvolution : public testing::TestWithParam<const Row*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  const Row& row() const { return *GetParam(); }

  ConvTester tester(uint32_t in = 1, uint32_t out = 1) const {
    const Window window(row());
    return ConvTester()
        .channels(in_channels(row(), in), out_channels(row(), out))
        .kernel(window.height, window.width)
        .stride(window.stride);
  }

  // By the verdict of the kernel: which paddings it takes is tested below.
  bool takes(const Paddings& p) const {
    const ConvCase sizes = tester().padding(p[0], p[1], p[2], p[3]).sizes();
    return make_kernel(row().name)->CheckConfig(describe<PlaneGeometry>(sizes, {}), nullptr) == 0;
  }

  // The paddings that this kernel takes, out of those that any takes and uneven ones.
  std::vector<Paddings> paddings() const {
    std::vector<Paddings> accepted;
    for (const Paddings& p :
         {Paddings{1, 1, 1, 1}, Paddings{1, 1, 0, 0}, Paddings{0, 0, 1, 1}, Paddings{2, 2, 2, 2},
          Paddings{0, 0, 0, 0}, Paddings{2, 0, 1, 3}, Paddings{0, 3, 0, 1}}) {
      if (takes(p)) accepted.push_back(p);
    }
    return accepted;
  }

  // Runs an output of this size. Odd ends that a kernel leaves alone have a test of their own.
  void test(ConvTester tester, uint32_t height, uint32_t width, const Paddings& p) {
    if (leaves_odd_ends(row()) && (height % 2 != 0 || width % 2 != 0)) return;
    const Window w(row());
    const int rows = static_cast<int>((height - 1) * w.stride + w.height) - p[2] - p[3];
    const int columns = static_cast<int>((width - 1) * w.stride + w.width) - p[0] - p[1];
    if (rows < 1 || columns < 1) return;
    tester.size(static_cast<uint32_t>(rows), static_cast<uint32_t>(columns))
        .padding(p[0], p[1], p[2], p[3]);
    EXPECT_TRUE(tester.test(row())) << "refused: " << tester.sentence(row().name);
  }
};

// The widest tile has 12 sums: eight lanes by three vectors, or eight pixels.
TEST_P(DirectConvolution, TakesEverySizeOfItsOutput) {
  const std::vector<Paddings> margins = paddings();
  ASSERT_FALSE(margins.empty());
  for (uint32_t height = 1; height <= 4; ++height) {
    for (uint32_t width = 1; width <= 26; width += width < 10 ? 1 : 3) {
      test(tester(1 + width % 2, 1 + height % 3).bias(width % 3 != 0), height, width,
           margins[width % margins.size()]);
    }
  }
}

TEST_P(DirectConvolution, TakesEveryNumberOfBlocks) {
  for (uint32_t in = 1; in <= 4; ++in) {
    for (uint32_t out = 1; out <= 5; ++out) {
      test(tester(in, out), 2, 6, paddings()[0]);
      test(tester(in, out).bias(false), 4, 4, paddings()[0]);
    }
  }
}

TEST_P(DirectConvolution, TakesEveryNumberOfChannelsOverPlanes) {
  for (uint32_t channels = 1; channels <= 18; ++channels) {
    const uint32_t in = BlockSize(row().input.layout) == 1 ? 1 + channels % 5 : 1;
    const uint32_t out = BlockSize(row().output.layout) == 1 ? channels : 1;
    test(tester(in, out), 2, 6, paddings()[0]);
  }
}

// More weights than stay in L1 while a plane passes over them.
TEST_P(DirectConvolution, TakesManyChannels) {
  const uint32_t blocks =
      BlockSize(row().input.layout) == 1 ? 40 : 80 / BlockSize(row().input.layout);
  test(tester(blocks, 3), 4, 6, paddings()[0]);
}

TEST_P(DirectConvolution, TakesThePaddingsOfItsTable) {
  const size_t kinds = paddings().size();
  const bool any = contains(row(), "AVX_C4HW4_FLOAT") ||
                   contains(row(), "K3x3_S1x1_D1x1_G1_AVX_C8HW8_FLOAT") ||
                   (row().input.layout == LayoutType::CHW && !contains(row(), "3In") &&
                    !contains(row(), "K1x3"));
  EXPECT_EQ(kinds, any ? 7u : 1u);
  for (const Paddings& p : paddings()) test(tester(2, 2), 4, 8, p);
}

TEST_P(DirectConvolution, RefusesWhatItsNameExcludes) {
  const Paddings p = paddings()[0];
  const Window w(row());
  const ConvTester base = tester().padding(p[0], p[1], p[2], p[3]).size(11, 11);
  EXPECT_TRUE(takes(p));
  const auto refuses = [this](const ConvTester& other) { return !other.test(row()); };
  EXPECT_TRUE(refuses(ConvTester(base).kernel(w.height + 1, w.width)));
  EXPECT_TRUE(refuses(ConvTester(base).kernel(w.height, w.width + 1)));
  EXPECT_TRUE(refuses(ConvTester(base).stride(3 - w.stride, w.stride)));
  EXPECT_TRUE(refuses(ConvTester(base).stride(w.stride, 3 - w.stride)));
  EXPECT_TRUE(refuses(ConvTester(base).dilation(2, 1)));
  EXPECT_TRUE(refuses(ConvTester(base).dilation(1, 2)));
}

TEST_P(DirectConvolution, ChecksGroupsAndChannelsAsDocumented) {
  const auto kernel = make_kernel(row().name);
  const Paddings p = paddings()[0];
  const ConvCase sizes = tester().padding(p[0], p[1], p[2], p[3]).sizes();
  const auto verdict = [&](uint32_t in, uint32_t out, uint16_t groups) {
    const auto info = describe<PlaneGeometry>(sizes, integer_data(sizes, 1));
    info->in_channels = static_cast<uint16_t>(in);
    info->out_channels = static_cast<uint16_t>(out);
    info->groups = groups;
    return kernel->CheckConfig(info, nullptr);
  };
  const uint32_t in = sizes.in_channels;
  const uint32_t out = sizes.out_channels;
  EXPECT_EQ(verdict(in, out, 1), 0);
  EXPECT_EQ(verdict(in, out, 2), 0);
  EXPECT_EQ(verdict(in, out, 0), contains(row(), "K3x3_S2x2_D1x1_G1_SSE_CHW") ? 0 : -1);
  const bool planar = row().input.layout == LayoutType::CHW;
  const bool needs_in =
      contains(row(), "3In") || (planar && row().output.layout == LayoutType::CHW);
  const bool needs_out =
      contains(row(), "3Out") || contains(row(), "1Out") || (planar && !contains(row(), "3In"));
  EXPECT_EQ(verdict(0, out, 1), needs_in ? -1 : 0);
  EXPECT_EQ(verdict(in, 0, 1), needs_out ? -1 : 0);
  if (contains(row(), "3In")) {
    EXPECT_EQ(verdict(4, out, 1), -1);
  }
  if (contains(row(), "3Out")) {
    EXPECT_EQ(verdict(in, 4, 1), -1);
  }
  if (contains(row(), "1Out")) {
    EXPECT_EQ(verdict(in, 2, 1), -1);
  }
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
}

TEST_P(DirectConvolution, ChecksTensorsByTheirLayouts) {
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const Paddings p = paddings()[0];
  const ConvCase sizes = tester(2, 2).padding(p[0], p[1], p[2], p[3]).sizes();
  ASSERT_TRUE(
      kernel->Config(describe<PlaneGeometry>(sizes, integer_data(sizes, 1)), nullptr, context));
  const auto tensor = [&](LayoutType layout, uint32_t first, DataType type) {
    std::vector<uint32_t> dims = {first, 2, 3};
    if (BlockSize(layout) > 1) dims.push_back(BlockSize(layout));
    return IKernel::Tensors{
        context.device()->CreateTensor(TensorShape(dims, type, layout), nullptr)};
  };
  const LayoutType in = row().input.layout;
  const LayoutType out = row().output.layout;
  const uint32_t ins = contains(row(), "3In") ? 3 : 2;
  EXPECT_EQ(kernel->CheckInputs(tensor(in, ins, DataType::FLOAT32)), 0);
  EXPECT_EQ(kernel->CheckInputs(tensor(in, ins, DataType::FLOAT16)), 0);
  EXPECT_EQ(kernel->CheckInputs(tensor(in, ins, DataType::INT16)), -2);
  EXPECT_EQ(kernel->CheckInputs(tensor(LayoutType::HWC, ins, DataType::FLOAT32)), -2);
  const bool compares = BlockSize(in) > 1 && !contains(row(), "3Out");
  EXPECT_EQ(kernel->CheckInputs(tensor(in, ins + 1, DataType::FLOAT32)), compares ? -2 : 0);
  EXPECT_EQ(kernel->CheckOutputs(tensor(out, 2, DataType::FLOAT32)), 0);
  EXPECT_EQ(kernel->CheckOutputs(tensor(out, 2, DataType::FLOAT16)), -2);
  EXPECT_EQ(kernel->CheckOutputs(tensor(LayoutType::HWC, 2, DataType::FLOAT32)), -2);
  const bool compares_out = contains(row(), "K3x3_S2x2") && BlockSize(out) == 8;
  EXPECT_EQ(kernel->CheckOutputs(tensor(out, 3, DataType::FLOAT32)), compares_out ? -2 : 0);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
}

// A pass doesn't compute what the check lets through.
TEST_P(DirectConvolution, RefusesHalvesInAPass) {
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const Paddings p = paddings()[0];
  const ConvCase sizes = tester(2, 2).padding(p[0], p[1], p[2], p[3]).size(9, 9).sizes();
  ASSERT_TRUE(
      kernel->Config(describe<PlaneGeometry>(sizes, integer_data(sizes, 1)), nullptr, context));
  const LayoutType in = row().input.layout;
  std::vector<uint32_t> dims = {in_channels(row(), 2) / BlockSize(in), 9, 9};
  if (BlockSize(in) > 1) dims.push_back(BlockSize(in));
  const auto halves =
      context.device()->CreateTensor(TensorShape(dims, DataType::FLOAT16, in), nullptr);
  IKernel::Tensors outputs;
  EXPECT_NE(failure_of([&] { kernel->Forward({halves}, outputs, context); }), "");
  EXPECT_TRUE(outputs.empty());
  context.pool().check();
}

// Packing leaves channels out that don't fill a block: what is left is the definition over whole
// blocks, whatever the tensor's count of blocks says.
TEST_P(DirectConvolution, ComputesWholeBlocksOfUnevenChannels) {
  if (BlockSize(row().input.layout) == 1 && BlockSize(row().output.layout) == 1) {
    GTEST_SKIP() << "for blocks";
  }
  TestContext context;
  const uint32_t in_block = BlockSize(row().input.layout);
  const uint32_t out_block = BlockSize(row().output.layout);
  const Paddings p = paddings()[0];
  ConvTester whole = tester(2, 2).padding(p[0], p[1], p[2], p[3]).size(8, 8);
  ConvCase sizes = whole.sizes();
  const uint32_t ins = sizes.in_channels;
  const uint32_t outs = sizes.out_channels;
  if (in_block > 1) sizes.in_channels += in_block / 2;
  if (out_block > 1) sizes.out_channels += out_block / 2;
  const ConvData data = integer_data(sizes, 5);
  const auto kernel = make_kernel(row().name);
  ASSERT_TRUE(kernel->Config(describe<PlaneGeometry>(sizes, data), nullptr, context));
  // The input has another block, which must not be read as one of the weights.
  std::vector<uint32_t> dims = {(sizes.in_channels + in_block - 1) / in_block, 8, 8};
  if (in_block > 1) dims.push_back(in_block);
  std::vector<float> values(size_t{dims[0]} * 64 * in_block);
  for (size_t i = 0; i < values.size(); ++i) values[i] = static_cast<float>(i % 7) - 3.0f;
  IKernel::Tensors outputs;
  ASSERT_EQ(kernel->Forward({context.floats(dims, row().input.layout, values)}, outputs, context),
            0);
  context.pool().check();

  ConvCase cut = sizes;
  cut.in_channels = ins;
  cut.out_channels = outs;
  ConvData part;
  const size_t taps = size_t{cut.kernel_y} * cut.kernel_x;
  for (size_t o = 0; o < outs; ++o) {
    const auto begin = data.weight.begin() + static_cast<long>(o * sizes.in_channels * taps);
    part.weight.insert(part.weight.end(), begin, begin + static_cast<long>(ins * taps));
  }
  part.bias.assign(data.bias.begin(), data.bias.begin() + outs);
  for (size_t c = 0; c < ins; ++c) {
    for (size_t pixel = 0; pixel < 64; ++pixel) {
      part.input.push_back(values[(c / in_block * 64 + pixel) * in_block + c % in_block]);
    }
  }
  const ConvOracle oracle = oracle_of<PlaneGeometry>(cut, part);
  const std::vector<float> found = values_of(*outputs[0]);
  const size_t pixels = static_cast<size_t>(oracle.height * oracle.width);
  for (size_t c = 0; c < outs; ++c) {
    for (size_t pixel = 0; pixel < pixels; ++pixel) {
      const size_t at = (c / out_block * pixels + pixel) * out_block + c % out_block;
      ASSERT_EQ(found[at], oracle.sums[c * pixels + pixel].value) << c << ", " << pixel;
    }
  }
}

// Groups aren't read: such a layer gets the first group's weights, and no access leaves them.
TEST_P(DirectConvolution, StaysInsideTheWeightsOfALayerWithGroups) {
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const Paddings p = paddings()[0];
  const ConvCase sizes = tester(2, 2).padding(p[0], p[1], p[2], p[3]).size(8, 8).sizes();
  for (const uint16_t groups : {uint16_t{2}, uint16_t{3}, uint16_t{64}}) {
    const auto info = describe<PlaneGeometry>(sizes, integer_data(sizes, 1));
    info->groups = groups;
    if (!kernel->Config(info, nullptr, context)) continue;
    std::vector<uint32_t> dims = {sizes.in_channels / BlockSize(row().input.layout), 8, 8};
    if (BlockSize(row().input.layout) > 1) dims.push_back(BlockSize(row().input.layout));
    const std::vector<float> values(sizes.input_size(), 1.0f);
    IKernel::Tensors outputs;
    kernel->Forward({context.floats(dims, row().input.layout, values)}, outputs, context);
    context.pool().check();
  }
}

// The kernel to one plane takes pixels two by two and leaves an odd last row and column as they
// were: the bias, or zero.
TEST_P(DirectConvolution, LeavesOddEndsAloneWhereItIsKnownTo) {
  if (!leaves_odd_ends(row())) GTEST_SKIP() << "takes all pixels";
  for (const bool bias : {true, false}) {
    const ConvTester odd = tester(2, 1).padding(1).size(5, 7).bias(bias);
    const ConvData data = integer_data(odd.sizes(), 3);
    const std::vector<float> found = odd.output(row(), data);
    const ConvOracle oracle = oracle_of<PlaneGeometry>(odd.sizes(), data);
    for (size_t y = 0; y < 5; ++y) {
      for (size_t x = 0; x < 7; ++x) {
        const bool computed = y < 4 && x < 6;
        const double untouched = bias ? data.bias[0] : 0.0f;
        EXPECT_EQ(found[y * 7 + x], computed ? oracle.sums[y * 7 + x].value : untouched);
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, DirectConvolution,
                         testing::ValuesIn(kernel::direct_convolution_rows),
                         [](const auto& test) { return std::string(test.param->name); });

// The methods over blocks of four differ in the order of their loops only.
#if QRT_WITH_SSE
TEST(DirectConvolutionMethods, AgreeInEveryBit) {
  const ConvTester tester = ConvTester().channels(12, 20).kernel(3, 3).padding(1).size(9, 14);
  const ConvData data = float_data(tester.sizes(), 9);
  using namespace kernel::rows;
  const auto first = tester.output(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1, data);
  EXPECT_TRUE(same_bits(tester.output(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M2, data), first));
  EXPECT_TRUE(same_bits(tester.output(Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M3, data), first));
}
#endif

}  // namespace
}  // namespace marlo::test

#endif
