#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "qrt_core/runtime/tensor/context.h"
#include "tests/support/hostile_pool.h"

namespace marlo::test {

/// A context whose device takes all memory from a `HostilePool`.
///
/// It must outlive the tensors and kernels that were made with it.
class TestContext {
 public:
  /// @param alignment of the tensors in bytes
  explicit TestContext(size_t alignment = 16);

  operator std::shared_ptr<runtime::Context>() const { return context_; }
  const std::shared_ptr<runtime::DeviceCPU>& device() const { return context_->cpu; }
  HostilePool& pool() { return *pool_; }

  /// A FLOAT32 tensor of `dims` in main memory that holds `values`, as many as it has elements.
  std::shared_ptr<runtime::TensorCPU> floats(std::vector<uint32_t> dims, runtime::LayoutType layout,
                                             const std::vector<float>& values);

  /// The same with a buffer that the caller owns in effect: it ends where its numbers end, and
  /// stands at an address that is a multiple of 4 bytes only.
  std::shared_ptr<runtime::TensorCPU> external_floats(std::vector<uint32_t> dims,
                                                      runtime::LayoutType layout,
                                                      const std::vector<float>& values);

 private:
  std::shared_ptr<HostilePool> pool_;
  std::shared_ptr<HostilePool> external_pool_;
  std::vector<std::shared_ptr<void>> external_blocks_;
  std::shared_ptr<runtime::Context> context_;
};

/// The elements of a FLOAT32 tensor.
std::vector<float> values_of(const runtime::Tensor& tensor);

}  // namespace marlo::test
