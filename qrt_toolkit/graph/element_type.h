#pragma once

#include <cstddef>
#include <cstdint>

namespace marlo::toolkit {

/// What the elements of a tensor are.
enum class ElementType : uint8_t {
  undefined,  ///< not known yet
  float32,
  float64,
  float16,
  bfloat16,
  int8,
  int16,
  int32,
  int64,
  uint8,
  uint16,
  uint32,
  uint64,
  boolean,
};

/// "float32", "bool"; "unknown type" for `undefined`.
const char* name_of(ElementType type) noexcept;

/// Bytes of one element as files hold it; 0 for `undefined`.
size_t size_of(ElementType type) noexcept;

/// Whether the elements are floating-point numbers.
bool is_real(ElementType type) noexcept;

/// `value` as an integer type holds it: modulo two to the power of its width; 0 or 1 for booleans.
int64_t wrap(ElementType type, int64_t value) noexcept;

/// `value` rounded to the nearest number of a floating-point type.
double round_to(ElementType type, double value) noexcept;

/// The numbers of 16-bit floating-point formats from their bits; exact.
double from_float16(uint16_t bits) noexcept;
double from_bfloat16(uint16_t bits) noexcept;

/// The bits of the nearest number, ties to even.
uint16_t to_float16(double value) noexcept;
uint16_t to_bfloat16(double value) noexcept;

}  // namespace marlo::toolkit
