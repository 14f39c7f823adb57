#pragma once

#include <memory>
#include <vector>

#include "qrt_core/kernel/extension/matrix/matrix_product_cores.h"
#include "qrt_core/kernel/extension/recurrent/wide_update_cores.h"
#include "qrt_core/kernel/recurrent/recurrent.h"

// Recurrent sequences of the second set: descriptions, states and results are those of
// recurrent/recurrent.h, and the way there is another. The input products of all steps are one
// product of matrices, so each layer goes through all steps before the next one begins.

namespace marlo::kernel {

class WideSequence;

/// An instruction set's functions.
struct WideCores {
  matrix::ProductCores product;                     ///< of input and state
  recurrent::WideUpdateCore rnn_rectify = nullptr;  ///< of an RNN with the rectifier
  recurrent::WideUpdateCore rnn_tangent = nullptr;  ///< of an RNN with tanh
  recurrent::WideUpdateCore lstm = nullptr;         ///< of an LSTM
  recurrent::WideUpdateCore gru = nullptr;          ///< of a GRU
};

struct WideSequenceRow : KernelRow {
  using Family = WideSequence;

  /// The documented sequence, which says what is accepted. It never runs.
  RecurrentSequenceRow sequence;
  WideCores cores;  ///< what computes it
  /// Which of the cores; null for the one that an RNN's activation chooses.
  recurrent::WideUpdateCore WideCores::*update = nullptr;
};

/// A sequence [steps, in_size] of any layout to [steps, directions * hidden_size] of layout SC; see
/// `RecurrentSequence`. Biases of both products are added up first, but for the hidden part of a
/// GRU's candidate, which its reset gate scales.
class WideSequence : public KernelFamily {
 public:
  explicit WideSequence(const WideSequenceRow& row) : row_(row), accepted_(row.sequence) {}

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
    return accepted_.CheckConfig(info, param);
  }
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int ResetState();
  /// The states of a copy came with it, and begin anew.
  void begin_own_state(const Context&) { ResetState(); }
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;

  /// An exception leaves the state as it was.
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass);
  /// What the next pass begins with, and the last one left.
  SequenceStates states() { return {h_.data(), c_.empty() ? nullptr : c_.data(), h_.size()}; }
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const {
    return accepted_.refusals(info, param);
  }
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes&) const {
    return RecurrentSequence::combination_refusals(bidirectional_, complex_type_);
  }
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const {
    return accepted_.differences(info, inputs);
  }

 private:
  using Tensor = std::shared_ptr<runtime::TensorCPU>;
  using Weights = runtime::RecurrentSequenceWeights;

  /// One layer in one direction.
  struct Cell {
    uint32_t width = 0;         // of its input
    Tensor input_weights;       // packed
    Tensor state_weights;       // packed
    std::vector<float> bias;    // added to the input's product
    std::vector<float> hidden;  // GRU: where the candidate's hidden part begins
  };

  /// The vectors of one layer over all steps.
  struct Lines {
    const float* input;
    float* output;  // rows of `out_size`
    size_t steps;
    float* gates;      // [steps, rows]
    float* step;       // [rows]
    float* candidate;  // [hidden_size], GRU
    float* scratch;    // of the product
  };

  bool take_cell(const Weights& weights, uint32_t layer, bool is_reverse, bool has_bias,
                 const Context& context);
  void take_biases(const std::vector<float>& input, const std::vector<float>& state,
                   Cell& cell) const;
  Tensor packed(const std::string& text, uint32_t depth, const Context& context) const;
  bool passes(const Tensors& tensors, uint32_t width) const;
  void run_direction(const Cell& cell, size_t state_row, bool is_reverse, const Lines& lines);
  void run_steps(const Cell& cell, size_t state_row, bool is_reverse, const Lines& lines);
  uint32_t directions() const { return bidirectional_ ? 2 : 1; }
  uint32_t out_size() const { return directions() * hidden_size_; }
  uint32_t rows() const { return row_.sequence.network.gates * hidden_size_; }
  bool is_gru() const { return row_.update == &WideCores::gru; }

  const WideSequenceRow& row_;
  RecurrentSequence accepted_;
  uint32_t in_size_ = 0;
  uint32_t hidden_size_ = 0;
  uint16_t complex_type_ = 0;
  bool bidirectional_ = false;
  recurrent::WideUpdateCore update_ = nullptr;
  std::vector<Cell> cells_;  // the directions of a layer one after the other
  std::vector<float> h_;     // [layers * directions, hidden_size]
  std::vector<float> c_;
};

/// @name Rows
/// @{
constexpr WideCores kWideFma = {matrix::kProductFma, recurrent::rnn_rectify_fma,
                                recurrent::rnn_tangent_fma, recurrent::lstm_update_fma,
                                recurrent::gru_update_fma};
constexpr WideCores kWideAvx512 = {matrix::kProductAvx512, recurrent::rnn_rectify_avx512,
                                   recurrent::rnn_tangent_avx512, recurrent::lstm_update_avx512,
                                   recurrent::gru_update_avx512};

/// A row that accepts what a documented one accepts.
constexpr WideSequenceRow wide_sequence(RecurrentSequenceRow sequence, WideCores cores,
                                        recurrent::WideUpdateCore WideCores::*update) {
  WideSequenceRow row;
  row.config_test = ConfigTest::accepted;
  row.sequence = sequence;
  row.cores = cores;
  row.update = update;
  return row;
}

// clang-format off
#define QRT_WIDE_SEQUENCES(KERNEL, set, on_set, cores)                                             \
  KERNEL(RNN_##set##_SC_F32_M1,                                                                    \
         on_set(wide_sequence(recurrent_sequence<runtime::RNNInfo>(recurrent::rnn(recurrent::kPortable)), cores, nullptr)))               \
  KERNEL(LSTM_##set##_SC_F32_M1,                                                                   \
         on_set(wide_sequence(recurrent_sequence<runtime::LSTMInfo>(recurrent::lstm(recurrent::kPortable)), cores, &WideCores::lstm)))     \
  KERNEL(GRU_##set##_SC_F32_M1,                                                                    \
         on_set(wide_sequence(recurrent_sequence<runtime::GRUInfo>(recurrent::gru(recurrent::kPortable)), cores, &WideCores::gru)))
// clang-format on
#define QRT_WIDE_SEQUENCES_FMA(KERNEL) QRT_WIDE_SEQUENCES(KERNEL, FMA, on_fma, kWideFma)
#define QRT_WIDE_SEQUENCES_AVX512(KERNEL) QRT_WIDE_SEQUENCES(KERNEL, AVX512, on_avx512, kWideAvx512)
/// @}

QRT_IF_AVX(QRT_WIDE_SEQUENCES_FMA(QRT_KERNEL))
QRT_IF_AVX(QRT_WIDE_SEQUENCES_AVX512(QRT_KERNEL))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const WideSequenceRow*> wide_sequence_rows = {QRT_IF_AVX(
    QRT_WIDE_SEQUENCES_FMA(QRT_KERNEL_ROW)) QRT_IF_AVX(QRT_WIDE_SEQUENCES_AVX512(QRT_KERNEL_ROW))};

}  // namespace marlo::kernel
