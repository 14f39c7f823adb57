#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// The cheapest way to run a graph whose layers can each run in several ways, and whose tensors can
// each stand in several forms. Nothing here knows what a kernel or a layout is.

namespace marlo::toolkit {

/// A form of a tensor, by its place among the forms of that tensor.
using FormIndex = uint16_t;

/// So many forms a tensor may have.
constexpr size_t kMostForms = 6;

/// One way to run a layer.
struct Choice {
  std::vector<FormIndex> inputs;  ///< per input position: the form that is read
  FormIndex output = 0;           ///< the form that is made
  double cost = 0;                ///< not negative
};

/// One layer with its result.
struct ChoiceLayer {
  std::vector<size_t> inputs;   ///< the layers that it reads; all stand before it
  std::vector<Choice> choices;  ///< the ways to run it
  /// What a converter costs from one form of the result to another, [from][to]; infinity where there
  /// is none. Its size is the number of forms.
  std::vector<std::vector<double>> conversions{{0}};
};

/// A converter of a layer's result.
struct Conversion {
  FormIndex from = 0;
  FormIndex to = 0;
};

/// One way to run the graph.
struct Assignment {
  std::vector<size_t> choices;                      ///< per layer, an index of its choices
  std::vector<std::vector<Conversion>> converters;  ///< per layer, in the order of their use
  double cost = 0;       ///< of all choices, and of each converter once however many layers read it
  bool is_exact = true;  ///< whether it is proved that nothing is cheaper
};

/// Finds the cheapest assignment: choices whose inputs' forms all exist, made by the layer itself or
/// by a converter.
///
/// Goes through the layers in order and keeps, for each combination of forms that the tensors still
/// to be read may stand in, the cheapest way to get there. A combination is dropped where another
/// one is cheaper even with the converters that it lacks. Deterministic: between equals the first
/// choice wins.
///
/// @param most_combinations so many are kept at each layer; where there were more, the result is the
///   best of those that were kept, and not proved
/// @throws std::invalid_argument for a layer that reads a later one, has no choice or too many
///   forms, or for a graph that can't run for want of a converter
Assignment cheapest_assignment(const std::vector<ChoiceLayer>& layers,
                               size_t most_combinations = 2000);

}  // namespace marlo::toolkit
