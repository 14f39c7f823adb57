#pragma once

#include <cstdint>
#include <vector>

#include "qrt_core/runtime/tensor/data_type.h"

// Between planes, in which data and oracles are, and the layouts of kernels.

namespace marlo::test {

/// Dims of a tensor of planes [channels, ...] in a layout: blocked forms round the channels up and
/// have the block as their last dim.
std::vector<uint32_t> dims_in_layout(std::vector<uint32_t> planar, runtime::LayoutType layout);

/// The elements of [channels, pixels] in a layout; what fills up the last block is `filler`.
std::vector<float> to_layout(const std::vector<float>& planes, uint32_t channels,
                             runtime::LayoutType layout, float filler = 0.0f);

/// The elements of [channels, pixels] from a layout; what fills up the last block is left out.
std::vector<float> from_layout(const std::vector<float>& elements, uint32_t channels,
                               runtime::LayoutType layout);

}  // namespace marlo::test
