#pragma once

#include <memory>
#include <utility>

#include "qrt_core/kernel/extension/recurrent/wide_sequence.h"
#include "qrt_core/kernel/recurrent/recurrent.h"
#include "qrt_core/runtime/model/recurrent_states_info.h"

// Recurrent sequences that take their first states and hand out their last ones: those of
// recurrent/recurrent.h and of wide_sequence.h, which compute them, with what stands around a pass.

namespace marlo::kernel {

template <typename SequenceRow>
class StatedSequence;

/// @tparam SequenceRow of the sequence that computes it
template <typename SequenceRow>
struct StatedSequenceRow : KernelRow {
  using Family = StatedSequence<SequenceRow>;

  SequenceRow sequence;  ///< under the name of this row
  /// How a description begins; null for one of another class.
  const runtime::RecurrentStates* (*states)(const runtime::LayerInfo* info) = nullptr;
};

/// A sequence [steps, in_size] of any layout, and the first states where the description says so, to
/// its results and the last states; see `runtime::RecurrentStates`. Both are of layout SC. Passes
/// know nothing of each other.
template <typename SequenceRow>
class StatedSequence : public KernelFamily {
 public:
  /// @param row outlives the kernel
  explicit StatedSequence(const StatedSequenceRow<SequenceRow>& row)
      : row_(row), sequence_(row.sequence) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  void begin_own_state(const Context& context) { sequence_.begin_own_state(context); }
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass);
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const {
    return sequence_.differences(info, inputs);
  }

 private:
  bool is_one_of_rows(const std::shared_ptr<runtime::Tensor>& tensor) const;

  const StatedSequenceRow<SequenceRow>& row_;
  typename SequenceRow::Family sequence_;
  bool has_first_states_ = false;
  uint32_t width_ = 0;   // of a row of the output
  uint32_t states_ = 0;  // rows
};

extern template class StatedSequence<RecurrentSequenceRow>;
extern template class StatedSequence<WideSequenceRow>;

/// @name Rows
/// @{
template <typename Info>
const runtime::RecurrentStates* recurrent_states(const runtime::LayerInfo* info) {
  return dynamic_cast<const Info*>(info);
}

/// @param sequence computes descriptions of class `Info`
template <typename Info, typename SequenceRow>
constexpr StatedSequenceRow<SequenceRow> stated_sequence(const char* name, SequenceRow sequence) {
  StatedSequenceRow<SequenceRow> row;
  row.sequence = named(name, sequence);
  row.states = recurrent_states<Info>;
  return row;
}

// clang-format off
#define QRT_STATED_SEQUENCES_PORTABLE(KERNEL)                                                          \
  KERNEL(RNNStates_Fallback_SC_F32_M1,                                                                 \
         stated_sequence<runtime::RNNStatesInfo>("RNNStates_Fallback_SC_F32_M1",                       \
             recurrent_sequence<runtime::RNNStatesInfo>(recurrent::rnn(recurrent::kPortable))))        \
  KERNEL(LSTMStates_Fallback_SC_F32_M1,                                                                \
         stated_sequence<runtime::LSTMStatesInfo>("LSTMStates_Fallback_SC_F32_M1",                     \
             recurrent_sequence<runtime::LSTMStatesInfo>(recurrent::lstm(recurrent::kPortable))))      \
  KERNEL(GRUStates_Fallback_SC_F32_M1,                                                                 \
         stated_sequence<runtime::GRUStatesInfo>("GRUStates_Fallback_SC_F32_M1",                       \
             recurrent_sequence<runtime::GRUStatesInfo>(recurrent::gru(recurrent::kPortable))))

#define QRT_STATED_WIDE_SEQUENCE(KERNEL, Name, on_set, Info, network, cores, update)                   \
  KERNEL(Name, on_set(stated_sequence<runtime::Info>(#Name, wide_sequence(                             \
                   recurrent_sequence<runtime::Info>(recurrent::network(recurrent::kPortable)), cores, update))))
#define QRT_STATED_WIDE_SEQUENCES(KERNEL, set, on_set, cores)                                          \
  QRT_STATED_WIDE_SEQUENCE(KERNEL, RNNStates_##set##_SC_F32_M1, on_set, RNNStatesInfo, rnn, cores, nullptr)           \
  QRT_STATED_WIDE_SEQUENCE(KERNEL, LSTMStates_##set##_SC_F32_M1, on_set, LSTMStatesInfo, lstm, cores, &WideCores::lstm) \
  QRT_STATED_WIDE_SEQUENCE(KERNEL, GRUStates_##set##_SC_F32_M1, on_set, GRUStatesInfo, gru, cores, &WideCores::gru)
// clang-format on
#define QRT_STATED_SEQUENCES_FMA(KERNEL) QRT_STATED_WIDE_SEQUENCES(KERNEL, FMA, on_fma, kWideFma)
#define QRT_STATED_SEQUENCES_AVX512(KERNEL) \
  QRT_STATED_WIDE_SEQUENCES(KERNEL, AVX512, on_avx512, kWideAvx512)
/// @}

QRT_STATED_SEQUENCES_PORTABLE(QRT_KERNEL)
QRT_IF_AVX(QRT_STATED_SEQUENCES_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_STATED_SEQUENCES_AVX512(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const KernelRow*> stated_sequence_rows = {
    QRT_STATED_SEQUENCES_PORTABLE(QRT_KERNEL_ROW)
        QRT_IF_AVX(QRT_STATED_SEQUENCES_FMA(QRT_KERNEL_ROW))
            QRT_IF_AVX(QRT_STATED_SEQUENCES_AVX512(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
