#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "qrt_toolkit/operators/window.h"
#include "qrt_toolkit/simplify/match.h"
#include "qrt_toolkit/simplify/simplify.h"

// Operators that choose elements by their places become those that choose by conditions, and windows
// over three axes those over fewer.

namespace marlo::toolkit {
namespace {

constexpr int64_t kMostPlaces = 65536;  // of an axis that is chosen from

const std::optional<Shape>& shape_of_input(const Node& node, size_t place,
                                           const std::vector<Facts>& facts) {
  return facts[static_cast<size_t>(node.inputs[place])].shape;
}

ValueId add_number(Graph& graph, ElementType type, double number) {
  Numbers numbers = converted(Numbers::reals_1d({number}), type);
  numbers.shape.clear();
  return graph.add_constant("", constant_of(numbers));
}

/// Trilu keeps what a constant picture of its triangle lets through.
bool choose_triangle(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const Node node = graph.node(id);
  if (node.op != "Trilu" || constant_input(graph, node, 0) != nullptr) return false;
  const auto& shape = shape_of_input(node, 0, facts);
  if (!shape || shape->size() < 2) return false;
  const Dimension rows = (*shape)[shape->size() - 2];
  const Dimension columns = shape->back();
  if (!rows.known() || !columns.known()) return false;
  if (node.has_input(1) && constant_input(graph, node, 1) == nullptr) return false;
  const int64_t k = node.has_input(1) ? constant_input(graph, node, 1)->numbers().integer(0) : 0;
  const bool upper = node.integer("upper", 1) != 0;
  Numbers kept(ElementType::boolean, {rows.size, columns.size});
  for (int64_t i = 0; i < kept.count(); ++i) {
    const int64_t distance = i % columns.size - i / columns.size;
    kept.integers()[static_cast<size_t>(i)] = upper ? distance >= k : distance <= k;
  }
  const ElementType type = facts[static_cast<size_t>(node.inputs[0])].type;
  const ValueId mask = graph.add_constant("", constant_of(kept));
  put(graph, id, node_like(node, "Where", {mask, node.inputs[0], add_number(graph, type, 0)}));
  return true;
}

/// OneHot compares places with all that there are.
bool compare_places(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const Node node = graph.node(id);
  if (node.op != "OneHot" || constant_input(graph, node, 0) != nullptr) return false;
  const auto& shape = shape_of_input(node, 0, facts);
  const auto depth = number_input(graph, node, 1);
  const Constant* given = constant_input(graph, node, 2);
  if (!shape || !depth || *depth < 1 || *depth > kMostPlaces || given == nullptr ||
      count_of(given->shape) != 2) {
    return false;
  }
  const Numbers values = given->numbers();  // values that are added move those that are there
  const size_t axis = axis_from_front(node.integer("axis", -1), shape->size() + 1);
  const ElementType type = facts[static_cast<size_t>(node.inputs[0])].type;
  const ValueId places =
      add_node(graph,
               node_like(node, "Unsqueeze",
                         {node.inputs[0], add_integers(graph, {static_cast<int64_t>(axis)})}),
               type);
  const auto equal_from = [&](int64_t first) {
    Numbers::Integers numbers(static_cast<size_t>(*depth));
    std::iota(numbers.begin(), numbers.end(), first);
    Numbers all = converted(Numbers::integers_1d(std::move(numbers)), type);
    all.shape.insert(all.shape.end(), shape->size() - axis, 1);
    const ValueId listed = graph.add_constant("", constant_of(all));
    return add_node(graph, node_like(node, "Equal", {places, listed}), ElementType::boolean);
  };
  ValueId chosen = equal_from(0);
  const NodeId source = source_of(graph, node, 0);
  const std::string maker = source == kAbsent ? "" : graph.node(source).op;
  if (maker != "ArgMax" && maker != "ArgMin") {
    // Places may be counted from the end.
    const ValueId from_end = equal_from(-static_cast<int64_t>(*depth));
    chosen = add_node(graph, node_like(node, "Or", {chosen, from_end}), ElementType::boolean);
  }
  const ValueId on = add_number(graph, values.type, values.real(1));
  const ValueId off = add_number(graph, values.type, values.real(0));
  put(graph, id, node_like(node, "Where", {chosen, on, off}));
  return true;
}

/// The first of all is the largest or the smallest, and its place.
bool take_extreme(Graph& graph, NodeId id) {
  const Node node = graph.node(id);
  if (node.op != "TopK" || number_input(graph, node, 1) != 1.0) return false;
  const bool largest = node.integer("largest", 1) != 0;
  const int64_t axis = node.integer("axis", -1);
  graph.remove_node(id);
  if (node.has_output(0)) {
    replace_output(graph, node.outputs[0],
                   node_like(node, largest ? "ReduceMax" : "ReduceMin",
                             {node.inputs[0], add_integers(graph, {axis})}));
  }
  if (node.has_output(1)) {
    Node place = node_like(node, largest ? "ArgMax" : "ArgMin", {node.inputs[0]});
    place.attributes["axis"] = axis;
    replace_output(graph, node.outputs[1], std::move(place));
  }
  return true;
}

/// All numbers from 0 on, along an axis that `behind` others follow.
ValueId add_places(Graph& graph, int64_t count, size_t behind) {
  Numbers places = Numbers::integers_1d(Numbers::Integers(static_cast<size_t>(count)));
  std::iota(places.integers().begin(), places.integers().end(), int64_t{0});
  places.shape.insert(places.shape.end(), behind, 1);
  return graph.add_constant("", constant_of(places));
}

/// The first few of all, one after the other: what has been taken is no longer there.
class FirstFew {
 public:
  FirstFew(Graph& graph, const Node& node, const Facts& all, size_t axis)
      : graph_(graph),
        node_(node),
        type_(all.type),
        axis_(static_cast<int64_t>(axis)),
        largest_(node.integer("largest", 1) != 0),
        has_places_(node.has_output(1) && !graph.is_unused(node.outputs[1])),
        listed_(add_places(graph, (*all.shape)[axis].size, all.shape->size() - axis - 1)),
        none_(add_number(graph, type_, largest_ ? -HUGE_VAL : HUGE_VAL)),
        rest_(node.inputs[0]) {}

  void take(bool is_last) {
    numbers_.push_back(
        made(largest_ ? "ReduceMax" : "ReduceMin", {rest_, add_integers(graph_, {axis_})}, type_));
    places_.push_back(place_of_last());
    if (is_last) return;
    const ValueId taken = made("Equal", {places_.back(), listed_}, ElementType::boolean);
    rest_ = made("Where", {taken, none_, rest_}, type_);
    if (!has_places_) return;
    const ValueId left = made("Not", {taken}, ElementType::boolean);
    left_ = left_ == kAbsent ? left : made("And", {left_, left}, ElementType::boolean);
  }

  /// All that were taken, in the place of the node's outputs.
  void join() {
    for (const size_t output : {size_t{0}, size_t{1}}) {
      if (!node_.has_output(output)) continue;
      Node joined = node_like(node_, "Concat", output == 0 ? numbers_ : places_);
      joined.attributes["axis"] = axis_;
      replace_output(graph_, node_.outputs[output], std::move(joined));
    }
  }

 private:
  ValueId made(const char* op, std::vector<ValueId> inputs, ElementType type) {
    return add_node(graph_, node_like(node_, op, std::move(inputs)), type);
  }

  ValueId place_of(const char* op, ValueId numbers) {
    Node place = node_like(node_, op, {numbers});
    place.attributes["axis"] = axis_;
    return add_node(graph_, std::move(place), ElementType::int64);
  }

  /// Where all that is left is infinite, what has been taken looks the same: its number is right, its
  /// place isn't. So a place that somebody reads is the first of those that are left.
  ValueId place_of_last() {
    if (!has_places_ || left_ == kAbsent) return place_of(largest_ ? "ArgMax" : "ArgMin", rest_);
    const ValueId equal = made("Equal", {rest_, numbers_.back()}, ElementType::boolean);
    Node number = node_like(node_, "Cast", {made("And", {equal, left_}, ElementType::boolean)});
    number.attributes["to"] = static_cast<int64_t>(ElementType::float32);
    return place_of("ArgMax", add_node(graph_, std::move(number), ElementType::float32));
  }

  Graph& graph_;
  Node node_;
  ElementType type_;
  int64_t axis_;
  bool largest_;
  bool has_places_;
  ValueId listed_;  // all places there are
  ValueId none_;    // stands where one has been taken
  ValueId rest_;
  ValueId left_ = kAbsent;  // whether a place hasn't been taken; absent before the first is
  std::vector<ValueId> numbers_;
  std::vector<ValueId> places_;
};

bool take_several(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  constexpr double kMost = 64;
  const Node node = graph.node(id);
  const auto count = number_input(graph, node, 1);
  if (node.op != "TopK" || !count || *count < 2 || *count > kMost) return false;
  const Facts& all = facts[static_cast<size_t>(node.inputs[0])];
  if (!all.shape || !is_real(all.type)) return false;
  const size_t axis = axis_from_front(node.integer("axis", -1), all.shape->size());
  const Dimension size = (*all.shape)[axis];
  if (!size.known() || size.size > kMostPlaces || *count > static_cast<double>(size.size)) {
    return false;
  }
  FirstFew first(graph, node, all, axis);
  const auto wanted = static_cast<size_t>(*count);
  for (size_t i = 1; i <= wanted; ++i) first.take(i == wanted);
  graph.remove_node(id);
  first.join();
  return true;
}

/// Elements of a tensor by numbers that aren't known, from zeros and ones in their places; of a
/// constant along another axis than its first, along that.
bool take_by_product(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const Node node = graph.node(id);
  if (node.op != "Gather" || !node.has_input(1) || constant_input(graph, node, 1) != nullptr) {
    return false;
  }
  const auto& shape = shape_of_input(node, 0, facts);
  const auto& listed = shape_of_input(node, 1, facts);
  const auto sizes = shape ? extents_of(*shape) : std::nullopt;
  const auto places = listed ? extents_of(*listed) : std::nullopt;
  const ElementType type = facts[static_cast<size_t>(node.inputs[0])].type;
  if (!sizes || !places || sizes->empty() || !is_real(type)) return false;
  const size_t axis = axis_from_front(node.integer("axis", 0), sizes->size());
  const bool is_table = constant_input(graph, node, 0) != nullptr;
  const int64_t size = (*sizes)[axis];
  const int64_t count = count_of(*places).value_or(0);
  if ((is_table && axis == 0) || size < 1 || size > kMostPlaces || count < 1) return false;
  const auto reshaped = [&](ValueId value, const Extents& to) {
    return add_node(graph, node_like(node, "Reshape", {value, add_integers(graph, to)}), type);
  };
  const auto transposed = [&](ValueId value, const std::vector<int64_t>& perm) {
    Node made = node_like(node, "Transpose", {value});
    made.attributes["perm"] = perm;
    return made;
  };
  Extents others = *sizes;
  others.erase(others.begin() + static_cast<std::ptrdiff_t>(axis));
  std::vector<int64_t> first(sizes->size());
  std::iota(first.begin(), first.end(), int64_t{0});
  std::rotate(first.begin(), first.begin() + static_cast<std::ptrdiff_t>(axis),
              first.begin() + static_cast<std::ptrdiff_t>(axis) + 1);
  const ValueId moved =
      axis == 0 ? node.inputs[0] : add_node(graph, transposed(node.inputs[0], first), type);
  const ValueId rows = reshaped(moved, {size, count_of(others).value_or(0)});
  ValueId taken = kAbsent;
  if (is_table) {
    taken = add_node(graph, node_like(node, "Gather", {rows, node.inputs[1]}), type);
  } else {
    const ValueId values =
        graph.add_constant("", constant_of(converted(Numbers::reals_1d({0, 1}), type)));
    const ValueId chosen = add_node(
        graph, node_like(node, "OneHot", {node.inputs[1], add_integers(graph, {size}), values}),
        type);
    taken =
        add_node(graph, node_like(node, "MatMul", {reshaped(chosen, {count, size}), rows}), type);
  }
  Extents made = *places;
  made.insert(made.end(), others.begin(), others.end());
  const ValueId result = reshaped(taken, made);
  // The axes of the places stand where the axis stood.
  std::vector<int64_t> back(made.size());
  std::iota(back.begin(), back.end(), int64_t{0});
  const auto listed_axes = static_cast<std::ptrdiff_t>(places->size());
  std::rotate(back.begin(), back.begin() + listed_axes,
              back.begin() + listed_axes + static_cast<std::ptrdiff_t>(axis));
  put(graph, id, transposed(result, back));
  return true;
}

bool is_idle(const WindowAxis& axis) {
  return axis.kernel == 1 && axis.stride == 1 && axis.pad_begin == 0 && axis.pad_end == 0;
}

/// Of three axes of a pooling, one in front that it doesn't walk joins the channels, or two behind
/// that it doesn't walk become one.
bool join_idle_axes(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const Node node = graph.node(id);
  const bool is_pool = node.op == "AveragePool" || (node.op == "MaxPool" && !node.has_output(1));
  if (!is_pool) return false;
  const auto& shape = shape_of_input(node, 0, facts);
  const auto& made = facts[static_cast<size_t>(node.outputs[0])].shape;
  const auto in = shape ? extents_of(*shape) : std::nullopt;
  const auto out = made ? extents_of(*made) : std::nullopt;
  constexpr size_t kAxes = 5;
  if (!in || !out || in->size() != kAxes) return false;
  const Window window = pooling_window(node, kAxes);
  if (window.auto_pad != AutoPad::given) return false;
  const bool front = is_idle(window.axes[0]);
  const bool behind = is_idle(window.axes[1]) && is_idle(window.axes[2]);
  if (!front && !behind) return false;
  Extents joined = front ? Extents{(*in)[0], (*in)[1] * (*in)[2], (*in)[3], (*in)[4]}
                         : Extents{(*in)[0], (*in)[1], (*in)[2], (*in)[3] * (*in)[4]};
  const ElementType type = facts[static_cast<size_t>(node.inputs[0])].type;
  Node pool = node;
  pool.inputs = {add_node(
      graph, node_like(node, "Reshape", {node.inputs[0], add_integers(graph, joined)}), type)};
  const size_t left_out = front ? 0 : 2;
  for (const char* name : {"kernel_shape", "strides", "dilations"}) {
    auto numbers = node.integers(name);
    if (numbers.size() != 3) continue;
    numbers.erase(numbers.begin() + static_cast<std::ptrdiff_t>(left_out));
    pool.attributes[name] = numbers;
  }
  auto pads = node.integers("pads");
  if (pads.size() == 6) {
    pads.erase(pads.begin() + static_cast<std::ptrdiff_t>(left_out + 3));
    pads.erase(pads.begin() + static_cast<std::ptrdiff_t>(left_out));
    pool.attributes["pads"] = pads;
  }
  const ValueId pooled = add_node(graph, std::move(pool), type);
  put(graph, id, node_like(node, "Reshape", {pooled, add_integers(graph, *out)}));
  return true;
}

}  // namespace

bool choose_by_conditions(Graph& graph) {
  const bool triangles = everywhere<choose_triangle>(graph);
  const bool places = everywhere<compare_places>(graph);
  const bool several = everywhere<take_several>(graph);
  const bool taken = everywhere<take_by_product>(graph);
  return everywhere<take_extreme>(graph) || triangles || places || several || taken;
}

bool join_idle_window_axes(Graph& graph) { return everywhere<join_idle_axes>(graph); }

}  // namespace marlo::toolkit
