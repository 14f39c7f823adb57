#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <limits>
#include <numeric>

#include "qrt_core/qrt_core.h"
#include "tests/support/kernels.h"
#include "tests/support/log_capture.h"

namespace marlo::test {

using namespace runtime;

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ReshapeTest : public ::testing::Test {
 protected:
  ReshapeTest() { utility::create_context(context_, 16); }

  // Elements 0, 1, 2, ...
  std::shared_ptr<TensorCPU> counted(const std::vector<uint32_t>& dims,
                                     LayoutType layout = LayoutType::CHW) {
    auto tensor =
        context_->cpu->CreateTensor(TensorShape(dims, DataType::FLOAT32, layout), nullptr);
    auto* numbers = static_cast<float*>(tensor->RawPointer());
    std::iota(numbers, numbers + ElementCount(tensor->shape), 0.0f);
    return tensor;
  }

  static std::vector<float> values(const TensorCPU& tensor) {
    const auto* numbers = static_cast<const float*>(tensor.RawPointer());
    return std::vector<float>(numbers, numbers + ElementCount(tensor.shape));
  }

  std::shared_ptr<Context> context_;
  test::LogCapture log_;
};

TEST_F(ReshapeTest, AShapeThatFitsTakesOverTheBuffer) {
  const auto tensor = counted({2, 3, 4});
  const void* const buffer = tensor->RawPointer();
  tensor->TakeShape(TensorShape({4, 6}, DataType::FLOAT32, LayoutType::FLEXIABLE));
  EXPECT_EQ(tensor->shape, TensorShape({4, 6}, DataType::FLOAT32, LayoutType::FLEXIABLE));
  EXPECT_EQ(tensor->strides, (std::vector<uint32_t>{6, 1}));
  EXPECT_EQ(tensor->RawPointer(), buffer);
  EXPECT_THROW(tensor->TakeShape(TensorShape({25}, DataType::FLOAT32, LayoutType::C)),
               std::runtime_error);
  EXPECT_EQ(tensor->shape.dims, (std::vector<uint32_t>{4, 6}));
}

using PermuteTest = ReshapeTest;

TEST_F(ReshapeTest, CopiesIntoNewDimsAndNeverSharesTheBuffer) {
  const auto source = counted({2, 3, 4});
  const auto result = source->Reshape({4, 6});
  EXPECT_THAT(result->shape.dims, ElementsAre(4u, 6u));
  EXPECT_THAT(result->strides, ElementsAre(6u, 1u));
  EXPECT_NE(result->RawPointer(), source->RawPointer());
  EXPECT_EQ(values(*result), values(*source));
}

TEST_F(ReshapeTest, ToTheSameDimsIsACopyToo) {
  const auto source = counted({2, 2});
  EXPECT_NE(source->Reshape({2, 2})->RawPointer(), source->RawPointer());
}

TEST_F(ReshapeTest, MinusOneOnAnyTensorGivesOneDimensionWithAllElements) {
  for (const std::vector<uint32_t>& dims :
       {std::vector<uint32_t>{}, {1}, {7}, {2, 3}, {2, 3, 4, 5}}) {
    const auto source = counted(dims);
    const auto result = source->Reshape({-1});
    EXPECT_THAT(result->shape.dims, ElementsAre(ElementCount(source->shape)));
    EXPECT_EQ(values(*result), values(*source));
  }
}

TEST_F(ReshapeTest, ZeroAndEveryNegativeNumberMarkTheSlotToInfer) {
  EXPECT_THAT(counted({8})->Reshape({0, 4})->shape.dims, ElementsAre(2u, 4u));
  EXPECT_THAT(counted({8})->Reshape({4, -7})->shape.dims, ElementsAre(4u, 2u));
  EXPECT_THAT(counted({8})->Reshape({2, std::numeric_limits<int32_t>::min(), 2})->shape.dims,
              ElementsAre(2u, 2u, 2u));
}

TEST_F(ReshapeTest, TwoMarkedSlotsThrowTheTagWithoutALine) {
  for (const std::vector<int32_t>& dims :
       {std::vector<int32_t>{-1, -1}, {0, 0}, {-1, 4, 0}, {-1, -1, -1}}) {
    EXPECT_EQ(failure_of([&] { counted({8})->Reshape(dims); }), "[QRT]: ");
  }
  EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(ReshapeTest, ThreeOnEightElementsThrowsBecause8IsNotDivisible) {
  EXPECT_EQ(failure_of([&] { counted({8})->Reshape({3}); }), "[QRT]: ");
  EXPECT_EQ(failure_of([&] { counted({8})->Reshape({3, -1}); }), "[QRT]: ");
}

TEST_F(ReshapeTest, FourOnEightElementsGivesTheFirstFour) {
  const auto result = counted({8})->Reshape({4});
  EXPECT_THAT(values(*result), ElementsAre(0.0f, 1.0f, 2.0f, 3.0f));
}

TEST_F(ReshapeTest, NoDimsGiveTheFirstElement) {
  EXPECT_THAT(values(*counted({2, 2})->Reshape({})), ElementsAre(0.0f));
}

TEST_F(ReshapeTest, MoreElementsThanThereAreThrow) {
  EXPECT_EQ(failure_of([&] { counted({8})->Reshape({16}); }), "[QRT]: ");
  EXPECT_EQ(failure_of([&] { counted({8})->Reshape({16, -1}); }), "[QRT]: ");
}

TEST_F(ReshapeTest, ProductThatWrapsIn32BitsThrows) {
  // 65536 * 65537 wraps to 65536.
  EXPECT_EQ(failure_of([&] { counted({65536})->Reshape({65536, 65537}); }), "[QRT]: ");
  EXPECT_EQ(failure_of([&] { counted({8})->Reshape({65536, 65536, 65536, 65536, 4}); }), "[QRT]: ");
}

TEST_F(ReshapeTest, KeepsTypeLayoutAndLocationButNotTheStepSize) {
  const TensorShape shape({2, 4}, DataType::INT16, LayoutType::HWC, LocationType::MainMemory,
                          TensorShape::Extra(11));
  const auto result = context_->cpu->CreateTensor(shape, nullptr)->Reshape({8});
  EXPECT_EQ(result->shape,
            TensorShape({8}, DataType::INT16, LayoutType::HWC, LocationType::MainMemory));
}

TEST_F(ReshapeTest, TakesItsMemoryFromWhereTheModeSays) {
  const auto source = counted({4});
  const uint64_t fixed = context_->cpu->static_pool->TotalBytes();
  context_->cpu->dynamic_mode = true;
  const auto result = source->Reshape({2, 2});
  EXPECT_EQ(context_->cpu->static_pool->TotalBytes(), fixed);
  EXPECT_GT(context_->cpu->dynamic_pool->TotalBytes(), 0u);
}

TEST_F(PermuteTest, TransposesAMatrix) {
  const auto result = counted({2, 3})->Permute({1, 0});
  EXPECT_THAT(result->shape.dims, ElementsAre(3u, 2u));
  EXPECT_THAT(values(*result), ElementsAre(0.0f, 3.0f, 1.0f, 4.0f, 2.0f, 5.0f));
}

// Squares of four by four elements are turned in tiles; what is left over is moved one by one.
TEST_F(PermuteTest, TransposesPlanesOfAllSizes) {
  for (const uint32_t rows : {1u, 3u, 4u, 5u, 8u, 15u, 16u, 17u, 21u, 32u, 35u}) {
    for (const uint32_t columns : {1u, 2u, 4u, 7u, 8u, 9u, 12u, 16u, 19u, 33u}) {
      const auto source = counted({2, rows, columns});
      const auto result = source->Permute({0, 2, 1});
      const auto front = source->Permute({2, 0, 1});
      for (uint32_t p = 0; p < 2; ++p) {
        for (uint32_t r = 0; r < rows; ++r) {
          for (uint32_t c = 0; c < columns; ++c) {
            const float number = *static_cast<float*>(source->Locate3D(p, r, c));
            ASSERT_EQ(*static_cast<float*>(result->Locate3D(p, c, r)), number) << rows << columns;
            ASSERT_EQ(*static_cast<float*>(front->Locate3D(c, p, r)), number) << rows << columns;
          }
        }
      }
    }
  }
}

TEST_F(PermuteTest, MovesEachElementInFourDims) {
  const std::vector<uint32_t> dims = {2, 3, 4, 5};
  const auto source = counted(dims);
  std::vector<uint32_t> axes = {0, 1, 2, 3};
  do {
    const auto result = source->Permute(axes);
    for (uint32_t k = 0; k < 4; ++k) ASSERT_EQ(result->shape.dims[k], dims[axes[k]]);
    std::vector<uint32_t> at(4);
    for (at[0] = 0; at[0] < 2; ++at[0]) {
      for (at[1] = 0; at[1] < 3; ++at[1]) {
        for (at[2] = 0; at[2] < 4; ++at[2]) {
          for (at[3] = 0; at[3] < 5; ++at[3]) {
            std::vector<uint32_t> to(4);
            for (uint32_t k = 0; k < 4; ++k) to[k] = at[axes[k]];
            ASSERT_EQ(*static_cast<float*>(result->Locate(to)),
                      *static_cast<float*>(source->Locate(at)));
          }
        }
      }
    }
  } while (std::next_permutation(axes.begin(), axes.end()));
}

TEST_F(PermuteTest, C4HW4IsTreatedAsPlainDimsAndBecomesFlexiable) {
  const auto source = counted({2, 3, 1, 4}, LayoutType::C4HW4);
  const auto result = source->Permute({3, 0, 1, 2});
  EXPECT_EQ(result->shape, TensorShape({4, 2, 3, 1}, DataType::FLOAT32, LayoutType::FLEXIABLE));
  EXPECT_EQ(*static_cast<float*>(result->Locate4D(3, 1, 2, 0)),
            *static_cast<float*>(source->Locate4D(1, 2, 0, 3)));
}

TEST_F(PermuteTest, WorksForEveryElementSizeAndDropsTheStepSize) {
  for (const auto type : {DataType::UINT8, DataType::INT16, DataType::UINT32}) {
    const uint32_t bytes = ElementSize(type);
    const TensorShape shape({2, 3}, type, LayoutType::CHW, LocationType::MainMemory,
                            TensorShape::Extra(9));
    std::vector<unsigned char> data(6 * bytes);
    std::iota(data.begin(), data.end(), static_cast<unsigned char>(1));
    const auto result = context_->cpu->CreateTensor(shape, data.data())->Permute({1, 0});
    EXPECT_EQ(result->shape, TensorShape({3, 2}, type, LayoutType::FLEXIABLE));
    const uint32_t order[] = {0, 3, 1, 4, 2, 5};
    for (uint32_t k = 0; k < 6; ++k) {
      EXPECT_EQ(std::memcmp(result->Locate1D(k), data.data() + order[k] * bytes, bytes), 0);
    }
  }
}

TEST_F(PermuteTest, UnknownDataTypeThrowsTheMessageOfItsElementSize) {
  const auto source = context_->cpu->CreateTensor(
      TensorShape({2, 3}, static_cast<DataType>(9), LayoutType::CHW), nullptr);
  EXPECT_EQ(failure_of([&] {
              source->Permute({1, 0});
            }),
            "[QRT]: bytes per element must be >= 1.\n");
}

TEST_F(PermuteTest, OneElementAndEmptyTensorsPass) {
  EXPECT_THAT(values(*counted({})->Permute({})), ElementsAre(0.0f));
  EXPECT_THAT(counted({0, 3})->Permute({1, 0})->shape.dims, ElementsAre(3u, 0u));
}

TEST_F(PermuteTest, WrongNumberOfAxesThrowsItsMessage) {
  const std::string message = "[QRT]: dimensions of shape must be equal to tranpose axes's.\n";
  const auto source = counted({2, 3});
  EXPECT_EQ(failure_of([&] { source->Permute({0}); }), message);
  EXPECT_EQ(failure_of([&] { source->Permute({}); }), message);
  EXPECT_EQ(failure_of([&] { source->Permute({1, 0, 1}); }), message);
}

TEST_F(PermuteTest, AxisThatIsNotThereThrowsAndIsNamed) {
  EXPECT_THAT(failure_of([&] {
                counted({2, 3})->Permute({0, 2});
              }),
              ::testing::HasSubstr("axis 2"));
}

TEST_F(PermuteTest, RepeatedAxisIsNoPermutationAndThrows) {
  EXPECT_EQ(failure_of([&] {
              counted({2, 3})->Permute({0, 0});
            }),
            "[QRT]: axis 0 stands twice in a permutation\n");
  EXPECT_NE(failure_of([&] { counted({3, 2, 2})->Permute({2, 1, 2}); }), "");
}

TEST(TransposeBufferTest, ThrowsTheMessageOfEachBadArgument) {
  test::LogCapture log;
  float a[2] = {1.0f, 2.0f};
  float b[2] = {};
  EXPECT_EQ(failure_of([&] { TransposeBuffer(nullptr, {2}, 4, {0}, b); }),
            "[QRT]: Input shared pointer is null.\n");
  EXPECT_EQ(failure_of([&] { TransposeBuffer(a, {2}, 4, {0}, nullptr); }),
            "[QRT]: Output shared pointer is null.\n");
  EXPECT_EQ(failure_of([&] { TransposeBuffer(a, {2}, 0, {0}, b); }),
            "[QRT]: bytes per element must be >= 1.\n");
  EXPECT_EQ(failure_of([&] {
              TransposeBuffer(a, {2}, 4, {0, 1}, b);
            }),
            "[QRT]: dimensions of shape must be equal to tranpose axes's.\n");
  EXPECT_EQ(log.lines().size(), 4u);
  // Tested in this order: the first fault is the one that is told.
  EXPECT_EQ(failure_of([&] { TransposeBuffer(nullptr, {2}, 0, {}, nullptr); }),
            "[QRT]: Input shared pointer is null.\n");
}

// Each byte of each element, where the definition puts it.
std::vector<uint8_t> transposed(const std::vector<uint8_t>& source,
                                const std::vector<uint32_t>& dims, uint32_t element_size,
                                const std::vector<uint32_t>& axes) {
  std::vector<uint8_t> target(source.size());
  for (size_t flat = 0; flat < source.size() / element_size; ++flat) {
    std::vector<size_t> index(dims.size());
    size_t rest = flat;
    for (size_t k = dims.size(); k-- > 0;) {
      index[k] = rest % dims[k];
      rest /= dims[k];
    }
    size_t place = 0;
    for (const uint32_t axis : axes) place = place * dims[axis] + index[axis];
    for (size_t byte = 0; byte < element_size; ++byte) {
      target[place * element_size + byte] = source[flat * element_size + byte];
    }
  }
  return target;
}

TEST(TransposeBufferTest, AllPermutationsOfSizesAroundItsTiles) {
  const std::vector<std::vector<uint32_t>> shapes = {
      {1},        {7},         {16, 17},       {33, 15},       {1, 40},
      {3, 1, 18}, {5, 16, 33}, {2, 17, 3, 19}, {2, 1, 2, 3, 4}};
  for (const auto& dims : shapes) {
    size_t count = 1;
    for (const uint32_t size : dims) count *= size;
    for (const uint32_t element_size : {1u, 2u, 3u, 4u, 8u}) {
      std::vector<uint8_t> source(count * element_size);
      for (size_t i = 0; i < source.size(); ++i) source[i] = static_cast<uint8_t>(i * 31 + i / 256);
      std::vector<uint32_t> axes(dims.size());
      std::iota(axes.begin(), axes.end(), 0u);
      do {
        std::vector<uint8_t> target(source.size());
        TransposeBuffer(source.data(), dims, element_size, axes, target.data());
        ASSERT_EQ(target, transposed(source, dims, element_size, axes))
            << ::testing::PrintToString(dims) << " by " << ::testing::PrintToString(axes) << ", "
            << element_size << " bytes";
      } while (std::next_permutation(axes.begin(), axes.end()));
    }
  }
}

TEST(TransposeBufferTest, WorksForElementsOfAnySize) {
  const char source[] = "aaabbbcccdddeeefff";
  char target[19] = {};
  TransposeBuffer(source, {3, 2}, 3, {1, 0}, target);
  EXPECT_STREQ(target, "aaaccceeebbbdddfff");
}

}  // namespace
}  // namespace marlo::test
