#pragma once

#include "qrt_core/utility/export.h"

// Arithmetic on flat arrays, element by element. The result may be one of the operands' arrays.

namespace marlo::kernel::functional {

/// @name One element at a time
/// result[i] of the `count` elements is a[i] + b[i], a[i] * b[i] or a[i] - b[i].
/// @{
QRT_API void elementwise_add_f32_m1(const float* a, const float* b, const unsigned int& count,
                                    float* result);
QRT_API void elementwise_mul_f32_m1(const float* a, const float* b, const unsigned int& count,
                                    float* result);
QRT_API void elementwise_sub_f32_m1(const float* a, const float* b, const unsigned int& count,
                                    float* result);
/// @}

/// @name Vectors of four lanes
/// The same results to the bit, faster. In a build without SSE kernels they are the forms above.
/// @{
QRT_API void elementwise_add_sse_f32(const float* a, const float* b, const unsigned int& count,
                                     float* result);
QRT_API void elementwise_mul_sse_f32(const float* a, const float* b, const unsigned int& count,
                                     float* result);
QRT_API void elementwise_sub_sse_f32(const float* a, const float* b, const unsigned int& count,
                                     float* result);
/// @}

}  // namespace marlo::kernel::functional
