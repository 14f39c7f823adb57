#include "qrt_core/kernel/recurrent/recurrent_steps.h"

#include <cmath>
#include <cstring>

#include "qrt_core/kernel/basic/sigmoid.h"

namespace marlo::kernel::recurrent {
namespace {

constexpr size_t kLstmGates = 4;
constexpr size_t kGruGates = 3;

void sigmoid(float* values, size_t count) noexcept {
  functional::sigmoid_f32(values, static_cast<unsigned int>(count), values);
}

// weight * x + bias for `rows` rows of weights.
template <typename P>
void multiply(const float* x, size_t size, size_t rows, const float* weight, const float* bias,
              float* result) noexcept {
  if (bias == nullptr) {
    std::memset(result, 0, rows * sizeof(float));
  } else {
    std::memcpy(result, bias, rows * sizeof(float));
  }
  matrix::FullConnectionTask task;
  task.input = x;
  task.weight = weight;
  task.output = result;
  task.in_features = size;
  task.out_features = rows;
  P::product(task);
}

template <typename P>
Gates multiply_gates(const StepTask& task, size_t gates) noexcept {
  const size_t rows = gates * task.hidden_size;
  const Gates result = {task.scratch, task.scratch + rows};
  multiply<P>(task.input, task.in_size, rows, task.weight_ih, task.bias_ih, result.a);
  multiply<P>(task.h, task.hidden_size, rows, task.weight_hh, task.bias_hh, result.b);
  return result;
}

}  // namespace

void rectify(float* values, size_t count) noexcept {
  for (size_t i = 0; i < count; ++i) values[i] = values[i] > 0.0f ? values[i] : 0.0f;
}

void hyperbolic_tangent(float* values, size_t count) noexcept {
  for (size_t i = 0; i < count; ++i) values[i] = std::tanh(values[i]);
}

template <typename V>
void rnn_update(const StepTask& task, const Gates& gates) noexcept {
  V::add(gates.a, gates.b, static_cast<unsigned int>(task.hidden_size), task.h);
  task.activation(task.h, task.hidden_size);
}

template <typename V>
void lstm_update(const StepTask& task, const Gates& gates) noexcept {
  const size_t size = task.hidden_size;
  const auto count = static_cast<unsigned int>(size);
  const auto [a, b] = gates;
  V::add(a, b, static_cast<unsigned int>(kLstmGates) * count, b);
  float* const i = b;
  float* const f = b + size;
  float* const g = b + 2 * size;
  float* const o = b + 3 * size;
  sigmoid(i, 2 * size);  // i and f
  hyperbolic_tangent(g, size);
  sigmoid(o, size);
  V::multiply(task.c, f, count, f);
  V::multiply(i, g, count, g);
  V::add(f, g, count, task.c);
  std::memcpy(task.h, task.c, size * sizeof(float));
  hyperbolic_tangent(task.h, size);
  V::multiply(task.h, o, count, task.h);
}

template <typename V>
void gru_update(const StepTask& task, const Gates& gates) noexcept {
  const size_t size = task.hidden_size;
  const auto count = static_cast<unsigned int>(size);
  const auto [a, b] = gates;
  V::add(a, b, 2 * count, a);
  sigmoid(a, 2 * size);
  float* const r = a;
  float* const z = a + size;
  float* const n = a + 2 * size;
  float* const t = b;
  V::multiply(r, b + 2 * size, count, t);
  V::add(n, t, count, n);
  hyperbolic_tangent(n, size);
  V::subtract(n, task.h, count, t);
  V::multiply(z, t, count, t);
  V::subtract(n, t, count, task.h);
}

template <typename P>
void rnn_step(const StepTask& task) noexcept {
  rnn_update<typename P::Vectors>(task, multiply_gates<P>(task, 1));
}

template <typename P>
void lstm_step(const StepTask& task) noexcept {
  lstm_update<typename P::Vectors>(task, multiply_gates<P>(task, kLstmGates));
}

template <typename P>
void gru_step(const StepTask& task) noexcept {
  gru_update<typename P::Vectors>(task, multiply_gates<P>(task, kGruGates));
}

#define QRT_UPDATES(V)                                                             \
  template void rnn_update<V>(const StepTask& task, const Gates& gates) noexcept;  \
  template void lstm_update<V>(const StepTask& task, const Gates& gates) noexcept; \
  template void gru_update<V>(const StepTask& task, const Gates& gates) noexcept;

QRT_UPDATES(PortableVectors)
QRT_UPDATES(SseVectors)

#define QRT_STEPS(P)                                         \
  template void rnn_step<P>(const StepTask& task) noexcept;  \
  template void lstm_step<P>(const StepTask& task) noexcept; \
  template void gru_step<P>(const StepTask& task) noexcept;

QRT_STEPS(Portable)
#if QRT_WITH_SSE
QRT_STEPS(Sse)
#endif
#if QRT_WITH_SGEMM
QRT_STEPS(Sgemm)
#endif
#if QRT_WITH_SSE && QRT_WITH_SGEMM
template void gru_step<SseSgemm>(const StepTask& task) noexcept;
#endif

}  // namespace marlo::kernel::recurrent
