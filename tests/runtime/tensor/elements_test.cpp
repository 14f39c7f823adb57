#include "qrt_core/runtime/tensor/elements.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <type_traits>
#include <vector>

#include "qrt_core/runtime/tensor/align_up_pool.h"
#include "qrt_core/runtime/tensor/device_cpu.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"

namespace marlo::test {

using namespace runtime;

namespace {

using ::testing::ElementsAre;

class ElementsTest : public ::testing::Test {
 protected:
  std::shared_ptr<TensorCPU> external(std::vector<uint32_t> dims, DataType type, void* data,
                                      LocationType where = LocationType::MainMemory) {
    return device_->CreateTensorExternal(
        TensorShape(std::move(dims), type, LayoutType::FLEXIABLE, where), data);
  }

  test::LogCapture log_;
  std::shared_ptr<DeviceCPU> device_ =
      CreateDeviceCPU(DetectCPUDevice(), std::make_shared<AlignUpPool>(), nullptr, nullptr);
};

TEST_F(ElementsTest, StandInTheOrderOfMemory) {
  const float numbers[] = {1, 2, 3, 4, 5, 6};
  const auto tensor = device_->CreateF32CHWMainMem({1, 2, 3}, numbers);
  EXPECT_THAT(elements<float>(*tensor), ElementsAre(1, 2, 3, 4, 5, 6));
  EXPECT_EQ(elements<float>(*tensor).data(), tensor->RawPointer());
  EXPECT_EQ(elements<float>(*tensor)[4], 5.0f);
}

TEST_F(ElementsTest, AreWrittenInAnyFormOfTheTensor) {
  const std::shared_ptr<TensorCPU> tensor = device_->CreateZeroF32CMainMem(3);
  const std::shared_ptr<Tensor> base = tensor;
  elements<float>(*tensor)[0] = 1;
  elements<float>(*base)[1] = 2;
  elements<float>(base)[2] = 3;
  EXPECT_THAT(elements<float>(tensor), ElementsAre(1, 2, 3));
}

TEST_F(ElementsTest, OfAConstTensorAreConst) {
  const std::shared_ptr<TensorCPU> tensor = device_->CreateZeroF32CMainMem(3);
  const std::shared_ptr<const Tensor> fixed = tensor;
  static_assert(std::is_same_v<decltype(elements<float>(*fixed)), Elements<const float>>);
  static_assert(std::is_same_v<decltype(elements<float>(fixed)), Elements<const float>>);
  static_assert(std::is_same_v<decltype(elements<const float>(tensor)), Elements<const float>>);
  static_assert(std::is_same_v<decltype(elements<float>(tensor)), Elements<float>>);
  EXPECT_EQ(elements<float>(fixed).size(), 3u);
}

template <typename T>
class ElementTypes : public ElementsTest {};
using Types = ::testing::Types<float, half_float::half, int32_t, int16_t, int8_t, uint32_t,
                               uint16_t, uint8_t>;
TYPED_TEST_SUITE(ElementTypes, Types);

TYPED_TEST(ElementTypes, AreThoseOfTheDataTypeAndOfNoOther) {
  TypeParam storage[6] = {};
  for (uint32_t code = 0; code < 8; ++code) {
    const auto type = static_cast<DataType>(code);
    const auto tensor = this->external({2, 3}, type, storage);
    if (type == DataTypeOf<TypeParam>()) {
      EXPECT_EQ(elements<TypeParam>(*tensor).size(), 6u);
      EXPECT_EQ(sizeof(TypeParam), ElementSize(type));
    } else {
      EXPECT_EQ(failure_of([&] { (void)elements<TypeParam>(*tensor); }),
                std::string("[QRT]: the tensor has elements of ") + PrintedName(type) +
                    ", not of " + PrintedName(DataTypeOf<TypeParam>()) + "\n");
    }
  }
}

TEST_F(ElementsTest, OfAShapeWithoutDimsAreOneAndOfAnEmptyOneNone) {
  float number = 7;
  EXPECT_THAT(elements<float>(*external({}, DataType::FLOAT32, &number)), ElementsAre(7));
  const auto none = elements<float>(*external({3, 0}, DataType::FLOAT32, nullptr));
  EXPECT_TRUE(none.empty());
  EXPECT_EQ(none.begin(), none.end());
}

TEST_F(ElementsTest, AreCountedBeyond32Bits) {
  uint8_t first = 0;
  const auto tensor = external({1u << 20, 1u << 20}, DataType::UINT8, &first);
  EXPECT_EQ(elements<uint8_t>(*tensor).size(), size_t{1} << 40);
}

TEST_F(ElementsTest, OfATensorThatCantBeReadHereThrow) {
  float number = 0;
  const std::shared_ptr<Tensor> nothing;
  EXPECT_EQ(failure_of([&] { (void)elements<float>(nothing); }),
            "[QRT]: there is no tensor to take elements from\n");
  EXPECT_EQ(failure_of([&] {
              (void)elements<float>(
                  *external({1}, DataType::FLOAT32, &number, LocationType::MetalBuffer));
            }),
            "[QRT]: the tensor is not in main memory\n");
  EXPECT_EQ(failure_of([&] { (void)elements<float>(*external({1}, DataType::FLOAT32, nullptr)); }),
            "[QRT]: the tensor has no buffer\n");
  EXPECT_EQ(failure_of(
                [&] { (void)elements<float>(*external({1}, static_cast<DataType>(99), &number)); }),
            "[QRT]: the tensor has elements of an unknown type, not of FLOAT32\n");
}

}  // namespace
}  // namespace marlo::test
