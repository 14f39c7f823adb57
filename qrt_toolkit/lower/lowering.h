#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "qrt_toolkit/lower/plan.h"
#include "qrt_toolkit/operators/operator.h"

// From the graph to layers of this library: exactly or not at all.

namespace marlo::toolkit {

/// The state of a lowering, and what the functions of the operators work with. Tensors are plain
/// float32 in the graph's own order of axes, less the batch.
class Lowering {
 public:
  /// @param graph simplified, with all shapes known
  explicit Lowering(const Graph& graph);

  /// Lowers all nodes. Throws UnsupportedError with every node that can't be.
  Plan run();

  /// The layers that make the graph's outputs, one each, after `run`.
  const std::vector<size_t>& outputs() const { return outputs_; }

  // For the functions of operators:

  const Node& node() const { return *node_; }
  Plan& plan() { return plan_; }

  /// The layer that makes an input; throws NodeFault for one that isn't given, or is a constant.
  size_t input(size_t place) const;

  /// The numbers of an input; null where it isn't a constant.
  SharedNumbers constant(size_t place) const;

  /// The same where only a constant will do; throws NodeFault.
  SharedNumbers required_constant(size_t place) const;

  /// A constant input as it is broadcast against the output, without the batch; null where the
  /// input isn't a constant. Throws NodeFault where its numbers differ along the batch.
  SharedNumbers aligned_constant(size_t place) const;

  /// The sizes of an input or of an output without its batch, as the graph has them.
  Extents input_sizes(size_t place) const;
  Extents output_sizes(size_t place = 0) const;

  /// The axes of an input as the graph has them, and which of them is the batch.
  size_t input_rank(size_t place) const;
  std::optional<size_t> batch_of_input(size_t place) const;

  /// Where an axis of an input stands when the batch is gone; throws NodeFault for the batch
  /// itself.
  size_t axis_of_input(size_t place, int64_t axis) const;

  /// A layer's tensor with other sizes or as another kind of tensor (rows of planes, or a vector);
  /// the layer itself where nothing changes. Three sizes make planes (CHW), one a vector.
  size_t reshaped(size_t layer, const Extents& sizes);

  /// The input as planes: [C, H, W]. Fewer axes get ones behind; more are refused.
  size_t planes(size_t place);

  /// A new tensor with the same numbers, for kernels that write over what they read.
  size_t copied(size_t layer);

  /// `scale` x + `shift` of a layer's tensor, both given for its sizes or broadcast to them.
  size_t affine(size_t layer, const Numbers& scale, const Numbers& shift);

  /// A tensor of a layer's sizes that holds constants: nothing times the layer's numbers, plus
  /// them. Exact wherever these are finite.
  size_t constants_like(size_t layer, const Numbers& numbers);

  /// Two layers' tensors of one shape, or broadcast: 0 adds, 1 subtracts, 2 multiplies, 3 divides,
  /// 4 takes the larger, 5 the smaller number.
  size_t combined(uint16_t operation, size_t a, size_t b);

  /// A layer's tensor through an activation kernel.
  size_t activated(const char* kernel, size_t layer, float alpha = 1, float beta = 0);

  /// States what makes an output; another shape with as many elements is put right.
  void result(size_t layer, size_t place = 0);

 private:
  struct Known {
    std::optional<size_t> layer;
  };

  const Facts& facts_of(ValueId id) const { return facts_[static_cast<size_t>(id)]; }
  Extents sizes_of(ValueId id) const;
  ValueId input_id(size_t place) const;

  const Graph& graph_;
  std::vector<Facts> facts_;
  std::vector<std::optional<size_t>> batch_;
  std::vector<Known> values_;
  std::vector<size_t> outputs_;
  Plan plan_;
  const Node* node_ = nullptr;
};

/// How an operator is lowered.
struct LoweringRow {
  std::string_view op;
  void (*lower)(Lowering&);
  std::string_view limits = "";  ///< what can't be expressed, in words
};

/// The row of an operator; null for one that can't be lowered.
const LoweringRow* find_lowering(std::string_view op);

/// All rows, by operator.
std::span<const LoweringRow> all_lowerings();

/// Fields of descriptions are 16 bits wide. Throws NodeFault for a number that doesn't fit.
uint16_t narrow_u16(int64_t number, const char* what);
int16_t narrow_i16(int64_t number, const char* what);

}  // namespace marlo::toolkit
