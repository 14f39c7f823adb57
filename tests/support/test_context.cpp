#include "tests/support/test_context.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace marlo::test {

using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorCPU;
using runtime::TensorShape;

TestContext::TestContext(size_t alignment)
    : pool_(std::make_shared<HostilePool>(alignment)),
      external_pool_(std::make_shared<HostilePool>(4)) {
  auto device = runtime::CreateDeviceCPU(runtime::CPUDeviceDesc(), pool_, nullptr, nullptr);
  context_ = runtime::CreateContext(std::move(device), nullptr, nullptr, nullptr, nullptr, nullptr);
}

std::shared_ptr<TensorCPU> TestContext::floats(std::vector<uint32_t> dims, LayoutType layout,
                                               const std::vector<float>& values) {
  TensorShape shape(std::move(dims), DataType::FLOAT32, layout);
  EXPECT_EQ(runtime::ElementCount(shape), values.size());
  return device()->CreateTensor(std::move(shape), values.data());
}

std::shared_ptr<TensorCPU> TestContext::external_floats(std::vector<uint32_t> dims,
                                                        LayoutType layout,
                                                        const std::vector<float>& values) {
  TensorShape shape(std::move(dims), DataType::FLOAT32, layout);
  EXPECT_EQ(runtime::ElementCount(shape), values.size());
  auto* block = static_cast<float*>(external_pool_->Allocate(values.size() * sizeof(float)));
  external_blocks_.emplace_back(block,
                                [pool = external_pool_](void* address) { pool->Free(address); });
  std::copy(values.begin(), values.end(), block);
  return device()->CreateTensorExternal(std::move(shape), block);
}

std::vector<float> values_of(const runtime::Tensor& tensor) {
  EXPECT_EQ(tensor.shape.data_type, DataType::FLOAT32);
  const auto* first = static_cast<const float*>(tensor.handle.cpu);
  return std::vector<float>(first, first + runtime::ElementCount(tensor.shape));
}

}  // namespace marlo::test
