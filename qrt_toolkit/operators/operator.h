#pragma once

#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "qrt_toolkit/graph/graph.h"

// The table of operators: what each one means, and what is known of its outputs beforehand.

namespace marlo::toolkit {

/// The inputs of a node when it is computed; null where an optional one isn't given.
class Operands {
 public:
  explicit Operands(std::vector<const Numbers*> numbers) : numbers_(std::move(numbers)) {}

  size_t size() const noexcept { return numbers_.size(); }
  bool has(size_t place) const { return place < size() && numbers_[place] != nullptr; }

  /// Throws NodeFault where the input is missing.
  const Numbers& operator[](size_t place) const;

  /// The numbers of an input, or `otherwise` where it isn't given.
  Numbers::Integers integers(size_t place, Numbers::Integers otherwise) const;

 private:
  std::vector<const Numbers*> numbers_;
};

using Results = std::vector<Numbers>;

/// What is known of a tensor before anything runs.
struct Facts {
  ElementType type = ElementType::undefined;
  std::optional<Shape> shape;
  SharedNumbers numbers;  ///< null unless it is a constant
};

/// A node when shapes are inferred: what is known of its inputs, and what gets known of its
/// outputs.
class ShapeStep {
 public:
  ShapeStep(const Node& of, std::vector<Facts> known_inputs)
      : node(of), inputs(std::move(known_inputs)), outputs(of.outputs.size()) {}

  const Node& node;
  std::vector<Facts> inputs;
  std::vector<Facts> outputs;

  bool has(size_t place) const { return node.has_input(place); }

  /// Throws NodeFault where the input is missing.
  const Facts& input(size_t place) const;

  /// The shape of an input, null if not even its number of axes is known.
  const Shape* shape(size_t place) const;

  /// The integers of a constant input; nothing if it isn't known. `otherwise` where the input isn't
  /// given.
  std::optional<Numbers::Integers> integers(size_t place,
                                            std::optional<Numbers::Integers> otherwise = {}) const;

  /// States an output. Nothing happens when the node doesn't have it.
  void set(size_t place, ElementType type, std::optional<Shape> shape = std::nullopt);
};

/// One row of the table.
struct Operator {
  std::string_view name;
  int since;  ///< the first operator set whose meaning is read; all later ones are, up to
              ///< kLastOpset
  /// The plain definition: what the outputs are. Computes in double precision, calls no kernel.
  Results (*evaluate)(const Node&, const Operands&);
  /// Types and shapes of the outputs, as far as they follow from the inputs'.
  void (*infer)(ShapeStep&);
  std::string_view limits = {};  ///< what isn't computed, in words
};

/// The newest operator set that is read.
inline constexpr int kLastOpset = 22;

/// The row of an operator; null for one that isn't in the table.
const Operator* find_operator(std::string_view name);

/// All rows, by name.
std::span<const Operator> all_operators();

}  // namespace marlo::toolkit
