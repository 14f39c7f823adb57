#include <gtest/gtest.h>

#include "qrt_core/kernel/image/image_process.h"
#include "qrt_core/kernel/image/resize_functions.h"
#include "tests/support/image_oracle.h"
#include "tests/support/image_tensors.h"

// Resizes against their formulas, bit for bit.

namespace marlo::test {
namespace {

using kernel::ImageProcessFallback;
using runtime::DataType;
using runtime::LayoutType;
using namespace kernel::functional;
using Function = void (*)(const TensorPointer&, TensorPointer&);

constexpr Function kBilinear[] = {
    F_Resize_Bilinear_HWC_U8_C1_Fallback, F_Resize_Bilinear_HWC_U8_C2_Fallback,
    F_Resize_Bilinear_HWC_U8_C3_Fallback, F_Resize_Bilinear_HWC_U8_C4_Fallback};
constexpr Function kNearest[] = {
    F_Resize_Nearest_HWC_U8_C1_Fallback, F_Resize_Nearest_HWC_U8_C2_Fallback,
    F_Resize_Nearest_HWC_U8_C3_Fallback, F_Resize_Nearest_HWC_U8_C4_Fallback};

struct Sizes {
  uint32_t height, width, channels, out_height, out_width;
};

std::vector<uint8_t> values_for(const Sizes& s) {
  return random_bytes(size_t{s.height} * s.width * s.channels, s.height * 100 + s.width);
}

// By a function, on [H, W, C].
std::vector<uint8_t> by_function(ImageTensors& tensors, const Sizes& s, const Function* functions,
                                 const std::vector<uint8_t>& values) {
  const auto input = tensors.bytes({s.height, s.width, s.channels}, LayoutType::HWC, values);
  TensorPointer output =
      tensors.byte_output({s.out_height, s.out_width, s.channels}, LayoutType::HWC);
  functions[s.channels - 1](input, output);
  return bytes_of(output);
}

// By the class, on FLEXIABLE tensors [C, H, W] that hold interleaved pixels.
std::vector<uint8_t> by_class(ImageTensors& tensors, const Sizes& s,
                              const std::vector<uint8_t>& values) {
  const auto input = tensors.bytes({s.channels, s.height, s.width}, LayoutType::FLEXIABLE, values);
  const auto output =
      tensors.byte_output({s.channels, s.out_height, s.out_width}, LayoutType::FLEXIABLE);
  ImageProcessFallback().ConvertPixel(input, output, 80 + static_cast<int>(s.channels), tensors);
  return bytes_of(output);
}

void expect_bilinear(ImageTensors& tensors, const Sizes& s) {
  const auto values = values_for(s);
  const auto number = [](uint32_t size) { return static_cast<int>(size); };
  const auto expected = bilinear(values, number(s.height), number(s.width), number(s.channels),
                                 number(s.out_height), number(s.out_width));
  const auto found = by_function(tensors, s, kBilinear, values);
  ASSERT_TRUE(same_elements(found, expected)) << s.height << " x " << s.width << " x " << s.channels
                                              << " to " << s.out_height << " x " << s.out_width;
  ASSERT_TRUE(same_elements(by_class(tensors, s, values), expected));
}

TEST(BilinearResizeTest, FollowsTheFormulaFromAndToEverySize) {
  ImageTensors tensors;
  Random random(1);
  for_each_size([&](uint32_t height, uint32_t width) {
    const uint32_t channels = (height + width) % 4 + 1;
    const auto other = [&] { return static_cast<uint32_t>(random.integer(1, 67)); };
    expect_bilinear(tensors, {height, width, channels, other(), other()});
    expect_bilinear(tensors, {other(), other(), channels, height, width});
  });
}

TEST(BilinearResizeTest, TakesWholePictures) {
  ImageTensors tensors;
  for (uint32_t channels = 1; channels <= 4; ++channels) {
    expect_bilinear(tensors, {240, 321, channels, 97, 53});
    expect_bilinear(tensors, {33, 35, channels, 150, 210});
    expect_bilinear(tensors, {3, 2, channels, 1, 400});
  }
}

TEST(BilinearResizeTest, ToTheSameSizeGivesThePictureBack) {
  ImageTensors tensors;
  for_each_size([&](uint32_t height, uint32_t width) {
    const Sizes s{height, width, 3, height, width};
    const auto values = values_for(s);
    ASSERT_TRUE(same_elements(by_function(tensors, s, kBilinear, values), values));
  });
}

TEST(BilinearResizeTest, KeepsWhite) {
  ImageTensors tensors;
  const std::vector<uint8_t> white(7 * 9, 255);
  for (uint32_t size = 1; size <= 67; ++size) {
    const auto found = by_function(tensors, {7, 9, 1, size, 68 - size}, kBilinear, white);
    EXPECT_EQ(found, std::vector<uint8_t>(size_t{size} * (68 - size), 255));
  }
}

TEST(BilinearResizeTest, OfOnePixelIsThatPixel) {
  ImageTensors tensors;
  EXPECT_EQ(by_function(tensors, {1, 1, 3, 2, 2}, kBilinear, {7, 80, 255}),
            (std::vector<uint8_t>{7, 80, 255, 7, 80, 255, 7, 80, 255, 7, 80, 255}));
}

TEST(NearestResizeTest, OfTheFunctionsTruncatesAGrowingFloat) {
  ImageTensors tensors;
  Random random(2);
  for_each_size([&](uint32_t height, uint32_t width) {
    const uint32_t channels = (height + width) % 4 + 1;
    const Sizes s{height, width, channels, static_cast<uint32_t>(random.integer(1, 67)),
                  static_cast<uint32_t>(random.integer(1, 67))};
    const auto values = values_for(s);
    std::vector<uint8_t> expected;
    for (uint32_t y = 0; y < s.out_height; ++y) {
      for (uint32_t x = 0; x < s.out_width; ++x) {
        const auto place = [](uint32_t in, uint32_t out, uint32_t at) {
          return static_cast<size_t>(
              accumulated_place(static_cast<int>(in), static_cast<int>(out), static_cast<int>(at)));
        };
        const size_t pixel = place(height, s.out_height, y) * width + place(width, s.out_width, x);
        for (size_t c = 0; c < channels; ++c) expected.push_back(values.at(pixel * channels + c));
      }
    }
    ASSERT_TRUE(same_elements(by_function(tensors, s, kNearest, values), expected));
  });
}

// The sum of a million rounded steps leads behind the last pixel, which nothing reads.
TEST(NearestResizeTest, OfTheFunctionsStaysInsideWhenItsSumDoesNot) {
  ImageTensors tensors;
  for (const uint32_t in : {3u, 7u, 1000u}) {
    const std::vector<uint8_t> values(in, 1);
    const auto found = by_function(tensors, {1, in, 1, 1, 1000003}, kNearest, values);
    EXPECT_EQ(found, std::vector<uint8_t>(1000003, 1));
  }
}

// By the class, on FLEXIABLE tensors [H, W].
std::vector<uint8_t> nearest_by_class(ImageTensors& tensors, const Sizes& s,
                                      const std::vector<uint8_t>& values) {
  const auto input = tensors.bytes({s.height, s.width}, LayoutType::FLEXIABLE, values);
  const auto output = tensors.byte_output({s.out_height, s.out_width}, LayoutType::FLEXIABLE);
  ImageProcessFallback().ConvertPixel(input, output, 77, tensors);
  return bytes_of(output);
}

TEST(NearestResizeTest, OfTheClassFollowsTheHalfPixelRule) {
  ImageTensors tensors;
  Random random(3);
  for_each_size([&](uint32_t height, uint32_t width) {
    const Sizes s{height, width, 1, static_cast<uint32_t>(random.integer(1, 67)),
                  static_cast<uint32_t>(random.integer(1, 67))};
    const auto values = values_for(s);
    std::vector<uint8_t> expected;
    for (uint32_t y = 0; y < s.out_height; ++y) {
      for (uint32_t x = 0; x < s.out_width; ++x) {
        const int row = nearest_place(static_cast<int>(height), static_cast<int>(s.out_height),
                                      static_cast<int>(y));
        const int column = nearest_place(static_cast<int>(width), static_cast<int>(s.out_width),
                                         static_cast<int>(x));
        expected.push_back(
            values.at(static_cast<size_t>(row) * width + static_cast<size_t>(column)));
      }
    }
    ASSERT_TRUE(same_elements(nearest_by_class(tensors, s, values), expected));
  });
}

TEST(NearestResizeTest, DiffersBetweenFunctionAndClass) {
  ImageTensors tensors;
  const Sizes s{1, 5, 1, 1, 3};
  const std::vector<uint8_t> values{0, 1, 2, 3, 4};
  EXPECT_EQ(by_function(tensors, s, kNearest, values), (std::vector<uint8_t>{0, 1, 3}));
  EXPECT_EQ(nearest_by_class(tensors, s, values), (std::vector<uint8_t>{0, 2, 4}));
}

const std::vector<std::array<float, 4>> kRectangles{
    {0.0f, 0.0f, 0.99f, 0.99f},   {0.25f, 0.5f, 0.75f, 0.9f}, {-0.5f, 0.0f, 0.5f, 0.5f},
    {0.3f, -0.7f, 1.4f, 1.3f},    {-0.2f, -0.2f, 1.2f, 1.2f}, {0.5f, 0.5f, 0.5f, 0.5f},
    {-2.5f, -2.5f, -1.5f, -1.5f}, {1.5f, 0.2f, 2.5f, 0.8f},
};

std::vector<uint8_t> crop_resized(ImageTensors& tensors, const Sizes& s,
                                  const std::array<float, 4>& f,
                                  const std::vector<uint8_t>& values) {
  const auto input = tensors.bytes({s.height, s.width, s.channels}, LayoutType::FLEXIABLE, values);
  const auto output =
      tensors.byte_output({s.out_height, s.out_width, s.channels}, LayoutType::FLEXIABLE);
  ImageProcessFallback().ConvertPixel(input, output, f[0], f[1], f[2], f[3],
                                      84 + static_cast<int>(s.channels), tensors);
  return bytes_of(output);
}

TEST(CropResizeTest, FillsAnEvenSpanAndZeroes) {
  ImageTensors tensors;
  Random random(4);
  for_each_size([&](uint32_t height, uint32_t width) {
    const Sizes s{height, width, (height + width) % 4 + 1,
                  static_cast<uint32_t>(random.integer(1, 67)),
                  static_cast<uint32_t>(random.integer(1, 67))};
    const auto values = values_for(s);
    const auto& fractions = kRectangles[(height * 3 + width) % kRectangles.size()];
    const OracleRectangle r =
        rectangle_of(static_cast<int>(height), static_cast<int>(width), fractions);
    std::vector<uint8_t> expected;
    for (uint32_t y = 0; y < s.out_height; ++y) {
      for (uint32_t x = 0; x < s.out_width; ++x) {
        const auto row = cropped_place(r.top, r.bottom, static_cast<int>(height),
                                       static_cast<int>(s.out_height), static_cast<int>(y));
        const auto column = cropped_place(r.left, r.right, static_cast<int>(width),
                                          static_cast<int>(s.out_width), static_cast<int>(x));
        for (size_t c = 0; c < s.channels; ++c) {
          if (!row || !column) {
            expected.push_back(0);
          } else {
            const auto pixel = static_cast<size_t>(*row) * width + static_cast<size_t>(*column);
            expected.push_back(values.at(pixel * s.channels + c));
          }
        }
      }
    }
    ASSERT_TRUE(same_elements(crop_resized(tensors, s, fractions, values), expected))
        << height << " x " << width << " to " << s.out_height << " x " << s.out_width << ", "
        << testing::PrintToString(fractions);
  });
}

TEST(CropResizeTest, OfARectangleThatIsNoneIsZero) {
  ImageTensors tensors;
  const Sizes s{2, 2, 1, 4, 4};
  for (const float number : {kNaN, kInfinity, -kInfinity, 1e20f, -1e20f}) {
    EXPECT_EQ(crop_resized(tensors, s, {number, 0.0f, number, 1.0f}, {1, 2, 3, 4}),
              std::vector<uint8_t>(16, 0));
  }
  EXPECT_EQ(crop_resized(tensors, s, {0.9f, 0.0f, 0.1f, 1.0f}, {1, 2, 3, 4}).size(), 16u);
}

TEST(ResizeTest, OfTheClassDemandsFlexiableTensors) {
  ImageTensors tensors;
  const auto flexible = tensors.bytes({1, 2, 2}, LayoutType::FLEXIABLE, {1, 2, 3, 4});
  const auto planar = tensors.bytes({1, 2, 2}, LayoutType::CHW, {1, 2, 3, 4});
  ImageProcessFallback process;
  for (const int code : {77, 81, 82, 83, 84}) {
    expect_silent_failure([&] { process.ConvertPixel(flexible, planar, code, tensors); });
    expect_silent_failure([&] { process.ConvertPixel(planar, flexible, code, tensors); });
  }
  for (const int code : {85, 86, 87, 88}) {
    expect_silent_failure(
        [&] { process.ConvertPixel(flexible, planar, 0.0f, 0.0f, 1.0f, 1.0f, code, tensors); });
    expect_silent_failure(
        [&] { process.ConvertPixel(planar, flexible, 0.0f, 0.0f, 1.0f, 1.0f, code, tensors); });
  }
}

TEST(ResizeTest, RefusesBuffersThatAreTooSmall) {
  ImageTensors tensors;
  const auto flexible = tensors.bytes({1, 2, 2}, LayoutType::FLEXIABLE, {1, 2, 3, 4});
  TensorPointer output = tensors.byte_output({1, 2, 2}, LayoutType::FLEXIABLE);
  expect_message("Resize_Bilinear_C3: a tensor of 4 bytes is too small, 12 bytes are needed",
                 [&] { ImageProcessFallback().ConvertPixel(flexible, output, 83, tensors); });
  expect_message(
      "F_Resize_Nearest_HWC_U8_C4_Fallback: a tensor of 4 bytes is too small, 8 bytes "
      "are needed",
      [&] { F_Resize_Nearest_HWC_U8_C4_Fallback(flexible, output); });
  const auto empty = tensors.bytes({0, 2, 1}, LayoutType::HWC, {});
  expect_message("F_Resize_Bilinear_HWC_U8_C1_Fallback: the input has no pixels",
                 [&] { F_Resize_Bilinear_HWC_U8_C1_Fallback(empty, output); });
  TensorPointer nothing = tensors.byte_output({0, 2, 1}, LayoutType::HWC);
  F_Resize_Bilinear_HWC_U8_C1_Fallback(flexible, nothing);
  F_Resize_Nearest_HWC_U8_C1_Fallback(flexible, nothing);
}

}  // namespace
}  // namespace marlo::test
