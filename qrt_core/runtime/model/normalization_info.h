#pragma once

#include <cstdint>
#include <memory>

#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/model/weight_blob.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// Instance normalisation.
class QRT_API InstanceNorm2dInfo : public LayerInfo {
 public:
  InstanceNorm2dInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t num_features = 0;            ///< channels
  float eps = 1e-5f;                    ///< added to the variance
  float momentum = 0.1f;                ///< running average factor
  bool if_affine = false;               ///< has scale and shift
  bool if_track_running_stats = false;  ///< has mean and variance
  WeightBlob scale;                     ///< gamma
  WeightBlob shift;                     ///< beta
};

/// What batch normalisation of planes and of vectors share.
class QRT_API BatchNormInfo : public LayerInfo {
 public:
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t num_features = 0;           ///< channels
  float eps = 1e-5f;                   ///< added to the variance
  float momentum = 0.1f;               ///< running average factor
  bool if_affine = true;               ///< has scale and shift
  bool if_track_running_stats = true;  ///< has mean and variance
  WeightBlob scale;                    ///< gamma
  WeightBlob shift;                    ///< beta
  WeightBlob variance;                 ///< running variance
  WeightBlob mean;                     ///< running mean
  int32_t num_batches_tracked = -1;    ///< training counter; since version 20005

 protected:
  /// For derived descriptions.
  using LayerInfo::LayerInfo;
};

/// Batch normalisation of planes.
class QRT_API BatchNorm2dInfo : public BatchNormInfo {
 public:
  BatchNorm2dInfo();
};

/// Batch normalisation of vectors.
class QRT_API BatchNorm1dInfo : public BatchNormInfo {
 public:
  BatchNorm1dInfo();
};

}  // namespace marlo::runtime
