#include "tests/support/oracle.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

#include "tests/support/numbers.h"

namespace marlo::test {
namespace {

/// Indices into planes and filters.
struct Index {
  const ConvCase& sizes;

  size_t input(size_t channel, int y, int x) const {
    return (channel * sizes.height + static_cast<size_t>(y)) * sizes.width + static_cast<size_t>(x);
  }

  // `first` and `second` are the channels within the group, in the order of the weights.
  size_t weight(size_t group, size_t first, size_t second, size_t seconds, int ky, int kx) const {
    const size_t filters = size_t{sizes.outs()} * sizes.ins();
    const size_t filter = group * filters + first * seconds + second;
    return (filter * sizes.kernel_y + static_cast<size_t>(ky)) * sizes.kernel_x +
           static_cast<size_t>(kx);
  }
};

// A result of the given size in which each computed channel holds its bias.
ConvOracle begin(const ConvCase& sizes, const ConvData& data, int height, int width) {
  ConvOracle result;
  result.height = height;
  result.width = width;
  const size_t plane = static_cast<size_t>(height) * static_cast<size_t>(width);
  result.sums.resize(sizes.out_channels * plane);
  for (size_t i = 0; i < sizes.bias_size() * plane; ++i) {
    result.sums[i].add(data.bias[i / plane]);
  }
  return result;
}

Sum* row_of(ConvOracle& result, size_t channel, int y) {
  const auto row = channel * static_cast<size_t>(result.height) + static_cast<size_t>(y);
  return result.sums.data() + row * static_cast<size_t>(result.width);
}

// Calls `visit` with every group, pair of channels in it and tap.
template <typename Visit>
void for_each_tap(const ConvCase& sizes, Visit visit) {
  for (size_t group = 0; group < sizes.groups; ++group) {
    for (size_t in = 0; in < sizes.ins(); ++in) {
      for (size_t out = 0; out < sizes.outs(); ++out) {
        for (int ky = 0; ky < static_cast<int>(sizes.kernel_y); ++ky) {
          for (int kx = 0; kx < static_cast<int>(sizes.kernel_x); ++kx) {
            visit(group, in, out, ky, kx);
          }
        }
      }
    }
  }
}

}  // namespace

void Sum::add(double term) {
  value += term;
  magnitude += std::abs(term);
  ++terms;
}

double Sum::bound() const { return static_cast<double>(terms) * kEpsilon * magnitude; }

ConvOracle convolution(const ConvCase& sizes, const ConvData& data) {
  const int stride_y = static_cast<int>(sizes.stride_y);
  const int stride_x = static_cast<int>(sizes.stride_x);
  const int padded_height = static_cast<int>(sizes.height) + sizes.padding_t + sizes.padding_b;
  const int padded_width = static_cast<int>(sizes.width) + sizes.padding_l + sizes.padding_r;
  ConvOracle result = begin(sizes, data, (padded_height - sizes.extent_y()) / stride_y + 1,
                            (padded_width - sizes.extent_x()) / stride_x + 1);
  const Index at{sizes};
  for_each_tap(sizes, [&](size_t group, size_t in, size_t out, int ky, int kx) {
    const double weight = data.weight[at.weight(group, out, in, sizes.ins(), ky, kx)];
    for (int oy = 0; oy < result.height; ++oy) {
      const int y = oy * stride_y + ky * static_cast<int>(sizes.dilation_y) - sizes.padding_t;
      if (y < 0 || y >= static_cast<int>(sizes.height)) continue;
      const float* inputs = data.input.data() + at.input(group * sizes.ins() + in, y, 0);
      Sum* sums = row_of(result, group * sizes.outs() + out, oy);
      for (int ox = 0; ox < result.width; ++ox) {
        const int x = ox * stride_x + kx * static_cast<int>(sizes.dilation_x) - sizes.padding_l;
        if (x < 0 || x >= static_cast<int>(sizes.width)) continue;
        sums[ox].add(inputs[x] * weight);
      }
    }
  });
  return result;
}

ConvOracle transposed_convolution(const ConvCase& sizes, const ConvData& data) {
  const int stride_y = static_cast<int>(sizes.stride_y);
  const int stride_x = static_cast<int>(sizes.stride_x);
  // What is cut off the full result in front; the paddings decide the size behind.
  const int cut_t = sizes.extent_y() - 1 - sizes.padding_t;
  const int cut_l = sizes.extent_x() - 1 - sizes.padding_l;
  const int cut_b = sizes.extent_y() - 1 - sizes.padding_b;
  const int cut_r = sizes.extent_x() - 1 - sizes.padding_r;
  ConvOracle result = begin(
      sizes, data, static_cast<int>(sizes.height) * stride_y + sizes.extent_y() - 1 - cut_t - cut_b,
      static_cast<int>(sizes.width) * stride_x + sizes.extent_x() - 1 - cut_l - cut_r);
  const Index at{sizes};
  for_each_tap(sizes, [&](size_t group, size_t in, size_t out, int ky, int kx) {
    const double weight = data.weight[at.weight(group, in, out, sizes.outs(), ky, kx)];
    for (int y = 0; y < static_cast<int>(sizes.height); ++y) {
      const int oy = y * stride_y + ky * static_cast<int>(sizes.dilation_y) - cut_t;
      if (oy < 0 || oy >= result.height) continue;
      const float* inputs = data.input.data() + at.input(group * sizes.ins() + in, y, 0);
      Sum* sums = row_of(result, group * sizes.outs() + out, oy);
      for (int x = 0; x < static_cast<int>(sizes.width); ++x) {
        const int ox = x * stride_x + kx * static_cast<int>(sizes.dilation_x) - cut_l;
        if (ox < 0 || ox >= result.width) continue;
        sums[ox].add(inputs[x] * weight);
      }
    }
  });
  return result;
}

double exact_sigmoid(double x) { return 1.0 / (1.0 + std::exp(-x)); }

double exact_hard_sigmoid(double x) { return std::clamp(x + 3.0, 0.0, 6.0) / 6.0; }

double exact_epilogue(kernel::Epilogue epilogue, double x) {
  switch (epilogue) {
    case kernel::Epilogue::relu:
      return x > 0.0 ? x : 0.0;  // and 0 for a NaN
    case kernel::Epilogue::relu6:
      return std::min(x > 0.0 ? x : 0.0, 6.0);
    case kernel::Epilogue::hsigmoid:
      return exact_hard_sigmoid(x);
    case kernel::Epilogue::hswish:
      return x * exact_hard_sigmoid(x);
    case kernel::Epilogue::sigmoid:
      return exact_sigmoid(x);
    case kernel::Epilogue::silu:
      return x * exact_sigmoid(x);
    case kernel::Epilogue::tanh:
      return std::tanh(x);
    default:
      return x;
  }
}

double epilogue_error(kernel::Epilogue epilogue, double sum, double error) {
  using kernel::Epilogue;
  const double slope = epilogue == Epilogue::hswish ? 1.5 : epilogue == Epilogue::silu ? 1.1 : 1.0;
  const double rounding =
      epilogue <= Epilogue::relu6 ? 0.0 : 8.0 * 0x1p-23 * std::max(1.0, std::abs(sum));
  return slope * error + rounding;
}

double exact_activation(const std::string& function, double x, double a, double b) {
  if (function == "ReLU") return std::max(x, 0.0);
  if (function == "ReLU6") return std::clamp(x, 0.0, 6.0);
  if (function == "HSigmoid") return exact_hard_sigmoid(x);
  if (function == "HSwish") return exact_hard_sigmoid(x) * x;
  if (function == "Leaky" || function == "PReLU") return x < 0.0 ? x * a : x;
  if (function == "Linear") return x * a + b;
  if (function == "Sigmoid") return exact_sigmoid(x);
  if (function == "TanH") return std::tanh(x);
  throw std::invalid_argument("no definition of the activation " + function);
}

}  // namespace marlo::test
