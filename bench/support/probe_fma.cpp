#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include <immintrin.h>

#include "bench/support/probe_cores.h"

namespace marlo::bench {
namespace {

void keep(__m256 value) { asm volatile("" : : "x"(value)); }

// Hides where a value comes from, so that equal chains stay as many.
__m256 hidden(__m256 value) {
  asm volatile("" : "+x"(value));
  return value;
}

}  // namespace

// One turn of the loop is two rounds.
void peak_fma(size_t rounds, float one, float zero) noexcept {
  const __m256 factor = _mm256_set1_ps(one);
  const __m256 term = _mm256_set1_ps(zero);
  __m256 a0 = hidden(factor), a1 = hidden(factor), a2 = hidden(factor), a3 = hidden(factor),
         a4 = hidden(factor), a5 = hidden(factor), a6 = hidden(factor);
  __m256 b0 = hidden(factor), b1 = hidden(factor), b2 = hidden(factor), b3 = hidden(factor),
         b4 = hidden(factor), b5 = hidden(factor), b6 = hidden(factor);
  for (size_t i = 0; i < rounds; i += 2) {
    a0 = _mm256_fmadd_ps(a0, factor, term), b0 = _mm256_fmadd_ps(b0, factor, term);
    a1 = _mm256_fmadd_ps(a1, factor, term), b1 = _mm256_fmadd_ps(b1, factor, term);
    a2 = _mm256_fmadd_ps(a2, factor, term), b2 = _mm256_fmadd_ps(b2, factor, term);
    a3 = _mm256_fmadd_ps(a3, factor, term), b3 = _mm256_fmadd_ps(b3, factor, term);
    a4 = _mm256_fmadd_ps(a4, factor, term), b4 = _mm256_fmadd_ps(b4, factor, term);
    a5 = _mm256_fmadd_ps(a5, factor, term), b5 = _mm256_fmadd_ps(b5, factor, term);
    a6 = _mm256_fmadd_ps(a6, factor, term), b6 = _mm256_fmadd_ps(b6, factor, term);
  }
  keep(a0), keep(a1), keep(a2), keep(a3), keep(a4), keep(a5), keep(a6);
  keep(b0), keep(b1), keep(b2), keep(b3), keep(b4), keep(b5), keep(b6);
}

}  // namespace marlo::bench
