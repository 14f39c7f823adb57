#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <functional>
#include <numeric>

#include "qrt_core/qrt_core.h"

namespace marlo::test {

using namespace runtime;

namespace {

using Dims = std::vector<unsigned int>;
using Made = std::shared_ptr<TensorCPU>;

constexpr uint32_t kBytes = 4 * 2 * 3 * 4;

class FactoryTest : public ::testing::Test {
 protected:
  FactoryTest() {
    utility::create_context(context_, 16);
    std::iota(std::begin(data_), std::end(data_), static_cast<unsigned char>(1));
  }

  DeviceCPU& device() { return *context_->cpu; }

  void expect_copy(const Made& tensor, const TensorShape& shape) {
    EXPECT_EQ(tensor->shape, shape);
    EXPECT_NE(tensor->RawPointer(), data_);
    EXPECT_EQ(std::memcmp(tensor->RawPointer(), data_, ByteSize(shape)), 0);
    EXPECT_EQ(shape.location, LocationType::MainMemory);
    EXPECT_EQ(shape.extra.step_size, 0);
  }

  void expect_external(const Made& tensor, const TensorShape& shape) {
    EXPECT_EQ(tensor->shape, shape);
    EXPECT_EQ(tensor->RawPointer(), data_);
  }

  // Bytes that no fresh buffer holds by chance, at the block that the next tensor gets.
  void dirty_next_block() {
    auto tensor = device().CreateF32CHWMainMem({2, 3, 4}, data_);
    std::memset(tensor->RawPointer(), 0xAB, ByteSize(tensor->shape));
  }

  bool is_zero(const Made& tensor) {
    const auto* bytes = static_cast<const unsigned char*>(tensor->RawPointer());
    return std::all_of(bytes, bytes + ByteSize(tensor->shape), [](int byte) { return byte == 0; });
  }

  std::shared_ptr<Context> context_;
  unsigned char data_[kBytes];
};

TEST_F(FactoryTest, OverDimsHaveTheTypeAndLayoutOfTheTable) {
  const Dims dims = {2, 3, 4};
  using Factory = Made (DeviceCPU::*)(const Dims&, const void*);
  const struct {
    Factory make;
    DataType type;
    LayoutType layout;
  } rows[] = {
      {&DeviceCPU::CreateF32CHWMainMem, DataType::FLOAT32, LayoutType::CHW},
      {&DeviceCPU::CreateF16CHWMainMem, DataType::FLOAT16, LayoutType::CHW},
      {&DeviceCPU::CreateF16C4HW4MainMem, DataType::FLOAT16, LayoutType::C4HW4},
      {&DeviceCPU::CreateF16C8HW8MainMem, DataType::FLOAT16, LayoutType::C8HW8},
      {&DeviceCPU::CreateF32FlexiableMainMemory, DataType::FLOAT32, LayoutType::FLEXIABLE},
      {&DeviceCPU::CreateF16FlexiableMainMemory, DataType::FLOAT16, LayoutType::FLEXIABLE},
      {&DeviceCPU::CreateS16CHWMainMem, DataType::INT16, LayoutType::CHW},
      {&DeviceCPU::CreateU8CHWMainMem, DataType::UINT8, LayoutType::CHW},
      {&DeviceCPU::CreateU8HWCMainMem, DataType::UINT8, LayoutType::HWC},
  };
  for (const auto& row : rows) {
    expect_copy((device().*row.make)(dims, data_), TensorShape(dims, row.type, row.layout));
  }
}

TEST_F(FactoryTest, ExternalOverDimsUseTheCallersBuffer) {
  const Dims dims = {2, 3, 4};
  using Factory = Made (DeviceCPU::*)(const Dims&, void*);
  const struct {
    Factory make;
    DataType type;
    LayoutType layout;
  } rows[] = {
      {&DeviceCPU::CreateF32CHWMainMemExternal, DataType::FLOAT32, LayoutType::CHW},
      {&DeviceCPU::CreateF32FlexiableMainMemExternal, DataType::FLOAT32, LayoutType::FLEXIABLE},
      {&DeviceCPU::CreateF16FlexiableMainMemExternal, DataType::FLOAT16, LayoutType::FLEXIABLE},
      {&DeviceCPU::CreateS16CHWMainMemExternal, DataType::INT16, LayoutType::CHW},
      {&DeviceCPU::CreateU8CHWMainMemExternal, DataType::UINT8, LayoutType::CHW},
      {&DeviceCPU::CreateU8HWCMainMemExternal, DataType::UINT8, LayoutType::HWC},
  };
  for (const auto& row : rows) {
    expect_external((device().*row.make)(dims, data_), TensorShape(dims, row.type, row.layout));
  }
}

TEST_F(FactoryTest, OneDimensionalTensorsHaveLayoutC) {
  expect_copy(device().CreateF32CMainMemory(5, data_),
              TensorShape({5}, DataType::FLOAT32, LayoutType::C));
  expect_copy(device().CreateF16CMainMemory(5, data_),
              TensorShape({5}, DataType::FLOAT16, LayoutType::C));
  expect_external(device().CreateF32CMainMemExternal(5, data_),
                  TensorShape({5}, DataType::FLOAT32, LayoutType::C));
}

TEST_F(FactoryTest, ZeroFilledTensorsAreClear) {
  const struct {
    std::function<Made()> make;
    TensorShape shape;
  } rows[] = {
      {[&] { return device().CreateZeroF32CMainMem(7); },
       TensorShape({7}, DataType::FLOAT32, LayoutType::C)},
      {[&] { return device().CreateZeroF16CMainMem(7); },
       TensorShape({7}, DataType::FLOAT16, LayoutType::C)},
      {[&] { return device().CreateZeroF32CHWMainMem(2, 3, 4); },
       TensorShape({2, 3, 4}, DataType::FLOAT32, LayoutType::CHW)},
      {[&] {
         return device().CreateZeroF32FlexiableMainMem({3, 4});
       },
       TensorShape({3, 4}, DataType::FLOAT32, LayoutType::FLEXIABLE)},
      {[&] {
         return device().CreateZeroF16FlexiableMainMem({3, 4});
       },
       TensorShape({3, 4}, DataType::FLOAT16, LayoutType::FLEXIABLE)},
  };
  for (const auto& row : rows) {
    dirty_next_block();
    const auto tensor = row.make();
    EXPECT_EQ(tensor->shape, row.shape);
    EXPECT_TRUE(is_zero(tensor));
  }
}

TEST_F(FactoryTest, NullDataLeavesTheBufferUnsetAndCreateZeroClearsIt) {
  dirty_next_block();
  {
    const auto unset = device().CreateF32CHWMainMem({2, 3, 4}, nullptr);
    const auto* bytes = static_cast<const unsigned char*>(unset->RawPointer());
    EXPECT_EQ(bytes[0], 0xAB);
    EXPECT_EQ(bytes[kBytes - 1], 0xAB);
  }
  EXPECT_TRUE(is_zero(device().CreateZeroF32CHWMainMem(2, 3, 4)));
}

TEST_F(FactoryTest, PicturesHaveTheDimsOfTheirFormat) {
  using Plain = Made (DeviceCPU::*)(const unsigned int&, const unsigned int&, const void*);
  using External = Made (DeviceCPU::*)(const unsigned int&, const unsigned int&, void*);
  const struct {
    Plain plain;
    External external;
    uint32_t channels;
  } rows[] = {
      {&DeviceCPU::CreateBGR888Tensor, &DeviceCPU::CreateBGR888TensorExternal, 3},
      {&DeviceCPU::CreateRGB888Tensor, &DeviceCPU::CreateRGB888TensorExternal, 3},
      {&DeviceCPU::CreateBGRA8888Tensor, &DeviceCPU::CreateBGRA8888TensorExternal, 4},
      {&DeviceCPU::CreateRGBA8888Tensor, &DeviceCPU::CreateRGBA8888TensorExternal, 4},
      {&DeviceCPU::CreateGray8Tensor, &DeviceCPU::CreateGray8TensorExternal, 1},
      {&DeviceCPU::CreateYPlane8BitTensor, &DeviceCPU::CreateYPlane8BitTensorExternal, 1},
      {&DeviceCPU::CreateUVPlane8BitTensor, &DeviceCPU::CreateUVPlane8BitTensorExternal, 2},
  };
  for (const auto& row : rows) {
    const TensorShape shape({5, 3, row.channels}, DataType::UINT8, LayoutType::HWC);
    expect_copy((device().*row.plain)(5, 3, data_), shape);
    expect_external((device().*row.external)(5, 3, data_), shape);
  }
}

TEST_F(FactoryTest, PlanarPicturesHaveThreePlanes) {
  const TensorShape shape({3, 5, 4}, DataType::UINT8, LayoutType::CHW);
  expect_copy(device().CreateBGRUInt8CHWTensor(5, 4, data_), shape);
  expect_copy(device().CreateRGBUInt8CHWTensor(5, 4, data_), shape);
  expect_external(device().CreateBGRUInt8CHWTensorExternal(5, 4, data_), shape);
  expect_external(device().CreateRGBUInt8CHWTensorExternal(5, 4, data_), shape);
}

TEST_F(FactoryTest, BgrAndRgbFormsGiveEqualShapes) {
  EXPECT_EQ(device().CreateBGR888Tensor(6, 2, data_)->shape,
            device().CreateRGB888Tensor(6, 2, data_)->shape);
  EXPECT_EQ(device().CreateBGRA8888Tensor(6, 2, data_)->shape,
            device().CreateRGBA8888Tensor(6, 2, data_)->shape);
  EXPECT_EQ(device().CreateBGRUInt8CHWTensor(6, 2, data_)->shape,
            device().CreateRGBUInt8CHWTensor(6, 2, data_)->shape);
}

TEST_F(FactoryTest, DrawFromTheDynamicPoolInDynamicMode) {
  device().dynamic_mode = true;
  const auto tensor = device().CreateZeroF32CMainMem(4);
  EXPECT_GT(device().dynamic_pool->TotalBytes(), 0u);
  EXPECT_EQ(device().static_pool->TotalBytes(), 0u);
}

}  // namespace
}  // namespace marlo::test
