#pragma once

#include <filesystem>
#include <string>

#include "qrt_toolkit/graph/graph.h"

// From a file to the graph. Nothing of ONNX's own types is visible beyond this folder.

namespace marlo::toolkit {

/// A model as its file says it.
struct OnnxModel {
  Graph graph;
  int opset = 0;         ///< of ONNX's own operators
  std::string producer;  ///< "pytorch 2.1.0"; may be empty
};

/// Reads a model. Tensors that it keeps in files of their own are read from its folder, and from
/// nowhere else.
///
/// Throws FileError for a file that is missing, damaged or contradicts itself, and UnsupportedError
/// for one that asks for more than is known here; both with all that was found.
OnnxModel read_onnx(const std::filesystem::path& path);

/// Reads a file that holds one tensor, as the folders of test data do.
Constant read_onnx_tensor(const std::filesystem::path& path);

/// Graphs inside of graphs (the branches of If) are followed this deep.
inline constexpr int kMostNesting = 64;

}  // namespace marlo::toolkit
