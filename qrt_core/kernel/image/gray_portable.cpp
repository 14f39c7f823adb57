#include <algorithm>
#include <array>

#include "qrt_core/kernel/image/byte_vectors_internal.h"
#include "qrt_core/kernel/image/color_cores.h"

// Gray in 16 bits, eight pixels at a time in the compiler's own vectors.

namespace marlo::kernel::image {
namespace {

// Eight times a factor. The empty statement hides its value: compilers would multiply by shifts and
// sums, which take longer.
Words factor(uint16_t value) {
  Words factors = Words{} + value;
  asm("" : "+x"(factors));
  return factors;
}

// Byte 0, 1 and 2 of a pixel by weights in 1 / 256, of which they sum to 256.
struct IntegerGray {
  explicit IntegerGray(bool red_first)
      : first(factor(red_first ? 77 : 29)),
        second(factor(150)),
        third(factor(red_first ? 29 : 77)) {}

  Words operator()(const Words& x, const Words& y, const Words& z) const {
    return x * first + y * second + z * third;
  }
  static Bytes bytes(const Words& even, const Words& odd) {
    return std::bit_cast<Bytes>((even >> 8) | (odd & 0xFF00));
  }

  Words first, second, third;
};

bool any(const Words& words) {
  const auto halves = std::bit_cast<Quadwords>(words);
  return (halves[0] | halves[1]) != 0;
}

// What 0.299 * x + 0.587 * y + 0.114 * z in double precision truncates to. The sum in thousandths
// is whole, so rounding matters only where it is a multiple of 1000; everywhere else the quotient
// is right. One that is too low by less than 1 is taken first; the rest then fits 16 bits, whatever
// overflowed before.
struct WeightedGray {
  Words operator()(const Words& x, const Words& y, const Words& z) {
    using Mask = decltype(x == y);
    const Words low = (x * rough[0] + y * rough[1] + z * rough[2]) >> 8;
    const Words rest = x * exact[0] + y * exact[1] + z * exact[2] - low * thousand;
    const Mask above = std::bit_cast<Mask>(rest) > 999;
    colors |= (x ^ y) | (y ^ z);
    multiples |= std::bit_cast<Words>((rest == 0) | (rest == 1000));
    return low - std::bit_cast<Words>(above);
  }
  static Bytes bytes(const Words& even, const Words& odd) {
    return std::bit_cast<Bytes>(even | (odd << 8));
  }

  // Whether the gray of any pixel may be too high by 1, and whether all were gray already, so that
  // every sum is a multiple: of those since the last `reset`.
  bool any_multiple() const { return any(multiples); }
  bool all_gray() const { return !any(colors); }
  void reset() { multiples = colors = Words{}; }

  Words rough[3] = {factor(76), factor(150), factor(29)};
  Words exact[3] = {factor(299), factor(587), factor(114)};
  Words thousand = factor(1000);
  Words multiples{};
  Words colors{};
};

// 32 pixels of three bytes.
template <typename Gray>
void gray_of_triples(const uint8_t* pixels, Gray& gray_of, uint8_t* gray) {
  Bytes v[6];
  load_triples(pixels, v);
  const auto both = [&](const Bytes& x, const Bytes& y, const Bytes& z) {
    const auto a = std::bit_cast<Words>(x);
    const auto b = std::bit_cast<Words>(y);
    const auto c = std::bit_cast<Words>(z);
    const Words low = gray_of(a & 0xFF, b & 0xFF, c & 0xFF);
    const Words high = gray_of(a >> 8, b >> 8, c >> 8);
    return Gray::bytes(low, high);
  };
  const Bytes even = both(v[0], v[1], v[2]);
  const Bytes odd = both(v[3], v[4], v[5]);
  store(merge_low(even, odd), gray);
  store(merge_high(even, odd), gray + kVectorBytes);
}

// Sixteen pixels of four bytes.
template <typename Gray>
void gray_of_quads(const uint8_t* pixels, Gray& gray_of, uint8_t* gray) {
  // Of four pixels and of the third four from there on, one beside the other.
  const auto eight = [&](const uint8_t* from) {
    const auto x = load<Doublewords>(from);
    const auto y = load<Doublewords>(from + 2 * kVectorBytes);
    const auto low = std::bit_cast<Words>((x & 0xFFFF) | (y << 16));
    const auto high = std::bit_cast<Words>((x >> 16) | (y & 0xFFFF0000));
    return gray_of(low & 0xFF, low >> 8, high & 0xFF);
  };
  const Words first = eight(pixels);
  const Words second = eight(pixels + kVectorBytes);
  Bytes bytes = Gray::bytes(first, second);
  // Four times four bytes by columns.
  for (int turn = 0; turn < 2; ++turn) {
    const auto halves = std::bit_cast<Quadwords>(bytes);
    const Quadwords swapped = __builtin_shufflevector(halves, halves, 1, 0);
    bytes = merge_low(bytes, std::bit_cast<Bytes>(swapped));
  }
  store(bytes, gray);
}

template <typename Gray>
void gray_of_32(const uint8_t* pixels, size_t channels, Gray& gray_of, uint8_t* gray) {
  if (channels == 3) return gray_of_triples(pixels, gray_of, gray);
  gray_of_quads(pixels, gray_of, gray);
  gray_of_quads(pixels + 4 * kVectorBytes, gray_of, gray + kVectorBytes);
}

constexpr uint8_t weighted_gray(uint8_t x, uint8_t y, uint8_t z) {
  const double value = 0.299 * x + 0.587 * y + 0.114 * z;
  return static_cast<uint8_t>(std::min(static_cast<int>(value), 255));
}

constexpr auto kGrayOfGray = [] {
  std::array<uint8_t, 256> grays{};
  for (size_t i = 0; i < grays.size(); ++i) {
    const auto byte = static_cast<uint8_t>(i);
    grays[i] = weighted_gray(byte, byte, byte);
  }
  return grays;
}();

// 32 pixels.
void gray_in_doubles(const uint8_t* pixels, size_t channels, uint8_t* gray) noexcept {
  std::array<uint8_t, kTriples> first;
  std::array<uint8_t, kTriples> second;
  std::array<uint8_t, kTriples> third;
  split_pixels(pixels, channels, kTriples, first.data(), second.data(), third.data());
  for (size_t i = 0; i < kTriples; ++i) gray[i] = weighted_gray(first[i], second[i], third[i]);
}

// The same of pixels that all are gray.
void gray_of_gray(const uint8_t* pixels, size_t channels, uint8_t* gray) noexcept {
  for (size_t i = 0; i < kTriples; ++i) gray[i] = kGrayOfGray[pixels[channels * i]];
}

}  // namespace

void gray_of_planes(const uint8_t* __restrict blue, const uint8_t* __restrict green,
                    const uint8_t* __restrict red, size_t count,
                    uint8_t* __restrict gray) noexcept {
  for (size_t i = 0; i < count; ++i) {
    gray[i] = static_cast<uint8_t>((29u * blue[i] + 150u * green[i] + 77u * red[i]) >> 8);
  }
}

void gray_of_pixels(const uint8_t* pixels, size_t channels, bool red_first, size_t count,
                    uint8_t* gray) noexcept {
  const IntegerGray gray_of(red_first);
  size_t i = 0;
  for (; i + kTriples <= count; i += kTriples) {
    gray_of_32(pixels + channels * i, channels, gray_of, gray + i);
  }
  for (; i < count; ++i) {
    const uint8_t* const pixel = pixels + channels * i;
    gray_of_planes(pixel + (red_first ? 2 : 0), pixel + 1, pixel + (red_first ? 0 : 2), 1,
                   gray + i);
  }
}

void gray_by_weights(const uint8_t* pixels, size_t channels, size_t count, uint8_t* gray) noexcept {
  WeightedGray gray_of;
  size_t i = 0;
  for (; i + kTriples <= count; i += kTriples) {
    const uint8_t* const from = pixels + channels * i;
    gray_of_32(from, channels, gray_of, gray + i);
    if (gray_of.any_multiple()) {
      (gray_of.all_gray() ? gray_of_gray : gray_in_doubles)(from, channels, gray + i);
    }
    gray_of.reset();
  }
  if (i == count) return;
  std::array<uint8_t, 4 * kTriples> rest{};
  std::array<uint8_t, kTriples> gray_of_rest;
  std::memcpy(rest.data(), pixels + channels * i, channels * (count - i));
  gray_in_doubles(rest.data(), channels, gray_of_rest.data());
  std::memcpy(gray + i, gray_of_rest.data(), count - i);
}

}  // namespace marlo::kernel::image
