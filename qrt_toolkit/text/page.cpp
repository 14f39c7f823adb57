#include "qrt_toolkit/text/page.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <numbers>
#include <numeric>
#include <stdexcept>

#include "qrt_toolkit/text/ink.h"

namespace marlo::toolkit {
namespace {

constexpr double kDegree = std::numbers::pi / 180;
constexpr size_t kMostPoints = 30000;  // of ink, by which an angle is judged

struct Point {
  float x = 0;
  float y = 0;
};

std::vector<Point> points_of(const Ink& ink) {
  const auto count = static_cast<size_t>(std::count(ink.marks.begin(), ink.marks.end(), 1));
  const size_t step = count / kMostPoints + 1;
  std::vector<Point> points;
  points.reserve(count / step + 1);
  size_t seen = 0;
  for (uint32_t y = 0; y < ink.height; ++y) {
    for (uint32_t x = 0; x < ink.width; ++x) {
      if (ink.marks[size_t{y} * ink.width + x] == 0 || seen++ % step != 0) continue;
      points.push_back({static_cast<float>(x), static_cast<float>(y)});
    }
  }
  return points;
}

/// How much the ink is gathered in few rows when lines descend by an angle.
double gathered(const std::vector<Point>& points, double degrees, const Ink& ink) {
  const auto c = static_cast<float>(std::cos(degrees * kDegree));
  const auto s = static_cast<float>(std::sin(degrees * kDegree));
  const float lowest = std::min(0.0F, -s * static_cast<float>(ink.width));
  std::vector<double> rows(size_t{ink.height} + ink.width + 2);
  for (const Point& point : points) {
    ++rows[static_cast<size_t>(c * point.y - s * point.x - lowest)];
  }
  double sum = 0;
  for (const double row : rows) sum += row * row;
  return sum;
}

/// A line of text or a part of one, by its rows.
struct Band {
  uint32_t top = 0;
  uint32_t bottom = 0;
  uint64_t ink = 0;

  uint32_t height() const { return bottom - top; }
};

/// Finds the rows of lines, with the amount of ink in each row before it.
class Bands {
 public:
  explicit Bands(const Ink& ink) {
    rows_.reserve(ink.height);
    for (uint32_t y = 0; y < ink.height; ++y) rows_.push_back(ink.in_row(y, 0, ink.width));
    const uint32_t least = 1 + ink.width / 400;
    for (uint32_t y = 0; y < ink.height; ++y) {
      if (rows_[y] < least) continue;
      if (bands_.empty() || bands_.back().bottom != y) bands_.push_back({y, y, 0});
      bands_.back().bottom = y + 1;
      bands_.back().ink += rows_[y];
    }
  }

  std::vector<Band> found() {
    if (bands_.empty()) return {};
    merge_parts();
    split_touching();
    drop_rules();
    return bands_;
  }

  /// The height of lines: a quarter of the ink is in lower bands. Lines that touch each other are
  /// higher, and may be most.
  uint32_t typical() const {
    std::vector<Band> sorted = bands_;
    std::sort(sorted.begin(), sorted.end(),
              [](const Band& a, const Band& b) { return a.height() < b.height(); });
    uint64_t left = 0;
    for (const Band& band : sorted) left += band.ink;
    left /= 4;
    for (const Band& band : sorted) {
      if (band.ink > left) return band.height();
      left -= band.ink;
    }
    return sorted.back().height();
  }

 private:
  /// Dots, accents and underscores are bands of their own; they belong to the line beside them.
  void merge_parts() {
    const uint32_t line = typical();
    std::vector<Band> merged;
    for (const Band& band : bands_) {
      if (!merged.empty()) {
        Band& last = merged.back();
        const uint32_t gap = band.top - last.bottom;
        const bool is_part = 5 * std::min(band.height(), last.height()) < 2 * line;
        const bool is_near = 100 * gap < (is_part ? 35U : 12U) * line;
        if (is_near && 10 * (band.bottom - last.top) < 16 * line) {
          last.bottom = band.bottom;
          last.ink += band.ink;
          continue;
        }
      }
      merged.push_back(band);
    }
    bands_ = std::move(merged);
  }

  /// Lines whose letters reach into each other's rows are parted where there is the least ink.
  void split_touching() {
    const uint32_t line = typical();
    for (size_t i = 0; i < bands_.size();) {
      const Band band = bands_[i];
      if (10 * band.height() < 17 * line || line < 6) {
        ++i;
        continue;
      }
      const auto first = rows_.begin() + band.top + line / 2;
      const auto last = rows_.begin() + band.bottom - line / 2;
      const auto valley = std::min_element(first, last);
      const auto above = *std::max_element(rows_.begin() + band.top, valley + 1);
      const auto below = *std::max_element(valley, rows_.begin() + band.bottom);
      if (2 * *valley >= std::min(above, below)) {
        ++i;
        continue;
      }
      const auto row = static_cast<uint32_t>(valley - rows_.begin());
      bands_[i] = counted(band.top, row);
      bands_.insert(bands_.begin() + static_cast<std::ptrdiff_t>(i) + 1, counted(row, band.bottom));
    }
  }

  Band counted(uint32_t top, uint32_t bottom) const {
    const auto first = rows_.begin();
    return {top, bottom, std::accumulate(first + top, first + bottom, uint64_t{0})};
  }

  /// What is much lower than the lines is a rule or dirt.
  void drop_rules() {
    const uint32_t line = typical();
    bands_.erase(std::remove_if(bands_.begin(), bands_.end(),
                                [=](const Band& band) { return 4 * band.height() < line; }),
                 bands_.end());
  }

  std::vector<uint32_t> rows_;
  std::vector<Band> bands_;
};

/// The columns of a band's text, parted where there is none for three times its height.
std::vector<std::pair<uint32_t, uint32_t>> columns_of(const Ink& ink, const Band& band) {
  std::vector<std::pair<uint32_t, uint32_t>> parts;
  for (uint32_t x = 0; x < ink.width; ++x) {
    if (ink.in_column(x, band.top, band.bottom) == 0) continue;
    if (parts.empty() || x - parts.back().second > 3 * band.height()) parts.push_back({x, x});
    parts.back().second = x + 1;
  }
  // What is narrower than a point is dirt, unless it is all there is.
  if (parts.size() > 1) {
    const auto is_dirt = [&](const auto& part) {
      return 12 * (part.second - part.first) < band.height();
    };
    parts.erase(std::remove_if(parts.begin(), parts.end(), is_dirt), parts.end());
  }
  return parts;
}

/// The rows of a line with its margins. A band without tall letters gets the room that they would
/// have, as far as the lines beside it leave it.
std::pair<uint32_t, uint32_t> rows_with_margins(const std::vector<Band>& bands, size_t place,
                                                uint32_t typical, uint32_t rows) {
  const Band& band = bands[place];
  const uint32_t lowest = place + 1 < bands.size() ? bands[place + 1].top : rows;
  const uint32_t highest = place == 0 ? 0 : bands[place - 1].bottom;
  const uint32_t missing =
      4 * band.height() < 3 * typical && bands.size() > 2 ? typical - band.height() : 0;
  const uint32_t margin = std::max(1U, std::max(band.height(), missing) / 8);
  const uint32_t above = margin + missing / 2;
  const uint32_t below = margin + missing / 3;
  return {band.top - std::min(above, band.top - highest),
          band.bottom + std::min(below, lowest - band.bottom)};
}

}  // namespace

double text_angle(const GreyPicture& picture, double most) {
  if (!(most >= 0 && most <= 45)) throw std::invalid_argument("an angle is from 0 to 45 degrees");
  // Angles show in pictures of this size as well, and in less time.
  constexpr uint32_t kLargestSide = 1200;
  const uint32_t side = std::max(picture.height, picture.width);
  const double scale = side > kLargestSide ? static_cast<double>(kLargestSide) / side : 1;
  const auto scaled = [&](uint32_t size) {
    return std::max(1U, static_cast<uint32_t>(std::lround(size * scale)));
  };
  const Ink ink = ink_of(resized(picture, scaled(picture.height), scaled(picture.width)));
  const std::vector<Point> points = points_of(ink);
  if (points.size() < 50) return 0;
  const double level = gathered(points, 0, ink);
  double best = 0;
  double best_sum = level;
  const auto search = [&](double from, double to, double step) {
    const auto count = static_cast<int>(std::lround((to - from) / step));
    for (int i = 0; i <= count; ++i) {
      const double angle = std::clamp(from + i * step, -most, most);
      const double sum = gathered(points, angle, ink);
      if (sum <= best_sum) continue;
      best_sum = sum;
      best = angle;
    }
  };
  search(-most, most, 0.5);
  search(best - 0.4, best + 0.4, 0.1);
  search(best - 0.08, best + 0.08, 0.02);
  // Any text has a little more in its rows at some small angle or other.
  return best_sum > 1.03 * level ? best : 0;
}

std::vector<PixelBox> text_lines(const GreyPicture& picture) {
  const Ink ink = ink_of(resized(picture, picture.height, picture.width));
  Bands finder(ink);
  const std::vector<Band> bands = finder.found();
  std::vector<PixelBox> boxes;
  for (size_t i = 0; i < bands.size(); ++i) {
    const auto [top, bottom] = rows_with_margins(bands, i, finder.typical(), picture.height);
    const uint32_t margin = std::max(2U, bands[i].height() / 3);
    for (const auto& [left, right] : columns_of(ink, bands[i])) {
      boxes.push_back(
          {left - std::min(left, margin), top, std::min(picture.width, right + margin), bottom});
    }
  }
  return boxes;
}

}  // namespace marlo::toolkit
