#pragma once

#include <cstring>
#include <memory>

#include "qrt_core/kernel/recurrent/recurrent_steps.h"
#include "qrt_core/runtime/model/recurrent_info.h"
#include "qrt_core/runtime/tensor/tensor.h"

namespace marlo::kernel::recurrent {

/// What `CheckConfig` of recurrent kernels returns beside 0 and -1.
enum RecurrentVerdict : int {
  OTHER_CLASS = -2,
  NO_INPUTS = -3,
  NO_HIDDEN_SIZE = -4,
  CELL_ACTIVATION = -5,
  NO_LAYERS = -5,
  SEQUENCE_ACTIVATION = -6,
};

/// The function of an activation; null if it is none that recurrent layers have.
inline Activation activation_of(const runtime::RecurrentActivation& activation) {
  switch (activation.activation_type) {
    case 2:
      return rectify;
    case 5:
      return hyperbolic_tangent;
    default:
      return nullptr;
  }
}

/// Begins a state anew, if there is one.
inline void fill_with_zeros(const std::shared_ptr<runtime::TensorCPU>& state) {
  if (state != nullptr) std::memset(state->RawPointer(), 0, runtime::ByteSize(state->shape));
}

/// Whether a description's activation, if the network has any, can run.
inline bool is_runnable(const runtime::RecurrentActivation* activation) {
  return activation == nullptr || activation_of(*activation) != nullptr;
}

}  // namespace marlo::kernel::recurrent
