#include "qrt_core/runtime/model/normalization_info.h"

namespace marlo::runtime {

InstanceNorm2dInfo::InstanceNorm2dInfo() : LayerInfo(8, "InstanceNorm2dInfo") {}

void InstanceNorm2dInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, num_features);
  QRT_VISIT(visitor, eps);
  QRT_VISIT(visitor, momentum);
  QRT_VISIT(visitor, if_affine);
  QRT_VISIT(visitor, if_track_running_stats);
  VisitBlobs(visitor, {{&scale, "scale"}, {&shift, "shift"}});
}

void BatchNormInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, num_features);
  QRT_VISIT(visitor, eps);
  QRT_VISIT(visitor, momentum);
  QRT_VISIT(visitor, if_affine);
  QRT_VISIT(visitor, if_track_running_stats);
  VisitBlobs(visitor,
             {{&scale, "scale"}, {&shift, "shift"}, {&variance, "variance"}, {&mean, "mean"}});
  if (visitor->_serialization_protocol_version < 20005) return;
  QRT_VISIT(visitor, num_batches_tracked);
}

BatchNorm2dInfo::BatchNorm2dInfo() : BatchNormInfo(9, "BatchNorm2dInfo") {}

BatchNorm1dInfo::BatchNorm1dInfo() : BatchNormInfo(30, "BatchNorm1dInfo") {}

}  // namespace marlo::runtime
