#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "qrt_toolkit/simplify/match.h"
#include "qrt_toolkit/simplify/simplify.h"

namespace marlo::toolkit {
namespace {

/// y = scale x + shift, for each channel, which is the second axis.
struct Affine {
  Numbers::Reals scale;
  Numbers::Reals shift;
  size_t tensor = 0;  ///< the place of x among the node's inputs
};

/// What a BatchNormalization with constant statistics does to each channel.
std::optional<Affine> affine_of_normalization(const Graph& graph, const Node& node) {
  if (node.integer("training_mode", 0) != 0) return std::nullopt;
  std::vector<Numbers::Reals> lists;
  for (size_t i = 1; i <= 4; ++i) {
    const Constant* constant = constant_input(graph, node, i);
    if (constant == nullptr) return std::nullopt;
    lists.push_back(constant->numbers().reals());
    if (lists.back().size() != lists.front().size()) return std::nullopt;
  }
  const double epsilon = node.real("epsilon", 1e-5);
  Affine affine;
  for (size_t c = 0; c < lists[0].size(); ++c) {
    affine.scale.push_back(lists[0][c] / std::sqrt(lists[3][c] + epsilon));
    affine.shift.push_back(lists[1][c] - lists[2][c] * affine.scale.back());
  }
  return affine;
}

/// A tensor with channels.
struct Channelled {
  size_t rank;  ///< its axes
  size_t axis;  ///< that of its channels
  int64_t channels;
};

/// A constant as one number for each channel of the tensor beside it.
std::optional<Numbers::Reals> per_channel(const Constant& constant, const Channelled& tensor) {
  const auto [rank, axis, channels] = tensor;
  if (!is_real(constant.type) || rank < 2 || constant.shape.size() > rank) return std::nullopt;
  const auto count = count_of(constant.shape).value_or(0);
  const size_t missing = rank - constant.shape.size();
  const bool along = axis >= missing && constant.shape[axis - missing] == count;
  if (count != 1 && (!along || count != channels)) return std::nullopt;
  const Numbers numbers = constant.numbers();
  Numbers::Reals list(static_cast<size_t>(channels));
  for (size_t c = 0; c < list.size(); ++c) list[c] = numbers.real(count == 1 ? 0 : c);
  return list;
}

/// What Add, Sub, Mul or Div with a constant does to each channel.
std::optional<Affine> affine_of_arithmetic(const Graph& graph, const Node& node,
                                           const Channelled& shape) {
  const auto tensor = tensor_beside_constant(graph, node);
  if (!tensor) return std::nullopt;
  const auto list = per_channel(*constant_input(graph, node, 1 - *tensor), shape);
  if (!list) return std::nullopt;
  const size_t count = list->size();
  Affine affine{Numbers::Reals(count, 1), Numbers::Reals(count, 0), *tensor};
  const bool first = *tensor == 0;
  for (size_t c = 0; c < count; ++c) {
    const double number = (*list)[c];
    if (node.op == "Add") affine.shift[c] = number;
    if (node.op == "Mul") affine.scale[c] = number;
    if (node.op == "Sub") affine.shift[c] = first ? -number : number;
    if (node.op == "Sub" && !first) affine.scale[c] = -1;
    if (node.op == "Div" && (!first || number == 0)) return std::nullopt;
    if (node.op == "Div") affine.scale[c] = 1 / number;
  }
  return affine;
}

std::optional<Affine> affine_of(const Graph& graph, const Node& node, const Channelled& tensor) {
  std::optional<Affine> affine;
  if (node.op == "BatchNormalization" && tensor.axis == 1) {
    affine = affine_of_normalization(graph, node);
  }
  if (node.op == "Add" || node.op == "Sub" || node.op == "Mul" || node.op == "Div") {
    affine = affine_of_arithmetic(graph, node, tensor);
  }
  if (affine && static_cast<int64_t>(affine->scale.size()) != tensor.channels) {
    return std::nullopt;
  }
  return affine;
}

/// A convolution, transposed convolution or matrix product with constant weights: where its
/// channels stand among them.
struct Product {
  const Constant* weight;
  const Constant* bias;
  int64_t groups;
  size_t out_axis;  ///< of the weights, within a group for a transposed convolution
  bool transposed;  ///< groups divide the axis of inputs and not that of outputs
  bool last;        ///< the channels of what it reads and makes are the last axis, not the second
  int64_t outputs;
  int64_t inputs;
};

std::optional<Product> product_of(const Graph& graph, const Node& node) {
  const bool conv = node.op == "Conv";
  const bool transposed = node.op == "ConvTranspose";
  const bool gemm = node.op == "Gemm" && node.real("alpha", 1) == 1 && node.real("beta", 1) == 1 &&
                    node.integer("transA", 0) == 0;
  const bool matmul = node.op == "MatMul";
  if (!conv && !transposed && !gemm && !matmul) return std::nullopt;
  Product product{};
  product.weight = constant_input(graph, node, 1);
  product.bias = constant_input(graph, node, 2);
  if (product.weight == nullptr || (node.has_input(2) && product.bias == nullptr))
    return std::nullopt;
  if (!is_real(product.weight->type)) return std::nullopt;
  const Extents& shape = product.weight->shape;
  if (shape.size() < 2 || (matmul && shape.size() != 2)) return std::nullopt;
  const bool is_turned = gemm && node.integer("transB", 0) != 0;
  product.groups = gemm || matmul ? 1 : node.integer("group", 1);
  product.transposed = transposed;
  product.last = matmul;
  product.out_axis = transposed || ((gemm || matmul) && !is_turned) ? 1 : 0;
  product.outputs = shape[product.out_axis] * (transposed ? product.groups : 1);
  product.inputs = shape[1 - product.out_axis] * (transposed ? 1 : product.groups);
  if (product.bias != nullptr && count_of(product.bias->shape) != product.outputs)
    return std::nullopt;
  return product;
}

/// Output and input channel of a weight.
struct Channels {
  size_t out;
  size_t in;
};

Channels channels_of(const Product& product, int64_t at) {
  const Extents& shape = product.weight->shape;
  const Extents strides = strides_of(shape);
  const int64_t first = at / strides[0];
  const int64_t second = at / strides[1] % shape[1];
  const int64_t of_group = std::max<int64_t>(1, shape[0] / product.groups);
  const int64_t group = first / of_group;
  if (product.transposed) {
    return {static_cast<size_t>(group * shape[1] + second), static_cast<size_t>(first)};
  }
  if (product.out_axis == 1) return {static_cast<size_t>(second), static_cast<size_t>(first)};
  return {static_cast<size_t>(first), static_cast<size_t>(group * shape[1] + second)};
}

Numbers bias_of(const Product& product) {
  Numbers bias(ElementType::float32, {product.outputs});
  if (product.bias != nullptr) bias.data = product.bias->numbers().reals();
  return bias;
}

void set_weights(Graph& graph, NodeId id, const Numbers& weight, const Numbers& bias) {
  const std::string name = graph.value(graph.node(id).inputs[1]).name;
  graph.set_input(id, 1, graph.add_constant(name, constant_of(weight)));
  graph.set_input(id, 2, graph.add_constant("", constant_of(bias)));
}

/// The shape of a value; null where it isn't known, or the value came since.
const Shape* shape_of(const std::vector<Facts>& facts, ValueId id) {
  const auto place = static_cast<size_t>(id);
  return place < facts.size() && facts[place].shape ? &*facts[place].shape : nullptr;
}

/// What a product reads or makes.
Channelled channelled(const Product& product, const Shape& shape, int64_t channels) {
  return {shape.size(), product.last ? shape.size() - 1 : 1, channels};
}

/// Whether a scale leaves halves their digits: a small one makes weights that have none, as those with
/// which branches of a residual network begin.
bool is_mild(const Affine& affine) {
  constexpr double kMost = 256;
  return std::all_of(affine.scale.begin(), affine.scale.end(), [](double scale) {
    return scale == 0 || (std::fabs(scale) <= kMost && std::fabs(scale) >= 1 / kMost);
  });
}

bool fold_behind(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const Node& node = graph.node(id);
  for (size_t place = 0; place < node.inputs.size() && place < 2; ++place) {
    const NodeId source_id = only_source(graph, node, place);
    if (source_id == kAbsent) continue;
    const Node& source = graph.node(source_id);
    const auto product = product_of(graph, source);
    const Shape* shape = shape_of(facts, node.inputs[place]);
    if (!product || shape == nullptr || shape->empty()) continue;
    const auto affine = affine_of(graph, node, channelled(*product, *shape, product->outputs));
    if (!affine || affine->tensor != place) continue;
    if (product->last && !is_mild(*affine)) continue;
    Numbers weight = product->weight->numbers();
    for (size_t i = 0; i < weight.reals().size(); ++i) {
      weight.reals()[i] *= affine->scale[channels_of(*product, static_cast<int64_t>(i)).out];
    }
    Numbers bias = bias_of(*product);
    for (size_t c = 0; c < affine->scale.size(); ++c) {
      bias.reals()[c] = bias.reals()[c] * affine->scale[c] + affine->shift[c];
    }
    set_weights(graph, source_id, weight, bias);
    merge_into_source(graph, id, graph.node(source_id).outputs[0]);
    return true;
  }
  return false;
}

bool is_padded(const Node& node) {
  const auto pads = node.integers("pads");
  const std::string mode = node.text("auto_pad", "NOTSET");
  return (mode != "NOTSET" && mode != "VALID") ||
         std::any_of(pads.begin(), pads.end(), [](int64_t pad) { return pad != 0; });
}

/// In front of a product. A shift goes through where no padding takes its place.
bool fold_in_front(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const Node& node = graph.node(id);
  const auto product = product_of(graph, node);
  const NodeId source_id = only_source(graph, node, 0);
  if (!product || source_id == kAbsent) return false;
  const Node& source = graph.node(source_id);
  const Shape* shape = shape_of(facts, node.inputs[0]);
  if (shape == nullptr || shape->empty()) return false;
  const auto affine = affine_of(graph, source, channelled(*product, *shape, product->inputs));
  if (!affine || (product->last && !is_mild(*affine))) return false;
  const Shape* from = shape_of(facts, source.inputs[affine->tensor]);
  // A constant must not be what gives the product its shape.
  if (from == nullptr || from->size() != shape->size() ||
      !std::equal(from->begin(), from->end(), shape->begin(),
                  [](const Dimension& a, const Dimension& b) { return a.same_as(b); })) {
    return false;
  }
  const bool shifts = std::any_of(affine->shift.begin(), affine->shift.end(),
                                  [](double shift) { return shift != 0; });
  if (shifts && (product->transposed || is_padded(node))) return false;
  Numbers weight = product->weight->numbers();
  Numbers bias = bias_of(*product);
  for (size_t i = 0; i < weight.reals().size(); ++i) {
    const Channels at = channels_of(*product, static_cast<int64_t>(i));
    bias.reals()[at.out] += weight.reals()[i] * affine->shift[at.in];
    weight.reals()[i] *= affine->scale[at.in];
  }
  const ValueId in = source.inputs[affine->tensor];
  set_weights(graph, id, weight, bias);
  graph.set_input(id, 0, in);
  graph.remove_node(source_id);
  return true;
}

/// A product of matrices, to which one number is added for each column, is a Gemm; one of more axes
/// stays and takes these numbers as a third input.
bool make_gemm(Graph& graph, NodeId id, const std::vector<Facts>& facts) {
  const Node& node = graph.node(id);
  if (node.op != "Add") return false;
  const auto tensor = tensor_beside_constant(graph, node);
  const NodeId source_id = tensor ? only_source(graph, node, *tensor) : kAbsent;
  if (source_id == kAbsent) return false;
  const Node& source = graph.node(source_id);
  const Constant* addend = constant_input(graph, node, 1 - *tensor);
  const Constant* weight = constant_input(graph, source, 1);
  if (source.op != "MatMul" || weight == nullptr || weight->shape.size() != 2) return false;
  const Shape* shape = shape_of(facts, source.inputs[0]);
  if (shape == nullptr || shape->size() < 2 || addend->shape.size() > shape->size()) return false;
  const int64_t columns = weight->shape[1];
  if (count_of(addend->shape) != columns || addend->shape.back() != columns) return false;
  if (source.has_input(2) || !is_real(addend->type)) return false;
  Node gemm = source;
  if (shape->size() == 2) {
    gemm.op = "Gemm";
    gemm.op_in_file = "MatMul";
  }
  Numbers bias = addend->numbers();
  bias.shape = {columns};
  gemm.inputs = {source.inputs[0], source.inputs[1], graph.add_constant("", constant_of(bias))};
  const ValueId out = graph.node(id).outputs[0];
  graph.remove_node(id);
  replace_output(graph, out, std::move(gemm));
  graph.remove_node(source_id);
  return true;
}

}  // namespace

bool fold_scales_behind(Graph& graph) { return everywhere<fold_behind>(graph); }

bool fold_scales_in_front(Graph& graph) { return everywhere<fold_in_front>(graph); }

bool make_gemms(Graph& graph) { return everywhere<make_gemm>(graph); }

}  // namespace marlo::toolkit
