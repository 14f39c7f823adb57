#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include <immintrin.h>

#include "bench/support/probe_cores.h"

namespace marlo::bench {
namespace {

constexpr size_t kLanes = 8;
constexpr size_t kUnrolled = 16;

void keep(__m256 value) { asm volatile("" : : "x"(value)); }

// Hides where a value comes from, so that equal chains stay as many.
__m256 hidden(__m256 value) {
  asm volatile("" : "+x"(value));
  return value;
}

}  // namespace

void copy_avx(const float* from, float* to, size_t count) noexcept {
  for (size_t i = 0; i < count; i += kUnrolled * kLanes) {
#pragma GCC unroll 16
    for (size_t k = 0; k < kUnrolled; ++k) {
      _mm256_storeu_ps(to + i + k * kLanes, _mm256_loadu_ps(from + i + k * kLanes));
      asm volatile("" : : : "memory");
    }
  }
}

void read_avx(const float* from, size_t count) noexcept {
  for (size_t i = 0; i < count; i += kUnrolled * kLanes) {
#pragma GCC unroll 16
    for (size_t k = 0; k < kUnrolled; ++k) keep(_mm256_loadu_ps(from + i + k * kLanes));
  }
}

void peak_avx(size_t rounds, float one, float zero) noexcept {
  const __m256 factor = _mm256_set1_ps(one);
  const __m256 term = _mm256_set1_ps(zero);
  __m256 p0 = hidden(factor), p1 = hidden(factor), p2 = hidden(factor), p3 = hidden(factor),
         p4 = hidden(factor), p5 = hidden(factor), p6 = hidden(factor);
  __m256 s0 = hidden(factor), s1 = hidden(factor), s2 = hidden(factor), s3 = hidden(factor),
         s4 = hidden(factor), s5 = hidden(factor), s6 = hidden(factor);
  for (size_t i = 0; i < rounds; ++i) {
    p0 = _mm256_mul_ps(p0, factor), s0 = _mm256_add_ps(s0, term);
    p1 = _mm256_mul_ps(p1, factor), s1 = _mm256_add_ps(s1, term);
    p2 = _mm256_mul_ps(p2, factor), s2 = _mm256_add_ps(s2, term);
    p3 = _mm256_mul_ps(p3, factor), s3 = _mm256_add_ps(s3, term);
    p4 = _mm256_mul_ps(p4, factor), s4 = _mm256_add_ps(s4, term);
    p5 = _mm256_mul_ps(p5, factor), s5 = _mm256_add_ps(s5, term);
    p6 = _mm256_mul_ps(p6, factor), s6 = _mm256_add_ps(s6, term);
  }
  keep(p0), keep(p1), keep(p2), keep(p3), keep(p4), keep(p5), keep(p6);
  keep(s0), keep(s1), keep(s2), keep(s3), keep(s4), keep(s5), keep(s6);
}

}  // namespace marlo::bench
