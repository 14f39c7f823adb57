#pragma once

#include <cstdint>
#include <memory>

#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/model/weight_blob.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// A two-dimensional convolution. Weights are [groups, out / groups, in / groups, kernel_y,
/// kernel_x].
class QRT_API Conv2dInfo : public LayerInfo {
 public:
  Conv2dInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t in_channels = 0;   ///< input channels
  uint16_t out_channels = 0;  ///< output channels
  uint16_t kernel_x = 0;      ///< kernel width
  uint16_t kernel_y = 0;      ///< kernel height
  uint16_t padding_l = 0;     ///< padding left
  uint16_t padding_t = 0;     ///< padding top
  uint16_t padding_r = 0;     ///< padding right
  uint16_t padding_b = 0;     ///< padding bottom
  uint16_t stride_x = 1;      ///< horizontal stride
  uint16_t stride_y = 1;      ///< vertical stride
  uint16_t dilation_x = 1;    ///< horizontal dilation
  uint16_t dilation_y = 1;    ///< vertical dilation
  uint16_t groups = 1;        ///< groups
  bool if_bias = false;       ///< the layer has a bias
  WeightBlob weight;          ///< filters [groups, out / groups, in / groups, y, x]
  WeightBlob bias;            ///< one number per output channel
};

/// A transposed two-dimensional convolution.
///
/// Kernels read it in two ways. For the portable one weights are
/// [groups, in / groups, out / groups, kernel_y, kernel_x], and paddings are signed and hold
/// (kernel - 1) * dilation - p, where p is the padding of the convolution being transposed; the
/// result then has stride - 1 columns and rows of output padding. For those of SSE and AVX weights
/// are [out, in, kernel_y, kernel_x], and paddings are p itself, what is cut off the full result.
class QRT_API ConvTranspose2dInfo : public LayerInfo {
 public:
  ConvTranspose2dInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t in_channels = 0;   ///< input channels
  uint16_t out_channels = 0;  ///< output channels
  uint16_t kernel_x = 0;      ///< kernel width
  uint16_t kernel_y = 0;      ///< kernel height
  int16_t padding_l = 0;      ///< left: (kernel - 1) * dilation - p, or p
  int16_t padding_t = 0;      ///< top: (kernel - 1) * dilation - p, or p
  int16_t padding_r = 0;      ///< right: (kernel - 1) * dilation - p, or p
  int16_t padding_b = 0;      ///< bottom: (kernel - 1) * dilation - p, or p
  uint16_t stride_x = 0;      ///< horizontal stride
  uint16_t stride_y = 0;      ///< vertical stride
  uint16_t dilation_x = 0;    ///< horizontal dilation
  uint16_t dilation_y = 0;    ///< vertical dilation
  uint16_t groups = 0;        ///< groups
  bool if_bias = false;       ///< the layer has a bias
  WeightBlob weight;          ///< portable kernel [in, out / groups, y, x], others [out, in, y, x]
  WeightBlob bias;            ///< one number per output channel
};

/// A one-dimensional convolution. Weights are [groups, out / groups, in / groups, kernel_size].
class QRT_API Conv1dInfo : public LayerInfo {
 public:
  Conv1dInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t in_channels = 0;   ///< input channels
  uint16_t out_channels = 0;  ///< output channels
  uint16_t kernel_size = 0;   ///< kernel length
  uint16_t padding_f = 0;     ///< padding at the front
  uint16_t padding_b = 0;     ///< padding at the back
  uint16_t stride = 1;        ///< stride
  uint16_t dilation = 1;      ///< dilation
  uint16_t groups = 1;        ///< groups
  bool if_bias = false;       ///< the layer has a bias
  WeightBlob weight;          ///< filters [groups, out / groups, in / groups, x]
  WeightBlob bias;            ///< one number per output channel
};

/// A matrix product with a vector. Weights are [out_features, in_features].
class QRT_API FullConnectionInfo : public LayerInfo {
 public:
  FullConnectionInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t in_features = 0;   ///< input length
  uint16_t out_features = 0;  ///< output length
  bool if_bias = false;       ///< the layer has a bias
  WeightBlob weight;          ///< [out_features, in_features]
  WeightBlob bias;            ///< one number per output
};

}  // namespace marlo::runtime
