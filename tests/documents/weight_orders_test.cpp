// The orders of weights and gates, and the paddings, that docs/from-a-trained-network.md states:
// each layer by its formula, index by index, against the portable kernel and a fast one.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <qrt_core/qrt_core.h>

#include <cmath>
#include <functional>

#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using namespace runtime;
using Numbers = std::vector<double>;

WeightBlob blob(const std::vector<float>& numbers) {
  return MakeWeightBlob(numbers.data(), numbers.size());
}

// What a kernel makes of one tensor.
template <typename Info>
void expect_numbers(const std::string& name, const Info& info, std::vector<uint32_t> dims,
                    LayoutType layout, const std::vector<float>& input, const Numbers& expected) {
  SCOPED_TRACE(name);
  if (!all_kernels().Create(name) || !why_not_here(name).empty()) return;
  TestContext context;
  const auto kernel = make_kernel(name);
  ASSERT_TRUE(kernel->Config(std::make_shared<Info>(info), nullptr, context));
  std::vector<std::shared_ptr<Tensor>> outputs;
  kernel->Forward({context.floats(std::move(dims), layout, input)}, outputs, context);
  const std::vector<float> found = values_of(*outputs.at(0));
  ASSERT_EQ(found.size(), expected.size());
  for (size_t i = 0; i < found.size(); ++i) ASSERT_NEAR(found[i], expected[i], 2e-5) << i;
}

constexpr int kHeight = 6, kWidth = 5;

double at(const std::vector<float>& planes, int c, int y, int x) {
  if (y < 0 || y >= kHeight || x < 0 || x >= kWidth) return 0;
  return planes[static_cast<size_t>((c * kHeight + y) * kWidth + x)];
}

// Weights are [out, in / groups, y, x].
void expect_convolution(int in, int out, int groups, const std::vector<std::string>& kernels) {
  constexpr int kY = 3, kX = 3;
  Random random(static_cast<uint32_t>(in * 100 + groups));
  const int ins = in / groups, outs = out / groups;
  const auto weight = random.floats(static_cast<size_t>(out * ins * kY * kX), 1.0f);
  const auto bias = random.floats(static_cast<size_t>(out), 1.0f);
  const auto input = random.floats(static_cast<size_t>(in * kHeight * kWidth), 1.0f);
  Numbers expected;
  for (int o = 0; o < out; ++o) {
    for (int y = 0; y < kHeight; ++y) {
      for (int x = 0; x < kWidth; ++x) {
        double sum = bias[static_cast<size_t>(o)];
        for (int i = 0; i < ins; ++i) {
          for (int ky = 0; ky < kY; ++ky) {
            for (int kx = 0; kx < kX; ++kx) {
              sum += double{weight[static_cast<size_t>(((o * ins + i) * kY + ky) * kX + kx)]} *
                     at(input, o / outs * ins + i, y + ky - 1, x + kx - 1);
            }
          }
        }
        expected.push_back(sum);
      }
    }
  }
  Conv2dInfo info;
  info.in_channels = static_cast<uint16_t>(in);
  info.out_channels = static_cast<uint16_t>(out);
  info.groups = static_cast<uint16_t>(groups);
  info.kernel_x = info.kernel_y = 3;
  info.padding_l = info.padding_r = info.padding_t = info.padding_b = 1;
  info.if_bias = true;
  info.weight = blob(weight);
  info.bias = blob(bias);
  for (const std::string& kernel : kernels) {
    expect_numbers(kernel, info, {static_cast<uint32_t>(in), kHeight, kWidth}, LayoutType::CHW,
                   input, expected);
  }
}

TEST(WeightOrders, OfConvolutions) {
  expect_convolution(4, 6, 2,
                     {"Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
                      "Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1"});
  expect_convolution(
      4, 6, 1,
      {"Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
       "Conv2d_K3x3_S1x1_D1x1_G1_SSE_CHW_FLOAT_M1", "Conv2d_K3x3_S1x1_D1x1_G1_AVX_CHW_FLOAT_M1"});
}

TEST(WeightOrders, OfDepthwiseConvolutions) {
  expect_convolution(5, 5, 5,
                     {"Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
                      "Depthwise_Conv2D_K3x3_S1x1_D1x1_SSE_CHW_FLOAT_M1"});
}

// out[2 y + ky - p] += w * in[y]: stride 2, a padding p of 1, and one row and column of output
// padding or none.
void expect_transposed(int output_padding) {
  constexpr int kIn = 3, kOut = 2, kTaps = 3, kPadding = 1;
  Random random(7);
  const auto weight = random.floats(kIn * kOut * kTaps * kTaps, 1.0f);  // [in, out, y, x]
  const auto bias = random.floats(kOut, 1.0f);
  const auto input = random.floats(kIn * kHeight * kWidth, 1.0f);
  const int height = (kHeight - 1) * 2 + kTaps - 2 * kPadding + output_padding;
  const int width = (kWidth - 1) * 2 + kTaps - 2 * kPadding + output_padding;
  Numbers expected;
  for (int o = 0; o < kOut; ++o) {
    expected.insert(expected.end(), static_cast<size_t>(height * width),
                    double{bias[static_cast<size_t>(o)]});
  }
  std::vector<float> out_first(weight.size());
  for (int i = 0; i < kIn; ++i) {
    for (int o = 0; o < kOut; ++o) {
      for (int tap = 0; tap < kTaps * kTaps; ++tap) {
        const float w = weight[static_cast<size_t>((i * kOut + o) * kTaps * kTaps + tap)];
        out_first[static_cast<size_t>((o * kIn + i) * kTaps * kTaps + tap)] = w;
        for (int pixel = 0; pixel < kHeight * kWidth; ++pixel) {
          const int y = 2 * (pixel / kWidth) + tap / kTaps - kPadding;
          const int x = 2 * (pixel % kWidth) + tap % kTaps - kPadding;
          if (y < 0 || y >= height || x < 0 || x >= width) continue;
          expected[static_cast<size_t>((o * height + y) * width + x)] +=
              double{w} * at(input, i, pixel / kWidth, pixel % kWidth);
        }
      }
    }
  }
  ConvTranspose2dInfo info;
  info.in_channels = kIn;
  info.out_channels = kOut;
  info.kernel_x = info.kernel_y = kTaps;
  info.stride_x = info.stride_y = 2;
  info.dilation_x = info.dilation_y = info.groups = 1;
  info.if_bias = true;
  info.bias = blob(bias);
  info.weight = blob(weight);
  info.padding_l = info.padding_t = kTaps - 1 - kPadding;
  info.padding_r = info.padding_b = static_cast<int16_t>(kTaps - 1 - kPadding + output_padding - 1);
  const std::vector<uint32_t> dims{kIn, kHeight, kWidth};
  expect_numbers("ConvTranspose2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", info, dims,
                 LayoutType::CHW, input, expected);
  info.weight = blob(out_first);
  info.padding_l = info.padding_t = kPadding;
  info.padding_r = info.padding_b = static_cast<int16_t>(kPadding - output_padding);
  expect_numbers("ConvTranspose2d_K3x3_D1x1_G1_SSE_CHW_FLOAT_M1", info, dims, LayoutType::CHW,
                 input, expected);
}

TEST(WeightOrders, OfTransposedConvolutionsInBothConventions) {
  expect_transposed(0);
  expect_transposed(1);
}

TEST(WeightOrders, OfSignalConvolutions) {
  constexpr int kIn = 4, kOut = 2, kGroups = 2, kTaps = 3, kLength = 9, kIns = kIn / kGroups;
  Random random(9);
  const auto weight = random.floats(kOut * kIns * kTaps, 1.0f);
  const auto bias = random.floats(kOut, 1.0f);
  const auto input = random.floats(kIn * kLength, 1.0f);
  Numbers expected;
  for (int o = 0; o < kOut; ++o) {
    for (int x = 0; x + kTaps <= kLength; ++x) {
      double sum = bias[static_cast<size_t>(o)];
      for (int i = 0; i < kIns; ++i) {
        for (int k = 0; k < kTaps; ++k) {
          sum += double{weight[static_cast<size_t>((o * kIns + i) * kTaps + k)]} *
                 input[static_cast<size_t>((o * kIns + i) * kLength + x + k)];
        }
      }
      expected.push_back(sum);
    }
  }
  Conv1dInfo info;
  info.in_channels = kIn;
  info.out_channels = kOut;
  info.groups = kGroups;
  info.kernel_size = kTaps;
  info.if_bias = true;
  info.weight = blob(weight);
  info.bias = blob(bias);
  expect_numbers("Conv1D_Kn_Sn_Dn_Gn_Fallback_CL_Float_M1", info, {kIn, kLength}, LayoutType::CL,
                 input, expected);
}

TEST(WeightOrders, OfDenseLayers) {
  constexpr size_t kIn = 7, kOut = 3;
  Random random(11);
  const auto weight = random.floats(kIn * kOut, 1.0f);
  const auto bias = random.floats(kOut, 1.0f);
  const auto input = random.floats(kIn, 1.0f);
  Numbers expected;
  for (size_t o = 0; o < kOut; ++o) {
    double sum = bias[o];
    for (size_t i = 0; i < kIn; ++i) sum += double{weight[o * kIn + i]} * input[i];
    expected.push_back(sum);
  }
  FullConnectionInfo info;
  info.in_features = kIn;
  info.out_features = kOut;
  info.if_bias = true;
  info.weight = blob(weight);
  info.bias = blob(bias);
  for (const char* kernel : {"FullConnection_Fallback_C_Float_M1", "FullConnection_SSE_C_Float_M1",
                             "FullConnection_AVX_C_Float_M1"}) {
    expect_numbers(kernel, info, {kIn}, LayoutType::C, input, expected);
  }
}

// One direction of one recurrent layer.
struct Direction {
  Direction(size_t in, size_t hidden, size_t gates, Random& random)
      : w(random.floats(gates * hidden * in, 0.5f)),
        u(random.floats(gates * hidden * hidden, 0.5f)),
        bias_w(random.floats(gates * hidden, 0.5f)),
        bias_u(random.floats(gates * hidden, 0.5f)) {}

  // Row `row` of W x + b_ih, and of U h + b_hh.
  double of_input(size_t row, const Numbers& x) const { return product(w, bias_w, row, x); }
  double of_state(size_t row, const Numbers& h) const { return product(u, bias_u, row, h); }

  static double product(const std::vector<float>& rows, const std::vector<float>& bias, size_t row,
                        const Numbers& x) {
    double sum = bias[row];
    for (size_t k = 0; k < x.size(); ++k) sum += double{rows[row * x.size() + k]} * x[k];
    return sum;
  }

  std::vector<float> w, u, bias_w, bias_u;
};

double sigmoid(double x) { return 1 / (1 + std::exp(-x)); }

// A step changes h, and c of an LSTM.
using Step = std::function<void(const Direction&, const Numbers& x, Numbers& h, Numbers& c)>;

void rnn_step(const Direction& d, const Numbers& x, Numbers& h, Numbers&) {
  const Numbers before = h;
  for (size_t k = 0; k < h.size(); ++k) h[k] = std::tanh(d.of_input(k, x) + d.of_state(k, before));
}

// Gates: input, forget, cell, output.
void lstm_step(const Direction& d, const Numbers& x, Numbers& h, Numbers& c) {
  const Numbers before = h;
  const size_t n = h.size();
  for (size_t k = 0; k < n; ++k) {
    const auto gate = [&](size_t g) {
      return d.of_input(g * n + k, x) + d.of_state(g * n + k, before);
    };
    c[k] = sigmoid(gate(1)) * c[k] + sigmoid(gate(0)) * std::tanh(gate(2));
    h[k] = sigmoid(gate(3)) * std::tanh(c[k]);
  }
}

// Gates: reset, update, new.
void gru_step(const Direction& d, const Numbers& x, Numbers& h, Numbers&) {
  const Numbers before = h;
  const size_t n = h.size();
  for (size_t k = 0; k < n; ++k) {
    const double r = sigmoid(d.of_input(k, x) + d.of_state(k, before));
    const double z = sigmoid(d.of_input(n + k, x) + d.of_state(n + k, before));
    const double fresh = std::tanh(d.of_input(2 * n + k, x) + r * d.of_state(2 * n + k, before));
    h[k] = (1 - z) * fresh + z * before[k];
  }
}

constexpr size_t kIns = 3, kHidden = 2, kSteps = 4, kLayers = 2;

std::vector<Numbers> run(const Direction& d, const Step& step, std::vector<Numbers> sequence) {
  Numbers h(kHidden), c(kHidden);
  for (Numbers& x : sequence) {
    step(d, x, h, c);
    x = h;
  }
  return sequence;
}

template <typename Info>
void expect_sequence(const std::string& kernel, size_t gates, const Step& step, bool both,
                     uint16_t complex_type = 0) {
  Random random(13);
  Info info;
  info.in_size = kIns;
  info.hidden_size = kHidden;
  info.num_layers = kLayers;
  info.bidirectional = both;
  info.if_bias = true;
  info.complex_rnn_type = complex_type;
  if constexpr (std::is_same_v<Info, RNNInfo>) info.activation_type = 5;
  const auto input = random.floats(kSteps * kIns, 1.0f);
  std::vector<Numbers> sequence;
  for (size_t t = 0; t < kSteps; ++t) {
    sequence.emplace_back(input.begin() + static_cast<ptrdiff_t>(t * kIns),
                          input.begin() + static_cast<ptrdiff_t>((t + 1) * kIns));
  }
  for (size_t layer = 0; layer < kLayers; ++layer) {
    const size_t width = sequence[0].size();
    const Direction ahead(width, kHidden, gates, random), back(width, kHidden, gates, random);
    info.weight_ih_forward.push_back(blob(ahead.w));
    info.weight_hh_forward.push_back(blob(ahead.u));
    info.bias_ih_forward.push_back(blob(ahead.bias_w));
    info.bias_hh_forward.push_back(blob(ahead.bias_u));
    std::vector<Numbers> result = run(ahead, step, sequence);
    if (both) {
      info.weight_ih_reverse.push_back(blob(back.w));
      info.weight_hh_reverse.push_back(blob(back.u));
      info.bias_ih_reverse.push_back(blob(back.bias_w));
      info.bias_hh_reverse.push_back(blob(back.bias_u));
      std::reverse(sequence.begin(), sequence.end());
      std::vector<Numbers> reverse = run(back, step, sequence);
      for (size_t t = 0; t < kSteps; ++t) {
        const Numbers& other = reverse[kSteps - 1 - t];
        result[t].insert(result[t].end(), other.begin(), other.end());
      }
    }
    sequence = result;
  }
  Numbers expected;
  for (const Numbers& row : sequence) expected.insert(expected.end(), row.begin(), row.end());
  expect_numbers(kernel, info, {kSteps, kIns}, LayoutType::FLEXIABLE, input, expected);
}

TEST(GateOrders, OfSequencesOfStackedLayers) {
  for (const bool both : {false, true}) {
    for (const std::string group : {"Fallback", "SSE", "SGEMM"}) {
      expect_sequence<RNNInfo>("RNN_" + group + "_SC_F32_M1", 1, rnn_step, both);
      expect_sequence<LSTMInfo>("LSTM_" + group + "_SC_F32_M1", 4, lstm_step, both);
      expect_sequence<GRUInfo>("GRU_" + group + "_SC_F32_M1", 3, gru_step, both);
    }
  }
}

TEST(GateOrders, OfCells) {
  const auto expect_cell = [](auto info, const std::string& kernel, size_t gates,
                              const Step& step) {
    Random random(17);
    const Direction d(kIns, kHidden, gates, random);
    const auto input = random.floats(kIns, 1.0f);
    info.in_size = kIns;
    info.hidden_size = kHidden;
    info.if_bias = true;
    info.weight_ih = blob(d.w);
    info.weight_hh = blob(d.u);
    info.bias_ih = blob(d.bias_w);
    info.bias_hh = blob(d.bias_u);
    const std::vector<Numbers> states = run(d, step, {Numbers(input.begin(), input.end())});
    expect_numbers(kernel, info, {kIns}, LayoutType::C, input, states[0]);
  };
  RNNCellInfo rnn;
  rnn.activation_type = 5;
  expect_cell(rnn, "RNNCell_Fallback_C_F32_M1", 1, rnn_step);
  expect_cell(LSTMCellInfo(), "LSTMCell_Fallback_C_F32_M1", 4, lstm_step);
  expect_cell(GRUCellInfo(), "GRUCell_Fallback_C_F32_M1", 3, gru_step);
}

TEST(GateOrders, AComplexTypeMeansNothingInOneDirectionAndIsRefusedInTwo) {
  expect_sequence<LSTMInfo>("LSTM_Fallback_SC_F32_M1", 4, lstm_step, false, 1);
  EXPECT_THROW(expect_sequence<LSTMInfo>("LSTM_Fallback_SC_F32_M1", 4, lstm_step, true, 1),
               std::runtime_error);
}

}  // namespace
}  // namespace marlo::test
