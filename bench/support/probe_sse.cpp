#include <emmintrin.h>

#include "bench/support/probe_cores.h"

namespace marlo::bench {
namespace {

constexpr size_t kLanes = 4;
constexpr size_t kUnrolled = 16;

// Makes the compiler believe that a value is used, at no cost.
void keep(__m128 value) { asm volatile("" : : "x"(value)); }

// Hides where a value comes from, so that equal chains stay as many.
__m128 hidden(__m128 value) {
  asm volatile("" : "+x"(value));
  return value;
}

}  // namespace

void copy_sse(const float* from, float* to, size_t count) noexcept {
  for (size_t i = 0; i < count; i += kUnrolled * kLanes) {
#pragma GCC unroll 16
    for (size_t k = 0; k < kUnrolled; ++k) {
      _mm_storeu_ps(to + i + k * kLanes, _mm_loadu_ps(from + i + k * kLanes));
      // Without it the compiler calls memcpy.
      asm volatile("" : : : "memory");
    }
  }
}

void read_sse(const float* from, size_t count) noexcept {
  for (size_t i = 0; i < count; i += kUnrolled * kLanes) {
#pragma GCC unroll 16
    for (size_t k = 0; k < kUnrolled; ++k) keep(_mm_loadu_ps(from + i + k * kLanes));
  }
}

void peak_sse(size_t rounds, float one, float zero) noexcept {
  const __m128 factor = _mm_set1_ps(one);
  const __m128 term = _mm_set1_ps(zero);
  __m128 p0 = hidden(factor), p1 = hidden(factor), p2 = hidden(factor), p3 = hidden(factor),
         p4 = hidden(factor), p5 = hidden(factor), p6 = hidden(factor);
  __m128 s0 = hidden(factor), s1 = hidden(factor), s2 = hidden(factor), s3 = hidden(factor),
         s4 = hidden(factor), s5 = hidden(factor), s6 = hidden(factor);
  for (size_t i = 0; i < rounds; ++i) {
    p0 = _mm_mul_ps(p0, factor), s0 = _mm_add_ps(s0, term);
    p1 = _mm_mul_ps(p1, factor), s1 = _mm_add_ps(s1, term);
    p2 = _mm_mul_ps(p2, factor), s2 = _mm_add_ps(s2, term);
    p3 = _mm_mul_ps(p3, factor), s3 = _mm_add_ps(s3, term);
    p4 = _mm_mul_ps(p4, factor), s4 = _mm_add_ps(s4, term);
    p5 = _mm_mul_ps(p5, factor), s5 = _mm_add_ps(s5, term);
    p6 = _mm_mul_ps(p6, factor), s6 = _mm_add_ps(s6, term);
  }
  keep(p0), keep(p1), keep(p2), keep(p3), keep(p4), keep(p5), keep(p6);
  keep(s0), keep(s1), keep(s2), keep(s3), keep(s4), keep(s5), keep(s6);
}

void max_and_sum_sse(size_t rounds, float one, float zero) noexcept {
  const __m128 bound = _mm_set1_ps(one);
  const __m128 term = _mm_set1_ps(zero);
  __m128 m0 = hidden(bound), m1 = hidden(bound), m2 = hidden(bound), m3 = hidden(bound),
         m4 = hidden(bound), m5 = hidden(bound), m6 = hidden(bound);
  __m128 s0 = hidden(bound), s1 = hidden(bound), s2 = hidden(bound), s3 = hidden(bound),
         s4 = hidden(bound), s5 = hidden(bound), s6 = hidden(bound);
  for (size_t i = 0; i < rounds; ++i) {
    m0 = _mm_max_ps(m0, bound), s0 = _mm_add_ps(s0, term);
    m1 = _mm_max_ps(m1, bound), s1 = _mm_add_ps(s1, term);
    m2 = _mm_max_ps(m2, bound), s2 = _mm_add_ps(s2, term);
    m3 = _mm_max_ps(m3, bound), s3 = _mm_add_ps(s3, term);
    m4 = _mm_max_ps(m4, bound), s4 = _mm_add_ps(s4, term);
    m5 = _mm_max_ps(m5, bound), s5 = _mm_add_ps(s5, term);
    m6 = _mm_max_ps(m6, bound), s6 = _mm_add_ps(s6, term);
  }
  keep(m0), keep(m1), keep(m2), keep(m3), keep(m4), keep(m5), keep(m6);
  keep(s0), keep(s1), keep(s2), keep(s3), keep(s4), keep(s5), keep(s6);
}

void count_cycles(uint64_t rounds) noexcept {
  uint64_t sum = 0;
  for (uint64_t i = 0; i < rounds; i += 16) {
#pragma GCC unroll 16
    for (int k = 0; k < 16; ++k) asm volatile("add $1, %0" : "+r"(sum));
  }
}

}  // namespace marlo::bench
