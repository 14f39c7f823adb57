#ifndef __FMA__
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_toolkit/explain/probe_internal.h"

namespace marlo::toolkit {

// One turn of the loop is two rounds.
void peak_fma(size_t rounds, float one, float zero) noexcept {
  const __m256 factor = _mm256_set1_ps(one);
  const __m256 term = _mm256_set1_ps(zero);
  const auto next = [factor, term](__m256 x) { return _mm256_fmadd_ps(x, factor, term); };
  run_chains<kernel::AvxVector>((rounds + 1) / 2, one, next, next);
}

}  // namespace marlo::toolkit
