#include <cmath>

#include "qrt_core/kernel/extension/elementary/binary_cores.h"
#include "qrt_core/runtime/model/extension_info.h"

namespace marlo::kernel::elementary {

using runtime::BinaryFunction;

namespace {

template <typename Function>
void run_group(const BinaryTask& task, Function function) noexcept {
  const float* a = task.a;
  const float* b = task.b;
  float* c = task.c;
  for (size_t row = 0; row < task.rows; ++row, a += task.a_row, b += task.b_row, c += task.count) {
    for (size_t i = 0; i < task.count; ++i) {
      c[i] = static_cast<float>(function(a[i * task.a_step], b[i * task.b_step]));
    }
  }
}

template <typename Function>
void run(const BinaryTask& task, Function function) noexcept {
  for_each_group(task, [&](const BinaryTask& group) { run_group(group, function); });
}

float smaller(float a, float b) { return std::isnan(a) || a < b ? a : b; }
float larger(float a, float b) { return std::isnan(a) || a > b ? a : b; }

}  // namespace

void binary_portable(const BinaryTask& task) noexcept {
  switch (static_cast<BinaryFunction>(task.function)) {
    case BinaryFunction::Add:
      return run(task, [](float a, float b) { return a + b; });
    case BinaryFunction::Sub:
      return run(task, [](float a, float b) { return a - b; });
    case BinaryFunction::Mul:
      return run(task, [](float a, float b) { return a * b; });
    case BinaryFunction::Div:
      return run(task, [](float a, float b) { return a / b; });
    case BinaryFunction::Pow:
      return run(task, [](double a, double b) { return std::pow(a, b); });
    case BinaryFunction::Min:
      return run(task, smaller);
    case BinaryFunction::Max:
      return run(task, larger);
    case BinaryFunction::Mod:
      return run(task, [](double a, double b) { return std::fmod(a, b); });
    case BinaryFunction::PReLU:
      return run(task, [](float a, float b) { return a < 0.0f ? a * b : a; });
    case BinaryFunction::Equal:
      return run(task, [](float a, float b) { return a == b ? 1.0f : 0.0f; });
    case BinaryFunction::Less:
      return run(task, [](float a, float b) { return a < b ? 1.0f : 0.0f; });
    case BinaryFunction::LessOrEqual:
      return run(task, [](float a, float b) { return a <= b ? 1.0f : 0.0f; });
    case BinaryFunction::Greater:
      return run(task, [](float a, float b) { return a > b ? 1.0f : 0.0f; });
    case BinaryFunction::GreaterOrEqual:
      return run(task, [](float a, float b) { return a >= b ? 1.0f : 0.0f; });
    case BinaryFunction::And:
      return run(task, [](float a, float b) { return a != 0.0f && b != 0.0f ? 1.0f : 0.0f; });
    case BinaryFunction::Or:
      return run(task, [](float a, float b) { return a != 0.0f || b != 0.0f ? 1.0f : 0.0f; });
    case BinaryFunction::Xor:
      return run(task, [](float a, float b) { return (a != 0.0f) != (b != 0.0f) ? 1.0f : 0.0f; });
    case BinaryFunction::Select:
      return run(task, [](float a, float b) { return a != 0.0f ? b : 0.0f; });
  }
}

}  // namespace marlo::kernel::elementary
