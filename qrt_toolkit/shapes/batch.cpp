#include "qrt_toolkit/shapes/batch.h"

#include <algorithm>
#include <set>
#include <string>
#include <utility>

namespace marlo::toolkit {
namespace {

/// Operators whose first input and output begin with a batch.
const std::set<std::string>& batched_operators() {
  static const std::set<std::string> names = {"AveragePool",
                                              "BatchNormalization",
                                              "Conv",
                                              "ConvTranspose",
                                              "DepthToSpace",
                                              "Gemm",
                                              "GlobalAveragePool",
                                              "GlobalMaxPool",
                                              "GridSample",
                                              "GroupNormalization",
                                              "InstanceNormalization",
                                              "LRN",
                                              "MaxPool",
                                              "SpaceToDepth"};
  return names;
}

/// Operators whose outputs have each axis where the first input has it.
bool keeps_axes(const std::string& op) {
  static const std::set<std::string> names = {"Pad", "Resize", "Slice", "Split", "Concat"};
  return names.count(op) != 0;
}

bool is_recurrent(const std::string& op) { return op == "LSTM" || op == "GRU" || op == "RNN"; }

bool is_reduction(const std::string& op) { return op.rfind("Reduce", 0) == 0; }

class BatchAxes {
 public:
  BatchAxes(const Graph& graph, const std::vector<Facts>& facts)
      : graph_(graph), facts_(facts), axes_(facts.size()) {}

  std::vector<std::optional<size_t>> run() {
    const std::vector<NodeId> order = graph_.order();
    for (const NodeId id : order) mark_seeds(graph_.node(id));
    // Each pass carries axes as far as the order allows; the other direction needs further ones.
    do {
      changed_ = false;
      for (const NodeId id : order) carry(graph_.node(id));
    } while (changed_);
    check();
    return std::move(axes_);
  }

 private:
  size_t rank(ValueId id) const {
    const auto& shape = facts_[static_cast<size_t>(id)].shape;
    return shape ? shape->size() : 0;
  }

  bool is_constant(ValueId id) const {
    return graph_.value(id).constant.has_value() || facts_[static_cast<size_t>(id)].numbers;
  }

  void mark(ValueId id, size_t axis) {
    std::optional<size_t>& known = axes_[static_cast<size_t>(id)];
    if (known || axis >= rank(id) || is_constant(id)) return;
    known = axis;
    changed_ = true;
  }

  void mark_seeds(const Node& node) {
    if (is_recurrent(node.op)) return mark_recurrent(node);
    if (!node.has_input(0) || !node.has_output(0)) return;
    // Of four axes that are resized, the first two stay as they are: a batch and channels.
    const bool picture = node.op == "Resize" && rank(node.inputs[0]) == 4;
    if (batched_operators().count(node.op) == 0 && !picture) return;
    // The rows of a matrix may be a sequence: they are a batch where there is one.
    const bool rows =
        node.op == "Gemm" && (node.integer("transA", 0) != 0 || size_of(node.inputs[0], 0) > 1);
    if (rows) return;
    mark(node.inputs[0], 0);
    mark(node.outputs[0], 0);
    if (node.op == "GridSample" && node.has_input(1)) mark(node.inputs[1], 0);
  }

  int64_t size_of(ValueId id, size_t axis) const {
    return rank(id) > axis ? (*facts_[static_cast<size_t>(id)].shape)[axis].size : -1;
  }

  /// A sequence [steps, batch, in], its results [steps, directions, batch, hidden], and states
  /// [directions, batch, hidden]; or each with the batch first.
  void mark_recurrent(const Node& node) {
    const bool first = node.integer("layout", 0) != 0;
    for (const size_t place : {size_t{0}, size_t{5}, size_t{6}}) {
      if (node.has_input(place)) mark(node.inputs[place], first ? 0 : 1);
    }
    for (size_t i = 0; i < node.outputs.size(); ++i) {
      if (node.outputs[i] != kAbsent) mark(node.outputs[i], first ? 0 : i == 0 ? 2 : 1);
    }
  }

  /// The axis of `a` is the axis of `b`, whichever is known.
  void tie(ValueId a, size_t axis_of_a, ValueId b, size_t axis_of_b) {
    if (axes_[static_cast<size_t>(a)] == axis_of_a) mark(b, axis_of_b);
    if (axes_[static_cast<size_t>(b)] == axis_of_b) mark(a, axis_of_a);
  }

  void tie_same(ValueId a, ValueId b) {
    for (size_t i = 0; i < rank(a); ++i) tie(a, i, b, i);
  }

  /// Counted from the last axis, as broadcasting does.
  void tie_from_back(ValueId a, ValueId b) {
    for (size_t i = 1; i <= std::min(rank(a), rank(b)); ++i) tie(a, rank(a) - i, b, rank(b) - i);
  }

  void carry(const Node& node) {
    if (!node.has_input(0) || node.outputs.empty() || node.outputs[0] == kAbsent) return;
    const ValueId in = node.inputs[0];
    const ValueId out = node.outputs[0];
    if (node.op == "Transpose") return carry_transpose(node, in, out);
    if (node.op == "Unsqueeze" && node.has_input(1)) return carry_new_axes(node, out, in);
    if (node.op == "Squeeze" && node.has_input(1)) return carry_new_axes(node, in, out);
    if (node.op == "Reshape" || node.op == "Flatten" || node.op == "Squeeze" ||
        node.op == "Unsqueeze") {
      return carry_reshape(in, out);
    }
    if (is_reduction(node.op) || node.op == "ArgMax" || node.op == "ArgMin") {
      return carry_reduction(node, in, out);
    }
    if (node.op == "MatMul") return carry_product(node, in, out);
    if (keeps_axes(node.op)) {
      for (const ValueId output : node.outputs) {
        if (output != kAbsent) tie_same(in, output);
      }
      if (node.op != "Concat") return;
      for (const ValueId input : node.inputs) tie_same(input, out);
      return;
    }
    if (node.op == "Shape" || node.op == "Size" || node.op == "If") return;
    if (is_recurrent(node.op)) return;
    if (node.op == "GatherND") return;
    if (node.op == "ScatterND" || node.op == "ScatterElements") return tie_same(in, out);
    if (node.op == "Gather") return carry_gather(node, in, out);
    if (node.op == "Gemm") return tie(in, node.integer("transA", 0) != 0 ? 1 : 0, out, 0);
    // Weights have no batch, computed ones neither.
    if (batched_operators().count(node.op) != 0) return;
    for (const ValueId input : node.inputs) {
      if (input != kAbsent) tie_from_back(input, out);
    }
  }

  /// Rows are the first operand's, columns the second one's; both have the axes in front.
  void carry_product(const Node& node, ValueId in, ValueId out) {
    if (rank(in) == rank(out)) {
      for (size_t i = 0; i + 1 < rank(in); ++i) tie(in, i, out, i);
    }
    const ValueId other = node.inputs.at(1);
    if (rank(other) != rank(out)) return;
    for (size_t i = 0; i + 2 < rank(other); ++i) tie(other, i, out, i);
  }

  void carry_transpose(const Node& node, ValueId in, ValueId out) {
    const auto perm = node.integers("perm");
    for (size_t i = 0; i < rank(out); ++i) {
      const size_t from = perm.empty() ? rank(out) - 1 - i : static_cast<size_t>(perm[i]);
      tie(in, from, out, i);
    }
  }

  /// The axes of `fewer` are those of `more` but for the listed ones.
  void carry_new_axes(const Node& node, ValueId more, ValueId fewer) {
    const SharedNumbers listed = facts_[static_cast<size_t>(node.inputs[1])].numbers;
    if (listed == nullptr) return;
    std::vector<bool> is_listed(rank(more), false);
    for (const int64_t axis : listed->integers()) {
      is_listed[axis_from_front(axis, rank(more), "axes")] = true;
    }
    size_t to = 0;
    for (size_t i = 0; i < rank(more); ++i) {
      if (!is_listed[i] && to < rank(fewer)) tie(more, i, fewer, to++);
    }
  }

  /// Axes in front that keep their sizes stay what they are.
  void carry_reshape(ValueId in, ValueId out) {
    const auto& from = facts_[static_cast<size_t>(in)].shape;
    const auto& to = facts_[static_cast<size_t>(out)].shape;
    if (!from || !to) return;
    for (size_t i = 0; i < std::min(from->size(), to->size()); ++i) {
      if (!(*from)[i].same_as((*to)[i])) return;
      tie(in, i, out, i);
    }
  }

  /// The axis that is taken from is replaced by the axes of the indices.
  void carry_gather(const Node& node, ValueId in, ValueId out) {
    if (!node.has_input(1) || rank(in) == 0) return;
    const size_t axis = axis_from_front(node.integer("axis", 0), rank(in));
    for (size_t i = 0; i < rank(node.inputs[1]); ++i) tie(node.inputs[1], i, out, axis + i);
    for (size_t i = 0; i < rank(in); ++i) {
      if (i == axis) continue;
      tie(in, i, out, i < axis ? i : i + rank(node.inputs[1]) - 1);
    }
  }

  void carry_reduction(const Node& node, ValueId in, ValueId out) {
    if (rank(in) == rank(out)) return tie_same(in, out);
    // Without the reduced axes, those in front of them keep their place.
    std::vector<int64_t> axes = node.integers("axes");
    if (node.has_input(1) && facts_[static_cast<size_t>(node.inputs[1])].numbers) {
      axes = facts_[static_cast<size_t>(node.inputs[1])].numbers->integers();
    }
    if (node.has("axis")) axes = {node.integer("axis", 0)};
    std::vector<bool> reduced(rank(in), axes.empty());
    for (const int64_t axis : axes) reduced[axis_from_front(axis, rank(in), "axes")] = true;
    size_t to = 0;
    for (size_t i = 0; i < rank(in); ++i) {
      if (!reduced[i]) tie(in, i, out, to++);
    }
  }

  void check() const {
    std::vector<Refusal> refusals;
    for (const ValueId id : graph_.inputs) refuse_batch(id, "input", refusals);
    for (const NodeId node : graph_.order()) {
      if (!refusals.empty()) break;
      for (const ValueId id : graph_.node(node).outputs) {
        if (id != kAbsent) refuse_batch(id, "tensor", refusals);
      }
    }
    if (!refusals.empty()) throw UnsupportedError(std::move(refusals));
  }

  void refuse_batch(ValueId id, const char* kind, std::vector<Refusal>& refusals) const {
    const auto axis = axes_[static_cast<size_t>(id)];
    if (!axis) return;
    const Dimension& size = (*facts_[static_cast<size_t>(id)].shape)[*axis];
    if (size.size == 1) return;
    refusals.push_back({"", "", 0, "", kind + (" \"" + graph_.value(id).name + "\""),
                        size.known() ? "a batch of " + std::to_string(size.size) +
                                           " can't be run: tensors have no batch axis"
                                     : "the size of the batch isn't known",
                        "give the network's inputs a batch of 1"});
  }

  const Graph& graph_;
  const std::vector<Facts>& facts_;
  std::vector<std::optional<size_t>> axes_;
  bool changed_ = false;
};

}  // namespace

std::vector<std::optional<size_t>> find_batch_axes(const Graph& graph,
                                                   const std::vector<Facts>& facts) {
  return BatchAxes(graph, facts).run();
}

}  // namespace marlo::toolkit
