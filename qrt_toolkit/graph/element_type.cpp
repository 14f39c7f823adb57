#include "qrt_toolkit/graph/element_type.h"

#include <algorithm>
#include <bit>
#include <cmath>

namespace marlo::toolkit {
namespace {

struct Format {
  const char* name;
  size_t size;
};

constexpr Format kFormats[] = {
    {"unknown type", 0}, {"float32", 4}, {"float64", 8}, {"float16", 2}, {"bfloat16", 2},
    {"int8", 1},         {"int16", 2},   {"int32", 4},   {"int64", 8},   {"uint8", 1},
    {"uint16", 2},       {"uint32", 4},  {"uint64", 8},  {"bool", 1},
};

const Format& format_of(ElementType type) noexcept { return kFormats[static_cast<size_t>(type)]; }

}  // namespace

const char* name_of(ElementType type) noexcept { return format_of(type).name; }

size_t size_of(ElementType type) noexcept { return format_of(type).size; }

bool is_real(ElementType type) noexcept {
  return type == ElementType::float32 || type == ElementType::float64 ||
         type == ElementType::float16 || type == ElementType::bfloat16;
}

int64_t wrap(ElementType type, int64_t value) noexcept {
  switch (type) {
    case ElementType::int8:
      return static_cast<int8_t>(value);
    case ElementType::int16:
      return static_cast<int16_t>(value);
    case ElementType::int32:
      return static_cast<int32_t>(value);
    case ElementType::uint8:
      return static_cast<uint8_t>(value);
    case ElementType::uint16:
      return static_cast<uint16_t>(value);
    case ElementType::uint32:
      return static_cast<uint32_t>(value);
    case ElementType::boolean:
      return value != 0 ? 1 : 0;
    default:
      return value;
  }
}

double round_to(ElementType type, double value) noexcept {
  switch (type) {
    case ElementType::float32:
      return static_cast<double>(static_cast<float>(value));
    case ElementType::float16:
      return from_float16(to_float16(value));
    case ElementType::bfloat16:
      return from_bfloat16(to_bfloat16(value));
    default:
      return value;
  }
}

double from_float16(uint16_t bits) noexcept {
  const double sign = (bits & 0x8000) != 0 ? -1.0 : 1.0;
  const int exponent = (bits >> 10) & 0x1F;
  const int fraction = bits & 0x3FF;
  if (exponent == 0x1F) return fraction != 0 ? std::nan("") : sign * HUGE_VAL;
  if (exponent == 0) return sign * std::ldexp(fraction, -24);
  return sign * std::ldexp(fraction + 1024, exponent - 25);
}

double from_bfloat16(uint16_t bits) noexcept {
  return static_cast<double>(std::bit_cast<float>(static_cast<uint32_t>(bits) << 16));
}

uint16_t to_float16(double value) noexcept {
  const auto sign = static_cast<uint16_t>(std::signbit(value) ? 0x8000 : 0);
  const double magnitude = std::fabs(value);
  if (std::isnan(value)) return 0x7E00;
  if (magnitude == 0) return sign;
  if (magnitude >= 65520) return static_cast<uint16_t>(sign | 0x7C00);
  int exponent = 0;
  std::frexp(magnitude, &exponent);
  // The last place of the format at this magnitude; below 2^-14 it stays what it is there.
  const int place = std::max(exponent - 11, -24);
  const double steps = std::nearbyint(std::ldexp(magnitude, -place));
  const auto whole = static_cast<uint32_t>(steps);
  // With the place's exponent in front, a carry out of the fraction raises the exponent by itself.
  const uint32_t bits = place == -24 && whole < 1024
                            ? whole
                            : (static_cast<uint32_t>(place + 25) << 10) + (whole - 1024);
  return static_cast<uint16_t>(sign | bits);
}

uint16_t to_bfloat16(double value) noexcept {
  if (std::isnan(value)) return 0x7FC0;
  const auto bits = std::bit_cast<uint32_t>(static_cast<float>(value));
  return static_cast<uint16_t>((bits + 0x7FFF + ((bits >> 16) & 1)) >> 16);
}

}  // namespace marlo::toolkit
