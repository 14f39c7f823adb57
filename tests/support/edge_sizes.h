#pragma once

#include <cstddef>
#include <set>
#include <vector>

namespace marlo::test {

/// The sizes at which a loop over blocks of `block` elements can go wrong: none, one, one less and
/// one more than a block, several blocks with and without a rest.
inline std::vector<size_t> edge_sizes(size_t block) {
  std::set<size_t> sizes{0, 1, block - 1, block, block + 1, 2 * block, 3 * block + 1};
  return {sizes.begin(), sizes.end()};
}

/// The edges of several blocks together.
inline std::vector<size_t> edge_sizes(const std::vector<size_t>& blocks) {
  std::set<size_t> sizes;
  for (const size_t block : blocks) {
    for (const size_t size : edge_sizes(block)) sizes.insert(size);
  }
  return {sizes.begin(), sizes.end()};
}

}  // namespace marlo::test
