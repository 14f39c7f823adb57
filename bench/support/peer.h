#pragma once

#include <benchmark/benchmark.h>

#include <cstdint>
#include <functional>
#include <memory>

#include "qrt_core/runtime/tensor/data_type.h"
#include "tests/support/conv_case.h"
#include "tests/support/recurrent_case.h"

// The same work done by a library that the distribution packages, where it is installed: oneDNN,
// held to AVX2 and one thread.
//
//   if (const auto peer = peer_convolution(sizes, layout, layout)) {
//     report_peer(state, [&] { forward(); }, *peer);
//   }

namespace marlo::bench {

/// One prepared operation: everything but the computation itself has been done.
class Peer {
 public:
  Peer() = default;
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  virtual ~Peer() = default;

  virtual void run() = 0;
};

/// @name Operations
/// @return null where the library isn't installed or has no such operation
/// @{

/// Square windows over [channels, size, size] in blocks of 8.
std::unique_ptr<Peer> peer_pooling(bool maximum, uint32_t channels, uint32_t size, uint32_t kernel,
                                   uint32_t stride, uint32_t padding);

/// Bilinear scaling of [channels, size, size] in blocks of 8 to twice its height and width.
std::unique_ptr<Peer> peer_doubling(uint32_t channels, uint32_t size);

/// A convolution between two layouts, with its weights in the order that it likes best.
std::unique_ptr<Peer> peer_convolution(const test::ConvCase& sizes, runtime::LayoutType input,
                                       runtime::LayoutType output);

/// A transposed convolution in blocks of 8. Its sizes are in the convention of `ConvCase`.
std::unique_ptr<Peer> peer_transposed_convolution(const test::ConvCase& sizes);

/// A recurrent layer in one direction over a whole sequence; of the GRU the form whose reset gate
/// stands behind the product.
std::unique_ptr<Peer> peer_recurrent(const test::RecurrentCase& layer);

/// A product of [rows, depth] and [depth, columns].
std::unique_ptr<Peer> peer_product(uint32_t rows, uint32_t depth, uint32_t columns);
/// @}

/// Runs both by turns, and adds `name`: how often ours runs in the time that theirs takes once.
void report_turns(benchmark::State& state, const char* name, const std::function<void()>& ours,
                  const std::function<void()>& theirs);

/// The same with an operation of oneDNN, as "x oneDNN".
void report_peer(benchmark::State& state, const std::function<void()>& ours, Peer& peer);

}  // namespace marlo::bench
