#pragma once

#include <cmath>
#include <cstdio>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/oracle.h"

// Results are compared before they are timed: a wrong one isn't worth a time.

namespace marlo::bench {

/// What an element must be, and how far it may be off.
struct Expected {
  double value = 0.0;
  double tolerance = 0.0;
};

/// @param expected the `Expected` of an index
/// @throws std::runtime_error unless there are `count` elements, all of them as expected
template <typename Expectation>
void demand_elements(const std::string& what, std::span<const float> found, size_t count,
                     Expectation expected) {
  if (found.size() != count) {
    throw std::runtime_error(what + " gives " + std::to_string(found.size()) + " elements, not " +
                             std::to_string(count));
  }
  for (size_t i = 0; i < count; ++i) {
    const Expected element = expected(i);
    if (std::abs(found[i] - element.value) <= element.tolerance) continue;
    char text[100];
    std::snprintf(text, sizeof text, ": element %zu is %.9g, not %.9g", i,
                  static_cast<double>(found[i]), element.value);
    throw std::runtime_error(what + text);
  }
}

/// @throws std::runtime_error unless the elements are these numbers
inline void demand_numbers(const std::string& what, std::span<const float> found,
                           const std::vector<float>& expected) {
  demand_elements(what, found, expected.size(), [&](size_t i) { return Expected{expected[i]}; });
}

/// @throws std::runtime_error unless the elements are these sums, within `scale` of their bounds
inline void demand_sums(const std::string& what, std::span<const float> found,
                        const std::vector<test::Sum>& sums, double scale = 1.0) {
  demand_elements(what, found, sums.size(), [&](size_t i) {
    return Expected{sums[i].value, scale * sums[i].bound()};
  });
}

}  // namespace marlo::bench
