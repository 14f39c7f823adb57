// Writes a model with the library `exporter`, which the shared library serves.

#include <cstdio>
#include <exception>

#include "exporter.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s MODEL\n", argv[0]);
    return 2;
  }
  try {
    return export_rectifier(argv[1]) ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
    return 1;
  }
}
