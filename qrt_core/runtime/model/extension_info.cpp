#include "qrt_core/runtime/model/extension_info.h"

namespace marlo::runtime {

ElementFunctionInfo::ElementFunctionInfo() : LayerInfo(1000, "ElementFunctionInfo") {}

void ElementFunctionInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, function);
  QRT_VISIT(visitor, alpha);
  QRT_VISIT(visitor, beta);
}

BinaryFunctionInfo::BinaryFunctionInfo() : LayerInfo(1001, "BinaryFunctionInfo") {}

void BinaryFunctionInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, function);
  QRT_VISIT(visitor, has_constant);
  QRT_VISIT(visitor, constant_is_first);
  QRT_VISIT(visitor, constant_dims);
  QRT_VISIT(visitor, constant);
}

LayerNormInfo::LayerNormInfo() : LayerInfo(1002, "LayerNormInfo") {}

void LayerNormInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, axis);
  QRT_VISIT(visitor, eps);
  VisitBlobs(visitor, {{&scale, "scale"}, {&shift, "shift"}});
}

GroupNormInfo::GroupNormInfo() : LayerInfo(1003, "GroupNormInfo") {}

void GroupNormInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, groups);
  QRT_VISIT(visitor, eps);
  VisitBlobs(visitor, {{&scale, "scale"}, {&shift, "shift"}});
}

AxisSoftmaxInfo::AxisSoftmaxInfo() : LayerInfo(1004, "AxisSoftmaxInfo") {}

void AxisSoftmaxInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, axis);
  QRT_VISIT(visitor, logarithm);
}

MatMulInfo::MatMulInfo() : LayerInfo(1005, "MatMulInfo") {}

void MatMulInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, transpose_a);
  QRT_VISIT(visitor, transpose_b);
  QRT_VISIT(visitor, alpha);
}

DenseInfo::DenseInfo() : LayerInfo(1006, "DenseInfo") {}

void DenseInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, in_features);
  QRT_VISIT(visitor, out_features);
  QRT_VISIT(visitor, if_bias);
  VisitBlobs(visitor, {{&weight, "weight"}, {&bias, "bias"}});
}

AxisReductionInfo::AxisReductionInfo() : LayerInfo(1007, "AxisReductionInfo") {}

void AxisReductionInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, function);
  QRT_VISIT(visitor, axes);
  QRT_VISIT(visitor, keep_dims);
}

PadInfo::PadInfo() : LayerInfo(1008, "PadInfo") {}

void PadInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, mode);
  QRT_VISIT(visitor, value);
  QRT_VISIT(visitor, before);
  QRT_VISIT(visitor, after);
}

GatherInfo::GatherInfo() : LayerInfo(1009, "GatherInfo") {}

void GatherInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, axis);
  QRT_VISIT(visitor, index_dims);
  QRT_VISIT(visitor, indices);
}

EmbeddingInfo::EmbeddingInfo() : LayerInfo(1010, "EmbeddingInfo") {}

void EmbeddingInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, rows);
  QRT_VISIT(visitor, width);
  VisitBlobs(visitor, {{&weight, "weight"}});
}

BroadcastToInfo::BroadcastToInfo() : LayerInfo(1011, "BroadcastToInfo") {}

void BroadcastToInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, dims);
}

ConstantInfo::ConstantInfo() : LayerInfo(1012, "ConstantInfo") {}

void ConstantInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, dims);
  QRT_VISIT(visitor, layout);
  QRT_VISIT(visitor, values);
}

ResizeInfo::ResizeInfo() : LayerInfo(1013, "ResizeInfo") {}

void ResizeInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, mode);
  QRT_VISIT(visitor, places);
  QRT_VISIT(visitor, nearest);
  QRT_VISIT(visitor, cubic_coefficient);
  QRT_VISIT(visitor, exclude_outside);
  QRT_VISIT(visitor, sizes);
  QRT_VISIT(visitor, scales);
}

StridedSliceInfo::StridedSliceInfo() : LayerInfo(1014, "StridedSliceInfo") {}

void StridedSliceInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, axes);
  QRT_VISIT(visitor, starts);
  QRT_VISIT(visitor, ends);
  QRT_VISIT(visitor, steps);
}

ReshapeToInfo::ReshapeToInfo() : LayerInfo(1015, "ReshapeToInfo") {}

void ReshapeToInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, dims);
  QRT_VISIT(visitor, layout);
}

ResizeLikeInfo::ResizeLikeInfo() : LayerInfo(1019, "ResizeLikeInfo") {}

void ResizeLikeInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, mode);
  QRT_VISIT(visitor, places);
  QRT_VISIT(visitor, nearest);
  QRT_VISIT(visitor, cubic_coefficient);
  QRT_VISIT(visitor, exclude_outside);
  QRT_VISIT(visitor, axes);
  QRT_VISIT(visitor, like_axes);
  QRT_VISIT(visitor, only_cuts);
}

}  // namespace marlo::runtime
