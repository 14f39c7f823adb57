#include "qrt_toolkit/shapes/infer.h"

#include <algorithm>
#include <utility>

#include "qrt_toolkit/evaluate/evaluate.h"

namespace marlo::toolkit {
namespace {

/// A constant's numbers are made when a rule may ask for them, which is not for weights.
Facts facts_of(const Value& value) {
  Facts facts{value.type, value.shape, nullptr};
  if (value.constant) {
    facts.type = value.constant->type;
    facts.shape = shape_of(value.constant->shape);
    const auto count = count_of(value.constant->shape);
    if (count && *count <= kMostFolded) {
      facts.numbers = std::make_shared<const Numbers>(value.constant->numbers());
    }
  }
  return facts;
}

/// A shape that two sources tell of; the more exact sizes of both.
std::optional<Shape> merged(const std::optional<Shape>& inferred,
                            const std::optional<Shape>& stated) {
  if (!inferred) return stated;
  if (!stated || stated->size() != inferred->size()) return inferred;
  Shape shape = *inferred;
  for (size_t i = 0; i < shape.size(); ++i) {
    if (!shape[i].known() && ((*stated)[i].known() || shape[i].symbol.empty())) {
      shape[i] = (*stated)[i];
    }
  }
  return shape;
}

class Inference {
 public:
  explicit Inference(const Graph& graph) : graph_(graph), facts_(graph.value_count()) {
    for (size_t i = 0; i < facts_.size(); ++i) {
      const Value& value = graph.value(static_cast<ValueId>(i));
      if (value.producer == kAbsent) facts_[i] = facts_of(value);
    }
  }

  void set(ValueId id, Facts facts) { facts_[static_cast<size_t>(id)] = std::move(facts); }

  std::vector<Facts> run() {
    for (const NodeId id : graph_.order()) {
      const Node& node = graph_.node(id);
      try {
        infer(node);
      } catch (const NodeFault& fault) {
        refusals_.push_back(refusal_of(node, fault));
      } catch (const UnsupportedError& error) {
        refusals_.insert(refusals_.end(), error.refusals().begin(), error.refusals().end());
      }
    }
    if (!refusals_.empty()) throw UnsupportedError(std::move(refusals_));
    return std::move(facts_);
  }

 private:
  const Facts& known(ValueId id) const { return facts_[static_cast<size_t>(id)]; }

  void infer(const Node& node) {
    const Operator& row = row_of(node);
    std::vector<Facts> inputs;
    for (const ValueId id : node.inputs) inputs.push_back(id == kAbsent ? Facts() : known(id));
    std::vector<Facts> outputs;
    if (row.infer == nullptr) {
      outputs = infer_branches(node);
    } else {
      ShapeStep step(node, inputs);
      row.infer(step);
      outputs = std::move(step.outputs);
      fold(node, row, inputs, outputs);
    }
    for (size_t i = 0; i < node.outputs.size() && i < outputs.size(); ++i) {
      if (node.outputs[i] == kAbsent) continue;
      const Value& value = graph_.value(node.outputs[i]);
      outputs[i].shape = merged(outputs[i].shape, value.shape);
      if (outputs[i].type == ElementType::undefined) outputs[i].type = value.type;
      set(node.outputs[i], std::move(outputs[i]));
    }
  }

  /// The numbers of the outputs, where all that they are made of is known and they are few.
  static void fold(const Node& node, const Operator& row, const std::vector<Facts>& inputs,
                   std::vector<Facts>& outputs) {
    std::vector<const Numbers*> numbers;
    for (size_t i = 0; i < inputs.size(); ++i) {
      if (node.has_input(i) && inputs[i].numbers == nullptr) return;
      numbers.push_back(inputs[i].numbers.get());
    }
    for (const Facts& output : outputs) {
      const auto extents = output.shape ? extents_of(*output.shape) : std::nullopt;
      const auto count = extents ? count_of(*extents) : std::nullopt;
      if (count && *count > kMostFolded) return;
    }
    Results results = row.evaluate(node, Operands(std::move(numbers)));
    for (size_t i = 0; i < outputs.size() && i < results.size(); ++i) {
      outputs[i].type = results[i].type;
      outputs[i].shape = shape_of(results[i].shape);
      outputs[i].numbers = std::make_shared<const Numbers>(std::move(results[i]));
    }
  }

  std::vector<Facts> infer_branch(const Graph& branch) const {
    std::vector<Facts> captured;
    for (const Capture& capture : branch.captures) captured.push_back(known(capture.outer));
    const std::vector<Facts> facts = infer_facts(branch, captured);
    std::vector<Facts> outputs;
    for (const ValueId id : branch.outputs) outputs.push_back(facts[static_cast<size_t>(id)]);
    return outputs;
  }

  /// If: the branch that a constant chooses, or what both have in common.
  std::vector<Facts> infer_branches(const Node& node) const {
    if (!node.has_input(0)) throw NodeFault{"inputs", "expected one condition"};
    const SharedNumbers& condition = known(node.inputs[0]).numbers;
    if (condition != nullptr && condition->count() == 1) {
      return infer_branch(node.graph(condition->integer(0) != 0 ? "then_branch" : "else_branch"));
    }
    std::vector<Facts> results = infer_branch(node.graph("then_branch"));
    const std::vector<Facts> others = infer_branch(node.graph("else_branch"));
    for (size_t i = 0; i < results.size(); ++i) {
      results[i].numbers = nullptr;
      if (i >= others.size()) continue;
      if (results[i].type != others[i].type) results[i].type = ElementType::undefined;
      std::optional<Shape>& shape = results[i].shape;
      const std::optional<Shape>& other = others[i].shape;
      if (!shape || !other || shape->size() != other->size()) {
        shape.reset();
        continue;
      }
      for (size_t k = 0; k < shape->size(); ++k) {
        if (!(*shape)[k].same_as((*other)[k])) (*shape)[k] = Dimension();
      }
    }
    return results;
  }

  const Graph& graph_;
  std::vector<Facts> facts_;
  std::vector<Refusal> refusals_;
};

}  // namespace

std::vector<Facts> infer_facts(const Graph& graph) { return Inference(graph).run(); }

std::vector<Facts> infer_facts(const Graph& graph, const std::vector<Facts>& captured) {
  Inference inference(graph);
  for (size_t i = 0; i < captured.size() && i < graph.captures.size(); ++i) {
    inference.set(graph.captures[i].inner, captured[i]);
  }
  return inference.run();
}

void infer_shapes(Graph& graph) {
  const std::vector<Facts> facts = infer_facts(graph);
  for (size_t i = 0; i < facts.size(); ++i) {
    Value& value = graph.value(static_cast<ValueId>(i));
    value.type = facts[i].type;
    value.shape = facts[i].shape;
  }
}

}  // namespace marlo::toolkit
