#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "bench/support/processor.h"

// Pieces of measurements that aren't the benchmark's own loop.

namespace marlo::bench {

/// Seconds for which this thread runs in so many calls.
template <typename Work>
double seconds_of(const Work& work, size_t calls) {
  const double start = thread_seconds();
  for (size_t i = 0; i < calls; ++i) work();
  return thread_seconds() - start;
}

/// A number of calls, a power of two, that takes longer than so many seconds.
template <typename Work>
size_t calls_longer_than(double seconds, const Work& work) {
  work();
  size_t calls = 1;
  while (seconds_of(work, calls) <= seconds) calls *= 2;
  return calls;
}

/// The middle of one or more values.
inline double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace marlo::bench
