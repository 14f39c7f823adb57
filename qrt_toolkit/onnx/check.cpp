#include <onnx/checker.h>

#include <algorithm>
#include <limits>

#include "qrt_toolkit/onnx/protos_internal.h"

namespace marlo::toolkit {
namespace {

int known_opset() {
  const auto& ranges = onnx::OpSchemaRegistry::DomainToVersionRange::Instance().Map();
  const auto place = ranges.find(onnx::ONNX_DOMAIN);
  return place == ranges.end() ? 0 : place->second.second;
}

bool has_graphs(const onnx::NodeProto& node) {
  return std::any_of(
      node.attribute().begin(), node.attribute().end(),
      [](const onnx::AttributeProto& a) { return a.has_g() || a.graphs_size() != 0; });
}

}  // namespace

NodeChecker::NodeChecker(const onnx::ModelProto& model) : ir_version_(0), opset_(0) {
  constexpr int64_t kNewest = onnx::Version::IR_VERSION;
  ir_version_ = static_cast<int>(std::clamp<int64_t>(model.ir_version(), 1, kNewest));
  for (const auto& entry : model.opset_import()) {
    const bool own = entry.domain().empty() || entry.domain() == "ai.onnx";
    if (own && entry.version() <= known_opset()) opset_ = static_cast<int>(entry.version());
  }
}

// Operator sets that it doesn't know are left to the definitions, and so are nested graphs, which
// are checked node by node when they are read.
std::optional<std::string> NodeChecker::complaint(const onnx::NodeProto& node) const {
  if (opset_ == 0 || has_graphs(node)) return std::nullopt;
  if (!node.domain().empty() && node.domain() != "ai.onnx") return std::nullopt;
  onnx::checker::CheckerContext context;
  context.set_ir_version(ir_version_);
  context.set_opset_imports({{onnx::ONNX_DOMAIN, opset_}});
  try {
    onnx::checker::check_node(node, context, onnx::checker::LexicalScopeContext());
  } catch (const std::exception& error) {
    std::string text = error.what();
    text = text.substr(0, text.find("\n\n==> Context"));
    std::replace(text.begin(), text.end(), '\n', ' ');
    while (!text.empty() && text.back() == ' ') text.pop_back();
    return text;
  }
  return std::nullopt;
}

}  // namespace marlo::toolkit
