#include <algorithm>
#include <utility>

#include "qrt_toolkit/simplify/match.h"
#include "qrt_toolkit/simplify/simplify.h"

// Recurrent layers that no kernel has become the products and sums of their steps.

namespace marlo::toolkit {
namespace {

/// What a layer of many steps would become is longer than it is worth.
constexpr int64_t kMostSteps = 128;

/// Whether a constant is one of zeros; null is none.
bool is_zero(const Constant* constant) {
  if (constant == nullptr) return false;
  const Numbers numbers = constant->numbers();
  return std::all_of(numbers.reals().begin(), numbers.reals().end(),
                     [](double number) { return number == 0; });
}

/// The matrices of one direction, laid for products with rows, and one row of biases.
struct Gates {
  ValueId of_input;
  ValueId of_state;
  ValueId bias;
};

/// Writes a GRU whose reset stands in front of the product with its state.
class Unrolling {
 public:
  Unrolling(Graph& graph, const Node& gru, int64_t steps, int64_t hidden)
      : graph_(graph),
        gru_(gru),
        steps_(steps),
        hidden_(hidden),
        w_(constant_input(graph, gru, 1)->numbers()),
        r_(constant_input(graph, gru, 2)->numbers()) {
    if (gru.has_input(3)) b_ = constant_input(graph, gru, 3)->numbers();
  }

  void run(NodeId id) {
    const auto directions = static_cast<size_t>(w_.shape[0]);
    const bool is_reverse = gru_.text("direction", "forward") == "reverse";
    std::vector<ValueId> sequences;
    std::vector<ValueId> lasts;
    for (size_t direction = 0; direction < directions; ++direction) {
      std::vector<ValueId> states = states_of(direction, is_reverse || direction == 1);
      lasts.push_back(states.back());
      if (is_reverse || direction == 1) std::reverse(states.begin(), states.end());
      const ValueId rows = add("Concat", states, {{"axis", int64_t{0}}});
      sequences.push_back(add("Unsqueeze", {rows, list({1})}));
    }
    graph_.remove_node(id);
    finish(0, sequences, 1);
    finish(1, lasts, 0);
  }

 private:
  ValueId add(const std::string& op, std::vector<ValueId> inputs,
              std::map<std::string, Attribute> attributes = {}) {
    Node node = node_like(gru_, op.c_str(), std::move(inputs));
    node.attributes = std::move(attributes);
    node.outputs = {graph_.add_value("", ElementType::float32)};
    const ValueId made = node.outputs[0];
    graph_.add_node(std::move(node));
    return made;
  }

  ValueId list(std::vector<int64_t> numbers) {
    return graph_.add_constant("", constant_of(Numbers::integers_1d(std::move(numbers))));
  }

  void finish(size_t place, std::vector<ValueId> parts, int64_t axis) {
    if (!gru_.has_output(place)) return;
    Node joined = node_like(gru_, "Concat", std::move(parts));
    joined.attributes["axis"] = axis;
    replace_output(graph_, gru_.outputs[place], std::move(joined));
  }

  /// Rows [first, first + count) of a direction's gates, as columns.
  ValueId columns(const Numbers& numbers, size_t direction, int64_t first, int64_t count) {
    const int64_t width = numbers.shape[2];
    Numbers made(ElementType::float32, {width, count});
    const int64_t begin = (static_cast<int64_t>(direction) * numbers.shape[1] + first) * width;
    for (int64_t row = 0; row < count; ++row) {
      for (int64_t column = 0; column < width; ++column) {
        made.reals()[static_cast<size_t>(column * count + row)] =
            numbers.real(static_cast<size_t>(begin + row * width + column));
      }
    }
    return graph_.add_constant("", constant_of(made));
  }

  Gates gates(size_t direction, int64_t first, int64_t count) {
    Numbers bias(ElementType::float32, {count});
    for (int64_t i = 0; i < count && b_.count() != 0; ++i) {
      const int64_t of_input = static_cast<int64_t>(direction) * 6 * hidden_ + first + i;
      bias.reals()[static_cast<size_t>(i)] = b_.real(static_cast<size_t>(of_input)) +
                                             b_.real(static_cast<size_t>(of_input + 3 * hidden_));
    }
    return {columns(w_, direction, first, count), columns(r_, direction, first, count),
            graph_.add_constant("", constant_of(bias))};
  }

  /// What the whole sequence contributes to some gates, step by step.
  std::vector<ValueId> from_input(const Gates& gates) {
    const ValueId product = add("MatMul", {gru_.inputs[0], gates.of_input});
    const ValueId sum = add("Add", {product, gates.bias});
    if (steps_ == 1) return {sum};
    Node split =
        node_like(gru_, "Split", {sum, list(std::vector<int64_t>(static_cast<size_t>(steps_), 1))});
    split.attributes["axis"] = int64_t{0};
    for (int64_t step = 0; step < steps_; ++step) {
      split.outputs.push_back(graph_.add_value("", ElementType::float32));
    }
    std::vector<ValueId> parts = split.outputs;
    graph_.add_node(std::move(split));
    return parts;
  }

  ValueId part(ValueId row, int64_t first) {
    return add("Slice", {row, list({first}), list({first + hidden_}), list({2})});
  }

  std::string function(size_t direction, size_t which) const {
    const auto given = gru_.attributes.find("activations");
    const auto* names = given == gru_.attributes.end()
                            ? nullptr
                            : std::get_if<std::vector<std::string>>(&given->second);
    const size_t place = 2 * direction + which;
    if (names != nullptr && place < names->size()) return (*names)[place];
    return which == 0 ? "Sigmoid" : "Tanh";
  }

  ValueId initial_state(size_t direction) {
    if (!gru_.has_input(5) || is_zero(constant_input(graph_, gru_, 5))) return kAbsent;
    if (w_.shape[0] == 1) return gru_.inputs[5];
    const auto first = static_cast<int64_t>(direction);
    return add("Slice", {gru_.inputs[5], list({first}), list({first + 1}), list({0})});
  }

  /// In the order in which they come about.
  std::vector<ValueId> states_of(size_t direction, bool backwards) {
    const Gates first = gates(direction, 0, 2 * hidden_);
    const Gates second = gates(direction, 2 * hidden_, hidden_);
    std::vector<ValueId> update_and_reset = from_input(first);
    std::vector<ValueId> candidates = from_input(second);
    if (backwards) {
      std::reverse(update_and_reset.begin(), update_and_reset.end());
      std::reverse(candidates.begin(), candidates.end());
    }
    ValueId state = initial_state(direction);
    std::vector<ValueId> states;
    for (size_t step = 0; step < candidates.size(); ++step) {
      ValueId both = update_and_reset[step];
      if (state != kAbsent) both = add("Add", {both, add("MatMul", {state, first.of_state})});
      both = add(function(direction, 0), {both});
      const ValueId update = part(both, 0);
      ValueId candidate = candidates[step];
      if (state != kAbsent) {
        const ValueId kept = add("Mul", {part(both, hidden_), state});
        candidate = add("Add", {candidate, add("MatMul", {kept, second.of_state})});
      }
      candidate = add(function(direction, 1), {candidate});
      // (1 - update) candidate + update state.
      const ValueId change = state == kAbsent ? candidate : add("Sub", {candidate, state});
      state = add("Sub", {candidate, add("Mul", {update, change})});
      states.push_back(state);
    }
    return states;
  }

  Graph& graph_;
  const Node gru_;
  const int64_t steps_;
  const int64_t hidden_;
  const Numbers w_;
  const Numbers r_;
  Numbers b_;
};

bool is_plain_function(const std::string& name) {
  return name == "Sigmoid" || name == "Tanh" || name == "Relu" || name == "HardSigmoid";
}

bool has_plain_functions(const Node& node) {
  const auto given = node.attributes.find("activations");
  if (given == node.attributes.end()) return true;
  const auto* names = std::get_if<std::vector<std::string>>(&given->second);
  return names != nullptr && !node.has("activation_alpha") && !node.has("activation_beta") &&
         std::all_of(names->begin(), names->end(), is_plain_function);
}

bool unroll(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const Node node = graph.node(id);
  if (node.op != "GRU" || node.integer("linear_before_reset", 0) != 0) return false;
  const Constant* w = constant_input(graph, node, 1);
  const Constant* r = constant_input(graph, node, 2);
  const bool has_weights =
      w != nullptr && r != nullptr && (!node.has_input(3) || constant_input(graph, node, 3));
  const bool is_plain = node.integer("layout", 0) == 0 && !node.has_input(4) && !node.has("clip") &&
                        has_plain_functions(node);
  if (!has_weights || !is_plain || w->shape.size() != 3 || r->shape.size() != 3) return false;
  const int64_t hidden = r->shape[2];
  const bool fits = w->shape[1] == 3 * hidden && r->shape[1] == 3 * hidden &&
                    r->shape[0] == w->shape[0] && w->shape[0] >= 1 && w->shape[0] <= 2;
  const bool has_biases = !node.has_input(3) || count_of(constant_input(graph, node, 3)->shape) ==
                                                    w->shape[0] * 6 * hidden;
  const auto& shape = facts[static_cast<size_t>(node.inputs[0])].shape;
  if (!fits || !has_biases || !shape || shape->size() != 3) return false;
  const Dimension steps = (*shape)[0];
  if (steps.size < 1 || steps.size > kMostSteps) return false;
  Unrolling(graph, node, steps.size, hidden).run(id);
  return true;
}

}  // namespace

bool unroll_recurrences(Graph& graph) { return everywhere<unroll>(graph); }

}  // namespace marlo::toolkit
