#include "qrt_core/runtime/model/recurrent_info.h"

namespace marlo::runtime {

void RecurrentInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, in_size);
  QRT_VISIT(visitor, hidden_size);
  QRT_VISIT(visitor, if_bias);
}

void RecurrentActivation::Visit(Visitor& visitor) {
  QRT_VISIT(&visitor, activation_type);
  QRT_VISIT(&visitor, activation_alpha);
  QRT_VISIT(&visitor, activation_beta);
}

void RecurrentCellWeights::Visit(const std::shared_ptr<Visitor>& visitor) {
  VisitBlobs(visitor, {{&weight_ih, "weight_ih"},
                       {&weight_hh, "weight_hh"},
                       {&bias_ih, "bias_ih"},
                       {&bias_hh, "bias_hh"}});
}

void RecurrentSequenceWeights::Visit(const std::shared_ptr<Visitor>& visitor) {
  QRT_VISIT(visitor, num_layers);
  QRT_VISIT(visitor, bidirectional);
  QRT_VISIT(visitor, complex_rnn_type);
  VisitBlobLists(visitor, {{&weight_ih_forward, "weight_ih_forward"},
                           {&weight_hh_forward, "weight_hh_forward"},
                           {&bias_ih_forward, "bias_ih_forward"},
                           {&bias_hh_forward, "bias_hh_forward"},
                           {&weight_ih_reverse, "weight_ih_reverse"},
                           {&weight_hh_reverse, "weight_hh_reverse"},
                           {&bias_ih_reverse, "bias_ih_reverse"},
                           {&bias_hh_reverse, "bias_hh_reverse"}});
}

RNNCellInfo::RNNCellInfo() : RecurrentInfo(33, "RNNCellInfo") {}

void RNNCellInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  RecurrentInfo::VisitAttr(visitor);
  RecurrentActivation::Visit(*visitor);
  RecurrentCellWeights::Visit(visitor);
}

RNNInfo::RNNInfo() : RecurrentInfo(34, "RNNInfo") {}

void RNNInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  RecurrentInfo::VisitAttr(visitor);
  RecurrentActivation::Visit(*visitor);
  RecurrentSequenceWeights::Visit(visitor);
}

LSTMCellInfo::LSTMCellInfo() : RecurrentInfo(35, "LSTMCellInfo") {}

void LSTMCellInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  RecurrentInfo::VisitAttr(visitor);
  RecurrentCellWeights::Visit(visitor);
}

LSTMInfo::LSTMInfo() : RecurrentInfo(36, "LSTMInfo") {}

void LSTMInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  RecurrentInfo::VisitAttr(visitor);
  RecurrentSequenceWeights::Visit(visitor);
}

GRUCellInfo::GRUCellInfo() : RecurrentInfo(37, "GRUCellInfo") {}

void GRUCellInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  RecurrentInfo::VisitAttr(visitor);
  RecurrentCellWeights::Visit(visitor);
}

GRUInfo::GRUInfo() : RecurrentInfo(38, "GRUInfo") {}

void GRUInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  RecurrentInfo::VisitAttr(visitor);
  RecurrentSequenceWeights::Visit(visitor);
}

}  // namespace marlo::runtime
