#include "qrt_toolkit/lower/phases.h"

#include <algorithm>
#include <limits>

namespace marlo::toolkit {

std::optional<PhasedAxis> phased(const TransposedAxis& axis) {
  constexpr int64_t kNone = std::numeric_limits<int64_t>::min();
  PhasedAxis made;
  int64_t first = std::numeric_limits<int64_t>::max();
  int64_t last = std::numeric_limits<int64_t>::min();
  for (int64_t phase = 0; phase < axis.stride; ++phase) {
    std::vector<int64_t>& offsets = made.place.emplace_back();
    for (int64_t number = 0; number < axis.kernel; ++number) {
      // Of the result m * stride + phase the input m + offset has this number as its factor.
      const int64_t distance = phase + axis.cut - number * axis.dilation;
      const bool is_read = distance % axis.stride == 0;
      offsets.push_back(is_read ? distance / axis.stride : kNone);
      if (!is_read) continue;
      first = std::min(first, offsets.back());
      last = std::max(last, offsets.back());
    }
  }
  if (first > last) return std::nullopt;
  made.places = (axis.out + axis.stride - 1) / axis.stride;
  made.kernel = last - first + 1;
  made.pad_begin = -first;
  made.pad_end = made.places - axis.in + last;
  if (made.pad_begin < 0 || made.pad_end < 0) return std::nullopt;
  for (std::vector<int64_t>& offsets : made.place) {
    for (int64_t& offset : offsets) offset = offset == kNone ? -1 : offset - first;
  }
  return made;
}

}  // namespace marlo::toolkit
