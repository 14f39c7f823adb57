#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// How two tensors of numbers differ.

namespace marlo::toolkit {

/// Differences of one list of numbers from another.
struct NumberDifference {
  double largest = 0;        ///< |theirs - ours|; infinite where one is no number and the other is
  size_t place = 0;          ///< of the largest
  double rms = 0;            ///< root of the mean of their squares
  double largest_value = 0;  ///< of the finite magnitudes in `ours`
  /// Over the largest value.
  double relative() const;
};

/// The difference of `theirs` from `ours`, as far as both go. What both have alike, infinite or not
/// a number, is no difference.
NumberDifference difference_of(const std::vector<double>& ours, const std::vector<double>& theirs);

/// Whether sizes agree but for channels, the first of three, that fill up a block in one of them.
bool are_comparable(const std::vector<uint32_t>& first, const std::vector<uint32_t>& second);

}  // namespace marlo::toolkit
