#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "qrt_core/runtime/engine/net.h"
#include "qrt_core/runtime/tensor/context.h"
#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/export.h"

// Whether the layers of a network fit together, asked before anything runs.

namespace marlo::utility {

/// What `check_shapes` finds out about one layer. Plain data: any number of threads may read it
/// while none changes it.
struct LayerShapes {
  std::vector<runtime::TensorShape> inputs;   ///< what the kernel gets, after input converters
  std::vector<runtime::TensorShape> outputs;  ///< what its readers get; empty after a fault
  std::string fault;                          ///< why it doesn't fit; empty if it does
  std::vector<runtime::TensorShape> made;     ///< what the kernel makes, before output converters
  /// Whether the fault is only that a layer before it has one, or that no shape is given.
  bool is_consequence = false;
  /// The layer, the kernel or converter that the fault concerns, and its reasons in detail as far
  /// as the kernel gives any.
  LayerFault place;
};

/// Walks the shapes through a network: every kernel and converter is asked whether it takes its
/// inputs, what it makes of them, and whether that is right. Nothing runs and nothing is allocated
/// from the device's pools, so that an application can ask before it lets a foreign file compute.
///
/// @code
/// for (const auto& layer : check_shapes(*package.net, {{0, image->shape}}, context)) {
///   if (!layer.fault.empty()) return refuse(layer.fault);
/// }
/// @endcode
///
/// @param net whose layers are asked
/// @param inputs the shape of each input layer, by layer index
/// @param context with a CPU device
/// @return one entry per layer. A layer whose inputs aren't known because of a fault before it
///   has a fault too.
/// @throws Error without a context or a device
QRT_API std::vector<LayerShapes> check_shapes(
    const runtime::Net& net, const std::unordered_map<unsigned int, runtime::TensorShape>& inputs,
    const std::shared_ptr<runtime::Context>& context);

}  // namespace marlo::utility
