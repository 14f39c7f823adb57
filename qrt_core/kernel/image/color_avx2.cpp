#ifndef __AVX2__
#error "this file holds AVX2 code and must be compiled with -mavx2"
#endif

#include "qrt_core/kernel/image/avx2_cores.h"
#include "qrt_core/kernel/image/avx2_vectors_internal.h"

namespace marlo::kernel::image {
namespace {

constexpr size_t kBytes = 32;  // of a vector, and the pixels of a group of bytes
constexpr size_t kDoublewords = 8;
constexpr size_t kLine = 64;  // of the caches

// Results that neither the second level of a cache nor half of a shared third one holds are written
// past them: reading what they overwrite would take half as long again.
constexpr size_t kPastCaches = size_t{4} << 20;

size_t place_in_line(const void* address) { return reinterpret_cast<uintptr_t>(address) % kLine; }

struct Kept {
  static void store(__m256i v, void* to) { _mm256_storeu_si256(static_cast<__m256i*>(to), v); }
  static void finish() {}
};

struct Streamed {
  static void store(__m256i v, void* to) { _mm256_stream_si256(static_cast<__m256i*>(to), v); }
  static void finish() { _mm_sfence(); }
};

// `loop` with the stores for results of so many bytes at these addresses. Past the caches go only
// those that begin lines together.
template <typename Loop, typename... Addresses>
size_t with_stores(size_t bytes, Loop loop, const void* first, Addresses... others) {
  const size_t place = place_in_line(first);
  const bool together = ((place_in_line(others) == place) && ...);
  if (bytes >= kPastCaches && place % kBytes == 0 && together) return loop(Streamed());
  return loop(Kept());
}

template <size_t channels>
Three load_planes(const uint8_t* pixels) {
  if constexpr (channels == 3) {
    return load_triples(pixels);
  } else {
    Three planes = load_quads(pixels);
    for (__m256i& plane : planes.v) plane = in_order_of_quads(plane);
    return planes;
  }
}

// A number of groups as a type.
template <size_t count>
struct Groups {
  static constexpr size_t value = count;
};

// Pixels to three planes, `load_group` taking apart those of a vector of each plane. A plane gets a
// whole line at a time: past the caches, lines of three planes that are filled half by half, in turn,
// leave for memory in halves, which takes three times as long on an Intel Xeon.
template <typename T, typename LoadGroup>
size_t split_pixels(const T* pixels, size_t channels, size_t count, T* plane0, T* plane1, T* plane2,
                    LoadGroup load_group) {
  constexpr size_t kGroup = kBytes / sizeof(T);
  T* const planes[] = {plane0, plane1, plane2};
  const auto loop = [=](auto stores) {
    const auto take_groups = [&](size_t at, auto groups) {
      Three taken[groups.value];
      for (size_t g = 0; g < groups.value; ++g) {
        taken[g] = load_group(pixels + channels * (at + g * kGroup));
      }
      for (size_t k = 0; k < 3; ++k) {
        for (size_t g = 0; g < groups.value; ++g) {
          stores.store(taken[g].v[k], planes[k] + at + g * kGroup);
        }
      }
    };
    constexpr Groups<1> kOne;
    constexpr Groups<2> kLineOfEach;
    size_t i = 0;
    if (place_in_line(plane0) == kBytes && kGroup <= count) {
      take_groups(0, kOne);
      i = kGroup;
    }
    for (; i + 2 * kGroup <= count; i += 2 * kGroup) take_groups(i, kLineOfEach);
    if (i + kGroup <= count) {
      take_groups(i, kOne);
      i += kGroup;
    }
    stores.finish();
    return i;
  };
  return with_stores(3 * count * sizeof(T), loop, plane0, plane1, plane2);
}

// 32 numbers in two vectors of words, in the order of unpacked bytes.
struct Words {
  __m256i low, high;
};

// Byte 0, 1 and 2 of a pixel by weights that sum to 256. A product of bytes takes a weight of at most
// 127 and two of them fit 16 bits while their weights sum to 128, so byte 1 is weighed in two parts.
Words weighed(const Words& first, const Words& last, __m256i weights01, __m256i weights21) {
  const auto sum = [&](__m256i a, __m256i b) {
    return _mm256_add_epi16(_mm256_maddubs_epi16(a, weights01), _mm256_maddubs_epi16(b, weights21));
  };
  return {sum(first.low, last.low), sum(first.high, last.high)};
}

Words beside(__m256i a, __m256i b) {
  return {_mm256_unpacklo_epi8(a, b), _mm256_unpackhi_epi8(a, b)};
}

__m256i weights(int even, int odd) {
  return _mm256_set1_epi16(static_cast<short>(even | odd * 256));
}

template <size_t channels>
Three load_any_order(const uint8_t* pixels) {
  if constexpr (channels == 3) return load_triples(pixels);
  if constexpr (channels == 4) return load_quads(pixels);
}

template <size_t channels>
void store_gray(__m256i gray, uint8_t* to) {
  Kept::store(channels == 4 ? in_order_of_quads(gray) : gray, to);
}

template <size_t channels>
size_t integer_gray(const uint8_t* pixels, bool red_first, size_t count, uint8_t* gray) {
  const __m256i weights01 = red_first ? weights(77, 51) : weights(29, 99);
  const __m256i weights21 = red_first ? weights(29, 99) : weights(77, 51);
  size_t i = 0;
  for (; i + kBytes <= count; i += kBytes) {
    const Three v = load_any_order<channels>(pixels + channels * i);
    const Words sums =
        weighed(beside(v.v[0], v.v[1]), beside(v.v[2], v.v[1]), weights01, weights21);
    store_gray<channels>(
        _mm256_packus_epi16(_mm256_srli_epi16(sums.low, 8), _mm256_srli_epi16(sums.high, 8)),
        gray + i);
  }
  return i;
}

// The sum in thousandths, 299 x + 587 y + 114 z, less 1000 times a quotient that may be too low by 1.
// All in 16 bits, in which the rest fits whatever overflowed before.
struct Quotient {
  __m256i low, rest;
};

Quotient quotient_of(__m256i first, __m256i last) {
  const __m256i rough = _mm256_add_epi16(_mm256_maddubs_epi16(first, weights(76, 52)),
                                         _mm256_maddubs_epi16(last, weights(29, 98)));
  const __m256i low = _mm256_srli_epi16(rough, 8);
  // 256 x + 512 y, and what is left of the weights.
  const __m256i high = _mm256_slli_epi16(_mm256_maddubs_epi16(first, weights(1, 2)), 8);
  const __m256i fine = _mm256_add_epi16(_mm256_maddubs_epi16(first, weights(43, 75)),
                                        _mm256_maddubs_epi16(last, weights(114, 0)));
  const __m256i exact = _mm256_add_epi16(high, fine);
  return {low, _mm256_sub_epi16(exact, _mm256_mullo_epi16(low, _mm256_set1_epi16(1000)))};
}

template <size_t channels>
size_t weighted_gray(const uint8_t* pixels, size_t count, uint8_t* gray) {
  const __m256i most = _mm256_set1_epi16(999);
  size_t i = 0;
  for (; i + kBytes <= count; i += kBytes) {
    const Three v = load_any_order<channels>(pixels + channels * i);
    const Words first = beside(v.v[0], v.v[1]);
    const Words last = beside(v.v[2], v.v[1]);
    const Quotient a = quotient_of(first.low, last.low);
    const Quotient b = quotient_of(first.high, last.high);
    const auto is_whole = [](__m256i rest) {
      return _mm256_or_si256(_mm256_cmpeq_epi16(rest, _mm256_setzero_si256()),
                             _mm256_cmpeq_epi16(rest, _mm256_set1_epi16(1000)));
    };
    if (_mm256_movemask_epi8(_mm256_or_si256(is_whole(a.rest), is_whole(b.rest))) != 0) break;
    const auto corrected = [&](const Quotient& q) {
      return _mm256_sub_epi16(q.low, _mm256_cmpgt_epi16(q.rest, most));
    };
    store_gray<channels>(_mm256_packus_epi16(corrected(a), corrected(b)), gray + i);
  }
  return i;
}

template <typename Compute>
size_t convert_bytes(const uint8_t* bytes, size_t count, float* floats, Compute compute) {
  const auto loop = [=](auto stores) {
    size_t i = 0;
    for (; i + 2 * kDoublewords <= count; i += 2 * kDoublewords) {
      for (size_t at = i; at < i + 2 * kDoublewords; at += kDoublewords) {
        const __m128i eight = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(bytes + at));
        const __m256 x = _mm256_cvtepi32_ps(_mm256_cvtepu8_epi32(eight));
        stores.store(_mm256_castps_si256(compute(x)), floats + at);
      }
    }
    stores.finish();
    return i;
  };
  return with_stores(count * sizeof(float), loop, floats);
}

}  // namespace

size_t split_bytes_avx2(const uint8_t* pixels, size_t channels, size_t count, uint8_t* plane0,
                        uint8_t* plane1, uint8_t* plane2) noexcept {
  const auto split = [=](auto load_group) {
    return split_pixels(pixels, channels, count, plane0, plane1, plane2, load_group);
  };
  return channels == 4 ? split([](const uint8_t* group) { return load_planes<4>(group); })
                       : split([](const uint8_t* group) { return load_planes<3>(group); });
}

size_t split_doublewords_avx2(const uint32_t* pixels, size_t count, uint32_t* plane0,
                              uint32_t* plane1, uint32_t* plane2) noexcept {
  return split_pixels(pixels, 3, count, plane0, plane1, plane2,
                      [](const uint32_t* group) { return load_doubleword_triples(group); });
}

size_t join_bytes_avx2(const uint8_t* plane0, const uint8_t* plane1, const uint8_t* plane2,
                       size_t count, uint8_t* pixels) noexcept {
  const auto loop = [=](auto stores) {
    size_t i = 0;
    for (; i + kBytes <= count; i += kBytes) {
      const Three joined = triples_of({{load(plane0 + i), load(plane1 + i), load(plane2 + i)}});
      for (size_t k = 0; k < 3; ++k) stores.store(joined.v[k], pixels + 3 * i + k * kBytes);
    }
    stores.finish();
    return i;
  };
  return with_stores(3 * count, loop, pixels);
}

size_t join_doublewords_avx2(const uint32_t* plane0, const uint32_t* plane1, const uint32_t* plane2,
                             size_t count, uint32_t* pixels) noexcept {
  const auto loop = [=](auto stores) {
    size_t i = 0;
    for (; i + kDoublewords <= count; i += kDoublewords) {
      const Three joined =
          doubleword_triples_of({{load(plane0 + i), load(plane1 + i), load(plane2 + i)}});
      for (size_t k = 0; k < 3; ++k) stores.store(joined.v[k], pixels + 3 * i + k * kDoublewords);
    }
    stores.finish();
    return i;
  };
  return with_stores(3 * count * sizeof(uint32_t), loop, pixels);
}

size_t gray_of_pixels_avx2(const uint8_t* pixels, size_t channels, bool red_first, size_t count,
                           uint8_t* gray) noexcept {
  return channels == 4 ? integer_gray<4>(pixels, red_first, count, gray)
                       : integer_gray<3>(pixels, red_first, count, gray);
}

size_t gray_by_weights_avx2(const uint8_t* pixels, size_t channels, size_t count,
                            uint8_t* gray) noexcept {
  return channels == 4 ? weighted_gray<4>(pixels, count, gray)
                       : weighted_gray<3>(pixels, count, gray);
}

size_t bytes_to_floats_avx2(const uint8_t* bytes, size_t count, float* floats) noexcept {
  return convert_bytes(bytes, count, floats, [](__m256 x) { return x; });
}

size_t normalize_bytes_avx2(const uint8_t* bytes, size_t count, float subtrahend, float multiplier,
                            float* floats) noexcept {
  const __m256 less = _mm256_set1_ps(subtrahend);
  const __m256 times = _mm256_set1_ps(multiplier);
  return convert_bytes(bytes, count, floats,
                       [=](__m256 x) { return _mm256_mul_ps(_mm256_sub_ps(x, less), times); });
}

size_t shift_and_scale_floats_avx2(const float* input, size_t count, float subtrahend,
                                   float multiplier, float* output) noexcept {
  const __m256 less = _mm256_set1_ps(subtrahend);
  const __m256 times = _mm256_set1_ps(multiplier);
  const auto loop = [=](auto stores) {
    size_t i = 0;
    for (; i + kDoublewords <= count; i += kDoublewords) {
      const __m256 shifted = _mm256_sub_ps(_mm256_loadu_ps(input + i), less);
      stores.store(_mm256_castps_si256(_mm256_mul_ps(shifted, times)), output + i);
    }
    stores.finish();
    return i;
  };
  return input == output ? loop(Kept()) : with_stores(count * sizeof(float), loop, output);
}

}  // namespace marlo::kernel::image
