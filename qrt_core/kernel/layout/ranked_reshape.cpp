#include "qrt_core/kernel/layout/ranked_reshape.h"

#include <algorithm>
#include <utility>

#include "qrt_core/kernel/layout/one_tensor.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/runtime/model/shape_info.h"

namespace marlo::kernel {

using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorCPU;
using runtime::TensorReshapeInfo;
using runtime::TensorShape;
using utility::Assert;

namespace {

constexpr int16_t kInferred = -1;

// Three entries of 16 bits at most.
uint64_t product_of_known(const std::vector<int16_t>& new_shape) {
  uint64_t product = 1;
  for (size_t i = 1; i < new_shape.size(); ++i) {
    if (new_shape[i] != kInferred) product *= static_cast<uint16_t>(new_shape[i]);
  }
  return product;
}

size_t inferred_entries(const std::vector<int16_t>& new_shape) {
  return static_cast<size_t>(std::count(new_shape.begin() + 1, new_shape.end(), kInferred));
}

/// How the elements of an input are ordered.
enum class Order { planes, blocks, unknown };

Order order_by_rank(const std::vector<uint32_t>& dims) {
  if (dims.size() == 3) return Order::planes;
  const bool blocked = dims.size() == 4 && (dims[3] == 4 || dims[3] == 8);
  return blocked ? Order::blocks : Order::unknown;
}

Order order_of(const TensorShape& shape, ReshapeSource source) {
  if (source == ReshapeSource::anything || shape.layout == LayoutType::CHW) return Order::planes;
  if (shape.layout == LayoutType::C4HW4 || shape.layout == LayoutType::C8HW8) {
    return shape.dims.size() == 4 ? Order::blocks : Order::unknown;
  }
  const bool by_rank = source == ReshapeSource::blocks_or_planes_by_rank;
  return by_rank && shape.layout == LayoutType::FLEXIABLE ? order_by_rank(shape.dims)
                                                          : Order::unknown;
}

// Writes `count` elements in the order of planes out of blocks of dims [blocks, H, W, block].
template <typename Element>
void gather(const void* source, const std::vector<uint32_t>& dims, void* target, size_t count) {
  const auto* from = static_cast<const Element*>(source);
  auto* to = static_cast<Element*>(target);
  const size_t pixels = static_cast<size_t>(dims[1]) * dims[2];
  const size_t block = dims[3];
  for (size_t channel = 0; count != 0; ++channel) {
    const Element* element = from + channel / block * pixels * block + channel % block;
    const size_t here = std::min(pixels, count);
    for (size_t pixel = 0; pixel < here; ++pixel, element += block) *to++ = *element;
    count -= here;
  }
}

}  // namespace

bool RankedReshape::accepts_type(DataType type) const {
  return type == DataType::FLOAT32 || type == DataType::INT16 ||
         (row_.takes_half && type == DataType::FLOAT16);
}

bool RankedReshape::accepts_layout(const TensorShape& shape) const {
  if (row_.source == ReshapeSource::anything) return true;
  if (shape.layout == LayoutType::FLEXIABLE) {
    return row_.source == ReshapeSource::blocks_or_planes_by_rank &&
           (shape.dims.size() == 3 || shape.dims.size() == 4);
  }
  return shape.layout == LayoutType::CHW || shape.layout == LayoutType::C4HW4 ||
         shape.layout == LayoutType::C8HW8;
}

bool RankedReshape::fits(uint32_t count) const {
  if (new_shape_.empty()) return false;
  const uint64_t known = product_of_known(new_shape_);
  return inferred_entries(new_shape_) != 0 ? count % known == 0 : count == known;
}

int RankedReshape::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits RankedReshape::refusals(const LayerInfo* info,
                                              const InferenceParam* param) const {
  Expectations expected;
  const auto* description = expected.describe<TensorReshapeInfo>(info, param);
  if (description == nullptr) return std::move(expected).unmet();
  const std::vector<int16_t>& entries = description->new_shape;
  expected.expect(entries.size() == row_.rank + 1, "new_shape",
                  std::to_string(row_.rank + 1) + " entries, the first of them the batch",
                  listed(entries));
  if (!expected.met()) return std::move(expected).unmet();
  expected.expect(entries[0] == 1 || (row_.takes_any_batch && entries[0] == kInferred), "new_shape",
                  row_.takes_any_batch ? "1 or -1 as the batch" : "1 as the batch",
                  std::to_string(entries[0]));
  const bool sizes_fit = std::all_of(entries.begin() + 1, entries.end(),
                                     [](int16_t entry) { return entry > 0 || entry == kInferred; });
  expected.expect(sizes_fit && inferred_entries(entries) <= 1, "new_shape",
                  "sizes above 0, at most one of them -1", listed(entries));
  return std::move(expected).unmet();
}

KernelFamily::Misfits RankedReshape::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  const bool is_one = inputs.size() == 1 && inputs[0].location == runtime::LocationType::MainMemory;
  expected.expect(is_one, "inputs", "one tensor in main memory", runtime::ShapesText(inputs));
  if (!is_one) return std::move(expected).unmet();
  const TensorShape& shape = inputs[0];
  expected.expect(accepts_type(shape.data_type), "input 0",
                  row_.takes_half ? "FLOAT32, FLOAT16 or INT16" : "FLOAT32 or INT16",
                  runtime::ShapeText(shape));
  expected.expect(accepts_layout(shape), "input 0", "layout CHW, C4HW4 or C8HW8",
                  runtime::ShapeText(shape));
  expected.expect(fits(runtime::ElementCount(shape)), "input 0",
                  "as many elements as " + listed(new_shape_) + " has", runtime::ShapeText(shape));
  return std::move(expected).unmet();
}

KernelFamily::Misfits RankedReshape::pass_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (inputs.empty()) return {};
  expected.expect(order_of(inputs[0], row_.source) != Order::unknown, "input 0",
                  "as many dims as its layout has, or 4 of which the last is a block",
                  runtime::ShapeText(inputs[0]));
  expected.expect(
      !grows(inputs[0], InferOutputShapes(inputs)[0]), "new_shape",
      "at most the " + counted(runtime::ElementCount(inputs[0]), "element") + " of the input",
      listed(new_shape_));
  return std::move(expected).unmet();
}

bool RankedReshape::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  new_shape_ = static_cast<const TensorReshapeInfo&>(*info).new_shape;
  new_shape_[0] = 1;
  return true;
}

KernelFamily::Shapes RankedReshape::InferOutputShapes(const Shapes& shapes) const {
  TensorShape shape = any_shape(row_.name, shapes);
  Assert(!new_shape_.empty(), "%s: not configured", row_.name);
  const uint32_t count = runtime::ElementCount(shape);
  shape.layout = row_.layout;
  if (row_.rank == 1) {
    shape.dims = {count};  // whatever the entry says
    return {std::move(shape)};
  }
  const auto inferred = static_cast<uint32_t>(count / product_of_known(new_shape_));
  shape.dims.clear();
  for (size_t i = 1; i < new_shape_.size(); ++i) {
    const int16_t entry = new_shape_[i];
    shape.dims.push_back(entry == kInferred ? inferred : static_cast<uint32_t>(entry));
  }
  return {std::move(shape)};
}

int RankedReshape::CheckInputs(const Tensors& tensors) const {
  if (!is_one_in_main_memory(tensors)) return runtime::KERNEL_BAD_TENSOR;
  const TensorShape& shape = tensors[0]->shape;
  return tensor_verdict(accepts_type(shape.data_type) && accepts_layout(shape) &&
                        fits(runtime::ElementCount(shape)));
}

int RankedReshape::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(is_one_in_main_memory(tensors) &&
                        accepts_type(tensors[0]->shape.data_type) &&
                        tensors[0]->shape.layout == row_.layout);
}

int RankedReshape::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  const TensorCPU& input = any_input(inputs);
  Shapes shapes = InferOutputShapes({input.shape});
  const Order order = order_of(input.shape, row_.source);
  Assert(order != Order::unknown, "Invalid input tensor layout");
  if (order == Order::planes) {
    append_copy(row_.name, input, std::move(shapes[0]), pass, outputs);
    return runtime::KERNEL_OK;
  }

  const DataType type = input.shape.data_type;
  const bool is_float = type == DataType::FLOAT32;
  Assert(is_float || type == DataType::FLOAT16 || type == DataType::INT16,
         "Invalid input data type");
  refuse_growth(row_.name, input.shape, shapes[0]);
  auto output = pass.create(std::move(shapes[0]));
  const auto copy = is_float ? gather<uint32_t> : gather<uint16_t>;
  copy(input.RawPointer(), input.shape.dims, output->RawPointer(),
       runtime::ElementCount(output->shape));
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
