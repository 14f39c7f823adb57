#include "qrt_core/kernel/image/geometry_functions.h"

#include <gtest/gtest.h>

#include <functional>
#include <numeric>

#include "qrt_core/kernel/image/image_process.h"
#include "tests/support/image_oracle.h"
#include "tests/support/image_tensors.h"

// Turns, flips and crops: every pixel to its place.

namespace marlo::test {
namespace {

using kernel::ImageProcessFallback;
using kernel::ImageProcessSSE;
using runtime::DataType;
using runtime::LayoutType;
using namespace kernel::functional;

struct Place {
  size_t y, x;
};

// Where pixel (y, x) of a picture of `height` x `width` goes.
using Mapping = Place (*)(size_t y, size_t x, size_t height, size_t width);

struct Move {
  int code;
  bool turned;
  Mapping mapping;
  void (*function)(const TensorPointer&, TensorPointer&);
};

const std::vector<Move> kMoves{
    {50, true,
     [](size_t y, size_t x, size_t height, size_t) {
       return Place{x, height - 1 - y};
     },
     F_Rotate_Clockwise90_HWC_Fallback},
    {51, false,
     [](size_t y, size_t x, size_t height, size_t width) {
       return Place{height - 1 - y, width - 1 - x};
     },
     F_Rotate_Clockwise180_HWC_Fallback},
    {52, true,
     [](size_t y, size_t x, size_t, size_t width) {
       return Place{width - 1 - x, y};
     },
     F_Rotate_Clockwise270_HWC_Fallback},
    {53, false,
     [](size_t y, size_t x, size_t, size_t width) {
       return Place{y, width - 1 - x};
     },
     F_HFlip_HWC_Fallback},
    {54, false,
     [](size_t y, size_t x, size_t height, size_t) {
       return Place{height - 1 - y, x};
     },
     F_VFlip_HWC_Fallback},
};

// Moves planes of pixels of `pixel` bytes one by one.
std::vector<uint8_t> moved(const Move& move, const std::vector<uint8_t>& input, size_t planes,
                           size_t height, size_t width, size_t pixel) {
  std::vector<uint8_t> output(input.size());
  const size_t out_width = move.turned ? height : width;
  for (size_t p = 0; p < planes; ++p) {
    for (size_t y = 0; y < height; ++y) {
      for (size_t x = 0; x < width; ++x) {
        const Place to = move.mapping(y, x, height, width);
        std::copy_n(input.data() + ((p * height + y) * width + x) * pixel, pixel,
                    output.data() + (p * height * width + to.y * out_width + to.x) * pixel);
      }
    }
  }
  return output;
}

void expect_moves(ImageTensors& tensors, DataType type, uint32_t height, uint32_t width,
                  uint32_t channels) {
  const size_t element = runtime::ElementSize(type);
  const auto values = random_bytes(size_t{height} * width * channels * element, height);
  for (const Move& move : kMoves) {
    const uint32_t h = move.turned ? width : height;
    const uint32_t w = move.turned ? height : width;
    const auto planar = moved(move, values, channels, height, width, element);
    const auto interleaved = moved(move, values, 1, height, width, element * channels);
    const auto planes = tensors.input({channels, height, width}, type, LayoutType::CHW,
                                      values.data(), values.size());
    const auto pixels = tensors.input({height, width, channels}, type, LayoutType::HWC,
                                      values.data(), values.size());
    const auto to_planes = tensors.output({channels, h, w}, type, LayoutType::CHW);
    TensorPointer to_pixels = tensors.output({h, w, channels}, type, LayoutType::HWC);
    ImageProcessFallback().ConvertPixel(planes, to_planes, move.code, tensors);
    ASSERT_TRUE(same_elements(bytes_of(to_planes), planar)) << move.code;
    ImageProcessFallback().ConvertPixel(pixels, to_pixels, move.code, tensors);
    ASSERT_TRUE(same_elements(bytes_of(to_pixels), interleaved)) << move.code;
    std::memset(to_pixels->handle.cpu, 0, runtime::ByteSize(to_pixels->shape));
    move.function(pixels, to_pixels);
    ASSERT_TRUE(same_elements(bytes_of(to_pixels), interleaved)) << move.code;
  }
}

TEST(TurnAndFlipTest, MovesBytesAtEverySize) {
  ImageTensors tensors;
  for_each_size([&](uint32_t height, uint32_t width) {
    expect_moves(tensors, DataType::UINT8, height, width, 3);
  });
}

TEST(TurnAndFlipTest, MovesElementsAndPixelsOfAnySize) {
  ImageTensors tensors;
  for (const uint32_t height : {1u, 3u, 8u, 17u}) {
    for (const uint32_t width : {1u, 4u, 9u, 33u}) {
      for (uint32_t channels = 1; channels <= 6; ++channels) {
        expect_moves(tensors, DataType::UINT8, height, width, channels);
        expect_moves(tensors, DataType::INT16, height, width, channels);
        expect_moves(tensors, DataType::FLOAT32, height, width, channels);
      }
    }
  }
}

TEST(TurnAndFlipTest, MovesEveryDataTypeAndPicturesWithoutPixels) {
  ImageTensors tensors;
  for (uint32_t type = 0; type <= static_cast<uint32_t>(DataType::UINT8); ++type) {
    for (const uint32_t height : {0u, 1u, 2u, 13u, 16u}) {
      for (const uint32_t width : {0u, 1u, 5u, 31u}) {
        for (const uint32_t channels : {0u, 1u, 2u, 3u, 7u}) {
          expect_moves(tensors, static_cast<DataType>(type), height, width, channels);
        }
      }
    }
  }
}

TEST(TurnAndFlipTest, IgnoresOtherLayouts) {
  ImageTensors tensors;
  const auto input = tensors.bytes({2, 2, 1}, LayoutType::FLEXIABLE, {1, 2, 3, 4});
  const auto output = tensors.byte_output({2, 2, 1}, LayoutType::FLEXIABLE);
  for (const Move& move : kMoves) {
    ImageProcessFallback().ConvertPixel(input, output, move.code, tensors);
    EXPECT_EQ(bytes_of(output), std::vector<uint8_t>(4, 0xA5));
  }
}

TEST(TurnAndFlipTest, RefusesTensorsThatDoNotFit) {
  ImageTensors tensors;
  const auto input = tensors.bytes({1, 2, 4}, LayoutType::CHW, std::vector<uint8_t>(8, 1));
  const auto pixels = tensors.byte_output({1, 2, 4}, LayoutType::HWC);
  const auto other = tensors.byte_output({1, 3, 4}, LayoutType::CHW);
  const auto floats = tensors.output({1, 2, 4}, DataType::FLOAT32, LayoutType::CHW);
  const auto flat = tensors.byte_output({2, 4}, LayoutType::CHW);
  ImageProcessFallback process;
  for (const Move& move : kMoves) {
    expect_silent_failure([&] { process.ConvertPixel(input, pixels, move.code, tensors); });
  }
  expect_message(
      "ClockwiseRotate90: the output must have the height and the width of the input, exchanged",
      [&] { process.ConvertPixel(input, other, 50, tensors); });
  expect_message("Flip_Vertical: the output must have the height and the width of the input",
                 [&] { process.ConvertPixel(input, other, 54, tensors); });
  expect_message(
      "Flip_Horizintal: both tensors must have the same channels and elements of one size",
      [&] { process.ConvertPixel(input, floats, 53, tensors); });
  expect_message("ClockwiseRotate180: a picture must have three dims",
                 [&] { process.ConvertPixel(input, flat, 51, tensors); });
}

TEST(VectorTurnTest, EqualsThePortableOneForEveryChannelCount) {
  ImageTensors tensors;
  const auto expect_equal = [&](const std::vector<uint32_t>& dims, LayoutType layout) {
    const bool planar = layout == LayoutType::CHW;
    const auto turned = planar ? std::vector<uint32_t>{dims[0], dims[2], dims[1]}
                               : std::vector<uint32_t>{dims[1], dims[0], dims[2]};
    const auto values = random_bytes(size_t{dims[0]} * dims[1] * dims[2], dims[0] + dims[1]);
    const auto input = tensors.bytes(dims, layout, values);
    for (const Move& move : {kMoves[0], kMoves[2]}) {
      const auto output = tensors.byte_output(turned, layout);
      const auto portable = tensors.byte_output(turned, layout);
      ImageProcessSSE().ConvertPixel(input, output, move.code, tensors);
      ImageProcessFallback().ConvertPixel(input, portable, move.code, tensors);
      ASSERT_TRUE(same_elements(bytes_of(output), bytes_of(portable)))
          << testing::PrintToString(dims) << (planar ? " CHW" : " HWC");
      const auto oracle = planar ? moved(move, values, dims[0], dims[1], dims[2], 1)
                                 : moved(move, values, 1, dims[0], dims[1], dims[2]);
      ASSERT_TRUE(same_elements(bytes_of(output), oracle));
    }
  };
  for (uint32_t first = 0; first <= 68; first += 4) {
    for (uint32_t second = 0; second <= 68; second += 4) {
      for (const uint32_t last : {0u, 1u, 2u, 3u, 4u, 5u, 17u}) {
        expect_equal({first, second, last}, LayoutType::HWC);
        expect_equal({first, second, last}, LayoutType::CHW);
      }
    }
  }
}

// A layout that says nothing of channels: height and width come first.
TEST(VectorTurnTest, TakesOtherLayoutsAsInterleavedPixels) {
  ImageTensors tensors;
  for (const std::vector<uint32_t>& rest : {std::vector<uint32_t>{}, {1}, {3}, {2, 3}}) {
    std::vector<uint32_t> dims{8, 12}, turned{12, 8};
    dims.insert(dims.end(), rest.begin(), rest.end());
    turned.insert(turned.end(), rest.begin(), rest.end());
    const size_t pixel = std::accumulate(rest.begin(), rest.end(), size_t{1}, std::multiplies<>());
    const auto values = random_bytes(96 * pixel, 1);
    const auto input = tensors.bytes(dims, LayoutType::FLEXIABLE, values);
    for (const Move& move : {kMoves[0], kMoves[2]}) {
      const auto output = tensors.byte_output(turned, LayoutType::FLEXIABLE);
      ImageProcessSSE().ConvertPixel(input, output, move.code, tensors);
      EXPECT_TRUE(same_elements(bytes_of(output), moved(move, values, 1, 8, 12, pixel)));
    }
  }
}

TEST(VectorTurnTest, LooksAtTheOutputAsThePortableOneDoes) {
  ImageTensors tensors;
  const auto input = tensors.bytes({4, 8, 1}, LayoutType::HWC, std::vector<uint8_t>(32, 1));
  const auto expect_same_refusal = [&](const TensorPointer& output) {
    for (const int code : {50, 52}) {
      const auto by = [&](kernel::ImageProcess&& process) {
        return refusal_of([&] { process.ConvertPixel(input, output, code, tensors); });
      };
      const Refusal portable = by(ImageProcessFallback());
      EXPECT_NE(portable.text, "");
      EXPECT_EQ(by(ImageProcessSSE()).text, portable.text);
    }
  };
  expect_same_refusal(tensors.byte_output({4, 8, 1}, LayoutType::HWC));
  expect_same_refusal(tensors.byte_output({8, 4, 2}, LayoutType::HWC));
  expect_same_refusal(tensors.byte_output({8, 4, 1}, LayoutType::CHW));
  expect_same_refusal(tensors.byte_output({8, 4}, LayoutType::HWC));
  expect_same_refusal(tensors.output({8, 4, 1}, DataType::FLOAT32, LayoutType::HWC));
}

TEST(VectorTurnTest, LeavesOtherSizesAndTypesAlone) {
  ImageTensors tensors;
  const auto expect_untouched = [&](const TensorPointer& input) {
    for (const int code : {50, 52}) {
      const auto output = tensors.byte_output({40 * 40 * 4}, LayoutType::FLEXIABLE);
      const Refusal refusal =
          refusal_of([&] { ImageProcessSSE().ConvertPixel(input, output, code, tensors); });
      EXPECT_EQ(refusal.text, "");
      EXPECT_TRUE(refusal.lines.empty());
      EXPECT_EQ(bytes_of(output), std::vector<uint8_t>(40 * 40 * 4, 0xA5));
    }
  };
  for (const auto& [height, width] :
       {std::pair{30u, 40u}, std::pair{40u, 30u}, std::pair{5u, 4u}}) {
    expect_untouched(tensors.bytes({height, width, 1}, LayoutType::HWC,
                                   std::vector<uint8_t>(size_t{height} * width, 3)));
  }
  expect_untouched(tensors.floats({4, 4, 1}, LayoutType::HWC, std::vector<float>(16, 1.0f)));
}

// What the class's crop writes, byte by byte, into an output of `fill`.
std::vector<uint8_t> cropped(const std::vector<uint8_t>& input, int height, int width, int channels,
                             const OracleRectangle& r, size_t size, uint8_t fill) {
  std::vector<uint8_t> output(size, fill);
  const int columns = r.right - r.left + 1;
  for (int y = r.top; y <= r.bottom; ++y) {
    for (int x = r.left; x <= r.right; ++x) {
      if (y < 0 || y >= height || x < 0 || x >= width) continue;
      for (int c = 0; c < channels; ++c) {
        output.at(static_cast<size_t>(((y - r.top) * columns + x - r.left) * channels + c)) =
            input[static_cast<size_t>((y * width + x) * channels + c)];
      }
    }
  }
  return output;
}

const std::vector<std::array<float, 4>> kRectangles{
    {0.0f, 0.0f, 1.0f, 1.0f},     {0.25f, 0.5f, 0.75f, 0.9f},   {-0.5f, 0.0f, 0.5f, 0.5f},
    {0.3f, -0.7f, 1.4f, 1.3f},    {-0.2f, -0.2f, 1.2f, 1.2f},   {0.5f, 0.5f, 0.5f, 0.5f},
    {0.34f, 0.61f, 0.99f, 0.99f}, {-1.5f, -1.5f, -0.5f, -0.5f}, {1.1f, 0.2f, 1.7f, 0.8f},
};

TEST(CropTest, OfTheClassLeavesWhatIsOutside) {
  ImageTensors tensors;
  size_t turn = 0;
  for_each_size([&](uint32_t height, uint32_t width) {
    const auto& fractions = kRectangles[turn++ % kRectangles.size()];
    const int channels = static_cast<int>(turn % 4) + 1;
    const int h = static_cast<int>(height);
    const int w = static_cast<int>(width);
    const OracleRectangle r = rectangle_of(h, w, fractions);
    const auto depth = static_cast<uint32_t>(channels);
    const auto values = random_bytes(size_t{height} * width * depth, height);
    const auto input = tensors.bytes({height, width, depth}, LayoutType::HWC, values);
    const auto output = tensors.byte_output({static_cast<uint32_t>(r.bottom - r.top + 1),
                                             static_cast<uint32_t>(r.right - r.left + 1), depth},
                                            LayoutType::HWC);
    ImageProcessFallback().ConvertPixel(input, output, fractions[0], fractions[1], fractions[2],
                                        fractions[3], 99 + channels, tensors);
    const auto found = bytes_of(output);
    ASSERT_TRUE(same_elements(found, cropped(values, h, w, channels, r, found.size(), 0xA5)))
        << height << " x " << width << ", " << testing::PrintToString(fractions);
  });
}

TEST(CropTest, OfTheClassTakesRectanglesThatAreNone) {
  ImageTensors tensors;
  const auto input = tensors.bytes({2, 2, 1}, LayoutType::HWC, {1, 2, 3, 4});
  const auto output = tensors.byte_output({2, 2, 1}, LayoutType::HWC);
  for (const float number : {kNaN, kInfinity, -kInfinity, 1e20f, -1e20f}) {
    ImageProcessFallback().ConvertPixel(input, output, number, 0.0f, number, 1.0f, 100, tensors);
    ImageProcessFallback().ConvertPixel(input, output, 0.9f, 0.9f, 0.1f, number, 100, tensors);
  }
  EXPECT_EQ(bytes_of(output), std::vector<uint8_t>(4, 0xA5));
  expect_message("Crop_C1: a tensor of 4 bytes is too small, 14 bytes are needed", [&] {
    ImageProcessFallback().ConvertPixel(input, output, -1.0f, -0.5f, 1.0f, 1.0f, 100, tensors);
  });
}

struct BlockCrop {
  LayoutType layout;
  uint32_t outer, inner;
  void (*function)(const TensorPointer&, const unsigned int&, const unsigned int&,
                   const unsigned int&, const unsigned int&, TensorPointer&);
};

const std::vector<BlockCrop> kBlockCrops{{LayoutType::CHW, 3, 1, F_Crop_CHW_Memcpy},
                                         {LayoutType::HWC, 1, 3, F_Crop_HWC_Memcpy},
                                         {LayoutType::C4HW4, 2, 4, F_Crop_C4HW4_Memcpy},
                                         {LayoutType::C8HW8, 2, 8, F_Crop_C8HW8_Memcpy}};

std::vector<uint32_t> dims_of(const BlockCrop& crop, uint32_t height, uint32_t width) {
  if (crop.layout == LayoutType::CHW) return {crop.outer, height, width};
  if (crop.layout == LayoutType::HWC) return {height, width, crop.inner};
  return {crop.outer, height, width, crop.inner};
}

TEST(CropTest, OfTheFunctionsCutsEveryLayout) {
  ImageTensors tensors;
  for (const BlockCrop& crop : kBlockCrops) {
    for (const DataType type : {DataType::UINT8, DataType::FLOAT16, DataType::FLOAT32}) {
      Random random(9);
      for (int round = 0; round < 150; ++round) {
        const auto number = [&](uint32_t least, uint32_t most) {
          return static_cast<uint32_t>(
              random.integer(static_cast<int>(least), static_cast<int>(most)));
        };
        const uint32_t height = number(1, 67), width = number(1, 67);
        const uint32_t top = number(0, height - 1), left = number(0, width - 1);
        const uint32_t h = number(1, height - top), w = number(1, width - left);
        const size_t pixel = crop.inner * runtime::ElementSize(type);
        const auto values = random_bytes(crop.outer * height * width * pixel, height);
        std::vector<uint8_t> expected;
        for (size_t o = 0; o < crop.outer; ++o) {
          for (size_t y = top; y < top + h; ++y) {
            const auto row =
                values.begin() + static_cast<ptrdiff_t>(((o * height + y) * width + left) * pixel);
            expected.insert(expected.end(), row, row + static_cast<ptrdiff_t>(w * pixel));
          }
        }
        const auto input = tensors.input(dims_of(crop, height, width), type, crop.layout,
                                         values.data(), values.size());
        TensorPointer output = tensors.output(dims_of(crop, h, w), type, crop.layout);
        crop.function(input, top, left, h, w, output);
        ASSERT_TRUE(same_elements(bytes_of(output), expected));
      }
    }
  }
}

TEST(CropTest, OfBytesFillsWhatIsOutside) {
  ImageTensors tensors;
  Random random(5);
  for (int round = 0; round < 2000; ++round) {
    const int height = random.integer(1, 20), width = random.integer(1, 20);
    const int channels = random.integer(1, 4);
    const int top = random.integer(-25, 25), left = random.integer(-25, 25);
    const int h = random.integer(1, 30), w = random.integer(1, 30);
    const auto size = [](int number) { return static_cast<uint32_t>(number); };
    const auto values = random_bytes(size(height * width * channels), size(round));
    const auto input =
        tensors.bytes({size(height), size(width), size(channels)}, LayoutType::HWC, values);
    TensorPointer output = tensors.byte_output({size(h), size(w), size(channels)}, LayoutType::HWC);
    F_Crop_U8_HWC_Memcpy(input, top, left, h, w, 0x5C, output);
    const OracleRectangle r{left, top, left + w - 1, top + h - 1};
    const auto expected = cropped(values, height, width, channels, r, size(h * w * channels), 0x5C);
    ASSERT_TRUE(same_elements(bytes_of(output), expected)) << round;
  }
}

TEST(CropTest, OfBytesFarAwayIsAllFill) {
  ImageTensors tensors;
  const auto input = tensors.bytes({1, 1, 1}, LayoutType::HWC, {9});
  for (const int place : {std::numeric_limits<int>::max(), std::numeric_limits<int>::min()}) {
    TensorPointer output = tensors.byte_output({2, 2, 1}, LayoutType::HWC);
    F_Crop_U8_HWC_Memcpy(input, place, place, 2, 2, 7, output);
    EXPECT_EQ(bytes_of(output), std::vector<uint8_t>(4, 7));
  }
}

}  // namespace
}  // namespace marlo::test
