#include "qrt_core/utility/half.h"

#include <gtest/gtest.h>

#include <bit>
#include <cmath>
#include <limits>

#include "tests/support/numbers.h"
#include "tests/utility/half_tables.h"

namespace marlo::test {
namespace {

using half_float::half;

half from_bits(uint16_t bits) { return std::bit_cast<half>(bits); }

uint16_t converted_bits(float value) { return std::bit_cast<uint16_t>(half(value)); }

TEST(Half, IsTwoBytesAndStartsAsZero) {
  EXPECT_EQ(sizeof(half), 2u);
  EXPECT_EQ(std::bit_cast<uint16_t>(half()), 0u);
}

TEST(Half, WidensEachOfThe65536HalvesExactly) {
  for (uint32_t bits = 0; bits <= 0xFFFF; ++bits) {
    const float expected = half_value_of(static_cast<uint16_t>(bits));
    const float found = from_bits(static_cast<uint16_t>(bits));
    if (std::isnan(expected)) {
      ASSERT_TRUE(std::isnan(found)) << std::hex << bits;
      ASSERT_EQ(std::signbit(found), (bits & 0x8000) != 0) << std::hex << bits;
    } else {
      ASSERT_EQ(std::bit_cast<uint32_t>(found), std::bit_cast<uint32_t>(expected))
          << std::hex << bits;
    }
  }
}

TEST(Half, ComesBackFromFloatUnchangedForEachHalf) {
  for (uint32_t bits = 0; bits <= 0xFFFF; ++bits) {
    const half value = from_bits(static_cast<uint16_t>(bits));
    ASSERT_EQ(converted_bits(value), bits) << std::hex << bits;
  }
}

TEST(Half, TruncatesTowardZeroAndNeverRounds) {
  const float above_one = std::nextafter(1.0f + 0x1p-10f, 0.0f);
  EXPECT_EQ(converted_bits(above_one), 0x3C00);
  EXPECT_EQ(converted_bits(-above_one), 0xBC00);
  EXPECT_EQ(converted_bits(1.0f + 0x1p-10f), 0x3C01);
  EXPECT_EQ(converted_bits(0.1f), 0x2E66);
  EXPECT_EQ(converted_bits(65519.0f), 0x7BFF);
  EXPECT_EQ(converted_bits(65535.99f), 0x7BFF) << "still below the range's end";
}

TEST(Half, BecomesInfiniteBeyondItsRange) {
  EXPECT_EQ(converted_bits(65536.0f), 0x7C00);
  EXPECT_EQ(converted_bits(-65536.0f), 0xFC00);
  EXPECT_EQ(converted_bits(std::numeric_limits<float>::max()), 0x7C00);
  EXPECT_EQ(converted_bits(kInfinity), 0x7C00);
  EXPECT_EQ(converted_bits(-kInfinity), 0xFC00);
}

TEST(Half, HasSubnormalsDownToItsLeastNumber) {
  EXPECT_EQ(converted_bits(0x1p-14f), 0x0400);
  EXPECT_EQ(converted_bits(std::nextafter(0x1p-14f, 0.0f)), 0x03FF);
  EXPECT_EQ(converted_bits(0x1p-24f), 0x0001);
  EXPECT_EQ(converted_bits(std::nextafter(0x1p-24f, 0.0f)), 0x0000);
  EXPECT_EQ(converted_bits(-std::numeric_limits<float>::denorm_min()), 0x8000) << "the sign stays";
  EXPECT_EQ(converted_bits(-0.0f), 0x8000);
}

TEST(Half, KeepsEveryNanANan) {
  for (uint32_t fraction = 1; fraction < 0x800000; fraction += 0x3F1) {
    for (const uint32_t sign : {0u, 0x80000000u}) {
      const auto value = std::bit_cast<float>(sign | 0x7F800000 | fraction);
      ASSERT_GT(converted_bits(value) & 0x7FFF, 0x7C00) << std::hex << fraction;
      ASSERT_EQ(converted_bits(value) >> 15, sign >> 31) << std::hex << fraction;
    }
  }
  EXPECT_GT(converted_bits(std::bit_cast<float>(0x7F800001)) & 0x7FFF, 0x7C00)
      << "the least payload";
}

TEST(Half, AssignsFromFloat) {
  half value;
  value = -2.5f;
  EXPECT_EQ(static_cast<float>(value), -2.5f);
}

}  // namespace
}  // namespace marlo::test
