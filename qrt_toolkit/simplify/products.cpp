#include <algorithm>
#include <map>
#include <optional>
#include <utility>

#include "qrt_toolkit/operators/indexing.h"
#include "qrt_toolkit/operators/strided.h"
#include "qrt_toolkit/simplify/match.h"
#include "qrt_toolkit/simplify/simplify.h"

// A product with one wide matrix whose columns go different ways, as those of queries, keys and
// values do, becomes products with parts of the matrix: what would be cut from a tensor in each pass
// is cut from weights once.

namespace marlo::toolkit {
namespace {

constexpr int64_t kLeastColumns = 16;  // fewer leave the vectors of a product half empty

/// Along which axis of its weights the columns of a matrix product stand; nothing for another node,
/// or where something isn't constant.
std::optional<int64_t> columns_axis(const Graph& graph, const Node& node) {
  const Constant* weight = constant_input(graph, node, 1);
  const bool gemm = node.op == "Gemm";
  if ((!gemm && node.op != "MatMul") || weight == nullptr || weight->shape.size() != 2) {
    return std::nullopt;
  }
  const int64_t axis = gemm && node.integer("transB", 0) != 0 ? 0 : 1;
  if (!node.has_input(2)) return axis;
  const Constant* bias = constant_input(graph, node, 2);
  const Extents columns{weight->shape[static_cast<size_t>(axis)]};
  return bias != nullptr && bias->shape == columns ? std::optional(axis) : std::nullopt;
}

/// Whether all of a node's inputs behind the first are constants.
bool is_fixed(const Graph& graph, const Node& node) {
  for (size_t place = 1; place < node.inputs.size(); ++place) {
    if (node.has_input(place) && constant_input(graph, node, place) == nullptr) return false;
  }
  return true;
}

/// Whether a node cuts the last of `rank` axes of its input and no other, in a way that is known.
bool cuts_last(const Graph& graph, const Node& node, size_t rank) {
  if (!is_fixed(graph, node)) return false;
  if (node.op == "Split") return axis_from_front(node.integer("axis", 0), rank) + 1 == rank;
  if (node.op != "Slice" || !node.has_input(3)) return false;
  const Numbers axes = constant_input(graph, node, 3)->numbers();
  return axes.count() == 1 && axis_from_front(axes.integer(0), rank) + 1 == rank;
}

/// How many columns a node takes; 0 where that isn't known, or a part of it has too few.
int64_t columns_taken(const Graph& graph, const Node& node, const std::vector<Facts>& facts) {
  int64_t sum = 0;
  for (const ValueId out : node.outputs) {
    if (out == kAbsent || (graph.is_unused(out) && node.op == "Split")) continue;
    const auto& shape = facts[static_cast<size_t>(out)].shape;
    if (!shape || shape->empty() || !shape->back().known()) return 0;
    if (shape->back().size < kLeastColumns) return 0;
    sum += shape->back().size;
  }
  return sum;
}

/// The outputs of a node that does to a constant what `like` does to its input's last axis.
std::vector<ValueId> cut_constant(Graph& graph, const Node& like, ValueId constant, int64_t axis) {
  Node cut = like;
  cut.inputs[0] = constant;
  if (like.op == "Split") {
    cut.attributes["axis"] = axis;
  } else {
    cut.inputs[3] = add_integers(graph, {axis});
  }
  for (ValueId& out : cut.outputs) {
    if (out != kAbsent) out = graph.add_value("", graph.value(constant).type);
  }
  std::vector<ValueId> outputs = cut.outputs;
  graph.add_node(std::move(cut));
  return outputs;
}

bool cut_product(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const Node product = graph.node(id);
  const auto axis = columns_axis(graph, product);
  if (!axis) return false;
  const ValueId made = product.outputs[0];
  const auto& shape = facts[static_cast<size_t>(made)].shape;
  const std::vector<NodeId> readers = graph.value(made).readers;
  if (!shape || shape->empty() || readers.empty() || graph.is_output(made)) return false;
  int64_t columns = constant_input(graph, product, 1)->shape[static_cast<size_t>(*axis)];
  for (const NodeId reader : readers) {
    const Node& node = graph.node(reader);
    if (!is_known_to(facts, node) || !cuts_last(graph, node, shape->size())) return false;
    const int64_t taken = columns_taken(graph, node, facts);
    columns -= taken;
    // What is taken twice would be computed twice.
    if (taken == 0 || columns < 0) return false;
  }
  for (const NodeId reader : readers) {
    const Node cut = graph.node(reader);
    const auto weights = cut_constant(graph, cut, product.inputs[1], *axis);
    const auto biases = product.has_input(2) ? cut_constant(graph, cut, product.inputs[2], 0)
                                             : std::vector<ValueId>(weights.size(), kAbsent);
    graph.remove_node(reader);
    for (size_t i = 0; i < weights.size(); ++i) {
      if (weights[i] == kAbsent) continue;
      Node part = product;
      part.inputs[1] = weights[i];
      if (part.has_input(2)) part.inputs[2] = biases[i];
      replace_output(graph, cut.outputs[i], std::move(part));
    }
  }
  graph.remove_node(id);
  return true;
}

/// A transposition of a product's columns that a reshape has made several axes of, the first of
/// which is taken apart behind it.
struct SplitColumns {
  Node reshape;
  Node transposition;
  size_t columns = 0;          ///< the axis of the columns, and of the parts once they are reshaped
  size_t axis = 0;             ///< where the transposition puts the parts
  int64_t parts = 0;           ///< how many there are
  std::vector<int64_t> sizes;  ///< of the axes that a part's columns become
};

std::optional<SplitColumns> split_columns(const Graph& graph, NodeId id,
                                          const std::vector<Facts>& facts) {
  SplitColumns split;
  split.transposition = graph.node(id);
  const auto perm = split.transposition.integers("perm");
  const NodeId reshape = only_source(graph, split.transposition, 0);
  if (split.transposition.op != "Transpose" || perm.empty() || reshape == kAbsent) {
    return std::nullopt;
  }
  split.reshape = graph.node(reshape);
  const NodeId product = only_source(graph, split.reshape, 0);
  if (split.reshape.op != "Reshape" || product == kAbsent ||
      !columns_axis(graph, graph.node(product)) || !is_known_to(facts, split.reshape)) {
    return std::nullopt;
  }
  const auto& from = facts[static_cast<size_t>(split.reshape.inputs[0])].shape;
  const auto& to = facts[static_cast<size_t>(split.reshape.outputs[0])].shape;
  if (!from || !to || from->empty() || to->size() < from->size() + 1) return std::nullopt;
  split.columns = from->size() - 1;
  int64_t count = 1;
  for (size_t i = 0; i < to->size(); ++i) {
    const Dimension& size = (*to)[i];
    if (i < split.columns && !size.same_as((*from)[i])) return std::nullopt;
    if (i < split.columns) continue;
    if (!size.known()) return std::nullopt;
    count *= size.size;
    if (i > split.columns) split.sizes.push_back(size.size);
  }
  if (!from->back().known() || from->back().size != count) return std::nullopt;
  split.parts = (*to)[split.columns].size;
  const auto place = std::find(perm.begin(), perm.end(), static_cast<int64_t>(split.columns));
  split.axis = static_cast<size_t>(place - perm.begin());
  return split;
}

/// Which part each output of a node is that takes whole parts and nothing else; none for another.
std::vector<int64_t> parts_taken(const Graph& graph, const Node& node, const SplitColumns& split,
                                 size_t rank) {
  if (!is_fixed(graph, node)) return {};
  if (node.op == "Split") {
    const bool fits = axis_from_front(node.integer("axis", 0), rank) == split.axis &&
                      static_cast<int64_t>(node.outputs.size()) == split.parts;
    if (!fits) return {};
    const Numbers::Integers asked = node.has_input(1)
                                        ? constant_input(graph, node, 1)->numbers().integers()
                                        : Numbers::Integers();
    std::vector<int64_t> parts;
    for (const int64_t size : split_parts(node, split.parts, node.outputs.size(), asked)) {
      if (size != 1) return {};
      parts.push_back(static_cast<int64_t>(parts.size()));
    }
    return parts;
  }
  if (node.op != "Gather" || axis_from_front(node.integer("axis", 0), rank) != split.axis) {
    return {};
  }
  const Constant* places = constant_input(graph, node, 1);
  if (places == nullptr || !places->shape.empty() || graph.is_output(node.outputs[0])) return {};
  return {index_from_front(places->numbers().integer(0), split.parts)};
}

/// A part of the columns, reshaped and transposed.
ValueId add_part(Graph& graph, const SplitColumns& split, int64_t part) {
  const auto last = static_cast<int64_t>(split.columns);
  const int64_t columns = count_of(split.sizes).value_or(0);
  const ElementType type = graph.value(split.reshape.inputs[0]).type;
  const ValueId taken = add_node(
      graph,
      node_like(split.transposition, "Slice",
                {split.reshape.inputs[0], add_integers(graph, {part * columns}),
                 add_integers(graph, {(part + 1) * columns}), add_integers(graph, {last})}),
      type);
  std::vector<int64_t> sizes(split.columns, 0);  // as they are
  sizes.insert(sizes.end(), split.sizes.begin(), split.sizes.end());
  const ValueId reshaped = add_node(
      graph, node_like(split.reshape, "Reshape", {taken, add_integers(graph, sizes)}), type);
  Node transposition = node_like(split.transposition, "Transpose", {reshaped});
  std::vector<int64_t> perm;
  for (const int64_t axis : split.transposition.integers("perm")) {
    if (axis != last) perm.push_back(axis < last ? axis : axis - 1);
  }
  transposition.attributes["perm"] = perm;
  return add_node(graph, std::move(transposition), type);
}

bool part_before_transposing(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const auto split = split_columns(graph, id, facts);
  if (!split) return false;
  const ValueId made = split->transposition.outputs[0];
  const size_t rank = split->columns + 1 + split->sizes.size();
  const std::vector<NodeId> readers = graph.value(made).readers;
  if (readers.empty() || graph.is_output(made)) return false;
  for (const NodeId reader : readers) {
    if (parts_taken(graph, graph.node(reader), *split, rank).empty()) return false;
  }
  std::map<int64_t, ValueId> known;
  for (const NodeId reader : readers) {
    const Node node = graph.node(reader);
    const auto parts = parts_taken(graph, node, *split, rank);
    graph.remove_node(reader);
    for (size_t i = 0; i < parts.size(); ++i) {
      if (node.outputs[i] == kAbsent) continue;
      const auto [part, is_new] = known.try_emplace(parts[i], kAbsent);
      if (is_new) part->second = add_part(graph, *split, parts[i]);
      if (node.op == "Gather") {
        graph.value(part->second).name = graph.value(node.outputs[i]).name;
        graph.replace(node.outputs[i], part->second);
        continue;
      }
      const auto axis = static_cast<int64_t>(split->axis);
      replace_output(graph, node.outputs[i],
                     node_like(node, "Unsqueeze", {part->second, add_integers(graph, {axis})}));
    }
  }
  graph.remove_node(id);
  return true;
}

}  // namespace

bool cut_products(Graph& graph) {
  const bool changed = everywhere<part_before_transposing>(graph);
  return everywhere<cut_product>(graph) || changed;
}

}  // namespace marlo::toolkit
