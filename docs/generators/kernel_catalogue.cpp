// Prints docs/kernel-catalogue.md.

#include "tests/support/kernel_catalogue.h"

#include <cstdio>

int main() {
  std::fputs(marlo::test::kernel_catalogue().c_str(), stdout);
  return 0;
}
