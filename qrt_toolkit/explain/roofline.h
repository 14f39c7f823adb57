#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "qrt_core/utility/export.h"
#include "qrt_toolkit/explain/machine.h"

// How near to the machine's limit a kernel runs.

namespace marlo::toolkit {

/// What one kernel does in a pass. Plain data.
struct KernelWork {
  uint64_t multiply_adds = 0;  ///< of the layer's definition, however the kernel gets there
  uint64_t read = 0;           ///< bytes of the tensors that it reads
  uint64_t written = 0;        ///< bytes of the tensors that it makes
  uint64_t weights = 0;        ///< bytes of its weights, as floats
};

/// What holds a kernel back.
enum class Bound : uint8_t {
  none,        ///< it has nothing to do
  arithmetic,  ///< products and sums
  memory,      ///< loads and stores
};

/// A kernel against the machine's limit (Williams, Waterman, Patterson: Roofline, CACM 52, 2009).
/// Plain data.
struct Roofline {
  double gigaflops = 0;       ///< two operations for each multiply-add
  double gigabytes = 0;       ///< a second, of tensors and weights
  double intensity = 0;       ///< operations a byte; 0 without bytes
  double arithmetic_ms = 0;   ///< that the multiply-adds take at the peak of the instructions
  double tensors_ms = 0;      ///< that the tensors' bytes take at the bandwidth of where they lie
  double weights_ms = 0;      ///< the same of the weights
  double limit_ms = 0;        ///< arithmetic or all bytes, whichever takes longer
  double share = 0;           ///< of the limit that is reached: `limit_ms` over the time
  Bound bound = Bound::none;  ///< which of the two it is
  KernelSet set = KernelSet::portable;  ///< whose peak and bandwidths are the limit
  size_t tensor_level = 0;              ///< of the machine's levels: where the tensors lie
  size_t weight_level = 0;              ///< the same of the weights
};

/// Compares a kernel's time with the limit.
///
/// Tensors were made by the layer before, so they lie in the nearest level that holds them; weights
/// were read a pass ago, so they lie where all that a pass touches has room. As much as is written
/// moves at the rate of a copy, and what is only read at that of reading.
///
/// @param ms the time; none that is 0 or below has rates or a share
/// @param pass_bytes all that a pass touches
/// @param set whose peak is the limit; see `limiting_set`
QRT_API Roofline roofline_of(const KernelWork& work, double ms, uint64_t pass_bytes, KernelSet set,
                             const MachineLimits& machine);

/// What the limit is, in a word: the set of the peak, "avx512", or the level of memory, "L2", of the
/// tensors or of the weights, whichever takes longer to move; empty without a limit.
QRT_API std::string limit_name(const Roofline& roofline, const MachineLimits& machine);

}  // namespace marlo::toolkit
