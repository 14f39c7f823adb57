#include <algorithm>
#include <limits>
#include <numeric>
#include <string>

#include "qrt_toolkit/operators/indexing.h"
#include "qrt_toolkit/operators/inference.h"
#include "qrt_toolkit/operators/strided.h"

namespace marlo::toolkit {
namespace {

/// What is taken of one axis.
struct Range {
  int64_t first = 0;
  int64_t count = 0;
  int64_t step = 1;
};

Range range_of(int64_t size, int64_t start, int64_t end, int64_t step) {
  if (step == 0) throw NodeFault{"steps", "a step can't be zero"};
  // Far beyond the axis is as good as its end, and doesn't overflow.
  const int64_t far = size + 1;
  start = std::clamp(start, -far, far);
  end = std::clamp(end, -far, far);
  if (start < 0) start += size;
  if (end < 0) end += size;
  Range range;
  range.step = step;
  if (step > 0) {
    range.first = std::clamp<int64_t>(start, 0, size);
    const int64_t room = std::clamp<int64_t>(end, 0, size) - range.first;
    if (room > 0) range.count = (room - 1) / step + 1;
  } else {
    range.first = std::clamp<int64_t>(start, 0, size - 1);
    const int64_t room = range.first - std::clamp<int64_t>(end, -1, size - 1);
    if (room > 0 && size > 0) range.count = (room - 1) / -std::max(step, -far) + 1;
    range.step = std::max(step, -far);
  }
  return range;
}

/// Which axes a slice changes, in the order of its starts and ends.
std::vector<size_t> sliced_axes(const std::optional<Numbers::Integers>& axes, size_t count,
                                size_t rank) {
  std::vector<size_t> result;
  for (size_t i = 0; i < count; ++i) {
    const int64_t axis = axes ? (i < axes->size() ? (*axes)[i] : -1 - static_cast<int64_t>(rank))
                              : static_cast<int64_t>(i);
    result.push_back(axis_from_front(axis, rank, "axes"));
  }
  return result;
}

void require_same_count(size_t starts, size_t others, const char* name) {
  if (starts != others) throw NodeFault{name, "it has another length than the starts"};
}

}  // namespace

Results slice(const Node&, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const Numbers::Integers& starts = inputs[1].integers();
  const Numbers::Integers& ends = inputs[2].integers();
  std::optional<Numbers::Integers> axes;
  if (inputs.has(3)) axes = inputs[3].integers();
  const auto steps = inputs.integers(4, Numbers::Integers(starts.size(), 1));
  require_same_count(starts.size(), ends.size(), "ends");
  require_same_count(starts.size(), steps.size(), "steps");
  const auto places = sliced_axes(axes, starts.size(), x.shape.size());
  Extents box = x.shape;
  Extents strides = strides_of(x.shape);
  const Extents own = strides;
  int64_t first = 0;
  for (size_t i = 0; i < places.size(); ++i) {
    const size_t axis = places[i];
    const Range range = range_of(x.shape[axis], starts[i], ends[i], steps[i]);
    box[axis] = range.count;
    strides[axis] = own[axis] * range.step;
    first += own[axis] * range.first;
  }
  Numbers result(x.type, box);
  std::visit(
      [&](auto& out) {
        const auto& from = std::get<std::decay_t<decltype(out)>>(x.data);
        for_each_row<2>(box, {strides_of(box), strides},
                        [&](const auto& at, int64_t count, const auto& by) {
                          for (int64_t i = 0; i < count; ++i) {
                            out[static_cast<size_t>(at[0] + i)] =
                                from[static_cast<size_t>(first + at[1] + i * by[1])];
                          }
                        });
      },
      result.data);
  return {std::move(result)};
}

void infer_slice(ShapeStep& step) {
  std::optional<Shape> shape = step.input(0).shape;
  const auto starts = step.integers(1);
  const auto ends = step.integers(2);
  const auto axes = step.integers(3);
  const bool axes_known = axes || !step.has(3);
  if (shape && !(starts && ends && axes_known)) {
    shape = unknown_shape(shape->size());
  } else if (shape) {
    const auto steps = step.integers(4, Numbers::Integers(starts->size(), 1));
    require_same_count(starts->size(), ends->size(), "ends");
    const auto places = sliced_axes(axes, starts->size(), shape->size());
    for (size_t i = 0; i < places.size(); ++i) {
      Dimension& size = (*shape)[places[i]];
      if (steps) require_same_count(starts->size(), steps->size(), "steps");
      const bool whole = steps && (*starts)[i] == 0 && (*steps)[i] == 1 &&
                         (*ends)[i] >= std::numeric_limits<int32_t>::max();
      if (whole) continue;
      size = size.known() && steps
                 ? Dimension(range_of(size.size, (*starts)[i], (*ends)[i], (*steps)[i]).count)
                 : Dimension();
    }
  }
  step.set(0, step.input(0).type, shape);
}

namespace {

/// What is added in front of and behind each axis.
struct Paddings {
  Extents front;
  Extents back;
};

Paddings paddings_of(size_t rank, const Numbers::Integers& pads,
                     const std::optional<Numbers::Integers>& axes) {
  Paddings result{Extents(rank, 0), Extents(rank, 0)};
  const size_t count = axes ? axes->size() : rank;
  if (pads.size() != 2 * count) {
    throw NodeFault{"pads", "expected " + std::to_string(2 * count) + " numbers, found " +
                                std::to_string(pads.size())};
  }
  for (size_t i = 0; i < count; ++i) {
    const size_t axis = axes ? axis_from_front((*axes)[i], rank, "axes") : i;
    constexpr int64_t kMost = std::numeric_limits<int32_t>::max();
    result.front[axis] = std::clamp(pads[i], -kMost, kMost);
    result.back[axis] = std::clamp(pads[count + i], -kMost, kMost);
  }
  return result;
}

/// The element of an axis of `size` that stands at `place`, which may lie outside; -1 for none.
int64_t source_of(const std::string& mode, int64_t place, int64_t size) {
  if (place >= 0 && place < size) return place;
  if (mode == "constant" || size == 0) return -1;
  if (mode == "edge") return std::clamp<int64_t>(place, 0, size - 1);
  if (mode == "wrap") return ((place % size) + size) % size;
  if (mode == "reflect") {
    if (size == 1) return 0;
    const int64_t period = 2 * (size - 1);
    const int64_t within = ((place % period) + period) % period;
    return within < size ? within : period - within;
  }
  throw NodeFault{"mode", "\"" + mode + "\" is none of constant, edge, reflect, wrap"};
}

}  // namespace

// Axis after axis: corners are then what padding one axis makes of the other's padding.
Results pad(const Node& node, const Operands& inputs) {
  std::optional<Numbers::Integers> axes;
  if (inputs.has(3)) axes = inputs[3].integers();
  Numbers x = inputs[0];
  const Paddings paddings = paddings_of(x.shape.size(), inputs[1].integers(), axes);
  const std::string mode = node.text("mode", "constant");
  for (size_t axis = 0; axis < x.shape.size(); ++axis) {
    if (paddings.front[axis] == 0 && paddings.back[axis] == 0) continue;
    Extents shape = x.shape;
    const int64_t size = shape[axis];
    shape[axis] = std::max<int64_t>(0, size + paddings.front[axis] + paddings.back[axis]);
    Numbers padded(x.type, shape);
    const auto at = shape.begin() + static_cast<std::ptrdiff_t>(axis);
    const int64_t outer = std::accumulate(shape.begin(), at, int64_t{1}, std::multiplies<>());
    const int64_t inner = std::accumulate(at + 1, shape.end(), int64_t{1}, std::multiplies<>());
    std::visit(
        [&](auto& out) {
          using T = typename std::decay_t<decltype(out)>::value_type;
          const auto& from = std::get<std::decay_t<decltype(out)>>(x.data);
          const T fill =
              inputs.has(2) && inputs[2].count() > 0
                  ? std::visit([](const auto& v) { return static_cast<T>(v[0]); }, inputs[2].data)
                  : T{0};
          auto place = out.begin();
          for (int64_t o = 0; o < outer; ++o) {
            for (int64_t i = 0; i < *at; ++i) {
              const int64_t source = source_of(mode, i - paddings.front[axis], size);
              place = source < 0
                          ? std::fill_n(place, inner, fill)
                          : std::copy_n(from.begin() + (o * size + source) * inner, inner, place);
            }
          }
        },
        padded.data);
    x = std::move(padded);
  }
  return {std::move(x)};
}

void infer_pad(ShapeStep& step) {
  std::optional<Shape> shape = step.input(0).shape;
  const auto pads = step.integers(1);
  const auto axes = step.integers(3);
  if (shape && pads && (axes || !step.has(3))) {
    const Paddings paddings = paddings_of(shape->size(), *pads, axes);
    for (size_t i = 0; i < shape->size(); ++i) {
      Dimension& size = (*shape)[i];
      const int64_t more = paddings.front[i] + paddings.back[i];
      if (more != 0) {
        size = size.known() ? Dimension(std::max<int64_t>(0, size.size + more)) : Dimension();
      }
    }
  } else if (shape) {
    shape = unknown_shape(shape->size());
  }
  step.set(0, step.input(0).type, shape);
}

}  // namespace marlo::toolkit
