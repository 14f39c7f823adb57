#include "tools/qrt/scores.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <numeric>
#include <sstream>

#include "tools/qrt/errors.h"

namespace qrt_tool {
namespace {

constexpr std::array<const char*, 9> kEighths = {"",       "\u258F", "\u258E", "\u258D", "\u258C",
                                                 "\u258B", "\u258A", "\u2589", "\u2588"};

std::string trimmed(const std::string& text) {
  const size_t begin = text.find_first_not_of(" \t\r");
  if (begin == std::string::npos) return "";
  return text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

}  // namespace

std::vector<double> softmax(const std::vector<double>& values) {
  if (values.empty()) return {};
  const bool defined =
      std::none_of(values.begin(), values.end(), [](double value) { return std::isnan(value); });
  const double largest = *std::max_element(values.begin(), values.end());
  if (!defined || std::isinf(largest)) {
    return std::vector<double>(values.size(), std::numeric_limits<double>::quiet_NaN());
  }
  std::vector<double> shares;
  shares.reserve(values.size());
  for (const double value : values) shares.push_back(std::exp(value - largest));
  const double sum = std::accumulate(shares.begin(), shares.end(), 0.0);
  for (double& share : shares) share /= sum;
  return shares;
}

std::vector<size_t> best_indices(const std::vector<double>& values, size_t count) {
  std::vector<size_t> indices(values.size());
  std::iota(indices.begin(), indices.end(), size_t{0});
  std::stable_sort(indices.begin(), indices.end(), [&](size_t a, size_t b) {
    if (std::isnan(values[a]) || std::isnan(values[b])) {
      return !std::isnan(values[a]) && std::isnan(values[b]);
    }
    return values[a] > values[b];
  });
  indices.resize(std::min(count, indices.size()));
  return indices;
}

std::vector<std::string> parse_labels(const std::string& text) {
  std::vector<std::string> labels;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) labels.push_back(trimmed(line));
  while (!labels.empty() && labels.back().empty()) labels.pop_back();
  if (labels.empty()) throw ToolError(kInputError, "the file holds no label");
  return labels;
}

std::string bar(double share, size_t width, bool utf8) {
  if (!(share > 0.0)) return "";
  const double cells = std::min(share, 1.0) * static_cast<double>(width);
  if (!utf8) return std::string(static_cast<size_t>(std::lround(cells)), '#');
  const auto eighths = static_cast<size_t>(std::lround(cells * 8.0));
  std::string text;
  for (size_t i = 0; i < eighths / 8; ++i) text += kEighths[8];
  return text + kEighths[eighths % 8];
}

}  // namespace qrt_tool
