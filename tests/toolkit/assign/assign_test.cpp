#include "qrt_toolkit/assign/assign.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "qrt_core/runtime/model/layers.h"
#include "qrt_core/utility/check_model.h"
#include "tests/support/kernels.h"
#include "tests/support/model_builder.h"
#include "tests/support/network_writer.h"
#include "tests/toolkit/assign/small_networks.h"

namespace marlo::toolkit::test {
namespace {

using marlo::test::documented_kernels;
using marlo::test::ModelBuilder;
using marlo::test::NetworkWriter;
using marlo::test::plane_convolution;
using marlo::test::Planes;
using marlo::test::ramp;
using runtime::DataType;
using runtime::LayoutType;
using runtime::TensorShape;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

AssignedModel assigned(const runtime::QRTModel& model, const AssignOptions& options) {
  EstimatedCosts costs;
  return assign_kernels(model, documented_kernels(), costs, options);
}

/// Convolution, rectifier, and a second convolution beside a sum.
ModelBuilder residual() {
  ModelBuilder builder;
  builder.input("x")
      .conv2d("c", "x", padded_convolution(16, 16))
      .layer("r", {"c"}, rectifier(), kReLU)
      .conv2d("d", "r", padded_convolution(16, 16))
      .layer("s", {"r", "d"}, std::make_shared<runtime::ElementWiseOperatorInfo>(),
             "Elementwise_Fallback_Float_M1")
      .layer("y", {"s"}, rectifier(), kReLU)
      .outputs({"y"});
  return builder;
}

TEST(Assign, EverySetComputesTheSame) {
  const auto model = residual().build();
  const TensorShape shape = planes(16, 13, 11);
  for (const KernelSet set : {KernelSet::portable, KernelSet::sse, processor_kernels()}) {
    SCOPED_TRACE(word_of(set));
    const AssignedModel made = assigned(*model, options_for(shape, set));
    expect_same(*model, made.model, shape);
    EXPECT_TRUE(made.report.is_exact);
    for (const AssignedLayer& layer : made.report.layers) {
      EXPECT_LE(set_of_kernel(layer.kernel, runtime::needs_of(layer.kernel)), set) << layer.id;
    }
  }
}

TEST(Assign, FasterKernelsTakeThePlaceOfPortableOnes) {
  const auto model = residual().build();
  const AssignedModel made = assigned(*model, options_for(planes(16, 32, 32), KernelSet::sse));
  for (const AssignedLayer& layer : made.report.layers) {
    EXPECT_LE(layer.cost, layer.cost_before) << layer.id;
    if (layer.id == "x") continue;
    EXPECT_THAT(layer.kernel, HasSubstr("SSE")) << layer.id;
    EXPECT_THAT(layer.before, HasSubstr("Fallback")) << layer.id;
  }
}

TEST(Assign, WholeNetworksComputeTheSame) {
  Planes input(8, 24, 20);
  const auto numbers = picture(input.values.size());
  input.values.assign(numbers.begin(), numbers.end());
  NetworkWriter writer(marlo::test::all_forms().at(0), input);
  std::string x = writer.relu(writer.first_conv("input", 16, 3));
  const std::string skip = x;
  x = writer.max2(x);
  x = writer.relu(writer.depthwise(writer.conv(x, 32, 1), 3));
  x = writer.upsample(writer.conv(x, 16, 3));
  x = writer.concatenate(skip, x);
  x = writer.sigmoid(writer.conv(x, 8, 1));
  writer.output(x);
  const auto model = writer.model().build();
  const TensorShape shape = planes(8, 24, 20);
  AssignOptions options = options_for(shape);
  options.inputs["input"] = shape;
  expect_same(*model, assigned(*model, options).model, shape);
}

TEST(Assign, GoesOnFromAModelInBlocksAsWell) {
  // A model with converters of its own: they are taken off, and put where they are cheapest.
  ModelBuilder builder;
  builder.input("x")
      .conv2d("c", "x", padded_convolution(8, 8), "Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1")
      .input_converter("0", "LayoutTransform_MainMemory_CHW_Float_To_C4HW4_SSE_M1")
      .layer("y", {"c"}, rectifier(), kReLU)
      .output_converter("0", "LayoutTransform_MainMemory_C4HW4_Float_To_CHW_SSE_M1")
      .outputs({"y"});
  if (documented_kernels().Create("Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1") == nullptr) {
    GTEST_SKIP() << "this build has no SSE kernels";
  }
  const auto model = builder.build();
  const TensorShape shape = planes(8, 9, 10);
  for (const KernelSet set : {KernelSet::portable, KernelSet::sse, processor_kernels()}) {
    SCOPED_TRACE(word_of(set));
    expect_same(*model, assigned(*model, options_for(shape, set)).model, shape);
  }
}

TEST(Assign, OutputsAndInputsStayAsTheyWere) {
  ModelBuilder builder;
  builder.input("x")
      .conv2d("a", "x", padded_convolution(16, 16))
      .layer("b", {"a"}, rectifier(), kReLU)
      .conv2d("y", "b", padded_convolution(16, 8))
      .outputs({"a", "b", "y"});
  const auto model = builder.build();
  const TensorShape shape = planes(16, 30, 30);
  const AssignedModel made = assigned(*model, options_for(shape));
  expect_same(*model, made.model, shape);
  EXPECT_THAT(network(made.model).squential_output_ids, ElementsAre("a", "b", "y"));
}

TEST(Assign, NothingWorksInPlaceWhereOthersNeedTheNumbers) {
  // The input belongs to the caller, "c" has two readers, and "y" is returned beside "z".
  ModelBuilder builder;
  builder.input("x")
      .layer("c", {"x"}, rectifier(), kReLU)
      .layer("d", {"c"}, rectifier(), kReLU)
      .layer("y", {"c"}, rectifier(), kReLU)
      .layer("z", {"y"}, rectifier(), kReLU)
      .layer("w", {"d"}, rectifier(), kReLU)
      .outputs({"y", "z", "w"});
  const auto model = builder.build();
  const AssignedModel made = assigned(*model, options_for(planes(8, 16, 16), KernelSet::sse));
  const auto works_in_place = [&](const std::string& layer) {
    return configuration(made.model, layer).kernel->kernel_type.find("Inplace") !=
           std::string::npos;
  };
  for (const char* const layer : {"c", "d", "y", "z"}) EXPECT_FALSE(works_in_place(layer)) << layer;
  if (documented_kernels().Create("ReLU_Inplace_SSE_Float_M1") != nullptr) {
    EXPECT_TRUE(works_in_place("w"));
  }
  expect_same(*model, made.model, planes(8, 16, 16));
}

TEST(Assign, ATensorIsConvertedOnceForAllItsReaders) {
  ModelBuilder builder;
  builder.input("x")
      .conv2d("a", "x", padded_convolution(8, 8))
      .conv2d("b", "x", padded_convolution(8, 8))
      .conv2d("c", "x", padded_convolution(8, 8))
      .outputs({"a", "b", "c"});
  const auto model = builder.build();
  CostsByRule costs([](const Work& work) {
    if (work.info == nullptr) return 1.0;
    return work.inputs[0].layout == LayoutType::C4HW4 ? 1.0 : 10.0;
  });
  const TensorShape shape = planes(8, 8, 8);
  const AssignedModel made =
      assign_kernels(*model, documented_kernels(), costs, options_for(shape, KernelSet::sse));
  if (documented_kernels().Create("Conv2d_K3x3_S1x1_D1x1_G1_SSE_C4HW4_FLOAT_M1") == nullptr) {
    GTEST_SKIP() << "this build has no SSE kernels";
  }
  EXPECT_THAT(made.report.converters, ElementsAre(Pair("x#C4HW4", "x")));
  EXPECT_DOUBLE_EQ(made.report.cost, 1 + 3 * (1 + 1));  // one in, and one behind each output
  for (const char* const id : {"a", "b", "c"}) {
    EXPECT_THAT(network(made.model).layers.at(id)->input_ids, ElementsAre("x#C4HW4"));
  }
  EXPECT_EQ(network(made.model).layers.at("x")->read_count, 1);
  EXPECT_EQ(network(*model).layers.at("x")->read_count, 0);  // the given model is as it was
  expect_same(*model, made.model, shape);
}

TEST(Assign, NewIdsDifferFromThoseThatAreThere) {
  ModelBuilder builder;
  builder.input("x").conv2d("x#C4HW4", "x", padded_convolution(8, 8)).outputs({"x#C4HW4"});
  CostsByRule costs([](const Work& work) {
    return work.info != nullptr && work.inputs[0].layout != LayoutType::C4HW4 ? 9.0 : 1.0;
  });
  const auto model = builder.build();
  const AssignedModel made = assign_kernels(*model, documented_kernels(), costs,
                                            options_for(planes(8, 8, 8), KernelSet::sse));
  if (made.report.converters.empty()) GTEST_SKIP() << "this build has no SSE kernels";
  EXPECT_THAT(made.report.converters, ElementsAre(Pair("x#C4HW4#2", "x")));
}

TEST(Assign, WeightsAreSharedWithTheGivenModel) {
  const auto model = residual().build();
  const AssignedModel made = assigned(*model, options_for(planes(16, 20, 20), KernelSet::portable));
  EXPECT_THAT(made.report.converters, IsEmpty());
  EXPECT_EQ(network(made.model).layers.at("c"), network(*model).layers.at("c"));
}

TEST(Assign, PaddedMaximaNeedRectifiedInputsForKernelsThatPadWithZeros) {
  auto pool = std::make_shared<runtime::MaxPool2dInfo>();
  pool->kernel_x = pool->kernel_y = 3;
  pool->stride_x = pool->stride_y = 2;
  pool->dilation_x = pool->dilation_y = 1;
  pool->padding_l = pool->padding_r = pool->padding_t = pool->padding_b = 1;
  const TensorShape shape = planes(8, 16, 16);
  for (const bool is_rectified : {false, true}) {
    ModelBuilder builder;
    builder.input("x");
    if (is_rectified) builder.layer("r", {"x"}, rectifier(), kReLU);
    builder.layer("y", {is_rectified ? "r" : "x"}, std::make_shared<runtime::MaxPool2dInfo>(*pool),
                  "Pooling2D_Max_Fallback_Float_M1");
    const auto model = builder.outputs({"y"}).build();
    const AssignedModel made = assigned(*model, options_for(shape, KernelSet::sse));
    expect_same(*model, made.model, shape);
    if (documented_kernels().Create("Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1") == nullptr)
      continue;
    EXPECT_EQ(made.report.layers.back().kernel, is_rectified
                                                    ? "Pooling2D_Max_K3x3_S2x2_SSE_CHW_Float_M1"
                                                    : "Pooling2D_Max_Fallback_Float_M1");
  }
}

// A vision transformer cuts its picture into patches by one window for each.
TEST(Assign, WindowsLargerThanASmallPictureAreTriedAsWell) {
  runtime::Conv2dInfo patches = padded_convolution(3, 8, 16);
  patches.stride_x = patches.stride_y = 16;
  patches.padding_l = patches.padding_r = patches.padding_t = patches.padding_b = 0;
  ModelBuilder builder;
  const auto model = builder.input("x").conv2d("c", "x", patches).outputs({"c"}).build();
  const TensorShape shape = planes(3, 64, 48);
  const AssignedModel made = assigned(*model, options_for(shape, KernelSet::sse));
  expect_same(*model, made.model, shape);
  if (documented_kernels().Create("Conv2D_Knxm_Snxm_Dnxm_Gn_SSE_CHW_Float_M1") == nullptr) {
    GTEST_SKIP() << "this build has no SSE kernels";
  }
  EXPECT_THAT(made.report.layers.back().kernel, HasSubstr("SSE"));
}

TEST(Assign, FastFunctionsAreTooFarFromThoseThatTheyReplace) {
  ModelBuilder builder;
  builder.input("x").activation("y", "x", "Sigmoid_Fallback_Float_M1").outputs({"y"});
  const auto model = builder.build();
  AssignOptions options = options_for(planes(8, 8, 8), KernelSet::sse);
  EXPECT_EQ(assigned(*model, options).report.layers.back().kernel, "Sigmoid_Fallback_Float_M1");
  if (documented_kernels().Create("Sigmoid_SSE_Float_M1") == nullptr) return;
  options.tolerance = 0.05;
  EXPECT_EQ(assigned(*model, options).report.layers.back().kernel, "Sigmoid_SSE_Float_M1");
}

// Tanh and HSigmoid meet at large numbers, a rectifier and ReLU6 at small ones.
TEST(Assign, FewNumbersTellFunctionsApart) {
  runtime::KernelRegistry both;
  runtime::InferenceParamRegistry params;
  utility::init_register_operators(both, params);
  utility::init_register_extension_operators(both, params);
  for (const std::string function : {"TanH", "Sigmoid", "HSigmoid", "HSwish", "ReLU", "ReLU6"}) {
    ModelBuilder builder;
    builder.input("x").activation("y", "x", function + "_Fallback_Float_M1").outputs({"y"});
    EstimatedCosts costs;
    const TensorShape one({1}, DataType::FLOAT32, LayoutType::C);
    const auto made = assign_kernels(*builder.build(), both, costs, options_for(one));
    const std::string& kernel = made.report.layers.back().kernel;
    EXPECT_EQ(kernel.substr(0, kernel.find('_')), function) << kernel;
  }
}

// What one layer rounds, others enlarge, so what is far off for a sum has to be asked for.
TEST(Assign, FilteringInLargerTilesTakesMoreTolerance) {
  QRT_SKIP_WHERE_MISSING("Conv2d_K3x3_S1x1_D1x1_G1_FMA_C8HW8_FLOAT_Winograd6_M1");
  ModelBuilder builder;
  builder.input("x").conv2d("y", "x", padded_convolution(16, 16)).outputs({"y"});
  const auto model = builder.build();
  AssignOptions options = options_for(planes(16, 24, 24), KernelSet::fma);
  const auto chosen = [&](double tolerance) {
    options.tolerance = tolerance;
    CostsByRule costs([](const Work& work) {
      if (work.info == nullptr) return 0.001;
      const bool is_filtering = work.kernel.find("C8HW8_FLOAT_Winograd") != std::string::npos;
      return is_filtering ? (work.kernel.find("Winograd6") == std::string::npos ? 2.0 : 1.0) : 3.0;
    });
    return assign_kernels(*model, marlo::test::all_kernels(), costs, options)
        .report.layers.back()
        .kernel;
  };
  EXPECT_THAT(chosen(1e-3), HasSubstr("Winograd6"));
  EXPECT_THAT(chosen(1e-4), HasSubstr("Winograd4"));
  EXPECT_THAT(chosen(2e-5), ::testing::Not(HasSubstr("C8HW8_FLOAT_Winograd")));
}

TEST(Assign, WithoutToleranceResultsKeepTheirBits) {
  const auto model = residual().build();
  const TensorShape shape = planes(16, 13, 11);
  AssignOptions options = options_for(shape);
  options.tolerance = 0;
  const auto numbers = picture(runtime::ElementCount(shape));
  EXPECT_EQ(outputs_of(assigned(*model, options).model, shape, numbers),
            outputs_of(*model, shape, numbers));
}

TEST(Assign, SaysWhichNetworkOrLayerIsWrong) {
  const auto model = residual().build();
  EstimatedCosts costs;
  const auto fault_of = [&](const AssignOptions& options) -> std::string {
    try {
      assign_kernels(*model, documented_kernels(), costs, options);
    } catch (const std::invalid_argument& fault) {
      return fault.what();
    }
    return "";
  };
  AssignOptions options;
  EXPECT_EQ(fault_of(options), "layer \"x\": the shape of this input isn't known");
  options.inputs["x"] = planes(3, 8, 8);
  EXPECT_THAT(fault_of(options), HasSubstr("layer \"c\": the kernel"));
  options.network = "other";
  EXPECT_EQ(fault_of(options), "network \"other\": the model hasn't got it");
}

TEST(KernelSets, AreKnownByTheirWords) {
  std::set<std::string> words;
  for (const char* const word : {"portable", "sse", "avx", "fma", "avx2", "avx512"}) {
    const auto set = kernel_set_of(word);
    ASSERT_TRUE(set) << word;
    words.insert(word_of(*set));
  }
  EXPECT_EQ(words.size(), 6u);
  EXPECT_FALSE(kernel_set_of("neon"));
  EXPECT_GE(processor_kernels(), KernelSet::sse);
  EXPECT_EQ(set_of_kernel("ReLU_Fallback_Float_M1", runtime::InstructionSet::baseline),
            KernelSet::portable);
}

}  // namespace
}  // namespace marlo::toolkit::test
