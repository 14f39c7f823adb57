#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include "qrt_toolkit/onnx/protos_internal.h"

// Functions that a model brings along: each node that calls one becomes the function's nodes.

namespace marlo::toolkit {
namespace {

/// A file of few bytes can call for more nodes than memory holds.
constexpr int64_t kMostNodes = 200000;
constexpr int kMostCalls = 64;  // one inside of another

using Names = std::map<std::string, std::string>;
using Nodes = google::protobuf::RepeatedPtrField<onnx::NodeProto>;

std::string key_of(const std::string& domain, const std::string& name) {
  return (domain == "ai.onnx" ? std::string() : domain) + ":" + name;
}

class Inliner {
 public:
  explicit Inliner(const onnx::ModelProto& model) {
    for (const auto& entry : model.opset_import())
      opsets_[key_of(entry.domain(), "")] = entry.version();
    for (const onnx::FunctionProto& function : model.functions()) {
      functions_.emplace(key_of(function.domain(), function.name()), &function);
    }
  }

  void run(onnx::GraphProto& graph) { expand(*graph.mutable_node(), 0); }

 private:
  /// Replaces calls in a list, and in the graphs inside of its nodes.
  void expand(Nodes& nodes, int depth) {
    const bool any = std::any_of(nodes.begin(), nodes.end(), [&](const onnx::NodeProto& node) {
      return function_of(node) != nullptr;
    });
    for (onnx::NodeProto& node : nodes) {
      for (auto& attribute : *node.mutable_attribute()) {
        if (attribute.has_g()) expand(*attribute.mutable_g()->mutable_node(), depth);
      }
    }
    if (!any) return;
    Nodes result;
    for (onnx::NodeProto& node : nodes) {
      const onnx::FunctionProto* function = function_of(node);
      if (function == nullptr) {
        result.Add(std::move(node));
        continue;
      }
      Nodes body = called(node, *function, depth);
      for (onnx::NodeProto& inner : body) result.Add(std::move(inner));
    }
    nodes.Swap(&result);
  }

  const onnx::FunctionProto* function_of(const onnx::NodeProto& node) const {
    const auto place = functions_.find(key_of(node.domain(), node.op_type()));
    return place == functions_.end() ? nullptr : place->second;
  }

  /// The function's nodes with the caller's names and attributes.
  Nodes called(const onnx::NodeProto& node, const onnx::FunctionProto& function, int depth) {
    const std::string what = "function \"" + function.name() + "\"";
    if (depth >= kMostCalls) throw FileError(what + " is called by itself, or too deep");
    for (const auto& entry : function.opset_import()) {
      const auto place = opsets_.find(key_of(entry.domain(), ""));
      if (place != opsets_.end() && place->second != entry.version()) {
        throw UnsupportedError(
            {{"", "", 0, "", what,
              "it is written for operator set " + std::to_string(entry.version()) +
                  ", the model for " + std::to_string(place->second),
              "export the model without functions"}});
      }
    }
    nodes_ += function.node_size();
    if (nodes_ > kMostNodes) throw FileError(what + " is called too often");
    Names names;
    for (int i = 0; i < function.input_size(); ++i) {
      names[function.input(i)] = i < node.input_size() ? node.input(i) : std::string();
    }
    for (int i = 0; i < function.output_size(); ++i) {
      const bool given = i < node.output_size() && !node.output(i).empty();
      if (given) names[function.output(i)] = node.output(i);
    }
    const std::string base =
        (node.name().empty() && node.output_size() != 0 ? node.output(0) : node.name()) + "/" +
        std::to_string(++calls_) + "/";
    Nodes body(function.node().begin(), function.node().end());
    for (onnx::NodeProto& inner : body) {
      if (!inner.name().empty()) inner.set_name(base + inner.name());
      if (inner.doc_string().empty()) inner.set_doc_string(node.doc_string());
      rename(inner, names, base);
      set_attributes(inner, node, function);
    }
    expand(body, depth + 1);
    return body;
  }

  static void rename(std::string& name, Names& names, const std::string& base) {
    if (name.empty()) return;
    const auto [place, is_new] = names.try_emplace(name, base + name);
    name = place->second;
  }

  /// Graphs inside see the names around them; their own get the call's, too.
  static void rename(onnx::NodeProto& node, Names& names, const std::string& base) {
    for (std::string& name : *node.mutable_input()) rename(name, names, base);
    for (std::string& name : *node.mutable_output()) rename(name, names, base);
    for (auto& attribute : *node.mutable_attribute()) {
      if (!attribute.has_g()) continue;
      onnx::GraphProto& graph = *attribute.mutable_g();
      Names inside = names;
      for (auto& tensor : *graph.mutable_initializer())
        rename(*tensor.mutable_name(), inside, base);
      for (auto& input : *graph.mutable_input()) rename(*input.mutable_name(), inside, base);
      for (auto& inner : *graph.mutable_node()) rename(inner, inside, base);
      for (auto& output : *graph.mutable_output()) rename(*output.mutable_name(), inside, base);
      graph.clear_value_info();
    }
  }

  /// Attributes that refer to the function's get the caller's, or its defaults; or go.
  static void set_attributes(onnx::NodeProto& inner, const onnx::NodeProto& caller,
                             const onnx::FunctionProto& function) {
    google::protobuf::RepeatedPtrField<onnx::AttributeProto> kept;
    for (onnx::AttributeProto& attribute : *inner.mutable_attribute()) {
      if (attribute.has_g()) {
        for (auto& deeper : *attribute.mutable_g()->mutable_node()) {
          set_attributes(deeper, caller, function);
        }
      }
      if (attribute.ref_attr_name().empty()) {
        kept.Add(std::move(attribute));
        continue;
      }
      const onnx::AttributeProto* given = find(caller.attribute(), attribute.ref_attr_name());
      if (given == nullptr) continue;
      onnx::AttributeProto copy = *given;
      copy.set_name(attribute.name());
      kept.Add(std::move(copy));
    }
    inner.mutable_attribute()->Swap(&kept);
  }

  template <class List>
  static const onnx::AttributeProto* find(const List& list, const std::string& name) {
    for (const onnx::AttributeProto& attribute : list) {
      if (attribute.name() == name) return &attribute;
    }
    return nullptr;
  }

  std::map<std::string, const onnx::FunctionProto*> functions_;
  std::map<std::string, int64_t> opsets_;
  int64_t nodes_ = 0;
  int64_t calls_ = 0;
};

}  // namespace

void inline_functions(onnx::ModelProto& model) {
  if (model.functions_size() == 0) return;
  Inliner(model).run(*model.mutable_graph());
}

}  // namespace marlo::toolkit
