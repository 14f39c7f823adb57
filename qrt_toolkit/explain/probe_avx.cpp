#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_toolkit/explain/probe_internal.h"

namespace marlo::toolkit {

using kernel::AvxVector;

void copy_avx(const float* from, float* to, size_t count) noexcept {
  copy<AvxVector>(from, to, count);
}

void read_avx(const float* from, size_t count) noexcept { read<AvxVector>(from, count); }

void peak_avx(size_t rounds, float one, float zero) noexcept {
  run_products_and_sums<AvxVector>(rounds, one, zero);
}

}  // namespace marlo::toolkit
