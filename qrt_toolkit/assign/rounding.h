#pragma once

#include <string>

namespace marlo::toolkit {

/// How much further from the exact results a kernel's are than plain sums of the same numbers, which the method
/// that its name states tells. Plain data.
struct RoundingGrowth {
  double most = 1;   ///< of the largest intermediate results, which bounds are made of
  double usual = 1;  ///< on numbers as networks have them
};

RoundingGrowth rounding_growth(const std::string& kernel);

/// Whether what a kernel rounds may be tolerated in every layer of a network. Differences are told of one layer,
/// on numbers made for its trial; layers behind it pass them on, and some networks enlarge them.
/// @param tolerance of `AssignOptions`
bool may_round_as(const std::string& kernel, double tolerance);

/// The least tolerance for which it may.
double tolerance_for_rounding(const std::string& kernel);

}  // namespace marlo::toolkit
