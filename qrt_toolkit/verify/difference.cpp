#include "qrt_toolkit/verify/difference.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace marlo::toolkit {

double NumberDifference::relative() const {
  if (largest == 0) return 0;
  return largest_value > 0 ? largest / largest_value : std::numeric_limits<double>::infinity();
}

NumberDifference difference_of(const std::vector<double>& ours, const std::vector<double>& theirs) {
  NumberDifference difference;
  const size_t count = std::min(ours.size(), theirs.size());
  double squares = 0;
  for (size_t i = 0; i < count; ++i) {
    const bool is_same = ours[i] == theirs[i] || (std::isnan(ours[i]) && std::isnan(theirs[i]));
    double off = is_same ? 0 : std::fabs(ours[i] - theirs[i]);
    if (std::isnan(off)) off = std::numeric_limits<double>::infinity();
    if (off > difference.largest) {
      difference.largest = off;
      difference.place = i;
    }
    squares += off * off;
    if (std::isfinite(ours[i])) {
      difference.largest_value = std::max(difference.largest_value, std::fabs(ours[i]));
    }
  }
  difference.rms = count == 0 ? 0 : std::sqrt(squares / static_cast<double>(count));
  return difference;
}

bool are_comparable(const std::vector<uint32_t>& first, const std::vector<uint32_t>& second) {
  if (first.size() != second.size() || first.empty()) return false;
  if (first == second) return true;
  const bool rest = std::equal(first.begin() + 1, first.end(), second.begin() + 1);
  const uint32_t more = std::max(first[0], second[0]) - std::min(first[0], second[0]);
  return rest && first.size() == 3 && more < 8;
}

}  // namespace marlo::toolkit
