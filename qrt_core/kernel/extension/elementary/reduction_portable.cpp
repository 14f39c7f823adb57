#include <cmath>

#include "qrt_core/kernel/extension/elementary/reduction_cores.h"
#include "qrt_core/runtime/model/extension_info.h"

namespace marlo::kernel::elementary {

using runtime::AxisReduction;

namespace {

// `shift` is the largest number where exponentials are summed.
template <AxisReduction function>
double added(double sum, double x, [[maybe_unused]] double shift) {
  if constexpr (function == AxisReduction::Max) return std::isnan(sum) || sum > x ? sum : x;
  if constexpr (function == AxisReduction::Min) return std::isnan(sum) || sum < x ? sum : x;
  if constexpr (function == AxisReduction::Prod) return sum * x;
  if constexpr (function == AxisReduction::L1) return sum + std::fabs(x);
  if constexpr (function == AxisReduction::SumSquare) return sum + x * x;
  if constexpr (function == AxisReduction::LogSumExp) return sum + std::exp(x - shift);
  return sum + x;
}

// Of the results of two parts.
template <AxisReduction function>
double joined(double a, double b) {
  constexpr bool is_sum = function == AxisReduction::L1 || function == AxisReduction::SumSquare ||
                          function == AxisReduction::LogSumExp;
  return is_sum ? a + b : added<function>(a, b, 0.0);
}

template <AxisReduction function>
double begin() {
  if (function == AxisReduction::Prod) return 1.0;
  if (function == AxisReduction::Max) return -HUGE_VAL;
  return function == AxisReduction::Min ? HUGE_VAL : 0.0;
}

// Four sums hide each other's latency.
template <AxisReduction function>
double folded_run(const float* x, size_t count, double shift) {
  double sums[4] = {begin<function>(), begin<function>(), begin<function>(), begin<function>()};
  const auto at = [x](size_t i) { return static_cast<double>(x[i]); };
  size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    for (size_t k = 0; k < 4; ++k) sums[k] = added<function>(sums[k], at(i + k), shift);
  }
  for (; i < count; ++i) sums[0] = added<function>(sums[0], at(i), shift);
  return joined<function>(joined<function>(sums[0], sums[1]), joined<function>(sums[2], sums[3]));
}

template <AxisReduction function>
void reduce(const ReductionTask& task) noexcept {
  const float* x = task.input;
  for (size_t row = 0; row < task.rows; ++row, x += task.stride) {
    if (task.along_rows) {
      task.sums[row] =
          joined<function>(task.sums[row], folded_run<function>(x, task.count, task.shifts[row]));
      continue;
    }
    for (size_t j = 0; j < task.count; ++j) {
      task.sums[j] = added<function>(task.sums[j], static_cast<double>(x[j]), task.shifts[j]);
    }
  }
}

}  // namespace

void reduce_portable(const ReductionTask& task) noexcept {
  switch (static_cast<AxisReduction>(task.function)) {
    case AxisReduction::Max:
      return reduce<AxisReduction::Max>(task);
    case AxisReduction::Min:
      return reduce<AxisReduction::Min>(task);
    case AxisReduction::Prod:
      return reduce<AxisReduction::Prod>(task);
    case AxisReduction::L1:
      return reduce<AxisReduction::L1>(task);
    case AxisReduction::L2:
    case AxisReduction::SumSquare:
      return reduce<AxisReduction::SumSquare>(task);
    case AxisReduction::LogSumExp:
      return reduce<AxisReduction::LogSumExp>(task);
    default:
      return reduce<AxisReduction::Sum>(task);
  }
}

}  // namespace marlo::kernel::elementary
