#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_core/utility/export.h"
#include "qrt_toolkit/assign/costs.h"
#include "qrt_toolkit/assign/kernel_set.h"

// Gives the layers of a model other kernels, and its tensors other layouts.

namespace marlo::toolkit {

/// What may be chosen. Plain data.
struct AssignOptions {
  /// The kernels to choose from; see `processor_kernels`. Those that the model names stay out as well
  /// where they need more.
  KernelSet set = KernelSet::sse;
  /// How far a kernel's results may be from those of the one that it replaces, over the largest of
  /// them; 0 for the same bits.
  double tolerance = 1e-4;
  /// Shapes of the network's inputs by layer id.
  std::map<std::string, runtime::TensorShape> inputs;
  std::string network;  ///< its id; the model's only one if empty
};

/// What was chosen for one layer. Plain data.
struct AssignedLayer {
  std::string id;
  std::string before;      ///< the kernel that the layer had
  std::string kernel;      ///< the kernel that it has
  size_t candidates = 0;   ///< so many ways to run it there were
  double cost = 0;         ///< in the unit of the costs, without converters
  double cost_before = 0;  ///< of the kernel that it had, in the layout that it had
};

/// What became of a network. Plain data.
struct AssignReport {
  std::vector<AssignedLayer> layers;              ///< in execution order, without new ones
  std::map<std::string, std::string> converters;  ///< new layers, and whose result each converts
  double cost = 0;                                ///< of the whole network, converters included
  bool is_exact = true;                           ///< whether it is proved that nothing is cheaper
  /// Layers that keep a kernel which needs more than the set, as no kernel of the set computes the
  /// same.
  std::vector<std::string> beyond;
};

/// A model with what became of it. Plain data.
struct AssignedModel {
  runtime::QRTModel model;
  AssignReport report;
};

/// Chooses the cheapest kernels and layouts for one network of a model.
///
/// The kernels that the model names define what is computed; each kernel that takes their place has
/// to accept the layer and to agree with them on a trial. Converters between layouts are layers of
/// their own, one for each tensor and layout, with ids made from the tensor's. Kernels work in place
/// only where nobody else needs the numbers. What the network takes and returns stays as it is.
/// Layers whose description doesn't change are shared with the given model, weights and all. Where it
/// is cheaper, tensors between convolutions get channels of zeros up to whole blocks of 8; what the
/// network returns doesn't show it.
///
/// @code
/// EstimatedCosts costs;
/// AssignOptions options;
/// options.set = processor_kernels();
/// options.inputs["x"] = image->shape;
/// AssignedModel fast = assign_kernels(model, kernels, costs, options);
/// @endcode
///
/// @param kernels what may be chosen from
/// @param costs asked for every candidate
/// @throws std::invalid_argument for a network that isn't there, whose layers don't fit together, or
///   that names kernels which this processor can't run, as these say what is to be computed
QRT_API AssignedModel assign_kernels(const runtime::QRTModel& model,
                                     const runtime::KernelRegistry& kernels, Costs& costs,
                                     const AssignOptions& options);

}  // namespace marlo::toolkit
