#pragma once

#include <cstdint>
#include <optional>
#include <vector>

// A transposed convolution as a convolution: results at one distance from the next multiple of the
// stride come from the same places of the input, so that each distance, a phase, is a channel more.

namespace marlo::toolkit {

/// A transposed window along one axis.
struct TransposedAxis {
  int64_t kernel = 1;
  int64_t stride = 1;
  int64_t dilation = 1;
  int64_t cut = 0;  ///< elements of the full result in front of the first that stays
  int64_t in = 1;
  int64_t out = 1;
};

/// The convolution along that axis.
struct PhasedAxis {
  int64_t kernel = 1;
  int64_t pad_begin = 0;
  int64_t pad_end = 0;
  int64_t places = 1;  ///< results of a phase; all phases have at least `TransposedAxis::out`
  /// Where in the window of a phase a number of the transposed one stands, [phase][number];
  /// negative for one that the phase doesn't read.
  std::vector<std::vector<int64_t>> place;
};

/// Nothing where the input would have to be cut.
std::optional<PhasedAxis> phased(const TransposedAxis& axis);

}  // namespace marlo::toolkit
