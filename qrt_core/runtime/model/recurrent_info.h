#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/model/weight_blob.h"
#include "qrt_core/utility/export.h"
#include "qrt_core/utility/half.h"

namespace marlo::runtime {

/// The sizes that every recurrent layer has.
class QRT_API RecurrentInfo : public LayerInfo {
 public:
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t in_size = 0;      ///< input length
  uint16_t hidden_size = 0;  ///< hidden length
  bool if_bias = false;      ///< biases are present

 protected:
  /// For derived descriptions.
  using LayerInfo::LayerInfo;
};

/// The activation of a simple recurrent layer. Plain data: any number of threads may read it while
/// none changes it.
struct RecurrentActivation {
  /// Walks the members in this order.
  void Visit(Visitor& visitor);

  uint16_t activation_type = 0;       ///< 2 rectifier, 5 tanh
  half_float::half activation_alpha;  ///< kept; neither of the two has a parameter
  half_float::half activation_beta;   ///< kept
};

/// The weights of one step. Rows stand gate after gate, `hidden_size` rows each: input, forget,
/// cell and output of an LSTM; reset, update and new of a GRU; one gate of a simple network. Plain
/// data: any number of threads may read it while none changes it.
struct RecurrentCellWeights {
  /// Walks the members in this order.
  void Visit(const std::shared_ptr<Visitor>& visitor);

  WeightBlob weight_ih;  ///< [gates * hidden_size, in_size]: input to hidden
  WeightBlob weight_hh;  ///< [gates * hidden_size, hidden_size]: hidden to hidden
  WeightBlob bias_ih;    ///< [gates * hidden_size]: added with the input
  WeightBlob bias_hh;    ///< [gates * hidden_size]: added with the state
};

/// The structure and weights of a layer over a sequence. Lists hold one entry per stacked layer,
/// each as in `RecurrentCellWeights`; a layer above the first reads what the one below returns.
/// Plain data: any number of threads may read it while none changes it.
struct RecurrentSequenceWeights {
  /// Walks the members in this order.
  void Visit(const std::shared_ptr<Visitor>& visitor);

  uint16_t num_layers = 0;                    ///< stacked layers
  bool bidirectional = false;                 ///< both directions
  uint16_t complex_rnn_type = 0;              ///< 0; two directions with any other are refused
  std::vector<WeightBlob> weight_ih_forward;  ///< input to hidden, one per stacked layer
  std::vector<WeightBlob> weight_hh_forward;  ///< hidden to hidden, one per stacked layer
  std::vector<WeightBlob> bias_ih_forward;    ///< input biases, one per stacked layer
  std::vector<WeightBlob> bias_hh_forward;    ///< hidden biases, one per stacked layer
  std::vector<WeightBlob> weight_ih_reverse;  ///< the same of the reverse direction
  std::vector<WeightBlob> weight_hh_reverse;  ///< the same of the reverse direction
  std::vector<WeightBlob> bias_ih_reverse;    ///< the same of the reverse direction
  std::vector<WeightBlob> bias_hh_reverse;    ///< the same of the reverse direction
};

/// One step of a simple recurrent network.
class QRT_API RNNCellInfo : public RecurrentInfo,
                            public RecurrentActivation,
                            public RecurrentCellWeights {
 public:
  RNNCellInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;
};

/// A simple recurrent network over a sequence.
class QRT_API RNNInfo : public RecurrentInfo,
                        public RecurrentActivation,
                        public RecurrentSequenceWeights {
 public:
  RNNInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;
};

/// One step of an LSTM.
class QRT_API LSTMCellInfo : public RecurrentInfo, public RecurrentCellWeights {
 public:
  LSTMCellInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;
};

/// An LSTM over a sequence.
class QRT_API LSTMInfo : public RecurrentInfo, public RecurrentSequenceWeights {
 public:
  LSTMInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;
};

/// One step of a GRU.
class QRT_API GRUCellInfo : public RecurrentInfo, public RecurrentCellWeights {
 public:
  GRUCellInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;
};

/// A GRU over a sequence.
class QRT_API GRUInfo : public RecurrentInfo, public RecurrentSequenceWeights {
 public:
  GRUInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;
};

}  // namespace marlo::runtime
