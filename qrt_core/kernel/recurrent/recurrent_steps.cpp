#include "qrt_core/kernel/recurrent/recurrent_steps.h"

#include <cstring>

#include "qrt_core/kernel/recurrent/recurrent_updates_internal.h"

namespace marlo::kernel::recurrent {
namespace {

// weight * x + bias for `rows` rows of weights.
void multiply(matrix::FullConnectionCore product, const float* x, size_t size, size_t rows,
              const float* weight, const float* bias, float* result) noexcept {
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
  product(task);
}

}  // namespace

void rectify(float* values, size_t count) noexcept {
  for (size_t i = 0; i < count; ++i) values[i] = values[i] > 0.0f ? values[i] : 0.0f;
}

void hyperbolic_tangent(float* values, size_t count) noexcept { tangent(values, count, values); }

void rnn_update_portable(const StepTask& task, const Gates& gates) noexcept {
  update_rnn<Scalar>(task, gates);
}

void lstm_update_portable(const StepTask& task, const Gates& gates) noexcept {
  update_lstm<Scalar>(task, gates);
}

void gru_update_portable(const StepTask& task, const Gates& gates) noexcept {
  update_gru<Scalar>(task, gates);
}

void run_step(const Network& network, const StepTask& task) noexcept {
  const size_t rows = network.gates * task.hidden_size;
  const Gates gates = {task.scratch, task.scratch + rows};
  multiply(network.product, task.input, task.in_size, rows, task.weight_ih, task.bias_ih, gates.a);
  multiply(network.product, task.h, task.hidden_size, rows, task.weight_hh, task.bias_hh, gates.b);
  network.update(task, gates);
}

}  // namespace marlo::kernel::recurrent
