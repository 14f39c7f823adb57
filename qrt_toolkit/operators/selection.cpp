#include <algorithm>
#include <numeric>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/indexing.h"
#include "qrt_toolkit/operators/inference.h"

// Operators that choose elements by places, and say places of elements.

namespace marlo::toolkit {
Tuples tuples_of(const Extents& shape, const Numbers& indices, size_t batch_axes) {
  if (indices.shape.empty() || indices.shape.size() <= batch_axes || shape.size() <= batch_axes ||
      !std::equal(shape.begin(), shape.begin() + static_cast<std::ptrdiff_t>(batch_axes),
                  indices.shape.begin())) {
    throw NodeFault{"input 1", "indices of " + text_of(indices.shape) + " don't fit a tensor of " +
                                   text_of(shape)};
  }
  const auto length = static_cast<size_t>(indices.shape.back());
  if (length < 1 || length + batch_axes > shape.size()) {
    throw NodeFault{
        "input 1", "indices of " + std::to_string(length) + " numbers don't fit " + text_of(shape)};
  }
  const Extents strides = strides_of(shape);
  Tuples tuples;
  for (size_t i = 0; i < batch_axes; ++i) tuples.batches *= shape[i];
  const int64_t count = indices.count() / static_cast<int64_t>(length);
  tuples.in_batch = tuples.batches == 0 ? 0 : count / tuples.batches;
  tuples.part = strides[batch_axes + length - 1];
  const int64_t batch_size = batch_axes == 0 ? 0 : strides[batch_axes - 1];
  for (int64_t i = 0; i < count; ++i) {
    int64_t offset = i / tuples.in_batch * batch_size;
    for (size_t k = 0; k < length; ++k) {
      const int64_t index = indices.integer(static_cast<size_t>(i) * length + k);
      offset += index_from_front(index, shape[batch_axes + k]) * strides[batch_axes + k];
    }
    tuples.offsets.push_back(offset);
  }
  return tuples;
}

std::vector<int64_t> elements_along(const Extents& shape, const Numbers& indices, size_t axis) {
  check_gathered(indices.shape, shape, axis);
  const Extents strides = strides_of(shape);
  const Extents own = strides_of(indices.shape);
  std::vector<int64_t> elements;
  const auto count = static_cast<size_t>(indices.count());
  elements.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    int64_t element = 0;
    for (size_t k = 0; k < shape.size(); ++k) {
      const int64_t place = static_cast<int64_t>(i) / own[k] % indices.shape[k];
      const int64_t along = k == axis ? index_from_front(indices.integer(i), shape[axis]) : place;
      element += along * strides[k];
    }
    elements.push_back(element);
  }
  return elements;
}

namespace {

/// Calls `step` with the list of the numbers of `result` and of each other tensor.
template <class Step, class... More>
void with_lists(Numbers& result, Step&& step, const More&... more) {
  std::visit(
      [&](auto& out) {
        using List = std::decay_t<decltype(out)>;
        step(out, std::get<List>(more.data)...);
      },
      result.data);
}

Results trilu(const Node& node, const Operands& inputs) {
  Numbers result = inputs[0];
  if (result.shape.size() < 2) throw NodeFault{"input 0", "expected a matrix"};
  const int64_t rows = result.shape[result.shape.size() - 2];
  const int64_t columns = result.shape.back();
  const int64_t k = inputs.has(1) ? inputs[1].integer(0) : 0;
  const bool upper = node.integer("upper", 1) != 0;
  with_lists(result, [&](auto& out) {
    for (size_t i = 0; i < out.size(); ++i) {
      const int64_t column = static_cast<int64_t>(i) % columns;
      const int64_t row = static_cast<int64_t>(i) / columns % rows;
      // Without a difference that overflows: k may be any number.
      const bool is_below = column - row < k;
      const bool is_above = column - row > k;
      if (upper ? is_below : is_above) out[i] = 0;
    }
  });
  return {std::move(result)};
}

/// The element type of a constant like an input, or of the `dtype` attribute.
ElementType eye_type(const Node& node, ElementType like) {
  return node.has("dtype") ? static_cast<ElementType>(node.integer("dtype", 0)) : like;
}

Numbers eye(const Node& node, ElementType like, const Extents& shape) {
  if (shape.size() != 2) throw NodeFault{"input 0", "expected a matrix"};
  Numbers result(eye_type(node, like), shape);
  const int64_t k = node.integer("k", 0);
  with_lists(result, [&](auto& out) {
    for (int64_t row = 0; row < shape[0]; ++row) {
      if (k < -row || k >= shape[1] - row) continue;
      out[static_cast<size_t>(row * shape[1] + row + k)] = 1;
    }
  });
  return result;
}

Results eye_like(const Node& node, const Operands& inputs) {
  return {eye(node, inputs[0].type, inputs[0].shape)};
}

void infer_eye_like(ShapeStep& step) {
  const Shape* shape = step.shape(0);
  const auto known = shape != nullptr ? extents_of(*shape) : std::nullopt;
  if (known && !step.outputs.empty()) {
    step.outputs[0].numbers =
        std::make_shared<const Numbers>(eye(step.node, step.input(0).type, *known));
  }
  step.set(0, eye_type(step.node, step.input(0).type), step.input(0).shape);
}

Results non_zero(const Node&, const Operands& inputs) {
  const Numbers& x = inputs[0];
  std::vector<int64_t> places;
  for (size_t i = 0; i < static_cast<size_t>(x.count()); ++i) {
    if (x.real(i) != 0) places.push_back(static_cast<int64_t>(i));
  }
  const Extents strides = strides_of(x.shape);
  Numbers result(ElementType::int64,
                 {static_cast<int64_t>(x.shape.size()), static_cast<int64_t>(places.size())});
  size_t next = 0;
  for (size_t axis = 0; axis < x.shape.size(); ++axis) {
    for (const int64_t place : places) {
      result.integers()[next++] = place / strides[axis] % x.shape[axis];
    }
  }
  return {std::move(result)};
}

void infer_non_zero(ShapeStep& step) {
  Shape result = unknown_shape(2);
  if (const Shape* shape = step.shape(0)) result[0] = static_cast<int64_t>(shape->size());
  step.set(0, ElementType::int64, result);
}

/// A depth may be given as any number.
int64_t depth_of(const Numbers& numbers) {
  constexpr double kMost = Numbers::kMostElements;
  if (numbers.count() != 1 || !(numbers.real(0) >= 1) || numbers.real(0) > kMost) {
    throw NodeFault{"input 1", "expected a depth of at least 1"};
  }
  return static_cast<int64_t>(numbers.real(0));
}

Results one_hot(const Node& node, const Operands& inputs) {
  const Numbers& places = inputs[0];
  const int64_t depth = depth_of(inputs[1]);
  if (inputs[2].count() != 2) throw NodeFault{"input 2", "expected two numbers, off and on"};
  const size_t axis = axis_from_front(node.integer("axis", -1), places.shape.size() + 1);
  Extents shape = places.shape;
  shape.insert(shape.begin() + static_cast<std::ptrdiff_t>(axis), depth);
  Numbers result(inputs[2].type, shape);
  const int64_t inner = strides_of(shape)[axis];
  with_lists(
      result,
      [&](auto& out, const auto& values) {
        std::fill(out.begin(), out.end(), values[0]);
        for (int64_t i = 0; i < places.count(); ++i) {
          const double given = places.real(static_cast<size_t>(i));
          // False for a NaN, too.
          if (!(given >= static_cast<double>(-depth) && given < static_cast<double>(depth))) {
            continue;
          }
          auto place = static_cast<int64_t>(given);
          if (place < 0) place += depth;
          out[static_cast<size_t>((i / inner * depth + place) * inner + i % inner)] = values[1];
        }
      },
      inputs[2]);
  return {std::move(result)};
}

void infer_one_hot(ShapeStep& step) {
  std::optional<Shape> shape = step.input(0).shape;
  if (shape) {
    const size_t axis = axis_from_front(step.node.integer("axis", -1), shape->size() + 1);
    const SharedNumbers& depth = step.input(1).numbers;
    const Dimension size = depth != nullptr ? Dimension(depth_of(*depth)) : Dimension();
    shape->insert(shape->begin() + static_cast<std::ptrdiff_t>(axis), size);
  }
  step.set(0, step.input(2).type, shape);
}

Extents gathered_shape(const Extents& x, const Extents& indices, size_t batch_axes) {
  Extents shape(indices.begin(), indices.end() - 1);
  const auto used = static_cast<std::ptrdiff_t>(batch_axes) + indices.back();
  shape.insert(shape.end(), x.begin() + used, x.end());
  return shape;
}

size_t batch_axes_of(const Node& node) {
  const int64_t axes = node.integer("batch_dims", 0);
  if (axes < 0 || axes > 8) throw NodeFault{"batch_dims", "expected 0 to 8"};
  return static_cast<size_t>(axes);
}

Results gather_nd(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const size_t batch_axes = batch_axes_of(node);
  const Tuples tuples = tuples_of(x.shape, inputs[1], batch_axes);
  Numbers result(x.type, gathered_shape(x.shape, inputs[1].shape, batch_axes));
  with_lists(
      result,
      [&](auto& out, const auto& from) {
        auto place = out.begin();
        for (const int64_t offset : tuples.offsets) {
          place = std::copy_n(from.begin() + offset, tuples.part, place);
        }
      },
      x);
  return {std::move(result)};
}

void infer_gather_nd(ShapeStep& step) {
  const Shape* x = step.shape(0);
  const Shape* indices = step.shape(1);
  std::optional<Shape> result;
  if (x != nullptr && indices != nullptr && !indices->empty() && indices->back().known()) {
    const auto used = static_cast<std::ptrdiff_t>(batch_axes_of(step.node)) + indices->back().size;
    if (used > static_cast<std::ptrdiff_t>(x->size())) {
      throw NodeFault{"input 1", "its tuples are longer than the tensor has axes"};
    }
    result.emplace(indices->begin(), indices->end() - 1);
    result->insert(result->end(), x->begin() + used, x->end());
  }
  step.set(0, step.input(0).type, result);
}

/// What becomes of an element that an update meets.
template <class T>
T updated(const std::string& reduction, T old, T update) {
  if (reduction == "none") return update;
  if (reduction == "add") return old + update;
  if (reduction == "mul") return old * update;
  if (reduction == "max") return std::max(old, update);
  if (reduction == "min") return std::min(old, update);
  throw NodeFault{"reduction", "\"" + reduction + "\" isn't supported"};
}

Results scatter_nd(const Node& node, const Operands& inputs) {
  Numbers result = inputs[0];
  const Tuples tuples = tuples_of(result.shape, inputs[1], 0);
  const std::string reduction = node.text("reduction", "none");
  if (inputs[2].count() != static_cast<int64_t>(tuples.offsets.size()) * tuples.part) {
    throw NodeFault{"input 2", "the updates aren't as many as the indices name"};
  }
  with_lists(
      result,
      [&](auto& out, const auto& updates) {
        size_t next = 0;
        for (const int64_t offset : tuples.offsets) {
          for (int64_t i = 0; i < tuples.part; ++i) {
            auto& number = out[static_cast<size_t>(offset + i)];
            number = updated(reduction, number, updates[next++]);
          }
        }
      },
      inputs[2]);
  return {std::move(result)};
}

Results scatter_elements(const Node& node, const Operands& inputs) {
  Numbers result = inputs[0];
  const size_t axis = axis_from_front(node.integer("axis", 0), result.shape.size());
  const std::vector<int64_t> elements = elements_along(result.shape, inputs[1], axis);
  if (inputs[2].shape != inputs[1].shape) {
    throw NodeFault{"input 2", "expected as many updates as indices"};
  }
  const std::string reduction = node.text("reduction", "none");
  with_lists(
      result,
      [&](auto& out, const auto& updates) {
        for (size_t i = 0; i < updates.size(); ++i) {
          auto& number = out[static_cast<size_t>(elements[i])];
          number = updated(reduction, number, updates[i]);
        }
      },
      inputs[2]);
  return {std::move(result)};
}

/// An order of all numbers; none at all is above all of them.
template <class T>
bool is_above(T a, T b) {
  if (b != b) return false;
  return a != a || a > b;
}

Results top_k(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const size_t axis = axis_from_front(node.integer("axis", -1), x.shape.size());
  const int64_t k = inputs[1].integer(0);
  const int64_t size = x.shape[axis];
  if (k < 0 || k > size) {
    throw NodeFault{"input 1",
                    "there are no " + std::to_string(k) + " largest of " + std::to_string(size)};
  }
  const bool largest = node.integer("largest", 1) != 0;
  Extents shape = x.shape;
  shape[axis] = k;
  Numbers values(x.type, shape);
  Numbers places(ElementType::int64, shape);
  const int64_t inner = strides_of(x.shape)[axis];
  const int64_t outer = k == 0 ? 0 : values.count() / (inner * k);
  std::vector<int64_t> order(static_cast<size_t>(size));
  with_lists(
      values,
      [&](auto& out, const auto& from) {
        for (int64_t line = 0; line < outer * inner; ++line) {
          const int64_t begin = line / inner * size * inner + line % inner;
          const auto at = [&](int64_t i) { return from[static_cast<size_t>(begin + i * inner)]; };
          std::iota(order.begin(), order.end(), 0);
          std::stable_sort(order.begin(), order.end(), [&](int64_t a, int64_t b) {
            return largest ? is_above(at(a), at(b)) : is_above(at(b), at(a));
          });
          for (int64_t i = 0; i < k; ++i) {
            const auto place = static_cast<size_t>((line / inner * k + i) * inner + line % inner);
            out[place] = at(order[static_cast<size_t>(i)]);
            places.integers()[place] = order[static_cast<size_t>(i)];
          }
        }
      },
      x);
  Results results;
  results.push_back(std::move(values));
  results.push_back(std::move(places));
  return results;
}

void infer_top_k(ShapeStep& step) {
  std::optional<Shape> shape = step.input(0).shape;
  if (shape) {
    const size_t axis = axis_from_front(step.node.integer("axis", -1), shape->size());
    const auto k = step.integers(1);
    (*shape)[axis] = k && k->size() == 1 ? Dimension(std::max<int64_t>(0, (*k)[0])) : Dimension();
  }
  step.set(0, step.input(0).type, shape);
  step.set(1, ElementType::int64, shape);
}

}  // namespace

std::span<const Operator> selection_operators() {
  static constexpr Operator kRows[] = {
      {"EyeLike", 9, eye_like, infer_eye_like},
      {"GatherND", 11, gather_nd, infer_gather_nd},
      {"NonZero", 9, non_zero, infer_non_zero},
      {"OneHot", 9, one_hot, infer_one_hot},
      {"ScatterElements", 11, scatter_elements, infer_same},
      {"ScatterND", 11, scatter_nd, infer_same},
      {"TopK", 10, top_k, infer_top_k},
      {"Trilu", 14, trilu, infer_same},
  };
  return kRows;
}

}  // namespace marlo::toolkit
