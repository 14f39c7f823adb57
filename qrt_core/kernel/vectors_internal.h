#pragma once

#include <immintrin.h>

#include <cstddef>

// The vectors that cores are written with. Everything here is internal to the file that includes
// it, since each such file is compiled for an instruction set of its own.

namespace marlo::kernel {
namespace {

/// The numbers 0 to `count` - 1 as a type. (The standard library's comes in a header with inline functions, which all
/// files would share, whatever instructions they were compiled for.)
template <size_t... numbers>
struct Counted {};
template <size_t count, size_t... numbers>
struct CountedTo : CountedTo<count - 1, count - 1, numbers...> {};
template <size_t... numbers>
struct CountedTo<0, numbers...> {
  using Type = Counted<numbers...>;
};

template <typename Body, size_t... numbers>
[[gnu::always_inline]] inline void call_with(const Body& body, Counted<numbers...>) noexcept {
  (body(numbers), ...);
}

/// Calls `body(0)` to `body(count - 1)` without a loop, so that arrays that are indexed by the
/// argument can be registers. (Not by recursion: what is inlined would be copied once for each number above it.)
template <size_t count, typename Body>
[[gnu::always_inline]] inline void unrolled(const Body& body) noexcept {
  call_with(body, typename CountedTo<count>::Type());
}

/// A number as a type, for the argument of a generic lambda.
template <size_t number>
struct Count {
  static constexpr size_t value = number;
};

/// What `unrolled` calls must be inlined as well.
#define QRT_UNROLLED(index) [&](size_t index) __attribute__((always_inline))

/// Calls `run(Count<n>())` with the n that `count` is, from 1 to `kMost`: a size that is known only
/// in a pass reaches code for which it is a constant.
template <size_t kMost, typename Run>
[[gnu::always_inline]] inline void with_static(size_t count, Run run) noexcept {
  if constexpr (kMost > 1) {
    if (count < kMost) return with_static<kMost - 1>(count, run);
  }
  run(Count<kMost>());
}

/// Keeps a sum where it is computed. GCC otherwise puts off a chain of separate products and sums
/// to its end, loads all its factors before, and has to keep them in memory.
template <typename Register>
[[gnu::always_inline]] inline Register in_order(Register sum) noexcept {
  asm("" : "+x"(sum));
  return sum;
}

/// Four lanes, products rounded before they are added.
struct SseVector {
  using Register = __m128;
  static constexpr size_t kLanes = 4;

  static Register zero() noexcept { return _mm_setzero_ps(); }
  static Register load(const float* from) noexcept { return _mm_loadu_ps(from); }
  static Register splat(const float* from) noexcept { return _mm_load1_ps(from); }
  static Register splat(float x) noexcept { return _mm_set1_ps(x); }
  static void store(float* to, Register x) noexcept { _mm_storeu_ps(to, x); }

  /// The first `count` lanes, where no more floats than these may be touched. Other lanes are zero.
  static Register load_first(const float* from, size_t count) noexcept {
    if (count >= kLanes) return load(from);
    if (count < 2) return _mm_load_ss(from);
    const Register pair = _mm_loadl_pi(zero(), reinterpret_cast<const __m64*>(from));
    return count == 2 ? pair : _mm_movelh_ps(pair, _mm_load_ss(from + 2));
  }
  static void store_first(float* to, size_t count, Register x) noexcept {
    if (count >= kLanes) return store(to, x);
    if ((count & 2) != 0) {
      _mm_storel_pi(reinterpret_cast<__m64*>(to), x);
      x = _mm_movehl_ps(x, x);
      to += 2;
    }
    if ((count & 1) != 0) _mm_store_ss(to, x);
  }

  static Register plus(Register a, Register b) noexcept { return _mm_add_ps(a, b); }
  static Register minus(Register a, Register b) noexcept { return _mm_sub_ps(a, b); }
  static Register times(Register a, Register b) noexcept { return _mm_mul_ps(a, b); }
  static Register over(Register a, Register b) noexcept { return _mm_div_ps(a, b); }
  // Where an operand is a NaN, or both are zeros, these are b.
  static Register maximum(Register a, Register b) noexcept { return _mm_max_ps(a, b); }
  static Register minimum(Register a, Register b) noexcept { return _mm_min_ps(a, b); }
  static Register plus_product(Register sum, Register a, Register b) noexcept {
    return in_order(_mm_add_ps(sum, _mm_mul_ps(a, b)));
  }
};

#ifdef __AVX__

/// Eight lanes, products rounded before they are added.
struct AvxVector {
  using Register = __m256;
  static constexpr size_t kLanes = 8;

  static Register zero() noexcept { return _mm256_setzero_ps(); }
  static Register load(const float* from) noexcept { return _mm256_loadu_ps(from); }
  static Register splat(const float* from) noexcept { return _mm256_broadcast_ss(from); }
  static Register splat(float x) noexcept { return _mm256_set1_ps(x); }
  static void store(float* to, Register x) noexcept { _mm256_storeu_ps(to, x); }

  /// As those of `SseVector`. A store under a mask would be slow on some processors.
  static Register load_first(const float* from, size_t count) noexcept {
    if (count >= kLanes) return load(from);
    const Register lanes = _mm256_setr_ps(0, 1, 2, 3, 4, 5, 6, 7);
    const Register last = splat(static_cast<float>(static_cast<int>(count)));
    return _mm256_maskload_ps(from, _mm256_castps_si256(_mm256_cmp_ps(lanes, last, _CMP_LT_OQ)));
  }
  static void store_first(float* to, size_t count, Register x) noexcept {
    if (count >= kLanes) return store(to, x);
    __m128 half = _mm256_castps256_ps128(x);
    if (count >= kLanes / 2) {
      _mm_storeu_ps(to, half);
      half = _mm256_extractf128_ps(x, 1);
      to += kLanes / 2;
    }
    SseVector::store_first(to, count % (kLanes / 2), half);
  }

  /// Eight floats, or four of them twice.
  template <size_t count>
  static Register repeat(const float* from) noexcept {
    if constexpr (count == kLanes) return load(from);
    return _mm256_broadcast_ps(reinterpret_cast<const __m128*>(from));
  }
  /// Four lanes from one place and four from another, and back.
  static Register load_halves(const float* low, const float* high) noexcept {
    return _mm256_insertf128_ps(_mm256_castps128_ps256(_mm_loadu_ps(low)), _mm_loadu_ps(high), 1);
  }
  static void store_halves(float* low, float* high, Register x) noexcept {
    _mm_storeu_ps(low, _mm256_castps256_ps128(x));
    _mm_storeu_ps(high, _mm256_extractf128_ps(x, 1));
  }

  static Register plus(Register a, Register b) noexcept { return _mm256_add_ps(a, b); }
  static Register minus(Register a, Register b) noexcept { return _mm256_sub_ps(a, b); }
  static Register times(Register a, Register b) noexcept { return _mm256_mul_ps(a, b); }
  static Register over(Register a, Register b) noexcept { return _mm256_div_ps(a, b); }
  static Register maximum(Register a, Register b) noexcept { return _mm256_max_ps(a, b); }
  static Register minimum(Register a, Register b) noexcept { return _mm256_min_ps(a, b); }
  static Register plus_product(Register sum, Register a, Register b) noexcept {
    return in_order(_mm256_add_ps(sum, _mm256_mul_ps(a, b)));
  }
};

#endif

#ifdef __AVX__

/// 2^n for an integer n that is held as a float. AVX has no integer arithmetic of 8 lanes.
inline __m256 power_of_two(__m256 n) noexcept {
  const __m256i exponent = _mm256_cvttps_epi32(n);
  const __m128i bias = _mm_set1_epi32(127);
  const __m128i low = _mm_add_epi32(_mm256_castsi256_si128(exponent), bias);
  const __m128i high = _mm_add_epi32(_mm256_extractf128_si256(exponent, 1), bias);
  const __m256i bits = _mm256_insertf128_si256(_mm256_castsi128_si256(_mm_slli_epi32(low, 23)),
                                               _mm_slli_epi32(high, 23), 1);
  return _mm256_castsi256_ps(bits);
}

#endif

#ifdef __FMA__

/// Four lanes, products fused with their sums.
struct FusedHalf : SseVector {
  static Register plus_product(Register sum, Register a, Register b) noexcept {
    return _mm_fmadd_ps(a, b, sum);
  }
};

/// Eight lanes, products fused with their sums.
struct FusedVector : AvxVector {
  static Register plus_product(Register sum, Register a, Register b) noexcept {
    return _mm256_fmadd_ps(a, b, sum);
  }
};

#endif

#ifdef __AVX512F__

/// Sixteen lanes, products fused with their sums.
struct Avx512Vector {
  using Register = __m512;
  static constexpr size_t kLanes = 16;

  static Register zero() noexcept { return _mm512_setzero_ps(); }
  static Register load(const float* from) noexcept { return _mm512_loadu_ps(from); }
  static Register splat(const float* from) noexcept { return _mm512_set1_ps(*from); }
  static Register splat(float x) noexcept { return _mm512_set1_ps(x); }
  static void store(float* to, Register x) noexcept { _mm512_storeu_ps(to, x); }
  /// Sixteen floats, or eight of them twice.
  template <size_t count>
  static Register repeat(const float* from) noexcept {
    if constexpr (count == kLanes) return load(from);
    return _mm512_broadcast_f32x8(_mm256_loadu_ps(from));
  }
  /// Eight lanes from one place and eight from another, and back.
  static Register load_halves(const float* low, const float* high) noexcept {
    return _mm512_insertf32x8(_mm512_castps256_ps512(_mm256_loadu_ps(low)), _mm256_loadu_ps(high),
                              1);
  }
  static void store_halves(float* low, float* high, Register x) noexcept {
    _mm256_storeu_ps(low, _mm512_castps512_ps256(x));
    _mm256_storeu_ps(high, _mm512_extractf32x8_ps(x, 1));
  }
  /// The lower halves of two in one place, and the upper ones in another.
  static void store_halves(float* lower, float* upper, Register a, Register b) noexcept {
    store(lower, _mm512_shuffle_f32x4(a, b, 0x44));
    store(upper, _mm512_shuffle_f32x4(a, b, 0xEE));
  }

  /// As those of `SseVector`.
  static Register load_first(const float* from, size_t count) noexcept {
    return _mm512_maskz_loadu_ps(first_lanes(count), from);
  }
  static void store_first(float* to, size_t count, Register x) noexcept {
    _mm512_mask_storeu_ps(to, first_lanes(count), x);
  }

  static Register plus(Register a, Register b) noexcept { return _mm512_add_ps(a, b); }
  static Register minus(Register a, Register b) noexcept { return _mm512_sub_ps(a, b); }
  static Register times(Register a, Register b) noexcept { return _mm512_mul_ps(a, b); }
  static Register over(Register a, Register b) noexcept { return _mm512_div_ps(a, b); }
  static Register maximum(Register a, Register b) noexcept { return _mm512_max_ps(a, b); }
  static Register minimum(Register a, Register b) noexcept { return _mm512_min_ps(a, b); }
  static Register plus_product(Register sum, Register a, Register b) noexcept {
    return _mm512_fmadd_ps(a, b, sum);
  }

 private:
  static __mmask16 first_lanes(size_t count) noexcept {
    return static_cast<__mmask16>(count >= kLanes ? 0xFFFFu : (1u << count) - 1u);
  }
};

#endif

/// Where part `index` of `parts` begins that share `total` as evenly as can be.
inline size_t part_begin(size_t index, size_t parts, size_t total) noexcept {
  return index * total / parts;
}

inline size_t parts_of(size_t total, size_t most) noexcept { return (total + most - 1) / most; }

/// Shares `total` out evenly among the fewest parts of up to `most`: calls `run(begin, count)` for
/// each.
template <typename Run>
[[gnu::always_inline]] inline void for_even_parts(size_t total, size_t most, Run run) noexcept {
  const size_t parts = parts_of(total, most);
  size_t begin = 0;
  for (size_t part = 1; part <= parts; ++part) {
    const size_t end = part_begin(part, parts, total);
    run(begin, end - begin);
    begin = end;
  }
}

/// Shares `total` out evenly among the fewest tiles of up to `most`, which leaves no small tile at
/// the end: calls `run(begin, size, count)` for the larger tiles and then for the smaller ones.
template <typename Run>
[[gnu::always_inline]] inline void for_even_tiles(size_t total, size_t most, Run run) noexcept {
  if (total == 0) return;
  const size_t tiles = parts_of(total, most);
  const size_t size = total / tiles;
  const size_t larger = total % tiles;
  if (larger != 0) run(size_t{0}, size + 1, larger);
  run(larger * (size + 1), size, tiles - larger);
}

inline size_t smaller_of(size_t a, size_t b) noexcept { return a < b ? a : b; }

/// Calls `run(first, count)` for parts of `most` and for what is left over. Of nothing there is one
/// empty part: sums of no products still have to be written.
template <typename Run>
void for_each_part(size_t total, size_t most, Run run) noexcept {
  size_t first = 0;
  do {
    const size_t count = smaller_of(total - first, most);
    run(first, count);
    first += count;
  } while (first < total);
}

}  // namespace
}  // namespace marlo::kernel
