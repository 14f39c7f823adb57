#include <algorithm>
#include <numeric>
#include <optional>
#include <set>
#include <utility>

#include "qrt_toolkit/lower/groups.h"
#include "qrt_toolkit/operators/indexing.h"

// Tensors of which some elements, at places that are known, are taken or replaced.

namespace marlo::toolkit {
namespace {

/// Of each axis the places that a box of elements has.
using ScatterBox = std::vector<std::vector<int64_t>>;

/// The box that elements are, one by one in its own order; nothing where they are none.
std::optional<ScatterBox> box_of(const std::vector<int64_t>& elements, const Extents& sizes) {
  const Extents strides = strides_of(sizes);
  ScatterBox box;
  size_t count = 1;
  for (size_t axis = 0; axis < sizes.size(); ++axis) {
    std::set<int64_t> places;
    for (const int64_t element : elements) places.insert(element / strides[axis] % sizes[axis]);
    count *= places.size();
    // No product of sets of places is larger than this, or it isn't theirs.
    if (count > elements.size()) return std::nullopt;
    box.emplace_back(places.begin(), places.end());
  }
  if (count != elements.size()) return std::nullopt;
  for (size_t i = 0; i < elements.size(); ++i) {
    int64_t element = 0;
    size_t rest = i;
    for (size_t axis = sizes.size(); axis-- > 0;) {
      element += box[axis][rest % box[axis].size()] * strides[axis];
      rest /= box[axis].size();
    }
    if (element != elements[i]) return std::nullopt;
  }
  return box;
}

/// The order of an axis and, behind it, of what stands in the place of some of it.
std::vector<int64_t> replaced_order(int64_t size, const std::vector<int64_t>& places) {
  std::vector<int64_t> order(static_cast<size_t>(size));
  std::iota(order.begin(), order.end(), int64_t{0});
  for (size_t i = 0; i < places.size(); ++i) {
    order[static_cast<size_t>(places[i])] = size + static_cast<int64_t>(i);
  }
  return order;
}

/// A tensor with `box` of it replaced, from `axis` on.
size_t with_box(Lowering& lowering, size_t layer, size_t update, const ScatterBox& box,
                size_t axis) {
  const Extents sizes = lowering.sizes_of_layer(layer);
  while (axis < box.size() && static_cast<int64_t>(box[axis].size()) == sizes[axis]) ++axis;
  if (axis == box.size()) return update;
  const std::vector<int64_t>& places = box[axis];
  const auto count = static_cast<int64_t>(places.size());
  const int64_t first = places.front();
  const int64_t behind = places.back() + 1;
  if (behind - first != count) {
    const size_t taken = lowering.taken(layer, axis, places);
    const size_t inside = with_box(lowering, taken, update, box, axis + 1);
    return lowering.taken(lowering.joined({layer, inside}, axis), axis,
                          replaced_order(sizes[axis], places));
  }
  std::vector<size_t> parts;
  if (first > 0) parts.push_back(lowering.part_of(layer, axis, {0, first, 1}));
  const size_t middle = lowering.part_of(layer, axis, {first, count, 1});
  parts.push_back(with_box(lowering, middle, update, box, axis + 1));
  const int64_t rest = sizes[axis] - behind;
  if (rest > 0) parts.push_back(lowering.part_of(layer, axis, {behind, rest, 1}));
  return lowering.joined(parts, axis);
}

/// Zeros around an update, so that it has the sizes of the tensor.
size_t in_zeros(Lowering& lowering, size_t update, const ScatterBox& box, const Extents& sizes) {
  for (size_t axis = 0; axis < box.size(); ++axis) {
    if (static_cast<int64_t>(box[axis].size()) == sizes[axis]) continue;
    std::vector<int64_t> order(static_cast<size_t>(sizes[axis]), -1);
    for (size_t i = 0; i < box[axis].size(); ++i) {
      order[static_cast<size_t>(box[axis][i])] = static_cast<int64_t>(i);
    }
    update = lowering.taken(update, axis, order);
  }
  return update;
}

/// Puts the third input in the place of elements of the first, or adds it to them.
void scatter(Lowering& lowering, const std::vector<int64_t>& elements) {
  const std::string reduction = lowering.node().text("reduction", "none");
  if (reduction != "none" && reduction != "add") {
    throw NodeFault{"reduction", "\"" + reduction + "\" has no kernel"};
  }
  const Extents sizes = lowering.input_sizes(0);
  const size_t layer = lowering.reshaped(lowering.input(0), sizes);
  if (elements.empty()) return lowering.result(layer);
  const size_t update = lowering.input(2);
  if (count_of(lowering.sizes_of_layer(update)) != static_cast<int64_t>(elements.size())) {
    throw NodeFault{"input 2", "the updates aren't as many as the indices name"};
  }
  const auto box = box_of(elements, sizes);
  if (!box && reduction == "add") {
    throw NodeFault{"reduction", "sums at places that are no box have no kernel"};
  }
  if (!box) {
    const int64_t all = count_of(sizes).value_or(0);
    const size_t flat =
        lowering.joined({lowering.reshaped(layer, {all}),
                         lowering.reshaped(update, {static_cast<int64_t>(elements.size())})},
                        0);
    return lowering.result(lowering.taken(flat, 0, replaced_order(all, elements)));
  }
  Extents of_box;
  of_box.reserve(box->size());
  for (const auto& places : *box) of_box.push_back(static_cast<int64_t>(places.size()));
  const size_t part = lowering.reshaped(update, of_box);
  lowering.result(reduction == "none"
                      ? with_box(lowering, layer, part, *box, 0)
                      : lowering.combined(0, layer, in_zeros(lowering, part, *box, sizes)));
}

void lower_scatter_nd(Lowering& lowering) {
  const SharedNumbers places = lowering.required_constant(1);
  const Tuples tuples = tuples_of(lowering.input_shape(0), *places, 0);
  std::vector<int64_t> elements;
  elements.reserve(tuples.offsets.size() * static_cast<size_t>(tuples.part));
  for (const int64_t offset : tuples.offsets) {
    for (int64_t i = 0; i < tuples.part; ++i) elements.push_back(offset + i);
  }
  scatter(lowering, elements);
}

/// Each element to a place of its own.
void lower_scatter_elements(Lowering& lowering) {
  const Extents sizes = lowering.input_shape(0);
  const size_t axis = axis_from_front(lowering.node().integer("axis", 0), sizes.size());
  scatter(lowering, elements_along(sizes, *lowering.required_constant(1), axis));
}

void lower_gather_elements(Lowering& lowering) {
  const Extents sizes = lowering.input_shape(0);
  const size_t axis = axis_from_front(lowering.node().integer("axis", 0), sizes.size());
  const auto elements = elements_along(sizes, *lowering.required_constant(1), axis);
  const size_t all = lowering.reshaped(lowering.input(0), {count_of(sizes).value_or(0)});
  lowering.result(lowering.taken(all, 0, elements));
}

void lower_gather_nd(Lowering& lowering) {
  const Extents sizes = lowering.input_shape(0);
  const int64_t batch_axes = lowering.node().integer("batch_dims", 0);
  const Tuples tuples =
      tuples_of(sizes, *lowering.required_constant(1), static_cast<size_t>(batch_axes));
  if (tuples.part < 1)
    throw NodeFault{"input 0", "nothing can be taken of a tensor without elements"};
  std::vector<int64_t> rows;
  rows.reserve(tuples.offsets.size());
  for (const int64_t offset : tuples.offsets) rows.push_back(offset / tuples.part);
  const int64_t all = count_of(sizes).value_or(0);
  const size_t table = lowering.reshaped(lowering.input(0), {all / tuples.part, tuples.part});
  lowering.result(lowering.taken(table, 0, rows));
}

constexpr const char* kKnownPlaces = "constant elements";
constexpr const char* kKnownUpdates = "constant elements, which are replaced, or added to in a box";

}  // namespace

std::span<const LoweringRow> scatter_lowerings() {
  static constexpr LoweringRow kRows[] = {
      {"GatherElements", lower_gather_elements, kKnownPlaces},
      {"GatherND", lower_gather_nd, kKnownPlaces},
      {"ScatterElements", lower_scatter_elements, kKnownUpdates},
      {"ScatterND", lower_scatter_nd, kKnownUpdates},
  };
  return kRows;
}

}  // namespace marlo::toolkit
