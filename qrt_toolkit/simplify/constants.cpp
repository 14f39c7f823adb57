#include <algorithm>
#include <utility>

#include "qrt_toolkit/evaluate/evaluate.h"
#include "qrt_toolkit/shapes/infer.h"
#include "qrt_toolkit/simplify/simplify.h"

namespace marlo::toolkit {
namespace {

void make_constant(Graph& graph, ValueId id, const Numbers& numbers) {
  Value& value = graph.value(id);
  value.constant = constant_of(numbers);
  value.type = numbers.type;
  value.shape = shape_of(numbers.shape);
}

/// Whether all that a node reads is in the file or was computed from it.
bool reads_constants_only(const Graph& graph, const Node& node) {
  for (const ValueId id : graph.reads(node)) {
    if (!graph.value(id).constant) return false;
  }
  return true;
}

/// Whether a node would make more numbers than `most`, and than it reads.
bool grows_beyond(const Graph& graph, const Node& node, const std::vector<Facts>& facts,
                  int64_t most) {
  int64_t read = 0;
  for (const ValueId id : graph.reads(node)) {
    read += count_of(graph.value(id).constant->shape).value_or(0);
  }
  for (const ValueId id : node.outputs) {
    if (id == kAbsent) continue;
    const auto& shape = facts[static_cast<size_t>(id)].shape;
    const auto sizes = shape ? extents_of(*shape) : std::nullopt;
    if (sizes && count_of(*sizes).value_or(Numbers::kMostElements) > std::max(most, read)) {
      return true;
    }
  }
  return false;
}

/// The node's outputs from its constant inputs.
void evaluate_into(Graph& graph, NodeId id) {
  const Node& node = graph.node(id);
  std::vector<Numbers> held;
  held.reserve(node.inputs.size());
  std::vector<const Numbers*> inputs;
  for (const ValueId input : node.inputs) {
    inputs.push_back(nullptr);
    if (input == kAbsent) continue;
    held.push_back(graph.value(input).constant->numbers());
    inputs.back() = &held.back();
  }
  const Results results = evaluate_node(node, inputs);
  const std::vector<ValueId> outputs = node.outputs;
  graph.remove_node(id);
  for (size_t i = 0; i < outputs.size() && i < results.size(); ++i) {
    if (outputs[i] != kAbsent) make_constant(graph, outputs[i], results[i]);
  }
}

}  // namespace

bool fold_constants(Graph& graph, int64_t most) {
  bool changed = false;
  const std::vector<Facts> facts = infer_facts(graph);
  for (const NodeId id : graph.order()) {
    const Node& node = graph.node(id);
    bool known = true;
    for (const ValueId output : node.outputs) {
      known = known && (output == kAbsent || facts[static_cast<size_t>(output)].numbers != nullptr);
    }
    if (known) {
      // Shapes are known without their tensors' numbers.
      const std::vector<ValueId> outputs = node.outputs;
      graph.remove_node(id);
      for (const ValueId output : outputs) {
        if (output != kAbsent) {
          make_constant(graph, output, *facts[static_cast<size_t>(output)].numbers);
        }
      }
      changed = true;
    } else if (node.op != "If" && reads_constants_only(graph, node) &&
               !grows_beyond(graph, node, facts, most)) {
      evaluate_into(graph, id);
      changed = true;
    }
  }
  return changed;
}

}  // namespace marlo::toolkit
