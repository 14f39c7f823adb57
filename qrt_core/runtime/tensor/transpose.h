#pragma once

#include <cstddef>
#include <vector>

namespace marlo::runtime {

/// An axis of a transposition.
struct TransposeAxis {
  size_t size;         ///< in elements
  size_t source_step;  ///< bytes from one element to the next
  size_t target_step;  ///< the same in the target
};

/// Copies the elements of all indices of `axes`, which stand in the order of the target: its last
/// axis is contiguous. Planes of the source's and the target's contiguous axes are copied in tiles,
/// so that both sides use the lines of a cache whole.
void transpose(const void* source, std::vector<TransposeAxis> axes, size_t element_size,
               void* target);

}  // namespace marlo::runtime
