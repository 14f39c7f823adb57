#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

#include "qrt_core/kernel/image/color_functions.h"
#include "qrt_core/kernel/image/image_process.h"
#include "qrt_core/kernel/image/picture_cores.h"
#include "tests/support/image_tensors.h"
#include "tests/support/processor.h"

// What AVX2 computes is what the portable class computes, to the bit.

namespace marlo::test {
namespace {

using kernel::ImageProcess;
using kernel::ImageProcessAVX2;
using kernel::ImageProcessFallback;
using runtime::DataType;
using runtime::LayoutType;
using namespace kernel::functional;
using Dims = std::vector<uint32_t>;

uintptr_t address_of(const void* pointer) { return reinterpret_cast<uintptr_t>(pointer); }

class ImageProcessAvx2 : public testing::Test {
 protected:
  void SetUp() override {
    if (!processor_has(runtime::InstructionSet::avx2)) GTEST_SKIP() << "no AVX2 here";
  }

  // Bytes of all values; as floats they are numbers of all sizes, denormal ones and NaNs too.
  TensorPointer random(const Dims& dims, DataType type, LayoutType layout) {
    const size_t size = runtime::ByteSize({dims, type, layout});
    const auto values = random_bytes(size, static_cast<uint32_t>(size));
    return tensors_.input(dims, type, layout, values.data(), size);
  }

  void expect_same(int code, const TensorPointer& input, const runtime::TensorShape& to) {
    const auto made_by = [&](ImageProcess&& process) {
      const auto output = tensors_.output(to.dims, to.data_type, to.layout);
      process.ConvertPixel(input, output, code, tensors_);
      return bytes_of(output);
    };
    const auto expected = made_by(ImageProcessFallback());
    ASSERT_TRUE(same_elements(made_by(ImageProcessAVX2()), expected))
        << "code " << code << " to " << to.dims[0] << " x " << to.dims[1] << " x " << to.dims[2];
  }

  void expect_same(int code, DataType type, LayoutType layout, const Dims& dims,
                   const runtime::TensorShape& to) {
    expect_same(code, random(dims, type, layout), to);
  }

  // All that the class has cores for, on one size.
  void expect_same_colors(uint32_t height, uint32_t width) {
    const runtime::TensorShape planes{{3, height, width}, DataType::UINT8, LayoutType::CHW};
    const runtime::TensorShape gray{{1, height, width}, DataType::UINT8, LayoutType::CHW};
    const auto three = random({height, width, 3}, DataType::UINT8, LayoutType::HWC);
    const auto four = random({height, width, 4}, DataType::UINT8, LayoutType::HWC);
    const auto colors = random({3, height, width}, DataType::UINT8, LayoutType::CHW);
    for (const int code : {1, 3}) expect_same(code, four, planes);
    for (const auto& input : {three, colors}) {
      expect_same(4, input, planes);
      for (const int code : {6, 7}) expect_same(code, input, gray);
    }
    for (const auto& input : {four, colors}) expect_same(11, input, gray);
    expect_same(65, colors, {{3, height, width}, DataType::FLOAT32, LayoutType::CHW});
  }

  void expect_same_moves(uint32_t height, uint32_t width, uint32_t channels, DataType type) {
    const Dims pixels{height, width, channels};
    const Dims planes{channels, height, width};
    for (const int code : {51, 53}) {
      expect_same(code, type, LayoutType::HWC, pixels, {pixels, type, LayoutType::HWC});
      expect_same(code, type, LayoutType::CHW, planes, {planes, type, LayoutType::CHW});
    }
    expect_same(60, type, LayoutType::HWC, pixels, {planes, type, LayoutType::CHW});
    expect_same(61, type, LayoutType::CHW, planes, {pixels, type, LayoutType::HWC});
  }

  ImageTensors tensors_;
};

TEST_F(ImageProcessAvx2, ConvertsColorsOfEverySize) {
  for (uint32_t width = 1; width <= 131; ++width) expect_same_colors(1, width);
  for (const uint32_t height : {2u, 3u, 7u}) {
    for (uint32_t width = 1; width <= 40; ++width) expect_same_colors(height, width);
  }
}

TEST_F(ImageProcessAvx2, MovesPixelsOfEverySize) {
  for (uint32_t width = 1; width <= 70; ++width) {
    for (uint32_t channels = 1; channels <= 5; ++channels) {
      expect_same_moves(width % 3 + 1, width, channels, DataType::UINT8);
    }
    for (const uint32_t channels : {1u, 3u}) {
      expect_same_moves(width % 3 + 1, width, channels, DataType::FLOAT32);
    }
  }
}

TEST_F(ImageProcessAvx2, ResizesToHalfAndToAnySize) {
  const auto expect_resized = [&](uint32_t height, uint32_t width, uint32_t out_height,
                                  uint32_t out_width) {
    for (uint32_t channels = 1; channels <= 4; ++channels) {
      expect_same(80 + static_cast<int>(channels), DataType::UINT8, LayoutType::FLEXIABLE,
                  {channels, height, width},
                  {{channels, out_height, out_width}, DataType::UINT8, LayoutType::FLEXIABLE});
    }
  };
  for (uint32_t width = 1; width <= 75; ++width) {
    const uint32_t height = width % 4 + 1;
    expect_resized(2 * height, 2 * width, height, width);
    expect_resized(2 * height + 1, 2 * width, height, width);
    expect_resized(2 * height, 2 * width - 1, height, width);
    expect_resized(height, width, 2 * height, 2 * width);
  }
  expect_resized(48, 64, 20, 31);
}

// All extremes in one pixel, where a sum of products would not fit.
TEST_F(ImageProcessAvx2, TakesTheBrightestAndTheDarkest) {
  std::vector<uint8_t> pixels(size_t{3} * 4 * 64);
  for (size_t i = 0; i < pixels.size(); ++i) pixels[i] = (i / 3 >> i % 3) % 2 == 0 ? 0xFF : 0;
  const auto three = tensors_.bytes({4, 64, 3}, LayoutType::HWC, pixels);
  const auto four = tensors_.bytes({3, 64, 4}, LayoutType::HWC, pixels);
  const auto wide = tensors_.bytes({3, 4, 64}, LayoutType::FLEXIABLE, pixels);
  for (const int code : {6, 7}) {
    expect_same(code, three, {{1, 4, 64}, DataType::UINT8, LayoutType::CHW});
  }
  expect_same(11, four, {{1, 3, 64}, DataType::UINT8, LayoutType::CHW});
  expect_same(83, wide, {{3, 2, 32}, DataType::UINT8, LayoutType::FLEXIABLE});
}

// Results of more than 4 MiB are written past the caches where planes begin at even addresses.
TEST_F(ImageProcessAvx2, WritesLargePictures) {
  if (runs_slowly()) GTEST_SKIP() << "millions of pixels";
  for (const uint32_t width : {1216u, 1201u}) {
    const Dims pixels{300, width, 3};
    const Dims planes{3, 300, width};
    constexpr DataType kFloat = DataType::FLOAT32;
    constexpr DataType kByte = DataType::UINT8;
    expect_same(60, kFloat, LayoutType::HWC, pixels, {planes, kFloat, LayoutType::CHW});
    expect_same(61, kFloat, LayoutType::CHW, planes, {pixels, kFloat, LayoutType::HWC});
    expect_same(65, kByte, LayoutType::CHW, planes, {planes, kFloat, LayoutType::CHW});
    const Dims many{1160, width, 3};
    const Dims many_planes{3, 1160, width};
    expect_same(4, kByte, LayoutType::HWC, many, {many_planes, kByte, LayoutType::CHW});
    expect_same(61, kByte, LayoutType::CHW, many_planes, {many, kByte, LayoutType::HWC});
  }
}

// Planes that begin with a line, in its middle, at bytes that no vector begins at, and each at another place.
TEST_F(ImageProcessAvx2, SplitsPixelsToPlanesThatBeginAnywhereInALine) {
  constexpr size_t kLine = 64;
  const size_t large = (size_t{4} << 20) / 3 + 1;
  for (const size_t count : {size_t{0}, size_t{31}, size_t{32}, size_t{95}, size_t{130}, large}) {
    if (count == large && runs_slowly()) continue;
    const auto pixels = random_bytes(3 * count, 1);
    const size_t plane = (count / kLine + 2) * kLine;
    for (const std::array<size_t, 3> places :
         {std::array<size_t, 3>{0, 0, 0}, {32, 32, 32}, {32, 0, 32}, {1, 1, 1}, {0, 16, 40}}) {
      const auto made_by = [&](const kernel::image::PictureCores& cores) {
        std::vector<uint8_t> bytes(3 * plane + kLine, 0xA5);
        uint8_t* const first = bytes.data() + kLine - address_of(bytes.data()) % kLine;
        cores.split_pixels(pixels.data(), 3, count, first + places[0], first + plane + places[1],
                           first + 2 * plane + places[2]);
        return std::vector<uint8_t>(first, first + 3 * plane);
      };
      ASSERT_TRUE(made_by(kernel::image::kAvx2Cores) == made_by(kernel::image::kPortableCores))
          << count << " pixels to planes " << places[0] << ", " << places[1] << " and " << places[2]
          << " bytes behind a line's beginning";
    }
  }
}

TEST_F(ImageProcessAvx2, FunctionsComputeWhatThePortableOnesDo) {
  for (uint32_t width = 1; width <= 200; ++width) {
    for (const uint32_t channels : {3u, 4u}) {
      auto values = random_bytes(size_t{2} * width * channels, width);
      // Every third pixel is gray, so that its sum is whole.
      for (size_t i = 0; i + channels <= values.size(); i += 3 * channels) {
        values[i + 1] = values[i + 2] = values[i];
      }
      const auto pixels = tensors_.bytes({2, width, channels}, LayoutType::HWC, values);
      TensorPointer expected = tensors_.byte_output({2, width, 1}, LayoutType::HWC);
      TensorPointer found = tensors_.byte_output({2, width, 1}, LayoutType::HWC);
      if (channels == 3) {
        F_ColorCvt_BGR888_To_Gray8_Fallback(pixels, expected);
        F_ColorCvt_BGR888_To_Gray8_AVX2(pixels, found);
      } else {
        F_ColorCvt_BGRA8888_To_Gray8_Fallback(pixels, expected);
        F_ColorCvt_BGRA8888_To_Gray8_AVX2(pixels, found);
      }
      ASSERT_TRUE(same_elements(bytes_of(found), bytes_of(expected))) << width << ", " << channels;
    }
  }
}

TEST_F(ImageProcessAvx2, NormalizesAsThePortableFunctions) {
  const float subtrahends[] = {123.7f, 0.1f, -4.0f};
  const float multipliers[] = {0.017f, 1e-40f, -3.0f};
  const auto means = tensors_.floats({3}, LayoutType::C, {subtrahends, subtrahends + 3});
  const auto scales = tensors_.floats({3}, LayoutType::C, {multipliers, multipliers + 3});
  std::vector<uint32_t> widths{720000};
  for (uint32_t width = 1; width <= 70; ++width) widths.push_back(width);
  for (const uint32_t width : widths) {
    const Dims dims{3, 1, width};
    const auto bytes = random(dims, DataType::UINT8, LayoutType::CHW);
    TensorPointer expected = tensors_.output(dims, DataType::FLOAT32, LayoutType::CHW);
    TensorPointer found = tensors_.output(dims, DataType::FLOAT32, LayoutType::CHW);
    F_Normalize_CHW_U8_To_CHW_F32_Fallback(bytes, means, scales, expected);
    F_Normalize_CHW_U8_To_CHW_F32_AVX2(bytes, means, scales, found);
    ASSERT_TRUE(same_elements(bytes_of(found), bytes_of(expected))) << width;
    TensorPointer floats = random(dims, DataType::FLOAT32, LayoutType::CHW);
    constexpr const float* kNone = nullptr;
    for (const float* const multiplier : {&multipliers[0], kNone}) {
      for (const float* const subtrahend : {&subtrahends[0], kNone}) {
        Normalize_CHW_Float_SSE(floats, expected, multiplier, subtrahend);
        Normalize_CHW_Float_AVX2(floats, found, multiplier, subtrahend);
        ASSERT_TRUE(same_elements(bytes_of(found), bytes_of(expected))) << width;
      }
    }
    Normalize_CHW_Float_SSE(floats, expected, multipliers, subtrahends);
    Normalize_CHW_Float_AVX2(floats, floats, multipliers, subtrahends);
    ASSERT_TRUE(same_elements(bytes_of(floats), bytes_of(expected))) << width;
  }
}

TEST_F(ImageProcessAvx2, RefusesWhatThePortableClassRefuses) {
  const auto small = tensors_.bytes({1, 1, 3}, LayoutType::HWC, {1, 2, 3});
  const auto planes = tensors_.byte_output({3, 2, 2}, LayoutType::CHW);
  for (const int code : {1, 3, 4, 6, 7, 11, 51, 53, 60, 61, 81, 83}) {
    const auto refused = [&](ImageProcess&& process) {
      return refusal_of([&] { process.ConvertPixel(small, planes, code, tensors_); });
    };
    const Refusal expected = refused(ImageProcessFallback());
    const Refusal found = refused(ImageProcessAVX2());
    EXPECT_FALSE(expected.text.empty()) << code;
    EXPECT_EQ(found.text, expected.text) << code;
    EXPECT_EQ(found.lines, expected.lines) << code;
  }
}

}  // namespace
}  // namespace marlo::test
