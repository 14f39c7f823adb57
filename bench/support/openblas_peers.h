#pragma once

#include <cstddef>
#include <optional>

#include "bench/support/peer.h"

// Products of OpenBLAS on one thread. There is none where the library isn't installed.

namespace marlo::bench {

/// C = A * B, with A of [rows, inner] and B of [inner, columns].
std::optional<Peer> openblas_product(size_t rows, size_t inner, size_t columns);

/// y = A * x + y, with A of [rows, columns], which must outlive the peer.
std::optional<Peer> openblas_vector_product(const float* matrix, size_t rows, size_t columns);

}  // namespace marlo::bench
