#include "qrt_core/kernel/basic/sigmoid.h"

#include <gtest/gtest.h>

#include "qrt_core/utility/build_options.h"
#include "tests/support/activation_reference.h"
#include "tests/support/compare.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// The sigmoids that are called as functions.

namespace marlo::test {
namespace {

using kernel::functional::sigmoid_f32;
using kernel::functional::Sigmoid_F32_M2;
using kernel::functional::sigmoid_sse_f32_m2;
using runtime::DataType;
using runtime::LayoutType;

using Sigmoid = void (*)(const float*, const unsigned int&, float*);

// `inputs` through a function, between canaries, and once more over itself.
void expect_bits(Sigmoid sigmoid, const std::vector<float>& inputs,
                 const std::vector<float>& expected) {
  TestContext context;
  const auto count = static_cast<unsigned int>(inputs.size());
  const auto from = context.external_floats({count}, LayoutType::C, inputs);
  const auto to = context.external_floats({count}, LayoutType::C, inputs);
  sigmoid(static_cast<const float*>(from->RawPointer()), count,
          static_cast<float*>(to->RawPointer()));
  EXPECT_TRUE(same_bits(values_of(*to), expected));
  EXPECT_TRUE(same_bits(values_of(*from), inputs));
  auto* same = static_cast<float*>(from->RawPointer());
  sigmoid(same, count, same);
  EXPECT_TRUE(same_bits(values_of(*from), expected));
}

std::vector<float> of_reference(const char* kernel, const std::vector<float>& inputs) {
  return activation_reference(kernel).apply(inputs, {});
}

#if QRT_WITH_SSE
constexpr char kFastKernel[] = "Sigmoid_SSE_Float_M1";
#else
constexpr char kFastKernel[] = "Sigmoid_Fallback_Float_M1";
#endif

TEST(SigmoidFunction, IsExactForEveryCount) {
  for (size_t count = 0; count <= 70; ++count) {
    const auto inputs = Random(static_cast<uint32_t>(count)).floats(count, 20.0f);
    expect_bits(sigmoid_f32, inputs, of_reference("Sigmoid_Fallback_Float_M1", inputs));
  }
  expect_bits(sigmoid_f32, special_inputs(),
              of_reference("Sigmoid_Fallback_Float_M1", special_inputs()));
}

TEST(SigmoidFunction, IsFastInBlocksOf16AndExactBehindThem) {
  for (size_t count = 0; count <= 70; ++count) {
    const auto inputs = Random(static_cast<uint32_t>(count)).floats(count, 20.0f);
    expect_bits(sigmoid_sse_f32_m2, inputs, of_reference(kFastKernel, inputs));
  }
  expect_bits(sigmoid_sse_f32_m2, special_inputs(), of_reference(kFastKernel, special_inputs()));
}

TEST(SigmoidFunction, WorksOnAWholeTensorInPlace) {
  TestContext context;
  const auto inputs = Random(1).floats(30, 8.0f);
  const auto tensor = context.floats({2, 3, 5}, LayoutType::CHW, inputs);
  std::shared_ptr<runtime::Tensor> given = tensor;
  Sigmoid_F32_M2(given);
  EXPECT_EQ(given, tensor);
  EXPECT_TRUE(same_bits(values_of(*tensor), of_reference("Sigmoid_Fallback_Float_M1", inputs)));
}

TEST(SigmoidFunction, LeavesATensorWithoutElementsAlone) {
  TestContext context;
  std::shared_ptr<runtime::Tensor> tensor = context.floats({2, 0, 5}, LayoutType::CHW, {});
  Sigmoid_F32_M2(tensor);
  EXPECT_EQ(runtime::ElementCount(tensor->shape), 0u);
}

// 2^31 elements are a negative count.
TEST(SigmoidFunction, LeavesATensorOfANegativeCountAlone) {
  TestContext context;
  float element = 2.0f;
  std::shared_ptr<runtime::Tensor> tensor = context.device()->CreateTensorExternal(
      {{65536, 32768}, DataType::FLOAT32, LayoutType::FLEXIABLE}, &element);
  Sigmoid_F32_M2(tensor);
  EXPECT_EQ(element, 2.0f);
}

}  // namespace
}  // namespace marlo::test
