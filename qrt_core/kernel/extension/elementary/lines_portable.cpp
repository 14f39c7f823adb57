#include <cmath>

#include "qrt_core/kernel/extension/elementary/line_cores.h"

namespace marlo::kernel::elementary {

void softmax_portable(const SoftmaxTask& task) noexcept {
  for (size_t j = 0; j < task.columns; ++j) {
    const float* const in = task.input + j;
    float* const out = task.output + j;
    const size_t step = task.columns;
    double largest = -HUGE_VAL;
    for (size_t i = 0; i < task.count; ++i) {
      const double x = in[i * step];
      if (x > largest || std::isnan(x)) largest = x;
    }
    double sum = 0.0;
    for (size_t i = 0; i < task.count; ++i) sum += std::exp(in[i * step] - largest);
    const double log = std::log(sum);
    for (size_t i = 0; i < task.count; ++i) {
      const double x = in[i * step] - largest;
      out[i * step] = static_cast<float>(task.logarithm ? x - log : std::exp(x) / sum);
    }
  }
}

void normalise_portable(const NormTask& task) noexcept {
  const auto total = static_cast<double>(task.count);
  double mean = 0.0;
  for (size_t i = 0; i < task.count; ++i) mean += task.input[i];
  mean /= total;
  double squares = 0.0;
  for (size_t i = 0; i < task.count; ++i) {
    squares += (task.input[i] - mean) * (task.input[i] - mean);
  }
  const double factor = 1.0 / std::sqrt(squares / total + static_cast<double>(task.eps));
  for (size_t i = 0; i < task.count; ++i) {
    double y = (task.input[i] - mean) * factor;
    y = y * static_cast<double>(task.line_scale) + static_cast<double>(task.line_shift);
    if (task.scale != nullptr) y *= static_cast<double>(task.scale[i]);
    if (task.shift != nullptr) y += static_cast<double>(task.shift[i]);
    task.output[i] = static_cast<float>(y);
  }
}

}  // namespace marlo::kernel::elementary
