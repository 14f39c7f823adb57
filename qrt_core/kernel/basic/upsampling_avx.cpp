#ifndef __AVX__
#error "this file holds AVX code and must be compiled with -mavx"
#endif

#include "qrt_core/kernel/basic/upsampling_internal.h"

namespace marlo::kernel::upsampling {

void bilinear_chw_avx(const Task& task) noexcept { bilinear_floats<AvxVector>(task); }
void bilinear_c8_avx(const Task& task) noexcept { bilinear_pixels<AvxVector>(task); }
void nearest_c8_avx(const Task& task) noexcept { nearest_pixels<AvxVector>(task); }

}  // namespace marlo::kernel::upsampling
