#pragma once

#include <cstdint>
#include <optional>

#include "bench/support/peer.h"
#include "tests/support/conv_case.h"
#include "tests/support/recurrent_case.h"

// Operations of oneDNN on one thread, held to AVX2, or to what its own variable DNNL_MAX_CPU_ISA
// says where that is set. There is none where the library isn't installed, or where it has no such
// operation.

namespace marlo::bench {

/// Square windows over [channels, size, size] in blocks of 8.
std::optional<Peer> onednn_pooling(bool maximum, uint32_t channels, uint32_t size, uint32_t kernel,
                                   uint32_t stride, uint32_t padding);

/// Bilinear scaling of [channels, size, size] in blocks of 8 to twice its height and width.
std::optional<Peer> onednn_doubling(uint32_t channels, uint32_t size);

/// A convolution over planes or lines, in the layouts that it likes best.
std::optional<Peer> onednn_convolution(const test::ConvCase& sizes);

/// A transposed convolution in blocks of 8. Its sizes are in the convention of `ConvCase`.
std::optional<Peer> onednn_transposed_convolution(const test::ConvCase& sizes);

/// A recurrent layer in one direction over a whole sequence; of the GRU the form whose reset gate
/// stands behind the product.
std::optional<Peer> onednn_recurrent(const test::RecurrentCase& layer);

}  // namespace marlo::bench
