#pragma once

#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "qrt_core/kernel/kernel_class.h"
#include "qrt_core/kernel/recurrent/recurrent_steps.h"
#include "qrt_core/runtime/model/recurrent_info.h"

// Recurrent layers: cells, which advance one step on one vector, and sequences, which run a whole
// sequence through stacked layers in one or two directions. Both keep their state from pass to
// pass, so that a sequence can be fed in pieces, until `ResetState` fills it with zeros.

namespace marlo::kernel {

class RecurrentCell;
class RecurrentSequence;

/// A kernel's view of a recurrent description; all null for a description of another class.
template <typename Weights>
struct RecurrentDescription {
  const runtime::RecurrentInfo* sizes = nullptr;             ///< lengths and the bias flag
  const Weights* weights = nullptr;                          ///< of a cell or of a sequence
  const runtime::RecurrentActivation* activation = nullptr;  ///< null where the network has none
};

/// The view of a description of class `Info`.
template <typename Info, typename Weights>
RecurrentDescription<Weights> recurrent_description(const runtime::LayerInfo* info) {
  const auto* description = dynamic_cast<const Info*>(info);
  if (description == nullptr) return {};
  if constexpr (std::is_base_of_v<runtime::RecurrentActivation, Info>) {
    return {description, description, description};
  } else {
    return {description, description, nullptr};
  }
}

struct RecurrentCellRow : KernelRow {
  using Family = RecurrentCell;
  using Description = RecurrentDescription<runtime::RecurrentCellWeights>;

  recurrent::Network network;                                         ///< whose step it runs
  Description (*describe)(const runtime::LayerInfo* info) = nullptr;  ///< reads a description
};

struct RecurrentSequenceRow : KernelRow {
  using Family = RecurrentSequence;
  using Description = RecurrentDescription<runtime::RecurrentSequenceWeights>;

  recurrent::Network network;                                         ///< whose step it runs
  Description (*describe)(const runtime::LayerInfo* info) = nullptr;  ///< reads a description
};

/// The weights of one layer in one direction.
class RecurrentWeights {
 public:
  /// Texts of one layer.
  struct Texts {
    const std::string& weight_ih;  ///< input to hidden
    const std::string& weight_hh;  ///< hidden to hidden
    const std::string* bias_ih;    ///< both biases are null without
    const std::string* bias_hh;    ///< of the hidden part
  };

  /// Takes the texts of one layer; `rows` is gates * hidden_size.
  /// @return false if a text is shorter than the sizes say
  bool decode(const Texts& texts, uint32_t rows, uint32_t in_size, uint32_t hidden_size,
              const runtime::Context& context);

  /// A step with these weights, without vectors.
  recurrent::StepTask task() const;

 private:
  using Tensor = std::shared_ptr<runtime::TensorCPU>;

  Tensor weight_ih_;
  Tensor weight_hh_;
  Tensor bias_ih_;  // null without
  Tensor bias_hh_;
};

/// What cells and sequences hold beside weights and state.
class RecurrentLayer : public KernelFamily {
 protected:
  /// Both outlive the layer.
  RecurrentLayer(const char* name, const recurrent::Network& network)
      : name_(name), network_(network) {}

  /// 0, or the negative code of the first size that is missing.
  static int size_verdict(const runtime::RecurrentInfo& sizes);

  /// Takes what is in the description but weights. The layer isn't configured until `finish`.
  void start(const runtime::RecurrentInfo& sizes, const runtime::RecurrentActivation* activation);

  /// Makes scratch memory, once there are weights.
  void finish(const Context& context);

  uint32_t rows() const { return network_.gates * hidden_size_; }  ///< of the weights

  /// A step with the given weights on a state, without input.
  recurrent::StepTask step_task(const RecurrentWeights& weights, float* h, float* c) const;

  /// @throws std::runtime_error unless the layer is configured and its step can run
  void require_configured() const;

  const char* const name_;             ///< of the kernel, for messages
  const recurrent::Network& network_;  ///< of the row
  uint32_t in_size_ = 0;               ///< input length
  uint32_t hidden_size_ = 0;           ///< hidden length

 private:
  recurrent::Activation activation_ = nullptr;
  std::shared_ptr<runtime::TensorCPU> scratch_;
};

/// One step on a vector [in_size] of layout C. The output [hidden_size] of layout C is the state
/// itself, which the next pass replaces by a new tensor: whoever writes to it changes the state.
///
/// Descriptions are refused by `CheckConfig` with -1 for a parameter, -2 for another class, -3
/// without inputs, -4 without a hidden size, and -5 for an RNN activation other than the rectifier
/// and tanh.
class RecurrentCell : public RecurrentLayer {
 public:
  explicit RecurrentCell(const RecurrentCellRow& row);

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int ResetState();
  void begin_own_state(const Context& context);
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;

  /// Replaces what `outputs` holds. An exception leaves the state as it was.
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass);
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const;

 private:
  const RecurrentCellRow& row_;
  RecurrentWeights weights_;
  std::shared_ptr<runtime::TensorCPU> h_;  // the last output; null until the first pass
  std::shared_ptr<runtime::TensorCPU> c_;
};

/// The states of a sequence, [layers * directions, hidden_size], the directions of a layer one after
/// the other.
struct SequenceStates {
  float* h;      ///< hidden
  float* c;      ///< of the cells; null where the network has none
  size_t count;  ///< numbers in each
};

/// A sequence [steps, in_size] of any layout to [steps, directions * hidden_size] of layout SC.
///
/// The input of a layer is the output of the one below. The row of a step holds the forward result,
/// then, in two directions, the reverse one. A state row is [hidden_size]; the reverse direction
/// starts from its own, and sees no more than the piece of the sequence that is passed.
///
/// Descriptions are refused by `CheckConfig` as by the cells, with -5 without layers, and with -6
/// for an RNN activation.
class RecurrentSequence : public RecurrentLayer {
 public:
  explicit RecurrentSequence(const RecurrentSequenceRow& row);

  int CheckConfig(const LayerInfo* info, const InferenceParam* param) const;
  bool Configure(const LayerInfo* info, const InferenceParam* param, const Context& context);
  Shapes InferOutputShapes(const Shapes& shapes) const;
  int ResetState();
  void begin_own_state(const Context& context);
  int CheckInputs(const Tensors& tensors) const;
  int CheckOutputs(const Tensors& tensors) const;

  /// An exception leaves the state as it was.
  int Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass);
  Misfits refusals(const LayerInfo* info, const InferenceParam* param) const;
  Misfits input_refusals(const Shapes& inputs) const;
  Misfits pass_refusals(const Shapes& inputs) const;
  /// What the next pass begins with, and the last one left; once configured.
  SequenceStates states() const;
  /// Why no pass runs a layer of these directions and of this kind of network.
  static Misfits combination_refusals(bool bidirectional, uint16_t complex_type);
  Misfits differences(const LayerInfo& info, const Shapes& inputs) const;

 private:
  using Cells = std::vector<RecurrentWeights>;
  using Weights = runtime::RecurrentSequenceWeights;

  /// The vectors of one layer over all steps.
  struct LayerVectors {
    const float* input;
    size_t input_size;
    float* output;  // of rows of `out_size`
    size_t steps;
  };

  bool decode_cells(const Weights& weights, bool has_bias, const Context& context);
  bool passes(const Tensors& tensors, uint32_t width) const;
  const float* readable_input(const Tensors& inputs) const;
  recurrent::StepTask cell_task(uint32_t layer, bool is_reverse) const;
  void run_in_time(const LayerVectors& vectors) const;
  void run_layers(const LayerVectors& vectors, float* between) const;
  void run_layer(uint32_t layer, const LayerVectors& vectors) const;
  uint32_t directions() const { return bidirectional_ ? 2 : 1; }
  uint32_t out_size() const { return directions() * hidden_size_; }
  uint32_t layers() const { return static_cast<uint32_t>(forward_.size()); }

  const RecurrentSequenceRow& row_;
  uint16_t complex_type_ = 0;
  bool bidirectional_ = false;
  Cells forward_;  // one for each layer
  Cells reverse_;  // the same in two directions
  // [layers * directions, hidden_size], the directions of a layer one after the other.
  std::shared_ptr<runtime::TensorCPU> h_;
  std::shared_ptr<runtime::TensorCPU> c_;
};

/// @name Rows
/// @{
template <typename Info>
constexpr RecurrentCellRow recurrent_cell(const recurrent::Network& network) {
  RecurrentCellRow row;
  row.config_test = ConfigTest::accepted;
  row.network = network;
  row.describe = recurrent_description<Info, runtime::RecurrentCellWeights>;
  return row;
}

template <typename Info>
constexpr RecurrentSequenceRow recurrent_sequence(const recurrent::Network& network) {
  RecurrentSequenceRow row;
  row.config_test = ConfigTest::accepted;
  row.network = network;
  row.describe = recurrent_description<Info, runtime::RecurrentSequenceWeights>;
  return row;
}
/// @}

// clang-format off
#define QRT_RECURRENT_CELLS_OF(KERNEL, set, arithmetic)                                      \
  KERNEL(RNNCell_##set##_C_F32_M1,                                                            \
         recurrent_cell<runtime::RNNCellInfo>(recurrent::rnn(recurrent::arithmetic)))         \
  KERNEL(LSTMCell_##set##_C_F32_M1,                                                           \
         recurrent_cell<runtime::LSTMCellInfo>(recurrent::lstm(recurrent::arithmetic)))       \
  KERNEL(GRUCell_##set##_C_F32_M1,                                                            \
         recurrent_cell<runtime::GRUCellInfo>(recurrent::gru(recurrent::arithmetic)))
#define QRT_RECURRENT_SEQUENCES_OF(KERNEL, set, arithmetic)                                  \
  KERNEL(RNN_##set##_SC_F32_M1,                                                               \
         recurrent_sequence<runtime::RNNInfo>(recurrent::rnn(recurrent::arithmetic)))         \
  KERNEL(LSTM_##set##_SC_F32_M1,                                                              \
         recurrent_sequence<runtime::LSTMInfo>(recurrent::lstm(recurrent::arithmetic)))       \
  KERNEL(GRU_##set##_SC_F32_M1,                                                               \
         recurrent_sequence<runtime::GRUInfo>(recurrent::gru(recurrent::arithmetic)))

#define QRT_RECURRENT_CELLS(KERNEL) QRT_RECURRENT_CELLS_OF(KERNEL, Fallback, kPortable)
#define QRT_RECURRENT_CELLS_SSE(KERNEL) QRT_RECURRENT_CELLS_OF(KERNEL, SSE, kSse)
#define QRT_RECURRENT_CELLS_SGEMM(KERNEL) QRT_RECURRENT_CELLS_OF(KERNEL, SGEMM, kSgemm)
#define QRT_RECURRENT_SEQUENCES(KERNEL) QRT_RECURRENT_SEQUENCES_OF(KERNEL, Fallback, kPortable)
#define QRT_RECURRENT_SEQUENCES_SSE(KERNEL) QRT_RECURRENT_SEQUENCES_OF(KERNEL, SSE, kSse)
#define QRT_RECURRENT_SEQUENCES_SGEMM(KERNEL) QRT_RECURRENT_SEQUENCES_OF(KERNEL, SGEMM, kSgemm)

#define QRT_RECURRENT_CELLS_SSE_SGEMM(KERNEL) \
  KERNEL(GRUCell_SSE_SGEMM_C_F32_M2,          \
         recurrent_cell<runtime::GRUCellInfo>(recurrent::gru(recurrent::kSseSgemm)))
#define QRT_RECURRENT_SEQUENCES_SSE_SGEMM(KERNEL) \
  KERNEL(GRU_SSE_SGEMM_SC_F32_M2,                 \
         recurrent_sequence<runtime::GRUInfo>(recurrent::gru(recurrent::kSseSgemm)))
// clang-format on

QRT_RECURRENT_CELLS(QRT_KERNEL)
QRT_IF_SSE(QRT_RECURRENT_CELLS_SSE(QRT_KERNEL))
QRT_IF_SGEMM(QRT_RECURRENT_CELLS_SGEMM(QRT_KERNEL))
QRT_IF_SSE(QRT_IF_SGEMM(QRT_RECURRENT_CELLS_SSE_SGEMM(QRT_KERNEL)))
QRT_RECURRENT_SEQUENCES(QRT_KERNEL)
QRT_IF_SSE(QRT_RECURRENT_SEQUENCES_SSE(QRT_KERNEL))
QRT_IF_SGEMM(QRT_RECURRENT_SEQUENCES_SGEMM(QRT_KERNEL))
QRT_IF_SSE(QRT_IF_SGEMM(QRT_RECURRENT_SEQUENCES_SSE_SGEMM(QRT_KERNEL)))

/// The rows of the kernels that this build contains.
inline constexpr std::initializer_list<const RecurrentCellRow*> recurrent_cell_rows = {
    QRT_RECURRENT_CELLS(QRT_KERNEL_ROW) QRT_IF_SSE(QRT_RECURRENT_CELLS_SSE(QRT_KERNEL_ROW))
        QRT_IF_SGEMM(QRT_RECURRENT_CELLS_SGEMM(QRT_KERNEL_ROW))
            QRT_IF_SSE(QRT_IF_SGEMM(QRT_RECURRENT_CELLS_SSE_SGEMM(QRT_KERNEL_ROW)))};
inline constexpr std::initializer_list<const RecurrentSequenceRow*> recurrent_sequence_rows = {
    QRT_RECURRENT_SEQUENCES(QRT_KERNEL_ROW) QRT_IF_SSE(QRT_RECURRENT_SEQUENCES_SSE(QRT_KERNEL_ROW))
        QRT_IF_SGEMM(QRT_RECURRENT_SEQUENCES_SGEMM(QRT_KERNEL_ROW))
            QRT_IF_SSE(QRT_IF_SGEMM(QRT_RECURRENT_SEQUENCES_SSE_SGEMM(QRT_KERNEL_ROW)))};

}  // namespace marlo::kernel
