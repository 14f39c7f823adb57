#include <gtest/gtest.h>

#include <array>
#include <cmath>

#include "qrt_core/kernel/image/image_process.h"
#include "tests/support/compare.h"
#include "tests/support/image_oracle.h"
#include "tests/support/image_tensors.h"

// Warps of float planes against their formulas, bit for bit.

namespace marlo::test {
namespace {

using kernel::ImageProcessFallback;
using kernel::ImageProcessSSE;
using runtime::DataType;
using runtime::LayoutType;
using Matrix = std::array<float, 6>;
using Oracle = void (*)(const PlanarPicture&, const Matrix&, PlanarPicture&);

constexpr Matrix kIdentity{1, 0, 0, 0, 1, 0};

struct WarpCase {
  int code;
  Oracle oracle;
};
const std::vector<WarpCase> kWarps{
    {55, warp_normalized}, {56, warp_forward}, {57, warp_nearest}, {58, warp_bilinear}};

const std::vector<Matrix> kMatrices{
    kIdentity,
    {0.9f, 0.2f, -1.3f, -0.2f, 0.9f, 2.1f},
    {2.0f, 0.0f, 0.0f, 0.0f, 2.0f, 0.0f},
    {0.5f, 0.0f, 0.25f, 0.0f, 0.5f, -0.25f},
    {-1.0f, 0.0f, 12.0f, 0.0f, -1.0f, 9.0f},
    {0.0f, 1.0f, -0.5f, 1.0f, 0.0f, -1.5f},
    {1.0f, 0.0f, -0.9f, 0.0f, 1.0f, -0.6f},
};

PlanarPicture random_picture(int channels, int height, int width, uint32_t seed) {
  PlanarPicture picture{channels, height, width, {}};
  picture.values = Random(seed).floats(
      static_cast<size_t>(channels) * static_cast<size_t>(height * width), 9.0f);
  return picture;
}

std::vector<uint32_t> dims_of(const PlanarPicture& picture) {
  return {static_cast<uint32_t>(picture.channels), static_cast<uint32_t>(picture.height),
          static_cast<uint32_t>(picture.width)};
}

// Warps `input` into a picture of the size of `output`, and compares.
void expect_warp(ImageTensors& tensors, const WarpCase& warp, const PlanarPicture& input,
                 const Matrix& matrix, PlanarPicture output) {
  const auto from = tensors.floats(dims_of(input), LayoutType::CHW, input.values);
  const auto to = tensors.output(dims_of(output), DataType::FLOAT32, LayoutType::CHW);
  if (warp.code == 55) {
    ImageProcessSSE().ConvertPixel(from, to, matrix.data(), warp.code, tensors);
  } else {
    ImageProcessFallback().ConvertPixel(from, to, matrix.data(), warp.code, tensors);
  }
  std::fill(output.values.begin(), output.values.end(), float_of(0xA5A5A5A5));
  warp.oracle(input, matrix, output);
  ASSERT_TRUE(same_bits(values_of(*to), output.values))
      << "code " << warp.code << ", " << input.height << " x " << input.width << " to "
      << output.height << " x " << output.width << ", matrix " << testing::PrintToString(matrix);
}

TEST(WarpTest, FollowsTheFormulaAtEverySize) {
  ImageTensors tensors;
  size_t turn = 0;
  for_each_size([&](uint32_t h, uint32_t w) {
    const int height = static_cast<int>(h);
    const int width = static_cast<int>(w);
    const auto input = random_picture(3, height, width, h * 100 + w);
    const Matrix& matrix = kMatrices[turn++ % kMatrices.size()];
    const PlanarPicture same = input;
    const auto other = random_picture(3, width, height / 2 + 1, 1);
    for (const WarpCase& warp : kWarps) {
      expect_warp(tensors, warp, input, matrix, same);
      if (h % 3 == 0) expect_warp(tensors, warp, input, matrix, other);
    }
  });
}

TEST(WarpTest, TakesEveryMatrix) {
  ImageTensors tensors;
  Random random(3);
  std::vector<Matrix> matrices = kMatrices;
  for (int i = 0; i < 200; ++i) {
    Matrix matrix;
    for (float& number : matrix) number = 3.0f * random.unit();
    matrix[2] *= 5.0f;
    matrix[5] *= 5.0f;
    matrices.push_back(matrix);
  }
  for (const auto& [height, width] :
       {std::pair{9, 13}, std::pair{1, 1}, std::pair{1, 8}, std::pair{8, 1}, std::pair{2, 2}}) {
    const auto input = random_picture(3, height, width, 5);
    for (const Matrix& matrix : matrices) {
      for (const WarpCase& warp : kWarps) {
        expect_warp(tensors, warp, input, matrix, random_picture(3, 7, 11, 1));
      }
    }
  }
}

// Nothing is read outside of the picture, whatever the coordinates are.
TEST(WarpTest, StaysInsideForCoordinatesFarOutside) {
  ImageTensors tensors;
  const auto input = random_picture(3, 5, 6, 5);
  for (const float number : {1e6f, 3e9f, 1e19f, 1e38f, kInfinity, kNaN}) {
    for (const float sign : {1.0f, -1.0f}) {
      for (size_t place = 0; place < 6; ++place) {
        Matrix matrix = kIdentity;
        matrix[place] = sign * number;
        const auto from = tensors.floats({3, 5, 6}, LayoutType::CHW, input.values);
        const auto to = tensors.output({3, 4, 7}, DataType::FLOAT32, LayoutType::CHW);
        for (const int code : {56, 57, 58}) {
          ImageProcessFallback().ConvertPixel(from, to, matrix.data(), code, tensors);
        }
        ImageProcessSSE().ConvertPixel(from, to, matrix.data(), 55, tensors);
      }
    }
  }
}

// The weights of a place that is no number are none, so that a broken matrix shows in the result.
TEST(NormalizedWarpTest, OfCoordinatesThatAreNotFiniteIsNaN) {
  ImageTensors tensors;
  const auto input = random_picture(3, 5, 6, 5);
  const auto from = tensors.floats({3, 5, 6}, LayoutType::CHW, input.values);
  for (const float number : {kNaN, kInfinity, -kInfinity}) {
    for (const size_t place : {size_t{2}, size_t{5}}) {
      Matrix matrix = kIdentity;
      matrix[place] = number;
      // Nine columns, of which two fours are taken at a time and one alone.
      const auto to = tensors.output({3, 4, 9}, DataType::FLOAT32, LayoutType::CHW);
      ImageProcessSSE().ConvertPixel(from, to, matrix.data(), 55, tensors);
      for (const float value : values_of(*to)) ASSERT_TRUE(std::isnan(value)) << number;
    }
  }
  // Large and finite is the border's pixel: no fraction is left.
  for (const float number : {3e9f, -1e30f, 1e37f}) {
    Matrix matrix = kIdentity;
    matrix[2] = number;
    const auto to = tensors.output({3, 4, 9}, DataType::FLOAT32, LayoutType::CHW);
    ImageProcessSSE().ConvertPixel(from, to, matrix.data(), 55, tensors);
    const int column = number > 0.0f ? 4 : 0;
    EXPECT_EQ(values_of(*to)[0], input.at(0, 0, column)) << number;
    EXPECT_EQ(values_of(*to)[8], input.at(0, 0, column)) << number;
  }
}

TEST(WarpTest, OfAnythingElseThanThreePlanes) {
  ImageTensors tensors;
  for (const int channels : {1, 2, 4, 5}) {
    const auto input = random_picture(channels, 6, 9, 5);
    for (const WarpCase& warp : kWarps) {
      expect_warp(tensors, warp, input, kMatrices[1], random_picture(channels, 8, 7, 1));
    }
  }
  // The normalised warp writes the planes that both have, and three at most.
  expect_warp(tensors, kWarps[0], random_picture(1, 6, 9, 5), kIdentity,
              random_picture(3, 6, 9, 1));
  expect_warp(tensors, kWarps[0], random_picture(3, 6, 9, 5), kIdentity,
              random_picture(2, 6, 9, 1));
}

TEST(NormalizedWarpTest, RepeatsTheRowAndColumnBeforeTheLast) {
  ImageTensors tensors;
  const auto input = random_picture(3, 5, 6, 7);
  const auto from = tensors.floats({3, 5, 6}, LayoutType::CHW, input.values);
  const auto to = tensors.output({3, 5, 6}, DataType::FLOAT32, LayoutType::CHW);
  ImageProcessSSE().ConvertPixel(from, to, kIdentity.data(), 55, tensors);
  PlanarPicture expected = input;
  for (int c = 0; c < 3; ++c) {
    for (int y = 0; y < 5; ++y) {
      for (int x = 0; x < 6; ++x) {
        expected.at(c, y, x) = input.at(c, std::min(y, 3), std::min(x, 4));
      }
    }
  }
  EXPECT_TRUE(same_bits(values_of(*to), expected.values));
}

TEST(NormalizedWarpTest, WorksInAnyLayout) {
  ImageTensors tensors;
  const auto input = random_picture(3, 4, 4, 7);
  const auto from = tensors.floats({3, 4, 4}, LayoutType::FLEXIABLE, input.values);
  const auto to = tensors.output({3, 4, 4}, DataType::FLOAT32, LayoutType::FLEXIABLE);
  ImageProcessSSE().ConvertPixel(from, to, kIdentity.data(), 55, tensors);
  EXPECT_EQ(values_of(*to)[0], input.values[0]);
}

TEST(WarpTest, LeavesTheOutputAloneWhereNothingComesFrom) {
  ImageTensors tensors;
  const auto input = random_picture(2, 5, 6, 7);
  const auto from = tensors.floats({2, 5, 6}, LayoutType::CHW, input.values);
  const auto to = tensors.output({2, 5, 6}, DataType::FLOAT32, LayoutType::CHW);
  const Matrix away{1, 0, 100, 0, 1, 100};
  for (const int code : {56, 57, 58}) {
    ImageProcessFallback().ConvertPixel(from, to, away.data(), code, tensors);
  }
  EXPECT_EQ(bytes_of(to), std::vector<uint8_t>(240, 0xA5));
}

TEST(WarpTest, ForwardLeavesGapsAndInverseDoesNot) {
  ImageTensors tensors;
  const auto from = tensors.floats({1, 2, 2}, LayoutType::CHW, {1, 2, 3, 4});
  const Matrix twice{2, 0, 0, 0, 2, 0};
  const Matrix half{0.5f, 0, 0, 0, 0.5f, 0};
  ImageProcessFallback process;
  const auto forward = tensors.output({1, 4, 4}, DataType::FLOAT32, LayoutType::CHW, 0);
  process.ConvertPixel(from, forward, twice.data(), 56, tensors);
  EXPECT_EQ(values_of(*forward),
            (std::vector<float>{1, 0, 2, 0, 0, 0, 0, 0, 3, 0, 4, 0, 0, 0, 0, 0}));
  const auto inverse = tensors.output({1, 3, 3}, DataType::FLOAT32, LayoutType::CHW, 0);
  process.ConvertPixel(from, inverse, half.data(), 57, tensors);
  EXPECT_EQ(values_of(*inverse), (std::vector<float>{1, 2, 2, 3, 4, 4, 3, 4, 4}));
}

// -0.9 + 0.5 truncates to 0, so it is inside.
TEST(WarpTest, RoundsByTruncation) {
  ImageTensors tensors;
  const auto from = tensors.floats({1, 1, 1}, LayoutType::CHW, {5});
  ImageProcessFallback process;
  for (const auto& [shift, arrives] :
       {std::pair{-0.9f, true}, std::pair{-1.4f, true}, std::pair{-1.5f, false},
        std::pair{0.4f, true}, std::pair{0.5f, false}}) {
    const Matrix matrix{1, 0, shift, 0, 1, 0};
    const auto to = tensors.output({1, 1, 1}, DataType::FLOAT32, LayoutType::CHW, 0);
    process.ConvertPixel(from, to, matrix.data(), 56, tensors);
    EXPECT_EQ(values_of(*to)[0], arrives ? 5.0f : 0.0f) << shift;
  }
}

TEST(BilinearWarpTest, RefusesTheLastRowAndColumn) {
  ImageTensors tensors;
  const auto input = random_picture(1, 3, 3, 7);
  const auto from = tensors.floats({1, 3, 3}, LayoutType::CHW, input.values);
  const auto to = tensors.output({1, 3, 3}, DataType::FLOAT32, LayoutType::CHW, 0);
  ImageProcessFallback().ConvertPixel(from, to, kIdentity.data(), 58, tensors);
  PlanarPicture expected{1, 3, 3, std::vector<float>(9, 0.0f)};
  for (int y = 0; y < 2; ++y) {
    for (int x = 0; x < 2; ++x) expected.at(0, y, x) = input.at(0, y, x);
  }
  EXPECT_TRUE(same_bits(values_of(*to), expected.values));
}

TEST(WarpTest, RefusesWhatItCannotRead) {
  ImageTensors tensors;
  ImageProcessFallback portable;
  ImageProcessSSE vector;
  const auto planes = tensors.floats({1, 2, 2}, LayoutType::CHW, {1, 2, 3, 4});
  const auto pixels = tensors.floats({2, 2, 1}, LayoutType::HWC, {1, 2, 3, 4});
  const auto bytes = tensors.bytes({1, 2, 2}, LayoutType::CHW, {1, 2, 3, 4});
  const auto two = tensors.output({2, 2, 2}, DataType::FLOAT32, LayoutType::CHW);
  const auto flat = tensors.output({2, 2}, DataType::FLOAT32, LayoutType::CHW);
  for (const int code : {56, 57, 58}) {
    expect_silent_failure(
        [&] { portable.ConvertPixel(pixels, two, kIdentity.data(), code, tensors); });
  }
  expect_message("Affine_Float: both tensors must have the same channels",
                 [&] { portable.ConvertPixel(planes, two, kIdentity.data(), 56, tensors); });
  expect_message("Affine_INV_Float: both tensors must be FLOAT32 tensors",
                 [&] { portable.ConvertPixel(bytes, bytes, kIdentity.data(), 57, tensors); });
  expect_message("Affine_INV_BILINEAR_Float: there is no matrix",
                 [&] { portable.ConvertPixel(planes, planes, nullptr, 58, tensors); });
  expect_message("Affine_Normalize: a tensor has 2 dims, and 3 are needed",
                 [&] { vector.ConvertPixel(planes, flat, kIdentity.data(), 55, tensors); });
  const auto empty = tensors.floats({1, 0, 2}, LayoutType::CHW, {});
  expect_message("Affine_Normalize: the input has no pixels",
                 [&] { vector.ConvertPixel(empty, two, kIdentity.data(), 55, tensors); });
  vector.ConvertPixel(planes, empty, kIdentity.data(), 55, tensors);
}

}  // namespace
}  // namespace marlo::test
