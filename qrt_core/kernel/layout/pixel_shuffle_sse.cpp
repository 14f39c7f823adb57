#include <emmintrin.h>

#include "qrt_core/kernel/layout/pixel_shuffle_internal.h"

namespace marlo::kernel::pixel_shuffle {

void upscale2_c4_sse(const Task& task) noexcept {
  for_each_square<4>(task, [&task](size_t deep, size_t plane, size_t wide, size_t row) {
    __m128 a = _mm_loadu_ps(task.input + deep);
    __m128 b = _mm_loadu_ps(task.input + deep + plane);
    __m128 c = _mm_loadu_ps(task.input + deep + 2 * plane);
    __m128 d = _mm_loadu_ps(task.input + deep + 3 * plane);
    _MM_TRANSPOSE4_PS(a, b, c, d);
    _mm_storeu_ps(task.output + wide, a);
    _mm_storeu_ps(task.output + wide + 4, b);
    _mm_storeu_ps(task.output + wide + row, c);
    _mm_storeu_ps(task.output + wide + row + 4, d);
  });
}

void downscale2_c4_sse(const Task& task) noexcept {
  for_each_square<4>(task, [&task](size_t deep, size_t plane, size_t wide, size_t row) {
    __m128 a = _mm_loadu_ps(task.input + wide);
    __m128 b = _mm_loadu_ps(task.input + wide + 4);
    __m128 c = _mm_loadu_ps(task.input + wide + row);
    __m128 d = _mm_loadu_ps(task.input + wide + row + 4);
    _MM_TRANSPOSE4_PS(a, b, c, d);
    _mm_storeu_ps(task.output + deep, a);
    _mm_storeu_ps(task.output + deep + plane, b);
    _mm_storeu_ps(task.output + deep + 2 * plane, c);
    _mm_storeu_ps(task.output + deep + 3 * plane, d);
  });
}

}  // namespace marlo::kernel::pixel_shuffle
