#include "qrt_core/kernel/basic/plane_dims.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/runtime/tensor/shape_text.h"

namespace marlo::kernel {

void expect_plane_dims(const runtime::TensorShape& input, uint32_t block, Expectations& expected) {
  expected.expect(has_plane_dims(input.dims, block), "input 0",
                  block == 1 ? "3 dims" : "4 dims, the last of them " + std::to_string(block),
                  runtime::ShapeText(input));
}

}  // namespace marlo::kernel
