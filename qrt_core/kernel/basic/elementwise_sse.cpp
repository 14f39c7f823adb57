#include <emmintrin.h>

#include "qrt_core/kernel/basic/elementwise_cores.h"

namespace marlo::kernel::elementwise {
namespace {

constexpr size_t kLanes = 4;

// Four vectors at a time keep the load and store ports busy.
template <typename Function>
void map(const float* a, const float* b, float* output, size_t count, Function function) noexcept {
  size_t i = 0;
  for (; i + 4 * kLanes <= count; i += 4 * kLanes) {
    const __m128 p = function(_mm_loadu_ps(a + i), _mm_loadu_ps(b + i));
    const __m128 q = function(_mm_loadu_ps(a + i + kLanes), _mm_loadu_ps(b + i + kLanes));
    const __m128 r = function(_mm_loadu_ps(a + i + 2 * kLanes), _mm_loadu_ps(b + i + 2 * kLanes));
    const __m128 s = function(_mm_loadu_ps(a + i + 3 * kLanes), _mm_loadu_ps(b + i + 3 * kLanes));
    _mm_storeu_ps(output + i, p);
    _mm_storeu_ps(output + i + kLanes, q);
    _mm_storeu_ps(output + i + 2 * kLanes, r);
    _mm_storeu_ps(output + i + 3 * kLanes, s);
  }
  for (; i + kLanes <= count; i += kLanes) {
    _mm_storeu_ps(output + i, function(_mm_loadu_ps(a + i), _mm_loadu_ps(b + i)));
  }
}

}  // namespace

void add_sse(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](__m128 x, __m128 y) { return _mm_add_ps(x, y); });
}

void subtract_sse(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](__m128 x, __m128 y) { return _mm_sub_ps(x, y); });
}

void multiply_sse(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](__m128 x, __m128 y) { return _mm_mul_ps(x, y); });
}

void divide_sse(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](__m128 x, __m128 y) { return _mm_div_ps(x, y); });
}

void maximum_sse(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](__m128 x, __m128 y) { return _mm_max_ps(x, y); });
}

void minimum_sse(const float* a, const float* b, float* output, size_t count) noexcept {
  map(a, b, output, count, [](__m128 x, __m128 y) { return _mm_min_ps(x, y); });
}

}  // namespace marlo::kernel::elementwise
