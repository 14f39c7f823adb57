#include "qrt_toolkit/evaluate/evaluate.h"

#include <utility>

#include "qrt_toolkit/operators/unsupported.h"

namespace marlo::toolkit {
namespace {

/// The values of a graph while it runs.
class Run {
 public:
  Run(const Graph& graph, const Watch& watch)
      : graph_(graph), watch_(watch), values_(graph.value_count()), waiting_(graph.value_count()) {
    for (size_t i = 0; i < waiting_.size(); ++i) {
      waiting_[i] = graph.value(static_cast<ValueId>(i)).readers.size();
    }
    for (const ValueId output : graph.outputs) ++waiting_[static_cast<size_t>(output)];
  }

  void set(ValueId id, SharedNumbers numbers) {
    if (id == kAbsent) return;
    if (watch_) watch_(id, numbers);
    if (waiting_[static_cast<size_t>(id)] != 0)
      values_[static_cast<size_t>(id)] = std::move(numbers);
  }

  /// A value for a reader; constants of the file get their numbers here, not before.
  SharedNumbers get(ValueId id) {
    SharedNumbers& numbers = values_[static_cast<size_t>(id)];
    const Value& value = graph_.value(id);
    if (numbers == nullptr && value.constant) {
      numbers = std::make_shared<const Numbers>(value.constant->numbers());
    }
    if (numbers == nullptr) {
      throw NodeFault{"inputs", "the tensor \"" + value.name + "\" has no numbers"};
    }
    return numbers;
  }

  /// A reader has run.
  void release(ValueId id) {
    if (--waiting_[static_cast<size_t>(id)] == 0) values_[static_cast<size_t>(id)] = nullptr;
  }

  void run(const Node& node) {
    std::vector<SharedNumbers> held;
    std::vector<SharedNumbers> results;
    if (node.op == "If") {
      results = choose(node);
    } else {
      std::vector<const Numbers*> inputs;
      for (const ValueId id : node.inputs) {
        held.push_back(id == kAbsent ? nullptr : get(id));
        inputs.push_back(held.back().get());
      }
      for (Numbers& numbers : evaluate_node(node, inputs)) {
        results.push_back(std::make_shared<const Numbers>(std::move(numbers)));
      }
    }
    for (const ValueId id : graph_.reads(node)) release(id);
    for (size_t i = 0; i < node.outputs.size(); ++i) {
      if (node.outputs[i] == kAbsent) continue;
      if (i >= results.size()) throw NodeFault{"outputs", "there are too many"};
      set(node.outputs[i], results[i]);
    }
  }

 private:
  std::vector<SharedNumbers> choose(const Node& node) {
    if (node.inputs.size() != 1 || node.inputs[0] == kAbsent) {
      throw NodeFault{"inputs", "expected one condition"};
    }
    const SharedNumbers condition = get(node.inputs[0]);
    if (condition->count() != 1) throw NodeFault{"input 0", "expected one number"};
    const Graph& branch = node.graph(condition->integer(0) != 0 ? "then_branch" : "else_branch");
    std::vector<SharedNumbers> captured;
    for (const Capture& capture : branch.captures) captured.push_back(get(capture.outer));
    return evaluate_graph(branch, {}, captured);
  }

  const Graph& graph_;
  const Watch& watch_;
  std::vector<SharedNumbers> values_;
  std::vector<size_t> waiting_;  // readers that haven't run yet
};

}  // namespace

const Operator& row_of(const Node& node) {
  const Operator* row = find_operator(node.op);
  if (row == nullptr) throw unsupported(node);
  if (node.opset < row->since) {
    throw NodeFault{"", "the operator is read from opset " + std::to_string(row->since) + " on",
                    "export the model with a newer opset"};
  }
  return *row;
}

Results evaluate_node(const Node& node, const std::vector<const Numbers*>& inputs) {
  return with_node(node, [&] {
    const Operator& row = row_of(node);
    if (row.evaluate == nullptr) throw NodeFault{"", "it holds graphs and can't run alone"};
    return row.evaluate(node, Operands(inputs));
  });
}

std::vector<SharedNumbers> evaluate_graph(const Graph& graph,
                                          const std::vector<SharedNumbers>& inputs,
                                          const std::vector<SharedNumbers>& captured,
                                          const Watch& watch) {
  if (inputs.size() != graph.inputs.size() || captured.size() != graph.captures.size()) {
    throw FileError("the graph \"" + graph.name + "\" takes " +
                    std::to_string(graph.inputs.size()) + " inputs and " +
                    std::to_string(graph.captures.size()) + " outer tensors, not " +
                    std::to_string(inputs.size()) + " and " + std::to_string(captured.size()));
  }
  Run run(graph, watch);
  for (size_t i = 0; i < inputs.size(); ++i) run.set(graph.inputs[i], inputs[i]);
  for (size_t i = 0; i < captured.size(); ++i) run.set(graph.captures[i].inner, captured[i]);
  for (const NodeId id : graph.order()) {
    const Node& node = graph.node(id);
    with_node(node, [&] { run.run(node); });
  }
  std::vector<SharedNumbers> outputs;
  for (const ValueId output : graph.outputs) {
    try {
      outputs.push_back(run.get(output));
    } catch (const NodeFault& fault) {
      throw FileError(fault.why);
    }
  }
  return outputs;
}

}  // namespace marlo::toolkit
