#include <algorithm>
#include <cmath>
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

/// Whether a node is the mean over the last axis, which it keeps.
bool is_mean_of_last(const Graph& graph, const Node& node, size_t rank) {
  if (node.op != "ReduceMean" || node.integer("keepdims", 1) == 0) return false;
  const Constant* axes = constant_input(graph, node, 1);
  if (axes == nullptr || count_of(axes->shape) != 1) return false;
  const int64_t axis = axes->numbers().integer(0);
  return axis == -1 || axis == static_cast<int64_t>(rank) - 1;
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
/// the last axis.
struct Normalized {
  ValueId x;
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
  const bool means = is_mean_of_last(graph, graph.node(mean), rank) &&
                     is_mean_of_last(graph, graph.node(variance), rank);
  if (!means) return std::nullopt;
  // Exporters compute the difference once, or once for each place.
  const ValueId squared = graph.node(variance).inputs[0];
  for (const NodeId reader : graph.value(x).readers) {
    const Node& other = graph.node(reader);
    const bool same = other.op == "Sub" && other.inputs[0] == x &&
                      source_of(graph, other, 1) != kAbsent &&
                      is_mean_of_last(graph, graph.node(source_of(graph, other, 1)), rank) &&
                      graph.node(source_of(graph, other, 1)).inputs[0] == x;
    if (same && is_square(graph, squared, other.outputs[0])) return Normalized{x, sum->number};
  }
  return std::nullopt;
}

/// A constant list of as many numbers as the last axis has, which alone it varies along.
bool is_row(const Constant* constant, int64_t size) {
  return constant != nullptr && !constant->shape.empty() && constant->shape.back() == size &&
         count_of(constant->shape) == size;
}

ValueId row_of(Graph& graph, const Constant& constant) {
  Numbers numbers = constant.numbers();
  numbers.shape = {numbers.count()};
  return graph.add_constant("", constant_of(numbers));
}

// (x - m) / s, times a row, plus a row. Without these nothing is gained.
bool find_layer_normalization(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const Node& sum = graph.node(id);
  if (sum.op != "Add") return false;
  const auto scaled = tensor_beside_constant(graph, sum);
  const NodeId product_id = scaled ? source_by(graph, sum, *scaled, "Mul") : kAbsent;
  if (product_id == kAbsent) return false;
  const Node& product = graph.node(product_id);
  const auto quotient = tensor_beside_constant(graph, product);
  const NodeId div = quotient ? source_by(graph, product, *quotient, "Div") : kAbsent;
  if (div == kAbsent) return false;
  const auto place = static_cast<size_t>(graph.node(div).outputs[0]);
  const auto* shape = place < facts.size() && facts[place].shape ? &*facts[place].shape : nullptr;
  if (shape == nullptr || shape->empty() || !shape->back().known()) return false;
  const auto found = normalized(graph, graph.node(div), shape->size());
  const Constant* scale = constant_input(graph, product, 1 - *quotient);
  const Constant* shift = constant_input(graph, sum, 1 - *scaled);
  const int64_t size = shape->back().size;
  if (!found || !is_row(scale, size) || !is_row(shift, size)) return false;
  if (!have_same_axes(facts, found->x, sum.outputs[0])) return false;
  const Constant copies[] = {*scale, *shift};
  Node node = node_like(sum, "LayerNormalization",
                        {found->x, row_of(graph, copies[0]), row_of(graph, copies[1])});
  node.attributes["axis"] = int64_t{-1};
  node.attributes["epsilon"] = found->epsilon;
  put(graph, id, std::move(node));
  return true;
}

}  // namespace

bool find_gelus(Graph& graph) { return everywhere<find_gelu>(graph); }

bool find_layer_normalizations(Graph& graph) { return everywhere<find_layer_normalization>(graph); }

}  // namespace marlo::toolkit
