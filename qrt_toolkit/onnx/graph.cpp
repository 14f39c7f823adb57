#include <unordered_map>
#include <utility>

#include "qrt_toolkit/onnx/canonical.h"
#include "qrt_toolkit/onnx/protos_internal.h"

namespace marlo::toolkit {
namespace {

/// What the graphs of one model have in common while they are read.
struct Reading {
  int opset;
  std::filesystem::path folder;
  NodeChecker checker;
  std::vector<Refusal> damaged;      ///< what no program could read
  std::vector<Refusal> unsupported;  ///< what isn't known here

  void complain(const std::string& what, const std::string& why) {
    damaged.push_back({"", "", 0, "", what, why, ""});
  }
};

/// The first line of what the exporter tells of the node's place in the source.
std::string source_of(const onnx::NodeProto& proto) {
  constexpr size_t kMost = 200;
  const std::string& text = proto.doc_string();
  const size_t begin = text.find_first_not_of(" \t\r\n");
  if (begin == std::string::npos) return "";
  return text.substr(begin, std::min(text.find_first_of("\r\n", begin) - begin, kMost));
}

std::optional<Shape> shape_of(const onnx::TypeProto::Tensor& type) {
  if (!type.has_shape()) return std::nullopt;
  Shape shape;
  for (const auto& dim : type.shape().dim()) {
    constexpr int64_t kMostSize = int64_t{1} << 40;
    if (dim.has_dim_value() && dim.dim_value() > kMostSize) {
      throw FileError("a size of " + std::to_string(dim.dim_value()) + " is out of range");
    }
    if (dim.has_dim_value() && dim.dim_value() >= 0) {
      shape.emplace_back(dim.dim_value());
    } else {
      shape.emplace_back(dim.dim_param());
    }
  }
  return shape;
}

/// Reads one graph; those inside of it have readers of their own, which ask this one for names that
/// they don't define.
class GraphReader {
 public:
  GraphReader(Reading& reading, GraphReader* outer, int depth)
      : reading_(reading), outer_(outer), depth_(depth) {}

  Graph read(onnx::GraphProto& proto) {
    graph_.name = proto.name();
    declare_inputs(proto);
    declare_constants(proto);
    for (auto& node : *proto.mutable_node()) declare_outputs(node);
    for (const auto& info : proto.value_info()) {
      if (const auto place = names_.find(info.name()); place != names_.end()) {
        describe(place->second, info, false);
      }
    }
    for (auto& node : *proto.mutable_node()) add_node(node);
    for (const auto& info : proto.output()) {
      const auto id = find(info.name());
      if (!id) {
        reading_.complain("output \"" + info.name() + "\"", "nothing makes it");
        continue;
      }
      describe(*id, info, true);
      graph_.outputs.push_back(*id);
    }
    return std::move(graph_);
  }

 private:
  std::optional<ValueId> find(const std::string& name) {
    if (const auto place = names_.find(name); place != names_.end()) return place->second;
    const auto outside = outer_ == nullptr ? std::nullopt : outer_->find(name);
    if (!outside) return std::nullopt;
    const ValueId inside = graph_.add_value(name);
    graph_.captures.push_back({*outside, inside});
    names_.emplace(name, inside);
    return inside;
  }

  /// Adds a name; nothing where it exists already, which is told.
  std::optional<ValueId> declare(const std::string& name, const char* as) {
    if (names_.count(name) != 0) {
      reading_.complain("\"" + name + "\"",
                        std::string("the ") + as + " has the name of another tensor");
      return std::nullopt;
    }
    const ValueId id = graph_.add_value(name);
    names_.emplace(name, id);
    return id;
  }

  /// Enters what the file says of a value's type.
  /// @param at_border of an input or output, which must be a tensor
  void describe(ValueId id, const onnx::ValueInfoProto& info, bool at_border) {
    Value& value = graph_.value(id);
    const bool tensor = info.type().has_tensor_type();
    if (tensor) {
      value.type = element_type_of(info.type().tensor_type().elem_type());
      if (!value.shape) value.shape = shape_of(info.type().tensor_type());
    }
    if (!at_border || value.type != ElementType::undefined) return;
    const bool stated = info.type().value_case() != onnx::TypeProto::VALUE_NOT_SET;
    if (!stated || (tensor && info.type().tensor_type().elem_type() == 0)) return;
    reading_.unsupported.push_back(
        {"", "", 0, "", "\"" + info.name() + "\"",
         tensor ? "tensors of " + onnx_name_of(info.type().tensor_type().elem_type()) +
                      " aren't supported"
                : "sequences, maps and optional values aren't supported",
         ""});
  }

  void declare_inputs(const onnx::GraphProto& proto) {
    std::unordered_map<std::string, bool> constants;
    for (const auto& tensor : proto.initializer()) constants.emplace(tensor.name(), true);
    for (const auto& info : proto.input()) {
      // Old files list constants among the inputs, too.
      if (constants.count(info.name()) != 0) continue;
      if (const auto id = declare(info.name(), "input")) {
        describe(*id, info, true);
        graph_.inputs.push_back(*id);
      }
    }
  }

  void set_constant(ValueId id, onnx::TensorProto& tensor, const std::string& name) {
    try {
      Constant constant = constant_of(tensor, reading_.folder);
      Value& value = graph_.value(id);
      value.type = constant.type;
      value.shape = toolkit::shape_of(constant.shape);
      value.constant = std::move(constant);
    } catch (const NodeFault& fault) {
      Refusal refusal{"", "", 0, "", "tensor \"" + name + "\"", fault.why, fault.help};
      const bool known = element_type_of(tensor.data_type()) != ElementType::undefined;
      (known ? reading_.damaged : reading_.unsupported).push_back(std::move(refusal));
    }
  }

  void declare_constants(onnx::GraphProto& proto) {
    for (auto& tensor : *proto.mutable_initializer()) {
      const auto id = declare(tensor.name(), "constant");
      if (id) set_constant(*id, tensor, tensor.name());
    }
    for (const auto& tensor : proto.sparse_initializer()) {
      declare(tensor.values().name(), "constant");
      reading_.unsupported.push_back({"", "", 0, "", "tensor \"" + tensor.values().name() + "\"",
                                      "sparse tensors aren't supported", ""});
    }
  }

  void declare_outputs(const onnx::NodeProto& proto) {
    for (const std::string& name : proto.output()) {
      if (!name.empty()) declare(name, "output of a node");
    }
  }

  Node node_of(const onnx::NodeProto& proto) const {
    Node node;
    const bool own = proto.domain().empty() || proto.domain() == "ai.onnx";
    node.op = own ? proto.op_type() : proto.domain() + "." + proto.op_type();
    node.name = proto.name();
    if (node.name.empty() && proto.output_size() != 0) node.name = proto.output(0);
    node.source = source_of(proto);
    node.opset = own ? reading_.opset : 0;
    return node;
  }

  void add_node(onnx::NodeProto& proto) {
    Node node = node_of(proto);
    try {
      if (const auto complaint = reading_.checker.complaint(proto)) {
        reading_.unsupported.push_back(refusal_of(node, {"", *complaint}));
        return;
      }
      for (auto& attribute : *proto.mutable_attribute()) {
        node.attributes.insert_or_assign(attribute.name(), attribute_of(attribute));
      }
      if (node.op == "Constant") return make_constant(node, proto);
      for (const std::string& name : proto.input()) {
        node.inputs.push_back(name.empty() ? kAbsent : input_of(node, name));
      }
      while (!node.inputs.empty() && node.inputs.back() == kAbsent) node.inputs.pop_back();
      for (const std::string& name : proto.output()) {
        node.outputs.push_back(name.empty() ? kAbsent : names_.at(name));
      }
      make_canonical(node, graph_);
      for (const ValueId output : node.outputs) {
        // A name that is given twice was told of already.
        if (output != kAbsent && graph_.value(output).producer != kAbsent) return;
      }
      graph_.add_node(std::move(node));
    } catch (const NodeFault& fault) {
      reading_.unsupported.push_back(refusal_of(node, fault));
    }
  }

  ValueId input_of(const Node& node, const std::string& name) {
    if (const auto id = find(name)) return *id;
    reading_.damaged.push_back(refusal_of(
        node,
        {"input \"" + name + "\"", "nothing makes it: no input, constant or node has the name"}));
    return kAbsent;
  }

  /// Constant nodes are constants from here on.
  void make_constant(const Node& node, onnx::NodeProto& proto) {
    if (proto.output_size() != 1 || node.attributes.size() != 1) {
      throw NodeFault{"", "expected one output and one value"};
    }
    Constant constant = constant_of_attribute(*node.attributes.begin());
    Value& value = graph_.value(names_.at(proto.output(0)));
    value.type = constant.type;
    value.shape = toolkit::shape_of(constant.shape);
    value.constant = std::move(constant);
  }

  Attribute attribute_of(onnx::AttributeProto& proto) {
    if (!proto.ref_attr_name().empty()) {
      throw NodeFault{proto.name(), "it refers to a function's attribute outside of a function"};
    }
    switch (proto.type()) {
      case onnx::AttributeProto::FLOAT:
        return static_cast<double>(proto.f());
      case onnx::AttributeProto::INT:
        return static_cast<int64_t>(proto.i());
      case onnx::AttributeProto::STRING:
        return proto.s();
      case onnx::AttributeProto::INTS:
        return std::vector<int64_t>(proto.ints().begin(), proto.ints().end());
      case onnx::AttributeProto::FLOATS:
        return std::vector<double>(proto.floats().begin(), proto.floats().end());
      case onnx::AttributeProto::STRINGS:
        return std::vector<std::string>(proto.strings().begin(), proto.strings().end());
      case onnx::AttributeProto::TENSOR:
        return tensor_of(proto);
      case onnx::AttributeProto::GRAPH:
        return graph_of(proto);
      default:
        throw NodeFault{proto.name(), "attributes of its kind aren't supported"};
    }
  }

  Constant tensor_of(onnx::AttributeProto& proto) const {
    try {
      return constant_of(*proto.mutable_t(), reading_.folder);
    } catch (const NodeFault& fault) {
      throw NodeFault{proto.name(), fault.why, fault.help};
    }
  }

  std::shared_ptr<Graph> graph_of(onnx::AttributeProto& proto) {
    if (depth_ >= kMostNesting) {
      throw NodeFault{proto.name(),
                      "graphs are nested deeper than " + std::to_string(kMostNesting)};
    }
    GraphReader nested(reading_, this, depth_ + 1);
    return std::make_shared<Graph>(nested.read(*proto.mutable_g()));
  }

  Reading& reading_;
  GraphReader* outer_;
  int depth_;
  Graph graph_;
  std::unordered_map<std::string, ValueId> names_;
};

}  // namespace

Graph read_graph(onnx::ModelProto& model, int opset, const std::filesystem::path& folder) {
  Reading reading{opset, folder, NodeChecker(model), {}, {}};
  Graph graph = GraphReader(reading, nullptr, 0).read(*model.mutable_graph());
  if (opset > kLastOpset) {
    reading.unsupported.insert(reading.unsupported.begin(),
                               {"", "", 0, "", "opset",
                                "operator set " + std::to_string(opset) + " is newer than " +
                                    std::to_string(kLastOpset) + ", the newest that is known",
                                "export the model with opset " + std::to_string(kLastOpset)});
  }
  if (reading.damaged.empty() && reading.unsupported.empty()) graph.order();
  if (!reading.damaged.empty()) throw FileError(std::move(reading.damaged));
  if (!reading.unsupported.empty()) throw UnsupportedError(std::move(reading.unsupported));
  return graph;
}

}  // namespace marlo::toolkit
