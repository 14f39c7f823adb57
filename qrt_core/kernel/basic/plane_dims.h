#pragma once

#include <cstdint>
#include <vector>

#include "qrt_core/runtime/tensor/tensor_shape.h"

// The dims of planes and of pixels in blocks, as kernels over rows and columns take them.

namespace marlo::kernel {

class Expectations;

/// Whether dims are [C, H, W], or [C / block, H, W, block] of a block of several channels.
inline bool has_plane_dims(const std::vector<uint32_t>& dims, uint32_t block) {
  return block == 1 ? dims.size() == 3 : dims.size() == 4 && dims[3] == block;
}

/// Notes a first input that hasn't.
void expect_plane_dims(const runtime::TensorShape& input, uint32_t block, Expectations& expected);

}  // namespace marlo::kernel
