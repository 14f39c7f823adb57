#include "qrt_core/kernel/basic/upsampling.h"

#include <gtest/gtest.h>

#include <cmath>

#include "qrt_core/runtime/model/layers.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using kernel::upsampling_rows;
using kernel::UpsamplingFactors;
using kernel::UpsamplingMethod;
using kernel::UpsamplingModes;
using kernel::UpsamplingRow;
using runtime::LayoutType;
using Dims = std::vector<uint32_t>;
using Tensors = runtime::IKernel::Tensors;

/// The parameters of one upsampling.
struct Scale {
  float y;
  float x;
  bool align = false;
  uint16_t type = 1;  // 0 nearest, 1 bilinear
};

std::shared_ptr<runtime::Upsample2dInfo> description(const Scale& scale) {
  auto info = std::make_shared<runtime::Upsample2dInfo>();
  info->scale_factor_y = scale.y;
  info->scale_factor_x = scale.x;
  info->align_corner = scale.align;
  info->unsample_type = scale.type;
  return info;
}

/// Where an output reads, and what the second tap weighs.
struct Position {
  int first;
  int second;
  double weight;
};

// The general rule, from the definition.
Position general(int i, int in, int out, float factor, bool align) {
  const double ratio = align ? (in - 1.0) / (out - 1.0) : 1.0 / static_cast<double>(factor);
  const double at = align ? i * ratio : (i + 0.5) * ratio - 0.5;
  const double inside = std::min(std::max(at, 0.0), in - 1.0);
  const int first = static_cast<int>(inside);
  return {first, std::min(first + 1, in - 1), inside - first};
}

// The rule by sizes: a position before the first input extrapolates.
Position by_sizes(int i, int in, int out, bool align) {
  const double at =
      align ? i * (in - 1.0) / (out - 1.0) : (i + 0.5) * in / static_cast<double>(out) - 0.5;
  const int first = static_cast<int>(at);
  const int second = std::min(first + 1, in - 1);
  return {first, second, at - first};
}

std::vector<double> planes_scaled(const UpsamplingRow& row, const Scale& scale,
                                  const std::vector<double>& in, int planes, int h, int w, int n,
                                  int ho, int wo) {
  const auto position = [&](int i, int size, int out, float factor) {
    if (scale.type == 0) {
      const int index = static_cast<int>(std::floor(i / static_cast<double>(factor)));
      return Position{index, index, 0.0};
    }
    return row.method == UpsamplingMethod::by_sizes ? by_sizes(i, size, out, scale.align)
                                                    : general(i, size, out, factor, scale.align);
  };
  std::vector<double> result;
  for (int p = 0; p < planes; ++p) {
    for (int oh = 0; oh < ho; ++oh) {
      const Position y = position(oh, h, ho, scale.y);
      for (int ow = 0; ow < wo; ++ow) {
        const Position x = position(ow, w, wo, scale.x);
        for (int lane = 0; lane < n; ++lane) {
          const auto at = [&](int r, int c) {
            return in[static_cast<size_t>(((p * h + r) * w + c) * n + lane)];
          };
          const double top =
              at(y.first, x.first) * (1 - x.weight) + at(y.first, x.second) * x.weight;
          const double bottom =
              at(y.second, x.first) * (1 - x.weight) + at(y.second, x.second) * x.weight;
          result.push_back(top * (1 - y.weight) + bottom * y.weight);
        }
      }
    }
  }
  return result;
}

int size_of(const UpsamplingRow& row, int size, float factor) {
  return row.method == UpsamplingMethod::by_sizes
             ? static_cast<int>(static_cast<float>(size) * factor)
             : static_cast<int>(std::floor(static_cast<float>(size) * factor + 0.5f));
}

class UpsamplingRows : public testing::TestWithParam<const UpsamplingRow*> {
 protected:
  const UpsamplingRow& row() const { return *GetParam(); }

  bool takes(uint16_t type) const {
    return row().modes == UpsamplingModes::both ||
           (row().modes == UpsamplingModes::nearest) == (type == 0);
  }
  uint16_t a_type() const { return row().modes == UpsamplingModes::nearest ? 0 : 1; }

  Dims dims(int planes, int h, int w) const {
    Dims dims{uint32_t(planes), uint32_t(h), uint32_t(w)};
    if (row().block != 1) dims.push_back(row().block);
    return dims;
  }

  std::shared_ptr<runtime::Tensor> run(const Scale& scale, const Dims& sizes,
                                       const std::vector<float>& values) {
    const auto kernel = make_kernel(row().name);
    EXPECT_TRUE(kernel->Config(description(scale), nullptr, context_));
    Tensors outputs;
    const auto input = context_.external_floats(sizes, row().layout, values);
    EXPECT_EQ(kernel->Forward({input}, outputs, context_), 0);
    EXPECT_EQ(outputs.at(0)->shape, kernel->InferOutputShapes({input->shape}).at(0));
    return outputs[0];
  }

  void expect_scaled(const Scale& scale, int planes, int h, int w) {
    SCOPED_TRACE(testing::Message()
                 << row().name << " factors " << scale.y << " " << scale.x << " align "
                 << scale.align << " type " << scale.type << " size " << h << " x " << w);
    const int n = static_cast<int>(row().block);
    const auto values = Random(5).floats(static_cast<size_t>(planes * h * w * n));
    std::vector<double> expected(values.begin(), values.end());
    int ho = size_of(row(), h, scale.y);
    int wo = size_of(row(), w, scale.x);
    if (row().method == UpsamplingMethod::doubling && scale.y == 4 && scale.x == 4) {
      const Scale two{2, 2, scale.align, scale.type};
      expected = planes_scaled(row(), two, expected, planes, h, w, n, 2 * h, 2 * w);
      expected = planes_scaled(row(), two, expected, planes, 2 * h, 2 * w, n, ho, wo);
    } else {
      expected = planes_scaled(row(), scale, expected, planes, h, w, n, ho, wo);
    }
    const auto output = run(scale, dims(planes, h, w), values);
    ASSERT_EQ(output->shape.dims, dims(planes, ho, wo));
    const auto found = values_of(*output);
    // A position is off by a few units in its last place, which tilts the blend as far.
    const double bound = scale.type == 0 ? 0.0 : 16 * kEpsilon * std::max({h, w, 2});
    for (size_t i = 0; i < found.size(); ++i) {
      ASSERT_NEAR(found[i], expected[i], bound) << "at " << i;
    }
  }

  TestContext context_;
};

TEST_P(UpsamplingRows, AgreesWithItsDefinition) {
  QRT_SKIP_WHERE_MISSING(row().name);
  const int planes = row().channel_multiple > 1 ? static_cast<int>(row().channel_multiple) : 2;
  for (const uint16_t type : std::vector<uint16_t>{0, 1}) {
    if (!takes(type)) continue;
    for (const bool align : {false, true}) {
      for (const auto& [y, x] :
           {std::pair{2.0f, 2.0f}, {4.0f, 4.0f}, {3.0f, 2.0f}, {1.5f, 2.25f}, {1.0f, 4.0f}}) {
        for (const auto& [h, w] : {std::pair{2, 2}, {3, 5}, {7, 4}, {2, 17}}) {
          expect_scaled({y, x, align, type}, planes, h, w);
        }
      }
    }
  }
}

TEST_P(UpsamplingRows, OneRowOrColumnScalesWithoutAlignment) {
  QRT_SKIP_WHERE_MISSING(row().name);
  const int planes = static_cast<int>(row().channel_multiple);
  for (const auto& [h, w] : {std::pair{1, 1}, {1, 5}, {5, 1}}) {
    expect_scaled({2, 2, false, a_type()}, planes, h, w);
  }
}

TEST_P(UpsamplingRows, FactorOneGivesBackTheInput) {
  QRT_SKIP_WHERE_MISSING(row().name);
  const int planes = static_cast<int>(row().channel_multiple);
  const auto values = Random(6).floats(static_cast<size_t>(planes) * 15 * row().block);
  const auto output = run({1, 1, false, a_type()}, dims(planes, 3, 5), values);
  EXPECT_TRUE(same_bits(values_of(*output), values));
}

TEST_P(UpsamplingRows, AlignedCornersOfOneOutputReadTheFirstInput) {
  QRT_SKIP_WHERE_MISSING(row().name);
  const int planes = static_cast<int>(row().channel_multiple);
  const std::vector<float> values(static_cast<size_t>(planes) * row().block, 3.0f);
  const auto output = run({1, 1, true, a_type()}, dims(planes, 1, 1), values);
  EXPECT_TRUE(same_bits(values_of(*output), values));
}

TEST_P(UpsamplingRows, OutputSizesRoundOrTruncate) {
  const auto kernel = make_kernel(row().name);
  ASSERT_TRUE(kernel->Config(description({1.5f, 1.5f, false, a_type()}), nullptr, context_));
  const runtime::TensorShape shape(dims(4, 3, 5), runtime::DataType::FLOAT32, row().layout);
  // 4.5 and 7.5: by the factor they round up, by sizes they are cut.
  const bool cuts = row().method == UpsamplingMethod::by_sizes;
  EXPECT_EQ(kernel->InferOutputShapes({shape})[0].dims, cuts ? dims(4, 4, 7) : dims(4, 5, 8));
}

TEST_P(UpsamplingRows, ChecksModeAndFactors) {
  const auto kernel = make_kernel(row().name);
  const auto check = [&](const Scale& scale) {
    return kernel->CheckConfig(description(scale), nullptr);
  };
  EXPECT_EQ(check({2, 2, false, 0}), takes(0) ? 0 : -1);
  EXPECT_EQ(check({2, 2, false, 1}), takes(1) ? 0 : -1);
  EXPECT_EQ(check({2, 2, false, 2}), -1);
  const bool halves = row().factors != UpsamplingFactors::at_least_one;
  EXPECT_EQ(check({0.5f, 2, false, a_type()}), halves ? 0 : -1);
  EXPECT_EQ(check({2, 0.5f, false, a_type()}), halves ? 0 : -1);
  const bool negatives = row().factors == UpsamplingFactors::any;
  EXPECT_EQ(check({-1, 2, false, a_type()}), negatives ? 0 : -1);
  EXPECT_EQ(kernel->CheckConfig(description({2, 2, false, a_type()}),
                                std::make_shared<runtime::InferenceParamActQuant>()),
            -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  const auto text = failure_of([&] { check({2, 2, false, 3}); });
  EXPECT_NE(text.find("Invalid upsample2d type"), std::string::npos) << text;
}

TEST_P(UpsamplingRows, ChecksOneFloatTensorOfItsLayout) {
  const auto kernel = make_kernel(row().name);
  const auto tensor = context_.device()->CreateTensor(
      runtime::TensorShape(dims(1, 1, 1), runtime::DataType::FLOAT32, row().layout), nullptr);
  EXPECT_EQ(kernel->CheckInputs({tensor}), 0);
  EXPECT_EQ(kernel->CheckOutputs({tensor}), 0);
  EXPECT_EQ(kernel->CheckInputs({tensor, tensor}), -2);
  EXPECT_EQ(kernel->CheckInputs({context_.device()->CreateF32CMainMemory(1, nullptr)}), -2);
}

TEST_P(UpsamplingRows, SizesThatAreNoneFailCleanly) {
  const auto kernel = make_kernel(row().name);
  const runtime::TensorShape shape(dims(1, 100000, 100000), runtime::DataType::FLOAT32,
                                   row().layout);
  ASSERT_TRUE(kernel->Config(description({1e6f, 1e6f, false, a_type()}), nullptr, context_));
  EXPECT_NE(failure_of([&] { kernel->InferOutputShapes({shape}); }), "");
  EXPECT_NE(failure_of([&] { kernel->InferOutputShapes({}); }), "");
}

INSTANTIATE_TEST_SUITE_P(All, UpsamplingRows, testing::ValuesIn(upsampling_rows),
                         [](const auto& row) { return std::string(row.param->name); });

constexpr char kPortable[] = "Upsampling2D_Fallback_CHW_Float_M1";

Tensors forward(TestContext& context, const char* name, const Scale& scale,
                const std::shared_ptr<runtime::Tensor>& input) {
  const auto kernel = make_kernel(name);
  EXPECT_TRUE(kernel->Config(description(scale), nullptr, context));
  Tensors outputs;
  EXPECT_EQ(kernel->Forward({input}, outputs, context), 0);
  return outputs;
}

#if QRT_WITH_SSE
TEST(Upsampling, HalvesWhereAFactorBelow1IsTaken) {
  TestContext context;
  const auto values = Random(9).floats(6 * 8 * 4);
  for (const char* name :
       {"Upsampling2D_Bilinear_SSE_C4HW4_Float_M1", "Upsampling2D_Bilinear_SSE_C4HW4_Float_M2",
        "Upsampling2D_Bilinear_SSE_C4HW4_Float_M3"}) {
    const auto input = context.floats({1, 6, 8, 4}, LayoutType::C4HW4, values);
    const auto found = values_of(*forward(context, name, {0.5f, 0.5f}, input).at(0));
    ASSERT_EQ(found.size(), 3u * 4 * 4);
    for (size_t i = 0; i < found.size(); ++i) {
      const size_t row = i / 16, column = i / 4 % 4, lane = i % 4;
      const auto at = [&](size_t r, size_t c) { return values[(r * 8 + c) * 4 + lane]; };
      const float mean = (at(2 * row, 2 * column) + at(2 * row, 2 * column + 1) +
                          at(2 * row + 1, 2 * column) + at(2 * row + 1, 2 * column + 1)) /
                         4;
      EXPECT_NEAR(found[i], mean, 1e-6) << name;
    }
  }
}
#endif

TEST(Upsampling, ThePortableKernelTestsNoFactor) {
  TestContext context;
  const auto input = context.floats({1, 2, 2}, LayoutType::CHW, {1, 2, 3, 4});
  EXPECT_EQ(values_of(*forward(context, kPortable, {0.5f, 0.5f, false, 0}, input).at(0)),
            std::vector<float>{1.0f});
  EXPECT_EQ(forward(context, kPortable, {0.0f, 0.0f}, input).at(0)->shape.dims, (Dims{1, 0, 0}));
  EXPECT_NE(failure_of([&] { forward(context, kPortable, {-2.0f, 1.0f}, input); }), "");
  EXPECT_NE(failure_of([&] { forward(context, kPortable, {kNaN, 1.0f}, input); }), "");
}

#if QRT_WITH_SSE && QRT_WITH_AVX
TEST(Upsampling, ACHWMemberWithOtherChannelsLogsAndLeavesTheOutputs) {
  for (const char* name :
       {"Upsampling2D_Bilinear_SSE_CHW_Float_M1", "Upsampling2D_Bilinear_SSE_CHW_Float_M2",
        "Upsampling2D_Bilinear_AVX_CHW_Float_M1", "Upsampling2D_Bilinear_AVX_CHW_Float_M2"}) {
    TestContext context;
    LogCapture log;
    const auto input = context.floats({6, 1, 1}, LayoutType::CHW, std::vector<float>(6));
    const auto kernel = make_kernel(name);
    ASSERT_TRUE(kernel->Config(description({2, 2}), nullptr, context));
    Tensors outputs{input};
    EXPECT_EQ(kernel->Forward({input}, outputs, context), 0);
    EXPECT_EQ(outputs, Tensors{input}) << name;
    ASSERT_EQ(log.lines().size(), 1u) << name;
    EXPECT_EQ(log.lines()[0],
              "[QRT]: Upsampling2D_Bilinear_SSE_CHW_Float_M1 Channels not support !\n");
  }
}
#endif

#if QRT_WITH_SSE
TEST(Upsampling, TheThirdCHWMembersTakeAnyChannels) {
  TestContext context;
  const auto input = context.floats({3, 1, 1}, LayoutType::CHW, {1, 2, 3});
  EXPECT_EQ(
      values_of(*forward(context, "Upsampling2D_Bilinear_SSE_CHW_Float_M3", {1, 2}, input).at(0)),
      (std::vector<float>{1, 1, 2, 2, 3, 3}));
}
#endif

}  // namespace
}  // namespace marlo::test
