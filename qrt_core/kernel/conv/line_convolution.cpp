#include "qrt_core/kernel/conv/line_convolution.h"

#if QRT_WITH_AVX

namespace marlo::kernel {

bool accepts_line_of_3(const Conv1dParams& p) {
  return p.kernel_size == 3 && p.stride == 1 && p.dilation == 1 && p.in_channels != 0 &&
         p.out_channels != 0 && p.groups != 0;
}

}  // namespace marlo::kernel

#endif
