#include <algorithm>
#include <cmath>
#include <limits>
#include <type_traits>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"
#include "qrt_toolkit/operators/strided.h"

// One number out of many, along some axes.

namespace marlo::toolkit {
namespace {

/// Which axes a node reduces. Its axes are its second input, and no axes are all of them.
std::vector<bool> reduced_axes(const Node& node, size_t rank, const Numbers::Integers& axes) {
  if (axes.empty()) {
    return std::vector<bool>(rank, node.integer("noop_with_empty_axes", 0) == 0);
  }
  std::vector<bool> reduced(rank, false);
  for (const int64_t axis : axes) reduced[axis_from_front(axis, rank, "axes")] = true;
  return reduced;
}

/// The shape behind the reduction: with ones in place of reduced axes, or without them.
template <class Sizes>
Sizes reduced_shape(const Sizes& shape, const std::vector<bool>& reduced, bool keep) {
  Sizes result;
  for (size_t i = 0; i < shape.size(); ++i) {
    if (!reduced[i]) {
      result.push_back(shape[i]);
    } else if (keep) {
      result.push_back(1);
    }
  }
  return result;
}

/// Calls `step(place in the result, number)` for every number of the input.
template <class Numeric, class Step>
void walk(const Extents& shape, const std::vector<bool>& reduced, const std::vector<Numeric>& from,
          Step&& step) {
  const Extents kept = reduced_shape(shape, reduced, true);
  Extents into = strides_of(kept);
  for (size_t i = 0; i < into.size(); ++i) {
    if (reduced[i]) into[i] = 0;
  }
  for_each_row<2>(
      shape, {strides_of(shape), into}, [&](const auto& at, int64_t count, const auto& steps) {
        for (int64_t i = 0; i < count; ++i) {
          step(static_cast<size_t>(at[1] + i * steps[1]), from[static_cast<size_t>(at[0] + i)]);
        }
      });
}

// What is done with each number before it is added up, and with the sum.
struct Plain {
  static double before(double x) { return x; }
  static double after(double sum, double) { return sum; }
};
struct Averaged : Plain {
  static double after(double sum, double terms) { return sum / terms; }
};
struct Magnitudes : Plain {
  static double before(double x) { return std::fabs(x); }
};
struct Squares : Plain {
  static double before(double x) { return x * x; }
};
struct Length : Squares {
  static double after(double sum, double) { return std::sqrt(sum); }
};
struct LogOfSum : Plain {
  static double after(double sum, double) { return std::log(sum); }
};

/// Integers beyond 64 bits become the outermost ones, and NaN zero.
template <class T>
T number_of(double number) {
  if constexpr (std::is_same_v<T, int64_t>) {
    constexpr double kEnd = 9223372036854775808.0;
    if (number >= kEnd) return std::numeric_limits<T>::max();
    if (number < -kEnd) return std::numeric_limits<T>::min();
    return number == number ? static_cast<T>(number) : 0;
  } else {
    return number;
  }
}

/// Integers wrap around.
template <class T>
T sum_of(T a, T b) {
  if constexpr (std::is_same_v<T, int64_t>) {
    return static_cast<T>(static_cast<uint64_t>(a) + static_cast<uint64_t>(b));
  } else {
    return a + b;
  }
}

Numbers::Integers axes_of(const Operands& inputs) { return inputs.integers(1, {}); }

template <class Rule>
Results sum_by(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const auto reduced = reduced_axes(node, x.shape.size(), axes_of(inputs));
  Numbers result(x.type, reduced_shape(x.shape, reduced, node.integer("keepdims", 1) != 0));
  std::vector<double> sums(static_cast<size_t>(result.count()), 0);
  std::visit(
      [&](const auto& numbers) {
        walk(x.shape, reduced, numbers, [&](size_t place, auto number) {
          sums[place] += Rule::before(static_cast<double>(number));
        });
      },
      x.data);
  const double terms =
      sums.empty() ? 1 : static_cast<double>(x.count()) / static_cast<double>(sums.size());
  std::visit(
      [&](auto& out) {
        using T = typename std::decay_t<decltype(out)>::value_type;
        for (size_t i = 0; i < sums.size(); ++i) {
          out[i] = number_of<T>(Rule::after(sums[i], terms));
        }
      },
      result.data);
  return {std::move(result)};
}

template <class T>
T first_of_largest() {
  return std::numeric_limits<T>::has_infinity ? -std::numeric_limits<T>::infinity()
                                              : std::numeric_limits<T>::lowest();
}
template <class T>
T first_of_smallest() {
  return std::numeric_limits<T>::has_infinity ? std::numeric_limits<T>::infinity()
                                              : std::numeric_limits<T>::max();
}

struct LargestOf {
  template <class T>
  static T first() {
    return first_of_largest<T>();
  }
  template <class T>
  static T next(T best, T x) {
    return x > best || x != x ? x : best;
  }
};
struct SmallestOf {
  template <class T>
  static T first() {
    return first_of_smallest<T>();
  }
  template <class T>
  static T next(T best, T x) {
    return x < best || x != x ? x : best;
  }
};
struct ProductOf {
  template <class T>
  static T first() {
    return T{1};
  }
  template <class T>
  static T next(T product, T x) {
    if constexpr (std::is_same_v<T, int64_t>) {
      return static_cast<int64_t>(static_cast<uint64_t>(product) * static_cast<uint64_t>(x));
    } else {
      return product * x;
    }
  }
};

template <class Rule>
Numbers fold_along(const Numbers& x, const std::vector<bool>& reduced, bool keep) {
  Numbers result(x.type, reduced_shape(x.shape, reduced, keep));
  std::visit(
      [&](auto& out) {
        using List = std::decay_t<decltype(out)>;
        using T = typename List::value_type;
        std::fill(out.begin(), out.end(), Rule::template first<T>());
        walk(x.shape, reduced, std::get<List>(x.data),
             [&](size_t place, T number) { out[place] = Rule::next(out[place], number); });
      },
      result.data);
  return result;
}

template <class Rule>
Results fold_by(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const auto reduced = reduced_axes(node, x.shape.size(), axes_of(inputs));
  return {fold_along<Rule>(x, reduced, node.integer("keepdims", 1) != 0)};
}

// The largest number is taken out of the sum, so that no power overflows.
Results log_sum_exp(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const auto reduced = reduced_axes(node, x.shape.size(), axes_of(inputs));
  Numbers result = fold_along<LargestOf>(x, reduced, node.integer("keepdims", 1) != 0);
  Numbers::Reals& largest = result.reals();
  Numbers::Reals sums(largest.size(), 0);
  walk(x.shape, reduced, x.reals(),
       [&](size_t place, double number) { sums[place] += std::exp(number - largest[place]); });
  for (size_t i = 0; i < sums.size(); ++i) largest[i] += std::log(sums[i]);
  return {std::move(result)};
}

void infer_reduction(ShapeStep& step) {
  const Shape* shape = step.shape(0);
  std::optional<Shape> result;
  const auto axes = step.integers(1, Numbers::Integers{});
  const bool keep = step.node.integer("keepdims", 1) != 0;
  if (shape != nullptr && axes) {
    result = reduced_shape(*shape, reduced_axes(step.node, shape->size(), *axes), keep);
  } else if (shape != nullptr && keep) {
    result = unknown_shape(shape->size());
  }
  step.set(0, step.input(0).type, result);
}

/// The place of the largest or smallest number along one axis.
template <bool largest>
Results arg(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const size_t axis = axis_from_front(node.integer("axis", 0), x.shape.size());
  const bool last = node.integer("select_last_index", 0) != 0;
  std::vector<bool> reduced(x.shape.size(), false);
  reduced[axis] = true;
  Numbers result(ElementType::int64,
                 reduced_shape(x.shape, reduced, node.integer("keepdims", 1) != 0));
  Numbers::Integers& places = result.integers();
  Numbers::Integers seen(places.size(), 0);
  std::visit(
      [&](const auto& numbers) {
        using T = typename std::decay_t<decltype(numbers)>::value_type;
        std::vector<T> best(places.size());
        // Along the axis the numbers come in rising order, whatever the other axes do.
        walk(x.shape, reduced, numbers, [&](size_t place, T number) {
          const bool better = largest ? number > best[place] : number < best[place];
          if (seen[place] == 0 || better || (last && number == best[place])) {
            best[place] = number;
            places[place] = seen[place];
          }
          ++seen[place];
        });
      },
      x.data);
  return {std::move(result)};
}

void infer_arg(ShapeStep& step) {
  std::optional<Shape> result;
  if (const Shape* shape = step.shape(0)) {
    std::vector<bool> reduced(shape->size(), false);
    reduced[axis_from_front(step.node.integer("axis", 0), shape->size())] = true;
    result = reduced_shape(*shape, reduced, step.node.integer("keepdims", 1) != 0);
  }
  step.set(0, ElementType::int64, result);
}

Results cumulative_sum(const Node& node, const Operands& inputs) {
  Numbers result = inputs[0];
  const Extents& shape = result.shape;
  const size_t axis = axis_from_front(inputs[1].integer(0), shape.size());
  const bool exclusive = node.integer("exclusive", 0) != 0;
  const bool reverse = node.integer("reverse", 0) != 0;
  const int64_t size = shape[axis];
  const int64_t stride = strides_of(shape)[axis];
  Extents others = shape;
  others[axis] = size == 0 ? 0 : 1;
  for_each_row<1>(
      others, {strides_of(shape)}, [&](const auto& at, int64_t count, const auto& steps) {
        std::visit(
            [&](auto& numbers) {
              for (int64_t i = 0; i < count; ++i) {
                auto sum = numbers[0];
                sum = 0;
                for (int64_t k = 0; k < size; ++k) {
                  const int64_t along = reverse ? size - 1 - k : k;
                  auto& number =
                      numbers[static_cast<size_t>(at[0] + i * steps[0] + along * stride)];
                  const auto before = sum;
                  sum = sum_of(sum, number);
                  number = exclusive ? before : sum;
                }
              }
            },
            result.data);
      });
  return {std::move(result)};
}

}  // namespace

std::span<const Operator> reduction_operators() {
  static constexpr Operator kRows[] = {
      {"ArgMax", 1, arg<true>, infer_arg},
      {"ArgMin", 1, arg<false>, infer_arg},
      {"CumSum", 11, cumulative_sum, infer_same},
      {"ReduceL1", 1, sum_by<Magnitudes>, infer_reduction},
      {"ReduceL2", 1, sum_by<Length>, infer_reduction},
      {"ReduceLogSum", 1, sum_by<LogOfSum>, infer_reduction},
      {"ReduceLogSumExp", 1, log_sum_exp, infer_reduction},
      {"ReduceMax", 1, fold_by<LargestOf>, infer_reduction},
      {"ReduceMean", 1, sum_by<Averaged>, infer_reduction},
      {"ReduceMin", 1, fold_by<SmallestOf>, infer_reduction},
      {"ReduceProd", 1, fold_by<ProductOf>, infer_reduction},
      {"ReduceSum", 1, sum_by<Plain>, infer_reduction},
      {"ReduceSumSquare", 1, sum_by<Squares>, infer_reduction},
  };
  return kRows;
}

}  // namespace marlo::toolkit
