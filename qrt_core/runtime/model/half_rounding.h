#pragma once

#include <cstddef>
#include <cstdint>

#include "qrt_core/runtime/model/weight_blob.h"
#include "qrt_core/utility/export.h"

// The binary form of a model holds weights as halves and truncates to them. Whoever prepares a
// model can round its weights first, so that nothing is left to truncate, and see what is lost.

namespace marlo::runtime {

/// How a float becomes a half.
enum class HalfConversion {
  truncate,  ///< toward zero, as the binary form does; from 65536 on infinite
  nearest,   ///< to the nearest half, of two the even one; from 65520 on infinite
};

/// What numbers lose when they become halves. Plain data: any number of threads may read it while
/// none changes it.
struct QRT_API HalfLoss {
  uint64_t numbers = 0;     ///< all of them
  uint64_t not_finite = 0;  ///< infinite or NaN before
  uint64_t infinite = 0;    ///< finite before and infinite as halves
  uint64_t zero = 0;        ///< not zero before and zero as halves
  uint64_t subnormal = 0;   ///< halves below 2^-14 other than zero, which keep fewer than 11 bits
  /// Numbers that the errors are taken over: those that are finite before and as halves, but for
  /// zeros.
  uint64_t compared = 0;
  double max_relative_error = 0;  ///< largest |half - number| / |number|; 1 for one that is lost
  double rms_relative_error = 0;  ///< root of the mean of their squares

  /// Takes in what other numbers lose, as for the sum over a model.
  HalfLoss& operator+=(const HalfLoss& other);
};

/// The float nearest to `value` among those that a half holds exactly; of two equally near ones the
/// one whose last bit is 0. Magnitudes of 65520 and more become infinite, NaN stays NaN.
QRT_API float RoundToHalf(float value) noexcept;

/// What `count` numbers would lose.
QRT_API HalfLoss MeasureHalfLoss(const float* numbers, size_t count, HalfConversion conversion);

/// What the numbers of a weight would lose.
QRT_API HalfLoss MeasureHalfLoss(const WeightBlob& blob, HalfConversion conversion);

/// Rounds `count` numbers to halves. @return what they have lost
QRT_API HalfLoss RoundToHalves(float* numbers, size_t count);

/// Rounds the numbers of a weight to halves, so that its binary form holds them as they are.
/// @return what they have lost
QRT_API HalfLoss RoundToHalves(WeightBlob& blob);

}  // namespace marlo::runtime
