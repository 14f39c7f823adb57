#pragma once

#include "qrt_core/kernel/matrix/full_connection_cores.h"
#include "qrt_core/kernel/vectors_internal.h"

// The loops of the full connection for any vector. Internal to the file that includes it.

namespace marlo::kernel::matrix {
namespace {

/// Lanes from first to last.
template <typename Vector>
inline float sum_of_lanes(typename Vector::Register x) noexcept {
  float lanes[Vector::kLanes];
  Vector::store(lanes, x);
  float sum = lanes[0];
  for (size_t i = 1; i < Vector::kLanes; ++i) sum += lanes[i];
  return sum;
}

/// Dot products of `kRows` rows of plain weights with the input, each with `kSums` vector sums.
template <typename Vector, size_t kRows, size_t kSums>
class DotRows {
  using Register = typename Vector::Register;
  static constexpr size_t kLanes = Vector::kLanes;
  static constexpr size_t kStep = kSums * kLanes;
  static constexpr size_t kAhead = 256;  // floats that are fetched ahead, past what hardware does

 public:
  DotRows(const float* input, const float* weight, size_t in_features) noexcept
      : input_(input), weight_(weight), row_(in_features) {
    unrolled<kRows>(
        QRT_UNROLLED(r) { unrolled<kSums>(QRT_UNROLLED(s) { sums_[r][s] = Vector::zero(); }); });
  }

  /// Blocks that fill all sums.
  [[gnu::always_inline]] void take_whole_blocks() noexcept {
    for (; done_ + kStep <= row_; done_ += kStep) {
      unrolled<kRows>(QRT_UNROLLED(r) {
        unrolled<(kStep + 15) / 16>(QRT_UNROLLED(line) {
          const float* ahead = weight_ + r * row_ + done_ + kAhead + 16 * line;
          _mm_prefetch(reinterpret_cast<const char*>(ahead), _MM_HINT_T0);
        });
      });
      take<kSums>();
    }
  }

  /// One block into the first `count` sums, if there is enough left for it.
  template <size_t count>
  [[gnu::always_inline]] void take_if_left() noexcept {
    if (row_ - done_ < count * kLanes) return;
    take<count>();
    done_ += count * kLanes;
  }

  /// The sums of a row added up, lane by lane.
  [[gnu::always_inline]] Register sum(size_t row) const noexcept {
    if constexpr (kSums == 1) return sums_[row][0];
    return Vector::plus(Vector::plus(sums_[row][3], sums_[row][2]),
                        Vector::plus(sums_[row][1], sums_[row][0]));
  }

  /// Product `index` of a row.
  float product(size_t row, size_t index) const noexcept {
    return weight_[row * row_ + index] * input_[index];
  }

  /// What has been taken of each row.
  size_t done() const noexcept { return done_; }

  /// A sum from zero of the products that have not been taken.
  float rest(size_t row) const noexcept {
    float sum = 0.0f;
    for (size_t i = done_; i < row_; ++i) sum += product(row, i);
    return sum;
  }

 private:
  template <size_t count>
  [[gnu::always_inline]] void take() noexcept {
    Register x[count];
    unrolled<count>(QRT_UNROLLED(s) { x[s] = Vector::load(input_ + done_ + s * kLanes); });
    unrolled<kRows>(QRT_UNROLLED(r) {
      unrolled<count>(QRT_UNROLLED(s) {
        const Register w = Vector::load(weight_ + r * row_ + done_ + s * kLanes);
        sums_[r][s] = Vector::plus_product(sums_[r][s], w, x[s]);
      });
    });
  }

  const float* input_;
  const float* weight_;
  size_t row_;
  size_t done_ = 0;
  Register sums_[kRows][kSums];
};

/// Calls `rows` for groups of `kRows` rows, and then row by row.
template <size_t kRows, typename Rows>
inline void for_row_groups(const FullConnectionTask& task, Rows rows) noexcept {
  size_t o = 0;
  for (; o + kRows <= task.out_features; o += kRows) {
    rows(o, Count<kRows>());
  }
  for (; o < task.out_features; ++o) rows(o, Count<1>());
}

/// How the products of a block of inputs join the running sum.
enum class Order { in_turn, in_pairs };

/// Blocks of outputs as wide as a vector. The input is the operand that is broadcast, so no lane is
/// ever added to another.
template <typename Vector, Order kOrder>
class BlockRows {
  using Register = typename Vector::Register;
  static constexpr size_t kLanes = Vector::kLanes;
  static constexpr size_t kBlockWeights = kLanes * kLanes;
  static constexpr size_t kMostBlocks = 4;
  static constexpr size_t kAhead = 256;  // floats that are fetched ahead, past what hardware does

 public:
  explicit BlockRows(const FullConnectionTask& task) noexcept
      : task_(task), row_weights_(task.in_features * kLanes) {}

  void run() const noexcept {
    const size_t blocks = task_.out_features / kLanes;
    size_t block = 0;
    for (; block + kMostBlocks <= blocks; block += kMostBlocks) run_blocks<kMostBlocks>(block);
    for (; block < blocks; ++block) run_blocks<1>(block);
  }

 private:
  template <size_t count>
  void run_blocks(size_t block) const noexcept {
    float* output = task_.output + block * kLanes;
    const float* weight = task_.weight + block * row_weights_;
    Register sums[count];
    unrolled<count>(QRT_UNROLLED(b) { sums[b] = Vector::load(output + b * kLanes); });
    const float* input = task_.input;
    const float* end = input + task_.in_features / kLanes * kLanes;
    for (; input != end; input += kLanes, weight += kBlockWeights) {
      unrolled<count>(QRT_UNROLLED(b) {
        unrolled<kBlockWeights / 16>(QRT_UNROLLED(line) {
          const float* ahead = weight + b * row_weights_ + kAhead + 16 * line;
          _mm_prefetch(reinterpret_cast<const char*>(ahead), _MM_HINT_T0);
        });
      });
      add_block<count>(input, weight, sums);
    }
    unrolled<count>(QRT_UNROLLED(b) { Vector::store(output + b * kLanes, sums[b]); });
  }

  template <size_t count>
  [[gnu::always_inline]] void add_block(const float* input, const float* weight,
                                        Register (&sums)[count]) const noexcept {
    if constexpr (kOrder == Order::in_turn) {
      unrolled<kLanes>(QRT_UNROLLED(i) {
        const Register x = Vector::splat(input + i);
        unrolled<count>(
            QRT_UNROLLED(b) { sums[b] = Vector::plus_product(sums[b], x, weights(weight, b, i)); });
      });
    } else {
      unrolled<kLanes / 4>(QRT_UNROLLED(half) {
        Register x[4];
        unrolled<4>(QRT_UNROLLED(i) { x[i] = Vector::splat(input + 4 * half + i); });
        unrolled<count>(QRT_UNROLLED(b) {
          Register pairs[2];
          unrolled<2>(QRT_UNROLLED(p) {
            const Register first = Vector::times(x[2 * p], weights(weight, b, 4 * half + 2 * p));
            pairs[p] =
                Vector::plus_product(first, x[2 * p + 1], weights(weight, b, 4 * half + 2 * p + 1));
          });
          sums[b] = Vector::plus(sums[b], Vector::plus(pairs[0], pairs[1]));
        });
      });
    }
  }

  [[gnu::always_inline]] Register weights(const float* weight, size_t block,
                                          size_t index) const noexcept {
    return Vector::load(weight + block * row_weights_ + index * kLanes);
  }

  const FullConnectionTask& task_;
  size_t row_weights_;
};

}  // namespace
}  // namespace marlo::kernel::matrix
