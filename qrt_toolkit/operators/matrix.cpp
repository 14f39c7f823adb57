#include <algorithm>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"
#include "qrt_toolkit/operators/strided.h"

// Matrix products.

namespace marlo::toolkit {
namespace {

/// A matrix in a tensor, possibly read transposed.
struct Matrix {
  const double* numbers;
  int64_t row_step;
  int64_t column_step;
};

/// c += a b, rows x inner times inner x columns. The loops run over blocks of the inner size, so
/// that the rows of b which a block needs stay in the cache.
void add_product(const Matrix& a, const Matrix& b, double* c, int64_t rows, int64_t inner,
                 int64_t columns) {
  constexpr int64_t kBlock = 64;
  if (b.column_step != 1) {
    // Down the columns of b each result is one sum of its own.
    for (int64_t r = 0; r < rows; ++r) {
      for (int64_t n = 0; n < columns; ++n) {
        double sum = 0;
        for (int64_t k = 0; k < inner; ++k) {
          sum += a.numbers[r * a.row_step + k * a.column_step] *
                 b.numbers[k * b.row_step + n * b.column_step];
        }
        c[r * columns + n] += sum;
      }
    }
    return;
  }
  for (int64_t first = 0; first < inner; first += kBlock) {
    const int64_t last = std::min(first + kBlock, inner);
    for (int64_t r = 0; r < rows; ++r) {
      double* out = c + r * columns;
      for (int64_t k = first; k < last; ++k) {
        const double factor = a.numbers[r * a.row_step + k * a.column_step];
        const double* row = b.numbers + k * b.row_step;
        for (int64_t n = 0; n < columns; ++n) out[n] += factor * row[n];
      }
    }
  }
}

/// One axis is put in front of a vector on the left, behind one on the right.
template <class Sizes>
Sizes as_matrix(Sizes shape, bool left) {
  if (shape.empty()) {
    throw NodeFault{left ? "input 0" : "input 1", "a scalar has no matrix product"};
  }
  if (shape.size() == 1) shape.insert(left ? shape.begin() : shape.end(), 1);
  return shape;
}

/// The shape of a product, and what its operands are as matrices.
template <class Sizes>
struct ProductShape {
  Sizes a, b;   ///< with at least two axes
  Sizes batch;  ///< what stands in front of the matrices of the result
  Sizes result;
};

bool differ(int64_t a, int64_t b) { return a != b; }
bool differ(const Dimension& a, const Dimension& b) {
  return a.known() && b.known() && a.size != b.size;
}

template <class Sizes>
ProductShape<Sizes> product_shape(const Sizes& left, const Sizes& right) {
  ProductShape<Sizes> shape;
  shape.a = as_matrix(left, true);
  shape.b = as_matrix(right, false);
  if (differ(shape.a.back(), shape.b[shape.b.size() - 2])) {
    throw NodeFault{"inputs", "matrices of " + text_of(left) + " and " + text_of(right) +
                                  " can't be multiplied"};
  }
  shape.batch = broadcast_of(Sizes(shape.a.begin(), shape.a.end() - 2),
                             Sizes(shape.b.begin(), shape.b.end() - 2));
  shape.result = shape.batch;
  if (left.size() > 1) shape.result.push_back(shape.a[shape.a.size() - 2]);
  if (right.size() > 1) shape.result.push_back(shape.b.back());
  return shape;
}

/// The strides of the axes in front of the matrices, when they are broadcast to `batch`.
Extents batch_strides(const Extents& shape, const Extents& batch) {
  const Extents own = strides_of(shape);
  Extents strides(batch.size(), 0);
  const size_t offset = batch.size() - (shape.size() - 2);
  for (size_t i = 0; i + 2 < shape.size(); ++i) strides[offset + i] = shape[i] == 1 ? 0 : own[i];
  return strides;
}

void require_bias(const Extents& shape, int64_t columns) {
  if (shape.size() == 1 && shape[0] == columns) return;
  throw NodeFault{"input 2", "expected a number for each of " + std::to_string(columns) +
                                 " columns, found " + text_of(shape)};
}

// With a bias, which simplification brings in: one number for each column.
Results matmul(const Node&, const Operands& inputs) {
  const Numbers& a = inputs[0];
  const Numbers& b = inputs[1];
  const auto shape = product_shape(a.shape, b.shape);
  Numbers result(a.type, shape.result);
  const int64_t rows = shape.a[shape.a.size() - 2];
  const int64_t inner = shape.a.back();
  const int64_t columns = shape.b.back();
  Extents places = strides_of(shape.batch);
  for (int64_t& place : places) place *= rows * columns;
  for_each_row<3>(
      shape.batch,
      {places, batch_strides(shape.a, shape.batch), batch_strides(shape.b, shape.batch)},
      [&](const auto& at, int64_t count, const auto& steps) {
        for (int64_t i = 0; i < count; ++i) {
          add_product({a.reals().data() + at[1] + i * steps[1], inner, 1},
                      {b.reals().data() + at[2] + i * steps[2], columns, 1},
                      result.reals().data() + at[0] + i * steps[0], rows, inner, columns);
        }
      });
  if (inputs.has(2)) {
    require_bias(inputs[2].shape, columns);
    const Numbers::Reals& bias = inputs[2].reals();
    for (size_t i = 0; i < result.reals().size(); ++i) result.reals()[i] += bias[i % bias.size()];
  }
  return {std::move(result)};
}

void infer_matmul(ShapeStep& step) {
  const Shape* a = step.shape(0);
  const Shape* b = step.shape(1);
  std::optional<Shape> shape;
  if (a != nullptr && b != nullptr) shape = product_shape(*a, *b).result;
  const Shape* bias = step.node.has_input(2) ? step.shape(2) : nullptr;
  const auto biases = bias != nullptr ? extents_of(*bias) : std::nullopt;
  if (biases && shape && shape->back().known()) require_bias(*biases, shape->back().size);
  step.set(0, step.input(0).type, shape);
}

template <class Sizes>
Sizes gemm_shape(const Node& node, const Sizes& a, const Sizes& b) {
  if (a.size() != 2 || b.size() != 2) {
    throw NodeFault{"inputs", "expected two matrices, found " + text_of(a) + " and " + text_of(b)};
  }
  const size_t a_rows = node.integer("transA", 0) != 0 ? 1 : 0;
  const size_t b_rows = node.integer("transB", 0) != 0 ? 1 : 0;
  if (differ(a[1 - a_rows], b[b_rows])) {
    throw NodeFault{"inputs",
                    "matrices of " + text_of(a) + " and " + text_of(b) + " can't be multiplied"};
  }
  return {a[a_rows], b[1 - b_rows]};
}

Results gemm(const Node& node, const Operands& inputs) {
  const Numbers& a = inputs[0];
  const Numbers& b = inputs[1];
  Numbers result(a.type, gemm_shape(node, a.shape, b.shape));
  const bool a_turned = node.integer("transA", 0) != 0;
  const bool b_turned = node.integer("transB", 0) != 0;
  const int64_t rows = result.shape[0];
  const int64_t columns = result.shape[1];
  const int64_t inner = a.shape[a_turned ? 0 : 1];
  Matrix left{a.reals().data(), inner, 1};
  if (a_turned) left = {a.reals().data(), 1, rows};
  Matrix right{b.reals().data(), columns, 1};
  if (b_turned) right = {b.reals().data(), 1, inner};
  add_product(left, right, result.reals().data(), rows, inner, columns);
  const double alpha = node.real("alpha", 1);
  for (double& number : result.reals()) number *= alpha;
  if (!inputs.has(2)) return {std::move(result)};
  const double beta = node.real("beta", 1);
  const Numbers& c = inputs[2];
  if (broadcast_of(c.shape, result.shape) != result.shape) {
    throw NodeFault{"input 2", "an addend of " + text_of(c.shape) + " doesn't fit a product of " +
                                   text_of(result.shape)};
  }
  for_each_row<2>(result.shape,
                  {strides_of(result.shape), broadcast_strides(c.shape, result.shape)},
                  [&](const auto& at, int64_t count, const auto& steps) {
                    for (int64_t i = 0; i < count; ++i) {
                      result.reals()[static_cast<size_t>(at[0] + i)] +=
                          beta * c.reals()[static_cast<size_t>(at[1] + i * steps[1])];
                    }
                  });
  return {std::move(result)};
}

void infer_gemm(ShapeStep& step) {
  const Shape* a = step.shape(0);
  const Shape* b = step.shape(1);
  std::optional<Shape> shape;
  if (a != nullptr && b != nullptr) shape = gemm_shape(step.node, *a, *b);
  step.set(0, step.input(0).type, shape);
}

}  // namespace

std::span<const Operator> matrix_operators() {
  static constexpr Operator kRows[] = {
      {"Gemm", 6, gemm, infer_gemm, "floating-point matrices"},
      {"MatMul", 1, matmul, infer_matmul, "floating-point matrices"},
  };
  return kRows;
}

}  // namespace marlo::toolkit
