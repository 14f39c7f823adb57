#include "qrt_toolkit/graph/numbers.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "qrt_toolkit/errors.h"

namespace marlo::toolkit {
namespace {

using ::testing::ElementsAre;

TEST(ElementType, HalvesConvertBothWays) {
  for (uint32_t bits = 0; bits < 0x10000; ++bits) {
    const auto half = static_cast<uint16_t>(bits);
    const double number = from_float16(half);
    if (std::isnan(number)) continue;
    EXPECT_EQ(to_float16(number), half);
    const double brain = from_bfloat16(half);
    if (!std::isnan(brain)) {
      EXPECT_EQ(to_bfloat16(brain), half);
    }
  }
}

TEST(ElementType, HalvesRoundToTheNearest) {
  EXPECT_EQ(round_to(ElementType::float16, 1 + 1.0 / 2048), 1);              // tie to even
  EXPECT_EQ(round_to(ElementType::float16, 1 + 3.0 / 2048), 1 + 1.0 / 512);  // tie to even
  EXPECT_EQ(round_to(ElementType::float16, 1 + 1.01 / 2048), 1 + 1.0 / 1024);
  EXPECT_EQ(round_to(ElementType::float16, 65519), 65504);
  EXPECT_TRUE(std::isinf(round_to(ElementType::float16, 65520)));
  EXPECT_EQ(round_to(ElementType::float16, std::ldexp(1, -25)), 0);
  EXPECT_EQ(round_to(ElementType::float16, 1.01 * std::ldexp(1, -25)), std::ldexp(1, -24));
}

TEST(Numbers, BytesAndNumbersAreTheSame) {
  Numbers numbers(ElementType::int16, {3});
  numbers.integers() = {-1, 300, 32767};
  const Constant constant = constant_of(numbers);
  EXPECT_EQ(constant.bytes->size(), 6u);
  EXPECT_THAT(constant.numbers().integers(), ElementsAre(-1, 300, 32767));
}

TEST(Numbers, ConversionTruncatesAndWraps) {
  const Numbers reals = Numbers::reals_1d({-1.9, 2.9, 300, NAN, 1e30});
  EXPECT_THAT(converted(reals, ElementType::int32).integers(), ElementsAre(-1, 2, 300, 0, -1));
  EXPECT_THAT(converted(reals, ElementType::uint8).integers(), ElementsAre(255, 2, 44, 0, 255));
  EXPECT_THAT(converted(reals, ElementType::boolean).integers(), ElementsAre(1, 1, 1, 1, 1));
}

TEST(Numbers, TooManyAreRefusedBeforeMemoryIsTaken) {
  EXPECT_THROW(Numbers(ElementType::float32, {Numbers::kMostElements + 1}), NodeFault);
  EXPECT_THROW(Numbers(ElementType::float32, {int64_t{1} << 40, int64_t{1} << 40}), NodeFault);
  EXPECT_THROW(Numbers(ElementType::float32, {-1}), NodeFault);
  EXPECT_EQ(Numbers(ElementType::float32, {0, int64_t{1} << 62}).count(), 0);
}

TEST(Shape, BroadcastsKnownAndUnknownSizes) {
  const Shape a = {Dimension(2), Dimension(std::string("n")), Dimension(1)};
  const Shape b = {Dimension(1), Dimension(5)};
  const Shape both = broadcast_of(a, b);
  EXPECT_EQ(text_of(both), "2xnx5");
  EXPECT_EQ(text_of(broadcast_of(a, Shape{Dimension(4), Dimension(1)})), "2x4x1");
  EXPECT_THROW(broadcast_of(Extents{2, 3}, Extents{4}), NodeFault);
}

}  // namespace
}  // namespace marlo::toolkit
