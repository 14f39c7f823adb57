#include "qrt_core/kernel/conv/scatter_cores.h"
#include "qrt_core/kernel/conv/scatter_internal.h"

namespace marlo::kernel::conv {
namespace {

constexpr size_t kLanes = SseVector::kLanes;

// Four outputs of even columns and the four of odd ones between them.
struct Columns {
  __m128 even;
  __m128 odd;
};

// Eight neighbours; what stands behind a row may be among them.
Columns load_columns(const float* from) noexcept {
  const __m128 first = _mm_loadu_ps(from);
  const __m128 second = _mm_loadu_ps(from + kLanes);
  return {_mm_shuffle_ps(first, second, _MM_SHUFFLE(2, 0, 2, 0)),
          _mm_shuffle_ps(first, second, _MM_SHUFFLE(3, 1, 3, 1))};
}

void store_columns(float* to, size_t count, const Columns& columns) noexcept {
  const __m128 first = _mm_unpacklo_ps(columns.even, columns.odd);
  const __m128 second = _mm_unpackhi_ps(columns.even, columns.odd);
  if (count >= 2 * kLanes) {
    _mm_storeu_ps(to, first);
    return _mm_storeu_ps(to + kLanes, second);
  }
  float lanes[2 * kLanes];
  _mm_storeu_ps(lanes, first);
  _mm_storeu_ps(lanes + kLanes, second);
  for (size_t i = 0; i < count; ++i) to[i] = lanes[i];
}

// Computes each output once: adding each input to nine would load what has just been stored at
// another place, which processors wait for. A sum takes the input planes in order, and of each the
// upper input row before the lower one and the left input before the right one.
class ScatterPlanes {
  static constexpr size_t kMostPlanes = 2;
  static constexpr size_t kMostVectors = 2;
  static constexpr size_t kTaps = 9;

  // The input rows that reach a row of outputs, and the rows of the filter by which they do.
  struct Rows {
    size_t count;
    size_t input[2];
    size_t filter[2];
  };

 public:
  explicit ScatterPlanes(const ConvTask& task) noexcept
      : task_(task),
        in_plane_(size_t{task.in_width} * task.in_height),
        out_plane_(size_t{task.out_width} * task.out_height),
        out_step_(kTaps * task.in_blocks) {}

  void run() const noexcept {
    for (size_t plane = 0; plane < task_.out_blocks; plane += kMostPlanes) {
      for (size_t row = 0; row < task_.out_height; ++row) {
        if (task_.out_blocks - plane < kMostPlanes) {
          run_row<1>(plane, row);
        } else {
          run_row<kMostPlanes>(plane, row);
        }
      }
    }
  }

 private:
  // Behind the margin, input row y + 1 reaches output rows 2 y, 2 y + 1 and 2 y + 2.
  Rows rows_of(size_t row) const noexcept {
    const size_t above = row / 2 * task_.in_width;
    const size_t below = above + task_.in_width;
    if (row % 2 != 0) return {1, {below, 0}, {3, 0}};
    return {2, {above, below}, {6, 0}};
  }

  template <size_t kPlanes>
  void run_row(size_t plane, size_t row) const noexcept {
    const Rows rows = rows_of(row);
    float* output = task_.output + plane * out_plane_ + row * task_.out_width;
    constexpr size_t kTile = 2 * kLanes * kMostVectors;
    size_t column = 0;
    for (; column + kTile / 2 < task_.out_width; column += kTile) {
      run_tile<kPlanes, kMostVectors>(plane, rows, column, output + column);
    }
    if (column < task_.out_width) run_tile<kPlanes, 1>(plane, rows, column, output + column);
  }

  template <size_t kPlanes, size_t kVectors>
  [[gnu::noinline]] void run_tile(size_t plane, const Rows& rows, size_t column,
                                  float* output) const noexcept {
    Columns sums[kPlanes][kVectors];
    unrolled<kPlanes>(QRT_UNROLLED(o) {
      unrolled<kVectors>(
          QRT_UNROLLED(v) { sums[o][v] = load_columns(output + o * out_plane_ + 2 * kLanes * v); });
    });
    const size_t out_step = out_step_;
    const float* filter = task_.weight + plane * out_step;
    const float* input = task_.input + column / 2;
    for (size_t k = 0; k < task_.in_blocks; ++k, input += in_plane_, filter += kTaps) {
      for (size_t r = 0; r < rows.count; ++r) {
        const float* x = input + rows.input[r];
        const float* taps = filter + rows.filter[r];
        __m128 left[kVectors];
        __m128 right[kVectors];
        unrolled<kVectors>(QRT_UNROLLED(v) {
          left[v] = _mm_loadu_ps(x + kLanes * v);
          right[v] = _mm_loadu_ps(x + kLanes * v + 1);
        });
        unrolled<kPlanes>(QRT_UNROLLED(o) {
          const float* w = taps + o * out_step;
          add<kVectors>(left, SseVector::splat(w + 2), sums[o], &Columns::even);
          add<kVectors>(right, SseVector::splat(w), sums[o], &Columns::even);
          add<kVectors>(right, SseVector::splat(w + 1), sums[o], &Columns::odd);
        });
      }
    }
    unrolled<kPlanes>(QRT_UNROLLED(o) {
      unrolled<kVectors>(QRT_UNROLLED(v) {
        const size_t at = 2 * kLanes * v;
        store_columns(output + o * out_plane_ + at, task_.out_width - column - at, sums[o][v]);
      });
    });
  }

  template <size_t kVectors>
  [[gnu::always_inline]] static void add(const __m128 (&x)[kVectors], __m128 w,
                                         Columns (&sums)[kVectors],
                                         __m128 Columns::*part) noexcept {
    unrolled<kVectors>(
        QRT_UNROLLED(v) { sums[v].*part = SseVector::plus_product(sums[v].*part, x[v], w); });
  }

  const ConvTask& task_;
  size_t in_plane_;
  size_t out_plane_;
  size_t out_step_;
};

}  // namespace

void scatter_chw_sse(const ConvTask& task) noexcept { ScatterPlanes(task).run(); }

void scatter_c4_sse(const ConvTask& task) noexcept { ScatterTiles<SseVector, 4, 4>(task).run(); }

}  // namespace marlo::kernel::conv
