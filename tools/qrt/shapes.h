#pragma once

#include <map>
#include <optional>
#include <string>

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

/// What the first convolution on the way from an input layer demands of it.
struct DemandedInput {
  size_t dims = 0;        ///< 3 for planes, 2 for lines
  uint32_t channels = 0;  ///< the first size
  uint32_t height = 0;    ///< of the model's header; 0 where it gives none
  uint32_t width = 0;

  std::string text() const;
};
std::optional<DemandedInput> demanded_input(const NetworkReport& report, uint32_t input);

/// The demanded shapes of all inputs, as far as the model tells them.
InputShapes known_input_shapes(const NetworkReport& report);

/// Infers the outputs and the multiply-adds of every layer whose inputs are known.
/// @return the first layer that can't take its inputs, what it expected and what it found; empty if
///   there is none. Layers behind it keep no shapes.
std::string infer_shapes(NetworkReport& report, const InputShapes& inputs,
                         marlo::runtime::DeviceCPU& device);

}  // namespace qrt_tool
