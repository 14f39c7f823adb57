#pragma once

#include <array>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

// The conversions between float and half by their definitions, for comparison.

namespace marlo::test {

/// Float to half by two tables over the float's sign and exponent:
/// base[e] + (fraction >> shift[e]).
struct HalfTables {
  std::array<uint16_t, 512> base{};
  std::array<uint8_t, 512> shift{};

  HalfTables() {
    for (uint32_t i = 0; i < 512; ++i) {
      const int exponent = static_cast<int>(i & 0xFF) - 127;
      const auto sign = static_cast<uint16_t>((i & 0x100) << 7);
      uint32_t magnitude = 0;
      uint8_t dropped = 24;
      if (exponent == 128) {  // infinity and NaN
        magnitude = 0x7C00;
        dropped = 13;
      } else if (exponent > 15) {  // too large
        magnitude = 0x7C00;
      } else if (exponent >= -14) {  // normal in both
        magnitude = static_cast<uint32_t>(exponent + 15) << 10;
        dropped = 13;
      } else if (exponent >= -24) {  // subnormal: the leading one is shifted in as well
        magnitude = 0x400u >> (-exponent - 14);
        dropped = static_cast<uint8_t>(-exponent - 1);
      }
      base[i] = static_cast<uint16_t>(sign | magnitude);
      shift[i] = dropped;
    }
  }

  uint16_t truncated(uint32_t float_bits) const {
    const uint32_t e = float_bits >> 23;
    return static_cast<uint16_t>(base[e] + ((float_bits & 0x7FFFFF) >> shift[e]));
  }
};

/// The bits of the half below or at a float that is no NaN.
inline uint16_t half_bits_of(float value) {
  static const HalfTables tables;
  uint32_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  return tables.truncated(bits);
}

/// The value of a half by its bits.
inline float half_value_of(uint16_t bits) {
  const int exponent = (bits >> 10) & 0x1F;
  const int fraction = bits & 0x3FF;
  const float sign = (bits & 0x8000) != 0 ? -1.0f : 1.0f;
  if (exponent == 31) {
    return fraction != 0 ? std::numeric_limits<float>::quiet_NaN()
                         : sign * std::numeric_limits<float>::infinity();
  }
  const double magnitude =
      exponent == 0 ? std::ldexp(fraction, -24) : std::ldexp(1024 + fraction, exponent - 25);
  return sign * static_cast<float>(magnitude);
}

}  // namespace marlo::test
