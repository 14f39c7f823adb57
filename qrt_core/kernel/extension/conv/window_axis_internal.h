#pragma once

#include <cstddef>
#include <cstdint>

#include "qrt_core/kernel/conv/steps/conv_params.h"

// Where windows stand on the input. Internal to the file that includes it.

namespace marlo::kernel::conv {
namespace {

/// One direction of a window that passes over a picture.
struct WindowAxis {
  size_t kernel = 0;
  size_t stride = 0;
  size_t dilation = 0;
  int64_t padding = 0;  ///< before the first input; below zero where windows begin behind it
  size_t inputs = 0;
  size_t outputs = 0;
};

inline WindowAxis rows_of(const ConvTask& task) noexcept {
  const Conv2dParams& p = task.params;
  return {p.kernel_y,           p.stride_y,     p.dilation_y,
          int64_t{p.padding_t}, task.in_height, task.out_height};
}

inline WindowAxis columns_of(const ConvTask& task) noexcept {
  const Conv2dParams& p = task.params;
  return {p.kernel_x,           p.stride_x,    p.dilation_x,
          int64_t{p.padding_l}, task.in_width, task.out_width};
}

/// Places of a window along an axis.
struct WindowPlaces {
  size_t begin, end;
};

/// Those that lie in the picture for any of the windows that begin at `lowest` to `highest`. A dilated
/// window may reach far beside a small picture.
inline WindowPlaces places_of(const WindowAxis& axis, int64_t lowest, int64_t highest) noexcept {
  WindowPlaces places = {0, axis.kernel};
  const auto inputs = static_cast<int64_t>(axis.inputs);
  const auto offset = [&](size_t place) { return static_cast<int64_t>(place * axis.dilation); };
  while (places.begin < places.end && highest + offset(places.begin) < 0) ++places.begin;
  while (places.begin < places.end && lowest + offset(places.end - 1) >= inputs) --places.end;
  return places;
}

}  // namespace
}  // namespace marlo::kernel::conv
