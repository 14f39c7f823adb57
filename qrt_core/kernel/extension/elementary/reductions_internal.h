#pragma once

#include "qrt_core/kernel/extension/elementary/reduction_cores.h"
#include "qrt_core/kernel/vectors_internal.h"

// Reductions for any vector of doubles, which floats are widened to.

namespace marlo::kernel::elementary {
namespace {

/// One lane: what is left behind whole vectors.
struct OneDouble {
  using Register = double;

  static Register widened(const float* from) noexcept { return static_cast<double>(*from); }
  static Register plus(Register a, Register b) noexcept { return a + b; }
  static Register times(Register a, Register b) noexcept { return a * b; }
  static Register absolute(Register x) noexcept { return __builtin_fabs(x); }
  // Where an operand is a NaN, these are b.
  static Register maximum(Register a, Register b) noexcept { return a > b ? a : b; }
  static Register minimum(Register a, Register b) noexcept { return a < b ? a : b; }
  /// `a` where it is a NaN, and `b` elsewhere.
  static Register nan_or(Register a, Register b) noexcept { return a != a ? a : b; }
};

#ifdef __FMA__

/// Four lanes.
struct FourDoubles {
  using Register = __m256d;
  static constexpr size_t kLanes = 4;

  static Register splat(double x) noexcept { return _mm256_set1_pd(x); }
  static Register load(const double* from) noexcept { return _mm256_loadu_pd(from); }
  static void store(double* to, Register x) noexcept { _mm256_storeu_pd(to, x); }
  static Register widened(const float* from) noexcept {
    return _mm256_cvtps_pd(_mm_loadu_ps(from));
  }
  static Register plus(Register a, Register b) noexcept { return _mm256_add_pd(a, b); }
  static Register times(Register a, Register b) noexcept { return _mm256_mul_pd(a, b); }
  static Register absolute(Register x) noexcept { return _mm256_andnot_pd(splat(-0.0), x); }
  static Register maximum(Register a, Register b) noexcept { return _mm256_max_pd(a, b); }
  static Register minimum(Register a, Register b) noexcept { return _mm256_min_pd(a, b); }
  static Register nan_or(Register a, Register b) noexcept {
    return _mm256_blendv_pd(b, a, _mm256_cmp_pd(a, a, _CMP_UNORD_Q));
  }
};

#endif

#ifdef __AVX512F__

/// Eight lanes.
struct EightDoubles {
  using Register = __m512d;
  static constexpr size_t kLanes = 8;

  static Register splat(double x) noexcept { return _mm512_set1_pd(x); }
  static Register load(const double* from) noexcept { return _mm512_loadu_pd(from); }
  static void store(double* to, Register x) noexcept { _mm512_storeu_pd(to, x); }
  static Register widened(const float* from) noexcept {
    return _mm512_cvtps_pd(_mm256_loadu_ps(from));
  }
  static Register plus(Register a, Register b) noexcept { return _mm512_add_pd(a, b); }
  static Register times(Register a, Register b) noexcept { return _mm512_mul_pd(a, b); }
  static Register absolute(Register x) noexcept { return _mm512_andnot_pd(splat(-0.0), x); }
  static Register maximum(Register a, Register b) noexcept { return _mm512_max_pd(a, b); }
  static Register minimum(Register a, Register b) noexcept { return _mm512_min_pd(a, b); }
  static Register nan_or(Register a, Register b) noexcept {
    return _mm512_mask_blend_pd(_mm512_cmp_pd_mask(a, a, _CMP_UNORD_Q), b, a);
  }
};

#endif

// Each function: where it begins, what a number adds, and what two parts make together.

struct Sums {
  static constexpr double kBegin = 0.0;
  template <typename D>
  static typename D::Register added(typename D::Register sum, typename D::Register x) noexcept {
    return D::plus(sum, x);
  }
  template <typename D>
  static typename D::Register joined(typename D::Register a, typename D::Register b) noexcept {
    return D::plus(a, b);
  }
};

struct Magnitudes : Sums {
  template <typename D>
  static typename D::Register added(typename D::Register sum, typename D::Register x) noexcept {
    return D::plus(sum, D::absolute(x));
  }
};

// A float's square is exact in double precision.
struct Squares : Sums {
  template <typename D>
  static typename D::Register added(typename D::Register sum, typename D::Register x) noexcept {
    return D::plus(sum, D::times(x, x));
  }
};

struct Products {
  static constexpr double kBegin = 1.0;
  template <typename D>
  static typename D::Register added(typename D::Register product, typename D::Register x) noexcept {
    return D::times(product, x);
  }
  template <typename D>
  static typename D::Register joined(typename D::Register a, typename D::Register b) noexcept {
    return D::times(a, b);
  }
};

// A NaN stays, as what was found so far or as the second operand.
struct Largest {
  static constexpr double kBegin = -__builtin_inf();
  template <typename D>
  static typename D::Register added(typename D::Register largest, typename D::Register x) noexcept {
    return D::nan_or(largest, D::maximum(largest, x));
  }
  template <typename D>
  static typename D::Register joined(typename D::Register a, typename D::Register b) noexcept {
    return added<D>(a, b);
  }
};

struct Least {
  static constexpr double kBegin = __builtin_inf();
  template <typename D>
  static typename D::Register added(typename D::Register least, typename D::Register x) noexcept {
    return D::nan_or(least, D::minimum(least, x));
  }
  template <typename D>
  static typename D::Register joined(typename D::Register a, typename D::Register b) noexcept {
    return added<D>(a, b);
  }
};

template <typename D, typename Function>
double folded_row(const float* x, size_t count) noexcept {
  constexpr size_t kParts = 4;
  double result = Function::kBegin;
  size_t i = 0;
  if (count >= D::kLanes) {
    typename D::Register sums[kParts];
    unrolled<kParts>(QRT_UNROLLED(k) { sums[k] = D::splat(Function::kBegin); });
    for (; i + kParts * D::kLanes <= count; i += kParts * D::kLanes) {
      unrolled<kParts>(QRT_UNROLLED(k) {
        sums[k] = Function::template added<D>(sums[k], D::widened(x + i + k * D::kLanes));
      });
    }
    for (; i + D::kLanes <= count; i += D::kLanes) {
      sums[0] = Function::template added<D>(sums[0], D::widened(x + i));
    }
    double lanes[D::kLanes];
    D::store(lanes, Function::template joined<D>(Function::template joined<D>(sums[0], sums[1]),
                                                 Function::template joined<D>(sums[2], sums[3])));
    for (const double lane : lanes) result = Function::template joined<OneDouble>(result, lane);
  }
  for (; i < count; ++i) {
    result = Function::template added<OneDouble>(result, OneDouble::widened(x + i));
  }
  return result;
}

/// Adds so many rows to the sums, which are read and written once for all of them.
template <typename D, typename Function, size_t rows>
void add_rows(const float* x, size_t stride, size_t count, double* sums) noexcept {
  size_t j = 0;
  for (; j + D::kLanes <= count; j += D::kLanes) {
    typename D::Register sum = D::load(sums + j);
    unrolled<rows>(QRT_UNROLLED(r) {
      sum = Function::template added<D>(sum, D::widened(x + r * stride + j));
    });
    D::store(sums + j, sum);
  }
  for (; j < count; ++j) {
    for (size_t r = 0; r < rows; ++r) {
      sums[j] =
          Function::template added<OneDouble>(sums[j], OneDouble::widened(x + r * stride + j));
    }
  }
}

template <typename D, typename Function>
void fold(const ReductionTask& task) noexcept {
  const float* x = task.input;
  size_t row = 0;
  if (task.along_rows) {
    for (; row < task.rows; ++row, x += task.stride) {
      task.sums[row] = Function::template joined<OneDouble>(task.sums[row],
                                                            folded_row<D, Function>(x, task.count));
    }
    return;
  }
  constexpr size_t kRows = 4;
  for (; row + kRows <= task.rows; row += kRows, x += kRows * task.stride) {
    add_rows<D, Function, kRows>(x, task.stride, task.count, task.sums);
  }
  for (; row < task.rows; ++row, x += task.stride) {
    add_rows<D, Function, 1>(x, task.stride, task.count, task.sums);
  }
}

template <typename D>
void reduce(const ReductionTask& task) noexcept {
  switch (task.function) {
    case 2:
      return fold<D, Largest>(task);
    case 3:
      return fold<D, Least>(task);
    case 4:
      return fold<D, Products>(task);
    case 5:
      return fold<D, Magnitudes>(task);
    case 6:
    case 7:
      return fold<D, Squares>(task);
    default:
      return fold<D, Sums>(task);
  }
}

}  // namespace
}  // namespace marlo::kernel::elementary
