#include "qrt_core/kernel/matrix/full_connection_cores.h"
#include "qrt_core/kernel/matrix/sgemm.h"

namespace marlo::kernel::matrix {

void dot_sgemm(const FullConnectionTask& task) noexcept {
  const auto rows = static_cast<int>(task.out_features);
  const auto columns = static_cast<int>(task.in_features);
  Sgemm(rows, columns, 1, 1.0f, task.weight, task.input, 1.0f, task.output);
}

}  // namespace marlo::kernel::matrix
