#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_map>

#include "qrt_core/runtime/tensor/memory_pool.h"

namespace marlo::test {

/// Bits of the quiet NaNs that a fresh block is filled with: memory that was never written shows in
/// every result that it reaches.
constexpr uint32_t kFreshBits = 0x7FC0DEAD;

/// Bits of the quiet NaNs that stand around a block.
constexpr uint32_t kCanaryBits = 0x7FC0CA9A;

/// Pages of which the last can be neither read nor written. They are handed on when they aren't
/// needed any more, since the system takes its time to make them.
class GuardedPages {
 public:
  /// @param bytes in front of the last page
  explicit GuardedPages(size_t bytes);
  GuardedPages(GuardedPages&& other) noexcept;
  GuardedPages& operator=(GuardedPages&&) = delete;
  GuardedPages(const GuardedPages&) = delete;
  GuardedPages& operator=(const GuardedPages&) = delete;
  ~GuardedPages();

  unsigned char* begin() const { return begin_; }
  /// Where the page without access begins.
  unsigned char* end() const { return begin_ + size_; }

 private:
  unsigned char* begin_;
  size_t size_;
};

/// A pool that makes life hard for kernels.
///
/// Each block is filled with NaNs and gives exactly what was asked for: right behind it, or as
/// close as its alignment allows, a page without access ends the program that touches it. Where the
/// size would make a block aligned to more than `alignment`, every other one is moved away from the
/// page instead, so that it is aligned to nothing more. Canaries stand in front of it and up to the
/// page; they are checked when the block comes back and when the pool ends. Under AddressSanitizer
/// what is around a block can't be read either, to the byte. An overrun, a block that never comes
/// back and one that comes back twice are failures of the running test.
class HostilePool final : public runtime::MemoryPool {
 public:
  /// @param alignment of the blocks in bytes: a power of two of 4 or more
  explicit HostilePool(size_t alignment = 16);
  HostilePool(const HostilePool&) = delete;
  HostilePool& operator=(const HostilePool&) = delete;
  ~HostilePool() override;

  /// @return null for the call that `fail_at` chose
  void* Allocate(uint64_t size) override;
  void Free(void* address) override;
  void ReleaseFreeBlocks() override {}

  /// Bytes that were asked for and are in use.
  uint64_t TotalBytes() override;

  /// Lets the n-th call of `Allocate` from now on fail, counted from 1; 0 lets none fail.
  void fail_at(size_t call) { calls_to_failure_ = call; }

  /// Whether the call that `fail_at` chose hasn't come yet.
  bool failure_is_pending() const { return calls_to_failure_ != 0; }

  size_t allocations() const { return allocations_; }
  size_t blocks_in_use() const { return blocks_.size(); }

  /// Checks the canaries of all blocks in use.
  void check() const;

 private:
  struct Block {
    GuardedPages pages;
    unsigned char* start;
    size_t size;

    unsigned char* end() const { return start + size; }
  };

  static void check(const Block& block);
  static void refuse_access(const Block& block);

  size_t alignment_;
  size_t allocations_ = 0;
  size_t calls_to_failure_ = 0;
  std::unordered_map<void*, Block> blocks_;
};

}  // namespace marlo::test
