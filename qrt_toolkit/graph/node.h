#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "qrt_toolkit/errors.h"
#include "qrt_toolkit/graph/numbers.h"

namespace marlo::toolkit {

class Graph;

/// The number of a value or node in its graph; it stays the same however the graph is edited.
using ValueId = int32_t;
using NodeId = int32_t;

/// In the place of an optional input or output that isn't there.
inline constexpr int32_t kAbsent = -1;

/// What a node says beside its inputs.
using Attribute =
    std::variant<int64_t, double, std::string, std::vector<int64_t>, std::vector<double>,
                 std::vector<std::string>, Constant, std::shared_ptr<Graph>>;

/// One operation. Its attributes and inputs have the form of one operator set whatever the file's
/// was: see qrt_toolkit/onnx/canonical.h.
struct Node {
  std::string op;          ///< "Conv"; with its domain unless that is ONNX's own: "com.acme.Conv"
  std::string name;        ///< as in the file; may be empty
  std::string source;      ///< what the exporter left of its place in the source
  int opset = 0;           ///< the operator set that the file used
  std::string op_in_file;  ///< empty unless reading gave the node another operator
  std::vector<ValueId> inputs;   ///< `kAbsent` where an optional one isn't given
  std::vector<ValueId> outputs;  ///< likewise
  std::map<std::string, Attribute> attributes;

  bool has(const std::string& attribute) const { return attributes.count(attribute) != 0; }

  /// The attribute's value, or `otherwise` where there is none. Throws NodeFault when it is of
  /// another kind.
  int64_t integer(const std::string& attribute, int64_t otherwise) const;
  double real(const std::string& attribute, double otherwise) const;
  std::string text(const std::string& attribute, const std::string& otherwise) const;
  std::vector<int64_t> integers(const std::string& attribute,
                                std::vector<int64_t> otherwise = {}) const;
  std::vector<double> reals(const std::string& attribute, std::vector<double> otherwise = {}) const;

  /// The graph that an attribute holds; throws NodeFault where there is none.
  const Graph& graph(const std::string& attribute) const;

  /// Whether an optional input or output is there.
  bool has_input(size_t place) const { return place < inputs.size() && inputs[place] != kAbsent; }
  bool has_output(size_t place) const {
    return place < outputs.size() && outputs[place] != kAbsent;
  }
};

/// `fault` with the node that it is about.
Refusal refusal_of(const Node& node, const NodeFault& fault);

}  // namespace marlo::toolkit
