#include <algorithm>
#include <cmath>

#include "qrt_toolkit/operators/groups.h"
#include "qrt_toolkit/operators/inference.h"
#include "qrt_toolkit/operators/strided.h"

// Shifting and scaling by a mean and a variance, given or computed.

namespace marlo::toolkit {
namespace {

int64_t product(const Extents& shape, size_t from) {
  int64_t count = 1;
  for (size_t i = from; i < shape.size(); ++i) count *= shape[i];
  return count;
}

void require_channels(const Operands& inputs, size_t place, int64_t channels) {
  if (inputs[place].count() != channels) {
    throw NodeFault{"input " + std::to_string(place), "expected " + std::to_string(channels) +
                                                          " numbers, found " +
                                                          std::to_string(inputs[place].count())};
  }
}

void require_rank(const Numbers& x, size_t least) {
  if (x.shape.size() < least) {
    throw NodeFault{"input 0", "expected at least " + std::to_string(least) + " axes, found " +
                                   text_of(x.shape)};
  }
}

Results batch_normalization(const Node& node, const Operands& inputs) {
  if (node.integer("training_mode", 0) != 0) {
    throw NodeFault{"training_mode", "normalising by the batch's own numbers is training",
                    "export the model in evaluation mode"};
  }
  Numbers result = inputs[0];
  require_rank(result, 1);
  const double epsilon = node.real("epsilon", 1e-5);
  const int64_t channels = result.shape.size() < 2 ? 1 : result.shape[1];
  for (size_t i = 1; i <= 4; ++i) require_channels(inputs, i, channels);
  const int64_t size = product(result.shape, 2);
  double* number = result.reals().data();
  for (int64_t image = 0; image < result.shape[0]; ++image) {
    for (size_t c = 0; c < static_cast<size_t>(channels); ++c) {
      const double mean = inputs[3].reals()[c];
      const double scale = inputs[1].reals()[c] / std::sqrt(inputs[4].reals()[c] + epsilon);
      const double shift = inputs[2].reals()[c];
      for (int64_t i = 0; i < size; ++i, ++number) *number = (*number - mean) * scale + shift;
    }
  }
  return {std::move(result)};
}

void infer_batch_normalization(ShapeStep& step) {
  step.set(0, step.input(0).type, step.input(0).shape);
}

struct Moments {
  double mean = 0;
  double variance = 0;
};

Moments moments_of(const double* numbers, int64_t size) {
  Moments moments;
  for (int64_t i = 0; i < size; ++i) moments.mean += numbers[i];
  moments.mean /= static_cast<double>(size);
  for (int64_t i = 0; i < size; ++i) {
    const double distance = numbers[i] - moments.mean;
    moments.variance += distance * distance;
  }
  moments.variance /= static_cast<double>(size);
  return moments;
}

/// Normalises each `size` numbers that follow one another.
void normalize(Numbers::Reals& numbers, int64_t size, double epsilon) {
  for (size_t at = 0; at < numbers.size(); at += static_cast<size_t>(size)) {
    const Moments moments = moments_of(&numbers[at], size);
    const double scale = 1 / std::sqrt(moments.variance + epsilon);
    for (size_t i = at; i < at + static_cast<size_t>(size); ++i) {
      numbers[i] = (numbers[i] - moments.mean) * scale;
    }
  }
}

/// Scale and shift, one for each `size` numbers that follow one another, over and over.
void scale_channels(Numbers::Reals& numbers, int64_t size, const Numbers::Reals& scale,
                    const Numbers::Reals& shift) {
  size_t channel = 0;
  for (size_t at = 0; at < numbers.size(); at += static_cast<size_t>(size)) {
    for (size_t i = at; i < at + static_cast<size_t>(size); ++i) {
      numbers[i] = numbers[i] * scale[channel] + shift[channel];
    }
    channel = (channel + 1) % scale.size();
  }
}

Results instance_normalization(const Node& node, const Operands& inputs) {
  Numbers result = inputs[0];
  require_rank(result, 3);
  for (size_t i = 1; i <= 2; ++i) require_channels(inputs, i, result.shape[1]);
  if (result.count() == 0) return {std::move(result)};
  const int64_t size = product(result.shape, 2);
  normalize(result.reals(), size, node.real("epsilon", 1e-5));
  scale_channels(result.reals(), size, inputs[1].reals(), inputs[2].reals());
  return {std::move(result)};
}

Results group_normalization(const Node& node, const Operands& inputs) {
  Numbers result = inputs[0];
  require_rank(result, 2);
  const int64_t groups = node.integer("num_groups", 0);
  const int64_t channels = result.shape[1];
  if (groups < 1 || channels % groups != 0) {
    throw NodeFault{"num_groups", std::to_string(channels) + " channels don't fall into " +
                                      std::to_string(groups) + " groups"};
  }
  const bool per_group = node.integer("per_group", 0) != 0;
  for (size_t i = 1; i <= 2; ++i) require_channels(inputs, i, per_group ? groups : channels);
  if (result.count() == 0) return {std::move(result)};
  const int64_t size = product(result.shape, 2);
  const int64_t group = channels / groups * size;
  normalize(result.reals(), group, node.real("epsilon", 1e-5));
  scale_channels(result.reals(), per_group ? group : size, inputs[1].reals(), inputs[2].reals());
  return {std::move(result)};
}

Results layer_normalization(const Node& node, const Operands& inputs) {
  Numbers result = inputs[0];
  const size_t axis = axis_from_front(node.integer("axis", -1), result.shape.size());
  const int64_t size = product(result.shape, axis);
  const double epsilon = node.real("epsilon", 1e-5);
  Extents outer = result.shape;
  std::fill(outer.begin() + static_cast<std::ptrdiff_t>(axis), outer.end(), 1);
  Numbers means(result.type, outer);
  Numbers scales(result.type, outer);
  if (result.count() == 0) return {std::move(result), std::move(means), std::move(scales)};
  for (size_t i = 0; i < means.reals().size(); ++i) {
    const Moments moments = moments_of(&result.reals()[i * static_cast<size_t>(size)], size);
    means.reals()[i] = moments.mean;
    scales.reals()[i] = 1 / std::sqrt(moments.variance + epsilon);
  }
  normalize(result.reals(), size, epsilon);
  const Extents& box = result.shape;
  const auto apply = [&](size_t place, auto&& change) {
    const Numbers::Reals& operand = inputs[place].reals();
    for_each_row<2>(box, {strides_of(box), broadcast_strides(inputs[place].shape, box)},
                    [&](const auto& at, int64_t count, const auto& steps) {
                      for (int64_t i = 0; i < count; ++i) {
                        change(result.reals()[static_cast<size_t>(at[0] + i)],
                               operand[static_cast<size_t>(at[1] + i * steps[1])]);
                      }
                    });
  };
  apply(1, [](double& x, double scale) { x *= scale; });
  if (inputs.has(2)) apply(2, [](double& x, double shift) { x += shift; });
  return {std::move(result), std::move(means), std::move(scales)};
}

void infer_layer_normalization(ShapeStep& step) {
  std::optional<Shape> outer = step.input(0).shape;
  if (outer) {
    const size_t axis = axis_from_front(step.node.integer("axis", -1), outer->size());
    std::fill(outer->begin() + static_cast<std::ptrdiff_t>(axis), outer->end(), Dimension(1));
  }
  step.set(0, step.input(0).type, step.input(0).shape);
  step.set(1, ElementType::float32, outer);
  step.set(2, ElementType::float32, outer);
}

Results local_response(const Node& node, const Operands& inputs) {
  const Numbers& x = inputs[0];
  require_rank(x, 2);
  const double alpha = node.real("alpha", 1e-4);
  const double beta = node.real("beta", 0.75);
  const double bias = node.real("bias", 1);
  const int64_t width = node.integer("size", 0);
  if (width < 1) throw NodeFault{"size", "expected a positive number of channels"};
  const int64_t channels = x.shape[1];
  const int64_t plane = product(x.shape, 2);
  Numbers result(x.type, x.shape);
  const double* from = x.reals().data();
  double* to = result.reals().data();
  for (int64_t image = 0; image < x.shape[0]; ++image) {
    for (int64_t c = 0; c < channels; ++c) {
      const int64_t first = std::max<int64_t>(0, c - (width - 1) / 2);
      const int64_t last = std::min(channels - 1, c + width / 2);
      for (int64_t i = 0; i < plane; ++i) {
        double sum = 0;
        for (int64_t k = first; k <= last; ++k) sum += from[k * plane + i] * from[k * plane + i];
        to[c * plane + i] =
            from[c * plane + i] / std::pow(bias + alpha / static_cast<double>(width) * sum, beta);
      }
    }
    from += channels * plane;
    to += channels * plane;
  }
  return {std::move(result)};
}

}  // namespace

std::span<const Operator> normalization_operators() {
  static constexpr Operator kRows[] = {
      {"BatchNormalization", 6, batch_normalization, infer_batch_normalization, "no training mode"},
      {"GroupNormalization", 18, group_normalization, infer_same},
      {"InstanceNormalization", 6, instance_normalization, infer_same},
      {"LRN", 1, local_response, infer_same},
      {"LayerNormalization", 17, layer_normalization, infer_layer_normalization},
  };
  return kRows;
}

}  // namespace marlo::toolkit
