#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <string>

#include "qrt_core/qrt_core.h"
#include "qrt_core/runtime/engine/kernel_facts.h"
#include "qrt_core/runtime/model/extension_info.h"
#include "qrt_toolkit/assign/candidates.h"
#include "qrt_toolkit/assign/epilogue.h"
#include "qrt_toolkit/assign/problem.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/toolkit/assign/every_assignment.h"
#include "tests/toolkit/assign/small_networks.h"

// Activations that the kernel of the layer before applies.

#if QRT_WITH_EXTENSIONS && QRT_WITH_AVX

namespace marlo::toolkit::test {
namespace {

using marlo::test::all_kernels;
using marlo::test::ModelBuilder;
using runtime::TensorShape;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

constexpr char kFused[] = "Conv2d_K3x3_S1x1_D1x1_G1_FMA_C8HW8_FLOAT_ReLU_M1";

std::string epilogue_of_kernel(const std::string& name) {
  const auto kernel = all_kernels().Create(name);
  const auto* facts = dynamic_cast<const runtime::IKernelFacts*>(kernel.get());
  return facts == nullptr ? "" : std::string(facts->epilogue());
}

AssignedModel assigned_by(const runtime::QRTModel& model, Costs& costs, KernelSet set,
                          const TensorShape& shape) {
  return assign_kernels(model, all_kernels(), costs, options_for(shape, set));
}

AssignedModel estimated(const runtime::QRTModel& model, KernelSet set = KernelSet::fma,
                        const TensorShape& shape = planes(16, 13, 11)) {
  EstimatedCosts costs;
  return assigned_by(model, costs, set, shape);
}

std::string kernel_of(const runtime::QRTModel& model, const std::string& layer) {
  return configuration(model, layer).kernel->kernel_type;
}

/// Whether "c" applies an epilogue and "r" passes on; fails where one does its part alone.
bool is_fused(const runtime::QRTModel& model) {
  const bool applies = !epilogue_of_kernel(kernel_of(model, "c")).empty();
  EXPECT_EQ(applies, kernel_of(model, "r") == kStraightThrough);
  return applies;
}

/// A convolution "c" and what is behind it, "r".
ModelBuilder pair_of(const std::shared_ptr<runtime::LayerInfo>& activation,
                     const std::string& kernel) {
  ModelBuilder builder;
  builder.input("x")
      .conv2d("c", "x", padded_convolution(16, 16))
      .layer("r", {"c"}, activation, kernel)
      .outputs({"r"});
  return builder;
}

std::shared_ptr<runtime::ElementFunctionInfo> function_of(runtime::ElementFunction function) {
  auto info = std::make_shared<runtime::ElementFunctionInfo>();
  info->function = static_cast<uint32_t>(function);
  return info;
}

/// Costs of 1 for whatever has an epilogue and `other` for the rest.
CostsByRule costs_of_epilogues(double with, double without) {
  return CostsByRule([=](const Work& work) { return work.epilogue.empty() ? without : with; });
}

TEST(Fused, ConvolutionsApplyTheActivationBehindThem) {
  QRT_SKIP_WHERE_MISSING(kFused);
  using F = runtime::ElementFunction;
  const auto plain = [] { return std::make_shared<runtime::ActivationInfo>(); };
  auto swish = function_of(F::Swish);
  auto clip = function_of(F::Clip);
  clip->alpha = 0;
  clip->beta = 6;
  auto limited = std::make_shared<runtime::ClipInfo>();
  limited->minimum_value = half_float::half(0.0f);
  limited->maximum_value = half_float::half(6.0f);
  struct Case {
    const char* epilogue;
    std::shared_ptr<runtime::LayerInfo> info;
    const char* kernel;
  };
  const Case cases[] = {{"ReLU", rectifier(), kReLU},
                        {"ReLU6", plain(), "ReLU6_Fallback_Float_M1"},
                        {"ReLU6", clip, "Clip_Fallback_Float_M1"},
                        {"ReLU6", limited, "Clip_Fallback_Float_M1"},
                        {"HSigmoid", plain(), "HSigmoid_Fallback_Float_M1"},
                        {"HSwish", plain(), "HSwish_Fallback_Float_M1"},
                        {"Sigmoid", plain(), "Sigmoid_Fallback_Float_M1"},
                        {"SiLU", function_of(F::SiLU), "SiLU_Fallback_Float_M1"},
                        {"SiLU", swish, "Swish_Fallback_Float_M1"},
                        {"Tanh", plain(), "TanH_Fallback_Float_M1"}};
  for (const Case& one : cases) {
    SCOPED_TRACE(std::string(one.epilogue) + " from " + one.kernel);
    const auto model = pair_of(one.info, one.kernel).build();
    const AssignedModel made = estimated(*model);
    EXPECT_TRUE(is_fused(made.model));
    EXPECT_EQ(epilogue_of_kernel(kernel_of(made.model, "c")), one.epilogue);
    // The sums are of some hundreds, of which little is left where a function ends at 1.
    expect_same(*model, made.model, planes(16, 13, 11), 2e-4);
    // And back, by costs that speak against it.
    CostsByRule dear = costs_of_epilogues(9, 1);
    const AssignedModel back = assigned_by(made.model, dear, KernelSet::fma, planes(16, 13, 11));
    EXPECT_FALSE(is_fused(back.model));
    expect_same(*model, back.model, planes(16, 13, 11), 2e-4);
  }
}

TEST(Fused, PairsAreChosenWhereTheyAreCheaperAndOnlyThere) {
  QRT_SKIP_WHERE_MISSING(kFused);
  const auto model = pair_of(rectifier(), kReLU).build();
  const TensorShape shape = planes(16, 13, 11);
  CostsByRule cheap = costs_of_epilogues(1, 2);
  const AssignedModel fused = assigned_by(*model, cheap, KernelSet::fma, shape);
  EXPECT_TRUE(is_fused(fused.model));
  expect_same(*model, fused.model, shape);
  // Convolution, rectifier and no converter: 4. Applied, with converters before and behind: more.
  CostsByRule dear = costs_of_epilogues(9, 2);
  EXPECT_FALSE(is_fused(assigned_by(*model, dear, KernelSet::fma, shape).model));
  // It is undone as well, and the activation gets a kernel again.
  const AssignedModel undone = assigned_by(fused.model, dear, KernelSet::fma, shape);
  EXPECT_FALSE(is_fused(undone.model));
  EXPECT_THAT(kernel_of(undone.model, "r"), HasSubstr("ReLU"));
  expect_same(*model, undone.model, shape);
}

TEST(Fused, WhatAppliesTheActivationNeedsItsInstructions) {
  QRT_SKIP_WHERE_MISSING(kFused);
  const auto model = pair_of(rectifier(), kReLU).build();
  EXPECT_TRUE(is_fused(estimated(*model, KernelSet::fma).model));
  EXPECT_FALSE(is_fused(estimated(*model, KernelSet::avx).model));
}

TEST(Fused, ResultsThatOthersNeedStayAsTheyAre) {
  QRT_SKIP_WHERE_MISSING(kFused);
  ModelBuilder two_readers;
  two_readers.input("x")
      .conv2d("c", "x", padded_convolution(16, 16))
      .layer("r", {"c"}, rectifier(), kReLU)
      .layer("s", {"c", "r"}, std::make_shared<runtime::ElementWiseOperatorInfo>(),
             "Elementwise_Fallback_Float_M1")
      .outputs({"s"});
  ModelBuilder returned = pair_of(rectifier(), kReLU);
  returned.outputs({"c", "r"});
  for (ModelBuilder* builder : {&two_readers, &returned}) {
    const auto model = builder->build();
    CostsByRule costs = costs_of_epilogues(0, 5);
    const AssignedModel made = assigned_by(*model, costs, KernelSet::fma, planes(16, 13, 11));
    EXPECT_FALSE(is_fused(made.model));
    expect_same(*model, made.model, planes(16, 13, 11));
  }
}

TEST(Fused, OtherFunctionsAndParametersAreNoEpilogues) {
  QRT_SKIP_WHERE_MISSING(kFused);
  using F = runtime::ElementFunction;
  auto leaky = std::make_shared<runtime::ActivationInfo>();
  leaky->activation_type = 4;
  leaky->activation_alpha = 1e-4f;
  auto swish = function_of(F::Swish);
  swish->alpha = 1.0001f;
  auto clip = function_of(F::Clip);
  clip->alpha = 0;
  clip->beta = 5.9995f;
  struct Case {
    std::shared_ptr<runtime::LayerInfo> info;
    const char* kernel;
  };
  for (const Case& one :
       {Case{leaky, "Leaky_Fallback_Float_M1"}, Case{swish, "Swish_Fallback_Float_M1"},
        Case{clip, "Clip_Fallback_Float_M1"},
        Case{function_of(F::GELU), "GELU_Fallback_Float_M1"}}) {
    SCOPED_TRACE(one.kernel);
    const auto model = pair_of(one.info, one.kernel).build();
    CostsByRule costs = costs_of_epilogues(0, 5);
    AssignOptions options = options_for(planes(16, 13, 11), KernelSet::fma);
    options.tolerance = 0.05;
    EXPECT_FALSE(is_fused(assign_kernels(*model, all_kernels(), costs, options).model));
  }
}

TEST(Fused, WithoutToleranceBitsStay) {
  QRT_SKIP_WHERE_MISSING(kFused);
  const auto model = pair_of(rectifier(), kReLU).build();
  const TensorShape shape = planes(16, 13, 11);
  // The same sums in the same order: only an epilogue is new.
  const std::string unfused = "Conv2d_K3x3_S1x1_D1x1_G1_FMA_C8HW8_FLOAT_M1";
  CostsByRule plain([&](const Work& work) {
    if (work.info == nullptr || work.kernel == unfused) return 0.0;
    return work.inputs[0].layout == runtime::LayoutType::C8HW8 ? 8.0 : 9.0;
  });
  AssignOptions options = options_for(shape, KernelSet::fma);
  runtime::KernelRegistry few;
  for (const std::string& name : all_kernels().Keys()) {
    if (name.rfind("Conv", 0) == 0 && name != unfused && name != kFused) continue;
    few.Register(
        name, [name] { return all_kernels().Create(name); }, true);
  }
  few.Register(
      "Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1",
      [] { return all_kernels().Create("Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"); }, true);
  const AssignedModel base = assign_kernels(*model, few, plain, options);
  ASSERT_EQ(kernel_of(base.model, "c"), unfused);
  options.tolerance = 0;
  CostsByRule cheap = costs_of_epilogues(1, 2);
  const AssignedModel fused = assign_kernels(base.model, few, cheap, options);
  EXPECT_EQ(kernel_of(fused.model, "c"), kFused);
  const auto numbers = picture(runtime::ElementCount(shape));
  EXPECT_EQ(outputs_of(fused.model, shape, numbers), outputs_of(base.model, shape, numbers));
}

/// A block of a residual network: its first activation follows a convolution, its last one a sum.
ModelBuilder residual_block() {
  ModelBuilder builder;
  builder.input("x")
      .conv2d("c", "x", padded_convolution(16, 16))
      .layer("r", {"c"}, rectifier(), kReLU)
      .conv2d("d", "r", padded_convolution(16, 16))
      .layer("s", {"x", "d"}, std::make_shared<runtime::ElementWiseOperatorInfo>(),
             "Elementwise_Fallback_Float_M1")
      .layer("t", {"s"}, rectifier(), kReLU)
      .conv2d("e", "t", padded_convolution(16, 16))
      .layer("y", {"e"}, rectifier(), kReLU)
      .outputs({"y", "t"});
  return builder;
}

TEST(Fused, AResidualBlockAppliesWhatFollowsItsConvolutionsAndItsSum) {
  QRT_SKIP_WHERE_MISSING(kFused);
  const auto model = residual_block().build();
  const TensorShape shape = planes(16, 28, 28);
  const AssignedModel made = estimated(*model, processor_kernels(), shape);
  EXPECT_TRUE(made.report.is_exact);
  EXPECT_TRUE(is_fused(made.model));
  EXPECT_EQ(kernel_of(made.model, "y"), kStraightThrough);
  EXPECT_EQ(kernel_of(made.model, "t"), kStraightThrough);
  EXPECT_EQ(epilogue_of_kernel(kernel_of(made.model, "s")), "ReLU");
  EXPECT_THAT(epilogue_of_kernel(kernel_of(made.model, "d")), IsEmpty());
  expect_same(*model, made.model, shape);
}

/// Recorded costs: any number, the same one for the same work.
double recorded(const Work& work, uint32_t round) {
  size_t cost = std::hash<std::string>()(work.key() + std::to_string(round));
  return static_cast<double>(cost % 8) + (work.info == nullptr ? 1 : 2);
}

TEST(Fused, TheChoiceIsAsGoodAsTryingAll) {
  QRT_SKIP_WHERE_MISSING(kFused);
  runtime::KernelRegistry few;
  for (const std::string& name :
       {std::string(kFused), std::string("Conv2d_K3x3_S1x1_D1x1_G1_FMA_C8HW8_FLOAT_M1"),
        std::string("Conv2D_Knxm_Snxm_Dnxm_Gn_Fallback_CHW_Float_M1"), std::string(kReLU),
        std::string("Input_Fallback_M1"), std::string(kStraightThrough),
        std::string("Elementwise_Fallback_Float_M1"),
        std::string("LayoutTransform_MainMemory_CHW_Float_To_C8HW8_AVX_M1"),
        std::string("LayoutTransform_MainMemory_C8HW8_Float_To_CHW_AVX_M1")}) {
    ASSERT_NE(all_kernels().Create(name), nullptr) << name;
    few.Register(
        name, [name] { return all_kernels().Create(name); }, true);
  }
  const auto model = residual_block().build();
  const TensorShape shape = planes(16, 9, 8);
  size_t fused = 0;
  constexpr uint32_t kRounds = 12;
  for (uint32_t round = 0; round < kRounds; ++round) {
    CostsByRule costs([round](const Work& work) { return recorded(work, round); });
    Workshop workshop(few);
    CandidateFinder finder(workshop, {KernelSet::fma, 1e-4});
    const Problem problem = make_problem(
        walk_reference(network(*model), *model->config_arr->cfgs.begin()->second->cpu_sse,
                       {{"x", shape}}, workshop),
        finder, costs);
    const Assignment found = cheapest_assignment(problem.graph);
    EXPECT_TRUE(found.is_exact);
    EXPECT_DOUBLE_EQ(found.cost, by_trying_all(problem.graph)) << "round " << round;
    const AssignedModel made =
        assign_kernels(*model, few, costs, options_for(shape, KernelSet::fma));
    fused += is_fused(made.model) ? 1 : 0;
    expect_same(*model, made.model, shape);
  }
  EXPECT_GT(fused, 0u);
  EXPECT_LT(fused, kRounds);
}

TEST(Fused, EveryEpilogueOfAKernelIsAKnownFunction) {
  size_t count = 0;
  for (const std::string& name : all_kernels().Keys()) {
    const std::string epilogue = epilogue_of_kernel(name);
    if (epilogue.empty()) continue;
    EXPECT_NE(epilogue_function(epilogue), nullptr) << name;
    ++count;
  }
  EXPECT_GT(count, 0u);
  EXPECT_EQ(epilogue_function("Softplus"), nullptr);
  EXPECT_EQ(finished({-1, 2}, nullptr), (std::vector<float>{-1, 2}));
  EXPECT_EQ(finished({-1, 2, 7}, epilogue_function("ReLU6")), (std::vector<float>{0, 2, 6}));
}

// What a trial of a few numbers can't tell from nothing at all is something all the same.
TEST(Fused, FunctionsThatChangeLittleStay) {
  auto shift = function_of(runtime::ElementFunction::ScaleShift);
  shift->alpha = 1;
  shift->beta = 1e-5f;
  auto bounds = function_of(runtime::ElementFunction::Clip);
  bounds->alpha = -100;
  bounds->beta = 100;
  ModelBuilder builder;
  builder.input("x")
      .layer("s", {"x"}, shift, "ScaleShift_Fallback_Float_M1")
      .layer("b", {"x"}, bounds, "Clip_Fallback_Float_M1")
      .outputs({"s", "b"});
  const AssignedModel made = estimated(*builder.build(), processor_kernels(), planes(1, 1, 64));
  EXPECT_THAT(kernel_of(made.model, "s"), HasSubstr("ScaleShift"));
  EXPECT_THAT(kernel_of(made.model, "b"), HasSubstr("Clip"));
}

}  // namespace
}  // namespace marlo::toolkit::test

#endif
