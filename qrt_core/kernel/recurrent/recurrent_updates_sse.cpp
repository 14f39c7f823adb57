#include "qrt_core/kernel/recurrent/recurrent_updates_internal.h"
#include "qrt_core/kernel/vectors_internal.h"

namespace marlo::kernel::recurrent {

template <>
void rnn_update<SseVectors>(const StepTask& task, const Gates& gates) noexcept {
  update_rnn<SseVector>(task, gates);
}

template <>
void lstm_update<SseVectors>(const StepTask& task, const Gates& gates) noexcept {
  update_lstm<SseVector>(task, gates);
}

template <>
void gru_update<SseVectors>(const StepTask& task, const Gates& gates) noexcept {
  update_gru<SseVector>(task, gates);
}

}  // namespace marlo::kernel::recurrent
