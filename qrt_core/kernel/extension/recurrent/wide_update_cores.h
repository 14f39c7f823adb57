#pragma once

#include <cstddef>

// What follows the products in a step of a recurrent network.

namespace marlo::kernel::recurrent {

/// One step: gates are [gates, size], with all that is added to them.
struct WideUpdate {
  const float* gates = nullptr;
  const float* candidate = nullptr;  ///< GRU: the input's part of n, [size]
  const float* h = nullptr;          ///< state before the step
  float* c = nullptr;                ///< LSTM: the cell state, before and after
  float* next = nullptr;             ///< state after the step; not the one before
  size_t size = 0;
};

/// Carries a step out. Sigmoid and tanh are those of extension/math/vector_math_internal.h.
using WideUpdateCore = void (*)(const WideUpdate& update) noexcept;

#define QRT_DECLARE_UPDATES(set)                             \
  void rnn_rectify_##set(const WideUpdate& update) noexcept; \
  void rnn_tangent_##set(const WideUpdate& update) noexcept; \
  void lstm_update_##set(const WideUpdate& update) noexcept; \
  void gru_update_##set(const WideUpdate& update) noexcept;
QRT_DECLARE_UPDATES(fma)
QRT_DECLARE_UPDATES(avx512)
#undef QRT_DECLARE_UPDATES

}  // namespace marlo::kernel::recurrent
