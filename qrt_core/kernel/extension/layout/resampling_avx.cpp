#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/extension/layout/resampling_cores.h"
#include "qrt_core/kernel/vectors_internal.h"

namespace marlo::kernel::resize {
namespace {

using V = AvxVector;
constexpr size_t kSquare = V::kLanes;
static_assert(kSquare == kLinesAtOnce);

/// Turns a square of eight by eight: number k of line i becomes number i of line k.
[[gnu::always_inline]] inline void turn(V::Register (&lines)[kSquare]) noexcept {
  V::Register pairs[kSquare];
  unrolled<4>(QRT_UNROLLED(k) {
    pairs[2 * k] = _mm256_unpacklo_ps(lines[2 * k], lines[2 * k + 1]);
    pairs[2 * k + 1] = _mm256_unpackhi_ps(lines[2 * k], lines[2 * k + 1]);
  });
  V::Register fours[kSquare];
  unrolled<2>(QRT_UNROLLED(half) {
    V::Register* const from = pairs + 4 * half;
    V::Register* const to = fours + 4 * half;
    to[0] = _mm256_shuffle_ps(from[0], from[2], 0x44);
    to[1] = _mm256_shuffle_ps(from[0], from[2], 0xEE);
    to[2] = _mm256_shuffle_ps(from[1], from[3], 0x44);
    to[3] = _mm256_shuffle_ps(from[1], from[3], 0xEE);
  });
  unrolled<4>(QRT_UNROLLED(k) {
    lines[k] = _mm256_permute2f128_ps(fours[k], fours[k + 4], 0x20);
    lines[k + 4] = _mm256_permute2f128_ps(fours[k], fours[k + 4], 0x31);
  });
}

/// Vectors side by side that are summed together.
constexpr size_t kParts = 4;

/// `parts` vectors of a row, or the first `count` lanes of one.
template <size_t parts>
void resample_part(const Tap* first, const Tap* end, const float* from, size_t inner, size_t count,
                   float* to) noexcept {
  V::Register sums[parts];
  unrolled<parts>(QRT_UNROLLED(k) { sums[k] = V::zero(); });
  for (const Tap* tap = first; tap != end; ++tap) {
    const float* const row = from + tap->place * inner;
    const V::Register weight = V::splat(&tap->weight);
    unrolled<parts>(QRT_UNROLLED(k) {
      const auto x = parts == 1 ? V::load_first(row, count) : V::load(row + k * V::kLanes);
      sums[k] = V::plus_product(sums[k], weight, x);
    });
  }
  if constexpr (parts == 1) {
    V::store_first(to, count, sums[0]);
  } else {
    unrolled<parts>(QRT_UNROLLED(k) { V::store(to + k * V::kLanes, sums[k]); });
  }
}

/// Rows of several numbers, one after the other.
void resample_rows(const Task& task, const float* from, float* to) noexcept {
  const Tap* first = task.taps;
  for (size_t x = 0; x < task.out; ++x, to += task.inner) {
    const Tap* const end = task.taps + task.ends[x];
    size_t i = 0;
    for (; i + kParts * V::kLanes <= task.inner; i += kParts * V::kLanes) {
      resample_part<kParts>(first, end, from + i, task.inner, V::kLanes, to + i);
    }
    for (; i < task.inner; i += V::kLanes) {
      const size_t count = smaller_of(V::kLanes, task.inner - i);
      resample_part<1>(first, end, from + i, task.inner, count, to + i);
    }
    first = end;
  }
}

/// Eight lines of single numbers at a time, which are turned for it: then the numbers of a place stand
/// in a vector. `lines` of them are there.
void resample_lines(const Task& task, const float* from, size_t lines, float* to) noexcept {
  const auto line = [lines](size_t k) { return smaller_of(k, lines - 1); };
  V::Register square[kSquare] = {};
  for (size_t i = 0; i < task.in; i += kSquare) {
    const size_t count = smaller_of(kSquare, task.in - i);
    unrolled<kSquare>(
        QRT_UNROLLED(k) { square[k] = V::load_first(from + line(k) * task.in + i, count); });
    turn(square);
    for (size_t k = 0; k < count; ++k) V::store(task.scratch + (i + k) * kSquare, square[k]);
  }
  const Tap* tap = task.taps;
  for (size_t x = 0; x < task.out; x += kSquare) {
    const size_t count = smaller_of(kSquare, task.out - x);
    for (size_t k = 0; k < count; ++k) {
      V::Register sum = V::zero();
      for (const Tap* const end = task.taps + task.ends[x + k]; tap != end; ++tap) {
        sum = V::plus_product(sum, V::splat(&tap->weight),
                              V::load(task.scratch + tap->place * kSquare));
      }
      square[k] = sum;
    }
    turn(square);
    for (size_t k = 0; k < lines; ++k) V::store_first(to + k * task.out + x, count, square[k]);
  }
}

}  // namespace

void resample_avx(const Task& task) noexcept {
  const float* from = task.from;
  float* to = task.to;
  const size_t at_once = task.inner == 1 ? kSquare : 1;
  for (size_t p = 0; p < task.planes; p += at_once) {
    if (task.inner == 1) {
      resample_lines(task, from, smaller_of(kSquare, task.planes - p), to);
    } else {
      resample_rows(task, from, to);
    }
    from += at_once * task.in * task.inner;
    to += at_once * task.out * task.inner;
  }
}

}  // namespace marlo::kernel::resize
