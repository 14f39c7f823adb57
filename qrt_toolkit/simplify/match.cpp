#include "qrt_toolkit/simplify/match.h"

#include <algorithm>
#include <set>
#include <utility>

#include "qrt_toolkit/operators/operator.h"

namespace marlo::toolkit {

const Constant* constant_input(const Graph& graph, const Node& node, size_t place) {
  if (!node.has_input(place)) return nullptr;
  const auto& constant = graph.value(node.inputs[place]).constant;
  return constant ? &*constant : nullptr;
}

std::optional<double> number_input(const Graph& graph, const Node& node, size_t place) {
  const Constant* constant = constant_input(graph, node, place);
  if (constant == nullptr || count_of(constant->shape) != 1) return std::nullopt;
  return constant->numbers().real(0);
}

bool is_known_to(const std::vector<Facts>& facts, const Node& node) {
  const auto is_new = [&](ValueId id) {
    return id != kAbsent && static_cast<size_t>(id) >= facts.size();
  };
  return std::none_of(node.inputs.begin(), node.inputs.end(), is_new) &&
         std::none_of(node.outputs.begin(), node.outputs.end(), is_new);
}

NodeId source_of(const Graph& graph, const Node& node, size_t place) {
  return node.has_input(place) ? graph.value(node.inputs[place]).producer : kAbsent;
}

NodeId only_source(const Graph& graph, const Node& node, size_t place) {
  if (!node.has_input(place)) return kAbsent;
  const ValueId id = node.inputs[place];
  const Value& value = graph.value(id);
  return value.readers.size() == 1 && !graph.is_output(id) ? value.producer : kAbsent;
}

std::optional<size_t> tensor_beside_constant(const Graph& graph, const Node& node) {
  if (node.inputs.size() != 2) return std::nullopt;
  for (const size_t place : {size_t{0}, size_t{1}}) {
    const bool constant = constant_input(graph, node, 1 - place) != nullptr;
    if (constant && node.has_input(place) && constant_input(graph, node, place) == nullptr) {
      return place;
    }
  }
  return std::nullopt;
}

bool works_on_single_numbers(const Node& node) {
  static const std::set<std::string> names = {
      "Abs",  "Celu",     "Clip",        "Cos",        "Elu",       "Erf",
      "Exp",  "Gelu",     "HardSigmoid", "HardSwish",  "LeakyRelu", "Log",
      "Mish", "Neg",      "Relu",        "Reciprocal", "Selu",      "Sigmoid",
      "Sin",  "Softplus", "Softsign",    "Sqrt",       "Swish",     "Tanh"};
  return names.count(node.op) != 0;
}

bool combines(const Node& node) {
  static const std::set<std::string> names = {"Add", "Concat", "Div",   "Greater", "Less", "Max",
                                              "Min", "Mul",    "PRelu", "Sub",     "Where"};
  return names.count(node.op) != 0 && node.integer("channel_slope", 0) == 0;
}

Node node_like(const Node& like, const char* op, std::vector<ValueId> inputs) {
  Node node;
  node.op = op;
  node.name = like.name;
  node.source = like.source;
  // An operator may be younger than the file.
  const Operator* row = find_operator(op);
  node.opset = row == nullptr ? like.opset : std::max(like.opset, row->since);
  node.op_in_file = like.op_in_file.empty() ? like.op : like.op_in_file;
  node.inputs = std::move(inputs);
  return node;
}

void put(Graph& graph, NodeId old, Node node) {
  const ValueId out = graph.node(old).outputs[0];
  graph.remove_node(old);
  replace_output(graph, out, std::move(node));
}

ValueId add_integers(Graph& graph, std::vector<int64_t> numbers) {
  return graph.add_constant("", constant_of(Numbers::integers_1d(std::move(numbers))));
}

ValueId add_node(Graph& graph, Node node, ElementType type) {
  const ValueId made = graph.add_value("", type);
  node.outputs = {made};
  graph.add_node(std::move(node));
  return made;
}

NodeId replace_output(Graph& graph, ValueId out, Node node) {
  const Value old = graph.value(out);
  const ValueId made = graph.add_value(old.name, old.type, old.shape);
  graph.value(out).name.clear();
  node.outputs = {made};
  const NodeId id = graph.add_node(std::move(node));
  graph.replace(out, made);
  return id;
}

void merge_into_source(Graph& graph, NodeId node, ValueId in) {
  const ValueId out = graph.node(node).outputs[0];
  if (graph.value(in).producer != kAbsent) graph.value(in).name = graph.value(out).name;
  graph.remove_node(node);
  graph.replace(out, in);
}

}  // namespace marlo::toolkit
