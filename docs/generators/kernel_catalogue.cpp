// Prints docs/kernel-catalogue.md, or with any argument docs/kernel-catalogue-extensions.md.

#include "tests/support/kernel_catalogue.h"

#include <cstdio>

int main(int count, char**) {
  using namespace marlo::test;
  std::fputs((count > 1 ? extension_catalogue() : kernel_catalogue()).c_str(), stdout);
  return 0;
}
