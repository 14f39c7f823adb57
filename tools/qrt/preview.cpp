#include "tools/qrt/preview.h"

#include <algorithm>
#include <array>

#include "tools/qrt/text.h"

namespace qrt_tool {
namespace {

constexpr std::array<const char*, 5> kBlocks = {" ", "\u2591", "\u2592", "\u2593", "\u2588"};
constexpr char kUpperHalf[] = "\u2580";
constexpr char kLowerHalf[] = "\u2584";
constexpr char kAscii[] = " .:-=+*#%@";
// Two pixels that differ by more are drawn as halves.
constexpr int kContrast = 96;

/// A picture in as many pixels as the preview has, levels 0 to 255.
struct Levels {
  size_t width;
  size_t height;
  std::vector<int> values;

  // The row below the last one of an odd height repeats it.
  int at(size_t row, size_t column) const {
    return values[std::min(row, height - 1) * width + column];
  }
};

// Each pixel is the mean of those that it stands for.
Levels reduce(const Picture& picture, size_t columns) {
  const size_t width = std::clamp<size_t>(columns, 1, picture.width);
  const size_t height =
      std::max<size_t>(1, (size_t{picture.height} * width + picture.width / 2) / picture.width);
  const std::vector<uint8_t> grey = grey_levels(picture);
  Levels levels{width, std::min<size_t>(height, picture.height), {}};
  for (size_t row = 0; row < levels.height; ++row) {
    const size_t top = row * picture.height / levels.height;
    const size_t bottom = std::max(top + 1, (row + 1) * picture.height / levels.height);
    for (size_t column = 0; column < width; ++column) {
      const size_t left = column * picture.width / width;
      const size_t right = std::max(left + 1, (column + 1) * picture.width / width);
      size_t sum = 0;
      for (size_t y = top; y < bottom; ++y) {
        for (size_t x = left; x < right; ++x) sum += grey[y * picture.width + x];
      }
      levels.values.push_back(static_cast<int>(sum / ((bottom - top) * (right - left))));
    }
  }
  return levels;
}

std::string character_for(int upper, int lower, bool utf8) {
  const auto mean = static_cast<size_t>(upper + lower) / 2;
  if (!utf8) return std::string(1, kAscii[mean * (sizeof kAscii - 2) / 255]);
  if (upper - lower > kContrast) return kUpperHalf;
  if (lower - upper > kContrast) return kLowerHalf;
  return kBlocks[(mean * (kBlocks.size() - 1) + 127) / 255];
}

}  // namespace

std::vector<std::string> render_preview(const Picture& picture, size_t columns, bool utf8) {
  const Levels levels = reduce(picture, columns);
  std::vector<std::string> rows;
  for (size_t row = 0; row < levels.height; row += 2) {
    std::string text;
    for (size_t column = 0; column < levels.width; ++column) {
      text += character_for(levels.at(row, column), levels.at(row + 1, column), utf8);
    }
    rows.push_back(std::move(text));
  }
  return rows;
}

std::string side_by_side(const std::vector<std::string>& left,
                         const std::vector<std::string>& right) {
  size_t left_width = 0;
  for (const std::string& line : left) left_width = std::max(left_width, width_of(line));
  const size_t count = std::max(left.size(), right.size());
  const size_t left_top = (count - left.size()) / 2;
  const size_t right_top = (count - right.size()) / 2;
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    const bool has_left = i >= left_top && i - left_top < left.size();
    const bool has_right = i >= right_top && i - right_top < right.size();
    std::string line = has_left ? left[i - left_top] : "";
    if (has_right && !right[i - right_top].empty()) {
      line += std::string(left_width - width_of(line) + 3, ' ') + right[i - right_top];
    }
    text += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
  }
  return text;
}

}  // namespace qrt_tool
