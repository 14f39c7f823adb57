#include <algorithm>
#include <numeric>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"
#include "qrt_toolkit/operators/strided.h"

// Operators that give numbers another shape or order, and change none.

namespace marlo::toolkit {
namespace {

/// The numbers of `x` in rows of another order: out[box] = x[first + strides].
Numbers moved(const Numbers& x, const Extents& box, const Extents& strides, int64_t first = 0) {
  Numbers result(x.type, box);
  std::visit(
      [&](auto& out) {
        const auto& from = std::get<std::decay_t<decltype(out)>>(x.data);
        for_each_row<2>(box, {strides_of(box), strides},
                        [&](const auto& at, int64_t count, const auto& steps) {
                          for (int64_t i = 0; i < count; ++i) {
                            out[static_cast<size_t>(at[0] + i)] =
                                from[static_cast<size_t>(first + at[1] + i * steps[1])];
                          }
                        });
      },
      result.data);
  return result;
}

Numbers reshaped(const Numbers& x, Extents shape) {
  Numbers result = x;
  result.shape = std::move(shape);
  return result;
}

Results identity(const Node&, const Operands& inputs) { return {inputs[0]}; }

// At inference nothing is dropped, and the mask keeps everything.
Results dropout(const Node& node, const Operands& inputs) {
  if (inputs.has(2) && inputs[2].integer(0) != 0 && (!inputs.has(1) || inputs[1].real(0) != 0)) {
    throw NodeFault{"training_mode", "dropping numbers is training",
                    "export the model in evaluation mode"};
  }
  Results results = {inputs[0]};
  if (node.has_output(1)) {
    results.emplace_back(ElementType::boolean, inputs[0].shape);
    std::fill(results[1].integers().begin(), results[1].integers().end(), 1);
  }
  return results;
}

void infer_dropout(ShapeStep& step) {
  step.set(0, step.input(0).type, step.input(0).shape);
  step.set(1, ElementType::boolean, step.input(0).shape);
}

/// Attribute `to` is an `ElementType` as a number by the time that it is asked for.
ElementType target_type(const Node& node) {
  const int64_t type = node.integer("to", 0);
  if (type <= 0 || type > static_cast<int64_t>(ElementType::boolean)) {
    throw NodeFault{"to", "the element type isn't known"};
  }
  return static_cast<ElementType>(type);
}

Results cast(const Node& node, const Operands& inputs) {
  return {converted(inputs[0], target_type(node))};
}

void infer_cast(ShapeStep& step) { step.set(0, target_type(step.node), step.input(0).shape); }

Results cast_like(const Node&, const Operands& inputs) {
  return {converted(inputs[0], inputs[1].type)};
}

void infer_cast_like(ShapeStep& step) { step.set(0, step.input(1).type, step.input(0).shape); }

/// The shape that Reshape asks for; a size that isn't known makes the one of -1 unknown.
Shape reshape_target(const Node& node, const Shape& from, const Numbers::Integers& asked) {
  const bool zero_is_zero = node.integer("allowzero", 0) != 0;
  Shape to;
  int64_t rest = -1;
  bool all_known = true;
  for (size_t i = 0; i < asked.size(); ++i) {
    if (asked[i] == 0 && !zero_is_zero) {
      if (i >= from.size()) {
        throw NodeFault{"shape", "0 keeps axis " + std::to_string(i) + ", which " + text_of(from) +
                                     " doesn't have"};
      }
      to.push_back(from[i]);
    } else if (asked[i] == -1) {
      if (rest >= 0) throw NodeFault{"shape", "only one size may be -1"};
      rest = static_cast<int64_t>(i);
      to.emplace_back();
      continue;
    } else if (asked[i] < 0) {
      throw NodeFault{"shape", "a size can't be " + std::to_string(asked[i])};
    } else {
      to.emplace_back(asked[i]);
    }
    all_known = all_known && to.back().known();
  }
  // Sizes that are kept stand on both sides, known or not.
  const auto count_but_kept = [&](const Shape& shape,
                                  const Shape& other) -> std::optional<int64_t> {
    Extents sizes;
    for (size_t i = 0; i < shape.size(); ++i) {
      if (static_cast<int64_t>(i) == rest && &shape == &to) continue;
      const bool kept = i < other.size() && i < asked.size() && asked[i] == 0 && !zero_is_zero;
      if (kept && !shape[i].known()) continue;
      if (!shape[i].known()) return std::nullopt;
      sizes.push_back(shape[i].size);
    }
    return count_of(sizes);
  };
  const auto have = count_but_kept(from, to);
  const auto want = count_but_kept(to, from);
  if (!have || !want) return to;
  const auto fail = [&]() {
    throw NodeFault{"shape",
                    "a tensor of " + text_of(from) + " can't become one of " + text_of(to)};
  };
  if (rest >= 0) {
    if (*want == 0 ? *have != 0 : *have % *want != 0) fail();
    to[static_cast<size_t>(rest)] = *want == 0 ? 0 : *have / *want;
  } else if (*have != *want) {
    fail();
  }
  return to;
}

Results reshape(const Node& node, const Operands& inputs) {
  const Shape to = reshape_target(node, shape_of(inputs[0].shape), inputs[1].integers());
  return {reshaped(inputs[0], *extents_of(to))};
}

void infer_reshape(ShapeStep& step) {
  std::optional<Shape> shape;
  const auto asked = step.integers(1);
  if (asked && step.shape(0) != nullptr) {
    shape = reshape_target(step.node, *step.shape(0), *asked);
  } else if (const Shape* target = step.shape(1);
             target != nullptr && target->size() == 1 && target->front().known()) {
    shape = unknown_shape(static_cast<size_t>(target->front().size));
  }
  step.set(0, step.input(0).type, shape);
}

Dimension product_of(const Shape& shape, size_t from, size_t to) {
  const auto known = extents_of(Shape(shape.begin() + static_cast<std::ptrdiff_t>(from),
                                      shape.begin() + static_cast<std::ptrdiff_t>(to)));
  const auto count = known ? count_of(*known) : std::nullopt;
  if (count) return *count;
  return to - from == 1 ? shape[from] : Dimension();
}

Shape flattened(const Node& node, const Shape& shape) {
  const int64_t axis = node.integer("axis", 1);
  const size_t rank = shape.size();
  const size_t at = axis == static_cast<int64_t>(rank) ? rank : axis_from_front(axis, rank);
  return {product_of(shape, 0, at), product_of(shape, at, rank)};
}

Results flatten(const Node& node, const Operands& inputs) {
  return {reshaped(inputs[0], *extents_of(flattened(node, shape_of(inputs[0].shape))))};
}

void infer_flatten(ShapeStep& step) {
  std::optional<Shape> shape;
  if (step.shape(0) != nullptr) shape = flattened(step.node, *step.shape(0));
  step.set(0, step.input(0).type, shape);
}

Shape squeezed(const Shape& shape, const std::optional<Numbers::Integers>& axes) {
  std::vector<bool> dropped(shape.size(), false);
  if (axes) {
    for (const int64_t axis : *axes) dropped[axis_from_front(axis, shape.size(), "axes")] = true;
  }
  Shape result;
  for (size_t i = 0; i < shape.size(); ++i) {
    if (!axes) dropped[i] = shape[i].size == 1;
    if (!dropped[i]) {
      result.push_back(shape[i]);
    } else if (shape[i].known() && shape[i].size != 1) {
      throw NodeFault{"axes", "axis " + std::to_string(i) + " of " + text_of(shape) +
                                  " can't be dropped, for it isn't 1"};
    }
  }
  return result;
}

Results squeeze(const Node&, const Operands& inputs) {
  std::optional<Numbers::Integers> axes;
  if (inputs.has(1)) axes = inputs[1].integers();
  return {reshaped(inputs[0], *extents_of(squeezed(shape_of(inputs[0].shape), axes)))};
}

void infer_squeeze(ShapeStep& step) {
  std::optional<Shape> shape;
  const auto axes = step.integers(1);
  const Shape* from = step.shape(0);
  if (from != nullptr && (axes || (!step.has(1) && extents_of(*from)))) {
    shape = squeezed(*from, axes);
  }
  step.set(0, step.input(0).type, shape);
}

Shape unsqueezed(const Shape& shape, const Numbers::Integers& axes) {
  const size_t rank = shape.size() + axes.size();
  std::vector<bool> added(rank, false);
  for (const int64_t axis : axes) {
    const size_t at = axis_from_front(axis, rank, "axes");
    if (added[at]) throw NodeFault{"axes", "axis " + std::to_string(axis) + " is added twice"};
    added[at] = true;
  }
  Shape result;
  auto next = shape.begin();
  for (size_t i = 0; i < rank; ++i) result.push_back(added[i] ? Dimension(1) : *next++);
  return result;
}

Results unsqueeze(const Node&, const Operands& inputs) {
  return {reshaped(inputs[0],
                   *extents_of(unsqueezed(shape_of(inputs[0].shape), inputs[1].integers())))};
}

void infer_unsqueeze(ShapeStep& step) {
  std::optional<Shape> shape;
  const auto axes = step.integers(1);
  if (axes && step.shape(0) != nullptr) shape = unsqueezed(*step.shape(0), *axes);
  step.set(0, step.input(0).type, shape);
}

std::vector<size_t> permutation_of(const Node& node, size_t rank) {
  std::vector<size_t> order(rank);
  std::iota(order.rbegin(), order.rend(), size_t{0});
  if (!node.has("perm")) return order;
  const auto perm = node.integers("perm");
  std::vector<bool> used(rank, false);
  if (perm.size() != rank) {
    throw NodeFault{
        "perm", "expected " + std::to_string(rank) + " axes, found " + std::to_string(perm.size())};
  }
  for (size_t i = 0; i < rank; ++i) {
    order[i] = axis_from_front(perm[i], rank, "perm");
    if (used[order[i]]) throw NodeFault{"perm", "it names an axis twice"};
    used[order[i]] = true;
  }
  return order;
}

Results transpose(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const auto order = permutation_of(node, x.shape.size());
  const Extents own = strides_of(x.shape);
  Extents box;
  Extents strides;
  for (const size_t axis : order) {
    box.push_back(x.shape[axis]);
    strides.push_back(own[axis]);
  }
  return {moved(x, box, strides)};
}

void infer_transpose(ShapeStep& step) {
  std::optional<Shape> shape;
  if (const Shape* from = step.shape(0)) {
    shape.emplace();
    for (const size_t axis : permutation_of(step.node, from->size())) {
      shape->push_back((*from)[axis]);
    }
  }
  step.set(0, step.input(0).type, shape);
}

Results expand(const Node&, const Operands& inputs) {
  const Extents box = broadcast_of(inputs[0].shape, inputs[1].integers());
  if (!count_of(box)) throw NodeFault{"shape", "a size is negative"};
  return {moved(inputs[0], box, broadcast_strides(inputs[0].shape, box))};
}

void infer_expand(ShapeStep& step) {
  std::optional<Shape> shape;
  const auto target = step.integers(1);
  if (target && step.shape(0) != nullptr) shape = broadcast_of(*step.shape(0), shape_of(*target));
  step.set(0, step.input(0).type, shape);
}

// Each axis becomes two: the repeats, and the axis itself.
Results tile(const Node&, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const Numbers::Integers& repeats = inputs[1].integers();
  if (repeats.size() != x.shape.size()) {
    throw NodeFault{"repeats", "expected one number per axis of " + text_of(x.shape)};
  }
  const Extents own = strides_of(x.shape);
  Extents box;
  Extents strides;
  Extents shape;
  for (size_t i = 0; i < repeats.size(); ++i) {
    if (repeats[i] < 0) throw NodeFault{"repeats", "a number is negative"};
    box.insert(box.end(), {repeats[i], x.shape[i]});
    strides.insert(strides.end(), {0, own[i]});
    if (__builtin_mul_overflow(repeats[i], x.shape[i], &shape.emplace_back())) {
      throw NodeFault{"repeats", "they make too many elements"};
    }
  }
  return {reshaped(moved(x, box, strides), shape)};
}

void infer_tile(ShapeStep& step) {
  std::optional<Shape> shape = step.input(0).shape;
  const auto repeats = step.integers(1);
  if (shape && repeats && repeats->size() == shape->size()) {
    for (size_t i = 0; i < shape->size(); ++i) {
      Dimension& size = (*shape)[i];
      int64_t product = 0;
      if ((*repeats)[i] == 1) continue;
      if (!size.known() || __builtin_mul_overflow(size.size, (*repeats)[i], &product)) {
        size = Dimension();
      } else {
        size = product;
      }
    }
  } else if (shape) {
    shape = unknown_shape(shape->size());
  }
  step.set(0, step.input(0).type, shape);
}

int64_t block_of(const Node& node) {
  const int64_t block = node.integer("blocksize", 0);
  if (block < 1 || block > 65535)
    throw NodeFault{"blocksize", std::to_string(block) + " is out of range"};
  return block;
}

template <class Sizes>
void require_picture(const Sizes& shape) {
  if (shape.size() != 4) throw NodeFault{"input 0", "expected four axes, found " + text_of(shape)};
}

[[noreturn]] void throw_block(const Extents& shape, int64_t block) {
  throw NodeFault{"blocksize", "a tensor of " + text_of(shape) + " doesn't fall into blocks of " +
                                   std::to_string(block)};
}

// The channel's parts are [y][x][c] in DCR order and [c][y][x] in CRD order.
Results depth_to_space(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  require_picture(x.shape);
  const int64_t b = block_of(node);
  const std::string mode = node.text("mode", "DCR");
  if (mode != "DCR" && mode != "CRD") throw NodeFault{"mode", "expected DCR or CRD"};
  const int64_t height = x.shape[2];
  const int64_t width = x.shape[3];
  if (x.shape[1] % (b * b) != 0) throw_block(x.shape, b);
  const int64_t channels = x.shape[1] / (b * b);
  const int64_t plane = height * width;
  const bool blocks_first = mode == "DCR";
  const int64_t by = blocks_first ? b * channels * plane : b * plane;
  const int64_t bx = blocks_first ? channels * plane : plane;
  const int64_t c = blocks_first ? plane : b * b * plane;
  const Numbers result = moved(x, {x.shape[0], channels, height, b, width, b},
                               {x.shape[1] * plane, c, width, by, 1, bx});
  return {reshaped(result, {x.shape[0], channels, height * b, width * b})};
}

Results space_to_depth(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  require_picture(x.shape);
  const int64_t b = block_of(node);
  if (x.shape[2] % b != 0 || x.shape[3] % b != 0) throw_block(x.shape, b);
  const int64_t channels = x.shape[1];
  const int64_t height = x.shape[2] / b;
  const int64_t width = x.shape[3] / b;
  const int64_t row = x.shape[3];
  const int64_t plane = x.shape[2] * row;
  const Numbers result = moved(x, {x.shape[0], b, b, channels, height, width},
                               {channels * plane, row, 1, plane, b * row, b});
  return {reshaped(result, {x.shape[0], channels * b * b, height, width})};
}

template <bool to_space>
void infer_blocks(ShapeStep& step) {
  std::optional<Shape> shape = step.input(0).shape;
  if (shape) {
    require_picture(*shape);
    const int64_t b = block_of(step.node);
    const auto scale = [&](size_t axis, int64_t times, int64_t parts) {
      Dimension& size = (*shape)[axis];
      size = size.known() ? Dimension(size.size * times / parts) : Dimension();
    };
    scale(1, to_space ? 1 : b * b, to_space ? b * b : 1);
    for (const size_t axis : {size_t{2}, size_t{3}})
      scale(axis, to_space ? b : 1, to_space ? 1 : b);
  }
  step.set(0, step.input(0).type, shape);
}

}  // namespace

std::span<const Operator> movement_operators() {
  static constexpr Operator kRows[] = {
      {"Cast", 6, cast, infer_cast, "to numbers and booleans"},
      {"CastLike", 15, cast_like, infer_cast_like},
      {"DepthToSpace", 1, depth_to_space, infer_blocks<true>},
      {"Dropout", 1, dropout, infer_dropout, "no training mode"},
      {"Expand", 8, expand, infer_expand},
      {"Flatten", 1, flatten, infer_flatten},
      {"Identity", 1, identity, infer_same, "tensors"},
      {"Reshape", 5, reshape, infer_reshape},
      {"SpaceToDepth", 1, space_to_depth, infer_blocks<false>},
      {"Squeeze", 1, squeeze, infer_squeeze},
      {"Tile", 6, tile, infer_tile},
      {"Transpose", 1, transpose, infer_transpose},
      {"Unsqueeze", 1, unsqueeze, infer_unsqueeze},
  };
  return kRows;
}

}  // namespace marlo::toolkit
