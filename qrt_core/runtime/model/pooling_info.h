#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// Average pooling.
class QRT_API AvgPool2dInfo : public LayerInfo {
 public:
  AvgPool2dInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t kernel_x = 0;           ///< window width
  uint16_t kernel_y = 0;           ///< window height
  int16_t padding_l = 0;           ///< padding left
  int16_t padding_t = 0;           ///< padding top
  int16_t padding_r = 0;           ///< padding right
  int16_t padding_b = 0;           ///< padding bottom
  uint16_t stride_x = 0;           ///< horizontal stride
  uint16_t stride_y = 0;           ///< vertical stride
  bool ceil_mode = false;          ///< output size rounds up
  bool count_include_pad = false;  ///< padding counts in the divisor
};

/// Maximum pooling.
class QRT_API MaxPool2dInfo : public LayerInfo {
 public:
  MaxPool2dInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t kernel_x = 0;    ///< window width
  uint16_t kernel_y = 0;    ///< window height
  int16_t padding_l = 0;    ///< padding left
  int16_t padding_t = 0;    ///< padding top
  int16_t padding_r = 0;    ///< padding right
  int16_t padding_b = 0;    ///< padding bottom
  uint16_t stride_x = 0;    ///< horizontal stride
  uint16_t stride_y = 0;    ///< vertical stride
  uint16_t dilation_x = 0;  ///< horizontal dilation
  uint16_t dilation_y = 0;  ///< vertical dilation
  bool ceil_mode = false;   ///< output size rounds up
};

/// Average pooling to a given size.
class QRT_API AdaptiveAvgPool2dInfo : public LayerInfo {
 public:
  AdaptiveAvgPool2dInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<uint16_t> output_size;  ///< target height and width
};

}  // namespace marlo::runtime
