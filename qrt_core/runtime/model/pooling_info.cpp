#include "qrt_core/runtime/model/pooling_info.h"

namespace marlo::runtime {

AvgPool2dInfo::AvgPool2dInfo() : LayerInfo(6, "AvgPool2dInfo") {}

void AvgPool2dInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, kernel_x);
  QRT_VISIT(visitor, kernel_y);
  QRT_VISIT(visitor, padding_l);
  QRT_VISIT(visitor, padding_t);
  QRT_VISIT(visitor, padding_r);
  QRT_VISIT(visitor, padding_b);
  QRT_VISIT(visitor, stride_x);
  QRT_VISIT(visitor, stride_y);
  QRT_VISIT(visitor, ceil_mode);
  QRT_VISIT(visitor, count_include_pad);
}

MaxPool2dInfo::MaxPool2dInfo() : LayerInfo(7, "MaxPool2dInfo") {}

void MaxPool2dInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, kernel_x);
  QRT_VISIT(visitor, kernel_y);
  QRT_VISIT(visitor, padding_l);
  QRT_VISIT(visitor, padding_t);
  QRT_VISIT(visitor, padding_r);
  QRT_VISIT(visitor, padding_b);
  QRT_VISIT(visitor, stride_x);
  QRT_VISIT(visitor, stride_y);
  QRT_VISIT(visitor, dilation_x);
  QRT_VISIT(visitor, dilation_y);
  QRT_VISIT(visitor, ceil_mode);
}

AdaptiveAvgPool2dInfo::AdaptiveAvgPool2dInfo() : LayerInfo(26, "AdaptiveAvgPool2dInfo") {}

void AdaptiveAvgPool2dInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, output_size);
}

}  // namespace marlo::runtime
