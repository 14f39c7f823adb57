// An application with a BLAS of its own, or one of a library that it loads: neither is taken for
// the other.

#include <cstdio>
#include <cstdlib>

#include "qrt_core/qrt_core.h"

// What the application's own calls reach. The library has no part in it.
extern "C" __attribute__((visibility("default"))) void cblas_sgemm() {
  std::puts("the library called the BLAS of the application");
  std::exit(1);
}

int main() {
  const float a[] = {1, 2, 3, 4};
  const float b[] = {5, 6};
  float c[] = {0, 0};
  marlo::kernel::Sgemm(2, 2, 1, 1.0f, a, b, 0.0f, c);
  const bool is_right = c[0] == 17 && c[1] == 39;
  std::puts(is_right ? "17 39" : "another product than that of these matrices");
  return is_right ? 0 : 1;
}
