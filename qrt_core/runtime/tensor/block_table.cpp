#include "qrt_core/runtime/tensor/block_table.h"

#include <utility>

namespace marlo::runtime {

void BlockTable::add(void* address, uint64_t size) {
  // Room for the block's return, and for its next use, is made now: neither can fail half-way.
  const std::size_t blocks = free_.size() + used_.size() + 1;
  if (free_.capacity() < blocks) free_.reserve(2 * blocks);
  if (spare_nodes_.capacity() < blocks) spare_nodes_.reserve(2 * blocks);
  used_.reserve(blocks);
  used_.emplace(address, size);
}

void* BlockTable::reuse(std::size_t index) {
  const FreeBlock block = free_[index];
  auto node = std::move(spare_nodes_.back());
  node.key() = block.address;
  node.mapped() = block.size;
  used_.insert(std::move(node));
  spare_nodes_.pop_back();
  free_[index] = free_.back();
  free_.pop_back();
  return block.address;
}

bool BlockTable::release(void* address) {
  auto node = used_.extract(address);
  if (node.empty()) return false;
  free_.push_back({node.mapped(), address});
  spare_nodes_.push_back(std::move(node));
  return true;
}

uint64_t BlockTable::total_bytes() const {
  uint64_t total = 0;
  for (const FreeBlock& block : free_) total += block.size;
  for (const auto& [address, size] : used_) total += size;
  return total;
}

}  // namespace marlo::runtime
