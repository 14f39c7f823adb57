#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "qrt_toolkit/simplify/match.h"
#include "qrt_toolkit/simplify/simplify.h"

// Operators that exporters write as many: layer normalization and GELU.

namespace marlo::toolkit {
namespace {

bool nearly(double a, double b) { return std::fabs(a - b) <= 1e-5 * std::fabs(b); }

/// A node of this operator that makes an input; `kAbsent` for another.
NodeId source_by(const Graph& graph, const Node& node, size_t place, const char* op) {
  const NodeId source = source_of(graph, node, place);
  return source != kAbsent && graph.node(source).op == op ? source : kAbsent;
}

/// Of a node with a constant of one number: the other input, and the number.
struct WithNumber {
  ValueId tensor;
  double number;
  bool first;  ///< whether the tensor is the first input
};

std::optional<WithNumber> with_number(const Graph& graph, const Node& node, const char* op) {
  if (node.op != op) return std::nullopt;
  const auto place = tensor_beside_constant(graph, node);
  const auto number = place ? number_input(graph, node, 1 - *place) : std::nullopt;
  if (!number) return std::nullopt;
  return WithNumber{node.inputs[*place], *number, *place == 0};
}

std::optional<WithNumber> made_with_number(const Graph& graph, ValueId id, const char* op) {
  const NodeId producer = graph.value(id).producer;
  return producer == kAbsent ? std::nullopt : with_number(graph, graph.node(producer), op);
}

/// The tensor that a value is the multiple of, by Mul with a number or Div by one.
std::optional<std::pair<ValueId, double>> multiple_of(const Graph& graph, ValueId id) {
  if (const auto product = made_with_number(graph, id, "Mul")) {
    return std::pair(product->tensor, product->number);
  }
  const auto quotient = made_with_number(graph, id, "Div");
  if (!quotient || !quotient->first || quotient->number == 0) return std::nullopt;
  return std::pair(quotient->tensor, 1 / quotient->number);
}

/// The node that makes a value, if it is this operator; null for another.
const Node* maker(const Graph& graph, ValueId id, const char* op) {
  const NodeId producer = graph.value(id).producer;
  const bool is_it = producer != kAbsent && graph.node(producer).op == op;
  return is_it ? &graph.node(producer) : nullptr;
}

/// Whether a value is x^3, as a power or as products.
bool is_cube(const Graph& graph, ValueId id, ValueId x) {
  if (const auto power = made_with_number(graph, id, "Pow")) {
    return power->first && power->number == 3 && power->tensor == x;
  }
  const Node* product = maker(graph, id, "Mul");
  if (product == nullptr || product->inputs.size() != 2) return false;
  for (const size_t place : {size_t{0}, size_t{1}}) {
    const Node* square = maker(graph, product->inputs[place], "Mul");
    const bool is_square = square != nullptr && square->inputs == std::vector<ValueId>{x, x};
    if (is_square && product->inputs[1 - place] == x) return true;
  }
  return false;
}

/// Whether a value is x + 0.044715 x^3.
bool is_bent(const Graph& graph, ValueId id, ValueId x) {
  const Node* sum = maker(graph, id, "Add");
  if (sum == nullptr || sum->inputs.size() != 2) return false;
  for (const size_t place : {size_t{0}, size_t{1}}) {
    const auto cubic = multiple_of(graph, sum->inputs[1 - place]);
    if (sum->inputs[place] == x && cubic && nearly(cubic->second, 0.044715) &&
        is_cube(graph, cubic->first, x)) {
      return true;
    }
  }
  return false;
}

enum class Gate { none, erf, tanh };

/// Whether a value is 1 + erf(x / sqrt 2), or 1 + tanh(sqrt(2 / pi) (x + 0.044715 x^3)).
Gate gate_of(const Graph& graph, ValueId id, ValueId x) {
  const auto sum = made_with_number(graph, id, "Add");
  if (!sum || sum->number != 1) return Gate::none;
  if (const Node* erf = maker(graph, sum->tensor, "Erf")) {
    const auto scaled = multiple_of(graph, erf->inputs[0]);
    const bool fits = scaled && scaled->first == x && nearly(scaled->second, std::sqrt(0.5));
    return fits ? Gate::erf : Gate::none;
  }
  const Node* tanh = maker(graph, sum->tensor, "Tanh");
  const auto scaled = tanh == nullptr ? std::nullopt : multiple_of(graph, tanh->inputs[0]);
  const double slope = std::sqrt(2 / std::acos(-1.0));
  const bool fits = scaled && nearly(scaled->second, slope) && is_bent(graph, scaled->first, x);
  return fits ? Gate::tanh : Gate::none;
}

/// What a GELU is of, and by which function.
struct FoundGelu {
  ValueId x;
  Gate gate;
};

std::optional<FoundGelu> with_gate(const Graph& graph, ValueId x, ValueId gate) {
  const Gate kind = gate_of(graph, gate, x);
  return kind == Gate::none ? std::nullopt : std::optional(FoundGelu{x, kind});
}

/// Whether a node is the product of some x and its gate, in any order.
std::optional<FoundGelu> gated(const Graph& graph, const Node& node) {
  if (node.op != "Mul" || node.inputs.size() != 2) return std::nullopt;
  for (const size_t place : {size_t{0}, size_t{1}}) {
    const auto found = with_gate(graph, node.inputs[place], node.inputs[1 - place]);
    if (found) return found;
  }
  return std::nullopt;
}

/// The GELU whose last product is this node: a half of the gated one, the gated one's half, or the
/// gate with half of x.
std::optional<FoundGelu> gelu_of(const Graph& graph, const Node& node) {
  if (const auto half = with_number(graph, node, "Mul"); half && half->number == 0.5) {
    const NodeId inner = graph.value(half->tensor).producer;
    return inner == kAbsent ? std::nullopt : gated(graph, graph.node(inner));
  }
  if (node.op != "Mul" || node.inputs.size() != 2) return std::nullopt;
  for (const size_t place : {size_t{0}, size_t{1}}) {
    const ValueId x = node.inputs[place];
    const ValueId other = node.inputs[1 - place];
    const auto half = multiple_of(graph, x);
    if (half && half->second == 0.5) {
      if (const auto found = with_gate(graph, half->first, other)) return found;
    }
    const auto gate = multiple_of(graph, other);
    if (gate && gate->second == 0.5) {
      if (const auto found = with_gate(graph, x, gate->first)) return found;
    }
  }
  return std::nullopt;
}

/// Whether two values have as many axes: a constant with more of them adds some.
bool have_same_axes(const std::vector<Facts>& facts, ValueId a, ValueId b) {
  const auto shape_of = [&](ValueId id) -> const std::optional<Shape>& {
    static const std::optional<Shape> unknown;
    const auto place = static_cast<size_t>(id);
    return place < facts.size() ? facts[place].shape : unknown;
  };
  const auto& first = shape_of(a);
  const auto& second = shape_of(b);
  return first && second && first->size() == second->size();
}

bool find_gelu(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const auto found = gelu_of(graph, graph.node(id));
  if (!found || !have_same_axes(facts, found->x, graph.node(id).outputs[0])) return false;
  Node node = node_like(graph.node(id), "Gelu", {found->x});
  if (found->gate == Gate::tanh) node.attributes["approximate"] = std::string("tanh");
  put(graph, id, std::move(node));
  return true;
}

/// The axis, counted from the front, that a node takes the mean over and keeps; nothing for another.
std::optional<size_t> axis_of_mean(const Graph& graph, const Node& node, size_t rank) {
  if (node.op != "ReduceMean" || node.integer("keepdims", 1) == 0) return std::nullopt;
  const Constant* axes = constant_input(graph, node, 1);
  if (axes == nullptr || count_of(axes->shape) != 1) return std::nullopt;
  return axis_from_front(axes->numbers().integer(0), rank);
}

/// Whether a value is the square of `x`.
bool is_square(const Graph& graph, ValueId id, ValueId x) {
  if (const auto power = made_with_number(graph, id, "Pow")) {
    return power->first && power->number == 2 && power->tensor == x;
  }
  const NodeId product = graph.value(id).producer;
  return product != kAbsent && graph.node(product).op == "Mul" &&
         graph.node(product).inputs == std::vector<ValueId>{x, x};
}

/// A quotient of x less its mean and of its deviation, (x - m) / sqrt(mean((x - m)^2) + eps), over
/// one axis.
struct Normalized {
  ValueId x;
  size_t axis;
  double epsilon;
};

std::optional<Normalized> normalized(const Graph& graph, const Node& node, size_t rank) {
  if (node.op != "Div") return std::nullopt;
  const NodeId centred = source_by(graph, node, 0, "Sub");
  const NodeId root = source_by(graph, node, 1, "Sqrt");
  if (centred == kAbsent || root == kAbsent) return std::nullopt;
  const Node& difference = graph.node(centred);
  const NodeId mean = source_by(graph, difference, 1, "ReduceMean");
  const ValueId x = difference.inputs[0];
  if (mean == kAbsent || graph.node(mean).inputs[0] != x) return std::nullopt;
  const auto sum = made_with_number(graph, graph.node(root).inputs[0], "Add");
  const NodeId variance = sum ? graph.value(sum->tensor).producer : kAbsent;
  if (variance == kAbsent) return std::nullopt;
  const auto axis = axis_of_mean(graph, graph.node(mean), rank);
  if (!axis || axis_of_mean(graph, graph.node(variance), rank) != axis) return std::nullopt;
  // Exporters compute the difference once, or once for each place.
  const ValueId squared = graph.node(variance).inputs[0];
  for (const NodeId reader : graph.value(x).readers) {
    const Node& other = graph.node(reader);
    const bool same = other.op == "Sub" && other.inputs[0] == x &&
                      source_of(graph, other, 1) != kAbsent &&
                      axis_of_mean(graph, graph.node(source_of(graph, other, 1)), rank) == axis &&
                      graph.node(source_of(graph, other, 1)).inputs[0] == x;
    if (same && is_square(graph, squared, other.outputs[0])) {
      return Normalized{x, *axis, sum->number};
    }
  }
  return std::nullopt;
}

/// A tensor along one of its axes.
struct Along {
  size_t rank;
  size_t axis;
  int64_t size;  ///< of that axis
};

/// Whether a constant beside a tensor has a number for each element of an axis, along which alone it
/// varies.
bool is_row(const Constant& constant, const Along& along) {
  const size_t missing = along.rank - std::min(along.rank, constant.shape.size());
  return constant.shape.size() <= along.rank && along.axis >= missing && is_real(constant.type) &&
         constant.shape[along.axis - missing] == along.size &&
         count_of(constant.shape) == along.size;
}

/// The node that alone reads what a node makes, if it is this operator with a row of numbers.
struct RowReader {
  NodeId node;
  Numbers row;
};

std::optional<RowReader> reader_with_row(const Graph& graph, const Node& node, const char* op,
                                         const Along& along) {
  const ValueId made = node.outputs[0];
  const auto& readers = graph.value(made).readers;
  if (readers.size() != 1 || graph.node(readers[0]).op != op) return std::nullopt;
  const Node& reader = graph.node(readers[0]);
  const auto tensor = tensor_beside_constant(graph, reader);
  if (!tensor || only_source(graph, reader, *tensor) == kAbsent) return std::nullopt;
  const Constant* row = constant_input(graph, reader, 1 - *tensor);
  if (!is_row(*row, along)) return std::nullopt;
  Numbers numbers = row->numbers();
  numbers.shape = {along.size};
  return RowReader{readers[0], std::move(numbers)};
}

Node transpose_like(const Node& like, ValueId tensor, std::vector<int64_t> perm) {
  Node node = node_like(like, "Transpose", {tensor});
  node.attributes["perm"] = std::move(perm);
  return node;
}

// (x - m) / s, times a row, plus a row, where these stand behind it. Over another axis than the last
// it is done between transpositions, which may meet others.
bool find_layer_normalization(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const Node div = graph.node(id);
  if (div.op != "Div") return false;
  const auto& shape = facts[static_cast<size_t>(div.outputs[0])].shape;
  if (!shape || shape->empty()) return false;
  const size_t rank = shape->size();
  const auto found = normalized(graph, div, rank);
  if (!found || !have_same_axes(facts, found->x, div.outputs[0])) return false;
  if (found->axis == 0 && rank > 1) return false;  // most likely the batch
  const Dimension size = (*shape)[found->axis];
  if (!size.known()) return false;
  const Along along{rank, found->axis, size.size};
  const auto product = reader_with_row(graph, div, "Mul", along);
  const NodeId scaled = product ? product->node : id;
  const auto sum = reader_with_row(graph, graph.node(scaled), "Add", along);
  const NodeId last = sum ? sum->node : scaled;
  const ValueId out = graph.node(last).outputs[0];  // its node is still to be visited, and stays
  Numbers scale(ElementType::float32, {size.size});
  std::fill(scale.reals().begin(), scale.reals().end(), 1.0);
  if (product) scale = product->row;
  Node node = node_like(graph.node(last), "LayerNormalization",
                        {found->x, graph.add_constant("", constant_of(scale))});
  if (sum) node.inputs.push_back(graph.add_constant("", constant_of(sum->row)));
  node.attributes["axis"] = int64_t{-1};
  node.attributes["epsilon"] = found->epsilon;
  if (found->axis + 1 != rank) {
    const ElementType type = facts[static_cast<size_t>(found->x)].type;
    const auto axis = static_cast<std::ptrdiff_t>(found->axis);
    std::vector<int64_t> perm(rank);
    std::iota(perm.begin(), perm.end(), int64_t{0});
    std::vector<int64_t> back = perm;
    std::rotate(perm.begin() + axis, perm.begin() + axis + 1, perm.end());
    std::rotate(back.begin() + axis, back.end() - 1, back.end());
    Node turned = transpose_like(node, found->x, std::move(perm));
    node.inputs[0] = graph.add_value("", type);
    turned.outputs = {node.inputs[0]};
    graph.add_node(std::move(turned));
    const ValueId made = graph.add_value("", type);
    node.outputs = {made};
    Node returned = transpose_like(node, made, std::move(back));
    graph.add_node(std::move(node));
    replace_output(graph, out, std::move(returned));
    return true;
  }
  replace_output(graph, out, std::move(node));
  return true;
}

}  // namespace

bool find_gelus(Graph& graph) { return everywhere<find_gelu>(graph); }

bool find_layer_normalizations(Graph& graph) { return everywhere<find_layer_normalization>(graph); }

}  // namespace marlo::toolkit
