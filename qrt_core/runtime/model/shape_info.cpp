#include "qrt_core/runtime/model/shape_info.h"

#include <string>

#include "qrt_core/runtime/model/file_visitor.h"
#include "qrt_core/runtime/model/json_visitor.h"
#include "qrt_core/utility/log.h"

namespace marlo::runtime {
namespace {

// Bytes of the smallest sampling record: the lengths of its name and of its data, and its type.
constexpr uint64_t kLeastRecordBytes = 8 + 2 + 8;

// The count is compared with what the source holds before objects are made for it.
void refuse_excessive_count(const std::shared_ptr<Visitor>& visitor, uint16_t count) {
  if (const auto reader = std::dynamic_pointer_cast<FILEReader>(visitor)) {
    reader->Require<Serializable>(count, kLeastRecordBytes);
  } else if (const auto getter = std::dynamic_pointer_cast<JSONNodeGetter>(visitor)) {
    utility::Assert(count <= getter->MemberCount(),
                    "\"num_sampling_infos\" is %u in an object of %u members", count,
                    getter->MemberCount());
  }
}

}  // namespace

Upsample2dInfo::Upsample2dInfo() : LayerInfo(10, "Upsample2dInfo") {}

void Upsample2dInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, scale_factor_y);
  QRT_VISIT(visitor, scale_factor_x);
  QRT_VISIT(visitor, align_corner);
  QRT_VISIT(visitor, unsample_type);
}

ConcatenateInfo::ConcatenateInfo() : LayerInfo(12, "ConcatenateInfo") {}

void ConcatenateInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, dim);
}

TensorReshapeInfo::TensorReshapeInfo() : LayerInfo(13, "TensorReshapeInfo") {}

void TensorReshapeInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, new_shape);
}

TensorTransposeInfo::TensorTransposeInfo() : LayerInfo(14, "TensorTransposeInfo") {}

void TensorTransposeInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, axes);
}

TensorSqueezeInfo::TensorSqueezeInfo() : LayerInfo(15, "TensorSqueezeInfo") {}

void TensorSqueezeInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, dim);
}

TensorUnSqueezeInfo::TensorUnSqueezeInfo() : LayerInfo(15, "TensorUnSqueezeInfo") {}

void TensorUnSqueezeInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, dim);
}

PixelShuffleInfo::PixelShuffleInfo() : LayerInfo(21, "PixelShuffleInfo") {}

void PixelShuffleInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, upscale_factor);
}

TensorExpandInfo::TensorExpandInfo() : LayerInfo(41, "TensorExpandInfo") {}

void TensorExpandInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, new_shape);
}

GridSampleInfo::GridSampleInfo() : LayerInfo(44, "GridSampleInfo") {}

void GridSampleInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, mode);
  QRT_VISIT(visitor, padding_mode);
  QRT_VISIT(visitor, align_corners);
}

TensorSliceInfo::TensorSliceInfo() : LayerInfo(46, "TensorSliceInfo") {}

void TensorSliceInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, slice_dims);
}

TensorDimemsionSamplingInfo::TensorDimemsionSamplingInfo() {
  serializable_type = "TensorDimemsionSamplingInfo";
}

void TensorDimemsionSamplingInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  Serializable::VisitAttr(visitor);
  QRT_VISIT(visitor, sampling_type);
  QRT_VISIT(visitor, data);
}

TensorGetItemInfo::TensorGetItemInfo() : LayerInfo(22, "TensorGetItemInfo") {}

void TensorGetItemInfo::VisitAttr(std::shared_ptr<Visitor> visitor) {
  LayerInfo::VisitAttr(visitor);
  QRT_VISIT(visitor, num_sampling_infos);
  if (num_sampling_infos != sampling_infos.size()) {
    refuse_excessive_count(visitor, num_sampling_infos);
    sampling_infos.clear();
    sampling_infos.resize(num_sampling_infos);
  }
  for (size_t i = 0; i < sampling_infos.size(); ++i) {
    visitor->Visit(&sampling_infos[i], std::to_string(i).c_str());
  }
}

}  // namespace marlo::runtime
