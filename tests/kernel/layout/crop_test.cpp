#include "qrt_core/kernel/layout/crop.h"

#include <gtest/gtest.h>

#include "tests/support/blocked_layout.h"
#include "tests/support/model_builder.h"
#include "tests/support/test_context.h"

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorShape;

// The input stands in for a picture whose pixels are their own numbers.
TEST(Crop, KeepsWhatIsInside) {
  TestContext context;
  const auto cut = [&](auto crop, LayoutType layout) {
    const std::vector<float> planes = ramp(size_t{8} * 4 * 5);
    const auto tensor =
        context.floats(dims_in_layout({8, 4, 5}, layout), layout, to_layout(planes, 8, layout));
    const auto inside = crop(tensor, 1, 2, 1, 0, context.device());
    EXPECT_TRUE(inside->shape ==
                TensorShape(dims_in_layout({8, 3, 2}, layout), DataType::FLOAT32, layout));
    const auto values = from_layout(values_of(*inside), 8, layout);
    for (size_t i = 0; i < values.size(); ++i) {
      EXPECT_EQ(values[i], planes[(i / 6 * 4 + i / 2 % 3 + 1) * 5 + i % 2 + 1]);
    }
    EXPECT_EQ(crop(tensor, 3, 3, 0, 0, context.device()), nullptr);
    EXPECT_EQ(crop(tensor, 0, 0, 4, 1, context.device()), nullptr);
    EXPECT_EQ(crop(tensor, ~0u, 2, 0, 0, context.device()), nullptr);
    tensor->shape.layout = LayoutType::HWC;
    EXPECT_EQ(crop(tensor, 0, 0, 0, 0, context.device()), nullptr);
  };
  cut(kernel::Crop_HW_MainMemory_CHW_Float_Fallback_M1, LayoutType::CHW);
  cut(kernel::Crop_HW_MainMemory_C4HW4_Float_SSE_M1, LayoutType::C4HW4);
  cut(kernel::Crop_HW_MainMemory_C8HW8_Float_AVX_M1, LayoutType::C8HW8);
  context.pool().check();
}

}  // namespace
}  // namespace marlo::test
