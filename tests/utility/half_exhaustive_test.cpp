#include <gtest/gtest.h>

#include <bit>

#include "qrt_core/utility/half.h"
#include "tests/utility/half_tables.h"

namespace marlo::test {
namespace {

// The table method, but that a NaN whose payload the tables drop stays a NaN.
bool agrees(const HalfTables& tables, uint32_t float_bits) {
  const auto found = std::bit_cast<uint16_t>(half_float::half(std::bit_cast<float>(float_bits)));
  const bool is_nan = (float_bits & 0x7FFFFFFF) > 0x7F800000;
  const uint16_t expected = tables.truncated(float_bits);
  if (!is_nan) return found == expected;
  const bool stays_nan = (found & 0x7FFF) > 0x7C00 && (found & 0x8000) == (expected & 0x8000);
  const bool payload_survives = (expected & 0x3FF) != 0;
  return stays_nan && (!payload_survives || found == expected);
}

TEST(HalfExhaustive, TruncatesEveryFloatAsTheTablesDo) {
  const HalfTables tables;
  uint32_t float_bits = 0;
  uint64_t wrong = 0;
  uint32_t first_wrong = 0;
  do {
    if (!agrees(tables, float_bits) && wrong++ == 0) first_wrong = float_bits;
  } while (++float_bits != 0);
  EXPECT_EQ(wrong, 0u) << "first at the float of bits 0x" << std::hex << first_wrong;
}

}  // namespace
}  // namespace marlo::test
