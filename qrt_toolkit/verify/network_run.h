#pragma once

#include <functional>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/model_info.h"
#include "qrt_toolkit/watch/recorder.h"

// Runs a network once and keeps what every layer makes.

namespace marlo::toolkit {

/// One pass of a model's only network, a record for each layer's first output.
class NetworkRun {
 public:
  /// Builds the network.
  explicit NetworkRun(const runtime::QRTModel& model);
  NetworkRun(const NetworkRun&) = delete;
  NetworkRun& operator=(const NetworkRun&) = delete;
  ~NetworkRun();

  /// Changes the numbers that a layer has made: its index, their shape, and where they are.
  using Change = std::function<void(uint32_t, const runtime::TensorShape&, float*)>;

  /// The records of a pass, by layer; empty ones where nothing was made. States are reset before.
  /// @param inputs float32 numbers, one list per input layer in their order
  /// @param change is called for FLOAT32 outputs; may be empty
  std::vector<LayerRecord> run(const std::vector<std::vector<float>>& inputs,
                               const std::vector<runtime::TensorShape>& shapes,
                               const Change& change = nullptr);

  /// The ids of the layers, in order.
  const std::vector<std::string>& ids() const;

  /// By layer: whether its kernel applies the activation of the layer behind as well.
  std::vector<bool> have_epilogues() const;

 private:
  struct State;
  std::unique_ptr<State> state_;
};

}  // namespace marlo::toolkit
