#include <algorithm>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"
#include "qrt_toolkit/operators/window.h"

// Convolutions and transposed convolutions over one, two or three axes.

namespace marlo::toolkit {
namespace {

std::vector<int64_t> kernel_of(const Extents& weight) { return {weight.begin() + 2, weight.end()}; }

void check_kernel_shape(const Node& node, const Extents& weight) {
  const auto stated = node.integers("kernel_shape");
  if (!stated.empty() && stated != kernel_of(weight)) {
    throw NodeFault{"kernel_shape",
                    "it is " + text_of(stated) + ", the weights are of " + text_of(weight)};
  }
}

int64_t groups_of(const Node& node, int64_t channels) {
  const int64_t groups = node.integer("group", 1);
  if (groups < 1 || channels % groups != 0) {
    throw NodeFault{"group", std::to_string(channels) + " channels don't fall into " +
                                 std::to_string(groups) + " groups"};
  }
  return groups;
}

void check_shapes(const Extents& input, const Extents& weight) {
  if (input.size() < 3 || weight.size() != input.size()) {
    throw NodeFault{"inputs", "an input of " + text_of(input) + " and weights of " +
                                  text_of(weight) + " make no convolution"};
  }
}

void fill_bias(const Operands& inputs, Numbers& result) {
  if (!inputs.has(2)) return;
  const int64_t channels = result.shape[1];
  const Numbers::Reals& bias = inputs[2].reals();
  if (static_cast<int64_t>(bias.size()) != channels) {
    throw NodeFault{"input 2", "expected " + std::to_string(channels) + " numbers, found " +
                                   std::to_string(bias.size())};
  }
  if (result.count() == 0) return;
  const size_t plane = result.reals().size() / static_cast<size_t>(result.shape[0] * channels);
  auto place = result.reals().begin();
  for (int64_t image = 0; image < result.shape[0]; ++image) {
    for (const double number : bias) {
      place = std::fill_n(place, plane, number);
    }
  }
}

/// The places of the window, from first to last, at which tap `k` reads inside of the input.
struct Range {
  int64_t first;
  int64_t last;
};

Range inside(const WindowAxis& axis, int64_t k, int64_t in, int64_t out) {
  const int64_t shift = k * axis.dilation - axis.pad_begin;  // of the tap at place 0
  int64_t first = 0;
  if (shift < 0) first = (-shift + axis.stride - 1) / axis.stride;
  const int64_t room = in - 1 - shift;
  const int64_t last = room < 0 ? -1 : std::min(out - 1, room / axis.stride);
  return {first, last};
}

/// Adds what one tap of the window contributes: out += weight * in, for one pair of planes, or with
/// `transposed` in += weight * out.
template <bool transposed>
void add_tap(const Box& box, const std::array<int64_t, 3>& tap, double weight, const double* from,
             double* to) {
  std::array<Range, 3> range;
  std::array<int64_t, 3> shift;
  for (size_t i = 0; i < 3; ++i) {
    range[i] = inside(box.window[i], tap[i], box.in[i], box.out[i]);
    shift[i] = tap[i] * box.window[i].dilation - box.window[i].pad_begin;
  }
  const int64_t stride = box.window[2].stride;
  for (int64_t z = range[0].first; z <= range[0].last; ++z) {
    for (int64_t y = range[1].first; y <= range[1].last; ++y) {
      const int64_t in_z = z * box.window[0].stride + shift[0];
      const int64_t in_y = y * box.window[1].stride + shift[1];
      const int64_t in_row = (in_z * box.in[1] + in_y) * box.in[2] + shift[2];
      const int64_t out_row = (z * box.out[1] + y) * box.out[2];
      if constexpr (transposed) {
        const double* row = from + out_row;
        for (int64_t x = range[2].first; x <= range[2].last; ++x) {
          to[in_row + x * stride] += weight * row[x];
        }
      } else {
        double* row = to + out_row;
        if (stride == 1) {
          const double* source = from + in_row;
          for (int64_t x = range[2].first; x <= range[2].last; ++x) row[x] += weight * source[x];
        } else {
          for (int64_t x = range[2].first; x <= range[2].last; ++x) {
            row[x] += weight * from[in_row + x * stride];
          }
        }
      }
    }
  }
}

int64_t volume(const std::array<int64_t, 3>& sizes) { return sizes[0] * sizes[1] * sizes[2]; }

/// Walks all pairs of planes of a convolution: `in` has the groups' inputs, `out` their outputs.
/// Weights are [in or out of a group][the other][taps], as `weight_of` says.
template <bool transposed, class WeightOf>
void walk_planes(const Box& box, int64_t images, int64_t groups, int64_t in_of_group,
                 int64_t out_of_group, const double* from, double* to, WeightOf&& weight_of) {
  const int64_t in_plane = volume(box.in);
  const int64_t out_plane = volume(box.out);
  std::array<int64_t, 3> tap;
  for (int64_t image = 0; image < images; ++image) {
    for (int64_t group = 0; group < groups; ++group) {
      for (int64_t o = 0; o < out_of_group; ++o) {
        const int64_t out_at = ((image * groups + group) * out_of_group + o) * out_plane;
        for (int64_t i = 0; i < in_of_group; ++i) {
          const int64_t in_at = ((image * groups + group) * in_of_group + i) * in_plane;
          const double* weight = weight_of(group, o, i);
          for (tap[0] = 0; tap[0] < box.window[0].kernel; ++tap[0]) {
            for (tap[1] = 0; tap[1] < box.window[1].kernel; ++tap[1]) {
              for (tap[2] = 0; tap[2] < box.window[2].kernel; ++tap[2], ++weight) {
                if constexpr (transposed) {
                  add_tap<true>(box, tap, *weight, from + out_at, to + in_at);
                } else {
                  add_tap<false>(box, tap, *weight, from + in_at, to + out_at);
                }
              }
            }
          }
        }
      }
    }
  }
}

Results conv(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const Numbers& weight = inputs[1];
  check_shapes(x.shape, weight.shape);
  check_kernel_shape(node, weight.shape);
  const int64_t outputs = weight.shape[0];
  const int64_t groups = groups_of(node, outputs);
  const int64_t of_group = weight.shape[1];
  if (x.shape[1] != of_group * groups) {
    throw NodeFault{"input 1", "weights of " + text_of(weight.shape) + " in " +
                                   std::to_string(groups) + " groups don't fit an input of " +
                                   text_of(x.shape)};
  }
  const Window window = window_of(node, kernel_of(weight.shape));
  const Box box = box_of(window, x.shape);
  Numbers result(x.type, *extents_of(windowed_shape(window, shape_of(x.shape), outputs)));
  fill_bias(inputs, result);
  const int64_t taps = weight.count() / std::max<int64_t>(1, outputs * of_group);
  walk_planes<false>(box, x.shape[0], groups, of_group, outputs / groups, x.reals().data(),
                     result.reals().data(), [&](int64_t group, int64_t o, int64_t i) {
                       return weight.reals().data() +
                              ((group * (outputs / groups) + o) * of_group + i) * taps;
                     });
  return {std::move(result)};
}

void infer_conv(ShapeStep& step) {
  const Shape* x = step.shape(0);
  const Shape* weight = step.shape(1);
  std::optional<Shape> shape;
  if (x != nullptr && weight != nullptr) {
    if (const auto known = extents_of(*weight)) {
      if (x->size() < 3 || known->size() != x->size()) {
        throw NodeFault{"inputs", "an input of " + text_of(*x) + " and weights of " +
                                      text_of(*weight) + " make no convolution"};
      }
      check_kernel_shape(step.node, *known);
      shape = windowed_shape(window_of(step.node, kernel_of(*known)), *x, known->front());
    }
  }
  step.set(0, step.input(0).type, shape);
}

/// A transposed convolution is the convolution that leads from its output to its input. This is
/// that convolution's window, and the output's sizes.
struct Transposed {
  Window window;
  Extents sizes;
};

Transposed transposed_of(const Node& node, const std::vector<int64_t>& kernel, const Extents& in) {
  Transposed result{window_of(node, kernel), {}};
  const size_t count = kernel.size();
  const auto extra = node.integers("output_padding", std::vector<int64_t>(count, 0));
  auto wanted = node.integers("output_shape");
  if (wanted.size() == count + 2) wanted.erase(wanted.begin(), wanted.begin() + 2);
  if (extra.size() != count || (!wanted.empty() && wanted.size() != count)) {
    throw NodeFault{wanted.empty() ? "output_padding" : "output_shape",
                    "expected " + std::to_string(count) + " numbers"};
  }
  const AutoPad automatic = result.window.auto_pad;
  result.window.auto_pad = AutoPad::given;
  for (size_t i = 0; i < count; ++i) {
    WindowAxis& axis = result.window.axes[i];
    const int64_t whole = axis.stride * (in[i] - 1) + extra[i] + axis.span();
    const bool same = automatic == AutoPad::same_upper || automatic == AutoPad::same_lower;
    if (!wanted.empty() || same) {
      const int64_t size = wanted.empty() ? in[i] * axis.stride : wanted[i];
      const int64_t pad = std::max<int64_t>(0, whole - size);
      axis.pad_begin = automatic == AutoPad::same_upper ? pad / 2 : pad - pad / 2;
      axis.pad_end = pad - axis.pad_begin;
      result.sizes.push_back(size);
    } else {
      if (automatic == AutoPad::valid) axis.pad_begin = axis.pad_end = 0;
      result.sizes.push_back(whole - axis.pad_begin - axis.pad_end);
    }
    if (result.sizes.back() < 0) {
      throw NodeFault{"pads", "they leave nothing of an output of " + std::to_string(whole)};
    }
  }
  return result;
}

Results conv_transpose(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  const Numbers& weight = inputs[1];
  check_shapes(x.shape, weight.shape);
  check_kernel_shape(node, weight.shape);
  const int64_t groups = groups_of(node, x.shape[1]);
  const int64_t of_group = weight.shape[1];
  if (weight.shape[0] != x.shape[1]) {
    throw NodeFault{"input 1", "weights of " + text_of(weight.shape) + " don't fit an input of " +
                                   text_of(x.shape)};
  }
  const Transposed form =
      transposed_of(node, kernel_of(weight.shape), {x.shape.begin() + 2, x.shape.end()});
  Extents shape = {x.shape[0], of_group * groups};
  shape.insert(shape.end(), form.sizes.begin(), form.sizes.end());
  Numbers result(x.type, shape);
  fill_bias(inputs, result);
  // The window walks over the output, and its places are the input.
  Box box = box_of(form.window, shape);
  for (size_t i = 2; i < x.shape.size(); ++i) box.out[i + 3 - x.shape.size()] = x.shape[i];
  const int64_t in_of_group = x.shape[1] / groups;
  const int64_t taps = weight.count() / std::max<int64_t>(1, x.shape[1] * of_group);
  walk_planes<true>(box, x.shape[0], groups, of_group, in_of_group, x.reals().data(),
                    result.reals().data(), [&](int64_t group, int64_t o, int64_t i) {
                      return weight.reals().data() +
                             ((group * in_of_group + o) * of_group + i) * taps;
                    });
  return {std::move(result)};
}

void infer_conv_transpose(ShapeStep& step) {
  const Shape* x = step.shape(0);
  const Shape* weight = step.shape(1);
  const auto weights = weight == nullptr ? std::nullopt : extents_of(*weight);
  std::optional<Shape> shape;
  if (x != nullptr && weights) {
    if (x->size() < 3 || weights->size() != x->size()) {
      throw NodeFault{"inputs", "an input of " + text_of(*x) + " and weights of " +
                                    text_of(*weight) + " make no convolution"};
    }
    shape = unknown_shape(x->size());
    (*shape)[0] = (*x)[0];
    (*shape)[1] = (*weights)[1] * step.node.integer("group", 1);
    // Sizes that aren't known yet are asked for as 1, and their results not taken.
    Extents in;
    for (size_t i = 2; i < x->size(); ++i) in.push_back((*x)[i].known() ? (*x)[i].size : 1);
    const bool all_known =
        std::all_of(x->begin() + 2, x->end(), [](const Dimension& d) { return d.known(); });
    if (all_known) {
      const Transposed form = transposed_of(step.node, kernel_of(*weights), in);
      std::copy(form.sizes.begin(), form.sizes.end(), shape->begin() + 2);
    }
  }
  step.set(0, step.input(0).type, shape);
}

}  // namespace

std::span<const Operator> convolution_operators() {
  static constexpr Operator kRows[] = {
      {"Conv", 1, conv, infer_conv, "windows of one to three axes"},
      {"ConvTranspose", 1, conv_transpose, infer_conv_transpose, "windows of one to three axes"},
  };
  return kRows;
}

}  // namespace marlo::toolkit
