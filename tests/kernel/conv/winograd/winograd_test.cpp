#include "qrt_core/kernel/conv/winograd/winograd.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <limits>

#include "tests/support/compare.h"
#include "tests/support/conv_setup.h"
#include "tests/support/conv_tester.h"
#include "tests/support/kernels.h"
#include "tests/support/test_context.h"

#if QRT_WITH_SSE

namespace marlo::test {
namespace {

using kernel::PlaneGeometry;
using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::TensorShape;

using Row = kernel::ConvolutionRow<PlaneGeometry>;
using Square = std::array<std::array<double, 4>, 4>;

const Row& kM1 = kernel::rows::Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M1;
const Row& kM2 = kernel::rows::Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_Winograd_M2;

ConvTester tester(uint32_t in, uint32_t out, uint32_t height, uint32_t width) {
  return ConvTester().channels(in, out).size(height, width).kernel(3, 3).padding(1);
}

// The transforms as matrices. Element 4 u + v of a tile is [u][v].
constexpr double kG[4][3] = {{1, 0, 0}, {0.5, 0.5, 0.5}, {0.5, -0.5, 0.5}, {0, 0, 1}};
constexpr double kB[4][4] = {{1, 0, -1, 0}, {0, 1, 1, 0}, {0, -1, 1, 0}, {0, 1, 0, -1}};
constexpr double kA[2][4] = {{1, 1, 1, 0}, {0, 1, -1, -1}};

Square transformed_filter(const float* filter, bool magnitudes = false) {
  Square result{};
  for (size_t u = 0; u < 4; ++u) {
    for (size_t v = 0; v < 4; ++v) {
      for (size_t y = 0; y < 3; ++y) {
        for (size_t x = 0; x < 3; ++x) {
          const double term = kG[u][x] * kG[v][y] * double{filter[y * 3 + x]};
          result[u][v] += magnitudes ? std::abs(term) : term;
        }
      }
    }
  }
  return result;
}

// The magnitudes that rounding errors are relative to: the whole computation with every number and
// every factor replaced by its magnitude.
std::vector<double> magnitudes(const ConvCase& sizes, const ConvData& data) {
  const int height = static_cast<int>(sizes.height);
  const int width = static_cast<int>(sizes.width);
  std::vector<double> result;
  for (uint32_t o = 0; o < sizes.out_channels; ++o) {
    for (int y = 0; y < height; ++y) {
      for (int x = 0; x < width; ++x) {
        double sum = data.bias.empty() ? 0.0 : std::abs(double{data.bias[o]});
        for (uint32_t c = 0; c < sizes.in_channels; ++c) {
          const float* filter = data.weight.data() + (o * sizes.in_channels + c) * 9;
          const Square factors = transformed_filter(filter, true);
          const auto pixel = [&](int row, int column) {
            const bool inside = row >= 0 && row < height && column >= 0 && column < width;
            const auto at = (static_cast<int>(c) * height + row) * width + column;
            return inside ? std::abs(double{data.input[static_cast<size_t>(at)]}) : 0.0;
          };
          for (size_t u = 0; u < 4; ++u) {
            for (size_t v = 0; v < 4; ++v) {
              double patch = 0.0;
              for (int i = 0; i < 16; ++i) {
                const double factor = kB[u][i % 4] * kB[v][i / 4];
                if (factor == 0.0) continue;
                patch += pixel(y / 2 * 2 - 1 + i / 4, x / 2 * 2 - 1 + i % 4);
              }
              sum += std::abs(kA[x % 2][u] * kA[y % 2][v]) * patch * factors[u][v];
            }
          }
        }
        result.push_back(sum);
      }
    }
  }
  return result;
}

// Roundings that a term passes: six in the filter, two in the patch, one product, the sum over the
// channels, four in the output and the bias.
double roundings(const ConvCase& sizes) { return sizes.in_channels + 14.0; }

class Winograd : public testing::TestWithParam<const Row*> {
 protected:
  const Row& row() const { return *GetParam(); }

  void expect_exact(const ConvTester& sized, uint32_t seed = 1) const {
    const ConvData data = integer_data(sized.sizes(), seed);
    const ConvOracle oracle = oracle_of<PlaneGeometry>(sized.sizes(), data);
    const std::vector<float> found = sized.output(row(), data);
    ASSERT_EQ(found.size(), oracle.sums.size());
    for (size_t i = 0; i < found.size(); ++i) {
      ASSERT_EQ(found[i], oracle.sums[i].value)
          << "element " << i << " of " << sized.sentence(row().name);
    }
  }

  void expect_within_bound(const ConvTester& sized, const ConvData& data) const {
    const ConvOracle oracle = oracle_of<PlaneGeometry>(sized.sizes(), data);
    const std::vector<double> scale = magnitudes(sized.sizes(), data);
    const std::vector<float> found = sized.output(row(), data);
    for (size_t i = 0; i < found.size(); ++i) {
      ASSERT_LE(std::abs(found[i] - oracle.sums[i].value),
                roundings(sized.sizes()) * kEpsilon / 2 * scale[i] * 1.001)
          << "element " << i << " of " << sized.sentence(row().name);
    }
  }
};

// Tiles have two pixels, products take four tiles: sizes up to three of these with every rest.
TEST_P(Winograd, IsExactForSmallIntegersAtEverySize) {
  for (uint32_t height = 1; height <= 6; ++height) {
    for (uint32_t width = 1; width <= 26; ++width) {
      expect_exact(tester(1 + width % 3, 1 + height % 4, height, width).bias(width % 4 != 0),
                   width);
    }
  }
}

TEST_P(Winograd, IsExactForEveryNumberOfChannels) {
  for (uint32_t in = 1; in <= 4; ++in) {
    for (uint32_t out = 1; out <= 5; ++out) {
      expect_exact(tester(in, out, 5, 7));
      expect_exact(tester(in, out, 4, 6).bias(false));
    }
  }
}

// More channels than are summed at once, more blocks of tiles than are swept at once, and so many
// channels that one block is swept at a time.
TEST_P(Winograd, IsExactForLargeLayers) {
  expect_exact(tester(131, 3, 5, 6));
  expect_exact(tester(257, 2, 3, 3));
  expect_exact(tester(1030, 1, 4, 6));
  expect_exact(tester(2, 3, 25, 27));
  expect_exact(tester(40, 2, 32, 34));
}

TEST_P(Winograd, StaysWithinItsBound) {
  for (uint32_t seed = 1; seed <= 6; ++seed) {
    for (const auto& [in, out, height, width] :
         {std::array<uint32_t, 4>{1, 1, 1, 1}, {3, 2, 5, 4}, {17, 3, 6, 9}, {130, 1, 4, 4}}) {
      const ConvTester sized = tester(in, out, height, width).bias(seed % 2 != 0);
      expect_within_bound(sized, float_data(sized.sizes(), seed));
      expect_within_bound(sized, uneven_data(sized.sizes(), seed));
    }
  }
}

TEST_P(Winograd, RefusesWhatItsNameExcludes) {
  const auto accepts = [this](const ConvTester& sized) {
    return kernel::fits(row().accepts,
                        PlaneGeometry::params_of(*describe<PlaneGeometry>(sized.sizes(), {})));
  };
  const ConvTester base = tester(2, 2, 7, 7);
  EXPECT_TRUE(accepts(base));
  EXPECT_FALSE(accepts(ConvTester(base).kernel(1, 3)));
  EXPECT_FALSE(accepts(ConvTester(base).kernel(3, 5)));
  EXPECT_FALSE(accepts(ConvTester(base).stride(2, 1)));
  EXPECT_FALSE(accepts(ConvTester(base).stride(1, 2)));
  EXPECT_FALSE(accepts(ConvTester(base).dilation(2, 1)));
  EXPECT_FALSE(accepts(ConvTester(base).dilation(1, 2)));
  EXPECT_FALSE(accepts(ConvTester(base).padding(0, 1, 1, 1)));
  EXPECT_FALSE(accepts(ConvTester(base).padding(1, 0, 1, 1)));
  EXPECT_FALSE(accepts(ConvTester(base).padding(1, 1, 2, 1)));
  EXPECT_FALSE(accepts(ConvTester(base).padding(1, 1, 1, 0)));
}

TEST_P(Winograd, ChecksGroupsChannelsAndTensors) {
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const ConvCase sizes = tester(2, 2, 3, 3).sizes();
  const auto verdict = [&](uint16_t in, uint16_t out, uint16_t groups) {
    const auto info = describe<PlaneGeometry>(sizes, integer_data(sizes, 1));
    info->in_channels = in;
    info->out_channels = out;
    info->groups = groups;
    return kernel->CheckConfig(info, nullptr);
  };
  EXPECT_EQ(verdict(2, 2, 1), 0);
  EXPECT_EQ(verdict(2, 2, 2), 0);
  EXPECT_EQ(verdict(2, 2, 0), -1);
  EXPECT_EQ(verdict(0, 2, 1), -1);
  EXPECT_EQ(verdict(2, 0, 1), -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);

  const auto tensor = [&](LayoutType layout, uint32_t channels, DataType type) {
    return IKernel::Tensors{
        context.device()->CreateTensor(TensorShape({channels, 3, 3}, type, layout), nullptr)};
  };
  EXPECT_EQ(kernel->CheckInputs(tensor(LayoutType::CHW, 2, DataType::FLOAT32)), 0);
  EXPECT_EQ(kernel->CheckInputs(tensor(LayoutType::CHW, 5, DataType::FLOAT32)), 0);
  EXPECT_EQ(kernel->CheckInputs(tensor(LayoutType::CHW, 2, DataType::FLOAT16)), 0);
  EXPECT_EQ(kernel->CheckInputs(tensor(LayoutType::CHW, 2, DataType::INT16)), -2);
  EXPECT_EQ(kernel->CheckInputs(tensor(LayoutType::HWC, 2, DataType::FLOAT32)), -2);
  EXPECT_EQ(kernel->CheckInputs({}), -2);
  EXPECT_EQ(kernel->CheckOutputs(tensor(LayoutType::CHW, 5, DataType::FLOAT32)), 0);
  EXPECT_EQ(kernel->CheckOutputs(tensor(LayoutType::CHW, 2, DataType::FLOAT16)), -2);
  EXPECT_EQ(kernel->CheckOutputs(tensor(LayoutType::HWC, 2, DataType::FLOAT32)), -2);
}

TEST_P(Winograd, RefusesHalvesInAPass) {
  TestContext context;
  const auto kernel = make_kernel(row().name);
  const ConvCase sizes = tester(2, 2, 3, 3).sizes();
  ASSERT_TRUE(
      kernel->Config(describe<PlaneGeometry>(sizes, integer_data(sizes, 1)), nullptr, context));
  const auto halves = context.device()->CreateTensor(
      TensorShape({2, 3, 3}, DataType::FLOAT16, LayoutType::CHW), nullptr);
  IKernel::Tensors outputs;
  EXPECT_NE(failure_of([&] { kernel->Forward({halves}, outputs, context); }), "");
  EXPECT_TRUE(outputs.empty());
  context.pool().check();
}

// Groups aren't read: the first group's outputs are computed, from the first group's inputs.
TEST_P(Winograd, ComputesTheFirstGroupOfALayerWithGroups) {
  const ConvCase whole = tester(4, 6, 5, 4).groups(2).sizes();
  const ConvData data = integer_data(whole, 1);
  TestContext context;
  const auto kernel = make_kernel(row().name);
  ASSERT_TRUE(kernel->Config(describe<PlaneGeometry>(whole, data), nullptr, context));
  IKernel::Tensors outputs;
  kernel->Forward({context.floats({4, 5, 4}, LayoutType::CHW, data.input)}, outputs, context);
  context.pool().check();
  const ConvOracle oracle = oracle_of<PlaneGeometry>(whole, data);
  const std::vector<float> found = values_of(*outputs.at(0));
  ASSERT_EQ(found.size(), 6u * 20);
  for (size_t i = 0; i < found.size(); ++i) {
    const size_t channel = i / 20;
    EXPECT_EQ(found[i], channel < 3 ? oracle.sums[i].value : data.bias[channel]);
  }
}

INSTANTIATE_TEST_SUITE_P(Rows, Winograd, testing::ValuesIn(kernel::winograd_rows),
                         [](const auto& test) { return std::string(test.param->name); });

TEST(WinogradMethods, AgreeInEveryBit) {
  for (const auto& [in, out, height, width] :
       {std::array<uint32_t, 4>{3, 5, 7, 9}, {140, 4, 6, 6}, {16, 3, 20, 21}}) {
    const ConvTester sized = tester(in, out, height, width);
    const ConvData data = uneven_data(sized.sizes(), 7);
    EXPECT_TRUE(same_bits(sized.output(kM1, data), sized.output(kM2, data)));
  }
}

std::vector<float> transformed(const std::vector<float>& filters, uint32_t out, uint32_t in) {
  TestContext context;
  const auto weight = context.device()->CreateTensor(
      TensorShape({1, out, in, 3, 3}, DataType::FLOAT32, LayoutType::GNCHW), filters.data());
  const auto result = kernel::transform_filters(weight, context.device());
  EXPECT_EQ(result->shape, TensorShape({out, in, 16}, DataType::FLOAT32, LayoutType::CHW));
  return values_of(*result);
}

TEST(WinogradFilters, AreTransformedByTheirMatrix) {
  std::vector<float> filters(2 * 3 * 9);
  for (size_t i = 0; i < filters.size(); ++i) filters[i] = static_cast<float>(i * i % 31) - 11.0f;
  const std::vector<float> found = transformed(filters, 2, 3);
  for (size_t i = 0; i < found.size(); ++i) {
    const Square expected = transformed_filter(filters.data() + i / 16 * 9);
    EXPECT_EQ(found[i], expected[i / 4 % 4][i % 4]) << i;
  }
}

// The products with the matrix's zeros are computed.
TEST(WinogradFilters, SpreadWhatIsNoNumberToAllElements) {
  for (const float bad :
       {std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
    for (size_t tap = 0; tap < 9; ++tap) {
      std::vector<float> filter(9, 1.0f);
      filter[tap] = bad;
      for (const float element : transformed(filter, 1, 1)) EXPECT_FALSE(std::isfinite(element));
    }
  }
}

TEST(WinogradFilters, RefuseOtherWeights) {
  TestContext context;
  const auto result_of = [&](const TensorShape& shape) {
    return kernel::transform_filters(context.device()->CreateTensor(shape, nullptr),
                                     context.device());
  };
  const auto shape_of = [](std::vector<uint32_t> dims) {
    return TensorShape(std::move(dims), DataType::FLOAT32, LayoutType::GNCHW);
  };
  EXPECT_NE(result_of(shape_of({1, 2, 2, 3, 3})), nullptr);
  EXPECT_EQ(result_of(shape_of({1, 2, 2, 3, 5})), nullptr);
  EXPECT_EQ(result_of(shape_of({1, 2, 2, 1, 3})), nullptr);
  EXPECT_EQ(result_of(shape_of({2, 2, 3, 3})), nullptr);
  EXPECT_EQ(result_of(TensorShape({1, 2, 2, 3, 3}, DataType::FLOAT16, LayoutType::GNCHW)), nullptr);
  EXPECT_EQ(result_of(TensorShape({1, 2, 2, 3, 3}, DataType::FLOAT32, LayoutType::CHW)), nullptr);
}

}  // namespace
}  // namespace marlo::test

#endif
