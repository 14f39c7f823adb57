#include "tests/support/hostile_pool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

namespace marlo::test {
namespace {

// In front of a block stand at least as many canaries as behind it.
constexpr size_t kInFront = 64;

using Pattern = std::array<unsigned char, sizeof(uint32_t)>;

Pattern pattern_of(uint32_t bits) {
  Pattern pattern;
  std::memcpy(pattern.data(), &bits, sizeof bits);
  return pattern;
}

void fill(unsigned char* memory, size_t size, uint32_t bits) {
  const Pattern pattern = pattern_of(bits);
  size_t filled = std::min(size, pattern.size());
  std::copy_n(pattern.begin(), filled, memory);
  for (; filled < size; filled += std::min(filled, size - filled)) {
    std::memcpy(memory + filled, memory, std::min(filled, size - filled));
  }
}

bool is_canary(const unsigned char* memory, size_t i) {
  static const Pattern pattern = pattern_of(kCanaryBits);
  return memory[i] == pattern[i % pattern.size()];
}

// Whether there are canaries only: those of one pattern, each like the one before.
bool are_canaries(const unsigned char* memory, size_t begin, size_t end) {
  constexpr size_t kPeriod = sizeof(Pattern);
  size_t i = begin;
  for (; i < end && i < begin + kPeriod; ++i) {
    if (!is_canary(memory, i)) return false;
  }
  return i == end || std::memcmp(memory + begin, memory + i, end - i) == 0;
}

// The first index from `begin` that holds no canary, or `end`.
size_t first_change(const unsigned char* memory, size_t begin, size_t end) {
  if (are_canaries(memory, begin, end)) return end;
  while (begin < end && is_canary(memory, begin)) ++begin;
  return begin;
}

// One more than the last index below `end` that holds no canary, or 0.
size_t last_change(const unsigned char* memory, size_t end) {
  if (are_canaries(memory, 0, end)) return 0;
  while (end > 0 && is_canary(memory, end - 1)) --end;
  return end;
}

}  // namespace

HostilePool::HostilePool(size_t alignment) : alignment_(alignment) {}

HostilePool::~HostilePool() {
  for (const auto& [address, block] : blocks_) {
    check(block);
    ADD_FAILURE() << "a block of " << block.size << " bytes was never freed";
  }
}

void* HostilePool::Allocate(uint64_t size) {
  ++allocations_;
  if (calls_to_failure_ != 0 && --calls_to_failure_ == 0) return nullptr;
  Block block;
  block.size = static_cast<size_t>(size);
  block.memory.resize(kInFront + 2 * alignment_ + block.size + kReadableBehind);
  unsigned char* const memory = block.memory.data();
  const auto start = reinterpret_cast<uintptr_t>(memory) + kInFront;
  uintptr_t address = (start + alignment_ - 1) / alignment_ * alignment_;
  if (address % (2 * alignment_) == 0) address += alignment_;
  block.offset = static_cast<size_t>(address - reinterpret_cast<uintptr_t>(memory));

  fill(memory, block.memory.size(), kCanaryBits);
  fill(memory + block.offset, block.size, kFreshBits);
  void* const handed_out = memory + block.offset;
  blocks_.emplace(handed_out, std::move(block));
  return handed_out;
}

void HostilePool::Free(void* address) {
  const auto found = blocks_.find(address);
  if (found == blocks_.end()) {
    ADD_FAILURE() << "an address was freed that isn't in use";
    return;
  }
  check(found->second);
  blocks_.erase(found);
}

uint64_t HostilePool::TotalBytes() {
  uint64_t bytes = 0;
  for (const auto& [address, block] : blocks_) bytes += block.size;
  return bytes;
}

void HostilePool::check() const {
  for (const auto& [address, block] : blocks_) check(block);
}

void HostilePool::check(const Block& block) {
  const unsigned char* const memory = block.memory.data();
  const size_t in_front = last_change(memory, block.offset);
  if (in_front != 0) {
    ADD_FAILURE() << "a block of " << block.size << " bytes was written at offset -"
                  << block.offset + 1 - in_front << ", in front of it";
  }
  const size_t end = block.offset + block.size;
  const size_t behind = first_change(memory, end, block.memory.size());
  if (behind != block.memory.size()) {
    ADD_FAILURE() << "a block of " << block.size << " bytes was written at offset "
                  << behind - block.offset << ", behind it";
  }
}

}  // namespace marlo::test
