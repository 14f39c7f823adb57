#ifndef __AVX512F__
#error "this file holds AVX-512 code and must be compiled with -mavx512f"
#endif

#include "qrt_core/kernel/extension/recurrent/wide_updates_internal.h"

namespace marlo::kernel::recurrent {

using V = math::Avx512Math;

// A NaN becomes 0.
void rnn_rectify_avx512(const WideUpdate& update) noexcept {
  update_rnn<V>(update, [](auto x) { return V::maximum(x, V::zero()); });
}

void rnn_tangent_avx512(const WideUpdate& update) noexcept {
  update_rnn<V>(update, [](auto x) { return math::hyperbolic_tangent<V>(x); });
}

void lstm_update_avx512(const WideUpdate& update) noexcept { update_lstm<V>(update); }

void gru_update_avx512(const WideUpdate& update) noexcept { update_gru<V>(update); }

}  // namespace marlo::kernel::recurrent
