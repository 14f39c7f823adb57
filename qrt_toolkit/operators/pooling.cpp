#include <algorithm>
#include <cmath>
#include <limits>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"
#include "qrt_toolkit/operators/window.h"

// Poolings over one, two or three axes.

namespace marlo::toolkit {
namespace {

/// Calls `visit(offset in the plane)` for each element that the window reads at one place.
template <class Visit>
void walk_window(const Box& box, const std::array<int64_t, 3>& place, Visit&& visit) {
  std::array<int64_t, 3> start;
  for (size_t i = 0; i < 3; ++i) {
    start[i] = place[i] * box.window[i].stride - box.window[i].pad_begin;
  }
  for (int64_t kz = 0; kz < box.window[0].kernel; ++kz) {
    const int64_t z = start[0] + kz * box.window[0].dilation;
    if (z < 0 || z >= box.in[0]) continue;
    for (int64_t ky = 0; ky < box.window[1].kernel; ++ky) {
      const int64_t y = start[1] + ky * box.window[1].dilation;
      if (y < 0 || y >= box.in[1]) continue;
      for (int64_t kx = 0; kx < box.window[2].kernel; ++kx) {
        const int64_t x = start[2] + kx * box.window[2].dilation;
        if (x >= 0 && x < box.in[2]) visit((z * box.in[1] + y) * box.in[2] + x);
      }
    }
  }
}

/// Calls `pool(plane, place of the window, number of the output)` for each output.
template <class Pool>
void walk_outputs(const Box& box, int64_t planes, Pool&& pool) {
  size_t output = 0;
  std::array<int64_t, 3> place;
  for (int64_t plane = 0; plane < planes; ++plane) {
    for (place[0] = 0; place[0] < box.out[0]; ++place[0]) {
      for (place[1] = 0; place[1] < box.out[1]; ++place[1]) {
        for (place[2] = 0; place[2] < box.out[2]; ++place[2]) pool(plane, place, output++);
      }
    }
  }
}

int64_t plane_of(const Box& box) { return box.in[0] * box.in[1] * box.in[2]; }

/// The output, empty, and the box of a pooling.
Numbers prepare(const Node& node, const Numbers& x, Box& box) {
  const Window window = pooling_window(node, x.shape.size());
  box = box_of(window, x.shape);
  return {x.type, *extents_of(windowed_shape(window, shape_of(x.shape), x.shape[1]))};
}

// The second output counts an element's place through the whole input, rows first or, with
// storage_order 1, columns first.
Results max_pool(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  Box box;
  Numbers result = prepare(node, x, box);
  Numbers places(ElementType::int64, result.shape);
  const int64_t plane_size = plane_of(box);
  const bool columns_first = node.integer("storage_order", 0) != 0;
  std::visit(
      [&](auto& out) {
        using List = std::decay_t<decltype(out)>;
        using T = typename List::value_type;
        const List& numbers = std::get<List>(x.data);
        walk_outputs(box, x.shape[0] * x.shape[1],
                     [&](int64_t plane, const std::array<int64_t, 3>& place, size_t output) {
                       T best = std::numeric_limits<T>::lowest();
                       int64_t found = -1;
                       walk_window(box, place, [&](int64_t at) {
                         const T number = numbers[static_cast<size_t>(plane * plane_size + at)];
                         if (found < 0 || number > best) {
                           best = number;
                           found = at;
                         }
                       });
                       out[output] = best;
                       if (columns_first && found >= 0) {
                         const int64_t x_at = found % box.in[2];
                         const int64_t y_at = found / box.in[2] % box.in[1];
                         const int64_t z_at = found / box.in[2] / box.in[1];
                         found = (x_at * box.in[1] + y_at) * box.in[0] + z_at;
                       }
                       places.integers()[output] = plane * plane_size + found;
                     });
      },
      result.data);
  return {std::move(result), std::move(places)};
}

/// How many elements of the padded input the window covers along an axis; what lies beyond the
/// padding, as it may in ceil_mode, is never counted.
int64_t covered(const WindowAxis& axis, int64_t place, int64_t size) {
  const int64_t start = place * axis.stride - axis.pad_begin;
  const int64_t room = size + axis.pad_end - start;
  return std::min(axis.kernel, (room + axis.dilation - 1) / axis.dilation);
}

Results average_pool(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  Box box;
  Numbers result = prepare(node, x, box);
  const bool with_padding = node.integer("count_include_pad", 0) != 0;
  const int64_t plane_size = plane_of(box);
  const Numbers::Reals& numbers = x.reals();
  walk_outputs(box, x.shape[0] * x.shape[1],
               [&](int64_t plane, const std::array<int64_t, 3>& place, size_t output) {
                 double sum = 0;
                 int64_t count = 0;
                 walk_window(box, place, [&](int64_t at) {
                   sum += numbers[static_cast<size_t>(plane * plane_size + at)];
                   ++count;
                 });
                 if (with_padding) {
                   count = 1;
                   for (size_t i = 0; i < 3; ++i)
                     count *= covered(box.window[i], place[i], box.in[i]);
                 }
                 result.reals()[output] = sum / static_cast<double>(count);
               });
  return {std::move(result)};
}

void infer_pool(ShapeStep& step) {
  std::optional<Shape> shape;
  if (const Shape* x = step.shape(0)) {
    shape = windowed_shape(pooling_window(step.node, x->size()), *x, (*x)[1]);
  }
  step.set(0, step.input(0).type, shape);
  step.set(1, ElementType::int64, shape);
}

/// Over everything behind batch and channels.
template <class Pool>
Results global(const Operands& inputs, Pool&& pool) {
  const Numbers& x = inputs[0];
  if (x.shape.size() < 2) throw NodeFault{"input 0", "expected batch and channels in front"};
  Extents shape(x.shape.size(), 1);
  shape[0] = x.shape[0];
  shape[1] = x.shape[1];
  Numbers result(x.type, shape);
  const size_t size = x.reals().size() / std::max<size_t>(1, result.reals().size());
  if (size == 0) throw NodeFault{"input 0", "nothing to pool in " + text_of(x.shape)};
  for (size_t i = 0; i < result.reals().size(); ++i) {
    result.reals()[i] = pool(x.reals().data() + i * size, size);
  }
  return {std::move(result)};
}

Results global_average(const Node&, const Operands& inputs) {
  return global(inputs, [](const double* numbers, size_t size) {
    double sum = 0;
    for (size_t i = 0; i < size; ++i) sum += numbers[i];
    return sum / static_cast<double>(size);
  });
}

Results global_max(const Node&, const Operands& inputs) {
  return global(inputs, [](const double* numbers, size_t size) {
    return *std::max_element(numbers, numbers + size);
  });
}

void infer_global(ShapeStep& step) {
  std::optional<Shape> shape = step.input(0).shape;
  if (shape) {
    for (size_t i = 2; i < shape->size(); ++i) (*shape)[i] = 1;
  }
  step.set(0, step.input(0).type, shape);
}

}  // namespace

std::span<const Operator> pooling_operators() {
  static constexpr Operator kRows[] = {
      {"AveragePool", 1, average_pool, infer_pool, "windows of one to three axes"},
      {"GlobalAveragePool", 1, global_average, infer_global},
      {"GlobalMaxPool", 1, global_max, infer_global},
      {"MaxPool", 1, max_pool, infer_pool, "windows of one to three axes"},
  };
  return kRows;
}

}  // namespace marlo::toolkit
