#include "qrt_toolkit/lower/lowering.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

#include "qrt_core/runtime/model/half_rounding.h"
#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/groups.h"
#include "qrt_toolkit/operators/strided.h"
#include "qrt_toolkit/operators/unsupported.h"
#include "qrt_toolkit/shapes/batch.h"
#include "qrt_toolkit/shapes/infer.h"

namespace marlo::toolkit {
namespace {

using runtime::LayoutType;
using runtime::TensorShape;

/// How tensors lie at the network's borders.
LayoutType layout_of(size_t axes) {
  if (axes == 3) return LayoutType::CHW;
  if (axes == 1) return LayoutType::C;
  return LayoutType::FLEXIABLE;
}

std::vector<uint32_t> dims_of(const Extents& sizes) {
  std::vector<uint32_t> dims;
  for (const int64_t size : sizes) {
    if (size < 1 || size > std::numeric_limits<int32_t>::max()) {
      throw NodeFault{"", "a size of " + std::to_string(size) + " is out of range"};
    }
    dims.push_back(static_cast<uint32_t>(size));
  }
  return dims;
}

Extents extents_of(const TensorShape& shape) { return {shape.dims.begin(), shape.dims.end()}; }

/// The sizes of a reshape as descriptions hold them: behind a batch, and at most one beyond 16
/// bits, which is left to be computed.
std::vector<int16_t> new_shape(const Extents& sizes) {
  constexpr int64_t kMost = std::numeric_limits<int16_t>::max();
  std::vector<int16_t> shape = {1};
  bool computed = false;
  for (const int64_t size : sizes) {
    if (size <= kMost) {
      shape.push_back(static_cast<int16_t>(size));
    } else if (!std::exchange(computed, true)) {
      shape.push_back(-1);
    } else {
      throw NodeFault{"", "two sizes beyond 32767 in " + text_of(sizes) + " can't be described"};
    }
  }
  return shape;
}

const char* reshape_kernel(size_t axes) {
  if (axes == 3) return "Reshape_Fallback_To_CHW_M1";
  if (axes == 1) return "Reshape_Fallback_To_C_M1";
  return "Transform_MainMemory_Reshape_Fallback";
}

/// How many leading axes numbers of `shape` vary along, when they are broadcast to `box`.
size_t varying_axes(const Extents& shape, const Extents& box) {
  const size_t offset = box.size() - shape.size();
  size_t axes = 0;
  for (size_t i = 0; i < shape.size(); ++i) {
    if (shape[i] != 1) axes = offset + i + 1;
  }
  return axes;
}

/// The first axis that numbers of `shape` vary along, when they are broadcast to `box`; the number
/// of axes where they are all the same.
size_t first_varying_axis(const Extents& shape, const Extents& box) {
  const auto place =
      std::find_if(shape.begin(), shape.end(), [](int64_t size) { return size != 1; });
  return box.size() - static_cast<size_t>(shape.end() - place);
}

/// Numbers broadcast to `box`, as float32.
std::vector<float> broadcast_to(const Numbers& numbers, const Extents& box) {
  std::vector<float> result(static_cast<size_t>(count_of(box).value_or(0)));
  for_each_row<2>(box, {strides_of(box), broadcast_strides(numbers.shape, box)},
                  [&](const auto& at, int64_t count, const auto& steps) {
                    for (int64_t i = 0; i < count; ++i) {
                      result[static_cast<size_t>(at[0] + i)] =
                          as_float(numbers.real(static_cast<size_t>(at[1] + i * steps[1])));
                    }
                  });
  return result;
}

/// Whether float32 holds all whole numbers as they are.
bool is_exact(const Numbers& numbers) {
  if (is_real(numbers.type)) return true;
  constexpr int64_t kMost = int64_t{1} << 24;
  return std::all_of(numbers.integers().begin(), numbers.integers().end(),
                     [](int64_t number) { return number >= -kMost && number <= kMost; });
}

}  // namespace

float as_float(double number) {
  const auto rounded = static_cast<float>(number);
  if (std::isinf(rounded) && !std::isinf(number)) {
    throw NodeFault{"inputs", "a constant is beyond the range of float32"};
  }
  return rounded;
}

bool is_half(double number) {
  const auto exact = static_cast<float>(number);
  return runtime::RoundToHalf(exact) == exact;
}

runtime::WeightBlob blob_of(const Numbers& numbers) {
  const std::vector<float> floats = floats_of(numbers);
  return runtime::MakeWeightBlob(floats.data(), floats.size());
}

std::vector<float> floats_of(const Numbers& numbers) {
  std::vector<float> floats;
  const auto count = static_cast<size_t>(numbers.count());
  floats.reserve(count);
  for (size_t i = 0; i < count; ++i) floats.push_back(as_float(numbers.real(i)));
  return floats;
}

bool is_finite(const Numbers& numbers) {
  for (size_t i = 0; i < static_cast<size_t>(numbers.count()); ++i) {
    if (!std::isfinite(numbers.real(i))) return false;
  }
  return true;
}

uint16_t narrow_u16(int64_t number, const char* what) {
  if (number < 0 || number > std::numeric_limits<uint16_t>::max()) {
    throw NodeFault{what, std::to_string(number) + " is beyond the 65535 that descriptions hold"};
  }
  return static_cast<uint16_t>(number);
}

int16_t narrow_i16(int64_t number, const char* what) {
  if (number < std::numeric_limits<int16_t>::min() ||
      number > std::numeric_limits<int16_t>::max()) {
    throw NodeFault{what, std::to_string(number) + " is beyond the 32767 that descriptions hold"};
  }
  return static_cast<int16_t>(number);
}

void check_axis_size(int64_t size) {
  constexpr int64_t kMost = int64_t{1} << 24;
  if (size < 1 || size > kMost) {
    throw NodeFault{"sizes", "expected axes of 1 to " + std::to_string(kMost) +
                                 " elements, found one of " + std::to_string(size)};
  }
}

Lowering::Lowering(const Graph& graph, IsFast is_fast, SizeUse sizes)
    : graph_(graph),
      is_fast_(std::move(is_fast)),
      size_use_(sizes),
      facts_(infer_facts(graph)),
      batch_(find_batch_axes(graph, facts_)),
      values_(graph.value_count()) {}

Plan Lowering::run() {
  std::vector<Refusal> refusals;
  for (const ValueId id : graph_.inputs) {
    const std::string what = "input \"" + graph_.value(id).name + "\"";
    try {
      const ElementType type = facts_of(id).type;
      if (!is_real(type) && type != ElementType::undefined) {
        plan_.notes.push_back(
            what + " holds " + name_of(type) +
            (type == ElementType::boolean
                 ? ": give 1 and 0 as float32"
                 : ": give the numbers as float32, which is exact up to 16777216"));
      }
      const Extents sizes = sizes_of(id);
      const size_t layer = plan_.add_input(
          graph_.value(id).name,
          TensorShape(dims_of(sizes), runtime::DataType::FLOAT32, layout_of(sizes.size())));
      plan_.layer(layer).value = id;
      values_[static_cast<size_t>(id)].layer = layer;
    } catch (const NodeFault& fault) {
      refusals.push_back({"", "", 0, "", what, fault.why, fault.help});
    }
  }
  for (const NodeId id : graph_.order()) {
    node_ = &graph_.node(id);
    plan_.node = node_->name;
    try {
      const LoweringRow* row = find_lowering(node_->op);
      if (row == nullptr) throw unsupported(*node_);
      // What reads an output of a node that was refused can't be judged.
      const bool judged =
          std::none_of(node_->inputs.begin(), node_->inputs.end(), [&](ValueId input) {
            return input != kAbsent && !graph_.value(input).constant &&
                   !values_[static_cast<size_t>(input)].layer;
          });
      if (judged) refuse_integers();
      if (judged) row->lower(*this);
    } catch (const NodeFault& fault) {
      refusals.push_back(refusal_of(*node_, fault));
    }
  }
  lower_outputs(refusals);
  if (!refusals.empty()) throw UnsupportedError(std::move(refusals));
  plan_.keep_only(outputs_);
  return std::move(plan_);
}

// Whole numbers are held as float32: what rounds or wraps them is another function then.
void Lowering::refuse_integers() const {
  static const std::set<std::string_view> same = {"Abs",
                                                  "Add",
                                                  "And",
                                                  "Cast",
                                                  "CastLike",
                                                  "Concat",
                                                  "Equal",
                                                  "Expand",
                                                  "Flatten",
                                                  "Gather",
                                                  "Greater",
                                                  "GreaterOrEqual",
                                                  "Less",
                                                  "LessOrEqual",
                                                  "Max",
                                                  "Min",
                                                  "Mul",
                                                  "Neg",
                                                  "Not",
                                                  "Or",
                                                  "ReduceMax",
                                                  "ReduceMin",
                                                  "ArgMax",
                                                  "ArgMin",
                                                  "GatherElements",
                                                  "GatherND",
                                                  "ScatterElements",
                                                  "ScatterND",
                                                  "Reshape",
                                                  "Sign",
                                                  "Slice",
                                                  "Split",
                                                  "Squeeze",
                                                  "Sub",
                                                  "Sum",
                                                  "Tile",
                                                  "Transpose",
                                                  "Unsqueeze",
                                                  "Where",
                                                  "Xor"};
  // Of narrow and unsigned types a sum or a product begins again at the other end.
  static const std::set<std::string_view> wrapping = {"Add", "Mul", "Neg", "Sub", "Sum"};
  const bool wraps = wrapping.count(node_->op) != 0;
  if (!wraps && same.count(node_->op) != 0) return;
  for (size_t place = 0; place < node_->inputs.size(); ++place) {
    if (!is_tensor(place)) continue;
    const ElementType type = facts_of(node_->inputs[place]).type;
    if (is_real(type) || type == ElementType::undefined) continue;
    if (wraps && (type == ElementType::int32 || type == ElementType::int64)) continue;
    if (wraps) {
      throw NodeFault{"input " + std::to_string(place),
                      "layers compute with float32, in which " + node_->op + " of " +
                          name_of(type) + " doesn't wrap",
                      "cast to float first"};
    }
    throw NodeFault{"input " + std::to_string(place),
                    "layers compute with float32, in which " + node_->op + " of " + name_of(type) +
                        " is another function",
                    "make it a constant"};
  }
}

void Lowering::lower_outputs(std::vector<Refusal>& refusals) {
  for (const ValueId id : graph_.outputs) {
    auto& layer = values_[static_cast<size_t>(id)].layer;
    const auto& constant = graph_.value(id).constant;
    const bool exact = constant && is_exact(constant->numbers());
    if (!layer && exact && plan_.has("Constant_Fallback_Float_M1")) {
      layer = constant_tensor(constant->numbers(), sizes_of(id));
    }
    if (!layer && refusals.empty()) {
      refusals.push_back({"", "", 0, "", "output \"" + graph_.value(id).name + "\"",
                          exact || !constant
                              ? "it is a constant, which no layer makes"
                              : "it is a constant with whole numbers beyond those of float32",
                          "leave it out: name the other outputs with --output"});
    }
    if (!layer) continue;
    // An output is a layer of its own: no input, and none that is an output already.
    const bool own = plan_.layer(*layer).info->type != 0 &&
                     std::find(outputs_.begin(), outputs_.end(), *layer) == outputs_.end();
    outputs_.push_back(own ? *layer : copied(*layer));
    plan_.layer(outputs_.back()).value = id;
  }
}

Extents Lowering::sizes_of(ValueId id) const {
  const std::optional<Shape>& shape = facts_of(id).shape;
  const auto sizes = shape ? toolkit::extents_of(*shape) : std::nullopt;
  if (!sizes) {
    throw NodeFault{
        "\"" + graph_.value(id).name + "\"",
        "its shape isn't known" + (shape ? ": " + text_of(*shape) : std::string()),
        "state the shapes of the network's inputs, and make those constants that decide "
        "shapes"};
  }
  Extents result = *sizes;
  if (const auto axis = batch_[static_cast<size_t>(id)]) {
    result.erase(result.begin() + static_cast<std::ptrdiff_t>(*axis));
  }
  // A tensor of the runtime has at least one axis.
  if (result.empty()) result = {1};
  return result;
}

ValueId Lowering::input_id(size_t place) const {
  if (!node_->has_input(place)) {
    throw NodeFault{"input " + std::to_string(place), "it isn't given"};
  }
  return node_->inputs[place];
}

size_t Lowering::input(size_t place) {
  const ValueId id = input_id(place);
  auto& layer = values_[static_cast<size_t>(id)].layer;
  if (!layer) layer = constant_tensor(*required_constant(place), constant_sizes(id));
  return *layer;
}

// A constant that has all axes of the node's output has a batch axis like it.
Extents Lowering::constant_sizes(ValueId id) const {
  Extents sizes = graph_.value(id).constant->shape;
  const ValueId output = node_->outputs.at(0);
  const auto batch = batch_[static_cast<size_t>(output)];
  const auto& shape = facts_of(output).shape;
  if (batch && shape && shape->size() == sizes.size() && sizes[*batch] == 1) {
    sizes.erase(sizes.begin() + static_cast<std::ptrdiff_t>(*batch));
  }
  if (sizes.empty()) sizes = {1};
  return sizes;
}

SharedNumbers Lowering::constant(size_t place) const {
  if (!node_->has_input(place)) return nullptr;
  const auto& constant = graph_.value(node_->inputs[place]).constant;
  return constant ? std::make_shared<const Numbers>(constant->numbers()) : nullptr;
}

bool Lowering::is_tensor(size_t place) const {
  return node_->has_input(place) && !graph_.value(node_->inputs[place]).constant;
}

double Lowering::required_number(size_t place) const {
  const SharedNumbers numbers = required_constant(place);
  if (numbers->count() != 1) {
    throw NodeFault{"input " + std::to_string(place),
                    "expected one number, found " + std::to_string(numbers->count())};
  }
  return numbers->real(0);
}

SharedNumbers Lowering::required_constant(size_t place) const {
  SharedNumbers numbers = constant(place);
  if (numbers == nullptr) {
    throw NodeFault{"input " + std::to_string(place), "only a constant can stand here",
                    "set it, or fold it into the model"};
  }
  return numbers;
}

bool Lowering::is_read(size_t place) const {
  return node_->has_output(place) && !graph_.is_unused(node_->outputs[place]);
}

std::optional<size_t> Lowering::remembered_below() const {
  static const std::set<std::string> shaping = {"Squeeze", "Unsqueeze", "Reshape", "Transpose",
                                                "Flatten"};
  for (ValueId id = input_id(0);;) {
    const Value& value = graph_.value(id);
    const bool read_elsewhere = value.readers.size() != 1 || graph_.is_output(id);
    if (read_elsewhere || value.producer == kAbsent) return std::nullopt;
    const Node& producer = graph_.node(value.producer);
    if (shaping.count(producer.op) != 0) {
      id = producer.inputs.at(0);
      continue;
    }
    for (size_t i = 1; i < producer.outputs.size(); ++i) {
      if (producer.outputs[i] != kAbsent && !graph_.is_unused(producer.outputs[i])) {
        return std::nullopt;
      }
    }
    const auto place = remembered_.find(id);
    if (producer.op != node_->op || place == remembered_.end()) return std::nullopt;
    return place->second;
  }
}

void Lowering::remember(size_t layer) { remembered_[node_->outputs.at(0)] = layer; }

void Lowering::state_note() {
  const char* note =
      "recurrent layers keep their state from pass to pass: call ResetState before each sequence "
      "that doesn't follow on from the last";
  if (std::find(plan_.notes.begin(), plan_.notes.end(), note) == plan_.notes.end()) {
    plan_.notes.emplace_back(note);
  }
}

Extents Lowering::input_sizes(size_t place) const {
  const ValueId id = input_id(place);
  return graph_.value(id).constant ? constant_sizes(id) : sizes_of(id);
}

Extents Lowering::input_shape(size_t place) const {
  Extents sizes = input_sizes(place);
  if (const auto batch = batch_of_input(place)) {
    sizes.insert(sizes.begin() + static_cast<std::ptrdiff_t>(*batch), 1);
  }
  return sizes;
}

Extents Lowering::sizes_of_layer(size_t layer) const { return extents_of(plan_.shape(layer)); }

Extents Lowering::output_sizes(size_t place) const { return sizes_of(node_->outputs.at(place)); }

size_t Lowering::input_rank(size_t place) const {
  const auto& shape = facts_of(input_id(place)).shape;
  return shape ? shape->size() : 0;
}

std::optional<size_t> Lowering::batch_of_input(size_t place) const {
  return batch_[static_cast<size_t>(input_id(place))];
}

size_t Lowering::axis_of_input(size_t place, int64_t axis) const {
  const ValueId id = input_id(place);
  const std::optional<Shape>& shape = facts_of(id).shape;
  const size_t from_front = axis_from_front(axis, shape ? shape->size() : 0);
  const auto batch = batch_[static_cast<size_t>(id)];
  if (!batch || from_front < *batch) return from_front;
  if (from_front == *batch) {
    throw NodeFault{"axis", "it is the batch, which tensors of the runtime don't have"};
  }
  return from_front - 1;
}

size_t Lowering::reshaped(size_t layer, const Extents& sizes) {
  // Of several reshapes in a row the last one counts.
  while (plan_.layer(layer).info->type == runtime::TensorReshapeInfo().type) {
    const TensorShape& shape = plan_.shape(layer);
    if (extents_of(shape) == sizes && shape.layout == layout_of(sizes.size())) return layer;
    layer = plan_.layer(layer).inputs[0];
  }
  const TensorShape& shape = plan_.shape(layer);
  if (extents_of(shape) == sizes && shape.layout == layout_of(sizes.size())) return layer;
  auto info = std::make_shared<runtime::TensorReshapeInfo>();
  info->new_shape = new_shape(sizes);
  return plan_.add(std::move(info), reshape_kernel(sizes.size()), {layer});
}

size_t Lowering::planes(size_t place) {
  Extents sizes = input_sizes(place);
  if (sizes.size() > 3) {
    throw NodeFault{"input " + std::to_string(place),
                    "a tensor of " + text_of(sizes) + " is no picture with channels"};
  }
  while (sizes.size() < 3) sizes.insert(sizes.begin() + 1, 1);
  return reshaped(input(place), sizes);
}

size_t Lowering::copied(size_t layer) {
  const Extents sizes = extents_of(plan_.shape(layer));
  auto info = std::make_shared<runtime::TensorReshapeInfo>();
  info->new_shape = new_shape(sizes);
  return plan_.add(std::move(info), reshape_kernel(sizes.size()), {layer});
}

// A convolution of 1 x 1 whose groups have one channel each. The channels are as many leading axes
// as the numbers vary along, made one.
size_t Lowering::affine(size_t layer, const Numbers& scale, const Numbers& shift) {
  const Extents sizes = extents_of(plan_.shape(layer));
  if (broadcast_of(broadcast_of(scale.shape, shift.shape), sizes) != sizes) {
    throw NodeFault{"inputs", "a constant of " + text_of(broadcast_of(scale.shape, shift.shape)) +
                                  " is larger than the tensor of " + text_of(sizes)};
  }
  const size_t axes = std::max(varying_axes(scale.shape, sizes), varying_axes(shift.shape, sizes));
  const size_t first =
      std::min(first_varying_axis(scale.shape, sizes), first_varying_axis(shift.shape, sizes));
  const Extents in_front(sizes.begin(), sizes.begin() + static_cast<std::ptrdiff_t>(first));
  if (axes > first && count_of(in_front).value_or(0) != 1) return with_tensors(layer, scale, shift);
  Extents leading(sizes.begin(), sizes.begin() + static_cast<std::ptrdiff_t>(axes));
  Extents box(sizes.size(), 1);
  std::copy(leading.begin(), leading.end(), box.begin());
  const int64_t channels = count_of(leading).value_or(0);
  const int64_t rest = count_of(sizes).value_or(0) / std::max<int64_t>(1, channels);
  auto info = std::make_shared<runtime::Conv2dInfo>();
  info->in_channels = narrow_u16(channels, "channels");
  info->out_channels = info->in_channels;
  info->groups = info->in_channels;
  info->kernel_x = 1;
  info->kernel_y = 1;
  const std::vector<float> weight = broadcast_to(scale, box);
  const std::vector<float> bias = broadcast_to(shift, box);
  info->weight = runtime::MakeWeightBlob(weight.data(), weight.size());
  info->if_bias = std::any_of(bias.begin(), bias.end(), [](float x) { return x != 0; });
  if (info->if_bias) info->bias = runtime::MakeWeightBlob(bias.data(), bias.size());
  const bool picture = sizes.size() == 3 && axes == 1;
  const size_t in = reshaped(layer, picture ? sizes : Extents{channels, 1, rest});
  const size_t out = plan_.add(info, "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1", {in});
  plan_.layer(out).products = static_cast<uint64_t>(count_of(sizes).value_or(0));
  return reshaped(out, sizes);
}

// Numbers that are the same along the first axes are held once, and broadcast.
size_t Lowering::with_tensors(size_t layer, const Numbers& scale, const Numbers& shift) {
  const auto all = [](const Numbers& numbers, double number) {
    return std::all_of(numbers.reals().begin(), numbers.reals().end(),
                       [number](double x) { return x == number; });
  };
  const auto tensor = [&](const Numbers& numbers) {
    Extents sizes = numbers.shape;
    while (sizes.size() > 1 && sizes[0] == 1) sizes.erase(sizes.begin());
    if (sizes.empty()) sizes = {1};
    return constant_tensor(numbers, sizes);
  };
  if (!all(scale, 1)) layer = combined(2, layer, tensor(scale));
  return all(shift, 0) ? layer : combined(0, layer, tensor(shift));
}

void Lowering::result(size_t layer, size_t place) {
  if (!node_->has_output(place)) return;
  const ValueId id = node_->outputs[place];
  const Extents sizes = sizes_of(id);
  const Extents made = extents_of(plan_.shape(layer));
  if (count_of(made) != count_of(sizes)) {
    throw NodeFault{"", "the layer makes " + text_of(made) + ", the operator " + text_of(sizes)};
  }
  const size_t last = reshaped(layer, sizes);
  if (plan_.layer(last).value == kAbsent) plan_.layer(last).value = id;
  values_[static_cast<size_t>(id)].layer = last;
}

std::span<const LoweringRow> all_lowerings() {
  static const std::vector<LoweringRow> table = [] {
    std::vector<LoweringRow> rows;
    for (const auto group :
         {arithmetic_lowerings, function_lowerings, movement_lowerings, product_lowerings,
          recurrent_lowerings, reduction_lowerings, resampling_lowerings, scatter_lowerings,
          softmax_lowerings, window_lowerings}) {
      const auto part = group();
      rows.insert(rows.end(), part.begin(), part.end());
    }
    std::sort(rows.begin(), rows.end(),
              [](const LoweringRow& a, const LoweringRow& b) { return a.op < b.op; });
    return rows;
  }();
  return table;
}

const LoweringRow* find_lowering(std::string_view op) {
  const auto table = all_lowerings();
  const auto place =
      std::lower_bound(table.begin(), table.end(), op,
                       [](const LoweringRow& row, std::string_view key) { return row.op < key; });
  return place != table.end() && place->op == op ? &*place : nullptr;
}

}  // namespace marlo::toolkit
