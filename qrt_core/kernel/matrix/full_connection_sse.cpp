#include "qrt_core/kernel/matrix/full_connection_internal.h"

namespace marlo::kernel::matrix {
namespace {

constexpr size_t kLanes = SseVector::kLanes;
constexpr size_t kSums = 4;
constexpr size_t kBlock = kSums * kLanes;

// Columns of a long row that are taken at a time. The rows' parts of them fit into L1 twice, so
// that the next part arrives while this one is read.
constexpr size_t kPart = 256;

// Rows up to this length are taken whole: six of them fit into L1 twice as well.
constexpr size_t kWhole = 512;

// Keeps compilers from loading the weights of later rows first, for which there are no registers.
[[gnu::always_inline]] inline void row_by_row(__m128& a, __m128& b) noexcept {
  asm volatile("" : "+x"(a), "+x"(b) : : "memory");
}

// Four sums for each of some rows.
//
// The processor loads two vectors in the time of two products and two sums, so what is loaded
// beside weights costs time: each vector of the input must serve many rows. Registers hold two sums
// of six rows. So columns are read twice, by the first two sums and then by the other two.
template <size_t kRows>
class RowSums {
  // Two of the sums.
  struct Pair {
    __m128 a;
    __m128 b;
  };
  using Pairs = Pair[kRows];

 public:
  RowSums(const float* input, const float* weight, size_t row) noexcept
      : input_(input), weight_(weight), row_(row), end_(row / kBlock * kBlock) {}

  void take_row() noexcept {
    if (row_ <= kWhole) {
      take_whole();
    } else {
      take_in_parts();
    }
  }

  // Adds to the output of each row its lanes, first to last, and what doesn't fill a vector. Lanes
  // of four rows are turned around, so that one vector holds the first lanes, one the second.
  void add_to(float* output) const noexcept {
    unrolled<(kRows + kLanes - 1) / kLanes>(QRT_UNROLLED(group) {
      const size_t first = group * kLanes;
      __m128 lane[kLanes];
      float rests[kLanes];
      unrolled<kLanes>(QRT_UNROLLED(r) {
        const bool is_row = first + r < kRows;
        lane[r] = is_row ? sums_[first + r] : _mm_setzero_ps();
        rests[r] = is_row ? rest(first + r) : 0.0f;
      });
      _MM_TRANSPOSE4_PS(lane[0], lane[1], lane[2], lane[3]);
      const __m128 lanes = _mm_add_ps(_mm_add_ps(_mm_add_ps(lane[0], lane[1]), lane[2]), lane[3]);
      const __m128 sum = _mm_add_ps(lanes, _mm_loadu_ps(rests));
      add_first(output + first, smaller_of(kRows - first, kLanes), sum);
    });
  }

 private:
  [[gnu::always_inline]] void take_whole() noexcept {
    Pairs pairs;
    clear(pairs);
    take_blocks<0>(pairs, 0, end_, kRows * row_);
    take_rest(pairs);
    unrolled<kRows>(QRT_UNROLLED(r) { sums_[r] = _mm_add_ps(pairs[r].b, pairs[r].a); });
    clear(pairs);
    take_blocks<1>(pairs, 0, end_, kRows * row_);
    unrolled<kRows>(
        QRT_UNROLLED(r) { sums_[r] = _mm_add_ps(_mm_add_ps(pairs[r].b, pairs[r].a), sums_[r]); });
  }

  void take_in_parts() noexcept {
    Pairs first;
    Pairs second;
    clear(first);
    clear(second);
    for (size_t begin = 0; begin < end_; begin += kPart) {
      const size_t end = smaller_of(begin + kPart, end_);
      const size_t ahead = end == end_ ? kRows * row_ - begin : kPart;
      take_blocks<0>(first, begin, end, ahead);
      take_blocks<1>(second, begin, end, ahead);
    }
    take_rest(first);
    unrolled<kRows>(QRT_UNROLLED(r) {
      sums_[r] =
          _mm_add_ps(_mm_add_ps(second[r].b, second[r].a), _mm_add_ps(first[r].b, first[r].a));
    });
  }

  static void clear(Pairs& pairs) noexcept {
    unrolled<kRows>(QRT_UNROLLED(r) { pairs[r] = {_mm_setzero_ps(), _mm_setzero_ps()}; });
  }

  // Sums 2 * half and 2 * half + 1 of some columns. Fetches half of the lines that stand `ahead`
  // floats further on.
  template <size_t half>
  [[gnu::always_inline]] void take_blocks(Pairs& pairs, size_t begin, size_t end,
                                          size_t ahead) const noexcept {
    Pairs sums;
    unrolled<kRows>(QRT_UNROLLED(r) { sums[r] = pairs[r]; });
    const float* x = input_ + begin + 2 * half * kLanes;
    const float* w = weight_ + begin + 2 * half * kLanes;
    const size_t row = row_;
    for (const float* last = x + (end - begin); x != last; x += kBlock, w += kBlock) {
      const __m128 first = _mm_loadu_ps(x);
      const __m128 second = _mm_loadu_ps(x + kLanes);
      unrolled<kRows>(QRT_UNROLLED(r) {
        const float* at = w + r * row;
        if (r % 2 == half) _mm_prefetch(reinterpret_cast<const char*>(at + ahead), _MM_HINT_T0);
        sums[r].a = _mm_add_ps(sums[r].a, _mm_mul_ps(_mm_loadu_ps(at), first));
        sums[r].b = _mm_add_ps(sums[r].b, _mm_mul_ps(_mm_loadu_ps(at + kLanes), second));
        row_by_row(sums[r].a, sums[r].b);
      });
    }
    unrolled<kRows>(QRT_UNROLLED(r) { pairs[r] = sums[r]; });
  }

  // What doesn't fill a block: 8 products into the first two sums, then 4 into the first.
  [[gnu::always_inline]] void take_rest(Pairs& first) noexcept {
    done_ = end_;
    if (row_ - done_ >= 2 * kLanes) {
      unrolled<kRows>(QRT_UNROLLED(r) {
        first[r].a = _mm_add_ps(first[r].a, products(r, done_));
        first[r].b = _mm_add_ps(first[r].b, products(r, done_ + kLanes));
      });
      done_ += 2 * kLanes;
    }
    if (row_ - done_ >= kLanes) {
      unrolled<kRows>(QRT_UNROLLED(r) { first[r].a = _mm_add_ps(first[r].a, products(r, done_)); });
      done_ += kLanes;
    }
  }

  __m128 products(size_t r, size_t column) const noexcept {
    return _mm_mul_ps(_mm_loadu_ps(weight_ + r * row_ + column), _mm_loadu_ps(input_ + column));
  }

  float rest(size_t r) const noexcept {
    float sum = 0.0f;
    for (size_t i = done_; i < row_; ++i) sum += weight_[r * row_ + i] * input_[i];
    return sum;
  }

  static void add_first(float* output, size_t count, __m128 sums) noexcept {
    if (count == kLanes) return _mm_storeu_ps(output, _mm_add_ps(_mm_loadu_ps(output), sums));
    float lanes[kLanes];
    _mm_storeu_ps(lanes, sums);
    for (size_t r = 0; r < count; ++r) output[r] += lanes[r];
  }

  const float* input_;
  const float* weight_;
  size_t row_;
  size_t end_;       // of whole blocks
  size_t done_ = 0;  // what vectors have taken
  __m128 sums_[kRows];
};

// Rows from `o` on, as long as there are `kRows`. @return the first row that is left
template <size_t kRows>
size_t add_rows(const FullConnectionTask& task, size_t o) noexcept {
  for (; o + kRows <= task.out_features; o += kRows) {
    RowSums<kRows> sums(task.input, task.weight + o * task.in_features, task.in_features);
    sums.take_row();
    sums.add_to(task.output + o);
  }
  return o;
}

}  // namespace

void dot_sse(const FullConnectionTask& task) noexcept {
  add_rows<1>(task, add_rows<2>(task, add_rows<6>(task, 0)));
}

void dot_batch_sse(const FullConnectionTask& task) noexcept {
  for_row_groups<4>(task, [&task](size_t o, auto rows) {
    DotRows<SseVector, rows.value, 1> dots(task.input, task.weight + o * task.in_features,
                                           task.in_features);
    dots.take_whole_blocks();
    for (size_t r = 0; r < rows.value; ++r) {
      const float sum = sum_of_lanes<SseVector>(dots.sum(r)) + dots.rest(r);
      task.output[o + r] = task.bias == nullptr ? sum : sum + task.bias[o + r];
    }
  });
}

void blocks_of_4_sse(const FullConnectionTask& task) noexcept {
  BlockRows<SseVector, Order::in_pairs>(task).run();
}

}  // namespace marlo::kernel::matrix
