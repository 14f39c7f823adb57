#include <algorithm>
#include <set>
#include <string>
#include <tuple>
#include <utility>

#include "qrt_toolkit/simplify/match.h"
#include "qrt_toolkit/simplify/simplify.h"

// Windows over lines [N, C, L] become windows over planes one row high [N, C, 1, L], for which there
// are kernels in blocks. What stands between them takes planes as well, so that lines needn't leave
// the blocks.

namespace marlo::toolkit {
namespace {

using Integers = std::vector<int64_t>;

constexpr size_t kLineAxes = 3;
constexpr int64_t kRow = 2;  // where the row stands among the axes of a plane

bool has_axes(const std::vector<Facts>& facts, ValueId id, size_t count) {
  const auto& shape = facts[static_cast<size_t>(id)].shape;
  return shape && shape->size() == count;
}

/// Whether a node takes an axis away where the row stands, or gives one.
bool moves_row(const Graph& graph, const Node& node, const char* op) {
  const Constant* axes = node.op == op ? constant_input(graph, node, 1) : nullptr;
  return axes != nullptr && axes->numbers().integers() == Integers{kRow};
}

Node row_node(Graph& graph, const Node& like, const char* op, ValueId value) {
  return node_like(like, op, {value, add_integers(graph, {kRow})});
}

/// An axis of a line, counted from the front, as one of a plane.
int64_t in_plane(int64_t axis) {
  const auto place = static_cast<int64_t>(axis_from_front(axis, kLineAxes));
  return place < kRow ? place : place + 1;
}

Integers in_plane(Integers axes) {
  std::transform(axes.begin(), axes.end(), axes.begin(), [](int64_t a) { return in_plane(a); });
  return axes;
}

/// A list with `number` for the row, in each of `parts` equal parts.
template <typename Number>
std::vector<Number> with_row(std::vector<Number> list, Number number, size_t place, size_t parts) {
  const size_t size = list.size() / parts;
  for (size_t part = parts; part-- > 0;) {
    list.insert(list.begin() + static_cast<std::ptrdiff_t>(part * size + place), number);
  }
  return list;
}

/// A constant with an axis of one in front of its last, which lies along the line.
ValueId constant_with_row(Graph& graph, const Constant& constant) {
  Constant moved = constant;
  if (moved.shape.size() > 1) moved.shape.insert(moved.shape.end() - 1, 1);
  return graph.add_constant("", std::move(moved));
}

/// The plane that a line was; `kAbsent` where it was none.
ValueId plane_before(const Graph& graph, ValueId line) {
  const NodeId source = graph.value(line).producer;
  const bool was = source != kAbsent && moves_row(graph, graph.node(source), "Squeeze");
  return was ? graph.node(source).inputs[0] : kAbsent;
}

/// The same, or the plane that a node makes of the line: one that is there, or a new one.
ValueId plane_of(Graph& graph, ValueId line, const Node& like) {
  const ValueId before = plane_before(graph, line);
  if (before != kAbsent) return before;
  for (const NodeId reader : graph.value(line).readers) {
    const Node& node = graph.node(reader);
    if (moves_row(graph, node, "Unsqueeze") && node.inputs[0] == line) return node.outputs[0];
  }
  Node made = row_node(graph, like, "Unsqueeze", line);
  const ValueId plane = graph.add_value("", graph.value(line).type);
  made.outputs = {plane};
  graph.add_node(std::move(made));
  return plane;
}

/// Lets a node whose inputs are planes already make planes, of which its readers get lines.
void make_planes(Graph& graph, NodeId id, Node node) {
  const Node like = node;
  graph.remove_node(id);
  for (ValueId& out : node.outputs) {
    if (out == kAbsent) continue;
    const ValueId line = out;
    out = graph.add_value("", graph.value(line).type);
    replace_output(graph, line, row_node(graph, like, "Squeeze", out));
  }
  graph.add_node(std::move(node));
}

bool is_window(const Node& node) {
  static const std::set<std::string> names = {"AveragePool",       "Conv",          "ConvTranspose",
                                              "GlobalAveragePool", "GlobalMaxPool", "MaxPool"};
  return names.count(node.op) != 0 && !(node.op == "MaxPool" && node.has_output(1));
}

bool raise_window(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  Node node = graph.node(id);
  if (!is_window(node) || !node.has_input(0) || !has_axes(facts, node.inputs[0], kLineAxes)) {
    return false;
  }
  const bool has_weights = node.op == "Conv" || node.op == "ConvTranspose";
  const Constant* weight = has_weights ? constant_input(graph, node, 1) : nullptr;
  if (has_weights && (weight == nullptr || weight->shape.size() != kLineAxes)) return false;
  if (has_weights) node.inputs[1] = constant_with_row(graph, *weight);
  for (const auto& [name, number, parts] :
       {std::tuple("kernel_shape", 1, 1), std::tuple("strides", 1, 1),
        std::tuple("dilations", 1, 1), std::tuple("output_shape", 1, 1),
        std::tuple("output_padding", 0, 1), std::tuple("pads", 0, 2)}) {
    if (!node.has(name)) continue;
    node.attributes[name] =
        with_row(node.integers(name), int64_t{number}, 0, static_cast<size_t>(parts));
  }
  node.inputs[0] = plane_of(graph, node.inputs[0], node);
  make_planes(graph, id, std::move(node));
  return true;
}

/// Operators whose operands are broadcast from the last axis on, or that join them.
bool combine_planes(Graph& graph, Node& node, const std::vector<Facts>& facts) {
  bool any = false;
  for (size_t place = 0; place < node.inputs.size(); ++place) {
    if (!node.has_input(place)) return false;
    const ValueId id = node.inputs[place];
    if (const auto& constant = graph.value(id).constant) {
      const size_t axes = constant->shape.size();
      if (axes > kLineAxes || (node.op == "Concat" && axes != kLineAxes)) return false;
      continue;
    }
    if (!has_axes(facts, id, kLineAxes)) return false;
    any = any || plane_before(graph, id) != kAbsent;
  }
  if (!any) return false;
  for (ValueId& input : node.inputs) {
    const auto constant = graph.value(input).constant;
    input = constant ? constant_with_row(graph, *constant) : plane_of(graph, input, node);
  }
  if (node.op == "Concat") node.attributes["axis"] = in_plane(node.integer("axis", 0));
  return true;
}

/// Gives a node another list of integers as an input.
void set_list(Graph& graph, Node& node, size_t place, Integers list) {
  node.inputs[place] = graph.add_constant("", constant_of(Numbers::integers_1d(std::move(list))));
}

/// Over the row as well where its axes go: that is one number, so nothing changes.
bool reduce_planes(Graph& graph, Node& node, bool& makes_planes) {
  const Constant* axes = constant_input(graph, node, 1);
  if (axes == nullptr || axes->numbers().integers().empty()) return false;
  Integers moved = in_plane(axes->numbers().integers());
  makes_planes = node.integer("keepdims", 1) != 0;
  if (!makes_planes) moved.push_back(kRow);
  set_list(graph, node, 1, std::move(moved));
  return true;
}

bool slice_planes(Graph& graph, Node& node) {
  const Constant* starts = constant_input(graph, node, 1);
  const Constant* axes = constant_input(graph, node, 3);
  if (starts == nullptr || (node.has_input(3) && axes == nullptr)) return false;
  Integers moved;
  if (axes != nullptr) {
    moved = axes->numbers().integers();
  } else {
    for (int64_t axis = 0; axis < count_of(starts->shape).value_or(0); ++axis) {
      moved.push_back(axis);
    }
  }
  if (node.inputs.size() < 4) node.inputs.resize(4, kAbsent);
  set_list(graph, node, 3, in_plane(std::move(moved)));
  return true;
}

bool pad_planes(Graph& graph, Node& node) {
  const Constant* around = constant_input(graph, node, 1);
  if (around == nullptr || node.has_input(3)) return false;
  const Integers sizes = around->numbers().integers();
  if (sizes.size() != 2 * kLineAxes) return false;
  set_list(graph, node, 1, with_row(sizes, int64_t{0}, kRow, 2));
  return true;
}

bool resize_planes(Graph& graph, Node& node) {
  if (node.has("axes") || node.has_input(1)) return false;
  for (size_t place = 2; place < node.inputs.size(); ++place) {
    if (!node.has_input(place)) continue;
    const Constant* list = constant_input(graph, node, place);
    if (list == nullptr || list->shape != Extents{kLineAxes}) return false;
    Numbers numbers = list->numbers();
    numbers.shape[0] += 1;
    std::visit(
        [](auto& data) {
          using Number = typename std::decay_t<decltype(data)>::value_type;
          data = with_row(data, Number{1}, kRow, 1);
        },
        numbers.data);
    node.inputs[place] = graph.add_constant("", constant_of(numbers));
  }
  return true;
}

/// Whether an operator's other inputs are a number for each channel, however many axes follow.
bool works_on_channels(const Node& node) {
  return node.op == "BatchNormalization" || node.op == "InstanceNormalization" ||
         (node.op == "PRelu" && node.integer("channel_slope", 0) != 0);
}

/// An operator that takes the plane of its first input, with its other inputs and attributes told
/// anew.
bool take_plane(Graph& graph, Node& node, bool& makes_planes) {
  if (node.op.rfind("Reduce", 0) == 0) {
    if (!reduce_planes(graph, node, makes_planes)) return false;
  } else if (node.op == "Softmax" || node.op == "LogSoftmax") {
    if (node.integer("to_end", 0) != 0) return false;
    node.attributes["axis"] = in_plane(node.integer("axis", -1));
  } else if (node.op == "Split") {
    node.attributes["axis"] = in_plane(node.integer("axis", 0));
  } else if (node.op == "Slice") {
    if (!slice_planes(graph, node)) return false;
  } else if (node.op == "Pad") {
    if (!pad_planes(graph, node)) return false;
  } else if (node.op == "Resize") {
    if (!resize_planes(graph, node)) return false;
  } else if (!works_on_channels(node) && !works_on_single_numbers(node)) {
    return false;
  }
  node.inputs[0] = plane_before(graph, node.inputs[0]);
  return true;
}

/// What reads lines that were planes reads the planes.
bool move_row_down(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  Node node = graph.node(id);
  bool makes_planes = true;
  if (combines(node)) {
    if (!combine_planes(graph, node, facts)) return false;
  } else if (!node.has_input(0) || !has_axes(facts, node.inputs[0], kLineAxes) ||
             plane_before(graph, node.inputs[0]) == kAbsent ||
             !take_plane(graph, node, makes_planes)) {
    return false;
  }
  if (makes_planes) {
    make_planes(graph, id, std::move(node));
  } else {
    put(graph, id, std::move(node));
  }
  return true;
}

/// A row that is given behind one that was taken away.
bool drop_row_pair(Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  const ValueId plane =
      moves_row(graph, node, "Unsqueeze") ? plane_before(graph, node.inputs[0]) : kAbsent;
  if (plane == kAbsent) return false;
  merge_into_source(graph, id, plane);
  return true;
}

}  // namespace

bool raise_lines(Graph& graph) {
  bool changed = false;
  while (everywhere<raise_window>(graph)) changed = true;
  return changed;
}

bool move_rows_down(Graph& graph) {
  const bool moved = everywhere<move_row_down>(graph);
  return everywhere<drop_row_pair>(graph) || moved;
}

}  // namespace marlo::toolkit
