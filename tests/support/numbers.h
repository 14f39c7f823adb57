#pragma once

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <random>
#include <vector>

// Floats as bits, distances between them, and data to test with.

namespace marlo::test {

constexpr float kInfinity = std::numeric_limits<float>::infinity();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kLargest = std::numeric_limits<float>::max();
constexpr float kLeastNormal = std::numeric_limits<float>::min();
constexpr float kLeastDenormal = std::numeric_limits<float>::denorm_min();
constexpr double kEpsilon = std::numeric_limits<float>::epsilon();

inline uint32_t bits_of(float number) {
  uint32_t bits;
  std::memcpy(&bits, &number, sizeof bits);
  return bits;
}

inline float float_of(uint32_t bits) {
  float number;
  std::memcpy(&number, &bits, sizeof number);
  return number;
}

/// Whether two floats have the same bits; all NaNs count as one, since which of two NaNs an
/// operation keeps depends on the order in which a compiler puts its operands.
inline bool same_bits(float a, float b) {
  return bits_of(a) == bits_of(b) || (std::isnan(a) && std::isnan(b));
}

/// Floats from `a` to `b`, with -0 and 0 at one place; the largest number if one is a NaN.
inline uint64_t ulp_distance(float a, float b) {
  if (std::isnan(a) || std::isnan(b)) return std::numeric_limits<uint64_t>::max();
  const auto place = [](float number) {
    const auto magnitude = static_cast<int64_t>(bits_of(number) & 0x7FFFFFFF);
    return std::signbit(number) ? -magnitude : magnitude;
  };
  return static_cast<uint64_t>(std::abs(place(a) - place(b)));
}

/// Random numbers that are the same on every machine for one seed.
class Random {
 public:
  explicit Random(uint32_t seed) : engine_(seed) {}

  /// From `least` to `most`, both included.
  int integer(int least, int most) {
    const auto choices = static_cast<uint32_t>(most - least) + 1;
    return least + static_cast<int>(engine_() % choices);
  }

  template <typename T>
  T one_of(const std::vector<T>& choices) {
    return choices[static_cast<size_t>(integer(0, static_cast<int>(choices.size()) - 1))];
  }

  /// From -1 to 1, with 24 random bits.
  float unit() { return static_cast<float>(engine_() >> 7) * 0x1p-24f - 1.0f; }

  /// `count` floats from -scale to scale.
  std::vector<float> floats(size_t count, float scale = 1.0f) {
    std::vector<float> numbers(count);
    for (float& number : numbers) number = scale * unit();
    return numbers;
  }

  /// `count` floats from -1 to 1 times powers of two from 2^-range to 2^range: sums of them depend
  /// on the order.
  std::vector<float> uneven_floats(size_t count, int range) {
    std::vector<float> numbers(count);
    for (float& number : numbers) number = std::ldexp(unit(), integer(-range, range));
    return numbers;
  }

  /// `count` integers from -4 to 4: sums of up to a million products of them are exact.
  std::vector<float> small_integers(size_t count) {
    std::vector<float> numbers(count);
    for (float& number : numbers) number = static_cast<float>(integer(-4, 4));
    return numbers;
  }

 private:
  std::mt19937 engine_;
};

}  // namespace marlo::test
