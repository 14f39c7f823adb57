#include <algorithm>

#include "qrt_core/kernel/extension/layout/resampling_cores.h"

namespace marlo::kernel::resize {
namespace {

// Single numbers: one sum for each.
void resample_line(const Task& task, const float* from, float* to) noexcept {
  const Tap* tap = task.taps;
  for (size_t x = 0; x < task.out; ++x) {
    float sum = 0.0f;
    for (const Tap* const end = task.taps + task.ends[x]; tap != end; ++tap) {
      sum += tap->weight * from[tap->place];
    }
    to[x] = sum;
  }
}

void resample_rows(const Task& task, const float* from, float* to) noexcept {
  const Tap* tap = task.taps;
  for (size_t x = 0; x < task.out; ++x, to += task.inner) {
    std::fill_n(to, task.inner, 0.0f);
    for (const Tap* const end = task.taps + task.ends[x]; tap != end; ++tap) {
      const float* const row = from + tap->place * task.inner;
      for (size_t i = 0; i < task.inner; ++i) to[i] += tap->weight * row[i];
    }
  }
}

}  // namespace

void resample_portable(const Task& task) noexcept {
  const float* from = task.from;
  float* to = task.to;
  for (size_t p = 0; p < task.planes; ++p) {
    (task.inner == 1 ? resample_line : resample_rows)(task, from, to);
    from += task.in * task.inner;
    to += task.out * task.inner;
  }
}

}  // namespace marlo::kernel::resize
