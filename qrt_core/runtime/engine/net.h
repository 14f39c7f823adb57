#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "qrt_core/runtime/engine/kernel.h"
#include "qrt_core/utility/errors.h"
#include "qrt_core/utility/export.h"

namespace marlo::runtime {

/// One step of a network: a kernel, where its inputs come from, and who reads its result. It
/// belongs to its network, and with it to one thread at a time.
struct Layer {
  /// Printed name of the layer's type. A layer named "Input" takes its tensor from the caller.
  std::string name;
  /// Per input position: source layer, and output of that layer.
  std::vector<std::pair<uint32_t, uint32_t>> inputs;
  /// Every reader of this layer's result: layer, and input position there.
  std::vector<std::pair<uint32_t, uint32_t>> consumers;
  /// Per input position: a kernel applied to that input first.
  std::map<uint32_t, std::shared_ptr<IKernel>> input_converters;
  std::shared_ptr<IKernel> kernel;  ///< what the layer computes
  /// Per output position: a kernel applied to that output afterwards.
  std::map<uint32_t, std::shared_ptr<IKernel>> output_converters;
  std::string id;  ///< its id in the model, for messages; may be empty
  /// Why each kernel or converter that is missing above could not be configured.
  std::vector<utility::LayerFault> refused;
};

/// The executable form of a model: layers in the order in which they run.
///
/// A layer's index is its number everywhere. One pass at a time may run on a context, and one
/// thread at a time may run a network.
class QRT_API Net {
 public:
  /// The outputs of one layer.
  using Tensors = std::vector<std::shared_ptr<Tensor>>;

  /// A network of these layers. `CreateNet` makes them from a model.
  /// @param layers in an order in which each reads earlier ones only
  /// @param inputs index of each input layer by its id
  Net(const std::vector<std::shared_ptr<Layer>>& layers,
      const std::map<std::string, unsigned int>& inputs);

  /// Runs the layers in order until everything asked for is there.
  ///
  /// A tensor is given back to the device's pool as soon as its last reader has run, unless the
  /// caller supplied it or asked for it.
  ///
  /// @param inputs the tensor of each input layer, by layer index
  /// @param output_ids indices of the layers whose outputs are wanted; without any, nothing runs
  /// @param context holds the device that the tensors are made on
  /// @param cpu_times may be null; else receives, per layer that ran, its time in milliseconds
  /// @param gpu_times may be null; else receives 0 per layer that ran
  /// @return per wanted layer, its outputs after its output converters
  /// @throws utility::Error, a std::runtime_error, for a missing context, device or input, and for
  ///   a kernel that can't run; its `layer` is the place. A plain std::runtime_error of a kernel
  ///   arrives as one with the same text, other exceptions as they are. The device's dynamic mode
  ///   then stays on until the end of the next pass.
  std::unordered_map<unsigned int, Tensors> Forward(
      const std::unordered_map<unsigned int, std::shared_ptr<Tensor>>& inputs,
      const std::vector<unsigned int>& output_ids, std::shared_ptr<Context> context,
      std::vector<float>* cpu_times, std::vector<float>* gpu_times) const;

  /// Another network that computes the same, to run on another context, and so on another thread.
  ///
  /// The two share packed weights, which nothing changes behind `CreateNet`; states, and all that
  /// passes need, are their own, and the clone's states are those of a new network. Weights go when
  /// the last network does, into the static pool of the context that they were made on: it must
  /// outlive them, and where networks are released on several threads it must be a pool that bears
  /// that, as `WeightPool` does. `utility::Model::clone` sees to both.
  ///
  /// Call it while no pass runs on this network; clones may run meanwhile.
  /// @param context on which the clone runs and has its states
  /// @throws utility::Error without a device, and for a kernel of the application's own that doesn't
  ///   implement `IKernelCopy`; its `layer` is the place
  std::shared_ptr<Net> clone(const std::shared_ptr<Context>& context) const;

  /// In execution order; the place in this vector is a layer's index.
  std::vector<std::shared_ptr<Layer>> layers;
  /// Index of each input layer by its id. `Forward` doesn't read it.
  std::map<std::string, unsigned int> input_map;
};

}  // namespace marlo::runtime
