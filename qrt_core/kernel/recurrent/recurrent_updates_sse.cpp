#include "qrt_core/kernel/recurrent/recurrent_updates_internal.h"
#include "qrt_core/kernel/vectors_internal.h"

namespace marlo::kernel::recurrent {

void rnn_update_sse(const StepTask& task, const Gates& gates) noexcept {
  update_rnn<SseVector>(task, gates);
}

void lstm_update_sse(const StepTask& task, const Gates& gates) noexcept {
  update_lstm<SseVector>(task, gates);
}

void gru_update_sse(const StepTask& task, const Gates& gates) noexcept {
  update_gru<SseVector>(task, gates);
}

}  // namespace marlo::kernel::recurrent
