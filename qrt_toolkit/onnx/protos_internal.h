#pragma once

#include <onnx/onnx_pb.h>

#include <filesystem>
#include <optional>
#include <string>

#include "qrt_toolkit/onnx/read.h"

// What the sources of this folder share.

namespace marlo::toolkit {

/// The element type behind ONNX's number; `undefined` for those that aren't known (texts, complex
/// numbers, numbers of eight and four bits).
ElementType element_type_of(int onnx_type) noexcept;

/// ONNX's name for an element type: "STRING".
std::string onnx_name_of(int onnx_type);

/// The numbers of a tensor, wherever the file holds them. Takes raw bytes out of `proto`.
/// Throws NodeFault where they don't fit the tensor's shape.
Constant constant_of(onnx::TensorProto& proto, const std::filesystem::path& folder);

/// Parses a file into `message`; throws FileError.
void parse_file(const std::filesystem::path& path, google::protobuf::Message& message);

/// What the ONNX library's checker has against a node; nothing where it can't tell or agrees.
class NodeChecker {
 public:
  explicit NodeChecker(const onnx::ModelProto& model);
  std::optional<std::string> complaint(const onnx::NodeProto& node) const;

 private:
  int ir_version_;
  int opset_;
};

/// Puts the nodes of functions that the model brings along in the place of nodes that call them.
/// Throws FileError for functions that call themselves, and UnsupportedError for one of another
/// operator set than the model's.
void inline_functions(onnx::ModelProto& model);

/// Reads the model's graph with all that it nests. Throws like `read_onnx`.
Graph read_graph(onnx::ModelProto& model, int opset, const std::filesystem::path& folder);

}  // namespace marlo::toolkit
