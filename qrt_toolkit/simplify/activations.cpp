#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

#include "qrt_toolkit/simplify/match.h"
#include "qrt_toolkit/simplify/simplify.h"

// Activations that a graph writes as several operators.

namespace marlo::toolkit {
namespace {

constexpr double kMost = std::numeric_limits<float>::max();

bool nearly(double a, double b) { return std::fabs(a - b) <= 1e-6 * std::fabs(b); }

/// The bounds of Clip, and of Max and Min with a number, Relu among them.
struct Bounds {
  double low = -kMost;
  double high = kMost;
  size_t tensor = 0;
};

std::optional<Bounds> bounds_of(const Graph& graph, const Node& node) {
  Bounds bounds;
  if (node.op == "Relu") {
    bounds.low = 0;
    return bounds;
  }
  if (node.op == "Clip") {
    for (const size_t place : {size_t{1}, size_t{2}}) {
      if (!node.has_input(place)) continue;
      const auto number = number_input(graph, node, place);
      if (!number) return std::nullopt;
      (place == 1 ? bounds.low : bounds.high) = *number;
    }
    return bounds;
  }
  if (node.op != "Max" && node.op != "Min") return std::nullopt;
  const auto tensor = tensor_beside_constant(graph, node);
  if (!tensor) return std::nullopt;
  const Constant* constant = constant_input(graph, node, 1 - *tensor);
  // More axes than the tensor's would be the result's.
  const auto number = number_input(graph, node, 1 - *tensor);
  if (!number || !constant->shape.empty()) return std::nullopt;
  bounds.tensor = *tensor;
  (node.op == "Max" ? bounds.low : bounds.high) = *number;
  return bounds;
}

ValueId number(Graph& graph, double value) {
  Numbers numbers(ElementType::float32, {});
  numbers.reals()[0] = value;
  return graph.add_constant("", constant_of(numbers));
}

// min(max(x, a), b) is a Clip, and so is a bound behind a Clip or Relu.
bool join_bounds(Graph& graph, NodeId id) {
  const auto outer = bounds_of(graph, graph.node(id));
  if (!outer) return false;
  const NodeId inner_id = only_source(graph, graph.node(id), outer->tensor);
  const auto inner = inner_id == kAbsent ? std::nullopt : bounds_of(graph, graph.node(inner_id));
  if (!inner) return false;
  const auto within = [&](double x) { return std::min(std::max(x, outer->low), outer->high); };
  const double low = within(inner->low);
  const double high = within(inner->high);
  if (low > high) return false;
  const ValueId x = graph.node(inner_id).inputs[inner->tensor];
  const Node like = graph.node(id);
  Node node = node_like(like, low == 0 && high >= kMost ? "Relu" : "Clip", {x});
  if (node.op == "Clip") node.inputs = {x, number(graph, low), number(graph, high)};
  put(graph, id, std::move(node));
  graph.remove_node(inner_id);
  return true;
}

/// Of two inputs, those that are `source` of the other: x and f(x) in any order.
struct Pair {
  ValueId x;
  NodeId function;
};

std::optional<Pair> function_beside_its_input(const Graph& graph, const Node& node,
                                              bool (*is)(const Graph&, const Node&, ValueId)) {
  if (node.inputs.size() != 2) return std::nullopt;
  for (const size_t place : {size_t{0}, size_t{1}}) {
    const NodeId function = source_of(graph, node, place);
    const ValueId x = node.inputs[1 - place];
    if (function != kAbsent && is(graph, graph.node(function), x)) return Pair{x, function};
  }
  return std::nullopt;
}

/// The factor of Mul with a number, or the one that Div by a number amounts to.
std::optional<double> factor_of(const Graph& graph, const Node& node, ValueId x) {
  if (node.op != "Mul" && node.op != "Div") return std::nullopt;
  const auto tensor = tensor_beside_constant(graph, node);
  if (!tensor || node.inputs[*tensor] != x) return std::nullopt;
  const auto number = number_input(graph, node, 1 - *tensor);
  if (!number) return std::nullopt;
  if (node.op == "Mul") return number;
  if (*tensor != 0 || *number == 0) return std::nullopt;
  return 1 / *number;
}

// max(x, a x) is a leaky rectifier where a is below one.
bool find_leaky(Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  if (node.op != "Max") return false;
  const auto pair =
      function_beside_its_input(graph, node, [](const Graph& g, const Node& function, ValueId x) {
        const auto factor = factor_of(g, function, x);
        return factor && *factor >= 0 && *factor < 1;
      });
  if (!pair) return false;
  Node leaky = node_like(node, "LeakyRelu", {pair->x});
  leaky.attributes["alpha"] = *factor_of(graph, graph.node(pair->function), pair->x);
  put(graph, id, std::move(leaky));
  return true;
}

/// The value that a number is added to, with a number; nothing for other nodes.
std::optional<std::pair<ValueId, double>> sum_with_number(const Graph& graph, NodeId id) {
  if (id == kAbsent || graph.node(id).op != "Add") return std::nullopt;
  const Node& node = graph.node(id);
  const auto tensor = tensor_beside_constant(graph, node);
  if (!tensor) return std::nullopt;
  const auto number = number_input(graph, node, 1 - *tensor);
  if (!number) return std::nullopt;
  return std::pair(node.inputs[*tensor], *number);
}

/// Whether a node is Clip(x + 3, 0, 6).
bool is_gate_of_six(const Graph& graph, const Node& node, ValueId x) {
  const auto bounds = bounds_of(graph, node);
  if (!bounds || bounds->low != 0 || bounds->high != 6) return false;
  const auto sum = sum_with_number(graph, source_of(graph, node, bounds->tensor));
  return sum && sum->first == x && sum->second == 3;
}

/// Whether a node is HardSigmoid(x) as HardSwish has it, however written.
bool is_hard_gate(const Graph& graph, const Node& node, ValueId x) {
  if (node.op == "HardSigmoid") {
    return node.inputs[0] == x && nearly(node.real("alpha", 0.2), 1.0 / 6) &&
           node.real("beta", 0.5) == 0.5;
  }
  for (const size_t place : {size_t{0}, size_t{1}}) {
    const NodeId gate = source_of(graph, node, place);
    if (gate == kAbsent || !is_gate_of_six(graph, graph.node(gate), x)) continue;
    const auto factor = factor_of(graph, node, node.inputs[place]);
    return factor && nearly(*factor, 1.0 / 6);
  }
  return false;
}

// x * gate(x), where the sixth may also stand behind the product.
bool find_hard_swish(Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  if (node.op != "Mul" && node.op != "Div") return false;
  if (node.op == "Mul") {
    if (const auto pair = function_beside_its_input(graph, node, is_hard_gate)) {
      put(graph, id, node_like(node, "HardSwish", {pair->x}));
      return true;
    }
  }
  for (const size_t place : {size_t{0}, size_t{1}}) {
    const NodeId inner = source_of(graph, node, place);
    if (inner == kAbsent || graph.node(inner).op != "Mul") continue;
    const auto pair = function_beside_its_input(graph, graph.node(inner), is_gate_of_six);
    const auto factor = factor_of(graph, node, node.inputs[place]);
    if (!pair || !factor || !nearly(*factor, 1.0 / 6)) continue;
    put(graph, id, node_like(node, "HardSwish", {pair->x}));
    return true;
  }
  return false;
}

// x Sigmoid(x)
bool find_swish(Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  if (node.op != "Mul") return false;
  const auto pair =
      function_beside_its_input(graph, node, [](const Graph&, const Node& function, ValueId x) {
        return function.op == "Sigmoid" && function.inputs[0] == x;
      });
  if (!pair) return false;
  put(graph, id, node_like(node, "Swish", {pair->x}));
  return true;
}

// Clip(x + 3, 0, 6) / 6 that isn't multiplied with x.
bool find_hard_sigmoid(Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  if (node.op != "Mul" && node.op != "Div") return false;
  for (const size_t place : {size_t{0}, size_t{1}}) {
    const NodeId gate = only_source(graph, node, place);
    if (gate == kAbsent) continue;
    const auto bounds = bounds_of(graph, graph.node(gate));
    if (!bounds) continue;
    const auto sum = sum_with_number(graph, source_of(graph, graph.node(gate), bounds->tensor));
    if (!sum || !is_hard_gate(graph, node, sum->first)) continue;
    Node sigmoid = node_like(node, "HardSigmoid", {sum->first});
    sigmoid.attributes["alpha"] = 1.0 / 6;
    sigmoid.attributes["beta"] = 0.5;
    put(graph, id, std::move(sigmoid));
    return true;
  }
  return false;
}

}  // namespace

bool join_clips(Graph& graph) { return everywhere<join_bounds>(graph); }

bool find_leaky_rectifiers(Graph& graph) { return everywhere<find_leaky>(graph); }

bool find_hard_swishes(Graph& graph) { return everywhere<find_hard_swish>(graph); }

bool find_swishes(Graph& graph) { return everywhere<find_swish>(graph); }

bool find_hard_sigmoids(Graph& graph) { return everywhere<find_hard_sigmoid>(graph); }

}  // namespace marlo::toolkit
