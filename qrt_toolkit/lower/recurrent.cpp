#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/groups.h"

// LSTM, GRU and RNN over a sequence. The kernels know one sequence at a time and keep their state
// from pass to pass; their gates stand in another order. Those of the second set take their first
// states and hand out their last ones instead.

namespace marlo::toolkit {
namespace {

/// What differs between the three. Inputs are X, W, R, B, lengths, h, c, peepholes.
struct Network {
  const char* kernel;
  const char* kernel_with_states;
  std::vector<size_t> gates;  ///< the operator's gate for each of the kernel's
  std::vector<const char*> functions;
};

Network network_of(const runtime::LSTMInfo&) {
  return {"LSTM_Fallback_SC_F32_M1",
          "LSTMStates_Fallback_SC_F32_M1",
          {0, 2, 3, 1},
          {"Sigmoid", "Tanh", "Tanh"}};
}
Network network_of(const runtime::GRUInfo&) {
  return {"GRU_Fallback_SC_F32_M1", "GRUStates_Fallback_SC_F32_M1", {1, 0, 2}, {"Sigmoid", "Tanh"}};
}
Network network_of(const runtime::RNNInfo&) {
  return {"RNN_Fallback_SC_F32_M1", "RNNStates_Fallback_SC_F32_M1", {0}, {"Tanh"}};
}

/// The activations that the node asks for, one for each function of each direction.
std::vector<std::string> activations_of(const Node& node) {
  const auto place = node.attributes.find("activations");
  if (place == node.attributes.end()) return {};
  const auto* names = std::get_if<std::vector<std::string>>(&place->second);
  return names == nullptr ? std::vector<std::string>() : *names;
}

void require_functions(const Node& node, const Network& network) {
  const auto names = activations_of(node);
  for (size_t i = 0; i < names.size(); ++i) {
    if (names[i] == network.functions[i % network.functions.size()]) continue;
    throw NodeFault{"activations", names[i] + " in this place has no kernel"};
  }
}

void set_functions(const Node& node, runtime::LSTMInfo& info) {
  if (node.integer("input_forget", 0) != 0) {
    throw NodeFault{"input_forget", "coupled gates have no kernel"};
  }
  require_functions(node, network_of(info));
}

void set_functions(const Node& node, runtime::GRUInfo& info) {
  if (node.integer("linear_before_reset", 0) == 0) {
    throw NodeFault{"linear_before_reset",
                    "a reset in front of the product has no kernel, and steps of their own are "
                    "made for up to 128",
                    "export the layer with its reset behind the product (reset_after)"};
  }
  require_functions(node, network_of(info));
}

void set_functions(const Node& node, runtime::RNNInfo& info) {
  constexpr uint16_t kRectifier = 2;
  constexpr uint16_t kTanh = 5;
  const auto names = activations_of(node);
  const bool rectified = !names.empty() && names[0] == "Relu";
  info.activation_type = rectified ? kRectifier : kTanh;
  for (const std::string& name : names) {
    if (name == (rectified ? "Relu" : "Tanh")) continue;
    throw NodeFault{"activations", name + " in this place has no kernel"};
  }
}

/// The rows of one direction in the kernel's order of gates.
/// @param numbers [directions, parts * gates * hidden, columns]
Numbers ordered(const Numbers& numbers, const std::vector<size_t>& gates, size_t direction,
                size_t hidden, size_t part = 0, size_t parts = 1) {
  const size_t columns = numbers.shape.size() == 3 ? static_cast<size_t>(numbers.shape[2]) : 1;
  const size_t gate = hidden * columns;
  const auto first = static_cast<std::ptrdiff_t>((direction * parts + part) * gates.size() * gate);
  Numbers result(ElementType::float32, {static_cast<int64_t>(gates.size() * gate)});
  auto to = result.reals().begin();
  for (const size_t from : gates) {
    to = std::copy_n(numbers.reals().begin() + first + static_cast<std::ptrdiff_t>(from * gate),
                     gate, to);
  }
  return result;
}

/// The weights of one direction of the kernel.
struct Direction {
  std::vector<runtime::WeightBlob>& weight_ih;
  std::vector<runtime::WeightBlob>& weight_hh;
  std::vector<runtime::WeightBlob>& bias_ih;
  std::vector<runtime::WeightBlob>& bias_hh;
};

Direction direction_of(runtime::RecurrentSequenceWeights& w, bool reverse) {
  if (reverse) {
    return {w.weight_ih_reverse, w.weight_hh_reverse, w.bias_ih_reverse, w.bias_hh_reverse};
  }
  return {w.weight_ih_forward, w.weight_hh_forward, w.bias_ih_forward, w.bias_hh_forward};
}

/// The sizes of a node.
struct Sizes {
  bool reverse_only;
  size_t directions;  ///< of the node
  int64_t steps;
  int64_t in;
  int64_t hidden;
};

Sizes sizes_of(const Lowering& lowering) {
  const Extents x = lowering.input_sizes(0);
  if (x.size() != 2) {
    throw NodeFault{"input 0", "expected one sequence, found " + text_of(x),
                    "give the network's inputs a batch of 1"};
  }
  const std::string direction = lowering.node().text("direction", "forward");
  const Extents r = lowering.required_constant(2)->shape;
  if (r.size() != 3) {
    throw NodeFault{"input 2", "expected weights of three axes, found " + text_of(r),
                    "mend the file"};
  }
  return {direction == "reverse", direction == "bidirectional" ? size_t{2} : size_t{1}, x[0], x[1],
          r.at(2)};
}

/// Refuses weights of other sizes than the input, the gates and the hidden part say.
void require_shape(const Numbers& numbers, const Extents& expected, const std::string& place) {
  if (numbers.shape == expected) return;
  throw NodeFault{place, "expected " + text_of(expected) + ", found " + text_of(numbers.shape),
                  "the weights don't belong to the input or to each other: mend the file"};
}

template <class Info>
void set_weights(const Lowering& lowering, const Sizes& sizes, Info& info) {
  const SharedNumbers w = lowering.required_constant(1);
  const SharedNumbers r = lowering.required_constant(2);
  const bool has_bias = lowering.node().has_input(3);
  const SharedNumbers b = has_bias ? lowering.required_constant(3) : nullptr;
  const auto gates = network_of(info).gates;
  const auto directions = static_cast<int64_t>(sizes.directions);
  const int64_t rows = static_cast<int64_t>(gates.size()) * sizes.hidden;
  require_shape(*w, {directions, rows, sizes.in}, "input 1");
  require_shape(*r, {directions, rows, sizes.hidden}, "input 2");
  if (has_bias) require_shape(*b, {directions, 2 * rows}, "input 3");
  const auto hidden = static_cast<size_t>(sizes.hidden);
  info.in_size = narrow_u16(sizes.in, "input size");
  info.hidden_size = narrow_u16(sizes.hidden, "hidden_size");
  info.if_bias = has_bias;
  info.num_layers = 1;
  info.bidirectional = sizes.directions == 2 || sizes.reverse_only;
  const auto add = [&](bool reverse, size_t from, bool zeros) {
    const auto number = [&](Numbers numbers) {
      if (zeros) std::fill(numbers.reals().begin(), numbers.reals().end(), 0.0);
      return blob_of(numbers);
    };
    const Direction to = direction_of(info, reverse);
    to.weight_ih.push_back(number(ordered(*w, gates, from, hidden)));
    to.weight_hh.push_back(number(ordered(*r, gates, from, hidden)));
    if (!has_bias) return;
    to.bias_ih.push_back(number(ordered(*b, gates, from, hidden, 0, 2)));
    to.bias_hh.push_back(number(ordered(*b, gates, from, hidden, 1, 2)));
  };
  // There is no kernel that runs backwards only: its forward half is of zeros, and left out.
  add(false, 0, sizes.reverse_only);
  if (info.bidirectional) add(true, sizes.directions - 1, false);
}

constexpr size_t kFirstState = 5;  // of the inputs

bool is_zero(const Numbers& numbers) {
  return std::all_of(numbers.reals().begin(), numbers.reals().end(),
                     [](double x) { return x == 0; });
}

/// Refuses what the kernels don't know: bounds, lengths and peepholes.
void check_inputs(Lowering& lowering, const Sizes& sizes) {
  const Node& node = lowering.node();
  if (node.has("clip")) throw NodeFault{"clip", "bounded gates have no kernel"};
  if (node.has_input(4) && lowering.required_constant(4)->integer(0) != sizes.steps) {
    throw NodeFault{"input 4", "a sequence shorter than its tensor has no kernel"};
  }
  if (node.has_input(7) && !is_zero(*lowering.required_constant(7))) {
    throw NodeFault{"input 7", "peepholes have no kernel"};
  }
  if (lowering.is_read(2) && node.integer("kept_state", 0) != 0) {
    throw NodeFault{
        "output 2",
        "a cell state that is kept from pass to pass has no kernel that shows it as well",
        "cut off what else reads it"};
  }
}

/// What the layer begins with, in the rows in which kernels take it; nothing for zeros.
/// @param count of states: h, or h and c
std::optional<size_t> first_states(Lowering& lowering, const Sizes& sizes, size_t count) {
  const auto is_none = [&](size_t place) {
    if (!lowering.node().has_input(place)) return true;
    const SharedNumbers state = lowering.constant(place);
    return state != nullptr && is_zero(*state);
  };
  const auto zeros = [&](int64_t width) {
    return lowering.constant_tensor(Numbers(ElementType::float32, {1, width}), {1, width});
  };
  const int64_t width = static_cast<int64_t>(sizes.directions) * sizes.hidden;
  std::vector<size_t> rows;
  bool none = true;
  for (size_t place = kFirstState; place < kFirstState + count; ++place)
    none = none && is_none(place);
  if (none) return std::nullopt;
  for (size_t place = kFirstState; place < kFirstState + count; ++place) {
    size_t row = 0;
    if (is_none(place)) {
      row = zeros(width);
    } else {
      const Extents found = lowering.input_sizes(place);
      if (count_of(found) != width) {
        throw NodeFault{
            "input " + std::to_string(place),
            "expected a state of " + std::to_string(width) + " numbers, found " + text_of(found),
            "give the network's inputs a batch of 1"};
      }
      row = lowering.reshaped(lowering.input(place), {1, width});
    }
    // The half that isn't there begins, and stays, at zero.
    if (sizes.reverse_only) row = lowering.joined({zeros(sizes.hidden), row}, 1);
    rows.push_back(row);
  }
  return lowering.joined(rows, 0);
}

/// The last hidden state of each direction: of the one backwards it is in the first row.
size_t last_states(Lowering& lowering, size_t rows, const Sizes& sizes) {
  const auto row = [&](bool reverse) {
    const int64_t first = reverse ? 0 : sizes.steps - 1;
    const int64_t column = reverse && sizes.directions == 2 ? sizes.hidden : 0;
    return lowering.reshaped(lowering.sliced(rows, {{first, 1, 1}, {column, sizes.hidden, 1}}),
                             {1, sizes.hidden});
  };
  if (sizes.directions == 1) return row(sizes.reverse_only);
  return lowering.joined({row(false), row(true)}, 0);
}

bool same_functions(const runtime::LayerInfo&, const runtime::LayerInfo&) { return true; }
bool same_functions(const runtime::RNNInfo& a, const runtime::RNNInfo& b) {
  return a.activation_type == b.activation_type;
}

/// The description of two layers, one above the other; null where the kernel can't have them in
/// one.
template <class Info>
std::shared_ptr<Info> stacked(const Info& below, const Info& above) {
  const bool alike = below.hidden_size == above.hidden_size && below.if_bias == above.if_bias &&
                     below.bidirectional == above.bidirectional && same_functions(below, above);
  if (!alike) return nullptr;
  auto both = std::make_shared<Info>(below);
  both->num_layers = static_cast<uint16_t>(below.num_layers + above.num_layers);
  Info upper = above;
  for (const bool reverse : {false, true}) {
    const Direction to = direction_of(*both, reverse);
    const Direction from = direction_of(upper, reverse);
    to.weight_ih.insert(to.weight_ih.end(), from.weight_ih.begin(), from.weight_ih.end());
    to.weight_hh.insert(to.weight_hh.end(), from.weight_hh.begin(), from.weight_hh.end());
    to.bias_ih.insert(to.bias_ih.end(), from.bias_ih.begin(), from.bias_ih.end());
    to.bias_hh.insert(to.bias_hh.end(), from.bias_hh.begin(), from.bias_hh.end());
  }
  return both;
}

bool is_reshape_of(const Plan& plan, size_t layer, size_t source) {
  const PlannedLayer& one = plan.layer(layer);
  return dynamic_cast<const runtime::TensorReshapeInfo*>(one.info.get()) != nullptr &&
         one.inputs.at(0) == source;
}

/// Multiply-adds of a pass.
template <class Info>
uint64_t products_of(const Info& info, const Sizes& sizes) {
  return (info.bidirectional ? 2 : 1) * network_of(info).gates.size() *
         static_cast<uint64_t>(sizes.steps * sizes.hidden * (sizes.in + sizes.hidden));
}

/// Adds the layer, or one that holds it and the one below.
template <class Info>
size_t add_layer(Lowering& lowering, std::shared_ptr<Info> info, const Sizes& sizes) {
  Plan& plan = lowering.plan();
  size_t input = lowering.reshaped(lowering.input(0), {sizes.steps, sizes.in});
  const Network network = network_of(*info);
  uint64_t products = products_of(*info, sizes);
  const auto below = sizes.reverse_only ? std::nullopt : lowering.remembered_below();
  const auto* lower = below ? dynamic_cast<const Info*>(plan.layer(*below).info.get()) : nullptr;
  // Only what was given another shape in between is the same rows.
  if (lower != nullptr && (input == *below || is_reshape_of(plan, input, *below))) {
    if (auto both = stacked(*lower, *info)) {
      info = std::move(both);
      products += plan.layer(*below).products;
      input = plan.layer(*below).inputs.at(0);
    }
  }
  const size_t rows = plan.add(std::move(info), network.kernel, {input});
  plan.layer(rows).products = products;
  if (!sizes.reverse_only) lowering.remember(rows);
  return rows;
}

/// The description of the same layer with its states.
template <class StatesInfo, class Info>
std::shared_ptr<StatesInfo> with_states(const Info& info, bool has_first_states) {
  auto stated = std::make_shared<StatesInfo>();
  stated->in_size = info.in_size;
  stated->hidden_size = info.hidden_size;
  stated->if_bias = info.if_bias;
  stated->has_first_states = has_first_states;
  static_cast<runtime::RecurrentSequenceWeights&>(*stated) = info;
  if constexpr (std::is_base_of_v<runtime::RecurrentActivation, Info>) {
    static_cast<runtime::RecurrentActivation&>(*stated) = info;
  }
  return stated;
}

/// A layer whose first states aren't zeros or whose last ones are asked for: it keeps none. Behind the
/// rows of the steps it makes those of the states.
template <class StatesInfo, class Info>
void lower_with_states(Lowering& lowering, const Info& info, const Sizes& sizes,
                       std::optional<size_t> first) {
  Plan& plan = lowering.plan();
  std::vector<size_t> inputs = {lowering.reshaped(lowering.input(0), {sizes.steps, sizes.in})};
  if (first) inputs.push_back(*first);
  const size_t all = plan.add(with_states<StatesInfo>(info, first.has_value()),
                              network_of(info).kernel_with_states, inputs);
  plan.layer(all).products = products_of(info, sizes);
  const auto rows = [&](const AxisPart& part) {
    const size_t some = lowering.part_of(all, 0, part);
    if (!sizes.reverse_only) return some;
    return lowering.part_of(some, 1, {.first = sizes.hidden, .count = sizes.hidden, .step = 1});
  };
  lowering.result(rows({.first = 0, .count = sizes.steps, .step = 1, .behind_from_end = true}));
  for (const size_t state : {size_t{1}, size_t{2}}) {
    if (!lowering.is_read(state)) continue;
    const auto behind = static_cast<int64_t>(state) - 1;
    lowering.result(rows({.first = sizes.steps + behind,
                          .count = 1,
                          .step = 1,
                          .first_from_end = true,
                          .behind_from_end = true}),
                    state);
  }
}

template <class Info, class StatesInfo>
void lower_recurrent(Lowering& lowering) {
  const Node& node = lowering.node();
  const Sizes sizes = sizes_of(lowering);
  check_inputs(lowering, sizes);
  auto info = std::make_shared<Info>();
  set_functions(node, *info);
  set_weights(lowering, sizes, *info);
  const size_t states = std::is_same_v<Info, runtime::LSTMInfo> ? 2 : 1;
  const auto first = first_states(lowering, sizes, states);
  if (first || lowering.is_read(2)) {
    return lower_with_states<StatesInfo>(lowering, *info, sizes, first);
  }
  size_t rows = add_layer(lowering, std::move(info), sizes);
  if (sizes.reverse_only) {
    rows = lowering.sliced(rows, {{0, sizes.steps, 1}, {sizes.hidden, sizes.hidden, 1}});
    rows = lowering.reshaped(rows, {sizes.steps, sizes.hidden});
  }
  // With the batch first, or one direction, the axis of directions stands between others of any
  // size, and a batch is none.
  lowering.result(rows);
  if (lowering.is_read(1)) lowering.result(last_states(lowering, rows, sizes), 1);
  lowering.state_note();
}

}  // namespace

std::span<const LoweringRow> recurrent_lowerings() {
  static constexpr LoweringRow kRows[] = {
      {"GRU", lower_recurrent<runtime::GRUInfo, runtime::GRUStatesInfo>,
       "without linear_before_reset up to 128 steps"},
      {"LSTM", lower_recurrent<runtime::LSTMInfo, runtime::LSTMStatesInfo>, "no peepholes"},
      {"RNN", lower_recurrent<runtime::RNNInfo, runtime::RNNStatesInfo>, "Tanh and Relu"},
  };
  return kRows;
}

}  // namespace marlo::toolkit
