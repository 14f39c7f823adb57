#include "qrt_toolkit/text/ink.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace marlo::toolkit {
namespace {

constexpr int kLevels = 256;
constexpr int kLeastContrast = 10;

/// By how much each pixel is darker than the mean of the square around it.
std::vector<int16_t> darkness(const GreyPicture& picture) {
  const size_t width = picture.width;
  const size_t height = picture.height;
  // Sums of all pixels above and to the left, with a row and a column of zeros before them.
  std::vector<uint64_t> sums((width + 1) * (height + 1));
  for (size_t y = 0; y < height; ++y) {
    uint64_t row = 0;
    for (size_t x = 0; x < width; ++x) {
      row += picture.samples[y * width + x];
      sums[(y + 1) * (width + 1) + x + 1] = sums[y * (width + 1) + x + 1] + row;
    }
  }
  const size_t radius = std::clamp<size_t>(std::min(width, height) / 6, 12, 48);
  std::vector<int16_t> result(width * height);
  for (size_t y = 0; y < height; ++y) {
    const size_t top = y - std::min(y, radius);
    const size_t bottom = std::min(height, y + radius + 1);
    for (size_t x = 0; x < width; ++x) {
      const size_t left = x - std::min(x, radius);
      const size_t right = std::min(width, x + radius + 1);
      const uint64_t sum = sums[bottom * (width + 1) + right] + sums[top * (width + 1) + left] -
                           sums[bottom * (width + 1) + left] - sums[top * (width + 1) + right];
      const auto mean = static_cast<int>(sum / ((bottom - top) * (right - left)));
      result[y * width + x] = static_cast<int16_t>(mean - picture.samples[y * width + x]);
    }
  }
  return result;
}

/// Ink covers less than paper does, so what is farthest from the mean is ink.
bool is_light_on_dark(const std::vector<int16_t>& darkness) {
  double skew = 0;
  for (const int16_t value : darkness) {
    const double v = value;
    skew += v * v * v;
  }
  return skew < 0;
}

/// The level that parts the values above 0 into two kinds with the least variance in each.
int threshold_of(const std::vector<int16_t>& darkness) {
  std::array<double, kLevels> count{};
  for (const int16_t value : darkness) {
    count[static_cast<size_t>(std::clamp<int>(value, 0, kLevels - 1))] += 1;
  }
  double total = 0;
  double sum = 0;
  for (int i = 0; i < kLevels; ++i) {
    total += count[static_cast<size_t>(i)];
    sum += i * count[static_cast<size_t>(i)];
  }
  double below = 0;
  double sum_below = 0;
  double best = 0;
  int threshold = kLevels;
  for (int i = 0; i + 1 < kLevels; ++i) {
    below += count[static_cast<size_t>(i)];
    sum_below += i * count[static_cast<size_t>(i)];
    const double above = total - below;
    if (below == 0 || above == 0) continue;
    const double apart = sum_below / below - (sum - sum_below) / above;
    const double between = below * above * apart * apart;
    if (between > best) {
      best = between;
      threshold = i + 1;
    }
  }
  return std::max(threshold, kLeastContrast);
}

/// Takes out specks: ink with fewer than two pixels of ink around it.
void remove_specks(Ink& ink) {
  const std::vector<uint8_t> before = ink.marks;
  const auto at = [&](uint32_t y, uint32_t x) { return before[size_t{y} * ink.width + x]; };
  for (uint32_t y = 0; y < ink.height; ++y) {
    for (uint32_t x = 0; x < ink.width; ++x) {
      if (at(y, x) == 0) continue;
      int around = -1;
      for (uint32_t v = y == 0 ? 0 : y - 1; v <= std::min(y + 1, ink.height - 1); ++v) {
        for (uint32_t u = x == 0 ? 0 : x - 1; u <= std::min(x + 1, ink.width - 1); ++u) {
          around += at(v, u);
        }
      }
      if (around < 2) ink.marks[size_t{y} * ink.width + x] = 0;
    }
  }
}

}  // namespace

uint32_t Ink::in_row(uint32_t row, uint32_t from, uint32_t to) const {
  uint32_t sum = 0;
  for (uint32_t x = from; x < to; ++x) sum += marks[size_t{row} * width + x];
  return sum;
}

uint32_t Ink::in_column(uint32_t column, uint32_t from, uint32_t to) const {
  uint32_t sum = 0;
  for (uint32_t y = from; y < to; ++y) sum += marks[size_t{y} * width + column];
  return sum;
}

Ink ink_of(const GreyPicture& picture) {
  Ink ink{picture.height, picture.width, std::vector<uint8_t>(picture.samples.size())};
  std::vector<int16_t> values = darkness(picture);
  if (is_light_on_dark(values)) {
    for (int16_t& value : values) value = static_cast<int16_t>(-value);
  }
  const int threshold = threshold_of(values);
  std::transform(values.begin(), values.end(), ink.marks.begin(),
                 [=](int16_t value) { return value >= threshold ? uint8_t{1} : uint8_t{0}; });
  remove_specks(ink);
  return ink;
}

}  // namespace marlo::toolkit
