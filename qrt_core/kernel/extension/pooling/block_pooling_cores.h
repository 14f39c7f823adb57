#pragma once

#include "qrt_core/kernel/basic/pooling_params.h"

namespace marlo::kernel::pooling {

// Any window over blocks of 8 channels, whose margin is implied. Results are those of the portable
// cores to the bit: sums run from zero, and maxima from the lowest float, over rows and their columns.
void average_c8_avx(const PoolingTask& task) noexcept;
void maximum_c8_avx(const PoolingTask& task) noexcept;

}  // namespace marlo::kernel::pooling
