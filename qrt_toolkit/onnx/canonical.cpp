#include "qrt_toolkit/onnx/canonical.h"

#include <limits>
#include <string_view>
#include <utility>

namespace marlo::toolkit {
namespace {

/// ONNX's numbers of element types, which its file format fixes.
ElementType element_type_of_number(int64_t number) {
  using T = ElementType;
  constexpr T kTypes[] = {T::undefined,
                          T::float32,
                          T::uint8,
                          T::int8,
                          T::uint16,
                          T::int16,
                          T::int32,
                          T::int64,
                          T::undefined /* texts */,
                          T::boolean,
                          T::float16,
                          T::float64,
                          T::uint32,
                          T::uint64,
                          T::undefined,
                          T::undefined /* complex */,
                          T::bfloat16};
  if (number < 0 || number >= static_cast<int64_t>(std::size(kTypes))) return T::undefined;
  return kTypes[number];
}

void set_input(Node& node, size_t place, ValueId id) {
  if (node.inputs.size() <= place) node.inputs.resize(place + 1, kAbsent);
  node.inputs[place] = id;
}

ValueId add_integers(Graph& graph, std::vector<int64_t> numbers) {
  return graph.add_constant("", constant_of(Numbers::integers_1d(std::move(numbers))));
}

ValueId add_real(Graph& graph, double number, ElementType type = ElementType::float32) {
  Numbers numbers(type == ElementType::undefined ? ElementType::float32 : type, {});
  if (is_real(numbers.type)) {
    numbers.reals()[0] = number;
  } else {
    numbers.integers()[0] = static_cast<int64_t>(number);
  }
  return graph.add_constant("", constant_of(numbers));
}

/// A list of integers that became an input.
void list_to_input(Node& node, Graph& graph, const char* attribute, size_t place) {
  if (!node.has(attribute)) return;
  set_input(node, place, add_integers(graph, node.integers(attribute)));
  node.attributes.erase(attribute);
}

void axes_to_input(Node& node, Graph& graph) { list_to_input(node, graph, "axes", 1); }
void parts_to_input(Node& node, Graph& graph) { list_to_input(node, graph, "split", 1); }

void bounds_to_inputs(Node& node, Graph& graph) {
  const ElementType type = graph.value(node.inputs.at(0)).type;
  for (const auto& [name, place] : {std::pair("min", size_t{1}), std::pair("max", size_t{2})}) {
    if (!node.has(name)) continue;
    set_input(node, place, add_real(graph, node.real(name, 0), type));
    node.attributes.erase(name);
  }
}

void paddings_to_inputs(Node& node, Graph& graph) {
  list_to_input(node, graph, "pads", 1);
  if (node.has("value")) {
    set_input(node, 2, add_real(graph, node.real("value", 0)));
    node.attributes.erase("value");
  }
}

void ranges_to_inputs(Node& node, Graph& graph) {
  list_to_input(node, graph, "starts", 1);
  list_to_input(node, graph, "ends", 2);
  list_to_input(node, graph, "axes", 3);
}

void old_resize(Node& node, Graph& graph) {
  ValueId scales = kAbsent;
  if (node.has("scales")) {
    scales = graph.add_constant("", constant_of(Numbers::reals_1d(node.reals("scales"))));
    node.attributes.erase("scales");
  } else if (node.has_input(1)) {
    scales = node.inputs[1];
  }
  if (scales == kAbsent) throw NodeFault{"scales", "they aren't given"};
  node.inputs = {node.inputs.at(0), kAbsent, scales};
  node.attributes["coordinate_transformation_mode"] = std::string("asymmetric");
  node.attributes["nearest_mode"] = std::string("floor");
}

void upsample(Node& node, Graph& graph) {
  old_resize(node, graph);
  node.op_in_file = node.op;
  node.op = "Resize";
  if (node.text("mode", "nearest") == "bilinear") node.attributes["mode"] = std::string("linear");
}

// Up to opset 12 the axes from the given one on were made one, and the function ran along it.
void coerced_axes(Node& node, Graph&) {
  node.attributes.try_emplace("axis", int64_t{1});
  node.attributes["to_end"] = int64_t{1};
}

void channel_slopes(Node& node, Graph&) { node.attributes["channel_slope"] = int64_t{1}; }
void scales_per_group(Node& node, Graph&) { node.attributes["per_group"] = int64_t{1}; }

void training_flag(Node& node, Graph&) {
  if (node.integer("is_test", 1) == 0 && node.op == "BatchNormalization") {
    throw NodeFault{"is_test", "normalising by the batch's own numbers is training",
                    "export the model in evaluation mode"};
  }
}

void spatial_flag(Node& node, Graph&) {
  if (node.integer("spatial", 1) == 0) {
    throw NodeFault{"spatial", "statistics of every single number aren't supported"};
  }
}

// Before numpy's rule, the second operand was laid along the first one's axes from `axis` on.
void old_broadcast(Node& node, Graph&) {
  if (node.integer("broadcast", 0) != 0 && node.has("axis")) {
    throw NodeFault{"axis", "broadcasting along a given axis isn't supported",
                    "export the model with opset 7 or newer"};
  }
  node.attributes.erase("axis");
}

void grid_mode(Node& node, Graph&) {
  const std::string mode = node.text("mode", "bilinear");
  if (mode == "bilinear") node.attributes["mode"] = std::string("linear");
  if (mode == "bicubic") node.attributes["mode"] = std::string("cubic");
}

/// An attribute that names an element type.
void set_type(Node& node, const char* attribute) {
  const int64_t number = node.integer(attribute, 0);
  const ElementType type = element_type_of_number(number);
  if (type == ElementType::undefined) {
    throw NodeFault{attribute, "element type " + std::to_string(number) + " isn't supported"};
  }
  node.attributes[attribute] = static_cast<int64_t>(type);
}

void cast_target(Node& node, Graph&) { set_type(node, "to"); }

void eye_type(Node& node, Graph&) {
  if (node.has("dtype")) set_type(node, "dtype");
}

void quantized_type(Node& node, Graph&) {
  if (node.integer("output_dtype", 0) == 0) {
    node.attributes.erase("output_dtype");
  } else {
    set_type(node, "output_dtype");
  }
}

constexpr int kAlways = std::numeric_limits<int>::max();

/// A change of form: of `op`, for files older than opset `before`.
struct Difference {
  std::string_view op;
  int before;
  void (*apply)(Node&, Graph&);
};

constexpr Difference kDifferences[] = {
    {"Add", 7, old_broadcast},
    {"BatchNormalization", 7, training_flag},
    {"BatchNormalization", 9, spatial_flag},
    {"Cast", kAlways, cast_target},
    {"Clip", 11, bounds_to_inputs},
    {"Div", 7, old_broadcast},
    {"EyeLike", kAlways, eye_type},
    {"GridSample", 20, grid_mode},
    {"GroupNormalization", 21, scales_per_group},
    {"Hardmax", 13, coerced_axes},
    {"LogSoftmax", 13, coerced_axes},
    {"Mul", 7, old_broadcast},
    {"PRelu", 7, channel_slopes},
    {"Pad", 11, paddings_to_inputs},
    {"Pow", 7, old_broadcast},
    {"QuantizeLinear", kAlways, quantized_type},
    {"ReduceL1", 18, axes_to_input},
    {"ReduceL2", 18, axes_to_input},
    {"ReduceLogSum", 18, axes_to_input},
    {"ReduceLogSumExp", 18, axes_to_input},
    {"ReduceMax", 18, axes_to_input},
    {"ReduceMean", 18, axes_to_input},
    {"ReduceMin", 18, axes_to_input},
    {"ReduceProd", 18, axes_to_input},
    {"ReduceSum", 13, axes_to_input},
    {"ReduceSumSquare", 18, axes_to_input},
    {"Resize", 11, old_resize},
    {"Slice", 10, ranges_to_inputs},
    {"Softmax", 13, coerced_axes},
    {"Split", 13, parts_to_input},
    {"Squeeze", 13, axes_to_input},
    {"Sub", 7, old_broadcast},
    {"Unsqueeze", 13, axes_to_input},
    {"Upsample", kAlways, upsample},
};

}  // namespace

void make_canonical(Node& node, Graph& graph) {
  const std::string op = node.op;
  for (const Difference& difference : kDifferences) {
    if (difference.op == op && node.opset < difference.before) {
      if (node.inputs.empty()) throw NodeFault{"inputs", "they are missing"};
      difference.apply(node, graph);
    }
  }
}

Constant constant_of_attribute(const std::pair<const std::string, Attribute>& attribute) {
  const auto& [name, value] = attribute;
  if (const auto* tensor = std::get_if<Constant>(&value)) return *tensor;
  if (const auto* reals = std::get_if<std::vector<double>>(&value)) {
    return constant_of(Numbers::reals_1d(*reals));
  }
  if (const auto* integers = std::get_if<std::vector<int64_t>>(&value)) {
    return constant_of(Numbers::integers_1d(*integers));
  }
  Numbers numbers;
  if (const auto* real = std::get_if<double>(&value)) {
    numbers = Numbers::reals_1d({*real});
  } else if (const auto* integer = std::get_if<int64_t>(&value)) {
    numbers = Numbers::integers_1d({*integer});
  } else {
    throw NodeFault{name, "constants of its kind aren't supported"};
  }
  numbers.shape.clear();
  return constant_of(numbers);
}

}  // namespace marlo::toolkit
