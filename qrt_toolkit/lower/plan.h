#pragma once

#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/engine/create_net.h"
#include "qrt_core/runtime/model/layer_info.h"
#include "qrt_core/runtime/tensor/context.h"
#include "qrt_core/runtime/tensor/tensor_shape.h"
#include "qrt_toolkit/graph/graph.h"

// A network that is being made: layers in execution order with their descriptions, and for each the
// kernel that defines what it computes.

namespace marlo::toolkit {

/// A layer of the plan. Layers are numbered in the order in which they run.
struct PlannedLayer {
  std::shared_ptr<runtime::LayerInfo> info;
  std::string kernel;          ///< the kernel that computes exactly this; others may later
  std::vector<size_t> inputs;  ///< the layers that it reads
  runtime::TensorShape shape;  ///< what it makes
  std::string node;            ///< the node that it comes from; of an input its name
  ValueId value = kAbsent;     ///< the value of the graph that it makes, if it makes one
  uint64_t products = 0;       ///< multiply-adds
};

/// Collects layers, and asks kernels whether they take them. It belongs to one thread.
class Plan {
 public:
  Plan();

  /// Whether this build has a kernel.
  bool has(const std::string& kernel) const { return kernels_.Create(kernel) != nullptr; }

  /// An input of the network.
  size_t add_input(const std::string& name, runtime::TensorShape shape);

  /// A layer. The kernel's own checks decide, and say what shape it makes; throws NodeFault where
  /// they refuse.
  size_t add(std::shared_ptr<runtime::LayerInfo> info, const std::string& kernel,
             const std::vector<size_t>& inputs);

  /// Leaves out what neither is one of `outputs`, nor is read by a layer that stays, nor is an
  /// input; `outputs` gets the new numbers.
  void keep_only(std::vector<size_t>& outputs);

  const PlannedLayer& layer(size_t index) const { return layers_.at(index); }
  PlannedLayer& layer(size_t index) { return layers_.at(index); }
  const std::vector<PlannedLayer>& layers() const { return layers_; }
  const runtime::TensorShape& shape(size_t index) const { return layers_.at(index).shape; }

  std::vector<std::string> notes;  ///< what the network's user has to know, in words
  std::string node;                ///< the node that is being lowered; new layers get its name

 private:
  runtime::KernelRegistry kernels_;
  runtime::InferenceParamRegistry params_;
  std::shared_ptr<runtime::Context> context_;
  std::vector<PlannedLayer> layers_;
};

}  // namespace marlo::toolkit
