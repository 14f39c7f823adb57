#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/model/weight_places_internal.h"

// A network layer by layer: what each is, which kernel runs it, and whether it can.

namespace qrt_tool {

/// One kernel of a layer: the main one or a converter.
struct KernelReport {
  std::string name;
  std::shared_ptr<marlo::runtime::IKernel> kernel;  ///< configured; null if it can't run
  std::string problem;                              ///< why it can't run
};

/// What is known about one layer.
struct LayerReport {
  uint32_t index = 0;
  std::string id;
  std::string kind;  ///< "Conv2d"
  std::shared_ptr<marlo::runtime::LayerInfo> info;
  std::vector<uint32_t> sources;  ///< layers that it reads
  bool is_input = false;
  bool is_output = false;
  KernelReport kernel;
  std::map<uint32_t, KernelReport> input_converters;
  std::map<uint32_t, KernelReport> output_converters;
  uint64_t weights = 0;  ///< trained numbers

  // Known once shapes are inferred.
  std::vector<marlo::runtime::TensorShape> outputs;
  std::optional<uint64_t> multiply_adds;

  /// `layer 3 "conv2" (Conv2d, kernel Conv2D_...)`
  std::string title() const;
};

/// A network, in execution order.
struct NetworkReport {
  std::string id;
  marlo::runtime::NetExtraInfo header;
  std::vector<LayerReport> layers;
  std::vector<std::string> warnings;  ///< what the library lets pass

  std::vector<uint32_t> inputs() const;
  std::vector<uint32_t> outputs() const;

  /// The first thing that keeps the network from running, with its layer; empty if it can run.
  std::string problem() const;
};

/// Makes and configures the kernels of a network one by one, so that each refusal is known.
/// @param config null for a network without a configuration
/// @param net where given, its kernels are taken and none is made
/// @param weights where those of the descriptions are; null where these hold them
NetworkReport inspect_network(const std::string& id, const marlo::runtime::QRModelInfo& info,
                              const marlo::runtime::QRModelCfg* config,
                              const marlo::runtime::KernelRegistry& kernels,
                              const std::shared_ptr<marlo::runtime::Context>& context,
                              const marlo::runtime::Net* net = nullptr,
                              const marlo::runtime::WeightPlaces* weights = nullptr);

/// The kernels and connections of a report as a network, as far as there are any.
marlo::runtime::Net net_of(const NetworkReport& report);

}  // namespace qrt_tool
