#include <algorithm>
#include <cmath>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"

// Functions of all numbers along an axis.

namespace marlo::toolkit {
namespace {

/// How a tensor falls into lines: `outer` x `size` x `inner`, a line runs along `size`.
struct Lines {
  int64_t outer = 1;
  int64_t size = 1;
  int64_t inner = 1;
};

/// With `to_end` the line runs through all axes from the given one on: the oldest form.
Lines lines_of(const Node& node, const Extents& shape) {
  const int64_t given = node.integer("axis", -1);
  const bool to_end = node.integer("to_end", 0) != 0;
  const auto rank = static_cast<int64_t>(shape.size());
  Lines lines;
  const int64_t axis =
      to_end && given == rank ? rank : static_cast<int64_t>(axis_from_front(given, shape.size()));
  for (int64_t i = 0; i < rank; ++i) {
    const int64_t size = shape[static_cast<size_t>(i)];
    if (i < axis) {
      lines.outer *= size;
    } else if (i == axis || to_end) {
      lines.size *= size;
    } else {
      lines.inner *= size;
    }
  }
  return lines;
}

/// Calls `change(first, step, size)` for every line.
template <class Change>
Results along(const Node& node, const Operands& inputs, Change&& change) {
  Numbers result = inputs[0];
  const Lines lines = lines_of(node, result.shape);
  double* numbers = result.reals().data();
  if (lines.size == 0) return {std::move(result)};
  for (int64_t outer = 0; outer < lines.outer; ++outer) {
    for (int64_t inner = 0; inner < lines.inner; ++inner) {
      change(numbers + outer * lines.size * lines.inner + inner, lines.inner, lines.size);
    }
  }
  return {std::move(result)};
}

double largest_of(const double* first, int64_t step, int64_t size) {
  double largest = *first;
  for (int64_t i = 1; i < size; ++i) largest = std::max(largest, first[i * step]);
  return largest;
}

double sum_of_powers(const double* first, int64_t step, int64_t size, double largest) {
  double sum = 0;
  for (int64_t i = 0; i < size; ++i) sum += std::exp(first[i * step] - largest);
  return sum;
}

Results softmax(const Node& node, const Operands& inputs) {
  return along(node, inputs, [](double* first, int64_t step, int64_t size) {
    const double largest = largest_of(first, step, size);
    const double sum = sum_of_powers(first, step, size, largest);
    for (int64_t i = 0; i < size; ++i) {
      first[i * step] = std::exp(first[i * step] - largest) / sum;
    }
  });
}

Results log_softmax(const Node& node, const Operands& inputs) {
  return along(node, inputs, [](double* first, int64_t step, int64_t size) {
    const double largest = largest_of(first, step, size);
    const double shift = largest + std::log(sum_of_powers(first, step, size, largest));
    for (int64_t i = 0; i < size; ++i) first[i * step] -= shift;
  });
}

Results hardmax(const Node& node, const Operands& inputs) {
  return along(node, inputs, [](double* first, int64_t step, int64_t size) {
    int64_t place = 0;
    for (int64_t i = 1; i < size; ++i) {
      if (first[i * step] > first[place * step]) place = i;
    }
    for (int64_t i = 0; i < size; ++i) first[i * step] = i == place ? 1 : 0;
  });
}

}  // namespace

std::span<const Operator> softmax_operators() {
  static constexpr Operator kRows[] = {
      {"Hardmax", 1, hardmax, infer_same},
      {"LogSoftmax", 1, log_softmax, infer_same},
      {"Softmax", 1, softmax, infer_same},
  };
  return kRows;
}

}  // namespace marlo::toolkit
