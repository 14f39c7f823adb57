#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/basic/pooling_cores.h"
#include "qrt_core/kernel/basic/pooling_internal.h"

namespace marlo::kernel::pooling {
namespace {

template <size_t kernel, size_t stride>
void average(const PoolingTask& task) noexcept {
  BlockedPooling<AvxVector, Average, kernel, stride>(task).run();
}

template <size_t kernel, size_t stride>
void maximum(const PoolingTask& task) noexcept {
  BlockedPooling<AvxVector, Maximum, kernel, stride>(task).run();
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
