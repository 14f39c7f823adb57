#include <gtest/gtest.h>

#include "qrt_core/kernel/extension/kernels.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "tests/support/compare.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/numbers.h"
#include "tests/support/test_context.h"

// What the second set's kernels that move numbers make of them.

namespace marlo::test {
namespace {

using runtime::DataType;
using runtime::IKernel;
using runtime::LayoutType;
using Dims = std::vector<uint32_t>;
using Floats = std::vector<float>;

struct Result {
  Dims dims;
  Floats values;
};

bool operator==(const Result& a, const Result& b) {
  return a.dims == b.dims && same_bits(a.values, b.values);
}

Result run(const char* name, const std::shared_ptr<runtime::LayerInfo>& info, const Dims& dims,
           const Floats& values) {
  TestContext context;
  const auto kernel = make_kernel(name);
  EXPECT_TRUE(kernel->Config(info, nullptr, context)) << name;
  const auto input = context.external_floats(dims, LayoutType::FLEXIABLE, values);
  EXPECT_EQ(kernel->CheckInputs({input}), 0) << name;
  IKernel::Tensors outputs;
  kernel->Forward({input}, outputs, context);
  context.pool().check();
  EXPECT_TRUE(outputs[0]->shape == kernel->InferOutputShapes({input->shape})[0]);
  EXPECT_EQ(kernel->CheckOutputs(outputs), 0);
  return {outputs[0]->shape.dims, values_of(*outputs[0])};
}

// The verdict on inputs of these dims, and that the pass refuses them as well.
int verdict(const char* name, const std::shared_ptr<runtime::LayerInfo>& info, const Dims& dims) {
  TestContext context;
  const auto kernel = make_kernel(name);
  EXPECT_TRUE(kernel->Config(info, nullptr, context)) << name;
  size_t count = 1;
  for (const uint32_t size : dims) count *= size;
  const auto input = context.floats(dims, LayoutType::FLEXIABLE, Floats(count, 0.0f));
  const int found = kernel->CheckInputs({input});
  if (found != 0) {
    IKernel::Tensors outputs;
    EXPECT_THROW(kernel->Forward({input}, outputs, context), std::runtime_error);
    EXPECT_TRUE(outputs.empty());
  }
  return found;
}

constexpr char kPad[] = "Pad_Fallback_Float_M1";
constexpr char kGather[] = "Gather_Fallback_Float_M1";
constexpr char kSpread[] = "BroadcastTo_Fallback_Float_M1";
constexpr char kSlice[] = "StridedSlice_Fallback_Float_M1";
constexpr char kReshape[] = "ReshapeTo_Fallback_Float_M1";
constexpr char kReshapeInPlace[] = "ReshapeTo_Inplace_Fallback_Float_M1";
constexpr char kEmbedding[] = "Embedding_Fallback_Float_M1";
constexpr char kConstant[] = "Constant_Fallback_Float_M1";

std::shared_ptr<runtime::PadInfo> pad(uint32_t mode, std::vector<int32_t> before,
                                      std::vector<int32_t> after) {
  const auto info = std::make_shared<runtime::PadInfo>();
  info->mode = mode;
  info->value = 9.0f;
  info->before = std::move(before);
  info->after = std::move(after);
  return info;
}

TEST(PadKernel, PutsAConstantAroundAndCuts) {
  EXPECT_EQ(run(kPad, pad(0, {1, 0}, {0, 2}), {2, 2}, {1, 2, 3, 4}),
            (Result{{3, 4}, {9, 9, 9, 9, 1, 2, 9, 9, 3, 4, 9, 9}}));
  EXPECT_EQ(run(kPad, pad(0, {-1, 1}, {0, -1}), {2, 2}, {1, 2, 3, 4}), (Result{{1, 2}, {9, 3}}));
  EXPECT_EQ(run(kPad, pad(0, {1}, {1}), {0}, {}), (Result{{2}, {9, 9}}));
}

TEST(PadKernel, MirrorsRepeatsAndWraps) {
  EXPECT_EQ(run(kPad, pad(1, {2}, {3}), {3}, {1, 2, 3}), (Result{{8}, {3, 2, 1, 2, 3, 2, 1, 2}}));
  EXPECT_EQ(run(kPad, pad(2, {2}, {1}), {3}, {1, 2, 3}), (Result{{6}, {1, 1, 1, 2, 3, 3}}));
  EXPECT_EQ(run(kPad, pad(3, {2}, {4}), {3}, {1, 2, 3}),
            (Result{{9}, {2, 3, 1, 2, 3, 1, 2, 3, 1}}));
  EXPECT_EQ(run(kPad, pad(1, {0, 1}, {0, 1}), {2, 2}, {1, 2, 3, 4}),
            (Result{{2, 4}, {2, 1, 2, 1, 4, 3, 4, 3}}));
}

TEST(PadKernel, RefusesOtherRanksAndMoreThanThereIs) {
  EXPECT_EQ(verdict(kPad, pad(0, {1}, {1}), {2, 2}), -2);
  EXPECT_EQ(verdict(kPad, pad(0, {-3}, {0}), {2}), -2);
  EXPECT_EQ(verdict(kPad, pad(2, {1}, {0}), {0}), -2);
  const auto kernel = make_kernel(kPad);
  EXPECT_EQ(kernel->CheckConfig(pad(4, {1}, {1}), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(pad(0, {1}, {}), nullptr), -1);
  EXPECT_EQ(kernel->CheckConfig(std::make_shared<runtime::GatherInfo>(), nullptr), -1);
}

std::shared_ptr<runtime::GatherInfo> gather(int32_t axis, Dims dims, std::vector<int32_t> indices) {
  const auto info = std::make_shared<runtime::GatherInfo>();
  info->axis = axis;
  info->index_dims = std::move(dims);
  info->indices = std::move(indices);
  return info;
}

TEST(GatherKernel, PutsTheIndicesDimsInTheAxisPlace) {
  const Floats six = {1, 2, 3, 4, 5, 6};
  EXPECT_EQ(run(kGather, gather(1, {2, 2}, {2, 0, -1, 1}), {2, 3}, six),
            (Result{{2, 2, 2}, {3, 1, 3, 2, 6, 4, 6, 5}}));
  EXPECT_EQ(run(kGather, gather(0, {}, {1}), {2, 3}, six), (Result{{3}, {4, 5, 6}}));
  EXPECT_EQ(run(kGather, gather(-1, {0}, {}), {2, 3}, six), (Result{{2, 0}, {}}));
}

TEST(GatherKernel, RefusesPlacesThatAreNotThere) {
  EXPECT_EQ(verdict(kGather, gather(0, {1}, {2}), {2, 3}), -2);
  EXPECT_EQ(verdict(kGather, gather(0, {1}, {-3}), {2, 3}), -2);
  EXPECT_EQ(verdict(kGather, gather(2, {1}, {0}), {2, 3}), -2);
  EXPECT_EQ(make_kernel(kGather)->CheckConfig(gather(0, {2}, {0}), nullptr), -1);
}

TEST(BroadcastToKernel, RepeatsDimsOf1) {
  const auto info = std::make_shared<runtime::BroadcastToInfo>();
  info->dims = {2, 2, 1, 3};
  EXPECT_EQ(run(kSpread, info, {2, 2, 1}, {1, 2, 3, 4}),
            (Result{{2, 2, 2, 3},
                    {1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4}}));
  EXPECT_EQ(verdict(kSpread, info, {2}), -2);
}

std::shared_ptr<runtime::StridedSliceInfo> slice(std::vector<int32_t> axes,
                                                 std::vector<int32_t> starts,
                                                 std::vector<int32_t> ends,
                                                 std::vector<int32_t> steps) {
  const auto info = std::make_shared<runtime::StridedSliceInfo>();
  info->axes = std::move(axes);
  info->starts = std::move(starts);
  info->ends = std::move(ends);
  info->steps = std::move(steps);
  return info;
}

TEST(StridedSliceKernel, StepsForwardAndBackwardWithinTheAxis) {
  const Floats line = {0, 1, 2, 3, 4};
  EXPECT_EQ(run(kSlice, slice({0}, {1}, {2147483647}, {2}), {5}, line), (Result{{2}, {1, 3}}));
  EXPECT_EQ(run(kSlice, slice({0}, {-1}, {-2147483647}, {-2}), {5}, line),
            (Result{{3}, {4, 2, 0}}));
  EXPECT_EQ(run(kSlice, slice({0}, {-2}, {-1}, {1}), {5}, line), (Result{{1}, {3}}));
  EXPECT_EQ(run(kSlice, slice({0}, {4}, {2}, {1}), {5}, line), (Result{{0}, {}}));
  EXPECT_EQ(run(kSlice, slice({-1, 0}, {1, 1}, {3, 2}, {1, 1}), {2, 3}, {1, 2, 3, 4, 5, 6}),
            (Result{{1, 2}, {5, 6}}));
  EXPECT_EQ(verdict(kSlice, slice({1}, {0}, {1}, {1}), {5}), -2);
  EXPECT_EQ(make_kernel(kSlice)->CheckConfig(slice({0}, {0}, {1}, {0}), nullptr), -1);
}

TEST(ReshapeToKernel, TakesOverDimsAndFindsOne) {
  for (const char* const kernel : {kReshape, kReshapeInPlace}) {
    SCOPED_TRACE(kernel);
    const auto info = std::make_shared<runtime::ReshapeToInfo>();
    info->dims = {0, -1, 2};
    EXPECT_EQ(run(kernel, info, {2, 6}, Floats(12, 5.0f)), (Result{{2, 3, 2}, Floats(12, 5.0f)}));
    EXPECT_EQ(verdict(kernel, info, {3, 3}), -2);
    info->dims = {4};
    EXPECT_EQ(verdict(kernel, info, {3}), -2);
    info->dims = {-1, -1};
    EXPECT_EQ(make_kernel(kernel)->CheckConfig(info, nullptr), -1);
    info->dims = {1};
    info->layout = static_cast<uint32_t>(LayoutType::C8HW8);
    EXPECT_EQ(make_kernel(kernel)->CheckConfig(info, nullptr), -1);
  }
}

TEST(ReshapeToKernel, InPlaceHandsOnItsInput) {
  const auto info = std::make_shared<runtime::ReshapeToInfo>();
  info->dims = {3, -1};
  TestContext context;
  for (const char* const name : {kReshape, kReshapeInPlace}) {
    const auto kernel = make_kernel(name);
    ASSERT_TRUE(kernel->Config(info, nullptr, context));
    const auto input = context.floats({2, 6}, LayoutType::FLEXIABLE, Floats(12, 5.0f));
    IKernel::Tensors outputs;
    ASSERT_EQ(kernel->Forward({input}, outputs, context), runtime::KERNEL_OK);
    EXPECT_EQ(outputs.at(0) == input, name == kReshapeInPlace);
  }
}

TEST(EmbeddingKernel, LooksRowsUp) {
  const auto info = std::make_shared<runtime::EmbeddingInfo>();
  info->rows = 3;
  info->width = 2;
  info->weight = weight_text({1, 2, 3, 4, 5, 6});
  EXPECT_EQ(run(kEmbedding, info, {2, 2}, {2, 0, 1, 2}),
            (Result{{2, 2, 2}, {5, 6, 1, 2, 3, 4, 5, 6}}));
  TestContext context;
  const auto kernel = make_kernel(kEmbedding);
  ASSERT_TRUE(kernel->Config(info, nullptr, context));
  for (const float row : {3.0f, -1.0f, kNaN, kInfinity}) {
    const auto input = context.floats({1}, LayoutType::C, {row});
    IKernel::Tensors outputs;
    EXPECT_THROW(kernel->Forward({input}, outputs, context), std::runtime_error) << row;
  }
  info->rows = 4;
  EXPECT_FALSE(kernel->Config(info, nullptr, context));
}

TEST(ConstantKernel, GivesANewTensorEveryTime) {
  const auto info = std::make_shared<runtime::ConstantInfo>();
  info->dims = {2, 2};
  info->values = {1, 2, 3, 0.1f};
  info->layout = static_cast<uint32_t>(LayoutType::SC);
  TestContext context;
  const auto kernel = make_kernel(kConstant);
  ASSERT_TRUE(kernel->Config(info, nullptr, context));
  EXPECT_EQ(kernel->CheckInputs({}), 0);
  IKernel::Tensors outputs;
  kernel->Forward({}, outputs, context);
  kernel->Forward({}, outputs, context);
  ASSERT_EQ(outputs.size(), 2u);
  EXPECT_NE(outputs[0]->handle.cpu, outputs[1]->handle.cpu);
  EXPECT_EQ(values_of(*outputs[1]), info->values);
  EXPECT_EQ(outputs[0]->shape.layout, LayoutType::SC);
  info->values.pop_back();
  EXPECT_FALSE(kernel->Config(info, nullptr, context));
}

}  // namespace
}  // namespace marlo::test
