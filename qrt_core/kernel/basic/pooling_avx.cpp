#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include <immintrin.h>

#include "qrt_core/kernel/basic/pooling_blocked_cores.h"
#include "qrt_core/kernel/basic/pooling_cores.h"

namespace marlo::kernel::pooling {
namespace {

struct EightLanes {
  using Register = __m256;
  static constexpr size_t kLanes = 8;

  static Register load(const float* p) { return _mm256_loadu_ps(p); }
  static void store(float* p, Register a) { _mm256_storeu_ps(p, a); }
  static Register zero() { return _mm256_setzero_ps(); }
  static Register add(Register a, Register b) { return _mm256_add_ps(a, b); }
  static Register maximum(Register a, Register b) { return _mm256_max_ps(a, b); }
  static Register times(Register a, float factor) {
    return _mm256_mul_ps(a, _mm256_set1_ps(factor));
  }
  static Register over(Register a, float divisor) {
    return _mm256_div_ps(a, _mm256_set1_ps(divisor));
  }
};

template <size_t kernel, size_t stride>
void average(const PoolingTask& task) noexcept {
  BlockedPooling<EightLanes, Average, kernel, stride>(task).run();
}

template <size_t kernel, size_t stride>
void maximum(const PoolingTask& task) noexcept {
  BlockedPooling<EightLanes, Maximum, kernel, stride>(task).run();
}

}  // namespace

void average_k2s2_c8_avx(const PoolingTask& task) noexcept { average<2, 2>(task); }
void average_k3s2_c8_avx(const PoolingTask& task) noexcept { average<3, 2>(task); }
void average_k4s4_c8_avx(const PoolingTask& task) noexcept { average<4, 4>(task); }
void average_k4s1_c8_avx(const PoolingTask& task) noexcept { average<4, 1>(task); }
void average_k7s1_c8_avx(const PoolingTask& task) noexcept { average<7, 1>(task); }
void average_k8s1_c8_avx(const PoolingTask& task) noexcept { average<8, 1>(task); }
void maximum_k2s2_c8_avx(const PoolingTask& task) noexcept { maximum<2, 2>(task); }
void maximum_k3s2_c8_avx(const PoolingTask& task) noexcept { maximum<3, 2>(task); }

}  // namespace marlo::kernel::pooling
