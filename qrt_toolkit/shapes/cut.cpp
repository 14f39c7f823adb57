#include "qrt_toolkit/shapes/cut.h"

#include <algorithm>

#include "qrt_toolkit/simplify/simplify.h"

namespace marlo::toolkit {
namespace {

ValueId find_tensor(const Graph& graph, const std::string& name) {
  for (size_t i = 0; i < graph.value_count(); ++i) {
    const auto id = static_cast<ValueId>(i);
    if (graph.value(id).name == name) return id;
  }
  for (const NodeId id : graph.order()) {
    const Node& node = graph.node(id);
    if (node.name == name && node.has_output(0)) return node.outputs[0];
  }
  return kAbsent;
}

}  // namespace

void cut_graph(Graph& graph, const std::vector<std::string>& names,
               std::vector<std::string>& notes) {
  std::vector<ValueId> outputs;
  std::vector<Refusal> refusals;
  for (const std::string& name : names) {
    const ValueId id = name.empty() ? kAbsent : find_tensor(graph, name);
    if (id == kAbsent) {
      refusals.push_back({"", "", 0, "", "output \"" + name + "\"",
                          "the graph has no tensor and no node of this name", ""});
    } else if (graph.value(id).producer == kAbsent) {
      refusals.push_back({"", "", 0, "", "output \"" + name + "\"",
                          "no node makes it: it is an input or a constant", ""});
    } else {
      outputs.push_back(id);
    }
  }
  if (!refusals.empty()) throw UnsupportedError(std::move(refusals));
  graph.outputs = std::move(outputs);
  drop_unused(graph);
  std::erase_if(graph.inputs, [&](ValueId id) {
    const bool unused = graph.is_unused(id);
    if (unused) {
      notes.push_back("input \"" + graph.value(id).name + "\": no output needs it, and it is gone");
    }
    return unused;
  });
}

}  // namespace marlo::toolkit
