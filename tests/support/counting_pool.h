#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <new>

#include "qrt_core/runtime/tensor/align_up_pool.h"
#include "qrt_core/runtime/tensor/context.h"

namespace marlo::test {

/// An `AlignUpPool` that counts its calls and can be made to fail.
class CountingPool final : public runtime::MemoryPool {
 public:
  void* Allocate(uint64_t size) override {
    ++allocations_;
    if (calls_to_failure_ != 0 && --calls_to_failure_ == 0) throw std::bad_alloc();
    void* address = pool_.Allocate(size);
    ++blocks_in_use_;
    return address;
  }

  void Free(void* address) override {
    pool_.Free(address);
    ++releases_;
    --blocks_in_use_;
  }

  void ReleaseFreeBlocks() override { pool_.ReleaseFreeBlocks(); }
  uint64_t TotalBytes() override { return pool_.TotalBytes(); }

  /// Lets the n-th call of `Allocate` from now on throw, counted from 1; 0 lets none throw.
  void fail_at(size_t call) { calls_to_failure_ = call; }

  size_t allocations() const { return allocations_; }
  size_t releases() const { return releases_; }
  size_t blocks_in_use() const { return blocks_in_use_; }

 private:
  runtime::AlignUpPool pool_;
  size_t allocations_ = 0;
  size_t releases_ = 0;
  size_t blocks_in_use_ = 0;
  size_t calls_to_failure_ = 0;
};

/// A context on two counting pools, and these.
struct CountingContext {
  std::shared_ptr<CountingPool> static_pool = std::make_shared<CountingPool>();
  std::shared_ptr<CountingPool> dynamic_pool = std::make_shared<CountingPool>();
  std::shared_ptr<runtime::Context> context = runtime::CreateContext(
      runtime::CreateDeviceCPU(runtime::DetectCPUDevice(), static_pool, nullptr, dynamic_pool),
      nullptr, nullptr, nullptr, nullptr, nullptr);

  runtime::DeviceCPU& device() const { return *context->cpu; }
};

}  // namespace marlo::test
