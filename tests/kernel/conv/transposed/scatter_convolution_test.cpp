#include "qrt_core/kernel/conv/transposed/scatter_convolution.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <string>

#include "tests/support/blocked_layout.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// Fast transposed convolutions: the full result by its definition, and what is cut off it.

#if QRT_WITH_SSE || QRT_WITH_AVX

namespace marlo::test {
namespace {

using runtime::BlockSize;
using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::TensorShape;

using Row = kernel::ConvolutionRow<kernel::ScatterGeometry>;

struct Layer {
  uint32_t ins = 8;
  uint32_t outs = 8;
  uint32_t height = 3;
  uint32_t width = 4;
  std::array<int16_t, 4> paddings = {};  // left, right, top, bottom
  bool bias = true;
  std::vector<float> input, weights, biases;  // weights are [out, in, 3, 3]

  void fill(bool integers) {
    Random random(ins + outs + height * 31 + width);
    const auto numbers = [&](size_t count) {
      return integers ? random.small_integers(count) : random.floats(count);
    };
    input = numbers(size_t{ins} * height * width);
    weights = numbers(size_t{outs} * ins * 9);
    biases = bias ? numbers(outs) : std::vector<float>();
  }

  std::shared_ptr<runtime::ConvTranspose2dInfo> info() const {
    auto info = std::make_shared<runtime::ConvTranspose2dInfo>();
    info->in_channels = static_cast<uint16_t>(ins);
    info->out_channels = static_cast<uint16_t>(outs);
    info->kernel_x = info->kernel_y = 3;
    info->stride_x = info->stride_y = 2;
    info->dilation_x = info->dilation_y = 1;
    info->groups = 1;
    info->padding_l = paddings[0];
    info->padding_r = paddings[1];
    info->padding_t = paddings[2];
    info->padding_b = paddings[3];
    info->if_bias = bias;
    info->weight = weight_text(weights);
    info->bias = weight_text(biases);
    return info;
  }

  uint32_t out_height() const {
    return 2 * height + 1 - static_cast<uint32_t>(paddings[2] + paddings[3]);
  }
  uint32_t out_width() const {
    return 2 * width + 1 - static_cast<uint32_t>(paddings[0] + paddings[1]);
  }

  // out[2 i + k] += w[k] in[i], from the bias on, and then the margins go.
  std::vector<Sum> sums() const {
    std::vector<Sum> all(size_t{outs} * out_height() * out_width());
    for (size_t o = 0; o < outs; ++o) {
      Sum* plane = &all[o * out_height() * out_width()];
      for (size_t i = 0; bias && i < out_height() * out_width(); ++i) plane[i].add(biases[o]);
      for (size_t i = 0; i < ins; ++i) {
        for (size_t at = 0; at < size_t{height} * width; ++at) {
          for (size_t tap = 0; tap < 9; ++tap) {
            const auto y = static_cast<long>(at / width * 2 + tap / 3) - paddings[2];
            const auto x = static_cast<long>(at % width * 2 + tap % 3) - paddings[0];
            if (y < 0 || x < 0 || y >= static_cast<long>(out_height()) ||
                x >= static_cast<long>(out_width())) {
              continue;
            }
            plane[y * static_cast<long>(out_width()) + x].add(
                double{weights[(o * ins + i) * 9 + tap]} * input[i * height * width + at]);
          }
        }
      }
    }
    return all;
  }
};

class ScatterConvolution : public testing::TestWithParam<const Row*> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam()->name); }

  const Row& row() const { return *GetParam(); }
  uint32_t block() const { return BlockSize(row().input.layout); }

  std::vector<float> run(const Layer& layer) {
    TestContext context;
    const auto kernel = make_kernel(row().name);
    EXPECT_TRUE(kernel->Config(layer.info(), nullptr, context));
    const auto layout = row().input.layout;
    const auto input =
        context.floats(dims_in_layout({layer.ins, layer.height, layer.width}, layout), layout,
                       to_layout(layer.input, layer.ins, layout));
    EXPECT_EQ(kernel->CheckInputs({input}), 0);
    IKernel::Tensors outputs;
    EXPECT_EQ(kernel->Forward({input}, outputs, context), 0);
    const TensorShape expected(
        dims_in_layout({layer.outs, layer.out_height(), layer.out_width()}, layout),
        DataType::FLOAT32, layout);
    EXPECT_TRUE(outputs.at(0)->shape == expected);
    EXPECT_TRUE(kernel->InferOutputShapes({input->shape}).at(0) == expected);
    EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
    context.pool().check();
    return from_layout(values_of(*outputs[0]), layer.outs, layout);
  }

  void test(Layer layer) {
    layer.fill(true);
    EXPECT_TRUE(exactly(run(layer), layer.sums()));
    layer.fill(false);
    EXPECT_TRUE(within_bounds(run(layer), layer.sums()));
  }

  Layer layer(uint32_t in_blocks, uint32_t out_blocks, uint32_t height, uint32_t width) const {
    Layer made;
    made.ins = in_blocks * block();
    made.outs = out_blocks * block();
    made.height = height;
    made.width = width;
    return made;
  }
};

TEST_P(ScatterConvolution, GivesTheFullResultOfEverySize) {
  for (uint32_t height = 1; height <= 4; ++height) {
    for (uint32_t width = 1; width <= 15; ++width) {
      Layer some = layer(1 + width % 2, 1 + height % 3, height, width);
      some.bias = width % 3 != 0;
      test(some);
    }
  }
}

TEST_P(ScatterConvolution, TakesEveryNumberOfBlocks) {
  for (uint32_t in = 1; in <= 4; ++in) {
    for (uint32_t out = 1; out <= 5; ++out) test(layer(in, out, 2, 7));
  }
}

TEST_P(ScatterConvolution, CutsThePaddingsOff) {
  for (const std::array<int16_t, 4>& p :
       {std::array<int16_t, 4>{1, 1, 1, 1}, std::array<int16_t, 4>{1, 0, 0, 0},
        std::array<int16_t, 4>{0, 2, 3, 0}, std::array<int16_t, 4>{4, 4, 0, 6}}) {
    Layer some = layer(1, 2, 3, 5);
    some.paddings = p;
    test(some);
  }
}

// Where an output that isn't a number, or is infinite, comes from a tap or an input that is.
TEST_P(ScatterConvolution, SpreadsWhatIsNotFiniteOnlyToOutputsThatItReaches) {
  const auto expect_as_defined = [this](const Layer& some, const std::string& what) {
    const std::vector<float> found = run(some);
    const std::vector<Sum> sums = some.sums();
    for (size_t i = 0; i < found.size(); ++i) {
      const auto wanted = static_cast<float>(sums[i].value);
      EXPECT_EQ(std::fpclassify(found[i]), std::fpclassify(wanted))
          << what << ", output " << i << ": " << found[i] << " instead of " << wanted;
    }
  };
  for (const float special : {kInfinity, kNaN}) {
    for (const std::array<uint32_t, 2>& size : {std::array<uint32_t, 2>{1, 1}, {2, 2}, {3, 9}}) {
      Layer some = layer(1, 1, size[0], size[1]);
      some.fill(false);
      for (size_t tap = 0; tap < 9; ++tap) {
        Layer changed = some;
        changed.weights[tap] = special;
        expect_as_defined(changed, "tap " + std::to_string(tap));
      }
      for (size_t at : {size_t{0}, size_t{size[0]} * size[1] - 1}) {
        Layer changed = some;
        changed.input[at] = special;
        expect_as_defined(changed, "input " + std::to_string(at));
      }
    }
  }
}

TEST_P(ScatterConvolution, RefusesPaddingsThatLeaveNothingOrAddSomething) {
  for (const std::array<int16_t, 4>& p :
       {std::array<int16_t, 4>{-1, 0, 0, 0}, std::array<int16_t, 4>{0, 0, 0, -3},
        std::array<int16_t, 4>{6, 6, 0, 0}, std::array<int16_t, 4>{0, 0, 32767, 32767}}) {
    TestContext context;
    Layer some = layer(1, 1, 2, 5);
    some.fill(true);
    some.paddings = p;
    const auto kernel = make_kernel(row().name);
    ASSERT_TRUE(kernel->Config(some.info(), nullptr, context)) << "paddings aren't tested there";
    const auto layout = row().input.layout;
    const auto input = context.floats(dims_in_layout({some.ins, 2, 5}, layout), layout,
                                      to_layout(some.input, some.ins, layout));
    IKernel::Tensors outputs;
    EXPECT_NE(failure_of([&] { kernel->Forward({input}, outputs, context); }), "");
    EXPECT_TRUE(outputs.empty());
  }
}

TEST_P(ScatterConvolution, ChecksDescriptionsAsDocumented) {
  const auto kernel = make_kernel(row().name);
  const auto verdict = [&](auto change) {
    Layer some = layer(1, 1, 2, 2);
    some.fill(true);
    const auto info = some.info();
    change(*info);
    return kernel->CheckConfig(info, nullptr);
  };
  EXPECT_EQ(verdict([](auto&) {}), 0);
  EXPECT_EQ(verdict([](auto& info) { info.kernel_x = 2; }), -1);
  EXPECT_EQ(verdict([](auto& info) { info.kernel_y = 4; }), -1);
  EXPECT_EQ(verdict([](auto& info) { info.stride_x = 1; }), -1);
  EXPECT_EQ(verdict([](auto& info) { info.stride_y = 3; }), -1);
  EXPECT_EQ(verdict([](auto& info) { info.dilation_x = 2; }), -1);
  EXPECT_EQ(verdict([](auto& info) { info.dilation_y = 2; }), -1);
  EXPECT_EQ(verdict([](auto& info) { info.groups = 0; }), -1);
  EXPECT_EQ(verdict([](auto& info) { info.groups = 2; }), 0);
  EXPECT_EQ(verdict([](auto& info) { info.padding_l = -7; }), 0);
  EXPECT_EQ(verdict([](auto& info) { info.in_channels = 0; }), block() == 1 ? -1 : 0);
  EXPECT_EQ(verdict([](auto& info) { info.out_channels = 0; }), block() == 1 ? -1 : 0);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::Conv2dInfo>(), nullptr), -1);
}

TEST_P(ScatterConvolution, ComparesNoChannels) {
  TestContext context;
  Layer some = layer(1, 1, 2, 2);
  some.fill(true);
  const auto kernel = make_kernel(row().name);
  ASSERT_TRUE(kernel->Config(some.info(), nullptr, context));
  const auto tensor = [&](LayoutType layout, uint32_t blocks, DataType type) {
    return IKernel::Tensors{context.device()->CreateTensor(
        TensorShape(dims_in_layout({blocks * BlockSize(layout), 2, 2}, layout), type, layout),
        nullptr)};
  };
  const LayoutType layout = row().input.layout;
  EXPECT_EQ(kernel->CheckInputs(tensor(layout, 3, DataType::FLOAT32)), 0);
  EXPECT_EQ(kernel->CheckInputs(tensor(layout, 3, DataType::FLOAT16)), 0);
  EXPECT_EQ(kernel->CheckInputs(tensor(LayoutType::HWC, 1, DataType::FLOAT32)), -2);
  EXPECT_EQ(kernel->CheckOutputs(tensor(layout, 3, DataType::FLOAT32)), 0);
  EXPECT_EQ(kernel->CheckOutputs(tensor(layout, 1, DataType::FLOAT16)), -2);
}

INSTANTIATE_TEST_SUITE_P(Rows, ScatterConvolution,
                         testing::ValuesIn(kernel::scatter_convolution_rows),
                         [](const auto& test) { return std::string(test.param->name); });

}  // namespace
}  // namespace marlo::test

#endif
