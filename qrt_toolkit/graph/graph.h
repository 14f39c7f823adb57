#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qrt_toolkit/graph/node.h"
#include "qrt_toolkit/graph/shape.h"

namespace marlo::toolkit {

/// A tensor of the graph.
struct Value {
  std::string name;  ///< unique in its graph; may be empty for ours
  ElementType type = ElementType::undefined;
  std::optional<Shape> shape;        ///< nothing when not even the number of axes is known
  std::optional<Constant> constant;  ///< its numbers, for a tensor of the file
  NodeId producer = kAbsent;         ///< the node that makes it; none for inputs and constants
  std::vector<NodeId> readers;       ///< nodes that read it, once per place where they do
};

/// A value of an outer graph that a nested one reads.
struct Capture {
  ValueId outer;  ///< in the graph that holds the node with the nested graph
  ValueId inner;  ///< its name in the nested graph
};

/// Nodes and the values between them, and the edits that keep both ends of every edge together.
/// A plain value type: copies are independent, but share constants and nested graphs. References to
/// values and nodes stay good while others are added; that to a node, until it is removed.
class Graph {
 public:
  std::string name;
  std::vector<ValueId> inputs;    ///< what the caller gives
  std::vector<ValueId> outputs;   ///< what the caller gets; a value may stand here twice
  std::vector<Capture> captures;  ///< of a nested graph

  /// Adds a value that nothing makes yet.
  ValueId add_value(std::string value_name, ElementType type = ElementType::undefined,
                    std::optional<Shape> shape = std::nullopt);

  /// Adds a value with its numbers.
  ValueId add_constant(std::string value_name, Constant constant);

  /// Adds a node behind those that are there. Its outputs must not have a producer yet.
  NodeId add_node(Node node);

  /// Takes a node away. Its outputs stay, without a producer.
  void remove_node(NodeId node);

  /// Lets a node read another value in one place; `kAbsent` for none.
  void set_input(NodeId node, size_t place, ValueId value);

  /// Lets all that read `from`, the graph's outputs among them, read `to`.
  void replace(ValueId from, ValueId to);

  Value& value(ValueId id) { return values_.at(static_cast<size_t>(id)); }
  const Value& value(ValueId id) const { return values_.at(static_cast<size_t>(id)); }
  Node& node(NodeId id) { return *nodes_.at(static_cast<size_t>(id)); }
  const Node& node(NodeId id) const { return *nodes_.at(static_cast<size_t>(id)); }

  /// Whether a node that was added is still there.
  bool has_node(NodeId id) const { return nodes_.at(static_cast<size_t>(id)).has_value(); }

  /// The number of values, counted with those that nothing reads any more.
  size_t value_count() const noexcept { return values_.size(); }

  /// The nodes so that each stands behind those that it reads from, otherwise in the order in which
  /// they were added. Throws FileError where nodes read from one another in a circle.
  std::vector<NodeId> order() const;

  /// All that a node reads: its inputs, and what its nested graphs capture.
  std::vector<ValueId> reads(const Node& node) const;

  /// Whether the caller gets the value.
  bool is_output(ValueId id) const;

  /// Whether nothing reads the value and it is no output.
  bool is_unused(ValueId id) const;

 private:
  void connect(NodeId id);
  void disconnect(NodeId id);

  // Growing at the end, they leave the references to their elements as they are.
  std::deque<Value> values_;
  std::deque<std::optional<Node>> nodes_;  // nothing in the place of a removed one
};

}  // namespace marlo::toolkit
