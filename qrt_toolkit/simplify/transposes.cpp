#include <algorithm>
#include <numeric>
#include <set>
#include <string>
#include <utility>

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

bool works_on_single_numbers(const Node& node) {
  static const std::set<std::string> names = {
      "Abs",         "Celu",      "Clip",      "Cos",      "Elu",      "Erf",  "Exp",  "Gelu",
      "HardSigmoid", "HardSwish", "LeakyRelu", "Log",      "Mish",     "Neg",  "Relu", "Reciprocal",
      "Selu",        "Sigmoid",   "Sin",       "Softplus", "Softsign", "Sqrt", "Tanh"};
  return names.count(node.op) != 0;
}

bool combines_two(const Node& node) {
  static const std::set<std::string> names = {"Add", "Div", "Max", "Min", "Mul", "Sub"};
  return names.count(node.op) != 0 && node.inputs.size() == 2;
}

void set_input(Graph& graph, NodeId id, size_t place, ValueId value) {
  graph.set_input(id, place, value);
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

/// Behind a function of single numbers, and behind a sum of two tensors transposed alike, or of one
/// and a number.
bool push_down(Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  if (node.outputs.size() != 1) return false;
  const bool one = works_on_single_numbers(node);
  if (!one && !combines_two(node)) return false;
  std::vector<std::pair<size_t, NodeId>> sources;
  for (size_t place = 0; place < (one ? 1 : node.inputs.size()); ++place) {
    const Constant* constant = constant_input(graph, node, place);
    if (constant != nullptr && count_of(constant->shape) == 1) continue;
    const NodeId source = constant == nullptr ? only_source(graph, node, place) : kAbsent;
    if (source == kAbsent || axes_of(graph.node(source)).empty()) return false;
    sources.emplace_back(place, source);
  }
  if (sources.empty()) return false;
  const Node like = graph.node(sources[0].second);
  const Axes axes = axes_of(like);
  for (const auto& [place, source] : sources) {
    if (axes_of(graph.node(source)) != axes) return false;
  }
  for (size_t place = 0; place < node.inputs.size(); ++place) {
    const Constant* constant = constant_input(graph, node, place);
    if (constant != nullptr && constant->shape.size() > axes.size()) return false;
  }
  for (const auto& [place, source] : sources) {
    set_input(graph, id, place, graph.node(source).inputs[0]);
  }
  transpose_output(graph, id, axes, like);
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

bool push_transposes_down(Graph& graph) { return everywhere<push_down>(graph); }

bool fold_paddings(Graph& graph) { return everywhere<fold_padding>(graph); }

}  // namespace marlo::toolkit
