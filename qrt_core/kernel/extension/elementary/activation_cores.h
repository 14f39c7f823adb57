#pragma once

#include <cstddef>

namespace marlo::kernel::activation {

// Cores as those of basic/activation_cores.h.

// Multiples of 16. A NaN becomes 0, as with 4 and 8 lanes.
void relu_avx512(const float*, float*, size_t, const float*) noexcept;

}  // namespace marlo::kernel::activation
