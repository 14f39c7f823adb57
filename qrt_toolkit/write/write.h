#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "qrt_core/runtime/model/model_info.h"
#include "qrt_toolkit/import_onnx.h"
#include "qrt_toolkit/lower/plan.h"

// From a plan to the tree of a model file.

namespace marlo::toolkit {

/// What a model says of itself beside its layers.
struct ModelHeader {
  std::string network;                               ///< id of the network
  std::string source;                                ///< name of the file that it comes from
  std::string producer;                              ///< what wrote that file; may be empty
  std::vector<std::string> output_names;             ///< one per output
  std::vector<std::optional<size_t>> input_batches;  ///< per input: its batch axis in the source
  PicturePreparation preparation;                    ///< of inputs with three axes; may be empty
};

/// A model, and what its layers come from.
struct WrittenModel {
  runtime::QRTModel model;
  std::map<std::string, std::string> node_of_layer;  ///< the graph's node by layer id
  std::map<std::string, ValueId> value_of_layer;     ///< the graph's value, where a layer makes one
};

/// Gives every layer of the plan an id and the model its header: sizes, multiply-adds, date, and a
/// line of JSON that says what the inputs and outputs are. Inputs and outputs get their own names,
/// other layers those of the tensors or nodes that they come from, made unique.
/// @param outputs the layers that make the outputs, one per name
WrittenModel write_model(const Graph& graph, Plan plan, const std::vector<size_t>& outputs,
                         const ModelHeader& header);

}  // namespace marlo::toolkit
