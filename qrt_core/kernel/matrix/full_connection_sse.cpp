#include "qrt_core/kernel/matrix/full_connection_internal.h"

namespace marlo::kernel::matrix {
namespace {

constexpr size_t kLanes = SseVector::kLanes;
constexpr size_t kSums = 4;
constexpr size_t kBlock = kSums * kLanes;

// Columns that are taken at a time. The rows' parts of them fit into L1 twice, so that the next
// part arrives while this one is read.
constexpr size_t kPart = 256;

// Keeps compilers from loading the weights of later rows first, for which there are no registers.
[[gnu::always_inline]] inline void row_by_row(__m128& a, __m128& b) noexcept {
  asm volatile("" : "+x"(a), "+x"(b) : : "memory");
}

// Four sums for each of some rows.
//
// The processor loads two vectors in the time of two products and two sums, so what is loaded
// beside weights costs time: each vector of the input must serve many rows. Registers hold two sums
// of six rows. So a part is read twice, by the first two sums and then by the other two.
template <size_t kRows>
class RowSums {
 public:
  RowSums(const float* input, const float* weight, size_t row) noexcept
      : input_(input), weight_(weight), row_(row) {
    for (auto& sums : sums_) {
      for (__m128& sum : sums) sum = _mm_setzero_ps();
    }
  }

  void take_whole_blocks() noexcept {
    const size_t end = row_ / kBlock * kBlock;
    while (done_ < end) {
      const size_t count = smaller_of(kPart, end - done_);
      const bool is_last = done_ + count == end;
      const size_t ahead = is_last ? kRows * row_ - done_ : kPart;
      take_part<0>(count, ahead);
      take_part<1>(count, ahead);
      done_ += count;
    }
  }

  // What doesn't fill a block: 8 products into the first two sums, then 4 into the first.
  void take_rest() noexcept {
    if (row_ - done_ >= 2 * kLanes) take_vectors<2>();
    if (row_ - done_ >= kLanes) take_vectors<1>();
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
        lane[r] = is_row ? all(first + r) : _mm_setzero_ps();
        rests[r] = is_row ? rest(first + r) : 0.0f;
      });
      _MM_TRANSPOSE4_PS(lane[0], lane[1], lane[2], lane[3]);
      const __m128 lanes = _mm_add_ps(_mm_add_ps(_mm_add_ps(lane[0], lane[1]), lane[2]), lane[3]);
      const __m128 sum = _mm_add_ps(lanes, _mm_loadu_ps(rests));
      add_first(output + first, smaller_of(kRows - first, kLanes), sum);
    });
  }

 private:
  __m128 all(size_t r) const noexcept {
    const __m128(&sums)[kSums] = sums_[r];
    return _mm_add_ps(_mm_add_ps(sums[3], sums[2]), _mm_add_ps(sums[1], sums[0]));
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

  // Sums 2 * half and 2 * half + 1 of the next `count` columns. Fetches half of the lines that
  // stand `ahead` floats further on.
  template <size_t half>
  void take_part(size_t count, size_t ahead) noexcept {
    __m128 a[kRows];
    __m128 b[kRows];
    unrolled<kRows>(QRT_UNROLLED(r) { a[r] = sums_[r][2 * half], b[r] = sums_[r][2 * half + 1]; });
    const float* x = input_ + done_ + 2 * half * kLanes;
    const float* w = weight_ + done_ + 2 * half * kLanes;
    const size_t row = row_;
    for (const float* end = x + count; x != end; x += kBlock, w += kBlock) {
      const __m128 first = _mm_loadu_ps(x);
      const __m128 second = _mm_loadu_ps(x + kLanes);
      unrolled<kRows>(QRT_UNROLLED(r) {
        const float* at = w + r * row;
        if (r % 2 == half) _mm_prefetch(reinterpret_cast<const char*>(at + ahead), _MM_HINT_T0);
        a[r] = _mm_add_ps(a[r], _mm_mul_ps(_mm_loadu_ps(at), first));
        b[r] = _mm_add_ps(b[r], _mm_mul_ps(_mm_loadu_ps(at + kLanes), second));
        row_by_row(a[r], b[r]);
      });
    }
    unrolled<kRows>(QRT_UNROLLED(r) { sums_[r][2 * half] = a[r], sums_[r][2 * half + 1] = b[r]; });
  }

  template <size_t count>
  void take_vectors() noexcept {
    for (size_t s = 0; s < count; ++s) {
      const __m128 x = _mm_loadu_ps(input_ + done_ + s * kLanes);
      for (size_t r = 0; r < kRows; ++r) {
        const __m128 w = _mm_loadu_ps(weight_ + r * row_ + done_ + s * kLanes);
        sums_[r][s] = _mm_add_ps(sums_[r][s], _mm_mul_ps(w, x));
      }
    }
    done_ += count * kLanes;
  }

  const float* input_;
  const float* weight_;
  size_t row_;
  size_t done_ = 0;
  __m128 sums_[kRows][kSums];
};

// Rows from `o` on, as long as there are `kRows`. @return the first row that is left
template <size_t kRows>
size_t add_rows(const FullConnectionTask& task, size_t o) noexcept {
  for (; o + kRows <= task.out_features; o += kRows) {
    RowSums<kRows> sums(task.input, task.weight + o * task.in_features, task.in_features);
    sums.take_whole_blocks();
    sums.take_rest();
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
