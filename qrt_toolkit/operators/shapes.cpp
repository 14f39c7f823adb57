#include <algorithm>
#include <cmath>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"

// Operators that make tensors of shapes and shapes of tensors.

namespace marlo::toolkit {
namespace {

/// The axes that Shape tells of.
std::pair<size_t, size_t> shape_range(const Node& node, size_t rank) {
  const auto count = static_cast<int64_t>(rank);
  const auto clamped = [&](int64_t axis) {
    return static_cast<size_t>(std::clamp<int64_t>(axis < 0 ? axis + count : axis, 0, count));
  };
  const size_t first = clamped(node.integer("start", 0));
  const size_t last = clamped(node.integer("end", count));
  return {first, std::max(first, last)};
}

Results shape(const Node& node, const Operands& inputs) {
  const Extents& sizes = inputs[0].shape;
  const auto [first, last] = shape_range(node, sizes.size());
  return {Numbers::integers_1d({sizes.begin() + static_cast<std::ptrdiff_t>(first),
                                sizes.begin() + static_cast<std::ptrdiff_t>(last)})};
}

// Known sizes make the result a constant, whatever the numbers of the input are.
void infer_shape(ShapeStep& step) {
  std::optional<Shape> result = unknown_shape(1);
  if (const Shape* sizes = step.shape(0)) {
    const auto [first, last] = shape_range(step.node, sizes->size());
    result->front() = static_cast<int64_t>(last - first);
    const Shape part(sizes->begin() + static_cast<std::ptrdiff_t>(first),
                     sizes->begin() + static_cast<std::ptrdiff_t>(last));
    if (auto known = extents_of(part); known && !step.outputs.empty()) {
      step.outputs[0].numbers =
          std::make_shared<const Numbers>(Numbers::integers_1d(std::move(*known)));
    }
  }
  step.set(0, ElementType::int64, result);
}

Numbers scalar(int64_t number) {
  Numbers result = Numbers::integers_1d({number});
  result.shape.clear();
  return result;
}

Results size(const Node&, const Operands& inputs) { return {scalar(inputs[0].count())}; }

void infer_size(ShapeStep& step) {
  if (const Shape* sizes = step.shape(0)) {
    const auto known = extents_of(*sizes);
    const auto count = known ? count_of(*known) : std::nullopt;
    if (count && !step.outputs.empty()) {
      step.outputs[0].numbers = std::make_shared<const Numbers>(scalar(*count));
    }
  }
  step.set(0, ElementType::int64, Shape{});
}

Results constant_of_shape(const Node& node, const Operands& inputs) {
  Numbers value = Numbers::reals_1d({0});
  if (node.has("value")) {
    const auto* constant = std::get_if<Constant>(&node.attributes.at("value"));
    if (constant == nullptr) throw NodeFault{"value", "expected a tensor"};
    value = constant->numbers();
  }
  if (value.count() != 1) throw NodeFault{"value", "expected one number"};
  Numbers result(value.type, inputs[0].integers());
  std::visit(
      [&](auto& out) {
        using List = std::decay_t<decltype(out)>;
        std::fill(out.begin(), out.end(), std::get<List>(value.data)[0]);
      },
      result.data);
  return {std::move(result)};
}

void infer_constant_of_shape(ShapeStep& step) {
  ElementType type = ElementType::float32;
  if (step.node.has("value")) {
    if (const auto* constant = std::get_if<Constant>(&step.node.attributes.at("value"))) {
      type = constant->type;
    }
  }
  std::optional<Shape> result;
  if (const auto sizes = step.integers(0)) result = shape_of(*sizes);
  step.set(0, type, result);
}

int64_t range_count(const Numbers& start, const Numbers& limit, const Numbers& delta) {
  if (start.count() != 1 || limit.count() != 1 || delta.count() != 1) {
    throw NodeFault{"inputs", "expected three numbers"};
  }
  const double step = delta.real(0);
  if (step == 0) throw NodeFault{"input 2", "a step of zero never reaches the limit"};
  const double count = std::ceil((limit.real(0) - start.real(0)) / step);
  if (!(count <= static_cast<double>(Numbers::kMostElements))) {
    throw NodeFault{"inputs", "the range is too long to compute"};
  }
  return std::max<int64_t>(0, static_cast<int64_t>(count));
}

Results range(const Node&, const Operands& inputs) {
  Numbers result(inputs[0].type, {range_count(inputs[0], inputs[1], inputs[2])});
  std::visit(
      [&](auto& out) {
        using List = std::decay_t<decltype(out)>;
        using T = typename List::value_type;
        const T start = std::get<List>(inputs[0].data)[0];
        const T step = std::get<List>(inputs[2].data).at(0);
        for (size_t i = 0; i < out.size(); ++i) {
          if constexpr (std::is_same_v<T, int64_t>) {
            // Wraps around where a limit lies beyond 64 bits.
            out[i] = static_cast<T>(static_cast<uint64_t>(start) +
                                    uint64_t{i} * static_cast<uint64_t>(step));
          } else {
            out[i] = start + static_cast<T>(i) * step;
          }
        }
      },
      result.data);
  return {std::move(result)};
}

void infer_range(ShapeStep& step) {
  std::optional<Shape> result = unknown_shape(1);
  const SharedNumbers& start = step.input(0).numbers;
  const SharedNumbers& limit = step.input(1).numbers;
  const SharedNumbers& delta = step.input(2).numbers;
  if (start != nullptr && limit != nullptr && delta != nullptr) {
    result->front() = range_count(*start, *limit, *delta);
  }
  step.set(0, step.input(0).type, result);
}

}  // namespace

std::span<const Operator> shape_operators() {
  static constexpr Operator kRows[] = {
      {"ConstantOfShape", 9, constant_of_shape, infer_constant_of_shape},
      {"Range", 11, range, infer_range},
      {"Shape", 1, shape, infer_shape},
      {"Size", 1, size, infer_size},
  };
  return kRows;
}

}  // namespace marlo::toolkit
