#include "tests/support/plane_math.h"

#include <algorithm>
#include <cmath>

namespace marlo::test {

Planes convolved(const Planes& input, const PlaneFilter& f) {
  const uint32_t extra = 2 * f.padding;
  Planes output(f.out_channels, (input.height + extra - f.kernel) / f.stride + 1,
                (input.width + extra - f.kernel) / f.stride + 1);
  const uint32_t ins = input.channels / f.groups;
  const uint32_t outs = f.out_channels / f.groups;
  for (uint32_t o = 0; o < f.out_channels; ++o) {
    for (uint32_t y = 0; y < output.height; ++y) {
      for (uint32_t x = 0; x < output.width; ++x) {
        double sum = f.bias.empty() ? 0.0 : f.bias[o];
        for (uint32_t i = 0; i < ins; ++i) {
          for (uint32_t ky = 0; ky < f.kernel; ++ky) {
            for (uint32_t kx = 0; kx < f.kernel; ++kx) {
              const double weight =
                  f.weights[((size_t{o} * ins + i) * f.kernel + ky) * f.kernel + kx];
              sum +=
                  weight * input.or_zero(o / outs * ins + i, int64_t{y} * f.stride + ky - f.padding,
                                         int64_t{x} * f.stride + kx - f.padding);
            }
          }
        }
        output.at(o, y, x) = sum;
      }
    }
  }
  return output;
}

Planes sum_of(const Planes& a, const Planes& b) {
  Planes sum = a;
  for (size_t i = 0; i < sum.values.size(); ++i) sum.values[i] += b.values[i];
  return sum;
}

namespace {

// One number for each window, of the values in it.
template <typename Reduce>
Planes reduced(const Planes& input, uint32_t window, Reduce reduce) {
  Planes output(input.channels, input.height / window, input.width / window);
  for (uint32_t c = 0; c < output.channels; ++c) {
    for (uint32_t y = 0; y < output.height; ++y) {
      for (uint32_t x = 0; x < output.width; ++x) {
        std::vector<double> values;
        for (uint32_t i = 0; i < window * window; ++i) {
          values.push_back(input.at(c, y * window + i / window, x * window + i % window));
        }
        output.at(c, y, x) = reduce(values);
      }
    }
  }
  return output;
}

}  // namespace

Planes largest_in(const Planes& input, uint32_t window) {
  return reduced(input, window, [](const auto& values) {
    return *std::max_element(values.begin(), values.end());
  });
}

Planes mean_in(const Planes& input, uint32_t window) {
  return reduced(input, window, [](const auto& values) {
    double sum = 0;
    for (const double value : values) sum += value;
    return sum / static_cast<double>(values.size());
  });
}

Planes behind_each_other(const Planes& a, const Planes& b) {
  Planes both = a;
  both.channels += b.channels;
  both.values.insert(both.values.end(), b.values.begin(), b.values.end());
  return both;
}

Planes twice_as_large(const Planes& input) {
  Planes output(input.channels, 2 * input.height, 2 * input.width);
  const auto place = [](uint32_t i, uint32_t size, uint32_t& low, uint32_t& high) {
    const double position = std::clamp(i * 0.5 - 0.25, 0.0, size - 1.0);
    low = static_cast<uint32_t>(position);
    high = std::min(low + 1, size - 1);
    return position - low;
  };
  for (uint32_t c = 0; c < output.channels; ++c) {
    for (uint32_t y = 0; y < output.height; ++y) {
      for (uint32_t x = 0; x < output.width; ++x) {
        uint32_t top = 0;
        uint32_t bottom = 0;
        uint32_t left = 0;
        uint32_t right = 0;
        const double fy = place(y, input.height, top, bottom);
        const double fx = place(x, input.width, left, right);
        const double upper = std::lerp(input.at(c, top, left), input.at(c, top, right), fx);
        const double lower = std::lerp(input.at(c, bottom, left), input.at(c, bottom, right), fx);
        output.at(c, y, x) = std::lerp(upper, lower, fy);
      }
    }
  }
  return output;
}

Planes shuffled_to_pixels(const Planes& input) {
  Planes output(input.channels / 4, 2 * input.height, 2 * input.width);
  for (uint32_t c = 0; c < output.channels; ++c) {
    for (uint32_t y = 0; y < output.height; ++y) {
      for (uint32_t x = 0; x < output.width; ++x) {
        output.at(c, y, x) = input.at(4 * c + y % 2 * 2 + x % 2, y / 2, x / 2);
      }
    }
  }
  return output;
}

Planes connected(const Planes& input, uint32_t outs, const std::vector<float>& weights,
                 const std::vector<float>& bias) {
  Planes output(outs, 1, 1);
  const size_t ins = input.values.size();
  for (size_t o = 0; o < outs; ++o) {
    double sum = bias[o];
    for (size_t i = 0; i < ins; ++i) sum += double{weights[o * ins + i]} * input.values[i];
    output.values[o] = sum;
  }
  return output;
}

Planes softmax_of(const Planes& input) {
  Planes output = mapped(input, [](double value) { return std::exp(value); });
  double sum = 0;
  for (const double value : output.values) sum += value;
  return mapped(output, [sum](double value) { return value / sum; });
}

}  // namespace marlo::test
