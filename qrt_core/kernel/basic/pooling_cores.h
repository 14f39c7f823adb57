#pragma once

#include "qrt_core/kernel/basic/pooling_params.h"

namespace marlo::kernel::pooling {

/// Computes `task.output` whole. No core reads outside of the windows.
using Core = void (*)(const PoolingTask& task) noexcept;

// Any window. Sums run from zero in row order, and so do the maxima, from the lowest float; a
// number replaces the maximum only where it is greater, so that a NaN is dropped. A window that
// passes the edge repeats the last row or column.
void average_portable(const PoolingTask& task) noexcept;
void maximum_portable(const PoolingTask& task) noexcept;

// Planes in row order, lanes along a row. Sums are those of the columns, from left to right.
void average_k2s2_chw_sse(const PoolingTask& task) noexcept;
void average_k3s2_chw_sse(const PoolingTask& task) noexcept;
void average_k4s4_chw_sse(const PoolingTask& task) noexcept;
void average_k7s1_chw_sse(const PoolingTask& task) noexcept;
void maximum_k2s2_chw_sse(const PoolingTask& task) noexcept;

/// Four outputs of a row at a time have a floor: no result of theirs is below -999. What is left of
/// a row has none. Both are meant: models were tuned against them.
void maximum_k3s2_chw_sse(const PoolingTask& task) noexcept;

// One pixel's channels in one vector. Sums are those of the columns, from left to right.
void average_k4s4_c4_sse(const PoolingTask& task) noexcept;
void average_k2s2_c8_avx(const PoolingTask& task) noexcept;
void average_k3s2_c8_avx(const PoolingTask& task) noexcept;
void average_k4s4_c8_avx(const PoolingTask& task) noexcept;
void average_k4s1_c8_avx(const PoolingTask& task) noexcept;
void average_k7s1_c8_avx(const PoolingTask& task) noexcept;
void average_k8s1_c8_avx(const PoolingTask& task) noexcept;
void maximum_k2s2_c8_avx(const PoolingTask& task) noexcept;
void maximum_k3s2_c8_avx(const PoolingTask& task) noexcept;

}  // namespace marlo::kernel::pooling
