#include "qrt_core/kernel/extension/axes.h"
#include "qrt_core/kernel/misfits_internal.h"
#include "qrt_core/runtime/tensor/shape_text.h"

// What operators over axes say that they expect.

namespace marlo::kernel::axes {

using runtime::LayoutType;

bool expect_plain(const KernelFamily::Shapes& inputs, size_t count, Expectations& expected) {
  const bool met = are_plain(inputs, count);
  expected.expect(met, "inputs",
                  std::to_string(count) + (count == 1 ? " FLOAT32 tensor" : " FLOAT32 tensors") +
                      " in main memory, neither in C4HW4 nor in C8HW8",
                  runtime::ShapesText(inputs));
  return met;
}

void expect_layout(uint32_t layout, Expectations& expected) {
  const bool is_plain = layout == static_cast<uint32_t>(LayoutType::CHW) ||
                        layout == static_cast<uint32_t>(LayoutType::FLEXIABLE) ||
                        layout == static_cast<uint32_t>(LayoutType::C) ||
                        layout == static_cast<uint32_t>(LayoutType::BC) ||
                        layout == static_cast<uint32_t>(LayoutType::SC) ||
                        layout == static_cast<uint32_t>(LayoutType::CL);
  expected.expect(is_plain, "layout", "0, CHW, 23, FLEXIABLE, 24, C, 25, BC, 30, SC, or 33, CL",
                  std::to_string(layout));
}

}  // namespace marlo::kernel::axes
