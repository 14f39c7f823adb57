#include "qrt_core/runtime/model/half_rounding.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace marlo::runtime {
namespace {

constexpr uint32_t kSignBit = 0x80000000;
constexpr uint32_t kInfinityBits = 0x7F800000;
constexpr uint32_t kFractionBits = 23;
constexpr uint32_t kDroppedBits = 13;
// The least normal half, and the least float that is nearer to the half after the last one.
constexpr uint32_t kLeastNormalBits = 0x38800000;
constexpr uint32_t kFirstInfiniteBits = 0x477FF000;
constexpr float kLeastNormalHalf = 0x1p-14f;
constexpr float kSubnormalStep = 0x1p-24f;

uint32_t bits_of(float value) {
  uint32_t word;
  std::memcpy(&word, &value, sizeof word);
  return word;
}

float float_of(uint32_t word) {
  float value;
  std::memcpy(&value, &word, sizeof value);
  return value;
}

// `number` / 2^`places`, rounded to the nearest integer, of two to the even one.
uint32_t shifted(uint32_t number, uint32_t places) {
  const uint32_t whole = number >> places;
  const uint32_t rest = number & ((1u << places) - 1);
  const uint32_t middle = 1u << (places - 1);
  return whole + (rest > middle || (rest == middle && (whole & 1) != 0) ? 1 : 0);
}

float converted(float value, HalfConversion conversion) {
  return conversion == HalfConversion::nearest ? RoundToHalf(value)
                                               : static_cast<float>(half_float::half(value));
}

}  // namespace

HalfLoss& HalfLoss::operator+=(const HalfLoss& other) {
  const auto squares = [](const HalfLoss& loss) {
    return loss.rms_relative_error * loss.rms_relative_error * static_cast<double>(loss.compared);
  };
  const double sum = squares(*this) + squares(other);
  numbers += other.numbers;
  not_finite += other.not_finite;
  infinite += other.infinite;
  zero += other.zero;
  subnormal += other.subnormal;
  compared += other.compared;
  max_relative_error = std::max(max_relative_error, other.max_relative_error);
  rms_relative_error = compared == 0 ? 0.0 : std::sqrt(sum / static_cast<double>(compared));
  return *this;
}

float RoundToHalf(float value) noexcept {
  const uint32_t word = bits_of(value);
  const uint32_t sign = word & kSignBit;
  const uint32_t magnitude = word ^ sign;
  if (magnitude > kInfinityBits) return value;
  if (magnitude >= kFirstInfiniteBits) return float_of(sign | kInfinityBits);
  if (magnitude >= kLeastNormalBits) {
    // A carry out of the fraction counts the exponent up, as it should.
    return float_of(sign | (shifted(magnitude, kDroppedBits) << kDroppedBits));
  }
  // Subnormal halves are multiples of 2^-24: the significand counts these once it is shifted to
  // where its last place is worth that much.
  const uint32_t significand = (magnitude & ((1u << kFractionBits) - 1)) | (1u << kFractionBits);
  const uint32_t places = 126 - (magnitude >> kFractionBits);
  const uint32_t steps = places > kFractionBits + 2 ? 0 : shifted(significand, places);
  return float_of(sign | bits_of(static_cast<float>(steps) * kSubnormalStep));
}

HalfLoss MeasureHalfLoss(const float* numbers, size_t count, HalfConversion conversion) {
  HalfLoss loss;
  loss.numbers = count;
  double squares = 0;
  for (size_t i = 0; i < count; ++i) {
    const float number = numbers[i];
    if (!std::isfinite(number)) {
      ++loss.not_finite;
      continue;
    }
    if (number == 0.0f) continue;
    const float as_half = converted(number, conversion);
    if (std::isinf(as_half)) {
      ++loss.infinite;
      continue;
    }
    if (as_half == 0.0f) {
      ++loss.zero;
    } else if (std::fabs(as_half) < kLeastNormalHalf) {
      ++loss.subnormal;
    }
    const double exact = number;
    const double error = std::fabs((static_cast<double>(as_half) - exact) / exact);
    ++loss.compared;
    loss.max_relative_error = std::max(loss.max_relative_error, error);
    squares += error * error;
  }
  if (loss.compared != 0) {
    loss.rms_relative_error = std::sqrt(squares / static_cast<double>(loss.compared));
  }
  return loss;
}

HalfLoss MeasureHalfLoss(const WeightBlob& blob, HalfConversion conversion) {
  const std::vector<float> numbers = WeightNumbers(blob);
  return MeasureHalfLoss(numbers.data(), numbers.size(), conversion);
}

HalfLoss RoundToHalves(float* numbers, size_t count) {
  const HalfLoss loss = MeasureHalfLoss(numbers, count, HalfConversion::nearest);
  std::transform(numbers, numbers + count, numbers, RoundToHalf);
  return loss;
}

HalfLoss RoundToHalves(WeightBlob& blob) {
  std::vector<float> numbers = WeightNumbers(blob);
  const HalfLoss loss = RoundToHalves(numbers.data(), numbers.size());
  // A text without a number stays as it is, as it does in the binary form.
  if (!numbers.empty()) blob = MakeWeightBlob(numbers.data(), numbers.size());
  return loss;
}

}  // namespace marlo::runtime
