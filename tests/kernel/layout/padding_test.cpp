#include "qrt_core/kernel/layout/padding.h"

#include <gtest/gtest.h>

#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// The padding functions against a picture that is looked up pixel by pixel.

namespace marlo::test {
namespace {

using kernel::Padding_HW_MainMemory_C4HW4_Float_SSE_M1;
using kernel::Padding_HW_MainMemory_C8HW8_Float_AVX_M1;
using kernel::Padding_HW_MainMemory_C8HW8_Float_SSE_M1;
using kernel::Padding_HW_MainMemory_CHW_Float_Fallback_M1;
using kernel::Padding_L_MainMemory_CL_Float_Fallback_M1;
using runtime::DataType;
using runtime::DeviceCPU;
using runtime::LayoutType;
using runtime::LocationType;
using runtime::TensorCPU;

using TensorPointer = std::shared_ptr<TensorCPU>;

struct Margins {
  uint32_t left = 0;
  uint32_t right = 0;
  uint32_t top = 0;
  uint32_t bottom = 0;
};

/// One padding function, as if all padded planes of blocks.
struct Padding {
  std::string name;
  LayoutType layout;
  uint32_t block;  ///< floats of a pixel
  bool is_line;
  TensorPointer (*pad)(TensorPointer, const Margins&, float, std::shared_ptr<DeviceCPU>);

  std::vector<uint32_t> dims(uint32_t planes, uint32_t height, uint32_t width) const {
    if (is_line) return {planes, width};
    if (block == 1) return {planes, height, width};
    return {planes, height, width, block};
  }
};

void PrintTo(const Padding& padding, std::ostream* out) { *out << padding.name; }

template <auto function>
TensorPointer pad_plane(TensorPointer input, const Margins& m, float value,
                        std::shared_ptr<DeviceCPU> device) {
  return function(std::move(input), m.left, m.right, m.top, m.bottom, value, std::move(device));
}

TensorPointer pad_line(TensorPointer input, const Margins& m, float value,
                       std::shared_ptr<DeviceCPU> device) {
  return Padding_L_MainMemory_CL_Float_Fallback_M1(std::move(input), m.left, m.right, value,
                                                   std::move(device));
}

const Padding kPaddings[] = {
    {"Padding_HW_MainMemory_CHW_Float_Fallback_M1", LayoutType::CHW, 1, false,
     pad_plane<Padding_HW_MainMemory_CHW_Float_Fallback_M1>},
    {"Padding_HW_MainMemory_C4HW4_Float_SSE_M1", LayoutType::C4HW4, 4, false,
     pad_plane<Padding_HW_MainMemory_C4HW4_Float_SSE_M1>},
    {"Padding_HW_MainMemory_C8HW8_Float_SSE_M1", LayoutType::C8HW8, 8, false,
     pad_plane<Padding_HW_MainMemory_C8HW8_Float_SSE_M1>},
    {"Padding_HW_MainMemory_C8HW8_Float_AVX_M1", LayoutType::C8HW8, 8, false,
     pad_plane<Padding_HW_MainMemory_C8HW8_Float_AVX_M1>},
    {"Padding_L_MainMemory_CL_Float_Fallback_M1", LayoutType::CL, 1, true, pad_line},
};

class PaddingFunction : public testing::TestWithParam<Padding> {
 protected:
  void SetUp() override { QRT_SKIP_WHERE_MISSING(GetParam().name); }

  void expect_padded(uint32_t planes, uint32_t height, uint32_t width, Margins margins,
                     float value) {
    const Padding& padding = GetParam();
    if (padding.is_line) {
      height = 1;
      margins.top = margins.bottom = 0;
    }
    SCOPED_TRACE(testing::Message()
                 << planes << " planes of " << height << " x " << width << ", margins "
                 << margins.left << ", " << margins.right << ", " << margins.top << ", "
                 << margins.bottom << ", value " << value);
    TestContext context;
    const size_t pixels = size_t{planes} * height * width;
    const std::vector<float> picture = Random(1).floats(pixels * padding.block);
    const auto input =
        context.external_floats(padding.dims(planes, height, width), padding.layout, picture);
    const auto padded = padding.pad(input, margins, value, context.device());
    ASSERT_NE(padded, nullptr);
    EXPECT_NE(padded, input);

    const uint32_t new_height = height + margins.top + margins.bottom;
    const uint32_t new_width = width + margins.left + margins.right;
    EXPECT_EQ(padded->shape.dims, padding.dims(planes, new_height, new_width));
    EXPECT_EQ(padded->shape.layout, padding.layout);
    std::vector<float> expected;
    for (uint32_t i = 0; i < planes * new_height * new_width * padding.block; ++i) {
      const uint32_t pixel = i / padding.block;
      // Unsigned: what lies before the picture wraps around and is outside as well.
      const uint32_t y = pixel / new_width % new_height - margins.top;
      const uint32_t x = pixel % new_width - margins.left;
      const uint32_t plane = pixel / new_width / new_height;
      const bool inside = y < height && x < width;
      const size_t index = ((size_t{plane} * height + y) * width + x) * padding.block;
      expected.push_back(inside ? picture[index + i % padding.block] : value);
    }
    EXPECT_TRUE(same_bits(values_of(*padded), expected));
    EXPECT_TRUE(same_bits(values_of(*input), picture));
  }
};

TEST_P(PaddingFunction, CopiesWithoutMargins) { expect_padded(3, 4, 5, {}, 7.0f); }

TEST_P(PaddingFunction, AddsEachMarginAlone) {
  expect_padded(2, 3, 4, {3, 0, 0, 0}, 0.0f);
  expect_padded(2, 3, 4, {0, 3, 0, 0}, 0.0f);
  expect_padded(2, 3, 4, {0, 0, 3, 0}, 0.0f);
  expect_padded(2, 3, 4, {0, 0, 0, 3}, 0.0f);
}

TEST_P(PaddingFunction, AddsDifferentMargins) {
  expect_padded(2, 3, 4, {1, 2, 3, 4}, 0.0f);
  expect_padded(1, 1, 1, {9, 0, 5, 2}, 0.0f);
  for (uint32_t width = 1; width <= 25; ++width) expect_padded(2, 2, width, {1, 1, 1, 1}, 0.0f);
}

TEST_P(PaddingFunction, FillsWithAnyValue) {
  for (const float value : {-0.0f, 1.5f, -kInfinity, kNaN, kLeastDenormal}) {
    expect_padded(2, 3, 4, {1, 2, 1, 2}, value);
  }
}

TEST_P(PaddingFunction, FramesAPictureWithoutPixels) {
  expect_padded(2, 3, 0, {1, 2, 1, 1}, 4.0f);
  expect_padded(0, 3, 2, {1, 2, 1, 1}, 4.0f);
}

TEST_P(PaddingFunction, GivesNothingForAnotherKindOfTensor) {
  const Padding& padding = GetParam();
  TestContext context;
  const auto pad = [&](std::vector<uint32_t> dims, DataType type, LayoutType layout,
                       LocationType location) {
    const auto input = context.device()->CreateTensor({dims, type, layout}, nullptr);
    input->shape.location = location;
    return padding.pad(input, {1, 1, 1, 1}, 0.0f, context.device());
  };
  const auto dims = padding.dims(1, 2, 2);
  const LocationType memory = LocationType::MainMemory;
  EXPECT_NE(pad(dims, DataType::FLOAT32, padding.layout, memory), nullptr);
  EXPECT_EQ(pad(dims, DataType::FLOAT16, padding.layout, memory), nullptr);
  EXPECT_EQ(pad(dims, DataType::INT32, padding.layout, memory), nullptr);
  EXPECT_EQ(pad(dims, DataType::FLOAT32, LayoutType::HWC, memory), nullptr);
  EXPECT_EQ(pad(dims, DataType::FLOAT32, padding.layout, LocationType::OpenGLSSBO), nullptr);
  EXPECT_EQ(pad({2}, DataType::FLOAT32, padding.layout, memory), nullptr);
}

TEST_P(PaddingFunction, RefusesWhatIsMissingAndMarginsWithoutEnd) {
  const Padding& padding = GetParam();
  TestContext context;
  EXPECT_EQ(padding.pad(nullptr, {1, 1, 1, 1}, 0.0f, context.device()), nullptr);
  const auto dims = padding.dims(1, 2, 2);
  const auto input =
      context.device()->CreateTensor({dims, DataType::FLOAT32, padding.layout}, nullptr);
  EXPECT_THROW(padding.pad(input, {1, 1, 1, 1}, 0.0f, nullptr), std::runtime_error);
  // Sums that wrap around to small sizes.
  const uint32_t most = std::numeric_limits<uint32_t>::max();
  EXPECT_THROW(padding.pad(input, {most, 1, 0, 0}, 0.0f, context.device()), std::runtime_error);
  EXPECT_THROW(padding.pad(input, {1, most - 2, 0, 0}, 0.0f, context.device()), std::runtime_error);
  if (padding.is_line) return;
  EXPECT_THROW(padding.pad(input, {0, 0, most, most}, 0.0f, context.device()), std::runtime_error);
}

INSTANTIATE_TEST_SUITE_P(All, PaddingFunction, testing::ValuesIn(kPaddings),
                         [](const auto& test) { return test.param.name; });

}  // namespace
}  // namespace marlo::test
