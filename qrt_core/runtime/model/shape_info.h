#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// Upsampling of planes.
class QRT_API Upsample2dInfo : public LayerInfo {
 public:
  Upsample2dInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  float scale_factor_y = 0;    ///< vertical scale
  float scale_factor_x = 0;    ///< horizontal scale
  bool align_corner = false;   ///< align corners
  uint16_t unsample_type = 0;  ///< 0 nearest, 1 bilinear, 2 bicubic
};

/// Concatenation along an axis.
class QRT_API ConcatenateInfo : public LayerInfo {
 public:
  ConcatenateInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t dim = 0;  ///< axis; channels are 1 or 0, by kernel: Concatenate_C counts a batch
};

/// A change of dims.
class QRT_API TensorReshapeInfo : public LayerInfo {
 public:
  TensorReshapeInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<int16_t> new_shape;  ///< batch 1 first, [1, 256]; -1 is inferred
};

/// A permutation of axes.
class QRT_API TensorTransposeInfo : public LayerInfo {
 public:
  TensorTransposeInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<uint16_t> axes;  ///< axes of the tensor, without a batch
};

/// Removal of an axis of size 1.
class QRT_API TensorSqueezeInfo : public LayerInfo {
 public:
  TensorSqueezeInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  int16_t dim = 0;  ///< axis
};

/// Insertion of an axis of size 1.
///
/// A fresh object carries the code of TensorSqueezeInfo, as writers of model files have always had
/// it; reading a model corrects it, and a description made by hand must set 16 itself.
class QRT_API TensorUnSqueezeInfo : public LayerInfo {
 public:
  TensorUnSqueezeInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  int16_t dim = 0;  ///< axis, counting a batch
};

/// Exchange of channels for pixels.
class QRT_API PixelShuffleInfo : public LayerInfo {
 public:
  PixelShuffleInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  float upscale_factor = 0;  ///< scale
};

/// Repetition along axes of size 1.
class QRT_API TensorExpandInfo : public LayerInfo {
 public:
  TensorExpandInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<int16_t> new_shape;  ///< batch 1 first; -1 keeps a size
};

/// Sampling at given positions.
class QRT_API GridSampleInfo : public LayerInfo {
 public:
  GridSampleInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t mode = 0;           ///< 0 nearest, 1 bilinear, 2 bicubic
  uint16_t padding_mode = 0;   ///< 0 zeros, 1 border, 2 reflection
  bool align_corners = false;  ///< align corners
};

/// A part of a tensor.
class QRT_API TensorSliceInfo : public LayerInfo {
 public:
  TensorSliceInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<int16_t> slice_dims;  ///< begin, end, step of each dim, no batch
};

/// How one axis is sampled.
class QRT_API TensorDimemsionSamplingInfo : public Serializable {
 public:
  TensorDimemsionSamplingInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t sampling_type = 0;  ///< how this axis is sampled
  std::vector<int16_t> data;   ///< the numbers of that sampling
};

/// Sampling of a tensor along its axes.
class QRT_API TensorGetItemInfo : public LayerInfo {
 public:
  TensorGetItemInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t num_sampling_infos = 0;                          ///< axes described
  std::vector<TensorDimemsionSamplingInfo> sampling_infos;  ///< one per axis
};

}  // namespace marlo::runtime
