#include "tests/support/image_oracle.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace marlo::test {
namespace {

uint8_t wrapped(int64_t number) { return static_cast<uint8_t>(((number % 256) + 256) % 256); }

int rounded_weight(float weight) {
  const float scaled = weight * 2048.0f;
  const float away = scaled >= 0.0f ? scaled + 0.5f : scaled - 0.5f;
  return std::min(static_cast<int>(std::trunc(away)), 32767);
}

// The even number that is not larger.
int even_below(int number) { return static_cast<int>(floor_divided(number, 2)) * 2; }

struct Point {
  float x, y;
};

Point moved(const std::array<float, 6>& m, int column, int row) {
  const auto x = static_cast<float>(column);
  const auto y = static_cast<float>(row);
  Point point;
  point.x = (y * m[1]) + (x * m[0]);
  point.x = point.x + m[2];
  point.y = (x * m[3]) + (y * m[4]);
  point.y = point.y + m[5];
  return point;
}

// A float as an integer toward zero; nothing for what no picture reaches.
std::optional<int> toward_zero(float number) {
  if (std::isnan(number) || std::fabs(number) > 1e8f) return std::nullopt;
  return static_cast<int>(std::trunc(number));
}

// The pixel that a point rounds to, if there is one.
struct Cell {
  int x, y;
};
std::optional<Cell> cell_of(const Point& point, int height, int width) {
  const auto x = toward_zero(point.x + 0.5f);
  const auto y = toward_zero(point.y + 0.5f);
  if (!x || !y || *x < 0 || *y < 0 || *x > width - 1 || *y > height - 1) return std::nullopt;
  return Cell{*x, *y};
}

}  // namespace

int64_t floor_divided(int64_t a, int64_t b) {
  const int64_t quotient = a / b;
  return quotient * b == a || (a < 0) == (b < 0) ? quotient : quotient - 1;
}

uint8_t integer_gray(int red, int green, int blue) {
  return static_cast<uint8_t>((29 * blue + 150 * green + 77 * red) / 256);
}

uint8_t weighted_gray(int byte0, int byte1, int byte2) {
  double value = 0.299 * static_cast<double>(byte0);
  value += 0.587 * static_cast<double>(byte1);
  value += 0.114 * static_cast<double>(byte2);
  return value >= 256.0 ? 255 : static_cast<uint8_t>(value);
}

Rgb yuv_pixel(int y, int u, int v) {
  const int64_t from_u = u - 128;
  const int64_t from_v = v - 128;
  return {wrapped(floor_divided(64 * y + 90 * from_v, 64)),
          wrapped(floor_divided(64 * y - 22 * from_u - 46 * from_v, 64)),
          wrapped(floor_divided(64 * y + 113 * from_u, 64))};
}

Rgb yuv_pixel(int y, int p, int q, const std::array<int, 10>& f) {
  const int64_t a = p - f[8];
  const int64_t b = q - f[9];
  const int64_t t = int64_t{y - f[7]} * f[0];
  return {wrapped(floor_divided(t + a * f[1] + b * f[2], 32)),
          wrapped(floor_divided(t + a * f[3] + b * f[4], 32)),
          wrapped(floor_divided(t + a * f[5] + b * f[6], 32))};
}

BilinearPlace bilinear_place(int in, int out, int place) {
  if (in == 1) return {0, 0, 0, 2048};
  const double scale = static_cast<double>(in) / static_cast<double>(out);
  const auto f = static_cast<float>((place + 0.5) * scale - 0.5);
  int whole = static_cast<int>(std::floor(f));
  float a = f - static_cast<float>(whole);
  if (whole < 0) {
    whole = 0;
    a = 0.0f;
  } else if (whole >= in - 1) {
    whole = in - 2;
    a = 1.0f;
  }
  return {whole, whole + 1, rounded_weight(1.0f - a), rounded_weight(a)};
}

std::vector<uint8_t> bilinear(const std::vector<uint8_t>& input, int height, int width,
                              int channels, int out_height, int out_width) {
  std::vector<uint8_t> output;
  std::vector<BilinearPlace> columns;
  for (int x = 0; x < out_width; ++x) columns.push_back(bilinear_place(width, out_width, x));
  const auto at = [&](int y, int x, int c) {
    return static_cast<int>(input[static_cast<size_t>((y * width + x) * channels + c)]);
  };
  for (int y = 0; y < out_height; ++y) {
    const BilinearPlace row = bilinear_place(height, out_height, y);
    for (const BilinearPlace& column : columns) {
      for (int c = 0; c < channels; ++c) {
        const auto scaled = [&](int source) {
          return floor_divided(at(source, column.first, c) * column.weight0 +
                                   at(source, column.second, c) * column.weight1,
                               16);
        };
        const int64_t sum = floor_divided(scaled(row.first) * row.weight0, 65536) +
                            floor_divided(scaled(row.second) * row.weight1, 65536);
        output.push_back(static_cast<uint8_t>(floor_divided(sum + 2, 4)));
      }
    }
  }
  return output;
}

int nearest_place(int in, int out, int place) {
  const float scale = static_cast<float>(in) / static_cast<float>(out);
  const auto f = static_cast<float>((place + 0.5) * static_cast<double>(scale) - 0.5);
  const int whole = static_cast<int>(std::trunc(f));
  if (whole < 0) return 0;
  if (whole >= in - 1) return in - 1;
  return f - static_cast<float>(whole) < 0.5f ? whole : whole + 1;
}

int accumulated_place(int in, int out, int place) {
  const float step = static_cast<float>(in) / static_cast<float>(out);
  float sum = 0.0f;
  for (int i = 0; i < place; ++i) sum += step;
  return static_cast<int>(sum);
}

OracleRectangle rectangle_of(int height, int width, const std::array<float, 4>& fractions) {
  const auto place = [](int size, float fraction) {
    return static_cast<int>(static_cast<float>(size) * fraction);
  };
  return {place(width, fractions[0]), place(height, fractions[1]), place(width, fractions[2]),
          place(height, fractions[3])};
}

std::optional<int> cropped_place(int from, int to, int in, int out, int place) {
  const float scale = static_cast<float>(to - from + 1) / static_cast<float>(out);
  const float before = static_cast<float>(from < 0 ? -from : 0);
  const float behind = static_cast<float>(in - to - 1 < 0 ? in - to - 1 : 0);
  const int first = even_below(static_cast<int>(std::ceil(before / scale) + 1.0f));
  const int raw_last = static_cast<int>(behind / scale + static_cast<float>(out - 1));
  const int last = even_below(raw_last - first + 1) - 1 + first;
  if (place < first || place > last) return std::nullopt;
  const double f = (place + 0.5) * static_cast<double>(scale) - 0.5;
  return std::clamp(static_cast<int>(std::floor(f)) + from, 0, in - 1);
}

float PlanarPicture::at(int c, int y, int x) const {
  return values.at(static_cast<size_t>((c * height + y) * width + x));
}

float& PlanarPicture::at(int c, int y, int x) {
  return values.at(static_cast<size_t>((c * height + y) * width + x));
}

void warp_forward(const PlanarPicture& input, const std::array<float, 6>& m,
                  PlanarPicture& output) {
  for (int y = 0; y < input.height; ++y) {
    for (int x = 0; x < input.width; ++x) {
      const auto cell = cell_of(moved(m, x, y), output.height, output.width);
      for (int c = 0; cell && c < input.channels; ++c) {
        output.at(c, cell->y, cell->x) = input.at(c, y, x);
      }
    }
  }
}

void warp_nearest(const PlanarPicture& input, const std::array<float, 6>& m,
                  PlanarPicture& output) {
  for (int y = 0; y < output.height; ++y) {
    for (int x = 0; x < output.width; ++x) {
      const auto cell = cell_of(moved(m, x, y), input.height, input.width);
      for (int c = 0; cell && c < input.channels; ++c) {
        output.at(c, y, x) = input.at(c, cell->y, cell->x);
      }
    }
  }
}

void warp_bilinear(const PlanarPicture& input, const std::array<float, 6>& m,
                   PlanarPicture& output) {
  const int last_x = input.width - 1;
  const int last_y = input.height - 1;
  for (int y = 0; y < output.height; ++y) {
    for (int x = 0; x < output.width; ++x) {
      const Point point = moved(m, x, y);
      const auto x0 = toward_zero(point.x);
      const auto y0 = toward_zero(point.y);
      if (!x0 || !y0 || *x0 < 0 || *y0 < 0 || *x0 + 1 > last_x || *y0 + 1 > last_y) continue;
      const float fx = point.x < 0.0f ? 0.0f : point.x - static_cast<float>(*x0);
      const float fy = point.y < 0.0f ? 0.0f : point.y - static_cast<float>(*y0);
      const bool one_row = point.y < 0.0f || point.y >= static_cast<float>(last_y);
      const bool one_column = !(point.x > 0.0f && point.x < static_cast<float>(last_x));
      const int y1 = one_row ? *y0 : *y0 + 1;
      const int x1 = one_column ? *x0 : *x0 + 1;
      for (int c = 0; c < input.channels; ++c) {
        const float upper = input.at(c, *y0, *x0) * (1.0f - fx) + input.at(c, *y0, x1) * fx;
        const float lower = input.at(c, y1, *x0) * (1.0f - fx) + input.at(c, y1, x1) * fx;
        output.at(c, y, x) = upper * (1.0f - fy) + lower * fy;
      }
    }
  }
}

void warp_normalized(const PlanarPicture& input, const std::array<float, 6>& m,
                     PlanarPicture& output) {
  const float hh = static_cast<float>(output.height) * 0.5f;
  const float hw = static_cast<float>(output.width) * 0.5f;
  const float a = (hw / hh) * m[1];
  const float b = (hh / hw) * m[3];
  const float cx = (1.0f + m[2]) * hw - 0.5f;
  const float cy = (1.0f + m[5]) * hh - 0.5f;
  const auto kept = [](int whole, int size) {
    if (size == 1 || whole < 0) return 0;
    return whole >= size - 1 ? size - 2 : whole;
  };
  for (int y = 0; y < output.height; ++y) {
    const float yc = static_cast<float>(y) + 0.5f - hh;
    for (int x = 0; x < output.width; ++x) {
      const float xc = static_cast<float>(x) + 0.5f - hw;
      const float sx = (xc * m[0] + yc * a) + cx;
      const float sy = (yc * m[4] + xc * b) + cy;
      // What no integer holds lies far outside, on the border, with no fraction.
      const auto whole = [](float place) {
        return toward_zero(place).value_or(place > 0.0f ? 100000000 : -100000000);
      };
      const int x0 = whole(sx);
      const int y0 = whole(sy);
      const float fx = toward_zero(sx) ? sx - static_cast<float>(x0) : 0.0f;
      const float fy = toward_zero(sy) ? sy - static_cast<float>(y0) : 0.0f;
      const int left = kept(x0, input.width);
      const int top = kept(y0, input.height);
      const int right = std::min(left + 1, input.width - 1);
      const int below = std::min(top + 1, input.height - 1);
      for (int c = 0; c < std::min({3, input.channels, output.channels}); ++c) {
        float sum = ((1.0f - fy) * (1.0f - fx)) * input.at(c, top, left);
        sum += ((1.0f - fy) * fx) * input.at(c, top, right);
        sum += (fy * (1.0f - fx)) * input.at(c, below, left);
        sum += (fy * fx) * input.at(c, below, right);
        output.at(c, y, x) = sum;
      }
    }
  }
}

}  // namespace marlo::test
