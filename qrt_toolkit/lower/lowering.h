#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string_view>
#include <vector>

#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/model/weight_blob.h"
#include "qrt_toolkit/lower/plan.h"
#include "qrt_toolkit/operators/operator.h"

// From the graph to layers of this library: exactly or not at all.

namespace marlo::toolkit {

/// What is taken of one axis.
struct AxisPart {
  int64_t first = 0;
  int64_t count = 0;
  int64_t step = 1;
  bool first_from_end = false;   ///< `first` is so far from the end on whatever size
  bool behind_from_end = false;  ///< the same for what stands behind the last one
};

/// Whether layers have to do for other sizes as well.
enum class SizeUse {
  fixed,  ///< for those of the graph alone
  open,   ///< for as many as can be: sizes that don't change are left out of descriptions
};

/// The state of a lowering, and what the functions of the operators work with. Tensors are plain
/// float32 in the graph's own order of axes, less the batch.
class Lowering {
 public:
  /// Says whether a layer of a tensor is likely to be fast as it stands.
  using IsFast = std::function<bool(const std::shared_ptr<runtime::LayerInfo>& layer,
                                    const runtime::TensorShape& input)>;

  /// @param graph simplified, with all shapes known
  /// @param is_fast decides between the layers that an operator may become; without one each
  ///   becomes the layer of its own kind
  /// @param sizes of the inputs, whether others are meant to be run as well
  explicit Lowering(const Graph& graph, IsFast is_fast = nullptr, SizeUse sizes = SizeUse::fixed);

  /// Lowers all nodes. Throws UnsupportedError with every node that can't be.
  Plan run();

  /// The layers that make the graph's outputs, one each, after `run`.
  const std::vector<size_t>& outputs() const { return outputs_; }

  // For the functions of operators:

  /// Whether a layer that reads another's tensor is worth another form.
  bool is_slow(const std::shared_ptr<runtime::LayerInfo>& info, size_t input) const {
    return is_fast_ != nullptr && !is_fast_(info, plan_.shape(input));
  }

  const Node& node() const { return *node_; }
  Plan& plan() { return plan_; }

  /// The layer that makes an input; a constant gets one of its own. Throws NodeFault for an input
  /// that isn't given.
  size_t input(size_t place);

  /// Whether layers make an input: it is given, and no constant.
  bool is_tensor(size_t place) const;

  /// The numbers of an input; null where it isn't a constant.
  SharedNumbers constant(size_t place) const;

  /// The same where only a constant will do; throws NodeFault.
  SharedNumbers required_constant(size_t place) const;

  /// The number of an input that is a constant of a single one; throws NodeFault for another.
  double required_number(size_t place) const;

  /// A constant input as it is broadcast against the output, without the batch; null where the
  /// input isn't a constant. Throws NodeFault where its numbers differ along the batch.
  SharedNumbers aligned_constant(size_t place) const;

  /// The layer that `remember` was told of for the node whose first output alone, through nodes that
  /// give it another shape, is this one's first input; nothing where something else reads it too, or
  /// the node is another operator.
  std::optional<size_t> remembered_below() const;
  void remember(size_t layer);

  /// Whether anything reads an output, or it is one of the graph's.
  bool is_read(size_t place) const;

  /// What the elements of an input or of an output are, as the graph has them.
  ElementType input_type(size_t place) const { return facts_of(input_id(place)).type; }
  ElementType output_type(size_t place = 0) const {
    return facts_of(node_->outputs.at(place)).type;
  }

  /// Says, once, that a layer has a state.
  void state_note();

  /// The sizes of an input or of an output without its batch, as the graph has them.
  Extents input_sizes(size_t place) const;
  Extents output_sizes(size_t place = 0) const;

  /// The sizes of an input as the graph has them, with its batch; throws NodeFault where they
  /// aren't known.
  Extents input_shape(size_t place) const;

  /// The sizes of a layer's tensor.
  Extents sizes_of_layer(size_t layer) const;

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

  /// A layer's tensor with its axes in another order; the layer itself where nothing changes.
  size_t permuted(size_t layer, const std::vector<size_t>& axes);

  /// Tensors one behind the other along an axis.
  size_t joined(const std::vector<size_t>& layers, size_t axis);

  /// Whether a layer may have parts of any number of axes, and only says those that change.
  bool slices_anywhere() const;

  /// Parts of up to three axes in one layer, as many as the tensor has.
  size_t sliced(size_t layer, const std::vector<AxisPart>& parts);

  /// A part of one axis of a tensor with any number of axes.
  size_t part_of(size_t layer, size_t axis, const AxisPart& part);

  /// The node's first input with the sizes that its tied one has, along the axes that `tie_sizes` has
  /// stated.
  /// @param info how; its axes are filled in
  size_t sized_like_another(runtime::ResizeLikeInfo info);

  /// An axis of size one, repeated.
  size_t repeated(size_t layer, size_t axis, int64_t times);

  /// A tensor broadcast to `sizes`.
  size_t expanded(size_t layer, const Extents& sizes);

  /// The elements of an axis that are listed, in their order; `outside` where one is negative.
  /// From slices, or where these would be many from a product with zeros and ones.
  size_t taken(size_t layer, size_t axis, const std::vector<int64_t>& elements, double outside = 0);

  /// Replaces an axis by its product with a constant matrix [out, in].
  /// @param shift is added, one number for each of `out`; may be null
  /// @param groups parts of the axis that are multiplied each by itself: [out, in / groups]
  size_t along_axis(size_t layer, size_t axis, const Numbers& matrix,
                    const Numbers* shift = nullptr, int64_t groups = 1);

  /// A layer that makes a constant, for kernels that read tensors only. Without the second set it is
  /// exact while the network's first input is finite.
  size_t constant_tensor(const Numbers& numbers, const Extents& sizes);

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

  /// A function of every number of a layer's tensor; its kernel has its name.
  size_t function(runtime::ElementFunction function, const char* name, size_t layer,
                  double alpha = 1, double beta = 0);

  /// A function of the node's two inputs, of which one may be a constant.
  size_t binary(runtime::BinaryFunction function);

  /// A function of two layers' tensors.
  size_t binary(runtime::BinaryFunction function, size_t a, size_t b);

  /// A function of a layer's tensor and a constant, which is the second operand or the first.
  size_t binary(runtime::BinaryFunction function, size_t layer, const Numbers& constant,
                bool constant_first = false);

  /// Whether this build has the second set, whose kernels take constants and any axes as they are.
  bool has_second_set() const { return plan_.has("Binary_Fallback_Float_M1"); }

  /// One number out of many along some axes, which are left with a size of one.
  size_t reduced(runtime::AxisReduction function, size_t layer, const std::vector<size_t>& axes);

  /// The mean of each plane of a layer's tensor [C, H, W], [C, 1, 1].
  size_t averages_of_planes(size_t layer);

  /// -x and |x| of a layer's tensor.
  size_t negative(size_t layer);
  size_t absolute(size_t layer);

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
  Extents constant_sizes(ValueId id) const;
  void lower_outputs(std::vector<Refusal>& refusals);
  void refuse_integers() const;
  size_t sliced_axes(size_t layer, const std::vector<AxisPart>& parts);
  size_t infinite_tensor(const Numbers& numbers, const Extents& sizes);
  size_t with_tensors(size_t layer, const Numbers& scale, const Numbers& shift);
  ValueId input_id(size_t place) const;

  const Graph& graph_;
  IsFast is_fast_;
  SizeUse size_use_;
  std::vector<Facts> facts_;
  std::vector<std::optional<size_t>> batch_;
  std::vector<Known> values_;
  std::vector<size_t> outputs_;
  std::map<ValueId, size_t> remembered_;
  std::optional<size_t> one_;  ///< the layer that makes a single one
  Plan plan_;
  const Node* node_ = nullptr;
};

/// How an operator is lowered.
struct LoweringRow {
  std::string_view op;
  void (*lower)(Lowering&);
  std::string_view limits = {};  ///< what can't be expressed, in words
};

/// The row of an operator; null for one that can't be lowered.
const LoweringRow* find_lowering(std::string_view op);

/// All rows, by operator.
std::span<const LoweringRow> all_lowerings();

/// A number as float32. Throws NodeFault for one that is beyond its range, which infinity isn't.
float as_float(double number);

/// Whether a number, as float32, is one that binary files hold as it is.
bool is_half(double number);

/// Numbers as a description holds them. Throws NodeFault for one that is beyond float32's range.
runtime::WeightBlob blob_of(const Numbers& numbers);

/// Numbers as float32. Throws NodeFault for one that is beyond its range.
std::vector<float> floats_of(const Numbers& numbers);

/// Whether no number is infinite, nor none at all.
bool is_finite(const Numbers& numbers);

/// Fields of descriptions are 16 bits wide. Throws NodeFault for a number that doesn't fit.
uint16_t narrow_u16(int64_t number, const char* what);
int16_t narrow_i16(int64_t number, const char* what);

/// Throws NodeFault for a size of an axis that layers aren't made for: none, or beyond 2^24.
void check_axis_size(int64_t size);

}  // namespace marlo::toolkit
