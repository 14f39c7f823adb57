#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "qrt_toolkit/trace/trace.h"
#include "qrt_toolkit/watch/recorder.h"
#include "tools/qrt/inputs.h"
#include "tools/qrt/network.h"
#include "tools/qrt/profile.h"

namespace qrt_tool {

using marlo::toolkit::LayerRecord;
using marlo::toolkit::Recorder;

/// One tensor that a network returned.
struct OutputData {
  uint32_t layer = 0;
  std::string id;         ///< of the layer
  uint32_t position = 0;  ///< among the layer's outputs
  std::shared_ptr<marlo::runtime::Tensor> tensor;

  /// Its numbers as doubles.
  std::vector<double> values() const;
};

/// What the passes gave.
struct PassResult {
  std::vector<OutputData> outputs;             ///< of the last pass
  Times pass;                                  ///< medians of whole passes
  std::vector<LayerRecord> records;            ///< of the last pass, where layers were recorded
  std::optional<Profile> profile;              ///< where kernels were timed
  std::optional<marlo::toolkit::Trace> trace;  ///< of the last pass, where it was traced
};

/// How a network is run.
struct PassOptions {
  uint64_t repeat = 1;      ///< so many passes; more than one after a pass to warm up
  bool profile = false;     ///< kernels are timed
  bool record = false;      ///< every layer's outputs are kept
  bool trace = false;       ///< the last pass is traced
  bool keep_state = false;  ///< recurrent layers begin a pass where the last one ended
};

/// Runs a network.
/// @throws ToolError (kRunError), naming the layer where that is known
PassResult run_passes(const LoadedNetwork& network, const std::vector<InputData>& inputs,
                      const PassOptions& options);

}  // namespace qrt_tool
