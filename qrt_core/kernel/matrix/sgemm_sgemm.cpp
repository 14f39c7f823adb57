#include <cblas.h>

#include <algorithm>

#include "qrt_core/kernel/matrix/sgemm.h"
#include "qrt_core/utility/log.h"

namespace marlo::kernel {

void Sgemm(int M, int K, int N, float alpha, const float* A, const float* B, float beta, float* C) {
  utility::Assert(M >= 0 && K >= 0 && N >= 0, "Sgemm: a size of %d x %d x %d is negative", M, K, N);
  // The interface refuses a row of no elements, also where there is nothing to multiply.
  const int row_of_a = std::max(K, 1);
  const int row_of_b = std::max(N, 1);
  cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, M, N, K, alpha, A, row_of_a, B, row_of_b,
              beta, C, row_of_b);
}

}  // namespace marlo::kernel
