#include <gtest/gtest.h>

#include <cmath>
#include <functional>

#include "qrt_core/kernel/basic/grid_sample.h"
#include "qrt_core/kernel/basic/softmax.h"
#include "qrt_core/runtime/model/layers.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using runtime::LayoutType;
using Dims = std::vector<uint32_t>;
using Tensors = runtime::IKernel::Tensors;

constexpr char kSoftmax[] = "Softmax_Fallback_Float_M1";
constexpr char kGridSample[] = "GridSample_Fallback_CHW_Float_M1";

std::shared_ptr<runtime::SoftmaxInfo> softmax_of(uint16_t dim) {
  auto info = std::make_shared<runtime::SoftmaxInfo>();
  info->dim = dim;
  return info;
}

class Softmax : public testing::Test {
 protected:
  std::vector<float> run(uint16_t dim, const Dims& dims, const std::vector<float>& values) {
    const auto kernel = make_kernel(kSoftmax);
    EXPECT_TRUE(kernel->Config(softmax_of(dim), nullptr, context_));
    Tensors outputs;
    const auto input = context_.external_floats(dims, LayoutType::CHW, values);
    EXPECT_EQ(kernel->Forward({input}, outputs, context_), 0);
    EXPECT_EQ(outputs.at(0)->shape, input->shape);
    return values_of(*outputs[0]);
  }

  TestContext context_;
};

// From the definition, in double precision throughout.
std::vector<double> softmax_oracle(size_t axis, const Dims& dims, const std::vector<float>& in) {
  std::vector<double> out(in.size());
  size_t inner = 1;
  for (size_t k = axis + 1; k < dims.size(); ++k) inner *= dims[k];
  for (size_t i = 0; i < in.size(); ++i) {
    const size_t place = i / inner % dims[axis];
    double sum = 0;
    for (size_t k = 0; k < dims[axis]; ++k) {
      sum += std::exp(static_cast<double>(in[i + k * inner - place * inner]));
    }
    out[i] = std::exp(static_cast<double>(in[i])) / sum;
  }
  return out;
}

TEST_F(Softmax, NormalisesAlongEachAxis) {
  const Dims dims{3, 4, 5};
  const std::vector<float> values = Random(7).floats(60, 5.0f);
  for (uint16_t dim = 1; dim <= 3; ++dim) {
    const auto found = run(dim, dims, values);
    const auto expected = softmax_oracle(dim - 1u, dims, values);
    for (size_t i = 0; i < found.size(); ++i) {
      EXPECT_NEAR(found[i], expected[i], 4 * kEpsilon * expected[i])
          << "dim " << dim << " at " << i;
    }
  }
}

TEST_F(Softmax, SumsFloatExponentialsInDoubleInOrder) {
  const std::vector<float> values = Random(8).floats(17, 10.0f);
  double sum = 0;
  for (const float x : values) sum += std::exp(x);
  std::vector<float> expected;
  for (const float x : values) expected.push_back(static_cast<float>(std::exp(x) / sum));
  EXPECT_TRUE(same_bits(run(1, {17}, values), expected));
}

TEST_F(Softmax, AnAxisOfLength1GivesOne) {
  EXPECT_TRUE(
      same_bits(run(2, {2, 1, 2}, {-80.0f, 0.0f, 3.0f, 88.0f}), std::vector<float>(4, 1.0f)));
}

TEST_F(Softmax, AnInfiniteExponentialGivesNaNAndTheOthersZero) {
  const auto found = run(1, {3}, {1.0f, 100.0f, 2.0f});
  EXPECT_EQ(found[0], 0.0f);
  EXPECT_TRUE(std::isnan(found[1]));
  EXPECT_EQ(found[2], 0.0f);
}

TEST_F(Softmax, AnAxisThatIsNotThereFailsCleanly) {
  for (const uint16_t dim : std::vector<uint16_t>{0, 4, 65535}) {
    EXPECT_NE(failure_of([&] { run(dim, {1, 2, 2}, {1, 2, 3, 4}); }), "") << dim;
  }
}

TEST_F(Softmax, ChecksItsDescriptionAndTheFirstTensor) {
  const auto kernel = make_kernel(kSoftmax);
  EXPECT_EQ(kernel->CheckConfig(softmax_of(1), nullptr), 0);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::InputInfo>(), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(softmax_of(1), std::make_shared<runtime::InferenceParamActQuant>()),
            -1);
  const auto tensor = context_.floats({1}, LayoutType::C, {1.0f});
  const auto bytes = context_.device()->CreateU8CHWMainMem({1}, nullptr);
  EXPECT_EQ(kernel->CheckInputs({tensor, bytes}), 0);
  EXPECT_EQ(kernel->CheckOutputs({tensor, bytes}), 0);
  EXPECT_EQ(kernel->CheckInputs({bytes}), -2);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
}

struct Sampling {
  uint16_t mode;     // 0 nearest, 1 bilinear
  uint16_t padding;  // 0 zeros, 1 border
  bool align;
};

std::shared_ptr<runtime::GridSampleInfo> grid_sample(const Sampling& sampling) {
  auto info = std::make_shared<runtime::GridSampleInfo>();
  info->mode = sampling.mode;
  info->padding_mode = sampling.padding;
  info->align_corners = sampling.align;
  return info;
}

class GridSample : public testing::Test {
 protected:
  std::vector<float> run(const Sampling& sampling, const Dims& picture_dims,
                         const std::vector<float>& picture, const Dims& grid_dims,
                         const std::vector<float>& grid) {
    const auto kernel = make_kernel(kGridSample);
    EXPECT_TRUE(kernel->Config(grid_sample(sampling), nullptr, context_));
    Tensors outputs;
    const Tensors inputs{context_.external_floats(picture_dims, LayoutType::CHW, picture),
                         context_.external_floats(grid_dims, LayoutType::FLEXIABLE, grid)};
    EXPECT_EQ(kernel->Forward(inputs, outputs, context_), 0);
    EXPECT_EQ(outputs.at(0)->shape.dims, (Dims{picture_dims[0], grid_dims[0], grid_dims[1]}));
    return values_of(*outputs[0]);
  }

  // One position on one plane.
  float sample(const Sampling& sampling, const Dims& dims, const std::vector<float>& picture,
               float gx, float gy) {
    return run(sampling, dims, picture, {1, 1, 2}, {gx, gy})[0];
  }

  TestContext context_;
};

// The picture as a function of all integer positions, in double precision.
double tap(const std::vector<float>& plane, int height, int width, int y, int x, bool border) {
  if (border) {
    y = std::min(std::max(y, 0), height - 1);
    x = std::min(std::max(x, 0), width - 1);
  }
  const bool outside = y < 0 || y >= height || x < 0 || x >= width;
  return outside ? 0.0 : static_cast<double>(plane[static_cast<size_t>(y * width + x)]);
}

double bilinear_oracle(const Sampling& s, const std::vector<float>& plane, int height, int width,
                       double gx, double gy) {
  const double x = s.align ? (1 + gx) / 2 * (width - 1) : (1 + gx) / 2 * width - 0.5;
  const double y = s.align ? (1 + gy) / 2 * (height - 1) : (1 + gy) / 2 * height - 0.5;
  const int ix = static_cast<int>(std::floor(x));
  const int iy = static_cast<int>(std::floor(y));
  double sum = 0;
  for (int dy = 0; dy < 2; ++dy) {
    for (int dx = 0; dx < 2; ++dx) {
      const double weight = (1 - std::abs(x - ix - dx)) * (1 - std::abs(y - iy - dy));
      sum += weight * tap(plane, height, width, iy + dy, ix + dx, s.padding == 1);
    }
  }
  return sum;
}

TEST_F(GridSample, BilinearAgreesWithItsDefinition) {
  for (const uint16_t padding : std::vector<uint16_t>{0, 1}) {
    for (const bool align : {false, true}) {
      for (const auto& [height, width] : {std::pair{1, 1}, std::pair{4, 5}, std::pair{3, 9}}) {
        Random random(11);
        const Sampling sampling{1, padding, align};
        const auto plane = random.floats(static_cast<size_t>(height * width));
        const auto grid = random.floats(2 * 30, 1.4f);
        const auto found =
            run(sampling, {1, uint32_t(height), uint32_t(width)}, plane, {5, 6, 2}, grid);
        for (size_t i = 0; i < 30; ++i) {
          const double expected =
              bilinear_oracle(sampling, plane, height, width, static_cast<double>(grid[2 * i]),
                              static_cast<double>(grid[2 * i + 1]));
          EXPECT_NEAR(found[i], expected, 32 * kEpsilon * std::max(height, width))
              << "padding " << padding << " align " << align << " at " << i;
        }
      }
    }
  }
}

TEST_F(GridSample, NearestAgreesWithItsDefinition) {
  for (const uint16_t padding : std::vector<uint16_t>{0, 1}) {
    Random random(12);
    const auto plane = random.floats(20);
    const auto grid = random.floats(2 * 30, 1.4f);
    const auto found = run({0, padding, true}, {1, 4, 5}, plane, {30, 1, 2}, grid);
    for (size_t i = 0; i < 30; ++i) {
      const int x = static_cast<int>(std::floor((1.0f + grid[2 * i]) * 0.5f * 5.0f));
      const int y = static_cast<int>(std::floor((1.0f + grid[2 * i + 1]) * 0.5f * 4.0f));
      EXPECT_EQ(found[i], static_cast<float>(tap(plane, 4, 5, y, x, padding == 1))) << i;
    }
  }
}

TEST_F(GridSample, EachChannelIsSampledAtTheSamePlaces) {
  const std::vector<float> planes{1, 2, 3, 4, 10, 20, 30, 40};
  EXPECT_TRUE(
      same_bits(run({0, 0, false}, {2, 2, 2}, planes, {1, 2, 2}, {-0.5f, -0.5f, 0.5f, 0.5f}),
                {1.0f, 4.0f, 10.0f, 40.0f}));
}

TEST_F(GridSample, NearestAtPlus1IsOutsideOrTheLastColumn) {
  const std::vector<float> row{1, 2, 3};
  EXPECT_EQ(sample({0, 0, false}, {1, 1, 3}, row, 1.0f, 0.0f), 0.0f);
  EXPECT_EQ(sample({0, 1, false}, {1, 1, 3}, row, 1.0f, 0.0f), 3.0f);
}

TEST_F(GridSample, BilinearAlignedAtPlus1IsTheLastColumn) {
  const std::vector<float> row{1, 2, 3};
  EXPECT_EQ(sample({1, 0, true}, {1, 1, 3}, row, 1.0f, -1.0f), 3.0f);
}

TEST_F(GridSample, PositionsFarOutsideReadNothing) {
  const std::vector<float> row{1, 2, 3};
  for (const float far : {1e10f, -1e10f, 3e38f, -3e38f, kInfinity, -kInfinity, kNaN}) {
    for (const uint16_t mode : std::vector<uint16_t>{0, 1}) {
      EXPECT_EQ(sample({mode, 0, false}, {1, 1, 3}, row, far, 0.0f), 0.0f) << far;
      const float border = sample({mode, 1, false}, {1, 1, 3}, row, far, 0.0f);
      EXPECT_EQ(border, far > 0.0f ? 3.0f : 1.0f) << far;
    }
  }
}

TEST_F(GridSample, ChecksItsModes) {
  const auto kernel = make_kernel(kGridSample);
  for (uint16_t mode = 0; mode < 3; ++mode) {
    for (uint16_t padding = 0; padding < 3; ++padding) {
      EXPECT_EQ(kernel->CheckConfig(grid_sample({mode, padding, false}), nullptr),
                mode < 2 && padding < 2 ? 0 : -1);
    }
  }
  const auto text = failure_of([&] { kernel->CheckConfig(grid_sample({3, 0, false}), nullptr); });
  EXPECT_NE(text.find("Invalid gridsample mode"), std::string::npos) << text;
  const auto padding = failure_of([&] {
    kernel->CheckConfig(grid_sample({0, 3, false}), nullptr);
  });
  EXPECT_NE(padding.find("Invalid gridsample padding_mode"), std::string::npos) << padding;
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
}

TEST_F(GridSample, ChecksAPictureAndAGrid) {
  const auto kernel = make_kernel(kGridSample);
  const auto picture = context_.floats({1, 1, 1}, LayoutType::CHW, {1.0f});
  const auto grid = context_.floats({1, 1, 2}, LayoutType::FLEXIABLE, {0.0f, 0.0f});
  const auto four_dims = context_.floats({1, 1, 2, 1}, LayoutType::FLEXIABLE, {0.0f, 0.0f});
  const auto wrong = context_.floats({1, 1, 1, 2}, LayoutType::FLEXIABLE, {0.0f, 0.0f});
  EXPECT_EQ(kernel->CheckInputs({picture, grid}), 0);
  EXPECT_EQ(kernel->CheckInputs({picture, picture}), 0);  // three dims pass whatever the third
  EXPECT_EQ(kernel->CheckInputs({picture, four_dims}), 0);
  EXPECT_EQ(kernel->CheckInputs({picture, wrong}), -2);
  EXPECT_EQ(kernel->CheckInputs({picture}), -2);
  EXPECT_EQ(kernel->CheckInputs({grid, grid}), -2);
  EXPECT_EQ(kernel->CheckOutputs({picture}), 0);
  EXPECT_EQ(kernel->CheckOutputs({grid}), -2);
}

TEST_F(GridSample, InputsThatAreNoPictureAndGridFailCleanly) {
  const auto kernel = make_kernel(kGridSample);
  ASSERT_TRUE(kernel->Config(grid_sample({1, 0, false}), nullptr, context_));
  const auto picture = context_.floats({1, 1, 1}, LayoutType::CHW, {1.0f});
  const auto flat = context_.floats({2}, LayoutType::CHW, {1.0f, 2.0f});
  const auto empty = context_.floats({1, 0, 3}, LayoutType::CHW, {});
  const auto grid = context_.floats({1, 1, 2}, LayoutType::FLEXIABLE, {0.0f, 0.0f});
  Tensors outputs;
  const auto failure = [&](const Tensors& inputs) {
    return failure_of([&] { kernel->Forward(inputs, outputs, context_); });
  };
  EXPECT_NE(failure({}), "");
  EXPECT_NE(failure({picture}), "");
  EXPECT_NE(failure({flat, grid}), "");
  EXPECT_NE(failure({picture, flat}), "");
  EXPECT_NE(failure({picture, picture}), "");
  EXPECT_NE(failure({empty, grid}), "");
  EXPECT_TRUE(outputs.empty());
}

}  // namespace
}  // namespace marlo::test
