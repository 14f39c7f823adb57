#include <algorithm>
#include <numeric>
#include <string>
#include <utility>

#include "qrt_toolkit/operators/strided.h"
#include "qrt_toolkit/shapes/infer.h"
#include "qrt_toolkit/simplify/match.h"
#include "qrt_toolkit/simplify/simplify.h"

// Transpositions move towards the outputs until they meet others and cancel, and paddings move into
// the window behind them.

namespace marlo::toolkit {
namespace {

using Axes = std::vector<int64_t>;

/// The axes of a transposition; empty for another node, or where they follow from a rank that the
/// node doesn't say.
Axes axes_of(const Node& node) { return node.op == "Transpose" ? node.integers("perm") : Axes(); }

void set_input(Graph& graph, NodeId id, size_t place, ValueId value) {
  graph.set_input(id, place, value);
}

/// Operators of which some have their axes counted anew behind a transposition.
bool has_axes(const Node& node) {
  return node.op == "Softmax" || node.op == "LogSoftmax" || node.op.rfind("Reduce", 0) == 0;
}

/// A transposition of what a node makes, which the node's readers get from then on.
void transpose_output(Graph& graph, NodeId id, const Axes& axes, const Node& like) {
  const ValueId out = graph.node(id).outputs[0];
  const Value old = graph.value(out);
  const ValueId inner = graph.add_value("", old.type);
  Node moved = graph.node(id);
  moved.outputs[0] = inner;
  graph.remove_node(id);
  graph.add_node(std::move(moved));
  Node transpose = like;
  transpose.inputs = {inner};
  transpose.attributes["perm"] = axes;
  replace_output(graph, out, std::move(transpose));
}

bool join_pair(Graph& graph, NodeId id) {
  const Axes outer = axes_of(graph.node(id));
  const NodeId source = outer.empty() ? kAbsent : source_of(graph, graph.node(id), 0);
  const Axes inner = source == kAbsent ? Axes() : axes_of(graph.node(source));
  if (inner.size() != outer.size() || inner.empty()) return false;
  Axes both;
  for (const int64_t axis : outer) both.push_back(inner[static_cast<size_t>(axis)]);
  graph.node(id).attributes["perm"] = both;
  set_input(graph, id, 0, graph.node(source).inputs[0]);
  return true;
}

/// A constant that is laid along the axes that a transposition makes, as it lies along those that it
/// reads: broadcast from the last axis on, like the tensor beside it.
ValueId moved_constant(Graph& graph, const Constant& constant, const Axes& axes) {
  const Numbers numbers = constant.numbers();
  Extents shape(axes.size() - numbers.shape.size(), 1);
  shape.insert(shape.end(), numbers.shape.begin(), numbers.shape.end());
  Numbers moved = numbers;
  moved.shape.assign(axes.size(), 1);
  for (size_t i = 0; i < axes.size(); ++i) moved.shape[static_cast<size_t>(axes[i])] = shape[i];
  const Extents own = strides_of(shape);
  Extents from(axes.size());
  for (size_t i = 0; i < axes.size(); ++i) from[static_cast<size_t>(axes[i])] = own[i];
  std::visit(
      [&](auto& out) {
        const auto& source = std::get<std::decay_t<decltype(out)>>(numbers.data);
        size_t next = 0;
        for_each_row<1>(moved.shape, {from}, [&](const auto& at, int64_t count, const auto& steps) {
          for (int64_t i = 0; i < count; ++i) {
            out[next++] = source[static_cast<size_t>(at[0] + i * steps[0])];
          }
        });
      },
      moved.data);
  return graph.add_constant("", constant_of(moved));
}

/// The transposition that makes an input, where nobody is left who needs its result untransposed:
/// every reader is another transposition, or can be put in front of this one as well.
NodeId movable_source(const Graph& graph, const Node& node, size_t place) {
  const NodeId source = source_of(graph, node, place);
  if (source == kAbsent || axes_of(graph.node(source)).empty()) return kAbsent;
  const ValueId id = node.inputs[place];
  if (graph.is_output(id)) {
    return kAbsent;
  }
  const auto& readers = graph.value(id).readers;
  const bool all = std::all_of(readers.begin(), readers.end(), [&](NodeId reader) {
    const Node& other = graph.node(reader);
    return other.op == "Transpose" || works_on_single_numbers(other) || combines(other) ||
           has_axes(other);
  });
  return all ? source : kAbsent;
}

/// Behind a function of single numbers, and behind a function of several tensors that are transposed
/// alike, or of one and constants.
bool push_down(Graph& graph, NodeId id) {
  const Node node = graph.node(id);
  if (node.outputs.size() != 1) return false;
  const bool one = works_on_single_numbers(node);
  if (!one && !combines(node)) return false;
  std::vector<std::pair<size_t, NodeId>> sources;
  for (size_t place = 0; place < (one ? 1 : node.inputs.size()); ++place) {
    if (constant_input(graph, node, place) != nullptr) continue;
    const NodeId source = movable_source(graph, node, place);
    if (source == kAbsent) return false;
    sources.emplace_back(place, source);
  }
  if (sources.empty()) return false;
  const Node like = graph.node(sources[0].second);
  const Axes axes = axes_of(like);
  for (const auto& [place, source] : sources) {
    if (axes_of(graph.node(source)) != axes) return false;
  }
  for (size_t place = 0; place < (one ? 0 : node.inputs.size()); ++place) {
    const Constant* constant = constant_input(graph, node, place);
    if (constant != nullptr && constant->shape.size() > axes.size()) return false;
  }
  const bool joins = node.op == "Concat";
  for (size_t place = 0; place < (one ? 0 : node.inputs.size()); ++place) {
    const Constant* constant = constant_input(graph, node, place);
    if (constant == nullptr || (!joins && count_of(constant->shape) == 1)) continue;
    if (joins && constant->shape.size() != axes.size()) return false;
    graph.set_input(id, place, moved_constant(graph, Constant(*constant), axes));
  }
  if (joins) {
    const size_t axis = axis_from_front(node.integer("axis", 0), axes.size());
    graph.node(id).attributes["axis"] = axes[axis];
  }
  for (const auto& [place, source] : sources) {
    graph.set_input(id, place, graph.node(source).inputs[0]);
  }
  transpose_output(graph, id, axes, like);
  return true;
}

bool is_read_by_transpositions(const Graph& graph, ValueId id) {
  const auto& readers = graph.value(id).readers;
  return std::all_of(readers.begin(), readers.end(),
                     [&](NodeId reader) { return graph.node(reader).op == "Transpose"; });
}

/// Whether the axes that a reduction leaves stand in the order in which they stood before a
/// transposition.
bool leaves_in_order(const Axes& axes, const Axes& reduced) {
  Axes left;
  for (size_t i = 0; i < axes.size(); ++i) {
    const bool is_gone = std::any_of(reduced.begin(), reduced.end(), [&](int64_t axis) {
      return axis_from_front(axis, axes.size()) == i;
    });
    if (!is_gone) left.push_back(axes[i]);
  }
  return std::is_sorted(left.begin(), left.end());
}

/// Behind operators with axes of their own, which are counted anew: Softmax, reductions, and Pad in
/// front of another transposition.
bool push_down_axes(Graph& graph, NodeId id) {
  const Node node = graph.node(id);
  const bool reduces = node.op.rfind("Reduce", 0) == 0;
  const bool keeps = !reduces || node.integer("keepdims", 1) != 0;
  const bool normalizes =
      (node.op == "Softmax" || node.op == "LogSoftmax") && node.integer("to_end", 0) == 0;
  const bool pads =
      node.op == "Pad" && !node.has_input(3) && is_read_by_transpositions(graph, node.outputs[0]);
  if ((!reduces && !normalizes && !pads) || node.outputs.size() != 1) return false;
  const NodeId source = movable_source(graph, node, 0);
  if (source == kAbsent) return false;
  const Node like = graph.node(source);
  const Axes axes = axes_of(like);
  const auto in_front = [&](int64_t axis) { return axes[axis_from_front(axis, axes.size())]; };
  if (normalizes) {
    graph.node(id).attributes["axis"] = in_front(node.integer("axis", -1));
  } else {
    const Constant* list = constant_input(graph, node, 1);
    if (list == nullptr) return false;
    const Axes given = list->numbers().integers();
    Axes moved = given;
    if (!keeps && (given.empty() || !leaves_in_order(axes, given))) return false;
    if (reduces) {
      std::transform(given.begin(), given.end(), moved.begin(), in_front);
    } else {
      if (given.size() != 2 * axes.size()) return false;
      for (size_t i = 0; i < axes.size(); ++i) {
        moved[static_cast<size_t>(axes[i])] = given[i];
        moved[axes.size() + static_cast<size_t>(axes[i])] = given[axes.size() + i];
      }
    }
    graph.set_input(id, 1, add_integers(graph, std::move(moved)));
  }
  graph.set_input(id, 0, like.inputs[0]);
  if (keeps) transpose_output(graph, id, axes, like);
  return true;
}

/// In front of a Pad, which then stands beside the window behind them.
bool pull_over_padding(Graph& graph, NodeId id) {
  const Node transpose = graph.node(id);
  const Axes axes = axes_of(transpose);
  const NodeId source = axes.empty() ? kAbsent : only_source(graph, transpose, 0);
  if (source == kAbsent) return false;
  const Node pad = graph.node(source);
  const Constant* list =
      pad.op == "Pad" && !pad.has_input(3) ? constant_input(graph, pad, 1) : nullptr;
  const NodeId before = source_of(graph, pad, 0);
  if (list == nullptr || (before != kAbsent && graph.node(before).op == "Transpose")) return false;
  const Axes given = list->numbers().integers();
  if (given.size() != 2 * axes.size()) return false;
  Axes moved;
  for (const size_t half : {size_t{0}, axes.size()}) {
    for (const int64_t axis : axes) moved.push_back(given[half + static_cast<size_t>(axis)]);
  }
  Node first = transpose;
  first.inputs = {pad.inputs[0]};
  first.outputs = {graph.add_value("", graph.value(pad.inputs[0]).type)};
  Node second = pad;
  second.inputs[0] = first.outputs[0];
  second.inputs[1] = add_integers(graph, std::move(moved));
  graph.add_node(std::move(first));
  put(graph, id, std::move(second));
  graph.remove_node(source);
  return true;
}

/// Zeros around a window's axes become its own.
bool fold_padding(Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  const bool averages = node.op == "AveragePool" && node.integer("count_include_pad", 0) != 0 &&
                        node.integer("ceil_mode", 0) == 0;
  if (node.op != "Conv" && !averages) return false;
  if (node.text("auto_pad", "NOTSET") != "NOTSET" && node.text("auto_pad", "NOTSET") != "VALID") {
    return false;
  }
  const NodeId source_id = only_source(graph, node, 0);
  if (source_id == kAbsent || graph.node(source_id).op != "Pad") return false;
  const Node& pad = graph.node(source_id);
  const Constant* sizes = constant_input(graph, pad, 1);
  if (sizes == nullptr || pad.text("mode", "constant") != "constant" || pad.has_input(3))
    return false;
  if (pad.has_input(2) && number_input(graph, pad, 2) != 0.0) return false;
  const auto around = sizes->numbers().integers();
  const size_t rank = around.size() / 2;
  if (rank < 3 || around.size() % 2 != 0) return false;
  const bool inside =
      around[0] == 0 && around[1] == 0 && around[rank] == 0 && around[rank + 1] == 0;
  const bool grows =
      std::all_of(around.begin(), around.end(), [](int64_t size) { return size >= 0; });
  if (!inside || !grows) return false;
  Axes pads = node.integers("pads");
  pads.resize(2 * (rank - 2), 0);
  // An average counts what stands in the tensor, and padding of its own only as a whole.
  for (size_t i = 0; i < rank - 2; ++i) {
    pads[i] += around[i + 2];
    pads[rank - 2 + i] += around[rank + i + 2];
  }
  graph.node(id).attributes["pads"] = pads;
  graph.node(id).attributes["auto_pad"] = std::string("NOTSET");
  set_input(graph, id, 0, pad.inputs[0]);
  graph.remove_node(source_id);
  return true;
}

}  // namespace

bool join_transposes(Graph& graph) { return everywhere<join_pair>(graph); }

bool push_transposes_down(Graph& graph) {
  const bool changed = everywhere<push_down>(graph);
  const bool others = everywhere<push_down_axes>(graph);
  return everywhere<pull_over_padding>(graph) || others || changed;
}

bool fold_paddings(Graph& graph) { return everywhere<fold_padding>(graph); }

}  // namespace marlo::toolkit
