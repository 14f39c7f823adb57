#pragma once

#include <cstddef>
#include <cstdint>

// Resampling of floats along one axis.

namespace marlo::kernel::resize {

/// A number that a place of the output reads, and how much of it.
struct Tap {
  uint32_t place;
  float weight;
};

/// Lines of single numbers that a core takes together.
constexpr uint32_t kLinesAtOnce = 8;

/// [planes, in, inner] becomes [planes, out, inner]. Place x of the output is the sum of its taps, those
/// before `ends[x]` that aren't another place's before it.
struct Task {
  const Tap* taps = nullptr;
  const uint32_t* ends = nullptr;
  const float* from = nullptr;
  float* to = nullptr;
  size_t planes = 0;
  size_t in = 0;
  size_t out = 0;
  size_t inner = 1;
  float* scratch = nullptr;  ///< [in, kLinesAtOnce], where `inner` is 1
};

/// Carries a task out. Products are rounded and added to zero in the order of the taps: the same bits
/// from all of them.
using Core = void (*)(const Task& task) noexcept;

void resample_portable(const Task& task) noexcept;
void resample_avx(const Task& task) noexcept;

}  // namespace marlo::kernel::resize
