#include "qrt_core/kernel/extension/matrix/matmul.h"

#include <cstring>

#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/kernel/tensor_checks.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::kernel {

using axes::Dims;
using utility::Assert;

struct MatMul::Sizes {
  Dims batch_a, batch_b, batch;  // dims before the matrices
  size_t rows, columns, depth;
  size_t depth_b;
  bool fit;
  Dims output;
};

namespace {

Dims front_of(const Dims& dims) {
  return {dims.begin(), dims.end() - static_cast<std::ptrdiff_t>(2)};
}

}  // namespace

// A vector is a matrix of one row or column, whose dim the output leaves out.
MatMul::Sizes MatMul::sizes_of(const Dims& given_a, const Dims& given_b) const {
  Sizes sizes{};
  if (given_a.empty() || given_b.empty()) return sizes;
  Dims a = given_a;
  Dims b = given_b;
  if (a.size() == 1) a.insert(transpose_a_ ? a.end() : a.begin(), 1);
  if (b.size() == 1) b.insert(transpose_b_ ? b.begin() : b.end(), 1);
  sizes.batch_a = front_of(a);
  sizes.batch_b = front_of(b);
  const size_t last_a = a.size() - 1;
  const size_t last_b = b.size() - 1;
  sizes.rows = a[transpose_a_ ? last_a : last_a - 1];
  sizes.depth = a[transpose_a_ ? last_a - 1 : last_a];
  sizes.depth_b = b[transpose_b_ ? last_b : last_b - 1];
  sizes.columns = b[transpose_b_ ? last_b - 1 : last_b];
  sizes.fit =
      axes::broadcast(sizes.batch_a, sizes.batch_b, sizes.batch) && sizes.depth == sizes.depth_b;
  sizes.output = sizes.batch;
  if (given_a.size() > 1) sizes.output.push_back(static_cast<uint32_t>(sizes.rows));
  if (given_b.size() > 1) sizes.output.push_back(static_cast<uint32_t>(sizes.columns));
  return sizes;
}

int MatMul::CheckConfig(const LayerInfo* info, const InferenceParam* param) const {
  return config_verdict(refusals(info, param).empty());
}

KernelFamily::Misfits MatMul::refusals(const LayerInfo* info, const InferenceParam* param) const {
  Expectations expected;
  expected.describe<runtime::MatMulInfo>(info, param);
  return std::move(expected).unmet();
}

bool MatMul::Configure(const LayerInfo* info, const InferenceParam*, const Context&) {
  const auto& description = static_cast<const runtime::MatMulInfo&>(*info);
  transpose_a_ = description.transpose_a;
  transpose_b_ = description.transpose_b;
  alpha_ = description.alpha;
  return true;
}

KernelFamily::Shapes MatMul::InferOutputShapes(const Shapes& shapes) const {
  Assert(shapes.size() == 2, "%s: expected 2 inputs, found %zu", row_.name, shapes.size());
  const Sizes sizes = sizes_of(shapes[0].dims, shapes[1].dims);
  Assert(sizes.fit, "%s: inputs %s have no product", row_.name,
         runtime::ShapesText(shapes).c_str());
  runtime::TensorShape output = shapes[0];
  if (sizes.output.size() != output.dims.size()) {
    output.layout = runtime::LayoutType::FLEXIABLE;
  }
  output.dims = sizes.output;
  return {output};
}

int MatMul::CheckInputs(const Tensors& tensors) const {
  return tensor_verdict(axes::are_plain(tensors, 2) &&
                        sizes_of(tensors[0]->shape.dims, tensors[1]->shape.dims).fit);
}

KernelFamily::Misfits MatMul::input_refusals(const Shapes& inputs) const {
  Expectations expected;
  if (axes::expect_plain(inputs, 2, expected)) {
    expected.expect(sizes_of(inputs[0].dims, inputs[1].dims).fit, "inputs",
                    "matrices of which the first has as many columns as the second has rows",
                    runtime::ShapesText(inputs));
  }
  return std::move(expected).unmet();
}

int MatMul::CheckOutputs(const Tensors& tensors) const {
  return tensor_verdict(axes::are_plain(tensors, 1));
}

int MatMul::Forward(const Tensors& inputs, Tensors& outputs, const Pass& pass) const {
  Assert(axes::are_plain(inputs, 2), "%s: the inputs must be two FLOAT32 tensors in main memory",
         row_.name);
  const Dims& dims_a = inputs[0]->shape.dims;
  const Dims& dims_b = inputs[1]->shape.dims;
  auto output = pass.create(InferOutputShapes({inputs[0]->shape, inputs[1]->shape})[0]);
  const Sizes sizes = sizes_of(dims_a, dims_b);
  const size_t packed_floats = matrix::packed_size(sizes.depth, sizes.columns, row_.cores.lanes);
  const size_t scratch_floats = packed_floats + matrix::product_scratch(sizes.rows);
  const auto scratch = pass.create(axes::plain_shape({static_cast<uint32_t>(scratch_floats)}));
  float* const packed = axes::floats_of(*scratch);

  matrix::ProductTask task;
  task.a_row = transpose_a_ ? 1 : sizes.depth;
  task.a_step = transpose_a_ ? sizes.rows : 1;
  task.packed = packed;
  task.scratch = packed + packed_floats;
  task.c = axes::floats_of(*output);
  task.c_row = sizes.columns;
  task.rows = sizes.rows;
  task.columns = sizes.columns;
  task.depth = sizes.depth;
  const axes::Strides strides_a = axes::broadcast_strides(sizes.batch_a, sizes.batch);
  const axes::Strides strides_b = axes::broadcast_strides(sizes.batch_b, sizes.batch);
  axes::Walk walk_a(sizes.batch, strides_a);
  axes::Walk walk_b(sizes.batch, strides_b);
  const float* packed_from = nullptr;
  const size_t count = axes::count_of(sizes.batch);
  for (size_t i = 0; i < count; ++i) {
    const float* const b =
        axes::floats_of(*inputs[1]) + walk_b.offset() * sizes.depth * sizes.columns;
    if (b != packed_from) {
      row_.cores.pack({b, transpose_b_ ? 1 : sizes.columns, transpose_b_ ? sizes.depth : 1,
                       sizes.depth, sizes.columns, alpha_},
                      packed);
      packed_from = b;
    }
    task.a = axes::floats_of(*inputs[0]) + walk_a.offset() * sizes.rows * sizes.depth;
    row_.cores.multiply(task);
    task.c += sizes.rows * sizes.columns;
    walk_a.next();
    walk_b.next();
  }
  outputs.push_back(std::move(output));
  return runtime::KERNEL_OK;
}

}  // namespace marlo::kernel
