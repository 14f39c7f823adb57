#include "qrt_core/runtime/model/recurrent_states_info.h"

namespace marlo::runtime {

void RecurrentStates::Visit(Visitor& visitor) { QRT_VISIT(&visitor, has_first_states); }

RNNStatesInfo::RNNStatesInfo() : RecurrentInfo(1016, "RNNStatesInfo") {}

void RNNStatesInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  RecurrentInfo::VisitAttr(visitor);
  RecurrentActivation::Visit(*visitor);
  RecurrentStates::Visit(*visitor);
  RecurrentSequenceWeights::Visit(visitor);
}

LSTMStatesInfo::LSTMStatesInfo() : RecurrentInfo(1017, "LSTMStatesInfo") {}

void LSTMStatesInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  RecurrentInfo::VisitAttr(visitor);
  RecurrentStates::Visit(*visitor);
  RecurrentSequenceWeights::Visit(visitor);
}

GRUStatesInfo::GRUStatesInfo() : RecurrentInfo(1018, "GRUStatesInfo") {}

void GRUStatesInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  RecurrentInfo::VisitAttr(visitor);
  RecurrentStates::Visit(*visitor);
  RecurrentSequenceWeights::Visit(visitor);
}

}  // namespace marlo::runtime
