#pragma once

#include <map>
#include <optional>
#include <string>

#include "qrt_core/utility/check_shapes.h"
#include "tools/qrt/json_text.h"
#include "tools/qrt/network_report.h"

// Shapes through a network, before anything runs.

namespace qrt_tool {

using InputShapes = std::map<uint32_t, marlo::runtime::TensorShape>;  // by input layer

/// "FLOAT32 CHW 1x28x28".
std::string shape_text(const marlo::runtime::TensorShape& shape);

/// A FLOAT32 shape in main memory in the layout for so many dims: CHW, CL, C or FLEXIABLE.
marlo::runtime::TensorShape float_shape(std::vector<uint32_t> sizes);

/// Sizes in the notation "1x28x28".
/// @throws ToolError (kUsageError)
std::vector<uint32_t> parse_sizes_option(const std::string& text);

/// What a model says of an input, or else what the first convolution on the way from it demands.
struct DemandedInput {
  size_t dims = 0;        ///< 3 for planes, 2 for lines
  uint32_t channels = 0;  ///< the first size
  uint32_t height = 0;    ///< of the model's header; 0 where it gives none
  uint32_t width = 0;
  /// What the model itself says of the input, if it does.
  std::optional<marlo::utility::DescribedTensor> described;

  std::string text() const;
};
std::optional<DemandedInput> demanded_input(const NetworkReport& report, uint32_t input);

/// The shape of an input of these sizes, which is the same for `--input SIZES` and for arrays: a
/// leading 1 is dropped from 4 sizes unless `keep_batch`, and from 3 where lines are demanded; two
/// sizes become a plane where one plane is demanded. An input that the model describes takes the
/// sizes of its source, with or without their batch.
marlo::runtime::TensorShape input_shape(std::vector<uint32_t> sizes,
                                        const std::optional<DemandedInput>& demanded,
                                        bool keep_batch);

/// The shapes that `--input` gives, one for each input layer.
/// @throws ToolError (kUsageError) for another number of them
InputShapes given_input_shapes(const NetworkReport& report, const std::vector<std::string>& options,
                               bool keep_batch);

/// The demanded shapes of all inputs, as far as the model tells them.
InputShapes known_input_shapes(const NetworkReport& report);

/// Whether these are the sizes that the model itself names: what doesn't fit then is its own fault.
bool are_model_shapes(const NetworkReport& report, const InputShapes& inputs);

/// What is to know about a shape, as members of the open object, as an object that is a member, or
/// as an element of an array.
void add_shape_members(JsonText& json, const marlo::runtime::TensorShape& shape);
void add_shape(JsonText& json, const char* key, const marlo::runtime::TensorShape& shape);
void add_shape(JsonText& json, const marlo::runtime::TensorShape& shape);

/// Why a layer doesn't fit what the library's check of shapes found for it, or this machine; empty
/// if it does.
std::string shapes_fault(const LayerReport& layer, const marlo::utility::LayerShapes& shapes);

/// Infers the outputs and the multiply-adds of every layer whose inputs are known.
/// @return the first layer that can't take its inputs, what it expected and what it found; empty if
///   there is none. Layers behind it keep no shapes.
std::string infer_shapes(NetworkReport& report, const InputShapes& inputs,
                         const std::shared_ptr<marlo::runtime::Context>& context);

}  // namespace qrt_tool
