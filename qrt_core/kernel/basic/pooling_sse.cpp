#include "qrt_core/kernel/basic/pooling_cores.h"
#include "qrt_core/kernel/basic/pooling_internal.h"

namespace marlo::kernel::pooling {
namespace {

float greater(float a, float b) { return b > a ? b : a; }

struct Sum {
  static __m128 combine(__m128 a, __m128 b) { return _mm_add_ps(a, b); }
  static float combine(float a, float b) { return a + b; }
};

struct Greatest {
  static __m128 combine(__m128 a, __m128 b) { return _mm_max_ps(a, b); }
  static float combine(float a, float b) { return greater(a, b); }
};

// a[0], a[2], b[0], b[2], and the odd ones.
__m128 evens(__m128 a, __m128 b) { return _mm_shuffle_ps(a, b, _MM_SHUFFLE(2, 0, 2, 0)); }
__m128 odds(__m128 a, __m128 b) { return _mm_shuffle_ps(a, b, _MM_SHUFFLE(3, 1, 3, 1)); }

// Calls `row(input, output)` with the first input row of each output row.
template <size_t stride, typename Row>
void for_each_row(const PoolingTask& task, Row row) noexcept {
  float* output = task.output;
  for (size_t plane = 0; plane < task.planes; ++plane) {
    const float* input = task.input + plane * task.height * task.width;
    for (size_t oh = 0; oh < task.out_height; ++oh) {
      row(input + oh * stride * task.width, output);
      output += task.out_width;
    }
  }
}

// Four outputs at a time from two rows of 2 by 2 windows; `finish` and `finish_one` are one
// function on four numbers and on one.
template <typename Op, typename Finish, typename FinishOne>
void pool_k2s2(const PoolingTask& task, Finish finish, FinishOne finish_one) noexcept {
  for_each_row<2>(task, [&](const float* a, float* output) {
    const float* b = a + task.width;
    size_t ow = 0;
    for (; ow + 4 <= task.out_width; ow += 4, a += 8, b += 8) {
      const __m128 left = Op::combine(_mm_loadu_ps(a), _mm_loadu_ps(b));
      const __m128 right = Op::combine(_mm_loadu_ps(a + 4), _mm_loadu_ps(b + 4));
      _mm_storeu_ps(output + ow, finish(Op::combine(evens(left, right), odds(left, right))));
    }
    for (; ow < task.out_width; ++ow, a += 2, b += 2) {
      output[ow] = finish_one(Op::combine(Op::combine(a[0], b[0]), Op::combine(a[1], b[1])));
    }
  });
}

// Column sums or maxima of three rows.
template <typename Op>
__m128 columns_of_3(const float* p, size_t width) {
  const __m128 two = Op::combine(_mm_loadu_ps(p), _mm_loadu_ps(p + width));
  return Op::combine(two, _mm_loadu_ps(p + 2 * width));
}

// Four neighbouring 3 by 3 windows with stride 2, from columns 0 to 8.
template <typename Op>
__m128 four_k3s2(const float* p, size_t width) {
  const __m128 first = columns_of_3<Op>(p, width);
  const __m128 second = columns_of_3<Op>(p + 4, width);
  const __m128 last = columns_of_3<Op>(p + 5, width);  // ends with column 8 and reads no further
  const __m128 even = evens(first, second);
  const __m128 ends = _mm_shuffle_ps(even, last, _MM_SHUFFLE(3, 3, 3, 3));  // 6, 6, 8, 8
  const __m128 next_even = _mm_shuffle_ps(even, ends, _MM_SHUFFLE(2, 0, 2, 1));
  return Op::combine(Op::combine(even, odds(first, second)), next_even);
}

// One 3 by 3 window.
template <typename Op>
float one_k3(const float* p, size_t width) {
  float columns[3];
  for (size_t c = 0; c < 3; ++c) {
    columns[c] = Op::combine(Op::combine(p[c], p[c + width]), p[c + 2 * width]);
  }
  return Op::combine(Op::combine(columns[0], columns[1]), columns[2]);
}

template <size_t rows>
__m128 sum_of_rows(const float* p, size_t width) {
  __m128 sum = _mm_loadu_ps(p);
  for (size_t r = 1; r < rows; ++r) sum = _mm_add_ps(sum, _mm_loadu_ps(p + r * width));
  return sum;
}

// Lane 0 of the result holds the sum.
float sum_of_lanes(__m128 a) {
  const __m128 pairs = _mm_add_ps(a, _mm_shuffle_ps(a, a, _MM_SHUFFLE(3, 3, 1, 1)));
  return _mm_cvtss_f32(_mm_add_ss(pairs, _mm_movehl_ps(pairs, pairs)));
}

}  // namespace

void average_k2s2_chw_sse(const PoolingTask& task) noexcept {
  pool_k2s2<Sum>(
      task, [](__m128 sum) { return _mm_div_ps(sum, _mm_set1_ps(4.0f)); },
      [](float sum) { return sum * 0.25f; });
}

void average_k3s2_chw_sse(const PoolingTask& task) noexcept {
  for_each_row<2>(task, [&task](const float* input, float* output) {
    size_t ow = 0;
    for (; ow + 4 <= task.out_width; ow += 4, input += 8) {
      const __m128 sums = four_k3s2<Sum>(input, task.width);
      _mm_storeu_ps(output + ow, _mm_div_ps(sums, _mm_set1_ps(9.0f)));
    }
    for (; ow < task.out_width; ++ow, input += 2) {
      output[ow] = static_cast<float>(static_cast<double>(one_k3<Sum>(input, task.width)) / 9.0);
    }
  });
}

void average_k4s4_chw_sse(const PoolingTask& task) noexcept {
  for_each_row<4>(task, [&task](const float* input, float* output) {
    for (size_t ow = 0; ow < task.out_width; ++ow, input += 4) {
      const __m128 sums = sum_of_rows<4>(input, task.width);
      output[ow] = sum_of_lanes(_mm_div_ps(sums, _mm_set1_ps(16.0f)));
    }
  });
}

void average_k7s1_chw_sse(const PoolingTask& task) noexcept {
  for_each_row<1>(task, [&task](const float* input, float* output) {
    // Columns 3 to 6 without the first, which the other vector holds: nothing is read past them.
    const __m128 last_three = _mm_castsi128_ps(_mm_set_epi32(-1, -1, -1, 0));
    for (size_t ow = 0; ow < task.out_width; ++ow, ++input) {
      const __m128 left = sum_of_rows<7>(input, task.width);
      const __m128 right = _mm_and_ps(sum_of_rows<7>(input + 3, task.width), last_three);
      output[ow] = sum_of_lanes(_mm_add_ps(left, right)) / 49.0f;
    }
  });
}

void average_k4s4_c4_sse(const PoolingTask& task) noexcept {
  BlockedPooling<SseVector, Average, 4, 4>(task).run();
}

void maximum_k2s2_chw_sse(const PoolingTask& task) noexcept {
  pool_k2s2<Greatest>(
      task, [](__m128 maximum) { return maximum; }, [](float maximum) { return maximum; });
}

void maximum_k3s2_chw_sse(const PoolingTask& task) noexcept {
  for_each_row<2>(task, [&task](const float* input, float* output) {
    size_t ow = 0;
    for (; ow + 4 <= task.out_width; ow += 4, input += 8) {
      const __m128 maxima = four_k3s2<Greatest>(input, task.width);
      _mm_storeu_ps(output + ow, _mm_max_ps(maxima, _mm_set1_ps(-999.0f)));
    }
    for (; ow < task.out_width; ++ow, input += 2) {
      output[ow] = one_k3<Greatest>(input, task.width);
    }
  });
}

}  // namespace marlo::kernel::pooling
