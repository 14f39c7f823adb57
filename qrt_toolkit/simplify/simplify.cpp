#include "qrt_toolkit/simplify/simplify.h"

#include <algorithm>

#include "qrt_toolkit/shapes/infer.h"
#include "qrt_toolkit/simplify/match.h"

namespace marlo::toolkit {
namespace {

/// Whether `to` surely is the shape `from`.
bool same_shape(const Facts& from, const Facts& to) {
  if (!from.shape || !to.shape || from.shape->size() != to.shape->size()) return false;
  return std::equal(from.shape->begin(), from.shape->end(), to.shape->begin(),
                    [](const Dimension& a, const Dimension& b) { return a.same_as(b); });
}

bool is_straight(const Node& node, size_t rank) {
  const auto perm = node.integers("perm");
  for (size_t i = 0; i < perm.size(); ++i) {
    if (perm[i] != static_cast<int64_t>(i)) return false;
  }
  return perm.size() == rank;
}

/// Whether a node gives the same numbers other axes.
bool reshapes(const Node& node) {
  return node.op == "Reshape" || node.op == "Flatten" || node.op == "Squeeze" ||
         node.op == "Unsqueeze";
}

/// Whether the node's first output is its first input, number for number.
bool hands_on(const Node& node, const Facts& in, const Facts& out) {
  if (node.op == "Identity" || node.op == "Dropout") return true;
  if (node.op == "Cast" || node.op == "CastLike") {
    return in.type == out.type || (is_real(in.type) && is_real(out.type));
  }
  if (node.op == "Transpose") return in.shape && is_straight(node, in.shape->size());
  return (reshapes(node) || node.op == "Expand") && same_shape(in, out);
}

/// What a node's first input was reshaped from, if anything was, or else that input.
ValueId before_reshape(const Graph& graph, const Node& node) {
  const NodeId source = source_of(graph, node, 0);
  const bool is_reshaped = source != kAbsent && reshapes(graph.node(source));
  return is_reshaped ? graph.node(source).inputs[0] : node.inputs[0];
}

/// A small file may ask for large constants; what it holds bounds what is computed of it.
int64_t most_folded(const Graph& graph) {
  constexpr int64_t kLeast = int64_t{1} << 22;
  constexpr int64_t kPerNumber = 64;
  int64_t held = 0;
  for (ValueId id = 0; static_cast<size_t>(id) < graph.value_count(); ++id) {
    const auto& constant = graph.value(id).constant;
    if (constant) held += count_of(constant->shape).value_or(0);
  }
  return std::min(Numbers::kMostElements, kLeast + kPerNumber * held);
}

}  // namespace

bool drop_identities(Graph& graph) {
  bool changed = false;
  const std::vector<Facts> facts = infer_facts(graph);
  for (const NodeId id : graph.order()) {
    const Node& node = graph.node(id);
    if (!node.has_input(0) || !node.has_output(0)) continue;
    // Of Dropout only the first output is the input.
    const bool others = std::any_of(node.outputs.begin() + 1, node.outputs.end(), [&](ValueId out) {
      return out != kAbsent && !graph.is_unused(out);
    });
    const ValueId out = node.outputs[0];
    const auto gives = [&](ValueId in) {
      return hands_on(node, facts[static_cast<size_t>(in)], facts[static_cast<size_t>(out)]);
    };
    ValueId in = node.inputs[0];
    if (!gives(in) && reshapes(node)) in = before_reshape(graph, node);
    if (others || !gives(in)) continue;
    graph.remove_node(id);
    graph.replace(out, in);
    changed = true;
  }
  return changed;
}

bool drop_unused(Graph& graph) {
  bool changed = false;
  std::vector<NodeId> order = graph.order();
  std::reverse(order.begin(), order.end());
  for (const NodeId id : order) {
    const Node& node = graph.node(id);
    const bool used = std::any_of(node.outputs.begin(), node.outputs.end(), [&](ValueId output) {
      return output != kAbsent && !graph.is_unused(output);
    });
    if (used) continue;
    graph.remove_node(id);
    changed = true;
  }
  return changed;
}

namespace {

/// Applies all rules until none changes anything.
void settle(Graph& graph, int64_t most) {
  bool changed = true;
  while (changed) {
    changed = drop_unused(graph);
    changed = take_branches(graph) || changed;
    changed = fold_constants(graph, most) || changed;
    for (bool (*rule)(Graph&) : {drop_identities,
                                 find_gelus,
                                 find_layer_normalizations,
                                 expand_einsums,
                                 choose_by_conditions,
                                 unroll_recurrences,
                                 join_idle_window_axes,
                                 join_transposes,
                                 push_transposes_down,
                                 move_rows_down,
                                 make_gemms,
                                 cut_products,
                                 fold_paddings,
                                 fold_scales_behind,
                                 fold_scales_in_front,
                                 join_clips,
                                 find_leaky_rectifiers,
                                 find_hard_swishes,
                                 find_swishes,
                                 find_hard_sigmoids}) {
      changed = rule(graph) || changed;
    }
  }
}

}  // namespace

void simplify(Graph& graph) {
  const int64_t most = most_folded(graph);
  settle(graph, most);
  // Later, as paddings and scales are looked for beside windows.
  if (raise_lines(graph)) settle(graph, most);
  drop_unused(graph);
  infer_shapes(graph);
}

}  // namespace marlo::toolkit
