#include "qrt_core/kernel/layout/permute.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "qrt_core/runtime/model/inference_param.h"
#include "qrt_core/runtime/model/shape_info.h"
#include "tests/kernel/layout/moves.h"
#include "tests/support/kernels.h"

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorShape;
using runtime::TensorTransposeInfo;

using Dims = std::vector<uint32_t>;
using Axes = std::vector<uint16_t>;

class PermuteTest : public testing::Test {
 protected:
  static std::shared_ptr<TensorTransposeInfo> description(Axes axes) {
    auto info = std::make_shared<TensorTransposeInfo>();
    info->axes = std::move(axes);
    return info;
  }

  std::shared_ptr<IKernel> configured(Axes axes) {
    auto kernel = make_kernel("Transform_MainMemory_Permute_Fallback");
    EXPECT_TRUE(kernel->Config(description(std::move(axes)), nullptr, context_));
    return kernel;
  }

  /// The permutation of at most four axes, by nested loops over the target.
  static std::vector<float> permuted(const std::vector<float>& values, Dims dims, Axes axes) {
    while (dims.size() < 4) {
      axes.push_back(static_cast<uint16_t>(dims.size()));
      dims.push_back(1);
    }
    const auto size = [&](size_t k) { return dims[axes[k]]; };
    std::vector<float> result;
    uint32_t at[4];
    for (at[axes[0]] = 0; at[axes[0]] < size(0); ++at[axes[0]])
      for (at[axes[1]] = 0; at[axes[1]] < size(1); ++at[axes[1]])
        for (at[axes[2]] = 0; at[axes[2]] < size(2); ++at[axes[2]])
          for (at[axes[3]] = 0; at[axes[3]] < size(3); ++at[axes[3]])
            result.push_back(
                values[((at[0] * dims[1] + at[1]) * dims[2] + at[2]) * dims[3] + at[3]]);
    return result;
  }

  TestContext context_;
};

TEST_F(PermuteTest, TakesTransposeDescriptionsOnly) {
  const auto kernel = make_kernel("Transform_MainMemory_Permute_Fallback");
  const auto param = std::make_shared<runtime::InferenceParamConv2DQuant>();
  EXPECT_EQ(kernel->CheckConfig(description({1, 0}), nullptr), 0);
  EXPECT_EQ(kernel->CheckConfig(description({1, 0}), param), -1);
  EXPECT_EQ(kernel->CheckConfig(nullptr, nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::TensorReshapeInfo>(), nullptr), -1);
  EXPECT_FALSE(kernel->Config(nullptr, nullptr, context_));
}

TEST_F(PermuteTest, TwoZeroOneOnTwoThreeFourGivesFourTwoThreeAndFlexible) {
  const std::vector<float> numbers = distinct_floats(24);
  const auto input = context_.floats({2, 3, 4}, LayoutType::CHW, numbers);
  const auto output = output_of(*configured({2, 0, 1}), input, context_);
  EXPECT_EQ(output->shape, TensorShape({4, 2, 3}, DataType::FLOAT32, LayoutType::FLEXIABLE));
  EXPECT_EQ(static_cast<uint32_t>(output->shape.layout), 23u);
  expect_same_bits(permuted(numbers, {2, 3, 4}, {2, 0, 1}), values_of(*output));
}

TEST_F(PermuteTest, EveryPermutationOfUpToFourAxes) {
  const Dims sizes{3, 5, 2, 7};
  for (uint32_t rank = 1; rank <= 4; ++rank) {
    const Dims dims(sizes.begin(), sizes.begin() + rank);
    const size_t count = std::accumulate(dims.begin(), dims.end(), size_t{1},
                                         [](size_t a, uint32_t b) { return a * b; });
    const std::vector<float> numbers = distinct_floats(count);
    const auto input = context_.floats(dims, LayoutType::FLEXIABLE, numbers);
    Axes axes(rank);
    std::iota(axes.begin(), axes.end(), uint16_t{0});
    do {
      const auto output = output_of(*configured(axes), input, context_);
      expect_same_bits(permuted(numbers, dims, axes), values_of(*output));
    } while (std::next_permutation(axes.begin(), axes.end()));
  }
}

TEST_F(PermuteTest, MovesElementsOfEverySize) {
  for (const DataType type : {DataType::FLOAT32, DataType::INT16, DataType::UINT8}) {
    const uint32_t size = runtime::ElementSize(type);
    const auto input = counting_tensor(context_, TensorShape({2, 3}, type, LayoutType::FLEXIABLE));
    const auto output = output_of(*configured({1, 0}), input, context_);
    const auto before = bytes_of(*input);
    const auto after = bytes_of(*output);
    for (size_t i = 0; i < 6; ++i) {
      for (size_t byte = 0; byte < size; ++byte) {
        EXPECT_EQ(after[(i % 3 * 2 + i / 3) * size + byte], before[i * size + byte]);
      }
    }
  }
}

TEST_F(PermuteTest, KeepsTheExtraOfTheInput) {
  const TensorShape shape({2, 3}, DataType::INT16, LayoutType::C4HW4, LocationType::MetalBuffer,
                          TensorShape::Extra(8));
  EXPECT_EQ(configured({1, 0})->InferOutputShapes({shape})[0],
            TensorShape({3, 2}, DataType::INT16, LayoutType::FLEXIABLE, LocationType::MetalBuffer,
                        TensorShape::Extra(8)));
}

TEST_F(PermuteTest, WritesIntoAnOutputThatIsThere) {
  const std::vector<float> numbers = distinct_floats(6);
  const auto input = context_.floats({2, 3}, LayoutType::FLEXIABLE, numbers);
  const auto given = blank(context_, {3, 2}, LayoutType::CHW);
  IKernel::Tensors outputs{given};
  EXPECT_EQ(configured({1, 0})->Forward({input}, outputs, context_), 0);
  ASSERT_EQ(outputs.size(), 1u);
  EXPECT_EQ(outputs[0], given);
  EXPECT_EQ(given->shape.layout, LayoutType::CHW);
  expect_same_bits(permuted(numbers, {2, 3}, {1, 0}), values_of(*given));
}

TEST_F(PermuteTest, RefusesAnOutputThatIsTooSmall) {
  const auto input = context_.floats({2, 3}, LayoutType::FLEXIABLE, distinct_floats(6));
  IKernel::Tensors outputs{blank(context_, {5}, LayoutType::C)};
  EXPECT_NE(failure_of([&] { configured({1, 0})->Forward({input}, outputs, context_); }), "");
  outputs[0] = nullptr;
  EXPECT_NE(failure_of([&] {
              configured({1, 0})->Forward({input}, outputs, context_);
            }).find("Output shared pointer is null."),
            std::string::npos);
}

TEST_F(PermuteTest, RefusesWhatItCannotTranspose) {
  IKernel::Tensors outputs;
  const auto failure = [&](Axes axes, const std::shared_ptr<runtime::Tensor>& input) {
    const auto kernel = configured(std::move(axes));
    return failure_of([&] { kernel->Forward({input}, outputs, context_); });
  };
  const auto good = context_.floats({2, 3}, LayoutType::FLEXIABLE, distinct_floats(6));
  const std::string rank = "dimensions of shape must be equal to tranpose axes's.";
  EXPECT_NE(failure({0}, good).find(rank), std::string::npos);
  EXPECT_NE(failure({0, 1, 2}, good).find(rank), std::string::npos);
  EXPECT_NE(failure({0, 2}, good).find("axis 2"), std::string::npos);
  EXPECT_NE(failure({1, 0}, nullptr).find("Input shared pointer is null."), std::string::npos);
  const auto unknown = blank(context_, {2, 3}, LayoutType::FLEXIABLE, static_cast<DataType>(99));
  EXPECT_NE(failure({1, 0}, unknown).find("bytes per element must be >= 1."), std::string::npos);
  EXPECT_NE(failure_of([&] { configured({1, 0})->Forward({}, outputs, context_); }), "");
  EXPECT_NE(failure_of([&] { configured({1, 0})->Forward({good}, outputs, nullptr); }), "");
  EXPECT_TRUE(outputs.empty());
}

TEST_F(PermuteTest, ChecksTestTheLocationOfOneTensor) {
  const auto kernel = configured({1, 0});
  const auto good = blank(context_, {2}, LayoutType::HWC, DataType::UINT8);
  const auto elsewhere =
      blank(context_, {2, 3}, LayoutType::CHW, DataType::FLOAT32, LocationType::OpenGLSSBO);
  const auto both = [&](const IKernel::Tensors& tensors, int verdict) {
    EXPECT_EQ(kernel->CheckInputs(tensors), verdict);
    EXPECT_EQ(kernel->CheckOutputs(tensors), verdict);
  };
  both({good}, 0);
  both({elsewhere}, -2);
  both({}, -2);
  both({good, good}, -2);
}

}  // namespace
}  // namespace marlo::test
