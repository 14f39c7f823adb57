#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "qrt_core/kernel/conv/steps/conv_params.h"
#include "qrt_core/runtime/engine/kernel_facts.h"

// What a convolution kernel accepts, as data. The verdict of `CheckConfig`, the reasons for it and
// the catalogue's words all come from here.

namespace marlo::kernel {

/// The paddings that a kernel demands.
enum class Paddings {
  any,
  none,
  one_all_round,
  one_beside,
  one_above_and_below,
  two_all_round,
};

/// The groups that a kernel demands.
enum class Groups {
  any,            ///< it never looks at them
  above_zero,     ///< that there are any
  one_a_channel,  ///< as many as there are channels, in and out
  one,            ///< no groups
  in_eights,      ///< groups of channels that are multiples of 8, in and out
};

/// A number of channels that a kernel demands.
struct ChannelCount {
  uint32_t exactly = 0;      ///< this many; 0 for any number
  uint32_t multiple_of = 1;  ///< whole blocks
  bool above_zero = false;   ///< not none
};

/// The layers that a kernel accepts. A size of 0 stands for any.
struct Accepts {
  uint32_t kernel_y = 0;               ///< rows of the filter
  uint32_t kernel_x = 0;               ///< columns of the filter
  uint32_t stride = 0;                 ///< in both directions
  uint32_t dilation = 0;               ///< in both directions
  bool sizes_above_zero = false;       ///< where any kernel, stride and dilation are accepted
  Paddings paddings = Paddings::any;   ///< of each side
  ChannelCount in;                     ///< channels of the input
  ChannelCount out;                    ///< channels of the output
  Groups groups = Groups::above_zero;  ///< what is asked of them
};

/// Layers of one filter and stride, and no dilation.
constexpr Accepts window_of(uint32_t kernel_y, uint32_t kernel_x, uint32_t stride,
                            Paddings paddings = Paddings::any) {
  Accepts accepts;
  accepts.kernel_y = kernel_y;
  accepts.kernel_x = kernel_x;
  accepts.stride = stride;
  accepts.dilation = 1;
  accepts.paddings = paddings;
  return accepts;
}

/// @name The same with demands on channels
/// @{
constexpr Accepts with_channels(Accepts accepts) {
  accepts.in.above_zero = accepts.out.above_zero = true;
  return accepts;
}
constexpr Accepts with_inputs(Accepts accepts, uint32_t channels) {
  accepts.in.exactly = channels;
  return accepts;
}
constexpr Accepts with_outputs(Accepts accepts, uint32_t channels) {
  accepts.out.exactly = channels;
  return accepts;
}
constexpr Accepts in_blocks_of(uint32_t channels, Accepts accepts) {
  accepts.in.multiple_of = accepts.out.multiple_of = channels;
  return accepts;
}
constexpr Accepts with_groups(Accepts accepts, Groups groups) {
  accepts.groups = groups;
  return accepts;
}
/// @}

/// Any filter, stride and dilation that is there at all.
constexpr Accepts any_above_zero() {
  Accepts accepts;
  accepts.sizes_above_zero = true;
  return with_channels(accepts);
}

/// In what a layer isn't one that is accepted; nothing if it is. Members go by the names in the
/// description, for a plane or a line.
std::vector<runtime::Misfit> misfits(const Accepts& accepts, const Conv2dParams& params,
                                     bool is_line = false);

/// Whether a layer is accepted.
inline bool fits(const Accepts& accepts, const Conv2dParams& params) {
  return misfits(accepts, params).empty();
}

/// "3x3, stride 1, no dilation, padding 1 on all sides": what is accepted, but for what every layer
/// has that computes anything.
std::string words_for(const Accepts& accepts, bool is_line = false);

}  // namespace marlo::kernel
