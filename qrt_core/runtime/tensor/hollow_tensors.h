#pragma once

#include <memory>
#include <vector>

#include "qrt_core/runtime/tensor/device_cpu.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// Tensors of these shapes for checks, which look at shapes only: their memory must not be touched.
/// @param device what they say they belong to; no memory is asked of it
QRT_API std::vector<std::shared_ptr<Tensor>> HollowTensors(const std::vector<TensorShape>& shapes,
                                                           DeviceCPU& device);

}  // namespace marlo::runtime
