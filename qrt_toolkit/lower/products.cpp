#include <algorithm>
#include <optional>
#include <utility>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_toolkit/lower/groups.h"
#include "qrt_toolkit/operators/strided.h"

// Matrix products.

namespace marlo::toolkit {
namespace {

int64_t count(const Extents& sizes) { return count_of(sizes).value_or(0); }

/// Each of the matrices in the last two axes, transposed.
Numbers transposed(const Numbers& matrices) {
  Numbers result = matrices;
  const size_t rank = matrices.shape.size();
  const int64_t rows = matrices.shape[rank - 2];
  const int64_t columns = matrices.shape[rank - 1];
  std::swap(result.shape[rank - 2], result.shape[rank - 1]);
  const int64_t area = std::max<int64_t>(1, rows * columns);
  for (int64_t i = 0; i < matrices.count(); ++i) {
    const int64_t in = i % area;
    const int64_t to = i - in + in % columns * rows + in / columns;
    result.reals()[static_cast<size_t>(to)] = matrices.reals()[static_cast<size_t>(i)];
  }
  return result;
}

/// Rows times a matrix, as they lie.
size_t dense(Lowering& lowering, size_t layer, const Numbers& weight, const Numbers* bias) {
  auto info = std::make_shared<runtime::DenseInfo>();
  info->in_features = static_cast<uint32_t>(weight.shape[1]);
  info->out_features = static_cast<uint32_t>(weight.shape[0]);
  info->weight = blob_of(weight);
  info->if_bias = bias != nullptr;
  if (bias != nullptr) info->bias = blob_of(*bias);
  const int64_t rows =
      count(lowering.sizes_of_layer(layer)) / std::max<int64_t>(1, weight.shape[1]);
  const size_t made = lowering.plan().add(std::move(info), "Dense_Fallback_Float_M1", {layer});
  lowering.plan().layer(made).products = static_cast<uint64_t>(rows * count(weight.shape));
  return made;
}

/// The last axis times a matrix: one row is a full connection, more are a convolution of 1 x 1.
/// @param weight [out, in]
size_t times_last_axis(Lowering& lowering, size_t layer, const Numbers& weight,
                       const Numbers* bias) {
  Extents sizes = lowering.sizes_of_layer(layer);
  const int64_t outputs = weight.shape[0];
  const int64_t inputs = weight.shape[1];
  if (count(sizes) != inputs && lowering.plan().has("Dense_Fallback_Float_M1")) {
    return dense(lowering, layer, weight, bias);
  }
  if (count(sizes) != inputs) {
    return lowering.along_axis(layer, sizes.size() - 1, weight, bias);
  }
  auto info = std::make_shared<runtime::FullConnectionInfo>();
  info->in_features = narrow_u16(inputs, "features");
  info->out_features = narrow_u16(outputs, "features");
  info->weight = blob_of(weight);
  info->if_bias = bias != nullptr;
  if (bias != nullptr) info->bias = blob_of(*bias);
  const size_t vector = lowering.reshaped(layer, {inputs});
  const size_t made = lowering.plan().add(info, "FullConnection_Fallback_C_Float_M1", {vector});
  lowering.plan().layer(made).products = static_cast<uint64_t>(count(weight.shape));
  sizes.back() = outputs;
  return lowering.reshaped(made, sizes);
}

/// An operand of a product of two tensors. Behind a batch that stands in front of matrices the other
/// axes keep their places, counted from the last one; another batch is put back.
size_t operand(Lowering& lowering, size_t place) {
  if (const SharedNumbers numbers = lowering.constant(place)) {
    return lowering.constant_tensor(*numbers, numbers->shape);
  }
  const size_t layer = lowering.input(place);
  const auto batch = lowering.batch_of_input(place);
  const bool stays = !batch || (*batch == 0 && lowering.input_rank(place) > 2);
  return stays ? layer : lowering.reshaped(layer, lowering.input_shape(place));
}

/// Two tensors of matrices, the node's first two inputs.
size_t two_tensors(Lowering& lowering, bool a_turned = false, bool b_turned = false,
                   double alpha = 1) {
  size_t a = operand(lowering, 0);
  size_t b = operand(lowering, 1);
  // Of two vectors the product would have no axis.
  const auto is_vector = [&](size_t layer) { return lowering.sizes_of_layer(layer).size() == 1; };
  if (is_vector(a) && is_vector(b)) a = lowering.reshaped(a, {1, lowering.sizes_of_layer(a)[0]});
  auto info = std::make_shared<runtime::MatMulInfo>();
  info->transpose_a = a_turned;
  info->transpose_b = b_turned;
  info->alpha = as_float(alpha);
  const Extents sizes = lowering.sizes_of_layer(a);
  const int64_t inner = sizes.size() < 2 || !a_turned ? sizes.back() : sizes[sizes.size() - 2];
  const size_t layer = lowering.plan().add(std::move(info), "MatMul_Fallback_Float_M1", {a, b});
  lowering.plan().layer(layer).products =
      static_cast<uint64_t>(count(lowering.sizes_of_layer(layer)) * inner);
  return layer;
}

/// As many matrices as the tensor has: each multiplied with its own by a convolution in groups.
/// @param weight [..., out, in]
size_t times_own_matrix(Lowering& lowering, size_t layer, const Numbers& weight,
                        const Extents& out_sizes) {
  const Extents sizes = lowering.sizes_of_layer(layer);
  const size_t rank = weight.shape.size();
  const int64_t outputs = weight.shape[rank - 2];
  const int64_t inputs = weight.shape[rank - 1];
  const int64_t matrices = count(weight.shape) / std::max<int64_t>(1, outputs * inputs);
  const int64_t rows = count(sizes) / std::max<int64_t>(1, matrices * inputs);
  const auto front = static_cast<std::ptrdiff_t>(rank) - 2;
  const bool fits = sizes.size() == rank && count(sizes) == matrices * rows * inputs &&
                    count(out_sizes) == matrices * rows * outputs &&
                    std::equal(sizes.begin(), sizes.begin() + front, weight.shape.begin());
  if (!fits) {
    throw NodeFault{"inputs", "products of " + text_of(sizes) + " and constant matrices of " +
                                  text_of(weight.shape) + " have no kernel"};
  }
  const size_t columns =
      lowering.permuted(lowering.reshaped(layer, {matrices, rows, inputs}), {0, 2, 1});
  Numbers matrix = weight;
  matrix.shape = {matrices * outputs, inputs};
  const size_t product = lowering.along_axis(lowering.reshaped(columns, {matrices * inputs, rows}),
                                             0, matrix, nullptr, matrices);
  return lowering.permuted(lowering.reshaped(product, {matrices, outputs, rows}), {0, 2, 1});
}

/// A constant that is broadcast to `sizes`: one number for each of the last axis, if it is the same
/// for all others.
std::optional<Numbers> as_bias(const Numbers& addend, double factor, int64_t outputs) {
  if (addend.count() != 1 && (addend.shape.back() != outputs || addend.count() != outputs)) {
    return std::nullopt;
  }
  Numbers bias(ElementType::float32, {outputs});
  for (size_t i = 0; i < bias.reals().size(); ++i) {
    bias.reals()[i] = factor * addend.real(addend.count() == 1 ? 0 : i);
  }
  return bias;
}

Numbers scaled(Numbers numbers, double factor) {
  for (double& number : numbers.reals()) number *= factor;
  return numbers;
}

Numbers scalar(double number) { return scaled(Numbers::reals_1d({1}), number); }

/// C of a Gemm, for a product that stands without it.
size_t with_addend(Lowering& lowering, size_t product) {
  const double beta = lowering.node().real("beta", 1);
  if (!lowering.node().has_input(2) || beta == 0) return product;
  product = lowering.reshaped(product, lowering.output_sizes());
  if (const SharedNumbers addend = lowering.aligned_constant(2)) {
    return lowering.affine(product, scalar(1), scaled(*addend, beta));
  }
  size_t addend = lowering.input(2);
  if (beta != 1) addend = lowering.affine(addend, scalar(beta), scalar(0));
  return lowering.combined(0, product, addend);
}

void lower_gemm(Lowering& lowering) {
  const Node& node = lowering.node();
  const bool a_turned = node.integer("transA", 0) != 0;
  const bool b_turned = node.integer("transB", 0) != 0;
  const double alpha = node.real("alpha", 1);
  if (const SharedNumbers a = lowering.constant(0); a != nullptr && lowering.is_tensor(1)) {
    size_t b = lowering.input(1);
    if (b_turned) b = lowering.permuted(b, {1, 0});
    const Numbers weight = scaled(a_turned ? transposed(*a) : *a, alpha);
    return lowering.result(with_addend(lowering, lowering.along_axis(b, 0, weight)));
  }
  if (lowering.is_tensor(1)) {
    const size_t product = two_tensors(lowering, a_turned, b_turned, alpha);
    return lowering.result(with_addend(lowering, product));
  }
  const SharedNumbers given = lowering.required_constant(1);
  const Numbers weight = scaled(b_turned ? *given : transposed(*given), alpha);
  size_t rows = lowering.input(0);
  if (a_turned) {
    // The batch, which is gone, can only have been one of two axes.
    const bool whole = lowering.sizes_of_layer(rows).size() == 2;
    rows = whole ? lowering.permuted(rows, {1, 0}) : lowering.reshaped(rows, {1, weight.shape[1]});
  }
  const SharedNumbers addend = lowering.constant(2);
  if (addend == nullptr) {
    return lowering.result(with_addend(lowering, times_last_axis(lowering, rows, weight, nullptr)));
  }
  const auto bias = as_bias(*addend, node.real("beta", 1), weight.shape[0]);
  const size_t product = times_last_axis(lowering, rows, weight, bias ? &*bias : nullptr);
  lowering.result(bias ? product : with_addend(lowering, product));
}

void lower_matmul(Lowering& lowering) {
  if (lowering.node().has_input(2) && (lowering.is_tensor(1) || lowering.is_tensor(2))) {
    throw NodeFault{"input 2", "only constant matrices have a constant bias"};
  }
  if (const SharedNumbers a = lowering.constant(0); a != nullptr && lowering.is_tensor(1)) {
    const Extents sizes = lowering.input_sizes(1);
    if (a->shape.size() > 2) return lowering.result(two_tensors(lowering));
    Numbers weight = *a;
    if (a->shape.size() == 1) weight.shape.insert(weight.shape.begin(), 1);
    const size_t axis = sizes.size() < 2 ? 0 : sizes.size() - 2;
    return lowering.result(lowering.along_axis(lowering.input(1), axis, weight));
  }
  if (lowering.is_tensor(1)) return lowering.result(two_tensors(lowering));
  Numbers given = *lowering.required_constant(1);
  if (given.shape.size() == 1) given.shape.push_back(1);
  while (given.shape.size() > 2 && given.shape[0] == 1) given.shape.erase(given.shape.begin());
  if (given.shape.size() > 2 && lowering.has_second_set()) {
    return lowering.result(two_tensors(lowering));
  }
  const Numbers weight = transposed(given);
  const size_t rows = lowering.input(0);
  const SharedNumbers bias = lowering.constant(2);
  lowering.result(weight.shape.size() == 2
                      ? times_last_axis(lowering, rows, weight, bias.get())
                      : times_own_matrix(lowering, rows, weight, lowering.output_sizes()));
}

}  // namespace

std::span<const LoweringRow> product_lowerings() {
  static constexpr LoweringRow kRows[] = {
      {"Gemm", lower_gemm},
      {"MatMul", lower_matmul},
  };
  return kRows;
}

}  // namespace marlo::toolkit
