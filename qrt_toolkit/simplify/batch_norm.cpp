#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include "qrt_toolkit/simplify/simplify.h"

namespace marlo::toolkit {
namespace {

/// y = scale x + shift, for each channel.
struct Affine {
  Numbers::Reals scale;
  Numbers::Reals shift;
};

const Constant* constant_input(const Graph& graph, const Node& node, size_t place) {
  if (!node.has_input(place)) return nullptr;
  const auto& constant = graph.value(node.inputs[place]).constant;
  return constant ? &*constant : nullptr;
}

/// What a BatchNormalization with constant statistics does to each channel.
std::optional<Affine> affine_of(const Graph& graph, const Node& node) {
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

/// The node that makes the first input, if nothing else sees what it makes.
NodeId only_source(const Graph& graph, const Node& node) {
  const Value& value = graph.value(node.inputs.at(0));
  if (value.producer == kAbsent || value.readers.size() != 1) return kAbsent;
  for (const ValueId output : graph.outputs) {
    if (output == node.inputs[0]) return kAbsent;
  }
  return value.producer;
}

/// Scales the weights of each output channel. Of a transposed convolution output channels are the
/// second axis within a group, of a matrix product the axis that `transB` says.
Numbers scaled_weights(const Node& source, Numbers weight, const Numbers::Reals& scale) {
  const Extents& shape = weight.shape;
  size_t axis = 0;
  int64_t groups = 1;
  if (source.op == "ConvTranspose") {
    axis = 1;
    groups = source.integer("group", 1);
  } else if (source.op == "Gemm" && source.integer("transB", 0) == 0) {
    axis = 1;
  }
  const Extents strides = strides_of(shape);
  const int64_t of_group = shape[axis];
  const int64_t in_group = axis == 1 ? std::max<int64_t>(1, shape[0] / groups) : 1;
  Numbers::Reals& numbers = weight.reals();
  for (size_t i = 0; i < numbers.size(); ++i) {
    const auto at = static_cast<int64_t>(i);
    const int64_t group = groups > 1 ? at / strides[0] / in_group : 0;
    numbers[i] *= scale[static_cast<size_t>(group * of_group + at / strides[axis] % of_group)];
  }
  return weight;
}

int64_t output_channels(const Node& source, const Extents& weight) {
  if (source.op == "ConvTranspose") return weight[1] * source.integer("group", 1);
  return weight[source.op == "Gemm" && source.integer("transB", 0) == 0 ? 1 : 0];
}

}  // namespace

bool fold_batch_normalizations(Graph& graph) {
  bool changed = false;
  for (const NodeId id : graph.order()) {
    const Node& node = graph.node(id);
    if (node.op != "BatchNormalization" || node.integer("training_mode", 0) != 0) continue;
    const NodeId source_id = only_source(graph, node);
    if (source_id == kAbsent) continue;
    const Node& source = graph.node(source_id);
    const bool plain_gemm =
        source.op == "Gemm" && source.real("alpha", 1) == 1 && source.real("beta", 1) == 1;
    if (source.op != "Conv" && source.op != "ConvTranspose" && !plain_gemm) continue;
    const Constant* weight = constant_input(graph, source, 1);
    const Constant* bias = constant_input(graph, source, 2);
    const auto affine = affine_of(graph, node);
    if (weight == nullptr || !affine || (source.has_input(2) && bias == nullptr)) continue;
    const int64_t channels = output_channels(source, weight->shape);
    if (channels != static_cast<int64_t>(affine->scale.size())) continue;
    Numbers sum(ElementType::float32, {channels});
    if (bias != nullptr) {
      const Numbers given = bias->numbers();
      if (given.count() != channels) continue;
      sum.data = given.reals();
    }
    for (size_t c = 0; c < affine->scale.size(); ++c) {
      sum.reals()[c] = sum.reals()[c] * affine->scale[c] + affine->shift[c];
    }
    Numbers scaled = scaled_weights(source, weight->numbers(), affine->scale);
    const std::string name = graph.value(source.inputs[1]).name;
    const ValueId new_weight = graph.add_constant(name, constant_of(scaled));
    const ValueId new_bias = graph.add_constant("", constant_of(sum));
    graph.set_input(source_id, 1, new_weight);
    graph.set_input(source_id, 2, new_bias);
    // The pair's name is that of its end.
    const ValueId out = graph.node(id).outputs[0];
    const ValueId inner = graph.node(source_id).outputs[0];
    graph.value(inner).name = graph.value(out).name;
    graph.remove_node(id);
    graph.replace(out, inner);
    changed = true;
  }
  return changed;
}

}  // namespace marlo::toolkit
