#include "qrt_toolkit/shapes/tie.h"

#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "qrt_toolkit/evaluate/evaluate.h"
#include "qrt_toolkit/shapes/infer.h"

// Sizes are followed by numbering them: each size of each tensor whose shape is asked for gets a number
// of its own, beyond all numbers that stand for themselves, and is moved through the graph as far as it
// is only moved.

namespace marlo::toolkit {
namespace {

// Inputs of a Slice.
constexpr size_t kStarts = 1;
constexpr size_t kEnds = 2;
constexpr size_t kAxes = 3;
constexpr size_t kSteps = 4;
// Of a Resize.
constexpr size_t kSizes = 3;
constexpr int64_t kFirstNumber = int64_t{1} << 40;

/// One size: of a tensor along an axis.
struct Source {
  ValueId tensor;
  int64_t axis;
};

bool only_moves(const std::string& op) {
  static const std::set<std::string> names = {"Cast",    "Concat", "Gather",  "Identity",
                                              "Reshape", "Slice",  "Squeeze", "Unsqueeze"};
  return names.count(op) != 0;
}

class NumberedSizes {
 public:
  explicit NumberedSizes(const Graph& graph) : facts_(infer_facts(graph)) {
    for (const NodeId id : graph.order()) {
      const Node& node = graph.node(id);
      if (node.op == "Shape") number(node);
      if (only_moves(node.op)) move(node);
    }
  }

  /// The numbers of a value, with a source for each that is a size; null where they aren't known.
  const Numbers* find(ValueId id) const {
    const auto place = numbers_.find(id);
    return place == numbers_.end() ? nullptr : &place->second;
  }

  /// Nothing for a number that stands for itself.
  std::optional<Source> source_of(int64_t number) const {
    if (number < kFirstNumber) return std::nullopt;
    return sources_.at(static_cast<size_t>(number - kFirstNumber));
  }

  /// Of a constant; null where it isn't one.
  SharedNumbers known(ValueId id) const {
    return id == kAbsent ? nullptr : facts_[static_cast<size_t>(id)].numbers;
  }

  const std::optional<Shape>& shape(ValueId id) const {
    return facts_[static_cast<size_t>(id)].shape;
  }

 private:
  void number(const Node& node) {
    const auto& shape = facts_[static_cast<size_t>(node.inputs.at(0))].shape;
    if (!shape || node.has("start") || node.has("end") || !node.has_output(0)) return;
    Numbers::Integers sizes;
    for (size_t axis = 0; axis < shape->size(); ++axis) {
      sizes.push_back(kFirstNumber + static_cast<int64_t>(sources_.size()));
      sources_.push_back({node.inputs[0], static_cast<int64_t>(axis)});
    }
    numbers_.emplace(node.outputs[0], Numbers::integers_1d(std::move(sizes)));
  }

  void move(const Node& node) {
    std::vector<Numbers> constants;
    constants.reserve(node.inputs.size());
    std::vector<const Numbers*> inputs;
    bool any = false;
    for (const ValueId id : node.inputs) {
      inputs.push_back(nullptr);
      if (id == kAbsent) continue;
      if (const Numbers* sizes = find(id)) {
        // What says which elements are taken isn't moved itself.
        if (inputs.size() > 1 && node.op != "Concat") return;
        inputs.back() = sizes;
        any = true;
      } else if (const SharedNumbers constant = known(id)) {
        inputs.back() = &constants.emplace_back(*constant);
      } else {
        return;
      }
    }
    if (!any) return;
    Node plain = node;
    // A narrower type would cut the numbers.
    if (plain.op == "Cast") plain.op = "Identity";
    try {
      const Results results = evaluate_node(plain, inputs);
      if (!results.empty() && node.has_output(0)) numbers_.emplace(node.outputs[0], results[0]);
    } catch (const ImportError&) {
      // Types that don't go together once one is left out; the sizes are then constants.
    }
  }

  const std::vector<Facts> facts_;
  std::map<ValueId, Numbers> numbers_;
  std::vector<Source> sources_;
};

/// Sizes of one tensor for axes of another.
struct Tie {
  ValueId tensor = kAbsent;
  std::vector<int64_t> axes;
  std::vector<int64_t> from;

  /// @return whether it is the same tensor
  bool add(int64_t axis, const Source& source) {
    if (tensor != kAbsent && tensor != source.tensor) return false;
    tensor = source.tensor;
    axes.push_back(axis);
    from.push_back(source.axis);
    return true;
  }
};

/// Sizes are those of all axes. Batch and channels that keep theirs are no part of it, whosever shape
/// they are taken from.
std::optional<Tie> tie_of_resize(const Node& node, const NumberedSizes& sizes) {
  const Numbers* target = node.has_input(kSizes) ? sizes.find(node.inputs[kSizes]) : nullptr;
  const std::optional<Shape>& shape = sizes.shape(node.inputs.at(0));
  if (target == nullptr || !shape || node.has("axes")) return std::nullopt;
  if (static_cast<size_t>(target->count()) != shape->size()) return std::nullopt;
  constexpr size_t kInFront = 2;
  Tie tie;
  for (size_t axis = 0; axis < shape->size(); ++axis) {
    const int64_t number = target->integer(axis);
    const auto source = sizes.source_of(number);
    if (!source) {
      if (number != (*shape)[axis].size) return std::nullopt;
      continue;
    }
    const bool is_own =
        source->tensor == node.inputs[0] && source->axis == static_cast<int64_t>(axis);
    const auto& other = sizes.shape(source->tensor);
    const bool keeps = axis < kInFront && other &&
                       (*other)[static_cast<size_t>(source->axis)].same_as((*shape)[axis]);
    if (is_own || keeps) continue;
    if (!tie.add(static_cast<int64_t>(axis), *source)) return std::nullopt;
  }
  return tie;
}

/// From the first element on, one behind the other, to where the other tensor ends.
std::optional<Tie> tie_of_slice(const Node& node, const NumberedSizes& sizes) {
  const Numbers* ends = node.has_input(kEnds) ? sizes.find(node.inputs[kEnds]) : nullptr;
  const std::optional<Shape>& shape = sizes.shape(node.inputs.at(0));
  if (ends == nullptr || !shape) return std::nullopt;
  const auto count = static_cast<size_t>(ends->count());
  const auto all_are = [&](size_t place, int64_t number) {
    const SharedNumbers known = sizes.known(node.inputs[place]);
    if (known == nullptr || static_cast<size_t>(known->count()) != count) return false;
    for (size_t i = 0; i < count; ++i) {
      if (known->integer(i) != number) return false;
    }
    return true;
  };
  if (!all_are(kStarts, 0) || (node.has_input(kSteps) && !all_are(kSteps, 1))) return std::nullopt;
  const SharedNumbers axes = node.has_input(kAxes) ? sizes.known(node.inputs[kAxes]) : nullptr;
  if (node.has_input(kAxes) && axes == nullptr) return std::nullopt;
  Tie tie;
  for (size_t i = 0; i < count; ++i) {
    const auto source = sizes.source_of(ends->integer(i));
    const auto axis = axes == nullptr ? i : axis_from_front(axes->integer(i), shape->size());
    if (!source || !tie.add(static_cast<int64_t>(axis), *source)) return std::nullopt;
  }
  return tie;
}

}  // namespace

size_t tied_input(const Node& node) { return node.op == "Resize" ? kSizes + 1 : kSteps + 1; }

void tie_sizes(Graph& graph) {
  std::vector<std::pair<NodeId, Tie>> ties;
  {
    const NumberedSizes sizes(graph);
    for (const NodeId id : graph.order()) {
      const Node& node = graph.node(id);
      std::optional<Tie> tie;
      if (node.op == "Resize") tie = tie_of_resize(node, sizes);
      if (node.op == "Slice") tie = tie_of_slice(node, sizes);
      if (tie && !tie->axes.empty()) ties.emplace_back(id, *std::move(tie));
    }
  }
  for (auto& [id, tie] : ties) {
    // What becomes a constant has no layer, and its sizes don't change.
    if (graph.value(tie.tensor).constant) continue;
    graph.set_input(id, tied_input(graph.node(id)), tie.tensor);
    graph.node(id).attributes[kTiedAxes] = std::move(tie.axes);
    graph.node(id).attributes[kTiedFrom] = std::move(tie.from);
  }
}

}  // namespace marlo::toolkit
