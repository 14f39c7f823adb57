#include "qrt_core/kernel/extension/elementary/binary.h"

#include <algorithm>
#include <utility>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/elementwise_info.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::kernel {

using axes::Dims;
using axes::floats_of;
using runtime::BinaryFunction;
using runtime::BinaryFunctionInfo;
using runtime::TensorShape;
using utility::Assert;

// Both operands along the dims of the result, as its memory has them.
struct BinarySpread {
  TensorShape result;
  Dims dims;
  axes::Strides a;
  axes::Strides b;
};

namespace {

using Spread = BinarySpread;

constexpr auto kLastFunction = static_cast<uint32_t>(BinaryFunction::Select);

// Documented operators have the first four codes.
const uint16_t* documented_code(const runtime::LayerInfo* info) {
  if (const auto* same = dynamic_cast<const runtime::ElementWiseOperatorInfo*>(info)) {
    return &same->op_type;
  }
  const auto* spread = dynamic_cast<const runtime::BroadcastOperatorInfo*>(info);
  return spread == nullptr ? nullptr : &spread->op_type;
}

Dims without_leading_ones(const Dims& dims) {
  const auto first =
      std::find_if(dims.begin(), dims.end(), [](uint32_t size) { return size != 1; });
  return {first, dims.end()};
}

// Whether rows and columns of both spread, those of the result being `to`.
bool spread_planes(uint32_t a_height, uint32_t a_width, uint32_t b_height, uint32_t b_width,
                   Dims& to) {
  return axes::broadcast({a_height, a_width}, {b_height, b_width}, to);
}

// Strides along blocks, rows, columns and channels of a block, of a tensor in blocks.
bool spread_blocks(const TensorShape& a, const TensorShape& b, Spread& spread) {
  Dims planes;
  if (a.layout != b.layout || a.dims.size() != 4 || b.dims.size() != 4) return false;
  if (a.dims[0] != b.dims[0] || a.dims[3] != b.dims[3]) return false;
  if (!spread_planes(a.dims[1], a.dims[2], b.dims[1], b.dims[2], planes)) return false;
  spread.result.dims = spread.dims = {a.dims[0], planes[0], planes[1], a.dims[3]};
  spread.a = axes::broadcast_strides(a.dims, spread.dims);
  spread.b = axes::broadcast_strides(b.dims, spread.dims);
  return true;
}

// Of a tensor in blocks and one that isn't: numbers for whole channels, which lie in both orders alike,
// or the same numbers for all channels.
bool spread_over_blocks(const TensorShape& blocked, const Dims& plain, Spread& spread) {
  const Dims shown = without_leading_ones(plain);
  if (blocked.dims.size() != 4 || blocked.dims[3] != runtime::BlockSize(blocked.layout))
    return false;
  if (shown.size() > 3) return false;
  Dims dims(3 - shown.size(), 1);
  dims.insert(dims.end(), shown.begin(), shown.end());
  const uint32_t block = blocked.dims[3];
  const bool for_channels = dims[0] == blocked.dims[0] * block && dims[1] == 1 && dims[2] == 1;
  Dims planes;
  if (dims[0] != 1 && !for_channels) return false;
  if (!spread_planes(blocked.dims[1], blocked.dims[2], dims[1], dims[2], planes)) return false;
  spread.result = blocked;
  spread.result.dims = spread.dims = {blocked.dims[0], planes[0], planes[1], block};
  spread.a = axes::broadcast_strides(blocked.dims, spread.dims);
  const axes::Strides of_planes = axes::broadcast_strides({dims[1], dims[2]}, planes);
  spread.b = for_channels ? axes::Strides{block, 0, 0, 1}
                          : axes::Strides{0, of_planes[0], of_planes[1], 0};
  return true;
}

// Along numbers that lie in the same order in all of them.
bool spread_flat(const TensorShape& shape, size_t b_stride, Spread& spread) {
  spread.result = shape;
  spread.dims = {static_cast<uint32_t>(runtime::ElementCount(shape))};
  spread.a = {1};
  spread.b = {b_stride};
  return true;
}

// Drops dims of 1, and joins those that both operands run through without a gap, or stand still on.
void join_dims(Spread& spread) {
  size_t kept = 0;
  for (size_t k = 0; k < spread.dims.size(); ++k) {
    const uint32_t size = spread.dims[k];
    if (size == 1) continue;
    const bool goes_on = kept > 0 && spread.a[kept - 1] == spread.a[k] * size &&
                         spread.b[kept - 1] == spread.b[k] * size;
    if (!goes_on) ++kept;
    spread.dims[kept - 1] = goes_on ? spread.dims[kept - 1] * size : size;
    spread.a[kept - 1] = spread.a[k];
    spread.b[kept - 1] = spread.b[k];
  }
  spread.dims.resize(kept);
  spread.a.resize(kept);
  spread.b.resize(kept);
}

// Takes the last of the dims. @return its size, 1 if there is none
size_t take_last(Spread& spread, size_t& a_stride, size_t& b_stride) {
  if (spread.dims.empty()) return 1;
  const size_t size = spread.dims.back();
  a_stride = spread.a.back();
  b_stride = spread.b.back();
  spread.dims.pop_back();
  spread.a.pop_back();
  spread.b.pop_back();
  return size;
}

// How two operands spread; `single_constant`: the second is a constant of one number.
bool spread_both(const TensorShape& a, const TensorShape& b, bool single_constant, Spread& spread) {
  const bool a_blocked = !axes::is_in_order(a);
  const bool b_blocked = !axes::is_in_order(b);
  if (a_blocked && single_constant) return spread_flat(a, 0, spread);
  if (a_blocked && a.dims == b.dims && a.layout == b.layout) return spread_flat(a, 1, spread);
  spread.result = !a_blocked && !b_blocked && b.dims.size() > a.dims.size() ? b : a;
  if (a_blocked && b_blocked) return spread_blocks(a, b, spread);
  if (a_blocked) return spread_over_blocks(a, b.dims, spread);
  if (b_blocked) {
    if (!spread_over_blocks(b, a.dims, spread)) return false;
    std::swap(spread.a, spread.b);
    return true;
  }
  if (!axes::broadcast(a.dims, b.dims, spread.dims)) return false;
  spread.result.dims = spread.dims;
  spread.a = axes::broadcast_strides(a.dims, spread.dims);
  spread.b = axes::broadcast_strides(b.dims, spread.dims);
  return true;
}

}  // namespace

int BinaryKernel::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits BinaryKernel::refusals(const LayerInfo* info,
                                             const InferenceParam* param) const {
  Expectations expected;
  uint32_t function = 0;
  if (const uint16_t* code = documented_code(info)) {
    expected.expect(param == nullptr, "", "no inference parameter", "one");
    expected.expect(*code <= 3, "op_type", "0 to 3", std::to_string(*code));
    function = *code;
  } else {
    const auto* layer = expected.describe<BinaryFunctionInfo>(info, param);
    if (layer == nullptr) return std::move(expected).unmet();
    function = layer->function;
    expected.expect(function <= kLastFunction, "function", "0 to " + std::to_string(kLastFunction),
                    std::to_string(function));
    const uint64_t count = axes::count_of(layer->constant_dims);
    expected.expect(!layer->has_constant || layer->constant.size() == count, "constant",
                    counted(count, "number"), std::to_string(layer->constant.size()));
  }
  expected.expect(!row_.is_vector || elementary::has_vector_form(function), "function",
                  "one that vectors have", std::to_string(function));
  return std::move(expected).unmet();
}

bool BinaryKernel::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  has_constant_ = false;
  if (const uint16_t* code = documented_code(info)) {
    function_ = *code;
    return true;
  }
  const auto& description = static_cast<const BinaryFunctionInfo&>(*info);
  function_ = description.function;
  has_constant_ = description.has_constant;
  constant_is_first_ = description.constant_is_first;
  constant_dims_ = description.constant_dims;
  constant_ = description.constant;
  return true;
}

// How the inputs spread. @return false where they don't
bool BinaryKernel::spread_of(const Shapes& inputs, Spread& spread) const {
  if (inputs.size() != inputs_needed()) return false;
  const auto is_taken = [](const TensorShape& shape) { return is_float_in_main_memory(shape); };
  if (!std::all_of(inputs.begin(), inputs.end(), is_taken)) return false;
  if (!has_constant_) return spread_both(inputs[0], inputs[1], false, spread);
  const bool is_single = axes::count_of(constant_dims_) == 1;
  return spread_both(inputs[0], axes::plain_shape(constant_dims_), is_single, spread);
}

KernelFamily::Shapes BinaryKernel::InferOutputShapes(const Shapes& shapes) const {
  Spread spread;
  Assert(spread_of(shapes, spread), "%s: inputs %s don't broadcast", row_.name,
         runtime::ShapesText(shapes).c_str());
  return {spread.result};
}

int BinaryKernel::CheckInputs(const Tensors& tensors) const {
  Shapes shapes;
  for (const auto& tensor : tensors) {
    if (tensor == nullptr) return runtime::KERNEL_BAD_TENSOR;
    shapes.push_back(tensor->shape);
  }
  Spread spread;
  return tensor_verdict(spread_of(shapes, spread));
}

KernelFamily::Misfits BinaryKernel::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  Spread spread;
  const std::string count = counted(inputs_needed(), "FLOAT32 tensor");
  expected.expect(
      spread_of(inputs, spread), "inputs",
      count +
          " in main memory whose dims broadcast; in blocks either of one layout and as many "
          "channels, or one number for each channel or each pixel",
      runtime::ShapesText(inputs));
  return std::move(expected).unmet();
}

int BinaryKernel::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_float(tensors));
}

int BinaryKernel::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(inputs.size() == inputs_needed(), "%s: expected %zu inputs, found %zu", row_.name,
         inputs_needed(), inputs.size());
  Shapes shapes;
  for (const auto& tensor : inputs) {
    Assert(tensor != nullptr, "%s: an input is null", row_.name);
    shapes.push_back(tensor->shape);
  }
  Spread spread;
  const bool fits = spread_of(shapes, spread);
  if (!fits) InferOutputShapes(shapes);  // throws
  const auto output = pass.create(spread.result);
  const float* a = floats_of(*inputs[0]);
  const float* b = has_constant_ ? constant_.data() : floats_of(*inputs[1]);
  if (has_constant_ && constant_is_first_) {
    std::swap(a, b);
    std::swap(spread.a, spread.b);
  }
  const size_t count = axes::count_of(spread.dims);
  join_dims(spread);
  elementary::BinaryTask task;
  task.function = function_;
  task.count = take_last(spread, task.a_step, task.b_step);
  task.rows = take_last(spread, task.a_row, task.b_row);
  task.groups = take_last(spread, task.a_group, task.b_group);
  task.c = floats_of(*output);
  axes::Walk walk_a(spread.dims, spread.a);
  axes::Walk walk_b(spread.dims, spread.b);
  const size_t together = task.groups * task.rows * task.count;
  for (size_t done = 0; done < count; done += together, task.c += together) {
    task.a = a + walk_a.offset();
    task.b = b + walk_b.offset();
    row_.core(task);
    walk_a.next();
    walk_b.next();
  }
  outputs.push_back(output);
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
