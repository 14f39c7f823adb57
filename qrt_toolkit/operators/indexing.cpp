#include <algorithm>
#include <limits>
#include <string>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/indexing.h"
#include "qrt_toolkit/operators/inference.h"
#include "qrt_toolkit/operators/strided.h"

// Operators that join tensors or take parts of them.

namespace marlo::toolkit {

Numbers::Integers split_parts(const Node& node, int64_t size, size_t outputs,
                              const Numbers::Integers& asked) {
  if (!asked.empty()) {
    int64_t sum = 0;
    for (const int64_t part : asked) {
      if (part < 0 || part > size) throw NodeFault{"split", "a part of " + std::to_string(part)};
      sum += part;
    }
    if (sum != size || asked.size() != outputs) {
      throw NodeFault{"split", "parts of " + std::to_string(sum) + " in " +
                                   std::to_string(asked.size()) + " don't make the axis of " +
                                   std::to_string(size) + " in " + std::to_string(outputs)};
    }
    return asked;
  }
  const auto count = static_cast<int64_t>(outputs);
  const int64_t part = (size + count - 1) / count;
  Numbers::Integers parts(outputs, part);
  parts.back() = size - part * (count - 1);
  // Only the newest form, which states the number of parts, lets the last one be smaller.
  if ((parts.back() != part && !node.has("num_outputs")) || parts.back() < 0) {
    throw NodeFault{"split", "an axis of " + std::to_string(size) + " doesn't fall into " +
                                 std::to_string(count) + " equal parts"};
  }
  return parts;
}

namespace {

/// A tensor as outer x its axis x inner.
struct AlongAxis {
  int64_t outer = 1;
  int64_t inner = 1;
};

AlongAxis along(const Extents& shape, size_t axis) {
  AlongAxis result;
  for (size_t i = 0; i < axis; ++i) result.outer *= shape[i];
  for (size_t i = axis + 1; i < shape.size(); ++i) result.inner *= shape[i];
  return result;
}

/// The elements [first, first + count) of one axis.
Numbers part_of(const Numbers& x, size_t axis, int64_t first, int64_t count) {
  Extents shape = x.shape;
  shape[axis] = count;
  Numbers result(x.type, shape);
  const AlongAxis form = along(shape, axis);
  std::visit(
      [&](auto& out) {
        const auto& from = std::get<std::decay_t<decltype(out)>>(x.data);
        for (int64_t o = 0; o < form.outer; ++o) {
          std::copy_n(from.begin() + (o * x.shape[axis] + first) * form.inner, count * form.inner,
                      out.begin() + o * count * form.inner);
        }
      },
      result.data);
  return result;
}

template <class Sizes>
void check_joined(const Sizes& first, const Sizes& other, size_t axis) {
  bool fits = first.size() == other.size();
  for (size_t i = 0; fits && i < first.size(); ++i) {
    if constexpr (std::is_same_v<Sizes, Extents>) {
      fits = i == axis || first[i] == other[i];
    } else {
      fits = i == axis || !first[i].known() || !other[i].known() || first[i].size == other[i].size;
    }
  }
  if (!fits) {
    throw NodeFault{"inputs", "tensors of " + text_of(first) + " and " + text_of(other) +
                                  " can't be joined along axis " + std::to_string(axis)};
  }
}

Results concat(const Node& node, const Operands& inputs) {
  const size_t axis = axis_from_front(node.integer("axis", 0), inputs[0].shape.size());
  Extents shape = inputs[0].shape;
  shape[axis] = 0;
  for (size_t i = 0; i < inputs.size(); ++i) {
    check_joined(inputs[0].shape, inputs[i].shape, axis);
    shape[axis] += inputs[i].shape[axis];
  }
  Numbers result(inputs[0].type, shape);
  const AlongAxis form = along(shape, axis);
  std::visit(
      [&](auto& out) {
        using List = std::decay_t<decltype(out)>;
        auto place = out.begin();
        for (int64_t o = 0; o < form.outer; ++o) {
          for (size_t i = 0; i < inputs.size(); ++i) {
            const List* from = std::get_if<List>(&inputs[i].data);
            if (from == nullptr) throw NodeFault{"inputs", "their element types differ"};
            const int64_t count = inputs[i].shape[axis] * form.inner;
            place = std::copy_n(from->begin() + o * count, count, place);
          }
        }
      },
      result.data);
  return {std::move(result)};
}

void infer_concat(ShapeStep& step) {
  std::optional<Shape> shape = step.input(0).shape;
  if (shape) {
    const size_t axis = axis_from_front(step.node.integer("axis", 0), shape->size());
    Dimension sum = 0;
    for (size_t i = 0; i < step.inputs.size(); ++i) {
      const Shape* part = step.shape(i);
      if (part == nullptr) {
        sum = Dimension();
        continue;
      }
      check_joined(*step.shape(0), *part, axis);
      const Dimension& size = (*part)[axis];
      sum = sum.known() && size.known() ? Dimension(sum.size + size.size) : Dimension();
      for (size_t k = 0; k < shape->size(); ++k) {
        if (k != axis && !(*shape)[k].known()) (*shape)[k] = (*part)[k];
      }
    }
    (*shape)[axis] = sum;
  }
  step.set(0, step.input(0).type, shape);
}

Results split(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const size_t axis = axis_from_front(node.integer("axis", 0), x.shape.size());
  const auto parts = split_parts(node, x.shape[axis], node.outputs.size(), inputs.integers(1, {}));
  Results results;
  int64_t first = 0;
  for (const int64_t part : parts) {
    results.push_back(part_of(x, axis, first, part));
    first += part;
  }
  return results;
}

void infer_split(ShapeStep& step) {
  std::optional<Shape> shape = step.input(0).shape;
  const auto asked = step.integers(1, Numbers::Integers{});
  std::optional<Numbers::Integers> parts;
  size_t axis = 0;
  if (shape) {
    axis = axis_from_front(step.node.integer("axis", 0), shape->size());
    const Dimension& size = (*shape)[axis];
    if (asked && size.known())
      parts = split_parts(step.node, size.size, step.outputs.size(), *asked);
    if (asked && !size.known() && asked->size() == step.outputs.size()) parts = asked;
  }
  for (size_t i = 0; i < step.outputs.size(); ++i) {
    if (shape) (*shape)[axis] = parts ? Dimension((*parts)[i]) : Dimension();
    step.set(i, step.input(0).type, shape);
  }
}

Results gather(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const size_t axis = axis_from_front(node.integer("axis", 0), x.shape.size());
  const Numbers::Integers& indices = inputs[1].integers();
  const int64_t size = x.shape[axis];
  Extents shape(x.shape.begin(), x.shape.begin() + static_cast<std::ptrdiff_t>(axis));
  shape.insert(shape.end(), inputs[1].shape.begin(), inputs[1].shape.end());
  shape.insert(shape.end(), x.shape.begin() + static_cast<std::ptrdiff_t>(axis) + 1, x.shape.end());
  Numbers result(x.type, shape);
  const AlongAxis form = along(x.shape, axis);
  std::visit(
      [&](auto& out) {
        const auto& from = std::get<std::decay_t<decltype(out)>>(x.data);
        auto place = out.begin();
        for (int64_t o = 0; o < form.outer; ++o) {
          for (const int64_t index : indices) {
            const int64_t at = index_from_front(index, size);
            place = std::copy_n(from.begin() + (o * size + at) * form.inner, form.inner, place);
          }
        }
      },
      result.data);
  return {std::move(result)};
}

void infer_gather(ShapeStep& step) {
  const Shape* x = step.shape(0);
  const Shape* indices = step.shape(1);
  std::optional<Shape> shape;
  if (x != nullptr && indices != nullptr) {
    const auto axis =
        static_cast<std::ptrdiff_t>(axis_from_front(step.node.integer("axis", 0), x->size()));
    shape.emplace(x->begin(), x->begin() + axis);
    shape->insert(shape->end(), indices->begin(), indices->end());
    shape->insert(shape->end(), x->begin() + axis + 1, x->end());
  }
  step.set(0, step.input(0).type, shape);
}

Results gather_elements(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const size_t axis = axis_from_front(node.integer("axis", 0), x.shape.size());
  const Extents& box = inputs[1].shape;
  check_gathered(box, x.shape, axis);
  const Numbers::Integers& indices = inputs[1].integers();
  const int64_t size = x.shape[axis];
  Extents strides = strides_of(x.shape);
  const int64_t step_of_axis = strides[axis];
  strides[axis] = 0;
  Numbers result(x.type, box);
  std::visit(
      [&](auto& out) {
        const auto& from = std::get<std::decay_t<decltype(out)>>(x.data);
        for_each_row<2>(
            box, {strides_of(box), strides}, [&](const auto& at, int64_t count, const auto& steps) {
              for (int64_t i = 0; i < count; ++i) {
                const int64_t index =
                    index_from_front(indices[static_cast<size_t>(at[0] + i)], size);
                out[static_cast<size_t>(at[0] + i)] =
                    from[static_cast<size_t>(at[1] + i * steps[1] + index * step_of_axis)];
              }
            });
      },
      result.data);
  return {std::move(result)};
}

void infer_gather_elements(ShapeStep& step) {
  step.set(0, step.input(0).type, step.input(1).shape);
}

}  // namespace

int64_t index_from_front(int64_t index, int64_t size) {
  if (index < -size || index >= size) {
    throw NodeFault{"input 1", "there is no element " + std::to_string(index) + " in an axis of " +
                                   std::to_string(size)};
  }
  return index < 0 ? index + size : index;
}

void check_gathered(const Extents& box, const Extents& shape, size_t axis) {
  if (box.size() != shape.size()) throw NodeFault{"input 1", "expected as many axes as input 0"};
  for (size_t i = 0; i < box.size(); ++i) {
    if (i != axis && box[i] > shape[i]) {
      throw NodeFault{"input 1", "indices of " + text_of(box) + " reach beyond " + text_of(shape)};
    }
  }
}

std::span<const Operator> indexing_operators() {
  static constexpr Operator kRows[] = {
      {"Concat", 4, concat, infer_concat},
      {"Gather", 1, gather, infer_gather},
      {"GatherElements", 11, gather_elements, infer_gather_elements},
      {"Pad", 2, pad, infer_pad},
      {"Slice", 1, slice, infer_slice},
      {"Split", 2, split, infer_split},
  };
  return kRows;
}

}  // namespace marlo::toolkit
