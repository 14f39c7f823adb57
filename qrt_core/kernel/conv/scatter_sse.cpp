#include "qrt_core/kernel/conv/scatter_cores.h"
#include "qrt_core/kernel/conv/scatter_internal.h"

namespace marlo::kernel::conv {
namespace {

// Adds one input row times one filter row to an output row. A vector holds the filter row and a
// zero, so that it spans one output more than the row has at its end: the last input goes lane by
// lane.
void add_row(const float* input, size_t count, const float* filter, float* output) noexcept {
  const __m128 taps = _mm_setr_ps(filter[0], filter[1], filter[2], 0.0f);
  for (size_t x = 0; x + 1 < count; ++x) {
    float* at = output + 2 * x;
    _mm_storeu_ps(at, _mm_add_ps(_mm_loadu_ps(at), _mm_mul_ps(_mm_load1_ps(input + x), taps)));
  }
  float* last = output + 2 * (count - 1);
  for (size_t k = 0; k < 3; ++k) last[k] += input[count - 1] * filter[k];
}

}  // namespace

void scatter_chw_sse(const ConvTask& task) noexcept {
  constexpr size_t kTaps = 9;
  const size_t in_plane = size_t{task.in_height} * task.in_width;
  const size_t out_plane = size_t{task.out_height} * task.out_width;
  for (size_t out = 0; out < task.out_blocks; ++out) {
    for (size_t in = 0; in < task.in_blocks; ++in) {
      const float* filter = task.weight + (out * task.in_blocks + in) * kTaps;
      for (size_t y = 0; y < task.in_height; ++y) {
        for (size_t ky = 0; ky < 3; ++ky) {
          add_row(task.input + in * in_plane + y * task.in_width, task.in_width, filter + 3 * ky,
                  task.output + out * out_plane + (2 * y + ky) * task.out_width);
        }
      }
    }
  }
}

void scatter_c4_sse(const ConvTask& task) noexcept { ScatterTiles<SseVector, 4, 4>(task).run(); }

}  // namespace marlo::kernel::conv
