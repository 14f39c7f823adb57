#pragma once

#include <memory>

#include "qrt_core/runtime/tensor/tensor.h"
#include "qrt_core/utility/export.h"

namespace marlo::kernel::functional {

/// The sigmoid 1 / (1 + exp(-x)) of `count` floats. Input and output may be the same array.
QRT_API void sigmoid_f32(const float* input, const unsigned int& count, float* output);

/// The sigmoid with a fast exponential for whole blocks of 16 floats, off by up to 4 percent,
/// and the accurate one for the rest. Input and output may be the same array.
///
/// The exponential is a line through the bits of a double: N. N. Schraudolph, "A Fast, Compact
/// Approximation of the Exponential Function", Neural Computation 11(4), 1999. It has no clamp: for
/// |x| above 709 infinities, NaNs and negative numbers come out of it.
/// In a build without SSE kernels all elements are accurate.
QRT_API void sigmoid_sse_f32_m2(const float* input, const unsigned int& count, float* output);

/// The accurate sigmoid of a whole FLOAT32 tensor, in place.
QRT_API void Sigmoid_F32_M2(std::shared_ptr<runtime::Tensor>& tensor);

}  // namespace marlo::kernel::functional
