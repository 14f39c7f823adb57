#include <gtest/gtest.h>

#include "tests/support/compare.h"
#include "tests/support/conv_rows.h"
#include "tests/support/conv_setup.h"

// The order in which the portable kernels add is part of what they are: it is repeated here in
// plain loops over floats, and must give the same bits.

namespace marlo::test {
namespace {

using kernel::LineGeometry;
using kernel::PlaneGeometry;

/// The planes of a case as arrays with [channel][y][x] access, with zeros around the input.
class Planes {
 public:
  Planes(const ConvCase& sizes, const ConvData& data) : sizes_(sizes), data_(data) {}

  float padded_input(uint32_t channel, int y, int x) const {
    y -= sizes_.padding_t;
    x -= sizes_.padding_l;
    return inside(y, x) ? input(channel, y, x) : 0.0f;
  }

  bool inside(int y, int x) const {
    return y >= 0 && x >= 0 && y < static_cast<int>(sizes_.height) &&
           x < static_cast<int>(sizes_.width);
  }

  float input(uint32_t channel, int y, int x) const {
    const size_t row = size_t{channel} * sizes_.height + static_cast<size_t>(y);
    return data_.input[row * sizes_.width + static_cast<size_t>(x)];
  }

  float bias(uint32_t channel) const { return sizes_.bias ? data_.bias[channel] : 0.0f; }

  // The filter of a pair of channels in a group, given in the order of the weights.
  const float* filter(uint32_t group, uint32_t first, uint32_t second, uint32_t seconds) const {
    const size_t filter = (size_t{group} * sizes_.outs() * sizes_.ins()) + first * seconds + second;
    return data_.weight.data() + filter * sizes_.kernel_y * sizes_.kernel_x;
  }

 private:
  const ConvCase& sizes_;
  const ConvData& data_;
};

enum class Order { window_sums_apart, all_in_one };

std::vector<float> convolve(const ConvCase& s, const ConvData& data, Order order, int out_height,
                            int out_width) {
  const Planes planes(s, data);
  std::vector<float> output;
  for (uint32_t channel = 0; channel < s.groups * s.outs(); ++channel) {
    const uint32_t group = channel / s.outs();
    for (int oy = 0; oy < out_height; ++oy) {
      for (int ox = 0; ox < out_width; ++ox) {
        float result = planes.bias(channel);
        for (uint32_t in = 0; in < s.ins(); ++in) {
          const float* filter = planes.filter(group, channel % s.outs(), in, s.ins());
          float sum = order == Order::all_in_one ? result : 0.0f;
          for (uint32_t tap = 0; tap < s.kernel_y * s.kernel_x; ++tap) {
            const uint32_t y =
                static_cast<uint32_t>(oy) * s.stride_y + tap / s.kernel_x * s.dilation_y;
            const uint32_t x =
                static_cast<uint32_t>(ox) * s.stride_x + tap % s.kernel_x * s.dilation_x;
            sum += planes.padded_input(group * s.ins() + in, static_cast<int>(y),
                                       static_cast<int>(x)) *
                   filter[tap];
          }
          result = order == Order::all_in_one ? sum : result + sum;
        }
        output.push_back(result);
      }
    }
  }
  return output;
}

// Each product is added to the output at once, input channels outermost; along a filter the taps
// run backwards over rising coordinates.
std::vector<float> transpose(const ConvCase& s, const ConvData& data, int out_height,
                             int out_width) {
  const Planes planes(s, data);
  const int stride_y = static_cast<int>(s.stride_y);
  const int stride_x = static_cast<int>(s.stride_x);
  std::vector<float> output;
  for (uint32_t channel = 0; channel < s.groups * s.outs(); ++channel) {
    const uint32_t group = channel / s.outs();
    for (int oy = 0; oy < out_height; ++oy) {
      for (int ox = 0; ox < out_width; ++ox) {
        float result = planes.bias(channel);
        for (uint32_t in = 0; in < s.ins(); ++in) {
          const float* filter = planes.filter(group, in, channel % s.outs(), s.outs());
          uint32_t tap = s.kernel_y * s.kernel_x;
          const int first_y = oy - s.padding_t;
          const int first_x = ox - s.padding_l;
          for (int y = first_y; y < first_y + s.extent_y(); y += static_cast<int>(s.dilation_y)) {
            for (int x = first_x; x < first_x + s.extent_x(); x += static_cast<int>(s.dilation_x)) {
              --tap;
              if (y % stride_y != 0 || x % stride_x != 0) continue;
              if (!planes.inside(y / stride_y, x / stride_x)) continue;
              result +=
                  filter[tap] * planes.input(group * s.ins() + in, y / stride_y, x / stride_x);
            }
          }
        }
        output.push_back(result);
      }
    }
  }
  return output;
}

// Sizes at which rows are longer than what a kernel may compute at a time.
std::vector<ConvTester> cases() {
  return {
      ConvTester().channels(7, 5).size(6, 150).kernel(3, 3).padding(1),
      ConvTester().channels(9, 4).size(9, 11).kernel(3, 4).stride(2).padding(2, 1, 0, 3),
      ConvTester().channels(6, 4).size(8, 9).kernel(2, 3).dilation(3, 2).padding(3),
      ConvTester().channels(8, 6).size(5, 70).kernel(1, 5).groups(2).bias(false).padding(2),
      ConvTester().channels(12, 3).size(4, 4),
  };
}

std::vector<float> expected_bits(const ConvRow& row, const ConvCase& sizes, const ConvData& data) {
  if (row.is_transposed) {
    const ConvOracle size = transposed_convolution(sizes, data);
    return transpose(sizes, data, size.height, size.width);
  }
  const ConvOracle size = convolution(sizes, data);
  return convolve(sizes, data, Order::window_sums_apart, size.height, size.width);
}

ConvCase sizes_for(const ConvRow& row, const ConvTester& tester) {
  return row.is_line ? fitted<LineGeometry>(tester.sizes()) : tester.sizes();
}

class SummationOrder : public testing::TestWithParam<ConvRow> {};

TEST_P(SummationOrder, IsReproducedBitForBit) {
  const ConvRow& row = GetParam();
  for (const ConvTester& tester : cases()) {
    SCOPED_TRACE(tester.sentence(row.name));
    const ConvCase sizes = sizes_for(row, tester);
    const ConvData data = uneven_data(sizes, 7);
    EXPECT_TRUE(same_bits(row.output(tester, data), expected_bits(row, sizes, data)));
  }
}

// A zero of the padding is multiplied like any other number: an infinite weight makes it a NaN.
// The transposed form leaves out what lies outside.
TEST_P(SummationOrder, MultipliesThePadding) {
  const ConvRow& row = GetParam();
  const ConvTester tester = ConvTester().size(1, 3).kernel(1, 3).padding(1, 1, 0, 0).bias(false);
  ConvData data;
  data.input = {1.0f, 1.0f, 1.0f};
  data.weight = {kInfinity, 1.0f, 1.0f};
  const std::vector<float> padded{kNaN, kInfinity, kInfinity};
  const std::vector<float> skipped{kInfinity, kInfinity, 2.0f};
  EXPECT_TRUE(same_bits(row.output(tester, data), row.is_transposed ? skipped : padded));
}

INSTANTIATE_TEST_SUITE_P(Rows, SummationOrder, testing::ValuesIn(reference_convolution_rows()),
                         [](const auto& test) { return test.param.name; });

// What the tests above can tell apart: the same products in another order give other bits.
TEST(SummationOrderData, ShowsAnotherOrder) {
  for (const ConvTester& tester : cases()) {
    const ConvCase& sizes = tester.sizes();
    const ConvData data = uneven_data(sizes, 7);
    const ConvOracle size = convolution(sizes, data);
    const auto apart = convolve(sizes, data, Order::window_sums_apart, size.height, size.width);
    const auto in_one = convolve(sizes, data, Order::all_in_one, size.height, size.width);
    const bool one_tap = sizes.kernel_y * sizes.kernel_x == 1;
    EXPECT_EQ(same_bits(apart, in_one), one_tap) << tester.sentence("any");
  }
}

}  // namespace
}  // namespace marlo::test
