// Ends with 0 if cblas_sgemm is right on several threads, with every choice of kernels that runs
// here.

#include "products_on_threads.h"

#include <cblas.h>

#include <cstdio>

namespace {

void product(int m, int k, int n, const float* a, const float* b, float* c) {
  cblas_sgemm(CblasRowMajor, CblasNoTrans, CblasNoTrans, m, n, k, 1.0f, a, k, b, n, 0.0f, c, n);
}

}  // namespace

int main(int argument_count, char** arguments) {
  if (argument_count == 3) {
    return marlo::test::wrong_products(product, std::atoi(arguments[1]), std::atoi(arguments[2])) ==
                   0
               ? 0
               : 1;
  }
  const std::string self = arguments[0];
  const auto unsafe = marlo::test::unsafe_choices({self, "1", "10"}, {self, "8", "4000"});
  for (const std::string& choice : unsafe) std::printf("wrong with %s\n", choice.c_str());
  return unsafe.empty() ? 0 : 1;
}
