#include "qrt_core/kernel/matrix/full_connection_cores.h"

namespace marlo::kernel::matrix {
namespace {

// Rows run side by side: each waits for its own sum only.
template <size_t rows>
void add_rows(const FullConnectionTask& task, size_t o) noexcept {
  const float* weight = task.weight + o * task.in_features;
  float sums[rows];
  for (size_t r = 0; r < rows; ++r) sums[r] = task.output[o + r];
  for (size_t i = 0; i < task.in_features; ++i) {
    for (size_t r = 0; r < rows; ++r) {
      sums[r] += weight[r * task.in_features + i] * task.input[i];
    }
  }
  for (size_t r = 0; r < rows; ++r) task.output[o + r] = sums[r];
}

}  // namespace

void dot_portable(const FullConnectionTask& task) noexcept {
  constexpr size_t kRows = 8;
  size_t o = 0;
  for (; o + kRows <= task.out_features; o += kRows) add_rows<kRows>(task, o);
  for (; o < task.out_features; ++o) add_rows<1>(task, o);
}

}  // namespace marlo::kernel::matrix
