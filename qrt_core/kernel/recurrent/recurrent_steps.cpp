#include "qrt_core/kernel/recurrent/recurrent_steps.h"

#include <cstring>

#include "qrt_core/kernel/recurrent/recurrent_updates_internal.h"

namespace marlo::kernel::recurrent {
namespace {

constexpr size_t kLstmGates = 4;
constexpr size_t kGruGates = 3;

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

void hyperbolic_tangent(float* values, size_t count) noexcept { tangent(values, count, values); }

template <>
void rnn_update<PortableVectors>(const StepTask& task, const Gates& gates) noexcept {
  update_rnn<Scalar>(task, gates);
}

template <>
void lstm_update<PortableVectors>(const StepTask& task, const Gates& gates) noexcept {
  update_lstm<Scalar>(task, gates);
}

template <>
void gru_update<PortableVectors>(const StepTask& task, const Gates& gates) noexcept {
  update_gru<Scalar>(task, gates);
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
