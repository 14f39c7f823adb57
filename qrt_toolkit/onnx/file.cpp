#include <fcntl.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/io/zero_copy_stream_impl.h>
#include <google/protobuf/stubs/logging.h>
#include <unistd.h>

#include <limits>

#include "qrt_toolkit/import_onnx.h"
#include "qrt_toolkit/onnx/protos_internal.h"

namespace marlo::toolkit {
namespace {

/// A nested graph is three messages deep: node, attribute, graph. Deeper files than are read are
/// parsed all the same, so that they can be told from damaged ones.
constexpr int kMostMessages = 4096;

std::string entry_text(const std::string& name, const std::string& version) {
  return version.empty() ? name : name + " " + version;
}

int own_opset(const onnx::ModelProto& model) {
  int opset = 0;
  for (const auto& entry : model.opset_import()) {
    if (!entry.domain().empty() && entry.domain() != "ai.onnx") continue;
    if (entry.version() < 1 || entry.version() > std::numeric_limits<int16_t>::max()) {
      throw FileError("operator set " + std::to_string(entry.version()) + " doesn't exist");
    }
    opset = static_cast<int>(entry.version());
  }
  return opset;
}

}  // namespace

bool can_read_onnx() noexcept { return true; }

void parse_file(const std::filesystem::path& path, google::protobuf::Message& message) {
  std::error_code error;
  if (!std::filesystem::exists(path, error)) throw FileError("there is no file " + path.string());
  if (!std::filesystem::is_regular_file(path, error)) {
    throw FileError(path.string() + " is no regular file");
  }
  const uint64_t size = std::filesystem::file_size(path, error);
  if (size == 0) throw FileError(path.string() + " is empty");
  if (size > static_cast<uint64_t>(std::numeric_limits<int>::max())) {
    throw FileError(path.string() + " is larger than the 2 GiB that an ONNX file may have",
                    "save the model with external data");
  }
  const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (descriptor < 0) throw FileError(path.string() + " can't be opened");
  google::protobuf::io::FileInputStream bytes(descriptor);
  bytes.SetCloseOnDelete(true);
  google::protobuf::io::CodedInputStream stream(&bytes);
  stream.SetTotalBytesLimit(std::numeric_limits<int>::max());
  stream.SetRecursionLimit(kMostMessages);
  // The parser would write its complaints to standard error.
  const google::protobuf::LogSilencer silence;
  if (!message.ParseFromCodedStream(&stream) || !stream.ConsumedEntireMessage()) {
    throw FileError(path.string() + " is no ONNX file, is cut short, or nests graphs too deep");
  }
}

OnnxModel read_onnx(const std::filesystem::path& path) {
  onnx::ModelProto proto;
  parse_file(path, proto);
  if (!proto.has_graph() || proto.opset_import_size() == 0) {
    throw FileError(path.string() + " is no ONNX model: it has no " +
                    (proto.has_graph() ? "operator set" : "graph"));
  }
  OnnxModel model;
  model.opset = own_opset(proto);
  model.producer = entry_text(proto.producer_name(), proto.producer_version());
  const std::filesystem::path folder = path.parent_path().empty() ? "." : path.parent_path();
  inline_functions(proto);
  model.graph = read_graph(proto, model.opset, folder);
  return model;
}

Constant read_onnx_tensor(const std::filesystem::path& path) {
  onnx::TensorProto proto;
  parse_file(path, proto);
  try {
    return constant_of(proto, path.parent_path().empty() ? "." : path.parent_path());
  } catch (const NodeFault& fault) {
    throw FileError(path.string() + ": " + fault.why);
  }
}

}  // namespace marlo::toolkit
