#include "qrt_core/runtime/model/elementwise_info.h"

namespace marlo::runtime {

ActivationInfo::ActivationInfo() : LayerInfo(1, "ActivationInfo") {}

void ActivationInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, activation_type);
  QRT_VISIT(visitor, activation_alpha);
  QRT_VISIT(visitor, activation_beta);
  if (visitor->_serialization_protocol_version < 20012) return;
  QRT_VISIT(visitor, num_parameters);
  QRT_VISIT(visitor, weight);
}

ElementWiseOperatorInfo::ElementWiseOperatorInfo() : LayerInfo(11, "ElementWiseOperatorInfo") {}

void ElementWiseOperatorInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, op_type);
}

BroadcastOperatorInfo::BroadcastOperatorInfo() : LayerInfo(29, "BroadcastOperatorInfo") {}

void BroadcastOperatorInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, op_type);
}

ClipInfo::ClipInfo() : LayerInfo(31, "ClipInfo") {}

void ClipInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, minimum_value);
  QRT_VISIT(visitor, maximum_value);
}

SoftmaxInfo::SoftmaxInfo() : LayerInfo(32, "SoftmaxInfo") {}

void SoftmaxInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, dim);
}

TensorArithmeticInfo::TensorArithmeticInfo() : LayerInfo(45, "TensorArithmeticInfo") {}

void TensorArithmeticInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, dim);
  QRT_VISIT(visitor, arith_type);
}

}  // namespace marlo::runtime
