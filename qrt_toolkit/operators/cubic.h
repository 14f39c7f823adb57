#pragma once

#include <array>

namespace marlo::toolkit {

/// The weights of the four neighbours of a point `part` of the way from the second to the third, by
/// cubic convolution with the coefficient `a`.
inline std::array<double, 4> cubic_weights(double part, double a) {
  const auto near = [a](double d) { return ((a + 2) * d - (a + 3)) * d * d + 1; };
  const auto far = [a](double d) { return ((a * d - 5 * a) * d + 8 * a) * d - 4 * a; };
  return {far(1 + part), near(part), near(1 - part), far(2 - part)};
}

}  // namespace marlo::toolkit
