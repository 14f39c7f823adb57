#include "bench/support/openblas_peers.h"

#ifdef QRT_BENCH_WITH_OPENBLAS
#include <cblas.h>

#include <vector>
#endif

namespace marlo::bench {

#ifdef QRT_BENCH_WITH_OPENBLAS

namespace {

constexpr char kColumn[] = "x OpenBLAS";

}  // namespace

std::optional<Peer> openblas_product(size_t rows, size_t inner, size_t columns) {
  const int m = static_cast<int>(rows);
  const int k = static_cast<int>(inner);
  const int n = static_cast<int>(columns);
  return Peer{kColumn, [m, k, n, a = std::vector<float>(rows * inner, 0.5f),
                        b = std::vector<float>(inner * columns, 0.5f),
                        c = std::vector<float>(rows * columns)]() mutable {
                cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, m, n, k, 1.0f, a.data(), k,
                            b.data(), n, 0.0f, c.data(), n);
              }};
}

std::optional<Peer> openblas_vector_product(const float* matrix, size_t rows, size_t columns) {
  const int m = static_cast<int>(rows);
  const int n = static_cast<int>(columns);
  return Peer{kColumn, [matrix, m, n, x = std::vector<float>(columns, 0.5f),
                        y = std::vector<float>(rows)]() mutable {
                cblas_sgemv(CblasRowMajor, CblasNoTrans, m, n, 1.0f, matrix, n, x.data(), 1, 1.0f,
                            y.data(), 1);
              }};
}

#else

std::optional<Peer> openblas_product(size_t, size_t, size_t) { return std::nullopt; }

std::optional<Peer> openblas_vector_product(const float*, size_t, size_t) { return std::nullopt; }

#endif

}  // namespace marlo::bench
