#include "qrt_toolkit/graph/graph.h"

#include <algorithm>
#include <functional>
#include <queue>
#include <utility>

namespace marlo::toolkit {
namespace {

const Graph* nested_graph(const Attribute& attribute) {
  const auto* graph = std::get_if<std::shared_ptr<Graph>>(&attribute);
  return graph == nullptr ? nullptr : graph->get();
}

}  // namespace

ValueId Graph::add_value(std::string value_name, ElementType type, std::optional<Shape> shape) {
  Value value;
  value.name = std::move(value_name);
  value.type = type;
  value.shape = std::move(shape);
  values_.push_back(std::move(value));
  return static_cast<ValueId>(values_.size() - 1);
}

ValueId Graph::add_constant(std::string value_name, Constant constant) {
  const ValueId id = add_value(std::move(value_name), constant.type, shape_of(constant.shape));
  value(id).constant = std::move(constant);
  return id;
}

NodeId Graph::add_node(Node new_node) {
  nodes_.emplace_back(std::move(new_node));
  const auto id = static_cast<NodeId>(nodes_.size() - 1);
  for (const ValueId output : node(id).outputs) {
    if (output != kAbsent) value(output).producer = id;
  }
  connect(id);
  return id;
}

void Graph::remove_node(NodeId id) {
  disconnect(id);
  for (const ValueId output : node(id).outputs) {
    if (output != kAbsent && value(output).producer == id) value(output).producer = kAbsent;
  }
  nodes_[static_cast<size_t>(id)].reset();
}

void Graph::set_input(NodeId id, size_t place, ValueId to) {
  disconnect(id);
  Node& changed = node(id);
  if (place >= changed.inputs.size()) changed.inputs.resize(place + 1, kAbsent);
  changed.inputs[place] = to;
  connect(id);
}

void Graph::replace(ValueId from, ValueId to) {
  std::vector<NodeId> readers = value(from).readers;
  std::sort(readers.begin(), readers.end());
  readers.erase(std::unique(readers.begin(), readers.end()), readers.end());
  for (const NodeId id : readers) {
    disconnect(id);
    Node& reader = node(id);
    std::replace(reader.inputs.begin(), reader.inputs.end(), from, to);
    for (auto& [key, attribute] : reader.attributes) {
      if (nested_graph(attribute) == nullptr) continue;
      // Nested graphs are shared between copies of this one, so the change is made in a copy.
      auto nested = std::make_shared<Graph>(*nested_graph(attribute));
      for (Capture& capture : nested->captures) {
        if (capture.outer == from) capture.outer = to;
      }
      attribute = std::move(nested);
    }
    connect(id);
  }
  std::replace(outputs.begin(), outputs.end(), from, to);
}

std::vector<ValueId> Graph::reads(const Node& reader) const {
  std::vector<ValueId> ids;
  for (const ValueId id : reader.inputs) {
    if (id != kAbsent) ids.push_back(id);
  }
  for (const auto& [key, attribute] : reader.attributes) {
    if (const Graph* nested = nested_graph(attribute)) {
      for (const Capture& capture : nested->captures) ids.push_back(capture.outer);
    }
  }
  return ids;
}

bool Graph::is_output(ValueId id) const {
  return std::find(outputs.begin(), outputs.end(), id) != outputs.end();
}

bool Graph::is_unused(ValueId id) const { return value(id).readers.empty() && !is_output(id); }

void Graph::connect(NodeId id) {
  for (const ValueId read : reads(node(id))) value(read).readers.push_back(id);
}

void Graph::disconnect(NodeId id) {
  for (const ValueId read : reads(node(id))) {
    std::vector<NodeId>& readers = value(read).readers;
    readers.erase(std::find(readers.begin(), readers.end(), id));
  }
}

std::vector<NodeId> Graph::order() const {
  std::vector<size_t> waits_for(nodes_.size(), 0);
  std::priority_queue<NodeId, std::vector<NodeId>, std::greater<>> ready;
  size_t count = 0;
  for (size_t i = 0; i < nodes_.size(); ++i) {
    if (!nodes_[i]) continue;
    ++count;
    for (const ValueId read : reads(*nodes_[i])) {
      if (value(read).producer != kAbsent) ++waits_for[i];
    }
    if (waits_for[i] == 0) ready.push(static_cast<NodeId>(i));
  }
  std::vector<NodeId> ordered;
  while (!ready.empty()) {
    const NodeId id = ready.top();
    ready.pop();
    ordered.push_back(id);
    for (const ValueId output : node(id).outputs) {
      if (output == kAbsent || value(output).producer != id) continue;
      for (const NodeId reader : value(output).readers) {
        if (--waits_for[static_cast<size_t>(reader)] == 0) ready.push(reader);
      }
    }
  }
  if (ordered.size() == count) return ordered;
  std::vector<Refusal> circle;
  for (size_t i = 0; i < nodes_.size(); ++i) {
    if (!nodes_[i] || waits_for[i] == 0) continue;
    circle.push_back(refusal_of(
        *nodes_[i], {"inputs", "the node reads what is made of its own outputs, in a circle"}));
  }
  throw FileError(std::move(circle));
}

}  // namespace marlo::toolkit
