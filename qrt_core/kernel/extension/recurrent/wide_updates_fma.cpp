#if !defined(__AVX__) || !defined(__FMA__)
#error "this file holds FMA code and must be compiled with -mavx -mfma"
#endif

#include "qrt_core/kernel/extension/recurrent/wide_updates_internal.h"

namespace marlo::kernel::recurrent {

using V = math::FusedMath;

// A NaN becomes 0.
void rnn_rectify_fma(const WideUpdate& update) noexcept {
  update_rnn<V>(update, [](auto x) { return V::maximum(x, V::zero()); });
}

void rnn_tangent_fma(const WideUpdate& update) noexcept {
  update_rnn<V>(update, [](auto x) { return math::hyperbolic_tangent<V>(x); });
}

void lstm_update_fma(const WideUpdate& update) noexcept { update_lstm<V>(update); }

void gru_update_fma(const WideUpdate& update) noexcept { update_gru<V>(update); }

}  // namespace marlo::kernel::recurrent
