#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/inference_config.h"
#include "qrt_core/runtime/model/model_info.h"
#include "qrt_toolkit/assign/trial.h"

// The network as its configuration runs it: what every other configuration has to compute.

namespace marlo::toolkit {

/// One layer with its kernel. Converters between layouts are taken off it: what it reads and makes
/// are tensors that may stand in any form.
struct ReferenceLayer {
  std::string id;
  std::shared_ptr<runtime::LayerInfo> info;
  std::shared_ptr<runtime::LayerCfg> cfg;
  std::string kernel;
  std::vector<size_t> inputs;               ///< the layers that it reads
  std::vector<runtime::TensorShape> reads;  ///< as its kernel gets them
  runtime::TensorShape makes;               ///< as its kernel makes it
  runtime::TensorShape gives;               ///< as its readers and the network's caller see it
  size_t readers = 0;                       ///< how often it is read
  bool is_input = false;
  bool is_output = false;
  /// It stays as it is: it has parameters or converters of another kind, or what it makes isn't one
  /// tensor of floats.
  bool is_fixed = false;
  bool reads_rectified = false;  ///< nothing that it reads is ever below zero
  std::string applies;           ///< the epilogue of its kernel; empty for none
  /// Where another layer reads nothing but this one's result, and nobody else does, and computes an
  /// epilogue's function of it: that epilogue, which may be applied here as well. `make_problem`
  /// finds out.
  std::string may_apply;
  /// The same for the layer that reads.
  std::string may_be_applied;
};

/// The layers of a network in execution order.
/// @param inputs shapes of the network's inputs by layer id
/// @throws std::invalid_argument for a network whose layers don't fit together, in words
std::vector<ReferenceLayer> walk_reference(
    const runtime::QRModelInfo& network, const runtime::QRModelCfg& cfg,
    const std::map<std::string, runtime::TensorShape>& inputs, Workshop& workshop);

}  // namespace marlo::toolkit
