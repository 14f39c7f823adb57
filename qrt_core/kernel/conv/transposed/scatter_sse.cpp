#include "qrt_core/kernel/conv/transposed/scatter_cores.h"
#include "qrt_core/kernel/conv/transposed/scatter_internal.h"

namespace marlo::kernel::conv {
namespace {

constexpr size_t kLanes = SseVector::kLanes;

// Four outputs of even columns and the four of odd ones between them.
struct Columns {
  __m128 even;
  __m128 odd;
};

size_t behind(size_t count, size_t before) noexcept { return count < before ? 0 : count - before; }

// The first `pairs` of four pairs of neighbours.
Columns load_columns(const float* from, size_t pairs) noexcept {
  const size_t count = 2 * pairs;
  const __m128 first = SseVector::load_first(from, count);
  const __m128 second = count <= kLanes
                            ? SseVector::zero()
                            : SseVector::load_first(from + kLanes, behind(count, kLanes));
  return {_mm_shuffle_ps(first, second, _MM_SHUFFLE(2, 0, 2, 0)),
          _mm_shuffle_ps(first, second, _MM_SHUFFLE(3, 1, 3, 1))};
}

void store_columns(float* to, size_t pairs, const Columns& columns) noexcept {
  const size_t count = 2 * pairs;
  SseVector::store_first(to, count, _mm_unpacklo_ps(columns.even, columns.odd));
  SseVector::store_first(to + kLanes, behind(count, kLanes),
                         _mm_unpackhi_ps(columns.even, columns.odd));
}

// Adding each input to nine outputs would load what has just been stored at another place, which
// processors wait for. A sum takes the input planes in order, and of each the upper input row
// before the lower one and the left input before the right one.
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
      for (size_t parity = 0; parity < 2; ++parity) {
        const ScatterRanges ranges(task_.in_height, parity);
        for (size_t i = 0; i < ranges.count; ++i) run_rows(plane, ranges.range[i]);
      }
    }
  }

 private:
  void run_rows(size_t plane, const ScatterRange& range) const noexcept {
    Rows rows = {range.taps, {}, {}};
    for (size_t row = 0; row < range.count; ++row) {
      for (size_t tap = 0; tap < range.taps; ++tap) {
        rows.input[tap] = (range.input + row + tap) * task_.in_width;
        rows.filter[tap] = range.tap[tap] * 3;
      }
      float* output =
          task_.output + plane * out_plane_ + (range.output + 2 * row) * task_.out_width;
      with_static<kMostPlanes>(task_.out_blocks - plane,
                               [&](auto kPlanes) { run_row<kPlanes.value>(plane, rows, output); });
    }
  }

  // Behind the first two columns there are pairs up to the last, which is by itself.
  template <size_t kPlanes>
  void run_row(size_t plane, const Rows& rows, float* output) const noexcept {
    run_edges<kPlanes>(plane, rows, output);
    const size_t end = task_.in_width;
    size_t input = 1;
    for (; input + kLanes < end; input += kLanes * kMostVectors) {
      run_pairs<kPlanes, kMostVectors>(plane, rows, input, output);
    }
    if (input < end) run_pairs<kPlanes, 1>(plane, rows, input, output);
  }

  template <size_t kPlanes, size_t kVectors>
  void run_pairs(size_t plane, const Rows& rows, size_t input, float* output) const noexcept {
    const size_t pairs = task_.in_width - input;
    if (pairs >= kVectors * kLanes) {
      run_tile<kPlanes, kVectors, true>(plane, rows, input, pairs, output + 2 * input);
    } else {
      run_tile<kPlanes, kVectors, false>(plane, rows, input, pairs, output + 2 * input);
    }
  }

  // Outputs of which the even ones have an input on either side. `kWhole` says that the last vector
  // is full, too.
  template <size_t kPlanes, size_t kVectors, bool kWhole>
  [[gnu::noinline]] void run_tile(size_t plane, const Rows& rows, size_t first, size_t pairs,
                                  float* output) const noexcept {
    const size_t rest = pairs - (kVectors - 1) * kLanes;  // of the last vector
    const auto pairs_of = [&](size_t v) __attribute__((always_inline)) {
      return kWhole || v + 1 < kVectors ? kLanes : rest;
    };
    Columns sums[kPlanes][kVectors];
    unrolled<kPlanes>(QRT_UNROLLED(o) {
      unrolled<kVectors>(QRT_UNROLLED(v) {
        sums[o][v] = load_columns(output + o * out_plane_ + 2 * kLanes * v, pairs_of(v));
      });
    });
    const size_t out_step = out_step_;
    const float* filter = task_.weight + plane * out_step;
    const float* input = task_.input + first - 1;
    for (size_t k = 0; k < task_.in_blocks; ++k, input += in_plane_, filter += kTaps) {
      for (size_t r = 0; r < rows.count; ++r) {
        const float* x = input + rows.input[r];
        const float* taps = filter + rows.filter[r];
        __m128 left[kVectors];
        __m128 right[kVectors];
        unrolled<kVectors>(QRT_UNROLLED(v) {
          left[v] = SseVector::load_first(x + kLanes * v, pairs_of(v));
          right[v] = SseVector::load_first(x + kLanes * v + 1, pairs_of(v));
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
        store_columns(output + o * out_plane_ + 2 * kLanes * v, pairs_of(v), sums[o][v]);
      });
    });
  }

  // The first column, the second and the last read one tap of each row: side by side in a vector,
  // these are the row of the filter.
  template <size_t kPlanes>
  [[gnu::noinline]] void run_edges(size_t plane, const Rows& rows, float* output) const noexcept {
    const size_t last = task_.out_width - 1;
    __m128 sums[kPlanes];
    unrolled<kPlanes>(QRT_UNROLLED(o) {
      const float* from = output + o * out_plane_;
      sums[o] = _mm_setr_ps(from[0], from[1], from[last], 0.0f);
    });
    const float* filter = task_.weight + plane * out_step_;
    const float* input = task_.input;
    for (size_t k = 0; k < task_.in_blocks; ++k, input += in_plane_, filter += kTaps) {
      for (size_t r = 0; r < rows.count; ++r) {
        const float* x = input + rows.input[r];
        const __m128 ends =
            _mm_shuffle_ps(SseVector::splat(x), SseVector::splat(x + task_.in_width - 1), 0);
        unrolled<kPlanes>(QRT_UNROLLED(o) {
          const __m128 w = SseVector::load_first(filter + rows.filter[r] + o * out_step_, 3);
          sums[o] = SseVector::plus_product(sums[o], ends, w);
        });
      }
    }
    unrolled<kPlanes>(QRT_UNROLLED(o) {
      float* to = output + o * out_plane_;
      SseVector::store_first(to, 2, sums[o]);
      _mm_store_ss(to + last, _mm_movehl_ps(sums[o], sums[o]));
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
