#include "qrt_core/kernel/basic/elementwise_functions.h"

#include "qrt_core/kernel/basic/elementwise_cores.h"
#include "qrt_core/utility/build_options.h"

namespace marlo::kernel::functional {
namespace {

// Whole blocks of 4 elements by `vector` and the rest by `scalar`.
void in_blocks(elementwise::Core vector, elementwise::Core scalar, const float* a, const float* b,
               size_t count, float* result) {
  constexpr size_t kBlock = 4;
  const size_t done = count - count % kBlock;
  vector(a, b, result, done);
  scalar(a + done, b + done, result + done, count - done);
}

#if QRT_WITH_SSE
constexpr elementwise::Core kAdd = elementwise::add_sse;
constexpr elementwise::Core kMultiply = elementwise::multiply_sse;
constexpr elementwise::Core kSubtract = elementwise::subtract_sse;
#else
constexpr elementwise::Core kAdd = elementwise::add_scalar;
constexpr elementwise::Core kMultiply = elementwise::multiply_scalar;
constexpr elementwise::Core kSubtract = elementwise::subtract_scalar;
#endif

}  // namespace

void elementwise_add_f32_m1(const float* a, const float* b, const unsigned int& count,
                            float* result) {
  elementwise::add_scalar(a, b, result, count);
}

void elementwise_mul_f32_m1(const float* a, const float* b, const unsigned int& count,
                            float* result) {
  elementwise::multiply_scalar(a, b, result, count);
}

void elementwise_sub_f32_m1(const float* a, const float* b, const unsigned int& count,
                            float* result) {
  elementwise::subtract_scalar(a, b, result, count);
}

void elementwise_add_sse_f32(const float* a, const float* b, const unsigned int& count,
                             float* result) {
  in_blocks(kAdd, elementwise::add_scalar, a, b, count, result);
}

void elementwise_mul_sse_f32(const float* a, const float* b, const unsigned int& count,
                             float* result) {
  in_blocks(kMultiply, elementwise::multiply_scalar, a, b, count, result);
}

void elementwise_sub_sse_f32(const float* a, const float* b, const unsigned int& count,
                             float* result) {
  in_blocks(kSubtract, elementwise::subtract_scalar, a, b, count, result);
}

}  // namespace marlo::kernel::functional
