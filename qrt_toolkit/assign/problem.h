#pragma once

#include <vector>

#include "qrt_toolkit/assign/candidates.h"
#include "qrt_toolkit/assign/costs.h"
#include "qrt_toolkit/assign/optimiser.h"
#include "qrt_toolkit/assign/reference.h"

// A network with its candidates as a problem for the optimiser.

namespace marlo::toolkit {

/// One way to run a layer, with its kernel.
struct Option {
  Candidate candidate;
  /// The layer's description as the kernel reads it.
  std::shared_ptr<runtime::LayerInfo> info;
  /// Brings what the kernel makes into the layout that the caller gets; empty for none.
  std::string output_converter;
  double cost = 0;  ///< of both
};

/// A layer's ways to run, and the forms of its result.
struct LayerOptions {
  std::vector<Form> forms;      ///< the first is that of the reference
  std::vector<Option> options;  ///< the first is the reference's kernel
  /// The cheapest converter from one form to another, [from][to]; empty where there is none.
  std::vector<std::vector<std::string>> converters;
};

/// What the optimiser is told that a layer's own kernel costs more where it needs instructions that
/// aren't allowed: it stays only where nothing else computes the same.
constexpr double kBeyondSet = 1e9;

/// A network's layers with their options, and the same for the optimiser: choice c of layer v is
/// option c of it.
struct Problem {
  std::vector<ReferenceLayer> layers;
  std::vector<LayerOptions> options;
  std::vector<ChoiceLayer> graph;
};

/// A network on inputs of one size.
struct SizedNetwork {
  std::vector<ReferenceLayer> layers;
  double weight = 1;  ///< what its costs are multiplied with
};

/// Collects candidates and their costs.
Problem make_problem(std::vector<ReferenceLayer> layers, CandidateFinder& finder, Costs& costs);

/// The same for one network on inputs of several sizes: what runs on all of them, at the sum of the
/// weighted costs. Layers, forms and candidates of the result are those of the first size.
/// @param sizes at least one
/// @throws std::invalid_argument where a layer's own kernel stands in other layouts on other sizes
Problem make_problem(std::vector<SizedNetwork> sizes, CandidateFinder& finder, Costs& costs);

}  // namespace marlo::toolkit
