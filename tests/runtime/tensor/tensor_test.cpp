#include "qrt_core/runtime/tensor/tensor.h"

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

#include "qrt_core/qrt_core.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"

namespace marlo::test {

using namespace runtime;

namespace {

class TensorTest : public ::testing::Test {
 protected:
  TensorTest() { utility::create_context(context_, 16); }

  DeviceCPU& device() { return *context_->cpu; }

  std::shared_ptr<TensorCPU> make(const std::vector<uint32_t>& dims,
                                  DataType type = DataType::FLOAT32,
                                  LayoutType layout = LayoutType::FLEXIABLE) {
    return device().CreateTensor(TensorShape(dims, type, layout), nullptr);
  }

  std::shared_ptr<Context> context_;
};

// Bytes from the start of the buffer.
std::ptrdiff_t offset_of(const TensorCPU& tensor, const void* address) {
  return static_cast<const char*>(address) - static_cast<const char*>(tensor.RawPointer());
}

TEST_F(TensorTest, StridesAreRowMajorAndCountElements) {
  EXPECT_EQ(make({2, 3, 4, 5})->strides, (std::vector<uint32_t>{60, 20, 5, 1}));
  EXPECT_EQ(make({7})->strides, (std::vector<uint32_t>{1}));
  EXPECT_EQ(make({})->strides, std::vector<uint32_t>());
  EXPECT_EQ(make({2, 3}, DataType::UINT8)->strides, (std::vector<uint32_t>{3, 1}));
}

TEST_F(TensorTest, HoldsShapeBufferAndDevice) {
  const TensorShape shape({2, 2}, DataType::INT16, LayoutType::CHW, LocationType::MainMemory,
                          TensorShape::Extra(8));
  const auto tensor = device().CreateTensor(shape, nullptr);
  EXPECT_EQ(tensor->shape, shape);
  EXPECT_EQ(tensor->RawPointer(), tensor->handle.cpu);
  EXPECT_EQ(std::as_const(*tensor).RawPointer(), tensor->handle.cpu);
  EXPECT_EQ(tensor->device, &device());
  EXPECT_EQ(tensor->shared_from_this(), tensor);
}

TEST_F(TensorTest, CanOnlyBeMadeAndEndedByTheDevice) {
  EXPECT_FALSE((std::is_constructible_v<TensorCPU, TensorShape, TensorHandle, Device*>));
  EXPECT_FALSE(std::is_destructible_v<TensorCPU>);
  EXPECT_TRUE(std::is_abstract_v<Tensor>);
}

TEST_F(TensorTest, Locate1DUsesNoStride) {
  const auto tensor = make({3, 4, 5});
  EXPECT_EQ(offset_of(*tensor, tensor->Locate1D(0)), 0);
  EXPECT_EQ(offset_of(*tensor, tensor->Locate1D(7)), 28);
}

TEST_F(TensorTest, Locate2DOnThreeDimsAddsTheSecondIndexWithoutAStride) {
  const auto tensor = make({3, 4, 5}, DataType::FLOAT32, LayoutType::CHW);
  EXPECT_EQ(offset_of(*tensor, tensor->Locate2D(1, 5)), 4 * (tensor->strides[0] + 5));
}

TEST_F(TensorTest, LocateWithIndicesOfMissingDimsIsRefused) {
  const test::LogCapture log;
  const auto none = make({});
  const auto line = make({7});
  EXPECT_EQ(offset_of(*none, none->Locate1D(0)), 0);
  EXPECT_EQ(offset_of(*line, line->Locate2D(2, 3)), 20);
  EXPECT_EQ(test::failure_of([&] { none->Locate2D(0, 0); }),
            "[QRT]: indices of 1 dims don't go with a tensor of 0\n");
  EXPECT_THROW(line->Locate3D(0, 0, 0), std::runtime_error);
  EXPECT_THROW(line->Locate4D(0, 0, 0, 0), std::runtime_error);
  EXPECT_THROW(line->Locate5D(0, 0, 0, 0, 0), std::runtime_error);
  EXPECT_THROW(line->Locate6D(0, 0, 0, 0, 0, 0), std::runtime_error);
  EXPECT_THROW(line->Locate7D(0, 0, 0, 0, 0, 0, 0), std::runtime_error);
  EXPECT_THROW(line->Locate({0, 0}), std::runtime_error);
  EXPECT_EQ(offset_of(*line, line->Locate({})), 0);
}

TEST_F(TensorTest, CopiesOfATensorWithoutABufferAreRefused) {
  const test::LogCapture log;
  const auto tensor = device().CreateTensorExternal(
      TensorShape({2, 3}, DataType::FLOAT32, LayoutType::FLEXIABLE), nullptr);
  EXPECT_EQ(test::failure_of([&] { tensor->Reshape({-1}); }),
            "[QRT]: a tensor without a buffer can't be copied\n");
  EXPECT_EQ(test::failure_of([&] {
              tensor->Permute({1, 0});
            }),
            "[QRT]: Input shared pointer is null.\n");
}

TEST_F(TensorTest, LocateNDAddressesEachElementOfNDims) {
  // One size per dimension, all different, so that mixed-up strides show.
  const auto t2 = make({3, 5});
  const auto t3 = make({3, 5, 2});
  const auto t4 = make({3, 5, 2, 4});
  const auto t5 = make({3, 5, 2, 4, 6});
  const auto t6 = make({3, 5, 2, 4, 6, 7});
  const auto t7 = make({3, 5, 2, 4, 6, 7, 8});
  EXPECT_EQ(offset_of(*t2, t2->Locate2D(2, 4)), 4 * (2 * 5 + 4));
  EXPECT_EQ(offset_of(*t3, t3->Locate3D(2, 4, 1)), 4 * ((2 * 5 + 4) * 2 + 1));
  EXPECT_EQ(offset_of(*t4, t4->Locate4D(2, 4, 1, 3)), 4 * (((2 * 5 + 4) * 2 + 1) * 4 + 3));
  EXPECT_EQ(offset_of(*t5, t5->Locate5D(2, 4, 1, 3, 5)),
            4 * ((((2 * 5 + 4) * 2 + 1) * 4 + 3) * 6 + 5));
  EXPECT_EQ(offset_of(*t6, t6->Locate6D(2, 4, 1, 3, 5, 6)),
            4 * (((((2 * 5 + 4) * 2 + 1) * 4 + 3) * 6 + 5) * 7 + 6));
  EXPECT_EQ(offset_of(*t7, t7->Locate7D(2, 4, 1, 3, 5, 6, 7)),
            4 * ((((((2 * 5 + 4) * 2 + 1) * 4 + 3) * 6 + 5) * 7 + 6) * 8 + 7));
}

TEST_F(TensorTest, LocateNDOnMoreDimsUsesTheFirstStridesAndTheLastIndexAsItIs) {
  const auto tensor = make({3, 5, 2, 4, 6, 7, 8});
  const auto& s = tensor->strides;
  EXPECT_EQ(offset_of(*tensor, tensor->Locate3D(2, 4, 1)), 4 * (2 * s[0] + 4 * s[1] + 1));
  EXPECT_EQ(offset_of(*tensor, tensor->Locate4D(2, 4, 1, 3)), 4 * (2 * s[0] + 4 * s[1] + s[2] + 3));
  EXPECT_EQ(offset_of(*tensor, tensor->Locate5D(2, 4, 1, 3, 5)),
            4 * (2 * s[0] + 4 * s[1] + s[2] + 3 * s[3] + 5));
  EXPECT_EQ(offset_of(*tensor, tensor->Locate6D(2, 4, 1, 3, 5, 6)),
            4 * (2 * s[0] + 4 * s[1] + s[2] + 3 * s[3] + 5 * s[4] + 6));
}

TEST_F(TensorTest, LocateWithAShortVectorAddressesTheStartOfASubBlock) {
  const auto tensor = make({3, 4, 5});
  EXPECT_EQ(tensor->Locate(std::vector<uint32_t>{}), tensor->RawPointer());
  EXPECT_EQ(offset_of(*tensor, tensor->Locate({2})), 4 * 40);
  EXPECT_EQ(offset_of(*tensor, tensor->Locate({2, 3})), 4 * 55);
  EXPECT_EQ(offset_of(*tensor, tensor->Locate({2, 3, 4})), 4 * 59);
}

TEST_F(TensorTest, ConstFormsGiveTheSameAddresses) {
  const auto tensor = make({2, 2, 2, 2, 2, 2, 2});
  const TensorCPU& fixed = *tensor;
  EXPECT_EQ(fixed.Locate1D(1), tensor->Locate1D(1));
  EXPECT_EQ(fixed.Locate2D(1, 1), tensor->Locate2D(1, 1));
  EXPECT_EQ(fixed.Locate3D(1, 0, 1), tensor->Locate3D(1, 0, 1));
  EXPECT_EQ(fixed.Locate4D(1, 0, 1, 1), tensor->Locate4D(1, 0, 1, 1));
  EXPECT_EQ(fixed.Locate5D(1, 0, 1, 1, 0), tensor->Locate5D(1, 0, 1, 1, 0));
  EXPECT_EQ(fixed.Locate6D(1, 0, 1, 1, 0, 1), tensor->Locate6D(1, 0, 1, 1, 0, 1));
  EXPECT_EQ(fixed.Locate7D(1, 0, 1, 1, 0, 1, 1), tensor->Locate7D(1, 0, 1, 1, 0, 1, 1));
  EXPECT_EQ(fixed.Locate({1, 0, 1}), tensor->Locate({1, 0, 1}));
  EXPECT_TRUE((std::is_same_v<decltype(fixed.Locate2D(0, 0)), const void*>));
  EXPECT_TRUE((std::is_same_v<decltype(tensor->Locate2D(0, 0)), void*>));
}

TEST_F(TensorTest, OffsetsAreInUnitsOfTheElementSize) {
  for (const auto& [type, bytes] : {std::pair(DataType::FLOAT16, 2), std::pair(DataType::UINT8, 1),
                                    std::pair(DataType::INT32, 4)}) {
    const auto tensor = make({3, 4}, type);
    EXPECT_EQ(offset_of(*tensor, tensor->Locate2D(2, 3)), 11 * bytes);
    EXPECT_EQ(offset_of(*tensor, tensor->Locate({2, 3})), 11 * bytes);
  }
}

TEST_F(TensorTest, LocateOnAnUnknownDataTypeGivesTheBufferAddress) {
  const auto tensor = make({3, 4}, static_cast<DataType>(99));
  EXPECT_EQ(tensor->Locate2D(2, 3), tensor->RawPointer());
  EXPECT_EQ(tensor->Locate({1}), tensor->RawPointer());
}

TEST_F(TensorTest, OffsetsWrapAt32Bits) {
  float buffer[2] = {};
  const auto tensor = device().CreateTensorExternal(
      TensorShape({2, 0x80000000}, DataType::FLOAT32, LayoutType::FLEXIABLE), buffer);
  EXPECT_EQ(tensor->Locate2D(2, 1), buffer + 1);
  EXPECT_EQ(tensor->Locate1D(0x40000001), buffer + 1);
}

TEST_F(TensorTest, BlockedLayoutsHoldChannelCAtBlockCOverTheBlockSize) {
  for (const uint32_t block : {4u, 8u}) {
    const uint32_t channels = 3 * block;
    const uint32_t height = 2;
    const uint32_t width = 5;
    const auto tensor = make({channels / block, height, width, block}, DataType::FLOAT32,
                             block == 4 ? LayoutType::C4HW4 : LayoutType::C8HW8);
    for (uint32_t c = 0; c < channels; ++c) {
      for (uint32_t h = 0; h < height; ++h) {
        for (uint32_t w = 0; w < width; ++w) {
          const uint32_t element =
              ((c / block) * height + h) * width * block + w * block + c % block;
          EXPECT_EQ(offset_of(*tensor, tensor->Locate4D(c / block, h, w, c % block)), 4 * element);
        }
      }
    }
  }
}

}  // namespace
}  // namespace marlo::test
