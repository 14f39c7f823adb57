#pragma once

#include <filesystem>
#include <string>

#include "qrt_toolkit/onnx/read.h"

// Models written as text, in the form that ONNX has for them.

namespace marlo::toolkit::test {

/// The file of a model with this graph: "g (float[2] x) => (float[2] y) { y = Relu(x) }".
void write_model(const std::filesystem::path& path, const std::string& graph, int opset = 13);

/// The same, read back.
OnnxModel model_of(const std::string& graph, int opset = 13);

/// What `read_onnx` says of it: the text of its error, or nothing.
std::string complaint_about(const std::string& graph, int opset = 13);

}  // namespace marlo::toolkit::test
