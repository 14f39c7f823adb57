#pragma once

#include <memory>

#include "qrt_core/runtime/model/recurrent_info.h"

// Recurrent layers of the second set: sequences whose first and last states other layers see.

namespace marlo::runtime {

/// What sequences with states have beside sizes and weights.
///
/// Every pass begins with the states that it is given, or with zeros, and nothing is kept. Behind the
/// rows of the steps the output has those of the last states: [steps + states, directions *
/// hidden_size]. They are the hidden state of each stacked layer and then, of an LSTM, the cell state
/// of each; a row holds the forward direction and then the reverse one.
///
/// Plain data: any number of threads may read it while none changes it.
struct RecurrentStates {
  /// Walks the members in this order.
  void Visit(Visitor& visitor);

  /// Whether a second input [states, directions * hidden_size] holds the first states.
  bool has_first_states = false;
};

/// A simple recurrent network over a sequence, with its states.
class QRT_API RNNStatesInfo : public RecurrentInfo,
                              public RecurrentActivation,
                              public RecurrentStates,
                              public RecurrentSequenceWeights {
 public:
  RNNStatesInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;
};

/// An LSTM over a sequence, with its states.
class QRT_API LSTMStatesInfo : public RecurrentInfo,
                               public RecurrentStates,
                               public RecurrentSequenceWeights {
 public:
  LSTMStatesInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;
};

/// A GRU over a sequence, with its states.
class QRT_API GRUStatesInfo : public RecurrentInfo,
                              public RecurrentStates,
                              public RecurrentSequenceWeights {
 public:
  GRUStatesInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;
};

}  // namespace marlo::runtime
