#include <algorithm>
#include <cmath>
#include <limits>

#include "tests/support/pooling_tester.h"

namespace marlo::test {

using kernel::PoolingKind;
using kernel::PoolingRow;

namespace {

// The padded input as one run of pixels, each of `lanes` numbers.
class PaddedPixels {
 public:
  PaddedPixels(const PoolingCase& sizes, size_t lanes, double margin,
               const std::vector<float>& input)
      : sizes_(sizes), lanes_(lanes), margin_(margin), input_(input) {}

  long height() const { return long{sizes_.height} + sizes_.padding_t + sizes_.padding_b; }
  long width() const { return long{sizes_.width} + sizes_.padding_l + sizes_.padding_r; }

  bool in_margin(long row, long column) const {
    const long y = row - sizes_.padding_t;
    const long x = column - sizes_.padding_l;
    return y < 0 || y >= long{sizes_.height} || x < 0 || x >= long{sizes_.width};
  }

  // Rows and columns may be larger than the picture: what follows in memory is read.
  double at(size_t plane, long row, long column, size_t lane) const {
    const long run = (static_cast<long>(plane) * height() + row) * width() + column;
    const long in_plane = run % (height() * width());
    const long holder = run / (height() * width());
    if (holder >= long{sizes_.planes}) return 0.0;
    const long y = in_plane / width();
    const long x = in_plane % width();
    if (in_margin(y, x)) return margin_;
    const long pixel =
        (holder * sizes_.height + y - sizes_.padding_t) * sizes_.width + x - sizes_.padding_l;
    return input_[static_cast<size_t>(pixel) * lanes_ + lane];
  }

 private:
  const PoolingCase& sizes_;
  size_t lanes_;
  double margin_;
  const std::vector<float>& input_;
};

Sum average_at(const PoolingRow& row, const PoolingCase& sizes, const PaddedPixels& pixels,
               size_t plane, long y, long x, size_t lane) {
  Sum sum;
  double divisor = double{static_cast<double>(sizes.kernel_y)} * sizes.kernel_x;
  const bool all_count = row.kernel != 0 || sizes.count_include_pad;
  for (long i = y; i < y + long{sizes.kernel_y}; ++i) {
    for (long j = x; j < x + long{sizes.kernel_x}; ++j) {
      sum.add(pixels.at(plane, i, j, lane));
      if (!all_count && pixels.in_margin(i, j)) divisor -= 1.0;
    }
  }
  sum.value /= divisor;
  sum.magnitude /= divisor;
  ++sum.terms;
  return sum;
}

Sum maximum_at(const PoolingRow& row, const PoolingCase& sizes, const PaddedPixels& pixels,
               size_t plane, long y, long x, size_t lane) {
  const bool general = row.kernel == 0;
  double maximum = std::numeric_limits<float>::lowest();
  for (long i = 0; i < long{sizes.kernel_y}; ++i) {
    for (long j = 0; j < long{sizes.kernel_x}; ++j) {
      long r = y + i * (general ? long{sizes.dilation_y} : 1);
      long c = x + j * (general ? long{sizes.dilation_x} : 1);
      if (general) r = std::min(r, pixels.height() - 1);
      if (general) c = std::min(c, pixels.width() - 1);
      maximum = std::max(maximum, pixels.at(plane, r, c, lane));
    }
  }
  Sum result;
  result.value = maximum;
  return result;
}

uint32_t windows(const PoolingRow& row, bool ceil_mode, long padded, long kernel, long dilation,
                 long stride) {
  const bool average = row.kind == PoolingKind::average;
  const long window = average ? kernel : (kernel - 1) * dilation + 1;
  const double steps = static_cast<double>(padded - window) / static_cast<double>(stride);
  const double whole = ceil_mode && !average ? std::ceil(steps) : std::floor(steps);
  return static_cast<uint32_t>(whole) + 1;
}

}  // namespace

PoolingOracle pooling(const PoolingRow& row, const PoolingCase& sizes,
                      const std::vector<float>& input) {
  const bool average = row.kind == PoolingKind::average;
  const bool lowest_margin = !average && row.kernel == 0;
  const double margin = lowest_margin ? double{std::numeric_limits<float>::lowest()} : 0.0;
  const PaddedPixels pixels(sizes, row.block, margin, input);
  PoolingOracle oracle;
  oracle.height = windows(row, sizes.ceil_mode, pixels.height(), sizes.kernel_y, sizes.dilation_y,
                          sizes.stride_y);
  oracle.width = windows(row, sizes.ceil_mode, pixels.width(), sizes.kernel_x, sizes.dilation_x,
                         sizes.stride_x);
  for (size_t plane = 0; plane < sizes.planes; ++plane) {
    for (uint32_t oh = 0; oh < oracle.height; ++oh) {
      for (uint32_t ow = 0; ow < oracle.width; ++ow) {
        for (size_t lane = 0; lane < row.block; ++lane) {
          const auto output = average ? average_at : maximum_at;
          oracle.outputs.push_back(output(row, sizes, pixels, plane, long{oh} * sizes.stride_y,
                                          long{ow} * sizes.stride_x, lane));
        }
      }
    }
  }
  return oracle;
}

}  // namespace marlo::test
