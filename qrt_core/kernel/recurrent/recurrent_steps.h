#pragma once

#include <cstddef>
#include <cstdint>

#include "qrt_core/kernel/matrix/full_connection_cores.h"
#include "qrt_core/utility/build_options.h"

// One step of each recurrent network: the products of its gates, and what follows them.

namespace marlo::kernel::recurrent {

/// Applies a function to `count` floats in place.
using Activation = void (*)(float* values, size_t count) noexcept;

/// max(0, x), and 0 for a NaN.
void rectify(float* values, size_t count) noexcept;
void hyperbolic_tangent(float* values, size_t count) noexcept;

/// What one step computes with. Rows of the weights come gate by gate, `hidden_size` rows each.
struct StepTask {
  const float* weight_ih = nullptr;  ///< [gates * hidden_size, in_size]
  const float* weight_hh = nullptr;  ///< [gates * hidden_size, hidden_size]
  const float* bias_ih = nullptr;    ///< [gates * hidden_size]; null for none
  const float* bias_hh = nullptr;    ///< [gates * hidden_size]; null for none
  size_t in_size = 0;
  size_t hidden_size = 0;
  Activation activation = nullptr;  ///< of the RNN

  const float* input = nullptr;  ///< [in_size]
  float* h = nullptr;            ///< [hidden_size], the state before the step and after it
  float* c = nullptr;            ///< [hidden_size], the same; LSTM only
  float* scratch = nullptr;      ///< [2 * gates * hidden_size]
};

/// The parts of all gates that come from the input and from the state, [gates * hidden_size] each:
/// a = weight_ih * x + bias_ih and b = weight_hh * h + bias_hh.
struct Gates {
  float* a;
  float* b;
};

/// What follows the products in a step: from the parts of the gates, which are overwritten, to the
/// new state.
using Update = void (*)(const StepTask& task, const Gates& gates) noexcept;

/// @name Updates
/// One number or four at a time; the same floats from both.
/// @{

/// h' = activation(a + b).
void rnn_update_portable(const StepTask& task, const Gates& gates) noexcept;
void rnn_update_sse(const StepTask& task, const Gates& gates) noexcept;

/// i, f, o = sigmoid(a + b), g = tanh(a + b) in the order i, f, g, o;
/// c' = c * f + i * g, h' = tanh(c') * o.
///
/// S. Hochreiter, J. Schmidhuber, "Long Short-Term Memory", Neural Computation 9(8), 1997, with the
/// forget gate of F. Gers, J. Schmidhuber, F. Cummins, "Learning to Forget", 2000.
void lstm_update_portable(const StepTask& task, const Gates& gates) noexcept;
void lstm_update_sse(const StepTask& task, const Gates& gates) noexcept;

/// r, z = sigmoid(a + b), n = tanh(a + r * b) in the order r, z, n; h' = n - z * (n - h).
///
/// K. Cho et al., "Learning Phrase Representations using RNN Encoder-Decoder", EMNLP 2014, with the
/// reset gate behind the product, so that it scales the bias of the hidden part too.
void gru_update_portable(const StepTask& task, const Gates& gates) noexcept;
void gru_update_sse(const StepTask& task, const Gates& gates) noexcept;
/// @}

/// The updates of one instruction set.
struct Updates {
  Update rnn = nullptr;
  Update lstm = nullptr;
  Update gru = nullptr;
};

inline constexpr Updates kPortableUpdates = {rnn_update_portable, lstm_update_portable,
                                             gru_update_portable};
inline constexpr Updates kSseUpdates = {rnn_update_sse, lstm_update_sse, gru_update_sse};

/// What the steps of a kernel compute with.
struct Arithmetic {
  matrix::FullConnectionCore product = nullptr;  ///< of a matrix and a vector
  Updates updates;
};

/// @name Arithmetic of the kernels
/// @{
inline constexpr Arithmetic kPortable = {matrix::dot_portable, kPortableUpdates};
inline constexpr Arithmetic kSse = {matrix::dot_sse, kSseUpdates};
inline constexpr Arithmetic kSgemm = {matrix::dot_sgemm, kPortableUpdates};
inline constexpr Arithmetic kSseSgemm = {matrix::dot_sgemm, kSseUpdates};
/// @}

/// What cells and sequences of one network have in common.
struct Network {
  uint32_t gates = 0;           ///< rows of the weights are gates * hidden_size
  bool has_cell_state = false;  ///< a second state, c, that no output shows
  bool has_activation = false;  ///< that the description chooses
  matrix::FullConnectionCore product = nullptr;
  Update update = nullptr;
};

constexpr Network rnn(const Arithmetic& with) {
  return {1, false, true, with.product, with.updates.rnn};
}

constexpr Network lstm(const Arithmetic& with) {
  return {4, true, false, with.product, with.updates.lstm};
}

constexpr Network gru(const Arithmetic& with) {
  return {3, false, false, with.product, with.updates.gru};
}

/// One step of one layer.
void run_step(const Network& network, const StepTask& task) noexcept;

}  // namespace marlo::kernel::recurrent
