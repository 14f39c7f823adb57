#include "model_text.h"

#include <onnx/defs/parser.h>

#include <fstream>
#include <stdexcept>

#include "tests/support/temporary_folder.h"

namespace marlo::toolkit::test {

void write_model(const std::filesystem::path& path, const std::string& graph, int opset) {
  const std::string text =
      "<ir_version: 8, opset_import: [\"\" : " + std::to_string(opset) + "]>\n" + graph;
  onnx::ModelProto model;
  const auto status = onnx::OnnxParser::Parse(model, text.c_str());
  if (!status.IsOK()) throw std::invalid_argument(status.ErrorMessage());
  std::ofstream file(path, std::ios::binary);
  if (!model.SerializeToOstream(&file)) throw std::runtime_error("can't write " + path.string());
}

OnnxModel model_of(const std::string& graph, int opset) {
  const marlo::test::TemporaryFolder folder;
  const std::filesystem::path path = folder.file("model.onnx");
  write_model(path, graph, opset);
  return read_onnx(path);
}

std::string complaint_about(const std::string& graph, int opset) {
  try {
    model_of(graph, opset);
  } catch (const ImportError& error) {
    return error.what();
  }
  return "";
}

}  // namespace marlo::toolkit::test
