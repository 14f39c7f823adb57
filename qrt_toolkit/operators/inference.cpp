#include "qrt_toolkit/operators/inference.h"

namespace marlo::toolkit {
namespace {

std::optional<Shape> broadcast_inputs(const ShapeStep& step) {
  std::optional<Shape> result = step.input(0).shape;
  for (size_t i = 1; i < step.inputs.size(); ++i) {
    const Shape* other = step.shape(i);
    if (other == nullptr || !result) return std::nullopt;
    result = broadcast_of(*result, *other);
  }
  return result;
}

}  // namespace

void infer_same(ShapeStep& step) {
  for (size_t i = 0; i < step.outputs.size(); ++i) {
    step.set(i, step.input(0).type, step.input(0).shape);
  }
}

void infer_broadcast(ShapeStep& step) { step.set(0, step.input(0).type, broadcast_inputs(step)); }

void infer_comparison(ShapeStep& step) {
  step.set(0, ElementType::boolean, broadcast_inputs(step));
}

Shape unknown_shape(size_t rank) { return Shape(rank); }

}  // namespace marlo::toolkit
