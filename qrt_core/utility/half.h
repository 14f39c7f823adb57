#pragma once

#include "qrt_core/utility/build_options.h"

#if QRT_USE_INSTALLED_HALF

#include <half.hpp>

static_assert(HALF_ROUND_STYLE == -1, "model files need conversions to half that truncate");

#else

#include <cstdint>
#include <cstring>

namespace half_float {

/// An IEEE 754 binary16 number: storage and conversions, no arithmetic of its own.
///
/// Conversion from float truncates the significand toward zero, lets values beyond the range
/// become infinity and keeps every NaN a NaN. Conversion to float is exact.
///
/// Plain data: any number of threads may read it while none changes it.
class half {
 public:
  /// Zero.
  half() noexcept = default;

  /// The number whose magnitude is the largest binary16 not above that of `value`.
  explicit half(float value) noexcept : bits_(truncate(value)) {}

  /// As the constructor from float.
  half& operator=(float value) noexcept {
    bits_ = truncate(value);
    return *this;
  }

  /// The same number; exact.
  operator float() const noexcept { return widen(bits_); }

 private:
  static constexpr uint32_t kFractionBits = 23;
  static constexpr uint32_t kFractionMask = 0x7FFFFF;
  static constexpr uint32_t kDroppedBits = 13;
  static constexpr uint32_t kBiasDifference = 127 - 15;

  static uint16_t truncate(float value) noexcept {
    uint32_t word;
    std::memcpy(&word, &value, sizeof word);
    const uint32_t sign = (word >> 16) & 0x8000;
    const uint32_t exponent = (word >> kFractionBits) & 0xFF;
    const uint32_t fraction = word & kFractionMask;
    uint32_t magnitude = 0;
    if (exponent == 0xFF && fraction != 0) {
      // The quiet bit stands in where truncation would drop the whole payload.
      const uint32_t payload = fraction >> kDroppedBits;
      magnitude = 0x7C00 | (payload != 0 ? payload : 0x200);
    } else if (exponent > kBiasDifference + 30) {
      magnitude = 0x7C00;
    } else if (exponent > kBiasDifference) {
      magnitude = ((exponent - kBiasDifference) << 10) | (fraction >> kDroppedBits);
    } else if (exponent > kBiasDifference - 10) {
      magnitude = (fraction | 0x800000) >> (kBiasDifference + 14 - exponent);
    }
    return static_cast<uint16_t>(sign | magnitude);
  }

  static float widen(uint16_t bits) noexcept {
    const uint32_t sign = static_cast<uint32_t>(bits & 0x8000) << 16;
    uint32_t exponent = (bits >> 10) & 0x1F;
    uint32_t fraction = bits & 0x3FFu;
    if (exponent == 0x1F) {
      exponent = 0xFF;
    } else if (exponent != 0) {
      exponent += kBiasDifference;
    } else if (fraction != 0) {
      exponent = kBiasDifference + 1;
      while ((fraction & 0x400) == 0) {
        fraction <<= 1;
        --exponent;
      }
      fraction &= 0x3FF;
    }
    const uint32_t word = sign | (exponent << kFractionBits) | (fraction << kDroppedBits);
    float value;
    std::memcpy(&value, &word, sizeof value);
    return value;
  }

  uint16_t bits_ = 0;
};

}  // namespace half_float

#endif
