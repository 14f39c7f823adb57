#pragma once

#include <cstddef>
#include <cstdint>

#include "qrt_core/kernel/matrix/full_connection_cores.h"
#include "qrt_core/utility/build_options.h"

// One step of each recurrent network, over two policies: how a matrix is multiplied with a vector,
// and how vectors are added, subtracted and multiplied element by element.

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

using Step = void (*)(const StepTask& task) noexcept;

/// The parts of all gates that come from the input and from the state, [gates * hidden_size] each.
struct Gates {
  float* a;
  float* b;
};

/// @name Vector operations
/// How many elements are added, subtracted and multiplied at once: one, or four. The same floats
/// from both.
/// @{
struct PortableVectors {};
struct SseVectors {};
/// @}

/// The two policies of a step.
template <matrix::FullConnectionCore product_core, typename VectorOperations>
struct Policies {
  static constexpr matrix::FullConnectionCore product = product_core;
  using Vectors = VectorOperations;
};

using Portable = Policies<matrix::dot_portable, PortableVectors>;
#if QRT_WITH_SSE
using Sse = Policies<matrix::dot_sse, SseVectors>;
#endif
#if QRT_WITH_SGEMM
using Sgemm = Policies<matrix::dot_sgemm, PortableVectors>;
#endif
#if QRT_WITH_SSE && QRT_WITH_SGEMM
using SseSgemm = Policies<matrix::dot_sgemm, SseVectors>;
#endif

/// @name Updates
/// What follows the products in a step, over vector operations: from the parts of the gates, which
/// are overwritten, to the new state.
/// @{
template <typename V>
void rnn_update(const StepTask& task, const Gates& gates) noexcept;
template <typename V>
void lstm_update(const StepTask& task, const Gates& gates) noexcept;
template <typename V>
void gru_update(const StepTask& task, const Gates& gates) noexcept;

template <>
void rnn_update<PortableVectors>(const StepTask& task, const Gates& gates) noexcept;
template <>
void lstm_update<PortableVectors>(const StepTask& task, const Gates& gates) noexcept;
template <>
void gru_update<PortableVectors>(const StepTask& task, const Gates& gates) noexcept;
#if QRT_WITH_SSE
template <>
void rnn_update<SseVectors>(const StepTask& task, const Gates& gates) noexcept;
template <>
void lstm_update<SseVectors>(const StepTask& task, const Gates& gates) noexcept;
template <>
void gru_update<SseVectors>(const StepTask& task, const Gates& gates) noexcept;
#endif
/// @}

/// @name Steps
/// With a = weight_ih * x + bias_ih and b = weight_hh * h + bias_hh, cut into gates.
/// @{

/// h' = activation(a + b).
template <typename P>
void rnn_step(const StepTask& task) noexcept;

/// i, f, o = sigmoid(a + b), g = tanh(a + b) in the order i, f, g, o;
/// c' = c * f + i * g, h' = tanh(c') * o.
///
/// S. Hochreiter, J. Schmidhuber, "Long Short-Term Memory", Neural Computation 9(8), 1997, with the
/// forget gate of F. Gers, J. Schmidhuber, F. Cummins, "Learning to Forget", 2000.
template <typename P>
void lstm_step(const StepTask& task) noexcept;

/// r, z = sigmoid(a + b), n = tanh(a + r * b) in the order r, z, n; h' = n - z * (n - h).
///
/// K. Cho et al., "Learning Phrase Representations using RNN Encoder-Decoder", EMNLP 2014, with the
/// reset gate behind the product, so that it scales the bias of the hidden part too.
template <typename P>
void gru_step(const StepTask& task) noexcept;
/// @}

}  // namespace marlo::kernel::recurrent
