#include "qrt_core/kernel/layout/layout_transform.h"

#include <algorithm>
#include <utility>

#include "qrt_core/kernel/layout/one_tensor.h"
#include "qrt_core/kernel/misfits_internal.h"

namespace marlo::kernel {

using runtime::TensorCPU;
using runtime::TensorShape;
using utility::Assert;

namespace {

bool has_dims_of(const std::vector<uint32_t>& dims, const ChannelBlocks& side) {
  if (side.block == 1) return dims.size() == 3;
  return dims.size() == 4 && dims[3] == side.block;
}

size_t channels_of(const TensorShape& shape, const ChannelBlocks& side) {
  return static_cast<size_t>(shape.dims[0]) * side.block;
}

size_t pixels_of(const TensorShape& shape) {
  return static_cast<size_t>(shape.dims[1]) * shape.dims[2];
}

void refuse_unreadable(const char* name, const char* role, const TensorShape& shape,
                       const ChannelBlocks& side) {
  const bool usable =
      has_dims_of(shape.dims, side) && runtime::ElementSize(shape.data_type) == sizeof(float);
  if (usable) return;
  if (side.block == 1) {
    Assert(false, "%s: the %s must be a FLOAT32 tensor [C, H, W]", name, role);
  }
  Assert(false, "%s: the %s must be a FLOAT32 tensor [C/%u, H, W, %u]", name, role, side.block,
         side.block);
}

// The side of larger blocks says how many channels are moved.
void move(const LayoutTransformRow& row, const TensorCPU& input, TensorCPU& output) {
  refuse_unreadable(row.name, "input", input.shape, row.source);
  refuse_unreadable(row.name, "output", output.shape, row.target);
  const size_t given = channels_of(input.shape, row.source);
  const size_t room = channels_of(output.shape, row.target);
  const bool packing = row.target.block > row.source.block;
  const size_t channels = packing ? room : given;
  const size_t pixels = pixels_of(input.shape);
  Assert(channels <= std::min(given, room) && pixels == pixels_of(output.shape),
         "%s: %zu channels of %zu pixels don't fit into %zu channels of %zu pixels", row.name,
         given, pixels, room, pixels_of(output.shape));
  if (pixels == 0) return;
  row.core(static_cast<const float*>(input.RawPointer()), static_cast<float*>(output.RawPointer()),
           channels, pixels);
}

// Every caller is a free function of a vector kernel, and a build may have none of these.
[[maybe_unused]] void move(const LayoutTransformRow& row, const std::shared_ptr<TensorCPU>& input,
                           const std::shared_ptr<TensorCPU>& output) {
  Assert(input != nullptr && output != nullptr, "%s: input and output must be tensors", row.name);
  move(row, *input, *output);
}

bool all_are(const KernelFamily::Tensors& tensors, const ChannelBlocks& side, uint32_t multiple) {
  return std::all_of(tensors.begin(), tensors.end(), [&](const auto& tensor) {
    if (tensor == nullptr) return false;
    const TensorShape& shape = tensor->shape;
    return shape.data_type == runtime::DataType::FLOAT32 && shape.layout == side.layout &&
           shape.location == runtime::LocationType::MainMemory &&
           (multiple == 1 || (!shape.dims.empty() && shape.dims[0] % multiple == 0));
  });
}

}  // namespace

KernelFamily::Shapes LayoutTransform::InferOutputShapes(const Shapes& shapes) const {
  Shapes outputs = shapes;
  for (TensorShape& shape : outputs) {
    std::vector<uint32_t>& dims = shape.dims;
    if (!has_dims_of(dims, row_.source)) {
      Assert(false, "%s: the input must have %s and not %zu dims", row_.name,
             row_.source.block == 1 ? "3 dims" : "4 dims, the last of them its block,",
             dims.size());
    }
    dims[0] = dims[0] * row_.source.block / row_.target.block;
    dims.resize(3);
    if (row_.target.block != 1) dims.push_back(row_.target.block);
    shape.layout = row_.target.layout;
  }
  return outputs;
}

int LayoutTransform::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(all_are(tensors, row_.source, row_.source_multiple));
}

KernelFamily::Misfits LayoutTransform::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  for (size_t i = 0; i < inputs.size(); ++i) {
    const std::string member = "input " + std::to_string(i);
    const TensorShape& shape = inputs[i];
    expected.expect(
        shape.data_type == runtime::DataType::FLOAT32 && shape.layout == row_.source.layout &&
            shape.location == runtime::LocationType::MainMemory,
        member, "FLOAT32 " + runtime::LayoutText(row_.source.layout) + " in main memory",
        runtime::ShapeText(shape));
    const uint32_t channels = shape.dims.empty() ? 0 : shape.dims[0] * row_.source.block;
    expected.expect(!shape.dims.empty() && shape.dims[0] % row_.source_multiple == 0, member,
                    "channels in multiples of " + std::to_string(row_.target.block),
                    std::to_string(channels));
  }
  return std::move(expected).unmet();
}

int LayoutTransform::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(all_are(tensors, row_.target, row_.target_multiple));
}

int LayoutTransform::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Shapes shapes;
  shapes.reserve(inputs.size());
  for (const auto& input : inputs) shapes.push_back(input->shape);
  shapes = InferOutputShapes(shapes);
  for (size_t i = 0; i < inputs.size(); ++i) {
    auto output = pass.create(std::move(shapes[i]));
    move(row_, static_cast<const TensorCPU&>(*inputs[i]), *output);
    outputs.push_back(std::move(output));
  }
  return runtime::KERNEL_OK;
}

namespace functional {

#define QRT_DEFINE_TRANSFORM(Name, row)                                            \
  void Name(std::shared_ptr<TensorCPU> input, std::shared_ptr<TensorCPU> output) { \
    move(rows::Name, input, output);                                               \
  }

#if QRT_WITH_SSE
QRT_LAYOUT_TRANSFORM_KERNELS_SSE(QRT_DEFINE_TRANSFORM)
#endif
#if QRT_WITH_AVX
QRT_LAYOUT_TRANSFORM_KERNELS_AVX(QRT_DEFINE_TRANSFORM)
#endif

#undef QRT_DEFINE_TRANSFORM

}  // namespace functional
}  // namespace marlo::kernel
