#include <gtest/gtest.h>

#include "qrt_core/kernel/image/color_functions.h"
#include "tests/support/compare.h"
#include "tests/support/image_oracle.h"
#include "tests/support/image_tensors.h"
#include "tests/support/processor.h"

// The functions that weigh in double precision compute most pixels in integers.

namespace marlo::test {
namespace {

using runtime::LayoutType;
using namespace kernel::functional;

using Function = void (*)(const TensorPointer&, TensorPointer&);

void expect_the_double_sum_for_every_colour(Function of_three, Function of_four) {
  constexpr uint32_t kSide = 256;
  std::vector<uint8_t> three(size_t{3} * kSide * kSide);
  std::vector<uint8_t> four(size_t{4} * kSide * kSide, 0x5A);
  std::vector<uint8_t> expected(size_t{kSide} * kSide);
  for (uint32_t first = 0; first < kSide; ++first) {
    for (size_t i = 0; i < expected.size(); ++i) {
      // Multiplied, so that colours whose sum is whole stand among others.
      const size_t place = i * 40503 % expected.size();
      const size_t bytes[] = {first, place / kSide, place % kSide};
      for (size_t c = 0; c < 3; ++c) {
        three[3 * i + c] = four[4 * i + c] = static_cast<uint8_t>(bytes[c]);
      }
      expected[i] = weighted_gray(three[3 * i], three[3 * i + 1], three[3 * i + 2]);
    }
    ImageTensors tensors;
    TensorPointer output = tensors.byte_output({kSide, kSide, 1}, LayoutType::HWC);
    of_three(tensors.bytes({kSide, kSide, 3}, LayoutType::HWC, three), output);
    ASSERT_TRUE(same_elements(bytes_of(output), expected)) << "byte 0 is " << first;
    output = tensors.byte_output({kSide, kSide, 1}, LayoutType::HWC);
    of_four(tensors.bytes({kSide, kSide, 4}, LayoutType::HWC, four), output);
    ASSERT_TRUE(same_elements(bytes_of(output), expected)) << "byte 0 is " << first;
  }
}

TEST(GrayExhaustive, IsTheDoubleSumForEveryColour) {
  expect_the_double_sum_for_every_colour(F_ColorCvt_BGR888_To_Gray8_Fallback,
                                         F_ColorCvt_BGRA8888_To_Gray8_Fallback);
}

TEST(GrayExhaustive, WithAvx2IsTheDoubleSumForEveryColour) {
  if (!processor_has(runtime::InstructionSet::avx2)) GTEST_SKIP() << "no AVX2 here";
  expect_the_double_sum_for_every_colour(F_ColorCvt_BGR888_To_Gray8_AVX2,
                                         F_ColorCvt_BGRA8888_To_Gray8_AVX2);
}

}  // namespace
}  // namespace marlo::test
