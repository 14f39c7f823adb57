#include <gtest/gtest.h>

#include "qrt_core/kernel/image/color_functions.h"
#include "qrt_core/kernel/image/image_process.h"
#include "qrt_core/kernel/image/yuv_image.h"
#include "tests/support/compare.h"
#include "tests/support/image_oracle.h"
#include "tests/support/image_tensors.h"

// Colours, layouts and data types against their formulas, bit for bit.

namespace marlo::test {
namespace {

using kernel::ImageProcessFallback;
using kernel::YUVCvtMatrix;
using runtime::DataType;
using runtime::LayoutType;
using namespace kernel::functional;

enum Code { kRgbaToRgb = 1, kRgbaToBgr = 3, kRgbToBgr = 4, kBgrToGray = 6, kRgbToGray = 7 };
enum MoreCodes { kRgbaToGray = 11, kNv12 = 22, kNv21 = 24, kIyuv = 32 };
enum LayoutCodes { kToPlanes = 60, kToPixels = 61, kToFloat = 65 };

// Random pixels in either layout.
struct Source {
  Source(uint32_t rows, uint32_t columns, uint32_t depth)
      : height(rows),
        width(columns),
        channels(depth),
        values(random_bytes(size_t{rows} * columns * depth, rows * 1000 + columns)) {}

  size_t pixels() const { return size_t{height} * width; }
  uint8_t of_pixel(size_t pixel, size_t c) const { return values[pixel * channels + c]; }
  uint8_t of_plane(size_t pixel, size_t c) const { return values[c * pixels() + pixel]; }

  TensorPointer interleaved(ImageTensors& tensors) const {
    return tensors.bytes({height, width, channels}, LayoutType::HWC, values);
  }
  TensorPointer planar(ImageTensors& tensors) const {
    return tensors.bytes({channels, height, width}, LayoutType::CHW, values);
  }

  uint32_t height, width, channels;
  std::vector<uint8_t> values;
};

// Runs an operation of the class, and returns the planes that it made.
std::vector<uint8_t> converted(ImageTensors& tensors, const TensorPointer& input, int code,
                               std::vector<uint32_t> dims) {
  const auto output = tensors.byte_output(dims, LayoutType::CHW);
  ImageProcessFallback().ConvertPixel(input, output, code, tensors);
  return bytes_of(output);
}

TEST(GrayTest, IsTheIntegerSumInBothLayouts) {
  ImageTensors tensors;
  for_each_size([&](uint32_t height, uint32_t width) {
    const Source source(height, width, 3);
    std::vector<uint8_t> of_rgb, of_bgr, of_rgb_planes, of_bgr_planes;
    for (size_t i = 0; i < source.pixels(); ++i) {
      const auto gray = [&](auto get, size_t red, size_t blue) {
        return integer_gray(get(red), get(1), get(blue));
      };
      const auto pixel = [&](size_t c) { return source.of_pixel(i, c); };
      const auto plane = [&](size_t c) { return source.of_plane(i, c); };
      of_rgb.push_back(gray(pixel, 0, 2));
      of_bgr.push_back(gray(pixel, 2, 0));
      of_rgb_planes.push_back(gray(plane, 0, 2));
      of_bgr_planes.push_back(gray(plane, 2, 0));
    }
    const std::vector<uint32_t> dims{1, height, width};
    const auto pixels = source.interleaved(tensors);
    const auto planes = source.planar(tensors);
    ASSERT_TRUE(same_elements(converted(tensors, pixels, kRgbToGray, dims), of_rgb));
    ASSERT_TRUE(same_elements(converted(tensors, pixels, kBgrToGray, dims), of_bgr));
    ASSERT_TRUE(same_elements(converted(tensors, planes, kRgbToGray, dims), of_rgb_planes));
    ASSERT_TRUE(same_elements(converted(tensors, planes, kRgbaToGray, dims), of_rgb_planes));
    ASSERT_TRUE(same_elements(converted(tensors, planes, kBgrToGray, dims), of_bgr_planes));
  });
}

TEST(GrayTest, DropsTheFourthByteOfInterleavedPixels) {
  ImageTensors tensors;
  for_each_size([&](uint32_t height, uint32_t width) {
    const Source source(height, width, 4);
    std::vector<uint8_t> expected, weighted;
    for (size_t i = 0; i < source.pixels(); ++i) {
      const auto at = [&](size_t c) { return source.of_pixel(i, c); };
      expected.push_back(integer_gray(at(0), at(1), at(2)));
      weighted.push_back(weighted_gray(at(0), at(1), at(2)));
    }
    const auto pixels = source.interleaved(tensors);
    const auto found = converted(tensors, pixels, kRgbaToGray, {1, height, width});
    ASSERT_TRUE(same_elements(found, expected));
    TensorPointer output = tensors.byte_output({height, width, 1}, LayoutType::HWC);
    F_ColorCvt_BGRA8888_To_Gray8_Fallback(pixels, output);
    ASSERT_TRUE(same_elements(bytes_of(output), weighted));
  });
}

TEST(GrayTest, LeavesTheOutputOfAnotherLayoutAlone) {
  ImageTensors tensors;
  const auto input = tensors.bytes({2, 2, 3}, LayoutType::FLEXIABLE, random_bytes(12, 1));
  const std::vector<uint8_t> untouched(4, 0xA5);
  for (const int code : {int{kRgbToGray}, int{kBgrToGray}, int{kRgbaToGray}}) {
    EXPECT_EQ(converted(tensors, input, code, {1, 2, 2}), untouched);
  }
}

// Both functions on a picture of all colours that `chosen` takes.
template <typename Chosen>
void expect_double_sums(size_t least, Chosen chosen) {
  ImageTensors tensors;
  std::vector<uint8_t> three, four, expected;
  for (int a = 0; a < 256; ++a) {
    for (int b = 0; b < 256; ++b) {
      for (int c = 0; c < 256; ++c) {
        if (!chosen(a, b, c)) continue;
        for (const int value : {a, b, c}) three.push_back(static_cast<uint8_t>(value));
        for (const int value : {a, b, c, a ^ 0x5A}) four.push_back(static_cast<uint8_t>(value));
        expected.push_back(weighted_gray(a, b, c));
      }
    }
  }
  const auto count = static_cast<uint32_t>(expected.size());
  ASSERT_GE(count, least);
  TensorPointer output = tensors.byte_output({1, count, 1}, LayoutType::HWC);
  F_ColorCvt_BGR888_To_Gray8_Fallback(tensors.bytes({1, count, 3}, LayoutType::HWC, three), output);
  EXPECT_TRUE(same_elements(bytes_of(output), expected));
  output = tensors.byte_output({1, count, 1}, LayoutType::HWC);
  F_ColorCvt_BGRA8888_To_Gray8_Fallback(tensors.bytes({1, count, 4}, LayoutType::HWC, four),
                                        output);
  EXPECT_TRUE(same_elements(bytes_of(output), expected));
}

int thousandths(int a, int b, int c) { return (299 * a + 587 * b + 114 * c) % 1000; }

// Where the rounding of each product shows.
TEST(GrayTest, OfTheFunctionsIsTheDoubleSumWhereThatIsWhole) {
  expect_double_sums(16000, [](int a, int b, int c) { return thousandths(a, b, c) == 0; });
}

TEST(GrayTest, OfTheFunctionsIsTheDoubleSumBesideWholeNumbers) {
  expect_double_sums(30000, [](int a, int b, int c) {
    const int rest = thousandths(a, b, c);
    return rest == 1 || rest == 999;
  });
}

TEST(GrayTest, OfTheFunctionsIsTheDoubleSumOfGrays) {
  expect_double_sums(256, [](int a, int b, int c) { return a == b && b == c; });
}

// All but one of 32 pixels are gray.
TEST(GrayTest, OfTheFunctionsIsTheDoubleSumOfAlmostGrays) {
  expect_double_sums(
      256, [](int a, int b, int c) { return a == b && (b == c || (a % 31 == 0 && c == b + 1)); });
}

TEST(GrayTest, OfPureBlueDiffersBetweenFunctionAndClass) {
  ImageTensors tensors;
  const auto blue = tensors.bytes({1, 1, 3}, LayoutType::HWC, {255, 0, 0});
  TensorPointer output = tensors.byte_output({1, 1, 1}, LayoutType::HWC);
  F_ColorCvt_BGR888_To_Gray8_Fallback(blue, output);
  EXPECT_EQ(bytes_of(output), std::vector<uint8_t>{76});
  EXPECT_EQ(converted(tensors, blue, kBgrToGray, {1, 1, 1}), std::vector<uint8_t>{28});
}

TEST(ChannelOrderTest, GoesToPlanes) {
  ImageTensors tensors;
  for_each_size([&](uint32_t height, uint32_t width) {
    const Source three(height, width, 3);
    const Source four(height, width, 4);
    std::vector<uint8_t> rgb, bgr, of_three, of_planes;
    for (size_t c = 0; c < 3; ++c) {
      for (size_t i = 0; i < four.pixels(); ++i) {
        rgb.push_back(four.of_pixel(i, c));
        bgr.push_back(four.of_pixel(i, 2 - c));
        of_three.push_back(three.of_pixel(i, 2 - c));
        of_planes.push_back(three.of_plane(i, 2 - c));
      }
    }
    const std::vector<uint32_t> dims{3, height, width};
    const auto pixels = four.interleaved(tensors);
    ASSERT_TRUE(same_elements(converted(tensors, pixels, kRgbaToRgb, dims), rgb));
    ASSERT_TRUE(same_elements(converted(tensors, pixels, kRgbaToBgr, dims), bgr));
    ASSERT_TRUE(
        same_elements(converted(tensors, three.interleaved(tensors), kRgbToBgr, dims), of_three));
    ASSERT_TRUE(
        same_elements(converted(tensors, three.planar(tensors), kRgbToBgr, dims), of_planes));
    TensorPointer output = tensors.byte_output(dims, LayoutType::CHW);
    F_ColorCvt_RGBA2RGB_HWC_UInt8_To_CHW_UInt8_Fallback(pixels, output);
    ASSERT_TRUE(same_elements(bytes_of(output), rgb));
    F_ColorCvt_BGRA2RGB_HWC_UInt8_To_CHW_UInt8_Fallback(pixels, output);
    ASSERT_TRUE(same_elements(bytes_of(output), bgr));
  });
}

// Planes of red, green and blue of a YUV picture, pixel by pixel.
template <typename Pixel>
std::vector<uint8_t> rgb_planes(uint32_t height, uint32_t width, Pixel&& pixel) {
  std::vector<uint8_t> planes(size_t{3} * height * width);
  for (uint32_t y = 0; y < height; ++y) {
    for (uint32_t x = 0; x < width; ++x) {
      const Rgb rgb = pixel(y, x);
      for (size_t c = 0; c < 3; ++c) planes[(c * height + y) * width + x] = rgb[c];
    }
  }
  return planes;
}

TEST(YuvTest, OfTheClassWrapsAndSharesChrominance) {
  ImageTensors tensors;
  for_each_size([&](uint32_t half_height, uint32_t half_width) {
    if (half_height > 34) return;
    const uint32_t height = 2 * half_height;
    const uint32_t width = 2 * half_width;
    const size_t pixels = size_t{height} * width;
    auto bytes = random_bytes(pixels / 2 * 3, height * 100 + width);
    const auto input = kernel::yuv420_image(*tensors.device(), height, width, bytes.data());
    const auto expected = [&](size_t u, size_t v, size_t step) {
      return rgb_planes(height, width, [&](uint32_t y, uint32_t x) {
        const size_t pair = step * (size_t{y / 2} * half_width + x / 2);
        return yuv_pixel(bytes[size_t{y} * width + x], bytes[u + pair], bytes[v + pair]);
      });
    };
    const std::vector<uint32_t> dims{3, height, width};
    ASSERT_TRUE(
        same_elements(converted(tensors, input, kNv12, dims), expected(pixels, pixels + 1, 2)));
    ASSERT_TRUE(
        same_elements(converted(tensors, input, kNv21, dims), expected(pixels + 1, pixels, 2)));
    ASSERT_TRUE(same_elements(converted(tensors, input, kIyuv, dims),
                              expected(pixels, pixels + pixels / 4, 1)));
  });
}

// Every luminance with every value of either chrominance.
TEST(YuvTest, OfTheClassIsExactForAllValues) {
  ImageTensors tensors;
  for (const int other : {0, 128, 255}) {
    std::vector<uint8_t> bytes, expected(3 * 512 * 512);
    for (int y = 0; y < 512; ++y) bytes.insert(bytes.end(), 512, static_cast<uint8_t>(y / 2));
    for (int pair = 0; pair < 256 * 256; ++pair) {
      bytes.push_back(static_cast<uint8_t>(pair % 256));
      bytes.push_back(static_cast<uint8_t>((pair + other) % 256));
    }
    const auto input = kernel::yuv420_image(*tensors.device(), 512, 512, bytes.data());
    const auto planes = rgb_planes(512, 512, [&](uint32_t y, uint32_t x) {
      const int u = static_cast<int>(x / 2);
      return yuv_pixel(static_cast<int>(y / 2), u, (u + other) % 256);
    });
    EXPECT_TRUE(same_elements(converted(tensors, input, kNv12, {3, 512, 512}), planes));
  }
}

// Rows far longer than any vector, also by a little.
TEST(YuvTest, OfTheClassTakesWideRows) {
  ImageTensors tensors;
  for (const uint32_t width : {510u, 514u, 1022u, 1026u, 1402u, 4100u}) {
    auto bytes = random_bytes(size_t{width} * 6, width);
    GuardedBytes kept(bytes.size());
    std::copy(bytes.begin(), bytes.end(), kept.data());
    const auto input = kernel::yuv420_image(*tensors.device(), 4, width, kept.data());
    const size_t pixels = size_t{4} * width;
    const auto expected = [&](size_t u, size_t v, size_t step) {
      return rgb_planes(4, width, [&](uint32_t y, uint32_t x) {
        const size_t pair = step * (size_t{y / 2} * (width / 2) + x / 2);
        return yuv_pixel(bytes[size_t{y} * width + x], bytes[u + pair], bytes[v + pair]);
      });
    };
    const std::vector<uint32_t> dims{3, 4, width};
    EXPECT_TRUE(
        same_elements(converted(tensors, input, kNv12, dims), expected(pixels, pixels + 1, 2)));
    EXPECT_TRUE(
        same_elements(converted(tensors, input, kNv21, dims), expected(pixels + 1, pixels, 2)));
    EXPECT_TRUE(same_elements(converted(tensors, input, kIyuv, dims),
                              expected(pixels, pixels + pixels / 4, 1)));
  }
}

// The chrominance lies behind the luminance, so a tensor of the library that ends there is refused.
TEST(YuvTest, OfTheClassDemandsTheChrominanceOfATensorOfTheLibrary) {
  ImageTensors tensors;
  const auto planes = tensors.byte_output({3, 4, 6}, LayoutType::CHW);
  const auto bytes = random_bytes(48, 3);
  const std::pair<int, const char*> names[] = {{kNv12, "ConvertYUV2RGB_NV12"},
                                               {kNv21, "ConvertYUV2RGB_NV21"},
                                               {kIyuv, "ConvertYUV2RGB_IYUV"}};
  for (const auto& [code, name] : names) {
    const auto convert = [&, code = code](const TensorPointer& picture) {
      ImageProcessFallback().ConvertPixel(picture, planes, code, tensors);
    };
    expect_message(std::string(name) +
                       ": a picture of 6 x 4 has 36 bytes with its chrominance, and its tensor "
                       "ends behind 24; yuv420_image makes one of a larger buffer",
                   [&] { convert(tensors.device()->CreateYPlane8BitTensor(4, 6, bytes.data())); });
    // One with room is taken, and so is the application's own, whatever its dims say.
    const auto large = tensors.device()->CreateU8HWCMainMem({4, 6, 2}, bytes.data());
    convert(large);
    const auto of_large = bytes_of(planes);
    std::memset(planes->handle.cpu, 0, 72);
    convert(tensors.bytes({4, 6, 1}, LayoutType::HWC, bytes));
    EXPECT_EQ(bytes_of(planes), of_large);
    // Odd sizes are ignored, however small the tensor is.
    const auto odd = tensors.byte_output({3, 5, 6}, LayoutType::CHW);
    ImageProcessFallback().ConvertPixel(
        tensors.device()->CreateYPlane8BitTensor(5, 6, bytes.data()), odd, code, tensors);
    EXPECT_EQ(bytes_of(odd), std::vector<uint8_t>(90, 0xA5));
  }
}

TEST(YuvTest, RedOfBrightRedIs177) {
  ImageTensors tensors;
  std::vector<uint8_t> bytes{255, 255, 255, 255, 128, 255};
  const auto input = kernel::yuv420_image(*tensors.device(), 2, 2, bytes.data());
  EXPECT_EQ(converted(tensors, input, kNv12, {3, 2, 2})[0], 177);
}

TEST(YuvTest, OddSizesAndOtherLayoutsAreIgnored) {
  ImageTensors tensors;
  std::vector<uint8_t> bytes(100, 7);
  ImageProcessFallback process;
  for (const int code : {int{kNv12}, int{kNv21}, int{kIyuv}}) {
    for (const auto& [height, width] : {std::pair{4u, 5u}, std::pair{5u, 4u}, std::pair{3u, 3u}}) {
      const auto input = kernel::yuv420_image(*tensors.device(), height, width, bytes.data());
      const auto found = converted(tensors, input, code, {3, height, width});
      EXPECT_EQ(found, std::vector<uint8_t>(3 * height * width, 0xA5));
    }
    const auto input = kernel::yuv420_image(*tensors.device(), 4, 4, bytes.data());
    const auto pixels = tensors.byte_output({4, 4, 3}, LayoutType::HWC);
    process.ConvertPixel(input, pixels, code, tensors);
    EXPECT_EQ(bytes_of(pixels), std::vector<uint8_t>(48, 0xA5));
    const auto elsewhere = tensors.byte_output({3, 4, 4}, LayoutType::CHW);
    elsewhere->shape.location = runtime::LocationType::OpenGLImage;
    process.ConvertPixel(input, elsewhere, code, tensors);
    EXPECT_EQ(bytes_of(elsewhere), std::vector<uint8_t>(48, 0xA5));
    input->shape.location = runtime::LocationType::OpenGLImage;
    EXPECT_EQ(converted(tensors, input, code, {3, 4, 4}), std::vector<uint8_t>(48, 0xA5));
  }
}

// A matrix and its factors as they are used.
struct MatrixCase {
  YUVCvtMatrix matrix;
  std::array<int, 10> factors;
};

const std::vector<MatrixCase> kMatrices{
    {{1.0f, 0.0f, 1.402f, -0.344f, -0.714f, 1.772f, 0.0f, 0.0f, 0.5f, 0.5f},
     {32, 0, 44, -11, -22, 56, 0, 0, 128, 128}},
    {{1.164f, 1.596f, 0.0f, -0.813f, -0.391f, 0.0f, 2.018f, 0.0625f, 0.5f, 0.5f},
     {37, 51, 0, -26, -12, 0, 64, 16, 128, 128}},
    {{-1.5f, 100.25f, -3.0f, 1000.0f, 0.03f, -0.03f, -1000.0f, -0.25f, 1.999f, -127.0f},
     {-48, 3208, -96, 32000, 0, 0, -32000, -64, 511, -32512}},
};

TEST(YuvTest, OfTheFunctionsFollowsTheMatrix) {
  ImageTensors tensors;
  for (const MatrixCase& use : kMatrices) {
    const auto matrix = std::make_shared<YUVCvtMatrix>(use.matrix);
    for_each_size([&](uint32_t half_height, uint32_t half_width) {
      if (half_height > 5 && half_width > 5) return;
      const uint32_t height = 2 * half_height;
      const uint32_t width = 2 * half_width * (half_width > 60 ? 5 : 1);
      const auto y_values = random_bytes(size_t{height} * width, width);
      const auto pairs = random_bytes(y_values.size() / 2, height);
      const auto luminance = tensors.bytes({height, width, 1}, LayoutType::HWC, y_values);
      const auto chrominance = tensors.bytes({height / 2, width / 2, 2}, LayoutType::HWC, pairs);
      TensorPointer output = tensors.byte_output({3, height, width}, LayoutType::CHW);
      F_ColorCvt_YUV_2Plane_UInt8_To_CHW_UInt8_Fallback(luminance, chrominance, matrix, output);
      const auto planes_by = [&](size_t b, size_t r, size_t step) {
        return rgb_planes(height, width, [&](uint32_t y, uint32_t x) {
          const size_t pair = step * (size_t{y / 2} * (width / 2) + x / 2);
          return yuv_pixel(y_values[size_t{y} * width + x], pairs[b + pair], pairs[r + pair],
                           use.factors);
        });
      };
      ASSERT_TRUE(same_elements(bytes_of(output), planes_by(0, 1, 2)));

      const auto middle = pairs.begin() + static_cast<ptrdiff_t>(pairs.size() / 2);
      const auto plane_b = tensors.bytes({height / 2, width / 2, 1}, LayoutType::HWC,
                                         std::vector<uint8_t>(pairs.begin(), middle));
      const auto plane_r = tensors.bytes({height / 2, width / 2, 1}, LayoutType::HWC,
                                         std::vector<uint8_t>(middle, pairs.end()));
      F_ColorCvt_YUV_3Plane_UInt8_To_CHW_UInt8_Fallback(luminance, plane_b, plane_r, matrix,
                                                        output);
      ASSERT_TRUE(same_elements(bytes_of(output), planes_by(0, pairs.size() / 2, 1)));
    });
  }
}

// Matrices that no integer holds give some picture, and nothing worse.
TEST(YuvTest, OfTheFunctionsTakesAnyMatrix) {
  ImageTensors tensors;
  const auto luminance = tensors.bytes({2, 2, 1}, LayoutType::HWC, {1, 2, 3, 4});
  const auto chrominance = tensors.bytes({1, 1, 2}, LayoutType::HWC, {5, 6});
  for (const float number : {kNaN, kInfinity, -kInfinity, 1e30f, -1e30f}) {
    const auto matrix = std::make_shared<YUVCvtMatrix>(YUVCvtMatrix{
        number, number, number, number, number, number, number, number, number, number});
    TensorPointer output = tensors.byte_output({3, 2, 2}, LayoutType::CHW);
    F_ColorCvt_YUV_2Plane_UInt8_To_CHW_UInt8_Fallback(luminance, chrominance, matrix, output);
    EXPECT_EQ(bytes_of(output), std::vector<uint8_t>(12, 0));
  }
}

// Elements of `size` bytes from one layout to the other and back.
void expect_layouts(ImageTensors& tensors, DataType type, size_t size, uint32_t height,
                    uint32_t width, uint32_t channels) {
  const size_t count = size_t{height} * width;
  const auto pixels = random_bytes(count * channels * size, height * 100 + width);
  std::vector<uint8_t> planes(pixels.size());
  for (size_t i = 0; i < count; ++i) {
    for (size_t c = 0; c < channels; ++c) {
      std::copy_n(&pixels[(i * channels + c) * size], size, &planes[(c * count + i) * size]);
    }
  }
  const std::vector<uint32_t> chw{channels, height, width};
  const std::vector<uint32_t> hwc{height, width, channels};
  ImageProcessFallback process;
  const auto from_pixels = tensors.input(hwc, type, LayoutType::HWC, pixels.data(), pixels.size());
  const auto to_planes = tensors.output(chw, type, LayoutType::CHW);
  process.ConvertPixel(from_pixels, to_planes, kToPlanes, tensors);
  ASSERT_TRUE(same_elements(bytes_of(to_planes), planes));
  const auto from_planes = tensors.input(chw, type, LayoutType::CHW, planes.data(), planes.size());
  const auto to_pixels = tensors.output(hwc, type, LayoutType::HWC);
  process.ConvertPixel(from_planes, to_pixels, kToPixels, tensors);
  ASSERT_TRUE(same_elements(bytes_of(to_pixels), pixels));
}

TEST(LayoutTest, ChangesBothWaysForAllElements) {
  ImageTensors tensors;
  for_each_size([&](uint32_t height, uint32_t width) {
    expect_layouts(tensors, DataType::UINT8, 1, height, width, 3);
    expect_layouts(tensors, DataType::FLOAT32, 4, height, width, 3);
  });
  for (uint32_t channels = 1; channels <= 9; ++channels) {
    for (const uint32_t width : {1u, 7u, 16u, 35u, 600u}) {
      expect_layouts(tensors, DataType::UINT8, 1, 3, width, channels);
      expect_layouts(tensors, DataType::INT8, 1, 1, width, channels);
      expect_layouts(tensors, DataType::FLOAT16, 2, 3, width, channels);
      expect_layouts(tensors, DataType::INT16, 2, 1, width, channels);
      expect_layouts(tensors, DataType::UINT16, 2, 2, width, channels);
      expect_layouts(tensors, DataType::INT32, 4, 2, width, channels);
      expect_layouts(tensors, DataType::UINT32, 4, 3, width, channels);
    }
  }
}

// No pixels, no rows or no channels: nothing is written, and nothing fails.
TEST(EmptyPictureTest, OfEveryColourOperationIsEmpty) {
  ImageTensors tensors;
  for (const auto& [height, width] : {std::pair{0u, 0u}, std::pair{0u, 4u}, std::pair{4u, 0u}}) {
    const std::vector<uint32_t> planes{3, height, width};
    const auto three = tensors.bytes({height, width, 3}, LayoutType::HWC, {});
    const auto four = tensors.bytes({height, width, 4}, LayoutType::HWC, {});
    for (const int code : {int{kRgbToBgr}, int{kRgbToGray}, int{kBgrToGray}, int{kToPlanes}}) {
      EXPECT_TRUE(converted(tensors, three, code, planes).empty());
    }
    for (const int code : {int{kRgbaToRgb}, int{kRgbaToBgr}, int{kRgbaToGray}}) {
      EXPECT_TRUE(converted(tensors, four, code, planes).empty());
    }
    for (const int code : {int{kNv12}, int{kNv21}, int{kIyuv}}) {
      EXPECT_TRUE(converted(tensors, three, code, planes).empty());
    }
    expect_layouts(tensors, DataType::INT16, 2, height, width, 3);
    expect_layouts(tensors, DataType::INT32, 4, height, width, 3);
    TensorPointer output = tensors.byte_output(planes, LayoutType::CHW);
    F_ColorCvt_BGR888_To_Gray8_Fallback(three, output);
    F_ColorCvt_BGRA8888_To_Gray8_Fallback(four, output);
    F_ColorCvt_RGBA2RGB_HWC_UInt8_To_CHW_UInt8_Fallback(four, output);
    F_ColorCvt_BGRA2RGB_HWC_UInt8_To_CHW_UInt8_Fallback(four, output);
    const auto luminance = tensors.bytes({height, width, 1}, LayoutType::HWC, {});
    const auto pairs = tensors.bytes({height / 2, width / 2, 2}, LayoutType::HWC, {});
    const auto matrix = std::make_shared<YUVCvtMatrix>();
    F_ColorCvt_YUV_2Plane_UInt8_To_CHW_UInt8_Fallback(luminance, pairs, matrix, output);
    F_ColorCvt_YUV_3Plane_UInt8_To_CHW_UInt8_Fallback(luminance, pairs, pairs, matrix, output);
    const auto numbers = tensors.floats({3}, LayoutType::C, {1, 2, 3});
    const auto bytes = tensors.bytes(planes, LayoutType::CHW, {});
    TensorPointer floats = tensors.output(planes, DataType::FLOAT32, LayoutType::CHW);
    F_Normalize_CHW_U8_To_CHW_F32_Fallback(bytes, numbers, numbers, floats);
    const float multipliers[] = {1, 2, 3};
    Normalize_CHW_Float_SSE(floats, floats, multipliers, nullptr);
  }
}

TEST(FloatTest, IsTheByteItself) {
  ImageTensors tensors;
  for_each_size([&](uint32_t height, uint32_t width) {
    const Source source(height, width, 2);
    const auto output = tensors.output({2, height, width}, DataType::FLOAT32, LayoutType::CHW);
    ImageProcessFallback().ConvertPixel(source.planar(tensors), output, kToFloat, tensors);
    const std::vector<float> expected(source.values.begin(), source.values.end());
    ASSERT_TRUE(same_bits(values_of(*output), expected));
  });
}

TEST(NormalizeTest, OfBytesSubtractsAndThenMultiplies) {
  ImageTensors tensors;
  const std::vector<float> sub{123.675f, 0.1f, -7.0f};
  const std::vector<float> mul{0.0171248f, 1.0f / 3.0f, 255.0f};
  const auto subtrahends = tensors.floats({3}, LayoutType::C, sub);
  const auto multipliers = tensors.floats({3}, LayoutType::C, mul);
  for_each_size([&](uint32_t height, uint32_t width) {
    const Source source(height, width, 3);
    std::vector<float> expected;
    for (size_t c = 0; c < 3; ++c) {
      for (size_t i = 0; i < source.pixels(); ++i) {
        const float difference = static_cast<float>(source.of_plane(i, c)) - sub[c];
        expected.push_back(difference * mul[c]);
      }
    }
    TensorPointer output = tensors.output({3, height, width}, DataType::FLOAT32, LayoutType::CHW);
    F_Normalize_CHW_U8_To_CHW_F32_Fallback(source.planar(tensors), subtrahends, multipliers,
                                           output);
    ASSERT_TRUE(same_bits(values_of(*output), expected));
  });
}

TEST(NormalizeTest, OfFloatsLeavesOutWhatIsNull) {
  ImageTensors tensors;
  const std::vector<float> sub{0.1f, 1e30f, -kInfinity};
  const std::vector<float> mul{1.0f / 3.0f, 1e20f, -0.0f};
  for_each_size([&](uint32_t height, uint32_t width) {
    const size_t plane = size_t{height} * width;
    auto values = Random(height * 100 + width).uneven_floats(3 * plane, 100);
    values[0] = kNaN;
    values[plane - 1] = -0.0f;
    TensorPointer input = tensors.floats({3, height, width}, LayoutType::CHW, values);
    for (const bool with_sub : {false, true}) {
      for (const bool with_mul : {false, true}) {
        std::vector<float> expected(values.size(), float_of(0xA5A5A5A5));
        for (size_t i = 0; i < values.size() && (with_sub || with_mul); ++i) {
          float x = values[i];
          if (with_sub) x = x - sub[i / plane];
          if (with_mul) x = x * mul[i / plane];
          expected[i] = x;
        }
        TensorPointer output =
            tensors.output({3, height, width}, DataType::FLOAT32, LayoutType::CHW);
        Normalize_CHW_Float_SSE(input, output, with_mul ? mul.data() : nullptr,
                                with_sub ? sub.data() : nullptr);
        ASSERT_TRUE(same_bits(values_of(*output), expected));
      }
    }
    TensorPointer output = tensors.output({3, height, width}, DataType::FLOAT32, LayoutType::CHW);
    Normalize_CHW_Float_SSE(input, output, mul.data(), sub.data());
    Normalize_CHW_Float_SSE(input, input, mul.data(), sub.data());
    ASSERT_TRUE(same_bits(values_of(*input), values_of(*output)));
  });
}

}  // namespace
}  // namespace marlo::test
