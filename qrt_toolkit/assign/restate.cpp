#include "qrt_toolkit/assign/restate.h"

#include <cstring>
#include <limits>
#include <vector>

#include "qrt_core/runtime/model/weight_blob.h"

namespace marlo::toolkit {
namespace {

using runtime::ConvTranspose2dInfo;
using runtime::LayerInfo;

/// [groups][rows][columns] of runs of `length` numbers as [groups][columns][rows].
std::vector<float> with_axes_swapped(const std::vector<float>& numbers, size_t groups, size_t rows,
                                     size_t columns, size_t length) {
  std::vector<float> swapped(numbers.size());
  const float* source = numbers.data();
  for (size_t group = 0; group < groups; ++group) {
    for (size_t row = 0; row < rows; ++row) {
      for (size_t column = 0; column < columns; ++column) {
        float* target = &swapped[((group * columns + column) * rows + row) * length];
        std::memcpy(target, source, length * sizeof(float));
        source += length;
      }
    }
  }
  return swapped;
}

/// One axis of a window.
struct Axis {
  int64_t kernel;
  int64_t dilation;
  int64_t stride;
};

/// The padding that stands for `padding` in the other description: both count from the reach of the
/// window. The portable kernel counts a whole stride behind the last input, the others its first
/// pixel. @return whether a description can hold it
bool exchange(const Axis& axis, bool at_end, int16_t& padding) {
  const int64_t reach = (axis.kernel - 1) * axis.dilation;
  const int64_t other = reach - (at_end ? axis.stride - 1 : 0) - padding;
  if (other < std::numeric_limits<int16_t>::min() || other > std::numeric_limits<int16_t>::max()) {
    return false;
  }
  padding = static_cast<int16_t>(other);
  return true;
}

/// @param rows the channels that come first in the given weights
std::shared_ptr<LayerInfo> exchanged(const LayerInfo& layer, bool inputs_first) {
  const auto* given = dynamic_cast<const ConvTranspose2dInfo*>(&layer);
  if (given == nullptr || given->groups == 0) return nullptr;
  auto info = std::make_shared<ConvTranspose2dInfo>(*given);
  const Axis x{given->kernel_x, given->dilation_x, given->stride_x};
  const Axis y{given->kernel_y, given->dilation_y, given->stride_y};
  const bool fit = exchange(x, false, info->padding_l) && exchange(x, true, info->padding_r) &&
                   exchange(y, false, info->padding_t) && exchange(y, true, info->padding_b);
  if (!fit) return nullptr;
  const size_t groups = given->groups;
  const size_t ins = given->in_channels / groups;
  const size_t outs = given->out_channels / groups;
  const size_t length = size_t{given->kernel_y} * given->kernel_x;
  const std::vector<float> numbers = runtime::WeightNumbers(given->weight);
  if (numbers.size() != groups * ins * outs * length) return nullptr;
  const std::vector<float> swapped = with_axes_swapped(numbers, groups, inputs_first ? ins : outs,
                                                       inputs_first ? outs : ins, length);
  info->weight = runtime::MakeWeightBlob(swapped.data(), swapped.size());
  return info;
}

constexpr Restatement kOfTransposedConvolutions[] = {with_cut_paddings, with_inner_paddings};

}  // namespace

std::shared_ptr<LayerInfo> with_cut_paddings(const LayerInfo& layer) {
  return exchanged(layer, true);
}

std::shared_ptr<LayerInfo> with_inner_paddings(const LayerInfo& layer) {
  return exchanged(layer, false);
}

std::span<const Restatement> restatements_of(const LayerInfo& layer) {
  if (dynamic_cast<const ConvTranspose2dInfo*>(&layer) == nullptr) return {};
  return kOfTransposedConvolutions;
}

}  // namespace marlo::toolkit
