#pragma once

#include <cstddef>
#include <optional>

#include "tests/support/conv_case.h"

// Other libraries on the same work, on one core and in the same run. A peer that isn't installed,
// or that refuses the work, gives nothing.

namespace marlo::bench {

#ifdef QRT_BENCH_WITH_ONEDNN
/// Before oneDNN's first operation, on the thread that runs the benchmarks.
void hold_onednn_to_one_thread_and_avx2();
#endif

/// Seconds of a convolution over planes in oneDNN held to AVX2, in the layout it likes best.
std::optional<double> onednn_seconds(const test::ConvCase& sizes);

/// Seconds of C = A * B in OpenBLAS, C being [rows, columns].
std::optional<double> openblas_seconds(size_t rows, size_t inner, size_t columns);

/// Seconds of y = A * x + y in OpenBLAS, A being [rows, columns].
std::optional<double> openblas_vector_seconds(const float* matrix, size_t rows, size_t columns);

}  // namespace marlo::bench
