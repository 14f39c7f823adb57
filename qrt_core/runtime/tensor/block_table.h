#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>
#include <vector>

namespace marlo::runtime {

/// The book-keeping of a pool: which blocks are free, and which are in use.
///
/// A block keeps its size for life. The nodes of the in-use table are kept with the free blocks, so
/// that recycling a block calls no allocator.
///
/// It belongs to its pool, and with it to one thread at a time.
class BlockTable {
 public:
  /// A block that waits to be used again.
  struct FreeBlock {
    uint64_t size;  ///< in bytes
    void* address;  ///< of its first byte
  };

  /// Free blocks, unsorted, the last freed at the end.
  const std::vector<FreeBlock>& free_blocks() const { return free_; }

  /// Addresses and sizes of the blocks in use.
  const std::unordered_map<void*, uint64_t>& used_blocks() const { return used_; }

  /// Enters a new block as in use. Of all functions that change the table only this one takes
  /// memory.
  /// @throws std::bad_alloc; the table is then as before
  void add(void* address, uint64_t size);

  /// Moves the free block at `index` to the blocks in use. @return its address
  void* reuse(std::size_t index);

  /// Moves a block in use to the end of the free ones. @return false if it isn't in use
  bool release(void* address);

  /// Drops a block in use without keeping it. @return false if it isn't in use
  bool forget(void* address) { return used_.erase(address) != 0; }

  /// Empties the list of free blocks, each of which is handed to `give_back` by its address. The
  /// list keeps its room, because blocks in use come back to it.
  template <typename GiveBack>
  void release_free_blocks(GiveBack give_back) {
    for (const FreeBlock& block : free_) give_back(block.address);
    free_.clear();
    spare_nodes_.clear();
  }

  /// Bytes of all blocks.
  uint64_t total_bytes() const;

 private:
  using UsedBlocks = std::unordered_map<void*, uint64_t>;

  std::vector<FreeBlock> free_;
  UsedBlocks used_;
  std::vector<UsedBlocks::node_type> spare_nodes_;
};

}  // namespace marlo::runtime
