#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/utility/export.h"
#include "qrt_core/utility/half.h"

namespace marlo::runtime {

/// An activation. The kernel's class selects the function; `activation_type` is a label.
class QRT_API ActivationInfo : public LayerInfo {
 public:
  ActivationInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t activation_type = 0;             ///< label: 2 rectifier, 4 leaky, 5 tanh
  half_float::half activation_alpha{1.0f};  ///< first parameter
  half_float::half activation_beta;         ///< second parameter
  int16_t num_parameters = 1;               ///< number of slopes; since version 20012
  std::string weight;  ///< slopes as Base64 text in every form; since version 20012
};

/// An operator on two tensors of one shape.
class QRT_API ElementWiseOperatorInfo : public LayerInfo {
 public:
  ElementWiseOperatorInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t op_type = 0;  ///< 0 Add, 1 Sub, 2 Mul, 3 Div
};

/// An operator on two tensors whose shapes broadcast.
class QRT_API BroadcastOperatorInfo : public LayerInfo {
 public:
  BroadcastOperatorInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t op_type = 0;  ///< 0 Add, 1 Sub, 2 Mul, 3 Div
};

/// A clamp.
class QRT_API ClipInfo : public LayerInfo {
 public:
  ClipInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  half_float::half minimum_value{-65504.0f};  ///< lower bound
  half_float::half maximum_value{65504.0f};   ///< upper bound
};

/// Softmax along an axis.
class QRT_API SoftmaxInfo : public LayerInfo {
 public:
  SoftmaxInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  uint16_t dim = 0;  ///< axis, counting a batch: 1 is the tensor's first dim
};

/// A reduction over axes.
class QRT_API TensorArithmeticInfo : public LayerInfo {
 public:
  TensorArithmeticInfo();
  void VisitAttr(std::shared_ptr<Visitor> visitor) override;

  std::vector<int16_t> dim;  ///< axes reduced over, counting a batch
  uint16_t arith_type = 0;   ///< 0 sum, 1 mean
};

}  // namespace marlo::runtime
