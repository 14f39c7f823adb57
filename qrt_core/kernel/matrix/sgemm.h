#pragma once

#include "qrt_core/utility/export.h"

namespace marlo::kernel {

/// C = alpha * A * B + beta * C for row-major matrices without gaps. Mind the order of the sizes.
///
/// The product of a BLAS (`cblas_sgemm`, BLIS in its serial form), and the one call of it: no thread
/// is started, and any number of threads may call it at once. The order of each sum is that library's
/// own. With `beta` 0 what C held is not looked at; an empty A or B leaves beta * C. Nothing happens
/// if C is empty.
///
/// The library holds a private copy of its BLAS: whatever BLAS a process has loaded besides, this
/// function calls the copy. (Only a build on a shared BLAS takes what the loader finds for it.)
///
/// The function is there in builds with `QRT_WITH_SGEMM`.
///
/// @param M  rows of A and C, not negative
/// @param K  columns of A and rows of B, not negative
/// @param N  columns of B and C, not negative
/// @param A  [M, K]
/// @param B  [K, N]
/// @param C  [M, N], apart from A and B
/// @throws std::runtime_error for a negative size
QRT_API void Sgemm(int M, int K, int N, float alpha, const float* A, const float* B, float beta,
                   float* C);

}  // namespace marlo::kernel
