// Everything that a file compiled for AVX must not hold. No part of any product: check_objects.py
// has to find all of it.

#include <vector>

namespace {

struct Table {
  Table() : values(16, 1.0f) {}
  std::vector<float> values;
};

Table table;  // an initialiser that runs when the library is loaded

}  // namespace

// A definition that the linker may choose for all files.
inline float twice(float value) { return value * 2.0f; }

float leaky_core(int index);

float leaky_core(int index) { return twice(table.values[static_cast<unsigned>(index)]); }
