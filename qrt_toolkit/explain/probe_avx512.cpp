#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_toolkit/explain/probe_internal.h"

namespace marlo::toolkit {

using kernel::Avx512Vector;

constexpr size_t kStep = kCopyStep / Avx512Vector::kLanes;

void copy_avx512(const float* from, float* to, size_t count) noexcept {
  copy<Avx512Vector, kStep>(from, to, count);
}

void read_avx512(const float* from, size_t count) noexcept {
  read<Avx512Vector, kStep>(from, count);
}

// One turn of the loop is two rounds.
void peak_avx512(size_t rounds, float one, float zero) noexcept {
  const __m512 factor = _mm512_set1_ps(one);
  const __m512 term = _mm512_set1_ps(zero);
  const auto next = [factor, term](__m512 x) { return _mm512_fmadd_ps(x, factor, term); };
  run_chains<Avx512Vector>((rounds + 1) / 2, one, next, next);
}

}  // namespace marlo::toolkit
