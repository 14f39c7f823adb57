#include "qrt_toolkit/explain/probe_internal.h"

namespace marlo::toolkit {

using kernel::SseVector;

void copy_sse(const float* from, float* to, size_t count) noexcept {
  copy<SseVector>(from, to, count);
}

void read_sse(const float* from, size_t count) noexcept { read<SseVector>(from, count); }

void peak_sse(size_t rounds, float one, float zero) noexcept {
  run_products_and_sums<SseVector>(rounds, one, zero);
}

void max_and_sum_sse(size_t rounds, float one, float zero) noexcept {
  const __m128 bound = _mm_set1_ps(one);
  const __m128 term = _mm_set1_ps(zero);
  run_chains<SseVector>(
      rounds, one, [bound](__m128 x) { return _mm_max_ps(x, bound); },
      [term](__m128 x) { return _mm_add_ps(x, term); });
}

void count_cycles(uint64_t rounds) noexcept {
  uint64_t sum = 0;
  // Some processors do several sums of a register and a constant at once, so it is no constant.
  uint64_t one = 1;
  asm("" : "+r"(one));
  for (uint64_t i = 0; i < rounds; i += 16) {
#pragma GCC unroll 16
    for (int k = 0; k < 16; ++k) asm volatile("add %1, %0" : "+r"(sum) : "r"(one));
  }
}

}  // namespace marlo::toolkit
